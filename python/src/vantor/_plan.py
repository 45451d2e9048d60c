"""The figures that follow from a configuration document: distances, times, rates, velocities and sizes."""

from __future__ import annotations

import math
from collections import defaultdict
from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np
from numpy.typing import NDArray

from . import _sensor
from ._fault import Fault, pointer
from ._items import list_items, sensor_frame_rate
from ._json_text import dump
from ._places import Places, find_place, has_place
from ._schema_check import is_number, to_float32

_Members = dict[str, Any]

_MEASURING_SHARE = 0.8
"""The part of a frame period that sensors can measure; the rest is for reading out and sending the frame."""

_ROUNDING_ERROR = 1e-6


@dataclass(frozen=True, slots=True)
class SubsweepPlan:
    """A sub-sweep of an item.

    Attributes:
        offset: position of its first sample in a sweep.
        length: number of points.
        first_m: distance of the first point.
        last_m: distance of the last point.
        step_m: distance between two points.
        pulse_width_m: targets closer than this to each other look like one.
        unambiguous_m: greatest distance with an echo that arrives before the next pulse.
    """

    offset: int
    length: int
    first_m: float
    last_m: float
    step_m: float
    pulse_width_m: float
    unambiguous_m: float

    @property
    def points_per_pulse(self) -> float:
        """Number of points in the width of a pulse."""
        return self.pulse_width_m / self.step_m


@dataclass(frozen=True, slots=True)
class ItemPlan:
    """An item of a session. Durations and rates are those of the simulated sensor.

    Attributes:
        group: index of the item's group, from 0.
        index: index of the item in its group, from 0.
        sensor_id: number of the sensor on the board, from 1.
        sweeps: number of sweeps in a frame.
        points: number of samples in a sweep.
        high_speed_mode: whether the sensor measures in high-speed mode.
        sweep_s: duration of a sweep, without waking up.
        frame_s: duration of a frame.
        sweep_rate_hz: sweeps per second: the configured rate, or the highest.
        max_sweep_rate_hz: highest number of sweeps per second.
        frame_rate_hz: frames per second at which the sensor itself starts frames; 0 if it does not.
        subsweeps: the sub-sweeps of a sweep.
    """

    group: int
    index: int
    sensor_id: int
    sweeps: int
    points: int
    high_speed_mode: bool
    sweep_s: float
    frame_s: float
    sweep_rate_hz: float
    max_sweep_rate_hz: float
    frame_rate_hz: float
    subsweeps: tuple[SubsweepPlan, ...]

    @property
    def frame_length(self) -> int:
        """Number of complex samples in a frame."""
        return self.points * self.sweeps

    @property
    def max_frame_rate_hz(self) -> float:
        """Frames per second with no time beside measuring."""
        return 1.0 / self.frame_s

    @property
    def greatest_velocity_m_s(self) -> float | None:
        """Velocities below this are shown by the phase without ambiguity; None with a single sweep."""
        return _sensor.velocity_bound(self.sweep_rate_hz) if self.sweeps > 1 else None

    @property
    def smallest_velocity_m_s(self) -> float | None:
        """Velocity by which targets must differ to be told apart; None with a single sweep."""
        if self.sweeps < 2:
            return None
        return 2.0 * _sensor.velocity_bound(self.sweep_rate_hz) / self.sweeps

    @property
    def distances_m(self) -> NDArray[np.float64]:
        """Distance of each point of a sweep in metres, shape (points,)."""
        parts = [part.first_m + part.step_m * np.arange(part.length) for part in self.subsweeps]
        return np.concatenate(parts)


