"""A session: what a server measures with one configuration."""

import logging
from collections import deque
from collections.abc import Iterator
from numbers import Integral, Real
from types import TracebackType
from typing import Any, Self

from . import _members
from ._conversation import Conversation, Limit
from ._frames import FrameDecoder
from ._item_reading import ItemReading
from ._layout import describe_session, nominal_frame_rate
from ._loss import LossCounter, TickClock
from ._messages import Message
from ._plain_values import to_float
from ._plan import configured_frame_rate
from ._truth_file import TruthFile
from .calibration import Calibration, add_calibrations
from .configuration import validate
from .errors import BadMessage, ConfigurationError, Error, ProtocolError, ServerError, ServerTimeout
from .frame import Frame, ItemLayout
from .truth import ItemTruth

#: Most memory of the frames that are kept before the answer to a command, in bytes.
_MOST_KEPT_BYTES = 2**27

_log = logging.getLogger("vantor")


class _Stream:
    """A stream of frames: its messages that were not asked for yet, and its counters."""

    def __init__(self, ticks_per_second: float, frame_rate: float) -> None:
        self._losses = LossCounter(ticks_per_second / frame_rate if frame_rate > 0.0 else 0.0)
        self._clock = TickClock(ticks_per_second)
        #: Frames that arrived together with the last one: they come before those that were kept.
        self._received: deque[Message] = deque()
        self._kept: deque[Message] = deque()
        self._kept_bytes = 0
        self._is_kept = True
        #: Damaged messages since the last frame.
        self._damaged = 0
        #: Frames that were counted.
        self.number = 0
        #: Frames missing before the last one.
        self.missing = 0
        #: Most frames that were missing before any frame: one more than there are while a late one seemed lost.
        self._most_missing = 0

    def keep(self, message: Message) -> None:
        """Takes a frame that arrived before the answer to a command.

        Raises ServerTimeout after too many: a server that sends only frames has failed.
        """
        if not self._is_kept:
            return
        self._kept.append(message)
        self._kept_bytes += message.memory
        if self._kept_bytes > _MOST_KEPT_BYTES:
            raise ServerTimeout(f"The server has sent {len(self._kept)} frames instead of an answer.")

    def add(self, messages: list[Message]) -> None:
        """Takes messages that arrived together. There are none before them."""
        self._received.extend(messages)

    def take(self) -> Message | None:
        """The first message that was taken and not asked for yet, if any."""
        if self._received:
            return self._received.popleft()
        if not self._kept:
            return None
        message = self._kept.popleft()
        self._kept_bytes -= message.memory
        return message

    def drop_rest(self) -> None:
        """Drops the frames that were not asked for yet, and those that arrive later."""
        self._is_kept = False
        self._received.clear()
        self._kept.clear()

    def note_damage(self, fault: BadMessage) -> None:
        """Counts a damaged message."""
        self._damaged += 1
        _log.warning("%s", fault)

    def count(self, first: ItemReading, missing: int) -> tuple[float, int]:
        """Counts a frame by its first item; returns its time in seconds, and the frames lost before it.

        `missing` frames were lost directly before it, on their way to the server.
        """
        damaged, self._damaged = self._damaged, 0
        self.missing = self._losses.add(first.tick, damaged + missing, first.flags.frame_delayed)
        lost = max(0, self.missing - self._most_missing)
        self._most_missing += lost
        return self._clock.advance(first.tick), lost


