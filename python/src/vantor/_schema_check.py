"""Checks a document against the part of JSON Schema that the configuration schema uses."""

from __future__ import annotations

import ctypes
import math
import re
from collections.abc import Callable, Iterator
from typing import Any

from ._fault import Fault, pointer, shortened
from ._json_text import dump
from ._nearest_word import nearest_word
from ._sensor_files import configuration_schema

_Path = tuple[object, ...]

_TYPE_NAMES = {
    "integer": "a whole number",
    "number": "a number",
    "string": "a string",
    "boolean": "true or false",
    "array": "a list",
    "object": "an object",
}

_LARGEST_EXACT = 2.0**53
"""Larger numbers have no fraction."""


def find_schema_faults(document: Any) -> Iterator[Fault]:
    """The faults of the single members of a document, in its order."""
    return _check(document, configuration_schema(), ())


def to_float32(value: float) -> float:
    """The number as the server stores it."""
    return ctypes.c_float(value).value


def is_number(value: Any) -> bool:
    """Whether a value is a number in JSON."""
    return isinstance(value, (int, float)) and not isinstance(value, bool)


def round_half_away(value: float) -> int:
    """The nearest whole number; of two, the one farther from 0."""
    whole = math.trunc(value)
    return whole + (1 if value > 0 else -1) * (abs(value - whole) >= 0.5)


def _check(value: Any, given: dict[str, Any], path: _Path) -> Iterator[Fault]:
    """Checks a value against a schema."""
    schema = _resolve(given)
    if "type" in schema and not _has_type(value, schema["type"]):
        yield Fault(pointer(*path), _shorten(value), _describe(schema))
        return
    for check in _CHECKS:
        yield from check(value, schema, path)


def _resolve(schema: dict[str, Any]) -> dict[str, Any]:
    """Resolves a reference."""
    if "$ref" not in schema:
        return schema
    found: Any = configuration_schema()
    for part in schema["$ref"].split("/")[1:]:
        found = found[part]
    return dict(found)


def _has_type(value: Any, wanted: str) -> bool:
    """Whether a value has a type. Fractions are refused later, with the nearest whole number."""
    if wanted in ("integer", "number"):
        return is_number(value)
    types = {"string": str, "boolean": bool, "array": list, "object": dict}
    return isinstance(value, types[wanted])


def _shorten(value: Any) -> str:
    return shortened(dump(value))


def _describe(schema: dict[str, Any]) -> str:
    """What a schema allows, in words."""
    if "enum" in schema:
        return ", ".join(map(dump, schema["enum"]))
    bounds = " or ".join(filter(None, map(_describe_bounds, schema.get("anyOf", [schema]))))
    return _TYPE_NAMES[schema["type"]] + (f", {bounds}" if bounds else "")


def _describe_bounds(schema: dict[str, Any]) -> str:
    """The bounds of a number in words; empty if there are none."""
    if "const" in schema:
        return dump(schema["const"])
    if "minimum" not in schema:
        return ""
    upper = f" to {dump(schema['maximum'])}" if "maximum" in schema else ""
    return f"from {dump(schema['minimum'])}{upper}"


def _check_enum(value: Any, schema: dict[str, Any], path: _Path) -> Iterator[Fault]:
    if value not in schema.get("enum", [value]):
        yield Fault(pointer(*path), _shorten(value), _describe(schema), nearest_word(value, schema["enum"]))


def _check_number(value: Any, schema: dict[str, Any], path: _Path) -> Iterator[Fault]:
    if not is_number(value):
        return
    nearest, distance = value, math.inf
    for branch in schema.get("anyOf", [schema]):
        candidate = _closest_number(float(value), branch)
        away = abs(float(candidate) - float(value))
        if away <= distance:
            nearest, distance = candidate, away
    if distance > 0.0:
        yield Fault(pointer(*path), _shorten(value), _describe(schema), nearest)


def _closest_number(value: float, schema: dict[str, Any]) -> int | float:
    """The number within the bounds of a schema that is closest to a value."""
    whole = schema.get("type") == "integer"
    closest: int | float = value
    if "const" in schema:
        closest = schema["const"]
    elif "minimum" in schema and _is_below(value, schema["minimum"], whole):
        closest = schema["minimum"]
    elif "maximum" in schema and _is_below(schema["maximum"], value, whole):
        closest = schema["maximum"]
    elif whole and abs(value) < _LARGEST_EXACT:
        closest = round_half_away(value)
    return closest


def _is_below(left: float, right: float, whole: bool) -> bool:
    """Whether a number is below another. If they are not whole, the server rounds them."""
    return left < right if whole else to_float32(left) < to_float32(right)


def _check_pattern(value: Any, schema: dict[str, Any], path: _Path) -> Iterator[Fault]:
    pattern = schema.get("pattern")
    if pattern and not re.fullmatch(pattern, value):
        yield Fault(pointer(*path), _shorten(value), f"a string that matches {pattern}")


def _check_object(value: Any, schema: dict[str, Any], path: _Path) -> Iterator[Fault]:
    if not isinstance(value, dict) or "properties" not in schema:
        return
    for name in schema.get("required", []):
        if name not in value:
            quoted = dump(name)
            yield Fault(pointer(*path), f"no {quoted}", f"the member {quoted} is required here")
    for name in sorted(value):
        if name in schema["properties"]:
            yield from _check(value[name], schema["properties"][name], (*path, name))
        else:
            yield _unknown_member(name, sorted(schema["properties"]), path)


def _unknown_member(name: str, names: list[str], path: _Path) -> Fault:
    nearest = nearest_word(name, names)
    allowed = ", ".join(names) if nearest is None else "the documented members"
    return Fault(pointer(*path, name), f'the member "{shortened(name)}"', f"only {allowed}", nearest)


def _check_condition(value: Any, schema: dict[str, Any], path: _Path) -> Iterator[Fault]:
    """Refuses the members of "then" if the member of "if" is present."""
    if "if" not in schema or schema["if"]["required"][0] not in value:
        return
    for name in sorted(schema["then"]["properties"]):
        if name in value:
            yield Fault(pointer(*path, name), _shorten(value[name]), schema["then"]["description"])


def _check_array(value: Any, schema: dict[str, Any], path: _Path) -> Iterator[Fault]:
    if not isinstance(value, list) or "items" not in schema:
        return
    if len(value) < schema.get("minItems", 0):
        yield Fault(pointer(*path), "an empty list", "at least one element")
    most = schema.get("maxItems", math.inf)
    if len(value) > most:
        yield Fault(pointer(*path), f"{len(value)} elements", f"at most {most} elements", most)
    for index, element in enumerate(value):
        yield from _check(element, schema["items"], (*path, index))


_Check = Callable[[Any, dict[str, Any], _Path], Iterator[Fault]]

_CHECKS: tuple[_Check, ...] = (
    _check_enum,
    _check_number,
    _check_pattern,
    _check_object,
    _check_condition,
    _check_array,
)
