"""Asks a server for its clock between frames, and finds the answers among its messages. It does no input or output."""

import math
from collections import deque
from typing import Any

from ._board_clock import BoardClock, ClockReading, ClockRelation, UtcAnchor

#: How often the server is asked, in seconds.
INTERVAL = 1.0

#: How long before a frame of the sensors to ask at first, in seconds.
_SHORTEST_LEAD = 1e-3

#: The question, and a command whose answer shows that earlier ones were answered, or that their answers are lost.
_QUESTION, _CHECK = "ping", "stats"

#: How a server answers a line that was damaged on its way.
_LINE_ERRORS = frozenset(
    (
        "line_too_long",
        "bad_json",
        "trailing_text",
        "nesting_too_deep",
        "too_many_values",
        "out_of_memory",
        "bad_command",
        "unknown_command",
        "bad_argument",
    )
)


class ClockWatch:
    """Asks a server for its clock once a second, and keeps what the answers show.

    A question goes out when the server can answer at once: between two frames. If the sensors pace the frames,
    the server waits for them and answers only when it has read the next frame; the question then goes out
    shortly before that is due. Answers arrive in the order of the commands, so that one of a later command
    shows that an earlier one was lost.
    """

    def __init__(self, ticks_per_second: float, anchor: UtcAnchor) -> None:
        """Watches a clock; none with 0 ticks per second."""
        self._clock = BoardClock(ticks_per_second, anchor)
        self._has_clock = ticks_per_second > 0.0
        #: The server gave a time to each item of the last frame: it is not asked.
        self.frames_have_times = False
        self._sensor_period = 0.0
        self._lead = 0.0
        self._asked = -math.inf
        #: The commands that were not answered yet, and when they were sent.
        self._open: deque[tuple[str, float]] = deque()
        #: A message was damaged since the last command: it may have been an answer.
        self._doubtful = False

    @property
    def relation(self) -> ClockRelation | None:
        """What is known of the server's clock; None if nothing."""
        return self._clock.relation

    def begin(self, sensor_period: float) -> None:
        """Begins with a stream of frames.

        Args:
            sensor_period: time between two frames that the sensors pace, in seconds; 0 if they do not.
        """
        self.frames_have_times = False
        self._sensor_period = sensor_period
        self._lead = min(_SHORTEST_LEAD, sensor_period / 2.0)

    def time_left(self, now: float, last_arrival: float) -> float:
        """How long until a question is due, in seconds; negative if it is late.

        `last_arrival` is when the last bytes have arrived.
        """
        if not self._has_clock or self.frames_have_times:
            return math.inf
        due = self._asked + INTERVAL
        if self._sensor_period > 0.0:
            due = max(due, last_arrival + self._sensor_period - self._lead)
        return due - now

    def next_command(self, now: float) -> str | None:
        """The command to send now, if any: it counts as sent."""
        self._asked = now
        if not self._has_clock:
            return None
        command = _QUESTION
        if any(name == _QUESTION for name, _ in self._open):
            if not self._doubtful:
                return None
            command, self._doubtful = _CHECK, False
        self._open.append((command, now))
        return command

    def take(self, header: dict[str, Any], awaited: str | None, now: float) -> bool:
        """Whether a message answers one of these commands. `awaited` is the command that a caller waits for."""
        if not self._open or self._doubtful and header.get("command") == awaited:
            return False
        if header["status"] == "error":
            return self._take_error(header)
        if all(name != header.get("command") for name, _ in self._open):
            return False
        name, sent = self._open.popleft()
        while name != header["command"]:
            name, sent = self._open.popleft()
        self._doubtful &= bool(self._open)
        if name == _QUESTION:
            self._add(header.get("tick"), sent, now)
        return True

    def note_damage(self) -> bool:
        """Notes that a message was damaged; returns whether it may be the first answer that is lost."""
        is_new = bool(self._open) and not self._doubtful
        self._doubtful |= is_new
        return is_new

    def note_answer(self, command: str) -> None:
        """Notes that another command was answered: all answers before it have arrived, or were lost."""
        if all(name != command for name, _ in self._open):
            self.forget_commands()

    def forget_commands(self) -> None:
        """Expects no answer any more."""
        self._open.clear()
        self._doubtful = False

    def _take_error(self, header: dict[str, Any]) -> bool:
        """Whether an error is the answer to a command that was damaged on its way."""
        if self._doubtful or header.get("code") not in _LINE_ERRORS:
            return False
        self._open.popleft()
        return True

    def _add(self, tick: object, sent: float, received: float) -> None:
        """Adds the answer to a question."""
        if type(tick) is not int or not 0 <= tick < 2**32:
            # The server has no clock, or was built before it answered with it.
            self._has_clock = False
            return
        self._clock.add(ClockReading(sent, received, tick))
        if received - sent > self._lead + self._sensor_period / 2.0:
            self._lead = min(2.0 * self._lead, self._sensor_period / 2.0)
