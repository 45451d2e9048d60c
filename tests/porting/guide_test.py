"""docs/porting.md agrees with the sources."""

import re
import unittest

from board_folders import EMULATED, TEMPLATE, definitions
from guide_steps import GUIDE, ROOT, functions_of_step, section, steps

FIRMWARE = ROOT / "ports/firmware"

# Functions that boards may omit.
OPTIONAL = {"board_link_set_send_interrupt", "board_link_nearest_baudrate", "board_feed_watchdog", "board_wait",
            "board_wake", "board_reset_cause", "board_id"}


def without_comments(source):
    """Returns a C source without its comments."""
    return re.sub(r"/\*.*?\*/|//[^\n]*", "", source, flags=re.DOTALL)


def declared():
    """Returns the functions and arrays that board.h declares."""
    return set(re.findall(r"\b(board_\w+)\s*[(\[][^;{]*;", without_comments((FIRMWARE / "board.h").read_text())))


def numbers_of(folder):
    """Returns the names of the numbers of a board."""
    return set(re.findall(r"\b(BOARD_[A-Z0-9_]+)\b(?: = \d+,|\s+\\?\s*\{)", (folder / "board_numbers.h").read_text()))


def names_in_tables(text):
    """Returns the function names in the first column of tables."""
    rows = re.findall(r"^\| ([^|]*) \|", text, re.MULTILINE)
    return {name for row in rows for name in re.findall(r"`(board_\w+)`", row)}


class Guide(unittest.TestCase):
    """The guide and the sources."""

    def test_files_in_the_guide_exist(self):
        folders = "application|boards|cmake|docs|examples|integration|nox|ports|scripts|simulator"
        paths = re.findall(rf"`((?:{folders})/[^`*]*)`", GUIDE)
        self.assertGreater(len(paths), 10)
        for path in paths:
            self.assertTrue((ROOT / path).exists(), path)

    def test_exactly_the_declared_functions_are_described(self):
        self.assertEqual(len(declared()), 21)
        self.assertEqual(names_in_tables(section("The functions")), declared())
        self.assertEqual(names_in_tables(section("The functions").partition("These are optional")[2]), OPTIONAL)

    def test_optional_functions_have_a_default(self):
        text = (FIRMWARE / "board_defaults.cpp").read_text()
        self.assertEqual(set(re.findall(r"gnu::weak\]\][^(]*\b(board_\w+)\(", text)), OPTIONAL)

    def test_every_function_is_written_in_exactly_one_step(self):
        written = [name for step in steps() for name in functions_of_step(step)]
        self.assertEqual(len(written), len(set(written)))
        self.assertEqual(set(written), declared() - {"board_wait", "board_wake"})
        self.assertEqual(list(steps()),
                         ["Build", "Log", "Link", "Clock", "Sensors", "Interrupt", "Session", "Selftest"])

    def test_the_template_has_every_function(self):
        source = (TEMPLATE / "board.cpp").read_text()
        self.assertEqual(set(definitions(source)), declared() - {"board_wait", "board_wake"})

    def test_the_template_has_the_numbers_of_a_board(self):
        self.assertGreater(len(numbers_of(TEMPLATE)), 15)
        self.assertEqual(numbers_of(TEMPLATE), numbers_of(EMULATED))

    def test_numbers_in_the_guide_exist(self):
        named = set(re.findall(r"`(BOARD_[A-Z0-9_]+)`", GUIDE))
        self.assertGreater(len(named), 8)
        self.assertLessEqual(named, numbers_of(TEMPLATE))

    def test_options_in_the_guide_exist(self):
        named = set(re.findall(r"\b(VANTOR_\w+)", GUIDE))
        cmake = (ROOT / "cmake/VantorFirmware.cmake").read_text()
        self.assertEqual(named, set(re.findall(r"^set\((VANTOR_\w+)", cmake, re.MULTILINE)))

    def test_the_guide_refers_to_headers_of_the_sensor_library_and_of_the_board(self):
        named = set(re.findall(r"`([^`]*\.h)`", section("The sensor library")))
        for folder in ("nox", "integration"):
            headers = {str(path.relative_to(ROOT)) for path in (ROOT / folder).rglob("*.h")}
            self.assertTrue(named & headers, folder)
            named -= headers
        self.assertEqual(named, set(), "these headers do not exist")

    def test_functions_of_the_sensor_library_in_the_guide_exist(self):
        headers = "".join(path.read_text() for path in (ROOT / "nox").rglob("*.h"))
        for name in re.findall(r"`(zet_\w+)`", GUIDE):
            self.assertRegex(headers, rf"\b{name}\(")

    def test_every_message_in_the_table_of_mistakes_exists(self):
        rows = re.findall(r"^\| ([^|]*) \|", section("Troubleshooting"), re.MULTILINE)
        texts = [text for row in rows for text in re.findall(r"`([^`]*)`", row)
                 if not text.startswith(("uses ", "required symbol", "a000", "vantor "))]
        self.assertGreater(len(texts), 10)
        sources = [path for folder in ("application", "boards", "nox", "ports", "docs")
                   for path in (ROOT / folder).rglob("*")
                   if path.suffix in (".cpp", ".h", ".ld") or path.name == "protocol.md"]
        written = "".join(path.read_text(encoding="utf-8") for path in sources)
        for text in texts:
            for part in text.removeprefix("fault: ").split(": "):
                self.assertIn(re.sub(r"\d+", "%lu", part), written)

    def test_register_addresses_of_the_template_match_the_guide(self):
        source = (TEMPLATE / "board.cpp").read_text()
        self.assertEqual(set(re.findall(r"^constexpr uintptr_t \w+ = 0x(\w{4})", source, re.MULTILINE)), {"A000"})
        self.assertIn("`a000`", GUIDE)
        self.assertNotIn("0xA0", (EMULATED / "board.cpp").read_text().upper())


class Boards(unittest.TestCase):
    """The folders of the boards."""

    def test_none_has_more_than_250_lines_of_code(self):
        for folder in sorted((ROOT / "boards").iterdir()):
            sources = [path for path in folder.iterdir() if path.suffix in (".cpp", ".h", ".ld")]
            code = "".join(without_comments(path.read_text(encoding="utf-8")) for path in sources)
            lines = [line for line in code.splitlines() if line.strip()]
            self.assertGreater(len(lines), 100, folder)
            self.assertLessEqual(len(lines), 250, folder)


if __name__ == "__main__":
    unittest.main()
