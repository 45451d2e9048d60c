"""JSON texts, read and written as the C++ host does: the same limits, numbers and order of members."""

import json
import math
from collections import Counter
from contextlib import suppress
from typing import Any

from ._json_fault import DEEPEST_NESTING, MOST_VALUES, TooDeep, TooManyValues, find_fault
from ._printable import printable
from .errors import ConfigurationError

_INTEGERS = range(-(2**63), 2**64)


class _Repeated(Exception):
    """An object contains a member twice."""


class _TooLarge(Exception):
    """A number is too large."""


def parse(text: bytes, name: str) -> Any:
    """Parses a JSON text; refuses repeated members, very deep nesting and very many values.

    Args:
        text: in UTF-8.
        name: of the text in messages, such as that of the file.

    Raises:
        ConfigurationError: the text is not JSON, or refused.
    """
    end = text.find(0)
    if end >= 0:
        raise ConfigurationError(f"{name} is not valid JSON at {_place(text, end)}: it contains a null byte.")
    try:
        document = _DECODER.decode(_decode_text(text))
    except ValueError:
        raise _invalid(text, name) from None
    except RecursionError:
        raise _too_deep(name) from None
    except _TooLarge:
        raise ConfigurationError(f"{name} contains a number that is too large.") from None
    except _Repeated as fault:
        raise ConfigurationError(
            f'{name}: an object contains the member "{printable(str(fault))}" twice; remove one of them.'
        ) from None
    if len(text) > MOST_VALUES or text.count(b"{") + text.count(b"[") > DEEPEST_NESTING:
        _check_size(document, name)
    return document


def dump(value: Any) -> str:
    """Writes a value on one line, members in the order of their names."""
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
        counts = Counter(name for name, _ in members)
        raise _Repeated(next(name for name, count in counts.items() if count > 1))
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


def _refuse_constant(text: str) -> float:
    raise ValueError(text)


_DECODER = json.JSONDecoder(
    object_pairs_hook=_read_object,
    parse_float=_read_float,
    parse_int=_read_integer,
    parse_constant=_refuse_constant,
)


def _decode_text(text: bytes) -> str:
    """Decodes UTF-8, and refuses halves of surrogate pairs, which the decoder of Python accepts."""
    has_surrogates = b"\\ud" in text or b"\\uD" in text
    with suppress(TooDeep, TooManyValues):
        if has_surrogates and find_fault(text) is not None:
            raise ValueError
    return text.decode("utf-8-sig")


def _invalid(text: bytes, name: str) -> ConfigurationError:
    """Describes where a text is not JSON."""
    try:
        position = find_fault(text)
    except TooDeep:
        return _too_deep(name)
    except TooManyValues:
        return _too_large(name)
    position = len(text) if position is None else position
    found = text[position : position + 1]
    reason = "invalid or unexpected character"
    if not found:
        reason = "the text ends too early"
    elif found == b"\n":
        reason = "a line ends within a string"
    elif b" " <= found <= b"~":
        reason = f'unexpected "{found.decode()}"'
    return ConfigurationError(f"{name} is not valid JSON at {_place(text, position)}: {reason}.")


def _place(text: bytes, position: int) -> str:
    """A position as "line L, column C", both from 1."""
    before = text[:position]
    return f"line {before.count(10) + 1}, column {position - before.rfind(10)}"


def _too_deep(name: str) -> ConfigurationError:
    return ConfigurationError(f"{name} nests objects and lists more than {DEEPEST_NESTING} levels deep.")


def _too_large(name: str) -> ConfigurationError:
    return ConfigurationError(f"{name} is too large: it has more than {MOST_VALUES} values.")


def _check_size(document: Any, name: str) -> None:
    """Refuses documents that are nested too deeply or have too many values."""
    level = [document]
    values = 0
    for _ in range(DEEPEST_NESTING + 1):
        values += len(level)
        if values > MOST_VALUES:
            raise _too_large(name)
        if not level:
            return
        level = [value for part in level for value in _parts(part)]
    if level:
        raise _too_deep(name)


def _parts(value: Any) -> Any:
    """The values in an object or a list."""
    return value.values() if isinstance(value, dict) else value if isinstance(value, list) else ()
