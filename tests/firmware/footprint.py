"""docs/footprint.md: the memory used on each emulated board."""

import re

from emulated_board import BOARD_NAME


def contains(document_path, tables):
    """Whether the section of the board contains the tables."""
    with open(document_path, encoding="utf-8") as file:
        section = re.search(rf"^## {BOARD_NAME}\n(.*?)(?=^## |\Z)", file.read(), re.MULTILINE | re.DOTALL)
    return section is not None and tables in section[1]
