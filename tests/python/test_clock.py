"""The time of frames in UTC: when the client asks a server for its clock, and what it makes of the answers."""

import concurrent.futures
import contextlib
import copy
import json
import math
import pickle
import random
import socket
import threading
import time

import numpy as np
import pytest
from processes import TIME_OUT, RunningServer
from recordings import EXAMPLES, host
from scripted_server import (
    ScriptedServer, dump, error, example_configuration, example_metadata, frame_bytes, frame_header, frame_payload, identity,
    plain_answer, stay_silent)

import vantor

#: UTC when the clock of the host shows 0.
EPOCH = 1.8e9

#: The time of the server's clock when that of the host shows 0, in seconds.
OFFSET = 1000.0

PERIOD = 0.02


def tick_at(seconds):
    """The tick of the server's clock at a time of the host."""
    return round((OFFSET + seconds) * 1e6) % 2**32


class BoardServer(ScriptedServer):
    """A server with a clock; each message needs the same time on its way."""

    def __init__(self):
        super().__init__()
        self.way = 0.0
        self.offset = OFFSET
        self.on("ping", self.answer_question)

    def tick(self):
        """In a reaction: the clock."""
        return tick_at(self._moment + self.offset - OFFSET)

    def answer_question(self, host, command):
        """The usual reaction to "ping"."""
        self.send_message({**plain_answer(command), "tick": self.tick()})

    def answer_questions(self, *others):
        """Reacts to the first questions in these ways, None for the usual one."""
        reactions = iter(others)

        def react(host, command):
            (next(reactions, None) or self.answer_question)(host, command)
        self.on("ping", react)

    def send(self, data):
        self._moment += self.way
        super().send(data)
        self._moment -= self.way

    def write(self, data, timeout):
        self.written.append((self.now, data))
        self._moment = self.now + self.way
        for line in data.splitlines():
            self.react(self, line)


def due_frames(count):
    """A reaction to "start": a frame each period."""
    def react(host, command):
        host.send_message(plain_answer(command))
        for number in range(count):
            host.send(frame_bytes(number, host.tick()))
            host.pause(PERIOD)
    return react


@pytest.fixture
def server():
    return BoardServer()


DAMAGED = b'{"status":"ok","comm\n'


def answer_damaged(host, command):
    host.send(DAMAGED)


def session_of(server, **timeouts):
    return server.connect(**timeouts).session(example_configuration())


def questions(server):
    """When the host asked for the clock."""
    return [moment for moment, data in server.written if data == b'{"command":"ping"}\n']


def check_times(frames, begin=0.0):
    """Checks the time of each frame, which is measured at its place in the grid."""
    for frame in frames:
        truth = EPOCH + begin + frame.number * PERIOD
        assert abs(frame.utc_s - truth) <= frame.utc_bound_s, frame.number


def test_asks_before_the_first_frame_and_then_once_a_second(server):
    server.on("start", due_frames(176))
    frames = list(session_of(server).frames(count=176))
    assert questions(server) == pytest.approx([0.0, 1.0, 2.0, 3.0], abs=5e-3)
    check_times(frames)
    assert max(frame.utc_bound_s for frame in frames) < 500e-6


def test_asks_while_it_waits_for_a_slow_frame(server):
    def start(host, command):
        host.send_message(plain_answer(command))
        host.pause(2.5)
        host.send(frame_bytes(0, tick_at(2.5)))
    server.on("start", start)
    [frame] = session_of(server).frames(count=1)
    assert questions(server) == pytest.approx([0.0, 1.0, 2.0], abs=5e-3)
    assert abs(frame.utc_s - EPOCH - 2.5) <= frame.utc_bound_s < 500e-6


def test_does_not_ask_while_a_frame_arrives(server):
    def start(host, command):
        host.send_message(plain_answer(command))
        host.pause(0.5)
        host.send(frame_bytes(0, tick_at(0.4))[:-1])
        host.pause(1.2)
        host.send(frame_bytes(0)[-1:])
        host.pause(0.5)
        host.send(frame_bytes(1, tick_at(2.2)))
    server.on("start", start)
    list(session_of(server).frames(count=2))
    assert questions(server) == pytest.approx([0.0, 1.7], abs=1e-6)


