"""`vantor record` does not lose data of a fast stream, although it is stopped from time to time.

As a test it records a small sample as fast as possible. With VANTOR_CAMPAIGN=whole it records 50 MB/s for a minute from
a device that never waits, and reports rate and memory: `scripts/soak throughput`.
"""

import hashlib
import json
import os
import random
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

from vantor_process import TIME_OUT, VANTOR, campaign, wait_until

CAMPAIGN = campaign(True, False)

RATE = 52e6  # bytes of samples per second that the device sends: a little more than required
REQUIRED_RATE = 50e6
SECONDS = 60
STALL = 0.5  # seconds for which the reader is stopped
BETWEEN_STALLS = 4.5
MEMORY_BOUND = 64e6
FREE_DISK = 4e9

SWEEPS, POINTS = 4, 1000
ITEM_SIZE = 4 * SWEEPS * POINTS
GROUPS = 2
FRAME_SIZE = GROUPS * ITEM_SIZE
FRAMES = int(RATE * SECONDS / FRAME_SIZE) + 1 if CAMPAIGN else 1500  # more than fit the buffers of a connection
SAMPLE_STALLS = 3
TICK_PERIOD = round(1e6 * FRAME_SIZE / RATE)

CONFIGURATION = {"groups": [[{"sensor_id": number, "config": {"sweeps_per_frame": SWEEPS, "num_points": POINTS}}]
                            for number in range(1, GROUPS + 1)]}
METADATA = {"status": "ok", "tick_period": TICK_PERIOD, "payload_size": 0, "metadata": [[{
    "calibration_temperature": 24, "frame_data_length": SWEEPS * POINTS, "sweep_data_length": POINTS,
    "max_sweep_rate": 3125.5, "high_speed_mode": True, "base_step_length_m": 0.0025,
    "subsweep_data_offset": [0], "subsweep_data_length": [POINTS]}]] * GROUPS}
IDENTITY = {"status": "ok", "command": "identify", "payload_size": 0, "server_version": "0.1.0",
            "protocol_version": 1, "sensor": "k330", "sensor_count": GROUPS,
            "connected_sensors": list(range(1, GROUPS + 1)), "ticks_per_second": 1000000, "max_baudrate": 0}


class Device(threading.Thread):
    """Sends frames on a fixed schedule, each with different samples, and computes the digest of every item."""

    # Every frame is a different part of the same noise, so that generating it takes no time.
    places = 1 << 17
    noise = memoryview(random.Random(1).randbytes(places + FRAME_SIZE))

    def __init__(self):
        super().__init__(daemon=True)
        self.host = None
        self.may_stream = threading.Event()
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"tcp:127.0.0.1:{self.listener.getsockname()[1]}"
        self.digests = [hashlib.sha512() for _ in range(GROUPS)]
        self.on_frame = lambda number: None  # called after each frame, with its number
        self.on_end = lambda: None  # called when the host sends "end" after the last frame
        self.seconds = None  # from the first frame to "end"
        self.frames = 0  # sent so far

    def run(self):
        with self.listener, self.listener.accept()[0] as host, host.makefile("rb") as lines:
            host.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            self.host = host
            for line in lines:
                if line.strip():
                    self.execute(host, json.loads(line)["command"])

    def execute(self, host, command):
        """Answers a command. Frames follow the answer to "start"."""
        if command == "end" and self.seconds is not None:
            self.seconds = time.monotonic() - self.seconds
            self.on_end()
        answers = {"identify": IDENTITY, "configure": METADATA}
        answer = answers.get(command, {"status": "ok", "command": command, "payload_size": 0})
        host.sendall(json.dumps(answer).encode() + b"\n")
        if command == "start":
            self.stream(host)

    def stream(self, host):
        """Sends every frame when it is due, or immediately if it is late; in a sample always immediately."""
        self.may_stream.wait()
        self.seconds = start = time.monotonic()
        for number in range(FRAMES):
            if CAMPAIGN:
                time.sleep(max(0.0, start + number * FRAME_SIZE / RATE - time.monotonic()))
            place = number * 7919 % self.places
            payload = self.noise[place:place + FRAME_SIZE]
            host.sendall(self.header(number) + payload)
            for i, digest in enumerate(self.digests):
                digest.update(payload[i * ITEM_SIZE:(i + 1) * ITEM_SIZE])
            self.frames = number + 1
            self.on_frame(number)

    def is_blocked(self):
        """Whether the host does not read and all buffers on the way to it are full."""
        return not select.select([], [self.host], [], 0)[1]

    @staticmethod
    def header(number):
        """The header line of a frame."""
        item = {"tick": number * TICK_PERIOD % (1 << 32), "data_saturated": False, "temperature": 25,
                "calibration_needed": False, "frame_delayed": False}
        return json.dumps({"result_info": [[item]] * GROUPS, "status": "ok",
                           "payload_size": FRAME_SIZE}).encode() + b"\n"


