"""Boards behind a broker as the source of `vantor record`: nothing is missing, or it is counted."""

import csv
import glob
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

from broker_process import Bridge, Broker, lost_frames
from vantor_process import TIME_OUT, VANTOR, Host, Server, SocketStream, vantor, wait_until

PACED = {"update_rate": 50.0, "groups": [[{"sensor_id": 1, "config": {"num_points": 50}}]]}
UNPACED = {"groups": [[{"sensor_id": 1, "config": {"num_points": 50}}, {"sensor_id": 2, "config": {"num_points": 20}}]]}

# A broker has nothing that is older.
LONG_AGO = "2026-01-01T00:00:00Z"


class RemoteBoard(unittest.TestCase):
    """A board behind a broker."""

    def setUp(self):
        self.directory = self.enterContext(tempfile.TemporaryDirectory())
        self.output = os.path.join(self.directory, "recording")

    def bridge(self, broker, server, configuration, *arguments):
        """Starts a bridge."""
        self.configuration = os.path.join(self.directory, "config.json")
        with open(self.configuration, "w", encoding="utf-8") as file:
            json.dump(configuration, file)
        return self.enterContext(Bridge(broker.address, self.configuration, f"--connect=door={server.address}",
                                        *arguments, spool=os.path.join(self.directory, "spool")))

    def frames_of(self, broker):
        """Number of frames that the broker has stored."""
        return sum(batch.header["frames"] for batch in broker.batches("door"))

    def wait_for_frames(self, broker, count=25):
        """Waits until the broker has stored more frames."""
        wanted = self.frames_of(broker) + count
        wait_until(lambda: self.frames_of(broker) >= wanted, "frames at the broker")

    def recorder(self, broker, *arguments, time=LONG_AGO):
        """Starts a recorder of the board."""
        return subprocess.Popen([VANTOR, "record", "--connect", f"{broker.address}/hall/door@{time}", "--output",
                                 self.output, "--json", *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def finished(self, recorder):
        """Waits for a recorder; returns its report."""
        output, errors = recorder.communicate(timeout=TIME_OUT)
        self.assertEqual(recorder.returncode, 0, errors)
        return json.loads(output)

    def recorded_frames(self):
        """Number of frames in the recording so far."""
        tables = glob.glob(os.path.join(self.output, "*.csv"))
        return sum(1 for _ in open(tables[0], encoding="utf-8")) - 1 if tables else 0

    def test_gives_the_same_samples_as_the_board_itself(self):
        broker = self.enterContext(Broker())
        server = ("--tcp", "0", "--clock", "virtual", "--seed", "7")
        with Server(*server) as board:
            bridge = self.bridge(broker, board, UNPACED)
            wait_until(lambda: self.frames_of(broker) >= 200, "200 frames")
            bridge.stop()
        self.finished(self.recorder(broker, "--frames", "200"))
        direct = os.path.join(self.directory, "direct")
        with Server(*server) as board:
            result = vantor("record", self.configuration, "--frames", 200, "--connect", board.address, "--output", direct)
            self.assertEqual(result.returncode, 0, result.stderr)
        data = [os.path.relpath(path, direct) for path in glob.glob(os.path.join(direct, "**/*.sigmf-data"), recursive=True)]
        self.assertEqual(len(data), 2)
        for name in data:
            with open(os.path.join(direct, name), "rb") as one, open(os.path.join(self.output, name), "rb") as other:
                self.assertEqual(one.read(), other.read(), name)

    def test_gives_frames_from_now_on(self):
        broker = self.enterContext(Broker())
        server = self.enterContext(Server("--tcp", "0"))
        self.bridge(broker, server, PACED)
        self.wait_for_frames(broker)
        result = vantor("record", "--connect", f"{broker.address}/hall/door", "--frames", 25, "--output", self.output)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("25 frames", result.stdout)
        self.assertIn("times in UTC: known within", result.stdout)

    def test_misses_nothing_while_broker_and_reader_fail(self):
        broker = self.enterContext(Broker())
        server = self.enterContext(Server("--tcp", "0"))
        self.bridge(broker, server, PACED)
        self.wait_for_frames(broker)
        recorder = self.recorder(broker, "--frames", "300")
        wait_until(lambda: self.recorded_frames() > 0, "a recording")
        recorder.send_signal(signal.SIGSTOP)
        self.wait_for_frames(broker, 50)
        recorder.send_signal(signal.SIGCONT)
        broker.kill()
        broker.start()
        self.wait_for_frames(broker)
        report = self.finished(recorder)
        self.assertEqual((report["frames"], report["frames_missing"]), (300, 0))

    def last_tick(self):
        """The tick of the last frame in the recording so far."""
        table, = glob.glob(os.path.join(self.output, "*.csv"))
        with open(table, encoding="utf-8") as file:
            rows = list(csv.DictReader(file))
        return int(rows[-1]["tick"] or 0)

    def test_goes_on_when_the_broker_has_lost_its_store(self):
        broker = self.enterContext(Broker())
        server = self.enterContext(Server("--tcp", "0"))
        bridge = self.bridge(broker, server, PACED)
        self.wait_for_frames(broker)
        recorder = self.recorder(broker, "--reconnect")
        wait_until(lambda: self.recorded_frames() > 25, "a recording")
        broker.kill()
        shutil.rmtree(broker.store)
        os.mkdir(broker.store)
        broker.start()
        self.wait_for_frames(broker)
        frames, lost, dropped = map(int, re.search(r"frames: (\d+), lost: (\d+), dropped: (\d+)", bridge.stop()).groups())
        self.assertEqual(dropped, 0)
        headers = [header for batch in broker.batches("door") for header, _ in batch.frames]
        last = headers[-1]["result_info"][0][0]["tick"]
        wait_until(lambda: self.last_tick() >= last, "the last frame")
        recorder.send_signal(signal.SIGINT)
        output, errors = recorder.communicate(timeout=TIME_OUT)
        self.assertEqual(recorder.returncode, 130, errors)
        report = json.loads(output)
        # Those that the recorder had not read when the store was lost are missing.
        self.assertEqual(report["frames"] + report["frames_missing"], frames + lost)

    def store_undescribed(self, broker):
        """Stores the batches of a session without the one that describes it."""
        server = self.enterContext(Server("--tcp", "0"))
        bridge = self.bridge(broker, server, PACED)
        self.wait_for_frames(broker)
        bridge.stop()
        with broker.client() as client:
            described, *others = client.stored("vantor-hall-frames", "vantor.hall.door.frames")
            self.assertIn(b'"metadata"', described.partition(b"\n")[0])
            client.ask("$JS.API.STREAM.PURGE.vantor-hall-frames")
            for batch in others:
                self.assertNotIn(b'"metadata"', batch.partition(b"\n")[0])
                client.publish(b"vantor.hall.door.frames", batch)
        wait_until(lambda: len(broker.batches("door")) == len(others), "the batches")

    def test_says_that_nothing_describes_a_session(self):
        broker = self.enterContext(Broker())
        self.store_undescribed(broker)
        recorder = self.recorder(broker, "--frames", "10")
        _, errors = recorder.communicate(timeout=TIME_OUT)
        self.assertEqual(recorder.returncode, 4, errors)
        self.assertIn("has sent nothing that describes its session", errors)

    def test_stops_at_once_while_nothing_describes_a_session(self):
        broker = self.enterContext(Broker())
        self.store_undescribed(broker)
        recorder = self.recorder(broker, "--frames", "10")
        # It asks for the batches that nothing describes.
        with broker.client() as client:
            wait_until(lambda: client.ask("$JS.API.STREAM.INFO.vantor-hall-frames")["state"]["consumer_count"] == 1, "it to read")
        recorder.send_signal(signal.SIGINT)
        _, errors = recorder.communicate(timeout=TIME_OUT)
        self.assertEqual(recorder.returncode, 130, errors)

    def test_counts_the_frames_that_a_full_spool_drops(self):
        broker = self.enterContext(Broker(starts=False))
        server = self.enterContext(Server("--tcp", "0"))
        # Slow enough that a busy machine leaves no frame out.
        large = {"update_rate": 20.0, "groups": [[{"sensor_id": number, "config": {"sweeps_per_frame": 31, "num_points": 512}}
                                                  for number in (1, 2, 3)]]}
        bridge = self.bridge(broker, server, large, "--spool-size", "8")
        bridge.wait_for("the spool is full")
        broker.start()
        wait_until(lambda: lost_frames(broker.batches("door")) > 0, "frames after the gap")
        self.wait_for_frames(broker)
        bridge.stop()
        batches = broker.batches("door")
        frames = sum(batch.header["frames"] for batch in batches)
        lost = lost_frames(batches) + batches[-1].header["missing"]
        recorder = self.recorder(broker, "--frames", str(frames))
        report = self.finished(recorder)
        self.assertGreater(lost, 0)
        self.assertEqual((report["frames"], report["frames_missing"]), (frames, lost))

    def test_goes_on_with_the_next_session(self):
        broker = self.enterContext(Broker())
        server = self.enterContext(Server("--tcp", "0"))
        for _ in range(2):
            bridge = self.bridge(broker, server, PACED)
            self.wait_for_frames(broker)
            bridge.stop()
        frames = self.frames_of(broker)
        report = self.finished(self.recorder(broker, "--frames", str(frames), "--reconnect"))
        self.assertEqual((report["frames"], report["frames_missing"]), (frames, 0))

    def test_replay_goes_on_with_the_next_session(self):
        broker = self.enterContext(Broker())
        server = self.enterContext(Server("--tcp", "0"))
        bridge = self.bridge(broker, server, PACED)
        self.wait_for_frames(broker)
        replay = self.enterContext(subprocess.Popen([VANTOR, "replay", f"{broker.address}/hall/door@{LONG_AGO}"],
                                                    stdout=subprocess.PIPE, text=True))
        self.addCleanup(replay.kill)
        address = replay.stdout.readline().removeprefix("listening on ").strip()
        recorder = subprocess.Popen([VANTOR, "record", "--connect", address, "--output", self.output, "--json",
                                     "--reconnect"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(recorder.kill)
        wait_until(lambda: self.recorded_frames() >= 25, "a recording")
        bridge.stop()
        following = self.bridge(broker, server, PACED)
        self.wait_for_frames(broker)
        following.stop()
        frames = self.frames_of(broker)
        wait_until(lambda: self.recorded_frames() >= frames, "all frames in the recording")
        recorder.send_signal(signal.SIGINT)
        output, errors = recorder.communicate(timeout=TIME_OUT)
        self.assertEqual(recorder.returncode, 130, errors)
        report = json.loads(output)
        self.assertEqual((report["frames"], report["frames_missing"]), (frames, 0))

    def test_replay_keeps_notes_out_of_the_link(self):
        with Server("--tcp", "0", "--clock", "virtual") as server:
            configuration = os.path.join(self.directory, "config.json")
            with open(configuration, "w", encoding="utf-8") as file:
                json.dump(UNPACED, file)
            made = vantor("record", configuration, "--frames", 3, "--connect", server.address, "--output", self.output)
            self.assertEqual(made.returncode, 0, made.stderr)
        ours, theirs = socket.socketpair()
        with theirs:
            replay = subprocess.Popen([VANTOR, "replay", self.output, "--stdio", "--speed", "max"], stdin=theirs, stdout=theirs,
                                      stderr=subprocess.PIPE, text=True)
        self.addCleanup(replay.kill)
        with Host(SocketStream.of(ours)) as host:
            configuration = host.ask("identify")["configuration"]
            self.assertEqual(host.ask("configure", configuration=configuration)["status"], "ok")
            self.assertEqual(host.ask("start")["status"], "ok")
            # More than the recording has: it starts again. Each message is a frame.
            for _ in range(10):
                self.assertIn("result_info", host.message()[0])
            replay.send_signal(signal.SIGINT)
            with self.assertRaises(EOFError):
                while True:
                    self.assertIn("result_info", host.message()[0])
            self.assertEqual(host.pending, b"")
        errors = replay.communicate(timeout=TIME_OUT)[1]
        self.assertEqual(replay.returncode, 0, errors)
        self.assertIn("starts again after the last of 3 frames", errors)
        self.assertIn("stopped; hosts served: 1", errors)

    def test_begins_at_a_time(self):
        broker = self.enterContext(Broker())
        server = self.enterContext(Server("--tcp", "0"))
        bridge = self.bridge(broker, server, PACED)
        self.wait_for_frames(broker, 100)
        bridge.stop()
        middle = broker.batches("door")[5].header["utc_s"]
        text = time.strftime("%Y-%m-%dT%H:%M:%S", time.gmtime(middle)) + f"{middle % 1:.6f}"[1:] + "Z"
        self.finished(self.recorder(broker, "--frames", "10", time=text))
        table = glob.glob(os.path.join(self.output, "*.csv"))[0]
        with open(table, encoding="utf-8") as file:
            head, first = file.readline().strip().split(","), file.readline().strip().split(",")
        self.assertAlmostEqual(float(first[head.index("utc_s")]), middle, delta=2e-6)

    def test_says_what_is_wrong(self):
        broker = self.enterContext(Broker())
        result = vantor("record", "--connect", f"{broker.address}/hall/door", "--frames", 1, "--output", self.output)
        self.assertEqual(result.returncode, 4)
        self.assertRegex(result.stderr, re.escape("There are no frames of board door at site hall"))
        broker.kill()
        result = vantor("record", "--connect", f"{broker.address}/hall/door", "--frames", 1, "--output", self.output)
        self.assertEqual(result.returncode, 4)
        self.assertIn("Cannot connect to nats:127.0.0.1", result.stderr)
        result = vantor("record", "--connect", "nats:localhost/hall/door@2100-01-01T00:00:00Z", "--frames", 1)
        self.assertEqual(result.returncode, 2)
        self.assertIn("in the future", result.stderr)
        result = vantor("record", "--connect", "nats:localhost/hall", "--frames", 1)
        self.assertEqual(result.returncode, 2)
        self.assertIn("not a valid address", result.stderr)


if __name__ == "__main__":
    unittest.main()
