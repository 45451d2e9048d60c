"""`vantor record` with several boards: what happens to one does not happen to the others, and every gap is counted."""

import csv
import json
import os
import re
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

import sigmf_rules
from pace import check_places, without_wraps
from vantor_process import EXAMPLES, TIME_OUT, VANTOR, Server, vantor, wait_until

# Rates tried one after the other, until a busy machine leaves out no frame of a board that is not disturbed.
RATES = (20.0, 10.0, 5.0, 2.5)
SUSPENSION = 3.0  # seconds; the recorder gives a board up that is silent for 10 s
AFTERWARDS = 5  # frames of each board after the disturbances

# Frames of 63 kB, 32 in a second, over a link that carries a tenth of that.
SLOW = {"max_update_rate": 32.0, "groups": [[{"sensor_id": 1, "config": {"sweeps_per_frame": 31, "num_points": 512}}]]}
SLOW_BYTES_PER_SECOND = 200_000


class SlowRelay(threading.Thread):
    """A relay between one host and a server over TCP that passes few bytes in a second from the server to the host."""

    PIECE = 4096

    def __init__(self, address):
        super().__init__(daemon=True)
        name, _, port = address.removeprefix("tcp:").rpartition(":")
        self.server = socket.socket()
        # So that little is on its way.
        self.server.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2 * self.PIECE)
        self.server.connect((name, int(port)))
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"tcp:127.0.0.1:{self.listener.getsockname()[1]}"

    def run(self):
        host, _ = self.listener.accept()
        threading.Thread(target=self.pass_commands, args=(host,), daemon=True).start()
        try:
            while data := self.server.recv(self.PIECE):
                host.sendall(data)
                # The time on the line.
                time.sleep(len(data) / SLOW_BYTES_PER_SECOND)
        except OSError:
            pass
        host.close()

    def pass_commands(self, host):
        try:
            while data := host.recv(self.PIECE):
                self.server.sendall(data)
            self.server.shutdown(socket.SHUT_WR)
        except OSError:
            pass


class Board:
    """The recording of a board, which may still be written."""

    def __init__(self, folder, name):
        self.directory = os.path.join(folder, name)

    def document(self, name):
        with open(os.path.join(self.directory, name), encoding="utf-8") as file:
            return json.load(file)

    def ticks(self):
        """The tick of each complete row of the frame table; none if there is no table yet."""
        table = os.path.join(self.directory, "group-1-item-1.frames.csv")
        if not os.path.exists(table):
            return []
        with open(table, encoding="ascii") as file:
            rows = file.read().rpartition("\n")[0].splitlines()
        return [int(row["tick"]) for row in csv.DictReader(rows)]

    def period(self):
        return self.document("session.sigmf-collection")["collection"]["vantor:metadata"]["tick_period"]

    def captures(self):
        return self.document("group-1-item-1.sigmf-meta")["captures"]

    def samples_per_frame(self):
        return self.document("group-1-item-1.sigmf-meta")["global"]["vantor:samples_per_frame"]


def periods_between(ticks, period):
    """The periods from the first to the last of these ticks, which are in one session."""
    ticks = without_wraps(ticks)
    return (ticks[-1] - ticks[0]) / period


