"""Sends commands to a server, and finds their answers among its messages."""

import json
import logging
import math
import os
import threading
import time
from collections import deque
from collections.abc import Callable, Iterator
from contextlib import contextmanager, suppress
from dataclasses import dataclass, fields
from numbers import Real
from typing import Any, NoReturn, Protocol

from . import _members
from ._board_clock import Arrival, read_anchor
from ._clock_watch import INTERVAL, ClockWatch
from ._header_form import HeaderForm
from ._links import Link
from ._messages import Message, MessageReader
from ._plain_values import to_float
from ._printable import printable
from .errors import BadMessage, ConnectionLost, Error, ProtocolError, ServerError, ServerTimeout

#: Lowest rate at which the payload of a message may arrive, in bytes per second: a third of 300 baud.
SLOWEST_PAYLOAD_RATE = 10

#: How much longer a wait can become because of payloads, in seconds.
_LONGEST_PAYLOAD_TIME = 600.0

#: How long a program that was asked to stop waits for the end of the session, in seconds.
_SHORT_TIME = 1.0

#: Most pings between two "end" commands, see `_ending_commands`.
_MOST_PINGS = 4

#: Interval at which "end" is repeated after connecting, until the server answers, in seconds.
_END_INTERVAL = 1.0

#: Number of frames for which the answer to a command may have to wait, and the upper limit of their time in
#: seconds.
_SLOW_FRAMES = 3.0
_LONGEST_TIME = 3600.0

#: Longest time-out in seconds.
_LONGEST_TIMEOUT = 1e9

#: From when on a pause between two reads is suspected to be the cause of a lost connection, and for how long
#: after it, in seconds. A server disconnects a host that accepts no data for 10 s, unless told otherwise.
_LONG_PAUSE = 5.0
_SUSPICION_TIME = 10.0

#: From when on a pause between two reads shows that the program is slow, in seconds: then it reads less at once, and
#: more often. Otherwise a server whose frames fill all buffers could wait for too long.
_SLOW_PAUSE = 1.0

#: The shortest wait of a link, in seconds.
_SHORTEST_WAIT = 1e-3

#: Number of bytes that the report about invalid data shows.
_BYTES_SHOWN = 16

#: The levels of `logging` for those of a server, from the most severe one; "DEBUG" is the rest.
_LOG_LEVELS = {"ERROR": logging.ERROR, "WARNING": logging.WARNING, "INFO": logging.INFO, "VERBOSE": 15}

#: This process. To ask the system for it before each read would take long.
_process = os.getpid()

_server_log = logging.getLogger("vantor.server")


def _note_fork() -> None:
    """Notes that this is a new process."""
    global _process
    _process = os.getpid()


os.register_at_fork(after_in_child=_note_fork)

LinkOpener = Callable[[], Link]


class FrameKeeper(Protocol):
    """Takes the messages of a stream that arrive before the answer to a command."""

    def keep(self, message: Message) -> None:
        """Takes a frame."""

    def note_damage(self, fault: BadMessage) -> None:
        """Takes a damaged message."""


@dataclass(frozen=True, slots=True)
class Timeouts:
    """How long a client waits, in seconds.

    While the payload of a frame arrives, at 10 bytes per second or faster, it waits longer: for the time of
    one frame at this rate, but at most ten minutes, however many frames arrive. If the configuration asks
    for slow frames, it adds the time of three of them, but at most an hour, because the server executes most
    commands between two frames.

    Attributes:
        connect: for connecting or starting a server.
        answer: for the answer to a command.
        configure: for the beginning of a session: sensors calibrate meanwhile.
        frame: for a frame.
    """

    connect: float = 5.0
    answer: float = 5.0
    configure: float = 60.0
    frame: float = 10.0

    def __post_init__(self) -> None:
        for field in fields(self):
            value = getattr(self, field.name)
            if not isinstance(value, Real):
                raise TypeError(f'The time-out "{field.name}" must be a number of seconds, not {value!r}.')
            if not 0.0 <= to_float(value) <= _LONGEST_TIMEOUT:
                raise ValueError(
                    f'The time-out "{field.name}" is {value}; use a number of seconds from 0 to 1e9.'
                )


