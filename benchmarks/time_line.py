"""The time line of sessions on a board whose link is a serial line: measuring, building the message, sending.

usage: VANTOR=build/release/bin/vantor benchmarks/time_line.py BOARD [DOCUMENT]

Bytes and times of measuring are those of `vantor plan`, those of building are counted by scripts/count-instructions, one
instruction in each cycle of the processor. With DOCUMENT, also checks that it contains the table.
"""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).parent.parent

BAUDRATE = 921600

SECONDS_OF_A_BYTE = 10 / BAUDRATE


def session(sensor_config, groups=1):
    """Returns the configuration of a session of groups of one item."""
    return {"groups": [[{"sensor_id": 1, "config": sensor_config}]] * groups}


SESSIONS = {
    "100 points": session({"num_points": 100}),
    "the same, `hwaas` 500": session({"num_points": 100, "hwaas": 500}),
    "the same, 8 sweeps in a frame": session({"num_points": 100, "hwaas": 500, "sweeps_per_frame": 8}),
    "50 of these points, 1 sweep": session({"num_points": 50, "step_length": 2, "hwaas": 500}),
    "120 points, 8 sweeps": session({"num_points": 120, "sweeps_per_frame": 8}),
    "1,000 points, 16 sweeps": session({"num_points": 1000, "sweeps_per_frame": 16}),
    "10 groups of an item of 160 points": session({"num_points": 160}, groups=10),
}


def plan(configuration):
    """Returns the figures that `vantor plan` derives from a configuration."""
    with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
        json.dump(configuration, file)
        file.flush()
        planned = subprocess.run([os.environ["VANTOR"], "plan", file.name, "--json"], capture_output=True, text=True,
                                 timeout=100, check=True)
    return json.loads(planned.stdout)["figures"]


def instructions_of_frames(board):
    """Returns the instructions of a complete frame on a board by number of items, without assessment."""
    counted = subprocess.run([ROOT / "scripts/count-instructions", board], capture_output=True, text=True, timeout=200,
                             check=True)
    lines = [json.loads(line) for line in counted.stdout.splitlines()]
    return {line["items"]: line["frame"] for line in lines if line.get("assessed") is False}


def numbers_of(board):
    """Returns the numbers of a board."""
    text = (ROOT / "boards" / board / "board_numbers.h").read_text(encoding="utf-8")
    return {name: int(value) for name, value in re.findall(r"\bBOARD_(\w+) = (\d+),", text)}


def row(name, configuration, instructions, numbers):
    """Returns the row of a session."""
    figures = plan(configuration)
    size = figures["frame_bytes"]
    header = size - figures["payload_bytes"]
    measuring = 1 / figures["max_frame_rate"]
    building = instructions[len(configuration["groups"])] / numbers["CORE_CLOCK_HZ"]
    sending = size * SECONDS_OF_A_BYTE
    series = measuring + building + sending
    # The program waits until the rest of the message fits into the ring.
    waiting = max(0, size - numbers["SEND_RING_SIZE"]) * SECONDS_OF_A_BYTE
    overlapped = max(sending, measuring + building + waiting)
    times = " | ".join(f"{1000 * seconds:,.2f}" for seconds in (measuring, building, sending, series, overlapped))
    return f"| {name} | {size:,} | {100 * header / size:.1f} % | {times} | {series / overlapped:.2f} |"


def table(board):
    """Returns the table of a board."""
    numbers, instructions = numbers_of(board), instructions_of_frames(board)
    head = ["| session | bytes | header | measuring | building | sending | one after the other | overlapped | ratio |",
            "|---|---:|---:|---:|---:|---:|---:|---:|---:|"]
    return "\n".join(head + [row(name, configuration, instructions, numbers)
                             for name, configuration in SESSIONS.items()])


def main(board, document=None):
    """Prints the table, and whether the document contains it; returns the exit code."""
    text = table(board)
    print(text)
    if document is None or text in pathlib.Path(document).read_text(encoding="utf-8"):
        return 0
    print(f"{document} does not contain this table; copy it into the document.", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
