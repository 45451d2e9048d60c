"""Reads frame headers that differ from an earlier one only in the values of their items, without decoding JSON.

The headers of a session have one form. To match it takes a fraction of the time of a JSON decoder, whose objects
would be read once and dropped.
"""

import functools
import json
import re
from collections.abc import Iterable
from operator import itemgetter
from typing import Any

from ._item_reading import ItemReading, flags_of
from .frame import Flags

#: How servers write values. Other notations are left to the JSON decoder, and so is "-0", which has no sign there.
_INTEGER = "(0|-?[1-9][0-9]{0,9})"
_NUMBER = r"((?!-0[,}])-?(?:0|[1-9][0-9]{0,15})(?:\.[0-9]{1,20})?(?:e[-+]?[0-9]{1,2})?)"
_BOOLEAN = "(true|false)"

#: The flags of an item, in the order of `Flags`.
_FLAGS = ("data_saturated", "frame_delayed", "calibration_needed", "data_valid", "cca_detected", "tx_enabled")

#: The values of an item.
_VALUES = {
    "tick": _INTEGER,
    "temperature": _INTEGER,
    "cca_value": _NUMBER,
    **dict.fromkeys(_FLAGS, _BOOLEAN),
}


class _Places:
    """Where the texts of an item's values are among those of all items."""

    def __init__(self, names: list[str], first: int) -> None:
        # A value that the item does not have is taken from the end, where there is None.
        places = {name: place for place, name in enumerate(names, first)}
        self.tick = places["tick"]
        self.temperature = places["temperature"]
        self.cca_value = places.get("cca_value", -1)
        self.flags = itemgetter(*(places.get(name, -1) for name in _FLAGS))


class HeaderForm:
    """The form of the frame headers of a session.

    Attributes:
        payload_size: the payload size that all headers of this form announce.
        common: such a header without its items.
    """

    def __init__(self, header: dict[str, Any]) -> None:
        """Takes the form of a frame header whose items can be read."""
        self.payload_size: int = header["payload_size"]
        self.common = {name: value for name, value in header.items() if name != "result_info"}
        self._pattern = re.compile(f"{_header_pattern(header)}\n".encode())
        self._items: list[_Places] = []
        count = 0
        for item in (item for group in header["result_info"] for item in group):
            names = [name for name in item if name in _VALUES]
            self._items.append(_Places(names, count))
            count += len(names)

    def read(self, buffer: bytearray, start: int, end: int) -> tuple[list[ItemReading], int] | None:
        """What the header at the start of some bytes reports, and where its line ends.

        None if it is not complete, has another form, or a value is out of range.
        """
        found = self._pattern.match(buffer, start, end)
        if found is None:
            return None
        texts: tuple[Any, ...] = (*found.groups(), None)
        readings = []
        for places in self._items:
            tick, temperature = int(texts[places.tick]), int(texts[places.temperature])
            if not (0 <= tick < 2**32 and -(2**15) <= temperature < 2**15):
                return None
            cca_text = texts[places.cca_value]
            cca_value = None if cca_text is None else float(cca_text)
            readings.append(ItemReading(tick, temperature, _flags(places.flags(texts)), cca_value))
        return readings, found.end()


@functools.cache
def _flags(texts: tuple[bytes | None, ...]) -> Flags:
    """Flags by their texts."""
    return flags_of(*(None if text is None else text == b"true" for text in texts))


def _header_pattern(header: dict[str, Any]) -> str:
    """A pattern for headers that differ from this one in the values of their items only."""
    members = []
    for name, value in header.items():
        pattern = _array_pattern(map(_group_pattern, value)) if name == "result_info" else _literally(value)
        members.append(f"{_literally(name)}:{pattern}")
    return _object_pattern(members)


def _group_pattern(items: list[dict[str, Any]]) -> str:
    return _array_pattern(map(_item_pattern, items))


def _item_pattern(item: dict[str, Any]) -> str:
    return _object_pattern(
        f"{_literally(name)}:{_VALUES.get(name) or _literally(value)}" for name, value in item.items()
    )


def _array_pattern(elements: Iterable[str]) -> str:
    return rf"\[{','.join(elements)}\]"


def _object_pattern(members: Iterable[str]) -> str:
    return rf"\{{{','.join(members)}\}}"


def _literally(value: Any) -> str:
    """A pattern for a value as servers write it."""
    return re.escape(json.dumps(value, separators=(",", ":"), ensure_ascii=False))
