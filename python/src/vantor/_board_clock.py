"""Relates the clock of a server to the clock of this machine, with bounds.

All times are seconds of the clock of this machine, unless they are called UTC.
"""

import math
from collections.abc import Callable
from dataclasses import dataclass
from typing import Protocol

#: Most by which the rates of the two clocks may differ from each other: crystals of up to 100 ppm on both sides.
#: The difference may change at any time.
MOST_DRIFT = 200e-6

#: Ticks after which the clock shows the same number again.
_WRAP = 2.0**32

#: How much before the last reading a frame may have been measured, and how much after it it may arrive, in wraps:
#: together less than one, so that each tick has one place only.
_MOST_BEFORE = 0.25
_MOST_AFTER = 0.7

#: How often the system clock is read.
_ANCHOR_READINGS = 5

#: Moments in files and messages are less than this many seconds from 1970, and bounds are shorter.
MOST_UTC = 4.6e9

#: What is given where the time is not known.
UNKNOWN_UTC = (math.nan, math.nan)


class UtcSource(Protocol):
    """Knows when a tick was."""

    def utc(self, tick: int) -> tuple[float, float]:
        """The moment in seconds since 1970 (UTC), and how far the true one can be away; NaN if unknown."""


@dataclass(frozen=True, slots=True)
class KnownUtc:
    """The time of a single tick.

    Attributes:
        seconds: since 1970 (UTC).
        bound: how far the true time can be away, in seconds.
    """

    seconds: float
    bound: float

    def utc(self, tick: int) -> tuple[float, float]:
        """See UtcSource."""
        return self.seconds, self.bound


@dataclass(frozen=True, slots=True)
class UtcAnchor:
    """Relates the clock of this machine to UTC.

    Attributes:
        utc_at_zero: UTC when the clock showed 0.
        bound: how far that can be away from what the system clock says, in seconds.
    """

    utc_at_zero: float
    bound: float = 0.0


def read_anchor(clock: Callable[[], float], system_clock: Callable[[], float]) -> UtcAnchor:
    """Reads the clock and the system clock: some times, of which the closest readings are taken."""
    anchors = []
    for _ in range(_ANCHOR_READINGS):
        before, utc, after = clock(), system_clock(), clock()
        anchors.append(UtcAnchor(utc - (before + after) / 2.0, (after - before) / 2.0))
    return min(anchors, key=lambda anchor: anchor.bound)


@dataclass(frozen=True, slots=True)
class ClockReading:
    """A tick of a server's clock, which was current at some moment between two times.

    Attributes:
        sent: when the server was asked.
        received: when the answer was there.
        tick: the answer.
    """

    sent: float
    received: float
    tick: int


@dataclass(frozen=True, slots=True)
class TimeBounds:
    """A moment lies between these two times, in seconds."""

    earliest: float
    latest: float

    @property
    def middle(self) -> float:
        """The time in the middle; the true one is at most half the width away."""
        return self.earliest + self.width / 2.0

    @property
    def width(self) -> float:
        """How far they are apart; negative if no moment lies within them."""
        return self.latest - self.earliest

    def common(self, earliest: float, latest: float) -> "TimeBounds | None":
        """The part between two other times; None if there is none."""
        both = TimeBounds(max(self.earliest, earliest), min(self.latest, latest))
        return both if both.width >= 0.0 else None


