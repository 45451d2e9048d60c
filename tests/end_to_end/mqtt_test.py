"""`vantor bridge` with a real MQTT broker: frames arrive in their order, or are seen to be missing."""

import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.request

from broker_process import Batch, Bridge, free_port, lost_frames, sessions
from certificates import Certificates
from mqtt_process import Consumer, MqttBroker
from vantor_process import TIME_OUT, Server, vantor, wait_until

SMALL = {"update_rate": 50.0, "groups": [[{"sensor_id": 1, "config": {"num_points": 50}}]]}

# Frames of 63 kB: each fills a batch.
LARGE = {"update_rate": 10.0, "groups": [[{"sensor_id": 1, "config": {"sweeps_per_frame": 31, "num_points": 512}}]]}
SINGLE_FRAMES = ("--batch-size", "1")

DOCUMENT = os.path.join(os.path.dirname(__file__), "..", "..", "docs", "fleet.md")
FRAMES = "vantor/hall/+/frames"
STATES = "vantor/hall/+/state"
BRIDGES = "vantor/hall/bridges/+"

MOST_MEMORY = 64 << 20


class MqttTest(unittest.TestCase):
    """A directory with configurations and a spool."""

    def setUp(self):
        self.directory = self.enterContext(tempfile.TemporaryDirectory())

    def path(self, name, content=None):
        """A path in the directory, of a file with this content if it is given."""
        path = os.path.join(self.directory, name)
        if content is not None:
            with open(path, "w", encoding="utf-8") as file:
                file.write(content)
        return path

    def bridge(self, broker, boards, *arguments, configuration=None, name="west"):
        """Starts a bridge from boards, which are servers by their names, to a broker."""
        connect = [f"--connect={board}={server.address}" for board, server in boards.items()]
        return self.enterContext(
            Bridge(broker.address, self.path("config.json", json.dumps(configuration or SMALL)), *connect,
                   "--bridge-name", name, *arguments, spool=self.path(f"spool-{name}")))

    def server(self):
        """Starts a server."""
        return self.enterContext(Server("--tcp", "0"))

    def consumer(self, broker, *topics, **options):
        """Starts a program that reads."""
        return self.enterContext(Consumer(broker, *topics, **options))

    def wait_for_end(self, consumer, board):
        """Waits for the last batch of a session that has ended."""
        wait_until(lambda: "end" in consumer.batches(board)[-1].header, f"the end of the session of {board}")

    def expect_complete(self, consumer, board):
        """Expects a single session of which all frames have arrived; returns their number."""
        self.wait_for_end(consumer, board)
        batches = consumer.batches(board)
        self.assertEqual(len(sessions(batches)), 1)
        self.assertEqual(lost_frames(batches), 0)
        self.assertEqual([batch.header["number"] for batch in batches], list(range(len(batches))))
        ticks = [header["result_info"][0][0]["tick"] for batch in batches for header, _ in batch.frames]
        self.assertEqual(ticks, sorted(set(ticks)))
        return len(ticks)

    def stopped(self, bridge):
        """Stops a bridge; returns the number of frames in its last line."""
        output = bridge.stop()
        numbers = re.search(r"frames: (\d+), lost: 0, dropped: 0, batches stored: \d+", output)
        self.assertIsNotNone(numbers, output)
        return int(numbers[1])


