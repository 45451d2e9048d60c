"""The truth of simulated sensors: written by the server, recorded, and compared with detections."""

import cmath
import contextlib
import itertools
import json
import math
import os
import resource
import shutil
import signal
import struct
import subprocess
import tempfile
import unittest

from vantor_process import SERVER, TIME_OUT, VANTOR, Server, vantor, wait_until

BASE_STEP_M = 0.0025


def single(value):
    """A document with its numbers in single precision, as the server stores them."""
    if isinstance(value, dict):
        return {key: single(member) for key, member in value.items()}
    if isinstance(value, list):
        return [single(member) for member in value]
    return struct.unpack("f", struct.pack("f", value))[0] if isinstance(value, (int, float)) else value


def largest_scene():
    """A scene with as many entries as it can have, all of them with long numbers."""
    numbers = (-float(f"0.1234{index:05}") for index in itertools.count(1))

    def entry(*names):
        return {name: next(numbers) for name in names}

    def target(index):
        return {"strength_m2": 0.123456789, "oscillation_amplitude_m": 0.0123456789,
                "oscillation_frequency_hz": 0.123456789, "leave_s": 123456.789, "fluctuation": "swerling_3",
                "x_m": next(numbers), "y_m": 1.12345678 + index, "z_m": next(numbers),
                **entry("x_velocity_m_s", "y_velocity_m_s", "z_velocity_m_s"), "body": 64,
                "oscillations": [{**entry("amplitude_m", "phase_turns", "amplitude_x_m", "amplitude_y_m",
                                          "amplitude_z_m"),
                                  "frequency_hz": 12.3456789, "wander_turns": 0.123456789,
                                  "wander_frequency_hz": 0.0123456789} for _ in range(4)],
                "track": [{"time_s": time + 0.12345678, **entry("x_m", "y_m", "z_m")} for time in range(16)]}

    return {"targets": [target(index) for index in range(64)],
            "interferers": [{"strength": 0.0123456789, "start_s": 1.12345678} for _ in range(8)],
            "temperatures": [{"celsius": 25.1234567}],
            "faults": [{"sensor": 2, "kind": "failing_calibration", "skip": 100000000} for _ in range(16)],
            "hardware": [{"phase_noise_rad_per_m": 0.0123456789, "phase_drift_rad_per_m": 0.00123456789,
                          "sidelobe_level": 0.0123456789, "ringing_level": 0.0123456789,
                          "delay_drift_mm_per_k": -0.123456789, "gain_drift_per_k": -0.00123456789,
                          "bursts_per_s": 0.123456789, "burst_s": 0.0123456789, "burst_strength": 12.3456789}
                         for _ in range(64)],
            "sensors": [entry("x_m", "y_m", "z_m", "direction_x", "direction_z") | {"direction_y": 0.987654321}
                        for _ in range(64)]}


def lines_of(path):
    """The lines of a file, as JSON."""
    with open(path, encoding="utf-8") as file:
        return [json.loads(line) for line in file]


def reads(process, path):
    """Whether a process has a file open."""
    folder = f"/proc/{process.pid}/fd"
    opened = set()
    for name in os.listdir(folder):
        with contextlib.suppress(FileNotFoundError):
            opened.add(os.readlink(os.path.join(folder, name)))
    return os.path.realpath(path) in opened


class TruthTest(unittest.TestCase):
    """A directory with a scene and a configuration."""

    SCENE = {"targets": [{"distance_m": 0.5, "strength_m2": 0.05, "velocity_m_s": 0.05},
                         {"distance_m": 1.1, "strength_m2": 2, "sensor": 1},
                         {"distance_m": 9, "strength_m2": 100}],
             "hardware": "ideal"}
    CONFIG = {"update_rate": 100,
              "groups": [[{"sensor_id": 1, "config": {"start_point": 100, "num_points": 400, "profile": 2,
                                                      "receiver_gain": 8, "hwaas": 64}},
                          {"sensor_id": 2, "config": {"start_point": 100, "num_points": 200}}],
                         [{"sensor_id": 1, "config": {"start_point": 40, "num_points": 100}}]]}

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.truth = self.path("truth.jsonl")
        self.scene = self.write("scene.json", self.SCENE)
        self.config = self.write("config.json", self.CONFIG)

    def path(self, name):
        """A path in the directory."""
        return os.path.join(self.folder, name)

    def write(self, name, document):
        """Writes a JSON document."""
        with open(self.path(name), "w", encoding="utf-8") as file:
            json.dump(document, file)
        return self.path(name)

    def server(self, *arguments):
        """A server that writes the truth."""
        return Server("--tcp", "0", "--clock", "virtual", "--sensors", "2", "--scene", self.scene, "--seed", "7",
                      "--truth", self.truth, *arguments)

    def succeed(self, *arguments):
        """Runs a command that must succeed."""
        result = vantor(*arguments)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout


class Files(TruthTest):
    def test_every_line_is_there_before_its_frame(self):
        with self.server() as server, server.connect() as host:
            self.assertEqual(lines_of(self.truth), [])
            identities = set()
            for session in (1, 2):
                host.ask("configure", configuration=self.CONFIG)
                lines = lines_of(self.truth)
                identity = lines[-1].pop("id")
                self.assertRegex(identity, "^[0-9a-f]{16}$")
                identities.add(identity)
                self.assertEqual(lines[-1], {"session": session, "seed": 7, "clock": "virtual", "sensors": 2,
                                             "scene": {**self.SCENE, "interferers": [], "temperatures": [],
                                                       "faults": [], "sensors": []}})
                for _ in range(3):
                    frame = host.ask("frame")
                    written = lines_of(self.truth)
                    ticks = [item["tick"] for group in frame["result_info"] for item in group]
                    self.assertEqual([(line["session"], line["id"], line["sensor"], line["tick"])
                                      for line in written[-3:]],
                                     list(zip([session] * 3, [identity] * 3, [1, 2, 1], ticks)))
                    self.assertEqual(len(written), len(lines) + 3)
                    lines = written
                    self.assertEqual([target["target"] for target in written[-2]["targets"]], [0, 2])
                host.ask("end")
            self.assertEqual(len(identities), 2)

    def test_the_default_scene_is_written_out(self):
        with Server("--tcp", "0", "--truth", self.truth) as server, server.connect() as host:
            host.ask("configure", configuration=self.CONFIG)
            scene = lines_of(self.truth)[0]["scene"]
            self.assertEqual(scene["targets"][1], {"distance_m": 1.2, "strength_m2": 0.5,
                                                   "oscillation_amplitude_m": 0.004,
                                                   "oscillation_frequency_hz": 0.25})
            self.assertEqual(scene["hardware"][0]["sidelobe_level"], 0.02)

    def test_the_targets_of_a_body_have_its_number(self):
        scene = self.write("bodies.json", {"targets": [{"distance_m": 1, "strength_m2": 1}],
                                           "bodies": [{"kind": "fan", "distance_m": 2, "points": 2}]})
        with Server("--tcp", "0", "--truth", self.truth, "--scene", scene) as server, server.connect() as host:
            host.ask("configure", configuration=self.CONFIG)
            host.ask("frame")
            session, *frames = lines_of(self.truth)
            self.assertEqual([target.get("body") for target in session["scene"]["targets"]], [None, 1, 1])
            self.assertEqual([target.get("body") for target in frames[0]["targets"]], [None, 1, 1])

    def test_ideal_sensors_have_no_hardware(self):
        disturbed = self.write("disturbed.json", {"hardware": [{"ringing_level": 0.5}]})
        for arguments in ([], ["--scene", disturbed]):
            with Server("--tcp", "0", "--truth", self.truth, "--ideal", *arguments) as server, \
                    server.connect() as host:
                host.ask("configure", configuration=self.CONFIG)
                self.assertEqual(lines_of(self.truth)[0]["scene"]["hardware"], "ideal")

    def test_a_file_that_cannot_be_written_is_refused(self):
        pipe = self.path("pipe")
        os.mkfifo(pipe)
        for path, reason in ((self.folder, "Is a directory"), (self.path("missing/file"), "No such file or directory"),
                             ("/dev/null", "it is not a regular file"), (pipe, "it is not a regular file")):
            self.assertIn(f'cannot write the truth to "{path}": {reason}', self.refusal("--truth", path))

    def refusal(self, *arguments):
        """Why a server does not start."""
        result = subprocess.run([SERVER, "--stdio", *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                                text=True, timeout=TIME_OUT, check=False)
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        return result.stderr

    def test_a_file_of_another_server_is_refused_and_not_changed(self):
        with self.server() as server, server.connect() as host:
            host.ask("configure", configuration=self.CONFIG)
            before = lines_of(self.truth)
            link = self.path("link.jsonl")
            os.symlink(self.truth, link)
            for path in (self.truth, link):
                self.assertIn(f'cannot write the truth to "{path}": it is used by another vantor_server',
                              self.refusal("--truth", path))
            self.assertEqual(lines_of(self.truth), before)
        with self.server():
            self.assertEqual(lines_of(self.truth), [])

    def test_only_a_truth_file_is_replaced(self):
        track = self.path("track.csv")
        link = self.path("link.csv")
        for path, text in ((track, "time_s,distance_m\n0,1\n"), (self.path("short"), "{")):
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
        os.link(track, link)
        for path in (self.scene, track, link, self.path("short")):
            with open(path, "rb") as file:
                before = file.read()
            self.assertIn(f'cannot write the truth to "{path}": it has other content, which would be lost; give another '
                          "name, or remove it", self.refusal("--scene", self.scene, "--truth", path))
            with open(path, "rb") as file:
                self.assertEqual(file.read(), before)

    def test_a_full_disk_is_reported_once_and_does_not_stop_frames(self):
        process = subprocess.Popen([SERVER, "--stdio", "--clock", "virtual", "--truth", self.truth],
                                   stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                   preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (2000, 2000)))
        commands = [{"command": "configure", "configuration": self.CONFIG}] + [{"command": "frame"}] * 30
        errors = process.communicate("".join(json.dumps(command) + "\n" for command in commands).encode(),
                                     timeout=TIME_OUT)[1].decode()
        self.assertEqual(process.returncode, 0)
        self.assertEqual(errors.count("Cannot write the truth: "), 1, errors)
        self.assertGreater(len(lines_of(self.truth)), 2)
        self.assertLess(os.path.getsize(self.truth), 2001)


