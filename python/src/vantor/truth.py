"""The truth of simulated sensors: what they should have found in a frame."""

import math
from dataclasses import dataclass

from . import _members
from .errors import ProtocolError


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
    """

    target: int
    distance_m: float
    velocity_m_s: float
    amplitude: float
    phase_rad: float
    snr_db: float | None


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


def decode_truth(members: object) -> ItemTruth:
    """Decodes a line of a truth file; raises ProtocolError if a member is missing or out of range."""
    return ItemTruth(
        sensor_id=_members.integer(members, "sensor", _members.UINT32),
        tick=_members.integer(members, "tick", _members.UINT32),
        time_s=_finite(members, "time_s"),
        temperature=_members.integer(members, "temperature", _members.INT16),
        noise_power=_finite(members, "noise_power"),
        interference=_finite(members, "interference"),
        targets=tuple(map(_decode_target, _members.array(members, "targets"))),
    )


def _decode_target(members: object) -> TargetTruth:
    return TargetTruth(
        target=_members.length(members, "target"),
        distance_m=_finite(members, "distance_m"),
        velocity_m_s=_finite(members, "velocity_m_s"),
        amplitude=_finite(members, "amplitude"),
        phase_rad=_finite(members, "phase_rad"),
        snr_db=_members.optional_number(members, "snr_db"),
    )


def _finite(members: object, name: str) -> float:
    """A required member as a finite number."""
    value = _members.number(members, name)
    if not math.isfinite(value):
        raise ProtocolError(f'"{name}" is not a number.')
    return value
