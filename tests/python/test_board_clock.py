"""The relation of a server's clock to that of this machine, with the same cases as the tests of the C++ client."""

import itertools
import math
import random

import pytest
from vantor._board_clock import MOST_DRIFT, Arrival, BoardClock, ClockReading, UtcAnchor, read_anchor

#: Ticks after which a clock shows the same again, in seconds of a clock with a million ticks per second.
WRAP_S = 4294.967296

TICK_S = 1e-6


class DriftingClock:
    """A clock whose rate changes at random between two limits, and its true times."""

    def __init__(self, ticks_per_second: float, most_ppm: float, seed: int) -> None:
        self._rate = ticks_per_second
        self._most = most_ppm * 1e-6
        self._random = random.Random(seed)
        self._drift = self.any(-self._most, self._most)
        self._ticks = 4.2e9
        self.now = 1e6

    def advance(self, duration: float) -> None:
        """Goes on for some seconds of true time."""
        change = self.any(-self._most, self._most) / 50.0
        self._drift = min(max(self._drift + change, -self._most), self._most)
        self.now += duration
        self._ticks += duration * self._rate * (1.0 + self._drift)

    @property
    def tick(self) -> int:
        """The tick now."""
        return int(self._ticks) % 2**32

    def any(self, least: float, most: float) -> float:
        """A random number."""
        return self._random.uniform(least, most)

    def read(self, shortest: float, jitter: float) -> ClockReading:
        """A reading whose way there and back takes a random time."""
        sent = self.now
        self.advance(shortest + self.any(0.0, jitter))
        tick = self.tick
        self.advance(shortest + self.any(0.0, jitter))
        return ClockReading(sent, self.now, tick)


def clock_with(*readings: tuple[float, float, int], ticks_per_second: float = 1e6) -> BoardClock:
    """A clock with these readings."""
    clock = BoardClock(ticks_per_second)
    for reading in readings:
        clock.add(ClockReading(*reading))
    return clock


def bounds(clock: BoardClock, tick: int, arrival: float) -> tuple[float, float] | None:
    """The bounds of the tick of a frame."""
    assert clock.relation is not None
    found = clock.relation.bounds_of_frame(tick, arrival)
    return None if found is None else (found.earliest, found.latest)


@pytest.mark.parametrize(
    ("ticks_per_second", "ppm", "jitter"),
    [(1e6, 50, 0.0), (1e6, 50, 0.02), (1e6, 199, 0.001), (1e9, 50, 0.02), (1000.0, 50, 0.02)],
)
def test_contains_the_true_time_of_every_tick(ticks_per_second: float, ppm: float, jitter: float) -> None:
    for seed, late in itertools.product((1, 2), (0.5, 1.5)):
        board = DriftingClock(ticks_per_second, ppm, seed)
        clock = BoardClock(ticks_per_second)
        for _ in range(200):
            clock.add(board.read(50e-6, jitter))
            for _ in range(20):
                board.advance(0.05)
                found = bounds(clock, board.tick, board.now + board.any(0.0, late))
                assert found is not None and found[0] <= board.now <= found[1]
                most = 2.0 * jitter + 1e-4 + 2.0 * MOST_DRIFT * 1.1 + 2.0 / ticks_per_second
                assert found[1] - found[0] < most
        assert clock.contradictions == 0


def test_is_as_exact_as_the_shortest_round_trip_and_the_drift_since_then() -> None:
    clock = clock_with((10.0, 10.5, 200_000), (11.0, 11.001, 1_000_000), (12.0, 12.7, 2_000_000))
    expected = (12.0 - TICK_S, 12.001 + MOST_DRIFT + 2 * TICK_S)
    assert bounds(clock, 2_000_000, 12.8) == pytest.approx(expected, abs=1e-8)


def test_knows_nothing_without_a_reading_or_a_clock() -> None:
    assert BoardClock(1e6).relation is None
    assert clock_with((1.0, 1.0, 5), ticks_per_second=0.0).relation is None


