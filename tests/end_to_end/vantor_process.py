"""Starts servers and communicates with them, for the end-to-end tests."""

import collections
import fcntl
import json
import os
import re
import select
import signal
import socket
import struct
import subprocess
import termios
import threading
import time
import tty

SERVER = os.environ["VANTOR_SERVER"]
VANTOR = os.environ["VANTOR"]
EXAMPLES = os.environ["VANTOR_EXAMPLES"]

# Ends a test that hangs. No test depends on the speed of the machine.
TIME_OUT = 120.0


def example(name):
    """Returns the configuration document of an example."""
    with open(os.path.join(EXAMPLES, name), encoding="utf-8") as file:
        return json.load(file)


def campaign(whole, sample):
    """The size of a long test: a sample, or all of it if VANTOR_CAMPAIGN is set accordingly."""
    return whole if os.environ.get("VANTOR_CAMPAIGN") == "whole" else sample


def has_sanitizers():
    """Whether the programs are built with sanitizers, which need memory themselves."""
    with open(VANTOR, "rb") as program:
        return b"__asan_init" in program.read()


def vantor(*arguments, **options):
    """Runs the command `vantor` to its end."""
    options.setdefault("timeout", TIME_OUT)
    return subprocess.run([VANTOR, *map(str, arguments)], capture_output=True, text=True, check=False, **options)


def self_test(address, *options, seconds=60):
    """
    Runs `vantor selftest`. Some of its cases wait for time-outs of the server. An answer may take some seconds: longer
    than on any busy machine, except where a test waits for an answer that never arrives.
    """
    return vantor("selftest", "--connect", address, "--timeout", seconds, *options, timeout=8 * TIME_OUT)


class Server:
    """
    A `vantor_server` process with these arguments. It ends with the context. A long log must go to a file, which is
    open for reading and appending.
    """

    def __init__(self, *arguments, log=subprocess.PIPE):
        self.log = log
        self.process = subprocess.Popen([SERVER, *arguments], stdout=subprocess.PIPE, stderr=log)
        line = self.process.stdout.readline().decode()
        if not line.startswith("listening on "):
            raise AssertionError(f"expected an address, got {line!r}: {self.process.communicate()[1].decode()}")
        self.address = line.removeprefix("listening on ").strip()
        self.device = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        errors = self.process.communicate(timeout=TIME_OUT)[1]
        if self.process.returncode != 0:
            text = self._end_of_log() if errors is None else errors.decode()
            raise AssertionError(f"the server ended with {self.process.returncode}: {text}")

    def _end_of_log(self):
        """The last part of the log in a file: what a sanitizer reports is there, too."""
        self.log.seek(0)
        return self.log.read()[-20_000:]

    def connect(self):
        """Connects a host."""
        kind, _, where = self.address.partition(":")
        if kind == "serial":
            self._wait_until_device_is_free()
            self.device = SerialStream(where)
            return Host(self.device)
        if kind == "unix":
            return Host(UnixSocketStream(where))
        name, _, port = where.rpartition(":")
        return Host(SocketStream(name.strip("[]"), int(port)))

    def connect_again(self, host):
        """Disconnects a host and connects another one."""
        host.stream.close()
        return self.connect()

    def _wait_until_device_is_free(self):
        """
        Waits until a server with a serial device has detected that the previous host closed it. It cannot if the device
        is opened again immediately: unlike a connection, a device does not show that it was closed in between.
        """
        if self.device is not None and self.device.is_closed():
            # A server on the virtual clock without a host only sleeps between checks for the next one.
            looks = self._times_slept() + 5
            wait_until(lambda: self._times_slept() >= looks, "the server to check for a host")

    def _times_slept(self):
        """How often the process has gone to sleep."""
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as file:
            return int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)$", file.read(), re.MULTILINE)[1])

    def state(self):
        """The state of the process as a letter of the system: R is running, S sleeping, T stopped."""
        with open(f"/proc/{self.process.pid}/stat", encoding="ascii") as file:
            return file.read().rpartition(")")[2].split()[0]

    def wait_until_stuck(self, host):
        """Waits until a server that has data to send, and never waits for a clock, cannot send more. It may also sleep
        for a moment while the connection still accepts data, so it has to be found asleep several times."""
        samples = collections.deque(maxlen=20)

        def is_stuck():
            samples.append((host.stream.unread(), host.stream.unsent(), self.state()))
            return len(samples) == samples.maxlen and len(set(samples)) == 1 and \
                samples[0][0] > 0 and samples[0][1:] == (0, "S")

        wait_until(is_stuck, "a full connection")


