"""Links to servers: streams of bytes in both directions, with time-outs.

A link reads straight into the buffers of its caller. Nothing blocks longer than a fraction of a second in the
operating system, so that Ctrl-C ends every wait.
"""

import errno
import io
import os
import select
import shutil
import socket
import subprocess
import threading
import time
import weakref
from collections.abc import Sequence
from contextlib import suppress
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Protocol

from ._address import Address, RelayedAddress, SerialAddress, SimulatorAddress, TcpAddress, UnixAddress
from ._error_output import ErrorOutput
from .errors import ConnectError, ConnectionLost, Error, ServerTimeout, reason_of

#: Longest wait in the operating system, in seconds. A signal that arrives just before such a wait does not
#: end it.
_LONGEST_WAIT = 0.2

#: How often a connection to a socket is tried while the server does not accept more: nothing reports when it
#: does.
_RETRY_INTERVAL = 0.02

#: How long a simulated server may take to exit before it is killed, in seconds.
_EXIT_TIME = 5.0


class Link(Protocol):
    """A stream of bytes in both directions."""

    def read_into(self, buffers: Sequence[memoryview], timeout: float) -> int:
        """Reads the bytes that are there into buffers, in their order; waits up to `timeout` seconds for one.

        Returns their number; 0 if none arrived in time. Raises ConnectionLost.
        """

    def write(self, data: bytes, timeout: float) -> None:
        """Writes bytes; raises ServerTimeout if they are not accepted in time, or ConnectionLost."""

    def set_baudrate(self, baudrate: int) -> int:
        """Changes the baud rate; returns the former one."""

    def close(self) -> None:
        """Closes the link."""


class DescriptorLink:
    """A link over a file descriptor that does not block."""

    #: What the link is called in messages.
    kind = "A socket"

    #: Whether a read of no bytes shows that the other side has closed the link.
    _empty_read_is_end = True

    def __init__(self, stream: Any) -> None:
        """Takes over an object with `fileno()` and `close()`; a link that is forgotten closes it."""
        self._stream = stream
        self._end = weakref.finalize(self, stream.close)
        self._descriptor: int = stream.fileno()
        self._input = select.poll()
        self._input.register(self._descriptor, select.POLLIN)
        self._output = select.poll()
        self._output.register(self._descriptor, select.POLLOUT)

    def read_into(self, buffers: Sequence[memoryview], timeout: float) -> int:
        """See Link."""
        count = self._read(buffers)
        if count is None and _wait(self._input, timeout):
            count = self._read(buffers, is_ready=True)
        return count or 0

    def write(self, data: bytes, timeout: float) -> None:
        """See Link."""
        deadline = time.monotonic() + timeout
        rest = memoryview(data)
        while rest:
            try:
                rest = rest[os.write(self._descriptor, rest) :]
            except BlockingIOError:
                if not _wait(self._output, deadline - time.monotonic()):
                    raise ServerTimeout(
                        "The server does not accept more bytes: it may hang, or the line may be cut."
                    ) from None
            except OSError as failure:
                raise self._lost(failure) from None

    def set_baudrate(self, baudrate: int) -> int:
        """See Link."""
        raise Error(f"{self.kind} has no baud rate.")

    def close(self) -> None:
        """See Link."""
        self._end()

    def _read(self, buffers: Sequence[memoryview], is_ready: bool = False) -> int | None:
        """Reads the bytes that are there; None if none. A link that is ready has bytes or an end."""
        try:
            count = os.readv(self._descriptor, buffers)
        except BlockingIOError:
            return None
        except OSError as failure:
            raise self._lost(failure) from None
        if count == 0 and (is_ready or self._empty_read_is_end):
            raise self._lost(None)
        return count or None

    def _lost(self, failure: OSError | None) -> ConnectionLost:
        """The exception for a lost connection; without a failure the server has closed it."""
        if failure is None:
            return ConnectionLost("The server closed the connection.")
        return ConnectionLost(f"Lost the connection: {failure.strerror}.")


def _wait(events: "select.poll", timeout: float) -> bool:
    """Waits for an event; False if there is none in time."""
    deadline = time.monotonic() + timeout
    while True:
        left = deadline - time.monotonic()
        if events.poll(max(0.0, min(left, _LONGEST_WAIT)) * 1000.0):
            return True
        if left <= 0.0:
            return False


class TcpLink(DescriptorLink):
    """A link over TCP."""

    kind = "A TCP connection"


