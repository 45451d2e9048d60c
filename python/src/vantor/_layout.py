"""Decodes the metadata of a session, and checks that they are consistent."""

import math
from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any

import numpy as np

from . import _members
from ._items import ConfiguredItem, SubsweepRange, list_items, sensor_frame_rate
from ._messages import LARGEST_PAYLOAD
from ._sensor import figure
from .calibration import Calibration
from .errors import ConfigurationError, ProtocolError
from .frame import Floats, ItemLayout, Subsweep

#: Bytes of a complex sample.
SAMPLE_SIZE = 4

#: Most values of a session's metadata: more do not fit into the documents of a recording.
_MOST_VALUES = 50_000

_LONGEST_STEP_M = 1.0


@dataclass(frozen=True, slots=True, eq=False)
class SessionMetadata:
    """What a server reports once for a session, before the first frame.

    Attributes:
        tick_period: ticks between two frames if the server paces them, otherwise 0.
        calibrations: of the sensors of the session.
        layouts: of the items of all groups, in the order used in frames.
        document: the complete message, as received.
    """

    tick_period: int
    calibrations: tuple[Calibration, ...]
    layouts: tuple[ItemLayout, ...]
    document: dict[str, Any]

    @property
    def frame_size(self) -> int:
        """Bytes of the samples of all items in one frame."""
        return SAMPLE_SIZE * sum(layout.frame_length for layout in self.layouts)


@dataclass(frozen=True, slots=True)
class _AnnouncedItem:
    """An item as the server describes it; lengths in samples."""

    group: int
    index: int
    calibration_temperature: int
    frame_length: int
    sweep_length: int
    max_sweep_rate: float
    high_speed_mode: bool
    base_step_m: float
    subsweeps: tuple[Subsweep, ...]


def describe_session(document: dict[str, Any], configuration: dict[str, Any]) -> SessionMetadata:
    """Decodes a session metadata message of a server; raises ProtocolError as decode_metadata().

    It also raises it if the session does not measure what was requested.
    """
    metadata = decode_metadata(document, configuration)
    _check_requested(metadata.layouts, configuration)
    return metadata


def decode_metadata(document: dict[str, Any], configuration: dict[str, Any]) -> SessionMetadata:
    """Decodes a session metadata message, and adds what follows from the configuration document.

    Raises ProtocolError if a member is missing or out of range, or the lengths are inconsistent.
    """
    if _count_values(document) > _MOST_VALUES:
        raise ProtocolError(f"The session metadata have more than {_MOST_VALUES} values.")
    announced = list(_decode_items(_members.array(document, "metadata")))
    _check_frame_size(announced)
    return SessionMetadata(
        tick_period=_members.integer(document, "tick_period", _members.UINT32),
        calibrations=_decode_calibrations(document),
        layouts=_lay_out(announced, configuration),
        document=document,
    )


def nominal_frame_rate(
    configuration: dict[str, Any], metadata: SessionMetadata, ticks_per_second: float
) -> float:
    """The rate in hertz at which frames are due, by the pace of server or sensors; 0 if unknown."""
    if metadata.tick_period > 0:
        return ticks_per_second / metadata.tick_period
    try:
        return sensor_frame_rate(list_items(configuration))
    except ConfigurationError:
        return 0.0


def _count_values(document: object) -> int:
    """Number of values of a document, including those in arrays and objects."""
    if isinstance(document, dict):
        return 1 + sum(map(_count_values, document.values()))
    if isinstance(document, list):
        return 1 + sum(map(_count_values, document))
    return 1


def _decode_calibrations(document: dict[str, Any]) -> tuple[Calibration, ...]:
    """The calibrations; none if the board has no sensors."""
    if "calibration_info" not in document:
        return ()
    return tuple(
        Calibration(
            sensor_id=_members.integer(entry, "sensor_id", _members.UINT16),
            temperature=_members.integer(entry, "temperature", _members.INT16),
            data=_members.text(entry, "data"),
        )
        for entry in _members.array(document, "calibration_info")
    )


def _decode_items(groups: list[Any]) -> Iterator[_AnnouncedItem]:
    for group_index, group in enumerate(groups):
        if not isinstance(group, list) or not group:
            raise ProtocolError("The session metadata has a group that is not a list of items.")
        for index, members in enumerate(group):
            yield _decode_item(members, group_index, index)


def _decode_item(members: object, group: int, index: int) -> _AnnouncedItem:
    temperature = _members.integer(members, "calibration_temperature", _members.INT16)
    frame_length = _members.length(members, "frame_data_length")
    sweep_length = _members.length(members, "sweep_data_length")
    item = _AnnouncedItem(
        group=group,
        index=index,
        calibration_temperature=temperature,
        frame_length=frame_length,
        sweep_length=sweep_length,
        max_sweep_rate=_decode_rate(members, "max_sweep_rate"),
        high_speed_mode=_members.boolean(members, "high_speed_mode"),
        base_step_m=_decode_step(members, "base_step_length_m"),
        subsweeps=_decode_subsweeps(members, sweep_length),
    )
    if (frame_length > 0) != (sweep_length > 0) or sweep_length and frame_length % sweep_length:
        raise ProtocolError(
            f"The session metadata announces frames of {frame_length} samples, not a multiple of the "
            f"{sweep_length} samples of a sweep."
        )
    return item