@dataclass(frozen=True, slots=True)
class Plan:
    """What a configuration gives. Rates are in frames per second. Durations, and what follows from them,
    are those of the simulated sensor.

    `plan[group, index]` is an item; iterating gives all of them.

    Attributes:
        frame_rate_hz: configured; 0 for as fast as possible.
        max_frame_rate_hz: with no time beside measuring; 0 without items.
        expected_frame_rate_hz: reached at most: a part of `frame_rate_hz` if every frame makes the server
            leave out others.
        lasting_frame_rate_hz: highest rate that can be configured without leaving frames out.
        link_frame_rate_hz: number of frames that the link carries; None if its baud rate is not given.
        frame_bytes: length of a frame at most, with its header.
        payload_bytes: length of the samples of a frame.
        memory_bytes: heap of a board that the session needs while it measures.
        warnings: what is accepted, but probably not wanted.
        items: the items of all groups, in the order used in frames.
    """

    frame_rate_hz: float
    max_frame_rate_hz: float
    expected_frame_rate_hz: float
    lasting_frame_rate_hz: float
    link_frame_rate_hz: float | None
    frame_bytes: int
    payload_bytes: int
    memory_bytes: int
    warnings: tuple[Fault, ...]
    items: tuple[ItemPlan, ...]

    @property
    def bytes_per_second(self) -> float:
        """Data rate at the expected frame rate."""
        return self.frame_bytes * self.expected_frame_rate_hz

    def __getitem__(self, place: tuple[int, int]) -> ItemPlan:
        """The item at a group and a position in it, both from 0."""
        return self.items[find_place(self._places, place, "plan")]

    def __contains__(self, place: object) -> bool:
        return place in self.items or has_place(self._places, place)

    def __iter__(self) -> Iterator[ItemPlan]:
        return iter(self.items)

    def __len__(self) -> int:
        return len(self.items)

    @property
    def _places(self) -> Places:
        return {(item.group, item.index): place for place, item in enumerate(self.items)}


def derive(document: _Members, baudrate: float | None = None) -> Plan:
    """Derives the figures of a document in which every member is valid."""
    items = tuple(_plan_items(document))
    payload_bytes = sum(int(item.frame_length * _sensor.figure("sample_bytes")) for item in items)
    frame_bytes = payload_bytes + _header_length(document, payload_bytes)
    duration_s = _frame_duration(items)
    highest = 1.0 / duration_s if duration_s > 0.0 else 0.0
    configured = configured_frame_rate(document)
    link_rate = None if baudrate is None else baudrate / 10.0 / frame_bytes
    return Plan(
        frame_rate_hz=configured,
        max_frame_rate_hz=highest,
        expected_frame_rate_hz=_expected_frame_rate(configured, highest),
        lasting_frame_rate_hz=_lasting_frame_rate(highest, link_rate),
        link_frame_rate_hz=link_rate,
        frame_bytes=frame_bytes,
        payload_bytes=payload_bytes,
        memory_bytes=_session_memory(items, payload_bytes),
        warnings=tuple(_find_doubts(document, items, _lasting_frame_rate(highest, None))),
        items=items,
    )


def find_rate_faults(document: _Members) -> Iterator[Fault]:
    """The rates of a document that the sensors cannot reach; all else must be valid."""
    for item in _plan_items(document):
        config = document["groups"][item.group][item.index]["config"]
        place = pointer("groups", item.group, item.index, "config")
        if item.sweep_rate_hz > item.max_sweep_rate_hz:
            reason = "a sweep takes longer with these points"
            yield _too_high(f"{place}/sweep_rate", config["sweep_rate"], item.max_sweep_rate_hz, reason)
        if item.frame_rate_hz > 0.0 and _timer_period(item.frame_rate_hz) < item.frame_s:
            clock = _sensor.figure("timer_clock")
            bound = clock / (math.floor(item.frame_s * clock) + 1.0)
            reason = "a frame takes longer with these points and sweeps"
            yield _too_high(f"{place}/frame_rate", config["frame_rate"], bound, reason)


def list_subsweeps(config: _Members) -> list[_Members]:
    """The sub-sweeps of a "config"; it can be the only one itself."""
    return list(config["subsweeps"]) if "subsweeps" in config else [config]


