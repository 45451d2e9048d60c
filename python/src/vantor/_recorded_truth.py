"""Reads the truth in a recording, and compares it with the frames."""

import re
import warnings
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np

from ._input_files import LineFile
from ._json_text import dump, parse
from ._recording_files import RecordingFiles
from .errors import ConfigurationError, ProtocolError, RecordingError, RecordingWarning
from .truth import ItemTruth, decode_truth

TRUTH_FILE = "truth.jsonl"

#: Longest line, as in host/recording/truth_writer.h.
_MOST_LINE_BYTES = 2_097_152

#: Of a warning by `check`: of it, of `Recording` and of `vantor.open`.
_CALLER_OF_OPEN = 5

_NUMBER = re.compile(rb"-?[0-9]{1,20}\.[0-9]{1,20}(?:e[+-]?[0-9]{1,3})?")

#: How the recorder begins a line.
_BEGIN = re.compile(
    rb'\{"frame":(\d{1,12}),"group":(\d{1,9}),"item":(\d{1,9}),"sensor":(\d{1,9}),"tick":(\d{1,10}),'
)


@dataclass(frozen=True, slots=True)
class _Key:
    """What a line of the truth belongs to; group and item from 1."""

    frame: int
    group: int
    item: int
    sensor: int
    tick: int


class RecordedTruth:
    """What simulated sensors should have found in the frames of a recording.

    If the file cannot be read, it is unknown: a RecordingWarning says why, and the file is tried again later.
    """

    def __init__(self, files: RecordingFiles) -> None:
        """The truth of a recording; its file is opened when it is used."""
        self._files = files
        self._path = files.documents.directory / TRUTH_FILE
        readable = all(item.table is not None for item in files.items)
        self._exists = files.documents.session.truth is not None and readable
        self._file: LineFile | None = None
        #: Where the line of each frame and item starts.
        self._starts = np.empty((0, 0), np.int64)
        #: The last warning.
        self._warning = ""

    def close(self) -> None:
        """Closes the file."""
        if self._file is not None:
            self._file.close()

    def check(self) -> None:
        """Warns if the file cannot be opened, for `Recording`."""
        try:
            if self._exists:
                LineFile(self._path).close()
        except RecordingError as failure:
            self._warn(f"the truth is unknown: {failure}", _CALLER_OF_OPEN)

    def find(self, frame: int, place: int) -> ItemTruth | None:
        """The truth of an item in a frame; None if it is unknown."""
        try:
            line = self._line(frame, place)
            return None if line is None else decode_truth(parse(line, "The line"))
        except RecordingError as failure:
            self._warn(f"the truth is unknown: {failure}")
        except (ConfigurationError, ProtocolError):
            # Reported by faults().
            pass
        return None

    def faults(self) -> list[str]:
        """What is wrong with the file; reads all of it."""
        if not self._exists:
            return []
        try:
            return _Reader(self._files, self._path, LineFile(self._path), _strict_key).faults
        except RecordingError as failure:
            return [str(failure)]

    def _line(self, frame: int, place: int) -> bytes | None:
        """The line of an item in a frame; None if there is none. Raises RecordingError."""
        if not self._exists:
            return None
        if self._file is None:
            file = LineFile(self._path)
            reader = _Reader(self._files, self._path, file, _quick_key)
            if reader.faults:
                self._warn(f"is damaged: {reader.faults[0]} damage() lists all damage.")
            self._file, self._starts = file, reader.starts
        start = int(self._starts[frame, place])
        return None if start < 0 else self._file.line_at(start, _MOST_LINE_BYTES)

    def _warn(self, text: str, stacklevel: int = 1) -> None:
        """Warns, but not of the same again."""
        if text != self._warning:
            self._warning = text
            warnings.warn(f"{self._path.parent}: {text}", RecordingWarning, stacklevel=stacklevel)


