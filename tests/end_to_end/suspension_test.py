"""Every frame that is missing because a recorder was suspended is counted: as many as server or sensor left out.

As a test this is a small sample, in which the link is full after a short time. With VANTOR_CAMPAIGN=whole a recorder is
suspended at random times for up to 8 s, in 200 runs for each pace: `scripts/soak suspension`.
"""

import concurrent.futures
import json
import os
import random
import re
import signal
import subprocess
import tempfile
import time
import unittest

from vantor_process import TIME_OUT, VANTOR, Server, campaign, vantor, wait_until

RUNS = int(os.environ.get("VANTOR_CAMPAIGN_SIZE", campaign(200, 2)))
PARALLEL = campaign(4, 2)
LONGEST = campaign(8.0, 4.0)  # seconds; the server drops a host that takes nothing for 10 s
RATE = 32.0
SWEEPS, POINTS = 31, 512  # 63 kB per frame, so that the link is full after some seconds
STEADY = 0.5  # seconds of frames after the suspension, so that none is left out after the last recorded one
MOST_TRIES = 20
DUE_AT_END = re.compile(r"no frame in the last [\d.]+ s: (\d+) frames were due")
LATE_FRAME = re.compile(r"sensor 1: frame (\d+) is late, (\d+) frames are left out")


class ServerPace:
    """Frames that the server paces, and counts itself if it leaves them out."""

    most_late = 10  # frames that it may also leave out when it is stopped, if the machine is busy

    def __init__(self, _):
        self.options = {}

    @staticmethod
    def configuration(config):
        return {"update_rate": RATE, "groups": [[{"sensor_id": 1, "config": config}]]}

    @staticmethod
    def left_out(server, _):
        with server.connect() as host:
            return host.ask("stats")["frames_left_out"]


class SensorPace:
    """Frames that the simulated sensor paces. It logs how many it leaves out."""

    most_late = 0

    def __init__(self, log):
        self.log = log
        self.options = {"log": log}

    @staticmethod
    def configuration(config):
        return {"groups": [[{"sensor_id": 1, "config": {**config, "frame_rate": RATE}}]]}

    def left_out(self, _, recorded):
        """The number of frames left out until the last recorded one."""
        self.log.seek(0)
        return sum(int(left_out) for number, left_out in LATE_FRAME.findall(self.log.read()) if int(number) < recorded)


class DoubleBufferedSensorPace(SensorPace):
    """A sensor that measures one frame ahead."""

    @staticmethod
    def configuration(config):
        return SensorPace.configuration({**config, "double_buffering": True})


