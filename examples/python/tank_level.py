"""Prints the level in a tank, seen from its top, once a second: tank_level.py [ADDRESS] [SECONDS]"""

import sys

import numpy as np
import numpy.typing as npt
import vantor

TOP_M, BOTTOM_M = 0.35, 1.9  # an edge at 0.3 m reflects, too
CONFIGURATION = {
    "update_rate": 10,
    "groups": [[{"sensor_id": 1, "config": {
        "start_point": round(TOP_M / 0.0025), "num_points": 125, "step_length": 5, "hwaas": 32,
        "phase_enhancement": True, "iq_imbalance_compensation": True, "receiver_gain": 8}}]],
}


def peak_distance(distances_m: npt.NDArray[np.float64], level: npt.NDArray[np.float32]) -> float:
    """The distance of the highest level: of the parabola through the three points there."""
    peak = min(max(int(level.argmax()), 1), len(level) - 2)
    before, at, after = np.log(level[peak - 1 : peak + 2] + 1.0)
    shift = 0.5 * (before - after) / (before - 2.0 * at + after)
    return float(distances_m[peak] + shift * (distances_m[1] - distances_m[0]))


def main(address: str = "sim:--clock virtual --scene tank_level", seconds: str = "30") -> None:
    """Measure, and print the median of each second: waves move the surface."""
    found = []
    with vantor.connect(address) as server, server.session(CONFIGURATION) as session:
        for frame in session.frames(count=round(float(seconds) * session.frame_rate_hz)):
            if frame[0, 0].flags.data_saturated:
                sys.exit("The echo is too strong: reduce the receiver_gain.")
            found.append(peak_distance(frame[0, 0].distances_m, frame[0, 0].level))
            if len(found) % 10 == 0:
                print(f"{frame.time:6.1f} s  {np.median(found[-10:]):.4f} m below the sensor")


main(*sys.argv[1:])
