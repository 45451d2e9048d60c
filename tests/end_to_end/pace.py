"""Checks the `tick` of every frame of a paced stream, on a machine of any speed and load."""

import time

TICKS_PER_SECOND = 1000000

TICK_WRAP = 2**32  # the tick wraps around to 0

# The server reports its uptime in milliseconds. Both ends of a duration may be rounded.
UPTIME_ROUNDING = 0.002

# Divisors of the rate, tried one after the other until a busy machine can keep the rate.
SLOWER = (1, 1, 2, 4, 8, 16, 32)


def tick_of(header):
    """Returns the tick of the first item of a frame."""
    return next(item for group in header["result_info"] for item in group)["tick"]


def without_wraps(ticks):
    """Ticks without wrap-around. Each is later than the one before."""
    unwrapped = [ticks[0]]
    for earlier, later in zip(ticks, ticks[1:]):
        step = (later - earlier) % TICK_WRAP
        if not 0 < step < TICK_WRAP // 2:
            raise AssertionError(f"the tick goes from {earlier} to {later}")
        unwrapped.append(unwrapped[-1] + step)
    return unwrapped


def check_places(ticks, period, places, next_places):
    """
    Checks that all frames fit a grid that starts at some moment: frame k is measured `places[k]` periods after it or
    later, but before the next frame is due, at `next_places[k]` periods.
    """
    ticks = without_wraps(ticks)
    latest_start = min(tick - place * period for tick, place in zip(ticks, places))
    earliest_start = max(tick - place * period for tick, place in zip(ticks, next_places))
    if earliest_start > latest_start:
        raise AssertionError(f"ticks do not fit the period {period} at places {places} to {next_places}: {ticks}")


class ServerPacedStream:
    """
    Frames of a stream that the server paces on a real clock, and the number of frames left out after each, as reported.

    For a count that arrived too late to belong to a single frame, only bounds are known.
    """

    def __init__(self, host, count):
        """Streams in a configured session."""
        self.host = host
        self.ticks = []
        before = host.ask("stats")
        answered = time.monotonic()
        self.frames_before, self.left_out_before = before["frames"], before["frames_left_out"]
        self.left_out = {0: 0}  # by the number of frames sent
        start = time.monotonic()
        host.command("start")
        if host.answer()[0].get("command") != "start":
            raise AssertionError("the stream did not start")
        self._receive(count)
        self.seconds = time.monotonic() - start
        host.command("stop")
        while host.answer()[0].get("command") != "stop":
            pass
        self.least_seconds = time.monotonic() - answered
        self.uptime = host.ask("stats")["uptime_s"] - before["uptime_s"]

    def _receive(self, count):
        """Requests the statistics after every frame."""
        answers = 0
        while answers < count:
            header, _ = self.host.message()
            if "result_info" in header:
                if len(self.ticks) < count:
                    self.ticks.append(tick_of(header))
                    self.host.command("stats")
            else:
                answers += 1
                sent = header["frames"] - self.frames_before
                self.left_out[sent] = header["frames_left_out"] - self.left_out_before

    def _fewest_left_out(self, sent):
        """The minimum number of frames left out after this many frames."""
        return max(left_out for number, left_out in self.left_out.items() if number <= sent)

    def _most_left_out(self, sent):
        """The maximum number of frames left out after this many frames."""
        return min(left_out for number, left_out in self.left_out.items() if number >= sent)

    def total_left_out(self):
        """The number of frames that the server has left out."""
        return max(self.left_out.values())

    def check(self, period):
        """
        Checks that no frame is early or sent twice, that the frames left out are those that the server reports, that
        the ticks do not run faster than real time, and that the clock of the server does not run slower.
        """
        numbers = range(len(self.ticks))
        check_places(self.ticks, period, [k + self._fewest_left_out(k) for k in numbers],
                     [k + 1 + self._most_left_out(k + 1) for k in numbers])
        ticks = without_wraps(self.ticks)
        if (ticks[-1] - ticks[0]) / TICKS_PER_SECOND > 1.001 * self.seconds:
            raise AssertionError(f"{ticks[-1] - ticks[0]} ticks in {self.seconds} s are too many")
        # The first uptime was read before the start of `least_seconds`, and the second one after its end.
        if self.uptime + UPTIME_ROUNDING < 0.999 * self.least_seconds:
            raise AssertionError(f"the server's clock advanced {self.uptime} s in {self.least_seconds} s")


def check_server_paced(host, configuration, rate, count):
    """
    Checks frames of a session that the server paces. A busy machine may have to leave frames out: this is checked, too,
    and the session is repeated at a lower rate until no frame is left out.
    """
    for slower in SLOWER:
        metadata = host.ask("configure", configuration={**configuration, "max_update_rate": rate / slower})
        period = TICKS_PER_SECOND * slower // rate
        if metadata["tick_period"] != period:
            raise AssertionError(f"tick_period is {metadata['tick_period']}, expected {period}")
        stream = ServerPacedStream(host, count)
        stream.check(period)
        host.ask("end")
        if stream.total_left_out() == 0:
            return
    raise AssertionError(f"even at {rate / SLOWER[-1]} Hz {stream.total_left_out()} frames were left out")


def check_sensor_paced(headers, period):
    """
    Checks frames of one item that the sensor paces. Frames that are not delayed are one period apart. Only a delayed
    frame may be elsewhere, and the frames after it start a new grid.

    Returns the number of delayed frames.
    """
    delayed = [header["result_info"][0][0]["frame_delayed"] for header in headers]
    run = []
    for header, is_delayed in [*zip(headers, delayed), (None, True)]:
        if not is_delayed:
            run.append(tick_of(header))
        elif run:
            check_places(run, period, range(len(run)), range(1, len(run) + 1))
            run = []
    return sum(delayed)