class _Reader:
    """Reads all lines of a file.

    Attributes:
        starts: where the line of each frame and item starts, shape (frames, items); -1 if there is none.
        faults: what is wrong.
    """

    def __init__(
        self, files: RecordingFiles, path: Path, file: LineFile, key_of: Callable[[bytes, str], _Key]
    ) -> None:
        """Reads a file; raises RecordingError if the system does not let it."""
        self.starts = np.full((files.frames, len(files.items)), -1, np.int64)
        self.faults: list[str] = []
        self._files = files
        self._path = path
        self._key_of = key_of
        layouts = [item.item.layout for item in files.items]
        self._places = {(layout.group + 1, layout.index + 1): place for place, layout in enumerate(layouts)}
        self._ticks = [item.rows["tick"].tolist() for item in files.items]
        self._farthest = (-1, -1)
        self._has_wrong_line = False
        self._has_surplus = False
        self._read(file)

    def _read(self, file: LineFile) -> None:
        """Reads all lines; the first one describes the scene."""
        head = dump(self._files.documents.session.truth).encode()
        lines = file.lines(max(_MOST_LINE_BYTES, len(head)))
        start, first, is_complete = next(lines, (0, b"", False))
        if not is_complete:
            self.faults.append(f"{self._path} has no first line, which describes the scene.")
            return
        if _shortest_numbers(first) != _shortest_numbers(head):
            self._add_fault("has another first line than the description of the session.")
            if _is_row(first):
                self._read_line(first, start)
        rest = 0
        for start, line, is_complete in lines:
            if is_complete:
                self._read_line(line, start)
            else:
                rest = len(line)
        self._check_rest(rest)

    def _add_fault(self, text: str) -> None:
        self.faults.append(f"{TRUTH_FILE} {text}")

    def _refuse_line(self, reason: str) -> None:
        """Notes a line that is wrong; the first one is described."""
        if not self._has_wrong_line:
            self._add_fault(f"has a wrong line: {reason}")
        self._has_wrong_line = True

    def _read_line(self, line: bytes, start: int) -> None:
        """Notes where a line starts if it belongs to a frame that is left."""
        if len(line) > _MOST_LINE_BYTES:
            self._refuse_line(f"{self._path} has a line of more than {_MOST_LINE_BYTES} bytes.")
            return
        try:
            key = self._key_of(line, "The line")
        except (ConfigurationError, ProtocolError) as failure:
            self._refuse_line(
                f"{self._path}: the line at byte {start} does not describe the truth of a frame: {failure}"
            )
            return
        if key.frame >= self._files.frames:
            self._has_surplus = True
        elif self._belongs(key):
            self.starts[key.frame, self._places[key.group, key.item]] = start
        else:
            self._refuse_line(
                f"{_describe(key)} has another sensor or tick, is listed before, or does not exist."
            )

    def _belongs(self, key: _Key) -> bool:
        """Whether a line is the first one of a frame and item."""
        place = self._places.get((key.group, key.item))
        if place is None or self.starts[key.frame, place] >= 0:
            return False
        if (key.frame, place) < self._farthest:
            self._refuse_line(f"{_describe(key)} is listed after a later one.")
        self._farthest = max(self._farthest, (key.frame, place))
        return (
            key.sensor == self._files.items[place].item.layout.sensor_id
            and key.tick == self._ticks[place][key.frame]
        )

    def _check_rest(self, size: int) -> None:
        """Checks that nothing follows the lines of the frames that are left."""
        if size > _MOST_LINE_BYTES:
            self._refuse_line(f"{self._path} has a line of more than {_MOST_LINE_BYTES} bytes.")
        has_rest = 0 < size <= _MOST_LINE_BYTES
        frames = self._files.frames
        if self._files.finished and (self._has_surplus or has_rest):
            self._add_fault(f"has more than the lines of {frames} frame{'' if frames == 1 else 's'}.")


def _describe(key: _Key) -> str:
    """The place of a line."""
    return f"frame {key.frame} of group {key.group}, item {key.item}"


def _shortest_numbers(text: bytes) -> bytes:
    """A text with as few digits in its numbers as they need: the recorder sometimes writes more."""
    return _NUMBER.sub(lambda number: repr(float(number[0])).encode(), text)


def _is_row(line: bytes) -> bool:
    """Whether a line is already that of a frame."""
    try:
        _strict_key(line, "The line")
    except (ConfigurationError, ProtocolError):
        return False
    return True


def _quick_key(line: bytes, name: str) -> _Key:
    """What a line belongs to, without decoding all of it."""
    found = _BEGIN.match(line)
    return _Key(*map(int, found.groups())) if found else _strict_key(line, name)


def _strict_key(line: bytes, name: str) -> _Key:
    """The same for a line that must be correct; raises ConfigurationError or ProtocolError."""
    document = parse(line, name)
    truth = decode_truth(document)
    return _Key(
        frame=_whole_member(document, "frame", 0),
        group=_whole_member(document, "group", 1),
        item=_whole_member(document, "item", 1),
        sensor=truth.sensor_id,
        tick=truth.tick,
    )


def _whole_member(document: Any, name: str, least: int) -> int:
    """A required member that is a whole number."""
    value = document.get(name)
    if type(value) is not int or not least <= value <= 10**12:
        raise ProtocolError(f'"{name}" is missing, or is not a whole number from {least}.')
    return value
