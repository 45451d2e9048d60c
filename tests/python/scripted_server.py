"""A scripted server: it answers like a real one, unless a test sets another reaction.

In virtual time its reactions take no time unless they call `pause`; what they send arrives while the host waits for
it. `ScriptedTcpServer` is the same server behind a real socket.
"""

import functools
import heapq
import itertools
import json
import socket
import struct
import threading

import vantor
from vantor._server import Server


def dump(header):
    """A header line."""
    return json.dumps(header, separators=(",", ":"), ensure_ascii=False).encode() + b"\n"


def identity():
    """The answer to "identify"."""
    return {"status": "ok", "command": "identify", "payload_size": 0, "server_version": "0.1.0", "protocol_version": 1,
            "sensor": "k330", "sensor_count": 5, "connected_sensors": [1, 2], "ticks_per_second": 1000000,
            "max_baudrate": 0}


def error(code, message="…"):
    """An error message."""
    return {"status": "error", "code": code, "message": message, "payload_size": 0}


def plain_answer(command):
    """The answer to a command without further members."""
    return {"status": "ok", "command": command["command"], "payload_size": 0}


def example_configuration():
    """Two groups: an item of two sweeps with clear-channel assessment and one of two sub-sweeps; and a third item."""
    first = {"sensor_id": 1, "cca_enable": True, "cca_debug": True,
             "config": {"sweeps_per_frame": 2, "start_point": 100, "step_length": 4, "num_points": 20}}
    near = {"start_point": 60, "step_length": 2, "num_points": 10}
    far = {"start_point": 200, "step_length": 8, "num_points": 15}
    second = {"sensor_id": 2, "config": {"subsweeps": [near, far]}}
    third = {"sensor_id": 2, "config": {"start_point": -41, "num_points": 30}}
    return {"max_update_rate": 50, "groups": [[first, second], [third]]}


def item_metadata(frame_length, subsweeps):
    """Metadata of an item with contiguous sub-sweeps."""
    offsets = list(itertools.accumulate(subsweeps, initial=0))
    return {"calibration_temperature": 24, "frame_data_length": frame_length, "sweep_data_length": offsets[-1],
            "max_sweep_rate": 3125.5, "high_speed_mode": True, "base_step_length_m": 0.0025,
            "subsweep_data_offset": offsets[:-1], "subsweep_data_length": list(subsweeps)}


def example_metadata(tick_period=20000):
    """The answer to the example configuration."""
    return {"status": "ok", "tick_period": tick_period, "payload_size": 0,
            "calibration_info": [{"sensor_id": 1, "temperature": 24, "data": "a" * 480}],
            "metadata": [[item_metadata(40, [20]), item_metadata(25, [10, 15])], [item_metadata(30, [30])]]}


def _item_result(tick, **members):
    return {"tick": tick, "data_saturated": False, "temperature": -3, "calibration_needed": False,
            "frame_delayed": False, **members}


def frame_header(number, tick=None):
    """Header of a frame; its ticks are number × 20000."""
    tick = number * 20000 if tick is None else tick
    debug = {"data_valid": True, "cca_value": 0.75, "cca_detected": False, "tx_enabled": True}
    groups = [[_item_result(tick, **debug), _item_result(tick + 5)], [_item_result(tick + 9)]]
    return {"result_info": groups, "status": "ok", "payload_size": len(frame_payload(number))}


@functools.cache
def frame_payload(number):
    """Samples of a frame: they depend on its number, and point 7 of every sweep is the strongest."""
    parts = b""
    for length, sweep in ((40, 20), (25, 25), (30, 30)):
        for place in range(length):
            strong = place % sweep == 7
            parts += struct.pack("<2h", *((3000, 4000) if strong else (3, number % 5)))
    return parts


def frame_bytes(number, tick=None):
    """A frame as a server sends it."""
    return dump(frame_header(number, tick)) + frame_payload(number)


def stream_frames(count, first=0):
    """A reaction to "start": the answer and this many frames, starting at a number."""
    def react(host, command):
        host.send_message(plain_answer(command))
        for number in range(first, first + count):
            host.send(frame_bytes(number))
    return react


def answer_with(*headers):
    """A reaction that sends these messages."""
    return lambda host, command: [host.send_message(header) for header in headers]


def stay_silent(host, command):
    """A reaction that does nothing."""


