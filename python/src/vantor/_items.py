"""Lists the items of a configuration document, as far as the host needs them."""

from dataclasses import dataclass
from typing import Any

import numpy as np

from ._sensor import member_schema
from .errors import ConfigurationError

_INT32 = (-(2**31), 2**31 - 1)


@dataclass(frozen=True, slots=True)
class SubsweepRange:
    """Positions of the points of a sub-sweep, in base steps; their number need not be possible."""

    num_points: int
    start_point: int
    step_length: int


@dataclass(frozen=True, slots=True)
class ConfiguredItem:
    """An item of a document; its rates in hertz are 0 if they are not set."""

    sensor_id: int
    frame_rate: float
    sweep_rate: float
    subsweeps: tuple[SubsweepRange, ...]


def list_items(configuration: dict[str, Any]) -> list[ConfiguredItem]:
    """The items of a document that a server has accepted, in the order used in frames.

    Raises ConfigurationError if it is not such a document: a server also accepts some items that it cannot
    use.
    """
    groups = _require(configuration.get("groups", []), list, "/groups", "a list")
    return [
        _read_item(item, f"/groups/{group_index}/{index}")
        for group_index, group in enumerate(groups)
        for index, item in enumerate(_require(group, list, f"/groups/{group_index}", "a list"))
    ]


def sensor_frame_rate(items: list[ConfiguredItem]) -> float:
    """The rate at which the sensors deliver frames in hertz, rounded as in the server; 0 if none is set."""
    rates = [float(np.float32(item.frame_rate)) for item in items]
    return min((rate for rate in rates if rate > 0.0), default=0.0)


def _read_item(item: object, place: str) -> ConfiguredItem:
    members = _require(item, dict, place, "an object")
    config = _require(members.get("config"), dict, f"{place}/config", "an object")
    subsweeps = config.get("subsweeps", [config])
    ranges = []
    for index, subsweep in enumerate(_require(subsweeps, list, f"{place}/config/subsweeps", "a list")):
        ranges.append(_read_range(_require(subsweep, dict, f"{place}/config/subsweeps/{index}", "an object")))
    return ConfiguredItem(
        sensor_id=_integer(members, "sensor_id", 0),
        frame_rate=_number(config, "frame_rate", 0.0),
        sweep_rate=_number(config, "sweep_rate", 0.0),
        subsweeps=tuple(ranges),
    )


def _read_range(subsweep: dict[str, Any]) -> SubsweepRange:
    return SubsweepRange(
        num_points=_integer(subsweep, "num_points", member_schema("num_points")["default"]),
        start_point=_integer(subsweep, "start_point", member_schema("start_point")["default"]),
        # The server uses 16 bits of this one.
        step_length=_integer(subsweep, "step_length", member_schema("step_length")["default"]) & 0xFFFF,
    )


def _require(value: Any, kind: type, place: str, description: str) -> Any:
    if not isinstance(value, kind):
        raise ConfigurationError(f"The configuration cannot be used: {place} must be {description}.")
    return value


def _number(members: dict[str, Any], name: str, otherwise: float) -> float:
    """A member as a number, or another one if it is missing or not a number."""
    value = members.get(name)
    return float(value) if type(value) is int or type(value) is float else otherwise


def _integer(members: dict[str, Any], name: str, otherwise: int) -> int:
    """A member as a whole number like in the server: limited to the range of the type."""
    lowest, highest = _INT32
    return int(min(max(_number(members, name, otherwise), lowest), highest))
