"""Makes recordings, damages them, and asks the C++ host about them."""

import hashlib
import json
import os
import re
import subprocess
import sys
from collections.abc import Sequence
from pathlib import Path
from typing import Any

EXAMPLES = Path(os.environ["VANTOR_EXAMPLES"])

sys.path.append(str(Path(__file__).parents[1] / "end_to_end"))

from mutated_recordings_test import Mutator  # noqa: E402

__all__ = [
    "EXAMPLES", "SCENE", "Mutator", "describe_boards", "host", "make_boards", "make_recording",
    "reported_damage", "same_text", "set_utc",
]  # fmt: skip

SCENE: dict[str, Any] = {
    "targets": [
        {"distance_m": 0.4, "strength_m2": 8},
        {"distance_m": 0.8, "strength_m2": 0.3, "velocity_m_s": 0.2},
    ],
    "temperatures": [{"celsius": 20, "drift_celsius_per_s": 25}],
    "interferers": [{"strength": 40, "start_s": 0.2, "duration_s": 0.3}],
}


def host(*arguments: object) -> subprocess.CompletedProcess[str]:
    """Run the command `vantor`, which must succeed."""
    command = [os.environ["VANTOR"], *map(str, arguments)]
    return subprocess.run(command, capture_output=True, text=True, check=True)


def make_recording(
    directory: Path, configuration: Path, frames: int, server: str = "", *options: str
) -> Path:
    """Record a session on the virtual clock."""
    address = f"sim:--clock virtual {server}"
    place = ("--connect", address, "--output", directory)
    host("record", configuration, "--frames", frames, *place, *options)
    return directory


def set_utc(table: Path, cells: Sequence[str]) -> None:
    """Write these cells into the columns `utc_s,utc_bound_s` of a frame table, one text for each frame."""
    head, *rows = table.read_text().splitlines()
    before = head.split(",").index("tx_enabled") + 1
    cells = ["utc_s,utc_bound_s", *cells]
    lines = [",".join([*row.split(",")[:before], cell]) for row, cell in zip([head, *rows], cells, strict=True)]
    table.write_text("\n".join([*lines, ""]))


def describe_boards(directory: Path, boards: Any) -> Path:
    """Write the document that lists boards and their items; return the directory."""
    streams = [
        {"name": f"{path.parent.name}/{path.stem}", "hash": hashlib.sha512(path.read_bytes()).hexdigest()}
        for path in sorted(directory.glob("*/*.sigmf-meta"))
    ]
    collection = {"core:version": "1.2.0", "core:streams": streams, "vantor:boards": boards}
    (directory / "boards.sigmf-collection").write_text(json.dumps({"collection": collection}))
    return directory


def make_boards(directory: Path, frames: int) -> Path:
    """Record two boards; the second one measures between the frames of the first one, and begins 0.925 s later."""
    directory.mkdir()
    boards = [{"directory": "ceiling-a17", "name": "Ceiling", "id": "A17"}, {"directory": "door", "name": "Door"}]
    for number, board in enumerate(boards):
        recording = directory / board["directory"]
        server = " ".join(f"--{name} {board[name]}" for name in ("name", "id") if name in board)
        make_recording(recording, EXAMPLES / "two_sensors.json", frames, f"--board {number + 1} {server}")
        cells = [f"{1.8e9 + 0.1 * frame + 0.925 * number:.6f},0.001000" for frame in range(frames)]
        for table in recording.glob("*.frames.csv"):
            set_utc(table, cells)
        board["address"] = f"tcp:10.0.0.{number + 7}:6110"
    return describe_boards(directory, boards)


def reported_damage(directory: Path) -> dict[str, Any]:
    """What `vantor info` reports; only "error" and "damage" if it cannot read the recording."""
    command = [os.environ["VANTOR"], "info", "--json", directory]
    outcome = subprocess.run(command, capture_output=True, text=True, check=False)
    if outcome.stdout:
        return dict(json.loads(outcome.stdout))
    return {"error": outcome.stderr.strip().removeprefix("vantor: "), "damage": []}


def same_text(text: str | None) -> str | None:
    """A message without details that differ: where a text is not JSON, and the digits of a number in it."""
    if text is None:
        return None
    return re.sub(r'( is not valid JSON) at .*|(have an impossible "\w+":) .*', r"\1\2", text)
