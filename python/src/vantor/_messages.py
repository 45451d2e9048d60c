"""Splits the bytes of a link into messages. It does no input or output.

A message is a line with a JSON object that has "status" and "payload_size", a line feed, then exactly
payload_size bytes. The bytes of long payloads are received where they stay, without a copy.
"""

import json
import math
import re
from dataclasses import dataclass
from typing import Any

import numpy as np
import numpy.typing as npt

from ._board_clock import Arrival
from ._frames_ahead import FramesAhead
from ._header_form import HeaderForm
from ._item_reading import ItemReading
from .errors import BadMessage

#: The bytes of a payload, read-only.
Payload = npt.NDArray[np.uint8]

#: Most bytes of a header line and of a payload; more is a fault.
LARGEST_HEADER = 2**20
LARGEST_PAYLOAD = 2**26

_DEEPEST_NESTING = 32

#: Bytes of the buffer for headers and short payloads.
_BUFFER_SIZE = 2**16

#: Payloads of at least this many bytes are received without a copy.
_LONG_PAYLOAD = 2**14

#: Bytes that are read into the buffer together with the rest of a long payload: they are copied later.
_BYTES_AFTER_LONG_PAYLOAD = 2**12

#: Bytes of memory for each byte of a header: it needs most if it is a list of empty objects.
_HEADER_MEMORY = 24

_NO_PAYLOAD: Payload = np.empty(0, np.uint8)
_NO_PAYLOAD.flags.writeable = False

#: A string or a bracket. A string need not be closed; possessive, so that the time stays linear.
_BRACKETS = re.compile(rb'"(?:[^"\\]++|\\.)*+"?|[\[\]{}]', re.DOTALL)


@dataclass(slots=True, eq=False)
class Message:
    """One message of a server.

    Attributes:
        header: an object with a string "status" and a number "payload_size".
        payload: "payload_size" bytes, read-only.
        position: where the header starts, in bytes since the first byte received.
        header_size: number of bytes of the header's text.
        readings: what a header of known form reports about the items, which it then does not contain.
        arrival: when its last bytes arrived; None if that is unknown.
    """

    header: dict[str, Any]
    payload: Payload
    position: int
    header_size: int
    readings: list[ItemReading] | None = None
    arrival: Arrival | None = None

    @property
    def memory(self) -> int:
        """About how many bytes of memory it needs at most."""
        return _HEADER_MEMORY * self.header_size + len(self.payload)

    @property
    def is_frame(self) -> bool:
        """Whether it contains a frame."""
        return self.readings is not None or "result_info" in self.header


@dataclass(frozen=True, slots=True)
class _Fault:
    """What is wrong with a header, and where in its line; whether it is only the payload size of a frame."""

    offset: int
    reason: str
    wrong_size: bool = False


