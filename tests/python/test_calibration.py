"""Calibrations are saved, read and reused as `vantor calibrate` and `vantor record --calibration` do."""

import json
import os
import subprocess
from pathlib import Path

import pytest

import vantor

EXAMPLES = Path(os.environ["VANTOR_EXAMPLES"])
FIRST = vantor.Calibration(1, 24, "0a" * 240)
SECOND = vantor.Calibration(2, -3, "fF" * 240)


def test_files_of_the_host(tmp_path: Path) -> None:
    file, copy = tmp_path / "host.json", tmp_path / "copy.json"
    subprocess.run([os.environ["VANTOR"], "calibrate", "--output", file], check=True, capture_output=True)
    calibrations = vantor.load_calibrations(file)
    assert [entry.sensor_id for entry in calibrations] == [1, 2, 3, 4, 5]
    vantor.save_calibrations(copy, calibrations)
    assert copy.read_bytes() == file.read_bytes()


def test_an_existing_file_is_replaced(tmp_path: Path) -> None:
    file = tmp_path / "calibration.json"
    vantor.save_calibrations(file, [FIRST, SECOND])
    vantor.save_calibrations(file, [SECOND])
    assert vantor.load_calibrations(file) == (SECOND,)
    assert [path.name for path in tmp_path.iterdir()] == [file.name]


def test_only_those_that_are_needed_are_added() -> None:
    document = vantor.load_configuration(EXAMPLES / "single_sensor.json")
    added = vantor.add_calibrations(document, [FIRST, SECOND])
    assert "calibration_info" not in document
    assert added["calibration_info"] == [{"sensor_id": 1, "temperature": 24, "data": FIRST.data}]
    assert vantor.add_calibrations(added, [SECOND]) == added
    with pytest.raises(vantor.ConfigurationError, match="of sensor 2 only, none of which"):
        vantor.add_calibrations(document, [SECOND])


@pytest.mark.parametrize(
    ("document", "message"),
    [
        ({}, "is not a calibration file"),
        ({"calibration_info": [{"sensor_id": 1, "data": "0a"}]}, "is not a calibration file"),
        (
            {"calibration_info": [{"sensor_id": 1, "data": "0a" * 240}] * 2},
            "two calibrations of sensor 1; remove one of them",
        ),
    ],
)
def test_other_files_are_refused(document: object, message: str, tmp_path: Path) -> None:
    file = tmp_path / "other.json"
    file.write_text(json.dumps(document))
    with pytest.raises(vantor.ConfigurationError, match=message):
        vantor.load_calibrations(file)


def test_a_pipe_is_refused(tmp_path: Path) -> None:
    file = tmp_path / "pipe"
    os.mkfifo(file)
    with pytest.raises(vantor.ConfigurationError, match="not a regular file"):
        vantor.load_calibrations(file)


@pytest.mark.parametrize(
    ("calibrations", "message"),
    [
        ([], "There are no calibrations to write to .*/calibration.json"),
        (
            [FIRST, vantor.Calibration(2, 0, "0g" * 240)],
            "calibrations for .*/calibration.json are not valid:\n/calibration_info/1/data: got .*; allowed:",
        ),
        ([FIRST, FIRST], "calibrations for .*/calibration.json contains two calibrations of sensor 1; remove"),
    ],
)
def test_impossible_calibrations_are_not_saved(
    calibrations: list[vantor.Calibration], message: str, tmp_path: Path
) -> None:
    with pytest.raises(vantor.ConfigurationError, match=message):
        vantor.save_calibrations(tmp_path / "calibration.json", calibrations)
    assert list(tmp_path.iterdir()) == []


def test_errors_name_the_file_of_the_user(tmp_path: Path) -> None:
    file = tmp_path / "none" / "calibration.json"
    with pytest.raises(FileNotFoundError) as failure:
        vantor.save_calibrations(file, [FIRST])
    assert failure.value.filename == str(file)
    with pytest.raises(IsADirectoryError) as other:
        vantor.save_calibrations(tmp_path, [FIRST])
    assert (other.value.filename, other.value.filename2) == (str(tmp_path), None)
    assert list(tmp_path.parent.glob("*.new")) == []


def test_names_that_no_file_can_have_are_refused() -> None:
    calibrations = [vantor.Calibration(1, 25, "00" * 240)]
    with pytest.raises(OSError, match="The name cannot be used"):
        vantor.save_calibrations("a\0b", calibrations)
    with pytest.raises(vantor.ConfigurationError, match="Cannot read a"):
        vantor.load_calibrations("a\0b")
