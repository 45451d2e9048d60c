"""Sessions from configuration to frames, over TCP and over a serial device."""

import os
import tempfile
import time
import unittest

from pace import UPTIME_ROUNDING, ServerPacedStream, check_server_paced
from vantor_process import Server, example, wait_until

FAST = ("--clock", "virtual")


def frame_bytes(metadata):
    """Returns the payload size of every frame of a session, in bytes."""
    return 4 * sum(item["frame_data_length"] for group in metadata["metadata"] for item in group)


class Session:
    """Runs over each kind of link."""

    link = ()

    def setUp(self):
        server = Server(*self.link, "--sensors", "3")
        self.server = self.enterContext(server)

    def test_metadata_describes_the_example(self):
        with self.server.connect() as host:
            configuration = example("two_sensors.json")
            metadata = host.ask("configure", configuration=configuration)
            self.assertEqual(metadata["status"], "ok")
            self.assertEqual([len(group) for group in metadata["metadata"]],
                             [len(group) for group in configuration["groups"]])
            self.assertEqual({entry["sensor_id"] for entry in metadata["calibration_info"]},
                             {item["sensor_id"] for group in configuration["groups"] for item in group})
            for entry in metadata["calibration_info"]:
                self.assertEqual(len(bytes.fromhex(entry["data"])), 240)

    def test_frames_have_the_announced_shape(self):
        with self.server.connect() as host:
            configuration = example("two_sensors.json")
            metadata = host.ask("configure", configuration=configuration)
            self.assertEqual(host.ask("start")["status"], "ok")
            ticks = []
            for _ in range(20):
                header, payload = host.message()
                self.assertEqual(list(header), ["result_info", "status", "payload_size"])
                self.assertEqual(len(payload), frame_bytes(metadata))
                self.assertEqual([len(group) for group in header["result_info"]],
                                 [len(group) for group in metadata["metadata"]])
                for group, items in zip(header["result_info"], configuration["groups"]):
                    for result, item in zip(group, items):
                        expected = 5
                        if item.get("cca_enable"):
                            expected = 9 if item.get("cca_debug") else 6
                        self.assertEqual(len(result), expected)
                self.assertTrue(any(payload), "all samples are zero")
                ticks.append(header["result_info"][0][0]["tick"])
            self.assertEqual(ticks, sorted(set(ticks)))

    def test_stop_ends_the_stream_and_start_resumes_it(self):
        with self.server.connect() as host:
            host.ask("configure", configuration=example("two_sensors.json"))
            host.ask("start")
            host.message()
            host.command("stop")
            answer, _ = host.answer()
            self.assertEqual(answer, {"status": "ok", "command": "stop", "payload_size": 0,
                                      "frames_left_out": host.ask("stats")["frames_left_out"]})
            self.assertEqual(host.ask("ping")["command"], "ping")
            self.assertEqual(host.ask("start")["status"], "ok")
            self.assertIn("result_info", host.message()[0])

    def test_single_frames_on_demand(self):
        with self.server.connect() as host:
            metadata = host.ask("configure", configuration=example("two_sensors.json"))
            for _ in range(3):
                host.command("frame")
                header, payload = host.message()
                self.assertIn("result_info", header)
                self.assertEqual(len(payload), frame_bytes(metadata))

    def test_session_with_a_returned_calibration_does_not_calibrate(self):
        with self.server.connect() as host:
            configuration = {**example("two_sensors.json"), "enable_diagnostics": True}
            first = host.ask("configure", configuration=configuration)
            self.assertEqual(host.ask("end")["status"], "ok")

            configuration["calibration_info"] = [
                {"sensor_id": entry["sensor_id"], "data": entry["data"]} for entry in first["calibration_info"]]
            host.ask("log", level="DEBUG")
            second, lines = self.configure_logged(host, configuration)
            self.assertEqual(second["calibration_info"], first["calibration_info"])
            self.assertEqual(second["metadata"], first["metadata"])
            self.assertFalse([line for line in lines if "calibration step" in line["message"].lower()])

            host.ask("end")
            configuration.pop("calibration_info")
            _, lines = self.configure_logged(host, configuration)
            self.assertTrue([line for line in lines if "calibration step" in line["message"].lower()])

    def configure_logged(self, host, configuration):
        """Configures a session; returns the metadata message and the log lines before and after it."""
        host.command("configure", configuration=configuration)
        host.command("ping")
        lines = []
        metadata = None
        while True:
            header, _ = host.message()
            if header["status"] == "log":
                lines.append(header)
            elif header.get("command") == "ping":
                return metadata, lines
            elif "metadata" in header:
                metadata = header

    def test_server_is_idle_after_a_host_disconnects_during_a_frame(self):
        for _ in range(3):
            with self.server.connect() as host:
                answer = host.ask("configure", configuration=example("two_sensors.json"))
                self.assertEqual(answer["status"], "ok", answer)
                host.ask("start")
                host.stream.receive()

    def test_a_session_with_an_invalid_item_is_refused(self):
        configuration = {"groups": [[{"sensor_id": 99, "config": {}}, {"sensor_id": 1, "config": {}}]]}
        with self.server.connect() as host:
            self.assertEqual(host.ask("configure", configuration=configuration)["code"], "config_sensor_id")
            self.assertEqual(host.ask("start")["code"], "wrong_state")
            self.assertEqual(host.ask("configure", configuration=example("two_sensors.json"))["status"], "ok")

    def test_statistics_count_frames_and_errors(self):
        with self.server.connect() as host:
            before = host.ask("stats")
            metadata = host.ask("configure", configuration=example("two_sensors.json"))
            for _ in range(4):
                host.command("frame")
                host.message()
            after = host.ask("stats")
            self.assertEqual(after["frames"] - before["frames"], 4)
            self.assertGreater(after["bytes_sent"] - before["bytes_sent"], 4 * frame_bytes(metadata))
            self.assertGreater(after["memory"]["live"], before["memory"]["live"])
            host.ask("end")
            self.assertEqual(host.ask("stats")["memory"]["live"], before["memory"]["live"])


