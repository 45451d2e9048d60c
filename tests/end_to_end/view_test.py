"""`vantor view` as viewers see it, without a browser."""

import hashlib
import json
import os
import pathlib
import re
import select
import signal
import socket
import tempfile
import threading
import time
import unittest

from vantor_process import EXAMPLES, TIME_OUT, Server, campaign, example, vantor, wait_until
from web_socket import PONG, Refused, View

SINGLE = os.path.join(EXAMPLES, "single_sensor.json")
TWO_SENSORS = os.path.join(EXAMPLES, "two_sensors.json")


def info(directory):
    """What `vantor info` reports about a recording, which must be whole."""
    result = vantor("info", "--json", directory)
    if result.returncode != 0:
        raise AssertionError(result.stdout + result.stderr)
    return json.loads(result.stdout)


class InDirectory(unittest.TestCase):
    """Tests whose recordings are in a temporary directory."""

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def view(self, *arguments):
        """Starts a view."""
        return self.enterContext(View(*arguments, cwd=self.folder))

    def recordings(self):
        """The names of the recordings."""
        return sorted(os.listdir(os.path.join(self.folder, "recordings")))

    def recording(self, name):
        """The directory of a recording."""
        return os.path.join(self.folder, "recordings", name)


class Wire(threading.Thread):
    """Stands between a view and a server on TCP, and stores what the view sends."""

    def __init__(self, address):
        super().__init__(daemon=True)
        self.server = ("127.0.0.1", int(address.rpartition(":")[2]))
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"tcp:127.0.0.1:{self.listener.getsockname()[1]}"
        self.sent = b""

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.listener.close()
        self.join(TIME_OUT)
        if self.is_alive():
            raise TimeoutError("the view is still connected")

    def run(self):
        host = self.listener.accept()[0]
        with host, socket.create_connection(self.server) as server:
            while True:
                for ready in select.select([host, server], [], [])[0]:
                    data = ready.recv(1 << 16)
                    if not data:
                        return
                    if ready is host:
                        self.sent += data
                    (server if ready is host else host).sendall(data)

    def configurations(self):
        """The configurations that the view has sent."""
        commands = [json.loads(line) for line in self.sent.splitlines() if line]
        return [command["configuration"] for command in commands if command["command"] == "configure"]


