"""Tests of the counter of missing frames, with the same streams as the tests of the C++ client."""

import math
import random

import pytest

from vantor._loss import LossCounter, TickClock


def counts(period, ticks, delayed=()):
    """The counts after each of these ticks, of frames that are delayed or not."""
    counter = LossCounter(period)
    return [counter.add(tick, 0, bool(delayed) and delayed[place]) for place, tick in enumerate(ticks)]


@pytest.mark.parametrize("ticks, expected", [
    ([7, 107, 207, 307], [0, 0, 0, 0]),
    ([0, 100, 400, 500, 700], [0, 0, 2, 2, 3]),
    ([0, 180, 210, 380, 400, 580, 600], [0] * 7),
    ([80, 100, 200, 300], [0, 0, 0, 0]),
    ([0, 280, 300, 580, 600], [0, 1, 1, 2, 2]),
    ([0, 198, 203, 300], [0, 1, 0, 0]),
    ([10, 230, 310, 410], [0, 1, 1, 1]),
    ([0, 100, 695, 755, 815, 900, 1000], [0, 0, 5, 5, 4, 4, 4]),
])
def test_counts_the_places_without_a_frame(ticks, expected):
    assert counts(100, ticks) == expected


def test_trusts_delayed_frames_less():
    ticks = [0, 100, 695, 755, 815, 900, 1000]
    assert counts(100, ticks, [False, False, True, True, True, False, False]) == [0, 0, 4, 4, 4, 4, 4]
    counter = LossCounter(1000)
    for frame in range(10000):
        assert counter.add(1030 * frame, 0, frame > 0) == frame * 30 // 1000


def test_follows_ticks_that_wrap_around():
    assert counts(1000, [4294967000, 704, 3704]) == [0, 0, 2]


@pytest.mark.parametrize("rate", [1 - 100e-6, 1 + 100e-6])
def test_does_not_mistake_the_difference_of_clocks_for_frames(rate):
    assert counts(50000, (round(i * 50000 * rate) % 2**32 for i in range(20000)))[-1] == 0


@pytest.mark.parametrize("difference", [-50e-6, 50e-6, -200e-6, 200e-6])
def test_counts_gaps_exactly_although_clocks_differ(difference):
    counter = LossCounter(1000)
    longest = int(0.049 / abs(difference))
    place = 0
    for gap in range(50):
        for step in (*[1] * 10, 1 + longest):
            count = counter.add(round(place * 1000 * (1 + difference)) % 2**32, 0, False)
            place += step
        assert count == gap * longest


def test_is_exact_for_random_gaps_and_delays():
    mixed = random.Random(2)
    counter = LossCounter(20000)
    place = left_out = 0
    for _ in range(20000):
        tick = int((place + min(mixed.expovariate(30.0), 0.85)) * 20000)
        assert counter.add(tick % 2**32, 0, False) == left_out
        gap = mixed.randint(1, 400) if mixed.random() < 0.1 else 0
        place += 1 + gap
        left_out += gap


def test_counts_damaged_messages_only_if_ticks_do_not_show_them():
    without_period = LossCounter(0)
    assert [without_period.add(5, 0, False), without_period.add(5000, 0, False)] == [0, 0]
    assert without_period.add(9000, 3, False) == 3
    with_period = LossCounter(100)
    assert with_period.add(0, 1, False) == 1, "before the first frame"
    assert with_period.add(100, 2, False) == 1, "they were not frames"
    assert with_period.add(300, 1, False) == 2


def test_does_not_use_a_period_that_ticks_cannot_count():
    assert counts(2147483647, [0, 4294967294]) == [0, 1]
    too_long = LossCounter(2147483648)
    assert [too_long.add(0, 0, False), too_long.add(2147483648, 1, False)] == [0, 1], "a damaged message"


def test_converts_ticks_to_seconds():
    clock = TickClock(1000.0)
    assert [clock.advance(tick) for tick in (2**32 - 500, 500, 1500)] == [0.0, 1.0, 2.0]
    without_clock = TickClock(0.0)
    assert [without_clock.advance(tick) for tick in (0, 100)] == [0.0, 0.0]
    assert math.isclose(TickClock(1e-3).advance(7), 0.0)
