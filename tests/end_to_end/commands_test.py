"""Every command of `vantor` as a user types it: its output, its files, its exit code."""

import array
import contextlib
import csv
import json
import os
import pty
import re
import select
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
import tty
import unittest
import zipfile

import numpy

from sigmf_rules import check_recording
from vantor_process import EXAMPLES, TIME_OUT, VANTOR, Server, example, has_sanitizers, vantor, wait_until

COMMANDS = ("identify", "scan", "selftest", "plan", "validate", "calibrate", "record", "info", "repair", "plot",
            "export",
            "replay", "completion")
ONE_SENSOR = os.path.join(EXAMPLES, "single_sensor.json")
TWO_SENSORS = os.path.join(EXAMPLES, "two_sensors.json")
FAST = "sim:--clock virtual --seed 11"
LINKS = (("--tcp", "0"), ("--pty",))


class CommandTest(unittest.TestCase):
    """Runs commands in a temporary directory."""

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def succeeds(self, *arguments):
        """Runs a command that succeeds without an error message; returns its output."""
        result = vantor(*arguments, cwd=self.folder)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def fails(self, code, text, *arguments):
        """Runs a command that fails with an exit code and a message."""
        result = vantor(*arguments, cwd=self.folder)
        self.assertEqual(result.returncode, code, result.stderr)
        self.assertIn(text, result.stderr)
        return result.stdout

    def write(self, name, document):
        """Writes a JSON document."""
        with open(self.path(name), "w", encoding="utf-8") as file:
            json.dump(document, file)
        return self.path(name)

    def record(self, configuration=TWO_SENSORS, frames=10, name="recording", where=FAST):
        """Makes a recording."""
        self.succeeds("record", configuration, "--frames", frames, "--connect", where, "--output", self.path(name))
        return self.path(name)

    def open_terminal(self):
        """A terminal: our end and the end of a command. Both stay open: a close may lose bytes in transit."""
        ends = pty.openpty()
        for end in ends:
            self.addCleanup(os.close, end)
        return ends

    def read_until(self, end, pattern):
        """Reads from our end of a terminal until a pattern has arrived."""
        shown = ""
        while not re.search(pattern, shown):
            self.assertTrue(select.select([end], [], [], TIME_OUT)[0], f"{pattern!r} is not in {shown!r}")
            shown += os.read(end, 65536).decode()

    def data(self, recording, name="group-1-item-1"):
        """The samples of an item, with alternating real and imaginary parts."""
        samples = array.array("h")
        with open(os.path.join(recording, name + ".sigmf-data"), "rb") as file:
            samples.frombytes(file.read())
        return samples


class CommandLine(CommandTest):
    def test_version(self):
        self.assertRegex(self.succeeds("--version"), r"^vantor \d+\.\d+\.\d+\n$")

    def test_help_with_examples(self):
        text = self.succeeds("--help")
        for command in COMMANDS:
            self.assertIn(command, text)
            self.assertRegex(self.succeeds(command, "--help"), rf"(?s)Examples:.*vantor {command}")
        for code in (0, 1, 2, 3, 4, 5, 6, 7, 130):
            self.assertRegex(text, rf"\n  {code} +\w")

    def test_wrong_command_lines(self):
        for arguments in ((), ("explode",), ("record",), ("info",), ("record", ONE_SENSOR, "--frames", "-1"),
                          ("identify", "--nonsense"), ("export", "x", "--format", "pdf"), ("completion", "tcsh"),
                          ("identify", "--connect", "carrier-pigeon:")):
            with self.subTest(arguments):
                self.assertEqual(vantor(*arguments).returncode, 2)