class MessageReader:
    """Splits a stream of bytes, received in pieces of any size, into messages.

    The bytes are received into `buffers()`, then counted by `advance()`; then `next()` is called until it
    returns None. After a fault it raises BadMessage once. It then skips lines until it finds a header, which
    may follow the rest of a payload on the same line. The header of a frame with a wrong payload size is a
    new fault.
    """

    def __init__(self, largest_header: int = LARGEST_HEADER, largest_payload: int = LARGEST_PAYLOAD) -> None:
        self._largest_header = largest_header
        self._largest_payload = largest_payload
        #: The payload size of every frame, if known.
        self.frame_size: int | None = None
        #: The form of most frame headers, if known; they have the payload size of every frame.
        self.form: HeaderForm | None = None
        #: Number of bytes consumed so far.
        self.position = 0
        self._buffer = bytearray(_BUFFER_SIZE)
        self._after_long_payload = memoryview(self._buffer)[:_BYTES_AFTER_LONG_PAYLOAD]
        self._start = 0
        self._end = 0
        #: Places for the next frames, which are used while the buffer is empty.
        self._ahead = FramesAhead()
        #: The last bytes were to be received there.
        self._reads_ahead = False
        #: Bytes after the start that contain no line feed.
        self._scanned = 0
        self._forget_message()
        #: Until the end of a line that is too long.
        self._skipping = False
        #: A fault was reported, and no header has been found since.
        self._lost = False

    @property
    def missing(self) -> int:
        """Number of payload bytes still missing from the current message; 0 if there is none."""
        arrived = self._end - self._start if self._payload is None else self._filled
        return max(0, self._payload_size - arrived)

    @property
    def payload_size(self) -> int:
        """Number of payload bytes of the current message; 0 if there is none."""
        return self._payload_size

    @property
    def lost(self) -> bool:
        """Whether a fault was reported, and no header has been found since."""
        return self._lost

    @property
    def within_message(self) -> bool:
        """Whether the bytes received so far end within a message."""
        return self._header is not None or self._skipping or self._start != self._end

    def buffers(self, several: bool = True) -> list[memoryview]:
        """Where the next bytes go, in this order. Valid until the next call of any other function.

        With `several`, there can be room for more than one long frame.
        """
        self._reads_ahead = several and self._can_read_ahead()
        if self._payload is not None:
            rest = self._payload.data[self._filled :]
            return [rest, *(self._ahead.buffers() if self._reads_ahead else [self._after_long_payload])]
        if self._reads_ahead:
            return self._ahead.buffers()
        self._make_room()
        return [memoryview(self._buffer)[self._end :]]

    def advance(self, count: int) -> None:
        """Counts bytes that were received into the buffers."""
        if self._payload is not None:
            of_payload = min(count, self._payload_size - self._filled)
            self._filled += of_payload
            self.position += of_payload
            count -= of_payload
        if self._reads_ahead:
            self._ahead.filled += count
        else:
            self._end += count

    def next(self) -> Message | None:
        """Takes the next complete message; None if more bytes are needed.

        Raises BadMessage if the bytes are not a message: the header is too long, is not JSON, is nested too
        deeply or is not an object, its "status" or "payload_size" is missing or out of range, or it announces
        a payload although it does not belong to a frame, or a frame of another size than `frame_size`. Call
        again to continue.
        """
        if self._header is None and not (self._read_known_header() or self._read_header()):
            return None
        return self._take_message()

    def next_frame(self) -> Message | None:
        """Like `next`, but takes nothing but a complete frame of the known form; raises no BadMessage."""
        if self._header is not None or not self._read_known_header():
            return None
        return self._take_message()

    def resynchronise(self) -> None:
        """Expects any bytes next, because some were lost. What comes before a header is not a fault."""
        self._forget_message()
        self._ahead = FramesAhead()
        self._scanned = 0
        self._skipping = False
        self._lost = True

    def _take_message(self) -> Message | None:
        """The message whose header was read; None if more bytes are needed."""
        payload = self._take_payload()
        if payload is None or self._header is None:
            return None
        header_size = self.position - self._header_position - self._payload_size
        message = Message(self._header, payload, self._header_position, header_size, self._readings)
        self._forget_message()
        return message

    def _forget_message(self) -> None:
        self._header: dict[str, Any] | None = None
        self._readings: list[ItemReading] | None = None
        self._header_position = 0
        self._payload_size = 0
        #: A long payload of which the first bytes are there.
        self._payload: Payload | None = None
        self._filled = 0

    def _make_room(self) -> None:
        """Leaves half a buffer of room after the bytes that are not consumed."""
        if self._start == self._end:
            self._start = self._end = 0
        if len(self._buffer) - self._end < _BUFFER_SIZE // 2:
            self._renew_buffer(self._buffer[self._start : self._end])

    def _renew_buffer(self, kept: bytearray) -> None:
        """Makes a new buffer, with some bytes that are not consumed."""
        # Not resized in place, because an interrupted function may still refer to it.
        self._buffer = bytearray(max(_BUFFER_SIZE, 2 * len(kept)))
        self._after_long_payload = memoryview(self._buffer)[:_BYTES_AFTER_LONG_PAYLOAD]
        self._buffer[: len(kept)] = kept
        self._start, self._end = 0, len(kept)

    def _can_read_ahead(self) -> bool:
        """Whether all bytes received were consumed, or belong to a long payload, and known frames follow."""
        if self._ahead.form is None or self._ahead.form is not self.form:
            return False
        return self._payload is not None or not self.within_message

    def _take_frame_ahead(self) -> bool:
        """Takes the next frame that was received ahead; otherwise moves what was received to the buffer."""
        frame = self._ahead.take(self.form)
        if frame is None or self.form is None:
            self._renew_buffer(self._ahead.give_back())
            return False
        self._header, self._readings, self._payload, self._filled = frame
        self._header_position = self.position
        self._payload_size = self.form.payload_size
        self.position += self._ahead.header_size + self._filled
        return True

    def _consume(self, count: int) -> None:
        self._start += count
        self.position += count
        self._scanned = 0

    def _report(self, position: int, reason: str) -> None:
        """Reports a fault, unless the reader has not yet recovered from the previous one."""
        if not self._lost:
            self._lost = True
            raise BadMessage(position, reason)

    def _take_line(self) -> bytearray | None:
        """The next complete line without its line feed, not consumed yet; None if more bytes are needed.

        A line is dropped as soon as it is too long for a header.
        """
        while True:
            end = self._buffer.find(b"\n", self._start + self._scanned, self._end)
            complete = end >= 0
            length = (end if complete else self._end) - self._start
            too_long = length > self._largest_header
            if not too_long and not self._skipping:
                self._scanned = length
                return self._buffer[self._start : end] if complete else None
            begin, reported = self.position, self._skipping
            self._skipping = not complete
            self._consume(length + complete)
            if not reported:
                self._report(begin, f"the header is longer than {self._largest_header} bytes")
            if self._skipping:
                return None

    def _read_known_header(self) -> bool:
        """Reads the next header if it is complete and has the known form."""
        if self._ahead.filled and self._take_frame_ahead():
            return True
        form = self.form
        if form is None or self._skipping:
            return False
        end = min(self._end, self._start + self._largest_header + 1)
        known = form.read(self._buffer, self._start, end)
        if known is None:
            return False
        self._header, self._readings, end = known
        self._header_position = self.position
        self._payload_size = form.payload_size
        self._lost = False
        self._consume(end - self._start)
        return True

    def _read_header(self) -> bool:
        """Reads the next header; False if more bytes are needed."""
        while (line := self._take_line()) is not None:
            start, header, fault = self._search_line(line)
            begin, reported = self.position, self._lost
            self._lost = header is None
            self._consume(len(line) + 1)
            if header is not None:
                self._header, self._header_position = header, begin + start
                self._payload_size = header["payload_size"]
            if fault is not None and (not reported or fault.wrong_size):
                raise BadMessage(begin + fault.offset, fault.reason)
            if header is not None:
                return True
        return False

    def _search_line(self, line: bytearray) -> tuple[int, dict[str, Any] | None, _Fault | None]:
        """Searches a line for a header: the complete line, or the object at its end.

        Returns where the header starts, the header if one was found, and the fault of the line, or of the
        header at its end.
        """
        header, fault = self._parse_header(line)
        if fault is None or fault.wrong_size:
            return 0, header, fault
        start = _find_last_object(line)
        if start > 0:
            header, last_fault = self._parse_header(line[start:])
            if last_fault is not None and last_fault.wrong_size:
                fault = _Fault(last_fault.offset + start, last_fault.reason, True)
        return start, header, fault

    def _parse_header(self, line: bytearray) -> tuple[dict[str, Any] | None, _Fault | None]:
        """The header in a text, or what is wrong with it."""
        try:
            header = _parse(line)
            self._check(header)
        except _BadHeader as fault:
            return None, fault.fault
        return header, None

    def _check(self, header: Any) -> None:
        """Checks the members that every header must have."""
        if not isinstance(header, dict):
            raise _BadHeader("the header is not a JSON object")
        if not isinstance(header.get("status"), str):
            raise _BadHeader('the header has no string "status"')
        size = header.get("payload_size")
        if type(size) is not int or size >= 2**64:
            raise _BadHeader('the header has no whole number "payload_size"')
        if size < 0:
            raise _BadHeader('"payload_size" is negative')
        if size != 0 and "result_info" not in header:
            raise _BadHeader(f'"payload_size" is {size}, but only a frame can have a payload')
        if size > self._largest_payload:
            most = self._largest_payload
            raise _BadHeader(f'"payload_size" is {size}, but at most {most} bytes are allowed')
        if self.frame_size is not None and size != self.frame_size and "result_info" in header:
            reason = f'"payload_size" is {size}, but every frame of this session has {self.frame_size} bytes'
            raise _BadHeader(f"{reason} of samples", wrong_size=True)

    def _take_payload(self) -> Payload | None:
        """The payload of the current message; None if more bytes are needed."""
        size = self._payload_size
        if size < _LONG_PAYLOAD:
            if self._end - self._start < size:
                return None
            short = np.frombuffer(bytes(memoryview(self._buffer)[self._start : self._start + size]), np.uint8)
            self._consume(size)
            return short
        if self._payload is None:
            self._begin_long_payload()
        if self._payload is None or self._filled < size:
            return None
        self._payload.setflags(write=False)
        return self._payload

    def _begin_long_payload(self) -> None:
        """Moves the first bytes of a long payload to the place where the others will be received."""
        payload = np.empty(self._payload_size, np.uint8)
        count = min(self._payload_size, self._end - self._start)
        payload.data[:count] = memoryview(self._buffer)[self._start : self._start + count]
        self._consume(count)
        if self._start == self._end:
            self._start = self._end = 0
        self._payload, self._filled = payload, count
        if self._readings is not None and self.form is not None:
            self._ahead.expect(self.form, self.position - count - self._header_position)


