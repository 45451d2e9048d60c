"""Measures the files of a recording, and compares them with what was recorded, as `vantor info` does."""

import hashlib
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

import numpy as np

from ._captures import MOST_CAPTURES, Counts, Segment, count_missing, period_of_unlisted_gaps, read_captures
from ._frame_table import ROW, FrameTable, Rows, read_frame_table
from ._input_files import cannot_read, open_file, size_of
from ._layout import SAMPLE_SIZE
from ._recording_documents import (
    BLOCK_FRAMES,
    NEXT_STREAMS,
    TABLE_DIGEST,
    ItemDocument,
    RecordingDocuments,
    is_listed,
    read_documents,
)
from .errors import RecordingError

_BLOCK = 2**20


@dataclass(frozen=True, slots=True, eq=False)
class ItemFiles:
    """The files of an item.

    Attributes:
        item: its metadata.
        samples: path of the samples.
        size: of the samples in bytes; None if they cannot be read.
        table: its frame table; None if it cannot be read.
        faults: why they cannot be read.
    """

    item: ItemDocument
    samples: Path
    size: int | None
    table: FrameTable | None
    faults: tuple[str, ...]

    @property
    def frame_size(self) -> int:
        """Bytes of a frame."""
        return self.item.layout.frame_length * SAMPLE_SIZE

    @property
    def frames(self) -> int:
        """Number of complete frames in the file of samples."""
        return (self.size or 0) // self.frame_size if self.frame_size else 0

    @property
    def rows(self) -> Rows:
        """The correct rows of the frame table."""
        return self.table.rows if self.table else np.empty(0, ROW)


class RecordingFiles:
    """The files of a recording, and what is wrong with them."""

    def __init__(self, place: Path) -> None:
        """Reads documents and frame tables, and measures the samples; raises RecordingError."""
        # First: if the recorder has ended, the documents that are read now are the final ones.
        directory = place if place.is_dir() else place.parent
        self.in_progress = _is_being_recorded(directory)
        self.documents: RecordingDocuments = read_documents(place, self.in_progress)
        self.items = [_measure(self.documents.directory, item) for item in self.documents.items]
        finished = [item.item.is_finished for item in self.items]
        replacing = NEXT_STREAMS in (self.documents.collection or {})
        damaged = [item.item.document is None for item in self.items]
        self._documented = any(finished)
        self.finished = (
            self._documented and not replacing and all(map(bool.__or__, damaged, finished))
        )
        announced = [_announced_frames(item) for item in self.items if item.item.is_finished]
        #: Number of frames that the documents announce; None if the recording was not finished.
        self.recorded: int | None = min(announced) if self.finished and announced else None
        #: Number of frames that are complete in every item.
        self.frames = self._frames_left()
        self.captures = read_captures(
            [item.item.document for item in self.items],
            [item.item.layout.frame_length for item in self.items],
        )
        self.missing: Counts = self._count_missing()

    def quick_faults(self) -> list[str]:
        """What is wrong, as far as it can be found without reading the samples."""
        return [*self.documents.faults, *self._size_faults(), *self._stream_faults()]

    def all_faults(self, truth_faults: list[str]) -> list[str]:
        """What is wrong, in the order of `vantor info`; reads everything."""
        digests = [fault for item in self.items for fault in self._digest_faults(item)]
        return [
            *self.documents.faults,
            *self._size_faults(),
            *digests,
            *self._missing_faults(),
            *self._stream_faults(),
            *truth_faults,
        ]

    def segments(self) -> tuple[Segment, ...]:
        """The segments of the frames that are left."""
        left = [capture for capture in self.captures if capture.first_frame < self.frames]
        return tuple(left or self.captures[:1])

    def total_missing(self) -> int:
        """Number of missing frames; the documents include gaps that they do not list."""
        counted = int(self.missing[-1]) if self.frames else 0
        if self.recorded != self.frames:
            return counted
        return max([counted, *(_announced_missing(item, counted) for item in self.items)])

    def _frames_left(self) -> int:
        limits = [limit for item in self.items for limit in (item.frames, len(item.rows))]
        if self.recorded is not None:
            limits.append(self.recorded)
        return min(limits, default=0) if self.items else 0

    def _count_missing(self) -> Counts:
        rows = self.items[0].rows[: self.frames] if self.items else np.empty(0, ROW)
        period = period_of_unlisted_gaps(
            self.documents.session.tick_period, self._documented, self.captures
        )
        return count_missing(self.captures, period, rows)

    def _size_faults(self) -> Iterator[str]:
        """Files that are missing, damaged, too short or too long."""
        least: int | None = None
        for item in self.items if self.finished else []:
            if item.item.is_finished:
                frames = _announced_frames(item)
                if least is not None and frames != least:
                    yield (
                        f"{item.item.name}.sigmf-meta announces {frames} frames, not {least} like the other "
                        "items."
                    )
                least = frames if least is None else min(least, frames)
        for item in self.items:
            yield from item.faults
        compare = self._compare_with_documents if self.finished else self._compare_with_others
        for item in self.items:
            yield from compare(item)

    def _compare_with_documents(self, item: ItemFiles) -> Iterator[str]:
        """Compares the files of an item with the number of frames that the documents announce."""
        recorded = self.recorded or 0
        name, expected = item.item.name, recorded * item.frame_size
        if item.size is not None and item.size < expected:
            yield (
                f"{name}.sigmf-data lacks {expected - item.size} bytes: it contains "
                f"{item.frames} of {recorded} frames."
            )
        elif item.size is not None and item.size > expected:
            yield f"{name}.sigmf-data has {item.size - expected} bytes after the last frame."
        if item.table is None:
            return
        surplus = item.table.size - item.table.rows_size
        if len(item.rows) != recorded:
            yield f"{name}.frames.csv has {len(item.rows)} correct rows for {recorded} frames."
        elif item.table.rows_size > 0 and surplus > 0:
            yield f"{name}.frames.csv has {surplus} bytes after the last row."

    def _compare_with_others(self, item: ItemFiles) -> Iterator[str]:
        """Compares the files of an item of a recording that is not finished with those of the other items.

        A program that is killed has written at most one more block of rows, and one more block of other items.
        """
        if self.in_progress:
            return
        name = item.item.name
        most = max(len(item.rows), *(other.frames for other in self.items))
        most = max(most - max(map(_block_frames, self.items)), 0)
        if item.size is not None and item.frames < most:
            yield f"{name}.sigmf-data contains {item.frames} of {most} frames."
        wanted = max(item.frames, most)
        if item.table is not None and len(item.rows) < wanted:
            yield f"{name}.frames.csv has correct rows for {len(item.rows)} of {wanted} frames."

    def _digest_faults(self, item: ItemFiles) -> Iterator[str]:
        """Compares samples and rows with the digests of all that were recorded."""
        if item.size is None or item.table is None or not item.item.is_finished:
            return
        try:
            yield from self._compare_digests(item)
        except RecordingError as failure:
            yield str(failure)

    def _compare_digests(self, item: ItemFiles) -> Iterator[str]:
        """The same for files that exist; raises RecordingError if one cannot be read."""
        name = item.item.name
        table = f"{name}.frames.csv"
        recorded = (self.recorded or 0) * item.frame_size
        if self.recorded is not None and item.size is not None and item.size >= recorded:
            if _digest(item.samples, recorded) != _member(item, "core:sha512"):
                yield f"The samples in {name}.sigmf-data differ from those that were recorded."
        expected = _member(item, TABLE_DIGEST)
        if expected is not None and item.table is not None and self.recorded == len(item.rows) > 0:
            if _digest(self.documents.directory / table, item.table.rows_size) != expected:
                yield f"The rows in {table} differ from those that were recorded."

    def _missing_faults(self) -> Iterator[str]:
        """Compares the number of missing frames with that in the captures, if these list all gaps."""
        if self.recorded != self.frames:
            return
        all_listed = len(self.captures) < MOST_CAPTURES
        found = int(self.missing[-1]) if self.frames else 0
        for item in self.items:
            missing = _announced_missing(item, found)
            if missing < found or (all_listed and missing != found):
                noun = "frame" if missing == 1 else "frames"
                yield (
                    f"{item.item.name}.sigmf-meta says that {missing} {noun} are missing, but its captures "
                    f"and ticks show {found}."
                )

    def _stream_faults(self) -> Iterator[str]:
        """Compares the digests of the metadata with those in the collection."""
        collection = self.documents.collection
        if collection is None or self.in_progress:
            # A program that still writes may have replaced some documents since others were read.
            return
        for index, item in enumerate(self.items):
            listed = is_listed(collection, index, item.item.name, item.item.digest)
            # A program that is killed during its last step has replaced only some of the documents.
            replaced = not self.finished and item.item.is_finished
            if not listed and not replaced and item.item.document is not None:
                yield f"{item.item.name}.sigmf-meta differs from what was recorded."


