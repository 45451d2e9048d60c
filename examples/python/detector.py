"""Finds targets in a recording where the level exceeds that of the cells around them, and compares them with
the truth of the simulated sensor: detector.py RECORDING [FALSE_ALARM_RATE]

It writes detections.csv into the recording, for `vantor score`."""

import sys

import numpy as np
import vantor

GUARD, TRAINING = 6, 16  # cells on each side


def detect(power: np.ndarray, false_alarm_rate: float) -> np.ndarray:
    """The highest cells around that exceed the mean of the training cells by a factor (cell averaging)."""
    kernel = np.ones(2 * (GUARD + TRAINING) + 1)
    kernel[TRAINING:-TRAINING] = 0.0
    cells = np.convolve(np.ones(len(power)), kernel, "same")
    factor = cells * (false_alarm_rate ** (-1.0 / cells) - 1.0)
    above = power > factor * np.convolve(power, kernel, "same") / cells
    around = np.lib.stride_tricks.sliding_window_view(np.pad(power, GUARD), 2 * GUARD + 1)
    return np.flatnonzero(above & (power == around.max(axis=1)))


def count_matches(found_m: np.ndarray, targets_m: np.ndarray, gate_m: float) -> int:
    """The number of pairs of a detection and a target, the closest ones first."""
    differences = abs(found_m[:, None] - targets_m)
    matches = 0
    while differences.size and differences.min() <= gate_m:
        row, column = np.unravel_index(differences.argmin(), differences.shape)
        differences = np.delete(np.delete(differences, row, 0), column, 1)
        matches += 1
    return matches


def main(path: str, false_alarm_rate: str = "1e-4") -> None:
    """Detect in the first item, and print how many targets were found."""
    recording = vantor.open(path)
    if recording.scene is None:
        sys.exit("The recording has no truth: record it from simulated sensors.")
    gate_m = vantor.plan(recording.configuration)[0, 0].subsweeps[0].pulse_width_m
    due = matched = detections = 0
    with (recording.directory / "detections.csv").open("w") as table:
        table.write("frame,group,item,distance_m\n")
        for frame in recording:
            item = frame[0, 0]
            found_m = item.distances_m[detect((abs(item.iq) ** 2).mean(axis=0), float(false_alarm_rate))]
            table.writelines(f"{frame.number},1,1,{distance_m}\n" for distance_m in found_m)
            targets_m = np.array([each.distance_m for each in item.truth.targets if each.amplitude > 0.0])
            targets_m = targets_m[(targets_m >= item.distances_m[0]) & (targets_m <= item.distances_m[-1])]
            due, detections = due + len(targets_m), detections + len(found_m)
            matched += count_matches(found_m, targets_m, gate_m)
    print(f"found {matched} of {due} targets, {detections - matched} false alarms in {len(recording)} frames")


main(*sys.argv[1:])
