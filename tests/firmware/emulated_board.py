"""The firmware on an emulated board, for tests."""

import contextlib
import functools
import json
import os
import re
import select
import socket
import struct
import subprocess
import tempfile

from vantor_process import Host, SerialStream, SocketStream, TIME_OUT, UnixSocketStream, wait_until

FIRMWARE = os.environ["VANTOR_FIRMWARE"]

BOARD_FOLDER = os.environ["VANTOR_BOARD_FOLDER"]
BOARD_NAME = os.path.basename(BOARD_FOLDER)


def read_emulator():
    """Returns the options of the emulator for the board."""
    with open(os.path.join(BOARD_FOLDER, "emulator.json"), encoding="utf-8") as file:
        return json.load(file)


def read_numbers():
    """Returns the numbers of the board."""
    with open(os.path.join(BOARD_FOLDER, "board_numbers.h"), encoding="utf-8") as file:
        return {name: int(value) for name, value in re.findall(r"\bBOARD_(\w+) = (\d+),", file.read())}


EMULATOR = read_emulator()
NUMBERS = read_numbers()

INTERRUPTS_ENABLED = 0xE000E100

SETTINGS_MARK = 0x31524E56


@functools.cache
def symbols(image):
    """Returns the symbol table of an image, with sizes, as text."""
    return subprocess.run(["arm-none-eabi-nm", "-S", image], capture_output=True, text=True, check=True).stdout


def symbol(image, name):
    """Returns address and size of a symbol, which is in an unnamed namespace or has C linkage."""
    names = rf"(?:_ZN12_GLOBAL__N_1{len(name)}{name}E|{name})"
    found = re.search(rf"^(\w+)(?: (\w+))? \w {names}$", symbols(image), re.MULTILINE)
    return int(found[1], 16), int(found[2] or "0", 16)


def free_port():
    """Returns a TCP port that is not in use."""
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


def make_full_pipe(path):
    """Creates a named pipe that is full. It stays open as long as the returned file."""
    os.mkfifo(path)
    pipe = os.open(path, os.O_RDWR | os.O_NONBLOCK)
    try:
        while True:
            os.write(pipe, bytes(4096))
    except BlockingIOError:
        return os.fdopen(pipe)


def repeat_until_answered(host, command):
    """
    Sends a command until it is answered; returns the answer. A command that arrives while the board restarts is lost.
    """
    host.command(command)
    while True:
        while not select.select([host.stream.socket], [], [], 1.0)[0]:
            host.command(command)
        answer, _ = host.answer()
        if answer.get("command") == command:
            return answer


def end_session(board, host, most_live):
    """
    Ends a session; returns the answer to "identify". If more memory than this is in use, the board restarts as soon
    as it receives nothing.
    """
    repeat_until_answered(host, "end")
    identity = repeat_until_answered(host, "identify")
    if identity["memory"]["live"] > most_live:
        board.wait_for_log("memory lost")
        identity = repeat_until_answered(host, "identify")
    # Answers to repeated commands come before the answer to this one.
    host.command("stats")
    while host.answer()[0].get("command") != "stats":
        pass
    return identity


