"""A connection to a server."""

import time
import weakref
from collections.abc import Callable, Sequence
from contextlib import suppress
from os import PathLike
from types import TracebackType
from typing import Any, Self

from ._address import SimulatorAddress, parse_address
from ._conversation import Conversation, Timeouts, server_log_level
from ._links import Link, open_link
from ._plain_values import copy
from ._printable import printable
from ._session import Session
from ._truth_file import TruthFile
from .calibration import Calibration, add_calibrations, load_calibrations
from .configuration import load_configuration
from .errors import ConnectError, ConnectionLost, Error, ProtocolError, ServerError, reason_of
from .server_info import ServerInfo, decode_server_info

#: The version of the protocol that this package uses.
PROTOCOL_VERSION = 1

#: The connections of this program.
_open_servers: "weakref.WeakSet[Server]" = weakref.WeakSet()


def connect(address: str, timeouts: Timeouts = Timeouts()) -> "Server":
    """Connects to a server, ends any session that it was in, and identifies it.

    Args:
        address: "tcp:HOST:PORT", "unix:PATH", "serial:DEVICE@BAUD", or "sim:" for a private simulated server,
            which ends with the connection; options of `vantor_server` can follow it:
            "sim:--scene breathing_person".
        timeouts: how long to wait.

    Raises:
        AddressError: the address is not valid.
        ConnectError: there is no server.
        ServerError: the server is in use by another host; the code is "busy".
        ProtocolError: what answers is not a server, or one with another version of the protocol.
        ServerTimeout: the server does not answer.
        TypeError: an argument is of another type.
    """
    if not isinstance(address, str):
        raise TypeError(f'The address must be text, such as "tcp:localhost:6110" or "sim:", not {address!r}.')
    if not isinstance(timeouts, Timeouts):
        raise TypeError(f"The time-outs must be vantor.Timeouts(answer=…), not {timeouts!r}.")
    where = parse_address(address)
    if isinstance(where, SimulatorAddress):
        return _connect_to_simulator(address, where, timeouts)
    try:
        return Server(address, lambda: open_link(where, timeouts.connect), timeouts)
    except ServerError as refusal:
        own = [other for other in _open_servers if parse_address(other.address) == where]
        if refusal.code != "busy" or not own:
            raise
        hint = "This program has a connection to it itself: use that one, or close it first."
        raise ServerError(refusal.code, f"{refusal.message} {hint}") from None


def _connect_to_simulator(address: str, where: SimulatorAddress, timeouts: Timeouts) -> "Server":
    """Starts a simulated server: with its truth, and without a limit for slow loops, unless its arguments say
    otherwise."""
    arguments = [] if where.has_option("--stall-limit") else ["--stall-limit", "0"]
    truth = None if where.has_option("--truth") else _create_truth_file()
    if truth is not None:
        arguments += ["--truth", str(truth.path)]
    try:
        return Server(address, lambda: open_link(where, timeouts.connect, arguments), timeouts, truth)
    except BaseException as failure:
        if truth is not None:
            truth.close()
        if isinstance(failure, ConnectionLost):
            raise ConnectError(str(failure)) from None
        raise


def _create_truth_file() -> TruthFile:
    """A truth file; raises ConnectError."""
    try:
        return TruthFile()
    except OSError as failure:
        raise ConnectError(f"Cannot start a simulated server: {reason_of(failure)}.") from None