@dataclass(frozen=True, slots=True)
class ClockRelation:
    """The moment of one tick within bounds, from which those of other ticks follow.

    Attributes:
        ticks_per_second: nominal rate of the server's clock.
        tick: of the last reading.
        moment: of this tick.
        anchor: of the clock of this machine.
    """

    ticks_per_second: float
    tick: int
    moment: TimeBounds
    anchor: UtcAnchor

    def bounds(self, tick: int, near: float) -> TimeBounds:
        """The bounds of a tick that is less than half a wrap away from a time."""
        ticks = float((tick - self.tick) % 2**32)
        expected = (near - self.moment.middle) * self.ticks_per_second
        return self._bounds_after((ticks + round((expected - ticks) / _WRAP) * _WRAP) / self.ticks_per_second)

    def bounds_of_frame(self, tick: int, arrival: float) -> TimeBounds | None:
        """The bounds of the tick of a frame that arrived at a time.

        The next reading may be late, and frames may wait in buffers until they are read: the last reading shows
        to which wrap the tick belongs, not the arrival. None if the reading is too old for that, or contradicts
        the tick.
        """
        wrap = _WRAP / self.ticks_per_second
        middle = self.moment.middle
        if arrival - middle > _MOST_AFTER * wrap:
            return None
        near = middle + (0.5 - _MOST_BEFORE) * wrap
        return self.bounds(tick, near).common(-math.inf, arrival)

    def _bounds_after(self, seconds: float) -> TimeBounds:
        """Bounds of the moment some seconds by the server's clock after the reading; before it, if negative."""
        # Both ticks are whole numbers: each moment was up to one tick later.
        error = abs(seconds) * MOST_DRIFT + 1.0 / self.ticks_per_second
        return TimeBounds(
            math.nextafter(self.moment.earliest + (seconds - error), -math.inf),
            math.nextafter(self.moment.latest + (seconds + error), math.inf),
        )


@dataclass(frozen=True, slots=True)
class Arrival:
    """When bytes arrived, and what was known then of the server's clock."""

    relation: ClockRelation | None
    time: float

    def utc(self, tick: int) -> tuple[float, float]:
        """See UtcSource; of the tick of a frame."""
        if self.relation is None:
            return UNKNOWN_UTC
        bounds = self.relation.bounds_of_frame(tick, self.time)
        if bounds is None:
            return UNKNOWN_UTC
        anchor = self.relation.anchor
        middle = anchor.utc_at_zero + bounds.middle
        return middle, bounds.width / 2.0 + anchor.bound + math.ulp(middle)


class BoardClock:
    """The time at which a server's clock showed a tick, as an interval that certainly contains it.

    A reading says that the tick was current between two times. Later, the interval becomes wider by twice the
    largest drift, and the next reading cuts it: a short round trip counts more than a long one, whichever way
    took the time. All that is assumed is that the rates of the clocks never differ by more than MOST_DRIFT.
    """

    def __init__(self, ticks_per_second: float, anchor: UtcAnchor = UtcAnchor(0.0)) -> None:
        """Knows nothing; nor later if the server has no clock, with 0 ticks per second."""
        self._ticks_per_second = ticks_per_second
        self._anchor = anchor
        self._last: ClockRelation | None = None
        #: How many readings must agree before anything is known.
        self._doubts = 0
        #: How often a reading contradicted those before it.
        self.contradictions = 0

    @property
    def relation(self) -> ClockRelation | None:
        """What the readings show; None if nothing yet."""
        return None if self._doubts else self._last

    def add(self, reading: ClockReading) -> None:
        """Adds a reading, not older than the last one.

        If it contradicts the earlier ones, the server's clock was set, or runs at a wrong rate: all readings are
        forgotten, and nothing is known until further ones agree: a second one after the first contradiction, and
        with each contradiction twice as many. One within which the ticks can wrap around is not used.
        """
        if not self._ticks_per_second > 0.0:
            return
        moment: TimeBounds | None = TimeBounds(reading.sent, reading.received)
        if self._last is not None and moment is not None:
            wrap = _WRAP / self._ticks_per_second
            moment, *others = (
                self._last.bounds(reading.tick, moment.middle + shift).common(reading.sent, reading.received)
                for shift in (0.0, -wrap, wrap)
            )
            if any(others):
                return
            self._doubts = max(self._doubts - 1, 0)
        if moment is None:
            self._doubts = 1 << min(self.contradictions, 32)
            self.contradictions += 1
            self._last = None
        else:
            rate = self._ticks_per_second
            self._last = ClockRelation(rate, reading.tick, moment, self._anchor)