def _plan_items(document: _Members) -> Iterator[ItemPlan]:
    for group, items in enumerate(document.get("groups", [])):
        for index, item in enumerate(items):
            yield _plan_item(item, group, index)


def _number(members: _Members, name: str) -> float:
    """A number of an object, or its default."""
    return float(_sensor.member_or_default(members, name))


def _figure_of(figure: str, members: _Members, name: str) -> float:
    """A figure that depends on a member of an object."""
    return _sensor.figure(figure, _sensor.member_or_default(members, name))


def _plan_item(document: _Members, group: int, index: int) -> ItemPlan:
    """Derives the figures of an item."""
    config = document["config"]
    subsweeps: list[SubsweepPlan] = []
    for subsweep in list_subsweeps(config):
        subsweeps.append(_plan_subsweep(subsweep, sum(part.length for part in subsweeps)))
    continuous = bool(_sensor.member_or_default(config, "continuous_sweep_mode"))
    idle_state = _sensor.member_or_default(config, "inter_sweep_idle_state")
    high_speed = len(subsweeps) == 1 and not continuous and idle_state == "ready"
    sweeps = int(_number(config, "sweeps_per_frame"))
    sweep_us = _sweep_duration(config, high_speed)
    sweep_wake_us = _figure_of("wake_time", config, "inter_sweep_idle_state")
    highest = 1.0e6 / (sweep_us + sweep_wake_us)
    configured = _number(config, "sweep_rate")
    period_us = max(_timer_period(configured) * 1.0e6 if configured > 0.0 else 0.0, sweep_us + sweep_wake_us)
    wake_us = sweep_wake_us if continuous else _figure_of("wake_time", config, "inter_frame_idle_state")
    assessment_us = _sensor.figure("cca_time") if document.get("cca_enable", False) else 0.0
    return ItemPlan(
        group=group,
        index=index,
        sensor_id=int(min(document["sensor_id"], 2**32 - 1)),
        sweeps=sweeps,
        points=sum(part.length for part in subsweeps),
        high_speed_mode=high_speed,
        sweep_s=sweep_us * 1.0e-6,
        frame_s=(wake_us + assessment_us + (sweeps - 1) * period_us + sweep_us) * 1.0e-6,
        sweep_rate_hz=configured if configured > 0.0 else highest,
        max_sweep_rate_hz=highest,
        frame_rate_hz=_number(config, "frame_rate"),
        subsweeps=tuple(subsweeps),
    )


def _plan_subsweep(subsweep: _Members, offset: int) -> SubsweepPlan:
    """Derives the distances of a sub-sweep."""
    base_step_m = _sensor.figure("base_step")
    length = int(_number(subsweep, "num_points"))
    first_m = _number(subsweep, "start_point") * base_step_m
    step_m = _number(subsweep, "step_length") * base_step_m
    return SubsweepPlan(
        offset=offset,
        length=length,
        first_m=first_m,
        last_m=first_m + (length - 1) * step_m,
        step_m=step_m,
        pulse_width_m=_sensor.figure("pulse_width", str(int(_number(subsweep, "profile")))),
        unambiguous_m=_figure_of("farthest_point", subsweep, "prf") * base_step_m,
    )


def _sweep_duration(config: _Members, high_speed_mode: bool) -> float:
    """Duration of all sub-sweeps of a sweep, in microseconds."""
    mode = "_high_speed" if high_speed_mode else ""
    setup, settling = _sensor.figure("setup_time" + mode), _sensor.figure("settling_pulses" + mode)
    total = 0.0
    for subsweep in list_subsweeps(config):
        pulses = _number(subsweep, "num_points") * (_number(subsweep, "hwaas") + settling)
        total += setup + pulses * 1.0e6 / _figure_of("pulse_frequency", subsweep, "prf")
    return total


def _timer_period(rate: float) -> float:
    """Period of a timer, in seconds."""
    clock = _sensor.figure("timer_clock")
    return math.floor(clock / to_float32(rate) + 0.5) / clock