def _decode_rate(members: object, name: str) -> float:
    """A rate; NaN if it is not reported, or 0."""
    rate = _members.number(members, name)
    if rate < 0.0:
        raise ProtocolError(f'The session metadata have a negative "{name}": {rate:g}.')
    return rate or math.nan


def _decode_step(members: object, name: str) -> float:
    """The distance of a base step in metres; NaN if the server does not know it."""
    length_m = _members.number(members, name)
    if length_m <= 0.0 or length_m > _LONGEST_STEP_M:
        raise ProtocolError(f'The session metadata have an impossible "{name}": {length_m:g}.')
    return length_m


def _decode_subsweeps(members: object, sweep_length: int) -> tuple[Subsweep, ...]:
    offsets = _members.array(members, "subsweep_data_offset")
    lengths = _members.array(members, "subsweep_data_length")
    if len(offsets) != len(lengths):
        raise ProtocolError(
            f"The session metadata has {len(offsets)} sub-sweep offsets but {len(lengths)} lengths."
        )
    subsweeps = []
    end = 0
    for given_offset, given_length in zip(offsets, lengths, strict=True):
        offset = _members.to_integer(given_offset, "subsweep_data_offset", 0, sweep_length)
        length = _members.to_integer(given_length, "subsweep_data_length", 0, sweep_length - offset)
        if offset < end:
            raise ProtocolError("The session metadata has sub-sweeps that overlap.")
        end = offset + length
        subsweeps.append(Subsweep(offset, length))
    return tuple(subsweeps)


def _check_frame_size(items: list[_AnnouncedItem]) -> None:
    """Raises an error if no message can contain the frames. This also limits their memory."""
    size = SAMPLE_SIZE * sum(item.frame_length for item in items)
    if size > LARGEST_PAYLOAD:
        raise ProtocolError(
            f"The session metadata announce frames of {size} bytes, more than the {LARGEST_PAYLOAD} bytes "
            "that a message can have."
        )


def _lay_out(announced: list[_AnnouncedItem], configuration: dict[str, Any]) -> tuple[ItemLayout, ...]:
    """The layouts of all items, as far as the configuration describes them."""
    unknown = ConfiguredItem(0, 0.0, 0.0, ())
    configured = [*(_list_usable_items(configuration) or []), *([unknown] * len(announced))]
    return tuple(_layout(*pair) for pair in zip(announced, configured, strict=False))


def _list_usable_items(configuration: dict[str, Any]) -> list[ConfiguredItem] | None:
    """The items of a configuration; None if it has some that the host cannot use, but the server accepts."""
    try:
        return list_items(configuration)
    except ConfigurationError:
        return None


def _check_requested(layouts: tuple[ItemLayout, ...], configuration: dict[str, Any]) -> None:
    """Raises an error if a session does not measure what was requested."""
    configured = _list_usable_items(configuration)
    if configured is None:
        return
    if len(configured) != len(layouts):
        raise ProtocolError(
            f"The session metadata describe {len(layouts)} items, but the configuration has "
            f"{len(configured)}: another program may be using the same link."
        )
    for pair in zip(layouts, configured, strict=True):
        _check_subsweeps(*pair)


def _check_subsweeps(item: ItemLayout, configured: ConfiguredItem) -> None:
    """Raises an error if an item does not have the sub-sweeps that were requested."""
    pairs = zip(item.subsweeps, configured.subsweeps, strict=False)
    if len(item.subsweeps) != len(configured.subsweeps) or not all(_is_requested(*pair) for pair in pairs):
        raise ProtocolError(
            "The session metadata describe other sub-sweeps than the configuration requests, in group "
            f"{item.group + 1}, item {item.index + 1}: it may be another server at the same address, or "
            "another program may be using the same link."
        )


def _is_requested(subsweep: Subsweep, configured: SubsweepRange) -> bool:
    # The server takes another number from one that is not possible.
    return not 0 < configured.num_points <= 65535 or subsweep.length == configured.num_points


def _layout(item: _AnnouncedItem, configured: ConfiguredItem) -> ItemLayout:
    return ItemLayout(
        group=item.group,
        index=item.index,
        sensor_id=configured.sensor_id,
        sweeps=item.frame_length // item.sweep_length if item.sweep_length else 0,
        subsweeps=item.subsweeps,
        distances_m=_distances(item, configured),
        sweep_rate_hz=configured.sweep_rate if configured.sweep_rate > 0.0 else item.max_sweep_rate,
        max_sweep_rate_hz=item.max_sweep_rate,
        wavelength_m=figure("wavelength"),
        base_step_m=item.base_step_m,
        high_speed_mode=item.high_speed_mode,
        calibration_temperature=item.calibration_temperature,
    )


def _distances(item: _AnnouncedItem, configured: ConfiguredItem) -> Floats:
    distances = np.full(item.sweep_length, math.nan)
    for subsweep, requested in zip(item.subsweeps, configured.subsweeps, strict=False):
        steps = requested.start_point + np.arange(subsweep.length, dtype=np.float64) * requested.step_length
        distances[subsweep.points] = steps * item.base_step_m
    distances.flags.writeable = False
    return distances
