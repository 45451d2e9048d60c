"""`vantor record` as a user runs it."""

import json
import os
import re
import signal
import subprocess
import tempfile
import unittest

from vantor_process import EXAMPLES, TIME_OUT, VANTOR, Server, example, wait_until

TWO_SENSORS = os.path.join(EXAMPLES, "two_sensors.json")


def record(*arguments):
    """Runs the command to its end."""
    return subprocess.run([VANTOR, "record", *arguments], capture_output=True, text=True, timeout=TIME_OUT, check=False)


class Record(unittest.TestCase):
    def setUp(self):
        self.output = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), "recording")

    def samples(self, group, item):
        """The recorded samples of an item."""
        with open(os.path.join(self.output, f"group-{group}-item-{item}.sigmf-data"), "rb") as file:
            return file.read()

    def test_starts_a_private_server(self):
        result = record(TWO_SENSORS, "--frames", "10", "--output", self.output)
        self.assertEqual(result.returncode, 0, result.stderr)
        rows = [line.split() for line in result.stdout.splitlines() if re.match(r"\s+\d", line)]
        self.assertEqual([(row[0], row[1], row[2], row[3], row[5]) for row in rows],
                         [("1", "1", "1", "1", "10"), ("1", "2", "2", "3", "10"), ("2", "1", "2", "1", "10")])
        # The reflectors of the built-in scene; the second item has the one at 0.5 m at an edge.
        for row, distance in zip(rows, (0.5, 3.5, 0.5), strict=True):
            self.assertEqual(len(self.samples(row[0], row[1])), 4 * 10 * int(row[4]))
            self.assertAlmostEqual(float(row[7]), distance, delta=0.05)

    def records_what_the_server_sends(self, *link):
        """Compares a recording with the data that another host gets from a server with the same seed."""
        arguments = (*link, "--clock", "virtual", "--seed", "7")
        frames = 10
        with Server(*arguments) as server:
            result = record(TWO_SENSORS, "--frames", str(frames), "--connect", server.address, "--output",
                            self.output)
            self.assertEqual(result.returncode, 0, result.stderr)
        with Server(*arguments) as server, server.connect() as host:
            metadata = host.ask("configure", configuration=example("two_sensors.json"))["metadata"]
            host.ask("start")
            payloads = [host.message()[1] for _ in range(frames)]
        offset = 0
        for group, items in enumerate(metadata, 1):
            for item, layout in enumerate(items, 1):
                size = 4 * layout["frame_data_length"]
                sent = b"".join(payload[offset:offset + size] for payload in payloads)
                self.assertEqual(self.samples(group, item), sent)
                offset += size

    def test_records_every_byte_over_tcp(self):
        self.records_what_the_server_sends("--tcp", "0")

    def test_records_every_byte_over_a_serial_device(self):
        self.records_what_the_server_sends("--pty")

    def test_an_interrupted_recording_is_intact(self):
        with subprocess.Popen([VANTOR, "record", TWO_SENSORS, "--frames", "1000000", "--output", self.output],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
            data = os.path.join(self.output, "group-1-item-1.sigmf-data")
            wait_until(lambda: os.path.exists(data) and os.path.getsize(data) > 0, "the first frame")
            process.send_signal(signal.SIGINT)
            process.communicate(timeout=TIME_OUT)
            self.assertEqual(process.returncode, 130)
        with open(os.path.join(self.output, "group-1-item-1.sigmf-meta"), encoding="utf-8") as file:
            self.assertEqual(json.load(file)["global"]["core:datatype"], "ci16_le")
        self.assertEqual(len(self.samples(1, 1)) % (4 * 480), 0)

    def test_a_refused_configuration_prints_code_and_message(self):
        configuration = os.path.join(os.path.dirname(self.output), "wrong.json")
        with open(configuration, "w", encoding="utf-8") as file:
            json.dump({"groups": [[{"sensor_id": 77, "config": {}}]]}, file)
        result = record(configuration, "--frames", "1", "--output", self.output)
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("sensor_id", result.stderr)

    def test_a_file_that_is_not_json_is_an_error_with_line_and_column(self):
        configuration = os.path.join(os.path.dirname(self.output), "wrong.json")
        with open(configuration, "w", encoding="utf-8") as file:
            file.write('{\n  "groups": [[}\n')
        result = record(configuration, "--frames", "1", "--output", self.output)
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("line 2", result.stderr)

    def test_no_server_is_an_error(self):
        result = record(TWO_SENSORS, "--frames", "1", "--connect", "tcp:127.0.0.1:1", "--output", self.output)
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("tcp:127.0.0.1:1", result.stderr)


if __name__ == "__main__":
    unittest.main()
