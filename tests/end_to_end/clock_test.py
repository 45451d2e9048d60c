"""The clock of the simulated board can be wrong. Recorded times in UTC are right within their bounds, also then."""

import csv
import glob
import json
import os
import queue
import random
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

from pace import TICK_WRAP, TICKS_PER_SECOND, without_wraps
from vantor_process import TIME_OUT, VANTOR, Server, vantor, wait_until

ITEM = {"start_point": 80, "num_points": 40, "hwaas": 4}

# The same rate, kept by the sensors or by the server.
SENSORS_PACE = {"groups": [[{"sensor_id": 1, "config": {**ITEM, "frame_rate": 50}}]]}
SERVER_PACES = {"max_update_rate": 50, "groups": [[{"sensor_id": 1, "config": ITEM}],
                                                   [{"sensor_id": 2, "config": ITEM}]]}

SLOW = {"groups": [[{"sensor_id": 1, "config": {**ITEM, "frame_rate": 1}}]]}

# Busy machines may need several attempts to answer fast enough for a small bound.
ATTEMPTS = 10

# The true time is known to half a microsecond; the ticks are whole microseconds.
RESOLUTION = 2e-6


class JitteringLink:
    """A relay to a server that delays each piece of bytes, in both directions, by a random time; they stay in order."""

    def __init__(self, address, most_delay, seed):
        name, _, port = address.removeprefix("tcp:").rpartition(":")
        self.random = random.Random(seed)
        self.most_delay = most_delay
        self.delays = []
        self.server = socket.create_connection((name, int(port)), TIME_OUT)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"tcp:127.0.0.1:{self.listener.getsockname()[1]}"
        self.threads = [threading.Thread(target=self.run, daemon=True)]

    def __enter__(self):
        self.threads[0].start()
        return self

    def __exit__(self, *_):
        for thread in self.threads:
            thread.join(TIME_OUT)

    def run(self):
        """Connects a host with the server until one of them disconnects."""
        with self.server, self.listener, self.listener.accept()[0] as host:
            for end in (self.server, host):
                end.settimeout(None)
                end.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            self.threads += self.pass_on(host, self.server) + self.pass_on(self.server, host)
            for thread in self.threads[1:]:
                thread.join()

    def pass_on(self, source, target):
        """Starts the threads for one direction."""
        pieces = queue.SimpleQueue()
        threads = [threading.Thread(target=self.receive, args=(source, pieces), daemon=True),
                   threading.Thread(target=self.send, args=(target, pieces), daemon=True)]
        for thread in threads:
            thread.start()
        return threads

    def receive(self, source, pieces):
        """Receives pieces, and determines when they go on."""
        while data := source.recv(65536):
            self.delays.append(self.random.uniform(0.0, self.most_delay))
            pieces.put((time.monotonic() + self.delays[-1], data))
        pieces.put(None)

    @staticmethod
    def send(target, pieces):
        """Sends pieces when their time has come."""
        try:
            while piece := pieces.get():
                due, data = piece
                time.sleep(max(due - time.monotonic(), 0.0))
                target.sendall(data)
            target.shutdown(socket.SHUT_WR)
        except OSError:
            # The other end has disconnected.
            pass


def true_times(truth, ticks):
    """When the clock of the board showed ticks, in seconds since 1970 UTC."""
    rate = TICKS_PER_SECOND * (1.0 + truth["clock_error_ppm"] * 1e-6)
    start = truth["clock_start_utc_s"]
    wraps = round(((time.time() - start) * rate - ticks[0]) / TICK_WRAP)
    return [start + (tick + wraps * TICK_WRAP) / rate for tick in without_wraps(ticks)]


class ClockTest(unittest.TestCase):
    """Records servers whose clocks are wrong."""

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.truth = os.path.join(self.folder, "truth.jsonl")

    def server(self, *options):
        """A server whose ticks begin again with 0 three seconds after its start."""
        first_tick = TICK_WRAP - 3 * TICKS_PER_SECOND
        return Server("--tcp", "0", "--truth", self.truth, "--first-tick", str(first_tick), *options)

    def record(self, configuration, address, seconds):
        """Records, and checks the times; returns the bounds at the end."""
        output = tempfile.mkdtemp(dir=self.folder)
        document = os.path.join(output, "configuration.json")
        with open(document, "w", encoding="utf-8") as file:
            json.dump(configuration, file)
        output = os.path.join(output, "recording")
        result = vantor("record", document, "--connect", address, "--truth", self.truth, "--seconds", seconds,
                        "--output", output)
        self.assertEqual(result.returncode, 0, result.stderr)
        tables = sorted(glob.glob(os.path.join(output, "*.frames.csv")))
        self.assertEqual(len(tables), len(configuration["groups"]))
        return [self.check_table(table, seconds) for table in tables]

    def check_table(self, path, seconds):
        """Checks the times of an item; returns the last bound."""
        with open(os.path.join(os.path.dirname(path), "session.sigmf-collection"), encoding="utf-8") as file:
            truth = json.load(file)["collection"]["vantor:truth"]
        with open(path, encoding="ascii", newline="") as file:
            rows = list(csv.DictReader(file))
        self.assertGreater(float(rows[-1]["time_s"]), 0.9 * seconds)
        bound = None
        for row, true in zip(rows, true_times(truth, [int(row["tick"]) for row in rows])):
            if float(row["time_s"]) > 1.0 or row["utc_s"]:
                bound = float(row["utc_bound_s"])
                self.assertLessEqual(abs(float(row["utc_s"]) - true), bound + RESOLUTION, row)
        return bound


