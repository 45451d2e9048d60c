"""Reads the files of recordings."""

import os
from pathlib import Path
from typing import BinaryIO

from .errors import RecordingError


def open_file(path: Path) -> BinaryIO:
    """Opens a regular file; raises RecordingError."""
    if path.exists() and not path.is_file():
        raise RecordingError(f"Cannot read {path}: it is not a regular file.")
    try:
        return path.open("rb")
    except OSError as failure:
        raise RecordingError(f"Cannot read {path}: {failure.strerror}.") from None


def size_of(path: Path) -> int:
    """The size of a file in bytes; raises RecordingError."""
    with open_file(path) as stream:
        return os.fstat(stream.fileno()).st_size


def read_file(path: Path) -> bytes:
    """The content of a file; raises RecordingError."""
    with open_file(path) as stream:
        try:
            return stream.read()
        except MemoryError:
            raise RecordingError(f"Cannot read {path}: there is not enough memory for it.") from None