class Identify(CommandTest):
    def test_over_every_link(self):
        for link in LINKS:
            with self.subTest(link), Server(*link, "--sensors", "3", "--name", "shelf", "--id", "42") as server:
                self.assertIn("\nboard      shelf\nid         42\n"
                              "sensors    k330, 3 positions, connected: 1, 2, 3; simulated\n",
                              self.succeeds("identify", "--connect", server.address))
                about = json.loads(self.succeeds("identify", "--connect", server.address, "--json"))
                self.assertEqual(about["address"].partition("@")[0], server.address)
                self.assertEqual((about["sensor"], about["connected_sensors"]), ("k330", [1, 2, 3]))

    def test_a_simulated_server(self):
        about = json.loads(self.succeeds("identify", "--connect", "sim:--sensors 7", "--json"))
        self.assertEqual(about["sensor_count"], 7)
        self.assertEqual(about["board"], {"name": "simulated board", "sensors": "simulated"})
        self.assertIn("k330, 1 position, connected: 1; simulated\n",
                      self.succeeds("identify", "--connect", "sim:--sensors 1"))

    def test_no_server(self):
        self.fails(4, "tcp:127.0.0.1:1", "identify", "--connect", "tcp:127.0.0.1:1")
        self.fails(4, "/dev/nothing", "identify", "--connect", "serial:/dev/nothing")

    def test_a_scene_with_a_space_in_its_name(self):
        self.write("my scene.json", {"faults": [{"kind": "absent_sensor", "sensor": 1}]})
        for options in ("--scene 'my scene.json'", '--scene "my scene.json"', r"--scene=my\ scene.json"):
            with self.subTest(options):
                self.assertIn("2 positions, connected: 2;",
                              self.succeeds("identify", "--connect", "sim:--sensors 2 " + options))

    def test_a_simulated_server_that_refuses_its_options(self):
        for options, said in (("--sensors 0", 'vantor_server: --sensors: "0" is not'),
                              ("--bogus", "vantor_server: unexpected argument: --bogus\n"),
                              ("--tcp 1", "vantor_server: Exactly 1 option from"),
                              ("--help", "vantor_server --tcp 6110"),
                              ("--version", "vantor_server 0")):
            with self.subTest(options):
                result = vantor("identify", "--connect", "sim:" + options)
                self.assertEqual((result.returncode, result.stdout), (4, ""))
                self.assertIn(said, result.stderr)
                self.assertTrue(result.stderr.endswith(
                    "vantor: The simulated server has exited; see the message that it printed.\n"), result.stderr)

    def test_not_a_server(self):
        answers = (b'{"status":"ok","command":"end","payload_size":0}\n'
                   b'{"status":"ok","command":"identify","payload_size":0,"sensor":7}\n')

        def serve(listener):
            host, _ = listener.accept()
            with host, host.makefile("rb") as lines:
                for line, answer in zip((line for line in lines if line.strip()), answers.splitlines(True)):
                    self.assertIn(b"command", line)
                    host.sendall(answer)
                lines.read()

        with socket.create_server(("127.0.0.1", 0)) as listener:
            thread = threading.Thread(target=serve, args=(listener,))
            thread.start()
            self.fails(6, "vantor: ", "identify", "--connect", f"tcp:127.0.0.1:{listener.getsockname()[1]}")
            thread.join(TIME_OUT)


class Scan(CommandTest):
    def silent_device(self):
        """A serial device without a server."""
        device, other_end = pty.openpty()
        self.addCleanup(os.close, device)
        self.addCleanup(os.close, other_end)
        tty.setraw(other_end)
        return os.ttyname(other_end)

    def test_finds_the_server_among_silent_devices(self):
        with Server("--pty", "--name", "shelf") as server:
            name = server.address.removeprefix("serial:")
            silent = [self.silent_device() for _ in range(2)]
            result = vantor("scan", silent[0], name, silent[1])
            self.assertEqual(result.returncode, 0, result.stderr)
            line, = result.stdout.splitlines()
            self.assertIn(f"{name}@115200  vantor_server", line)
            self.assertTrue(line.endswith(", board: shelf"), line)
            self.assertEqual(result.stderr.splitlines(), [f"vantor: {device} does not answer." for device in silent])

            found = json.loads(self.succeeds("scan", name, "--json", "--baudrate", "921600"))
            self.assertEqual([server["address"] for server in found], [f"serial:{name}@921600"])

    def test_no_answer(self):
        device = self.silent_device()
        self.fails(4, f"{device} does not answer.", "scan", device)
        self.assertEqual(json.loads(self.fails(4, "no serial device answers", "scan", device, "--json")), [])

    def test_a_device_that_never_stops_sending(self):
        end = b'{"status":"ok","command":"end","payload_size":0}\n'
        silent = "does not answer."
        for name, first, more, reason in (
                ("a payload that never ends", b'{"status":"ok","payload_size":1000000}\n', b"x", "are not messages"),
                ("a truncated answer", end + b'{"status":', b"", silent),
                ("messages", b"", b'{"status":"ok","command":"ping","payload_size":0}\n', silent)):
            with self.subTest(name):
                ours, device = pty.openpty()
                self.addCleanup(os.close, ours)
                self.addCleanup(os.close, device)
                tty.setraw(device)
                done = threading.Event()

                def talk(ours=ours, first=first, more=more, done=done):
                    os.read(ours, 1)
                    os.write(ours, first)
                    while not done.wait(0.05):
                        os.write(ours, more)

                threading.Thread(target=talk, daemon=True).start()
                result = vantor("scan", os.ttyname(device))
                done.set()
                self.assertEqual(result.returncode, 4, result.stdout)
                self.assertIn(reason, result.stderr)

    def test_a_device_that_does_not_exist(self):
        self.fails(4, "/dev/nothing", "scan", "/dev/nothing")


