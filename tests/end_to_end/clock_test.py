"""The clock of the simulated board can be wrong, and the truth says how."""

import json
import os
import tempfile
import time
import unittest

from pace import TICK_WRAP, TICKS_PER_SECOND, without_wraps
from vantor_process import Server

ITEM = {"start_point": 80, "num_points": 40, "hwaas": 4}

SLOW = {"groups": [[{"sensor_id": 1, "config": {**ITEM, "frame_rate": 1}}]]}

# The true time is known to half a microsecond; the ticks are whole microseconds.
RESOLUTION = 2e-6


def true_times(truth, ticks):
    """When the clock of the board showed ticks, in seconds since 1970 UTC."""
    rate = TICKS_PER_SECOND * (1.0 + truth["clock_error_ppm"] * 1e-6)
    start = truth["clock_start_utc_s"]
    wraps = round(((time.time() - start) * rate - ticks[0]) / TICK_WRAP)
    return [start + (tick + wraps * TICK_WRAP) / rate for tick in without_wraps(ticks)]


class ClockTest(unittest.TestCase):
    """Starts servers whose clocks are wrong."""

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.truth = os.path.join(self.folder, "truth.jsonl")

    def server(self, *options):
        """A server whose ticks begin again with 0 three seconds after its start."""
        first_tick = TICK_WRAP - 3 * TICKS_PER_SECOND
        return Server("--tcp", "0", "--truth", self.truth, "--first-tick", str(first_tick), *options)


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


if __name__ == "__main__":
    unittest.main()
