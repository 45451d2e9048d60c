"""Makes JSON documents of the values that programs use: tuples, NumPy numbers and arrays."""

import json
import math
from collections.abc import Iterator
from operator import index
from typing import Any, SupportsFloat

from ._fault import Fault, pointer, shortened
from ._json_text import parse
from .errors import ConfigurationError

_KEYS = (str, int, float, bool, type(None))
"""The types of the names of members that are written as text."""

_WHOLE_CHARACTERS = "text without halves of surrogate pairs"


def copy(document: object) -> Any:
    """Returns a document as it arrives at a server: lists for tuples and arrays, text for keys.

    Raises ConfigurationError if it cannot be written as JSON; its `faults` say where.
    """
    try:
        text = json.dumps(document, allow_nan=False, default=_plain)
        return parse(text.encode(), "The configuration")
    except (TypeError, ValueError, RecursionError) as failure:
        faults = _list_faults(document)
        if not faults and isinstance(failure, ConfigurationError):
            raise
        reason = "\n".join(["", *map(str, faults[:5])]) if faults else f" {failure}."
        raise ConfigurationError(f"The configuration cannot be written as JSON:{reason}", faults) from None


def to_float(value: SupportsFloat) -> float:
    """A positive number as a float; infinity if it is larger than any."""
    try:
        return float(value)
    except OverflowError:
        return math.inf


def _plain(value: Any) -> Any:
    """The value of an array or a number of NumPy, or of a whole number of another type."""
    return value.tolist() if hasattr(value, "tolist") else index(value)


def _list_faults(document: object) -> tuple[Fault, ...]:
    """The values that are not JSON; none if they are not known, such as those of a list that has itself."""
    try:
        return tuple(_find_faults(document, ()))
    except RecursionError:
        return ()


def _find_faults(value: object, path: tuple[object, ...]) -> Iterator[Fault]:
    if isinstance(value, dict):
        for name, member in value.items():
            if not isinstance(name, _KEYS):
                yield Fault(pointer(*path), f"a name of type {type(name).__name__}", "names that are strings")
            elif _has_half_of_pair(name):
                yield Fault(pointer(*path), f"the name {shortened(json.dumps(name))}", _WHOLE_CHARACTERS)
            else:
                yield from _find_faults(member, (*path, name))
    elif isinstance(value, (list, tuple)):
        for position, element in enumerate(value):
            yield from _find_faults(element, (*path, position))
    elif isinstance(value, float):
        if not math.isfinite(value):
            yield Fault(pointer(*path), str(float(value)), "a finite number")
    elif _has_half_of_pair(value):
        yield Fault(pointer(*path), shortened(json.dumps(value)), _WHOLE_CHARACTERS)
    elif not isinstance(value, (str, int, type(None))):
        yield from _find_faults_of_other(value, path)


def _has_half_of_pair(value: object) -> bool:
    """Whether a value is text with half of a surrogate pair. JSON makes one character of two halves."""
    if not isinstance(value, str) or value.isascii():
        return False
    try:
        value.encode("utf-16", "surrogatepass").decode("utf-16")
    except UnicodeDecodeError:
        return True
    return False


def _find_faults_of_other(value: object, path: tuple[object, ...]) -> Iterator[Fault]:
    """The faults of a value of another type."""
    try:
        yield from _find_faults(_plain(value), path)
    except TypeError:
        allowed = "a string, a number, true, false, null, a list or an object"
        yield Fault(pointer(*path), f"a value of type {type(value).__name__}", allowed)