@dataclass(slots=True)
class Limit:
    """Until when to wait, and for how long that is extended while a payload arrives.

    All extensions together last as long as a single payload at the slowest rate: otherwise a series of small
    ones would extend it for ever.
    """

    deadline: float
    extension: float = 0.0
    #: The deadline without extensions, after the first one.
    first_deadline: float | None = None

    def extend(self, now: float, payload_size: int) -> bool:
        """Waits longer for a payload of a size; False if that was done for too long."""
        if self.first_deadline is None:
            self.first_deadline = self.deadline
        payload_time = min(payload_size / SLOWEST_PAYLOAD_RATE, _LONGEST_PAYLOAD_TIME)
        self.deadline = min(now + self.extension, self.first_deadline + payload_time)
        return self.deadline > now


class Conversation:
    """Commands to one server, and the messages that answer them."""

    def __init__(
        self,
        open_link: LinkOpener,
        timeouts: Timeouts,
        clock: Callable[[], float] = time.monotonic,
        system_clock: Callable[[], float] = time.time,
    ) -> None:
        """Connects, and ends any session that the server was in.

        A board may still be starting: the first command is repeated every second until the answer time-out.
        """
        self.timeouts = timeouts
        self._clock = clock
        self._anchor = read_anchor(clock, system_clock)
        self._watch = ClockWatch(0.0, self._anchor)
        self._arrival = Arrival(None, clock())
        #: The command whose answer a call waits for.
        self._awaited: str | None = None
        self._reader = MessageReader()
        #: How long some frames of the session take, in seconds.
        self._slow_time = 0.0
        #: A call was interrupted: bytes may have been received but not counted, or a command sent in part.
        self.torn = False
        self._idle = False
        #: Answers to repeated "end" commands, or to those of an earlier host, may still arrive.
        self._late_ends = False
        #: How often the session was to be ended, but the answer has not been seen.
        self._unfinished_ends = 0
        #: When "end" is repeated, while connecting.
        self._repetition: float | None = None
        self._first_bytes = b""
        self._understood = False
        #: Takes the frames that arrive before the answer to a command; None to drop them.
        self.keeper: FrameKeeper | None = None
        #: When the last read ended, and the end and length of the last long pause before a read.
        self._last_read = 0.0
        self._pause_end = -math.inf
        self._pause = 0.0
        #: The thread whose call is in progress, if any, under the only key "thread".
        self._user: dict[str, int] = {}
        #: A process that is forked shares the link, but must not use it.
        self._process = _process
        self._link: Link | None = open_link()
        try:
            self._find_server()
        except BaseException:
            self.close()
            raise

    def close(self) -> None:
        """Closes the link."""
        self.check_thread()
        link, self._link = self._link, None
        if link is not None:
            link.close()

    def check_open(self) -> None:
        """Raises ConnectionLost if the link was closed."""
        self._open_link()

    @property
    def idle(self) -> bool:
        """Whether the server certainly has no session."""
        return self._idle and not self.torn

    @property
    def state(self) -> str:
        """The state of the connection in words."""
        if self._link is None:
            return "closed"
        if self.torn:
            return "interrupted"
        if self.keeper is not None:
            return "streaming"
        return "idle" if self._idle else "in a session"

    def expect_frames(self, size: int | None, rate: float = 0.0) -> None:
        """Sets what is known about the frames of the session.

        Args:
            size: payload size of all of them; None without a session.
            rate: frames per second that the session was asked for; 0 for no rate.
        """
        self._reader.frame_size = size
        self._reader.form = None
        self._slow_time = min(_SLOW_FRAMES / rate, _LONGEST_TIME) if rate > 0.0 else 0.0

    def expect_headers_like(self, frame: Message) -> None:
        """Reads headers like that of a frame of the session faster from now on.

        Most frames have the form of the first one, or of the first one before which none is missing.
        """
        form = self._reader.form
        if form is None or form.counts_missing and "missing" not in frame.header:
            self._reader.form = HeaderForm(frame.header)

    def watch_clock(self, ticks_per_second: float) -> None:
        """Asks the server for its clock from the next stream on; 0 if it has none."""
        self._watch = ClockWatch(ticks_per_second, self._anchor)

    def begin_watch(self, sensor_period: float = 0.0) -> None:
        """Asks for the server's clock before frames if that is due; `next_in_stream` asks again.

        Args:
            sensor_period: time between two frames that the sensors pace, in seconds; 0 if they do not.
        """
        self._watch.begin(sensor_period)
        if self._watch.time_left(self.now(), -math.inf) <= 0.0:
            with self._exchange():
                self._ask()

    def note_frame_times(self, are_known: bool) -> None:
        """Notes whether the server gave times to all items of a frame: then its clock is not asked for."""
        self._watch.frames_have_times = are_known

    def set_baudrate(self, baudrate: int) -> int:
        """Changes the baud rate of this end of the link; returns the former one."""
        return self._open_link().set_baudrate(baudrate)

    def check_thread(self) -> None:
        """Raises an error if a call of another thread is in progress."""
        self._claim()
        self._release()

    def now(self) -> float:
        """The time of the clock in seconds."""
        return self._clock()

    def request(self, command: str, **members: Any) -> dict[str, Any]:
        """Sends a command and waits for its answer. Frames before it go to the keeper, or are dropped."""
        with self._exchange(awaits_answer=True):
            self._send({"command": command, **members})
            self._awaited = command
            limit = self._limit(self.timeouts.answer + self._slow_time)
            while (answer := self._await_answer(command, limit)) is None:
                if self.now() >= limit.deadline:
                    self._give_up(_answer_to(command))
            self._watch.note_answer(command)
        return answer

    def configure(self, configuration: dict[str, Any]) -> dict[str, Any]:
        """Sets up a session; returns its metadata."""
        self._idle = False
        with self._exchange():
            self._send({"command": "configure", "configuration": configuration})
            message = self._next_answer(self._limit(self.timeouts.configure), "session metadata")
            _raise_on_error(message)
        return message.header

    def measure_frame(self) -> Message:
        """Measures a single frame."""
        with self._exchange():
            self._send({"command": "frame"})
            message = self._next_answer(self.frame_limit(), "frame")
            _raise_on_error(message)
        return message

    def frame_limit(self) -> Limit:
        """How long to wait for a frame."""
        timeouts = self.timeouts
        return Limit(self._clock() + timeouts.frame + self._slow_time, timeouts.answer)

    def check_limit(self, limit: Limit) -> None:
        """Raises ServerTimeout if no frame has arrived within a limit."""
        if self.now() >= limit.deadline:
            self.torn = True
            self._give_up("frame")

    def next_in_stream(self, limit: Limit, deadline: float | None) -> list[Message]:
        """The next message of a stream, and frames that arrived with it; none if none arrives until a deadline.

        Raises ServerTimeout if none arrives within the limit, and BadMessage for a damaged message.
        """
        self._claim()
        try:
            if deadline is not None and deadline < limit.deadline:
                message = self._poll(deadline, asks=True)
            else:
                message = self._next(limit, "frame", asks=True)
            messages = [] if message is None else [message, *self._take_frames()]
        except (ConnectionLost, ProtocolError, ServerTimeout):
            self.torn = True
            raise
        finally:
            self._release()
        if message is not None and message.readings is None:
            _raise_on_error(message)
        return messages

    def end(self, timeout: float | None = None) -> None:
        """Ends the session in any state; drops all messages that arrive before the answer."""
        self._claim()
        try:
            if timeout is None:
                self._end(self._limit(self.timeouts.answer + self._slow_time))
            else:
                self._end(Limit(self.now() + timeout))
        finally:
            self._release()

    def end_promptly(self) -> None:
        """Ends the session if the server answers within a second, for programs that were asked to stop."""
        self.check_thread()
        with suppress(Error):
            self.end(_SHORT_TIME)

    @contextmanager
    def _exchange(self, awaits_answer: bool = False) -> Iterator[None]:
        """What the server has received, and what it will send, is only known if this is completed.

        An error may have ended the stream before the answer to a command, which then arrives later.
        """
        self._claim()
        torn, self.torn = self.torn, True
        try:
            yield
            self.torn = torn
        except (ServerError, BadMessage):
            self.torn = torn or (awaits_answer and self.keeper is not None)
            raise
        finally:
            self._release()

    def _claim(self) -> None:
        """Notes that a call of this thread is in progress; raises an error if one of another thread is."""
        thread = threading.get_ident()
        # Two threads cannot both succeed.
        if self._user.setdefault("thread", thread) != thread:
            raise Error(
                "Another thread is using this connection at the moment. Use a connection and its sessions in "
                "one thread only, or lock each use."
            )

    def _release(self) -> None:
        """Notes that no call is in progress."""
        self._awaited = None
        self._user.pop("thread", None)

    def _open_link(self) -> Link:
        if self._link is None:
            raise ConnectionLost("The connection to the server was closed.")
        if self._process != _process:
            raise ConnectionLost(
                "This process was forked from the one that connected to the server. Connect in this process."
            )
        return self._link

    def _send(self, command: dict[str, Any]) -> None:
        """Sends a command."""
        text = json.dumps(command, separators=(",", ":"), ensure_ascii=False)
        # The server refuses halves of surrogate pairs.
        self._transmit(text.encode("utf-8", "surrogatepass") + b"\n", self.timeouts.answer)

    def _limit(self, timeout: float) -> Limit:
        """How long to wait for an answer."""
        return Limit(self.now() + timeout, self.timeouts.answer)

    def _transmit(self, data: bytes, timeout: float) -> None:
        link = self._open_link()
        self._note_pause(self.now())
        try:
            link.write(data, timeout)
        except ConnectionLost as loss:
            raise self._explain(loss) from None

    def _explain(self, loss: ConnectionLost) -> ConnectionLost:
        """Adds a possible cause to the loss of a connection: that the program read nothing for long."""
        if self.now() - self._pause_end > _SUSPICION_TIME:
            return loss
        return ConnectionLost(
            f"{loss} A possible cause: the program read nothing for {self._pause:.0f} s while frames were "
            "sent, and a server disconnects a host that accepts no data for 10 s. Start vantor_server with "
            "--stall-limit 0, or stop the stream before a long pause."
        )

    def _note_pause(self, now: float) -> None:
        """Notes a long time without a read while frames stream; otherwise the server sends nothing."""
        if now - self._last_read >= _LONG_PAUSE and self.keeper is not None:
            self._pause, self._pause_end = now - self._last_read, now

    def _find_server(self) -> None:
        """Ends any session. Repeats the command, since a server that is starting loses commands."""
        self._repetition = self.now() + _END_INTERVAL
        self._late_ends = True
        try:
            self.end()
        finally:
            self._repetition = None

    def _send_end(self, commands: list[str], timeout: float) -> None:
        """Sends commands that end the session, after the end of a line that may have been sent in part."""
        lines = ["", *(f'{{"command":"{command}"}}' for command in commands), ""]
        # In a single write: a busy server closes the connection, and a second write would then fail before
        # its message has been read.
        self._transmit("\n".join(lines).encode(), timeout)

    def _end(self, limit: Limit) -> None:
        """Ends the session, and waits for the answer."""
        if self.torn:
            self._reader.resynchronise()
        self.torn = True
        self._watch.forget_commands()
        commands = _ending_commands(self._unfinished_ends)
        self._unfinished_ends += 1
        self._send_end(commands, max(0.0, limit.deadline - self.now()))
        self._await_answers(commands, limit)
        self._unfinished_ends = 0
        self.expect_frames(None)
        self.torn = False
        self._idle = True

    def _await_answers(self, commands: list[str], limit: Limit) -> None:
        """Waits for the answers to commands in a row; drops all messages before, also damaged ones."""
        # While connecting, the caller has given another command, or none.
        awaited = "answer" if self._repetition is not None else _answer_to("end")
        answered: deque[object] = deque(maxlen=len(commands))
        while True:
            try:
                message = self._next(limit, awaited)
            except BadMessage:
                answered.append(None)
            else:
                answered.append(message.header.get("command"))
                if message.header.get("code") == "busy":
                    _raise_on_error(message)
            if list(answered) == commands:
                return
            if self.now() >= limit.deadline:
                self._give_up(awaited)

    def _repeat_end(self, left: float) -> float:
        """Repeats "end" when it is due; returns how long the caller can wait before the next call."""
        if self._repetition is None:
            return left
        if self._repetition <= self.now():
            self._repetition = self.now() + _END_INTERVAL
            # Otherwise the server is sending already.
            if self._reader.missing == 0:
                self._send_end(["end"], left)
        return max(0.0, min(left, self._repetition - self.now()))

    def _ask(self) -> None:
        """Asks for the server's clock, unless an answer is still to come."""
        command = self._watch.next_command(self.now())
        if command is not None:
            self._send({"command": command})

    def _ask_if_due(self, left: float, now: float) -> float:
        """Asks for the server's clock if that is due; returns how long the caller can wait before the next call.

        After a fault it is not known where an answer would begin. While a frame arrives, the server cannot
        answer at once: that is only waited for as long as it may be a single frame.
        """
        due = self._watch.time_left(now, self._arrival.time)
        if self._reader.within_message or self._reader.lost:
            if self._reader.lost or due > -INTERVAL:
                return left
        elif due >= _SHORTEST_WAIT:
            return min(left, math.floor(due / _SHORTEST_WAIT) * _SHORTEST_WAIT) if due < left else left
        self._ask()
        return left

    def _poll(self, deadline: float, asks: bool = False) -> Message | None:
        """The next message for the caller; None if none arrives in time. Asks for the server's clock meanwhile."""
        over = False
        while True:
            try:
                message = self._reader.next()
            except BadMessage:
                # Without a stream, it was the answer about the clock.
                if self._watch.note_damage() and self.keeper is None:
                    continue
                raise
            if message is None:
                if over:
                    return None
                now = self._clock()
                left = max(0.0, deadline - now)
                over = left == 0.0
                if not over:
                    left = self._ask_if_due(left, now) if asks else self._repeat_end(left)
                self._receive(left, now)
                continue
            self._understood = True
            if message.readings is None and self._is_aside(message.header):
                continue
            message.arrival = self._arrival
            return message

    def _take_frames(self) -> Iterator[Message]:
        """The frames of known form that come next and were received completely."""
        reader, arrival = self._reader, self._arrival
        while (frame := reader.next_frame()) is not None:
            frame.arrival = arrival
            yield frame

    def _is_aside(self, header: dict[str, Any]) -> bool:
        """Whether a message is not for the caller: a log line, or an answer about the server's clock."""
        if header["status"] == "log":
            _deliver_log(header)
            return True
        if not self._watch.take(header, self._awaited, self._arrival.time):
            return False
        self._arrival = Arrival(self._watch.relation, self._arrival.time)
        return True

    def _receive(self, timeout: float, now: float) -> None:
        """Passes the bytes that arrive to the reader."""
        buffers = self._reader.buffers(several=now - self._last_read < _SLOW_PAUSE)
        link = self._open_link()
        self._note_pause(now)
        try:
            count = link.read_into(buffers, timeout)
        except ConnectionLost as loss:
            raise self._explain(loss) from None
        self._last_read = self._clock()
        if count:
            self._arrival = Arrival(self._watch.relation, self._last_read)
        if not self._understood and len(self._first_bytes) < _BYTES_SHOWN:
            self._first_bytes += bytes(buffers[0][: min(count, _BYTES_SHOWN - len(self._first_bytes))])
        self._reader.advance(count)

    def _next(self, limit: Limit, awaited: str, asks: bool = False) -> Message:
        """The next message; raises an error if none arrives. Extends the limit while a payload arrives."""
        before = 0
        while (message := self._poll(limit.deadline, asks)) is None:
            missing = self._reader.missing
            fewest = max(1, int(SLOWEST_PAYLOAD_RATE * limit.extension))
            slow = before != 0 and missing + fewest > before
            if missing == 0 or slow or not limit.extend(self.now(), self._reader.payload_size):
                self._give_up(awaited)
            before = missing
        return message

    def _next_answer(self, limit: Limit, awaited: str) -> Message:
        """Like _next, but skips answers to earlier "end" commands."""
        while True:
            message = self._next(limit, awaited)
            if not self._take_late_answer(message):
                return message
            if self.now() >= limit.deadline:
                self._give_up(awaited)

    def _await_answer(self, command: str, limit: Limit) -> dict[str, Any] | None:
        """The answer to a command; None after a message of a stream. A damaged one is hardly the answer."""
        try:
            message = self._next_answer(limit, _answer_to(command))
        except BadMessage as fault:
            if self.keeper is None:
                raise
            self.keeper.note_damage(fault)
            return None
        _raise_on_error(message)
        if message.is_frame:
            if self.keeper is not None:
                self.keeper.keep(message)
            return None
        _check_answer(message, command)
        return message.header

    def _take_late_answer(self, message: Message) -> bool:
        """Whether a message is the answer to an "end" that was repeated while connecting.

        A server that was still starting and received only the end of the line answers "bad_json".
        """
        header = message.header
        if self._late_ends and (header.get("command") == "end" or header.get("code") == "bad_json"):
            return True
        # Answers arrive in order.
        self._late_ends = False
        return False

    def _give_up(self, awaited: str) -> NoReturn:
        """Raises the error for a message that did not arrive in time, or anything but messages."""
        if not self._understood and self._first_bytes and self._reader.missing == 0:
            raise ProtocolError(
                "The data received are not messages of a Vantor server; they start with "
                f"{self._first_bytes.hex(' ')}. The baud rate may be wrong, or it may be another device."
            )
        raise ServerTimeout(
            f"The server sent no {awaited} in time. Check the connection and its baud rate, that no other "
            "program uses the server, and that the board does not restart (see its log)."
        )


