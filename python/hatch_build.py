"""Adds the files of the source tree that the package shares with the C++ programs."""

import re
from pathlib import Path
from typing import Any

from hatchling.builders.hooks.plugin.interface import BuildHookInterface

_HERE = Path(__file__).resolve().parent
_VERSION_FILE = "CMakeLists.txt"
_DOCUMENTS = ("docs/configuration.schema.json", "docs/k330.json")


class SharedFiles(BuildHookInterface):
    """Puts the documents into the package, and all shared files into a source distribution."""

    def initialize(self, version: str, build_data: dict[str, Any]) -> None:
        """Called by hatchling before it builds."""
        files = build_data["force_include"]
        if self.target_name == "sdist":
            files.update({str(_shared_file(name)): name for name in (_VERSION_FILE, *_DOCUMENTS)})
        else:
            files.update({str(_shared_file(name)): f"vantor/data/{Path(name).name}" for name in _DOCUMENTS})


def version() -> str:
    """The version of the project."""
    found = re.search(r"project\(vantor VERSION ([0-9.]+)", _shared_file(_VERSION_FILE).read_text("utf-8"))
    if found is None:
        raise _not_found(_VERSION_FILE)
    return found[1]


def _shared_file(name: str) -> Path:
    """A file of the source tree, or its copy in a source distribution."""
    for place in (_HERE, _HERE.parent):
        if (place / name).is_file():
            return place / name
    raise _not_found(name)


def _not_found(name: str) -> FileNotFoundError:
    return FileNotFoundError(
        f"The file {name} of Vantor is neither in {_HERE} nor in the folder above: the package cannot be built in "
        'a copy of the folder "python" only. Run "pip install ./python" in the source tree.'
    )
