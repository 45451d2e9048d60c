"""What a frame header reports about one item."""

import functools
from dataclasses import dataclass

from . import _members
from .frame import Flags

#: The flags with these values. Most frames have the same.
flags_of = functools.cache(Flags)


@dataclass(slots=True)
class ItemReading:
    """What a frame header reports about one item."""

    tick: int
    temperature: int
    flags: Flags
    cca_value: float | None = None


def read_item(members: object) -> ItemReading:
    """What an object of a frame header reports; raises ProtocolError if a member is missing or wrong."""
    return ItemReading(
        _members.integer(members, "tick", _members.UINT32),
        _members.integer(members, "temperature", _members.INT16),
        flags_of(
            _members.boolean(members, "data_saturated"),
            _members.boolean(members, "frame_delayed"),
            _members.boolean(members, "calibration_needed"),
            _members.optional_boolean(members, "data_valid"),
            _members.optional_boolean(members, "cca_detected"),
            _members.optional_boolean(members, "tx_enabled"),
        ),
        _members.optional_number(members, "cca_value"),
    )
