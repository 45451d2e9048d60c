"""Tests that Ctrl-C at any moment leaves the server idle, and the program able to go on."""

import contextlib
import itertools
import os
import pathlib
import random
import signal
import struct
import subprocess
import sys

import pytest

import vantor
from processes import TIME_OUT, RunningServer, campaign
from scripted_server import (
    ScriptedServer, answer_with, dump, error, example_configuration, example_metadata, frame_bytes, item_metadata,
    plain_answer, stream_frames)

PACKAGE = str(pathlib.Path(vantor.__file__).parent)
FRAMES = 3


class StrictServer(ScriptedServer):
    """A scripted server that knows the state of its session."""

    def __init__(self):
        super().__init__()
        self.state = "idle"
        self.on("configure", self._step("idle", "configured", answer_with(example_metadata())))
        self.on("start", self._step("configured", "streaming", stream_frames(FRAMES)))
        self.on("stop", self._step("streaming", "configured", self._react_to_stop))
        self.on("frame", self._step("configured", "configured", lambda host, command: host.send(frame_bytes(0))))
        self.on("end", self._react_to_end)

    def _step(self, before, after, react):
        def check_and_react(host, command):
            if self.state != before:
                return host.send_message(error("wrong_state"))
            self.state = after
            return react(host, command)
        return check_and_react

    def _react_to_stop(self, host, command):
        host.send(frame_bytes(FRAMES))
        host.send_message(plain_answer(command) | {"frames_left_out": 0})

    def _react_to_end(self, host, command):
        self.state = "idle"
        host.send_message(plain_answer(command))


class Interruption:
    """Raises KeyboardInterrupt at a line of the package, counted while the context lasts."""

    def __init__(self, place):
        self._left = place

    def __enter__(self):
        sys.settrace(self._trace)

    def __exit__(self, *_):
        sys.settrace(None)

    def _trace(self, frame, event, _):
        if not frame.f_code.co_filename.startswith(PACKAGE):
            return None
        if event == "line":
            if self._left == 0:
                sys.settrace(None)
                raise KeyboardInterrupt
            self._left -= 1
        return self._trace


def at_each_place(action):
    """Runs an action with an interruption at a later line of the package each time, until it is not interrupted."""
    for place in itertools.count(0, campaign(1, 13)):
        try:
            action(place)
        except KeyboardInterrupt:
            continue
        assert place > 300, "too few lines were interrupted"
        return


def run_session(host):
    """A complete session."""
    with host.session(example_configuration()) as session:
        assert [frame.number for frame in session.frames(count=FRAMES)] == list(range(FRAMES))
        session.single_frame()


def test_works_after_an_interruption_of_a_program_at_any_line():
    def interrupt(place):
        server = StrictServer()
        try:
            with Interruption(place), server.connect() as host:
                run_session(host)
        finally:
            # The system closes the link with the program, and the server notices.
            with server.connect() as host:
                run_session(host)
            assert server.state == "idle"
            assert server.now < 5.0, "it waited"
    at_each_place(interrupt)


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")
def test_works_with_the_same_connection_after_an_interruption_at_any_line():
    def interrupt(place):
        server = StrictServer()
        host = server.connect()
        try:
            with Interruption(place):
                run_session(host)
        finally:
            run_session(host)
            host.close()
            assert server.state == "idle"
            assert server.now < 5.0, "it waited"
    at_each_place(interrupt)


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")
@pytest.mark.parametrize("torn", [False, True])
def test_streams_again_with_the_same_session_after_an_interruption_at_any_line(torn):
    def interrupt(place):
        server = StrictServer()
        host = server.connect()
        session = host.session(example_configuration())
        try:
            with Interruption(place):
                list(session.frames(count=2))
                # As after an interruption before this one.
                host._conversation.torn |= torn
                list(session.frames(count=2))
        finally:
            if torn:
                host.ping()
            assert [frame.number for frame in session.frames(count=FRAMES)] == list(range(FRAMES))
            assert host.stats()["status"] == "ok"
            assert server.now < 5.0, "it waited"
    at_each_place(interrupt)


class LongFrameServer(StrictServer):
    """A strict server that sends long frames all at once, with a log line between; each has another value."""

    LENGTH, COUNT = 5000, 14

    def __init__(self):
        super().__init__()
        self._values = itertools.count()
        metadata = example_metadata(tick_period=0) | {"metadata": [[item_metadata(self.LENGTH, [self.LENGTH])]]}
        self.on("configure", self._step("idle", "configured", answer_with(metadata)))
        self.on("start", self._step("configured", "streaming", self._stream))
        self.on("stop", self._step("streaming", "configured", answer_with(plain_answer({"command": "stop"}))))

    def _stream(self, host, command):
        log = {"status": "log", "level": "INFO", "module": "m", "message": "text", "payload_size": 0}
        frames = [self._frame(next(self._values)) for _ in range(self.COUNT)]
        host.send(dump(plain_answer(command)) + b"".join(frames[:10]) + dump(log) + b"".join(frames[10:]))

    def _frame(self, value):
        result = {"tick": 10_000 + value, "data_saturated": False, "temperature": 3, "calibration_needed": False,
                  "frame_delayed": False}
        header = {"result_info": [[result]], "status": "ok", "payload_size": 4 * self.LENGTH}
        return dump(header) + struct.pack("<h", value) * 2 * self.LENGTH


