"""The two documents that describe the sensor, which the C++ programs read too."""

import functools
import json
from importlib import resources
from typing import Any

from .errors import Error, reason_of


@functools.cache
def configuration_schema() -> dict[str, Any]:
    """The schema of configuration documents, docs/configuration.schema.json."""
    return _read("configuration.schema.json")


@functools.cache
def sensor_knowledge() -> dict[str, Any]:
    """Sensor figures, and the rules between members of a configuration, docs/k330.json."""
    return _read("k330.json")


def _read(name: str) -> dict[str, Any]:
    try:
        text = (resources.files("vantor") / "data" / name).read_text("utf-8")
    except OSError as failure:
        raise Error(f"Cannot read {name} of the package: {reason_of(failure)}.") from None
    document: dict[str, Any] = json.loads(text)
    return document
