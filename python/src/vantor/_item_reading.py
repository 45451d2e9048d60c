"""What a frame header reports about one item."""

import functools
from dataclasses import dataclass
from typing import Any

from . import _members
from ._board_clock import MOST_UTC, KnownUtc
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
    utc: KnownUtc | None = None


def is_moment(seconds: float) -> bool:
    """Whether a number can be `utc_s`."""
    return abs(seconds) < MOST_UTC


def is_bound(seconds: float) -> bool:
    """Whether a number can be `utc_bound_s`."""
    return 0.0 <= seconds < MOST_UTC


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
        _read_time(members),
    )


def _read_time(members: Any) -> KnownUtc | None:
    """The time of an item; None if it has none."""
    if "utc_s" not in members and "utc_bound_s" not in members:
        return None
    moment, bound = _members.number(members, "utc_s"), _members.number(members, "utc_bound_s")
    if not is_moment(moment):
        raise _members.refusal("utc_s", f"a time less than {MOST_UTC:.0f} s from 1970")
    if not is_bound(bound):
        raise _members.refusal("utc_bound_s", f"a number from 0 to below {MOST_UTC:.0f}")
    return KnownUtc(moment, bound)
