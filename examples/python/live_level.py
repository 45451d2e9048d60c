"""Shows the level over distance while it is measured: live_level.py [ADDRESS] [FRAMES]"""

import sys

import matplotlib.pyplot as plt
import vantor

CONFIGURATION = {
    "update_rate": 20,
    "groups": [[{"sensor_id": 1, "config": {"start_point": 80, "num_points": 400, "step_length": 4}}]],
}


def main(address: str = "sim:--scene walking_person", count: str = "0") -> None:
    """Draw until the window is closed, or until this many frames are drawn."""
    figure, axes = plt.subplots()
    axes.set(xlabel="distance (m)", ylabel="level (dBFS)", ylim=(-80, 0))
    with vantor.connect(address) as server, server.session(CONFIGURATION) as session:
        (line,) = axes.plot(session.items[0].distances_m, [-80.0] * session.items[0].points)
        for frame in session.frames(int(count) or None):
            item = frame[0, 0]
            line.set_ydata(item.level_dbfs)
            echo_m = item.distances_m[item.level.argmax()]
            axes.set_title(f"{frame.time:.1f} s, strongest echo at {echo_m:.2f} m, {frame.missing} missing")
            plt.pause(0.001)
            if not plt.fignum_exists(figure.number):
                break
    print(axes.get_title())


main(*sys.argv[1:])
