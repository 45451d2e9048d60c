"""Recordings contain every byte that the server sent, follow the SigMF standard, and are readable by other programs."""

import copy
import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from pace import TICKS_PER_SECOND
from sigmf_rules import RuleBroken, check_recording
from vantor_process import EXAMPLES, TIME_OUT, Relay, Server, example, vantor

TWO_SENSORS = os.path.join(EXAMPLES, "two_sensors.json")
DOCUMENT = os.path.join(os.path.dirname(EXAMPLES), "docs", "recording.md")


class RecordingTest(unittest.TestCase):
    """Makes recordings in a temporary directory."""

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.output = os.path.join(self.folder, "recording")

    def record(self, *arguments):
        """Records the example; returns the summary."""
        result = vantor("record", TWO_SENSORS, "--output", self.output, "--json", *arguments)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return json.loads(result.stdout)

    def read(self, name):
        with open(os.path.join(self.output, name), "rb") as file:
            return file.read()

    def document(self, name):
        return json.loads(self.read(name))

    def check_samples(self, metadata, payloads):
        """Every item was recorded with the samples from these payloads."""
        offset = 0
        for group, items in enumerate(metadata["metadata"], 1):
            for item, layout in enumerate(items, 1):
                size = 4 * layout["frame_data_length"]
                sent = b"".join(payload[offset:offset + size] for payload in payloads)
                self.assertEqual(self.read(f"group-{group}-item-{item}.sigmf-data"), sent)
                offset += size


class EveryByte(RecordingTest):
    def test_equals_the_bytes_on_the_link(self):
        with Server("--tcp", "0") as server, Relay(server.connect()) as relay:
            self.record("--frames", "25", "--connect", relay.address)
        messages = list(relay.messages())
        metadata = next(header for header, _ in messages if "metadata" in header)
        frames = [(header, payload) for header, payload in messages if "result_info" in header][:25]
        self.check_samples(metadata, [payload for _, payload in frames])
        rows = [line.split(",") for line in self.read("group-1-item-1.frames.csv").decode().splitlines()[1:]]
        self.assertEqual([int(row[2]) for row in rows], [header["result_info"][0][0]["tick"] for header, _ in frames])
        self.assertEqual(self.document("session.sigmf-collection")["collection"]["vantor:metadata"], metadata)
        check_recording(self.output)

    def test_equals_the_bytes_of_a_private_simulated_server(self):
        self.record("--frames", "10", "--connect", "sim:--clock virtual --seed 5")
        with Server("--tcp", "0", "--clock", "virtual", "--seed", "5") as server, server.connect() as host:
            metadata = host.ask("configure", configuration=example("two_sensors.json"))
            host.ask("start")
            self.check_samples(metadata, [host.message()[1] for _ in range(10)])