class Validate(CommandTest):
    def test_examples_are_valid(self):
        for file in (ONE_SENSOR, TWO_SENSORS):
            self.assertTrue(self.succeeds("validate", file).startswith(f"{file}: valid configuration\ngroup 1, item 1, sensor 1: "))
            about = json.loads(self.succeeds("validate", file, "--json"))
            self.assertEqual((about["valid"], about["faults"], about["figures"]["warnings"]), (True, [], []))

    def test_a_fault_is_reported_with_its_place_and_what_is_allowed(self):
        configuration = example("single_sensor.json")
        configuration["groups"][0][0]["config"]["profile"] = 6
        file = self.write("wrong.json", configuration)
        result = vantor("validate", file)
        self.assertEqual(result.returncode, 3)
        self.assertIn("/groups/0/0/config/profile: got 6; allowed: ", result.stdout)
        self.assertIn("nearest: 5", result.stdout)
        result = vantor("validate", file, "--json")
        self.assertEqual(result.returncode, 3)
        fault, = json.loads(result.stdout)["faults"]
        self.assertEqual(fault["pointer"], "/groups/0/0/config/profile")

    def test_no_file(self):
        self.fails(3, "nothing.json", "validate", "nothing.json")


class Plan(CommandTest):
    def test_from_a_wish_to_a_picture(self):
        wish = ("plan", "--distance", "5 m", "--output", "config.json", "--resolution")
        result = vantor(*wish, "1 cm", cwd=self.folder)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertRegex(result.stderr, r"^vantor: resolution 0\.01 m is not possible.*; the nearest is [\d.]+ m\n$")
        self.assertFalse(os.path.exists(self.path("config.json")))
        nearest = result.stderr.rpartition("nearest is ")[2].strip()
        self.succeeds(*wish, nearest)
        self.succeeds("record", "config.json", "--frames", 5, "--output", "recording", "--connect", FAST)
        self.succeeds("plot", "recording")
        self.assertTrue(any(name.endswith(".png") for name in os.listdir(self.path("recording"))))

    def test_a_server_reports_what_it_knows(self):
        figures = json.loads(self.succeeds("plan", TWO_SENSORS, "--json", "--connect", FAST))["figures"]
        self.assertEqual(figures["assumed"], ["sweep_s", "frame_s", "max_frame_rate", "expected_frame_rate",
                                              "lasting_frame_rate"])
        self.assertGreater(figures["memory_bytes"], figures["payload_bytes"])