def configured_frame_rate(document: _Members) -> float:
    """The frame rate of a session: that of its sensors, otherwise that of the server; 0 if there is none."""
    of_sensors = sensor_frame_rate(list_items(document))
    return of_sensors if of_sensors > 0.0 else max(0.0, _update_rate(document)[1])


def _update_rate(document: _Members) -> tuple[str, float]:
    """The member that paces the server, and its value; 0 if it has none."""
    name = "max_update_rate" if "max_update_rate" in document else "update_rate"
    value = document.get(name, 0.0)
    return name, float(value) if is_number(value) else 0.0


def _frame_duration(items: Sequence[ItemPlan]) -> float:
    """Duration of a frame of all items: groups follow each other; sensors of a group measure together."""
    groups: defaultdict[int, defaultdict[int, float]] = defaultdict(lambda: defaultdict(float))
    for item in items:
        groups[item.group][item.sensor_id] += item.frame_s
    total = 0.0
    for sensors in groups.values():
        total += max(sensors.values())
    return total


def _expected_frame_rate(configured: float, highest: float) -> float:
    """The rate that is reached. A server that is late leaves out whole frames."""
    if not configured > 0.0 or not highest > 0.0:
        return highest
    return configured / max(1.0, math.ceil(configured / highest - _ROUNDING_ERROR))


def _lasting_frame_rate(highest: float, link_rate: float | None) -> float:
    """The highest rate at which no frame is left out; 0 without items."""
    if not highest > 0.0:
        return 0.0
    return 1.0 / (1.0 / (highest * _MEASURING_SHARE) + (0.0 if link_rate is None else 1.0 / link_rate))


def _header_length(document: _Members, payload_bytes: int) -> int:
    """Length of the longest header of a frame, docs/protocol.md."""
    always = (
        '{"tick":4294967295,"data_saturated":false,"temperature":-32768,"calibration_needed":false,'
        '"frame_delayed":false},'
    )
    with_assessment = '"data_valid":false,'
    with_details = '"cca_value":-3.40282347e+38,"cca_detected":false,"tx_enabled":false,'
    length = len('{"result_info":[],"status":"ok","payload_size":}') + len(str(payload_bytes)) + 1
    for group in document.get("groups", []):
        length += len("[],")
        for item in group:
            assessed = item.get("cca_enable", False)
            length += len(always) + len(with_assessment) * assessed
            length += len(with_details) * (assessed and item.get("cca_debug", False))
    return length


def _session_memory(items: Sequence[ItemPlan], payload_bytes: int) -> int:
    """Heap that a session needs while it measures."""
    sensors = len({item.sensor_id for item in items})
    memory = sensors * _sensor.figure("sensor_memory") + len(items) * _sensor.figure("item_memory")
    return payload_bytes + int(memory)


def _find_doubts(document: _Members, items: Sequence[ItemPlan], lasting: float) -> Iterator[Fault]:
    """What is accepted, but probably not wanted."""
    if not items:
        yield Fault(
            "/groups",
            "empty",
            'at least one item: without one, nothing is measured, and "vantor record" refuses the document',
        )
        return
    name, rate = _update_rate(document)
    if rate > lasting:
        reason = (
            "a frame that is not measured, read out and sent within the period makes the server leave out "
            "the next one"
        )
        yield _too_high(pointer(name), document[name], lasting, reason)


def _too_high(place: str, got: Any, bound: float, reason: str) -> Fault:
    """Describes a rate that is too high."""
    nearest = _rounded_down(bound)
    return Fault(place, dump(got), f"at most {dump(nearest)}: {reason}", nearest)


def _rounded_down(bound: float) -> float:
    """A bound with few digits, to be printed, and a little lower, so that it is surely allowed."""
    scale = math.pow(10.0, 5.0 - math.floor(math.log10(bound)))
    return math.floor(bound * scale) / scale
