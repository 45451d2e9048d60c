"""What a program that the package has started prints to standard error."""

import os
import threading
from collections import deque
from contextlib import suppress
from io import BufferedReader

from ._printable import printable

#: Most lines that are kept, and the longest one in bytes; longer ones are split.
_MOST_LINES = 1000
_LONGEST_LINE = 4096

#: Number of lines that a report shows.
_LINES_SHOWN = 10


class ErrorOutput:
    """What a program prints to standard error: kept, and from some time on also passed on.

    A thread reads it until the program and its children have closed it.
    """

    def __init__(self, stream: BufferedReader) -> None:
        """Takes over the stream that the program writes."""
        self._lines: deque[bytes] = deque(maxlen=_MOST_LINES)
        self._lock = threading.Lock()
        self._passes_on = False
        self._thread = threading.Thread(target=self._read, args=(stream,), daemon=True)
        self._thread.start()

    def pass_on(self) -> None:
        """Passes everything on to the standard error of this program: what is kept, and what follows."""
        with self._lock:
            if not self._passes_on:
                self._passes_on = True
                _print(b"".join(self._lines))

    def wait_for_end(self, timeout: float) -> None:
        """Waits until the program has closed the stream, up to `timeout` seconds."""
        self._thread.join(timeout)

    def last_lines(self) -> str:
        """The last lines, without control characters."""
        with self._lock:
            lines = list(self._lines)[-_LINES_SHOWN:]
        return "\n".join(printable(line.decode("utf-8", "replace").rstrip()) for line in lines)

    def _read(self, stream: BufferedReader) -> None:
        with stream:
            while line := stream.readline(_LONGEST_LINE):
                with self._lock:
                    self._lines.append(line)
                    if self._passes_on:
                        _print(line)


def _print(text: bytes) -> None:
    """Writes to the standard error of this program, if it has one."""
    with suppress(OSError):
        os.write(2, text)
