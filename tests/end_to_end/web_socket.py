"""A viewer of `vantor view`: a WebSocket client (RFC 6455) with only what the tests need."""

import base64
import json
import os
import re
import socket
import struct
import subprocess
import time
import urllib.parse

from vantor_process import TIME_OUT, VANTOR

TEXT, BINARY, CLOSE, PING, PONG = 1, 2, 8, 9, 10


class View:
    """A `vantor view` process with these arguments. It ends with the context."""

    def __init__(self, *arguments, **options):
        self.process = subprocess.Popen([VANTOR, "view", "--no-browser", *map(str, arguments)], stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True, **options)
        self.url = self.process.stdout.readline().strip()
        if not self.url.startswith("http://"):
            raise AssertionError(f"expected an address, got {self.url!r}: {self.process.communicate()[1]}")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()

    def end(self):
        """Ends the view like Ctrl-C; returns its exit code and what it has printed as errors."""
        if self.process.poll() is None:
            self.process.terminate()
        errors = self.process.communicate(timeout=TIME_OUT)[1]
        return self.process.returncode, errors

    def connect(self, *, board=None, **options):
        """Connects a viewer, of the first board if none is given."""
        return Viewer(self.url if board is None else f"{self.url}&board={board}", **options)


class Refused(Exception):
    """The server answered something else than a WebSocket."""


class Viewer:
    """A connection of a viewer."""

    def __init__(self, url, *, path="/stream", token=None, host=None, origin=None, buffer=None):
        parts = urllib.parse.urlsplit(url)
        self.socket = socket.socket(socket.AF_INET6 if ":" in parts.hostname else socket.AF_INET)
        if buffer is not None:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, buffer)
        self.socket.settimeout(TIME_OUT)
        self.socket.connect((parts.hostname, parts.port))
        self.pending = b""
        self.state = None
        query = parts.query if token is None else f"token={token}"
        host = host or parts.netloc
        lines = [f"GET {path}?{query} HTTP/1.1", f"Host: {host}", "Upgrade: websocket", "Connection: Upgrade",
                 f"Sec-WebSocket-Key: {base64.b64encode(os.urandom(16)).decode()}", "Sec-WebSocket-Version: 13"]
        if origin is not False:
            lines.append(f"Origin: {origin or 'http://' + host}")
        self.socket.sendall("\r\n".join(lines + ["", ""]).encode())
        head = self.read_head()
        if not head.startswith("HTTP/1.1 101 "):
            self.socket.close()
            raise Refused(head.splitlines()[0])

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def read_head(self):
        while b"\r\n\r\n" not in self.pending:
            self.receive()
        head, self.pending = self.pending.split(b"\r\n\r\n", 1)
        return head.decode()

    def receive(self):
        data = self.socket.recv(1 << 16)
        if not data:
            raise ConnectionError("the server has closed the connection")
        self.pending += data

    def take(self, count):
        while len(self.pending) < count:
            self.receive()
        taken, self.pending = self.pending[:count], self.pending[count:]
        return taken

    def message(self):
        """The next message: its kind and its bytes. Answers pings."""
        while True:
            first, second = self.take(2)
            if not first & 0x80 or second & 0x80:
                raise AssertionError("expected a whole message without a mask")
            size = second & 0x7F
            if size == 126:
                size, = struct.unpack(">H", self.take(2))
            elif size == 127:
                size, = struct.unpack(">Q", self.take(8))
            content = self.take(size)
            if first & 0x0F != PING:
                return first & 0x0F, content
            self.send_raw(PONG, content)

    def next(self, kind):
        """The next text message of a type, decoded. Skips others and frames; remembers the state."""
        deadline = time.monotonic() + TIME_OUT
        while time.monotonic() < deadline:
            which, content = self.message()
            if which == CLOSE:
                raise ConnectionError(content[2:].decode())
            if which == TEXT:
                message = json.loads(content)
                if message["type"] == "state":
                    self.state = message
                if message["type"] in (kind, "failed" if kind == "done" else None):
                    return message
        raise AssertionError(f"timed out waiting for {kind}")

    def frame(self):
        """The next frame: its header and its samples."""
        while True:
            which, content = self.message()
            if which == CLOSE:
                raise ConnectionError(content[2:].decode())
            if which == BINARY:
                header, _, payload = content.partition(b"\n")
                return json.loads(header), payload

    def state_with(self, condition, longest=TIME_OUT):
        """The next state that fulfils a condition."""
        deadline = time.monotonic() + longest
        while time.monotonic() < deadline:
            state = self.next("state")
            if condition(state):
                return state
        raise AssertionError(f"timed out waiting for a state, last {state}")

    def send(self, kind, **members):
        """Sends a request."""
        self.send_raw(TEXT, json.dumps({"type": kind, **members}).encode())

    def ask(self, kind, **members):
        """Sends a request, and returns the answer."""
        self.send(kind, **members)
        while True:
            answer = self.next("done")
            if answer["for"] == kind:
                return answer

    def send_raw(self, kind, content):
        """Sends a message with a mask, as a viewer must."""
        size = len(content)
        if size < 126:
            head = struct.pack(">BB", 0x80 | kind, 0x80 | size)
        elif size < 1 << 16:
            head = struct.pack(">BBH", 0x80 | kind, 0x80 | 126, size)
        else:
            head = struct.pack(">BBQ", 0x80 | kind, 0x80 | 127, size)
        mask = os.urandom(4)
        masked = bytes(byte ^ mask[i % 4] for i, byte in enumerate(content))
        self.socket.sendall(head + mask + masked)

    def close_reason(self):
        """Waits until the server closes the connection; returns its reason."""
        while True:
            which, content = self.message()
            if which == CLOSE:
                return content[2:].decode()


def get(url, target, *, method="GET", host=None):
    """Sends a plain HTTP request; returns the status, the headers in lower case, and the body."""
    parts = urllib.parse.urlsplit(url)
    with socket.create_connection((parts.hostname, parts.port), timeout=TIME_OUT) as stream:
        stream.sendall(f"{method} {target} HTTP/1.1\r\nHost: {host or parts.netloc}\r\nConnection: close\r\n\r\n".encode())
        answer = b"".join(iter(lambda: stream.recv(1 << 16), b""))
    head, _, body = answer.partition(b"\r\n\r\n")
    lines = head.decode().split("\r\n")
    headers = {name.lower(): value for name, value in (re.split(r": ?", line, maxsplit=1) for line in lines[1:])}
    return int(lines[0].split()[1]), headers, body
