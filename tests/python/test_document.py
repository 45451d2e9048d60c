"""Every program in docs/python.md runs, and prints what the document says."""

import re
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest
from processes import RunningServer, check_types
from recordings import EXAMPLES, make_boards, make_recording

DOCUMENT = (EXAMPLES.parent / "docs" / "python.md").read_text(encoding="utf-8")

#: A program, and the text after it that it prints.
PROGRAMS = re.findall(r"```python\n(.*?)```\n(?:\n```text\n(.*?)```)?", DOCUMENT, re.DOTALL)


@pytest.fixture(scope="module")
def directory(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The directory in which the programs run, with the files that they use."""
    place = tmp_path_factory.mktemp("programs")
    (place / "two_sensors.json").symlink_to(EXAMPLES / "two_sensors.json")
    (place / "recordings").mkdir()
    make_recording(place / "recordings" / "two_sensors", EXAMPLES / "two_sensors.json", 100)
    make_boards(place / "recordings" / "room", 5)
    return place


@pytest.fixture(scope="module")
def port() -> Iterator[str]:
    """The port of a server."""
    with RunningServer("--tcp", "0") as server:
        yield server.address.rpartition(":")[2]


@pytest.mark.parametrize(("program", "expected"), PROGRAMS, ids=range(len(PROGRAMS)))
def test_program(program: str, expected: str, directory: Path, port: str) -> None:
    program = program.replace("tcp:localhost:6110", f"tcp:localhost:{port}")
    command = [sys.executable, "-W", "error", "-c", program]
    outcome = subprocess.run(command, cwd=directory, capture_output=True, text=True, check=False)
    assert outcome.returncode == 0, outcome.stderr
    if expected:
        assert outcome.stdout == expected


def test_mypy_accepts_the_programs_strictly(tmp_path: Path) -> None:
    files = [tmp_path / f"program_{number}.py" for number in range(len(PROGRAMS))]
    for file, (program, _) in zip(files, PROGRAMS, strict=True):
        file.write_text(program)
    check_types(tmp_path, *files)


def test_the_document_has_programs() -> None:
    assert len(PROGRAMS) >= 5