class TcpSession(Session, unittest.TestCase):
    link = ("--tcp", "0", *FAST)


class PtySession(Session, unittest.TestCase):
    link = ("--pty", *FAST)


class RealClockSession(Session, unittest.TestCase):
    link = ("--tcp", "0")

    def test_frames_are_due_at_multiples_of_the_period(self):
        with self.server.connect() as host:
            check_server_paced(host, example("two_sensors.json"), 50, 30)

    def test_frames_that_are_left_out_are_reported(self):
        # A frame of two sweeps, 0.1 s apart, takes longer than two periods.
        item = {"sensor_id": 1, "config": {"num_points": 20, "sweeps_per_frame": 2, "sweep_rate": 10}}
        with self.server.connect() as host:
            period = host.ask("configure", configuration={"update_rate": 25, "groups": [[item]]})["tick_period"]
            self.assertEqual(period, 40000)
            stream = ServerPacedStream(host, 5)
            stream.check(period)
            self.assertGreaterEqual(stream.total_left_out(), 2 * 5)


class UnreadSession(unittest.TestCase):
    """A host that does not read, so that the server waits for it. A Unix socket stores only a few frames."""

    def setUp(self):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        self.server = self.enterContext(Server("--unix", os.path.join(directory, "radar.socket")))

    def test_every_frame_is_either_sent_or_counted_as_left_out(self):
        period = 0.02
        item = {"sensor_id": 1, "config": {"num_points": 512, "sweeps_per_frame": 31}}
        names = ("stats", "start", "stats", "stats", "stop", "stats")
        commands = [f'{{"command": "{name}"}}\n'.encode() for name in names]
        with self.server.connect() as host:
            metadata = host.ask("configure", configuration={"update_rate": 1 / period, "groups": [[item]]})
            self.assertEqual(metadata["tick_period"], 1_000_000 * period)
            host.send(b"".join(commands[:3]))
            wait_until(lambda: host.stream.unread() > 0, "the answers")
            # The time is what is tested; nothing depends on how exact it is.
            time.sleep(1)
            host.send(b"".join(commands[3:]))
            answers = [host.answer() for _ in names]
        before_start, _, after_start, before_stop, stop, after_stop = [header for header, _ in answers]
        due = sum(len(frames) for _, frames in answers) + stop["frames_left_out"]
        least = before_stop["uptime_s"] - after_start["uptime_s"] - UPTIME_ROUNDING
        most = after_stop["uptime_s"] - before_start["uptime_s"] + UPTIME_ROUNDING
        self.assertGreaterEqual(stop["frames_left_out"], 0.5 / period)
        self.assertGreaterEqual(due, int(least / period))
        self.assertLessEqual(due, int(most / period) + 1)
        self.assertEqual(after_stop["frames_left_out"], before_start["frames_left_out"] + stop["frames_left_out"])
