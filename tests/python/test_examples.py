"""The example programs give the right results."""

import json
import math
import os
import re
import subprocess
import sys
import time
from pathlib import Path
from typing import Any

import numpy as np
import numpy.typing as npt
import pytest
from processes import check_types
from recordings import EXAMPLES, SCENE, describe_boards, host, make_recording, set_utc

import vantor


#: Of the profile that is used by default, docs/configuration.md.
PULSE_WIDTH_M = 0.198


def run_example(name: str, *arguments: object) -> str:
    """Run an example program; return what it prints."""
    command = [sys.executable, EXAMPLES / "python" / name, *map(str, arguments)]
    environment = {**os.environ, "MPLBACKEND": "Agg", "PYTHONWARNINGS": "error"}
    return subprocess.run(command, capture_output=True, text=True, check=True, env=environment).stdout


def test_live_level() -> None:
    pytest.importorskip("matplotlib")
    shown = run_example("live_level.py", "sim:--clock virtual --scene still_target", 5)
    assert re.fullmatch(r"0\.2 s, strongest echo at 0\.50 m, 0 missing\n", shown)


@pytest.mark.parametrize("seed", [1, 2])
def test_breathing_rate(seed: int) -> None:
    scene = json.loads((EXAMPLES / "scenes" / "breathing_person.json").read_text())
    [body] = scene["bodies"]
    shown = run_example("breathing_rate.py", f"sim:--clock virtual --scene breathing_person --seed {seed}")
    distance, motion, breathing, heart = map(float, re.findall(r"[0-9.]+", shown))
    assert distance == pytest.approx(body["distance_m"], abs=0.02)
    assert motion == pytest.approx(8.0 + 0.5, rel=0.05)
    assert breathing == pytest.approx(body["rate_per_min"], rel=0.01)
    assert heart == pytest.approx(body["heart_rate_per_min"], rel=0.01)


def test_tank_level() -> None:
    [level, _edge] = json.loads((EXAMPLES / "scenes" / "tank_level.json").read_text())["targets"]
    shown = run_example("tank_level.py", "sim:--clock virtual --scene tank_level", 120)
    lines = [tuple(map(float, re.findall(r"[0-9.]+", line))) for line in shown.splitlines()]
    assert len(lines) == 120
    for time_s, found_m in lines:
        # The line shows the median of the last second.
        expected_m = level["distance_m"] + level["velocity_m_s"] * (time_s - 0.5)
        assert found_m == pytest.approx(expected_m, abs=0.01), time_s


def compare_with_score(recording: Path, *arguments: object) -> dict[str, Any]:
    """Run the detector; check that it counts what `vantor score` counts, and return the score."""
    shown = run_example("detector.py", recording, *arguments)
    score: dict[str, Any] = json.loads(host("score", recording, recording / "detections.csv", "--json").stdout)
    item = score["items"][0]
    numbers = (item[name] for name in ("detected", "due", "false_alarms", "frames"))
    expected = "found {} of {} targets and bodies that were due, {} false alarms, in {} usable frames of {}\n"
    assert shown == expected.format(*numbers, item["frames"] + item["frames_left_out"])
    return dict(item)


def test_detector_of_fluctuating_targets(tmp_path: Path) -> None:
    configuration, scene = tmp_path / "configuration.json", tmp_path / "scene.json"
    config = {"start_point": 160, "num_points": 300, "step_length": 8, "hwaas": 16}
    document = {"update_rate": 20, "groups": [[{"sensor_id": 1, "config": config}]]}
    configuration.write_text(json.dumps(document))
    target = {"strength_m2": 0.02, "fluctuation": "swerling_1"}
    targets = [{"distance_m": distance_m, **target} for distance_m in (1.5, 3.0, 4.5)]
    scene.write_text(json.dumps({"targets": targets, "hardware": "ideal"}))
    recording = make_recording(tmp_path / "recording", configuration, 200, f"--scene {scene}")
    score = compare_with_score(recording, "1e-3")
    assert (score["due"], score["frames"]) == (600, 200)
    assert 300 < score["detected"] < 600
    assert 0 < score["false_alarms"] < 200


@pytest.mark.parametrize(
    ("options", "due", "weak"),
    [
        ("", 200, 0),
        ("--scene still_target", 100, 0),
        ("--scene interferer", 100, 0),
        ("--scene tank_level", 160, 0),
        ("--scene walking_person", 34, 0),
        # The targets of a body are one thing.
        ("--scene crossing_persons", 51, 0),
        # Its threshold is too high for a stirrer or other things near a stronger echo.
        ("--scene stirred_tank", 200, 100),
        ("--scene room_with_fan", 300, 200),
    ],
)
def test_detector_finds_what_single_sensor_measures(
    options: str, due: int, weak: int, tmp_path: Path
) -> None:
    recording = make_recording(tmp_path / "recording", EXAMPLES / "single_sensor.json", 100, options)
    score = compare_with_score(recording)
    assert score["due"] == due
    assert 0.95 * (due - weak) < score["detected"] <= due
    # The direct leakage, at the first point.
    assert score["false_alarms"] in (0, 100)


def test_detector_leaves_out_frames_that_are_not_usable(tmp_path: Path) -> None:
    scene, configuration = tmp_path / "scene.json", tmp_path / "configuration.json"
    scene.write_text(json.dumps(SCENE))
    config = {"num_points": 160, "step_length": 4}
    item = {"sensor_id": 1, "cca_enable": True, "config": config}
    configuration.write_text(json.dumps({"update_rate": 50, "groups": [[item]]}))
    recording = make_recording(tmp_path / "recording", configuration, 40, f"--scene {scene}")
    score = compare_with_score(recording)
    assert score["frames_left_out"] > 5
    assert score["frames"] > 5


