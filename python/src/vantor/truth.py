"""The truth of simulated sensors: what they should have found in a frame."""

import math
from collections.abc import Callable
from contextlib import suppress
from dataclasses import dataclass, fields

import numpy as np
import numpy.typing as npt

from . import _members
from .errors import ProtocolError

#: Most targets that a scene has.
_MOST_TARGETS = 64

_Floats = npt.NDArray[np.float64]


@dataclass(frozen=True, slots=True)
class TargetTruth:
    """A target, at the middle of a frame.

    Attributes:
        target: its index in the list of the scene, from 0.
        distance_m: from the sensor, in metres.
        velocity_m_s: along the line of sight, in m/s; positive if it moves away.
        amplitude: of its echo without noise and clipping, in LSB; 0 without a transmitter.
        phase_rad: of the sample at the peak of its echo, -π to π.
        snr_db: power of the peak over that of the noise; None without an echo.
        body: targets with the same number are one thing; 0 if it is one on its own.
    """

    target: int
    distance_m: float
    velocity_m_s: float
    amplitude: float
    phase_rad: float
    snr_db: float | None
    body: int = 0


@dataclass(frozen=True, slots=True)
class ItemTruth:
    """What one sensor should have found in one frame.

    Attributes:
        sensor_id: number of the sensor, from 1.
        tick: as in the frame.
        time_s: time of the scene at the first sweep, in seconds.
        temperature: of the sensor, in °C.
        noise_power: mean square of the magnitude of the noise in a sample, in LSB².
        interference: power of interferers, as a multiple of the receiver's own noise.
        targets: what the sensor can see.
    """

    sensor_id: int
    tick: int
    time_s: float
    temperature: int
    noise_power: float
    interference: float
    targets: tuple[TargetTruth, ...]


@dataclass(frozen=True, slots=True, eq=False)
class TargetTrack:
    """A target in all frames: arrays of shape (frames,), NaN where the target or the truth is not there.

    Attributes:
        distance_m, velocity_m_s, amplitude, phase_rad, snr_db: as of `TargetTruth`.
    """

    distance_m: _Floats
    velocity_m_s: _Floats
    amplitude: _Floats
    phase_rad: _Floats
    snr_db: _Floats


class TruthOfFrames(tuple[ItemTruth | None, ...]):
    """What one sensor should have found, in each frame; None where it is unknown."""

    __slots__ = ()

    def target(self, number: int) -> TargetTrack:
        """A target by its index in the list of the scene, from 0."""
        return self._track(lambda target: target.target == number)

    def body(self, number: int) -> TargetTrack:
        """The target of a body that has the strongest echo, by the number of the body, from 1."""
        return self._track(lambda target: target.body == number)

    def _track(self, is_wanted: Callable[[TargetTruth], bool]) -> TargetTrack:
        """The strongest one of some targets in each frame."""
        found = [_strongest(entry, is_wanted) for entry in self]
        names = [field.name for field in fields(TargetTrack)]
        values = {name: [getattr(target, name, None) for target in found] for name in names}
        # None becomes NaN.
        return TargetTrack(**{name: np.array(column, np.float64) for name, column in values.items()})


def _strongest(entry: ItemTruth | None, is_wanted: Callable[[TargetTruth], bool]) -> TargetTruth | None:
    """The one of some targets that has the strongest echo; None if there is none."""
    targets = [] if entry is None else [target for target in entry.targets if is_wanted(target)]
    return max(targets, key=lambda target: target.amplitude) if targets else None


def decode_truth(members: object) -> ItemTruth:
    """Decodes a line of a truth file.

    Raises ProtocolError if a member is missing or out of range, a target is there twice, or there are too many.
    """
    return ItemTruth(
        sensor_id=_whole(members, "sensor", _members.UINT32),
        tick=_whole(members, "tick", _members.UINT32),
        time_s=_finite(members, "time_s"),
        temperature=_whole(members, "temperature", _members.INT16),
        noise_power=_finite(members, "noise_power"),
        interference=_finite(members, "interference"),
        targets=_decode_targets(_required(members, "targets")),
    )


def _decode_targets(documents: object) -> tuple[TargetTruth, ...]:
    if not isinstance(documents, list) or len(documents) > _MOST_TARGETS:
        raise ProtocolError(f'"targets" is not a list of at most {_MOST_TARGETS} targets.')
    targets: dict[int, TargetTruth] = {}
    for document in documents:
        target = _decode_target(document)
        if target.target in targets:
            raise ProtocolError(f'"targets" has target {target.target} twice.')
        targets[target.target] = target
    return tuple(targets.values())


def _decode_target(members: object) -> TargetTruth:
    return TargetTruth(
        target=_whole(members, "target", _members.UINT16),
        body=_whole(members, "body", _members.UINT16) if _has(members, "body") else 0,
        distance_m=_finite(members, "distance_m"),
        velocity_m_s=_finite(members, "velocity_m_s"),
        amplitude=_finite(members, "amplitude"),
        phase_rad=_finite(members, "phase_rad"),
        snr_db=_optional_finite(members, "snr_db"),
    )


def _has(members: object, name: str) -> bool:
    """Whether there is a member."""
    return isinstance(members, dict) and name in members


def _required(members: object, name: str) -> object:
    """A required member."""
    if not isinstance(members, dict) or name not in members:
        raise ProtocolError(f'"{name}" is missing.')
    return members[name]


def _whole(members: object, name: str, bounds: tuple[int, int]) -> int:
    """A required member as a whole number."""
    value = _required(members, name)
    if not isinstance(value, int) or isinstance(value, bool) or not bounds[0] <= value <= bounds[1]:
        raise ProtocolError(f'"{name}" is not a whole number from {bounds[0]} to {bounds[1]}.')
    return value


def _finite(members: object, name: str) -> float:
    """A required member as a finite number."""
    value = _required(members, name)
    if isinstance(value, (int, float)) and not isinstance(value, bool):
        with suppress(OverflowError):
            number = float(value)
            if math.isfinite(number):
                return number
    raise ProtocolError(f'"{name}" is not a number.')


def _optional_finite(members: object, name: str) -> float | None:
    """An optional member as a finite number; None if it is missing or null."""
    is_known = isinstance(members, dict) and members.get(name) is not None
    return _finite(members, name) if is_known else None