class Record(CommandTest):
    def test_a_new_directory_by_default(self):
        output = self.succeeds("record", ONE_SENSOR, "--frames", "3", "--connect", FAST)
        recording = self.path(output.rpartition("recording: ")[2].strip())
        self.assertEqual(os.path.dirname(recording), self.path("recordings"))
        check_recording(recording)

    def test_a_number_of_seconds(self):
        start = time.monotonic()
        summary = json.loads(self.succeeds("record", ONE_SENSOR, "--seconds", "0.3", "--connect", FAST, "--output",
                                           self.path("timed"), "--json"))
        self.assertGreaterEqual(time.monotonic() - start, 0.3)
        self.assertGreater(summary["frames"], 0)
        self.assertEqual(len(self.data(self.path("timed"))), 2 * summary["frames"] * 8 * 160)

    def test_summary_in_json(self):
        summary = json.loads(self.succeeds("record", TWO_SENSORS, "--frames", "5", "--connect", FAST, "--output",
                                           self.path("r"), "--json"))
        self.assertEqual((summary["frames"], summary["interrupted"], summary["messages_damaged"]), (5, False, 0))
        self.assertEqual(summary["bytes"], 5 * 4 * sum(item["samples_per_frame"] for item in summary["items"]))
        # The second item has its echo at 0.5 m at an edge.
        for item, distance in zip(summary["items"], (0.5, 3.5, 0.5), strict=True):
            self.assertAlmostEqual(item["strongest_echo_m"], distance, delta=0.05)

    def test_nothing_is_overwritten(self):
        recording = self.record()
        before = bytes(self.data(recording))
        self.fails(7, "not empty", "record", TWO_SENSORS, "--frames", "1", "--connect", FAST, "--output", recording)
        self.assertEqual(bytes(self.data(recording)), before)

    def test_refused_configurations(self):
        wrong = self.write("wrong.json", {"groups": [[{"sensor_id": 77, "config": {}}]]})
        self.fails(5, "config_sensor_id", "record", wrong, "--frames", "1", "--connect", FAST)
        self.fails(3, "nothing.json", "record", "nothing.json", "--frames", "1", "--connect", FAST)
        self.assertFalse(os.path.exists(self.path("recordings")))

    def test_progress_on_a_terminal_only(self):
        # At 20 frames a second, none of which is early, they take longer than the time to the first line.
        arguments = [VANTOR, "record", ONE_SENSOR, "--frames", "8", "--output"]
        quiet = subprocess.run([*arguments, self.path("quiet")], capture_output=True, timeout=TIME_OUT, check=True)
        self.assertEqual(quiet.stderr, b"")
        ours, terminal = self.open_terminal()
        subprocess.run([*arguments, self.path("loud")], stdout=subprocess.PIPE, stderr=terminal, timeout=TIME_OUT,
                       check=True)
        self.read_until(ours, r"\r\d of 8 frames, [\d.]+ frames/s, \d+ s left")


class Calibrate(CommandTest):
    def test_a_session_with_a_calibration_does_not_calibrate(self):
        scene = self.write("scene.json", {"faults": [{"kind": "failing_calibration", "sensor": number}
                                                     for number in (1, 2)]})
        refusing = f"{FAST} --scene {scene}"
        self.fails(5, "nox_sensor_calibration", "record", TWO_SENSORS, "--frames", "2", "--connect", refusing)

        file = self.path("calibration.json")
        output = self.succeeds("calibrate", "--output", file, "--sensor", "1", "--sensor", "2", "--connect", FAST)
        self.assertRegex(output, r"sensor 1 calibrated at \d+ degrees\nsensor 2 calibrated at \d+ degrees\n")
        self.succeeds("record", TWO_SENSORS, "--frames", "2", "--connect", refusing, "--calibration", file, "--output",
                      self.path("r"))
        check_recording(self.path("r"))
        with open(file, encoding="utf-8") as text:
            made = {entry["sensor_id"]: entry["data"] for entry in json.load(text)["calibration_info"]}
        with open(self.path("r", "session.sigmf-collection"), encoding="utf-8") as text:
            used = json.load(text)["collection"]["vantor:metadata"]["calibration_info"]
        self.assertEqual({entry["sensor_id"]: entry["data"] for entry in used}, made)

    def test_all_connected_sensors_by_default(self):
        output = self.succeeds("calibrate", "--output", self.path("c.json"), "--connect", "sim:--sensors 3")
        self.assertEqual(output.count("calibrated at"), 3)

    def test_faults(self):
        self.fails(1, "Sensor 9 is not connected", "calibrate", "--output", self.path("c.json"), "--sensor", "9")
        self.fails(7, "/dev/null", "calibrate", "--output", "/dev/null/c.json", "--connect", FAST)
        self.fails(3, "nothing.json", "record", ONE_SENSOR, "--frames", "1", "--calibration", "nothing.json")