def test_asks_although_each_read_ends_within_a_frame(server):
    def start(host, command):
        host.send_message(plain_answer(command))
        data = b"".join(frame_bytes(number, tick_at(number * PERIOD)) for number in range(150))
        size = len(frame_bytes(1, tick_at(PERIOD)))
        for place in range(0, len(data) + 7, size):
            host.send(data[max(0, place - 7):place + size - 7])
            host.pause(PERIOD)
    server.on("start", start)
    server.answer_questions(None, stay_silent)
    list(session_of(server).frames(count=150))
    assert questions(server) == pytest.approx([0.0, 2.0], abs=PERIOD)


@pytest.mark.parametrize("period", [PERIOD, 1.3])
def test_asks_shortly_before_the_sensors_give_the_next_frame(server, period):
    """The server answers when the next frame was measured."""
    begin, count = [], int(3.9 / period)

    def start(host, command):
        host.send_message(plain_answer(command))
        begin.append(host.now)
        for number in range(count):
            host._moment = host.now + number * period
            host.send(frame_bytes(number, tick_at(host._moment)))

    def ping(host, command):
        moment = host.now
        if begin:
            moment = begin[0] + math.ceil((host.now - begin[0]) / period - 1e-9) * period
        host._moment = moment
        host.answer_question(host, command)
    server.on("start", start)
    server.on("ping", ping)
    document = example_configuration()
    for item in (item for group in document["groups"] for item in group):
        item["config"]["frame_rate"] = 1.0 / period
    server.on("configure", lambda host, command: host.send_message(example_metadata(tick_period=0)))
    frames = list(server.connect().session(document).frames(count=count))
    asked = questions(server)[1:]
    assert len(asked) == 3 if period < 1.0 else 2
    for moment in asked:
        assert 0.0 < -moment % period < 2.1e-3
    for frame in frames:
        assert abs(frame.utc_s - EPOCH - frame.number * period) <= frame.utc_bound_s < 2e-3


def test_bounds_grow_with_the_round_trip(server):
    server.way = 0.01
    server.on("start", due_frames(100))
    # After "end", "identify" and "configure".
    frames = list(session_of(server).frames(count=100))
    check_times(frames, begin=0.07)
    assert all(0.0095 < frame.utc_bound_s < 0.0115 for frame in frames)


def test_ticks_wrap_around(server):
    server.offset = 2**32 / 1e6 - 1.0
    server.on("start", due_frames(150))
    frames = list(session_of(server).frames(count=150))
    assert frames[0][0, 0].tick > frames[-1][0, 0].tick
    check_times(frames)


def test_a_server_that_does_not_report_its_clock_is_asked_once(server):
    server.on("ping", lambda host, command: host.send_message(plain_answer(command)))
    server.on("start", due_frames(200))
    frames = list(session_of(server).frames(count=200))
    assert len(questions(server)) == 1
    assert all(math.isnan(frame.utc_s) and math.isnan(frame.utc_bound_s) for frame in frames)


@pytest.mark.parametrize("tick", [None, -1, 2**32, 1.0, "1", True])
def test_an_impossible_tick_is_like_none(server, tick):
    server.on("ping", lambda host, command: host.send_message({**plain_answer(command), "tick": tick}))
    server.on("start", due_frames(100))
    frames = list(session_of(server).frames(count=100))
    assert len(questions(server)) == 1 and all(math.isnan(frame.utc_s) for frame in frames)


def test_a_server_without_a_clock_is_not_asked(server):
    server.on("identify", lambda host, command: host.send_message({**identity(), "ticks_per_second": 0}))
    server.on("configure", lambda host, command: host.send_message(example_metadata(tick_period=0)))
    server.on("start", due_frames(100))
    frames = list(session_of(server).frames(count=100))
    assert not questions(server) and all(math.isnan(frame.utc_s) for frame in frames)


