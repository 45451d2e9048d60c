"""
Time and processor time of `vantor export --format npy` compared with a plain loop that reads the samples, widens them and
writes them, and the peak memory and the bytes read of `vantor export`, `info` and `plot`. Prints a line of JSON for each length of frames
and command.

Usage: export_benchmark.py [--rounds NUMBER] [--megabytes NUMBER] VANTOR, with a Python that has NumPy

The recordings have this many megabytes; TMPDIR selects the disk, which needs four times as much space.
"""

import argparse
import json
import os
import resource
import shutil
import statistics
import subprocess
import tempfile
import time

import numpy as np

from record_benchmark import LENGTHS, Device

LOOP_VALUES = 1 << 16
SAMPLES = "group-1-item-1.sigmf-data"
POLL_SECONDS = 0.02


def make_recording(program, length, folder, megabytes):
    """Records frames of one length; returns the directory."""
    device = Device(*LENGTHS[length], megabytes * 1_000_000)
    configuration = os.path.join(folder, "configuration.json")
    with open(configuration, "w", encoding="utf-8") as file:
        json.dump(device.configuration, file)
    recording = os.path.join(folder, "recording")
    subprocess.run([program, "record", configuration, "--frames", str(device.frames), "--output", recording,
                    "--connect", f"tcp:127.0.0.1:{device.port}"], check=True, stdout=subprocess.DEVNULL)
    return recording


def widen(recording, output):
    """The plain loop: the file of samples becomes a file of numbers in single precision, on the disk."""
    values, wide = np.empty(LOOP_VALUES, "<i2"), np.empty(LOOP_VALUES, "<f4")
    os.mkdir(output)
    with open(os.path.join(recording, SAMPLES), "rb", buffering=0) as source, \
            open(os.path.join(output, "wide"), "wb", buffering=0) as target:
        while count := source.readinto(values) // values.itemsize:
            np.copyto(wide[:count], values[:count])
            target.write(wide[:count])
        os.fsync(target.fileno())


def figures(process):
    """Peak memory and bytes read of a running process; nothing if it has ended."""
    try:
        with open(f"/proc/{process.pid}/status", encoding="ascii") as status, \
                open(f"/proc/{process.pid}/io", encoding="ascii") as transfers:
            memory = next((line for line in status if line.startswith("VmHWM")), None)
            read = next(transfers)
        return {} if memory is None else {"peak_megabytes": int(memory.split()[1]) / 1000,
                                          "read_megabytes": int(read.split()[1]) / 1e6}
    except OSError:
        return {}


def processor_time(who):
    """Processor time so far of this process, or of its children that have ended."""
    usage = resource.getrusage(who)
    return usage.ru_utime + usage.ru_stime


def watch(command):
    """Runs a command; returns its time, its processor time, and the last of its figures."""
    start, processor_start = time.monotonic(), processor_time(resource.RUSAGE_CHILDREN)
    found = {}
    with subprocess.Popen(command, stdout=subprocess.DEVNULL) as process:
        while process.poll() is None:
            found.update(figures(process))
            time.sleep(POLL_SECONDS)
    if process.returncode != 0:
        raise SystemExit(f"{command} ended with status {process.returncode}")
    return {"seconds": time.monotonic() - start,
            "processor_seconds": processor_time(resource.RUSAGE_CHILDREN) - processor_start, **found}


def timed_loop(recording, output):
    """The time and the processor time of the plain loop."""
    start, processor_start = time.monotonic(), processor_time(resource.RUSAGE_SELF)
    widen(recording, output)
    return {"seconds": time.monotonic() - start,
            "processor_seconds": processor_time(resource.RUSAGE_SELF) - processor_start}


def spread(values):
    """The lowest and the highest value."""
    return [round(min(values), 2), round(max(values), 2)]


def compare_export(program, length, recording, folder, rounds):
    """Exports and runs the plain loop in turn."""
    output = os.path.join(folder, "output")
    exports, loops = [], []
    for number in range(rounds):
        for name in ("loop", "export") if number % 2 else ("export", "loop"):
            os.sync()
            if name == "loop":
                loops.append(timed_loop(recording, output))
            else:
                exports.append(watch([program, "export", recording, "--format", "npy", "--output", output]))
            shutil.rmtree(output)
    line = {"frames": length, "command": "export", "rounds": rounds}
    for name in ("seconds", "processor_seconds"):
        ratios = [export[name] / loop[name] for export, loop in zip(exports, loops)]
        line |= {name: round(statistics.median(export[name] for export in exports), 2),
                 f"loop_{name}": round(statistics.median(loop[name] for loop in loops), 2),
                 f"{name}_to_loop": round(statistics.median(ratios), 2),
                 f"{name}_to_loop_spread": spread(ratios)}
    print(json.dumps({**line, **{name: round(value) for name, value in exports[-1].items() if name not in line}}),
          flush=True)


def measure(program, length, rounds, megabytes):
    """Measures all commands with one recording."""
    with tempfile.TemporaryDirectory() as folder:
        recording = make_recording(program, length, folder, megabytes)
        compare_export(program, length, recording, folder, rounds)
        for command in (["info", recording], ["plot", recording, "--output", os.path.join(folder, "picture.png")]):
            found = watch([program, *command])
            print(json.dumps({"frames": length, "command": command[0],
                              **{name: round(value, 1) for name, value in found.items()}}), flush=True)


def main():
    """Measures recordings of both lengths of frames."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--megabytes", type=int, default=2000)
    parser.add_argument("program", metavar="VANTOR")
    arguments = parser.parse_args()
    for length in LENGTHS:
        measure(arguments.program, length, arguments.rounds, arguments.megabytes)


if __name__ == "__main__":
    main()
