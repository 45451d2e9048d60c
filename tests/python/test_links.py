"""Tests of the client on real links: TCP, sockets, a serial line on a pseudo-terminal, simulated servers."""

import contextlib
import gc
import os
import pty
import signal
import socket
import stat
import subprocess
import sys
import termios
import threading
import tty

import pytest

import vantor
from processes import TIME_OUT, RunningServer
from scripted_server import (
    ScriptedTcpServer, answer_with, dump, example_configuration, example_metadata, frame_bytes, identity,
    plain_answer, stay_silent, stream_frames)
from vantor._address import parse_address
from vantor._links import open_link

ONE_ITEM = {"groups": [[{"sensor_id": 1, "config": {"num_points": 100}}]]}
PATIENCE = vantor.Timeouts(*[TIME_OUT] * 4)


def open_descriptors():
    return len(os.listdir("/proc/self/fd"))


@pytest.fixture
def server_program(monkeypatch, tmp_path):
    """Makes a shell script the program of simulated servers."""
    def write(text):
        program = tmp_path / "program"
        program.write_text(f"#!/bin/sh\n{text}\n")
        program.chmod(program.stat().st_mode | stat.S_IXUSR)
        monkeypatch.setenv("VANTOR_SERVER", str(program))
    return write


def test_runs_a_session_over_tcp():
    with ScriptedTcpServer() as server:
        server.on("start", stream_frames(3))
        with vantor.connect(server.address, PATIENCE) as host, host.session(example_configuration()) as session:
            assert [frame[0, 0].tick for frame in session.frames(count=3)] == [0, 20000, 40000]


@pytest.mark.parametrize("link", ["--tcp", "--unix"])
def test_runs_sessions_with_a_real_server(link, tmp_path):
    with RunningServer(link, "0" if link == "--tcp" else str(tmp_path / "radar")) as server:
        for _ in range(2):
            with vantor.connect(server.address, PATIENCE) as host:
                for _ in range(2):
                    with host.session(ONE_ITEM) as session:
                        assert [frame.number for frame in session.frames(count=5)] == list(range(5))
                        session.single_frame()
                    host.ping()
                assert host.stats()["frames"] >= 12


def test_reports_that_a_real_server_is_busy():
    with RunningServer("--tcp", "0") as server, vantor.connect(server.address, PATIENCE):
        with pytest.raises(vantor.ServerError) as failure:
            vantor.connect(server.address, PATIENCE)
        assert failure.value.code == "busy"
        assert "This program has a connection to it itself: use that one, or close it first." in str(failure.value)


def test_does_not_claim_the_connection_of_another_program():
    code = "import sys, vantor; server = vantor.connect(sys.argv[1]); print(flush=True); sys.stdin.read()"
    with RunningServer("--tcp", "0") as server, RunningServer("--tcp", "0") as idle:
        with vantor.connect(idle.address, PATIENCE):
            command = [sys.executable, "-c", code, server.address]
            with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE) as other:
                other.stdout.readline()
                with pytest.raises(vantor.ServerError) as failure:
                    vantor.connect(server.address, PATIENCE)
                assert failure.value.code == "busy" and "This program" not in str(failure.value)


@pytest.mark.parametrize("link", ["sim:", "--tcp", "--unix", "--pty"])
def test_closes_a_connection_that_is_forgotten(link, tmp_path):
    arguments = {"--tcp": ["0"], "--unix": [str(tmp_path / "radar")]}.get(link, [])
    with contextlib.nullcontext() if link == "sim:" else RunningServer(link, *arguments) as server:
        before = (open_descriptors(), len(children()))
        address = "sim:" if link == "sim:" else server.address
        vantor.connect(address, PATIENCE).ping()
        session = vantor.connect(address, PATIENCE).session(ONE_ITEM)
        assert len(list(session.frames(count=2))) == 2
        del session
        gc.collect()
        assert (open_descriptors(), len(children())) == before