class SerialLink(DescriptorLink):
    """A link over a serial line."""

    _empty_read_is_end = False

    def set_baudrate(self, baudrate: int) -> int:
        """See Link."""
        former: int = self._stream.baudrate
        try:
            self._stream.baudrate = baudrate
        except (OSError, ValueError, OverflowError) as failure:
            raise Error(f"Cannot set the serial line to {baudrate} baud: {failure}.") from None
        return former


class ProcessLink(DescriptorLink):
    """A link to a process that ends with the link."""

    kind = "A private process"

    def __init__(
        self,
        stream: socket.socket,
        process: "subprocess.Popen[bytes]",
        errors: ErrorOutput,
        program: "_Program",
    ) -> None:
        """Takes over the socket, the process, and what it prints to standard error."""
        super().__init__(stream)
        self._program = program
        self._end.detach()
        self._end = weakref.finalize(self, _end_process, stream, process, errors, os.getpid())
        # The server exits when the link is closed; a forked process must not end it.
        self._end.atexit = False
        self._process = process
        self._errors = errors
        self._has_answered = False

    def read_into(self, buffers: Sequence[memoryview], timeout: float) -> int:
        """See Link."""
        count = super().read_into(buffers, timeout)
        if count and not self._has_answered:
            self._has_answered = True
            self._errors.pass_on()
        return count

    def _lost(self, failure: OSError | None) -> ConnectionLost:
        with suppress(subprocess.TimeoutExpired):
            self._process.wait(_EXIT_TIME)
        self._errors.wait_for_end(_EXIT_TIME)
        ended = f"{self._program.role} has exited{_how_it_ended(self._process.returncode)}"
        if lines := self._errors.last_lines():
            return ConnectionLost(f"{ended}:\n{lines}")
        if self._has_answered:
            return ConnectionLost(f"{ended}.")
        return ConnectionLost(
            f"{ended} and without a message. Check that {self._program.variable} or PATH has "
            f"{self._program.name}."
        )


def _end_process(
    stream: socket.socket, process: "subprocess.Popen[bytes]", errors: ErrorOutput, starter: int
) -> None:
    """Asks a process to exit, and kills it if it does not; only closes the link in a forked process."""
    stream.close()
    if os.getpid() != starter:
        return
    process.terminate()
    try:
        process.wait(_EXIT_TIME)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
    errors.wait_for_end(_EXIT_TIME)


def _how_it_ended(status: int | None) -> str:
    """The exit status or the signal of a process that has ended; nothing if it still runs."""
    if status is None:
        return ""
    return f" with status {status}" if status >= 0 else f" by signal {-status}"


@dataclass(frozen=True, slots=True)
class _Program:
    """A program that links are to: its name, the variable that may name its file, and what it is."""

    name: str
    variable: str
    role: str

    def find(self) -> Path:
        """The program that the variable names, or the one in PATH; raises ConnectError if there is none."""
        if named := os.environ.get(self.variable):
            return Path(named)
        if found := shutil.which(self.name):
            return Path(found)
        raise ConnectError(
            f"Cannot find the program {self.name} in PATH: install it, set {self.variable} to its path, or "
            "connect to a running server, for example with tcp:HOST:PORT."
        )


_SERVER = _Program("vantor_server", "VANTOR_SERVER", "The simulated server")
_COMMAND = _Program("vantor", "VANTOR", "The program that connects to the broker")


def find_server_program() -> Path:
    """The program vantor_server; raises ConnectError if there is none."""
    return _SERVER.find()


def open_link(address: Address, timeout: float, arguments: Sequence[str] = ()) -> Link:
    """Opens a link to an address within `timeout` seconds; a simulated server gets further arguments.

    Raises ConnectError.
    """
    match address:
        case TcpAddress():
            return _open_tcp(address, time.monotonic() + timeout)
        case UnixAddress():
            return _open_unix(address, time.monotonic() + timeout)
        case SerialAddress():
            return _open_serial(address)
        case SimulatorAddress():
            return _start(_SERVER, ["--stdio", *address.arguments, *arguments])
        case RelayedAddress():
            return _start(_COMMAND, ["replay", address.text, "--stdio"])