class LiveView(InDirectory):
    def test_a_viewer_receives_what_the_server_measures(self):
        with self.view(TWO_SENSORS).connect() as viewer:
            hello = viewer.next("hello")
            self.assertEqual((hello["kind"], hello["source"], hello["viewers"], hello["controls"]),
                             ("server", "sim:", 1, True))
            self.assertIn("$defs", hello["schema"])
            session = viewer.next("session")
            self.assertEqual(session["configuration"], example("two_sensors.json"))
            self.assertEqual([(item["sensor"], item["group"], item["index"]) for item in session["items"]],
                             [(1, 0, 0), (2, 0, 1), (2, 1, 0)])
            size = sum(4 * item["points"] * item["sweeps"] for item in session["items"])
            ticks = []
            for _ in range(5):
                header, payload = viewer.frame()
                self.assertEqual((header["status"], header["payload_size"], len(payload)), ("ok", size, size))
                ticks.append(header["result_info"][0][0]["tick"])
            self.assertEqual(ticks, sorted(set(ticks)))
            state = viewer.state_with(lambda state: state["frames"] > 5)
            self.assertEqual((state["connection"], state["recorder"], state["position"]), ("connected", None, None))
            self.assertEqual([entry["sensor"] for entry in state["temperatures"]], [1, 2])

    def test_the_targets_of_the_simulator_arrive_before_their_frame(self):
        with self.view(SINGLE).connect() as viewer:
            truth = viewer.next("truth")
            self.assertEqual([len(item) for item in truth["items"]], [3])
            distances = [target["distance_m"] for target in truth["items"][0]]
            self.assertEqual([round(distance, 1) for distance in distances], [0.5, 1.2, 3.5])

    def test_the_layout_of_an_item_is_that_of_its_configuration(self):
        with self.view(SINGLE).connect() as viewer:
            item = viewer.next("session")["items"][0]
            config = example("single_sensor.json")["groups"][0][0]["config"]
            self.assertEqual(item["points"], config["num_points"])
            self.assertAlmostEqual(item["subsweeps"][0]["start_m"], config["start_point"] * 0.0025)
            self.assertEqual(item["full_scale"], 32767)
            self.assertAlmostEqual(item["max_velocity_sweeps"], item["wavelength_m"] * item["sweep_rate"] / 4)

    def test_a_view_without_a_configuration_measures_with_the_first_sensor(self):
        with self.view().connect() as viewer:
            session = viewer.next("session")
            self.assertEqual([item["sensor"] for item in session["items"]], [1])
            viewer.frame()

    def test_a_configuration_is_checked_like_vantor_validate(self):
        with self.view(SINGLE).connect() as viewer:
            wrong = example("single_sensor.json")
            wrong["groups"][0][0]["config"]["hwaas"] = 100000
            viewer.send("check", id=7, configuration=wrong)
            checked = viewer.next("checked")
            self.assertEqual((checked["id"], checked["plan"]), (7, []))
            self.assertEqual([(fault["pointer"], fault["nearest"]) for fault in checked["faults"]],
                             [("/groups/0/0/config/hwaas", 511)])
            viewer.send("check", id=8, configuration=example("single_sensor.json"))
            checked = viewer.next("checked")
            self.assertEqual((checked["id"], checked["faults"]), (8, []))
            self.assertIn("distance", [name for name, _ in checked["plan"]])

    def test_the_figures_of_the_configuration_in_use_are_those_that_the_server_reports(self):
        with self.view(SINGLE).connect() as viewer:
            session = viewer.next("session")
            used = session["configuration"]
            viewer.send("check", id=1, configuration=used)
            self.assertEqual(viewer.next("checked")["plan"], session["plan"])
            used["groups"][0][0]["config"]["num_points"] += 1
            viewer.send("check", id=2, configuration=used)
            other = viewer.next("checked")["plan"]
            stars = [sum(value.count("*") for _, value in plan) for plan in (session["plan"], other)]
            self.assertLess(stars[0], stars[1])

    def test_another_configuration_begins_a_session_with_the_same_calibrations(self):
        with Server("--tcp", "0") as server, Wire(server.address) as wire:
            with View(SINGLE, "--connect", wire.address) as view, view.connect() as viewer:
                viewer.frame()
                changed = example("single_sensor.json")
                changed["groups"][0][0]["config"]["num_points"] = 33
                self.assertEqual(viewer.ask("apply", configuration=changed)["type"], "done")
                size = 4 * 33 * changed["groups"][0][0]["config"].get("sweeps_per_frame", 1)
                while len(viewer.frame()[1]) != size:
                    pass
            first, second = wire.configurations()
        self.assertNotIn("calibration_info", first)
        self.assertEqual([entry["sensor_id"] for entry in second.pop("calibration_info")], [1])
        self.assertEqual((first, second), (example("single_sensor.json"), changed))

    def test_memory_and_stack_of_the_board_are_shown(self):
        with self.view(SINGLE).connect() as viewer:
            memory = viewer.state_with(lambda state: state["memory"] is not None)["memory"]
            self.assertGreaterEqual(memory["size"], memory["peak"])
            self.assertGreaterEqual(memory["peak"], memory["live"])

    def test_a_wrong_configuration_changes_nothing(self):
        with self.view(SINGLE).connect() as viewer:
            number = viewer.next("session")["number"]
            wrong = example("single_sensor.json")
            wrong["groups"][0][0]["config"]["profile"] = 9
            refused = viewer.ask("apply", configuration=wrong)
            self.assertEqual((refused["type"], refused["faults"][0]["pointer"]),
                             ("failed", "/groups/0/0/config/profile"))
            self.assertIn("no items", viewer.ask("apply", configuration={"groups": []})["message"])
            viewer.frame()
            viewer.send("apply", configuration=example("single_sensor.json"))
            self.assertEqual(viewer.next("session")["number"], number + 1)

    def test_a_configuration_that_the_server_refuses_leaves_the_old_one(self):
        with self.view(SINGLE, "--connect", "sim:--sensors 2").connect() as viewer:
            viewer.frame()
            changed = example("single_sensor.json")
            changed["groups"][0][0]["sensor_id"] = 5
            self.assertEqual(viewer.ask("apply", configuration=changed)["type"], "failed")
            session = viewer.next("session")
            self.assertEqual(session["configuration"], example("single_sensor.json"))
            viewer.frame()

    def test_a_calibration_begins_a_segment_of_the_recording(self):
        with self.view(SINGLE).connect() as viewer:
            self.assertEqual(viewer.ask("record", name="walk")["type"], "done")
            viewer.state_with(lambda state: state["recorder"]["frames"] > 3)
            self.assertEqual(viewer.ask("calibrate")["type"], "done")
            seen = viewer.state_with(lambda state: True)["recorder"]["frames"]
            viewer.state_with(lambda state: state["recorder"]["frames"] > seen + 20)
            viewer.ask("stop_recording")
        warnings = info(self.recording("walk"))["warnings"]
        self.assertEqual([line for line in warnings if "calibrated again" in line], warnings[:1], warnings)

    def test_a_recording_is_the_same_as_one_of_vantor_record(self):
        with self.view(SINGLE).connect() as viewer:
            viewer.frame()
            self.assertIn("recordings/walk", viewer.ask("record", name="walk")["text"])
            state = viewer.state_with(lambda state: state["recorder"] and state["recorder"]["frames"] > 10)
            self.assertEqual(state["recorder"]["failure"], None)
            self.assertIn("stop it first", viewer.ask("record", name="other")["message"])
            text = viewer.ask("stop_recording")["text"]
            self.assertIn("no recording", viewer.ask("stop_recording")["message"])
        report = info(self.recording("walk"))
        self.assertEqual(report["frames_missing"], 0)
        self.assertIn(f"Recorded {report['frames']} frames to recordings/walk, 0 missing.", text)
        self.assertEqual(self.recordings(), ["walk"])

    def test_names_of_recordings_stay_in_their_directory(self):
        with self.view(SINGLE).connect() as viewer:
            viewer.frame()
            for name in ("../outside", "/tmp/outside", ".hidden", "a/b", "a\nb", "x" * 101):
                self.assertIn("cannot be the name", viewer.ask("record", name=name)["message"], name)
            os.makedirs(self.recording("there"))
            self.assertIn("already", viewer.ask("record", name="there")["message"])
        self.assertEqual(self.recordings(), ["there"])

    def test_the_last_seconds_are_kept(self):
        with self.view(SINGLE).connect() as viewer:
            viewer.state_with(lambda state: state["frames"] > 30)
            answer = viewer.ask("keep", seconds=1)
            self.assertEqual(answer["type"], "done", answer)
            name, = self.recordings()
            report = info(self.recording(name))
            self.assertIn(f"Kept {report['frames']} frames in recordings/{name}", answer["text"])
            self.assertGreater(report["frames"], 5)
            self.assertLess(report["items"][0]["seconds"], 1.5)
            self.assertEqual(viewer.ask("keep", seconds="all")["type"], "failed")

    def test_the_last_seconds_can_be_kept_again_at_once(self):
        with self.view(SINGLE).connect() as viewer:
            viewer.state_with(lambda state: state["frames"] > 3)
            viewer.send("keep", seconds=10)
            viewer.send("keep", seconds=10)
            answers = [viewer.next("done"), viewer.next("done")]
            self.assertIn("done", [answer["type"] for answer in answers], answers)
            for answer in answers:
                self.assertTrue(answer["type"] == "done" or "still being written" in answer["message"], answers)
            self.assertEqual(viewer.ask("keep", seconds=10)["type"], "done")

    def test_each_configuration_is_answered(self):
        with self.view(SINGLE).connect() as viewer:
            viewer.frame()
            viewer.send("apply", configuration=example("two_sensors.json"))
            viewer.send("apply", configuration=example("single_sensor.json"))
            answers = [viewer.next("done"), viewer.next("done")]
            self.assertIn("done", [answer["type"] for answer in answers], answers)
            for answer in answers:
                self.assertTrue(answer["type"] == "done" or "being applied" in answer["message"], answers)

    def test_directories_that_cannot_be_used_are_an_error(self):
        os.makedirs(os.path.join(self.folder, "recordings"))
        os.symlink("loop", self.recording("loop"))
        with self.view(SINGLE).connect() as viewer:
            viewer.frame()
            self.assertEqual(viewer.ask("record", name="loop")["type"], "failed")
            os.rename(os.path.join(self.folder, "recordings"), os.path.join(self.folder, "other"))
            os.symlink("recordings", os.path.join(self.folder, "recordings"))
            self.assertEqual(viewer.ask("record")["type"], "failed")
            self.assertEqual(viewer.ask("keep", seconds=10)["type"], "failed")
            viewer.frame()

    def test_a_configuration_with_very_many_faults_is_checked(self):
        with self.view(SINGLE).connect() as viewer:
            items = [{"sensor_id": 1, "config": {}}] * 25_000
            viewer.send("check", id=1, configuration={"groups": [items]})
            self.assertEqual(viewer.next("checked")["faults"][-1]["message"], "and 24899 further faults")

    def test_record_records_from_the_start_to_the_end(self):
        view = self.view(SINGLE, "--record", "all")
        with view.connect() as viewer:
            viewer.state_with(lambda state: state["recorder"]["frames"] > 10)
        self.assertEqual(view.end(), (0, ""))
        report = info(os.path.join(self.folder, "all"))
        self.assertGreater(report["frames"], 10)
        self.assertEqual(report["frames_missing"], 0)

    def test_a_recording_that_fails_is_reported_and_the_view_goes_on(self):
        view = self.view(SINGLE, "--record", "all")
        with view.connect() as viewer:
            viewer.state_with(lambda state: state["recorder"]["frames"] > 0)
            for name in os.listdir(os.path.join(self.folder, "all")):
                os.remove(os.path.join(self.folder, "all", name))
            state = viewer.state_with(lambda state: state["recorder"]["failure"] is not None)
            self.assertIn("removed", state["recorder"]["failure"])
            viewer.frame()
        code, errors = view.end()
        self.assertEqual(code, 7, errors)
        self.assertIn("removed", errors)

    def test_a_lost_server_is_connected_again(self):
        server = self.enterContext(Server("--tcp", "0"))
        port = server.address.rpartition(":")[2]
        with self.view(SINGLE, "--connect", server.address).connect() as viewer:
            viewer.state_with(lambda state: state["connection"] == "connected" and state["frames"] > 0)
            server.process.terminate()
            viewer.state_with(lambda state: state["connection"] == "lost")
            server.process.wait()
            with Server("--tcp", port):
                viewer.state_with(lambda state: state["connection"] == "connected" and state["rate"] > 0)
                viewer.frame()

    def test_a_session_that_fails_at_once_is_tried_again_once_a_second(self):
        scene = os.path.join(self.folder, "scene.json")
        with open(scene, "w", encoding="utf-8") as file:
            json.dump({"faults": [{"kind": "failing_measure", "skip": 5}]}, file)
        with self.view(SINGLE, "--connect", f"sim:--scene {scene}").connect() as viewer:
            viewer.next("session")
            viewer.next("session")
            begin = time.monotonic()
            viewer.next("session")
            viewer.next("session")
            self.assertGreater(time.monotonic() - begin, 1.8)
            viewer.state_with(lambda state: state["connection"] == "lost" and state["reason"])

    def test_an_interruption_ends_the_view_at_once_while_the_server_is_lost(self):
        server = self.enterContext(Server("--tcp", "0"))
        view = self.view(SINGLE, "--connect", server.address)
        with view.connect() as viewer:
            viewer.frame()
            server.process.terminate()
            viewer.state_with(lambda state: state["connection"] == "lost")
            self.assertEqual(view.end()[0], 0)
            with self.assertRaisesRegex(ConnectionError, "vantor view has ended"):
                viewer.next("hello")

    def test_lines_of_the_log_reach_viewers(self):
        with self.view(SINGLE).connect() as viewer:
            viewer.frame()
            viewer.ask("apply", configuration=example("two_sensors.json"))
            with self.subTest("a line of the server"):
                viewer.send("calibrate")
                self.assertIn(viewer.next("log")["level"], ("info", "warning", "error", "verbose"))


