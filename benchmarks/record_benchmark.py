"""
Processor time of `vantor record` for each byte that it receives, all threads counted, compared with that of a bare pump
from a socket to a file. Prints a line of JSON for each program and length of frames.

Usage: record_benchmark.py [--rounds NUMBER] [--megabytes NUMBER] VANTOR [VANTOR...]

Several programs VANTOR are measured in turn, so that all of them meet the same state of the machine. A round records
this many megabytes of each length of frames. TMPDIR selects the disk.
"""

import argparse
import array
import json
import os
import socket
import statistics
import subprocess
import tempfile
import threading

# The points and sweeps of a frame by its name: 64 kB of samples, and 562 bytes with the header.
LENGTHS = {"large": (1023, 16), "small": (100, 1)}
RESULT = {"data_saturated": False, "temperature": 27, "calibration_needed": False, "frame_delayed": False}
TICK_DIGITS = 10
FIRST_TICK = 10 ** (TICK_DIGITS - 1)
IDENTITY = {"server_version": "0", "protocol_version": 1, "sensor": "k330", "sensor_count": 1, "connected_sensors": [1],
            "ticks_per_second": 1000000, "max_baudrate": 0}
PUMP_BUFFER = 1 << 16


def line(**members):
    """A header line."""
    return json.dumps({"status": "ok", "payload_size": 0, **members}, separators=(",", ":")).encode() + b"\n"


class Device:
    """A server that sends frames of one length as fast as the host takes them."""

    def __init__(self, points, sweeps, total_bytes):
        samples = points * sweeps
        self.configuration = {"groups": [[{"sensor_id": 1,
                                           "config": {"num_points": points, "sweeps_per_frame": sweeps}}]]}
        self.metadata = {"tick_period": 0, "calibration_info": [], "metadata": [[{
            "calibration_temperature": 24, "frame_data_length": samples, "sweep_data_length": points,
            "max_sweep_rate": 1000, "high_speed_mode": True, "base_step_length_m": 0.0025, "subsweep_data_offset": [0],
            "subsweep_data_length": [points]}]]}
        before, after = line(result_info=[[{"tick": 0, **RESULT}]], payload_size=4 * samples).split(b"0,\"data", 1)
        self.before_tick = before
        # Noise far below full scale: that of sensors.
        noise = array.array("h", (value - 128 for value in os.urandom(2 * samples)))
        self.after_tick = b',"data' + after + noise.tobytes()
        self.message_bytes = len(before) + TICK_DIGITS + len(self.after_tick)
        self.frames = total_bytes // self.message_bytes
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.serve, daemon=True).start()

    def blocks(self):
        """All frames, some in each block."""
        count = max(1, PUMP_BUFFER // self.message_bytes)
        for first in range(FIRST_TICK, FIRST_TICK + self.frames, count):
            yield b"".join(b"%s%d%s" % (self.before_tick, tick, self.after_tick)
                           for tick in range(first, min(first + count, FIRST_TICK + self.frames)))

    def serve(self):
        """Serves one host after the other."""
        while True:
            host, _ = self.listener.accept()
            with host, host.makefile("rb") as commands:
                host.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                try:
                    self.converse(host, commands)
                except ConnectionError:
                    pass

    def converse(self, host, commands):
        """Answers the commands of a host, and sends all frames after "start"."""
        answers = {"identify": line(command="identify", **IDENTITY), "configure": line(**self.metadata)}
        for command in commands:
            if command.strip():
                name = json.loads(command)["command"]
                host.sendall(answers.get(name, line(command=name)))
                for block in self.blocks() if name == "start" else ():
                    host.sendall(block)


def processor_seconds(process):
    """Waits for the end of a child, and returns the processor time of all its threads."""
    _, status, usage = os.wait4(process, 0)
    if status != 0:
        raise SystemExit(f"a program ended with status {status}")
    return usage.ru_utime + usage.ru_stime


def pump(device, path):
    """Writes what the device sends to a file, and nothing else."""
    buffer = memoryview(bytearray(PUMP_BUFFER))
    left = device.frames * device.message_bytes
    with socket.create_connection(("127.0.0.1", device.port)) as source:
        file = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL)
        source.sendall(b'{"command":"start"}\n')
        while left > 0:
            count = source.recv_into(buffer)
            os.write(file, buffer[:count])
            left -= count
        os.fdatasync(file)


def run_pump(device, folder):
    """The processor time of the pump."""
    child = os.fork()
    if child == 0:
        pump(device, os.path.join(folder, "pumped"))
        os._exit(0)
    return processor_seconds(child)


def run_record(program, device, folder):
    """The processor time of `vantor record`."""
    configuration = os.path.join(folder, "configuration.json")
    with open(configuration, "w", encoding="utf-8") as file:
        json.dump(device.configuration, file)
    with open(os.path.join(folder, "report.json"), "w+b") as report:
        process = subprocess.Popen(
            [program, "record", configuration, "--frames", str(device.frames), "--json", "--connect",
             f"tcp:127.0.0.1:{device.port}", "--output", os.path.join(folder, "recording")], stdout=report)
        seconds = processor_seconds(process.pid)
        process.returncode = 0
        report.seek(0)
        assert json.load(report)["frames"] == device.frames
    return seconds


def measure(length, arguments):
    """Measures all programs with frames of one length in turn, and prints a line for each."""
    device = Device(*LENGTHS[length], arguments.megabytes * 1_000_000)
    received = device.frames * device.message_bytes
    rounds = []
    for number in range(arguments.rounds):
        runs = {"pump": run_pump}
        for program in arguments.programs:
            runs[program] = lambda device, folder, program=program: run_record(program, device, folder)
        times = {}
        for name in runs if number % 2 else reversed(runs):
            with tempfile.TemporaryDirectory() as folder:
                times[name] = runs[name](device, folder)
        rounds.append(times)
    for name in ["pump", *arguments.programs]:
        costs = sorted(1e9 * times[name] / received for times in rounds)
        ratios = sorted(times[name] / times["pump"] for times in rounds)
        to_first = sorted(times[arguments.programs[0]] / times[name] for times in rounds)
        print(json.dumps({"frames": length, "message_bytes": device.message_bytes, "program": name,
                          "ns_per_byte": round(statistics.median(costs), 3),
                          "us_per_frame": round(statistics.median(costs) * device.message_bytes / 1e3, 2),
                          "spread": [round(costs[0], 3), round(costs[-1], 3)],
                          "to_pump": round(statistics.median(ratios), 2),
                          "to_pump_spread": [round(ratios[0], 2), round(ratios[-1], 2)],
                          "first_program_to_this": round(statistics.median(to_first), 2),
                          "rounds": arguments.rounds}), flush=True)


def main():
    """Measures both lengths."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--megabytes", type=int, default=500)
    parser.add_argument("programs", nargs="+", metavar="VANTOR")
    arguments = parser.parse_args()
    for length in LENGTHS:
        measure(length, arguments)


if __name__ == "__main__":
    main()
