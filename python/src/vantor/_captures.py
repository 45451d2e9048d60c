"""The segments of a recording, and the frames that are missing between its frames."""

from dataclasses import dataclass
from typing import Any

import numpy as np
import numpy.typing as npt

from ._frame_table import Rows
from ._loss import LossCounter

#: Most captures with which one that begins at a gap is listed.
MOST_CAPTURES = 10_000

#: Most captures with those that begin at breaks.
_MOST_CAPTURES_WITH_BREAKS = 20_000

Counts = npt.NDArray[np.int64]


@dataclass(frozen=True, slots=True)
class Segment:
    """A part of a recording that begins with the first frame, after a gap, or because the session ended.

    Attributes:
        first_frame: number of its first frame.
        missing: number of frames missing before it, since the start of the recording.
        started: when its first frame arrived, by the clock of the host, in ISO 8601; empty if unknown.
        reason: why the session ended before it, such as "calibrated again"; empty after a gap.
        break_s: seconds between the last frame before and the first frame of the segment; 0 after a gap.
    """

    first_frame: int
    missing: int
    started: str = ""
    reason: str = ""
    break_s: float = 0.0


def read_captures(documents: list[dict[str, Any] | None], frame_lengths: list[int]) -> list[Segment]:
    """The segments that the metadata of the items list: those of the first item whose metadata are known."""
    for document, frame_length in zip(documents, frame_lengths, strict=True):
        if document is not None and document["captures"]:
            return [_read_capture(entry, max(frame_length, 1)) for entry in document["captures"]]
    return [Segment(0, 0)]


def _read_capture(entry: dict[str, Any], length: int) -> Segment:
    start, index = entry["core:sample_start"], entry["core:global_index"]
    is_break = "vantor:break" in entry
    return Segment(
        first_frame=start // length,
        missing=(index - start) // length,
        started=entry.get("core:datetime", ""),
        reason=entry["vantor:break"] if is_break else "",
        break_s=float(entry.get("vantor:break_s", 0.0)) if is_break else 0.0,
    )


def period_of_unlisted_gaps(period: float, finished: bool, captures: list[Segment]) -> float:
    """Ticks between two frames, to count gaps that are not listed; 0 if all are, or if breaks may not be."""
    all_listed = finished and len(captures) < MOST_CAPTURES
    return 0.0 if all_listed or len(captures) >= _MOST_CAPTURES_WITH_BREAKS else period


def count_missing(captures: list[Segment], period: float, rows: Rows) -> Counts:
    """Number of frames missing before each frame since the start of the recording, shape (frames,).

    captures: those in the documents
    period: that of gaps which they do not list, in ticks; 0 if they list all of them
    rows: of the frame table of the first item
    """
    starts = np.array([capture.first_frame for capture in captures])
    listed = np.array([0, *(capture.missing for capture in captures)])
    if period > 0.0:
        missing = np.array(_count_from_ticks(captures, period, rows), dtype=np.int64)
    else:
        missing = listed[np.searchsorted(starts, np.arange(len(rows)), side="right")].astype(np.int64)
    missing.flags.writeable = False
    return missing


def _count_from_ticks(captures: list[Segment], period: float, rows: Rows) -> list[int]:
    """The same, with gaps between and after the captures that only the ticks show."""
    begins = {capture.first_frame: capture for capture in captures}
    counter = LossCounter(period)
    listed, counted_before, missing = 0, 0, []
    ticks = zip(rows["tick"].tolist(), rows["frame_delayed"].tolist(), strict=True)
    for number, (tick, delayed) in enumerate(ticks):
        capture = begins.get(number)
        if capture is not None and capture.reason:
            counter = LossCounter(period)
        counted = counter.add(tick, 0, bool(delayed))
        if capture is not None:
            listed, counted_before = capture.missing, counted
        counted_before = min(counted_before, counted)
        missing.append(listed + counted - counted_before)
    return missing
