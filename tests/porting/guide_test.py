"""docs/porting.md says what the sources say."""

import os
import pathlib
import re
import unittest

ROOT = pathlib.Path(os.environ["VANTOR_ROOT"])
GUIDE = (ROOT / "docs/porting.md").read_text(encoding="utf-8")


def fragments(text):
    """The fenced code blocks that name a file: (file, code)."""
    return re.findall(r"^```\w+ (\S+)\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)


def without_comments(source):
    """A C source without its comments."""
    return re.sub(r"/\*.*?\*/|//[^\n]*", "", source, flags=re.DOTALL)


def functions_of(header):
    """The functions that a header declares."""
    return re.findall(r"\b(zet_\w+|board_\w+)\s*\([^()]*(?:\([^()]*\)[^()]*)*\)[^;{]*;", without_comments(header.read_text()))


class Guide(unittest.TestCase):
    """The guide and the sources."""

    def test_code_stands_in_the_file_that_it_names(self):
        found = fragments(GUIDE)
        self.assertGreaterEqual(len(found), 8)
        for name, code in found:
            with self.subTest(file=name, code=code.partition("\n")[0]):
                self.assertIn("\n" + code, "\n" + (ROOT / name).read_text(encoding="utf-8"))

    def test_every_fence_of_code_names_its_file(self):
        self.assertEqual(GUIDE.count("\n```"), 2 * len(fragments(GUIDE)))

    def test_files_that_it_names_exist(self):
        paths = re.findall(r"`((?:application|cmake|docs|examples|integration|nox|ports|scripts|simulator)/[^`*]*)`", GUIDE)
        self.assertGreater(len(paths), 10)
        for path in paths:
            if path != "ports/my_board/":
                self.assertTrue((ROOT / path).exists(), path)

    def test_every_function_of_the_board_layer_is_described(self):
        headers = sorted((ROOT / "integration").rglob("*.h"))
        functions = [name for header in headers for name in functions_of(header)]
        self.assertEqual(len(functions), 10, functions)
        for name in functions:
            self.assertTrue(f"`{name}" in GUIDE, name)

    def test_every_function_to_write_is_described(self):
        for name in functions_of(ROOT / "ports/skeleton/board.h"):
            self.assertTrue(re.search(rf"\n\| [^|]*`{name}`[^|]*\|", GUIDE), name)

    def test_every_text_by_which_a_mistake_shows_exists(self):
        rows = re.findall(r"^\| ([^|]*) \|", GUIDE[GUIDE.index("## Mistakes"):], re.MULTILINE)
        texts = [text for row in rows for text in re.findall(r"`([^`]*)`", row) if not text.startswith("uses ")]
        self.assertGreater(len(texts), 10)
        sources = [path for folder in ("application", "nox", "ports", "docs")
                   for path in (ROOT / folder).rglob("*") if path.suffix in (".cpp", ".h", ".ld") or path.name == "protocol.md"]
        written = "".join(path.read_text(encoding="utf-8") for path in sources)
        for text in texts:
            self.assertIn(re.sub(r"\d+", "%lu", text), written)

    def test_every_member_that_a_port_fills_in_is_described(self):
        def members(path, record):
            text = without_comments((ROOT / path).read_text())
            body = re.search(r"typedef struct\s*\{([^{}]*)\}\s*" + record + ";", text).group(1)
            return re.findall(r"(\w+)(?:\)\s*\([^)]*\))?;", body)

        port = members("application/vantor_server/zet_vantor_server.h", "zet_vantor_server_port_t")
        link = members("application/vantor_server/zet_vantor_server_base.h", "vantor_server_interface_t")
        record = members("nox/k3/k330/api/zet_hal_definitions_k330.h", "zet_hal_k330_t")
        self.assertEqual((len(port), len(link), len(record)), (7, 6, 6), (port, link, record))
        for name in [name for name in port if name != "link"] + [f"link.{name}" for name in link] + record:
            self.assertTrue(re.search(rf"\|[^|]*`{name}[`.]", GUIDE), name)

    def test_every_file_of_the_skeleton_is_in_the_table(self):
        for path in (ROOT / "ports/skeleton").iterdir():
            self.assertTrue(re.search(rf"\n\| [^|]*`{re.escape(path.name)}`", GUIDE), path.name)

    def test_number_of_functions_to_write(self):
        stated = re.search(r"the (\d+) functions that touch registers", GUIDE).group(1)
        self.assertEqual(int(stated), len(functions_of(ROOT / "ports/skeleton/board.h")))


if __name__ == "__main__":
    unittest.main()
