"""The example programs give the right results."""

import json
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest
from recordings import EXAMPLES, host, make_recording


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


def test_detector(tmp_path: Path) -> None:
    """What the program counts is what `vantor score` counts."""
    configuration, scene = tmp_path / "configuration.json", tmp_path / "scene.json"
    config = {"start_point": 160, "num_points": 300, "step_length": 8, "hwaas": 16}
    document = {"update_rate": 20, "groups": [[{"sensor_id": 1, "config": config}]]}
    configuration.write_text(json.dumps(document))
    target = {"strength_m2": 0.02, "fluctuation": "swerling_1"}
    targets = [{"distance_m": distance_m, **target} for distance_m in (1.5, 3.0, 4.5)]
    scene.write_text(json.dumps({"targets": targets, "hardware": "ideal"}))
    recording = make_recording(tmp_path / "recording", configuration, 200, f"--scene {scene}")
    found, due, alarms, frames = map(int, re.findall(r"\d+", run_example("detector.py", recording, "1e-3")))
    score = json.loads(host("score", recording, recording / "detections.csv", "--json").stdout)["items"][0]
    assert (found, due, alarms) == (score["detected"], score["due"], score["false_alarms"])
    assert (due, frames) == (600, 200)
    assert 300 < found < 600
    assert 0 < alarms < 200
