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

_FAULTS = {
    re.compile(rb"(\0)"): "it contains a null byte",
    re.compile(_STRING + rb"|(NaN|-?Infinity)", re.DOTALL): _UNEXPECTED,
    re.compile(
        rb"\\(?:u[dD][89abAB][0-9a-fA-F]{2}\\u[dD][c-fC-F][0-9a-fA-F]{2}|(u[dD][89a-fA-F][0-9a-fA-F]{2})|.)",
        re.DOTALL,
    ): "half of a surrogate pair",
}
"""What Python decodes although it is not JSON, as group 1 of a pattern."""


def parse(text: bytes, name: str) -> Any:
    """Parse a JSON text; refuse repeated members, very deep nesting and very many values.

    `name` is its name in messages, such as the file name. Raises ConfigurationError.
    """
    repeated: list[str] = []
    try:
        document = _decoder(name, repeated).decode(_decode_text(text, name))
    except json.JSONDecodeError as fault:
        before = fault.doc[: fault.pos].encode("utf-8", "replace")
        raise _invalid(name, before, _reason(fault)) from None
    except RecursionError:
        raise _too_deep(name) from None
    _check_size(document, name)
    if repeated:
        raise ConfigurationError(
            f'{name}: an object contains the member "{repeated[-1]}" twice; remove one of them.'
        )
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


def _decoder(name: str, repeated: list[str]) -> json.JSONDecoder:
    """A decoder of strict JSON, which lists repeated members."""

    def read_object(members: list[tuple[str, Any]]) -> dict[str, Any]:
        found: dict[str, Any] = {}
        for member, value in members:
            if member in found:
                repeated.append(member)
            found[member] = value
        return found

    def read_float(text: str) -> float:
        number = float(text)
        if math.isinf(number):
            raise ConfigurationError(f"{name} contains a number that is too large.")
        return number

    def read_integer(text: str) -> int | float:
        # Longer ones cannot be whole numbers of 64 bits, and take long to convert.
        number = int(text) if len(text) <= 20 else None
        return number if number is not None and number in _INTEGERS else read_float(text)

    return json.JSONDecoder(
        object_pairs_hook=read_object,
        parse_float=read_float,
        parse_int=read_integer,
    )


def _decode_text(text: bytes, name: str) -> str:
    """Decode UTF-8, and refuse what the decoder of Python accepts, but JSON does not."""
    for fault, reason in _FAULTS.items():
        for found in fault.finditer(text):
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
