"""Many hosts that break the link or send hostile lines. After each of them the server works as if nothing had happened.

As a test this is a small sample, with VANTOR_CAMPAIGN=whole 20,000 broken links and 100,000 lines: `scripts/soak links`
and `scripts/soak lines`.
"""

import json
import os
import random
import re
import select
import socket
import struct
import tempfile
import unittest

from vantor_process import TIME_OUT, Server, campaign, example, has_sanitizers

SEED = 1
SIZE = os.environ.get("VANTOR_CAMPAIGN_SIZE")
LINKS = int(SIZE or campaign(20_000, 500))
LINES = int(SIZE or campaign(100_000, 5_000))
BLOCK = 50  # lines of one host, before the server is checked
SENSORS = 2
MEMORY = 1 << 20  # bytes of the board, so that they do not hide a leak
GROWTH = 2 << 20  # bytes of resident memory; the memory of the board is only in it once it was used

CONFIGURATION = {"groups": [[{"sensor_id": 1, "config": {"num_points": 20, "sweeps_per_frame": 2}}]]}
SESSION = (("configure", {"configuration": CONFIGURATION}), ("frame", {}), ("frame", {}), ("end", {}))
VALUES = (b"null", b"true", b"-1", b"0.5", b"65546", b"4294967296", b"1e400", b"-1e308", b"9" * 400, b'""', b"[]",
          b"{}", b'"\\ud800"', b'"\\u0000"', b'"' + b"x" * 5000 + b'"', b"[" * 40 + b"]" * 40)
HTTP_LINES = (b"GET / HTTP/1.1", b"POST /configure HTTP/1.0", b"OPTIONS * HTTP/1.1", b"get http://localhost:6110/",
              b"CONNECT localhost:443 HTTP/1.1", b"PRI * HTTP/2.0", b"\x16\x03\x01\x02\x00\x01\x00\x01")


def command(name, **arguments):
    """A command as a line."""
    return json.dumps({"command": name, **arguments}).encode() + b"\n"


def run_session(host):
    """Runs a session from configuration to end; returns all that must be the same for the same noise."""
    for name, arguments in SESSION:
        host.command(name, **arguments)
    messages = [host.message() for _ in SESSION]
    for header, _ in messages[1:3]:
        for item in header["result_info"][0]:
            del item["tick"]
    return messages


class Reference:
    """A server that serves only correct hosts: what a session with the same noise must be."""

    def __init__(self, host):
        self.host = host

    def skip_to(self, session, most):
        """Returns whether one of the next sessions is equal to this one. Each session has its own noise."""
        return any(run_session(self.host) == session for _ in range(most))


class HostileHost(unittest.TestCase):
    def setUp(self):
        log = self.enterContext(tempfile.TemporaryFile("a+", encoding="utf-8", errors="replace"))
        options = ("--tcp", "0", "--clock", "virtual", "--sensors", str(SENSORS), "--memory", str(MEMORY))
        self.server = self.enterContext(Server(*options, "--log-level", "ERROR", log=log))
        self.chance = random.Random(SEED)
        with self.server.connect() as host:
            run_session(host)
            self.memory_in_use = host.ask("identify")["memory"]["live"]
        self.resident_at_start = self.resident()

    def resident(self):
        """Resident memory of the server, in bytes."""
        with open(f"/proc/{self.server.process.pid}/status", encoding="ascii") as file:
            return 1024 * int(re.search(r"^VmRSS:\s*(\d+) kB$", file.read(), re.MULTILINE)[1])

    def works(self):
        """A host is served as if it were the first one; returns its session."""
        with self.server.connect() as host:
            hello = host.ask("identify")
            self.assertEqual(hello["status"], "ok", hello)
            self.assertEqual(hello["memory"]["live"], self.memory_in_use)
            return run_session(host)

    def report(self, what):
        """Prints the figures of a campaign, and checks the memory."""
        end = self.resident()
        print(f"seed {SEED}: {what}, resident memory {self.resident_at_start >> 10:,} KiB, then {end >> 10:,} KiB",
              flush=True)
        if not has_sanitizers():
            self.assertLess(end - self.resident_at_start, GROWTH)


class BrokenLinks(HostileHost):
    """Links that break anywhere, each followed by a correct session, whose frames are compared."""

    def commands(self):
        """What a host sends: a configuration, and then frames of a stream or single ones."""
        configuration = self.chance.choice((CONFIGURATION, example("two_sensors.json")))
        frames = self.chance.choice((command("start"), command("frame") * 3, command("start") + command("stop")))
        end = self.chance.choice((b"", command("end")))
        return command("identify") + command("configure", configuration=configuration) + frames + end

    @staticmethod
    def break_link(host, at_once):
        """Closes a link, or resets it, which discards what was not received yet."""
        if at_once:
            host.stream.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        host.stream.close()

    def cut_command(self):
        """Sends commands up to a random byte, then breaks the link."""
        host = self.server.connect()
        data = self.commands()
        host.send(data[:self.chance.randrange(len(data))])
        self.break_link(host, self.chance.randrange(2))

    def cut_answer(self):
        """Sends commands, receives up to a random byte, then breaks the link."""
        host = self.server.connect()
        host.send(self.commands())
        left = int(2 ** self.chance.uniform(0, 15))
        while left > 0 and (data := self.receive(host, left)):
            left -= len(data)
        self.break_link(host, self.chance.randrange(2))

    @staticmethod
    def receive(host, size):
        """Receives bytes; none when the server has sent all that it will."""
        waiting = select.select([host.stream.socket], [], [], 0.0 if size < 100 else 0.01)[0]
        return host.stream.socket.recv(size) if waiting else b""

    def test_a_session_after_each_broken_link(self):
        reference = Reference(self.enterContext(self.enterContext(
            Server("--tcp", "0", "--clock", "virtual", "--sensors", str(SENSORS), "--memory", str(MEMORY))).connect()))
        self.assertTrue(reference.skip_to(self.works(), 2))
        for number in range(LINKS):
            self.chance.choice((self.cut_command, self.cut_answer))()
            # The broken session may have used the noise of one more session.
            self.assertTrue(reference.skip_to(self.works(), 2), f"broken link {number}")
        self.report(f"{LINKS:,} broken links")


