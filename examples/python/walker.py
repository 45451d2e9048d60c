"""Finds the path of a person from the distances of two boards on one wall.

walker.py [LEFT RIGHT [PICTURE]] measures with the boards at two addresses, walker.py RECORDING [PICTURE] uses a
recording of two boards. The left board, at x = -1.5 m, is the first one.
"""

import heapq
import sys
import time
from collections.abc import Iterator
from pathlib import Path

import numpy as np
import numpy.typing as npt
import vantor

BASE_M = 3.0  # the boards are at x = -1.5 m and 1.5 m, and look along the y axis
CONFIGURATION = {
    "update_rate": 50,
    "groups": [[{"sensor_id": 1, "config": {"start_point": 320, "num_points": 180, "step_length": 8, "hwaas": 32}}]],
}
WINDOW = 25  # frames of which the median is used: half a second
SCENE = "sim:--scene two_boards --scene-start {} --board {}"


def frames_of(board: int, session: vantor.Session) -> Iterator[tuple[float, int, vantor.Item]]:
    """The frames of a board, as heapq.merge needs them."""
    for frame in session.frames(seconds=9.0):
        yield frame.utc_s, board, frame[0, 0]


def track(items: list[vantor.Item]) -> npt.NDArray[np.float64]:
    """Time in UTC and distance of what moves: the strongest point, as the median of half a second."""
    items = [item for item in items if np.isfinite(item.utc_s)]
    if not items:
        sys.exit("The times of a board are not known: record it again, with a server that has a clock.")
    sweeps = np.array([item.iq[0] for item in items])
    moving = abs(sweeps - sweeps.mean(axis=0))  # things that stand still are gone
    seen = moving.max(axis=1) > 5.0 * np.median(moving)
    if np.count_nonzero(seen) < WINDOW:
        sys.exit("A board does not see anybody who moves for half a second.")
    found = items[0].distances_m[moving.argmax(axis=1)][seen]
    utc_s = np.array([item.utc_s for item in items])[seen]
    windows = np.lib.stride_tricks.sliding_window_view(np.array([utc_s, found]), WINDOW, axis=1)
    return np.asarray(np.median(windows, axis=2))


def measure(left: str, right: str) -> list[list[vantor.Item]]:
    """What both boards measure at the same time."""
    start = int(time.time())
    items: list[list[vantor.Item]] = [[], []]
    with (
        vantor.connect(left or SCENE.format(start, 1)) as one,
        vantor.connect(right or SCENE.format(start, 2)) as two,
        one.session(CONFIGURATION) as first,
        two.session(CONFIGURATION) as second,
    ):
        for _, board, item in heapq.merge(frames_of(0, first), frames_of(1, second)):
            items[board].append(item)
    return items


def main(*arguments: str) -> None:
    """Print time and place of the person, and draw them."""
    if arguments and Path(arguments[0]).is_dir():
        items = [list(board[0, 0]) for board in vantor.open(arguments[0]).boards.values()]
        picture = list(arguments[1:])
        if len(items) != 2:
            sys.exit(f"{arguments[0]} has the recording of {len(items)} board(s); two are needed.")
    elif len(arguments) == 1:
        sys.exit(f"{arguments[0]} is not a directory: give that of a recording, or the addresses of two boards.")
    else:
        left, right, *picture = arguments or ("", "")
        items = measure(left, right)
    (utc_s, near), (other_utc_s, far) = map(track, items)
    inside = (utc_s >= other_utc_s[0]) & (utc_s <= other_utc_s[-1])
    if not inside.any():
        sys.exit("The boards have not seen the person at the same time.")
    utc_s, near = utc_s[inside], near[inside]
    far = np.interp(utc_s, other_utc_s, far)  # one time axis
    x = (near**2 - far**2) / (2.0 * BASE_M)  # where two circles meet
    y = np.sqrt(np.maximum(near**2 - (x + BASE_M / 2.0) ** 2, 0.0))
    for place in zip(utc_s, x, y, strict=True):
        print("{:.3f} s  x {:.2f} m  y {:.2f} m".format(*place))
    if picture:
        draw(x, y, picture[0])


def draw(x: npt.NDArray[np.float64], y: npt.NDArray[np.float64], picture: str) -> None:
    """Draw the path and the boards."""
    import matplotlib.pyplot as plt

    plt.plot([-BASE_M / 2.0, BASE_M / 2.0], [0.0, 0.0], "s", label="boards")
    plt.plot(x, y, label="person")
    plt.gca().set(xlabel="x (m)", ylabel="y (m)", aspect="equal")
    plt.legend()
    plt.savefig(picture)


try:
    main(*sys.argv[1:])
except vantor.Error as failure:
    sys.exit(str(failure))
