"""The effects of a scene on a host: echoes, interferers, faults, time."""

import json
import math
import os
import subprocess
import tempfile
import time
import unittest

from pace import SLOWER, TICKS_PER_SECOND, check_sensor_paced, tick_of
from vantor_process import EXAMPLES, SERVER, TIME_OUT, Server, vantor, wait_until


class SceneTest(unittest.TestCase):
    """Starts servers with scenes."""

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def scene_file(self, scene):
        """Writes a scene to a file."""
        path = os.path.join(self.folder, "scene.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump(scene, file)
        return path

    def server(self, scene, *arguments):
        """A server on the virtual clock with a scene."""
        return Server("--tcp", "0", "--clock", "virtual", "--sensors", "2", "--scene", self.scene_file(scene),
                      *arguments)


def configuration(item=None, **config):
    """A session with one item on sensor 1."""
    return {"groups": [[{"sensor_id": 1, "config": config, **(item or {})}]]}


class Boards(SceneTest):
    """Several servers that see one scene, each from its own place."""

    SCENE = {"hardware": "ideal",
             "sensors": [{"board": 1, "x_m": -1}, {"board": 2, "x_m": 1, "direction_x": -0.5}],
             "targets": [{"x_m": 0, "y_m": 2, "strength_m2": 1, "y_velocity_m_s": 0.01}]}

    def board(self, number, start):
        truth = os.path.join(self.folder, f"truth_{number}.jsonl")
        return truth, Server("--tcp", "0", "--scene", self.scene_file(self.SCENE), "--board", str(number),
                             "--scene-start", str(start), "--truth", truth)

    def test_see_it_at_the_same_time(self):
        start = time.time() - 100.0
        truths, servers = zip(*(self.board(number, start) for number in (1, 2)))
        with servers[0], servers[1], servers[0].connect() as first, servers[1].connect() as second:
            for host in (first, second, first):
                for _ in range(2):
                    host.ask("configure", configuration=configuration(num_points=10))
                    asked = time.time() - start
                    host.ask("frame")
                    answered = time.time() - start
                    line = self.last_line(truths[host is second])
                    self.assertGreater(line["time_s"], asked - 0.001)
                    self.assertLess(line["time_s"], answered + 0.001)
                    distance = math.hypot(1.0, 2.0 + 0.01 * line["time_s"])
                    self.assertAlmostEqual(line["targets"][0]["distance_m"], distance, 4)
                    host.ask("end")
        with open(truths[1], encoding="utf-8") as file:
            session = json.loads(file.readline())
        self.assertEqual(session["board"], 2)
        self.assertAlmostEqual(session["scene_start_s"], start, 1)
        self.assertEqual(session["scene"]["sensors"][0]["x_m"], 1)

    def test_a_scene_that_starts_with_the_server_goes_on_over_sessions(self):
        truth = os.path.join(self.folder, "truth.jsonl")
        times = []
        for _ in range(2):
            with self.server({"temperatures": [{"celsius": 20, "drift_celsius_per_s": 10}]}, "--truth", truth,
                             "--scene-start", "server") as server, server.connect() as host:
                for _ in range(3):
                    host.ask("configure", configuration=configuration({}, frame_rate=1))
                    for _ in range(3):
                        host.ask("frame")
                        line = self.last_line(truth)
                        times.append(line["time_s"])
                        self.assertAlmostEqual(line["temperature"], 20 + 10 * line["time_s"], delta=0.6)
                    host.ask("end")
        self.assertEqual(times[:9], sorted(times[:9]))
        self.assertGreater(times[8], 6.0)
        self.assertEqual(times[9:], times[:9], "the virtual clock repeats everything")

    @staticmethod
    def last_line(path):
        with open(path, encoding="utf-8") as file:
            return json.loads(file.read().splitlines()[-1])

    def test_are_refused_without_a_place_or_with_the_virtual_clock(self):
        for arguments, fault in (
                (["--board", "3"], "none for board 3; --board gives the number of this board"),
                ([], "none for board 0; --board gives the number of this board"),
                (["--board", "65536"], '--board: "65536" is not a whole number from 0 to 65535'),
                (["--board", "1", "--scene-start", "yesterday"],
                 '--scene-start: "yesterday" is neither "server" nor a number of seconds from 0 to 100000000000'),
                (["--board", "1", "--scene-start", "1", "--clock", "virtual"],
                 "--scene-start needs the real clock; remove --clock virtual"),
                (["--clock-error", "1000.5"], '--clock-error: "1000.5" is not a number from -1000 to 1000'),
                (["--clock-error", "fast"], '--clock-error: "fast" is not a number from -1000 to 1000'),
                (["--clock-error=-5", "--clock", "virtual"],
                 "--clock-error needs the real clock; remove --clock virtual"),
                (["--first-tick", "4294967296"],
                 '--first-tick: "4294967296" is not a whole number from 0 to 4294967295')):
            result = subprocess.run([SERVER, "--stdio", "--scene", self.scene_file(self.SCENE), *arguments],
                                    stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=TIME_OUT,
                                    check=False)
            self.assertIn(fault, result.stderr)
            self.assertNotEqual(result.returncode, 0)


class Files(SceneTest):
    def test_an_example_is_found_by_its_name(self):
        with Server("--tcp", "0", "--clock", "virtual", "--scene", "breathing_person"):
            pass
        self.assertIn('cannot read the scene "breathing": the file does not exist; the examples are breathing_person, ',
                      self.refusal("breathing"))

    def test_a_recording_may_have_the_name_of_its_scene(self):
        os.mkdir(os.path.join(self.folder, "visitor"))
        result = subprocess.run([SERVER, "--check-scene", "--scene", "visitor"], cwd=self.folder, capture_output=True,
                                text=True, timeout=TIME_OUT, check=False)
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def refusal(self, path):
        """The message for a scene that cannot be used."""
        result = subprocess.run([SERVER, "--stdio", "--scene", path], stdin=subprocess.DEVNULL, capture_output=True,
                                text=True, timeout=TIME_OUT, check=False)
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        return result.stderr

    def test_what_is_not_a_scene_file_is_refused(self):
        self.assertIn(f'cannot read the scene "{self.folder}": it is a directory; use a file\n', self.refusal(self.folder))
        missing = os.path.join(self.folder, "missing.json")
        self.assertIn(f'cannot read the scene "{missing}": No such file or directory\n', self.refusal(missing))
        pipe = os.path.join(self.folder, "pipe")
        os.mkfifo(pipe)
        for path in (pipe, "/dev/zero", "/dev/null"):
            self.assertIn(f'cannot read the scene "{path}": it is not a regular file\n', self.refusal(path))
        for content, fault in ((" " * (2**21 + 1), "it has more than 2 MiB\n"),
                               ("{}\0{", "the scene is not JSON: it has the byte 0x00 where it must have the end of the "
                                         "text (line 1, column 3)\n"),
                               ("", "the scene is not JSON: it has the end of the text where it must have a value "
                                    "(line 1, column 1)\n"),
                               ('{"targets": [{"distance_m": 1, "strength_m2": 1, "sensor": 6}]}',
                                "targets[0].sensor is 6, but the number of sensors on the board is 5 (line 1, column 60)\n")):
            path = os.path.join(self.folder, "scene.json")
            with open(path, "w", encoding="ascii") as file:
                file.write(content)
            self.assertIn(f'cannot use the scene "{path}": {fault}', self.refusal(path))


class Checks(SceneTest):
    """`vantor_server --check-scene` and `vantor validate`."""

    NO_PLACE = "sensors is only for targets with a place (x_m, y_m, z_m), and there is none: it has no effect."

    def check(self, *arguments):
        """The result of a check by the server."""
        return subprocess.run([SERVER, "--check-scene", *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=TIME_OUT, check=False)

    def test_an_overview_shows_what_a_scene_contains(self):
        scene = {"targets": [{"distance_m": 2, "strength_m2": 1, "enter_s": 1.5, "sensor": 7}],
                 "bodies": [{"kind": "fan", "distance_m": 1, "points": 4, "leave_s": 819.1}],
                 "sensors": [{}, {"sensor": 2, "x_m": 1}, {"board": 2}], "interferers": [{"strength": 1, "duration_s": 3}],
                 "temperatures": [{"celsius": 3}], "faults": [{"kind": "failing_read"}], "hardware": "ideal"}
        path = self.scene_file(scene)
        counts = {"targets": 5, "bodies": 1, "sensors": 3, "interferers": 1, "temperatures": 1, "faults": 1, "hardware": 0}
        result = self.check("--scene", path, "--sensors", "7")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout.splitlines(), [f"{path}: valid scene",
                         *(f"  {name:<14}{count}" for name, count in counts.items()), "  the last change is at 819.1 s",
                         f"  note: {self.NO_PLACE}"])
        result = self.check("--scene", path, "--sensors", "7", "--json")
        self.assertEqual(json.loads(result.stdout), {"valid": True, **counts, "end_s": 819.1, "notes": [self.NO_PLACE]})
        result = self.check("--scene", path, "--sensors", "7", "--json", "--board", "2")
        self.assertEqual(json.loads(result.stdout)["sensors"], 3)
        self.assertIn("none for board 3", self.check("--scene", path, "--sensors", "7", "--board", "3").stderr)
        self.assertIn("  it changes without end\n", self.check("--scene", "walking_person").stdout)
        self.assertIn("  nothing changes\n", self.check("--scene", "still_target").stdout)
        self.assertTrue(self.check().stdout.startswith("built-in scene: valid scene\n  targets       3\n"))

    def test_a_fault_is_reported_with_the_usual_exit_code(self):
        path = self.scene_file({"targets": [{"distance_m": 2, "strength_m2": 1, "sensor": 6}]})
        fault = (f'cannot use the scene "{path}": targets[0].sensor is 6, but the number of sensors on the board is 5 '
                 "(line 1, column 60)")
        result = self.check("--scene", path)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (1, "", f"vantor_server: {fault}\n"))
        result = self.check("--scene", path, "--json")
        self.assertEqual((result.returncode, result.stderr), (1, ""))
        self.assertEqual(json.loads(result.stdout), {"valid": False, "fault": fault})
        self.assertEqual(self.check("--sensors", "0").returncode, 2)
        for arguments in (["--check-scene", "--stdio"], ["--stdio", "--json"]):
            result = subprocess.run([SERVER, *arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                    timeout=TIME_OUT, check=False)
            self.assertEqual(result.returncode, 2, arguments)

    def test_what_has_no_effect_is_noted(self):
        still = {"distance_m": 2, "strength_m2": 1}
        wander = {"amplitude_m": 0.1, "frequency_hz": 1}
        track = [{"time_s": 0, "distance_m": 1}, {"time_s": 1, "distance_m": 2}]
        for scene, note in (
                ({"targets": [still, {**still, "oscillation_amplitude_m": 0.1}]},
                 "targets[1] has oscillation_amplitude_m, but no oscillation_frequency_hz: it has no effect."),
                ({"targets": [{**still, "oscillation_frequency_hz": 1}]},
                 "targets[0] has oscillation_frequency_hz, but no oscillation_amplitude_m: it has no effect."),
                ({"targets": [{**still, "oscillations": [{**wander, "wander_turns": 0.1}]}]},
                 "targets[0].oscillations[0] has wander_turns, but no wander_frequency_hz: it has no effect."),
                ({"targets": [{**still, "oscillations": [wander, {**wander, "wander_frequency_hz": 0.1}]}]},
                 "targets[0].oscillations[1] has wander_frequency_hz, but no wander_turns: it has no effect."),
                ({"targets": [{**still, "nearest_m": 1, "farthest_m": 3}]},
                 "targets[0] has nearest_m and farthest_m, but no velocity_m_s: it has no effect."),
                ({"targets": [{**still, "track": track}]},
                 "targets[0] has distance_m and a track: its distance is the sum of both."),
                ({"targets": [{"y_m": 2, "strength_m2": 1}], "sensors": [{"sensor": 1}, {}, {"sensor": 1, "x_m": 1}]},
                 "sensors[2] is for the same sensor as an earlier entry: it has no effect."),
                ({"targets": [still], "sensors": [{"beam_deg": 30}]}, self.NO_PLACE)):
            result = self.check("--scene", self.scene_file(scene), "--json")
            self.assertEqual(json.loads(result.stdout)["notes"], [note])
        for name in os.listdir(os.path.join(EXAMPLES, "scenes")):
            result = self.check("--scene", os.path.join(EXAMPLES, "scenes", name), "--json")
            self.assertEqual(json.loads(result.stdout)["notes"], [], name)

    def test_vantor_validates_scenes(self):
        path = self.scene_file({"targets": [{"distance_m": 2, "strength_m2": 1, "sensor": 6}]})
        result = vantor("validate", path)
        self.assertEqual((result.returncode, result.stderr), (3, ""))
        self.assertIn("not a valid scene: cannot use the scene ", result.stdout)
        self.assertIn("the number of sensors on the board is 5 (line 1, column 60)\n", result.stdout)
        about = json.loads(vantor("validate", path, "--json").stdout)
        self.assertEqual((about["document"], about["valid"]), ("scene", False))
        self.assertIn("targets[0].sensor is 6", about["fault"])
        result = vantor("validate", path, "--sensors", "6")
        self.assertEqual((result.returncode, result.stdout.splitlines()[:2]),
                         (0, [f"{path}: valid scene", "  targets       1"]))
        about = json.loads(vantor("validate", "visitor", "--json").stdout)
        self.assertEqual((about["document"], about["valid"], about["bodies"], about["end_s"]), ("scene", True, 3, 69))
        result = vantor("validate", "nobody")
        self.assertEqual(result.returncode, 3)
        self.assertIn("the examples are breathing_person, ", result.stdout)

    def test_vantor_validates_every_example(self):
        scenes = os.path.join(EXAMPLES, "scenes")
        for name in sorted(os.listdir(scenes)):
            self.assertEqual(vantor("validate", os.path.join(scenes, name)).returncode, 0, name)


class Tracks(SceneTest):
    """Files with the track of a target."""

    def scene_with_track(self, name):
        """The file of a scene with a track."""
        return self.scene_file({"targets": [{"strength_m2": 1, "track_file": name}]})

    def check(self, path):
        """What is wrong with a scene."""
        result = subprocess.run([SERVER, "--check-scene", "--scene", path], stdin=subprocess.DEVNULL,
                                capture_output=True, text=True, timeout=TIME_OUT, check=False)
        return result.stderr

    def test_a_track_in_the_folder_of_the_scene_is_in_the_truth(self):
        os.mkdir(os.path.join(self.folder, "tracks"))
        with open(os.path.join(self.folder, "tracks", "walk.csv"), "w", encoding="ascii") as file:
            file.write("time_s,distance_m\n" + "".join(f"{i},{1 + i / 10000}\n" for i in range(8192)))
        truth = os.path.join(self.folder, "truth.jsonl")
        with Server("--tcp", "0", "--clock", "virtual", "--truth", truth, "--scene",
                    self.scene_with_track("tracks/walk.csv")) as server, server.connect() as host:
            host.ask("configure", configuration=configuration(num_points=10))
            self.assertEqual(host.ask("frame")["status"], "ok")
        with open(truth, encoding="utf-8") as file:
            session, frame = (json.loads(line) for line in file)
        track = session["scene"]["targets"][0]["track"]
        self.assertEqual((len(track), track[0], track[8191]["time_s"]), (8192, {"time_s": 0, "distance_m": 1}, 8191))
        self.assertAlmostEqual(frame["targets"][0]["distance_m"], 1, 6)
        # The expanded scene is a scene as well.
        self.assertEqual(self.check(self.scene_file(session["scene"])), "")

    def test_what_is_not_a_track_is_refused(self):
        large = os.path.join(self.folder, "large.csv")
        with open(large, "w", encoding="ascii") as file:
            file.write(" " * (2**20 + 1))
        os.mkfifo(os.path.join(self.folder, "pipe"))
        os.mkdir(os.path.join(self.folder, "folder"))
        for name, fault in (("missing.csv", "cannot read the track \"FOLDER/missing.csv\": No such file or directory"),
                            ("folder", "cannot read the track \"FOLDER/folder\": it is a directory; use a file"),
                            ("pipe", "cannot read the track \"FOLDER/pipe\": it is not a regular file"),
                            ("large.csv", "cannot use the track \"FOLDER/large.csv\": it has more than 1 MiB"),
                            ("", "cannot read the track \"\": use a path from the folder of the scene, without \"..\""),
                            ("/etc/passwd", "use a path from the folder of the scene, without \"..\""),
                            ("a/../../b", "use a path from the folder of the scene, without \"..\""),
                            ("x" * 200, "No such file or directory")):
            with self.subTest(name):
                message = self.check(self.scene_with_track(name))
                self.assertIn(fault.replace("FOLDER", self.folder), message)
                self.assertTrue(message.endswith(" (line 1, column 47)\n"), message)


class Faults(SceneTest):
    def test_every_fault_leads_to_its_error_and_the_next_session_works(self):
        # Faults that occur once: the fault, the command that ends the session, and the error code.
        for kind, skip, step, code in (
                ("failing_calibration", 0, "configure", "nox_sensor_calibration"),
                ("lost_interrupt", 0, "configure", "nox_sensor_calibration"),
                ("failing_prepare", 0, "configure", "nox_data"),
                ("failing_measure", 0, "frame", "nox_data"),
                ("lost_interrupt", 4, "frame", "nox_data"),
                ("failing_read", 0, "frame", "nox_data"),
                ("failing_read", 3, "frame", "nox_data")):
            with self.subTest(kind, skip=skip), \
                    self.server({"faults": [{"kind": kind, "skip": skip, "count": 1}]}) as server, \
                    server.connect() as host:
                answer = host.ask("configure", configuration=configuration())
                frames = 0
                while "code" not in answer and step == "frame":
                    answer = host.ask("frame")
                    frames += 1
                self.assertEqual(answer["code"], code)
                if kind == "failing_read":
                    self.assertEqual(frames, skip + 1)
                self.assertEqual(host.ask("frame")["code"], "wrong_state")
                self.assertEqual(host.ask("configure", configuration=configuration())["status"], "ok")
                self.assertEqual(host.ask("frame")["status"], "ok")

    def test_an_absent_sensor_is_not_connected(self):
        with self.server({"faults": [{"kind": "absent_sensor", "sensor": 2}]}) as server, \
                server.connect() as host:
            self.assertEqual(host.ask("identify")["connected_sensors"], [1])
            absent = {"groups": [[{"sensor_id": 2, "config": {}}]]}
            self.assertEqual(host.ask("configure", configuration=absent)["code"], "config_sensor_id")
            self.assertEqual(host.ask("configure", configuration=configuration())["status"], "ok")

    def test_a_sensor_that_disappears_after_the_start_cannot_be_created(self):
        with self.server({"faults": [{"kind": "absent_sensor", "sensor": 1, "skip": 1, "count": 1}]}) as server, \
                server.connect() as host:
            self.assertEqual(host.ask("configure", configuration=configuration())["code"], "nox_create_sensor")
            self.assertEqual(host.ask("configure", configuration=configuration())["status"], "ok")

    def test_a_slow_link_delays_frames(self):
        scene = {"faults": [{"kind": "slow_link", "bytes_per_second": 1000}]}
        with self.server(scene) as server, server.connect() as host:
            host.ask("configure", configuration=configuration(frame_rate=100, num_points=100))
            host.ask("start")
            delayed = [host.message()[0]["result_info"][0][0]["frame_delayed"] for _ in range(5)]
            self.assertTrue(delayed[-1], delayed)


class InvalidScenes(SceneTest):
    def refused(self, path):
        """The message of the server about a scene file."""
        result = subprocess.run([SERVER, "--tcp", "0", "--scene", path], capture_output=True, text=True,
                                timeout=TIME_OUT, check=False)
        self.assertNotEqual(result.returncode, 0)
        return result.stderr

    def test_the_invalid_key_is_named(self):
        self.assertIn("targets[0].distance_m is 0, but must be a number from 0.01 to 1000",
                      self.refused(self.scene_file({"targets": [{"distance_m": 0, "strength_m2": 1}]})))

    def test_a_missing_file_is_named(self):
        self.assertIn("nowhere.json", self.refused(os.path.join(self.folder, "nowhere.json")))

    def test_every_example_is_accepted(self):
        scenes = os.path.join(EXAMPLES, "scenes")
        for name in sorted(os.listdir(scenes)):
            board = ("--board", "1") if name in ("two_boards.json", "hall.json") else ()
            with self.subTest(name), Server("--tcp", "0", "--clock", "virtual", "--scene",
                                            os.path.join(scenes, name), *board) as server, server.connect() as host:
                host.ask("configure", configuration=configuration(num_points=100, step_length=4))
                self.assertEqual(host.ask("frame")["status"], "ok")


class ClearChannel(SceneTest):
    def test_the_transmitter_is_off_while_an_interferer_sends_one_frame_later(self):
        scene = {"interferers": [{"strength": 20, "start_s": 1, "duration_s": 1}]}
        item = {"cca_enable": True, "cca_threshold": 2, "cca_debug": True}
        with self.server(scene) as server, server.connect() as host:
            host.ask("configure", configuration={**configuration(item), "update_rate": 10})
            host.ask("start")
            results = [host.message()[0]["result_info"][0][0] for _ in range(30)]
        # A session starts with the transmitter off, and every decision takes effect in the next frame.
        self.assertFalse(results[0]["tx_enabled"])
        for before, after in zip(results, results[1:]):
            self.assertEqual(after["tx_enabled"], not before["cca_detected"])
        for result in results:
            self.assertEqual(result["cca_detected"], result["cca_value"] > 2)
            self.assertEqual(result["data_valid"], result["tx_enabled"] and not result["cca_detected"])
        detected = [result["cca_detected"] for result in results]
        self.assertEqual(detected, [False] * 10 + [True] * 10 + [False] * 10)


class Time(SceneTest):
    def frames(self, clock, rate):
        """Frames of a session that the sensor paces, and the number of delayed ones."""
        with Server("--tcp", "0", "--clock", clock, "--seed", "3") as server, server.connect() as host:
            host.ask("configure", configuration=configuration(frame_rate=rate, num_points=100))
            host.ask("start")
            frames = [host.message() for _ in range(20)]
            return [payload for _, payload in frames], check_sensor_paced([header for header, _ in frames],
                                                                          TICKS_PER_SECOND / rate)

    def test_the_sensor_keeps_the_frame_rate_and_both_clocks_give_the_same_bytes(self):
        # A busy machine may delay frames. This is checked, too, and the session is repeated at a lower rate until no
        # frame is delayed: only then the bytes are the same as on the virtual clock.
        for rate in (20 / slower for slower in SLOWER):
            virtual, delayed = self.frames("virtual", rate)
            self.assertEqual(delayed, 0)
            real, delayed = self.frames("real", rate)
            if delayed == 0:
                break
        self.assertEqual(delayed, 0)
        self.assertEqual(real, virtual)

    def payloads_of_a_pair(self, clock, rate):
        """Payloads of a session in which two sensors of a group see the same moving target, and the delayed items."""
        scene = {"targets": [{"distance_m": 1, "strength_m2": 0.5, "velocity_m_s": 2, "nearest_m": 0.9,
                              "farthest_m": 1.1}]}
        group = [{"sensor_id": sensor_id, "config": {"frame_rate": rate, "start_point": 360, "num_points": 80,
                                                     "sweeps_per_frame": 3 * sensor_id}} for sensor_id in (1, 2)]
        with Server("--tcp", "0", "--clock", clock, "--seed", "3", "--sensors", "2", "--scene",
                    self.scene_file(scene)) as server, server.connect() as host:
            host.ask("configure", configuration={"groups": [group]})
            host.ask("start")
            frames = [host.message() for _ in range(20)]
        return [payload for _, payload in frames], [item["frame_delayed"] for header, _ in frames
                                                    for item in header["result_info"][0]]

    def test_two_sensors_of_a_group_give_the_same_bytes_on_both_clocks(self):
        for rate in (20 / slower for slower in SLOWER):
            virtual, delayed = self.payloads_of_a_pair("virtual", rate)
            self.assertEqual(len(delayed), 2 * 20)
            self.assertFalse(any(delayed))
            real, delayed = self.payloads_of_a_pair("real", rate)
            if not any(delayed):
                break
        self.assertFalse(any(delayed))
        self.assertEqual(real, virtual)

    def test_the_virtual_clock_takes_no_real_time(self):
        # A frame that took its period in real time would arrive after the time-out.
        seconds = 128
        self.assertGreater(seconds, TIME_OUT)
        for pace in ("update_rate", "max_update_rate"):
            with self.subTest(pace), Server("--tcp", "0", "--clock", "virtual") as server, server.connect() as host:
                host.ask("configure", configuration={**configuration(num_points=100), pace: 1 / seconds})
                host.ask("start")
                ticks = [tick_of(host.message()[0]) for _ in range(3)]
                self.assertEqual([ticks[1] - ticks[0], ticks[2] - ticks[1]], [seconds * TICKS_PER_SECOND] * 2)

    def test_a_host_that_reads_late_receives_delayed_frames(self):
        rate = 4
        with Server("--tcp", "0", "--seed", "3") as server, server.connect() as host:
            host.ask("configure", configuration=configuration(frame_rate=rate, num_points=100))
            self.assertFalse(host.ask("frame")["result_info"][0][0]["frame_delayed"])
            past_due = host.ask("stats")["uptime_s"] + 1 / rate + 0.001
            wait_until(lambda: host.ask("stats")["uptime_s"] > past_due, "the next frame to be late")
            self.assertTrue(host.ask("frame")["result_info"][0][0]["frame_delayed"])


if __name__ == "__main__":
    unittest.main()
