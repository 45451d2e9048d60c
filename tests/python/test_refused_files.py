"""Files that cannot be read and servers that cannot be reached raise errors of the package, with the system's reason."""

import os
import shutil
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest
from processes import few_descriptors, ordinary_user
from recordings import EXAMPLES, make_recording

import vantor

READERS = {
    "open": vantor.open,
    "load_configuration": vantor.load_configuration,
    "load_calibrations": vantor.load_calibrations,
    "validate": vantor.validate,
    "plan": vantor.plan,
    "save_calibrations": lambda file: vantor.save_calibrations(file, [vantor.Calibration(1, 20, "00" * 240)]),
}


@pytest.fixture(scope="module")
def recording(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A recording with truth."""
    return make_recording(tmp_path_factory.mktemp("made") / "made", EXAMPLES / "single_sensor.json", 5)


@pytest.fixture
def copy(recording: Path, tmp_path: Path) -> Path:
    """A copy of it, to change."""
    return shutil.copytree(recording, tmp_path / "copy")


@pytest.fixture
def server() -> Iterator[vantor.Server]:
    """A simulated server."""
    with vantor.connect("sim:") as server:
        yield server


@pytest.mark.parametrize("read", READERS.values(), ids=READERS)
def test_a_directory_without_permission(read: Callable[[Path], object]) -> None:
    with ordinary_user() as (place, become_ordinary):
        (place / "closed").mkdir(mode=0)
        become_ordinary()
        with pytest.raises(vantor.Error, match="Cannot (read|write) .*: Permission denied"):
            read(place / "closed" / "name")


def test_a_session_with_files_in_a_directory_without_permission(server: vantor.Server) -> None:
    with ordinary_user() as (place, become_ordinary):
        (place / "closed").mkdir(mode=0)
        become_ordinary()
        for arguments in [(place / "closed" / "a",), ({"groups": []}, place / "closed" / "b")]:
            with pytest.raises(vantor.ConfigurationError, match="Permission denied"):
                server.session(*arguments)


@pytest.mark.parametrize("read", READERS.values(), ids=READERS)
@pytest.mark.parametrize("name", ["a" * 300, "a/" * 3000], ids=["name", "path"])
def test_names_that_are_too_long(read: Callable[[str], object], name: str) -> None:
    with pytest.raises(vantor.Error, match="Cannot (read|write) .*: File name too long"):
        read(name)


@pytest.mark.parametrize("free", range(4))
@pytest.mark.parametrize("address", ["tcp:127.0.0.1:1", "unix:/none", "sim:"])
def test_connecting_with_few_descriptors(address: str, free: int) -> None:
    # What the package loads once is there.
    with vantor.connect("sim:"):
        pass
    with few_descriptors(free), pytest.raises(vantor.ConnectError) as failure:
        vantor.connect(address)
    if free == 0 or address == "sim:":
        assert "Too many open files" in str(failure.value)
    with vantor.connect("sim:") as server:
        server.ping()


def test_reading_with_few_descriptors(recording: Path) -> None:
    configuration = recording.parent / "configuration.json"
    configuration.write_text("{}", "utf-8")
    for read in READERS.values():
        file = recording if read is vantor.open else configuration
        with few_descriptors(0), pytest.raises(vantor.Error, match=r"Cannot (read|write) .*: Too many open files\."):
            read(file)


def test_opening_a_recording_with_few_descriptors(recording: Path) -> None:
    """Each file is opened at some number; all are needed, or a warning says what is missing."""
    opened = vantor.open(recording)
    outcomes = set()
    for free in range(10):
        with few_descriptors(free):
            try:
                samples = vantor.open(recording)[0, 0].samples
                outcomes.add(samples.tobytes() == opened[0, 0].samples.tobytes())
            except vantor.RecordingError as failure:
                outcomes.add("Too many open files" in str(failure))
    assert outcomes == {True}


@pytest.mark.parametrize("file", ["session.sigmf-collection", "group-1-item-1.sigmf-meta"])
def test_documents_that_the_system_cannot_read(copy: Path, file: str) -> None:
    (copy / file).unlink()
    # It is a regular file, but its first byte cannot be read.
    (copy / file).symlink_to("/proc/self/mem")
    with pytest.warns(vantor.RecordingWarning, match=f"Cannot read .*/{file}: Input/output error"):
        assert len(vantor.open(copy)) == 5


def test_a_table_that_the_system_cannot_read(copy: Path) -> None:
    table = copy / "group-1-item-1.frames.csv"
    table.unlink()
    table.symlink_to("/proc/self/mem")
    with pytest.warns(vantor.RecordingWarning):
        with pytest.raises(vantor.RecordingError, match=f"Cannot read {table}: Input/output error"):
            vantor.open(copy)
    with pytest.raises(vantor.ConfigurationError, match=f"Cannot read {table}: Input/output error"):
        vantor.load_configuration(table)


def test_a_truth_that_has_no_size(copy: Path) -> None:
    file = copy / "truth.jsonl"
    file.unlink()
    file.symlink_to("/proc/self/status")
    with pytest.warns(vantor.RecordingWarning, match="has no first line"):
        assert set(vantor.open(copy).truth(0, 0)) == {None}


def test_files_that_vanish_while_they_are_compared(copy: Path) -> None:
    opened = vantor.open(copy)
    table = copy / "group-1-item-1.frames.csv"
    table.unlink()
    os.mkfifo(table)
    assert opened.damage() == (f"Cannot read {table}: it is not a regular file.",)


def test_halves_of_surrogate_pairs_are_refused_by_the_server(server: vantor.Server) -> None:
    with pytest.raises(vantor.ServerError, match="bad_json"):
        server.log("\ud800")
    server.ping()


def test_times_that_no_float_has_are_no_limit(server: vantor.Server, recording: Path) -> None:
    with server.session(EXAMPLES / "single_sensor.json") as session:
        assert len(list(session.frames(count=2, seconds=10**400))) == 2
    assert len(list(vantor.open(recording).frames(seconds=10**400))) == 5
