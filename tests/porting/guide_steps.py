"""The steps of docs/porting.md."""

import os
import pathlib
import re
import shlex

ROOT = pathlib.Path(os.environ["VANTOR_ROOT"])
GUIDE = (ROOT / "docs/porting.md").read_text(encoding="utf-8")

# Names in the commands of the guide.
ADDRESS = "serial:/dev/ttyACM0@115200"
FOLDER = "../my_board"


def section(title):
    """Returns the text of a section."""
    return re.search(rf"^## {title}\n(.*?)(?=^## |\Z)", GUIDE, re.MULTILINE | re.DOTALL)[1]


def steps():
    """Returns the texts of the bring-up steps, by name."""
    found = re.findall(r"^\d+\. \*\*(\w+)\.\*\* (.*?)(?=^\d+\. |\Z)", section("Bring it up"), re.MULTILINE | re.DOTALL)
    return {name: " ".join(text.split()) for name, text in found}


def functions_of_step(name):
    """Returns the functions that a step writes or removes."""
    return [function for sentence in re.findall(r"Write [^.]*\.", steps()[name])
            for function in re.findall(r"`(board_\w+)`", sentence)]


def commands_of_step(name):
    """Returns the host commands that a step runs, as lists of words."""
    return [shlex.split(command) for command in re.findall(r"`(vantor [^`]*)`", steps()[name])]


def build_commands():
    """Returns the commands that copy a folder, configure and build, as lists of words."""
    block = re.search(r"^(?:    [^\n]*\n)+", section("Build a board"), re.MULTILINE)[0]
    return [shlex.split(line, comments=True) for line in block.splitlines()]


def image_path():
    """Returns the path of the image in the guide."""
    return re.search(r"# (build/firmware/\S*my_board\S*)", section("Build a board"))[1]


def ram_table():
    """Returns the table of the RAM that small boards need: rows in bytes by name of the part, and sizes in KiB."""
    rows = re.findall(r"^\| ([^|]+) \| ([\d,]+) \| ([\d,]+) \|$", section("Memory"), re.MULTILINE)
    sizes = re.search(r"^\| RAM \| (\d+) KiB \| (\d+) KiB \|$", section("Memory"), re.MULTILINE)
    return ({name.partition(", at most")[0]: [int(size.replace(",", "")) for size in row] for name, *row in rows},
            [int(size) for size in sizes.groups()])


def most_stack():
    """Returns the largest use of the program's stack, in bytes, according to the same table."""
    row = re.search(r"^\| program's stack, at most ([\d.]+) kB used \|", section("Memory"), re.MULTILINE)
    return 1000 * float(row[1])
