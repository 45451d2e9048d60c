"""JSON texts, read and written as the C++ host does: the same limits, numbers and order of members."""

import json
import math
import re
from typing import Any

from .errors import ConfigurationError

_DEEPEST_NESTING = 64
_MOST_VALUES = 200_000
_INTEGERS = range(-(2**63), 2**64)

_UNEXPECTED = "invalid or unexpected character"

_STRING = rb'"(?:[^"\\]|\\.)*+"?'
_SURROGATES = rb"u[dD][89abAB][0-9a-fA-F]{2}\\u[dD][c-fC-F][0-9a-fA-F]{2}"

#: What Python decodes although it is not JSON: bytes of which it contains one, the fault as group 1 of a
#: pattern, and the reason.
_FAULTS = (
    ((b"\0",), re.compile(rb"(\0)"), "it contains a null byte"),
    ((b"NaN", b"Infinity"), re.compile(_STRING + rb"|(NaN|-?Infinity)", re.DOTALL), _UNEXPECTED),
    (
        (b"\\ud", b"\\uD"),
        re.compile(rb"\\(?:" + _SURROGATES + rb"|(u[dD][89a-fA-F][0-9a-fA-F]{2})|.)", re.DOTALL),
        "half of a surrogate pair",
    ),
)


class _Repeated(Exception):
    """An object contains a member twice."""


class _TooLarge(Exception):
    """A number is too large."""


def parse(text: bytes, name: str) -> Any:
    """Parse a JSON text; refuse repeated members, very deep nesting and very many values.

    Args:
        text: in UTF-8.
        name: of the text in messages, such as that of the file.

    Raises:
        ConfigurationError: the text is not JSON, or refused.
    """
    try:
        decoded = _decode_text(text, name)
        document = _DECODER.decode(decoded)
    except json.JSONDecodeError as fault:
        before = fault.doc[: fault.pos].encode("utf-8", "replace")
        raise _invalid(name, before, _reason(fault)) from None
    except RecursionError:
        raise _too_deep(name) from None
    except _TooLarge:
        raise ConfigurationError(f"{name} contains a number that is too large.") from None
    except _Repeated as fault:
        raise ConfigurationError(
            f'{name}: an object contains the member "{fault}" twice; remove one of them.'
        ) from None
    if len(text) > _MOST_VALUES or text.count(b"{") + text.count(b"[") > _DEEPEST_NESTING:
        _check_size(document, name)
    return document


def copy(document: object) -> Any:
    """Return a document as it arrives at a server: lists for tuples, text for keys.

    Raises ConfigurationError if it is not JSON.
    """
    try:
        text = json.dumps(document, allow_nan=False)
    except (TypeError, ValueError, RecursionError) as fault:
        raise ConfigurationError(f"The configuration cannot be written as JSON: {fault}.") from None
    return parse(text.encode(), "The configuration")


def dump(value: Any) -> str:
    """Write a value on one line, members in the order of their names."""
    if isinstance(value, float):
        return _float_text(value)
    if isinstance(value, dict):
        return "{" + ",".join(f"{dump(name)}:{dump(value[name])}" for name in sorted(value)) + "}"
    if isinstance(value, list):
        return "[" + ",".join(map(dump, value)) + "]"
    return json.dumps(value, ensure_ascii=False)


def _float_text(value: float) -> str:
    """The shortest text that reads back as the number, with an exponent from 1e15 on."""
    text = repr(value)
    if not 1e15 <= abs(value) < 1e16:
        return text
    sign, digits = "-" * (value < 0.0), text.lstrip("-").replace(".", "").rstrip("0")
    return f"{sign}{digits[0]}{'.' * (len(digits) > 1)}{digits[1:]}e+15"


def _read_object(members: list[tuple[str, Any]]) -> dict[str, Any]:
    found = dict(members)
    if len(found) < len(members):
        names = [name for name, _ in members]
        raise _Repeated(next(name for name in names if names.count(name) > 1))
    return found


def _read_float(text: str) -> float:
    number = float(text)
    if math.isinf(number):
        raise _TooLarge
    return number


def _read_integer(text: str) -> int | float:
    # Longer ones cannot be whole numbers of 64 bits, and take long to convert.
    number = int(text) if len(text) <= 20 else None
    return number if number is not None and number in _INTEGERS else _read_float(text)


_DECODER = json.JSONDecoder(object_pairs_hook=_read_object, parse_float=_read_float, parse_int=_read_integer)


def _decode_text(text: bytes, name: str) -> str:
    """Decode UTF-8, and refuse what the decoder of Python accepts, but JSON does not."""
    for signs, fault, reason in _FAULTS:
        for found in fault.finditer(text) if any(sign in text for sign in signs) else ():
            if found[1] is not None:
                raise _invalid(name, text[: found.start(1)], reason)
    try:
        return text.decode("utf-8-sig")
    except UnicodeDecodeError as fault:
        raise _invalid(name, text[: fault.start], _UNEXPECTED) from None


def _invalid(name: str, before: bytes, reason: str) -> ConfigurationError:
    """Describe a fault by the text before it. Lines and columns count from 1, columns in bytes."""
    line, column = before.count(10) + 1, len(before) - before.rfind(10)
    return ConfigurationError(f"{name} is not valid JSON at line {line}, column {column}: {reason}.")


def _reason(fault: json.JSONDecodeError) -> str:
    """What is wrong at the position of a fault."""
    if not fault.doc[fault.pos :].strip():
        return "the text ends too early"
    return fault.msg[0].lower() + fault.msg[1:]


def _too_deep(name: str) -> ConfigurationError:
    return ConfigurationError(f"{name} nests objects and lists more than {_DEEPEST_NESTING} levels deep.")


def _check_size(document: Any, name: str) -> None:
    """Refuse documents that are nested too deeply or have too many values."""
    level = [document]
    values = 0
    for _ in range(_DEEPEST_NESTING + 1):
        values += len(level)
        if values > _MOST_VALUES:
            raise ConfigurationError(f"{name} is too large: it has more than {_MOST_VALUES} values.")
        if not level:
            return
        level = [value for part in level for value in _parts(part)]
    if level:
        raise _too_deep(name)


def _parts(value: Any) -> Any:
    """The values in an object or a list."""
    return value.values() if isinstance(value, dict) else value if isinstance(value, list) else ()
