"""Tests of the typed form of a server's messages."""

import copy
import math

import numpy as np
import pytest

import vantor
from scripted_server import example_configuration, example_metadata, frame_header, frame_payload, identity
from vantor._frames import FrameDecoder
from vantor._layout import decode_metadata, describe_session, nominal_frame_rate
from vantor.server_info import decode_server_info


def describe(metadata):
    return describe_session(metadata, example_configuration())


def decode(header, payload):
    """The items of a frame of the example session."""
    decoder = FrameDecoder(describe(example_metadata()), 1e6)
    data = np.frombuffer(payload, np.uint8)
    return decoder.items(decoder.read(header, data), data, 0.0)


def test_reads_metadata():
    metadata = describe(example_metadata())
    assert metadata.tick_period == 20000
    assert metadata.calibrations == (vantor.Calibration(1, 24, "a" * 480),)
    first, second, third = metadata.layouts
    assert (first.frame_length, first.points, first.sweeps, first.sensor_id) == (40, 20, 2, 1)
    assert first.high_speed_mode and first.max_sweep_rate_hz == 3125.5 and first.base_step_m == 0.0025
    assert first.sweep_rate_hz == 3125.5
    assert (second.group, second.index) == (0, 1)
    assert second.subsweeps == (vantor.Subsweep(0, 10), vantor.Subsweep(10, 15))
    assert (third.group, third.index) == (1, 0)
    assert metadata.frame_size == 380


def test_computes_distances():
    first, second, third = describe(example_metadata()).layouts
    np.testing.assert_allclose(first.distances_m, np.arange(100, 180, 4) * 0.0025)
    np.testing.assert_allclose(second.distances_m[:10], np.arange(60, 80, 2) * 0.0025)
    np.testing.assert_allclose(second.distances_m[10:], np.arange(200, 320, 8) * 0.0025)
    np.testing.assert_allclose(third.distances_m, np.arange(-41, -11) * 0.0025)


def test_leaves_distances_outside_of_subsweeps_unknown():
    metadata = example_metadata()
    item = metadata["metadata"][1][0]
    item["frame_data_length"] = item["sweep_data_length"] = 32
    item["subsweep_data_offset"] = [1]
    distances = describe(metadata).layouts[2].distances_m
    assert np.isnan(distances[[0, 31]]).all() and np.isfinite(distances[1:31]).all()


def test_uses_the_sweep_rate_of_the_configuration():
    configuration = example_configuration()
    configuration["groups"][0][0]["config"]["sweep_rate"] = 1000
    assert describe_session(example_metadata(), configuration).layouts[0].sweep_rate_hz == 1000.0


def test_reads_metadata_without_sensors_and_groups():
    metadata = describe_session({"status": "ok", "tick_period": 0, "payload_size": 0, "metadata": []}, {})
    assert metadata.calibrations == () == metadata.layouts and metadata.frame_size == 0


@pytest.mark.parametrize("configuration, period, ticks_per_second, rate", [
    ({}, 0, 1e6, 0.0), ({}, 20000, 1e6, 50.0), ({}, 20000, 0.0, 0.0),
    ({"groups": [[{"config": {"frame_rate": 10.1}}, {"config": {"frame_rate": 20}}]]}, 0, 1e6, float(np.float32(10.1))),
    ({"groups": [[{"config": None}]]}, 0, 1e6, 0.0)])
def test_knows_the_rate_at_which_frames_are_due(configuration, period, ticks_per_second, rate):
    metadata = describe(example_metadata(period))
    assert nominal_frame_rate(configuration, metadata, ticks_per_second) == rate


def first_item(metadata):
    return metadata["metadata"][0][0]


def second_item(metadata):
    return metadata["metadata"][0][1]


