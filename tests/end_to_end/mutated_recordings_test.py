"""Every command that reads a recording ends cleanly, whatever the files of the recording contain."""

import collections
import concurrent.futures
import contextlib
import json
import os
import random
import re
import shutil
import socket
import subprocess
import tempfile
import threading
import unittest

from vantor_process import EXAMPLES, TIME_OUT, VANTOR, campaign, vantor

RECORDINGS = int(os.environ.get("VANTOR_CAMPAIGN_SIZE", 0)) or campaign(whole=2000, sample=8)

# Success, a recording that cannot be used, output that cannot be written, damage. Plot fails without gnuplot.
EXIT_CODES = {"info": {0, 3, 8}, "plot": {0, 3, 7, 8}, "plot without gnuplot": {1, 3, 7, 8}, "export": {0, 3, 7, 8},
              "replay": {0, 3, 8}, "repair": {0, 3, 7, 8}}

# Checked in the release build only: sanitizers need much more.
MOST_MEMORY = 64 * 1024 * 1024
MOST_READ = 1024 * 1024
MEASURE_MEMORY = os.environ.get("VANTOR_MEASURE_MEMORY") == "1"

# Values at the bounds of types and formats, for numbers in documents and tables.
NUMBERS = (0, -1, 1, 65535, 65536, 2**31 - 1, 2**31, 2**32, 2**63, 2**64 - 1, 2**64, -2**63, 1e300, 5e-324, 0.5, "1", None,
           [], {}, True)
TEXTS = ("", "\x1b[2J\x9b\u202e", "../../etc/passwd", "x" * 5000, "\ud7ff\U0010ffff", "/dev/zero")


def numbers_in(document):
    """The places of all values in a document, as pairs of container and key."""
    places = []
    todo = [document]
    while todo:
        container = todo.pop()
        for key, value in container.items() if isinstance(container, dict) else enumerate(container):
            places.append((container, key))
            if isinstance(value, (dict, list)):
                todo.append(value)
    return places


class Mutator:
    """Changes a copy of a recording. The same seed makes the same changes."""

    def __init__(self, path, seed):
        self.path = path
        self.random = random.Random(seed)

    def mutate(self):
        """Makes one to four changes; returns their description."""
        kinds = (self.change_bytes, self.cut, self.extend, self.replace_value, self.replace_value, self.replace_cell,
                 self.swap_lines, self.replace_file, self.remove)
        changes = []
        for _ in range(self.random.randint(1, 4)):
            name = self.random.choice(sorted(os.listdir(self.path)))
            change = self.random.choice(kinds)
            file = os.path.join(self.path, name)
            # The memory of this process counts as that of the programs that it starts, so it must stay small.
            if os.path.isfile(file) and not os.path.islink(file) and os.path.getsize(file) < MOST_READ:
                change(file)
                changes.append(f"{change.__name__} {name}")
        return ", ".join(changes)

    def read(self, file):
        with open(file, "rb") as source:
            return bytearray(source.read())

    def write(self, file, content):
        with open(file, "wb") as target:
            target.write(content)

    def change_bytes(self, file):
        content = self.read(file)
        for _ in range(self.random.choice((1, 1, 10, 1000)) if content else 0):
            content[self.random.randrange(len(content))] = self.random.randrange(256)
        self.write(file, content)

    def cut(self, file):
        os.truncate(file, self.random.randint(0, os.path.getsize(file)))

    def extend(self, file):
        """Appends random bytes, or a hole that makes the file huge."""
        if self.random.random() < 0.5:
            self.write(file, self.read(file) + self.random.randbytes(self.random.choice((1, 100, 10000))))
        else:
            os.truncate(file, self.random.choice((20 << 20, 1 << 24, 80 << 20)))

    def replace_value(self, file):
        """Replaces or removes a value of a document; changes anything else by bytes."""
        try:
            document = json.loads(self.read(file))
            container, key = self.random.choice(numbers_in(document))
        except (ValueError, IndexError, UnicodeDecodeError):
            self.change_bytes(file)
            return
        if self.random.random() < 0.2:
            del container[key]
        else:
            container[key] = self.random.choice(NUMBERS + TEXTS + (document, [container[key]] * 3))
        try:
            self.write(file, json.dumps(document).encode("utf-8", "surrogatepass"))
        except (ValueError, RecursionError):
            self.change_bytes(file)

    def replace_cell(self, file):
        lines = self.read(file).split(b"\n")
        cells = self.random.choice(lines).split(b",")
        index = self.random.randrange(len(lines))
        cells[self.random.randrange(len(cells))] = str(self.random.choice(NUMBERS)).encode()
        lines[index] = b",".join(cells)
        self.write(file, b"\n".join(lines))

    def swap_lines(self, file):
        lines = self.read(file).split(b"\n")
        self.random.shuffle(lines)
        self.write(file, b"\n".join(lines))

    def replace_file(self, file):
        """Puts something else in the place of a file."""
        os.remove(file)
        kind = self.random.choice(("zero", "pipe", "directory", "loop", "other"))
        if kind == "zero":
            os.symlink("/dev/zero", file)
        elif kind == "pipe":
            os.mkfifo(file)
        elif kind == "directory":
            os.mkdir(file)
        elif kind == "loop":
            os.symlink(file, file)
        else:
            names = [name for name in sorted(os.listdir(self.path)) if os.path.isfile(os.path.join(self.path, name))]
            if names:
                shutil.copyfile(os.path.join(self.path, self.random.choice(names)), file)

    def remove(self, file):
        os.remove(file)