class Boards(ClockTest):
    """What the simulator says about its clock, seen from outside."""

    def lines(self):
        with open(self.truth, encoding="utf-8") as file:
            return [json.loads(line) for line in file]

    def test_ticks_are_wrong_as_the_truth_says(self):
        for error in (1000, -1000):
            with self.subTest(error), self.server("--clock-error", str(error)) as server, server.connect() as host:
                host.ask("configure", configuration=SLOW)
                truth = self.lines()[0]
                self.assertEqual(truth["clock_error_ppm"], error)
                asked, ticks, answered = [], [], []
                for _ in range(5):
                    asked.append(time.time())
                    ticks.append(host.ask("ping")["tick"])
                    answered.append(time.time())
                    host.ask("frame")
                self.assertLess(ticks[-1], ticks[0], "the ticks have begun again with 0")
                for earliest, true, latest in zip(asked, true_times(truth, ticks), answered):
                    self.assertLess(earliest - RESOLUTION, true)
                    self.assertLess(true, latest + RESOLUTION)

    def test_a_scene_that_starts_at_a_time_of_day_goes_on_in_true_time(self):
        start = time.time() - 1000.0
        with self.server("--clock-error", "1000", "--scene-start", f"{start:.6f}") as server, server.connect() as host:
            host.ask("configure", configuration=SLOW)
            for _ in range(5):
                host.ask("frame")
        truth, *frames = self.lines()
        for frame, true in zip(frames, true_times(truth, [frame["tick"] for frame in frames])):
            # The tick is that of the end of the frame.
            self.assertLess(frame["time_s"], true - start)

    def test_the_virtual_clock_is_right(self):
        with Server("--tcp", "0", "--truth", self.truth, "--clock", "virtual", "--first-tick", "123456") as server, \
                server.connect() as host:
            self.assertEqual(host.ask("ping")["tick"], 123456)
            host.ask("configure", configuration=SLOW)
            self.assertLessEqual(set(self.lines()[0]), {"session", "id", "seed", "clock", "sensors", "scene"})


class WrongClocks(ClockTest):
    def test_times_are_within_their_bounds_over_a_link_that_jitters(self):
        for seed, (error, configuration) in enumerate(((50, SENSORS_PACE), (-50, SERVER_PACES), (190, SENSORS_PACE))):
            with self.subTest(error):
                with self.server("--clock-error", str(error)) as server, \
                        JitteringLink(server.address, 0.02, seed) as link:
                    self.assertLess(max(self.record(configuration, link.address, 6)), 0.1)
                self.assertGreater(len(link.delays), 100)
                self.assertGreater(max(link.delays), 0.018)

    def test_bounds_are_small_over_a_link_that_does_not(self):
        for error, configuration in ((50, SENSORS_PACE), (-50, SERVER_PACES), (-190, SENSORS_PACE)):
            with self.subTest(error), self.server("--clock-error", str(error)) as server:
                for _ in range(ATTEMPTS):
                    bounds = self.record(configuration, server.address, 5)
                    if max(bounds) < 0.001:
                        break
                self.assertLess(max(bounds), 0.001)


class ClockOfTheHost(ClockTest):
    """Somebody sets the clock of the computer while a board is recorded."""

    ROWS = 60

    def record_while_the_clock_is_set(self, address, step):
        """Records more than ROWS frames before and after the clock is set; returns the path of the frame table."""
        output = tempfile.mkdtemp(dir=self.folder)
        document, is_set, is_read = (os.path.join(output, name) for name in ("configuration.json", "set", "read"))
        with open(document, "w", encoding="utf-8") as file:
            json.dump(SENSORS_PACE, file)
        output = os.path.join(output, "recording")
        table = os.path.join(output, "group-1-item-1.frames.csv")
        environment = {**os.environ, "LD_PRELOAD": os.environ["VANTOR_SET_CLOCK"], "VANTOR_CLOCK_SET": is_set,
                       "VANTOR_CLOCK_READ": is_read, "VANTOR_CLOCK_STEP": str(step)}

        def rows():
            with open(table, encoding="ascii") as file:
                return len(file.readlines())

        with subprocess.Popen([VANTOR, "record", document, "--connect", address, "--truth", self.truth, "--output",
                               output], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              env=environment) as recorder:
            self.addCleanup(recorder.kill)
            wait_until(lambda: os.path.exists(table) and rows() > self.ROWS, "the first frames")
            with open(is_set, "w", encoding="ascii"):
                pass
            wait_until(lambda: os.path.exists(is_read), "the recorder to read the clock")
            before = rows()
            wait_until(lambda: rows() > before + self.ROWS, "frames after the clock was set")
            recorder.send_signal(signal.SIGINT)
            errors = recorder.communicate(timeout=TIME_OUT)[1]
        self.assertEqual(recorder.returncode, 130, errors)
        return table

    def test_times_do_not_jump(self):
        if "VANTOR_SET_CLOCK" not in os.environ:
            self.skipTest("the system's function cannot be replaced in this build")
        for step in (3600, -3600):
            with self.subTest(step), self.server() as server:
                table = self.record_while_the_clock_is_set(server.address, step)
                self.assertLess(self.check_table(table, self.ROWS / 50), 0.1)
                with open(table, encoding="ascii", newline="") as file:
                    times = [float(row["utc_s"]) for row in csv.DictReader(file) if row["utc_s"]]
                self.assertGreater(len(times), self.ROWS)


if __name__ == "__main__":
    unittest.main()
