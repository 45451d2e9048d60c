"""Reads the addresses of servers."""

import os
import re
import shlex
from collections.abc import Callable
from dataclasses import dataclass

from .errors import AddressError


@dataclass(frozen=True, slots=True)
class TcpAddress:
    """A server on TCP."""

    host: str
    port: int


@dataclass(frozen=True, slots=True)
class UnixAddress:
    """A server on a socket in the file system."""

    path: str


@dataclass(frozen=True, slots=True)
class SerialAddress:
    """A server on a serial line."""

    device: str
    baudrate: int = 115200


@dataclass(frozen=True, slots=True)
class SimulatorAddress:
    """A private simulated server, started with these arguments."""

    arguments: tuple[str, ...]

    def has_option(self, name: str) -> bool:
        """Whether an option is among the arguments, as "--name value" or "--name=value"."""
        return any(argument.partition("=")[0] == name for argument in self.arguments)


@dataclass(frozen=True, slots=True)
class RelayedAddress:
    """A board behind a message broker: "nats:HOST[:PORT]/SITE/BOARD[@TIME]", not checked."""

    text: str


Address = TcpAddress | UnixAddress | SerialAddress | SimulatorAddress | RelayedAddress

_HIGHEST_BAUDRATE = 100_000_000


def parse_address(text: str) -> Address:
    """Parses "tcp:HOST:PORT", "unix:PATH", "serial:DEVICE@BAUD", "sim:ARGUMENTS" or "nats:…".

    Raises AddressError.
    """
    if not _can_be_passed_on(text):
        raise AddressError(
            f"{text!a} is not a valid address: it contains a character that no name can have; write it "
            "without this character."
        )
    kind, colon, rest = text.partition(":")
    parse = _PARSERS.get(kind)
    if not colon or parse is None:
        raise AddressError(
            f'"{text}" is not a valid address: write tcp:HOST:PORT, unix:PATH, serial:DEVICE@BAUD, or sim: '
            "for a simulated server."
        )
    return parse(rest)


def _can_be_passed_on(text: str) -> bool:
    """Whether the system accepts a text as part of the name of a file, a host or as an argument."""
    try:
        return b"\0" not in os.fsencode(text)
    except UnicodeEncodeError:
        return False


def _parse_number(text: str, highest: int) -> int | None:
    """The complete text as a decimal number from 1; None if it is not one."""
    if re.fullmatch("[0-9]{1,10}", text) is None:
        return None
    return int(text) if 1 <= int(text) <= highest else None


def _parse_tcp(text: str) -> Address:
    host, colon, port_text = text.rpartition(":")
    if not colon or not host:
        raise AddressError(
            "A TCP address needs a host and a port: write tcp:HOST:PORT, for example tcp:127.0.0.1:5000."
        )
    port = _parse_number(port_text, 65535)
    if port is None:
        raise AddressError(f'The port in "tcp:{text}" must be a number from 1 to 65535.')
    if len(host) > 2 and host[0] == "[" and host[-1] == "]":
        host = host[1:-1]
    return TcpAddress(host, port)


def _parse_unix(text: str) -> Address:
    if not text:
        raise AddressError(
            "The address of a socket needs a path: write unix:PATH, for example unix:/tmp/radar."
        )
    return UnixAddress(text)


def _parse_serial(text: str) -> Address:
    device, at, baudrate_text = text.rpartition("@") if "@" in text else (text, "", "")
    if not device:
        raise AddressError(
            "A serial address needs a device: write serial:DEVICE@BAUD, for example "
            "serial:/dev/ttyACM0@115200."
        )
    if not at:
        return SerialAddress(device)
    baudrate = _parse_number(baudrate_text, _HIGHEST_BAUDRATE)
    if baudrate is None:
        raise AddressError(f'The baud rate in "serial:{text}" must be a number, for example 115200.')
    return SerialAddress(device, baudrate)


def _parse_simulator(text: str) -> Address:
    """Splits the arguments like a shell: at blanks, except those in quotes or after a backslash."""
    try:
        return SimulatorAddress(tuple(shlex.split(text)))
    except ValueError:
        raise AddressError(
            f'A quote is not closed, or nothing follows a backslash, in "sim:{text}": write for example '
            'sim:--scene "my scene.json".'
        ) from None


def _parse_relayed(text: str) -> Address:
    return RelayedAddress(f"nats:{text}")


_PARSERS: dict[str, Callable[[str], Address]] = {
    "tcp": _parse_tcp,
    "unix": _parse_unix,
    "serial": _parse_serial,
    "sim": _parse_simulator,
    "nats": _parse_relayed,
}