class Boards(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def write(self, name, document):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            json.dump(document, file)
        return path

    def start_server(self, name, port="0"):
        """Starts a server that ends with the test, however it has ended before."""
        server = Server("--tcp", port, "--name", name)

        def end():
            server.process.kill()
            server.process.communicate(timeout=TIME_OUT)

        self.addCleanup(end)
        return server

    def disturb(self, servers, output):
        """Kills one server and starts it again at the same port, suspends another one, and waits for the third."""
        boards = {name: Board(output, name) for name in (*servers, "slow")}
        wait_until(lambda: all(len(board.ticks()) > 2 for board in boards.values()), "frames of all boards")
        killed = servers["killed"]
        killed.process.kill()
        killed.process.communicate(timeout=TIME_OUT)
        before = len(boards["killed"].ticks())
        started = time.monotonic()
        servers["suspended"].process.send_signal(signal.SIGSTOP)
        # The time is what is tested; nothing depends on how exact it is.
        time.sleep(SUSPENSION)
        servers["suspended"].process.send_signal(signal.SIGCONT)
        self.start_server("killed", killed.address.rpartition(":")[2])
        least_break = time.monotonic() - started
        counts = {name: len(board.ticks()) for name, board in boards.items()}
        wait_until(lambda: len(boards["killed"].ticks()) > before + AFTERWARDS, "frames of the server that was killed")
        wait_until(lambda: len(boards["suspended"].ticks()) > counts["suspended"] + AFTERWARDS,
                   "frames after the suspension")
        slow = boards["slow"]
        wait_until(lambda: periods_between(slow.ticks(), slow.period()) > len(slow.ticks()) + 1,
                   "a gap of the slow board")
        return least_break

    def record_disturbed(self, rate, output):
        """Records five boards, three of which are disturbed; returns the report, and how long the break is at least."""
        shared = self.write("shared.json", {
            "max_update_rate": rate, "groups": [[{"sensor_id": 1, "config": {"num_points": 50}}]]})
        slow = self.write("slow.json", SLOW)
        servers = {name: self.start_server(name) for name in ("first", "killed", "suspended", "last")}
        relay = SlowRelay(self.start_server("slow").address)
        relay.start()
        options = [option for server in servers.values() for option in ("--connect", server.address)]
        recorder = subprocess.Popen(
            [VANTOR, "record", shared, *options, "--board", f"{slow}={relay.address}", "--reconnect", "--json",
             "--output", output], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        try:
            least_break = self.disturb(servers, output)
            recorder.send_signal(signal.SIGINT)
            text, errors = recorder.communicate(timeout=TIME_OUT)
        finally:
            recorder.kill()
        self.assertEqual(recorder.returncode, 130, errors)
        return json.loads(text), least_break

    def check_counts(self, board, report):
        """
        In every session of a board, the frames recorded and those missing are all that were due by the ticks. Returns
        how many are missing.
        """
        ticks, captures = board.ticks(), board.captures()
        self.assertEqual(len(ticks), report["frames"])
        missing, session = 0, []
        for part, following in zip(captures, [*captures[1:], None]):
            if "vantor:break" in part:
                self.check_session(session, board.period())
                session = []
            missing += part["vantor:frames_missing"]
            begin = part["core:sample_start"] // board.samples_per_frame()
            end = following["core:sample_start"] // board.samples_per_frame() if following else len(ticks)
            session += [(ticks[frame], frame + missing) for frame in range(begin, end)]
        self.check_session(session, board.period())
        self.assertEqual(report["frames_missing"], missing)
        about = json.loads(vantor("info", board.directory, "--json").stdout)
        self.assertEqual((about["frames"], about["frames_missing"]), (len(ticks), missing))
        return missing

    @staticmethod
    def check_session(session, period):
        """Each frame was measured when the one with its number, missing ones counted, was due, or less than a period
        later."""
        ticks, places = zip(*session)
        check_places(ticks, period, places, [place + 1 for place in places])

    def check_collection(self, output, names):
        """The collection lists the boards, and all items with the digests of their final metadata."""
        digests = {}
        for name in names:
            item = f"{name}/group-1-item-1"
            _, digests[item] = sigmf_rules.read_json(os.path.join(output, item + ".sigmf-meta"))
        document, _ = sigmf_rules.read_json(os.path.join(output, "boards.sigmf-collection"))
        sigmf_rules.check_collection(document, digests)
        self.assertEqual([board["directory"] for board in document["collection"]["vantor:boards"]], names)

    def run_disturbed(self, rate):
        """Records once and checks the counts; returns the frames missing of boards that were not disturbed."""
        output = os.path.join(self.folder, f"recording-{rate}")
        report, least_break = self.record_disturbed(rate, output)
        names = ["first", "killed", "suspended", "last", "slow"]
        self.assertEqual([board["board"] for board in report["boards"]], names)
        self.assertEqual([board["failure"] for board in report["boards"]], [None] * len(names))
        missing = {board["board"]: self.check_counts(Board(output, board["board"]), board)
                   for board in report["boards"]}
        breaks = {board["board"]: board["breaks"] for board in report["boards"]}
        self.assertEqual([part["reason"] for part in breaks.pop("killed")], ["connected again"])
        self.assertEqual(set(map(len, breaks.values())), {0})
        # The frames that would have been due in the break are known from its span.
        span = report["boards"][1]["breaks"][0]["seconds"]
        # The recorder may have read the last frame a little later.
        self.assertGreaterEqual(span, least_break - 1.0)
        self.assertGreaterEqual(missing["suspended"], int(SUSPENSION * rate) - 2)
        self.assertGreater(missing["slow"], 0)
        self.check_collection(output, names)
        return missing["first"] + missing["last"]

    def test_boards_that_are_not_disturbed_lose_nothing(self):
        for rate in RATES:
            lost = self.run_disturbed(rate)
            if lost == 0:
                return
        self.fail(f"even at {RATES[-1]} Hz, {lost} frames of boards that were not disturbed are missing")

    def test_private_servers_are_recorded_with_their_truths(self):
        output = os.path.join(self.folder, "out")
        config = os.path.join(EXAMPLES, "single_sensor.json")
        result = vantor("record", config, "--frames", "5", "--output", output, "--connect", "sim:--board 1 --id 1",
                        "--connect", "sim:--board 2 --id 2")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.check_collection(output, ["simulated-board-1", "simulated-board-2"])
        for number in (1, 2):
            about = json.loads(vantor("info", os.path.join(output, f"simulated-board-{number}"), "--json").stdout)
            self.assertEqual((about["frames"], about["frames_missing"]), (5, 0))
            self.assertTrue(os.path.exists(os.path.join(output, f"simulated-board-{number}", "truth.jsonl")))
            sigmf_rules.check_recording(os.path.join(output, f"simulated-board-{number}"))

    def test_a_board_that_ends_does_not_end_the_other(self):
        output = os.path.join(self.folder, "out")
        config = os.path.join(EXAMPLES, "single_sensor.json")
        lost, kept = self.start_server("lost"), self.start_server("kept")
        recorder = subprocess.Popen(
            [VANTOR, "record", config, "--output", output, "--connect", lost.address, "--connect", kept.address],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        try:
            boards = [Board(output, name) for name in ("lost", "kept")]
            wait_until(lambda: all(board.ticks() for board in boards), "the first frames")
            lost.process.kill()
            lost.process.communicate(timeout=TIME_OUT)
            wait_until(lambda: "core:sha512" in boards[0].document("group-1-item-1.sigmf-meta")["global"],
                       "the end of the recording of the lost board")
            before = len(boards[1].ticks())
            wait_until(lambda: len(boards[1].ticks()) > before + AFTERWARDS, "further frames of the other board")
            recorder.send_signal(signal.SIGINT)
            text, errors = recorder.communicate(timeout=TIME_OUT)
        finally:
            recorder.kill()
        self.assertEqual(recorder.returncode, 4)
        self.assertRegex(errors, re.compile(r"^vantor: lost: ", re.MULTILINE))
        self.assertIn("board kept:\n", text)


if __name__ == "__main__":
    unittest.main()