class Info(CommandTest):
    def test_what_a_recording_contains(self):
        recording = self.record(frames=7)
        self.assertIn("7 frames, started ", self.succeeds("info", recording))
        about = json.loads(self.succeeds("info", recording, "--json"))
        self.assertEqual((about["frames"], about["complete"], about["sensor"]), (7, True, "k330"))
        self.assertEqual([item["samples_per_frame"] for item in about["items"]], [480, 440, 120])
        self.assertEqual([item["frames_missing"] for item in about["items"]], [0, 0, 0])

    def test_no_recording(self):
        self.fails(3, "does not exist: give the directory of a recording", "info", self.path("nothing"))


class Plot(CommandTest):
    def test_a_picture(self):
        recording = self.record(frames=30)
        self.succeeds("plot", recording)
        self.succeeds("plot", recording, "--output", self.path("other.png"), "--distance", "0.6")
        for file in (os.path.join(recording, "picture.png"), self.path("other.png")):
            with open(file, "rb") as picture:
                head = picture.read(24)
            self.assertEqual(head[:8], b"\x89PNG\r\n\x1a\n")
            width, height = struct.unpack(">II", head[16:])
            self.assertTrue(width > 800 and height > 600, f"{width} x {height}")

    def test_faults(self):
        self.fails(3, "does not exist: give the directory of a recording", "plot", self.path("nothing"))
        recording = self.record()
        self.fails(7, "/dev/null", "plot", recording, "--output", "/dev/null/picture.png")
        self.fails(2, "--distance 9.000 m is outside the recording, which has 0.200 to ", "plot", recording,
                   "--distance", "9")

    def test_pages(self):
        items = [{"sensor_id": 1, "config": {"num_points": 10}}]
        eight = self.write("eight.json", {"max_update_rate": 50, "groups": [items] * 8})
        recording = self.record(eight)
        pages = [os.path.join(recording, name) for name in ("picture.png", "picture-2.png")]
        self.assertEqual(self.succeeds("plot", recording), "".join(f"picture: {page}\n" for page in pages))
        drawn = json.loads(self.succeeds("plot", recording, "--json"))
        self.assertEqual(drawn, {"picture": pages[0], "pages": pages, "warnings": []})

    def test_memory(self):
        item = {"sensor_id": 1, "config": {"num_points": 3760, "hwaas": 1}}
        recording = self.record(self.write("long.json", {"update_rate": 20, "groups": [[item]]}), frames=400)
        os.mkdir(self.path("bin"))
        os.symlink(shutil.which("false"), self.path("bin", "gnuplot"))
        # Without gnuplot, whose memory would count.
        process = subprocess.Popen([VANTOR, "plot", recording], env={**os.environ, "PATH": self.path("bin")},
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(process.returncode, 1)
        if not has_sanitizers():
            self.assertLess(usage.ru_maxrss, 64 * 1024)

    def test_warnings(self):
        scene = self.write("scene.json", {"temperatures": [{"celsius": 20, "drift_celsius_per_s": 30}]})
        recording = self.record(ONE_SENSOR, frames=40, where=f"sim:--clock virtual --scene {scene}")
        result = vantor("plot", recording, cwd=self.folder)
        self.assertEqual(result.returncode, 0)
        self.assertRegex(result.stderr, r"^vantor: warning: calibration needed: \d+ of 40 frames of group 1, item 1; ")

    def test_motion_that_is_aliased(self):
        scene = self.write("scene.json", {"targets": [{"distance_m": 0.6, "strength_m2": 0.1, "velocity_m_s": 0.05}]})
        recording = self.record(ONE_SENSOR, frames=40, where=f"sim:--clock virtual --scene {scene}")
        result = vantor("plot", recording, cwd=self.folder)
        self.assertEqual(result.returncode, 0)
        self.assertRegex(result.stderr, r"^vantor: warning: Sensor 1 .*aliased: an echo moves at about \+0\.050\d? m/s, "
                         r"beyond ±0\.0250 m/s between frames\.\n$")

    def replace_gnuplot(self, commands):
        """Writes a program of this name; returns the environment in which it is found."""
        with open(self.path("gnuplot"), "w", encoding="ascii") as program:
            program.write("#!/bin/sh\n" + commands)
        os.chmod(self.path("gnuplot"), 0o755)
        return {**os.environ, "PATH": f"{self.folder}:{os.environ['PATH']}"}

    def test_messages_of_gnuplot_do_not_control_the_terminal(self):
        recording = self.record()
        variables = self.replace_gnuplot("printf '\\n  \\033[31mno\\n'; printf 'font\\302\\233' >&2; exit 1\n")
        result = vantor("plot", recording, env=variables)
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertEqual(result.stderr, "vantor: gnuplot failed to draw the picture: ?[31mno font?\n")
        variables = self.replace_gnuplot(f"echo no font >&2; exec {shutil.which('gnuplot')} \"$@\"\n")
        result = vantor("plot", recording, env=variables)
        self.assertEqual((result.returncode, result.stderr), (0, "vantor: warning: gnuplot: no font\n"))

    def test_settings_of_the_user_do_not_change_the_picture(self):
        recording = self.record()
        with open(self.path(".gnuplot"), "w", encoding="ascii") as settings:
            settings.write("exit status 1\n")
        for variables in ({"HOME": self.folder}, {"GNUTERM": "no such terminal"}):
            with self.subTest(variables):
                self.assertEqual(vantor("plot", recording, env={**os.environ, **variables}).returncode, 0)

    def test_a_signal_removes_the_temporary_files(self):
        recording = self.record()
        os.mkdir(self.path("scratch"))
        variables = self.replace_gnuplot("trap '' TERM; : >\"$STARTED\"; exec sleep 1000\n")
        variables |= {"TMPDIR": self.path("scratch"), "STARTED": self.path("started")}
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number), subprocess.Popen([VANTOR, "plot", recording], stdout=subprocess.PIPE,
                                                        stderr=subprocess.PIPE, text=True, env=variables) as process:
                self.addCleanup(process.kill)
                wait_until(lambda: os.path.exists(self.path("started")), "gnuplot")
                os.remove(self.path("started"))
                self.assertEqual(len(os.listdir(self.path("scratch"))), 1)
                process.send_signal(number)
                output, errors = process.communicate(timeout=TIME_OUT)
                self.assertEqual((process.returncode, output, errors), (130, "interrupted; no picture was written\n", ""))
                self.assertEqual(os.listdir(self.path("scratch")), [])
                self.assertFalse(os.path.exists(os.path.join(recording, "picture.png")))


