"""Starts NATS servers and bridges, and reads what a broker has stored, for the end-to-end tests."""

import base64
import collections
import json
import os
import signal
import socket
import subprocess
import tempfile

from vantor_process import TIME_OUT, VANTOR, wait_until

SITE = "hall"


def free_port():
    """A TCP port that no program uses at the moment."""
    with socket.create_server(("127.0.0.1", 0)) as server:
        return server.getsockname()[1]


class Broker:
    """A `nats-server` with JetStream, whose store stays when it is killed. It ends with the context."""

    def __init__(self, *arguments, starts=True):
        self.directory = tempfile.TemporaryDirectory()
        self.port = free_port()
        self.address = f"nats:127.0.0.1:{self.port}"
        self.arguments = arguments
        self.process = None
        if starts:
            self.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()
        self.directory.cleanup()

    def start(self):
        """Starts it, and waits until it answers."""
        self.process = subprocess.Popen(
            ["nats-server", "-js", "-a", "127.0.0.1", "-p", str(self.port), "-sd", self.directory.name,
             "-l", os.path.join(self.directory.name, "log"), *self.arguments])
        wait_until(self._is_ready, "the broker")

    def _is_ready(self):
        try:
            with BrokerClient(self.port) as client:
                return "error" not in client.ask("$JS.API.INFO")
        except OSError:
            return False

    def kill(self):
        """Kills it, without notice."""
        if self.process is not None and self.process.poll() is None:
            self.process.kill()
            self.process.wait()

    def batches(self, board, site=SITE):
        """All batches of a board, in the order in which they were stored."""
        with BrokerClient(self.port) as client:
            return [Batch(data) for data in client.stored(f"vantor-{site}-frames", f"vantor.{site}.{board}.frames")]

    def state(self, board, site=SITE):
        """The last state of a board; None if there is none."""
        with BrokerClient(self.port) as client:
            data = client.last(f"vantor-{site}-states", f"vantor.{site}.{board}.state")
            return None if data is None else json.loads(data)


class BrokerClient:
    """A connection to a NATS server that can ask it for what it has stored."""

    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port), TIME_OUT)
        self.lines = self.socket.makefile("rb")
        self.lines.readline()
        self.socket.sendall(b'CONNECT {"verbose":false,"headers":true,"no_responders":true}\r\nSUB answers.* 1\r\n')

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.lines.close()
        self.socket.close()

    def ask(self, subject, request=None):
        """Sends a request, and returns the answer; an error if nobody answers."""
        data = b"" if request is None else json.dumps(request).encode()
        self.socket.sendall(b"PUB %s answers.1 %d\r\n%s\r\n" % (subject.encode(), len(data), data))
        while line := self.lines.readline():
            words = line.split()
            if words[0] in (b"MSG", b"HMSG"):
                body = self.lines.read(int(words[-1]) + 2)[:-2]
                return json.loads(body) if words[0] == b"MSG" else {"error": "no answer"}
            if words[0] == b"PING":
                self.socket.sendall(b"PONG\r\n")
        raise ConnectionError("the broker closed the connection")

    def stored(self, stream, subject):
        """Gives what a stream has stored for a subject."""
        state = self.ask(f"$JS.API.STREAM.INFO.{stream}").get("state", {"first_seq": 1, "last_seq": 0})
        for sequence in range(state["first_seq"], state["last_seq"] + 1):
            message = self.ask(f"$JS.API.STREAM.MSG.GET.{stream}", {"seq": sequence}).get("message")
            if message is not None and message["subject"] == subject:
                yield base64.b64decode(message["data"])

    def last(self, stream, subject):
        """What a stream has stored last for a subject; None if nothing."""
        # An empty stream is not asked: some servers crash.
        if not self.ask(f"$JS.API.STREAM.INFO.{stream}").get("state", {}).get("messages"):
            return None
        answer = self.ask(f"$JS.API.STREAM.MSG.GET.{stream}", {"last_by_subj": subject})
        return base64.b64decode(answer["message"]["data"]) if "message" in answer else None


class Batch:
    """A batch, read as docs/fleet.md describes."""

    def __init__(self, data):
        line, _, rest = data.partition(b"\n")
        self.header = json.loads(line)
        assert len(rest) == self.header["size"], self.header
        self.frames = []
        while rest:
            text, _, rest = rest.partition(b"\n")
            header = json.loads(text)
            size = header["payload_size"]
            self.frames.append((header, rest[:size]))
            rest = rest[size:]
        assert len(self.frames) == self.header["frames"], self.header


def sessions(batches):
    """The batches of each session, in the order of the sessions."""
    found = collections.OrderedDict()
    for batch in batches:
        found.setdefault(batch.header["session"], []).append(batch)
    return list(found.values())


def lost_frames(batches):
    """Frames of a session that are missing between batches; raises an error if a batch came twice, or too late."""
    lost = expected = number = 0
    for batch in batches:
        assert batch.header["number"] >= number, "a batch came twice, or too late"
        number = batch.header["number"] + 1
        lost += batch.header["first"] - expected
        expected = batch.header["first"] + batch.header["frames"]
    return lost


class Bridge:
    """A `vantor bridge`. It ends with the context."""

    def __init__(self, address, configuration, *arguments, spool, site=SITE):
        self.errors = tempfile.TemporaryFile("w+")
        command = [VANTOR, "bridge", address, configuration, "--site", site, "--spool", spool, *arguments]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=self.errors, text=True)
        self.lines = []
        while "bridging" not in (self.lines or [""])[-1]:
            line = self.process.stdout.readline()
            assert line, self.messages()
            self.lines.append(line.rstrip())

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        if self.process.poll() is None:
            self.process.kill()
        self.process.communicate()
        if kind is not None:
            print(self.messages())
        self.errors.close()

    def messages(self):
        """What it has printed to standard error so far."""
        self.errors.seek(0)
        return self.errors.read()

    def wait_for(self, text):
        """Waits until it prints a text to standard error."""
        wait_until(lambda: text in self.messages(), f"the bridge to print {text!r}")

    def stop(self):
        """Asks it to stop; returns what it prints then."""
        self.process.send_signal(signal.SIGINT)
        output = self.process.communicate(timeout=TIME_OUT)[0]
        assert self.process.returncode == 0, (self.process.returncode, self.messages())
        return output

    def kill(self):
        """Kills it, without notice."""
        self.process.kill()
        self.process.wait()
