"""Decodes the frames of a session."""

from collections.abc import Sequence
from typing import Any

import numpy as np

from . import _members
from ._board_clock import Arrival
from ._item_reading import ItemReading, read_item
from ._layout import SAMPLE_SIZE, SessionMetadata
from ._messages import Payload
from .errors import ProtocolError
from .frame import Item, ItemLayout, places_of
from .truth import ItemTruth


_SAMPLE_PART = np.dtype("<i2")


class FrameDecoder:
    """Splits the frame messages of a session into items."""

    def __init__(self, metadata: SessionMetadata, ticks_per_second: float) -> None:
        self.places = places_of(metadata.layouts)
        self._frame_size = metadata.frame_size
        self._ticks_per_second = ticks_per_second
        self._group_sizes: list[int] = []
        self._parts: list[tuple[ItemLayout, int, tuple[int, int, int]]] = []
        self._unknown_truth = (None,) * len(metadata.layouts)
        offset = 0
        for layout in metadata.layouts:
            self._group_sizes[layout.group :] = [layout.index + 1]
            self._parts.append((layout, offset, (layout.sweeps, layout.points, 2)))
            offset += layout.frame_length * SAMPLE_SIZE

    def read(self, header: dict[str, Any], payload: Payload) -> list[ItemReading]:
        """What the header of a frame message reports about each item.

        Raises ProtocolError if the message does not have the structure and length that the metadata
        announced, or "missing" is wrong.
        """
        _members.to_integer(header.get("missing", 0), "missing", *_members.UINT32)
        if len(payload) != self._frame_size:
            raise ProtocolError(
                f"A frame has {len(payload)} bytes of samples, but the session metadata announced "
                f"{self._frame_size}."
            )
        groups = _members.array(header, "result_info")
        _check_length(groups, len(self._group_sizes), "groups")
        readings: list[ItemReading] = []
        for group, size in zip(groups, self._group_sizes, strict=True):
            _check_length(group, size, "items in a group")
            readings.extend(map(read_item, group))
        return readings

    def items(
        self,
        readings: list[ItemReading],
        payload: Payload,
        time: float,
        truth: Sequence[ItemTruth | None] | None = None,
        arrival: Arrival | None = None,
    ) -> tuple[Item, ...]:
        """The items of a frame that arrived, whose first one was measured at a time in seconds."""
        items = []
        parts = zip(readings, self._parts, truth or self._unknown_truth, strict=True)
        for reading, (layout, offset, shape), item_truth in parts:
            items.append(
                Item(
                    layout,
                    np.ndarray(shape, _SAMPLE_PART, payload, offset),
                    reading.tick,
                    time + self._seconds_between(readings[0].tick, reading.tick),
                    reading.temperature,
                    reading.flags,
                    reading.cca_value,
                    item_truth,
                    reading.utc or arrival,
                )
            )
        return tuple(items)

    def _seconds_between(self, tick: int, other: int) -> float:
        """The items of a frame are measured within a short time of each other, in any order."""
        if tick == other or not self._ticks_per_second > 0.0:
            return 0.0
        return ((other - tick + 2**31) % 2**32 - 2**31) / self._ticks_per_second


def _check_length(array: object, expected: int, what: str) -> None:
    count = len(array) if isinstance(array, list) else 0
    if count != expected:
        raise ProtocolError(f"A frame has {count} {what}, but the session metadata announced {expected}.")