def _answer_to(command: str) -> str:
    return f'answer to "{command}"'


def _raise_on_error(message: Message) -> None:
    """Raises an error that a message reports."""
    if message.header["status"] == "error":
        header = message.header
        code, text = _members.text(header, "code"), _members.text(header, "message")
        raise ServerError(printable(code), printable(text))


def _ending_commands(unfinished: int) -> list[str]:
    """The commands that end a session, after this many attempts that were interrupted before the answer.

    It is not known what was received of those, and how many of their answers are still to come. The numbers
    of pings between the ends are the digits of the number of attempts, plus 1: the answers to other attempts
    are not the same.
    """
    commands = ["end"]
    while unfinished:
        unfinished, digit = divmod(unfinished, _MOST_PINGS)
        commands += [*["ping"] * (digit + 1), "end"]
    return commands


def _check_answer(message: Message, command: str) -> None:
    """Raises an error if a message is not the answer to a command."""
    if message.header.get("command") != command:
        raise ProtocolError(
            f'The server sent another message instead of the answer to "{command}": another program may be '
            "using the same link."
        )


def server_log_level(level: int) -> str:
    """The level of a server for one of `logging`: what is less severe is not sent."""
    if level <= logging.DEBUG:
        return "DEBUG"
    sent = [name for name, number in _LOG_LEVELS.items() if number >= level]
    return sent[-1] if sent else "OFF"


def _deliver_log(header: dict[str, Any]) -> None:
    """Passes a log line of the server to `logging`."""
    level = _LOG_LEVELS.get(_members.text(header, "level"), logging.DEBUG)
    module, line = _members.text(header, "module"), _members.text(header, "message")
    _server_log.log(level, "%s: %s", printable(module), printable(line))