class Script:
    """The reactions to all commands."""

    def __init__(self):
        self.lines = []
        self._reactions = {
            "identify": answer_with(identity()),
            "configure": answer_with(example_metadata()),
            "frame": lambda host, command: host.send(frame_bytes(0)),
        }

    def on(self, command, reaction):
        """Sets the reaction to a command."""
        self._reactions[command] = reaction

    def reaction(self, command):
        """The reaction to a command."""
        return self._reactions[command]

    def react(self, host, line):
        """Executes a line from a host."""
        if not line:
            return
        self.lines.append(line.decode())
        try:
            command = json.loads(line)
        except ValueError:
            return host.send_message(error("bad_json"))
        name = command["command"]
        react = self._reactions.get(name, lambda host, command: host.send_message(plain_answer(command)))
        react(host, command)

    def commands(self, name):
        """The commands with a name that were received."""
        return [command for command in map(json.loads, self.lines) if command["command"] == name]


class ScriptedServer(Script):
    """A server in virtual time: waiting for it moves the clock."""

    def __init__(self):
        super().__init__()
        self.now = 0.0
        #: UTC when the clock of the host shows 0.
        self.utc_at_zero = 1.8e9
        self.baudrate = 9600
        self.written = []
        self.open_links = 0
        self._moment = 0.0
        self._arrivals = []
        self._order = itertools.count()
        self._end = None
        self._input = b""

    def connect(self, **timeouts):
        """A host that is connected."""
        return Server("scripted", self._open, vantor.Timeouts(**timeouts), clock=lambda: self.now,
                      system_clock=lambda: self.utc_at_zero + self.now)

    def pause(self, seconds):
        """In a reaction: everything sent from now on arrives this much later."""
        self._moment += seconds

    def send(self, data):
        """Sends bytes unchanged."""
        heapq.heappush(self._arrivals, (self._moment, next(self._order), data))

    def send_message(self, header, payload=b""):
        """Sends a message."""
        self.send(dump(header) + payload)

    def close_link(self):
        """In a reaction: closes the connection after all that was sent."""
        self._end = self._moment

    def _open(self):
        self._arrivals.clear()
        self._end, self._input = None, b""
        self.open_links += 1
        return self

    # The link.

    def read_into(self, buffers, timeout):
        """Waits in virtual time."""
        coming = self._arrivals[0][0] if self._arrivals else self._end
        if coming is None or coming > self.now + timeout:
            self.now += timeout
            return 0
        self.now = max(self.now, coming)
        if not self._arrivals:
            raise vantor.ConnectionLost("The server closed the connection.")
        moment, order, data = heapq.heappop(self._arrivals)
        count = 0
        for buffer in buffers:
            part = data[count:count + len(buffer)]
            buffer[:len(part)] = part
            count += len(part)
        if count < len(data):
            heapq.heappush(self._arrivals, (moment, order, data[count:]))
        return count

    def write(self, data, timeout):
        """Executes the complete commands."""
        self.written.append((self.now, data))
        self._moment = self.now
        *lines, self._input = (self._input + data).split(b"\n")
        for line in lines:
            self.react(self, line)

    def set_baudrate(self, baudrate):
        """Changes the baud rate of the near end."""
        former, self.baudrate = self.baudrate, baudrate
        return former

    def close(self):
        """Closes the near end."""
        self.open_links -= 1


class ScriptedTcpServer(Script):
    """A server on a real socket, for one host after the other."""

    def __init__(self):
        super().__init__()
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"tcp:127.0.0.1:{self._listener.getsockname()[1]}"
        self._thread = threading.Thread(target=self._run)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        self._listener.close()

    def _run(self):
        while True:
            try:
                host = _TcpHost(self._listener.accept()[0])
            except OSError:
                return
            with host.stream:
                for line in host.lines():
                    self.react(host, line)


class _TcpHost:
    """A host that is connected."""

    def __init__(self, stream):
        self.stream = stream

    def lines(self):
        """The lines from the host, until it is gone."""
        rest = b""
        try:
            while data := self.stream.recv(65536):
                *lines, rest = (rest + data).split(b"\n")
                yield from lines
        except OSError:
            return

    def send(self, data):
        self.stream.sendall(data)

    def send_message(self, header, payload=b""):
        self.send(dump(header) + payload)

    def close_link(self):
        self.stream.shutdown(socket.SHUT_RDWR)
