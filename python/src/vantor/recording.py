"""Recordings: the frames of a session in files, docs/recording.md, as memory-mapped arrays."""

import math
import os
import warnings
from collections.abc import Iterator
from dataclasses import dataclass, fields, replace
from functools import cached_property
from pathlib import Path
from typing import Any

import numpy as np
import numpy.typing as npt

from ._captures import Counts, Segment
from ._frame_table import UNKNOWN, Rows
from ._recorded_truth import RecordedTruth
from ._recording_documents import RecordedServer
from ._recording_files import ItemFiles, RecordingFiles
from .calibration import Calibration
from .errors import RecordingError
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
    to_dbfs,
)
from .truth import ItemTruth

__all__ = ["RecordedItem", "RecordedServer", "Recording", "RecordingWarning", "Segment"]

_Flags = npt.NDArray[np.bool_]


class RecordingWarning(UserWarning):
    """A recording is damaged, or was not finished."""


@dataclass(frozen=True, slots=True, eq=False, repr=False)
class RecordedItem:
    """One item of a recording, or of a part of it: `item[100:200]` has 100 frames.

    All arrays have a value or a row for each frame, and are read-only.

    Attributes:
        layout: of its frames.
        samples: as the sensor measured them: int16, shape (frames, sweeps, points, 2), in-phase part first,
            in LSB; memory-mapped, so that only what is used is read.
        ticks: the server's clock at the end of the measurement; continues with 0 after 2³² - 1.
        times_s: time of the measurement in seconds since the first frame of the recording, by the server's
            clock; 0 if it has none.
        temperatures: of the sensor: relative, in °C; use them only to compare with other values.
        data_saturated: whether a sample reached full scale.
        frame_delayed: whether the frame was read too late to keep the frame rate.
        calibration_needed: whether the temperature differs too much from that of the calibration.
        data_valid: False where the samples must not be used, which is only so with clear-channel assessment.
        cca_values: the assessment value of the channel; NaN where it is unknown.
        missing: number of frames missing before each frame since the start of the recording; index + missing
            counts all frames that were due.
    """

    layout: ItemLayout
    samples: Samples
    ticks: npt.NDArray[np.uint32]
    times_s: Floats
    temperatures: npt.NDArray[np.int32]
    data_saturated: _Flags
    frame_delayed: _Flags
    calibration_needed: _Flags
    data_valid: _Flags
    cca_values: Floats
    missing: Counts

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
        """The level in dBFS: 0 dBFS is full scale, 32767 LSB; float32, shape (frames, points)."""
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

    def __repr__(self) -> str:
        layout = self.layout
        size = f"{layout.sweeps} x {layout.points} samples"
        return f"<RecordedItem [{layout.group}, {layout.index}]: {len(self)} frames of {size}>"

    def __len__(self) -> int:
        """Number of frames."""
        return len(self.ticks)

    def __getitem__(self, frames: slice) -> "RecordedItem":
        """The item in a part of the frames."""
        return replace(self, **{name: getattr(self, name)[frames] for name in _array_names()})


def _array_names() -> list[str]:
    """The members of an item that have a value or a row for each frame."""
    return [field.name for field in fields(RecordedItem) if field.name != "layout"]


