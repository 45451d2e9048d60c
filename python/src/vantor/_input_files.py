"""Reads the files of recordings."""

import os
import stat
import weakref
from collections.abc import Iterator
from pathlib import Path
from typing import BinaryIO

from .errors import RecordingError, reason_of

#: Bytes that are read at once: of many lines, and of one.
_BLOCK = 2**20
_USUAL_LINE = 2**12


def cannot_read(path: Path, failure: OSError | ValueError) -> RecordingError:
    """The error for a file that cannot be read."""
    return RecordingError(f"Cannot read {path}: {reason_of(failure)}.")


def open_file(path: Path) -> BinaryIO:
    """Opens a regular file; raises RecordingError."""
    try:
        if not stat.S_ISREG(path.stat().st_mode):
            raise RecordingError(f"Cannot read {path}: it is not a regular file.")
        return path.open("rb")
    except (OSError, ValueError) as failure:
        raise cannot_read(path, failure) from None


def size_of(path: Path) -> int:
    """The size of a file in bytes; raises RecordingError."""
    with open_file(path) as stream:
        return os.fstat(stream.fileno()).st_size


def read_file(path: Path) -> bytes:
    """The content of a file; raises RecordingError."""
    with open_file(path) as stream:
        try:
            return stream.read()
        except OSError as failure:
            raise cannot_read(path, failure) from None
        except MemoryError:
            raise RecordingError(f"Cannot read {path}: there is not enough memory for it.") from None


class LineFile:
    """A file of lines, of which only a part is in memory. It may be shortened meanwhile: its lines then end.

    Its size is that at the time when it was opened.
    """

    def __init__(self, path: Path) -> None:
        """Opens a regular file; raises RecordingError."""
        self._path = path
        self._stream = open_file(path)
        self._size = os.fstat(self._stream.fileno()).st_size
        # A file that is forgotten is closed.
        weakref.finalize(self, self._stream.close)

    def close(self) -> None:
        """Closes the file."""
        self._stream.close()

    def lines(self, longest: int) -> Iterator[tuple[int, bytes, bool]]:
        """Where each line starts, its text, and whether it is complete: only the last one may not be.

        Of a line with more than `longest` bytes the text is only a part, but also longer. Raises RecordingError.
        """
        start = end = 0
        begun = b""
        while block := self._read(end, _BLOCK):
            *complete, rest = block.split(b"\n")
            for text in complete:
                end += len(text) + 1
                yield start, begun + text, True
                start, begun = end, b""
            end += len(rest)
            begun = (begun + rest)[: longest + 1]
        if begun:
            yield start, begun, False

    def line_at(self, start: int, longest: int) -> bytes:
        """The line that starts at a byte, or the first bytes of a longer one; raises RecordingError."""
        text = b""
        while len(text) <= longest and (block := self._read(start + len(text), _USUAL_LINE)):
            before, line_feed, _ = block.partition(b"\n")
            text += before
            if line_feed:
                break
        return text

    def _read(self, position: int, size: int) -> bytes:
        """The bytes at a position; none at the end."""
        try:
            return os.pread(self._stream.fileno(), min(size, max(0, self._size - position)), position)
        except OSError as failure:
            raise cannot_read(self._path, failure) from None