def _open_tcp(address: TcpAddress, deadline: float) -> Link:
    host = f"[{address.host}]" if ":" in address.host else address.host
    name = f"tcp:{host}:{address.port}"
    failure: OSError | None = None
    for family, kind, protocol, _, place in _look_up(address, name, deadline):
        try:
            return TcpLink(_connect_tcp(socket.socket(family, kind, protocol), place, deadline))
        except OSError as refusal:
            failure = refusal
    raise ConnectError(
        f"Cannot connect to {name}: {reason_of(failure)}. Is vantor_server running there, with --tcp and this "
        "port?"
    )


def _connect_tcp(stream: socket.socket, place: Any, deadline: float) -> socket.socket:
    """Connects a socket; closes it if that fails."""
    try:
        stream.settimeout(max(0.001, deadline - time.monotonic()))
        stream.connect(place)
        stream.setblocking(False)
        stream.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return stream
    except BaseException:
        stream.close()
        raise


def _look_up(address: TcpAddress, name: str, deadline: float) -> list[Any]:
    """The places of a host.

    The system cannot end the search for a name early, so another thread waits for it; if nobody waits for the
    thread any more, it ends by itself.
    """
    found: list[Any] = []
    failures: list[Exception] = []

    def look_up(flags: int = 0) -> None:
        try:
            places = socket.getaddrinfo(address.host, address.port, type=socket.SOCK_STREAM, flags=flags)
            found.extend(places)
        except (OSError, UnicodeError) as failure:
            failures.append(failure)

    look_up(socket.AI_NUMERICHOST)
    if found:
        return found
    failures.clear()
    search = threading.Thread(target=look_up, daemon=True)
    search.start()
    while search.is_alive() and time.monotonic() < deadline:
        search.join(_LONGEST_WAIT)
    if search.is_alive():
        raise ConnectError(
            f"Cannot resolve the host name in {name} in time. Check the name and the network, or use an IP "
            "address."
        )
    if failures:
        raise ConnectError(f"Cannot resolve the host name in {name}: {reason_of(failures[0])}.")
    return found


def _open_unix(address: UnixAddress, deadline: float) -> Link:
    try:
        return DescriptorLink(_connect_unix(socket.socket(socket.AF_UNIX), address.path, deadline))
    except OSError as failure:
        raise ConnectError(
            f"Cannot connect to unix:{address.path}: {reason_of(failure)}. Is vantor_server running there, "
            "with --unix and this path, as the same user?"
        ) from None


def _connect_unix(stream: socket.socket, path: str, deadline: float) -> socket.socket:
    """Connects a socket; tries again while the server does not accept more connections. Closes it on failure."""
    stream.setblocking(False)
    try:
        while not _has_connected(stream, path):
            if time.monotonic() >= deadline:
                raise TimeoutError(errno.ETIMEDOUT, os.strerror(errno.ETIMEDOUT))
            time.sleep(_RETRY_INTERVAL)
        return stream
    except BaseException:
        stream.close()
        raise


def _has_connected(stream: socket.socket, path: str) -> bool:
    """Connects a socket; False if the server does not accept more connections at the moment."""
    try:
        stream.connect(path)
    except BlockingIOError:
        return False
    return True


def _open_serial(address: SerialAddress) -> Link:
    try:
        import serial  # type: ignore[import]  # it has no types
    except ImportError:
        raise ConnectError(
            "Serial lines need the package pyserial: install it with \"pip install pyserial\" or as Debian's "
            "python3-serial."
        ) from None
    try:
        return SerialLink(serial.Serial(address.device, address.baudrate, timeout=0))
    except (OSError, ValueError) as failure:
        raise ConnectError(
            f"Cannot open the serial device {address.device} at {address.baudrate} baud: {reason_of(failure)}. "
            "Check the name and your permissions, and that no other program uses it."
        ) from None


def _start(role: _Program, arguments: Sequence[str]) -> Link:
    program = role.find()
    try:
        near, far = socket.socketpair()
    except OSError as failure:
        raise ConnectError(f"Cannot start {program}: {reason_of(failure)}.") from None
    with far:
        end = far.fileno()
        try:
            # In a group of its own, so that Ctrl-C on the terminal does not reach it.
            command = [str(program), *arguments]
            process = subprocess.Popen(
                command, stdin=end, stdout=end, stderr=subprocess.PIPE, process_group=0
            )
        except OSError as failure:
            near.close()
            raise ConnectError(f"Cannot start {program}: {reason_of(failure)}.") from None
    near.setblocking(False)
    assert isinstance(process.stderr, io.BufferedReader)
    return ProcessLink(near, process, ErrorOutput(process.stderr), role)