class _BadHeader(Exception):
    """A text is not a header."""

    def __init__(self, reason: str, offset: int = 0, wrong_size: bool = False) -> None:
        super().__init__(reason)
        self.fault = _Fault(offset, reason, wrong_size)


def _parse(line: bytearray) -> Any:
    """Parses a header line."""
    if line.count(b"[") + line.count(b"{") > _DEEPEST_NESTING:
        _check_nesting(line)
    try:
        text = line.decode()
        header = _decode(text)
        if "\\u" in text:
            # Halves of surrogate pairs are not text.
            json.dumps(header, ensure_ascii=False).encode()
    except json.JSONDecodeError as fault:
        raise _BadHeader("the header is not valid JSON", len(fault.doc[: fault.pos].encode())) from None
    except UnicodeError as fault:
        place = fault.start if isinstance(fault, UnicodeDecodeError) else 0
        raise _BadHeader("the header is not valid JSON", place) from None
    except ValueError:
        raise _BadHeader("the header contains a number that is out of range") from None
    return header


def _decode(text: str) -> Any:
    """Decodes JSON; faster than the decoder itself if there are no blanks around it."""
    try:
        value, end = _DECODER.raw_decode(text)
    except json.JSONDecodeError:
        end = -1
    return value if end == len(text) else _DECODER.decode(text)


