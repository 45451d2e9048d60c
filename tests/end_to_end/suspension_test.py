"""Every frame that is missing because a recorder was suspended is counted: as many as the server left out.

As a test this is a small sample, in which the link is full after a short time. With VANTOR_CAMPAIGN=whole a recorder is
suspended at random times for up to 8 s, in 200 runs: `scripts/soak suspension`.
"""

import json
import os
import random
import signal
import subprocess
import tempfile
import time
import unittest

from vantor_process import TIME_OUT, VANTOR, Server, campaign, vantor, wait_until

RUNS = int(os.environ.get("VANTOR_CAMPAIGN_SIZE", campaign(200, 2)))
LONGEST = campaign(8.0, 4.0)  # seconds; the server drops a host that takes nothing for 10 s
RATE = 32.0
SWEEPS, POINTS = 31, 512  # 63 kB per frame, so that the link is full after some seconds
STEADY = 0.5  # seconds of frames after the suspension, so that none is left out after the last recorded one
CONFIGURATION = {"update_rate": RATE, "groups": [[{"sensor_id": 1, "config": {"sweeps_per_frame": SWEEPS,
                                                                              "num_points": POINTS}}]]}


class Suspension(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.configuration = os.path.join(self.folder.name, "config.json")
        with open(self.configuration, "w", encoding="utf-8") as file:
            json.dump(CONFIGURATION, file)

    def record_with_suspension(self, server, output, before, duration):
        """Records, suspends the recorder once, and ends it; returns its summary."""
        recorder = subprocess.Popen(
            [VANTOR, "record", self.configuration, "--connect", server.address, "--output", output, "--json"],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        wait_until(lambda: self.seconds(output) is not None, "the first frame")
        start = time.monotonic()
        # The times are what is tested; nothing depends on how exact they are.
        time.sleep(before)
        recorder.send_signal(signal.SIGSTOP)
        time.sleep(duration)
        recorder.send_signal(signal.SIGCONT)
        resumed = time.monotonic() - start
        wait_until(lambda: self.seconds(output) > resumed + STEADY, "frames that were measured afterwards")
        recorder.send_signal(signal.SIGINT)
        text, errors = recorder.communicate(timeout=TIME_OUT)
        self.assertEqual(recorder.returncode, 130, errors)
        return json.loads(text)

    @staticmethod
    def seconds(output):
        """The time of the last recorded frame, in seconds since the first one; None if there is none."""
        table = os.path.join(output, "group-1-item-1.frames.csv")
        if not os.path.exists(table):
            return None
        with open(table, encoding="ascii") as file:
            rows = file.read().rpartition("\n")[0].splitlines()[1:]
        return float(rows[-1].split(",")[1]) if rows else None

    def frames_left_out(self, server):
        """The number of frames that the server has left out since its start."""
        with server.connect() as host:
            return host.ask("stats")["frames_left_out"]

    def test_the_missing_frames_are_those_that_the_server_left_out(self):
        chance = random.Random(1)
        total = 0
        with Server("--tcp", "0") as server:
            for run in range(RUNS):
                duration = chance.uniform(0, LONGEST) if run > 0 else LONGEST
                output = os.path.join(self.folder.name, f"run-{run}")
                before = self.frames_left_out(server)
                summary = self.record_with_suspension(server, output, chance.uniform(0.3, 1.0), duration)
                left_out = self.frames_left_out(server) - before
                with self.subTest(run=run, duration=duration):
                    self.assertEqual(summary["frames_missing"], left_out)
                    about = json.loads(vantor("info", output, "--json").stdout)
                    self.assertEqual(about["frames_missing"], left_out)
                    self.assertEqual(about["items"][0]["frames_missing"], left_out)
                    with open(os.path.join(output, "group-1-item-1.sigmf-meta"), encoding="utf-8") as file:
                        document = json.load(file)
                    self.assertEqual(document["global"]["vantor:frame_rate"], RATE)
                    self.assertEqual(sum(part["vantor:frames_missing"] for part in document["captures"]), left_out)
                total += left_out
        self.assertGreater(total, 0, "no frame was left out, so that nothing was tested")


if __name__ == "__main__":
    unittest.main()
