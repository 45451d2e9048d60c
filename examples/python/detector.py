"""Finds targets in a recording where the power exceeds that of the cells around them, and compares them with the
truth of the simulated sensor like `vantor score`: detector.py RECORDING [FALSE_ALARM_RATE]

It writes detections.csv into the recording, for `vantor score`."""

import sys

import numpy as np
import numpy.typing as npt
import vantor

TRAINING = 16  # cells on each side


def detect(power: npt.NDArray[np.float32], guard: int, false_alarm_rate: float) -> npt.NDArray[np.intp]:
    """The highest cells around that exceed the mean of the training cells by a factor (cell averaging)."""
    kernel = np.pad(np.zeros(2 * guard + 1), TRAINING, constant_values=1.0)
    cells, total = (np.convolve(each, kernel)[guard + TRAINING :][: len(power)] for each in (power**0.0, power))
    factor = np.where(cells > 0.0, false_alarm_rate ** (-1.0 / np.maximum(cells, 1.0)) - 1.0, np.inf)
    around = np.lib.stride_tricks.sliding_window_view(np.pad(power, guard), 2 * guard + 1)
    return np.flatnonzero((power > factor * total) & (power == around.max(axis=1)))


def compare(found_m: list[float], truth: vantor.ItemTruth, part: vantor.SubsweepPlan) -> tuple[int, int, int]:
    """The numbers of things that are due, of those that were found, and of false alarms."""
    due, pairs = set(), []
    for target in truth.targets:
        thing = (target.body, 0 if target.body else target.target)  # the targets of a body are one thing
        if target.amplitude > 0.0 and part.first_m <= target.distance_m <= part.last_m:
            due.add(thing)
        pairs += [(abs(each_m - target.distance_m), each, thing) for each, each_m in enumerate(found_m)]
    pairs = sorted(pair for pair in pairs if pair[0] <= part.pulse_width_m)
    left, missed = set(range(len(found_m))), set(due)
    for _, each, thing in pairs:
        if each in left and thing in missed:
            left.remove(each)
            missed.remove(thing)
    # Neither found nor false: further echoes of a body, and echoes of what is not due.
    left -= {each for _, each, thing in pairs if thing[0] or thing not in due}
    return len(due), len(due) - len(missed), len(left)


def main(path: str, false_alarm_rate: str = "1e-4") -> None:
    """Detect in the first item, and print how many things were found."""
    recording = vantor.open(path)
    part, *others = vantor.plan(recording.configuration)[0, 0].subsweeps
    if recording.scene is None or others:
        sys.exit("Record simulated sensors, which have a truth, with a first item that has no sub-sweeps.")
    counts = []
    with (recording.directory / "detections.csv").open("w") as table:
        table.write("frame,group,item,distance_m\n")
        for number, item in enumerate(recording[0, 0]):
            if item.truth is not None and item.flags.usable:
                power = np.mean(abs(item.iq) ** 2, axis=0)
                found = detect(power, round(part.points_per_pulse), float(false_alarm_rate))
                table.writelines(f"{number},1,1,{distance_m}\n" for distance_m in item.distances_m[found])
                counts.append(compare(item.distances_m[found].tolist(), item.truth, part))
    due, detected, false_alarms = map(sum, zip(*counts)) if counts else (0, 0, 0)
    print(f"found {detected} of {due} targets and bodies that were due, {false_alarms} false alarms, in "
          f"{len(counts)} usable frames of {len(recording)}")


main(*sys.argv[1:])
