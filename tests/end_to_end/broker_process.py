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

# How long a broker may take to answer before it is asked again, in seconds.
PATIENCE = 5.0


def free_port():
    """A TCP port that no program uses at the moment."""
    with socket.create_server(("127.0.0.1", 0)) as server:
        return server.getsockname()[1]


class Broker:
    """
    A `nats-server` with JetStream, whose store stays when it is killed. It ends with the context. It can be in a namespace,
    at a host there.
    """

    def __init__(self, *arguments, starts=True, namespace=None, host="127.0.0.1"):
        self.directory = tempfile.TemporaryDirectory()
        self.store = os.path.join(self.directory.name, "store")
        os.mkdir(self.store)
        self.host, self.port = host, free_port()
        self.address = f"nats:{host}:{self.port}"
        self.arguments = arguments
        self.inside, self.connect = (namespace.inside, namespace.connect) if namespace else ([], socket.create_connection)
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
        self.launch()
        self.wait_until_ready()

    def launch(self):
        """Starts it."""
        self.process = subprocess.Popen(
            [*self.inside, "nats-server", "-js", "-a", self.host, "-p", str(self.port), "-sd", self.store,
             "-l", os.path.join(self.directory.name, "log"), *self.arguments])

    def wait_until_ready(self):
        """Waits until it answers."""
        wait_until(self._is_ready, "the broker")

    def is_running(self):
        """Whether its process runs."""
        return self.process is not None and self.process.poll() is None

    def client(self):
        """Connects to it."""
        return BrokerClient((self.host, self.port), self.connect)

    def _is_ready(self):
        try:
            with self.client() as client:
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
        with self.client() as client:
            return [Batch(data) for data in client.stored(f"vantor-{site}-frames", f"vantor.{site}.{board}.frames")]

    def state(self, board, site=SITE):
        """The last state of a board; None if there is none."""
        with self.client() as client:
            data = client.last(f"vantor-{site}-states", f"vantor.{site}.{board}.state")
            return None if data is None else json.loads(data)


class Cluster:
    """Three NATS servers that keep streams together. They end with the context."""

    def __init__(self):
        ports = [free_port() for _ in range(3)]
        routes = ",".join(f"nats://127.0.0.1:{port}" for port in ports)
        self.servers = [Broker("-n", f"server-{number}", "--cluster_name", "tested", "--cluster", f"nats://127.0.0.1:{port}",
                               "--routes", routes, starts=False) for number, port in enumerate(ports)]

    def __enter__(self):
        for server in self.servers:
            server.launch()
        for server in self.servers:
            server.wait_until_ready()
        return self

    def __exit__(self, *arguments):
        for server in self.servers:
            server.__exit__(*arguments)

    def leader(self, stream):
        """The server that leads a stream; None while there is none."""
        for server in self.servers:
            if server.is_running():
                with server.client() as client:
                    found = client.ask(f"$JS.API.STREAM.INFO.{stream}").get("cluster", {}).get("leader")
                    return self.servers[int(found.rpartition("-")[2])] if found else None
        return None


class BrokerClient:
    """A connection to a NATS server that can ask it for what it has stored."""

    def __init__(self, address, connect=socket.create_connection):
        self.address, self.connect = address, connect
        self._open()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._close()

    def _open(self):
        self.socket = self.connect(self.address)
        self.socket.settimeout(PATIENCE)
        self.lines = self.socket.makefile("rb")
        self.lines.readline()
        self.socket.sendall(b'CONNECT {"verbose":false,"headers":true,"no_responders":true}\r\nSUB answers.* 1\r\n')

    def _close(self):
        self.lines.close()
        self.socket.close()

    def ask(self, subject, request=None):
        """Sends a request, and returns the answer; an error if nobody answers. Asks again if the broker is silent: a
        cluster is while it has no leader."""
        for _ in range(int(TIME_OUT / PATIENCE)):
            try:
                return self._ask_once(subject, request)
            except TimeoutError:
                self._close()
                self._open()
        raise ConnectionError("the broker does not answer")

    def _ask_once(self, subject, request):
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

    def publish(self, subject, data):
        """Publishes a message."""
        self.socket.sendall(b"PUB %s %d\r\n%s\r\n" % (subject, len(data), data))

    def reply_subjects(self, subject):
        """The subjects where answers to messages for a subject are expected, as these messages arrive."""
        self.socket.sendall(b"SUB %s 2\r\n" % subject)
        while line := self.lines.readline():
            words = line.split()
            if words[0] == b"HMSG":
                self.lines.read(int(words[-1]) + 2)
                yield words[3]

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

    def __init__(self, address, configuration, *arguments, spool, site=SITE, namespace=None):
        self.errors = tempfile.TemporaryFile("w+")
        inside = namespace.inside if namespace else []
        command = [*inside, VANTOR, "bridge", address, configuration, "--site", site, "--spool", spool, *arguments]
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

    def stop(self, request=signal.SIGINT):
        """Asks it to stop; returns what it prints then."""
        self.process.send_signal(request)
        output = self.process.communicate(timeout=TIME_OUT)[0]
        assert self.process.returncode == 0, (self.process.returncode, self.messages())
        return output

    def kill(self):
        """Kills it, without notice."""
        self.process.kill()
        self.process.wait()
