"""Tests of frames and items, made from plain arrays."""

import copy
import dataclasses
import math
import pickle

import numpy as np
import pytest

import vantor
from vantor.frame import places_of


def example_layout(group=0, index=0):
    """Two sweeps of three points."""
    distances = np.array([0.2, 0.3, np.nan])
    distances.flags.writeable = False
    return vantor.ItemLayout(group=group, index=index, sensor_id=1, sweeps=2, subsweeps=(vantor.Subsweep(0, 2),),
                             distances_m=distances, sweep_rate_hz=100.0, max_sweep_rate_hz=3000.0,
                             wavelength_m=0.005, base_step_m=0.0025, high_speed_mode=False,
                             calibration_temperature=24)


def example_item(layout, time=0.0, flags=vantor.Flags()):
    """An item with magnitudes that are easy to compute."""
    parts = np.array([[3, 4], [0, -10], [0, 0], [-6, 8], [30, 0], [-32768, -32768]], dtype="<i2")
    samples = np.frombuffer(parts.tobytes(), dtype="<i2").reshape(2, 3, 2)
    return vantor.Item(layout=layout, samples=samples, tick=7, time=time, temperature=-3, flags=flags)


def test_gives_the_samples_as_complex_numbers():
    item = example_item(example_layout())
    assert item.iq.dtype == np.complex64
    np.testing.assert_array_equal(item.iq, [[3 + 4j, -10j, 0], [-6 + 8j, 30, -32768 - 32768j]])
    assert item.samples.dtype == np.int16


def test_gives_the_level_as_the_mean_magnitude_of_the_sweeps():
    item = example_item(example_layout())
    assert item.level.dtype == np.float32
    np.testing.assert_allclose(item.level, [7.5, 20.0, 32768 / math.sqrt(2)], rtol=1e-6)
    assert item.level_dbfs.dtype == np.float32
    np.testing.assert_allclose(item.level_dbfs[:2], [20 * math.log10(7.5 / 32767), 20 * math.log10(20 / 32767)],
                               rtol=1e-6)


def test_limits_the_level_of_silence():
    layout = example_layout()
    item = dataclasses.replace(example_item(layout), samples=np.zeros((2, 3, 2), np.int16))
    np.testing.assert_allclose(item.level_dbfs, 20 * math.log10(0.1 / 32767), rtol=1e-6)


def test_gives_times_and_velocities_of_sweeps():
    item = example_item(example_layout())
    np.testing.assert_allclose(item.sweep_times_s, [0.0, 0.01])
    # Half a wavelength is a turn of the phase: at 100 sweeps/s the bound is a quarter wavelength per sweep.
    np.testing.assert_allclose(item.velocities_m_s, [-0.125, 0.0])
    odd = dataclasses.replace(example_layout(), sweeps=5)
    turning = np.exp(2j * np.pi * np.arange(5) / 5)
    spectrum = np.fft.fftshift(np.fft.fft(turning))
    assert odd.velocities_m_s[abs(spectrum).argmax()] == pytest.approx(0.05)


def test_has_arrays_that_cannot_change():
    item = example_item(example_layout())
    for other in (item, copy.copy(item), copy.deepcopy(item), pickle.loads(pickle.dumps(item))):
        for name in ("samples", "distances_m", "velocities_m_s", "sweep_times_s"):
            np.testing.assert_array_equal(getattr(other, name), getattr(item, name), strict=True)
            with pytest.raises(ValueError, match="read-only"):
                getattr(other, name)[0] = 1
        assert other.tick == item.tick and str(other.flags) == str(item.flags)


def test_gives_new_arrays_of_what_is_computed():
    item = example_item(example_layout())
    for name in ("iq", "level", "level_dbfs"):
        array = getattr(item, name)
        array[0] = 0
        assert not np.array_equal(getattr(item, name), array)


def test_limits_the_level_of_samples_that_are_clipped():
    """docs/python.md gives both limits."""
    item = dataclasses.replace(example_item(example_layout()), samples=np.full((2, 3, 2), -32768, np.int16))
    np.testing.assert_allclose(item.level_dbfs, 3.01, atol=0.005)
    silent = dataclasses.replace(item, samples=np.zeros((2, 3, 2), np.int16))
    np.testing.assert_allclose(silent.level_dbfs, -110.31, atol=0.005)


def test_finds_items_by_group_and_index():
    layouts = (example_layout(0, 0), example_layout(0, 1), example_layout(1, 0))
    items = tuple(example_item(layout, time=0.5) for layout in layouts)
    frame = vantor.Frame(number=4, items=items, missing=2, lost_before=1, _places=places_of(layouts))
    assert frame[0, 1] is items[1] and frame[1, 0] is items[2]
    assert list(frame) == list(items) and len(frame) == 3
    assert frame.time == 0.5
    assert frame.truth == (None, None, None)
    with pytest.raises(IndexError, match=r"no item \[1, 1\]; it has \[0, 0\], \[0, 1\], \[1, 0\]"):
        frame[1, 1]
    assert frame[np.int64(0), np.int64(1)] is items[1]
    for place in (0, (0, 0, 0), (slice(None), 0), "00"):
        with pytest.raises(TypeError, match=r"items by group and index, such as frame\[0, 1\], not by"):
            frame[place]


def test_contains_items_and_their_places():
    layouts = (example_layout(0, 0), example_layout(0, 1))
    items = tuple(example_item(layout) for layout in layouts)
    frame = vantor.Frame(number=4, items=items, missing=2, lost_before=1, _places=places_of(layouts))
    assert (0, 1) in frame and items[0] in frame
    assert (1, 0) not in frame and 0 not in frame and example_item(layouts[0]) not in frame
    assert list(reversed(frame)) == [items[1], items[0]]


def test_names_the_flags_that_are_set():
    assert str(vantor.Flags()) == "none"
    assert str(vantor.Flags(data_saturated=True, data_valid=False)) == "data_saturated data_valid=False"
    assert vantor.Flags(data_valid=True).usable and vantor.Flags().usable
    assert not vantor.Flags(data_valid=False).usable
