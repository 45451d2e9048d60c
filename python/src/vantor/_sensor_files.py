"""The two documents that describe the sensor, which the C++ programs read too."""

import functools
import json
from importlib import resources
from typing import Any


@functools.cache
def configuration_schema() -> dict[str, Any]:
    """The schema of configuration documents, docs/configuration.schema.json."""
    return _read("configuration.schema.json")


@functools.cache
def sensor_knowledge() -> dict[str, Any]:
    """Sensor figures, and the rules between members of a configuration, docs/k330.json."""
    return _read("k330.json")


def _read(name: str) -> dict[str, Any]:
    document: dict[str, Any] = json.loads((resources.files("vantor") / "data" / name).read_text("utf-8"))
    return document
