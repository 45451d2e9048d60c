"""The skeleton port, linked for a board: what is missing is what a port and the sensor library bring."""

import os
import pathlib
import subprocess
import unittest

from guide_test import ROOT, functions_of

NM = os.environ["NM"]
BUILD = pathlib.Path(os.environ["FIRMWARE_BUILD"])


def undefined_symbols(path):
    """Names that a program, or the objects of a library, ask for."""
    listed = subprocess.run([NM, "--undefined-only", "--just-symbols", path], check=True, capture_output=True, text=True)
    return {line for line in listed.stdout.splitlines() if line and not line.endswith(":")}


class SkeletonLink(unittest.TestCase):
    """The linked skeleton."""

    def test_lacks_the_functions_of_the_board_and_those_of_the_sensor_library_alone(self):
        board = set(functions_of(ROOT / "ports/skeleton/board.h"))
        sensor_library = {name for header in (ROOT / "nox").rglob("*.h") for name in functions_of(header)}
        libraries = (BUILD / "application").rglob("libzet_*.a")
        used = sensor_library & set().union(*map(undefined_symbols, libraries))
        self.assertGreater(len(used), 30, used)
        lacking = undefined_symbols(BUILD / "bin/vantor_skeleton_firmware.elf")
        self.assertEqual(lacking, board | used)


if __name__ == "__main__":
    unittest.main()
