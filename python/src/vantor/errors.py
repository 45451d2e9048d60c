"""What can fail: one exception type for each kind of failure.

Every message is a sentence that says what happened and, if possible, what to change.
"""

from collections.abc import Sequence
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from ._fault import Fault

#: Number of faults that the text of an exception lists.
_MOST_LISTED_FAULTS = 5


class Error(Exception):
    """Base class of all exceptions of this package.

    Attributes:
        code: stable name of the failure, such as "timeout"; of a `ServerError`, the error code of the server.
    """

    code = "error"


class AddressError(Error, ValueError):
    """A server address ("tcp:HOST:PORT", …) is not valid."""

    code = "address"


class ConnectError(Error, ConnectionError):
    """The server at the address could not be reached or started."""

    code = "connect"


class ConnectionLost(Error, ConnectionError):
    """The server closed the link, or the link failed."""

    code = "connection_lost"


class ServerTimeout(Error, TimeoutError):
    """The server did not answer, or the link did not accept bytes, in time."""

    code = "timeout"


class BadMessage(Error):
    """The received bytes are not a valid message.

    Attributes:
        position: where the fault is, in bytes from the start of the connection.
    """

    code = "bad_message"

    def __init__(self, position: int, reason: str) -> None:
        super().__init__(f"Invalid data from the server at byte {position}: {reason}.")
        self.position = position
        self._reason = reason

    def __reduce__(self) -> tuple[type["BadMessage"], tuple[int, str]]:
        return type(self), (self.position, self._reason)


class ProtocolError(Error):
    """A message was received that the protocol or the metadata of the session does not allow."""

    code = "protocol"


class ServerError(Error):
    """The server refused a command or ended the session.

    Attributes:
        code: the error code of the server, such as "wrong_state"; docs/protocol.md lists what to change.
        message: the message of the server, without the code.
        faults: of a refused configuration, what `validate` finds in it.
    """

    def __init__(self, code: str, message: str, faults: "tuple[Fault, ...]" = ()) -> None:
        super().__init__(with_faults(f"{message} ({code})", faults))
        self.code = code
        self.message = message
        self.faults = faults

    def __reduce__(self) -> tuple[type["ServerError"], tuple[str, str]]:
        return type(self), (self.code, self.message)


class ConfigurationError(Error, ValueError):
    """A file or a value is not a usable configuration document.

    Attributes:
        faults: what is wrong where, if single members of the document are not valid.
    """

    code = "configuration"

    def __init__(self, message: str, faults: "tuple[Fault, ...]" = ()) -> None:
        super().__init__(message)
        self.faults = faults

    def __reduce__(self) -> "tuple[type[ConfigurationError], tuple[str, tuple[Fault, ...]]]":
        return type(self), (str(self), self.faults)


class FileError(Error, OSError):
    """A file cannot be written.

    Attributes:
        errno, strerror, filename: as of each OSError: number and text of the reason, and the file.
    """

    code = "file"

    def __str__(self) -> str:
        return f"Cannot write {self.filename}: {self.strerror}."


class RecordingError(Error):
    """A recording cannot be read, or is damaged."""

    code = "recording"


class RecordingWarning(UserWarning):
    """A recording is damaged, or was not finished."""


def reason_of(failure: BaseException | None) -> str:
    """Why a call of the system failed."""
    return str(getattr(failure, "strerror", None) or failure)


def with_faults(text: str, faults: "Sequence[Fault]") -> str:
    """A text, followed by the first faults of a configuration in a line each."""
    further = len(faults) - _MOST_LISTED_FAULTS
    rest = [f"and {further} more faults"] if further > 0 else []
    return "\n".join([text, *map(str, faults[:_MOST_LISTED_FAULTS]), *rest])