class GoodDays(MqttTest):
    """Nothing fails."""

    def test_frames_of_all_boards_arrive_in_their_order(self):
        broker = self.enterContext(MqttBroker())
        consumer = self.consumer(broker, FRAMES)
        bridge = self.bridge(broker, {"door": self.server(), "gate": self.server()})
        consumer.wait_for_frames("door", 100)
        consumer.wait_for_frames("gate", 100)
        counted = self.stopped(bridge)
        self.assertEqual(self.expect_complete(consumer, "door") + self.expect_complete(consumer, "gate"), counted)

    def test_retains_states_and_says_whether_the_bridge_is_there(self):
        broker = self.enterContext(MqttBroker())
        bridge = self.bridge(broker, {"door": self.server()})
        first = self.consumer(broker, STATES, BRIDGES, name="first")
        wait_until(lambda: first.messages("vantor/hall/door/state"), "the state of the board")
        late = self.consumer(broker, STATES, BRIDGES, name="late")
        wait_until(lambda: late.messages("vantor/hall/door/state"), "the retained state of the board")
        wait_until(lambda: late.messages("vantor/hall/bridges/west"), "the retained state of the bridge")
        state = json.loads(late.messages("vantor/hall/door/state")[-1])
        self.assertEqual((state["board"], state["bridge"], state["online"]), ("door", "west", True))
        self.assertEqual(json.loads(late.messages("vantor/hall/bridges/west")[0]),
                         {"vantor_bridge": 1, "site": "hall", "bridge": "west", "online": True})
        self.stopped(bridge)
        wait_until(lambda: self.last(late, "bridges/west")["online"] is False, "the end of the bridge")
        wait_until(lambda: self.last(late, "door/state")["online"] is False, "the end of the session")

    def last(self, consumer, topic):
        """The last message of a topic."""
        return json.loads(consumer.messages(f"vantor/hall/{topic}")[-1])

    def test_the_last_will_tells_of_a_bridge_that_was_killed(self):
        broker = self.enterContext(MqttBroker())
        consumer = self.consumer(broker, BRIDGES)
        west, _ = (self.bridge(broker, {name: self.server()}, name=name) for name in ("west", "east"))
        for name in ("west", "east"):
            wait_until(lambda name=name: consumer.messages(f"vantor/hall/bridges/{name}"), f"the bridge {name}")
        west.kill()
        wait_until(lambda: self.last(consumer, "bridges/west")["online"] is False, "the last will")
        self.assertTrue(self.last(consumer, "bridges/east")["online"])

    def test_the_example_in_the_document_reads_frames(self):
        with open(DOCUMENT, encoding="utf-8") as file:
            example, = re.findall(r"```python\n(.*?)```", file.read(), re.DOTALL)
        broker = self.enterContext(MqttBroker())
        script = self.path("reader.py", example)
        with subprocess.Popen([sys.executable, "-W", "ignore", "-u", script, "127.0.0.1", str(broker.port), "hall"],
                              stdout=subprocess.PIPE, text=True) as reader:
            try:
                bridge = self.bridge(broker, {"door": self.server()})
                lines = [reader.stdout.readline() for _ in range(20)]
                self.stopped(bridge)
            finally:
                reader.kill()
        for line in lines:
            self.assertRegex(line, r"^door: batch \d+, \d+ frames, 200 bytes of samples in the first$")

    def test_serves_figures(self):
        broker = self.enterContext(MqttBroker())
        consumer = self.consumer(broker, FRAMES)
        port = free_port()
        self.bridge(broker, {"door": self.server()}, "--metrics", str(port))
        consumer.wait_for_frames("door", 1)

        def page():
            with urllib.request.urlopen(f"http://127.0.0.1:{port}/metrics") as answer:
                return answer.read().decode()

        wait_until(lambda: 'vantor_bridge_broker_ready{site="hall"} 1' in page(), "figures")
        self.assertRegex(page(), r'vantor_bridge_batches_stored_total\{site="hall"\} [1-9]')