def _member(item: ItemFiles, name: str) -> object:
    """A member of the metadata of an item; None if it is missing."""
    return item.item.document["global"].get(name) if item.item.document else None


def _announced_frames(item: ItemFiles) -> int:
    frames = _member(item, "vantor:frames")
    return frames if isinstance(frames, int) else 0


def _block_frames(item: ItemFiles) -> int:
    """The most frames that were written at once."""
    frames = _member(item, BLOCK_FRAMES)
    return max(frames, 1) if isinstance(frames, int) else 1


def _announced_missing(item: ItemFiles, otherwise: int) -> int:
    missing = _member(item, "vantor:frames_missing") if item.item.is_finished else None
    return missing if isinstance(missing, int) else otherwise


def _measure(directory: Path, item: ItemDocument) -> ItemFiles:
    """Measures the files of an item."""
    samples = directory / f"{item.name}.sigmf-data"
    faults: list[str] = []
    size: int | None = None
    table: FrameTable | None = None
    try:
        size = size_of(samples)
    except RecordingError as failure:
        faults.append(str(failure))
    try:
        table = read_frame_table(directory / f"{item.name}.frames.csv")
        faults += [] if table.fault is None else [table.fault]
    except RecordingError as failure:
        faults.append(str(failure))
    return ItemFiles(item, samples, size, table, tuple(faults))


def _digest(path: Path, size: int) -> str:
    """SHA-512 of the start of a file; raises RecordingError."""
    digest = hashlib.sha512()
    with open_file(path) as stream:
        try:
            while size > 0 and (block := stream.read(min(size, _BLOCK))):
                digest.update(block)
                size -= len(block)
        except OSError as failure:
            raise cannot_read(path, failure) from None
    return digest.hexdigest()


def _is_being_recorded(directory: Path) -> bool:
    """Whether another program still writes samples in a directory."""
    return any(_is_being_written(path) for path in directory.glob("*.sigmf-data") if path.is_file())


def _is_being_written(path: Path) -> bool:
    try:
        # Not on every system.
        import fcntl

        with path.open("rb") as stream:
            fcntl.flock(stream, fcntl.LOCK_SH | fcntl.LOCK_NB)
    except BlockingIOError:
        return True
    except (ImportError, OSError):
        # What cannot be read is reported later.
        return False
    return False
