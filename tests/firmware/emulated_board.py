"""The firmware on an emulated board, for tests."""

import os
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


class Board:
    """A board with its link on a TCP port, in a process that ends with the context."""

    def __init__(self, image=FIRMWARE, sensors=5, virtual_clock=True, seed=1, unforeseen_accesses=False):
        """With unforeseen_accesses it is no mistake to touch what is not there."""
        self.unforeseen_accesses = unforeseen_accesses
        self.directory = tempfile.TemporaryDirectory()
        self.log_path = os.path.join(self.directory.name, "log")
        self.port = free_port()
        settings = struct.unpack("<QQ", struct.pack("<IHHIxxxx", SETTINGS_MARK, sensors, virtual_clock, seed))
        arguments = ["qemu-system-arm", "-M", "mps2-an386", "-display", "none", "-monitor", "none",
                     "-kernel", image,
                     "-serial", f"tcp:127.0.0.1:{self.port},server=on,wait=on,nodelay=on",
                     "-serial", f"file:{self.log_path}",
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

    def processor_time(self):
        """Seconds of the processor that the emulator has used."""
        with open(f"/proc/{self.process.pid}/stat", encoding="utf-8") as file:
            fields = file.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
