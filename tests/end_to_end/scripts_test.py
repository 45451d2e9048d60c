"""The scripts of the repository, as a user runs them: their usage and their output."""

import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from vantor_process import EXAMPLES, TIME_OUT

ROOT = os.path.dirname(os.path.abspath(EXAMPLES))


def run(*command, **options):
    """Runs a script to its end."""
    return subprocess.run(command, capture_output=True, text=True, timeout=TIME_OUT, check=False, **options)


class Usage(unittest.TestCase):
    def test_help(self):
        for script in ("run", "test", "scripts/soak"):
            with self.subTest(script):
                result = run(os.path.join(ROOT, script), "--help")
                self.assertEqual((result.returncode, result.stderr), (0, ""))
                self.assertRegex(result.stdout, "^usage: ")

    def test_unknown_arguments(self):
        for script, *words in (("run", "junk"), ("run", "--firmware", "junk"), ("run", "--help", "junk"),
                               ("test", "junk"), ("test", "--help", "junk"), ("scripts/soak", "junk"),
                               ("scripts/soak", "--help", "junk")):
            with self.subTest(script, words=words):
                result = run(os.path.join(ROOT, script), *words)
                self.assertEqual((result.returncode, result.stdout), (2, ""))
                self.assertRegex(result.stderr, "^usage: ")


class ConfigurationDocument(unittest.TestCase):
    """docs/configuration.md, which is generated."""

    maxDiff = None

    def test_the_document_equals_the_output_of_its_script(self):
        result = run(os.path.join(ROOT, "scripts/configuration-document"))
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        with open(os.path.join(ROOT, "docs/configuration.md"), encoding="utf-8") as file:
            self.assertEqual(file.read(), result.stdout)

    def test_the_protocol_document_does_not_repeat_members(self):
        with open(os.path.join(ROOT, "docs/configuration.schema.json"), encoding="utf-8") as file:
            members = json.load(file)["$defs"]["config"]["properties"]
        with open(os.path.join(ROOT, "docs/protocol.md"), encoding="utf-8") as file:
            protocol = file.read()
        self.assertIn("](configuration.md)", protocol)
        for name in members:
            self.assertNotRegex(protocol, rf"(?m)^\| `{name}` \|")


class Folder(unittest.TestCase):
    """Runs a script in a directory where stand-ins replace other programs."""

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def write(self, path, text):
        """Writes a file."""
        path = os.path.join(self.folder, path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="ascii") as file:
            file.write(text)

    def stand_in(self, directory, name, what):
        """Writes a program that runs a command."""
        self.write(os.path.join(directory, name), f"#!/bin/sh\n{what}\n")
        os.chmod(os.path.join(self.folder, directory, name), 0o755)

    def run_script(self, *command):
        """Runs a script of the folder, which finds the stand-ins first."""
        environment = {**os.environ, "PATH": os.path.join(self.folder, "bin") + ":" + os.environ["PATH"]}
        return run(os.path.join(self.folder, command[0]), *command[1:], env=environment)