def test_other_commands_work_while_an_answer_is_pending(server):
    """The answers come in the order of the commands."""
    late = []

    def answer_late(host, command):
        late.append(command)

    def answer_all(host, command):
        for earlier in late:
            host.answer_question(host, earlier)
        late.clear()
        host.answer_question(host, command)
    server.on("start", due_frames(400))
    server.answer_questions(None, answer_late, answer_late, answer_all)
    server.on("stats", answer_all)
    host = server.connect()
    frames = host.session(example_configuration()).frames(count=400)
    seen = [next(frames) for _ in range(60)]
    assert late == [{"command": "ping"}]
    assert host.stats()["command"] == "stats" and not late
    seen += [next(frames) for _ in range(60)]
    assert late == [{"command": "ping"}]
    host.ping()
    assert not late
    seen += list(frames)
    check_times(seen)
    assert [frame.missing for frame in seen] == [0] * 400
    assert seen[-1].utc_bound_s < 500e-6


def test_a_damaged_answer_is_asked_for_again(server):
    server.answer_questions(None, answer_damaged)
    server.on("stats", lambda host, command: host.send_message(plain_answer(command)))
    server.on("start", due_frames(250))
    frames = list(session_of(server).frames(count=250))
    check_times(frames)
    # The second is lost; another command shows that, and then questions go on.
    assert questions(server) == pytest.approx([0.0, 1.0, 3.0, 4.0], abs=5e-3)
    assert len(server.commands("stats")) == 1
    assert [frame.missing for frame in frames] == [0] * 250
    assert frames[-1].utc_bound_s < 500e-6


def test_a_damaged_answer_before_the_stream_does_not_matter(server):
    server.answer_questions(answer_damaged)
    server.on("start", due_frames(100))
    frames = list(session_of(server).frames(count=100))
    assert math.isnan(frames[0].utc_s)
    check_times(frames[60:])


@pytest.mark.parametrize("command", ["ping", "stats"])
def test_a_call_gets_its_answer_after_an_answer_was_damaged(server, command):
    server.answer_questions(None, answer_damaged)
    server.on("start", due_frames(400))
    host = server.connect()
    frames = host.session(example_configuration()).frames(count=400)
    seen = [next(frames) for _ in range(60)]
    getattr(host, command)()
    seen += list(frames)
    check_times(seen)
    assert server.now == pytest.approx(399 * PERIOD), "nothing was waited for"


def test_a_damaged_frame_while_an_answer_is_pending(server):
    """It could have been the answer; it arrives later."""
    late = []

    def answer_later(host, command):
        host.send(DAMAGED)
        host.pause(1.2)
        host.answer_question(host, command)

    def stats(host, command):
        # After the answer to the question, which is on its way.
        host.pause(0.5)
        host.send_message(plain_answer(command))
    server.on("start", due_frames(300))
    server.answer_questions(None, answer_later)
    server.on("stats", stats)
    frames = list(session_of(server).frames(count=300))
    check_times(frames)
    assert frames[-1].utc_bound_s < 500e-6


@pytest.mark.parametrize("code", ["bad_json", "unknown_command", "bad_command", "line_too_long"])
def test_a_question_that_is_damaged_on_its_way_does_not_end_the_stream(server, code):
    server.answer_questions(None, lambda host, command: host.send_message(error(code)))
    server.on("start", due_frames(200))
    frames = list(session_of(server).frames(count=200))
    check_times(frames)
    assert len(questions(server)) == 4


def test_an_error_of_a_sensor_ends_the_stream_while_an_answer_is_pending(server):
    def fail(host, command):
        host._arrivals.clear()
        host.send_message(error("nox_data"))
        host.answer_question(host, command)
    server.answer_questions(None, fail)
    server.on("start", due_frames(200))
    host = server.connect()
    with pytest.raises(vantor.ServerError) as failure:
        list(host.session(example_configuration()).frames())
    assert failure.value.code == "nox_data"
    host.ping()
    assert len(host.session(example_configuration()).items) == 3


def test_forgets_the_clock_when_it_is_set(server):
    def set_clock(host, command):
        host.offset += 0.3
        host.answer_question(host, command)
    server.answer_questions(None, None, set_clock)
    server.on("start", due_frames(300))
    frames = list(session_of(server).frames(count=300))
    known = [not math.isnan(frame.utc_s) for frame in frames]
    # Until two answers agree again.
    assert known == [True] * 100 + [False] * 100 + [True] * 100


def test_setting_the_clock_of_the_host_does_not_bend_the_times(server):
    host = server.connect()
    server.utc_at_zero += 3600.0
    server.on("start", due_frames(100))
    check_times(host.session(example_configuration()).frames(count=100))


