"""Members of configuration documents and figures of the sensor, from the files that C++ programs read too."""

from typing import Any

from ._sensor_files import configuration_schema, sensor_knowledge


def member_schema(name: str) -> dict[str, Any]:
    """The schema of a member of a configuration or of the document."""
    places = configuration_schema()
    found: dict[str, Any] = places["properties" if name in places["properties"] else "$defs"][name]
    return found


def member_or_default(members: dict[str, Any], name: str) -> Any:
    """A member of an object, or its default; None if it has neither."""
    return members[name] if name in members else member_schema(name).get("default")


def figure(name: str, key: str | None = None) -> float:
    """A figure of the sensor, or its value for one value of the member that it depends on."""
    value = sensor_knowledge()["figures"][name]["value"]
    return float(value if key is None else value[key])


def velocity_bound(rate: float) -> float:
    """The velocity in m/s that turns the phase by half a turn between two of `rate` measurements a second."""
    return figure("wavelength") / 4.0 * rate