class Recording:
    """The frames of a session in files. `recording[group, index]` is an item, both from 0.

    Attributes:
        layouts: the layouts of all items, in the order of the configuration.
    """

    layouts: tuple[ItemLayout, ...]

    def __init__(self, path: str | os.PathLike[str]) -> None:
        """Opens a recording: its directory, or any of its files.

        A RecordingWarning describes what is damaged or not finished, as far as it can be found without
        reading all samples; see damage().

        Raises:
            RecordingError: the recording cannot be read.
        """
        self._files = RecordingFiles(Path(path))
        self._warn()
        for item in self._files.items:
            if item.size is None or item.table is None:
                raise RecordingError(item.faults[0])
        self.layouts = tuple(item.item.layout for item in self._files.items)
        self._samples = [_map_samples(item, len(self)) for item in self._files.items]
        self._places = places_of(self.layouts)

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
        return tuple(self._files.all_faults(self._truth.faults()))

    def truth(self, group: int, index: int) -> tuple[ItemTruth | None, ...]:
        """What the simulated sensor of an item should have found in each frame; None where it is unknown."""
        place = self._place((group, index))
        return tuple(self._truth.find(number, place) for number in range(len(self)))

    def frames(self, start: int = 0, stop: int | None = None) -> Iterator[Frame]:
        """The frames from one number up to another, in their order, as a session gives them."""
        for number in range(len(self))[start:stop]:
            yield self.frame(number)

    def frame(self, number: int) -> Frame:
        """The frame of a number, from 0."""
        number = range(len(self))[number]
        missing = int(self.missing[number])
        before = int(self.missing[number - 1]) if number > 0 else 0
        items = tuple(self._item_of_frame(place, number) for place in range(len(self._samples)))
        return Frame(number, items, missing, max(0, missing - before), self._places)

    def __iter__(self) -> Iterator[Frame]:
        return self.frames()

    def __repr__(self) -> str:
        return f"<Recording {self.directory}: {len(self)} frames of {len(self.layouts)} items>"

    def __len__(self) -> int:
        """Number of frames that are complete in every item."""
        return self._files.frames

    def __getitem__(self, place: tuple[int, int]) -> RecordedItem:
        return self._recorded_item(self._place(place))

    def _warn(self) -> None:
        """Warns of damage that is visible without reading all samples."""
        faults = self._files.quick_faults()
        if faults:
            left = "" if self._files.recorded is None else f" of {self._files.recorded}"
            text = f"is damaged; {len(self)}{left} frames are left: {faults[0]} damage() lists all damage."
        elif not self.finished and not self.in_progress:
            text = f'was not finished: {len(self)} frames can be read; "vantor repair" completes it.'
        else:
            return
        warnings.warn(f"{self.directory} {text}", RecordingWarning, stacklevel=4)

    def _place(self, place: tuple[int, int]) -> int:
        """The place of an item in the list of items."""
        try:
            return self._places[place]
        except KeyError:
            known = ", ".join(f"[{group}, {index}]" for group, index in self._places)
            raise IndexError(f"The recording has no item {place}; it has {known or 'none'}.") from None

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

    def _recorded_item(self, place: int) -> RecordedItem:
        rows = self._rows(place)
        item = RecordedItem(
            layout=self.layouts[place],
            samples=self._samples[place],
            ticks=rows["tick"],
            times_s=self._times(place),
            temperatures=rows["temperature"],
            data_saturated=rows["data_saturated"] == 1,
            frame_delayed=rows["frame_delayed"] == 1,
            calibration_needed=rows["calibration_needed"] == 1,
            data_valid=rows["data_valid"] != 0,
            cca_values=rows["cca_value"],
            missing=self.missing,
        )
        for name in _array_names():
            getattr(item, name).flags.writeable = False
        return item

    @cached_property
    def _truth(self) -> RecordedTruth:
        return RecordedTruth(self._files)

    @cached_property
    def _readings(self) -> list[tuple[list[Any], ...]]:
        """Per item: time, tick, temperature, flags and channel value of each frame."""
        return [self._columns(place) for place in range(len(self._samples))]

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
        return self._times(place).tolist(), ticks, temperatures, flags, channel

    def _item_of_frame(self, place: int, number: int) -> Item:
        times, ticks, temperatures, flags, channel = self._readings[place]
        return Item(
            layout=self.layouts[place],
            samples=self._samples[place][number],
            tick=ticks[number],
            time=times[number],
            temperature=temperatures[number],
            flags=flags[number],
            cca_value=channel[number],
            truth=self._truth.find(number, place),
        )


def open(path: str | os.PathLike[str]) -> Recording:  # noqa: A001
    """Opens a recording: its directory, or any of its files; see Recording."""
    return Recording(path)


def _map_samples(item: ItemFiles, frames: int) -> Samples:
    """The samples of all frames of an item, which are read when they are used."""
    layout = item.item.layout
    shape = (frames, layout.sweeps, layout.points, 2)
    if frames * item.frame_size == 0:
        samples: Samples = np.empty(shape, "<i2")
        samples.flags.writeable = False
        return samples
    return np.memmap(item.samples, "<i2", "r", shape=shape).view(np.ndarray)