def strongest_distances(truth: Path) -> dict[float, float]:
    """The distance of the strongest point of the person at each time of the scene."""
    found = {}
    for line in truth.read_text().splitlines():
        frame = json.loads(line)
        person = [target for target in frame.get("targets", []) if target.get("body")]
        if person:
            found[frame["time_s"]] = max(person, key=lambda target: target["amplitude"])["distance_m"]
    return found


def two_boards() -> tuple[int, list[str]]:
    """When the scene starts, and the addresses of two boards that see it from then on."""
    start = int(time.time())
    scene = EXAMPLES / "scenes" / "two_boards.json"
    return start, [f"sim:--scene {scene} --scene-start {start} --board {number}" for number in (1, 2)]


def check_path(shown: str, start: int, truths: list[Path]) -> None:
    """Compare the path of a person with the scene.

    The error of a distance is at most half a pulse width, and the way from the person's middle to the strongest
    point. The path is exact to that, divided by the sine of half of the angle at which the person sees the boards:
    then the circles meet at a smaller angle.
    """
    scene = json.loads((EXAMPLES / "scenes" / "two_boards.json").read_text())
    boards = [np.array([sensor["x_m"], 0.0]) for sensor in scene["sensors"]]
    [body] = scene["bodies"]
    begin, end = np.array([[body["x_m"], body["y_m"]], [body["to_x_m"], body["to_y_m"]]])
    way = (end - begin) * body["speed_m_s"] / math.dist(begin, end)

    def person(time_s: float) -> npt.NDArray[np.float64]:
        return np.asarray(begin + (time_s - body["enter_s"]) * way)

    away = max(
        abs(math.dist(person(time_s), board) - distance_m)
        for board, truth in zip(boards, truths, strict=True)
        for time_s, distance_m in strongest_distances(truth).items()
    )
    assert away < 0.05
    places = np.array([re.findall(r"-?[0-9.]+", line) for line in shown.splitlines()], float)
    times = places[:, 0] - start
    # Half of a second is needed for the median; at the beginning, the person is far away.
    assert len(times) > 50 and np.ptp(times) > 2.0
    for time_s, place in zip(times, places[:, 1:], strict=True):
        left, right = (math.atan2(*(person(time_s) - board)) for board in boards)
        tolerance = (PULSE_WIDTH_M / 2.0 + away) / math.sin(abs(right - left) / 2.0)
        assert math.dist(person(time_s), place) < tolerance < 0.45, time_s


def refusal_of_walker(*arguments: object) -> str:
    """What the example prints if it refuses its arguments: one line."""
    with pytest.raises(subprocess.CalledProcessError) as failure:
        run_example("walker.py", *arguments)
    assert (failure.value.returncode, failure.value.stdout) == (1, "")
    [line] = failure.value.stderr.splitlines()
    return str(line)


def test_walker(tmp_path: Path) -> None:
    start, addresses = two_boards()
    room = tmp_path / "room"
    connections = [argument for address in addresses for argument in ("--connect", address)]
    host("record", EXAMPLES / "two_boards.json", "--seconds", 9, *connections, "--output", room)
    truths = [room / name / "truth.jsonl" for name in vantor.open(room).boards]
    assert len(truths) == 2
    check_path(run_example("walker.py", room), start, truths)
    _left, right = vantor.open(room).boards
    # A hundred seconds later.
    times = vantor.open(room / right)[0, 0].utc_s + 100.0
    cells = ["," if math.isnan(utc_s) else f"{utc_s:.6f},0.001000" for utc_s in times]
    set_utc(room / right / "group-1-item-1.frames.csv", cells)
    assert refusal_of_walker(room) == "The boards have not seen the person at the same time."


@pytest.fixture(scope="module")
def room_without_persons(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Two boards that have seen nothing."""
    room = tmp_path_factory.mktemp("room")
    (room / "scene.json").write_text("{}")
    document = {"update_rate": 50, "groups": [[{"sensor_id": 1, "config": {"num_points": 180}}]]}
    (room / "configuration.json").write_text(json.dumps(document))
    names = ("left", "right")
    for number, name in enumerate(names):
        make_recording(room / name, room / "configuration.json", 50, f"--scene {room / 'scene.json'}")
        times = [f"{1.8e9 + number + 0.02 * frame:.6f},0.001000" for frame in range(50)]
        set_utc(room / name / "group-1-item-1.frames.csv", times)
    return describe_boards(room, [{"directory": name} for name in names])


def test_walker_says_why_there_is_no_path(room_without_persons: Path) -> None:
    room = room_without_persons
    nobody = "A board does not see anybody who moves for half a second, or its times are not known."
    assert refusal_of_walker(room) == nobody
    assert refusal_of_walker(room / "left") == f"{room / 'left'} has the recording of 1 board(s); two are needed."
    (room / "boards.sigmf-collection").unlink()
    assert refusal_of_walker(room).startswith(f"{room}/boards.sigmf-collection is missing")


def test_mypy_accepts_the_examples_strictly(tmp_path: Path) -> None:
    """Matplotlib has no types."""
    check_types(tmp_path, "--ignore-missing-imports", *(EXAMPLES / "python").glob("*.py"))