def _check_nesting(line: bytearray) -> None:
    """Finds the first bracket that nests deeper than allowed."""
    depth = 0
    for found in _BRACKETS.finditer(line):
        mark = line[found.start()]
        if mark in b"[{":
            depth += 1
            if depth > _DEEPEST_NESTING:
                raise _BadHeader("the header is nested too deeply", found.start())
        elif mark in b"]}":
            depth -= 1


def _find_last_object(line: bytearray) -> int:
    """Where the JSON object at the end of a line starts; 0 if there is none.

    After a fault, the rest of a payload may come before the next header on the same line: a payload can
    contain any bytes, and no line feed follows it.
    """
    depth = 0
    quoted = False
    for place in range(len(line) - 1, -1, -1):
        byte = line[place]
        if byte == _QUOTE:
            quoted = quoted == _is_escaped(line, place)
        elif quoted:
            continue
        elif byte in _CLOSING:
            depth += 1
        elif byte in _OPENING:
            depth -= 1
            if depth <= 0:
                return place
    return 0


def _is_escaped(line: bytearray, place: int) -> bool:
    """Whether an odd number of backslashes precedes a place."""
    before = place
    while before > 0 and line[before - 1] == _BACKSLASH:
        before -= 1
    return (place - before) % 2 == 1


_QUOTE, _BACKSLASH = b'"\\'
_OPENING, _CLOSING = b"[{", b"]}"


def _finite(text: str) -> float:
    value = float(text)
    if math.isinf(value):
        raise ValueError(text)
    return value


def _refuse_constant(name: str) -> None:
    raise json.JSONDecodeError("Not JSON", name, 0)


_DECODER = json.JSONDecoder(parse_float=_finite, parse_constant=_refuse_constant)