@pytest.mark.parametrize("spoil, reason", [
    (lambda m: m.pop("tick_period"), "tick_period"),
    (lambda m: m.update(tick_period=-1), "tick_period"),
    (lambda m: m.update(tick_period=2**32), "tick_period"),
    (lambda m: m.update(tick_period=True), "tick_period"),
    (lambda m: m.update(calibration_info=3), "calibration_info"),
    (lambda m: m["calibration_info"][0].update(data=3), "data"),
    (lambda m: m.update(metadata={}), "metadata"),
    (lambda m: m["metadata"].__setitem__(1, []), "not a list of items"),
    (lambda m: m["metadata"][0].__setitem__(0, 1), "calibration_temperature"),
    (lambda m: first_item(m).update(frame_data_length=41), "multiple"),
    (lambda m: first_item(m).update(frame_data_length=0), "multiple"),
    (lambda m: first_item(m).update(frame_data_length=65536), "frame_data_length"),
    (lambda m: first_item(m).update(sweep_data_length=0), ""),
    (lambda m: first_item(m).update(high_speed_mode=1), "high_speed_mode"),
    (lambda m: first_item(m).update(max_sweep_rate="fast"), "max_sweep_rate"),
    (lambda m: first_item(m).update(max_sweep_rate=10**400), "max_sweep_rate"),
    (lambda m: first_item(m).update(max_sweep_rate=-5), 'negative "max_sweep_rate": -5'),
    (lambda m: first_item(m).update(base_step_length_m=-1e300), 'impossible "base_step_length_m": -1e\\+300'),
    (lambda m: first_item(m).update(base_step_length_m=0), "base_step_length_m"),
    (lambda m: first_item(m).update(base_step_length_m=1.5), "base_step_length_m"),
    (lambda m: second_item(m).update(subsweep_data_offset=[0]), "offsets"),
    (lambda m: second_item(m).update(subsweep_data_offset=[0, 11]), "subsweep_data_length"),
    (lambda m: second_item(m).update(subsweep_data_offset=[-1, 10]), "subsweep_data_offset"),
    (lambda m: second_item(m).update(subsweep_data_offset=[0, 9]), "sub-sweeps that overlap"),
    (lambda m: m.update(unknown=[0] * 50001), "more than 50000 values"),
])
def test_refuses_metadata_that_contradict_themselves(spoil, reason):
    metadata = example_metadata()
    spoil(metadata)
    with pytest.raises(vantor.ProtocolError, match=reason):
        describe(metadata)


def test_refuses_metadata_of_frames_that_no_message_can_contain():
    metadata = example_metadata()
    item = first_item(metadata) | {"frame_data_length": 65535, "sweep_data_length": 65535}
    most = 2**26 // 4 // 65535
    metadata["metadata"] = [[item] * (most + 1)]
    configuration = {"groups": [[{"config": {"num_points": 20}}] * (most + 1)]}
    with pytest.raises(vantor.ProtocolError, match="more than the 67108864 bytes"):
        describe_session(metadata, configuration)
    metadata["metadata"][0].pop()
    configuration["groups"][0].pop()
    assert len(describe_session(metadata, configuration).layouts) == most


def test_splits_a_frame_into_items():
    first, second, third = decode(frame_header(2), frame_payload(2))
    assert first.samples.shape == (2, 20, 2) and first.samples.dtype == np.int16
    np.testing.assert_array_equal(first.samples[:, 7], [[3000, 4000], [3000, 4000]])
    np.testing.assert_array_equal(first.samples[0, 0], [3, 2])
    assert (first.tick, first.temperature, first.cca_value) == (40000, -3, 0.75)
    assert first.flags == vantor.Flags(data_valid=True, cca_detected=False, tx_enabled=True)
    assert second.flags == vantor.Flags() and second.cca_value is None
    assert second.iq.shape == (1, 25) and third.iq.shape == (1, 30)
    assert third.iq[0, 7] == 3000 + 4000j


def test_copies_no_samples():
    payload = np.frombuffer(frame_payload(0), np.uint8)
    decoder = FrameDecoder(describe(example_metadata()), 1e6)
    for item in decoder.items(decoder.read(frame_header(0), payload), payload, 0.0):
        assert np.shares_memory(item.samples, payload) and not item.samples.flags.writeable


@pytest.mark.parametrize("spoil, reason", [
    (lambda h: h["result_info"].pop(1), "1 groups"),
    (lambda h: h["result_info"][0].pop(1), "1 items in a group"),
    (lambda h: h["result_info"].__setitem__(0, 1), "items in a group"),
    (lambda h: h.update(result_info=1), "result_info"),
    (lambda h: h["result_info"][0].__setitem__(0, 1), "tick"),
    (lambda h: h["result_info"][0][0].pop("tick"), "tick"),
    (lambda h: h["result_info"][0][0].update(tick=2**32), "tick"),
    (lambda h: h["result_info"][0][0].update(temperature=40000), "temperature"),
    (lambda h: h["result_info"][0][0].update(frame_delayed=0), "frame_delayed"),
    (lambda h: h["result_info"][0][0].update(cca_value="high"), "cca_value"),
    (lambda h: h.update(missing=-1), "missing"),
    (lambda h: h.update(missing=2**32), "missing"),
    (lambda h: h.update(missing=1.0), "missing"),
    (lambda h: h.update(missing=None), "missing"),
    (lambda h: h["result_info"][0][0].update(utc_s=1.0), 'no "utc_bound_s"'),
    (lambda h: h["result_info"][0][0].update(utc_bound_s=1.0), 'no "utc_s"'),
    (lambda h: h["result_info"][0][0].update(utc_s=4.6e9, utc_bound_s=1.0), '"utc_s" is not a time'),
    (lambda h: h["result_info"][0][0].update(utc_s=-4.6e9, utc_bound_s=1.0), '"utc_s" is not a time'),
    (lambda h: h["result_info"][0][0].update(utc_s=None, utc_bound_s=1.0), '"utc_s" is not a time'),
    (lambda h: h["result_info"][0][0].update(utc_s="now", utc_bound_s=1.0), '"utc_s" is not a number'),
    (lambda h: h["result_info"][0][0].update(utc_s=1.0, utc_bound_s=-1e-6), '"utc_bound_s" is not a number from 0'),
    (lambda h: h["result_info"][0][0].update(utc_s=1.0, utc_bound_s=4.6e9), '"utc_bound_s" is not a number from 0'),
    (lambda h: h["result_info"][0][0].update(utc_s=1.0, utc_bound_s=None), '"utc_bound_s" is not a number from 0'),
])
def test_refuses_frames_that_do_not_fit_the_metadata(spoil, reason):
    header = frame_header(0)
    spoil(header)
    with pytest.raises(vantor.ProtocolError, match=reason):
        decode(header, frame_payload(0))