class Loss(RecordingTest):
    def record_damaged(self, frames, damaged):
        """Records frames, always the same ones; returns the summary and the bytes that the server sent."""
        self.output = os.path.join(tempfile.mkdtemp(dir=self.folder), "recording")
        with Server("--tcp", "0", "--clock", "virtual") as server, Relay(server.connect(), damaged) as relay:
            return self.record("--frames", frames, "--connect", relay.address), relay

    def test_a_damaged_header_starts_a_capture(self):
        _, relay = self.record_damaged(63, damaged=())
        payloads = [payload for header, payload in relay.messages() if "result_info" in header]
        headers = [found.start() for found in re.finditer(rb'{"result_info"', relay.sent)]
        summary, _ = self.record_damaged(60, damaged={headers[5] + 1, headers[20] + 1, headers[21] + 1})
        self.assertEqual((summary["frames"], summary["messages_damaged"]), (60, 2))
        check_recording(self.output)
        recorded = [*range(5), *range(6, 20), *range(22, 63)]
        for name, size in (("group-1-item-1", 480), ("group-1-item-2", 440), ("group-2-item-1", 120)):
            captures = self.document(name + ".sigmf-meta")["captures"]
            self.assertEqual([(capture["core:sample_start"] // size, capture["core:global_index"] // size)
                              for capture in captures], [(0, 0), (5, 6), (19, 22)])
            offset = 4 * {"group-1-item-1": 0, "group-1-item-2": 480, "group-2-item-1": 920}[name]
            self.assertEqual(self.read(name + ".sigmf-data"),
                             b"".join(payloads[number][offset:offset + 4 * size] for number in recorded))


class Standard(RecordingTest):
    def test_recordings_follow_the_rules(self):
        self.record("--frames", "10", "--connect", "sim:--clock virtual")
        check_recording(self.output)

    def test_slow_recordings_follow_the_rules(self):
        # One frame every 128 s: on a real clock, the test would reach its time-out.
        self.assertGreater(128, TIME_OUT)
        configuration = os.path.join(self.folder, "slow.json")
        with open(configuration, "w", encoding="utf-8") as file:
            json.dump({"update_rate": 1 / 128, "groups": [[{"sensor_id": 1, "config": {"num_points": 1}}]]}, file)
        result = vantor("record", configuration, "--frames", 3, "--connect", "sim:--clock virtual", "--output",
                        self.output)
        self.assertEqual(result.returncode, 0, result.stderr)
        check_recording(self.output)
        self.assertAlmostEqual(self.document("group-1-item-1.sigmf-meta")["global"]["vantor:frame_rate"], 1 / 128, places=5)
        self.assertEqual(self.ticks_between_frames("group-1-item-1"), [128 * TICKS_PER_SECOND] * 2)

    def ticks_between_frames(self, name):
        """The numbers of ticks between the frames of an item."""
        ticks = [int(row.split(",")[2]) for row in self.read(name + ".frames.csv").decode().splitlines()[1:]]
        return [later - earlier for earlier, later in zip(ticks, ticks[1:])]

    def test_the_rules_detect_wrong_metadata(self):
        self.record("--frames", "3", "--connect", "sim:--clock virtual")
        meta = self.document("group-1-item-1.sigmf-meta")
        for what, change in {
                "no type": lambda about: about["global"].pop("core:datatype"),
                "no version": lambda about: about["global"].pop("core:version"),
                "no annotations": lambda about: about.pop("annotations"),
                "a version with two parts": lambda about: about["global"].update({"core:version": "1.2"}),
                "the wrong type": lambda about: about["global"].update({"core:datatype": "ci16_be"}),
                "an impossible type": lambda about: about["global"].update({"core:datatype": "complex16"}),
                "a sample rate below 1": lambda about: about["global"].update({"core:sample_rate": 0.5}),
                "the wrong digest": lambda about: about["global"].update({"core:sha512": "0" * 128}),
                "a short digest": lambda about: about["global"].update({"core:sha512": "0" * 64}),
                "a namespace without declaration": lambda about: about["global"].update({"other:frames": 3}),
                "no namespace": lambda about: about["global"].update({"frames": 3}),
                "a keyword": lambda about: about["global"].update({"vantor:while": 3}),
                "a hyphen": lambda about: about["global"].update({"vantor:frame-rate": 3}),
                "an unknown member of the standard": lambda about: about["global"].update({"core:frames": 3}),
                "an extension without version": lambda about: about["global"]["core:extensions"][0].pop("version"),
                "an extra member": lambda about: about["global"]["core:extensions"][0].update({"url": "x"}),
                "no capture": lambda about: about["captures"].clear(),
                "a capture without start": lambda about: about["captures"][0].pop("core:sample_start"),
                "a negative start": lambda about: about["captures"][0].update({"core:sample_start": -1}),
                "captures out of order": lambda about: about["captures"].insert(
                    0, {"core:sample_start": 480, "core:global_index": 480}),
                "an annotation without start": lambda about: about["annotations"].append({"core:label": "x"}),
                "annotations out of order": lambda about: about["annotations"].extend(
                    [{"core:sample_start": 2}, {"core:sample_start": 1}]),
                "another time zone": lambda about: about["captures"][0].update(
                    {"core:datetime": "2024-01-01T00:00:00+01:00"}),
                "a day that does not exist": lambda about: about["captures"][0].update(
                    {"core:datetime": "2024-02-30T00:00:00Z"}),
                "the wrong number of frames": lambda about: about["global"].update({"vantor:frames": 4}),
                "the wrong collection": lambda about: about["global"].update({"core:collection": "other"})}.items():
            with self.subTest(what):
                changed = copy.deepcopy(meta)
                change(changed)
                self.write_with_digest("group-1-item-1", changed)
                self.assert_broken()
        self.write_with_digest("group-1-item-1", meta)
        check_recording(self.output)

    def test_the_rules_detect_wrong_files(self):
        self.record("--frames", "3", "--connect", "sim:--clock virtual")
        original = self.output
        for name, content in (("group-1-item-1.sigmf-data", self.read("group-1-item-1.sigmf-data") + b"\0"),
                              ("group-1-item-1.sigmf-data", self.read("group-1-item-1.sigmf-data")[:-4]),
                              ("group-1-item-1.sigmf-meta", self.read("group-1-item-1.sigmf-meta") + b"\n"),
                              ("group-1-item-1.frames.csv", self.read("group-1-item-1.frames.csv")[:150]),
                              ("extra.sigmf-data", b"")):
            with self.subTest(name):
                self.output = shutil.copytree(original, tempfile.mkdtemp(dir=self.folder), dirs_exist_ok=True)
                with open(os.path.join(self.output, name), "wb") as file:
                    file.write(content)
                self.assert_broken()

    def write_with_digest(self, name, document):
        """Writes an item's metadata, and its digest in the collection."""
        text = json.dumps(document).encode()
        collection = self.document("session.sigmf-collection")
        for stream in collection["collection"]["core:streams"]:
            if stream["name"] == name:
                stream["hash"] = hashlib.sha512(text).hexdigest()
        for file_name, content in ((name + ".sigmf-meta", text),
                                   ("session.sigmf-collection", json.dumps(collection).encode())):
            with open(os.path.join(self.output, file_name), "wb") as file:
                file.write(content)

    def assert_broken(self):
        with self.assertRaises(RuleBroken):
            check_recording(self.output)


class Example(RecordingTest):
    script = os.path.join(EXAMPLES, "read_recording.py")

    def test_ten_lines_read_a_recording(self):
        with open(self.script, encoding="utf-8") as file:
            self.assertLessEqual(len(file.readlines()), 10)
        summary = self.record("--frames", "20", "--connect", "sim:--clock virtual")
        result = subprocess.run([sys.executable, self.script, self.output], capture_output=True, text=True,
                                timeout=TIME_OUT, check=True)
        frames, echo, level = re.fullmatch(r"(\d+) frames, strongest echo at ([\d.]+) m: level ([\d.]+)\n",
                                           result.stdout).groups()
        self.assertEqual(int(frames), 20)
        # The points of the sweep are 15 mm apart; the summary shows a distance between them.
        self.assertAlmostEqual(float(echo), summary["items"][0]["strongest_echo_m"], delta=0.0075)
        self.assertAlmostEqual(float(level), self.level(point=(float(echo) / 0.0025 - 80) / 6), delta=0.1)

    def level(self, point):
        """Returns the mean level of a point over all sweeps of the first item, which have 120 points each."""
        data = self.read("group-1-item-1.sigmf-data")
        levels = []
        for start in range(4 * round(point), len(data), 4 * 120):
            real, imag = (int.from_bytes(data[i:i + 2], "little", signed=True) for i in (start, start + 2))
            levels.append(abs(complex(real, imag)))
        self.assertEqual(len(levels), 20 * 4)
        return sum(levels) / len(levels)

    def test_the_document_contains_the_ten_lines(self):
        with open(self.script, encoding="utf-8") as file, open(DOCUMENT, encoding="utf-8") as document:
            self.assertIn(f"```python\n{file.read()}```\n", document.read())


if __name__ == "__main__":
    unittest.main()