@pytest.mark.parametrize("address, hint", [
    ("tcp:127.0.0.1:1", "Is vantor_server running there, with --tcp and this port"),
    ("tcp:[::1]:1", r"Cannot connect to tcp:\[::1\]:1"),
    ("unix:/does/not/exist", "No such file or directory. Is vantor_server running there, with --unix"),
    ("unix:" + 108 * "x", "too long"),
    ("serial:/dev/does-not-exist", "Check the name and your permissions"),
    ("serial:/dev/null", "Cannot open the serial device /dev/null"),
    ("tcp:does-not-exist.invalid:5000", "Cannot resolve the host name")])
def test_reports_that_there_is_no_server(address, hint):
    before = open_descriptors()
    with pytest.raises(vantor.ConnectError, match=hint) as failure:
        vantor.connect(address)
    assert failure.value.code == "connect"
    assert open_descriptors() == before


def test_gives_up_on_a_name_that_is_not_resolved_in_time(monkeypatch):
    asked = threading.Event()
    original = socket.getaddrinfo

    def look_up(host, *arguments, flags=0, **options):
        if flags & socket.AI_NUMERICHOST:
            return original(host, *arguments, flags=flags, **options)
        asked.wait(TIME_OUT)
        return []
    monkeypatch.setattr(socket, "getaddrinfo", look_up)
    with pytest.raises(vantor.ConnectError, match="in time"):
        vantor.connect("tcp:radar.local:5000", vantor.Timeouts(connect=0.05))
    asked.set()


def test_gives_up_on_a_socket_that_accepts_no_connection(tmp_path):
    path = str(tmp_path / "radar")
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(path)
        listener.listen(0)
        waiting = socket.socket(socket.AF_UNIX)
        with waiting:
            waiting.connect(path)
            with pytest.raises(vantor.ConnectError, match="timed out"):
                vantor.connect(f"unix:{path}", vantor.Timeouts(connect=0.05))
            # The server accepts again.
            threading.Timer(0.1, lambda: listener.accept()[0].close()).start()
            open_link(parse_address(f"unix:{path}"), TIME_OUT).close()


def test_refuses_calls_of_two_threads_at_once():
    asked, answered = threading.Event(), threading.Event()

    def ping(host, command):
        asked.set()
        answered.wait(TIME_OUT)
        host.send_message(plain_answer(command))
    with ScriptedTcpServer() as server:
        server.on("ping", ping)
        with vantor.connect(server.address, PATIENCE) as host:
            session = host.session(example_configuration())
            failures = []

            def ping_and_note():
                try:
                    host.ping()
                except Exception as failure:
                    failures.append(failure)
            other = threading.Thread(target=ping_and_note)
            other.start()
            asked.wait(TIME_OUT)
            for call in (host.stats, host.ping, host.close, session.single_frame, session.end,
                         lambda: next(session.frames()), lambda: host.session({})):
                with pytest.raises(vantor.Error, match="Another thread is using this connection"):
                    call()
            answered.set()
            other.join()
            assert failures == []
            assert session.single_frame()[0, 0].tick == 0
            assert [command for command in ("stats", "end", "start") if len(server.commands(command)) > 1] == []


def test_gives_up_on_a_silent_server():
    with ScriptedTcpServer() as server:
        server.on("end", stay_silent)
        with pytest.raises(vantor.ServerTimeout):
            vantor.connect(server.address, vantor.Timeouts(answer=0.1))


@pytest.mark.parametrize("while_streaming", [False, True])
def test_reports_a_server_that_is_killed(while_streaming):
    with RunningServer("--tcp", "0") as server, pytest.raises(vantor.ConnectionLost):
        with vantor.connect(server.address, PATIENCE) as host, host.session(ONE_ITEM) as session:
            if while_streaming:
                for frame in session.frames():
                    server.kill(signal.SIGKILL)
            server.kill(signal.SIGKILL)
            while True:
                host.ping()


def test_reports_a_server_that_is_stopped():
    with RunningServer("--tcp", "0") as server:
        with vantor.connect(server.address, vantor.Timeouts(answer=1.0, frame=1.0)) as host:
            session = host.session(ONE_ITEM)
            with pytest.raises(vantor.ServerTimeout):
                for frame in session.frames():
                    server.kill(signal.SIGSTOP)
            with pytest.raises(vantor.ServerTimeout):
                host.ping()
            server.kill(signal.SIGCONT)
            while True:
                try:
                    host.ping()
                    break
                except vantor.ServerTimeout:
                    pass
            assert len(list(host.session(ONE_ITEM).frames(count=2))) == 2


