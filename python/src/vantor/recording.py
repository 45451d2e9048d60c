"""Recordings: the frames of a session in files, docs/recording.md, as memory-mapped arrays."""

import math
import os
import warnings
from collections.abc import Iterable, Iterator, Mapping
from dataclasses import dataclass, fields, replace
from functools import cached_property
from itertools import takewhile
from operator import index
from pathlib import Path
from types import TracebackType
from typing import Any, Self, SupportsIndex, overload

import numpy as np
import numpy.typing as npt

from ._board_clock import KnownUtc
from ._captures import Counts, Segment
from ._frame_table import UNKNOWN, Rows
from ._input_files import cannot_read
from ._places import find_place, has_place
from ._plain_values import to_float
from ._recorded_truth import RecordedTruth
from ._recording_documents import RecordedBoard, RecordedServer
from ._recording_files import ItemFiles, RecordingFiles
from .calibration import Calibration
from .errors import RecordingError, RecordingWarning
from .frame import (
    Flags,
    Floats,
    Frame,
    Item,
    ItemLayout,
    Samples,
    complex_samples,
    mean_level,
    places_of,
    read_only,
    to_dbfs,
)
from .truth import TruthOfFrames

__all__ = ["RecordedBoard", "RecordedItem", "RecordedServer", "Recording", "RecordingWarning", "Segment"]

_Flags = npt.NDArray[np.bool_]


@dataclass(frozen=True, slots=True, eq=False, repr=False)
class RecordedItem:
    """One item of a recording, or of a part of it: `item[100:200]` has 100 frames, and so does `item[mask]`.

    `item[3]` is the item in one frame, as in `recording.frame(3)`, and iterating gives it for all frames. All
    arrays that are attributes have a value or a row for each frame, and are read-only; the others are new at
    each access.

    Attributes:
        layout: of its frames.
        numbers: of its frames in the recording, from 0.
        samples: as the sensor measured them: int16, shape (frames, sweeps, points, 2), in-phase part first,
            in LSB; memory-mapped, so that only what is used is read.
        ticks: the server's clock at the end of the measurement; continues with 0 after 2³² - 1.
        times_s: time of the measurement in seconds since the first frame of the recording, by the server's
            clock; 0 if it has none.
        utc_s: when each of the ticks was, in seconds since 1970-01-01 UTC without leap seconds; NaN where that is
            not known.
        utc_bound_s: the true time is at most this many seconds before or after `utc_s`.
        temperatures: of the sensor: relative, in °C; use them only to compare with other values.
        data_saturated: whether a sample reached full scale.
        frame_delayed: whether the frame was read too late to keep the frame rate.
        calibration_needed: whether the temperature differs too much from that of the calibration.
        data_valid: False where the samples must not be used, which is only so with clear-channel assessment.
        cca_values: the assessment value of the channel; NaN where it is unknown.
        cca_detected: with debug values of clear-channel assessment: whether the channel was busy; otherwise
            False.
        tx_enabled: with these values: whether the transmitter was on; otherwise False.
        missing: number of frames missing before each frame since the start of the recording; numbers +
            missing counts all frames that were due.
    """

    layout: ItemLayout
    numbers: Counts
    samples: Samples
    ticks: npt.NDArray[np.uint32]
    times_s: Floats
    utc_s: Floats
    utc_bound_s: Floats
    temperatures: npt.NDArray[np.int32]
    data_saturated: _Flags
    frame_delayed: _Flags
    calibration_needed: _Flags
    data_valid: _Flags
    cca_values: Floats
    cca_detected: _Flags
    tx_enabled: _Flags
    missing: Counts
    _recording: "Recording"
    _place: int

    @property
    def truth(self) -> TruthOfFrames:
        """What the simulated sensor should have found in each frame; None where it is unknown."""
        return self._recording._truth_of(self._place, self.numbers.tolist())

    @property
    def iq(self) -> npt.NDArray[np.complex64]:
        """The samples as complex numbers in LSB: complex64, shape (frames, sweeps, points).

        They are computed at each access and need twice the memory of the samples: of a long recording, use
        parts such as `item[:1000].iq`.
        """
        return complex_samples(self.samples)

    @property
    def level(self) -> npt.NDArray[np.float32]:
        """Magnitude of each point, mean over the sweeps, in LSB: float32, shape (frames, points)."""
        return mean_level(self.samples)

    @property
    def level_dbfs(self) -> npt.NDArray[np.float32]:
        """The level in dBFS as in `Item.level_dbfs`: float32, shape (frames, points)."""
        return to_dbfs(self.level)

    @property
    def distances_m(self) -> Floats:
        """Distance of each point in metres, shape (points,)."""
        return self.layout.distances_m

    @property
    def velocities_m_s(self) -> Floats:
        """Velocity of each row of `fftshift(fft(item.iq, axis=1), axes=1)` in m/s, shape (sweeps,)."""
        return self.layout.velocities_m_s

    @property
    def sweep_times_s(self) -> Floats:
        """Time of each sweep since the first one of its frame in seconds, shape (sweeps,)."""
        return self.layout.sweep_times_s

    def __reduce__(self) -> tuple[Any, ...]:
        """Copies and pickles as the recording and the numbers of the frames."""
        return _item_again, (self._recording, self._place, self.numbers)

    def __repr__(self) -> str:
        layout = self.layout
        size = f"{layout.sweeps} x {layout.points} samples"
        return f"<RecordedItem [{layout.group}, {layout.index}]: {len(self)} frames of {size}>"

    def __len__(self) -> int:
        """Number of frames."""
        return len(self.ticks)

    def __iter__(self) -> Iterator[Item]:
        """The item in each frame."""
        return map(self.__getitem__, range(len(self)))

    @overload
    def __getitem__(self, frames: int | np.integer[Any]) -> Item: ...

    @overload
    def __getitem__(self, frames: "slice | _Selection") -> "RecordedItem": ...

    def __getitem__(self, frames: "int | np.integer[Any] | slice | _Selection") -> "Item | RecordedItem":
        """The item in one frame; or in some of them, by a slice, a mask or an array of indices."""
        if isinstance(frames, (int, np.integer)):
            return self._recording._item_of_frame(self._place, int(self.numbers[frames]))
        selection = frames if isinstance(frames, slice) else _require_selection(frames)
        parts = {name: read_only(getattr(self, name)[selection]) for name in _array_names()}
        return replace(self, **parts)


