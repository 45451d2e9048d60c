"""Tests that Ctrl-C at any moment leaves the server idle, and the program able to go on."""

import contextlib
import itertools
import os
import pathlib
import random
import signal
import subprocess
import sys

import pytest

import vantor
from processes import TIME_OUT, RunningServer, campaign
from scripted_server import (
    ScriptedServer, answer_with, error, example_configuration, example_metadata, frame_bytes, plain_answer,
    stream_frames)

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
def test_streams_again_with_the_same_session_after_an_interruption_at_any_line():
    def interrupt(place):
        server = StrictServer()
        host = server.connect()
        session = host.session(example_configuration())
        try:
            with Interruption(place):
                list(session.frames(count=2))
                list(session.frames(count=2))
        finally:
            assert [frame.number for frame in session.frames(count=FRAMES)] == list(range(FRAMES))
            assert host.stats()["status"] == "ok"
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


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")
def test_streams_again_after_a_command_that_follows_an_interruption_at_any_line():
    def interrupt(place):
        server = StrictServer()
        host = server.connect()
        session = host.session(example_configuration())
        try:
            with Interruption(place):
                list(session.frames(count=2))
                host._conversation.torn = True
                list(session.frames(count=2))
        finally:
            host.ping()
            assert [frame.number for frame in session.frames(count=FRAMES)] == list(range(FRAMES))
    at_each_place(interrupt)


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
