"""Reads members of JSON objects that a server has sent; refuses what the protocol does not allow."""

import math
from typing import Any

from .errors import ProtocolError

#: Longest frame, sweep or sub-sweep that a server can announce, in samples.
LONGEST_LENGTH = 65535

UINT16 = (0, 2**16 - 1)
INT16 = (-(2**15), 2**15 - 1)
INT32 = (-(2**31), 2**31 - 1)
UINT32 = (0, 2**32 - 1)

_WRONG_PROTOCOL = "server and host do not use the same protocol."


def member(members: Any, name: str) -> Any:
    """A required member."""
    try:
        return members[name]
    except (KeyError, IndexError, TypeError):
        raise ProtocolError(f'The server\'s message has no "{name}": {_WRONG_PROTOCOL}') from None


def array(members: object, name: str) -> list[Any]:
    """A required array."""
    value = member(members, name)
    if not isinstance(value, list):
        raise refusal(name, "an array")
    return value


def to_integer(value: object, name: str, lowest: int, highest: int) -> int:
    """A value that must be a whole number within bounds."""
    if type(value) is int and lowest <= value <= highest:
        return value
    raise refusal(name, f"a whole number from {lowest} to {highest}")


def integer(members: object, name: str, bounds: tuple[int, int]) -> int:
    """A required whole number within bounds."""
    return to_integer(member(members, name), name, bounds[0], bounds[1])


def length(members: object, name: str) -> int:
    """A required number of samples."""
    return integer(members, name, (0, LONGEST_LENGTH))


def number(members: object, name: str) -> float:
    """A required number; NaN for null."""
    value = member(members, name)
    if value is None:
        return math.nan
    if type(value) is not int and type(value) is not float:
        raise refusal(name, "a number")
    try:
        return float(value)
    except OverflowError:
        raise refusal(name, "a number that the host can represent") from None


def boolean(members: object, name: str) -> bool:
    """A required truth value."""
    value = member(members, name)
    if value is True or value is False:
        return value
    raise refusal(name, "true or false")


def text(members: object, name: str) -> str:
    """A required string."""
    value = member(members, name)
    if not isinstance(value, str):
        raise refusal(name, "a string")
    return value


def optional_text(members: Any, name: str) -> str | None:
    """A string of an object; None if it is missing."""
    return text(members, name) if name in members else None


def optional_boolean(members: Any, name: str) -> bool | None:
    """A truth value of an object; None if it is missing."""
    return boolean(members, name) if name in members else None


def optional_number(members: Any, name: str) -> float | None:
    """A number of an object; None if it is missing or null."""
    if name not in members:
        return None
    value = number(members, name)
    return None if math.isnan(value) else value


def refusal(name: str, expectation: str) -> ProtocolError:
    """The error for a member that is not what is expected."""
    return ProtocolError(f'In the server\'s message, "{name}" is not {expectation}: {_WRONG_PROTOCOL}')