class Suspension(unittest.TestCase):
    @staticmethod
    def record_with_suspension(server, configuration, output, before, duration, *options, interrupted=False):
        """
        Records, suspends the recorder once, and ends it, if interrupted while it is suspended; returns its summary, and
        how long it has run at least. With options it must end by itself.
        """
        recorder = subprocess.Popen(
            [VANTOR, "record", configuration, "--connect", server.address, "--output", output, "--json", *options],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        wait_until(lambda: Suspension.seconds(output) is not None, "the first frame")
        start = time.monotonic()
        # The times are what is tested; nothing depends on how exact they are.
        time.sleep(before)
        recorder.send_signal(signal.SIGSTOP)
        time.sleep(duration)
        resumed = time.monotonic() - start
        if interrupted:
            recorder.send_signal(signal.SIGINT)
        recorder.send_signal(signal.SIGCONT)
        if not options and not interrupted:
            wait_until(lambda: Suspension.seconds(output) > resumed + STEADY, "frames that were measured afterwards")
            recorder.send_signal(signal.SIGINT)
        text, errors = recorder.communicate(timeout=TIME_OUT)
        if recorder.returncode != (0 if options else 130):
            raise AssertionError(f"the recorder ended with {recorder.returncode}: {errors}")
        return json.loads(text), resumed

    @staticmethod
    def seconds(output):
        """The time of the last recorded frame, in seconds since the first one; None if there is none."""
        table = os.path.join(output, "group-1-item-1.frames.csv")
        if not os.path.exists(table):
            return None
        with open(table, encoding="ascii") as file:
            rows = file.read().rpartition("\n")[0].splitlines()[1:]
        return float(rows[-1].split(",")[1]) if rows else None

    @staticmethod
    def counts_of_host(summary, output):
        """The number of missing frames in every place where the host reports it, and the frame rate."""
        about = json.loads(vantor("info", output, "--json").stdout)
        with open(os.path.join(output, "group-1-item-1.sigmf-meta"), encoding="utf-8") as file:
            document = json.load(file)
        in_captures = sum(part["vantor:frames_missing"] for part in document["captures"])
        counts = {summary["frames_missing"], about["frames_missing"], about["items"][0]["frames_missing"], in_captures}
        return counts, document["global"]["vantor:frame_rate"]

    def run_once(self, pace_kind, run):
        """One run; returns how long it was suspended, the counts of the host, the own count, and the rate."""
        chance = random.Random(run)
        duration = chance.uniform(0, LONGEST) if run > 0 else LONGEST
        with tempfile.TemporaryDirectory() as folder, open(os.path.join(folder, "log"), "a+", encoding="utf-8") as log:
            pace = pace_kind(log)
            configuration = os.path.join(folder, "config.json")
            output = os.path.join(folder, "recording")
            with open(configuration, "w", encoding="utf-8") as file:
                json.dump(pace.configuration({"sweeps_per_frame": SWEEPS, "num_points": POINTS}), file)
            with Server("--tcp", "0", "--log-level", "VERBOSE", **pace.options) as server:
                summary, _ = self.record_with_suspension(server, configuration, output, chance.uniform(0.3, 1.0),
                                                         duration)
                left_out = pace.left_out(server, summary["frames"])
            counts, rate = self.counts_of_host(summary, output)
        return duration, counts, left_out, rate

    def run_until_in_time(self, pace_kind, run):
        """Repeats a run while the server was late when it was stopped: the host cannot count those frames."""
        for _ in range(MOST_TRIES):
            result = self.run_once(pace_kind, run)
            _, counts, left_out, _ = result
            if not 0 < left_out - max(counts) <= pace_kind.most_late:
                break
        return result

    def check(self, pace):
        """The host counts the frames that were left out, in every run."""
        with concurrent.futures.ThreadPoolExecutor(PARALLEL) as pool:
            runs = list(pool.map(lambda run: self.run_until_in_time(pace, run), range(RUNS)))
        for number, (duration, counts, left_out, rate) in enumerate(runs):
            with self.subTest(run=number, duration=duration):
                self.assertEqual(counts, {left_out})
                self.assertEqual(rate, RATE)
        total = sum(left_out for _, _, left_out, _ in runs)
        self.assertGreater(total, 0, "no frame was left out, so that nothing was tested")
        print(f"{pace.__name__}: {RUNS:,} runs, {total:,} frames left out", flush=True)

    def test_frames_that_the_server_left_out(self):
        self.check(ServerPace)

    def record_until_suspended(self, *options, interrupted):
        """One run whose end is suspended; returns the summary, its seconds, and what the server counted."""
        with tempfile.TemporaryDirectory() as folder, Server("--tcp", "0") as server:
            configuration = os.path.join(folder, "config.json")
            output = os.path.join(folder, "recording")
            with open(configuration, "w", encoding="utf-8") as file:
                json.dump(ServerPace.configuration({"sweeps_per_frame": SWEEPS, "num_points": POINTS}), file)
            summary, seconds = self.record_with_suspension(server, configuration, output, 0.3, LONGEST, *options,
                                                           interrupted=interrupted)
            with server.connect() as host:
                return summary, seconds, host.ask("stats")

    def check_frames_due_at_the_end(self, *options, interrupted=False):
        for _ in range(MOST_TRIES):
            summary, seconds, counted = self.record_until_suspended(*options, interrupted=interrupted)
            reported = [int(number) for number in DUE_AT_END.findall("\n".join(summary["warnings"]))]
            due = summary["frames"] + summary["frames_missing"] + sum(reported)
            counted_due = counted["frames"] + counted["frames_left_out"]
            # The server was late when it was stopped: the host cannot count those frames.
            if not 0 < counted_due - due <= ServerPace.most_late:
                break
        self.assertNotIn("the server did not answer", "\n".join(summary["warnings"]))
        self.assertEqual(len(reported), 1, summary["warnings"])
        self.assertEqual(due, counted_due)
        self.assertGreater(counted["frames_left_out"], 0, "no frame was left out, so that nothing was tested")
        self.assertGreaterEqual(due, int(seconds * RATE))
        self.assertLessEqual(due, int(counted["uptime_s"] * RATE) + 1)

    def test_frames_that_were_due_at_the_end(self):
        self.check_frames_due_at_the_end("--seconds", "2")

    def test_frames_that_were_due_at_an_interrupt(self):
        self.check_frames_due_at_the_end(interrupted=True)

    def test_frames_that_the_sensor_left_out(self):
        self.check(SensorPace)

    def test_frames_that_a_sensor_with_double_buffering_left_out(self):
        self.check(DoubleBufferedSensorPace)


if __name__ == "__main__":
    unittest.main()