class SeveralViewers(InDirectory):
    def test_one_controls_and_others_can_take_control(self):
        view = self.view(SINGLE)
        with view.connect() as first, view.connect() as second:
            self.assertTrue(first.next("hello")["controls"])
            self.assertFalse(second.next("hello")["controls"])
            self.assertIn("Another viewer controls", second.ask("record", name="walk")["message"])
            self.assertEqual(second.ask("take_control")["type"], "done")
            self.assertFalse(first.state_with(lambda state: state["viewers"] == 2)["controls"])
            self.assertTrue(second.state_with(lambda state: state["viewers"] == 2)["controls"])
            self.assertEqual(second.ask("record", name="walk")["type"], "done")
            second.ask("stop_recording")

    def test_control_is_free_when_the_viewer_leaves(self):
        view = self.view(SINGLE)
        with view.connect() as watching:
            with view.connect() as other:
                other.ask("take_control")
            self.assertIsNone(watching.state_with(lambda state: state["viewers"] == 1)["controller"])
            with view.connect() as third:
                self.assertTrue(third.next("hello")["controls"])

    def test_viewers_have_the_lowest_free_numbers(self):
        view = self.view(SINGLE)
        with view.connect() as first:
            self.assertEqual(first.next("hello")["viewer"], 1)
            with view.connect() as second:
                self.assertEqual(second.next("hello")["viewer"], 2)
                second.ask("take_control")
                self.assertEqual(first.state_with(lambda state: state["controller"] != 1)["controller"], 2)
                with view.connect() as third:
                    self.assertEqual(third.next("hello")["viewer"], 3)
            first.state_with(lambda state: state["viewers"] == 1)
            with view.connect() as another:
                self.assertEqual(another.next("hello")["viewer"], 2)

    def test_a_viewer_that_does_not_read_holds_nothing_back(self):
        view = self.view(TWO_SENSORS, "--connect", "sim:--clock virtual", "--record", "all")
        with view.connect(buffer=4096) as stopped, view.connect() as reading:
            reading.state_with(lambda state: state["frames"] > 1500)
            state = stopped.state_with(lambda state: state["dropped"] > 0)
            self.assertGreater(state["dropped"], 0)
        self.assertEqual(view.end(), (0, ""))
        report = info(os.path.join(self.folder, "all"))
        self.assertGreater(report["frames"], 1500)
        self.assertEqual(report["frames_missing"], 0)

    def test_a_viewer_can_receive_some_of_the_frames(self):
        with self.view(SINGLE).connect() as viewer:
            period = viewer.next("session")["tick_period"]
            self.assertEqual(viewer.ask("every", frames=5)["type"], "done")
            ticks = [viewer.frame()[0]["result_info"][0][0]["tick"] for _ in range(12)][-4:]
            steps = [round((later - earlier) / period) for earlier, later in zip(ticks, ticks[1:], strict=False)]
            # The server may leave frames out on a busy machine, but never sends more of them.
            self.assertGreaterEqual(min(steps), 5)
            self.assertEqual(viewer.ask("every", frames=0)["type"], "failed")


