"""Counts the frames that are missing from a stream, and converts ticks to seconds."""

import math

#: How much earlier than on the grid a frame may seem to be, in periods: the grid may have become too late.
_TOLERANCE = 0.1

#: How much later the grid may become with each period, in periods: more than the clocks of boards differ.
_DRIFT = 200e-6

#: How much later it may become with one frame, however long the gap was, in periods.
_MOST_DRIFT = 0.05

#: A frame that is less than this after the previous one, in periods, has the place counted for that one.
_SAME_PLACE = 0.5

#: Half of the ticks after which they wrap around: with a longer period, one missing frame cannot be seen.
_LONGEST_PERIOD = 2.0**31

#: Number of frames measured in time after which a gap is certain.
_FRAMES_TO_CERTAINTY = 10


class LossCounter:
    """Counts the frames that are missing from a stream, from the ticks of those that arrived.

    Frames are due on a grid, one period apart, and are measured when they are due or later. The counter
    follows the grid by the frames that are least late, so that neither late frames nor a clock that is off by
    up to 0.02 % change the count. A gap whose last frame was late by nearly a period can be counted one too
    large until the stream has caught up.
    """

    def __init__(self, period: float) -> None:
        """Starts with a period in ticks, 0 if unknown: then only damaged messages are counted."""
        self._period = period if period < _LONGEST_PERIOD else 0.0
        self._started = False
        self._last_tick = 0
        #: Ticks by which the last frame was later than its place on the grid.
        self._late = 0.0
        #: Ticks by which the grid has become earlier since the last gap.
        self._moved = 0.0
        #: Frames during which the last gap may still be one too large.
        self._uncertain = 0
        self._missing = 0

    def add(self, tick: int, damaged: int, delayed: bool) -> int:
        """Adds a frame that arrived; returns the number of frames missing before it since the start.

        `damaged` messages since the previous frame, and frames lost on the way to the server, count as missing if
        the period is unknown or no frame has arrived before. The result is one less than before if this frame shows that the one after the last gap
        was only late.
        """
        elapsed = (tick - self._last_tick) % 2**32
        self._last_tick = tick
        if not self._started or not self._period > 0.0:
            self._started = True
            self._missing += damaged
            return self._missing
        self._late += elapsed
        if self._has_place_of_last_frame():
            self._missing -= 1
            self._late -= self._moved
            self._uncertain = 0
        else:
            self._advance(delayed)
        self._follow_grid(delayed)
        return self._missing

    def _has_place_of_last_frame(self) -> bool:
        """Whether this frame shows that one place too many was counted at the last gap."""
        return self._uncertain > 0 and self._late - self._moved < _SAME_PLACE * self._period

    def _advance(self, delayed: bool) -> None:
        """Moves from the place of the last frame to that of this one, and counts the places between them."""
        # A delayed frame is never early.
        steps = max(1, math.floor(self._late / self._period + (0.0 if delayed else _TOLERANCE)))
        self._late -= steps * self._period
        self._missing += steps - 1
        if steps > 1:
            self._uncertain = _FRAMES_TO_CERTAINTY
            self._moved = 0.0
        elif not delayed and self._uncertain > 0:
            self._uncertain -= 1
        if not delayed:
            self._late -= min(steps * _DRIFT, _MOST_DRIFT) * self._period

    def _follow_grid(self, delayed: bool) -> None:
        """Makes the grid earlier if this frame is earlier than its place.

        A delayed frame shows the grid only if no gap before it may have been counted too large.
        """
        if self._late < 0.0 and (not delayed or self._uncertain == 0):
            self._moved -= self._late
            self._late = 0.0


class TickClock:
    """Converts a series of 32-bit ticks to seconds since the first one; steps must be shorter than a wrap."""

    def __init__(self, ticks_per_second: float) -> None:
        self._ticks_per_second = ticks_per_second
        self._elapsed = 0
        self._last: int | None = None

    def advance(self, tick: int) -> float:
        """The time of the next tick, in seconds since the first one; 0 without a clock."""
        if self._last is not None:
            self._elapsed += (tick - self._last) % 2**32
        self._last = tick
        return self._elapsed / self._ticks_per_second if self._ticks_per_second > 0.0 else 0.0