def test_long_frames_stay_as_they_were_after_an_interruption_at_any_line():
    def has_its_value(item):
        return (item.samples == item.tick - 10_000).all()

    def interrupt(place):
        server = LongFrameServer()
        session = server.connect().session({"groups": [[{"sensor_id": 1, "config": {"num_points": server.LENGTH}}]]})
        before, after = [], []
        try:
            with Interruption(place):
                before.extend(item for frame in session.frames(count=server.COUNT) for item in frame)
        finally:
            after.extend(item for frame in session.frames(count=server.COUNT) for item in frame)
            assert len({item.tick for item in before + after}) == len(before) + server.COUNT
            assert all(map(has_its_value, before + after))
            assert server.now < 5.0, "it waited"
    at_each_place(interrupt)


COMMANDS = {"ping": lambda host: host.ping(), "stats": lambda host: host.stats(),
            "identify": lambda host: host.identify(), "log": lambda host: host.log("INFO")}


@pytest.mark.parametrize("command", COMMANDS)
def test_sets_up_the_session_again_after_a_command_that_follows_ctrl_c(command):
    server = StrictServer()
    host = server.connect()
    session = host.session(example_configuration())
    frames = session.frames()
    next(frames)
    with pytest.raises(KeyboardInterrupt):
        frames.throw(KeyboardInterrupt)
    COMMANDS[command](host)
    assert server.state == "idle"
    assert [frame.number for frame in session.frames(count=FRAMES)] == list(range(FRAMES))
    first, second = server.commands("configure")
    assert second["configuration"]["calibration_info"] == example_metadata()["calibration_info"]
    assert first["configuration"]["groups"] == second["configuration"]["groups"]
    session.end()
    assert server.state == "idle"


def test_sets_up_the_session_again_after_a_command_that_follows_a_time_out():
    server = StrictServer()
    host = server.connect(frame=1.0)
    session = host.session(example_configuration())
    frames = session.frames()
    with pytest.raises(vantor.ServerTimeout):
        list(frames)
    host.ping()
    session.single_frame()
    assert len(list(session.frames(count=FRAMES))) == FRAMES


def test_ends_an_interrupted_session_when_another_one_begins():
    server = StrictServer()
    host = server.connect(frame=1.0)
    session = host.session(example_configuration())
    with pytest.raises(vantor.ServerTimeout):
        list(session.frames())
    host.ping()
    other = host.session(example_configuration())
    with pytest.raises(vantor.Error, match="The session has ended"):
        session.single_frame()
    other.single_frame()


class SensorServer(StrictServer):
    """A strict server whose session has one sensor: its number is that of the calibration, and in the samples."""

    def __init__(self):
        super().__init__()
        self._sensor = 0
        self.on("configure", self._step("idle", "configured", self._configure))
        self.on("frame", self._step("configured", "configured", self._measure))
        self.on("start", self._step("configured", "streaming", self._stream))
        self.on("stop", self._step("streaming", "configured", lambda host, command: host.send_message(
            plain_answer(command) | {"frames_left_out": 0})))

    def _configure(self, host, command):
        self._sensor = command["configuration"]["groups"][0][0]["sensor_id"]
        metadata = example_metadata(tick_period=0)
        metadata["calibration_info"][0]["sensor_id"] = self._sensor
        host.send_message(metadata | {"metadata": [[item_metadata(20, [20])]]})

    def _measure(self, host, _):
        result = {"tick": 5, "data_saturated": False, "temperature": 3, "calibration_needed": False,
                  "frame_delayed": False}
        header = {"result_info": [[result]], "status": "ok", "payload_size": 80}
        host.send_message(header, struct.pack("<h", self._sensor) * 40)

    def _stream(self, host, command):
        host.send_message(plain_answer(command))
        for _ in range(FRAMES):
            self._measure(host, command)


def begin_session(host, sensor):
    """A session of a sensor, which must be one of it."""
    session = host.session({"groups": [[{"sensor_id": sensor, "config": {"num_points": 20}}]]})
    assert [entry.sensor_id for entry in session.calibrations] == [sensor]
    return session


