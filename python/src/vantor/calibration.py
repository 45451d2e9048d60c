"""Calibrations of sensors: saved to files, and reused by later sessions.

A calibration is valid while the sensor stays near the temperature at which it was made. The files are those
of `vantor calibrate` and `vantor record --calibration`.
"""

import json
import os
import stat
from collections.abc import Iterable, Sequence
from dataclasses import asdict, dataclass, field
from pathlib import Path
from typing import Any

from ._output_files import write_file
from ._plain_values import copy
from .configuration import load_configuration, validate
from .errors import ConfigurationError


@dataclass(frozen=True, slots=True)
class Calibration:
    """The calibration of a sensor.

    Attributes:
        sensor_id: number of the sensor on the board, from 1.
        temperature: of the sensor during calibration: relative, in °C; use it only to compare with other
            values.
        data: the calibration, two hexadecimal digits for each byte.
    """

    sensor_id: int
    temperature: int
    data: str = field(repr=False)


def save_calibrations(path: str | os.PathLike[str], calibrations: Iterable[Calibration]) -> None:
    """Writes a calibration file; an existing one is replaced when the new one is complete, and keeps its mode.

    Raises:
        ConfigurationError: no session can use these calibrations.
        FileError: the file cannot be written, or is not a regular file.
        TypeError: an argument is of another type.
    """
    file = Path(path)
    document = {"calibration_info": [asdict(entry) for entry in _require_type(calibrations)]}
    if not document["calibration_info"]:
        raise ConfigurationError(f"There are no calibrations to write to {file}.")
    faults = validate(document)
    if faults:
        raise ConfigurationError(f"The calibrations for {file} are not valid:\n{faults[0]}", faults)
    _refuse_repetition(document, f"The list of calibrations for {file}")
    write_file(file, json.dumps(document, indent=2) + "\n")


def _require_type(calibrations: Iterable[Calibration]) -> list[Calibration]:
    """Calibrations as a list; raises TypeError if there is anything else."""
    if not isinstance(calibrations, Iterable):
        raise _wrong_type(type(calibrations).__name__)
    found = list(calibrations)
    for entry in found:
        if not isinstance(entry, Calibration):
            raise _wrong_type(f"{type(calibrations).__name__} with {type(entry).__name__}")
    return found


def _wrong_type(found: str) -> TypeError:
    wanted = "those of a session, or a list of vantor.Calibration"
    return TypeError(f"The calibrations must be {wanted}, not {found}.")


def load_calibrations(path: str | os.PathLike[str]) -> tuple[Calibration, ...]:
    """Reads a calibration file.

    Raises:
        ConfigurationError: the file cannot be read, is not a calibration file, or has two calibrations of a
            sensor.
    """
    file = Path(path)
    if _is_special(file):
        raise ConfigurationError(f"Cannot read {file}: it is not a regular file.")
    document = load_configuration(file)
    _require_calibrations(document, str(file))
    return tuple(
        Calibration(int(entry["sensor_id"]), int(entry.get("temperature", 0)), entry["data"])
        for entry in document["calibration_info"]
    )


def add_calibrations(configuration: dict[str, Any], calibrations: Sequence[Calibration]) -> dict[str, Any]:
    """Returns a copy of a configuration that reuses calibrations.

    Those of sensors that it does not use, or for which it has one already, are left out.

    Raises:
        ConfigurationError: none is needed, although the configuration uses sensors without one.
    """
    document: dict[str, Any] = copy(configuration)
    wanted = _sensors_to_calibrate(document)
    fitting = [asdict(entry) for entry in calibrations if entry.sensor_id in wanted]
    if wanted and not fitting:
        sensors = ", ".join(f"sensor {entry.sensor_id}" for entry in calibrations) or "no sensor"
        raise ConfigurationError(
            f"There are calibrations of {sensors} only, none of which the configuration needs."
        )
    if fitting:
        document["calibration_info"] = [*document.get("calibration_info", []), *fitting]
    return document


def _is_special(file: Path) -> bool:
    """Whether something is a pipe, a device or a socket."""
    try:
        mode = file.stat().st_mode
    except (OSError, ValueError):
        # Reported when it is read.
        return False
    return not stat.S_ISREG(mode) and not stat.S_ISDIR(mode)


def _require_calibrations(document: dict[str, Any], name: str) -> None:
    """Raises ConfigurationError if a document has no calibrations of the right form, or two of a sensor."""
    if "calibration_info" not in document or validate(document):
        raise ConfigurationError(f'{name} is not a calibration file; make one with "vantor calibrate".')
    _refuse_repetition(document, name)


def _refuse_repetition(document: dict[str, Any], name: str) -> None:
    """Raises ConfigurationError if a document has two calibrations of a sensor."""
    seen = set()
    for entry in document["calibration_info"]:
        if entry["sensor_id"] in seen:
            raise ConfigurationError(
                f"{name} contains two calibrations of sensor {entry['sensor_id']}; remove one of them."
            )
        seen.add(entry["sensor_id"])


def _sensors_to_calibrate(document: dict[str, Any]) -> set[int]:
    """The numbers of the sensors that a document uses without a calibration."""
    try:
        used = {item["sensor_id"] for group in document.get("groups", []) for item in group}
        return used - {entry["sensor_id"] for entry in document.get("calibration_info", [])}
    except (AttributeError, KeyError, TypeError):
        raise ConfigurationError(
            "The configuration is not a document with groups of items and a list of calibrations."
        ) from None