class Export(CommandTest):
    def test_numpy_arrays(self):
        recording = self.record()
        files = self.succeeds("export", recording, "--format", "npy").splitlines()
        self.assertEqual([os.path.basename(file) for file in files],
                         ["group-1-item-1.npy", "group-1-item-2.npy", "group-2-item-1.npy"])
        for file, shape in zip(files, ((10, 4, 120), (10, 2, 220), (10, 1, 120))):
            exported = numpy.load(file)
            self.assertEqual(exported.shape, shape)
            recorded = numpy.array(self.data(recording, os.path.splitext(os.path.basename(file))[0]), dtype="f4")
            numpy.testing.assert_array_equal(exported.ravel(), recorded.view("c8"))

    def column(self, recording, name, item="group-1-item-1"):
        """The cells of a column of a frame table."""
        with open(os.path.join(recording, item + ".frames.csv"), encoding="ascii", newline="") as file:
            return [row[name] for row in csv.DictReader(file)]

    def test_numpy_archives(self):
        recording = self.record()
        item = "group-1-item-2"
        files = self.succeeds("export", recording, "--format", "npz", "--output", self.path("archives")).splitlines()
        self.assertEqual(files[1], self.path("archives", item + ".npz"))
        self.succeeds("export", recording, "--format", "npy", "--output", self.path("arrays"))
        with zipfile.ZipFile(files[1]) as archive:
            self.assertIsNone(archive.testzip())
        with numpy.load(files[1]) as exported:
            numpy.testing.assert_array_equal(exported["samples"], numpy.load(self.path("arrays", item + ".npy")))
            steps = [*range(60, 60 + 2 * 60, 2), *range(180, 180 + 6 * 100, 6), *range(780, 780 + 12 * 60, 12)]
            numpy.testing.assert_allclose(exported["distance_m"], 0.0025 * numpy.array(steps))
            for name, kind in (("time_s", float), ("tick", int), ("temperature", int), ("data_saturated", int),
                               ("frame_delayed", int), ("calibration_needed", int)):
                numpy.testing.assert_array_equal(exported[name], [kind(cell) for cell in
                                                                  self.column(recording, name, item)])
        with numpy.load(files[0]) as exported:
            numpy.testing.assert_array_equal(exported["data_valid"], [cell == "1" for cell in
                                                                      self.column(recording, "data_valid")])

    def test_tables(self):
        recording = self.record(frames=3)
        files = self.succeeds("export", recording, "--format", "csv", "--output", self.path("tables")).splitlines()
        self.assertEqual(files[0], self.path("tables", "group-1-item-1.csv"))
        with open(files[0], encoding="ascii") as file:
            head, *rows = [line.strip().split(",") for line in file]
        self.assertEqual(head, ["frame", "sweep", "point", "distance_m", "real", "imag", "time_s", "missing",
                                "utc_s", "utc_bound_s"])
        self.assertEqual([(int(row[0]), int(row[1]), int(row[2])) for row in rows],
                         [(frame, sweep, point) for frame in range(3) for sweep in range(4) for point in range(120)])
        self.assertEqual([int(part) for row in rows for part in row[4:6]], list(self.data(recording)))
        times = self.column(recording, "time_s")
        self.assertEqual({row[7] for row in rows}, {"0"})
        self.assertEqual([row[6] for row in rows], [time for time in times for _ in range(4 * 120)])
        for point, row in enumerate(rows[:120]):
            self.assertAlmostEqual(float(row[3]), (80 + 6 * point) * 0.0025, places=6)

    def test_no_recording(self):
        self.fails(3, "does not exist: give the directory of a recording", "export", self.path("nothing"),
                   "--format", "csv")