class Board:
    """An emulated board. Its process ends with the context. The link is a TCP port, unless it is narrow or serial."""

    def __init__(self, image=FIRMWARE, sensors=5, virtual_clock=True, seed=1, unexpected_accesses=False,
                 log_is_read=True, hurried_time=False, skipped_sleep=False, narrow_link=False, serial_link=False,
                 starts_stopped=False, settings_address=EMULATOR["settings"], boot_image=None):
        """
        unexpected_accesses: the program may access addresses that do not exist.
        log_is_read: whether the log's port is read; if not, it is full from the start.
        hurried_time: every instruction takes 256 ns of the board's time, longer than on this machine. A wait in a loop
            ends sooner; sleep takes real time.
        skipped_sleep: when the processor sleeps, time jumps to the next timer, and sometimes to the one after it. For
            tests that do not depend on time.
        narrow_link: the link is soon full when the host does not read.
        serial_link: the link is a pseudo-terminal, and the board starts without a host.
        starts_stopped: the board executes nothing before `resume`.
        settings_address: where the settings are; None for a board without settings.
        boot_image: bytes at the beginning of the flash, which start instead of the program.
        """
        self.image = image
        self.unexpected_accesses = unexpected_accesses
        self.directory = tempfile.TemporaryDirectory()
        self.log_path = os.path.join(self.directory.name, "log")
        self.monitor_path = os.path.join(self.directory.name, "monitor")
        self.link_path = os.path.join(self.directory.name, "link") if narrow_link else None
        self.serial_link = serial_link
        self.full_pipe = None if log_is_read else make_full_pipe(self.log_path)
        self.port = free_port()
        self.address = f"tcp:127.0.0.1:{self.port}"
        arguments = ["qemu-system-arm", "-M", EMULATOR["machine"], "-display", "none", "-monitor", "none",
                     "-kernel", image,
                     "-serial", self._link_option(),
                     "-serial", f"file:{self.log_path}",
                     "-qmp", f"unix:{self.monitor_path},server=on,wait=off",
                     "-d", "guest_errors,unimp"]
        if hurried_time:
            arguments += ["-icount", "shift=8"]
        if skipped_sleep:
            arguments += ["-icount", "shift=5,sleep=off"]
        if starts_stopped:
            arguments.append("-S")
        if settings_address is not None:
            settings = struct.pack("<IHHI", SETTINGS_MARK, sensors, virtual_clock, seed)
            arguments += self._loaded("settings", settings, settings_address)
        if boot_image is not None:
            arguments += self._loaded("boot_image", boot_image, EMULATOR["code"])
        # Not a pipe: the emulator's reports about unknown devices would fill it.
        self.error_path = os.path.join(self.directory.name, "errors")
        with open(self.error_path, "wb") as errors:
            self.process = subprocess.Popen(arguments, stdout=subprocess.DEVNULL, stderr=errors)

    def _link_option(self):
        """The emulator's option for the link."""
        if self.serial_link:
            return "pty"
        if self.link_path:
            return f"unix:{self.link_path},server=on,wait=on"
        return f"tcp:127.0.0.1:{self.port},server=on,wait=on,nodelay=on"

    def _loaded(self, name, content, address):
        """The emulator's options that write additional content into the flash."""
        path = os.path.join(self.directory.name, name)
        with open(path, "wb") as file:
            file.write(content)
        return ["-device", f"loader,file={path},force-raw=on,addr={address}"]

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        self.process.terminate()
        self.process.wait(TIME_OUT)
        errors = self.errors().splitlines()
        if self.full_pipe:
            self.full_pipe.close()
        self.directory.cleanup()
        # The emulator reports accesses to registers that do not exist. An abort changes the exit code.
        harmless = ("QEMU waiting for connection", "terminating on signal", "icount sleep disabled and no active timers",
                    *(f"{device}: unimplemented device" for device in EMULATOR["unknown_to_emulator"]))
        unexpected = [line for line in errors if not any(text in line for text in harmless)]
        if kind is None and ((unexpected and not self.unexpected_accesses) or self.process.returncode != 0):
            raise AssertionError(f"the emulator ended with {self.process.returncode}: {unexpected}")

    def connect(self, board_listens=True):
        """Connects a host when the board listens. The first host starts the board."""
        hosts = []
        wait_until(lambda: self._try_to_connect(hosts), "the emulator to accept a connection")
        if board_listens:
            wait_until(self._listens, "the board to listen")
        return hosts[0]

    def _listens(self):
        """Whether the link's interrupt is enabled."""
        word, bit = divmod(NUMBERS["LINK_INTERRUPT"], 32)
        return self.register(INTERRUPTS_ENABLED + 4 * word) >> bit & 1 == 1

    def _try_to_connect(self, hosts):
        """Adds a host to the list; returns false if the emulator does not accept connections yet."""
        try:
            hosts.append(Host(self._open_link()))
        except (ConnectionRefusedError, FileNotFoundError):
            return False
        return True

    def _open_link(self):
        """Opens the link. This sets the address of a serial link."""
        if self.serial_link:
            devices = {device["label"]: device["filename"] for device in self._ask_monitor("query-chardev")}
            path = devices["serial0"].removeprefix("pty:")
            self.address = f"serial:{path}@{NUMBERS['LINK_START_BAUDRATE']}"
            return SerialStream(path)
        return UnixSocketStream(self.link_path) if self.link_path else SocketStream("127.0.0.1", self.port)

    def log(self):
        """Everything sent to the log's port so far."""
        if not os.path.exists(self.log_path):
            return ""
        with open(self.log_path, encoding="utf-8") as file:
            return file.read()

    def errors(self):
        """Everything the emulator has reported so far, such as accesses to devices that it does not emulate."""
        with open(self.error_path, encoding="utf-8") as file:
            return file.read()

    def wait_for_log(self, text):
        """Waits until a text was sent to the log's port."""
        wait_until(lambda: text in self.log(), f"{text!r} on the log")

    def wait_for_restarted_link(self):
        """Waits until the board has disconnected a host and discarded its input, so that the next one can connect."""
        self.wait_for_log("restarting the link")
        wait_until(lambda: self.variable("stalled") & 0xFF == 0, "the restart of the link")

    def variable(self, name, offset=0):
        """A word of a variable of the program, which is in an unnamed namespace or has C linkage."""
        return self.register(symbol(self.image, name)[0] + offset)

    def register(self, address):
        """A hardware register or a word of memory, as the emulator's monitor prints it."""
        return self.words(address, 1)[0]

    def words(self, address, count):
        """Words of memory, starting at an address."""
        shown = self._ask_monitor("human-monitor-command", **{"command-line": f"xp /{count}wx {address:#x}"})
        return [int(word, 16) for word in re.findall(r" 0x([0-9a-f]+)", shown)]

    def baudrate(self):
        """The baud rate of the link, calculated from its divider."""
        return EMULATOR["baud_clock_hz"] / self.register(int(EMULATOR["baud_divider"], 16))

    @contextlib.contextmanager
    def stopped(self):
        """Stops the board and its time during the context."""
        self._ask_monitor("stop")
        try:
            yield
        finally:
            self.resume()

    def resume(self):
        """Continues a stopped board."""
        self._ask_monitor("cont")

    def _ask_monitor(self, command, **arguments):
        """Executes a command of the emulator's monitor; returns the result."""
        with socket.socket(socket.AF_UNIX) as monitor, monitor.makefile("rw") as stream:
            monitor.connect(self.monitor_path)
            for request in ({"execute": "qmp_capabilities", "id": "begin"},
                            {"execute": command, "arguments": arguments, "id": "end"}):
                stream.write(json.dumps(request))
                stream.flush()
            for line in stream:
                answer = json.loads(line)
                if answer.get("id") == "end":
                    return answer["return"]
        raise AssertionError("the monitor does not answer")

    def processor_time(self):
        """Processor time that the emulator has used, in seconds."""
        with open(f"/proc/{self.process.pid}/stat", encoding="utf-8") as file:
            fields = file.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
