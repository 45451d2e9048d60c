"""The scripts of the repository as a person types them: their usage, and what they print."""

import json
import os
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

    def test_words_that_are_not_understood(self):
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

    def test_it_is_what_its_script_prints(self):
        result = run(os.path.join(ROOT, "scripts/configuration-document"))
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        with open(os.path.join(ROOT, "docs/configuration.md"), encoding="utf-8") as file:
            self.assertEqual(file.read(), result.stdout)

    def test_the_protocol_repeats_no_member(self):
        with open(os.path.join(ROOT, "docs/configuration.schema.json"), encoding="utf-8") as file:
            members = json.load(file)["$defs"]["config"]["properties"]
        with open(os.path.join(ROOT, "docs/protocol.md"), encoding="utf-8") as file:
            protocol = file.read()
        self.assertIn("](configuration.md)", protocol)
        for name in members:
            self.assertNotRegex(protocol, rf"(?m)^\| `{name}` \|")


class Summary(unittest.TestCase):
    """Runs ./test in a directory in which every stage is a stand-in."""

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        shutil.copy(os.path.join(ROOT, "test"), self.folder)
        for name in ("packages", "lint", "coverage"):
            self.stand_in("scripts", name, "true")
        for name in ("cmake", "ctest"):
            self.stand_in("bin", name, "echo 100% tests passed")

    def stand_in(self, directory, name, what):
        """Writes a program that does something."""
        os.makedirs(os.path.join(self.folder, directory), exist_ok=True)
        path = os.path.join(self.folder, directory, name)
        with open(path, "w", encoding="ascii") as file:
            file.write(f"#!/bin/sh\n{what}\n")
        os.chmod(path, 0o755)

    def outcome(self):
        """The exit code of ./test and what it says of all stages."""
        environment = {**os.environ, "PATH": os.path.join(self.folder, "bin") + ":" + os.environ["PATH"]}
        result = run(os.path.join(self.folder, "test"), env=environment)
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