class Relay(threading.Thread):
    """A relay between a host on TCP and a server that stores what the server sends."""

    def __init__(self, connection, damaged=()):
        """Uses the connection of another host. Changes the bytes from the server at these positions."""
        super().__init__(daemon=True)
        self.damaged = damaged
        self.sent = bytearray()
        self.server = connection.stream.socket
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
                        self.to_server(data)
                    else:
                        host.sendall(self.damage(bytearray(data)))
                        self.sent += data

    def to_server(self, data):
        """Passes on bytes of the host."""
        self.server.sendall(data)

    def damage(self, data):
        """Damages the selected bytes of a piece."""
        for place in self.damaged:
            if len(self.sent) <= place < len(self.sent) + len(data):
                data[place - len(self.sent)] ^= 1
        return data

    def messages(self):
        """The complete messages that the server has sent, each as header and payload."""
        start = 0
        while (end := self.sent.find(b"\n", start) + 1) > 0:
            header = json.loads(self.sent[start:end])
            start = end + header["payload_size"]
            yield header, bytes(self.sent[end:start])


def queued(descriptor, request):
    """Returns the number of bytes in a queue of a device or a connection."""
    return struct.unpack("i", fcntl.ioctl(descriptor, request, bytes(4)))[0]


class SocketStream:
    """Bytes over TCP."""

    def __init__(self, name, port):
        self.socket = socket.create_connection((name, port), TIME_OUT)

    @classmethod
    def of(cls, connected):
        """Bytes over a socket that is connected."""
        stream = cls.__new__(cls)
        stream.socket = connected
        connected.settimeout(TIME_OUT)
        return stream

    def send(self, data):
        self.socket.sendall(data)

    def receive(self):
        return self.socket.recv(65536)

    def unread(self):
        """Bytes that have arrived but were not received yet."""
        return queued(self.socket, termios.FIONREAD)

    def unsent(self):
        """Number of bytes that have not arrived at the other end yet."""
        return queued(self.socket, termios.TIOCOUTQ)

    def close(self):
        self.socket.close()


class UnixSocketStream(SocketStream):
    """
    Bytes over a Unix socket. Its buffer has room for only a few single bytes, and the emulator sends single bytes.
    """

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(TIME_OUT)
        try:
            self.socket.connect(path)
        except OSError:
            self.socket.close()
            raise


class SerialStream:
    """Bytes over a serial device."""

    def __init__(self, path):
        self.device = os.open(path, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(self.device, termios.TCSANOW)

    def send(self, data):
        while data:
            data = data[os.write(self.device, data):]

    def is_closed(self):
        return self.device < 0

    def receive(self):
        if not select.select([self.device], [], [], TIME_OUT)[0]:
            raise TimeoutError("nothing was received over the serial device")
        return os.read(self.device, 65536)

    def close(self):
        if self.device >= 0:
            os.close(self.device)
            self.device = -1


class Host:
    """A host that implements the protocol."""

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
        """Returns the next message: its header and its payload."""
        header = json.loads(self.line())
        size = header["payload_size"]
        while len(self.pending) < size:
            self._receive()
        payload, self.pending = self.pending[:size], self.pending[size:]
        return header, payload

    def line(self):
        """Returns the bytes up to the next line feed."""
        while b"\n" not in self.pending:
            self._receive()
        line, _, self.pending = self.pending.partition(b"\n")
        return line

    def answer(self):
        """Returns the next message that is neither a frame nor a log line, and the frames before it."""
        frames = []
        while True:
            header, payload = self.message()
            if "result_info" in header:
                frames.append((header, payload))
            elif header["status"] != "log":
                return header, frames

    def receive_all(self):
        """Receives what has arrived; returns the number of messages, of which the last one may be incomplete."""
        while self.stream.unread() > 0:
            self._receive()
        count = start = 0
        while start < len(self.pending):
            count += 1
            end = self.pending.find(b"\n", start) + 1
            if end == 0:
                break
            start = end + json.loads(self.pending[start:end])["payload_size"]
        return count

    def _receive(self):
        data = self.stream.receive()
        if not data:
            raise EOFError("the server closed the link")
        self.pending += data


def wait_until(condition, what):
    """Waits until a condition is true that depends on another process."""
    deadline = time.monotonic() + TIME_OUT
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"timed out waiting for {what}")
        time.sleep(0.01)