def test_a_single_frame_has_a_time(server):
    session = session_of(server)
    server.on("frame", lambda host, command: host.send(frame_bytes(0, host.tick())))
    frame = session.single_frame()
    assert abs(frame.utc_s - EPOCH) <= frame.utc_bound_s < 1e-4
    session.single_frame()
    assert len(questions(server)) == 1, "that was less than a second ago"


def test_items_have_their_own_times_also_in_copies(server):
    server.on("start", due_frames(1))
    [frame] = session_of(server).frames(count=1)
    items = [frame[0, 0], frame[0, 1], frame[1, 0]]
    assert frame.utc_s == items[0].utc_s and frame.utc_bound_s == items[0].utc_bound_s
    assert [item.tick - items[0].tick for item in items] == [0, 5, 9]
    for again in (pickle.loads(pickle.dumps(frame)), copy.deepcopy(frame)):
        assert [item.utc_s for item in again] == [item.utc_s for item in items]
        assert [item.utc_bound_s for item in again] == [item.utc_bound_s for item in items]


class JitteringLink:
    """Passes bytes between one host and a server; each part waits for up to this many seconds."""

    def __init__(self, address, most):
        self._listener = socket.create_server(("127.0.0.1", 0))
        self._most = most
        self._far = socket.create_connection(("127.0.0.1", int(address.rpartition(":")[2])))
        self.address = f"tcp:127.0.0.1:{self._listener.getsockname()[1]}"
        self._threads = [threading.Thread(target=self._accept, daemon=True)]
        self._threads[0].start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for thread in self._threads:
            thread.join(TIME_OUT)
        self._listener.close()

    def _accept(self):
        near, _ = self._listener.accept()
        back = threading.Thread(target=self._pass_on, args=(self._far, near, 1))
        back.start()
        self._pass_on(near, self._far, 2)
        back.join()
        near.close()
        self._far.close()

    def _pass_on(self, source, sink, seed):
        jitter = random.Random(seed)
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                time.sleep(jitter.uniform(0.0, self._most))
                sink.sendall(data)
            sink.shutdown(socket.SHUT_WR)


def drifting_board(truth, *options):
    """A board whose clock is wrong by 50 ppm; its ticks begin again with 0 six seconds after the start."""
    return RunningServer("--tcp", "0", "--truth", str(truth), "--clock-error", "50", "--first-tick",
                         str(2**32 - 6_000_000), *options)


def errors(truth, ticks, utc):
    """By how much times in UTC are later than the truth."""
    with open(truth, encoding="utf-8") as file:
        header = json.loads(file.readline())
    rate = 1e6 * (1.0 + header["clock_error_ppm"] * 1e-6)
    seconds = np.asarray(utc) - header["clock_start_utc_s"]
    ticks = np.asarray(ticks, float)
    return seconds - (ticks + np.round((seconds * rate - ticks) / 2**32) * 2**32) / rate


def item_with(**config):
    return {"sensor_id": 1, "config": {"num_points": 20, "hwaas": 1, **config}}


PACES = [{"update_rate": 50, "groups": [[item_with()]]}, {"groups": [[item_with(frame_rate=50)]]},
         {"groups": [[item_with(frame_rate=2)]]}]

#: The clocks that say so are those of one machine, but the simulator writes whole microseconds.
ROUNDING = 2e-6


@pytest.mark.parametrize("jitter", [0.0, 0.02])
def test_the_true_time_lies_within_the_bound(jitter, tmp_path):
    """Several boards at the same time."""
    def stream(document, truth):
        with drifting_board(truth) as running, JitteringLink(running.address, jitter) as link:
            with vantor.connect(link.address) as server, server.session(document) as session:
                return list(session.frames(seconds=8.0))
    truths = [tmp_path / f"{number}.jsonl" for number in range(len(PACES))]
    with concurrent.futures.ThreadPoolExecutor() as threads:
        streams = list(threads.map(stream, PACES, truths))
    for truth, frames in zip(truths, streams, strict=True):
        ticks = [frame[0, 0].tick for frame in frames]
        assert ticks[-1] < ticks[0], "they began again with 0"
        bounds = np.array([frame.utc_bound_s for frame in frames])
        assert (abs(errors(truth, ticks, [frame.utc_s for frame in frames])) <= bounds + ROUNDING).all()
        # Ten times what an idle machine needs.
        assert bounds.min() < 0.005 + jitter


