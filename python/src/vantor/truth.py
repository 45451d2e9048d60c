"""The truth of simulated sensors: what they should have found in a frame."""

from dataclasses import dataclass


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
