"""
Speed of the Python package: frames a second of the simulated server, the rate of long frames compared with that of
NumPy on a bare socket, and the time to import the package.

Usage: VANTOR_SERVER=PROGRAM python_benchmark.py [PAIRS [FRAMES]], with the Python of an environment that has the package
"""

import json
import multiprocessing
import os
import socket
import statistics
import subprocess
import sys
import time

import numpy as np

import vantor

PAIRS = int(sys.argv[1]) if len(sys.argv) > 1 else 21
FRAMES = int(sys.argv[2]) if len(sys.argv) > 2 else 5000

POINTS, SWEEPS = 4095, 4
CONFIGURATION = {"groups": [[{"sensor_id": 1, "config": {"num_points": POINTS, "sweeps_per_frame": SWEEPS}}]]}
PAYLOAD = POINTS * SWEEPS * 4
IDENTITY = {"server_version": "0", "protocol_version": 1, "sensor": "k330", "sensor_count": 1, "connected_sensors": [1],
            "ticks_per_second": 1000000, "max_baudrate": 0}
METADATA = {"tick_period": 0, "calibration_info": [], "metadata": [[{
    "calibration_temperature": 24, "frame_data_length": POINTS * SWEEPS, "sweep_data_length": POINTS,
    "max_sweep_rate": 1000, "high_speed_mode": True, "base_step_length_m": 0.0025, "subsweep_data_offset": [0],
    "subsweep_data_length": [POINTS]}]]}
RESULT = {"data_saturated": False, "temperature": 27, "calibration_needed": False,
          "frame_delayed": False}


def line(**members):
    """A message without payload."""
    return json.dumps({"status": "ok", "payload_size": 0, **members}, separators=(",", ":")).encode() + b"\n"


def frame_header(tick):
    return line(result_info=[[{"tick": tick, **RESULT}]], payload_size=PAYLOAD)


#: Ticks of the frames that are sent again and again; their headers have the same length.
TICKS = range(48000, 58000, 1000)


def serve(listener):
    """A server that sends FRAMES long frames as fast as it can after each "start"."""
    several = b"".join(frame_header(tick) + os.urandom(PAYLOAD) for tick in TICKS)
    answers = {"identify": line(command="identify", **IDENTITY), "configure": line(**METADATA)}
    while True:
        host, _ = listener.accept()
        host.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for command in host.makefile("rb"):
            if command.strip():
                name = json.loads(command)["command"]
                host.sendall(answers.get(name, line(command=name)))
                for _ in range(FRAMES // len(TICKS) if name == "start" else 0):
                    host.sendall(several)


def receive_with_numpy(port):
    """The time in which NumPy receives the frames from a bare socket, each into a new array."""
    with socket.create_connection(("127.0.0.1", port)) as stream:
        header = bytearray(len(frame_header(TICKS[0])))
        answer = bytearray(len(line(command="start")))
        stream.sendall(b'{"command":"start"}\n')
        stream.recv_into(answer, len(answer), socket.MSG_WAITALL)
        start = time.perf_counter()
        for _ in range(FRAMES):
            stream.recv_into(header, len(header), socket.MSG_WAITALL)
            samples = np.empty((SWEEPS, POINTS, 2), "<i2")
            stream.recv_into(samples, PAYLOAD, socket.MSG_WAITALL)
        return time.perf_counter() - start


def receive_by_hand(port):
    """The time of the loop that a program without the package needs: it reads and decodes each header."""
    with socket.create_connection(("127.0.0.1", port)) as stream, stream.makefile("rb") as messages:
        stream.sendall(b'{"command":"start"}\n')
        messages.readline()
        start = time.perf_counter()
        for _ in range(FRAMES):
            header = json.loads(messages.readline())
            samples = np.empty(header["payload_size"] // 2, "<i2")
            messages.readinto(samples)
        return time.perf_counter() - start


def receive_with_package(port):
    """The time in which the package receives the frames."""
    with vantor.connect(f"tcp:127.0.0.1:{port}") as server, server.session(CONFIGURATION) as session:
        start = time.perf_counter()
        for frame in session.frames(count=FRAMES):
            assert frame[0, 0].samples.shape == (SWEEPS, POINTS, 2)
        return time.perf_counter() - start


def compare_long_frames():
    """Receives long frames in each way in turn, so that all of them meet the same state of the machine."""
    listener = socket.create_server(("127.0.0.1", 0))
    port = listener.getsockname()[1]
    source = multiprocessing.get_context("fork").Process(target=serve, args=(listener,), daemon=True)
    source.start()
    listener.close()
    ways = {"the package": receive_with_package, "NumPy on a bare socket": receive_with_numpy,
            "a loop that decodes headers": receive_by_hand}
    rounds = []
    for number in range(PAIRS):
        order = list(ways) if number % 2 else list(reversed(ways))
        rounds.append({way: ways[way](port) for way in order})
    for way in ways:
        rate = FRAMES * PAYLOAD / 1e6 / statistics.median(times[way] for times in rounds)
        ratio = statistics.median(times[way] / times["the package"] for times in rounds)
        print(f"frames of {PAYLOAD} bytes, {way}: {rate:.0f} MB/s; "
              f"median of {PAIRS} ratios of the package to it: {100 * ratio:.1f} %")


def measure_short_frames():
    """Frames a second of the simulated server, with one item of 100 points."""
    program = subprocess.Popen([os.environ["VANTOR_SERVER"], "--tcp", "0", "--clock", "virtual"],
                               stdout=subprocess.PIPE, text=True)
    address = program.stdout.readline().removeprefix("listening on ").strip()
    rates = []
    with vantor.connect(address) as server:
        with server.session({"groups": [[{"sensor_id": 1, "config": {"num_points": 100}}]]}) as session:
            for _ in range(PAIRS):
                start = time.perf_counter()
                received = sum(1 for _ in session.frames(count=FRAMES))
                rates.append(received / (time.perf_counter() - start))
    program.terminate()
    program.wait()
    print(f"frames of one item of 100 points: {statistics.median(rates):.0f} frames/s")


def measure_import():
    """The time to import the package after NumPy."""
    code = "import numpy, time; start = time.perf_counter(); import vantor; print(time.perf_counter() - start)"
    times = [float(subprocess.check_output([sys.executable, "-c", code])) for _ in range(PAIRS)]
    print(f"import vantor after NumPy: {1000 * statistics.median(times):.0f} ms")


measure_import()
measure_short_frames()
compare_long_frames()