class Session:
    """A session of a server; `with` ends it.

    Attributes:
        configuration: the configuration document.
        items: layouts of the items, in the order of the configuration.
        calibrations: of its sensors; pass them to a later session, or to `save_calibrations`.
        metadata: the answer of the server to the configuration (docs/protocol.md).
        frame_rate_hz: rate at which frames are due; 0 if they are measured as fast as possible.
        frames_left_out: frames of the last stream that the server left out because they were late, as it
            reported at the end of the stream.
    """

    configuration: dict[str, Any]
    items: tuple[ItemLayout, ...]
    calibrations: tuple[Calibration, ...]
    metadata: dict[str, Any]
    frame_rate_hz: float
    frames_left_out: int

    def __init__(
        self,
        conversation: Conversation,
        configuration: dict[str, Any],
        ticks_per_second: float,
        truth: TruthFile | None,
        server_name: str,
    ) -> None:
        """Sets up a session; use `Server.session`."""
        self._conversation = conversation
        self._ticks_per_second = ticks_per_second
        self._truth = truth
        self._server_name = server_name
        self._stream: _Stream | None = None
        self._ended = False
        #: Whether the server has it, unless a call was interrupted.
        self._set_up = False
        self.configuration = configuration
        self.frames_left_out = 0
        self._configure(configuration)

    def frames(self, count: int | None = None, *, seconds: float | None = None) -> Iterator[Frame]:
        """Starts a stream and gives its frames; the stream stops when the loop ends.

        Damaged messages are logged and counted in `Frame.missing`. Between two frames the server waits for
        the reader when the buffers of the link are full; it leaves out frames that are late, and the next
        frame counts them.

        Args:
            count: number of frames; None for no limit.
            seconds: how long to receive frames, by the clock of this machine, also while the loop does
                something else; None for no limit.

        Raises:
            ServerError: the server could not measure a frame; the session has ended.
            ServerTimeout: no frame arrived in time.
            ConnectionLost: the link was lost.
            TypeError: `count` is not a whole number, or `seconds` not a number.
        """
        if count is not None and not isinstance(count, Integral):
            raise TypeError(
                f"count must be a whole number of frames, not {count!r}; seconds=… limits the time."
            )
        if seconds is not None and not isinstance(seconds, Real):
            raise TypeError(f"seconds must be a number, not {seconds!r}.")
        if count is not None and count < 0 or seconds is not None and not seconds >= 0.0:
            raise ValueError("count and seconds must not be negative.")
        return self._receive(count, seconds)

    def single_frame(self) -> Frame:
        """Measures one frame while no stream runs."""
        self._make_ready()
        self._conversation.begin_watch()
        try:
            message = self._conversation.measure_frame()
        except ServerError:
            self._note_end()
            raise
        return self._compose(message, _Stream(self._ticks_per_second, 0.0))

    def end(self) -> None:
        """Ends the session, in any state; without effect if it has ended."""
        if not self._ended:
            self._conversation.end()
            self._note_end()

    def _end_promptly(self) -> None:
        """Ends the session if the server answers within a second."""
        if not self._ended:
            self._conversation.end_promptly()
            self._note_end()

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, failure: BaseException | None, trace: TracebackType | None
    ) -> None:
        if failure is None:
            self.end()
        else:
            self._end_promptly()

    def __repr__(self) -> str:
        state = "ended" if self._ended else self._conversation.state
        return f"<vantor.Session of {self._server_name}: {len(self.items)} items, {state}>"

    def _configure(self, configuration: dict[str, Any]) -> None:
        conversation = self._conversation
        try:
            answer = conversation.configure(configuration)
        except ServerError as refusal:
            raise ServerError(refusal.code, refusal.message, validate(configuration)) from None
        metadata = describe_session(answer, configuration)
        self.metadata = metadata.document
        self.items = metadata.layouts
        self.calibrations = metadata.calibrations
        self.frame_rate_hz = nominal_frame_rate(configuration, metadata, self._ticks_per_second)
        sensors_pace = metadata.tick_period == 0 and self.frame_rate_hz > 0.0
        self._sensor_period = 1.0 / self.frame_rate_hz if sensors_pace else 0.0
        self._decoder = FrameDecoder(metadata, self._ticks_per_second)
        conversation.expect_frames(metadata.frame_size, _requested_rate(configuration))
        if self._truth is not None:
            self._truth.begin_session(layout.sensor_id for layout in self.items)
        self._set_up = True

    def _make_ready(self) -> None:
        """Brings the server into the state in which it accepts `start`."""
        self._conversation.check_open()
        if self._ended:
            raise Error("The session has ended: begin another one with server.session().")
        self._conversation.check_thread()
        if self._conversation.torn or not self._set_up:
            # After Ctrl-C or a time-out it is unknown what the server has received.
            self._note_loss()
            if not self._conversation.idle:
                self._conversation.end()
            self._configure(add_calibrations(self.configuration, self.calibrations))
        elif self._stream is not None:
            self._stop()

    def _receive(self, count: int | None, seconds: float | None) -> Iterator[Frame]:
        try:
            yield from self._run_stream(count, seconds)
        except (Error, GeneratorExit):
            raise
        except BaseException:
            # Ctrl-C, at any place.
            self._conversation.torn = True
            raise

    def _run_stream(self, count: int | None, seconds: float | None) -> Iterator[Frame]:
        stream = self._start()
        deadline = None if seconds is None else self._conversation.now() + to_float(seconds)
        while count is None or stream.number < count:
            frame = self._next_frame(stream, deadline)
            if frame is None:
                break
            try:
                yield frame
            except GeneratorExit:
                self._stop_if_current(stream)
                raise
        self._stop_if_current(stream)

    def _start(self) -> _Stream:
        self._make_ready()
        self._conversation.begin_watch(self._sensor_period)
        self._conversation.request("start")
        stream = _Stream(self._ticks_per_second, self.frame_rate_hz)
        self._stream = self._conversation.keeper = stream
        return stream

    def _stop(self) -> None:
        """Stops the stream; frames that are still on their way are dropped."""
        if self._stream is not None:
            self._stream.drop_rest()
        answer = self._conversation.request("stop")
        self._leave_stream()
        left_out = answer.get("frames_left_out", 0)
        self.frames_left_out = _members.to_integer(left_out, "frames_left_out", 0, 2**63 - 1)

    def _stop_if_current(self, stream: _Stream) -> None:
        if self._stream is stream and not self._conversation.torn:
            self._stop()

    def _leave_stream(self) -> None:
        self._stream = self._conversation.keeper = None

    def _note_loss(self) -> None:
        """Notes that the server has lost the session, which is set up again when it is used."""
        self._set_up = False
        self._leave_stream()

    def _note_end(self) -> None:
        """Notes that the server has no session any more."""
        self._ended = True
        self._leave_stream()

    def _next_frame(self, stream: _Stream, deadline: float | None) -> Frame | None:
        """The next frame of the stream; None if none arrives until a deadline."""
        limit: Limit | None = None
        while True:
            if self._stream is not stream:
                self._conversation.check_open()
                raise Error("Another stream was started, or the session has ended, during this stream.")
            if deadline is not None and self._conversation.now() >= deadline:
                return None
            try:
                message = stream.take()
                if message is None:
                    limit = limit or self._conversation.frame_limit()
                    message = self._receive_message(stream, limit, deadline)
                return None if message is None else self._compose(message, stream)
            except BadMessage as fault:
                stream.note_damage(fault)
                if limit is not None:
                    self._conversation.check_limit(limit)

    def _receive_message(self, stream: _Stream, limit: Limit, deadline: float | None) -> Message | None:
        """The next message of the stream; None if none arrives until a deadline."""
        try:
            stream.add(self._conversation.next_in_stream(limit, deadline))
        except ServerError:
            self._note_end()
            raise
        return stream.take()

    def _compose(self, message: Message, stream: _Stream) -> Frame:
        """Makes the frame of a message; counts it."""
        readings = message.readings if message.readings is not None else self._read_items(message)
        number = stream.number
        stream.number += 1
        time, lost = stream.count(readings[0], message.header.get("missing", 0)) if readings else (0.0, 0)
        self._conversation.note_frame_times(all(reading.utc is not None for reading in readings))
        truth = None if self._truth is None else self._find_truth(self._truth, readings)
        items = self._decoder.items(readings, message.payload, time, truth, message.arrival)
        return Frame(number, items, stream.missing, lost, self._decoder.places)

    def _read_items(self, message: Message) -> list[ItemReading]:
        """What the header of a frame reports about each item."""
        if not message.is_frame:
            raise ProtocolError(
                "The server sent a message that is not a frame of this session: another program may be using "
                "the same link."
            )
        try:
            readings = self._decoder.read(message.header, message.payload)
        except ProtocolError as fault:
            raise BadMessage(message.position, str(fault).rstrip(".")) from None
        self._conversation.expect_headers_like(message)
        return readings

    def _find_truth(self, truth: TruthFile, readings: list[ItemReading]) -> list[ItemTruth | None]:
        """What the sensors should have found."""
        pairs = zip(self.items, readings, strict=True)
        return [truth.find(layout.sensor_id, reading.tick) for layout, reading in pairs]


def _requested_rate(configuration: dict[str, Any]) -> float:
    """The frame rate in hertz that was requested, which no server can lower to prolong waits; 0 if none."""
    try:
        return configured_frame_rate(configuration)
    except ConfigurationError:
        # The server accepts items that the host cannot use.
        return 0.0
