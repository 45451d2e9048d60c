"""Plays the conversations of docs/protocol.md with the client: it sends the lines with >, and takes those with <."""

import collections
import itertools
import json
import os
import pathlib
import re

import pytest

import vantor
from scripted_server import ScriptedServer

PROTOCOL = pathlib.Path(os.environ["VANTOR_DOCUMENTS"]) / "protocol.md"


def read_conversations():
    """For each conversation of the document, its turns: a line to the server, and the messages that answer it."""
    text = PROTOCOL.read_text("utf-8")
    blocks = re.finditer(r"^```conversation.*\n((?:.*\n)*?)```$", text, re.MULTILINE)
    for block in blocks:
        turns = []
        for line in block[1].splitlines():
            mark, content = line[:2], line[2:]
            if mark == "> ":
                turns.append((content, []))
            elif payload := re.fullmatch(r"\((\d+) bytes\)", content):
                turns[-1][1].append(bytes(int(payload[1])))
            else:
                turns[-1][1].append(content.encode() + b"\n")
        yield pytest.param(turns, id=f"line {text.count(chr(10), 0, block.start()) + 1}")


class Player(ScriptedServer):
    """A server that expects the commands of a conversation, and answers them as the document shows."""

    def __init__(self, turns):
        super().__init__()
        self.turns = None
        self.host = self.connect()
        self.turns = collections.deque(turns)

    def react(self, host, line):
        if self.turns is None or not line:
            return super().react(host, line)
        if line == b'{"command":"ping"}' and _meaning(self.turns[0][0]) != json.loads(line):
            # Before frames, the client asks for the clock.
            return super().react(host, line)
        expected, answers = self.turns.popleft()
        assert _meaning(line.decode()) == _meaning(expected)
        for answer in answers:
            self.send(answer)


def _meaning(line):
    """A command, whatever the order of its members; the text itself if it is not JSON."""
    try:
        return json.loads(line)
    except ValueError:
        return line


class Driver:
    """Makes the calls of the client that send the commands of a conversation."""

    def __init__(self, server):
        self._server = server
        self._host = server.host
        self._session = None
        self._stream = None
        self.frames = 0

    def send(self, line, answers):
        """Sends a command by the call for it; as it is if there is none."""
        command = _meaning(line)
        name = command.get("command") if isinstance(command, dict) else None
        call = getattr(self, f"_{name}", None)
        usable = call is not None and (name not in ("start", "frame") or self._session) and \
            (name != "stop" or self._stream) and (len(command) == 1 or name in ("configure", "baudrate", "log"))
        if usable:
            call(command, sum(b"result_info" in answer for answer in answers))
        else:
            self._send_unchanged(line)

    def _send_unchanged(self, line):
        conversation = self._host._conversation
        conversation._transmit(line.encode() + b"\n", 1.0)
        conversation._await_answer("", conversation.frame_limit())

    def _identify(self, command, _):
        assert self._host.identify().protocol_version == 1

    def _ping(self, command, _):
        self._host.ping()

    def _stats(self, command, _):
        assert self._host.stats()["errors"]

    def _log(self, command, _):
        self._host.log(command["level"])

    def _baudrate(self, command, _):
        self._host.set_baudrate(command["baudrate"])

    def _configure(self, command, _):
        self._session = self._host.session(command["configuration"])
        assert self._session.items[0].points == 100

    def _start(self, command, count):
        self._stream = self._session.frames()
        self.frames += len([frame[0, 0].iq for frame in itertools.islice(self._stream, count)])

    def _stop(self, command, _):
        self._stream.close()
        assert self._session.frames_left_out == 0

    def _frame(self, command, _):
        self._session.single_frame()
        self.frames += 1

    def _end(self, command, _):
        self._host._conversation.end()


def error_of(answers):
    """The code of an error among the answers, if any."""
    codes = [message["code"] for message in map(json.loads, filter(lambda a: a[:1] == b"{", answers))
             if message["status"] == "error"]
    return codes[0] if codes else None


CONVERSATIONS = list(read_conversations())


@pytest.mark.parametrize("turns", CONVERSATIONS)
def test_the_client_speaks_as_documented(turns):
    server = Player(turns)
    driver = Driver(server)
    for place, (line, answers) in enumerate(turns):
        if place > 0 and "baudrate" in turns[place - 1][0] and "ping" in line:
            # The call that changes the baud rate has sent it.
            continue
        code = error_of(answers)
        if code is None:
            driver.send(line, answers)
        else:
            with pytest.raises(vantor.ServerError) as failure:
                driver.send(line, answers)
            assert failure.value.code == code and failure.value.message
    assert not server.turns, "not all commands were sent"
    shown = sum(b"result_info" in answer for _, answers in turns for answer in answers)
    assert driver.frames == shown


def test_the_document_has_conversations():
    assert len(CONVERSATIONS) >= 15