def test_reports_a_server_that_accepts_no_bytes():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        link = open_link(parse_address(f"tcp:127.0.0.1:{listener.getsockname()[1]}"), TIME_OUT)
        with pytest.raises(vantor.ServerTimeout, match="does not accept more bytes"):
            link.write(bytes(50_000_000), 0.05)
        link.close()


def test_loses_nothing_when_it_reads_slowly():
    count = 20_000

    def start(host, command):
        host.send_message(plain_answer(command))
        # More than the buffers of the link: the server waits for the host.
        host.send(b"".join(frame_bytes(0, tick) for tick in range(count)))
    with ScriptedTcpServer() as server:
        server.on("configure", answer_with(example_metadata(0)))
        server.on("start", start)
        with vantor.connect(server.address, PATIENCE) as host, host.session(example_configuration()) as session:
            assert [frame[0, 0].tick for frame in session.frames(count=count)] == list(range(count))


class SerialServer(threading.Thread):
    """A server on a pseudo-terminal that answers every command, up to a ping, with the identity of a server."""

    def __init__(self):
        super().__init__(daemon=True)
        self._near, self._device = pty.openpty()
        tty.setraw(self._device)
        self.address = f"serial:{os.ttyname(self._device)}@9600"
        self.rate_of_ping = None
        self.start()

    def rate(self):
        """The baud rate to which the host has set the line."""
        return termios.tcgetattr(self._device)[5]

    def run(self):
        line = b""
        while self.rate_of_ping is None:
            line += os.read(self._near, 1)
            if line.endswith(b"\n"):
                self._answer(line)
                line = b""

    def _answer(self, line):
        if b"ping" in line:
            self.rate_of_ping = self.rate()
            os.write(self._near, dump({"status": "ok", "command": "pong", "payload_size": 0}))
        for command in ("end", "identify", "baudrate"):
            if command.encode() in line:
                os.write(self._near, dump(identity() | {"command": command, "max_baudrate": 921600}))

    def close(self):
        """Closes the line."""
        self.join()
        os.close(self._near)
        os.close(self._device)


def test_changes_the_baud_rate_of_a_serial_line_and_restores_it():
    server = SerialServer()
    host = vantor.connect(server.address, PATIENCE)
    assert server.rate() == termios.B9600
    with pytest.raises(vantor.ProtocolError):
        host.set_baudrate(115200)
    assert server.rate_of_ping == termios.B115200
    assert server.rate() == termios.B9600
    host.close()
    server.close()


def test_runs_a_session_over_a_serial_line():
    with RunningServer("--pty") as server, vantor.connect(server.address, PATIENCE) as host:
        assert len(list(host.session(ONE_ITEM).frames(count=50))) == 50


def test_reports_a_serial_line_that_is_cut():
    with RunningServer("--pty") as server, vantor.connect(server.address, PATIENCE) as host:
        with pytest.raises(vantor.ConnectionLost):
            for frame in host.session(ONE_ITEM).frames():
                server.kill(signal.SIGKILL)


def test_does_not_change_the_baud_rate_of_a_network():
    with ScriptedTcpServer() as server, vantor.connect(server.address, PATIENCE) as host:
        with pytest.raises(vantor.Error, match="no baud rate"):
            host.set_baudrate(921600)


def test_says_that_serial_lines_need_another_package(monkeypatch):
    monkeypatch.setitem(sys.modules, "serial", None)
    with pytest.raises(vantor.ConnectError, match="pip install pyserial"):
        vantor.connect("serial:/dev/ttyACM0")


def test_ends_its_simulated_server():
    before = open_descriptors()
    with vantor.connect("sim:--sensors 2", PATIENCE) as host:
        assert host.info.sensor_count == 2
        assert children()
    assert not children()
    assert open_descriptors() == before


