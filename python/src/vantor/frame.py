"""Frames: what the sensors measured at one moment, as arrays that never change.

A frame contains items; an item is one measurement by one sensor. Live sessions and recordings give the same
objects.
"""

import math
from collections.abc import Iterator
from dataclasses import dataclass, field, fields
from typing import Any, TypeVar

import numpy as np
import numpy.typing as npt

from ._board_clock import UNKNOWN_UTC, UtcSource
from ._places import Places, find_place, has_place
from .truth import ItemTruth

Samples = npt.NDArray[np.int16]
Floats = npt.NDArray[np.float64]

#: The amplitude at 0 dBFS, in LSB.
FULL_SCALE = 32767.0

#: The lowest level that is shown, in LSB: it stands for 0, which has no value in dB.
_LEAST_LEVEL = 0.1


_Array = TypeVar("_Array", bound=npt.NDArray[Any])


def read_only(array: _Array) -> _Array:
    """The array, which cannot be changed any more."""
    array.flags.writeable = False
    return array


class _Copied:
    """The arrays of copies, also of unpickled ones, are read-only like those of the original."""

    __slots__ = ()

    def __reduce__(self) -> tuple[Any, ...]:
        return _again, (type(self), *(getattr(self, each.name) for each in fields(self)))


def _again(kind: Any, *values: Any) -> Any:
    """An object with these members."""
    return kind(*(read_only(value) if isinstance(value, np.ndarray) else value for value in values))


@dataclass(frozen=True, slots=True)
class Subsweep:
    """Position of a sub-sweep in a sweep.

    Attributes:
        offset: its first point.
        length: its number of points.
    """

    offset: int
    length: int

    @property
    def points(self) -> slice:
        """Its points, as an index: `item.iq[:, subsweep.points]`."""
        return slice(self.offset, self.offset + self.length)


