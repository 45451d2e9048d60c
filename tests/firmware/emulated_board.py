"""The firmware on an emulated board, for tests."""

import json
import os
import re
import socket
import struct
import subprocess
import tempfile
import time

from vantor_process import Host, SocketStream, TIME_OUT

FIRMWARE = os.environ["VANTOR_FIRMWARE"]

SETTINGS = 0x7FFE0
SETTINGS_MARK = 0x31524E56

# Time for a board that may share the processor with other tests.
BOARD_TIME_OUT = 6 * TIME_OUT


def free_port():
    """A TCP port that nobody listens on."""
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


def make_full_pipe(path):
    """Makes a named pipe that takes nothing; what it returns keeps it open."""
    os.mkfifo(path)
    pipe = os.open(path, os.O_RDWR | os.O_NONBLOCK)
    try:
        while True:
            os.write(pipe, bytes(4096))
    except BlockingIOError:
        return os.fdopen(pipe)


class Board:
    """A board with its link on a TCP port, in a process that ends with the context."""

    def __init__(self, image=FIRMWARE, sensors=5, virtual_clock=True, seed=1, unforeseen_accesses=False,
                 log_is_taken=True):
        """With unforeseen_accesses it is no mistake to touch what is not there."""
        self.unforeseen_accesses = unforeseen_accesses
        self.directory = tempfile.TemporaryDirectory()
        self.log_path = os.path.join(self.directory.name, "log")
        self.monitor_path = os.path.join(self.directory.name, "monitor")
        self.full_pipe = None if log_is_taken else make_full_pipe(self.log_path)
        self.port = free_port()
        settings = struct.unpack("<QQ", struct.pack("<IHHIxxxx", SETTINGS_MARK, sensors, virtual_clock, seed))
        arguments = ["qemu-system-arm", "-M", "mps2-an386", "-display", "none", "-monitor", "none",
                     "-kernel", image,
                     "-serial", f"tcp:127.0.0.1:{self.port},server=on,wait=on,nodelay=on",
                     "-serial", f"file:{self.log_path}",
                     "-qmp", f"unix:{self.monitor_path},server=on,wait=off",
                     "-d", "guest_errors,unimp"]
        for i, word in enumerate(settings):
            arguments += ["-device", f"loader,addr={SETTINGS + 8 * i:#x},data={word:#x},data-len=8"]
        self.process = subprocess.Popen(arguments, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        self.address = f"tcp:127.0.0.1:{self.port}"

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        self.process.terminate()
        errors = self.process.communicate(timeout=TIME_OUT)[1].decode().splitlines()
        if self.full_pipe:
            self.full_pipe.close()
        self.directory.cleanup()
        # The emulator tells of accesses to registers that do not exist; an abort shows in the exit code.
        mistakes = [line for line in errors if "QEMU waiting for connection" not in line
                    and "terminating on signal" not in line]
        if kind is None and ((mistakes and not self.unforeseen_accesses) or self.process.returncode != 0):
            raise AssertionError(f"the emulator ended with {self.process.returncode}: {mistakes}")

    def connect(self):
        """Connects a host."""
        deadline = time.monotonic() + TIME_OUT
        while True:
            try:
                stream = SocketStream("127.0.0.1", self.port)
                stream.socket.settimeout(BOARD_TIME_OUT)
                return Host(stream)
            except ConnectionRefusedError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.05)

    def log(self):
        """What is on the log's port so far."""
        if not os.path.exists(self.log_path):
            return ""
        with open(self.log_path, encoding="utf-8") as file:
            return file.read()

    def wait_for_log(self, text):
        """Waits until a text is on the log's port."""
        deadline = time.monotonic() + BOARD_TIME_OUT
        while text not in self.log():
            if time.monotonic() > deadline:
                raise AssertionError(f"waited in vain for {text!r} on the log")
            time.sleep(0.05)

    def register(self, address):
        """A hardware register, as the emulator's monitor tells it."""
        with socket.socket(socket.AF_UNIX) as monitor, monitor.makefile("rw") as stream:
            monitor.connect(self.monitor_path)
            for command in ({"execute": "qmp_capabilities"},
                            {"execute": "human-monitor-command",
                             "arguments": {"command-line": f"xp /1wx {address:#x}"}}):
                stream.write(json.dumps(command))
                stream.flush()
            for line in stream:
                value = re.search(r": 0x([0-9a-f]+)", line)
                if value:
                    return int(value[1], 16)
        raise AssertionError("the monitor told no value")

    def processor_time(self):
        """Seconds of the processor that the emulator has used."""
        with open(f"/proc/{self.process.pid}/stat", encoding="utf-8") as file:
            fields = file.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
