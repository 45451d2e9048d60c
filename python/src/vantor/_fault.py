"""A fault in a configuration document."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

from ._json_text import dump

_LONGEST = 40


@dataclass(frozen=True, slots=True)
class Fault:
    """A fault in a configuration document, or what is allowed in it but probably not wanted.

    Attributes:
        pointer: where it is, as a JSON pointer (RFC 6901); empty for the document itself.
        got: what is there.
        allowed: what is allowed there, or why this is not.
        nearest: the closest allowed value: for an object, the members to change; for a list, a number of
            elements; None if there is none.
    """

    pointer: str
    got: str
    allowed: str
    nearest: Any = None

    def __str__(self) -> str:
        place = "/".join(map(shortened, self.pointer.split("/"))) or "the document"
        nearest = "" if self.nearest is None else f"; nearest: {self._nearest_text()}"
        return f"{place}: got {self.got}; allowed: {self.allowed}{nearest}"

    def _nearest_text(self) -> str:
        """The closest value as JSON, but an object without its braces."""
        if not isinstance(self.nearest, dict):
            return dump(self.nearest)
        return ", ".join(f'"{name}": {dump(value)}' for name, value in self.nearest.items())


def shortened(text: str) -> str:
    """The text, or the start of a long one and an ellipsis: about 40 bytes at most."""
    whole = text.encode("utf-8", "replace")
    if len(whole) <= _LONGEST:
        return text
    return whole[:_LONGEST].decode("utf-8", "ignore") + "…"


def pointer(*parts: object) -> str:
    """A JSON pointer."""
    return "".join("/" + str(part).replace("~", "~0").replace("/", "~1") for part in parts)
