"""Calibrations are saved, read and reused as `vantor calibrate` and `vantor record --calibration` do."""

import errno
import json
import os
import socket
import stat
import subprocess
from pathlib import Path
from typing import Any

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
    with pytest.raises(vantor.FileError) as failure:
        vantor.save_calibrations(file, [FIRST])
    assert isinstance(failure.value, OSError)
    assert (failure.value.errno, failure.value.filename) == (errno.ENOENT, str(file))
    assert str(failure.value) == f"Cannot write {file}: No such file or directory."


@pytest.mark.parametrize("name", ["", ".", "..", "/"])
def test_directories_are_not_replaced(name: str, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(tmp_path)
    with pytest.raises(vantor.FileError, match="Cannot write .*: it is a directory; use a file") as failure:
        vantor.save_calibrations(name, [FIRST])
    assert failure.value.errno == errno.EISDIR
    assert list(tmp_path.iterdir()) == []


def test_what_is_not_a_regular_file_is_not_replaced(tmp_path: Path) -> None:
    pipe, place = tmp_path / "pipe", tmp_path / "socket"
    os.mkfifo(pipe)
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(place))
        link = tmp_path / "link"
        link.symlink_to("/dev/full")
        for file in [pipe, place, link, Path("/dev/full")]:
            with pytest.raises(vantor.FileError, match=f"Cannot write {file}: it is not a regular file"):
                vantor.save_calibrations(file, [FIRST])
    assert pipe.is_fifo() and place.is_socket() and Path("/dev/full").is_char_device()
    assert len(list(tmp_path.iterdir())) == 3


def test_symbolic_links_stay(tmp_path: Path) -> None:
    target, link, loop = (tmp_path / name for name in ("target.json", "link.json", "loop.json"))
    link.symlink_to(target.name)
    for calibration in (FIRST, SECOND):
        vantor.save_calibrations(link, [calibration])
        assert link.is_symlink() and not target.is_symlink()
        assert vantor.load_calibrations(target) == (calibration,)
    loop.symlink_to(loop)
    with pytest.raises(vantor.FileError, match="levels of symbolic links"):
        vantor.save_calibrations(loop, [FIRST])


@pytest.mark.parametrize("mode", [0o600, 0o664, 0o444])
def test_an_existing_file_keeps_its_mode(mode: int, tmp_path: Path) -> None:
    file = tmp_path / "calibration.json"
    file.write_text("old", "utf-8")
    file.chmod(mode)
    vantor.save_calibrations(file, [FIRST])
    assert vantor.load_calibrations(file) == (FIRST,)
    assert stat.S_IMODE(file.stat().st_mode) == mode


@pytest.mark.skipif(os.getuid() != 0, reason="only the superuser can give files away")
def test_an_existing_file_keeps_its_owner(tmp_path: Path) -> None:
    file = tmp_path / "calibration.json"
    file.write_text("old", "utf-8")
    os.chown(file, 1234, 1235)
    vantor.save_calibrations(file, [FIRST])
    assert (file.stat().st_uid, file.stat().st_gid) == (1234, 1235)


def test_the_longest_name_can_be_used(tmp_path: Path) -> None:
    file = tmp_path / ("a" * 255)
    vantor.save_calibrations(file, [FIRST])
    assert vantor.load_calibrations(file) == (FIRST,)


@pytest.mark.parametrize("name", ["a" * 256, "a/" * 3000])
def test_longer_names_are_refused(name: str, tmp_path: Path) -> None:
    with pytest.raises(vantor.FileError, match="File name too long"):
        vantor.save_calibrations(tmp_path / name, [FIRST])


@pytest.mark.parametrize(
    ("calibrations", "found"),
    [([FIRST, 3], "list with int"), (FIRST, "Calibration"), ("file.json", "str with str"), (None, "NoneType")],
)
def test_other_types_are_refused(calibrations: Any, found: str, tmp_path: Path) -> None:
    with pytest.raises(TypeError, match=f"a list of vantor.Calibration, not {found}"):
        vantor.save_calibrations(tmp_path / "calibration.json", calibrations)
    assert list(tmp_path.iterdir()) == []


def test_names_that_no_file_can_have_are_refused() -> None:
    calibrations = [vantor.Calibration(1, 25, "00" * 240)]
    for name in ("a\0b", "a\ud800"):
        with pytest.raises(vantor.FileError, match="the name cannot be used"):
            vantor.save_calibrations(name, calibrations)
        with pytest.raises(vantor.ConfigurationError, match="Cannot read a"):
            vantor.load_calibrations(name)
