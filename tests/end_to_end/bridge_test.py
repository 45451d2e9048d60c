"""`vantor bridge` with a real broker: every frame is stored once, or is counted as missing."""

import json
import os
import re
import signal
import tempfile
import unittest
import urllib.request

from broker_process import SITE, Bridge, Broker, free_port, lost_frames, sessions
from vantor_process import Server, vantor, wait_until

SMALL = {"update_rate": 50.0, "groups": [[{"sensor_id": 1, "config": {"num_points": 50}}]]}

# Frames of 63 kB as fast as the server measures them.
LARGE = {"groups": [[{"sensor_id": 1, "config": {"sweeps_per_frame": 31, "num_points": 512}}]]}


class BridgeTest(unittest.TestCase):
    """A directory with configurations and a spool."""

    def setUp(self):
        self.directory = self.enterContext(tempfile.TemporaryDirectory())
        self.spool = os.path.join(self.directory, "spool")

    def bridge(self, broker, servers, *arguments, configuration=None, names=(), site=SITE):
        """Starts a bridge from servers to a broker."""
        path = os.path.join(self.directory, "config.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump(configuration or SMALL, file)
        names = names or [f"board-{number}" for number in range(len(servers))]
        connect = [f"--connect={name}={server.address}" for name, server in zip(names, servers)]
        return self.enterContext(Bridge(broker.address, path, *connect, *arguments, spool=self.spool, site=site))

    def server(self, *arguments):
        """Starts a server."""
        return self.enterContext(Server("--tcp", "0", *arguments))

    def frames_of(self, broker, board="board-0"):
        """Number of frames of a board that the broker has stored."""
        return sum(batch.header["frames"] for batch in broker.batches(board))

    def expect_complete(self, broker, board, frames):
        """Expects a single session of which all frames are stored, in their order."""
        batches = broker.batches(board)
        self.assertEqual(len(sessions(batches)), 1)
        self.assertEqual(lost_frames(batches), 0)
        self.assertEqual([batch.header["number"] for batch in batches], list(range(len(batches))))
        self.assertEqual(sum(batch.header["frames"] for batch in batches), frames)
        ticks = [header["result_info"][0][0]["tick"] for batch in batches for header, _ in batch.frames]
        self.assertEqual(ticks, sorted(set(ticks)))

    def stopped(self, bridge, request=signal.SIGINT):
        """Stops a bridge; returns the numbers of its last line."""
        output = bridge.stop(request)
        numbers = re.search(r"frames: (\d+), lost: (\d+), dropped: (\d+), batches stored: (\d+)", output)
        self.assertIsNotNone(numbers, output)
        return dict(zip(("frames", "lost", "dropped", "stored"), map(int, numbers.groups())))


class GoodDays(BridgeTest):
    """Nothing fails."""

    def test_stores_every_frame_of_every_board(self):
        broker = self.enterContext(Broker())
        bridge = self.bridge(broker, [self.server(), self.server()])
        wait_until(lambda: min(self.frames_of(broker, f"board-{i}") for i in range(2)) >= 100, "100 frames of each board")
        counted = self.stopped(bridge)
        self.assertEqual((counted["lost"], counted["dropped"]), (0, 0))
        frames = [self.frames_of(broker, f"board-{i}") for i in range(2)]
        self.assertEqual(sum(frames), counted["frames"])
        for i in range(2):
            self.expect_complete(broker, f"board-{i}", frames[i])

    def test_describes_the_session_and_its_end(self):
        broker = self.enterContext(Broker())
        bridge = self.bridge(broker, [self.server("--id", "0042")])
        wait_until(lambda: self.frames_of(broker) >= 20, "20 frames")
        self.stopped(bridge)
        first, *_, last = [batch.header for batch in broker.batches("board-0")]
        self.assertEqual(first["configuration"], SMALL)
        self.assertEqual(first["metadata"]["metadata"][0][0]["frame_data_length"], 50)
        self.assertEqual(first["server"]["board"]["id"], "0042")
        self.assertEqual((first["site"], first["board"]), ("hall", "board-0"))
        self.assertEqual(last["end"], "the bridge was stopped")
        self.assertNotIn("metadata", last)

    def test_dates_frames(self):
        broker = self.enterContext(Broker())
        bridge = self.bridge(broker, [self.server()])
        wait_until(lambda: self.frames_of(broker) >= 20, "20 frames")
        self.stopped(bridge)
        batch = broker.batches("board-0")[-2]
        item = batch.frames[0][0]["result_info"][0][0]
        self.assertEqual(item["utc_s"], batch.header["utc_s"])
        self.assertLess(item["utc_bound_s"], 1.0)

    def test_reports_states_and_figures(self):
        broker = self.enterContext(Broker())
        with Server("--tcp", "0", "--id", "door") as server:
            bridge = self.enterContext(self.plain_bridge(broker, server.address))
            wait_until(lambda: (broker.state("door") or {}).get("online"), "the state of the board")
            state = broker.state("door")
            self.assertEqual((state["board"], state["board_id"], state["lost"]), ("door", "door", 0))
            port = int(re.search(r"metrics on port (\d+)", bridge.lines[0])[1])
            url = f"http://127.0.0.1:{port}/metrics"
            with urllib.request.urlopen(url) as page:
                text = page.read().decode()
            self.assertIn('vantor_board_online{site="hall",board="door"} 1', text)
            self.assertRegex(text, r'vantor_board_frames_total\{site="hall",board="door"\} [1-9]')
        wait_until(lambda: not broker.state("door")["online"], "the board to be reported as lost")
        self.assertIn("fault", broker.state("door"))
        bridge.stop()

    def plain_bridge(self, broker, address):
        """A bridge of one board without a name, with figures."""
        path = os.path.join(self.directory, "config.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump(SMALL, file)
        return Bridge(broker.address, path, f"--connect={address}", "--metrics", str(free_port()), spool=self.spool)


class BadDays(BridgeTest):
    """Something fails."""

    def test_waits_for_a_broker_that_comes_later(self):
        broker = self.enterContext(Broker(starts=False))
        bridge = self.bridge(broker, [self.server()])
        bridge.wait_for("Cannot connect")
        bridge.wait_for("measuring")
        broker.start()
        bridge.wait_for("broker: connected")
        wait_until(lambda: self.frames_of(broker) >= 50, "50 frames")
        counted = self.stopped(bridge)
        self.expect_complete(broker, "board-0", counted["frames"])

    def test_loses_and_doubles_nothing_when_the_broker_is_killed(self):
        broker = self.enterContext(Broker())
        bridge = self.bridge(broker, [self.server()])
        for _ in range(2):
            before = self.frames_of(broker)
            wait_until(lambda: self.frames_of(broker) >= before + 25, "25 frames")
            broker.kill()
            broker.start()
        before = self.frames_of(broker)
        wait_until(lambda: self.frames_of(broker) >= before + 25, "25 frames")
        counted = self.stopped(bridge)
        self.expect_complete(broker, "board-0", counted["frames"])

    def test_passes_on_what_a_killed_bridge_has_received(self):
        broker = self.enterContext(Broker())
        server = self.server()
        bridge = self.bridge(broker, [server])
        wait_until(lambda: self.frames_of(broker) >= 25, "25 frames")
        broker.kill()
        bridge.wait_for("Cannot connect")
        size = os.path.getsize(os.path.join(self.spool, "batches"))
        bridge.kill()
        broker.start()
        stored = self.frames_of(broker)
        second = self.bridge(broker, [server])
        wait_until(lambda: len(sessions(broker.batches("board-0"))) == 2, "the session of the second bridge")
        self.assertEqual(os.path.getsize(os.path.join(self.spool, "batches")), size)
        self.stopped(second)
        first, last = sessions(broker.batches("board-0"))
        self.assertGreater(sum(batch.header["frames"] for batch in first), stored)
        self.assertEqual((lost_frames(first), lost_frames(last)), (0, 0))

    def test_ends_while_the_broker_hangs(self):
        broker = self.enterContext(Broker())
        server = self.server()
        bridge = self.bridge(broker, [server])
        wait_until(lambda: self.frames_of(broker) >= 25, "25 frames")
        broker.process.send_signal(signal.SIGSTOP)
        wait_until(lambda: re.search("broker: (the server did|Cannot)", bridge.messages()), "the bridge to notice it")
        counted = self.stopped(bridge, signal.SIGTERM)
        broker.process.send_signal(signal.SIGCONT)
        following = self.bridge(broker, [server])
        wait_until(lambda: len(sessions(broker.batches("board-0"))) == 2, "the session of the second bridge")
        self.stopped(following)
        first, last = sessions(broker.batches("board-0"))
        self.assertEqual((lost_frames(first), lost_frames(last)), (0, 0))
        self.assertEqual(sum(batch.header["frames"] for batch in first), counted["frames"])
        self.assertEqual(first[-1].header["end"], "the bridge was stopped")

    def test_leaves_the_batches_of_another_site_in_the_spool(self):
        broker = self.enterContext(Broker(starts=False))
        server = self.server()
        hall = self.bridge(broker, [server])
        hall.wait_for("Cannot connect")
        hall.wait_for("measuring")
        counted = self.stopped(hall)
        broker.start()
        yard = self.bridge(broker, [server], site="yard")
        wait_until(lambda: broker.batches("board-0", "yard"), "a batch of the other site")
        self.stopped(yard)
        self.assertEqual(broker.batches("board-0"), [])
        self.assertEqual(len(sessions(broker.batches("board-0", "yard"))), 1)
        hall = self.bridge(broker, [server])
        wait_until(lambda: len(sessions(broker.batches("board-0"))) == 2, "the next session of the first site")
        self.stopped(hall)
        first, _ = sessions(broker.batches("board-0"))
        self.assertEqual(sum(batch.header["frames"] for batch in first), counted["frames"])
        self.assertEqual(lost_frames(first), 0)

    def test_stands_forged_answers(self):
        broker = self.enterContext(Broker())
        bridge = self.bridge(broker, [self.server()])
        forged = [b"", b"[]", b"{", b"{}", b'{"error":1}', b'{"error":{"code":503}}', b'{"stream":"other","seq":1}',
                  b'{"stream":"vantor-hall-frames"}', b"[" * 3000, b'{"seq":"' + b"x" * 5000 + b'"}']
        with broker.client() as client:
            subjects = client.reply_subjects(b"vantor.hall.board-0.frames")
            for number in range(60):
                inbox, _, token = next(subjects).rpartition(b".")
                for answered in (token, b"%d" % (int(token) + 1), b"x", b"18446744073709551616"):
                    client.publish(inbox + b"." + answered, forged[number % len(forged)])
        wanted = self.frames_of(broker) + 25
        wait_until(lambda: self.frames_of(broker) >= wanted, "frames after the forged answers")
        counted = self.stopped(bridge)
        self.expect_complete(broker, "board-0", counted["frames"])

    def test_counts_what_a_full_spool_drops(self):
        broker = self.enterContext(Broker(starts=False))
        bridge = self.bridge(broker, [self.server()], "--spool-size", "8", configuration=LARGE)
        bridge.wait_for("the spool is full")
        broker.start()
        bridge.wait_for("broker: connected")
        # Frames after the gap.
        wait_until(lambda: lost_frames(broker.batches("board-0")) > 0, "frames after the gap")
        counted = self.stopped(bridge)
        batches = broker.batches("board-0")
        self.assertGreater(counted["dropped"], 0)
        self.assertEqual(lost_frames(batches), counted["dropped"])
        self.assertEqual(sum(batch.header["frames"] for batch in batches) + counted["dropped"], counted["frames"])

    def test_connects_again_to_a_board_that_was_killed(self):
        broker = self.enterContext(Broker())
        with Server("--tcp", "0") as server:
            port = server.address.rpartition(":")[2]
            bridge = self.bridge(broker, [server])
            wait_until(lambda: self.frames_of(broker) >= 25, "25 frames")
        bridge.wait_for("closed the connection")
        with Server("--tcp", port) as server:
            wait_until(lambda: len(sessions(broker.batches("board-0"))) == 2, "a second session")
            self.stopped(bridge)
        first, last = sessions(broker.batches("board-0"))
        self.assertIn("closed", first[-1].header["end"])
        self.assertEqual((lost_frames(first), lost_frames(last)), (0, 0))

    def test_refuses_a_second_bridge_with_the_same_spool(self):
        broker = self.enterContext(Broker())
        self.bridge(broker, [self.server()])
        result = vantor("bridge", broker.address, os.path.join(self.directory, "config.json"), "--site", "hall",
                        "--spool", self.spool, "--connect", "sim:")
        self.assertEqual(result.returncode, 7)
        self.assertIn("Another program uses", result.stderr)


class WrongOptions(unittest.TestCase):
    """Command lines that say what to change."""

    def expect_usage_error(self, expected, *arguments):
        """Expects exit code 2 and a message."""
        result = vantor("bridge", *arguments)
        self.assertEqual(result.returncode, 2, result.stderr)
        self.assertIn(expected, result.stderr)

    def test_are_refused(self):
        with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
            json.dump(SMALL, file)
            file.flush()
            good = ("nats:localhost", file.name, "--site", "hall")
            self.expect_usage_error("No board is given", *good)
            self.expect_usage_error("given twice", *good, "--connect", "tcp:a:1", "--connect", "tcp:a:1")
            self.expect_usage_error("cannot be the name", *good, "--connect", "a b=tcp:a:1")
            self.expect_usage_error("--site must be", *good[:2], "--site", "my hall", "--connect", "tcp:a:1")
            self.expect_usage_error("need each other", *good, "--connect", "tcp:a:1", "--tls-cert", "c.pem")
            with tempfile.NamedTemporaryFile("w", suffix=".txt") as boards:
                boards.write("# all of them\ndoor = tcp:a:1\n\ngate=tcp:a:2 # the old one\n")
                boards.flush()
                self.expect_usage_error(f"{boards.name}:4: The port", *good, "--boards", boards.name)
            spool = os.path.join(os.path.dirname(file.name), "never-created")
            self.expect_usage_error("not a valid address", "amqp:localhost", *good[1:], "--connect", "tcp:a:1",
                                    "--spool", spool)
            self.assertFalse(os.path.exists(spool))


if __name__ == "__main__":
    unittest.main()