def stream_from(session, sensor):
    """Receives a stream, which must be that of a sensor."""
    frames = list(session.frames(count=FRAMES))
    assert [int(frame[0, 0].samples[0, 0, 0]) for frame in frames] == [sensor] * FRAMES


def interrupt_after(host, command, call):
    """Interrupts a call directly after a command was sent."""
    conversation = host._conversation
    transmit = conversation._transmit

    def transmit_and_interrupt(data, timeout):
        transmit(data, timeout)
        if command in data:
            raise KeyboardInterrupt
    conversation._transmit = transmit_and_interrupt
    with pytest.raises(KeyboardInterrupt):
        call()
    conversation._transmit = transmit


@pytest.mark.parametrize("ends", [1, 2, 3, 5, 20])
def test_gives_no_session_the_answers_of_an_earlier_one_after_repeated_ctrl_c(ends):
    server = SensorServer()
    host = server.connect()
    interrupt_after(host, b'"ping"', host.ping)
    for _ in range(ends):
        interrupt_after(host, b'"end"', host.ping)
    interrupt_after(host, b'"configure"', lambda: begin_session(host, 1))
    session = begin_session(host, 2)
    stream_from(session, 2)
    host.ping()
    assert server.now == 0.0, "it waited"


def test_takes_only_the_answer_to_the_last_end_after_a_time_out():
    server = SensorServer()
    host = server.connect()
    session = begin_session(host, 1)
    answer_end = server.reaction("end")

    def answer_late(host, command):
        host.pause(6.0)
        answer_end(host, command)
    server.on("end", answer_late)
    with pytest.raises(vantor.ServerTimeout):
        session.end()
    server.on("end", answer_end)
    stream_from(begin_session(host, 2), 2)


ACTIONS = [lambda host: host.ping(), lambda host: host.stats(), lambda host: begin_session(host, 1),
           lambda host: stream_from(begin_session(host, 3), 3), lambda host: begin_session(host, 2).single_frame(),
           lambda host: begin_session(host, 2).end()]


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")
def test_works_after_random_series_of_interruptions():
    choices = random.Random(7)
    for _ in range(campaign(10_000, 100)):
        server = SensorServer()
        host = server.connect()
        for _ in range(choices.randint(2, 4)):
            with contextlib.suppress(KeyboardInterrupt), Interruption(choices.randrange(250)):
                choices.choice(ACTIONS)(host)
        stream_from(begin_session(host, 2), 2)
        host.ping()
        assert server.now == 0.0, "it waited"


def test_works_after_ctrl_c_between_frames():
    server = StrictServer()
    host = server.connect()
    session = host.session(example_configuration())
    frames = session.frames()
    with contextlib.suppress(KeyboardInterrupt):
        for _ in frames:
            raise KeyboardInterrupt
    # The traceback of an interactive program keeps the generator, which does not stop the new stream later.
    again = session.frames(count=2)
    assert next(again).number == 0
    frames.close()
    assert next(again).number == 1
    assert list(again) == []


def test_leaves_a_real_server_idle_at_random_moments():
    moments = random.Random(11)
    with RunningServer("--tcp", "0", "--clock", "virtual") as server:
        for _ in range(campaign(100, 10)):
            program = subprocess.Popen(
                [sys.executable, "-B", "interrupted_program.py", server.address], stdout=subprocess.PIPE,
                stderr=subprocess.PIPE, text=True)
            assert program.stdout.readline() == "begins\n"
            with contextlib.suppress(subprocess.TimeoutExpired):
                program.wait(moments.uniform(0.0, 0.15))
            program.send_signal(signal.SIGINT)
            _, errors = program.communicate(timeout=TIME_OUT)
            assert program.returncode == 7, errors
            with vantor.connect(server.address) as host:
                assert len(list(host.session({"groups": [[{"sensor_id": 1, "config": {}}]]}).frames(count=3))) == 3


def test_ends_a_long_wait_at_ctrl_c():
    """Ctrl-C ends the wait for a frame that is due in an hour."""
    code = """
import os, signal, sys, threading, vantor
with vantor.connect(sys.argv[1]) as server:
    with server.session({"update_rate": 1 / 3600, "groups": [[{"sensor_id": 1, "config": {}}]]}) as session:
        for frame in session.frames():
            threading.Timer(0.5, os.kill, (os.getpid(), signal.SIGINT)).start()
"""
    with RunningServer("--tcp", "0") as server:
        program = subprocess.run([sys.executable, "-c", code, server.address], capture_output=True, text=True,
                                 timeout=TIME_OUT)
        assert "KeyboardInterrupt" in program.stderr, program.stderr
        with vantor.connect(server.address) as host:
            host.session({"groups": [[{"sensor_id": 1, "config": {}}]]}).single_frame()
