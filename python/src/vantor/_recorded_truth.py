"""Reads the truth in a recording, and compares it with the frames."""

import mmap
import re
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np

from ._input_files import open_file
from ._json_text import dump, parse
from ._recording_files import RecordingFiles
from .errors import ConfigurationError, ProtocolError, RecordingError
from .truth import ItemTruth, decode_truth

TRUTH_FILE = "truth.jsonl"

#: Longest line, as in host/recording/truth_writer.h.
_MOST_LINE_BYTES = 2_097_152

_Text = bytes | mmap.mmap

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
    """What simulated sensors should have found in the frames of a recording."""

    def __init__(self, files: RecordingFiles) -> None:
        """Finds the line of each frame and item, by its sensor and tick."""
        self._files = files
        self._path = files.documents.directory / TRUTH_FILE
        self._fault: str | None = None
        self._text: _Text = b""
        readable = all(item.table is not None for item in files.items)
        self._exists = files.documents.session.truth is not None and readable
        if self._exists:
            try:
                self._text = _map_text(self._path)
            except RecordingError as failure:
                self._fault = str(failure)
        self._starts = _Reader(files, self._path, self._text, _quick_key).starts

    def close(self) -> None:
        """Closes the file."""
        if isinstance(self._text, mmap.mmap):
            self._text.close()

    def find(self, frame: int, place: int) -> ItemTruth | None:
        """The truth of an item in a frame; None if it is unknown."""
        start = int(self._starts[frame, place])
        if start < 0:
            return None
        try:
            return decode_truth(parse(self._text[start : self._text.find(b"\n", start)], "The line"))
        except (ConfigurationError, ProtocolError):
            # Reported by faults().
            return None

    def faults(self) -> list[str]:
        """What is wrong with the file; reads all of it."""
        if self._fault is not None:
            return [self._fault]
        return _Reader(self._files, self._path, self._text, _strict_key).faults if self._exists else []


class _Reader:
    """Reads all lines of a file.

    Attributes:
        starts: where the line of each frame and item starts, shape (frames, items); -1 if there is none.
        faults: what is wrong.
    """

    def __init__(
        self, files: RecordingFiles, path: Path, text: _Text, key_of: Callable[[bytes, str], _Key]
    ) -> None:
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
        self._read(text)

    def _read(self, text: _Text) -> None:
        """Reads all lines; the first one describes the scene."""
        start = text.find(b"\n") + 1
        if start == 0:
            self.faults.append(f"{self._path} has no first line, which describes the scene.")
            return
        if _is_row(text[: start - 1]):
            start = 0
        head = dump(self._files.documents.session.truth).encode()
        if start == 0 or _shortest_numbers(text[: start - 1]) != _shortest_numbers(head):
            self._add_fault("has another first line than the description of the session.")
        while (end := text.find(b"\n", start)) >= 0:
            self._read_line(text[start:end], start)
            start = end + 1
        self._check_rest(len(text) - start)

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
        frames = self._files.frames
        if self._files.finished and (self._has_surplus or size > 0):
            self._add_fault(f"has more than the lines of {frames} frame{'' if frames == 1 else 's'}.")


def _describe(key: _Key) -> str:
    """The place of a line."""
    return f"frame {key.frame} of group {key.group}, item {key.item}"


def _map_text(path: Path) -> _Text:
    """The content of a file, which is read when it is used."""
    with open_file(path) as stream:
        is_empty = not stream.read(1)
        try:
            return b"" if is_empty else mmap.mmap(stream.fileno(), 0, access=mmap.ACCESS_READ)
        except OSError as failure:
            raise RecordingError(f"Cannot read {path}: {failure.strerror}.") from None


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
