"""Reads the frame tables of recordings: time, temperature and flags of an item, one row for each frame."""

import re
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np
import numpy.typing as npt

from ._board_clock import MOST_UTC
from ._input_files import read_file

#: Stands for a value that the server did not send.
UNKNOWN = -1

#: The columns; a flag is 0, 1 or UNKNOWN.
ROW = np.dtype(
    [
        ("frame", "i8"),
        ("time_s", "f8"),
        ("tick", "u4"),
        ("temperature", "i4"),
        ("data_saturated", "i1"),
        ("frame_delayed", "i1"),
        ("calibration_needed", "i1"),
        ("data_valid", "i1"),
        ("cca_value", "f8"),
        ("cca_detected", "i1"),
        ("tx_enabled", "i1"),
        ("utc_s", "f8"),
        ("utc_bound_s", "f8"),
    ]
)

Rows = npt.NDArray[np.void]

_NUMBER = rb"-?(?:[0-9]+(?:\.[0-9]*)?|\.[0-9]+)(?:e[+-]?[0-9]+)?"
_CELLS = (
    rb"[0-9]{1,18}", _NUMBER, rb"[0-9]{1,18}", rb"-?[0-9]{1,9}", rb"[01]", rb"[01]", rb"[01]",
    rb"[01]?", rb"(?:" + _NUMBER + rb")?", rb"[01]?", rb"[01]?",
    rb"(?:-?[0-9]{1,10}\.[0-9]{6})?", rb"(?:[0-9]{1,10}\.[0-9]{6})?",
)  # fmt: skip


class _Form:
    """The form of a table.

    Attributes:
        head: its first line.
        row: matches a row, with a group for each cell.
        rows: matches any number of rows.
    """

    def __init__(self, columns: int) -> None:
        """The form of tables with the first columns."""
        self.head = ",".join((ROW.names or ())[:columns]).encode() + b"\n"
        self.row = re.compile(rb",".join(rb"(" + cell + rb")" for cell in _CELLS[:columns]) + rb"\n")
        self.rows = re.compile(rb"(?:" + rb",".join(_CELLS[:columns]) + rb"\n)*")


#: Tables of earlier versions have no time in UTC.
_FORMS = (_Form(len(_CELLS)), _Form(len(_CELLS) - 2))

_LONGEST_LINE = 4096

#: Bytes that a cell has at the most, unless somebody has written the table by hand.
_USUAL_CELL = 32

_BLOCK = 2**20

#: More seconds than any recording has: 2^64 ticks of the slowest server.
_LONGEST_TIME = 2e22


@dataclass(frozen=True, slots=True, eq=False)
class FrameTable:
    """The rows of a table before the first one that is damaged.

    Attributes:
        rows: of type ROW, read-only; cca_value, utc_s and utc_bound_s are NaN where they are unknown.
        size: of the file, in bytes.
        rows_size: up to the end of the last correct row, in bytes; 0 if the head is damaged.
        fault: what is wrong; None if nothing is, or if only the last row is incomplete.
    """

    rows: Rows
    size: int
    rows_size: int
    fault: str | None


def read_frame_table(path: Path) -> FrameTable:
    """Reads a table; raises RecordingError if it cannot be read."""
    data = read_file(path)
    form = next((form for form in _FORMS if data.startswith(form.head)), None)
    if form is None:
        return FrameTable(np.empty(0, ROW), len(data), 0, f"{path} is not a frame table.")
    likely = _convert(data[len(form.head) : _end_of_rows(data, form)], form)
    rows = likely[: _count_correct(likely)]
    rows.flags.writeable = False
    lines = np.flatnonzero(np.frombuffer(data, np.uint8) == ord("\n"))
    rows_size = int(lines[len(rows)]) + 1
    fault = None
    if len(lines) - 1 > len(rows):
        fault = f"{path}: line {len(rows) + 2} does not describe a frame."
    elif len(data) - rows_size > _LONGEST_LINE:
        fault = f"{path} has a line of more than {_LONGEST_LINE} bytes."
    return FrameTable(rows, len(data), rows_size, fault)


def _end_of_rows(data: bytes, form: _Form) -> int:
    """The end of the rows that have the right form; found in blocks, because the search needs memory."""
    most = _end_of_short_lines(data)
    position, rows = len(form.head), form.rows
    while (found := rows.match(data, position, min(position + _BLOCK, most))) and found.end() > position:
        position = found.end()
    return position


def _end_of_short_lines(data: bytes) -> int:
    """The end of the last line before the first one that is too long."""
    ends = np.flatnonzero(np.frombuffer(data, np.uint8) == ord("\n")) + 1
    too_long = np.flatnonzero(np.diff(ends) > _LONGEST_LINE)
    return int(ends[too_long[0]] if len(too_long) else ends[-1])


def _convert(text: bytes, form: _Form) -> Rows:
    """Converts rows that have the right form."""
    cells = form.row.findall(text)
    rows = np.empty(len(cells), ROW)
    rows["utc_s"] = rows["utc_bound_s"] = np.nan
    for name, column in zip(ROW.names or (), zip(*cells, strict=True), strict=False):
        missing = b"%d" % UNKNOWN if rows[name].dtype.kind != "f" else b"nan"
        kind = np.float64 if rows[name].dtype.kind == "f" else np.int64
        values = _numbers([cell or missing for cell in column], kind)
        # A tick that is too large must not look like another one.
        rows[name] = values if name != "tick" else np.where(values < 2**32, values, 0)
        if name == "tick":
            rows["frame"][values >= 2**32] = UNKNOWN
    return rows


def _numbers(cells: list[bytes], kind: Any) -> npt.NDArray[Any]:
    """The numbers in cells."""
    if max(map(len, cells), default=0) > _USUAL_CELL:
        # An array of texts would have the longest cell in every row.
        return np.array([float(cell) for cell in cells], kind)
    return np.array(cells).astype(kind)


def _count_correct(rows: Rows) -> int:
    """The number of rows before the first one with an impossible value."""
    correct = rows["frame"] == np.arange(len(rows))
    correct &= (rows["time_s"] >= 0.0) & (rows["time_s"] <= _LONGEST_TIME) & ~np.isinf(rows["cca_value"])
    correct &= np.isnan(rows["utc_s"]) == np.isnan(rows["utc_bound_s"])
    correct &= ~(abs(rows["utc_s"]) >= MOST_UTC) & ~(rows["utc_bound_s"] >= MOST_UTC)
    return len(rows) if correct.all() else int(correct.argmin())