@dataclass(frozen=True, slots=True, eq=False)
class ItemLayout(_Copied):
    """Layout of the frames of an item, the same during the whole session.

    Attributes:
        group: index of the item's group in the configuration, from 0.
        index: index of the item in its group, from 0.
        sensor_id: number of the sensor on the board, from 1.
        sweeps: number of sweeps in a frame.
        subsweeps: the sub-sweeps of a sweep.
        distances_m: distance of each point of a sweep in metres, shape (points,), read-only; NaN where it is
            unknown.
        sweep_rate_hz: sweeps per second: the configured rate, or else the highest one; NaN if unknown.
        max_sweep_rate_hz: highest sweep rate that the configuration allows; NaN if the server did not report
            it, or 0.
        wavelength_m: wavelength of the carrier in metres.
        base_step_m: length of a base step, the unit of `start_point` and `step_length`, in metres.
        high_speed_mode: whether the sensor measures in high-speed mode.
        calibration_temperature: temperature of the sensor during calibration: relative, in °C.
    """

    group: int
    index: int
    sensor_id: int
    sweeps: int
    subsweeps: tuple[Subsweep, ...]
    distances_m: Floats = field(repr=False)
    sweep_rate_hz: float
    max_sweep_rate_hz: float
    wavelength_m: float
    base_step_m: float
    high_speed_mode: bool
    calibration_temperature: int

    @property
    def points(self) -> int:
        """Number of points in a sweep."""
        return len(self.distances_m)

    @property
    def frame_length(self) -> int:
        """Number of complex samples in a frame."""
        return self.sweeps * self.points

    @property
    def sweep_times_s(self) -> Floats:
        """Time of each sweep since the first one of its frame in seconds, shape (sweeps,), read-only."""
        with np.errstate(over="ignore"):
            return read_only(np.arange(self.sweeps) / self.sweep_rate_hz)

    @property
    def velocities_m_s(self) -> Floats:
        """Velocity of each row of `fftshift(fft(item.iq, axis=0), axes=0)` in m/s, shape (sweeps,), read-only.

        It is positive if the target moves away.
        """
        step = self.wavelength_m / 2.0 * self.sweep_rate_hz / max(self.sweeps, 1)
        with np.errstate(over="ignore"):
            return read_only(step * (np.arange(self.sweeps) - self.sweeps // 2))


@dataclass(frozen=True, slots=True)
class Flags:
    """What the server reports about the quality of an item.

    Attributes:
        data_saturated: a sample reached full scale: reduce `receiver_gain`.
        frame_delayed: the frame was read too late to keep the frame rate.
        calibration_needed: the temperature differs too much from that of the calibration.
        data_valid: with clear-channel assessment: False if the samples must not be used; otherwise None.
        cca_detected: with its debug values: whether the channel was busy; otherwise None.
        tx_enabled: with its debug values: whether the transmitter was on; otherwise None.
    """

    data_saturated: bool = False
    frame_delayed: bool = False
    calibration_needed: bool = False
    data_valid: bool | None = None
    cca_detected: bool | None = None
    tx_enabled: bool | None = None

    @property
    def usable(self) -> bool:
        """Whether the samples can be used: not with `data_valid` False."""
        return self.data_valid is not False

    def __str__(self) -> str:
        """The flags that are not None: "data_saturated frame_delayed data_valid=False", or "none"."""
        names = []
        for field in fields(self):
            value = getattr(self, field.name)
            if field.default is None and value is not None:
                names.append(f"{field.name}={value}")
            elif value:
                names.append(field.name)
        return " ".join(names) or "none"


# Not frozen, like Frame: it would take three times as long to make one.
@dataclass(slots=True, eq=False)
class Item(_Copied):
    """One item of one frame: what one sensor measured.

    Attributes:
        layout: its layout, shared by all frames of the session.
        samples: the samples as the sensor measured them: int16, shape (sweeps, points, 2), in-phase part
            first, in LSB. A read-only view of the received bytes, never copied.
        tick: the server's clock at the end of the measurement; continues with 0 after 2³² - 1.
        time: of the measurement, in seconds since the first frame of the stream by the server's clock; 0 if
            it has none.
        temperature: of the sensor: relative, in °C; use it only to compare with other values.
        flags: what the server reports about the samples.
        cca_value: the assessment value of the channel, with debug values of clear-channel assessment.
        truth: what a simulated sensor should have found; None if unknown.
    """

    layout: ItemLayout
    samples: Samples
    tick: int
    time: float
    temperature: int
    flags: Flags
    cca_value: float | None = None
    truth: ItemTruth | None = None
    _moment: UtcSource | None = field(default=None, repr=False)

    def __repr__(self) -> str:
        sweeps, points, _ = self.samples.shape
        return (
            f"<vantor.Item of sensor {self.layout.sensor_id}: {sweeps} sweeps of {points} points, "
            f"time={self.time}, flags: {self.flags}>"
        )

    @property
    def utc_s(self) -> float:
        """When `tick` was, in seconds since 1970-01-01 UTC without leap seconds; NaN while it is not known."""
        return self._utc[0]

    @property
    def utc_bound_s(self) -> float:
        """The true time is at most this many seconds before or after `utc_s`; NaN while it is not known."""
        return self._utc[1]

    @property
    def _utc(self) -> tuple[float, float]:
        return UNKNOWN_UTC if self._moment is None else self._moment.utc(self.tick)

    @property
    def iq(self) -> npt.NDArray[np.complex64]:
        """The samples in LSB: complex64, shape (sweeps, points).

        Computed at each access, like `level` and `level_dbfs`: a new array, which you can change.
        """
        return complex_samples(self.samples)

    @property
    def level(self) -> npt.NDArray[np.float32]:
        """Magnitude of each point, mean over the sweeps, in LSB: float32, shape (points,)."""
        return mean_level(self.samples)

    @property
    def level_dbfs(self) -> npt.NDArray[np.float32]:
        """The level in dBFS: 0 dBFS is full scale, 32767 LSB; float32, shape (points,).

        It is at least -110.31 dBFS, which stands for silence, and at most 3.01 dBFS: both parts clipped.
        """
        return to_dbfs(self.level)

    @property
    def distances_m(self) -> Floats:
        """Distance of each point in metres, shape (points,), read-only."""
        return self.layout.distances_m

    @property
    def velocities_m_s(self) -> Floats:
        """Velocity of each row of `fftshift(fft(item.iq, axis=0), axes=0)` in m/s, shape (sweeps,)."""
        return self.layout.velocities_m_s

    @property
    def sweep_times_s(self) -> Floats:
        """Time of each sweep since the first one of the frame in seconds, shape (sweeps,)."""
        return self.layout.sweep_times_s


@dataclass(slots=True, eq=False)
class Frame:
    """One frame of all items of a session.

    `frame[group, index]` is an item, both from 0 in the order of the configuration; iterating gives all of
    them. `(group, index) in frame` is whether there is such an item, `item in frame` whether it is one of it.

    Attributes:
        number: how many frames of the stream or recording precede it.
        items: all items, in the order of the configuration.
        missing: number of frames missing before this one since the start of the stream: lost on the link, or
            left out by server or sensor. Without a frame rate or a clock it counts damaged messages, and frames
            that were lost on the way to the server.
        lost_before: those between the previous frame and this one.
    """

    number: int
    items: tuple[Item, ...]
    missing: int
    lost_before: int
    _places: Places = field(repr=False)

    @property
    def time(self) -> float:
        """Time of the first item, in seconds since the first frame of the stream; 0 without a clock."""
        return self.items[0].time if self.items else 0.0

    @property
    def utc_s(self) -> float:
        """`utc_s` of the first item."""
        return self.items[0].utc_s if self.items else math.nan

    @property
    def utc_bound_s(self) -> float:
        """`utc_bound_s` of the first item."""
        return self.items[0].utc_bound_s if self.items else math.nan

    @property
    def truth(self) -> tuple[ItemTruth | None, ...]:
        """What each simulated sensor should have found, in the order of `items`; None where it is unknown."""
        return tuple(item.truth for item in self.items)

    def __getitem__(self, place: tuple[int, int]) -> Item:
        return self.items[find_place(self._places, place, "frame")]

    def __contains__(self, place: object) -> bool:
        return any(item is place for item in self.items) or has_place(self._places, place)

    def __iter__(self) -> Iterator[Item]:
        return iter(self.items)

    def __reversed__(self) -> Iterator[Item]:
        return reversed(self.items)

    def __len__(self) -> int:
        return len(self.items)


def places_of(layouts: tuple[ItemLayout, ...]) -> Places:
    """Where each item is in the list of items, by group and index: the last argument of `Frame`."""
    return {(layout.group, layout.index): place for place, layout in enumerate(layouts)}


def complex_samples(samples: Samples) -> npt.NDArray[np.complex64]:
    """Samples of shape (…, 2) as complex numbers of shape (…)."""
    parts = np.ascontiguousarray(samples, dtype=np.float32)
    return parts.view(np.complex64)[..., 0]


def mean_level(samples: Samples) -> npt.NDArray[np.float32]:
    """Magnitude of samples of shape (…, sweeps, points, 2), mean over the sweeps: shape (…, points)."""
    if samples.shape[-3] == 0:
        # NumPy warns if it computes the mean of an empty array.
        return np.zeros((*samples.shape[:-3], samples.shape[-2]), np.float32)
    parts = samples.astype(np.float32)
    level: npt.NDArray[np.float32] = np.hypot(parts[..., 0], parts[..., 1]).mean(axis=-2)
    return level


def to_dbfs(level: npt.NDArray[np.float32]) -> npt.NDArray[np.float32]:
    """A level in LSB as a level in dBFS."""
    scaled: npt.NDArray[np.float32] = 20.0 * np.log10(np.maximum(level, _LEAST_LEVEL) / FULL_SCALE)
    return scaled
