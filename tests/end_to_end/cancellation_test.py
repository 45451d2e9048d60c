"""Commands end at a signal, whatever the server does that they wait for."""

import contextlib
import json
import os
import pty
import signal
import socket
import subprocess
import tempfile
import threading
import tty
import unittest

from sigmf_rules import check_recording
from vantor_process import EXAMPLES, VANTOR, Server, example, wait_until

# Far more than the two seconds that a command may take to end, also on a busy machine.
BOUND = 20.0

CONFIGURATION = os.path.join(EXAMPLES, "single_sensor.json")
LOG_LINE = b'{"status":"log","level":"INFO","module":"m","message":"again","payload_size":0}\n'


def real_answers(*commands):
    """The answers of a real server to these commands, as bytes; the session then ends."""
    with Server("--tcp", "0", "--clock", "virtual") as server, server.connect() as host:
        arguments = {"configure": {"configuration": example("single_sensor.json")}}
        answers = {name: json.dumps(host.ask(name, **arguments.get(name, {}))).encode() + b"\n" for name in commands}
        host.ask("end")
    return answers


class BadServer(threading.Thread):
    """Serves one host over TCP, and answers only these commands. Then it repeats some bytes forever."""

    def __init__(self, answers=None, endless=b"", reads=True):
        super().__init__(daemon=True)
        self.answers = answers or {}
        self.endless = endless
        self.reads = reads
        self.received = []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"tcp:127.0.0.1:{self.listener.getsockname()[1]}"
        self.connected = threading.Event()

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.listener.close()
        self.join(BOUND)

    def run(self):
        with contextlib.suppress(OSError), self.listener.accept()[0] as host:
            self.connected.set()
            while self.endless:
                host.sendall(self.endless * 100)
            while self.reads and self.answer(host):
                pass
            # Until the host has disconnected.
            while not self.reads and host.send(b" "):
                threading.Event().wait(0.05)

    def answer(self, host):
        """Answers commands; returns false if the host has disconnected."""
        data = host.recv(65536)
        for line in data.splitlines():
            with contextlib.suppress(ValueError):
                command = json.loads(line)["command"]
                self.received.append(command)
                host.sendall(self.answers.get(command, b""))
        return bool(data)

    def wait_for(self, *commands):
        """Waits for the connection, and until the last commands were these."""
        self.connected.wait(BOUND)
        wait_until(lambda: self.received[-len(commands):] == list(commands) or not commands, f"{commands}")


class Cancellation(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.output = os.path.join(self.folder, "output")

    def start(self, *arguments, **options):
        """Starts a command."""
        process = self.enterContext(subprocess.Popen([VANTOR, *arguments], stdout=subprocess.PIPE,
                                                     stderr=subprocess.PIPE, text=True, **options))
        self.addCleanup(process.kill)
        return process

    def ends_at(self, process, number=signal.SIGINT, expected="vantor: interrupted\n"):
        """A signal ends a command, which prints these errors; returns what else it printed."""
        process.send_signal(number)
        output, errors = process.communicate(timeout=BOUND)
        self.assertEqual((process.returncode, errors), (130, expected))
        return output

    def commands(self, address):
        """All commands that wait for a server."""
        return [("identify", "--connect", address),
                ("selftest", "--connect", address),
                ("calibrate", "--connect", address, "--output", self.output),
                ("record", CONFIGURATION, "--connect", address, "--output", self.output)]

    def all_end(self, **behaviour):
        """All commands end while a server does this."""
        for i in range(4):
            with BadServer(**behaviour) as server:
                arguments = self.commands(server.address)[i]
                with self.subTest(command=arguments[0]):
                    process = self.start(*arguments)
                    server.wait_for()
                    self.ends_at(process)
                    self.assertFalse(os.path.exists(self.output))

    def test_a_server_that_never_answers(self):
        self.all_end()

    def test_a_server_that_never_reads(self):
        self.all_end(reads=False)

    def test_a_server_that_sends_garbage_forever(self):
        self.all_end(endless=b"\x00\xff{garbage\n")

    def test_a_server_that_sends_garbage_without_lines_forever(self):
        self.all_end(endless=b"\x80")

    def test_a_server_that_sends_log_lines_forever(self):
        self.all_end(endless=LOG_LINE)

    def test_each_signal(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number), BadServer() as server:
                process = self.start("identify", "--connect", server.address)
                server.wait_for("end")
                self.ends_at(process, number)

    def test_a_server_that_configures_forever_is_asked_to_end(self):
        answers = real_answers("end", "identify")
        for i in (2, 3):
            with BadServer(answers) as server:
                process = self.start(*self.commands(server.address)[i])
                server.wait_for("configure")
                self.ends_at(process)
                self.assertEqual(server.received[-1], "end")

    def test_a_recording_of_a_server_that_sends_no_frames(self):
        answers = real_answers("end", "identify", "configure", "start")
        with BadServer(answers) as server:
            process = self.start(*self.commands(server.address)[3])
            server.wait_for("start")
            answers["end"] = b""
            self.assertIn("0 frames", self.ends_at(process, expected=""))
            self.assertEqual(server.received[-1], "end")
            check_recording(self.output, True)

    def test_a_self_test_in_which_the_server_stops_answering(self):
        with BadServer(real_answers("end", "identify")) as server:
            process = self.start(*self.commands(server.address)[1])
            wait_until(lambda: server.received.count("end") > 1, "the first case")
            self.ends_at(process)
            self.assertEqual(server.received[-1], "end")

    def test_a_scan_of_silent_devices(self):
        near, far = pty.openpty()
        self.addCleanup(os.close, near)
        self.addCleanup(os.close, far)
        tty.setraw(far)
        process = self.start("scan", *[os.ttyname(far)] * 200)
        self.assertIn(b"end", os.read(near, 100))
        process.send_signal(signal.SIGTERM)
        _, errors = process.communicate(timeout=BOUND)
        self.assertEqual((process.returncode, errors), (130, "vantor: interrupted\n"))

    def test_a_host_name_that_is_looked_up_forever(self):
        if "VANTOR_STUCK_LOOKUP" not in os.environ:
            self.skipTest("the system's function cannot be replaced in this build")
        started = os.path.join(self.folder, "started")
        environment = {**os.environ, "LD_PRELOAD": os.environ["VANTOR_STUCK_LOOKUP"], "VANTOR_LOOKUP_STARTED": started}
        process = self.start("identify", "--connect", "tcp:example.org:6110", env=environment)
        wait_until(lambda: os.path.exists(started), "the lookup")
        self.ends_at(process)


if __name__ == "__main__":
    unittest.main()