class Server:
    """A connection to a server; `with` closes it, and leaves the server idle.

    Only one thread at a time may use it and its sessions.

    Attributes:
        address: the address of the server.
        info: what the server reported about itself when it was last identified.
    """

    def __init__(
        self,
        address: str,
        link_opener: Callable[[], Link],
        timeouts: Timeouts,
        truth: TruthFile | None = None,
        clock: Callable[[], float] = time.monotonic,
        system_clock: Callable[[], float] = time.time,
    ) -> None:
        """Connects over the links of an opener; use `connect`."""
        self.address = address
        self._truth = truth
        self._session: Session | None = None
        self._conversation = Conversation(link_opener, timeouts, clock, system_clock)
        try:
            self.info = decode_server_info(self._conversation.request("identify"))
            _check_version(self.info)
            self._conversation.watch_clock(self.info.ticks_per_second)
        except BaseException:
            self._conversation.close()
            raise
        _open_servers.add(self)

    def identify(self) -> ServerInfo:
        """Identifies the server again."""
        self.info = decode_server_info(self._request("identify"))
        return self.info

    def ping(self) -> None:
        """Checks that the server answers."""
        self._request("ping")

    def stats(self) -> dict[str, Any]:
        """The statistics of the server, as it sends them (docs/protocol.md)."""
        return self._request("stats")

    def log(self, level: str | int) -> None:
        """Makes the server send its log, which goes to the logger "vantor.server" of `logging`.

        Args:
            level: least severe level to send: "OFF", "ERROR", "WARNING", "INFO", "VERBOSE" or "DEBUG", or a
                level of `logging`, such as `logging.INFO`.
        """
        if not isinstance(level, str | int):
            raise TypeError(f'The level must be a name like "INFO" or a level of logging, not {level!r}.')
        self._request("log", level=level.upper() if isinstance(level, str) else server_log_level(level))

    def set_baudrate(self, baudrate: int) -> None:
        """Changes the baud rate of a serial line at both ends.

        If the server does not answer at the new one, this end returns to the old one, and the server does so
        within two seconds.
        """
        self._request("baudrate", baudrate=baudrate)
        former = self._conversation.set_baudrate(baudrate)
        try:
            self._conversation.request("ping")
        except BaseException:
            # The server also returns to it.
            with suppress(Error):
                self._conversation.set_baudrate(former)
            raise

    def session(
        self,
        configuration: dict[str, Any] | str | PathLike[str],
        calibrations: Sequence[Calibration] | str | PathLike[str] = (),
    ) -> Session:
        """Sets up a session; an earlier one of this connection ends.

        Args:
            configuration: the configuration document (docs/configuration.md), or the path of its file.
            calibrations: of an earlier session, or the path of a file of them; their sensors are not
                calibrated again.

        Raises:
            ConfigurationError: a file is not what it must be.
            ServerError: the server refuses the configuration; its `faults` say why.
            TypeError: an argument is of another type.
        """
        document = _to_document(configuration)
        if found := _to_calibrations(calibrations):
            document = add_calibrations(document, found)
        self._end_session()
        self._session = Session(
            self._conversation, document, self.info.ticks_per_second, self._truth, self._name()
        )
        return self._session

    def close(self) -> None:
        """Ends the session, if there is one, and closes the connection; without effect if it is closed."""
        try:
            if not self._conversation.idle:
                self._conversation.end_promptly()
        finally:
            self._conversation.close()
            _open_servers.discard(self)
            if self._session is not None:
                self._session._note_end()
            truth, self._truth = self._truth, None
            if truth is not None:
                truth.close()

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, failure: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<vantor.Server {self._name()}, {self._conversation.state}>"

    def _name(self) -> str:
        """The address, sensor and board, as messages show them."""
        board = None if self.info.board is None else self.info.board.name
        return printable(", ".join(filter(None, [self.address, self.info.sensor, board])))

    def _request(self, command: str, **members: Any) -> dict[str, Any]:
        """Sends a command and waits for its answer; also while frames stream."""
        self._settle()
        return self._conversation.request(command, **members)

    def _settle(self) -> None:
        """After Ctrl-C or a time-out, brings the server into a known state: without a session.

        The session sets itself up again when it is used.
        """
        self._conversation.check_thread()
        if self._conversation.torn:
            if self._session is not None:
                self._session._note_loss()
            self._conversation.end()

    def _end_session(self) -> None:
        """Ends the session, if there is one."""
        self._conversation.check_thread()
        if self._session is not None:
            self._session._note_end()
        if not self._conversation.idle:
            self._conversation.end()


def _to_document(configuration: dict[str, Any] | str | PathLike[str]) -> dict[str, Any]:
    """A copy of a configuration, or the content of its file."""
    if isinstance(configuration, dict):
        document: dict[str, Any] = copy(configuration)
        return document
    if not isinstance(configuration, str | PathLike):
        raise TypeError(
            "The configuration must be a dictionary or the path of a file, not "
            f"{type(configuration).__name__}."
        )
    return load_configuration(configuration)


def _to_calibrations(calibrations: Sequence[Calibration] | str | PathLike[str]) -> Sequence[Calibration]:
    """Calibrations, or the content of their file."""
    if isinstance(calibrations, str | PathLike):
        return load_calibrations(calibrations)
    if isinstance(calibrations, Sequence):
        found = [entry for entry in calibrations if isinstance(entry, Calibration)]
        if len(found) == len(calibrations):
            return found
    raise TypeError(
        "The calibrations must be those of a session, a list of vantor.Calibration or the path of a file, "
        f"not {type(calibrations).__name__}."
    )


def _check_version(info: ServerInfo) -> None:
    if info.protocol_version != PROTOCOL_VERSION:
        raise ProtocolError(
            f"The server uses protocol version {info.protocol_version} and this host version "
            f"{PROTOCOL_VERSION}: install host and server of the same release."
        )