def test_finds_ticks_before_a_reading_and_across_wraps() -> None:
    clock = clock_with((100.0, 100.0, 5))
    before = bounds(clock, 2**32 - 999_995, 100.5)
    assert before is not None and math.fsum(before) / 2 == pytest.approx(99.0, abs=1e-8)
    clock.add(ClockReading(100.0 + 3 * WRAP_S, 100.001 + 3 * WRAP_S, 5))
    after = bounds(clock, 5, 100.1 + 3 * WRAP_S)
    assert after is not None and math.fsum(after) / 2 == pytest.approx(100.0005 + 3 * WRAP_S, abs=1e-6)


def test_finds_ticks_of_frames_that_waited_to_be_read() -> None:
    clock = clock_with((100.0, 100.0, 5))
    late = bounds(clock, 1_000_005, 100.0 + 0.69 * WRAP_S)
    assert late is not None and math.fsum(late) / 2 == pytest.approx(101.0, abs=1e-8)
    assert bounds(clock, 1_000_005, 100.0 + 0.71 * WRAP_S) is None, "the tick can be one of the next wrap"


def test_knows_that_frames_were_measured_before_they_arrived() -> None:
    clock = clock_with((100.0, 100.5, 0))
    assert bounds(clock, 100_000, 100.2) == pytest.approx((100.1, 100.2), abs=1e-4)
    assert bounds(clock, 300_000, 100.2) is None


def test_forgets_all_readings_after_one_that_contradicts_those_before() -> None:
    clock = clock_with((10.0, 10.001, 0), (11.0, 11.001, 1_500_000))
    assert clock.contradictions == 1 and clock.relation is None
    clock.add(ClockReading(12.0, 12.001, 2_500_000))
    assert clock.relation is None, "nothing agrees with it yet"
    clock.add(ClockReading(13.0, 13.001, 3_500_000))
    assert bounds(clock, 3_600_000, 13.2) == pytest.approx((13.1, 13.101), abs=1e-4)


def test_gives_utc_with_a_bound_that_includes_the_rounding() -> None:
    clock = BoardClock(1e6, UtcAnchor(1.7e9, 0.01))
    clock.add(ClockReading(100.0, 100.002, 0))
    utc, bound = Arrival(clock.relation, 101.5).utc(1_000_000)
    assert utc == pytest.approx(1.7e9 + 101.001, abs=1e-6)
    assert 0.011 + MOST_DRIFT + TICK_S < bound < 0.011 + MOST_DRIFT + 2 * TICK_S
    assert all(map(math.isnan, Arrival(None, 101.5).utc(0)))


def test_reads_both_clocks_until_the_readings_are_close() -> None:
    times = itertools.accumulate([1.0, 0.5, 0.5, 0.1, 0.002, 0.002, *[1.0] * 30])
    anchor = read_anchor(lambda: next(times), lambda: 1.8e9 + next(times) + 0.0005)
    assert anchor.bound == pytest.approx(0.002)
    assert abs(anchor.utc_at_zero - 1.8e9) <= anchor.bound


def test_uses_no_reading_within_which_the_ticks_can_wrap_around() -> None:
    clock = BoardClock(1e9)
    clock.add(ClockReading(10.0, 10.001, 0))
    clock.add(ClockReading(11.0, 11.0 + 1.2 * 2**32 / 1e9, 1_000_000_000))
    assert clock.contradictions == 0
    assert clock.relation is not None
    bounds = clock.relation.bounds_of_frame(1_000_000_000, 11.1)
    assert bounds is not None
    assert bounds.earliest == pytest.approx(11.0, abs=1e-3) and bounds.width < 2e-3


def test_believes_a_clock_less_with_each_contradiction() -> None:
    clock = BoardClock(1e6)
    known = []
    for time, tick in ((1, 1), (2, 3), (3, 4), (4, 5), (5, 7), (6, 8), (7, 9), (8, 10)):
        clock.add(ClockReading(time, time + 0.001, tick * 1_000_000))
        known.append(clock.relation is not None)
    assert known == [True, False, False, True, False, False, False, True]
    assert clock.contradictions == 2
