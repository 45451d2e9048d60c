"""Configuration documents: what a server measures in one session, docs/configuration.md."""

import os
from itertools import islice
from pathlib import Path
from typing import Any

from . import _plan
from ._fault import Fault
from ._json_text import parse
from ._plain_values import copy
from ._plan import ItemPlan, Plan, SubsweepPlan
from ._rules import find_rule_faults
from ._schema_check import find_schema_faults
from .errors import ConfigurationError, reason_of, with_faults

__all__ = ["Fault", "ItemPlan", "Plan", "SubsweepPlan", "load_configuration", "plan", "validate"]

_LARGEST_DOCUMENT = 2**20
"""In bytes: far more than a server accepts."""

_MOST_FAULTS = 10_000

_Document = dict[str, Any] | str | os.PathLike[str]
"""A document, or the path of its file."""


def load_configuration(path: str | os.PathLike[str]) -> dict[str, Any]:
    """Reads a configuration document from a file, without checking its members.

    Raises:
        ConfigurationError: the file cannot be read, is too large or not JSON, repeats a member or is not an
            object.
    """
    file = Path(path)
    document = parse(_read(file), str(file))
    if not isinstance(document, dict):
        raise ConfigurationError(f"{file} must contain one JSON object, {{ … }}.")
    return document


def validate(document: _Document, most: int = _MOST_FAULTS) -> tuple[Fault, ...]:
    """Finds the faults of a document, the same as `vantor validate`; none if it is valid.

    It is checked against the schema; if each single member is valid, against the rules between members; then
    against the highest rates of a simulated sensor. Which sensors a server has is not checked.

    Args:
        document: built by the program, also with numbers and arrays of NumPy, or the path of its file.
        most: how many faults to return.

    Raises:
        ConfigurationError: the file cannot be read.
    """
    try:
        given = _plain_document(document)
    except ConfigurationError as failure:
        if failure.faults:
            return failure.faults[:most]
        raise
    faults = tuple(islice(find_schema_faults(given), most))
    faults = faults or tuple(islice(find_rule_faults(given), most))
    return faults or tuple(islice(_plan.find_rate_faults(given), most))


def plan(document: _Document, baudrate: float | None = None) -> Plan:
    """Derives the figures of a document, the same as `vantor plan`.

    The effect of "cpd_overrides" is not included.

    Args:
        document: as for `validate`.
        baudrate: of the link, in baud; None if the time that it needs is negligible.

    Raises:
        ConfigurationError: the document is not valid; its `faults` say why.
    """
    given = _plain_document(document)
    require_valid(given)
    return _plan.derive(given, baudrate)


def require_valid(document: dict[str, Any]) -> None:
    """Raises ConfigurationError, which describes the first faults, if a document is not valid."""
    faults = validate(document)
    if faults:
        raise ConfigurationError(with_faults("The configuration is not valid:", faults), faults)


def _plain_document(document: _Document) -> Any:
    """The document in a file, or a copy of one as it arrives at a server."""
    return load_configuration(document) if isinstance(document, (str, os.PathLike)) else copy(document)


def _read(file: Path) -> bytes:
    """Reads a document from a file or a pipe."""
    try:
        with file.open("rb") as stream:
            text = stream.read(_LARGEST_DOCUMENT + 1)
    except IsADirectoryError:
        raise ConfigurationError(f"Cannot read {file}: it is a directory; use a file.") from None
    except (OSError, ValueError) as failure:
        raise ConfigurationError(f"Cannot read {file}: {reason_of(failure)}.") from None
    if len(text) > _LARGEST_DOCUMENT:
        raise ConfigurationError(f"{file} is too large: it has more than 1 MiB.")
    return text
