"""What a server reports about itself."""

import math
from dataclasses import dataclass, fields
from typing import Any

from . import _members
from .errors import ProtocolError


@dataclass(frozen=True, slots=True)
class MemoryUse:
    """Memory usage of a server, in bytes.

    Attributes:
        size: total.
        live: currently in use.
        peak: maximum in use so far.
        largest_free: largest request that would succeed now.
        failures: number of requests that failed.
    """

    size: int
    live: int
    peak: int
    largest_free: int
    failures: int


@dataclass(frozen=True, slots=True)
class StackUse:
    """Stack usage of a server, in bytes.

    Attributes:
        size: total.
        peak: maximum in use so far.
    """

    size: int
    peak: int


@dataclass(frozen=True, slots=True)
class BoardInfo:
    """What a server reports about its board; None for what it does not report.

    Attributes:
        name: kind of board.
        id: distinguishes boards of one kind.
        reset_cause: why the board started.
        last_fault: the last fault.
        sensors: kind of its sensors, such as "simulated".
    """

    name: str | None
    id: str | None
    reset_cause: str | None
    last_fault: str | None
    sensors: str | None


@dataclass(frozen=True, slots=True)
class ServerInfo:
    """What a server reports about itself; None for what it does not report.

    Attributes:
        server_version: version of the server program.
        protocol_version: version of the protocol.
        sensor: model of the sensors.
        sensor_count: number of sensor positions on the board.
        connected_sensors: numbers of the connected sensors, from 1.
        ticks_per_second: unit of all ticks; 0 if the server has no clock.
        max_baudrate: highest baud rate of the link; 0 if it cannot be changed.
        last_drop: why it last disconnected a host.
        board: the board.
        memory: the memory.
        stack: the stack.
        configuration: of a replayed recording: the only configuration that the server accepts.
    """

    server_version: str
    protocol_version: int
    sensor: str
    sensor_count: int
    connected_sensors: tuple[int, ...]
    ticks_per_second: float
    max_baudrate: int
    last_drop: str | None
    board: BoardInfo | None
    memory: MemoryUse | None
    stack: StackUse | None
    configuration: dict[str, Any] | None


def decode_server_info(answer: dict[str, Any]) -> ServerInfo:
    """Decodes the answer to "identify"; raises ProtocolError if a member is missing or out of range."""
    count = _members.integer(answer, "sensor_count", _members.UINT16)
    return ServerInfo(
        server_version=_members.text(answer, "server_version"),
        protocol_version=_members.integer(answer, "protocol_version", _members.INT32),
        sensor=_members.text(answer, "sensor"),
        sensor_count=count,
        connected_sensors=tuple(
            _members.to_integer(sensor, "connected_sensors", 1, count)
            for sensor in _members.array(answer, "connected_sensors")
        ),
        ticks_per_second=_decode_rate(answer),
        max_baudrate=_members.integer(answer, "max_baudrate", _members.UINT32),
        last_drop=_members.optional_text(answer, "last_drop"),
        board=_decode_board(answer["board"]) if "board" in answer else None,
        memory=_decode_memory(answer["memory"]) if "memory" in answer else None,
        stack=_decode_stack(answer["stack"]) if "stack" in answer else None,
        configuration=_decode_configuration(answer),
    )


def _decode_rate(answer: dict[str, Any]) -> float:
    """The rate of the server's clock. Within these bounds all times can be computed."""
    rate = _members.number(answer, "ticks_per_second")
    if rate != 0.0 and (math.isnan(rate) or not 1e-3 <= rate <= 1e12):
        raise ProtocolError(
            f'The server reports "ticks_per_second": {answer["ticks_per_second"]}; it must be 0 (no clock) '
            "or from 0.001 to 1e12."
        )
    return rate


def _decode_board(board: object) -> BoardInfo:
    if not isinstance(board, dict):
        raise ProtocolError('The server sent a "board" that is not an object.')
    return BoardInfo(**{name: _members.optional_text(board, name) for name in _names(BoardInfo)})


def _decode_memory(memory: object) -> MemoryUse:
    return MemoryUse(**{name: _members.integer(memory, name, _members.UINT32) for name in _names(MemoryUse)})


def _decode_stack(stack: object) -> StackUse:
    return StackUse(**{name: _members.integer(stack, name, _members.UINT32) for name in _names(StackUse)})


def _names(record: type) -> list[str]:
    return [field.name for field in fields(record)]


def _decode_configuration(answer: dict[str, Any]) -> dict[str, Any] | None:
    if "configuration" not in answer:
        return None
    configuration = answer["configuration"]
    if not isinstance(configuration, dict):
        raise ProtocolError('The server sent a "configuration" that is not an object.')
    return configuration
