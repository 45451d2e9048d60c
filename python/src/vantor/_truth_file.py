"""Reads the truth that a simulated server writes, while it writes it."""

import ctypes
import json
import os
import weakref
from collections import deque
from collections.abc import Iterable
from contextlib import suppress
from pathlib import Path
from typing import Any

from .errors import Error
from .truth import ItemTruth, decode_truth

#: Longest line, and number of bytes that are read at once.
_LONGEST_LINE = 2**20
_READ_SIZE = 2**16

#: Most lines of a sensor that are kept until they are asked for.
_MOST_KEPT_ROWS = 4096

#: Memory is returned in parts of this size.
_FORGOTTEN_PART = 2**20

#: Stands for the descriptor of a file that is closed.
_CLOSED = -1

_FALLOC_FL_KEEP_SIZE = 1
_FALLOC_FL_PUNCH_HOLE = 2


class TruthFile:
    """The truth file of a private simulated server: in memory, and only as long as this object lives.

    It has a line for each session, and one for each frame of a sensor. Lines are found by session, sensor and
    tick.
    """

    def __init__(self) -> None:
        self._descriptor = os.memfd_create("vantor-truth")
        self._end = weakref.finalize(self, os.close, self._descriptor)
        #: The path for the server.
        self.path = Path(f"/proc/{os.getpid()}/fd/{self._descriptor}")
        self._position = 0
        self._forgotten = 0
        self._rest = b""
        self._session: int | None = None
        self._rows: dict[int, deque[ItemTruth]] = {}

    def close(self) -> None:
        """Closes the file, which then has no more lines."""
        self._descriptor = _CLOSED
        self._end()

    def begin_session(self, sensors: Iterable[int]) -> None:
        """Continues with the session that the server has begun last, and of which no frame was measured."""
        self._rows = {sensor: deque(maxlen=_MOST_KEPT_ROWS) for sensor in sensors}
        self._session = None
        while lines := self._read_lines():
            for line in lines:
                self._begin(line)

    def find(self, sensor_id: int, tick: int) -> ItemTruth | None:
        """What a sensor should have found; None if the file does not have it.

        Must be called in the order in which a sensor measured: what was measured before is forgotten.
        """
        rows = self._rows.get(sensor_id)
        if rows is None:
            return None
        while True:
            while rows and (rows[0].tick - tick) % 2**32 >= 2**31:
                rows.popleft()
            if rows:
                return rows.popleft() if rows[0].tick == tick else None
            lines = self._read_lines()
            if not lines:
                return None
            for line in lines:
                self._take_row(line)

    def _begin(self, line: bytes) -> None:
        members = _parse(line)
        if isinstance(members.get("session"), int) and isinstance(members.get("scene"), dict):
            self._session = members["session"]

    def _take_row(self, line: bytes) -> None:
        """Keeps the truth in a line if it belongs to the session."""
        members = _parse(line)
        if members.get("session") != self._session or members.get("sensor") not in self._rows:
            return
        # A line that is not understood is like one that is missing.
        with suppress(Error):
            row = decode_truth(members)
            self._rows[row.sensor_id].append(row)

    def _read_lines(self) -> list[bytes]:
        """The complete lines among the next bytes of the file; none at its end."""
        while data := self._read():
            self._position += len(data)
            self._forget()
            *lines, self._rest = (self._rest + data).split(b"\n")
            if len(self._rest) > _LONGEST_LINE:
                self._rest = b""
            if lines:
                return lines
        return []

    def _read(self) -> bytes:
        """The next bytes; none at the end. Never of another file that has got the number of this one."""
        if self._descriptor == _CLOSED:
            return b""
        return os.pread(self._descriptor, _READ_SIZE, self._position)

    def _forget(self) -> None:
        """Returns the memory of what has been read. Without this function of the system, memory grows."""
        if self._position - self._forgotten < _FORGOTTEN_PART:
            return
        punch = getattr(ctypes.CDLL(None), "fallocate64", None)
        if punch is not None:
            offset, size = ctypes.c_int64(self._forgotten), ctypes.c_int64(self._position - self._forgotten)
            punch(self._descriptor, _FALLOC_FL_PUNCH_HOLE | _FALLOC_FL_KEEP_SIZE, offset, size)
        self._forgotten = self._position


def _parse(line: bytes) -> dict[str, Any]:
    """The object in a line; an empty one if there is none."""
    try:
        members = json.loads(line)
    except (ValueError, RecursionError):
        return {}
    return members if isinstance(members, dict) else {}