class BadDays(MqttTest):
    """Something fails."""

    def test_waits_for_a_broker_that_comes_later(self):
        broker = self.enterContext(MqttBroker())
        consumer = self.consumer(broker, FRAMES)
        broker.kill()
        bridge = self.bridge(broker, {"door": self.server()})
        bridge.wait_for("Cannot connect to mqtt:127.0.0.1:")
        bridge.wait_for("door: measuring")
        broker.start()
        consumer.wait_for_frames("door", 50)
        counted = self.stopped(bridge)
        self.assertEqual(self.expect_complete(consumer, "door"), counted)

    def test_loses_nothing_when_the_broker_is_killed(self):
        broker = self.enterContext(MqttBroker())
        consumer = self.consumer(broker, FRAMES)
        bridge = self.bridge(broker, {"door": self.server(), "gate": self.server()})
        for _ in range(2):
            consumer.wait_for_frames("door", 25)
            broker.kill()
            broker.start()
        consumer.wait_for_frames("door", 25)
        consumer.wait_for_frames("gate", 25)
        counted = self.stopped(bridge)
        self.assertEqual(self.expect_complete(consumer, "door") + self.expect_complete(consumer, "gate"), counted)

    def test_a_reader_that_was_away_too_long_counts_what_it_misses(self):
        broker = self.enterContext(MqttBroker("max_queued_messages 10", "max_inflight_messages 5"))
        always = self.consumer(broker, FRAMES, name="always")
        away = self.consumer(broker, FRAMES, name="away")
        bridge = self.bridge(broker, {"door": self.server()}, "--batch-time", "20")
        away.wait_for_frames("door", 5)
        away.disconnect()
        always.wait_for_frames("door", 100)
        away.connect()
        away.wait_for_frames("door", 50)
        counted = self.stopped(bridge)
        self.wait_for_end(away, "door")
        self.assertGreater(lost_frames(away.batches("door")), 0)
        self.assertEqual(away.frames("door") + lost_frames(away.batches("door")), counted)

    def test_a_broker_that_hangs_neither_fills_the_memory_nor_keeps_the_bridge_from_ending(self):
        broker = self.enterContext(MqttBroker())
        consumer = self.consumer(broker, FRAMES)
        configuration = {"groups": LARGE["groups"]}  # as fast as the server measures
        bridge = self.bridge(broker, {"door": self.server()}, "--spool-size", "16", configuration=configuration)
        consumer.wait_for_frames("door", 5)
        broker.suspend()
        bridge.wait_for("did not answer in time")
        bridge.wait_for("the spool is full")
        self.assertLess(self.memory(bridge), MOST_MEMORY)
        bridge.process.send_signal(signal.SIGTERM)
        self.assertIn("wait in the spool", bridge.process.communicate(timeout=TIME_OUT)[0])
        self.assertEqual(bridge.process.returncode, 0)

    def memory(self, bridge):
        """Bytes that a process has in memory."""
        with open(f"/proc/{bridge.process.pid}/status", encoding="ascii") as file:
            return 1024 * int(re.search(r"^VmRSS:\s*(\d+)", file.read(), re.MULTILINE)[1])

    def test_drops_only_what_the_broker_does_not_take(self):
        largest, plain = self.sizes_of_batches()
        between = (largest + plain) // 2
        for limit in (f"max_packet_size {between + 512}", f"message_size_limit {between}"):
            with self.subTest(limit), MqttBroker(limit) as broker, Consumer(broker, FRAMES) as consumer:
                bridge = self.bridge(broker, {"door": self.server()}, *SINGLE_FRAMES, configuration=LARGE)
                bridge.wait_for("raise its max_packet_size or message_size_limit")
                consumer.wait_for_frames("door", 5)
                counted = self.stopped(bridge)
                self.wait_for_end(consumer, "door")
                lost = lost_frames(consumer.batches("door"))
                self.assertGreater(lost, 0)
                self.assertEqual(consumer.frames("door") + lost, counted)

    def sizes_of_batches(self):
        """Sizes of a batch that describes the session, and of one that does not."""
        with MqttBroker() as broker, Consumer(broker, FRAMES) as consumer:
            bridge = self.bridge(broker, {"door": self.server()}, *SINGLE_FRAMES, configuration=LARGE)
            consumer.wait_for_frames("door", 3)
            bridge.stop()
            first, second, *_ = consumer.messages("vantor/hall/door/frames")
        self.assertIn("metadata", Batch(first).header)
        self.assertNotIn("metadata", Batch(second).header)
        return len(first), len(second)

    def test_two_bridges_of_one_name_are_told(self):
        broker = self.enterContext(MqttBroker())
        bridge = self.bridge(broker, {"door": self.server()})
        bridge.wait_for("broker: connected")
        other = self.enterContext(
            Bridge(broker.address, self.path("config.json"), f"--connect=gate={self.server().address}",
                   "--bridge-name", "west", spool=self.path("spool-other")))
        bridge.wait_for("another bridge of the site has the same name")
        other.wait_for("another bridge of the site has the same name")