class HostileLines(HostileHost):
    """Hosts that send hostile lines. Each answer is a complete message, and the next host is served."""

    def random_bytes(self):
        return self.chance.randbytes(self.chance.randrange(1, 200))

    def mutated_command(self):
        """A command with changed, removed, repeated or inserted bytes."""
        line = bytearray(self.some_command())
        for _ in range(self.chance.choice((1, 1, 2, 5))):
            place = self.chance.randrange(len(line) + 1)
            end = place + self.chance.choice((0, 1, 1, 20))
            line[place:end] = self.chance.choice((b"", self.chance.randbytes(1), bytes(line[place:end]) * 2, b"}"))
        return bytes(line)

    def mutated_value(self):
        """A command with another value in the place of one."""
        line = self.some_command()
        place = self.chance.choice(list(re.finditer(rb'(?<=[:\[ ])(\d+(\.\d+)?|"[^"]*"|true|false)', line)))
        return line[:place.start()] + self.chance.choice(VALUES) + line[place.end():]

    def some_command(self):
        name = self.chance.choice(("identify", "ping", "configure", "start", "frame", "stop", "end", "baudrate", "log",
                                   "stats"))
        arguments = {"configure": {"configuration": self.chance.choice((CONFIGURATION, example("two_sensors.json")))},
                     "baudrate": {"baudrate": 115200}, "log": {"level": "INFO"}}.get(name, {})
        return json.dumps({"command": name, **arguments}).encode()

    def overlong_line(self):
        return command("ping", text="x" * self.chance.choice((8_000, 65_530, 65_536, 65_540, 200_000)))[:-1]

    def deep_nesting(self):
        depth = self.chance.choice((10, 30, 33, 1000))
        return self.chance.choice((b"[" * depth + b"]" * depth, b'{"a":' * depth + b"1" + b"}" * depth, b"[" * depth))

    def invalid_text(self):
        """A command whose name is not valid UTF-8, or has invalid escapes."""
        text = self.chance.choice((b"\xff", b"\xc0\x80", b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"\xe2\x82", b"\\u12",
                                   b"\\udc00", b"\\x41", b"\x00", b"\x1b[2J"))
        return b'{"command":"' + text + b'"}'

    def huge_number(self):
        digits = self.chance.choice((b"1e999999999", b"9" * 10_000, b"0." + b"0" * 10_000 + b"1", b"-" + b"1" * 400,
                                     b"1e-400", b"18446744073709551616"))
        return b'{"command":"configure","configuration":{"update_rate":' + digits + b"}}"

    def block(self, size):
        """Lines of one host, without those that only the first line of a host can be."""
        kinds = (self.random_bytes, self.mutated_command, self.mutated_command, self.mutated_value, self.mutated_value,
                 self.deep_nesting, self.invalid_text, self.huge_number)
        lines = [self.chance.choice(kinds)() for _ in range(size)]
        if self.chance.randrange(4) == 0:
            lines[self.chance.randrange(size)] = self.overlong_line()
        return b"\n".join(lines) + b"\n"

    def exchange(self, data):
        """Sends lines and receives all answers, until the server closes the link."""
        with self.server.connect() as host:
            link = host.stream.socket
            link.setblocking(False)
            received = bytearray()
            while True:
                readable, writable, _ = select.select([link], [link] if data else [], [], TIME_OUT)
                self.assertTrue(readable or writable, "the server neither answers nor closes the link")
                try:
                    if writable:
                        data = data[link.send(data):]
                        if not data:
                            link.shutdown(socket.SHUT_WR)
                    if readable:
                        piece = link.recv(1 << 20)
                        if not piece:
                            return bytes(received)
                        received += piece
                except ConnectionError:
                    return bytes(received)

    def check_messages(self, received):
        """Only complete messages were received; returns their number."""
        count = start = 0
        while start < len(received):
            end = received.index(b"\n", start) + 1
            header = json.loads(received[start:end])
            self.assertIn(header["status"], ("ok", "error", "log"))
            start = end + header["payload_size"]
            count += 1
        self.assertEqual(start, len(received))
        return count

    def test_the_server_works_after_hostile_lines(self):
        lines = answers = 0
        while lines < LINES:
            if self.chance.randrange(10) == 0:
                received = self.exchange(self.chance.choice(HTTP_LINES) + b"\r\n\r\n" + command("identify"))
                self.assertLessEqual(self.check_messages(received), 1)
                self.assertIn(b'"code":"wrong_protocol"', received)
                lines += 1
            else:
                size = min(BLOCK, LINES - lines)
                answers += self.check_messages(self.exchange(self.block(size) + b"\n" + command("end")))
                lines += size
            self.assertEqual([header["status"] for header, _ in self.works()], ["ok"] * len(SESSION))
        self.assertGreater(answers, LINES // 2)
        self.report(f"{LINES:,} hostile lines, {answers:,} answers")


if __name__ == "__main__":
    unittest.main()
