"""The package can be built from the source tree, and from a source distribution."""

import os
import shutil
import subprocess
import sys
import zipfile
from pathlib import Path

from processes import TIME_OUT

SOURCES = Path(os.environ["VANTOR_EXAMPLES"]).parent
DOCUMENTS = ("configuration.schema.json", "k330.json")


def build(place: Path, target: str, output: Path) -> subprocess.CompletedProcess[str]:
    """Build in a folder, without network."""
    hook = f"import hatchling.build; hatchling.build.build_{target}({str(output)!r})"
    command = [sys.executable, "-B", "-c", hook]
    return subprocess.run(command, cwd=place, capture_output=True, text=True, timeout=TIME_OUT, check=False)


def built_names(wheel: Path) -> list[str]:
    """The names of the files in a wheel."""
    with zipfile.ZipFile(wheel) as archive:
        for name in DOCUMENTS:
            assert archive.read(f"vantor/data/{name}") == (SOURCES / "docs" / name).read_bytes()
        return sorted(archive.namelist())


def test_a_source_distribution_gives_the_same_package(tmp_path: Path) -> None:
    """Also if the package is not in its source tree."""
    assert build(SOURCES / "python", "sdist", tmp_path).returncode == 0
    [archive] = tmp_path.glob("vantor-*.tar.gz")
    shutil.unpack_archive(archive, tmp_path / "unpacked")
    [folder] = (tmp_path / "unpacked").iterdir()
    for place, output in ((SOURCES / "python", "direct"), (folder, "indirect")):
        outcome = build(place, "wheel", tmp_path / output)
        assert outcome.returncode == 0, outcome.stderr
    [direct], [indirect] = (tmp_path / "direct").iterdir(), (tmp_path / "indirect").iterdir()
    assert direct.name == indirect.name == f"{folder.name}-py3-none-any.whl"
    assert built_names(direct) == built_names(indirect)


def test_a_copy_without_the_source_tree_says_what_to_do(tmp_path: Path) -> None:
    shutil.copytree(SOURCES / "python", tmp_path / "copy")
    outcome = build(tmp_path / "copy", "wheel", tmp_path)
    assert outcome.returncode != 0
    assert 'Run "pip install ./python" in the source tree.' in outcome.stderr
