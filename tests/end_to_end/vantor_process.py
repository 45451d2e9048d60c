"""Starts servers and talks to them, for the end-to-end tests."""

import json
import os
import select
import signal
import socket
import subprocess
import termios
import threading
import time
import tty

SERVER = os.environ["VANTOR_SERVER"]
VANTOR = os.environ["VANTOR"]
EXAMPLES = os.environ["VANTOR_EXAMPLES"]

TIME_OUT = 20.0


def example(name):
    """The configuration document of an example."""
    with open(os.path.join(EXAMPLES, name), encoding="utf-8") as file:
        return json.load(file)


def vantor(*arguments, **options):
    """Runs the command `vantor` to its end."""
    return subprocess.run([VANTOR, *map(str, arguments)], capture_output=True, text=True, timeout=60, check=False,
                          **options)


class Server:
    """A `vantor_server` process, started with the given arguments and ended with the context."""

    def __init__(self, *arguments):
        self.process = subprocess.Popen([SERVER, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        line = self.process.stdout.readline().decode()
        if not line.startswith("listening on "):
            raise AssertionError(f"no address but {line!r}: {self.process.communicate()[1].decode()}")
        self.address = line.removeprefix("listening on ").strip()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        errors = self.process.communicate(timeout=TIME_OUT)[1].decode()
        if self.process.returncode != 0:
            raise AssertionError(f"the server ended with {self.process.returncode}: {errors}")

    def connect(self):
        """Connects a host."""
        kind, _, where = self.address.partition(":")
        if kind == "serial":
            return Host(SerialStream(where))
        name, _, port = where.rpartition(":")
        return Host(SocketStream(name, int(port)))

    def connect_again(self, host):
        """Lets a host go and connects another one."""
        host.stream.close()
        return self.connect()


class Relay(threading.Thread):
    """Stands between one host and a server on TCP, and keeps what the server sends."""

    def __init__(self, address, damaged=()):
        """What the server sends goes to the host with the bytes at these places changed."""
        super().__init__(daemon=True)
        self.damaged = damaged
        self.sent = bytearray()
        name, _, port = address.removeprefix("tcp:").rpartition(":")
        self.server = socket.create_connection((name, int(port)), TIME_OUT)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"tcp:127.0.0.1:{self.listener.getsockname()[1]}"

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.join(TIME_OUT)

    def run(self):
        with self.server, self.listener, self.listener.accept()[0] as host:
            while True:
                for source in select.select([host, self.server], [], [])[0]:
                    data = source.recv(65536)
                    if not data:
                        return
                    if source is host:
                        self.server.sendall(data)
                    else:
                        host.sendall(self.damage(bytearray(data)))
                        self.sent += data

    def damage(self, data):
        """Changes those bytes of a piece that are to be."""
        for place in self.damaged:
            if len(self.sent) <= place < len(self.sent) + len(data):
                data[place - len(self.sent)] ^= 1
        return data

    def messages(self):
        """The messages that the server has sent, whole, each a header and a payload."""
        start = 0
        while (end := self.sent.find(b"\n", start) + 1) > 0:
            header = json.loads(self.sent[start:end])
            start = end + header["payload_size"]
            yield header, bytes(self.sent[end:start])


class SocketStream:
    """Bytes over TCP."""

    def __init__(self, name, port):
        self.socket = socket.create_connection((name, port), TIME_OUT)

    def send(self, data):
        self.socket.sendall(data)

    def receive(self):
        return self.socket.recv(65536)

    def close(self):
        self.socket.close()


class SerialStream:
    """Bytes over a serial device."""

    def __init__(self, path):
        self.device = os.open(path, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(self.device, termios.TCSANOW)

    def send(self, data):
        while data:
            data = data[os.write(self.device, data):]

    def receive(self):
        if not select.select([self.device], [], [], TIME_OUT)[0]:
            raise TimeoutError("nothing came over the serial device")
        return os.read(self.device, 65536)

    def close(self):
        if self.device < 0:
            return
        os.close(self.device)
        self.device = -1
        # Unlike a connection, a device that is opened again at once does not tell that it was closed.
        time.sleep(0.1)


class Host:
    """A host that speaks the protocol."""

    def __init__(self, stream):
        self.stream = stream
        self.pending = b""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stream.close()

    def send(self, data):
        """Sends raw bytes."""
        self.stream.send(data)

    def command(self, name, **arguments):
        """Sends a command without waiting for its answer."""
        self.send(json.dumps({"command": name, **arguments}).encode() + b"\n")

    def ask(self, name, **arguments):
        """Sends a command and returns the header of its answer."""
        self.command(name, **arguments)
        return self.message()[0]

    def message(self):
        """The next message: its header and its payload."""
        while b"\n" not in self.pending:
            self._receive()
        line, _, self.pending = self.pending.partition(b"\n")
        header = json.loads(line)
        size = header["payload_size"]
        while len(self.pending) < size:
            self._receive()
        payload, self.pending = self.pending[:size], self.pending[size:]
        return header, payload

    def answer(self):
        """The next message that is neither a frame nor a log line, and the frames before it."""
        frames = []
        while True:
            header, payload = self.message()
            if "result_info" in header:
                frames.append((header, payload))
            elif header["status"] != "log":
                return header, frames

    def _receive(self):
        data = self.stream.receive()
        if not data:
            raise EOFError("the server closed the link")
        self.pending += data


def wait_until(condition, what):
    """Waits for something that another process does."""
    deadline = time.monotonic() + TIME_OUT
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"waited in vain for {what}")
        time.sleep(0.01)