class ManyFrames(InDirectory):
    """Streams as fast as the simulator measures."""

    def resident(self, view):
        """The memory of the view, in bytes."""
        with open(f"/proc/{view.process.pid}/status", encoding="ascii") as file:
            return 1024 * int(re.search(r"^VmRSS:\s*(\d+) kB$", file.read(), re.MULTILINE)[1])

    def test_a_recording_loses_nothing_while_eight_viewers_watch(self):
        frames = campaign(100_000, 2_000)
        view = self.view(SINGLE, "--connect", "sim:--clock virtual", "--record", "all")
        stopped = self.enterContext(view.connect(buffer=4096))
        watching = [self.enterContext(view.connect()) for _ in range(7)]
        readers = [threading.Thread(target=viewer.state_with, args=(lambda state: state["frames"] >= frames, 3600))
                   for viewer in watching]
        for reader in readers:
            reader.start()
        for reader in readers:
            reader.join()
        dropped = [viewer.state["dropped"] for viewer in watching]
        goes_on = time.monotonic()
        late = stopped.state_with(lambda state: state["dropped"] > 0)
        delay = time.monotonic() - goes_on
        self.assertGreater(late["dropped"], frames // 2)
        self.assertLess(delay, campaign(1.0, 10.0))
        self.assertEqual(view.end(), (0, ""))
        report = info(os.path.join(self.folder, "all"))
        self.assertGreaterEqual(report["frames"], frames)
        self.assertEqual(report["frames_missing"], 0)
        print(f"{report['frames']} frames recorded, 0 missing; dropped for viewers {dropped}, for the stopped one "
              f"{late['dropped']}, which it sees after {delay:.3f} s")

    @unittest.skipUnless(os.environ.get("VANTOR_MEASURE_MEMORY") == "1", "sanitizers need more and more memory")
    def test_memory_does_not_grow(self):
        # The frames of the last minute need most of the memory, until they have reached their limit.
        first, last = campaign((600_000, 1_600_000), (1_000, 3_000))
        configuration = os.path.join(self.folder, "small.json")
        with open(configuration, "w", encoding="utf-8") as file:
            json.dump({"groups": [[{"sensor_id": 1, "config": {"num_points": 40, "hwaas": 1}}]]}, file)
        view = self.view(configuration, "--connect", "sim:--clock virtual")
        with view.connect() as viewer:
            viewer.ask("every", frames=100)
            viewer.state_with(lambda state: state["frames"] >= first, 3600)
            before = self.resident(view)
            state = viewer.state_with(lambda state: state["frames"] >= last, 3600)
            grown = self.resident(view) - before
        print(f"{grown} bytes more after {state['frames'] - first} frames, {before} before")
        self.assertLess(grown, campaign(1 << 20, 64 << 20))


class HostileViewers(InDirectory):
    def test_requests_that_are_not_requests_are_refused(self):
        with self.view(SINGLE).connect() as viewer:
            for text in ("", "x", "[]", "{}", '{"type": 5}', '{"type": "apply"}', '{"type": "no such type"}',
                         '{"type": "apply", "configuration": 5}', '{"type": "check", "configuration": {}}',
                         '{"type": "check", "id": 1e300, "configuration": {}}', '{"type": "every", "frames": 1e300}',
                         '{"type": "record", "name": 5}', '{"type": "%s"}' % ("x" * 1000), "[" * 10000, '{"type": "seek", "frame": 1}'):
                viewer.send_raw(1, text.encode())
                self.assertTrue(viewer.next("failed")["message"], text)
            viewer.frame()

    def test_a_viewer_that_asks_too_much_is_closed(self):
        view = self.view(SINGLE)
        with view.connect() as viewer, view.connect() as other:
            viewer.send_raw(1, b'{"type": "check", "id": 1, "configuration": "' + b"x" * (1 << 20) + b'"}')
            viewer.close_reason()
            other.frame()

    def test_a_foreign_page_cannot_connect(self):
        view = self.view(SINGLE)
        port = view.url.split(":")[2].split("/")[0]
        for options in ({"token": "0" * 32}, {"token": ""}, {"origin": "http://example.com"},
                        {"host": f"example.com:{port}"}, {"path": "/other"}):
            with self.assertRaises(Refused, msg=options):
                view.connect(**options)
        with view.connect(origin=False) as program:
            program.frame()

    def test_viewers_that_vanish_leave_nothing_behind(self):
        view = self.view(SINGLE)
        for _ in range(30):
            with view.connect() as viewer:
                viewer.send_raw(PONG, b"")
                viewer.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
        with view.connect() as viewer:
            viewer.state_with(lambda state: state["viewers"] == 1)


class Playback(InDirectory):
    FRAMES = 60

    def setUp(self):
        super().setUp()
        place = os.path.join(self.folder, "walk")
        result = vantor("record", SINGLE, "--frames", self.FRAMES, "--connect", "sim:--clock virtual", "--output", place)
        self.assertEqual(result.returncode, 0, result.stderr)
        with open(os.path.join(place, "group-1-item-1.sigmf-data"), "rb") as file:
            data = file.read()
        size = len(data) // self.FRAMES
        self.samples = [data[i:i + size] for i in range(0, len(data), size)]

    def test_a_recording_is_played_to_its_end(self):
        with self.view("walk").connect() as viewer:
            hello = viewer.next("hello")
            self.assertEqual((hello["kind"], hello["name"]), ("recording", "walk"))
            captures = json.loads(pathlib.Path(self.folder, "walk", "group-1-item-1.sigmf-meta").read_text())["captures"]
            self.assertEqual(hello["recorded"], captures[0]["core:datetime"])
            state = viewer.state_with(lambda state: state["connection"] == "ended")
            self.assertEqual((state["position"]["frame"], state["position"]["frames"]),
                             (self.FRAMES - 1, self.FRAMES))
            viewer.send("play")
            self.assertEqual(viewer.frame()[1], self.samples[0])

    def test_a_viewer_that_opens_a_recording_at_its_end_sees_the_last_frame(self):
        view = self.view("walk")
        with view.connect() as viewer:
            viewer.send("speed", value=100)
            viewer.state_with(lambda state: state["connection"] == "ended")
            with view.connect() as later:
                self.assertEqual(later.frame()[1], self.samples[-1])
                self.assertEqual(later.next("state")["rate_due"], 0)

    def test_a_recording_waits_for_its_first_viewer(self):
        with self.view("walk") as view, view.connect() as viewer:
            self.assertEqual(viewer.frame()[1], self.samples[0])

    def test_every_frame_can_be_found(self):
        with self.view("walk").connect() as viewer:
            viewer.send("pause")
            viewer.state_with(lambda state: state["connection"] == "paused")
            for number in (50, 3, 59, 0):
                viewer.send("seek", frame=number)
                self.assertEqual(viewer.frame()[1], self.samples[number])
                state = viewer.state_with(lambda state, number=number: state["position"]["frame"] == number)
                self.assertIn(state["connection"], ("paused", "ended"))
            for wrong in (-1, self.FRAMES, "x", None):
                viewer.send("seek", frame=wrong)
                self.assertIn("frame", viewer.next("failed")["message"])

    def test_a_jump_can_show_the_time_before_it(self):
        with self.view("walk").connect() as viewer:
            viewer.send("pause")
            viewer.state_with(lambda state: state["connection"] == "paused")
            # There are 20 frames a second.
            viewer.send("seek", frame=40, before=0.5)
            self.assertEqual([viewer.frame()[1] for _ in range(11)], self.samples[30:41])
            viewer.send("seek", frame=2, before=60)
            self.assertEqual([viewer.frame()[1] for _ in range(3)], self.samples[:3])
            state = viewer.state_with(lambda state: state["position"]["frame"] == 2)
            self.assertEqual((state["dropped"], state["missing"]), (0, 0))
            for wrong in (-1, 61, "x", None):
                viewer.send("seek", frame=2, before=wrong)
                self.assertIn("before", viewer.next("failed")["message"])

    def test_a_frame_that_is_sought_after_the_end_stays(self):
        with self.view("walk").connect() as viewer:
            viewer.send("speed", value=16)
            viewer.state_with(lambda state: state["connection"] == "ended")
            viewer.send("seek", frame=2)
            viewer.state_with(lambda state: state["connection"] == "paused" and state["position"]["frame"] == 2)

    def test_it_can_be_played_faster(self):
        with self.view("walk").connect() as viewer:
            viewer.send("speed", value=100)
            viewer.state_with(lambda state: state["position"]["speed"] == 100)
            viewer.state_with(lambda state: state["connection"] == "ended")
            for wrong in (0, -1, 1e9, "max"):
                viewer.send("speed", value=wrong)
                self.assertIn("value", viewer.next("failed")["message"])

    def test_a_recording_is_not_recorded_again(self):
        with self.view("walk").connect() as viewer:
            for kind in ("record", "keep", "calibrate", "apply"):
                self.assertEqual(viewer.ask(kind)["type"], "failed")


class SeveralBoards(InDirectory):
    BOARDS = (SINGLE, "--connect", "sim:--board 1", "--board", f"{TWO_SENSORS}=sim:--board 2")

    def setUp(self):
        super().setUp()
        self.viewers = []

    def connect(self, view, count=2):
        """A viewer of each board."""
        return [self.enterContext(view.connect(board=number)) for number in range(1, count + 1)]

    def record(self):
        """Records two boards until each has 2 s of frames with known times; returns what the view has printed."""
        view = self.view(*self.BOARDS, "--record", "both")
        for viewer in self.connect(view):
            times = 0
            while times < 40:
                times += "utc_s" in viewer.frame()[0]["result_info"][0][0]
        return view.end()

    def test_each_board_has_viewers_of_its_own(self):
        view = self.view(*self.BOARDS)
        viewers = self.connect(view)
        hellos = [viewer.next("hello") for viewer in viewers]
        self.assertEqual([(hello["board"], hello["boards"], hello["source"], hello["viewers"], hello["controls"])
                          for hello in hellos], [(1, 2, "sim:--board 1", 1, True), (2, 2, "sim:--board 2", 1, True)])
        self.assertEqual([len(viewer.next("session")["items"]) for viewer in viewers], [1, 3])
        with view.connect() as other:
            hello = other.next("hello")
            self.assertEqual((hello["board"], hello["viewers"], hello["controls"]), (1, 2, False))
        for wrong in ("0", "3", "x", "-1", ""):
            with self.assertRaisesRegex(Refused, "404"):
                view.connect(board=wrong)

    def test_frames_of_all_boards_have_times(self):
        view = self.view(*self.BOARDS)
        for viewer in self.connect(view):
            wait_until(lambda viewer=viewer: "utc_s" in viewer.frame()[0]["result_info"][0][0], "a time")
            item = viewer.frame()[0]["result_info"][0][0]
            self.assertLess(item["utc_bound_s"], 0.1)
            self.assertLess(abs(item["utc_s"] - time.time()), TIME_OUT)

    def test_a_lost_board_does_not_stop_the_others(self):
        with Server("--tcp", "0") as stays:
            lost = Server("--tcp", "0")
            view = self.view(SINGLE, "--connect", stays.address, "--connect", lost.address)
            first, second = self.connect(view)
            second.frame()
            lost.process.kill()
            lost.process.communicate()
            second.state_with(lambda state: state["connection"] == "lost")
            frames = first.state_with(lambda state: True)["frames"]
            state = first.state_with(lambda state: state["frames"] > frames + 20)
            self.assertEqual((state["connection"], state["missing"]), ("connected", 0))

    def test_a_board_that_cannot_be_reached_is_named(self):
        with socket.create_server(("127.0.0.1", 0)) as closed:
            address = f"tcp:127.0.0.1:{closed.getsockname()[1]}"
        result = vantor("view", SINGLE, "--no-browser", "--connect", "sim:", "--connect", address)
        self.assertEqual(result.returncode, 4)
        self.assertIn(f"board {address} ", result.stderr)
        self.assertEqual(result.stdout, "")

    def test_a_recording_from_the_start_lists_all_boards(self):
        self.assertEqual(self.record(), (0, ""))
        place = pathlib.Path(self.folder, "both")
        collection = json.loads((place / "boards.sigmf-collection").read_text())["collection"]
        self.assertEqual([board["address"] for board in collection["vantor:boards"]], ["sim:--board 1", "sim:--board 2"])
        for board, items in zip(collection["vantor:boards"], (1, 3)):
            self.assertEqual(len(info(place / board["directory"])["items"]), items)
        self.assertEqual(len(collection["core:streams"]), 4)
        for stream in collection["core:streams"]:
            meta = (place / f"{stream['name']}.sigmf-meta").read_bytes()
            self.assertEqual(hashlib.sha512(meta).hexdigest(), stream["hash"])

    def test_recordings_of_several_boards_are_played_together(self):
        self.record()
        viewers = self.connect(self.view("both"))
        self.assertEqual([viewer.next("hello")["boards"] for viewer in viewers], [2, 2])
        viewers[1].send("pause")
        for viewer in viewers:
            position = viewer.state_with(lambda state: state["connection"] == "paused")["position"]
        middle = (position["begin_utc_s"] + position["end_utc_s"]) / 2
        viewers[0].send("seek", utc_s=middle, before=0.3)
        for viewer in viewers:
            times = [0]
            while times[-1] < middle - 0.06:
                times.append(viewer.frame()[0]["result_info"][0][0].get("utc_s", 0))
            before = [one for one in times if one > middle - 0.4]
            self.assertGreaterEqual(len(before), 6)
            self.assertEqual(before, sorted(before))
            self.assertLessEqual(before[-1], middle)
            state = viewer.state_with(lambda state: state["position"]["utc_s"] == middle)
            self.assertEqual(state["connection"], "paused")
        viewers[0].send("play")
        for viewer in viewers:
            self.assertGreater(viewer.frame()[0]["result_info"][0][0]["utc_s"], middle)
            viewer.state_with(lambda state: state["connection"] == "ended")
        viewers[1].send("seek", utc_s=0)
        for viewer in viewers:
            viewer.state_with(lambda state: state["position"]["utc_s"] == position["begin_utc_s"])
        # A frame of one board is a moment of all.
        viewers[1].send("seek", frame=10)
        now = viewers[1].state_with(lambda state: state["position"]["frame"] == 10)["position"]["utc_s"]
        viewers[0].state_with(lambda state: state["position"]["utc_s"] == now)


class CommandLine(unittest.TestCase):
    def test_wrong_boards_are_named(self):
        for arguments, message in (((SINGLE, "--connect", "sim:", "--connect", "sim:"), "twice"),
                                   (("--board", "sim:"), "CONFIG=ADDRESS"),
                                   ((SINGLE, "--board", f"{SINGLE}=sim:"), "CONFIG is for"),
                                   ((SINGLE, "--connect", "sim:", "--connect", "sim:--seed 2", "--truth", "x"), "--truth")):
            result = vantor("view", "--no-browser", *arguments)
            self.assertEqual(result.returncode, 2, result.stderr)
            self.assertIn(message, result.stderr)

    def test_wrong_arguments_are_named(self):
        for arguments, message in ((("--listen", "nowhere"), "--listen"), (("--listen", "127.0.0.1:99999"), "--listen"),
                                   ((SINGLE, "--connect", "nothing"), "not a valid address"),
                                   (("/no/such/file.json",), "/no/such/file.json")):
            result = vantor("view", "--no-browser", *arguments)
            self.assertNotEqual(result.returncode, 0)
            self.assertIn(message, result.stderr)

    def test_a_port_in_use_is_an_error(self):
        with socket.create_server(("127.0.0.1", 0)) as other:
            result = vantor("view", SINGLE, "--no-browser", "--listen", f"127.0.0.1:{other.getsockname()[1]}")
        self.assertEqual(result.returncode, 1)
        self.assertIn("in use", result.stderr)

    def test_only_an_address_beyond_loopback_causes_a_warning(self):
        for listen, warns in (("127.0.0.1:0", False), ("[::1]:0", False), ("0.0.0.0:0", True)):
            view = View(SINGLE, "--listen", listen)
            code, errors = view.end()
            self.assertEqual((code, "warning" in errors), (0, warns), errors)

    def test_every_signal_to_stop_ends_it(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            view = View(SINGLE)
            with view.connect() as viewer:
                viewer.frame()
                view.process.send_signal(number)
                wait_until(lambda view=view: view.process.poll() is not None, "the view to end")
            self.assertEqual(view.end(), (0, ""))


if __name__ == "__main__":
    unittest.main()