class Conventions(Folder):
    """What `scripts/lint --layout` says about one file with one line."""

    # For each convention: lines that break it, then similar lines that do not.
    LINES = {
        "write ++i": (
            (("host/a.cpp", "    i++;"), ("host/a.cpp", "    for (; i < n; i++)"), ("ports/a.h", "    a->b[1].c--;")),
            (("host/a.cpp", "    ++i;"), ("host/a.cpp", "    *out++ = a[i++];"), ("host/a.cpp", "    take(i++);"))),
        "use std::size": (
            (("ports/a.cpp", "size = sizeof names / sizeof names[0];"), ("ports/a.cpp", "sizeof(a) / sizeof(a[0]);"),
             ("tests/a.cpp", "size_t n = sizeof a/sizeof a[0];")),
            (("ports/a.cpp", "sizeof(block_t) / sizeof(uint16_t);"),)),
        "write integer types": (
            (("host/a.h", "std::uint32_t a;"), ("host/a.h", "std::vector<std::size_t> b;"),
             ("host/a.h", "std::intptr_t c;")),
            (("host/a.h", "uint32_t a;"), ("host/a.h", "std::time_t b;"), ("host/a.h", "/** Not std::size_t. */"))),
        "put the comment above": (
            (("boards/a.h", "int a; // the first"), ("host/a.cpp", "call(a, // the first"),
             ("host/a.cpp", "int a; ///< first")),
            (("host/a.cpp", "int a; /**< the first */"), ("host/a.cpp", "    // The first."),
             ("host/a.cpp", "} // namespace a"), ("host/a.cpp", "open(a); // NOLINT(some-check)"))),
        "name functions of C": (
            (("ports/a.cpp", "memcpy(a, b, c);"), ("host/a.cpp", "x = (strlen(text));"),
             ("host/a.cpp", "::printf(a);"), ("host/a.cpp", "    *length = strlen(text);")),
            (("ports/a.cpp", "std::memcpy(a, b, c);"), ("ports/a.c", "memcpy(a, b, c);"),
             ("ports/firmware/cortex_m4/libc.cpp", "void *memcpy(void *to, const void *from, size_t size)"),
             ("host/a.cpp", " * strlen(text) is slow."), ("host/a.cpp", "// Calls strlen(text)."))),
        "end no type name in _t": (
            (("host/a.cpp", "struct a_t"), ("simulator/a.cpp", "enum class a_t : uint8_t"),
             ("tests/host/a.cpp", "using a_t = int;"), ("host/a.h", "class a_t")),
            (("host/a.cpp", "struct a"), ("ports/a.cpp", "struct a_t"), ("host/a.cpp", "template <typename a_t>"),
             ("simulator/a.h", "struct a_t;"))),
    }

    def setUp(self):
        super().setUp()
        shutil.copy(os.path.join(ROOT, "scripts/lint"), self.folder)
        os.renames(os.path.join(self.folder, "lint"), os.path.join(self.folder, "scripts/lint"))
        self.stand_in("bin", "clang-format", "true")

    def lint(self, path, line):
        """Checks a source file with this line; returns the finished process."""
        self.write(path, f"/** @file\n * Sample.\n */\n{line}\n")
        self.stand_in("bin", "git", f"echo {path}")
        return self.run_script("scripts/lint", "--layout")

    def test_bad_lines_are_reported(self):
        for advice, (bad, _) in self.LINES.items():
            for path, line in bad:
                with self.subTest(line):
                    result = self.lint(path, line)
                    self.assertEqual((result.returncode, result.stdout.splitlines()[1:]), (1, [f"{path}:4:{line}"]))
                    self.assertRegex(result.stderr, f"^conventions: {re.escape(advice)}.*\n$")

    def test_similar_lines_are_accepted(self):
        for _, good in self.LINES.values():
            for path, line in good:
                with self.subTest(line):
                    result = self.lint(path, line)
                    self.assertEqual((result.returncode, result.stderr), (0, ""))


class Summary(Folder):
    """Runs ./test in a folder in which every stage is a stand-in."""

    def setUp(self):
        super().setUp()
        shutil.copy(os.path.join(ROOT, "test"), self.folder)
        for name in ("packages", "lint", "coverage"):
            self.stand_in("scripts", name, "true")
        for name in ("cmake", "ctest"):
            self.stand_in("bin", name, "echo 100% tests passed")

    def outcome(self):
        """Returns the exit code of ./test and its summary of all stages."""
        result = self.run_script("test")
        return result.returncode, [line for line in result.stdout.splitlines() if line.endswith((" passed.", "FAILED."))]

    def test_all_passed(self):
        self.assertEqual(self.outcome(), (0, ["All stages passed."]))

    def test_one_failed(self):
        self.stand_in("scripts", "lint", "false")
        self.assertEqual(self.outcome(), (1, ["1 stage FAILED."]))

    def test_some_failed(self):
        self.stand_in("scripts", "lint", "false")
        self.stand_in("bin", "ctest", "false")
        self.assertEqual(self.outcome(), (1, ["4 stages FAILED."]))


if __name__ == "__main__":
    unittest.main()