class Security(MqttTest):
    """Who is who is proved, or the bridge says what is wrong."""

    def setUp(self):
        super().setUp()
        self.certificates = Certificates(self.directory)

    def tls_broker(self, *lines, **options):
        """A broker with a certificate."""
        certificate, key = self.certificates.broker
        return self.enterContext(MqttBroker(f"cafile {self.certificates.authority}", f"certfile {certificate}",
                                            f"keyfile {key}", *lines, **options))

    def options(self):
        """Options that show the broker who the bridge is."""
        certificate, key = self.certificates.program
        return ("--tls-ca", self.certificates.authority, "--tls-cert", certificate, "--tls-key", key)

    def expect_stored(self, bridge):
        """Expects that a broker stores batches."""
        bridge.wait_for("broker: connected")
        bridge.wait_for("door: measuring")
        self.assertNotIn("wait in the spool", bridge.stop())

    def test_certificates_of_both_sides(self):
        broker = self.tls_broker("require_certificate true")
        self.expect_stored(self.bridge(broker, {"door": self.server()}, *self.options()))

    def test_a_bridge_without_a_certificate_is_refused(self):
        broker = self.tls_broker("require_certificate true")
        bridge = self.bridge(broker, {"door": self.server()}, "--tls-ca", self.certificates.authority)
        bridge.wait_for("certificate required")

    def test_a_broker_that_nobody_vouches_for_is_refused(self):
        other = os.path.join(self.directory, "other")
        os.mkdir(other)
        broker = self.tls_broker()
        bridge = self.bridge(broker, {"door": self.server()}, "--tls-ca", Certificates(other).authority)
        bridge.wait_for("certificate verify failed")
        self.assertNotIn("broker: connected", bridge.messages())

    def test_a_broker_without_tls_is_told(self):
        broker = self.enterContext(MqttBroker())
        bridge = self.bridge(broker, {"door": self.server()}, "--tls-ca", self.certificates.authority)
        bridge.wait_for("Cannot connect to mqtt:")
        self.assertNotIn("broker: connected", bridge.messages())

    def password_broker(self):
        """A broker that knows a user."""
        passwords = self.path("passwords", "ceiling:secret\n")
        subprocess.run(["mosquitto_passwd", "-U", passwords], check=True, timeout=TIME_OUT)
        return self.enterContext(MqttBroker(f"password_file {passwords}", anonymous=False))

    def test_a_password(self):
        broker = self.password_broker()
        credentials = self.path("user.txt", "ceiling\nsecret\n")
        self.expect_stored(self.bridge(broker, {"door": self.server()}, "--credentials", credentials))

    def test_a_wrong_password_is_told_and_not_tried_at_once_again(self):
        broker = self.password_broker()
        credentials = self.path("user.txt", "ceiling\nwrong\n")
        start = time.monotonic()
        bridge = self.bridge(broker, {"door": self.server()}, "--credentials", credentials)
        bridge.wait_for("Not authorized")
        wait_until(lambda: broker.log().count("not authorised") >= 3, "three attempts")
        self.assertGreater(time.monotonic() - start, 1.4)
        # Waiting for the batches that the broker does not take ends, too.
        self.assertIn("wait in the spool", bridge.stop())

    def test_files_that_cannot_be_used_are_told(self):
        config = self.path("config.json", json.dumps(SMALL))
        good = ("bridge", "mqtt:127.0.0.1", config, "--site", "hall", "--connect", "sim:", "--spool",
                self.path("spool"), "--spool-size", "8")
        for options, expected in ((("--tls-ca", "/none/ca.pem"), "Cannot read the certificates in /none/ca.pem"),
                                  (("--credentials", "/none/user"), "Cannot read a user and a password"),
                                  (("--credentials", self.path("short", "ceiling\n")), "each in a line")):
            result = vantor(*good, *options)
            self.assertEqual(result.returncode, 4, result.stderr)
            self.assertIn(expected, result.stderr)


class WrongOptions(unittest.TestCase):
    """Command lines that say what to change."""

    def expect_usage_error(self, expected, *arguments):
        """Expects exit code 2 and a message."""
        result = vantor(*arguments)
        self.assertEqual(result.returncode, 2, result.stderr)
        self.assertIn(expected, result.stderr)

    def test_are_refused(self):
        with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
            json.dump(SMALL, file)
            file.flush()
            good = ("bridge", "mqtt:localhost", file.name, "--site", "hall", "--connect", "tcp:a:1")
            self.expect_usage_error("--keep and --replicas are for NATS", *good, "--keep", "3")
            self.expect_usage_error("--keep and --replicas are for NATS", *good, "--replicas", "1")
            self.expect_usage_error("--bridge-name must be", *good, "--bridge-name", "my bridge")
            self.expect_usage_error("--bridge-name must be", *good, "--bridge-name", "state")
            self.expect_usage_error("needs --tls-ca", *good, "--tls-cert", "c.pem", "--tls-key", "c.key")
        self.expect_usage_error("Boards behind an MQTT broker", "fleet", "mqtt:localhost")
        self.expect_usage_error("only those behind a NATS server", "record", "--connect", "mqtt:localhost/hall/door")
        self.expect_usage_error("only those behind a NATS server", "replay", "mqtt:localhost/hall/door")


if __name__ == "__main__":
    unittest.main()
