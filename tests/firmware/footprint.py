"""docs/footprint.md: what each emulated board takes."""

import re

from emulated_board import BOARD_NAME


def shows(document_path, tables):
    """Whether the section of the board shows the tables."""
    with open(document_path, encoding="utf-8") as file:
        section = re.search(rf"^## {BOARD_NAME}\n(.*?)(?=^## |\Z)", file.read(), re.MULTILINE | re.DOTALL)
    return section is not None and tables in section[1]