class Commands:
    """Runs the commands that read a recording, and collects what is wrong with how they end."""

    def __init__(self, folder):
        self.lock = threading.Lock()
        self.faults = []
        self.outcomes = collections.Counter()
        self.most_memory = 0
        self.no_gnuplot = os.path.join(folder, "bin")
        os.mkdir(self.no_gnuplot)
        os.symlink(shutil.which("false"), os.path.join(self.no_gnuplot, "gnuplot"))

    def run_all(self, place, arrays, what):
        """Runs every command for a recording."""
        for command in (("info",), ("info", "--json"), ("plot",), ("export", "--format", "csv"),
                        ("export", "--format", "npz", "--output", arrays), ("repair",), ("info",)):
            self.run(what, command[0], place, *command[1:])
        if MEASURE_MEMORY:
            # Without gnuplot, whose memory would count.
            self.run(what, "plot without gnuplot", place, env={**os.environ, "PATH": self.no_gnuplot})
        self.replay(what, place)

    def run(self, what, name, *arguments, **options):
        """Runs a command to its end."""
        with tempfile.TemporaryFile() as output:
            process = subprocess.Popen([VANTOR, name.split()[0], *arguments], stdin=subprocess.DEVNULL, stdout=output,
                                       stderr=subprocess.STDOUT, **options)
            self.finish(what, name, process, output, measured=name != "plot")

    def replay(self, what, place):
        """Replays a recording for a host that reads some of it."""
        with tempfile.TemporaryFile() as output:
            process = subprocess.Popen([VANTOR, "replay", place, "--hosts", "1"], stdin=subprocess.DEVNULL,
                                       stdout=subprocess.PIPE, stderr=output)
            line = process.stdout.readline().decode()
            if line.startswith("listening on tcp:"):
                address = line.split(":")
                # The command may disconnect the host at any time.
                with (contextlib.suppress(ConnectionError),
                      socket.create_connection((address[1], int(address[2])), timeout=TIME_OUT) as host):
                    self.receive(what, host, place)
            process.stdout.close()
            self.finish(what, "replay", process, output, measured=True)

    def receive(self, what, host, place):
        """Configures a replay as it was recorded, and reads some frames."""
        try:
            with open(os.path.join(place, "session.sigmf-collection"), "rb") as file:
                configuration = json.load(file)["collection"]["vantor:configuration"]
        except ValueError as failure:
            with self.lock:
                self.faults.append(f"{what}: replay accepts what is not JSON: {failure}")
            return
        for command in ({"command": "configure", "configuration": configuration}, {"command": "start"}):
            host.sendall(json.dumps(command).encode() + b"\n")
        host.recv(65536)

    def finish(self, what, name, process, output, measured):
        """Checks how a process ends, what it prints, and its memory. The time-out only ends one that hangs."""
        timer = threading.Timer(TIME_OUT, process.kill)
        timer.start()
        _, status, usage = os.wait4(process.pid, 0)
        timer.cancel()
        process.returncode = os.waitstatus_to_exitcode(status)
        output.seek(0)
        text = output.read()
        memory = usage.ru_maxrss * 1024 if measured else 0
        with self.lock:
            self.outcomes[f"{name} {process.returncode}"] += 1
            self.most_memory = max(self.most_memory, memory)
            if process.returncode not in EXIT_CODES[name] or b"Sanitizer" in text:
                self.faults.append(f"{what}: {name} ended with {process.returncode}: {text[-3000:]!r}")
            if re.search(rb"[\x00-\x08\x0b-\x1f\x7f]|\xc2[\x80-\x9f]|\xe2\x80[\x8e\x8f\xaa-\xae]", text):
                self.faults.append(f"{what}: {name} printed a control character: {text[-3000:]!r}")
            if MEASURE_MEMORY and memory > MOST_MEMORY:
                self.faults.append(f"{what}: {name} needed {memory / 2**20:.1f} MiB")


class MutatedRecordings(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.original = os.path.join(self.folder, "original")
        result = vantor("record", os.path.join(EXAMPLES, "two_sensors.json"), "--frames", 20, "--connect",
                        "sim:--clock virtual", "--output", self.original)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_every_command_ends_cleanly(self):
        commands = Commands(self.folder)

        def try_one(seed):
            place = os.path.join(self.folder, f"recording-{seed}")
            arrays = os.path.join(self.folder, f"arrays-{seed}")
            shutil.copytree(self.original, place)
            what = f"seed {seed}, {Mutator(place, seed).mutate()}"
            commands.run_all(place, arrays, what)
            shutil.rmtree(place)
            shutil.rmtree(arrays, ignore_errors=True)

        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for future in [pool.submit(try_one, seed) for seed in range(RECORDINGS)]:
                future.result()
        print(f"{RECORDINGS} recordings, {dict(sorted(commands.outcomes.items()))}, "
              f"peak memory {commands.most_memory / 2**20:.1f} MiB")
        self.assertFalse(commands.faults, "\n".join(commands.faults[:20]))


if __name__ == "__main__":
    unittest.main()
