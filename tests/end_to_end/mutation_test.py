"""Damaged configurations, scenes and calibration files through every command that reads them.

No command crashes, hangs or uses much memory, and each fails with a message. As a test this mutates a small sample of
files, with VANTOR_CAMPAIGN=whole 2,000 files: `scripts/soak mutations`.
"""

import concurrent.futures
import json
import os
import random
import subprocess
import tempfile
import unittest

from vantor_process import EXAMPLES, SERVER, TIME_OUT, VANTOR, campaign, has_sanitizers, vantor

FILES = campaign(2000, 100)
MEMORY_BOUND = 64 << 10  # in units of 1,024 bytes
EXIT_CODES = range(8)
ONE_SENSOR = os.path.join(EXAMPLES, "single_sensor.json")
FAST = "sim:--clock virtual --log-level ERROR"
VALUES = (None, True, 0, -1, 0.5, 65546, 2**31, 2**63, 1e308, -1e308, "", "x" * 5000, "\u202e\x1b[2J", [], {}, [[]],
          [0] * 5000)


def places(document):
    """The containers of a document, each with the keys of its members."""
    found = []
    if isinstance(document, dict):
        found = [(document, key) for key in document]
    elif isinstance(document, list):
        found = [(document, index) for index in range(len(document))]
    for container, key in list(found):
        found += places(container[key])
    return found


def mutate_document(document, chance):
    """Changes, removes, repeats or renames a member of a document."""
    container, key = chance.choice(places(document) or [([0], 0)])
    kind = chance.randrange(5)
    if kind == 0:
        del container[key]
    elif kind == 1 and isinstance(container, list):
        container += [container[key]] * chance.choice((1, 20, 2000))
    elif kind == 2 and isinstance(container, dict):
        container[key[:-1] or "x"] = container.pop(key)
    elif kind == 3:
        for _ in range(chance.choice((1, 20, 200))):
            container[key] = [container[key]]
    else:
        container[key] = chance.choice(VALUES)


def mutate_text(text, chance):
    """Changes, removes, repeats or inserts bytes of a text."""
    begin = chance.randrange(len(text) + 1)
    end = min(len(text), begin + chance.choice((1, 1, 8, 200)))
    noise = bytes(chance.randrange(256) for _ in range(end - begin))
    repeated = text[begin:end] * chance.choice((2, 50, 20000))
    middle = chance.choice((b"", noise, repeated, bytes(8), b"[" * 3000, b'{"a":' * 3000))
    return text[:begin] + middle + (b"" if chance.randrange(4) == 0 else text[end:])


def mutate(text, seed):
    """A text with one or more mutations; the same seed gives the same text."""
    chance = random.Random(seed)
    if chance.randrange(2):
        document = json.loads(text)
        for _ in range(chance.choice((1, 1, 3))):
            mutate_document(document, chance)
        text = json.dumps(document).encode()
    return mutate_text(text, chance) if chance.randrange(2) else text


class Mutations(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.is_bounded = not has_sanitizers()

    def originals(self):
        """The files to mutate, with the commands that read such a file."""
        calibration = os.path.join(self.folder, "calibration.json")
        self.assertEqual(vantor("calibrate", "--output", calibration, "--connect", FAST).returncode, 0)
        record = [VANTOR, "record", "--frames", "1", "--output", "OUTPUT", "--connect"]
        for name in ("single_sensor.json", "two_sensors.json"):
            yield os.path.join(EXAMPLES, name), ([VANTOR, "validate", "FILE"], [VANTOR, "plan", "FILE", "--json"],
                                                 [*record, FAST, "FILE"], [*record, FAST, "FILE", "--no-validate"])
        for name in sorted(os.listdir(os.path.join(EXAMPLES, "scenes"))):
            yield os.path.join(EXAMPLES, "scenes", name), ([SERVER, "--stdio", "--scene", "FILE"],
                                                           [*record, f"{FAST} --scene FILE", ONE_SENSOR])
        yield calibration, ([*record, FAST, ONE_SENSOR, "--calibration", "FILE"],)

    def run_command(self, command, name, work):
        """Runs a command; returns what is wrong with its end, if anything."""
        words = [word.replace("FILE", name).replace("OUTPUT", os.path.join(work, "recording")) for word in command]
        if self.is_bounded:
            words = ["sh", "-c", f'ulimit -d {MEMORY_BOUND} && exec "$@"', "sh", *words]
        try:
            result = subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True, cwd=work, timeout=TIME_OUT,
                                    check=False)
        except subprocess.TimeoutExpired:
            return "does not end"
        text = result.stderr.decode(errors="replace")
        if result.returncode not in EXIT_CODES:
            return f"ended with {result.returncode}: {text}"
        if any(word in text for word in ("Sanitizer", "runtime error:", "bad_alloc", "terminate")):
            return text
        if result.returncode != 0 and not text and not result.stdout:
            return "failed without a message"
        return None

    def check(self, number, original, commands):
        """Runs the commands on a mutation of a file; returns what is wrong."""
        with open(original, "rb") as file:
            text = mutate(file.read(), number)
        with tempfile.TemporaryDirectory(dir=self.folder) as work:
            name = os.path.join(work, "mutated.json")
            with open(name, "wb") as file:
                file.write(text)
            for command in commands:
                fault = self.run_command(command, name, work)
                if fault is not None:
                    return f"{number}, {os.path.basename(original)}, {command}: {fault}"
        return None

    def test_no_command_crashes_hangs_or_grows(self):
        originals = list(self.originals())
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            results = list(pool.map(lambda number: self.check(number, *originals[number % len(originals)]),
                                    range(FILES)))
        self.assertEqual([fault for fault in results if fault is not None], [])
        print(f"{FILES:,} files, each process within {MEMORY_BOUND:,} KiB: "
              f"{'yes' if self.is_bounded else 'not checked with sanitizers'}", flush=True)