def test_starts_simulated_servers_without_a_limit_for_slow_loops(server_program, tmp_path):
    server_program(f'echo "$*" >> "{tmp_path}/arguments"\nexec "{os.environ["VANTOR_SERVER"]}" "$@"')
    for options in ("--seed 2", "--stall-limit 7", "--stall-limit=8"):
        vantor.connect(f"sim:{options}", PATIENCE).close()
    first, second, third = (tmp_path / "arguments").read_text().splitlines()
    assert "--stall-limit 0" in first
    assert "--stall-limit 7" in second and "--stall-limit 0" not in second
    assert "--stall-limit=8" in third and "--stall-limit 0" not in third


def children():
    """The processes that this one has started and not waited for."""
    return [int(name) for name in os.listdir("/proc") if name.isdigit() and parent_of(name) == os.getpid()]


def parent_of(process):
    """The parent of a process; 0 if it is gone."""
    try:
        with open(f"/proc/{process}/stat", encoding="ascii") as file:
            return int(file.read().rpartition(")")[2].split()[1])
    except OSError:
        return 0


@pytest.mark.parametrize("options, message", [
    ("--sensors 1000", "status 2:\n.*--sensors"), ("--scene nosuch", 'status 1:\n.*cannot read the scene "nosuch"'),
    ("--bogus", "status 2:\n.*--bogus")])
def test_reports_what_a_simulated_server_says_that_exits_immediately(options, message, capfd):
    before = open_descriptors()
    with pytest.raises(vantor.ConnectError, match=message):
        vantor.connect(f"sim:{options}", PATIENCE)
    assert capfd.readouterr().err == ""
    assert open_descriptors() == before


@pytest.mark.parametrize("script, message", [
    ("exit 0", "exited with status 0 and without a message. Check that VANTOR_SERVER or PATH has vantor_server"),
    ("echo hello; exit 3", "exited with status 3."),
    ("kill -9 $$", "exited by signal 9 and"),
    ("seq 1 99999 >&2; printf 'no \\033[31mradar\\n' >&2", r"99998\n99999\nno \\x1b\[31mradar$")])
def test_reports_another_program_that_exits_immediately(server_program, script, message):
    before = open_descriptors()
    server_program(script)
    with pytest.raises(vantor.ConnectError, match=message) as failure:
        vantor.connect("sim:", PATIENCE)
    assert str(failure.value).count("\n") <= 10
    assert open_descriptors() == before


def test_passes_on_what_a_simulated_server_prints(server_program, capfd):
    server_program(f'echo "good morning" >&2; "{os.environ["VANTOR_SERVER"]}" "$@"; echo "good night" >&2')
    with vantor.connect("sim:--log-level VERBOSE", PATIENCE) as host:
        host.session(ONE_ITEM).single_frame()
    shown = capfd.readouterr().err
    assert shown.startswith("good morning\n") and "Powered on sensor" in shown


def test_says_how_a_simulated_server_ended_during_a_session():
    with pytest.raises(vantor.ConnectionLost, match="exited by signal 9[.:]"):
        with vantor.connect("sim:", PATIENCE) as host:
            session = host.session(ONE_ITEM)
            os.kill(*children(), signal.SIGKILL)
            while True:
                session.single_frame()


def test_kills_a_simulated_server_that_does_not_exit(server_program, monkeypatch):
    server_program("trap '' TERM\nwhile true; do sleep 1000; done")
    monkeypatch.setattr("vantor._links._EXIT_TIME", 0.01)
    link = open_link(parse_address("sim:"), TIME_OUT)
    link.close()
    with pytest.raises(ChildProcessError):
        os.waitpid(-1, os.WNOHANG)


def test_finds_the_server_program_in_path_or_not_at_all(monkeypatch, tmp_path):
    program = os.environ["VANTOR_SERVER"]
    monkeypatch.delenv("VANTOR_SERVER")
    monkeypatch.setenv("PATH", f"/does/not/exist:{tmp_path}")
    with pytest.raises(vantor.ConnectError, match="set VANTOR_SERVER to its path"):
        vantor.connect("sim:")
    (tmp_path / "vantor_server").symlink_to(program)
    vantor.connect("sim:", PATIENCE).close()
    monkeypatch.setenv("VANTOR_SERVER", "/does/not/exist")
    with pytest.raises(vantor.ConnectError, match="Cannot start /does/not/exist"):
        vantor.connect("sim:")
