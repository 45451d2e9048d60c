"""Reads frame headers that differ from an earlier one only in some values, without decoding JSON.

The headers of a session have one form. To match it takes a fraction of the time of a JSON decoder, whose objects
would be read once and dropped.
"""

import functools
import json
import re
from collections.abc import Iterable
from typing import Any

from ._board_clock import KnownUtc
from ._item_reading import ItemReading, is_bound, is_moment, read_item
from .errors import ProtocolError

#: How servers write values. Other notations are left to the JSON decoder, and so is "-0", which has no sign there.
_TICK = "0|[1-9][0-9]{0,9}"
_INTEGER = "(?:0|-?[1-9][0-9]{0,9})"
_NUMBER = r"(?!-0[,}])-?(?:0|[1-9][0-9]{0,15})(?:\.[0-9]{1,20})?(?:e[-+]?[0-9]{1,2})?"
_BOOLEAN = "(?:true|false)"

#: The values of an item that differ from frame to frame.
_MEASUREMENTS = {"tick": _TICK, "cca_value": _NUMBER, "utc_s": _NUMBER, "utc_bound_s": _NUMBER}

#: The values of an item that are mostly those of an earlier frame.
_STATES = {
    "temperature": _INTEGER,
    **dict.fromkeys(
        ("data_saturated", "frame_delayed", "calibration_needed", "data_valid", "cca_detected", "tx_enabled"),
        _BOOLEAN,
    ),
}

#: Number of states that are remembered: temperatures with flags.
_MOST_STATES = 1000


class _Places:
    """Where the texts of an item are among those of all items: the measurements, and what is around them."""

    def __init__(self, item: dict[str, Any], first: int) -> None:
        measurements = [name for name in item if name in _MEASUREMENTS]
        places = {name: first + 1 + 2 * number for number, name in enumerate(measurements)}
        self.tick = places["tick"]
        self.cca_value = places.get("cca_value")
        self.next = first + 2 * len(places) + 1
        self.utc = (places["utc_s"], places["utc_bound_s"]) if "utc_s" in places else None
        self.state = slice(first, self.next, 2)


class HeaderForm:
    """The form of the frame headers of a session.

    Attributes:
        payload_size: the payload size that all headers of this form announce.
        common: such a header without its items.
        counts_missing: whether they have "missing".
    """

    def __init__(self, header: dict[str, Any]) -> None:
        """Takes the form of a frame header whose items can be read."""
        self.payload_size: int = header["payload_size"]
        self.common = {name: value for name, value in header.items() if name != "result_info"}
        self._pattern = re.compile(f"{_header_pattern(header)}\n".encode())
        self._items: list[_Places] = []
        self.counts_missing = "missing" in header
        # It is a value before those of the items, or after them.
        is_before = self.counts_missing and [*header].index("missing") < [*header].index("result_info")
        first = int(is_before)
        for item in (item for group in header["result_info"] for item in group):
            self._items.append(_Places(item, first))
            first = self._items[-1].next
        self._missing = 0 if is_before else first

    def read(
        self, buffer: bytearray, start: int, end: int
    ) -> tuple[dict[str, Any], list[ItemReading], int] | None:
        """The header at the start of some bytes without its items, what it reports about these, and its end.

        None if it is not complete, has another form, or a value is out of range.
        """
        found = self._pattern.match(buffer, start, end)
        if found is None:
            return None
        texts = found.groups()
        header = self.common
        if self.counts_missing:
            missing = int(texts[self._missing])
            if not 0 <= missing < 2**32:
                return None
            header = {**header, "missing": missing}
        readings = []
        for places in self._items:
            tick, state = int(texts[places.tick]), _read_state(texts[places.state])
            if tick >= 2**32 or state is None:
                return None
            cca_value = None if places.cca_value is None else float(texts[places.cca_value])
            utc = None
            if places.utc is not None:
                moment, bound = float(texts[places.utc[0]]), float(texts[places.utc[1]])
                if not (is_moment(moment) and is_bound(bound)):
                    return None
                utc = KnownUtc(moment, bound)
            readings.append(ItemReading(tick, state.temperature, state.flags, cca_value, utc))
        return header, readings, found.end()


@functools.lru_cache(_MOST_STATES)
def _read_state(parts: tuple[bytes, ...]) -> ItemReading | None:
    """What an item reports with zeros as measurements, by the parts of its text around these.

    None if a value is out of range.
    """
    try:
        return read_item(json.loads(b"0".join(parts)))
    except ProtocolError:
        return None


def _header_pattern(header: dict[str, Any]) -> str:
    """A pattern for headers that differ from this one in "missing" and the values of their items only."""
    members = []
    for name, value in header.items():
        if name == "result_info":
            pattern = _array_pattern(map(_group_pattern, value))
        else:
            pattern = f"({_INTEGER})" if name == "missing" else _literally(value)
        members.append(f"{_literally(name)}:{pattern}")
    return _object_pattern(members)


def _group_pattern(items: list[dict[str, Any]]) -> str:
    return _array_pattern(map(_item_pattern, items))


def _item_pattern(item: dict[str, Any]) -> str:
    members = []
    for name, value in item.items():
        if name in _MEASUREMENTS:
            pattern = f")({_MEASUREMENTS[name]})("
        else:
            pattern = _STATES.get(name) or _literally(value)
        members.append(f"{_literally(name)}:{pattern}")
    return f"({_object_pattern(members)})"


def _array_pattern(elements: Iterable[str]) -> str:
    return rf"\[{','.join(elements)}\]"


def _object_pattern(members: Iterable[str]) -> str:
    return rf"\{{{','.join(members)}\}}"


def _literally(value: Any) -> str:
    """A pattern for a value as servers write it."""
    return re.escape(json.dumps(value, separators=(",", ":"), ensure_ascii=False))