def test_the_times_of_a_recording_are_those_of_the_package(tmp_path):
    """Both ask the same board, one after the other: one start of its clock fits all frames."""
    truth, recorded = tmp_path / "truth.jsonl", tmp_path / "recorded"
    configuration = tmp_path / "configuration.json"
    configuration.write_text(json.dumps(PACES[0]))
    with drifting_board(truth) as running:
        host("record", configuration, "--seconds", 3, "--connect", running.address, "--output", recorded)
        with vantor.connect(running.address) as server, server.session(PACES[0]) as session:
            frames = list(session.frames(seconds=3.0))
    item = vantor.open(recorded)[0, 0]
    host("export", recorded, "--format", "npz", "--output", tmp_path / "exported")
    [exported] = (tmp_path / "exported").glob("*.npz")
    np.testing.assert_array_equal(np.load(exported)["utc_s"], item.utc_s)
    assert len(item) > 20 and not np.isnan(item.utc_s).any()
    ticks = [*item.ticks, *(frame[0, 0].tick for frame in frames)]
    late = errors(truth, ticks, [*item.utc_s, *(frame.utc_s for frame in frames)])
    bounds = np.array([*item.utc_bound_s, *(frame.utc_bound_s for frame in frames)])
    assert (late - bounds).max() <= (late + bounds).min()


#: The items of the configurations of these tests.
ALL_ITEMS = ((0, 0), (0, 1), (1, 0))


def test_a_replayed_recording_has_its_times_until_it_starts_again(tmp_path):
    recorded = tmp_path / "recorded"
    host("record", EXAMPLES / "two_sensors.json", "--frames", 5, "--output", recorded)
    replay = RunningServer(str(recorded), "--tcp", "0", "--speed", "max", program=("VANTOR", "replay"))
    with replay, vantor.connect(replay.address) as server, server.session(server.info.configuration) as session:
        frames = list(session.frames(count=8))
    recording = vantor.open(recorded)
    for place in ALL_ITEMS:
        item = recording[place]
        assert not np.isnan(item.utc_s).any()
        assert [frame[place].utc_s for frame in frames[:5]] == list(item.utc_s)
        assert [frame[place].utc_bound_s for frame in frames[:5]] == list(item.utc_bound_s)
        assert all(math.isnan(frame[place].utc_s) and math.isnan(frame[place].utc_bound_s) for frame in frames[5:])


def timed_frames(count, timed, first=0):
    """A part of a reaction to "start": sends frames, in which these items have a time that was measured elsewhere."""
    def send(host):
        for number in range(first, first + count):
            header = frame_header(number, host.tick())
            for group, index in timed:
                header["result_info"][group][index].update(utc_s=1e9 + number, utc_bound_s=0.25)
            host.send(dump(header) + frame_payload(number))
            host.pause(PERIOD)
    return send


def stream_of(*parts):
    """A reaction to "start": a stream of these parts."""
    def react(host, command):
        host.send_message(plain_answer(command))
        for part in parts:
            part(host)
    return react


def test_keeps_the_times_of_the_server_and_does_not_ask_for_its_clock(server):
    server.on("start", stream_of(timed_frames(176, ALL_ITEMS)))
    frames = list(session_of(server).frames(count=176))
    assert len(questions(server)) == 1
    for frame in frames:
        assert all(item.utc_s == 1e9 + frame.number and item.utc_bound_s == 0.25 for item in frame)


def test_keeps_a_time_of_the_server_beside_those_that_the_host_knows(server):
    server.on("start", stream_of(timed_frames(100, [(0, 1)])))
    frames = list(session_of(server).frames(count=100))
    assert len(questions(server)) == 2
    check_times(frames)
    assert [frame[0, 1].utc_s for frame in frames] == [1e9 + frame.number for frame in frames]


def test_asks_for_the_clock_when_the_times_of_the_server_stop(server):
    server.on("start", stream_of(timed_frames(100, ALL_ITEMS), timed_frames(100, [], 100)))
    frames = list(session_of(server).frames(count=200))
    assert questions(server)[:2] == pytest.approx([0.0, 2.0], abs=25e-3)
    check_times(frames[101:])