class Recordings(TruthTest):
    def check_recording(self, recording, frames):
        """Checks that a recording has the truth of all frames, which is that of its samples."""
        about = json.loads(self.succeed("info", recording, "--json"))
        self.assertEqual((about["frames"], about["truth"]["frames"], about["damage"]), (frames, frames, []))
        lines = lines_of(os.path.join(recording, "truth.jsonl"))
        self.assertEqual(len(lines), 1 + 3 * frames)
        with open(os.path.join(recording, "group-1-item-1.sigmf-data"), "rb") as file:
            samples = [complex(*pair) for pair in struct.iter_unpack("<hh", file.read())]
        for line in lines[1:]:
            if (line["group"], line["item"]) != (1, 1):
                continue
            for target in line["targets"][:2]:
                point = round(target["distance_m"] / BASE_STEP_M) - 100
                sample = samples[400 * line["frame"] + point]
                # Responses of profile 2 are 0.11 m wide, so the targets do not disturb each other.
                deviation = 5 * math.sqrt(line["noise_power"]) + 0.01 * target["amplitude"]
                self.assertLess(abs(abs(sample) - target["amplitude"]), deviation, line)
                turn = math.remainder(cmath.phase(sample) - target["phase_rad"], 2 * math.pi)
                self.assertLess(abs(turn), deviation / target["amplitude"] + 0.02, line)

    def test_a_private_server_has_a_truth(self):
        recording = self.path("private")
        self.succeed("record", self.config, "--frames", 40, "--output", recording, "--connect",
                     f"sim:--clock virtual --scene {self.scene} --sensors 2")
        self.check_recording(recording, 40)
        source = json.loads(self.succeed("info", recording, "--json"))["source"]
        self.assertNotIn("--truth", source["address"])

    def test_another_server_has_one_if_the_file_is_given(self):
        with self.server() as server:
            for name in ("first", "second"):
                recording = self.path(name)
                self.succeed("record", self.config, "--frames", 40, "--output", recording, "--connect", server.address,
                             "--truth", self.truth)
                self.check_recording(recording, 40)
            other = self.path("none")
            self.succeed("record", self.config, "--frames", 2, "--output", other, "--connect", server.address)
            self.assertFalse(os.path.exists(os.path.join(other, "truth.jsonl")))
            result = vantor("record", self.config, "--frames", 2, "--output", self.path("x"), "--connect",
                            server.address, "--truth", self.scene)
            self.assertEqual(result.returncode, 3)
            self.assertIn("does not have the truth of this session", result.stderr)

    def test_the_file_of_an_earlier_server_is_not_the_truth(self):
        stale = self.path("stale.jsonl")
        with self.server() as server, server.connect() as host:
            host.ask("configure", configuration=self.CONFIG)
            # A session without frames is at the end of the file, as in that of a server that has just begun one.
            shutil.copy(self.truth, stale)
        with self.server() as server:
            result = vantor("record", self.config, "--frames", 2, "--output", self.path("x"), "--connect",
                            server.address, "--truth", stale)
            self.assertEqual(result.returncode, 3)
            self.assertIn("does not have the truth of this session", result.stderr)
            self.assertFalse(os.path.exists(self.path("x")))

    def test_a_sensor_that_drifts_is_calibrated_again_with_its_truth(self):
        drifting = self.write("drifting.json", {**self.SCENE, "temperatures": [
            {"celsius": 20, "drift_celsius_per_s": 50}]})
        recording = self.path("drifting")
        # A sensor asks after 0.3 s. On the virtual clock all frames could be on the way before the host stops them.
        self.succeed("record", self.config, "--frames", 400, "--recalibrate", "--output", recording, "--connect",
                     f"sim:--sensors 2 --scene {drifting}")
        about = json.loads(self.succeed("info", recording, "--json"))
        self.assertGreater(len(about["calibrations"]), 2)
        self.assertEqual(about["truth"]["frames"], 400)

    def test_commands_end_at_once_however_long_the_truth_is(self):
        recording = self.path("long")
        self.succeed("record", self.config, "--frames", 5, "--output", recording, "--connect",
                     f"sim:--clock virtual --sensors 2 --scene {self.scene}")
        detections = self.path("detections.csv")
        with open(detections, "w", encoding="utf-8") as file:
            file.write("frame,group,item,distance_m\n")
        truth = os.path.join(recording, "truth.jsonl")
        with open(truth, "a", encoding="utf-8") as file:
            file.write("\n" * 1000000)
        # A hole takes no space on the disk, but hours to read.
        os.truncate(truth, 1 << 40)
        for number, command in ((signal.SIGINT, ["score", recording, detections]),
                                (signal.SIGTERM, ["view", recording, "--no-browser"]),
                                (signal.SIGINT, ["export", recording, "--format", "truth"])):
            process = subprocess.Popen([VANTOR, *command], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            wait_until(lambda: reads(process, truth), f"{command[0]} to read the truth")
            process.send_signal(number)
            process.communicate(timeout=TIME_OUT)
            self.assertNotEqual(process.returncode, -number)

    def test_the_truth_is_exported(self):
        recording = self.path("exported")
        self.succeed("record", self.config, "--frames", 3, "--output", recording, "--connect",
                     f"sim:--clock virtual --sensors 2 --scene {self.scene}")
        files = json.loads(self.succeed("export", recording, "--format", "truth", "--json"))["files"]
        self.assertEqual(len(files), 3)
        with open(files[0], encoding="utf-8") as file:
            rows = file.read().splitlines()
        self.assertEqual(rows[0], "frame,tick,time_s,temperature,noise_power,interference,target,distance_m,"
                                  "velocity_m_s,amplitude,phase_rad,snr_db,body")
        self.assertEqual(len(rows), 1 + 3 * 3)
        first = lines_of(os.path.join(recording, "truth.jsonl"))[1]
        cells = rows[1].split(",")
        self.assertEqual((int(cells[0]), int(cells[1]), int(cells[6])), (0, first["tick"], 0))
        self.assertAlmostEqual(float(cells[7]), first["targets"][0]["distance_m"], 9)


class Largest(TruthTest):
    SCENE = largest_scene()

    def setUp(self):
        super().setUp()
        with open(self.scene, "w", encoding="utf-8") as file:
            json.dump(self.SCENE, file, separators=(",", ":"))

    def test_the_largest_scene_is_written_recorded_and_used_again(self):
        expected = single(self.SCENE)
        scene = self.scene
        for name in ("first", "second"):
            recording = self.path(name)
            self.succeed("record", self.config, "--frames", 5, "--output", recording, "--connect",
                         f"sim:--clock virtual --sensors 2 --seed 3 --scene {scene}")
            about = json.loads(self.succeed("info", recording, "--json"))
            self.assertEqual((about["truth"]["frames"], about["damage"]), (5, []))
            lines = lines_of(os.path.join(recording, "truth.jsonl"))
            self.assertEqual(single(lines[0]["scene"]), expected)
            self.assertEqual([len(line["targets"]) for line in lines[1:]], [64] * 3 * 5)
            self.succeed("export", recording, "--format", "truth")
            # The scene in the recording is a scene file.
            scene = self.path("again.json")
            with open(scene, "w", encoding="utf-8") as file:
                json.dump(lines[0]["scene"], file, separators=(",", ":"))
        for file in ("truth.jsonl", "group-1-item-1.sigmf-data"):
            with open(os.path.join(self.path("first"), file), "rb") as first, \
                    open(os.path.join(self.path("second"), file), "rb") as second:
                self.assertEqual(first.read(), second.read())
        self.assertGreater(os.path.getsize(scene), 2**17)


class Scores(TruthTest):
    def test_a_small_detector_finds_the_targets(self):
        recording = self.path("scored")
        frames = 50
        self.succeed("record", self.config, "--frames", frames, "--output", recording, "--connect",
                     f"sim:--clock virtual --sensors 2 --scene {self.scene}")
        with open(os.path.join(recording, "group-1-item-1.sigmf-data"), "rb") as file:
            levels = [math.hypot(*pair) for pair in struct.iter_unpack("<hh", file.read())]
        detections = self.path("detections.csv")
        with open(detections, "w", encoding="utf-8") as file:
            file.write("frame,group,item,distance_m\n")
            for frame in range(frames):
                sweep = levels[400 * frame:400 * (frame + 1)]
                for point in range(40, 399):
                    nearby = sweep[point - 40:point + 41]
                    if sweep[point] > 200 and nearby.index(max(nearby)) == 40:
                        file.write(f"{frame},1,1,{(100 + point) * BASE_STEP_M}\n")
            file.write("0,1,1,0.8\n")
        score = json.loads(self.succeed("score", recording, detections, "--json"))["items"][0]
        self.assertEqual((score["due"], score["detected"], score["false_alarms"]), (2 * frames, 2 * frames, 1))
        self.assertEqual([target["target"] for target in score["targets"]], [0, 1, 2])
        self.assertEqual(score["false_alarms_per_point"], 1 / (400 * frames))
        # The points are 2.5 mm apart, and noise moves the strongest one by some of them.
        self.assertLess(score["distance_error_rms_m"], 0.01)

    def test_a_body_is_one_thing(self):
        recording, detections, frames = self.path("bodies"), self.path("detections.csv"), 30
        scene = self.write("bodies.json", {"bodies": [{"kind": "fan", "distance_m": 0.6, "radius_m": 0.05},
                                                      {"kind": "clutter", "nearest_m": 0.8, "farthest_m": 1.2}]})
        self.succeed("record", self.config, "--frames", frames, "--output", recording, "--connect",
                     f"sim:--clock virtual --sensors 2 --scene {scene}")
        with open(detections, "w", encoding="utf-8") as file:
            file.write("frame,group,item,distance_m\n")
            for line in lines_of(os.path.join(recording, "truth.jsonl"))[1:]:
                if (line["group"], line["item"]) == (1, 1):
                    # All three blades, and the first thing of the clutter.
                    for target in line["targets"][:4]:
                        file.write(f"{line['frame']},1,1,{target['distance_m']}\n")

        def score(*options):
            return json.loads(self.succeed("score", recording, detections, "--gate", "0.005", "--json",
                                           *options))["items"][0]

        def figures(score):
            return [(target.get("body"), target.get("target"), target["due"], target["detected"])
                    for target in score["targets"] if target["due"] > 0]

        everything = score()
        # The things of the clutter are each one; the first one is detected.
        things = [(None, target, frames, frames if target == 3 else 0) for target in range(3, 11)]
        self.assertEqual(figures(everything), [*things, (1, None, frames, frames)])
        self.assertEqual((everything["detections_ignored"], everything["false_alarms"]), (2 * frames, 0))
        # The blades move at 0.63 m/s; of three, one has at least 0.5 m/s along the line of sight.
        moving = score("--min-speed", "0.5")
        self.assertEqual(figures(moving), [(1, None, frames, frames)])
        self.assertEqual((moving["detections_ignored"], moving["false_alarms"]), (2 * frames, frames))


if __name__ == "__main__":
    unittest.main()
