"""The steps of docs/porting.md."""

import os
import pathlib
import re

ROOT = pathlib.Path(os.environ["VANTOR_ROOT"])
GUIDE = (ROOT / "docs/porting.md").read_text(encoding="utf-8")


def section(title):
    """The text of a section."""
    return re.search(rf"^## {title}\n(.*?)(?=^## |\Z)", GUIDE, re.MULTILINE | re.DOTALL)[1]


def steps():
    """The steps that bring a board up: their texts by their names."""
    found = re.findall(r"^\d+\. \*\*(\w+)\.\*\* (.*?)(?=^\d+\. |\Z)", section("Bring it up"), re.MULTILINE | re.DOTALL)
    return {name: " ".join(text.split()) for name, text in found}


def functions_of_step(name):
    """What a step says to write or to remove."""
    return [function for sentence in re.findall(r"Write [^.]*\.", steps()[name])
            for function in re.findall(r"`(board_\w+)`", sentence)]