_Selection = npt.NDArray[np.bool_] | npt.NDArray[np.integer[Any]] | list[bool] | list[int] | range


def _require_selection(frames: object) -> npt.NDArray[Any]:
    """A mask or indices of frames as an array; raises TypeError for anything else."""
    found = np.asarray(frames) if isinstance(frames, (np.ndarray, list, range)) else np.zeros(())
    if found.size == 0 and found.ndim == 1:
        return found.astype(np.bool_ if found.dtype == np.bool_ else np.intp)
    if found.ndim != 1 or found.dtype.kind not in "bui":
        raise TypeError(f"Frames are a whole number, a slice, a mask or a list of numbers, not {frames!r}.")
    return found


def _item_again(recording: "Recording", place: int, numbers: Counts) -> RecordedItem:
    """The part of an item with these frames; those in a row stay memory-mapped."""
    layout = recording.layouts[place]
    item = recording[layout.group, layout.index]
    begin = int(numbers[0]) if len(numbers) else 0
    row = np.arange(begin, begin + len(numbers))
    return item[begin : begin + len(numbers)] if np.array_equal(numbers, row) else item[numbers]


def _array_names() -> list[str]:
    """The members of an item that have a value or a row for each frame."""
    others = ("layout", "_recording", "_place")
    return [field.name for field in fields(RecordedItem) if field.name not in others]


