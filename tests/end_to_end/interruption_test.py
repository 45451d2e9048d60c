"""Recordings that end early: everything recorded until then is intact."""

import json
import os
import resource
import signal
import subprocess
import tempfile
import unittest

from sigmf_rules import check_recording
from vantor_process import EXAMPLES, TIME_OUT, VANTOR, Server, vantor, wait_until

TWO_SENSORS = os.path.join(EXAMPLES, "two_sensors.json")
FRAME_SAMPLES = {"group-1-item-1": 480, "group-1-item-2": 440, "group-2-item-1": 120}


def children(process):
    """Returns the child processes of a process."""
    with open(f"/proc/{process.pid}/task/{process.pid}/children", encoding="ascii") as file:
        return [int(number) for number in file.read().split()]


def runs(number):
    """Whether a process is running."""
    try:
        with open(f"/proc/{number}/stat", encoding="ascii") as file:
            return file.read().rpartition(")")[2].split()[0] != "Z"
    except FileNotFoundError:
        return False


class Interruption(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.output = os.path.join(self.folder, "recording")

    def start(self, *arguments, **options):
        """Starts an endless recording and waits for its first frames."""
        process = self.enterContext(subprocess.Popen([VANTOR, "record", TWO_SENSORS, "--output", self.output,
                                                      *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                                     text=True, **options))
        self.addCleanup(process.kill)
        data = os.path.join(self.output, "group-2-item-1.sigmf-data")
        wait_until(lambda: os.path.exists(data) and os.path.getsize(data) > 5000, "the first frames")
        return process

    def check(self, complete=True):
        """The recording follows the standard and `vantor` can read it; returns the number of frames."""
        check_recording(self.output, complete)
        info = vantor("info", self.output, "--json")
        self.assertEqual(info.returncode, 0, info.stderr)
        about = json.loads(info.stdout)
        self.assertEqual(about["complete"], complete)
        self.assertGreater(about["frames"], 0)
        arrays = vantor("export", self.output, "--format", "npy", "--output", os.path.join(self.folder, "arrays"))
        self.assertEqual(arrays.returncode, 0, arrays.stderr)
        return about["frames"]

    def check_lengths(self, frames):
        """Every item has this many frames."""
        for name, samples in FRAME_SAMPLES.items():
            self.assertEqual(os.path.getsize(os.path.join(self.output, name + ".sigmf-data")), frames * 4 * samples)

    def ends_at_signal(self, number):
        """A signal ends the recording cleanly."""
        process = self.start()
        process.send_signal(number)
        output, errors = process.communicate(timeout=TIME_OUT)
        self.assertEqual((process.returncode, errors), (130, ""))
        frames = self.check()
        self.assertIn(f"{frames} frames, ", output)
        self.check_lengths(frames)

    def test_control_c(self):
        self.ends_at_signal(signal.SIGINT)

    def test_a_request_to_terminate(self):
        self.ends_at_signal(signal.SIGTERM)

    def test_the_terminal_is_closed(self):
        self.ends_at_signal(signal.SIGHUP)

    def test_a_hangup_that_is_ignored(self):
        process = self.start(preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        process.send_signal(signal.SIGHUP)
        data = os.path.join(self.output, "group-2-item-1.sigmf-data")
        size = os.path.getsize(data)
        wait_until(lambda: os.path.getsize(data) > size + 5000, "more frames")
        process.send_signal(signal.SIGTERM)
        process.communicate(timeout=TIME_OUT)
        self.assertEqual(process.returncode, 130)

    def test_the_server_is_killed(self):
        server = Server("--tcp", "0")
        process = self.start("--connect", server.address)
        server.process.kill()
        server.process.communicate()
        output, errors = process.communicate(timeout=TIME_OUT)
        self.assertEqual(process.returncode, 4)
        self.assertIn("connection", errors)
        frames = self.check()
        self.assertIn(f"{frames} frames, ", output)
        self.check_lengths(frames)

    def test_the_simulated_server_is_killed(self):
        process = self.start()
        os.kill(children(process)[0], signal.SIGKILL)
        _, errors = process.communicate(timeout=TIME_OUT)
        self.assertEqual(process.returncode, 4)
        self.assertIn("server", errors)
        self.check_lengths(self.check())

    def test_a_serial_device_is_removed(self):
        server = Server("--pty")
        process = self.start("--connect", server.address)
        server.process.kill()
        server.process.communicate()
        _, errors = process.communicate(timeout=TIME_OUT)
        self.assertEqual(process.returncode, 4)
        self.assertIn("connection", errors)
        self.check_lengths(self.check())

    def test_files_can_no_longer_grow(self):
        # A write beyond the bound fails like one to a full disk, if the signal that is also sent is ignored.
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        result = vantor("record", TWO_SENSORS, "--frames", 1000, "--connect", "sim:--clock virtual", "--output",
                        self.output, restore_signals=False,
                        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (100_000, 100_000)))
        self.assertEqual(result.returncode, 7, result.stderr)
        self.assertIn("Cannot write to", result.stderr)
        frames = self.check()
        self.assertEqual(frames, 100_000 // (4 * 480))
        self.check_lengths(frames)

    def test_the_disk_is_full(self):
        in_namespace = ["unshare", "--mount", "--map-root-user", "sh", "-c"]
        disk = os.path.join(self.folder, "disk")
        os.mkdir(disk)
        mount = f"mount -t tmpfs -o size=256k none '{disk}'"
        if subprocess.run([*in_namespace, mount], capture_output=True, check=False).returncode != 0:
            self.skipTest("this machine does not allow mounting a small disk")
        script = (f"{mount} && '{VANTOR}' record '{TWO_SENSORS}' --frames 1000 --connect 'sim:--clock virtual'"
                  f" --output '{disk}/recording'; code=$?; cp -r '{disk}/recording' '{self.output}'; exit $code")
        result = subprocess.run([*in_namespace, script], capture_output=True, text=True, timeout=TIME_OUT, check=False)
        self.assertEqual(result.returncode, 7, result.stderr)
        self.assertIn("No space left on device", result.stderr)
        check_recording(self.output, complete=None)
        frames = json.loads(vantor("info", self.output, "--json").stdout)["frames"]
        self.assertGreater(frames, 0)
        self.check_lengths(frames)

    def leaves_no_server(self, *arguments):
        """A recording that is killed can be read, and the server that it started exits."""
        process = self.start(*arguments)
        server, = children(process)
        process.kill()
        process.communicate(timeout=TIME_OUT)
        self.check(complete=False)
        wait_until(lambda: not runs(server), "the end of the server")

    def test_a_killed_recording(self):
        self.leaves_no_server()

    def test_a_killed_recording_of_a_server_that_never_waits(self):
        self.leaves_no_server("--connect", "sim:--clock virtual")


if __name__ == "__main__":
    unittest.main()
