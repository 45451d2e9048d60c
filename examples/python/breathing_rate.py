"""Finds the rates of breathing and heart of a person who sits still: breathing_rate.py [ADDRESS] [SECONDS]"""

import sys

import numpy as np
import numpy.typing as npt
import vantor

CONFIGURATION = {
    "groups": [[{"sensor_id": 1, "config": {
        "frame_rate": 20, "start_point": 160, "num_points": 160, "step_length": 4, "hwaas": 64}}]],
}


def strongest_rate(signal: npt.NDArray[np.float64], sample_rate: float, lowest: float, highest: float) -> float:
    """The rate per minute, between two of them, with the strongest line in the spectrum of a signal."""
    size = 8 * len(signal)
    spectrum = abs(np.fft.rfft((signal - signal.mean()) * np.hanning(len(signal)), size))
    rates = 60.0 * np.fft.rfftfreq(size, 1.0 / sample_rate)
    spectrum[(rates < lowest) | (rates > highest)] = 0.0
    return float(rates[spectrum.argmax()])


def main(address: str = "sim:--clock virtual --scene breathing_person", seconds: str = "60") -> None:
    """Measure, and print both rates."""
    with vantor.connect(address) as server, server.session(CONFIGURATION) as session:
        layout, rate = session.items[0], session.frame_rate_hz
        sweeps = np.array([frame[0, 0].iq[0] for frame in session.frames(count=round(float(seconds) * rate))])
    chest = abs(sweeps).mean(axis=0).argmax()
    displacement_m = np.unwrap(np.angle(sweeps[:, chest])) * layout.wavelength_m / (4.0 * np.pi)
    print(f"distance {layout.distances_m[chest]:.2f} m, moves by {1000.0 * np.ptp(displacement_m):.1f} mm")
    print(f"breathing {strongest_rate(displacement_m, rate, 6, 40):.1f} per minute")
    # The steps from frame to frame show fast motion better than slow motion.
    print(f"heart {strongest_rate(np.diff(displacement_m), rate, 48, 180):.1f} per minute")


main(*sys.argv[1:])
