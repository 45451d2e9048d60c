"""Creates folders of boards outside of the tree, and builds their firmware."""

import os
import pathlib
import re
import subprocess

from guide_steps import FOLDER, build_commands

ROOT = pathlib.Path(os.environ["VANTOR_ROOT"])
TEMPLATE = ROOT / "boards/template"
EMULATED = ROOT / "boards/netduinoplus2"

# Some functions are not written yet, so that some shared parts are unused.
UNUSED_PARTS = '#pragma GCC diagnostic ignored "-Wunused-function"\n'

END_OF_PARTS = "} // namespace\n"

COPY, CONFIGURE, BUILD = build_commands()

DEFINITION = re.compile(r"^(?://[^\n]*\n)*(?:\w+ )+\*?(board_\w+)[\[(].*?^\};?\n", re.MULTILINE | re.DOTALL)


def edited(text, **replacements):
    """Replaces words of a text (`old=new`). The text must contain each of them."""
    for old, new in replacements.items():
        text, count = re.subn(rf"\b{old} = [^,;]+", f"{old} = {new}", text)
        assert count == 1, old
    return text


def replaced(text, old, new):
    """Replaces a part of a text. The text must contain it exactly once."""
    assert text.count(old) == 1, old
    return text.replace(old, new)


def definitions(source):
    """Returns the definitions in a board's source that the firmware uses, by name."""
    behind_parts = source[source.index(END_OF_PARTS):]
    return {found[1]: found[0] for found in DEFINITION.finditer(behind_parts)}


def filled_in(command, parts):
    """Replaces paths in a command of the guide. Each must be in one of its words."""
    for old, new in parts.items():
        assert sum(old in word for word in command) == 1, (command, old)
        command = [word.replace(old, str(new)) for word in command]
    return command


class BoardFolder:
    """The folder of a board, copied from another one."""

    def __init__(self, parent, name, original=EMULATED):
        self.path = pathlib.Path(parent) / name
        self.name = name
        self.path.parent.mkdir(exist_ok=True)
        must_succeed(run(*filled_in(COPY, {"boards/template": original, FOLDER: self.path})))

    def edit(self, name, change, *arguments, **named):
        """Changes the text of a file."""
        file = self.path / name
        file.write_text(change(file.read_text(encoding="utf-8"), *arguments, **named), encoding="utf-8")

    def set_numbers(self, **numbers):
        """Sets numbers of the board."""
        self.edit("board_numbers.h", edited, **{f"BOARD_{name}": value for name, value in numbers.items()})

    def set_memory(self, memory, heap="RAM", **sizes):
        """Sets memory banks and sizes."""
        banks = "\n".join(f"  {bank} : {place}" for bank, place in memory.items())
        given = "".join(f"{name} = {size};\n" for name, size in sizes.items())
        (self.path / "memory.ld").write_text(
            f'MEMORY\n{{\n{banks}\n}}\nREGION_ALIAS("HEAP", {heap})\n{given}INCLUDE sections.ld\n', encoding="utf-8")

    def remove(self, *names):
        """Removes functions."""
        def without(source):
            for name in names:
                source = replaced(source, definitions(source)[name], "")
            return UNUSED_PARTS + source
        self.edit("board.cpp", without)

    def add(self, code):
        """Adds code at the end."""
        self.edit("board.cpp", lambda source: source + code)

    def take_over(self, names, other=EMULATED):
        """Replaces functions with those of another board and their shared parts. Removes functions that it lacks."""
        self.remove(*names)
        source = (other / "board.cpp").read_text(encoding="utf-8")
        theirs = definitions(source)
        shared = source[:source.index(END_OF_PARTS) + len(END_OF_PARTS)]
        taken = "".join(theirs[name] for name in names if name in theirs)
        (self.path / "written.cpp").write_text(UNUSED_PARTS + shared + taken, encoding="utf-8")


def run(*arguments):
    """Runs a program to its end."""
    return subprocess.run([str(argument) for argument in arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False)


def configure(build, boards, *options):
    """Configures the firmware of boards, which are folders or names."""
    paths = ";".join(os.path.relpath(board.path, ROOT) if isinstance(board, BoardFolder) else str(board)
                     for board in boards)
    return run(*filled_in(CONFIGURE, {FOLDER: paths}), "-S", ROOT, "-B", build, *options)


def build_targets(build, *targets):
    """Builds targets. Continues with the others if one fails."""
    assert BUILD[-2:] == CONFIGURE[1:3], "the preset of the build"
    return run(*BUILD[:-2], build, "--target", *targets, "--", "-k", "0")


def must_succeed(process):
    """Returns the output of a program, which must have succeeded."""
    if process.returncode != 0:
        raise AssertionError(f"{process.args}: {process.stdout}")
    return process.stdout
