"""Finds the path of a person in a recording of two boards on one wall: walker.py RECORDING"""

import sys

import numpy as np
import numpy.typing as npt
import vantor

BASE_M = 3.0  # the first board is at x = -1.5 m, the other one at 1.5 m; both look along the y axis
WINDOW = 25  # frames: half a second


def track(board: vantor.Recording) -> npt.NDArray[np.float64]:
    """Time in UTC and distance of what moves: the strongest point, as the median of half a second."""
    frames = board[0, 0]
    moving = abs(frames.iq[:, 0] - frames.iq[:, 0].mean(axis=0))  # things that stand still are gone
    seen = np.isfinite(frames.utc_s) & (moving.max(axis=1) > 5.0 * np.median(moving))
    if np.count_nonzero(seen) < WINDOW:
        sys.exit("A board does not see anybody who moves for half a second, or its times are not known.")
    found = np.array([frames.utc_s, frames.distances_m[moving.argmax(axis=1)]])[:, seen]
    return np.asarray(np.median(np.lib.stride_tricks.sliding_window_view(found, WINDOW, axis=1), axis=2))


try:
    boards = vantor.open(sys.argv[1]).boards
except vantor.Error as failure:
    sys.exit(str(failure))
if len(boards) != 2:
    sys.exit(f"{sys.argv[1]} has the recording of {len(boards)} board(s); two are needed.")
(utc_s, near), (other_utc_s, far) = map(track, boards.values())
far = np.interp(utc_s, other_utc_s, far, left=np.nan, right=np.nan)  # one time axis
x = (near**2 - far**2) / (2.0 * BASE_M)  # where two circles meet
if not np.isfinite(x).any():
    sys.exit("The boards have not seen the person at the same time.")
y = np.sqrt(np.maximum(near**2 - (x + BASE_M / 2.0) ** 2, 0.0))
for place in zip(utc_s, x, y, strict=True):
    if np.isfinite(place).all():
        print("{:.3f} s  x {:.2f} m  y {:.2f} m".format(*place))