class Recording:
    """The frames of a session in files. `recording[group, index]` is an item, both from 0.

    Iterating gives the frames. `(group, index) in recording` is whether there is such an item.

    Attributes:
        layouts: the layouts of all items, in the order of the configuration.
    """

    layouts: tuple[ItemLayout, ...]

    def __init__(self, path: str | os.PathLike[str], board: RecordedBoard | None = None) -> None:
        """Opens a recording: its directory, or any of its files. The board is the one that it names by default.

        A RecordingWarning describes what is damaged or not finished, as far as it can be found without
        reading all samples; see damage().

        Raises:
            RecordingError: the recording cannot be read.
        """
        place = Path(path).absolute()
        try:
            self._files = RecordingFiles(place)
        except OSError as failure:
            raise cannot_read(Path(failure.filename or place), failure) from None
        self._warn(stacklevel=4 if board is None else 6)
        self._board = board or self._files.documents.session.board
        for item in self._files.items:
            if item.size is None or item.table is None:
                raise RecordingError(item.faults[0])
        self.layouts = tuple(item.item.layout for item in self._files.items)
        samples = [_map_samples(item, len(self)) for item in self._files.items]
        self._samples: list[Samples] | None = samples
        self._places = places_of(self.layouts)
        self._truth = RecordedTruth(self._files)
        if not self.in_progress:
            self._truth.check()

    @property
    def directory(self) -> Path:
        """The directory of the recording."""
        return self._files.documents.directory

    @property
    def configuration(self) -> dict[str, Any]:
        """The configuration document, to repeat the session."""
        return self._files.documents.session.configuration

    @property
    def calibrations(self) -> tuple[Calibration, ...]:
        """The calibrations at the start of the session, for add_calibrations() or save_calibrations()."""
        return self._files.documents.session.metadata.calibrations

    @property
    def server(self) -> RecordedServer:
        """The server."""
        return self._files.documents.session.server

    @property
    def board(self) -> RecordedBoard:
        """The board."""
        return self._board

    @property
    def boards(self) -> "Mapping[str, Recording]":
        """The recordings of all boards, by the names of their directories; of a single one, only itself."""
        return {self.directory.name: self}

    @property
    def source(self) -> Any:
        """Address of the server, its board and simulator, as in docs/recording.md; None if unknown."""
        return self._files.documents.session.source

    @property
    def scene(self) -> dict[str, Any] | None:
        """Scene, seed, clock and sensors of the simulator; None without the truth of simulated sensors."""
        return self._files.documents.session.truth

    @property
    def finished(self) -> bool:
        """Whether the recorder completed the recording; `vantor repair` completes it otherwise."""
        return self._files.finished

    @property
    def in_progress(self) -> bool:
        """Whether the recorder still wrote when the recording was opened; open it again for more frames."""
        return self._files.in_progress

    @property
    def segments(self) -> tuple[Segment, ...]:
        """The segments between the gaps that the documents list; `missing` has all gaps."""
        return self._files.segments()

    @property
    def frame_rate_hz(self) -> float:
        """Frames per second: as configured, or else as measured, gaps included; NaN if unknown."""
        nominal = self._files.documents.session.frame_rate_hz
        if nominal > 0.0:
            return nominal
        times = self._times(0) if len(self) > 1 else np.zeros(1)
        return (len(self) - 1) / float(times[-1]) if times[-1] > 0.0 else math.nan

    @property
    def missing(self) -> Counts:
        """Number of frames missing before each frame since the start of the recording, shape (frames,)."""
        return self._files.missing

    @property
    def lost_before(self) -> Counts:
        """Number of frames missing directly before each frame, shape (frames,)."""
        return np.maximum(np.diff(self._files.missing, prepend=0), 0)

    @property
    def total_missing(self) -> int:
        """Number of missing frames, with those that the recorder could not list."""
        return self._files.total_missing()

    def damage(self) -> tuple[str, ...]:
        """What is damaged: what `vantor info` lists; empty if nothing is. Reads the whole recording."""
        self._open_samples()
        return tuple(self._files.all_faults(self._truth.faults()))

    def close(self) -> None:
        """Closes the files. Arrays, items and frames that you have stay valid, without the truth of items."""
        if self._samples is not None:
            self._samples = None
            self._truth.close()

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, failure: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __reduce__(self) -> tuple[Any, ...]:
        """Copies and pickles as the path: it is opened again where it is used."""
        return Recording, (self.directory,)

    def truth(self, group: int, index: int) -> TruthOfFrames:
        """What the simulated sensor of an item should have found in each frame; None where it is unknown."""
        place = find_place(self._places, (group, index), "recording")
        return self._truth_of(place, range(len(self)))

    def frames(
        self,
        start: int = 0,
        stop: int | None = None,
        *,
        count: int | None = None,
        seconds: float | None = None,
    ) -> Iterator[Frame]:
        """The frames from one number up to another, in their order, as a session gives them.

        Args:
            start: number of the first one.
            stop: number after that of the last one; None for all.
            count: how many frames at most; None for no limit.
            seconds: how long from the first one, by the server's clock; None for no limit.
        """
        if count is not None and count < 0 or seconds is not None and not seconds >= 0.0:
            raise ValueError("count and seconds must not be negative.")
        numbers = range(len(self))[start:stop][:count]
        frames = map(self.frame, numbers)
        if seconds is None or not numbers:
            return frames
        end = float(self._times(0)[numbers[0]]) + to_float(seconds)
        return takewhile(lambda frame: frame.time < end, frames)

    def frames_by_utc(self) -> Iterator[tuple[str, Frame]]:
        """The frames of all boards in the order of `utc_s`, each with the name of its board in `boards`.

        Frames whose time is not known are left out. Nothing is read before it is needed.
        """
        names = list(self.boards)
        times = [self.boards[name]._utc_of_frames() for name in names]
        starts = np.cumsum([0, *map(len, times)])
        every = np.concatenate(times)
        order = np.argsort(every, kind="stable")[: np.count_nonzero(~np.isnan(every))]
        places = np.searchsorted(starts, order, side="right") - 1
        for place, number in zip(places.tolist(), (order - starts[places]).tolist(), strict=True):
            yield names[place], self.boards[names[place]].frame(number)

    def frame(self, number: SupportsIndex) -> Frame:
        """The frame of a number, from 0; of a negative one, counted from the end."""
        number = self._frame_number(number)
        missing = int(self.missing[number])
        before = int(self.missing[number - 1]) if number > 0 else 0
        items = tuple(self._item_of_frame(place, number) for place in range(len(self.layouts)))
        return Frame(number, items, missing, max(0, missing - before), self._places)

    def __iter__(self) -> Iterator[Frame]:
        return self.frames()

    def __reversed__(self) -> Iterator[Frame]:
        return map(self.frame, reversed(range(len(self))))

    def __contains__(self, place: object) -> bool:
        return has_place(self._places, place)

    def __repr__(self) -> str:
        return f"<Recording {self.directory}: {len(self)} frames of {len(self.layouts)} items>"

    def __len__(self) -> int:
        """Number of frames that are complete in every item."""
        return self._files.frames

    def __getitem__(self, place: tuple[int, int]) -> RecordedItem:
        return self._recorded_item(find_place(self._places, place, "recording"))

    def _warn(self, stacklevel: int) -> None:
        """Warns of damage that is visible without reading all samples."""
        faults = self._files.quick_faults()
        if faults:
            left = "" if self._files.recorded is None else f" of {self._files.recorded}"
            text = f"is damaged; {len(self)}{left} frames are left: {faults[0]} damage() lists all damage."
        elif not self.finished and not self.in_progress:
            text = f'was not finished: {len(self)} frames can be read; "vantor repair" completes it.'
        else:
            return
        warnings.warn(f"{self.directory} {text}", RecordingWarning, stacklevel)

    def _frame_number(self, number: SupportsIndex) -> int:
        """The number of a frame from 0; raises IndexError if there is none."""
        try:
            return range(len(self))[number]
        except IndexError:
            numbers = f"its frames are 0 to {len(self) - 1}" if len(self) else "it has no frames"
            raise IndexError(f"The recording has no frame {index(number)}; {numbers}.") from None

    def _rows(self, place: int) -> Rows:
        return self._files.items[place].rows[: len(self)]

    def _times(self, place: int) -> Floats:
        """Times of an item: those of the first item, and what lies between the ticks of both."""
        first, rows = self._rows(0), self._rows(place)
        rate = self.server.ticks_per_second
        if place == 0 or not rate > 0.0:
            return np.array(first["time_s"])
        between = (rows["tick"].astype(np.int64) - first["tick"] + 2**31) % 2**32 - 2**31
        return np.array(first["time_s"] + between / rate)

    def _utc_of_frames(self) -> Floats:
        """`utc_s` of the first item."""
        return np.array(self._rows(0)["utc_s"]) if self.layouts else np.empty(0)

    def _recorded_item(self, place: int) -> RecordedItem:
        rows = self._rows(place)
        return RecordedItem(
            layout=self.layouts[place],
            numbers=read_only(np.arange(len(self))),
            samples=self._open_samples()[place],
            ticks=read_only(rows["tick"]),
            times_s=read_only(self._times(place)),
            utc_s=read_only(rows["utc_s"]),
            utc_bound_s=read_only(rows["utc_bound_s"]),
            temperatures=read_only(rows["temperature"]),
            data_saturated=read_only(rows["data_saturated"] == 1),
            frame_delayed=read_only(rows["frame_delayed"] == 1),
            calibration_needed=read_only(rows["calibration_needed"] == 1),
            data_valid=read_only(rows["data_valid"] != 0),
            cca_values=read_only(rows["cca_value"]),
            cca_detected=read_only(rows["cca_detected"] == 1),
            tx_enabled=read_only(rows["tx_enabled"] == 1),
            missing=self.missing,
            _recording=self,
            _place=place,
        )

    def _truth_of(self, place: int, numbers: Iterable[int]) -> TruthOfFrames:
        """The truth of an item in some frames."""
        self._open_samples()
        return TruthOfFrames(self._truth.find(number, place) for number in numbers)

    def _open_samples(self) -> list[Samples]:
        """The samples of all items; raises RecordingError after close()."""
        if self._samples is None:
            raise RecordingError(f"{self.directory} was closed: open it again.")
        return self._samples

    @cached_property
    def _readings(self) -> list[tuple[list[Any], ...]]:
        """Per item: time, tick, temperature, flags, channel value and time in UTC of each frame."""
        return [self._columns(place) for place in range(len(self.layouts))]

    def _columns(self, place: int) -> tuple[list[Any], ...]:
        rows = self._rows(place)
        names = ("data_saturated", "frame_delayed", "calibration_needed")
        optional = ("data_valid", "cca_detected", "tx_enabled")
        columns = [rows[name].astype(bool).tolist() for name in names]
        values = {UNKNOWN: None, 0: False, 1: True}
        columns += [[values[flag] for flag in rows[name].tolist()] for name in optional]
        cells = list(zip(*columns, strict=True))
        known = {each: Flags(*each) for each in set(cells)}
        flags = [known[each] for each in cells]
        channel = [None if math.isnan(value) else value for value in rows["cca_value"].tolist()]
        ticks, temperatures = rows["tick"].tolist(), rows["temperature"].tolist()
        times = zip(rows["utc_s"].tolist(), rows["utc_bound_s"].tolist(), strict=True)
        moments = [None if math.isnan(utc) else KnownUtc(utc, bound) for utc, bound in times]
        return self._times(place).tolist(), ticks, temperatures, flags, channel, moments

    def _item_of_frame(self, place: int, number: int) -> Item:
        times, ticks, temperatures, flags, channel, moments = self._readings[place]
        return Item(
            layout=self.layouts[place],
            samples=self._open_samples()[place][number],
            tick=ticks[number],
            time=times[number],
            temperature=temperatures[number],
            flags=flags[number],
            cca_value=channel[number],
            truth=self._truth.find(number, place),
            _moment=moments[number],
        )


def _map_samples(item: ItemFiles, frames: int) -> Samples:
    """The samples of all frames of an item, which are read when they are used."""
    layout = item.item.layout
    shape = (frames, layout.sweeps, layout.points, 2)
    if frames * item.frame_size == 0:
        samples: Samples = np.empty(shape, "<i2")
        samples.flags.writeable = False
        return samples
    try:
        return np.memmap(item.samples, "<i2", "r", shape=shape).view(np.ndarray)
    except (OSError, ValueError) as failure:
        raise cannot_read(item.samples, failure) from None