class Replay(CommandTest):
    @contextlib.contextmanager
    def replay(self, recording, *options, hosts=1):
        """Replays a recording to some hosts; yields the address."""
        with subprocess.Popen([VANTOR, "replay", recording, "--hosts", str(hosts), *options], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True) as process:
            try:
                yield process.stdout.readline().removeprefix("listening on ").strip()
                _, errors = process.communicate(timeout=TIME_OUT)
            finally:
                process.kill()
            self.assertEqual((process.returncode, errors), (0, ""))

    def test_a_recording_of_the_replay_is_the_recording(self):
        original = self.record(frames=20, where="sim:")
        with self.replay(original, "--speed", "max") as address:
            copy = self.path("copy")
            self.succeeds("record", "--frames", 20, "--connect", address, "--output", copy)
        for name in ("group-1-item-1", "group-1-item-2", "group-2-item-1"):
            self.assertEqual(self.data(copy, name), self.data(original, name))
            tables = []
            for recording in (original, copy):
                with open(os.path.join(recording, name + ".frames.csv"), encoding="ascii") as file:
                    tables.append(file.read())
            self.assertEqual(tables[0], tables[1])
            self.assertNotIn(",,\n", tables[0], "times in UTC")
        check_recording(copy)

    def test_another_configuration_is_refused(self):
        document = example("two_sensors.json")
        document["groups"][1][0]["config"]["start_point"] = 600
        with self.replay(self.record()) as address:
            self.fails(5, "/groups/1/0/config/start_point is 600, but in the recording it is ", "record",
                       self.write("other.json", document), "--frames", 1, "--connect", address)

    def test_another_host_is_turned_away(self):
        with self.replay(self.record()) as address:
            name, _, port = address.removeprefix("tcp:").rpartition(":")
            with socket.create_connection((name, int(port)), TIME_OUT) as host:
                host.sendall(b'{"command":"ping"}\n')
                self.assertIn(b"ping", host.recv(65536))
                self.fails(5, "busy", "identify", "--connect", address)

    def test_progress_on_a_terminal(self):
        ours, terminal = self.open_terminal()
        with subprocess.Popen([VANTOR, "replay", self.record(), "--hosts", "1"], stdout=subprocess.PIPE,
                              stderr=terminal, text=True) as process:
            self.addCleanup(process.kill)
            address = process.stdout.readline().removeprefix("listening on ").strip()
            # At 50 frames a second, none of which is early, they take longer than the time between two lines.
            self.record(frames=15, name="copy", where=address)
        self.read_until(ours, r"\r[1-9]\d* frames, [\d.]+ frames/s")

    def ends_at_signal(self, number, hosts):
        """A signal ends a replay, also in the background of a script, where the shell ignores Ctrl-C."""
        with subprocess.Popen([VANTOR, "replay", self.record(frames=2, name=f"r{number}-{hosts}")],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_IGN)) as process:
            self.addCleanup(process.kill)
            address = process.stdout.readline().removeprefix("listening on tcp:").strip()
            name, _, port = address.rpartition(":")
            for _ in range(hosts):
                host = self.enterContext(socket.create_connection((name, int(port)), TIME_OUT))
                host.sendall(b'{"command":"ping"}\n')
                self.assertIn(b"ping", host.recv(65536))
            process.send_signal(number)
            output, errors = process.communicate(timeout=TIME_OUT)
        self.assertEqual((process.returncode, output, errors), (0, f"stopped; hosts served: {hosts}\n", ""))

    def test_signals_end_it(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            for hosts in (0, 1):
                with self.subTest(number, hosts=hosts):
                    self.ends_at_signal(number, hosts)

    def test_faults(self):
        self.fails(3, "does not exist: give the directory of a recording", "replay", self.path("nothing"))
        with socket.create_server(("127.0.0.1", 0)) as taken:
            self.fails(1, "another port", "replay", self.record(), "--tcp", taken.getsockname()[1])


class Completion(CommandTest):
    def complete(self, *words):
        """The completions that the bash script offers after some words."""
        script = ('source <("$1" completion bash); shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _vantor; '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        result = subprocess.run(["bash", "-c", script, "bash", VANTOR, *words], capture_output=True, text=True,
                                timeout=TIME_OUT, check=True, cwd=EXAMPLES)
        self.assertEqual(result.stderr, "")
        return result.stdout.split()

    def test_bash_completes_commands_options_and_files(self):
        for command in COMMANDS:
            self.assertIn(command, self.complete("vantor", ""))
        self.assertEqual(self.complete("vantor", "re"), ["record", "repair", "replay"])
        self.assertEqual(self.complete("vantor", "record", "--fr"), ["--frames"])
        self.assertEqual(self.complete("vantor", "record", "single"), ["single_sensor.json"])

    def typed(self, line):
        """The arguments of the command that is executed when a line with tabs is typed in an interactive bash."""
        device, terminal = pty.openpty()
        self.addCleanup(os.close, device)
        setup = ('source <("$VANTOR_PROGRAM" completion bash); '
                 """vantor() { printf '%s\\n' "$@" > arguments; exit; }\n""")
        shell = subprocess.Popen(["bash", "--norc", "--noprofile", "-i"], stdin=terminal, stdout=terminal,
                                 stderr=terminal, cwd=self.folder, start_new_session=True,
                                 env={**os.environ, "VANTOR_PROGRAM": VANTOR, "INPUTRC": "/dev/null", "TERM": "dumb"})
        os.close(terminal)
        os.write(device, f"{setup}vantor {line}\n".encode())
        with contextlib.suppress(OSError):
            while select.select([device], [], [], TIME_OUT)[0] and os.read(device, 4096):
                pass
        shell.wait(TIME_OUT)
        with open(self.path("arguments"), encoding="utf-8") as file:
            return file.read().splitlines()

    def test_an_interactive_bash_completes_addresses(self):
        self.write("my scene.json", {"faults": [{"kind": "absent_sensor", "sensor": 1}]})
        os.makedirs(self.path("sub", "radar"))
        for line, address in (("un\tsu\tra\t", "unix:sub/radar/"), ("tc\t[::1]:80", "tcp:[::1]:80"),
                              ("un\t" + self.path("su") + "\t", "unix:" + self.path("sub/")),
                              ('"unix:sub/ra\t', "unix:sub/radar/")):
            with self.subTest(line):
                self.assertEqual(self.typed("identify --conn\t" + line), ["identify", "--connect", address])
        for line in ("si\t--s\tmy\t", '"sim:--scene my\t', "'sim:--scene=my\t"):
            with self.subTest(line):
                arguments = self.typed("identify --connect " + line)
                self.assertIn("connected: 2;", self.succeeds(*arguments[:-1], arguments[-1] + " --sensors 2"))

    def test_other_shells(self):
        self.assertTrue(self.succeeds("completion", "zsh").startswith("#compdef vantor\n"))
        fish = self.succeeds("completion", "fish")
        for command in COMMANDS:
            self.assertIn(f" -a {command} ", fish)


if __name__ == "__main__":
    unittest.main()