def peak_memory(process):
    """The peak memory of a process, in bytes."""
    with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
        return next(1024 * int(line.split()[1]) for line in file if line.startswith("VmHWM"))


class Throughput(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        if CAMPAIGN:
            free = shutil.disk_usage(self.folder).free
            self.assertGreater(free, FREE_DISK, f"{self.folder} has too little space; set TMPDIR to another folder")
        self.output = os.path.join(self.folder, "recording")

    def test_a_fast_stream_with_stalls(self):
        device = Device()
        device.start()
        memory = []
        configuration = os.path.join(self.folder, "configuration.json")
        with open(configuration, "w", encoding="utf-8") as file:
            json.dump(CONFIGURATION, file)
        with subprocess.Popen([VANTOR, "record", configuration, "--frames", str(FRAMES), "--connect",
                               device.address, "--output", self.output, "--json"],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
            device.on_end = lambda: memory.append(peak_memory(process))
            stalls = self.stall_for_a_minute(process, device) if CAMPAIGN else self.stall_until_full(process, device)
            output, errors = process.communicate(timeout=TIME_OUT)
        self.assertEqual(process.returncode, 0, errors)
        summary = json.loads(output)
        rate = FRAMES * FRAME_SIZE / device.seconds
        print(f"{FRAMES} frames, {rate / 1e6:.1f} MB/s over {device.seconds:.1f} s with {stalls} stalls,"
              f" at most {memory[0] / 1e6:.1f} MB of memory", file=sys.stderr)
        if CAMPAIGN:
            self.assertGreaterEqual(rate, REQUIRED_RATE)
            self.assertGreaterEqual(stalls, 10)
        self.assertLess(memory[0], MEMORY_BOUND)
        self.assertEqual((summary["frames"], summary["messages_damaged"]), (FRAMES, 0))
        for number, digest in enumerate(device.digests, 1):
            self.check_item(f"group-{number}-item-1", digest.hexdigest())

    def stall_until_full(self, process, device):
        """Stops the reader at some frames, each time until the device cannot send; returns the number of stalls."""
        numbers = [stall * FRAMES // (2 * SAMPLE_STALLS) for stall in range(SAMPLE_STALLS)]
        stopped = threading.Semaphore(0)

        def stop_reader(number):
            if number in numbers:
                process.send_signal(signal.SIGSTOP)
                stopped.release()

        device.on_frame = stop_reader
        device.may_stream.set()
        for _ in numbers:
            self.assertTrue(stopped.acquire(timeout=TIME_OUT), "the stream did not reach its next stall")
            wait_until(device.is_blocked, "full buffers")
            process.send_signal(signal.SIGCONT)
        return len(numbers)

    def stall_for_a_minute(self, process, device):
        """Stops the reader from time to time until it exits; returns how often."""
        device.may_stream.set()
        stalls = 0
        deadline = time.monotonic() + 2 * SECONDS
        while time.monotonic() < deadline:
            try:
                process.wait(BETWEEN_STALLS)
                return stalls
            except subprocess.TimeoutExpired:
                process.send_signal(signal.SIGSTOP)
                time.sleep(STALL)
                process.send_signal(signal.SIGCONT)
                stalls += 1
        process.kill()
        self.fail(f"in {2 * SECONDS} s only {device.frames} of {FRAMES} frames were sent")

    def check_item(self, name, digest):
        """Every sample that was sent was recorded, and every frame is in the table."""
        base = os.path.join(self.output, name)
        with open(base + ".sigmf-data", "rb") as file:
            self.assertEqual(hashlib.file_digest(file, "sha512").hexdigest(), digest)
        self.assertEqual(os.path.getsize(base + ".sigmf-data"), FRAMES * ITEM_SIZE)
        with open(base + ".sigmf-meta", encoding="utf-8") as file:
            about = json.load(file)
        self.assertEqual((about["global"]["core:sha512"], len(about["captures"])), (digest, 1))
        with open(base + ".frames.csv", encoding="ascii") as file:
            ticks = [int(row.split(",")[2]) for row in list(file)[1:]]
        self.assertEqual(ticks, [number * TICK_PERIOD for number in range(FRAMES)])


if __name__ == "__main__":
    unittest.main()