@pytest.mark.parametrize("size", [0, 379])
def test_refuses_frames_of_another_length(size):
    with pytest.raises(vantor.ProtocolError, match=f"{size} bytes"):
        decode(frame_header(0), frame_payload(0)[:size])


def test_accepts_null_for_missing_numbers():
    metadata = example_metadata()
    first_item(metadata)["max_sweep_rate"] = None
    assert math.isnan(describe(metadata).layouts[0].max_sweep_rate_hz)
    header = frame_header(0)
    header["result_info"][0][0]["cca_value"] = None
    assert decode(header, frame_payload(0))[0].cca_value is None


@pytest.mark.filterwarnings("error")
@pytest.mark.parametrize("rate, times_s, speeds_per_wavelength", [
    (0, [math.nan] * 2, [math.nan] * 2), (0.0, [math.nan] * 2, [math.nan] * 2),
    (5e-324, [0.0, math.inf], [0.0, 0.0]), (1.7e308, [0.0, 1.0 / 1.7e308], [-1.7e308 / 4.0, 0.0])])
def test_computes_times_and_velocities_without_warnings_at_any_rate(rate, times_s, speeds_per_wavelength):
    metadata = example_metadata()
    first_item(metadata)["max_sweep_rate"] = rate
    layout = describe(metadata).layouts[0]
    np.testing.assert_array_equal(layout.sweep_times_s, times_s)
    np.testing.assert_allclose(layout.velocities_m_s / layout.wavelength_m, speeds_per_wavelength, atol=1e-300)


@pytest.mark.filterwarnings("error")
def test_accepts_items_without_samples():
    metadata = example_metadata()
    first_item(metadata).update(
        frame_data_length=0, sweep_data_length=0, subsweep_data_offset=[], subsweep_data_length=[])
    decoder = FrameDecoder(decode_metadata(metadata, {}), 1e6)
    payload = np.frombuffer(frame_payload(0)[160:], np.uint8)
    empty, other, _ = decoder.items(decoder.read(frame_header(0), payload), payload, 0.0)
    for array in (empty.iq, empty.level, empty.level_dbfs, empty.sweep_times_s, empty.velocities_m_s):
        assert array.size == 0
    assert empty.level.shape == (0,) and other.level.shape == (25,)


def test_decodes_the_description_of_a_server():
    info = decode_server_info(identity() | {"connected_sensors": [1, 5], "max_baudrate": 921600})
    assert info.connected_sensors == (1, 5) and info.max_baudrate == 921600
    assert info.board is info.memory is info.stack is info.configuration is info.last_drop is None
    with pytest.raises(vantor.ProtocolError):
        decode_server_info(identity() | {"connected_sensors": [6]})


@pytest.mark.parametrize("rate", [-1.0, 5e-324, 0.00099, 1.01e12, 1e300, None])
def test_refuses_a_clock_outside_of_its_bounds(rate):
    with pytest.raises(vantor.ProtocolError, match=r"it must be 0 \(no clock\) or from 0.001 to 1e12"):
        decode_server_info(identity() | {"ticks_per_second": rate})


@pytest.mark.parametrize("rate", [0, 0.001, 1e12])
def test_accepts_a_clock_within_its_bounds(rate):
    assert decode_server_info(identity() | {"ticks_per_second": rate}).ticks_per_second == rate


def test_decodes_memory_stack_and_board():
    parts = {"memory": {"size": 5, "live": 4, "peak": 3, "largest_free": 2, "failures": 1},
             "stack": {"size": 7, "peak": 6}, "board": {"name": "x1", "sensors": "simulated", "colour": 3}}
    info = decode_server_info(identity() | parts)
    assert info.memory == vantor.MemoryUse(size=5, live=4, peak=3, largest_free=2, failures=1)
    assert info.stack == vantor.StackUse(size=7, peak=6)
    assert info.board == vantor.BoardInfo(name="x1", id=None, reset_cause=None, last_fault=None, sensors="simulated")
    for part, spoiled in (("stack", {"size": 7}), ("board", {"id": 7}), ("board", "x1"), ("configuration", [])):
        with pytest.raises(vantor.ProtocolError):
            decode_server_info(identity() | copy.deepcopy(parts) | {part: spoiled})
