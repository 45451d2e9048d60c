"""Recordings give the frames that were recorded, and what is missing or damaged is reported."""

import copy
import fcntl
import json
import os
import pickle
import random
import re
import shutil
import signal
import subprocess
import sys
import tracemalloc
import warnings
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import numpy as np
import pytest
from processes import RunningServer, campaign, few_descriptors, ordinary_user
from recordings import EXAMPLES, SCENE, Mutator, host, make_recording, reported_damage, same_text, set_utc

import vantor
from vantor import _input_files
from vantor._frame_table import read_frame_table
from vantor._input_files import LineFile

COUNT = campaign(whole=2000, sample=30)


@pytest.fixture(scope="module")
def scene(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A scene with motion, a drifting sensor and an interferer."""
    file = tmp_path_factory.mktemp("scene") / "scene.json"
    file.write_text(json.dumps(SCENE))
    return file


@pytest.fixture(scope="module")
def two_sensors(tmp_path_factory: pytest.TempPathFactory, scene: Path) -> Path:
    """A recording of two groups on the virtual clock."""
    directory = tmp_path_factory.mktemp("recordings") / "two_sensors"
    return make_recording(directory, EXAMPLES / "two_sensors.json", 40, f"--scene {scene}")


@pytest.fixture(scope="module")
def with_breaks(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A recording of sensors that get warmer and are calibrated again."""
    directory = tmp_path_factory.mktemp("recordings") / "with_breaks"
    scene = directory.with_name("warming.json")
    scene.write_text(json.dumps({"temperatures": [{"celsius": 20, "drift_celsius_per_s": 50}]}))
    configuration = EXAMPLES / "two_sensors.json"
    return make_recording(directory, configuration, 60, f"--scene {scene}", "--recalibrate")


@pytest.fixture(scope="module")
def with_gaps(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A recording of a sensor that now and then needs longer than a period."""
    directory = tmp_path_factory.mktemp("recordings") / "with_gaps"
    configuration, scene = directory.with_name("slow.json"), directory.with_name("scene.json")
    configuration.write_text(json.dumps({"groups": [[{"sensor_id": 1, "config": {"frame_rate": 100}}]]}))
    faults = [
        {"kind": "slow_link", "skip": 5, "count": 1, "bytes_per_second": 12000},
        {"kind": "slow_link", "skip": 20, "count": 4, "bytes_per_second": 20000},
    ]
    scene.write_text(json.dumps({"targets": [{"distance_m": 0.5, "strength_m2": 1}], "faults": faults}))
    return make_recording(directory, configuration, 50, f"--scene {scene}")


def exported(recording: Path, directory: Path) -> dict[tuple[int, int], Any]:
    """The arrays that `vantor export` writes, by group and index of the items."""
    host("export", recording, "--format", "npz", "--output", directory)
    files = sorted(directory.glob("*.npz"))
    return {(int(file.name[6]) - 1, int(file.name[13]) - 1): np.load(file) for file in files}


@pytest.mark.parametrize("name", ["two_sensors", "with_breaks", "with_gaps"])
def test_arrays_are_those_of_the_export(name: str, request: pytest.FixtureRequest, tmp_path: Path) -> None:
    path = request.getfixturevalue(name)
    recording = vantor.open(path)
    expected = exported(path, tmp_path / "export")
    assert expected.keys() == {(layout.group, layout.index) for layout in recording.layouts}
    for place, arrays in expected.items():
        item = recording[place]
        np.testing.assert_array_equal(item.iq, arrays["samples"], strict=True)
        np.testing.assert_array_equal(item.distances_m, arrays["distance_m"])
        np.testing.assert_array_equal(item.ticks, arrays["tick"])
        np.testing.assert_array_equal(item.temperatures, arrays["temperature"])
        np.testing.assert_array_equal(item.missing, arrays["missing"])
        np.testing.assert_array_equal(item.utc_s, arrays["utc_s"])
        np.testing.assert_array_equal(item.utc_bound_s, arrays["utc_bound_s"])
        for flag in ("data_saturated", "frame_delayed", "calibration_needed", "data_valid"):
            np.testing.assert_array_equal(getattr(item, flag), arrays[flag], err_msg=flag)
        # The times of the export begin at the first frame of each item.
        times = item.times_s - item.times_s[0]
        np.testing.assert_allclose(times, arrays["time_s"], rtol=0.0, atol=1e-9)


def live_frames(configuration: Path, scene: Path, recording: vantor.Recording) -> list[vantor.Frame]:
    """The frames of a session like that of a recording."""
    with vantor.connect(f"sim:--clock virtual --scene {scene}") as server:
        with server.session(configuration) as session:
            return list(session.frames(count=len(recording)))


def check_frames(live: list[vantor.Frame], recorded: list[vantor.Frame]) -> None:
    """Compare all that frames contain."""
    for frame, other in zip(live, recorded, strict=True):
        for name in ("number", "missing", "lost_before"):
            assert getattr(frame, name) == getattr(other, name), name
        for item, other_item in zip(frame, other, strict=True):
            np.testing.assert_array_equal(item.samples, other_item.samples, strict=True)
            for name in ("tick", "time", "temperature", "flags", "cca_value", "truth"):
                assert getattr(item, name) == getattr(other_item, name), name


def test_frames_are_those_of_a_live_session(two_sensors: Path, scene: Path) -> None:
    """On the virtual clock, each run of a session gives the same bytes."""
    recording = vantor.open(two_sensors)
    live = live_frames(EXAMPLES / "two_sensors.json", scene, recording)
    check_frames(live, list(recording))
    assert len({str(item.flags) for frame in live for item in frame}) > 3


def test_gaps_are_those_of_a_live_session(with_gaps: Path) -> None:
    recording = vantor.open(with_gaps)
    live = live_frames(with_gaps.with_name("slow.json"), with_gaps.with_name("scene.json"), recording)
    check_frames(live, list(recording))
    assert [frame.lost_before for frame in live] == recording.lost_before.tolist()


def test_frames_are_rows_of_the_items(two_sensors: Path) -> None:
    recording = vantor.open(two_sensors)
    frame = recording.frame(-2)
    assert frame.number == 38
    item = recording[0, 1]
    np.testing.assert_array_equal(frame[0, 1].iq, item.iq[38])
    np.testing.assert_allclose(frame[0, 1].level, item.level[38])
    np.testing.assert_array_equal(item[30:].level_dbfs, item.level_dbfs[30:])
    assert [frame.number for frame in recording.frames(5, 8)] == [5, 6, 7]
    assert len(item[10:20]) == 10
    assert item[10:20].times_s[0] == item.times_s[10] == recording.frame(10)[0, 1].time
    with pytest.raises(IndexError, match=r"no item \[2, 0\]"):
        recording[2, 0]
    with pytest.raises(IndexError, match="no frame 40; its frames are 0 to 39"):
        recording.frame(40)
    assert [each.number for each in reversed(recording)] == list(range(39, -1, -1))
    assert (0, 1) in recording
    assert (0, 2) not in recording


def numbers_of(frames: Iterator[vantor.Frame]) -> list[int]:
    """The numbers of frames."""
    return [frame.number for frame in frames]


def test_frames_are_limited_like_those_of_a_session(two_sensors: Path) -> None:
    recording = vantor.open(two_sensors)
    assert numbers_of(recording.frames(count=3)) == [0, 1, 2]
    assert numbers_of(recording.frames(38, count=3)) == [38, 39]
    assert numbers_of(recording.frames(count=0)) == []
    # 50 frames per second.
    assert numbers_of(recording.frames(10, seconds=0.09)) == [10, 11, 12, 13, 14]
    assert numbers_of(recording.frames(40, seconds=1.0)) == []
    with pytest.raises(ValueError, match="must not be negative"):
        recording.frames(count=-1)


def test_an_item_in_one_frame_is_that_of_the_frame(two_sensors: Path) -> None:
    recording = vantor.open(two_sensors)
    item = recording[1, 0]
    for number, one in enumerate(item):
        expected = recording.frame(number)[1, 0]
        np.testing.assert_array_equal(one.samples, expected.samples, strict=True)
        for name in ("tick", "time", "temperature", "flags", "cca_value", "truth"):
            assert getattr(one, name) == getattr(expected, name), name
    assert item[10:20][-1].tick == item[np.int64(19)].tick == item.ticks[19]
    with pytest.raises(IndexError):
        item[40]


def test_parts_of_an_item(two_sensors: Path) -> None:
    item = vantor.open(two_sensors)[0, 1]
    late = item.numbers >= 35
    for part in (item[late], item[[35, 36, 37, 38, 39]], item[-5:]):
        np.testing.assert_array_equal(part.numbers, [35, 36, 37, 38, 39])
        np.testing.assert_array_equal(part.samples, item.samples[35:], strict=True)
        assert part.truth == item.truth[35:]
        with pytest.raises(ValueError, match="read-only"):
            part.samples[0] = 0
    assert len(item[[]]) == 0
    for wrong in (0, 1), 1.5, "1", np.zeros((2, 2), bool), [0.5], None:
        with pytest.raises(TypeError, match="Frames are a whole number, a slice, a mask or a list"):
            item[wrong]  # type: ignore[call-overload]


def test_items_have_all_that_frames_have(two_sensors: Path) -> None:
    recording = vantor.open(two_sensors)
    for place in ((0, 0), (0, 1), (1, 0)):
        item = recording[place]
        frames = list(item)
        for name in ("data_saturated", "frame_delayed", "calibration_needed", "cca_detected", "tx_enabled"):
            expected = [bool(getattr(frame.flags, name)) for frame in frames]
            assert getattr(item, name).tolist() == expected, name
        assert item.truth == tuple(frame.truth for frame in frames)
    assert {recording[0, 0].tx_enabled.any(), recording[0, 1].tx_enabled.any()} == {True, False}


def test_nothing_can_be_changed(two_sensors: Path) -> None:
    item = vantor.open(two_sensors)[0, 0]
    public = [name for name in dir(item) if not name.startswith("_")]
    names = [name for name in public if isinstance(getattr(item, name), np.ndarray)]
    assert len(names) > 15
    for name in set(names) - {"iq", "level", "level_dbfs"}:
        for part in (item, item[3:5], pickle.loads(pickle.dumps(item[3:5]))):
            with pytest.raises(ValueError, match="read-only"):
                getattr(part, name)[0] = 0


def test_a_recording_is_opened_again_by_what_is_unpickled(
    two_sensors: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(two_sensors.parent)
    recording = vantor.open(two_sensors.name)
    kept = pickle.dumps((recording, recording[0, 1][20:], recording[0, 1][::2]))
    monkeypatch.chdir(tmp_path)
    assert len(kept) < 10_000
    again, part, others = pickle.loads(kept)
    check_frames(list(recording), list(again))
    assert part.numbers.tolist() == list(range(20, 40))
    assert others.numbers.tolist() == list(range(0, 40, 2))
    np.testing.assert_array_equal(others.samples, recording[0, 1].samples[::2])
    assert copy.deepcopy(part).truth == recording[0, 1].truth[20:]


def test_a_closed_recording_leaves_what_was_read(two_sensors: Path, tmp_path: Path) -> None:
    directory = tmp_path / "closed"
    shutil.copytree(two_sensors, directory)
    with vantor.open(directory) as recording:
        item = recording[0, 1]
        frame = recording.frame(3)
    recording.close()
    assert item.samples[3].any()
    np.testing.assert_array_equal(frame[0, 1].samples, item.samples[3])
    assert len(recording) == 40
    for use in (lambda: recording[0, 0], lambda: recording.frame(0), lambda: item.truth, recording.damage):
        with pytest.raises(vantor.RecordingError, match="was closed: open it again"):
            use()
    del item, frame
    assert str(directory) not in Path("/proc/self/maps").read_text()


def test_a_gap_is_counted_where_it_is(with_gaps: Path) -> None:
    recording = vantor.open(with_gaps)
    lost = recording.lost_before
    assert lost.sum() == recording.total_missing > 3
    assert set(np.flatnonzero(lost)) == {segment.first_frame for segment in recording.segments[1:]}
    assert [frame.lost_before for frame in recording] == lost.tolist()
    assert [segment.missing for segment in recording.segments] == [
        int(recording.missing[segment.first_frame]) for segment in recording.segments
    ]


def test_breaks_have_a_reason_and_a_length(with_breaks: Path) -> None:
    recording = vantor.open(with_breaks)
    reasons = [segment.reason for segment in recording.segments]
    assert reasons[0] == ""
    assert set(reasons[1:]) == {"calibrated again"}
    segment = recording.segments[1]
    step = recording[0, 0].times_s[segment.first_frame] - recording[0, 0].times_s[segment.first_frame - 1]
    assert step == pytest.approx(segment.break_s, abs=1e-5)


def test_the_description_of_the_session(two_sensors: Path, scene: Path) -> None:
    recording = vantor.open(two_sensors / "session.sigmf-collection")
    assert recording.directory == two_sensors
    assert recording.configuration == vantor.load_configuration(EXAMPLES / "two_sensors.json")
    assert [entry.sensor_id for entry in recording.calibrations] == [1, 2]
    assert recording.server.ticks_per_second == 1e6
    assert recording.scene is not None
    assert recording.scene["clock"] == "virtual"
    assert recording.frame_rate_hz == pytest.approx(50.0)
    assert recording.finished
    assert not recording.in_progress
    assert recording.damage() == ()
    assert repr(recording) == f"<Recording {two_sensors}: 40 frames of 3 items>"
    assert repr(recording[0, 1]) == "<RecordedItem [0, 1]: 40 frames of 2 x 220 samples>"
    assert "array" not in repr(recording.frame(0))


def test_truth_belongs_to_frames_by_sensor_and_tick(two_sensors: Path, tmp_path: Path) -> None:
    """A line with another tick is not the truth of any frame; one in another place is."""
    recording = vantor.open(two_sensors)
    for place, layout in enumerate(recording.layouts):
        truth = recording.truth(layout.group, layout.index)
        ticks = recording[layout.group, layout.index].ticks.tolist()
        assert [entry and (entry.sensor_id, entry.tick) for entry in truth] == [
            (layout.sensor_id, tick) for tick in ticks
        ]
        assert truth[3] == recording.frame(3).truth[place]
    changed = tmp_path / "changed"
    shutil.copytree(two_sensors, changed)
    head, *lines = (changed / "truth.jsonl").read_text().splitlines(keepends=True)
    tick = json.loads(lines[0])["tick"]
    lines[0] = lines[0].replace(f'"tick":{tick}', f'"tick":{tick + 1}')
    lines[4], lines[5] = lines[5], lines[4]
    (changed / "truth.jsonl").write_text(head + "".join(lines))
    recording = vantor.open(changed)
    with pytest.warns(vantor.RecordingWarning, match="is damaged: truth.jsonl has a wrong line: frame 0 of"):
        assert recording.truth(0, 0)[0] is None
    assert [truth is None for truth in recording.frame(1).truth] == [False, False, False]
    assert list(recording.damage()) == reported_damage(changed)["damage"] != []


@pytest.mark.parametrize(
    "change",
    [
        lambda lines: [*lines[:3], lines[2], *lines[3:]],
        lambda lines: [*lines[:3], lines[50], *lines[3:50], *lines[51:]],
        lambda lines: lines[1:],
        lambda lines: [lines[0], "", *lines[1:]],
        lambda lines: [lines[0], lines[1].replace('"tick":', '"tick":-'), *lines[2:]],
        lambda lines: [lines[0], lines[1].replace('"tick":', '"other":'), *lines[2:]],
        lambda lines: [lines[0], lines[1].replace('"time_s":', '"time_s":"",""'), *lines[2:]],
        lambda lines: [lines[0], lines[1].replace('"time_s":0.0', '"time_s":null'), *lines[2:]],
        lambda lines: [lines[0], lines[1].replace('"targets":[', '"targets":[[],'), *lines[2:]],
        lambda lines: [lines[0], lines[1].replace('"targets":', '"targets":1,"others":'), *lines[2:]],
        lambda lines: [lines[0], lines[1].replace('"target":', '"target":7000'), *lines[2:]],
        lambda lines: [lines[0], lines[1].replace('"target":', '"body":65536,"target":'), *lines[2:]],
        lambda lines: [lines[0], re.sub(r'"targets":\[({.*})\]', r'"targets":[\1,\1]', lines[1]), *lines[2:]],
    ],
)
def test_damage_of_the_truth_is_described_as_by_the_command(
    change: Callable[[list[str]], list[str]], two_sensors: Path, tmp_path: Path
) -> None:
    changed = tmp_path / "changed"
    shutil.copytree(two_sensors, changed)
    lines = (changed / "truth.jsonl").read_text().splitlines()
    (changed / "truth.jsonl").write_text("".join(line + "\n" for line in change(lines)))
    assert list(vantor.open(changed).damage()) == reported_damage(changed)["damage"] != []


def test_truth_with_more_digits_than_needed_is_correct(tmp_path: Path) -> None:
    """The recorder writes 0.37370834 with 17 digits."""
    scene = tmp_path / "scene.json"
    oscillation = {"amplitude_m": 0.001, "frequency_hz": 1, "phase_turns": 0.37370834}
    target = {"distance_m": 0.5, "strength_m2": 1, "oscillations": [oscillation]}
    scene.write_text(json.dumps({"targets": [target]}))
    made = make_recording(tmp_path / "made", EXAMPLES / "single_sensor.json", 3, f"--scene {scene}")
    recording = vantor.open(made)
    assert b"0.37370834000000003" in (made / "truth.jsonl").read_bytes()
    assert recording.damage() == ()


def make_unreadable(file: Path) -> None:
    """A file that nobody but the superuser can read."""
    file.chmod(0)


def make_pipe(file: Path) -> None:
    """A pipe instead of a file."""
    file.unlink()
    os.mkfifo(file)


@pytest.mark.parametrize(
    ("spoil", "reason"),
    [
        (make_unreadable, "Permission denied"),
        (Path.unlink, "No such file or directory"),
        (make_pipe, "it is not a regular file"),
    ],
)
def test_truth_that_cannot_be_read_is_a_warning(
    spoil: Callable[[Path], None], reason: str, two_sensors: Path
) -> None:
    with ordinary_user() as (place, become_ordinary):
        directory = place / "recording"
        shutil.copytree(two_sensors, directory)
        file = directory / "truth.jsonl"
        spoil(file)
        become_ordinary()
        message = re.escape(f"{directory}: the truth is unknown: Cannot read {file}: {reason}.")
        with pytest.warns(vantor.RecordingWarning, match=message) as warned:
            recording = vantor.open(directory)
        assert [Path(each.filename) for each in warned] == [Path(__file__)]
        with warnings.catch_warnings():
            # Of the same only once.
            warnings.simplefilter("error")
            assert recording.frame(3).truth == (None, None, None)
            assert set(recording.truth(0, 1)) == {None}
        assert recording.damage() == (f"Cannot read {file}: {reason}.",)


def test_truth_is_read_again_after_a_lack_of_descriptors(two_sensors: Path) -> None:
    recording = vantor.open(two_sensors)
    with few_descriptors(0), pytest.warns(vantor.RecordingWarning, match="unknown: .*: Too many open files"):
        assert set(recording.truth(0, 1)) == {None}
    assert None not in recording.truth(0, 1)


def test_truth_without_its_first_line_is_a_warning(two_sensors: Path, tmp_path: Path) -> None:
    changed = tmp_path / "changed"
    shutil.copytree(two_sensors, changed)
    (changed / "truth.jsonl").write_bytes(b"")
    recording = vantor.open(changed)
    with pytest.warns(vantor.RecordingWarning, match="is damaged: .* has no first line, .* lists all damage"):
        assert set(recording.truth(0, 1)) == {None}


def test_truth_can_be_shortened_while_it_is_used(two_sensors: Path, tmp_path: Path) -> None:
    """It was memory-mapped: the system ended a program that read beyond the end of the file."""
    changed = tmp_path / "changed"
    shutil.copytree(two_sensors, changed)
    program = """
import os, sys, vantor
recording = vantor.open(sys.argv[1])
before = recording.truth(0, 0)
os.truncate(recording.directory / "truth.jsonl", int(sys.argv[2]))
after = recording.truth(0, 0)
print(after.count(None), all(entry in (None, other) for entry, other in zip(after, before)))
"""
    for size, unknown in (5000, range(1, 40)), (0, range(40, 41)):
        command = [sys.executable, "-c", program, changed, str(size)]
        count, are_same = subprocess.run(command, capture_output=True, text=True, check=True).stdout.split()
        assert int(count) in unknown and are_same == "True"


def test_truth_of_any_size_needs_little_memory(two_sensors: Path, tmp_path: Path) -> None:
    changed = tmp_path / "changed"
    shutil.copytree(two_sensors, changed)
    file = changed / "truth.jsonl"
    expected = vantor.open(changed).truth(0, 0)
    with file.open("ab") as stream:
        for _ in range(2):
            os.truncate(file, file.stat().st_size + 2**26)
            stream.write(b"\n")
            stream.flush()
    recording = vantor.open(changed)
    tracemalloc.start()
    with pytest.warns(vantor.RecordingWarning, match="a line of more than 2097152 bytes"):
        assert recording.truth(0, 0) == expected
    assert list(recording.damage()) == reported_damage(changed)["damage"] != []
    _, peak = tracemalloc.get_traced_memory()
    tracemalloc.stop()
    assert peak < 2**25


@pytest.mark.parametrize("block", [1, 2, 3, 7, 1000])
def test_lines_are_found_in_blocks_of_any_size(
    block: int, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(_input_files, "_BLOCK", block)
    monkeypatch.setattr(_input_files, "_USUAL_LINE", block)
    file = tmp_path / "lines"
    for text in (b"", b"\n", b"a", b"ab\n\ncd\n", b"abcdefgh\nab\nabc", b"ab\nabcdefgh"):
        file.write_bytes(text)
        lines = LineFile(file)
        expected = []
        start = 0
        for line in text.splitlines(keepends=True):
            expected.append((start, line.rstrip(b"\n"), line.endswith(b"\n")))
            start += len(line)
        assert list(lines.lines(8)) == expected
        assert [lines.line_at(each[0], 8) for each in expected] == [each[1] for each in expected]
        for found, (begin, whole, is_complete) in zip(lines.lines(4), expected, strict=True):
            assert found[0::2] == (begin, is_complete)
            assert found[1] == whole if len(whole) <= 4 else len(found[1]) > 4


def test_truth_as_arrays(tmp_path: Path) -> None:
    scene = {
        "targets": [
            {"distance_m": 0.6, "strength_m2": 1, "velocity_m_s": 0.5},
            {"distance_m": 1.1, "strength_m2": 1, "enter_s": 0.1, "leave_s": 0.3},
        ],
        "bodies": [{"kind": "fan", "distance_m": 1.5, "rate_per_min": 60}],
    }
    file = tmp_path / "scene.json"
    file.write_text(json.dumps(scene))
    configuration = EXAMPLES / "single_sensor.json"
    recording = vantor.open(make_recording(tmp_path / "made", configuration, 10, f"--scene {file}"))
    truth = recording.truth(0, 0)
    times_s = np.array([entry.time_s for entry in truth if entry is not None])
    moving = truth.target(0)
    np.testing.assert_allclose(moving.distance_m, 0.6 + 0.5 * times_s, atol=0.005)
    np.testing.assert_allclose(moving.velocity_m_s, 0.5)
    entry = truth[9]
    assert entry is not None
    assert moving.snr_db[9] == entry.targets[0].snr_db
    passing = truth.target(1)
    np.testing.assert_array_equal(np.isfinite(passing.distance_m), (times_s > 0.09) & (times_s < 0.29))
    strongest = [max(entry.targets[-3:], key=lambda each: each.amplitude) for entry in truth if entry is not None]
    assert {each.body for each in strongest} == {1}
    np.testing.assert_array_equal(truth.body(1).distance_m, [each.distance_m for each in strongest])
    assert np.isnan(truth.target(70).distance_m).all()
    assert recording[0, 0][3:].truth.target(0).amplitude.tolist() == moving.amplitude[3:].tolist()
    unknown = vantor.TruthOfFrames((None, truth[1]))
    np.testing.assert_array_equal(unknown.target(0).distance_m, [np.nan, moving.distance_m[1]])


def test_a_recording_without_truth(two_sensors: Path, tmp_path: Path) -> None:
    with RunningServer("--tcp", "0") as server:
        place = ("--connect", server.address, "--output", tmp_path / "plain")
        host("record", EXAMPLES / "single_sensor.json", "--frames", 3, *place)
    recording = vantor.open(tmp_path / "plain")
    assert recording.scene is None
    assert recording.truth(0, 0) == (None, None, None)


def test_a_killed_recorder_leaves_all_its_frames(tmp_path: Path) -> None:
    """What can be read while it is recorded, after a kill and after a repair."""
    directory = tmp_path / "killed"
    command = [
        os.environ["VANTOR"], "record", EXAMPLES / "two_sensors.json", "--output", directory, "--json",
    ]  # fmt: skip
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as recorder:
        samples = directory / "group-2-item-1.sigmf-data"
        while not samples.exists() or samples.stat().st_size < 20 * 480:
            assert recorder.poll() is None
        recording = vantor.open(directory)
        assert recording.in_progress
        assert not recording.finished
        recorder.send_signal(signal.SIGKILL)
    with pytest.warns(vantor.RecordingWarning, match='was not finished: .* "vantor repair" completes it'):
        killed = vantor.open(directory)
    about = reported_damage(directory)
    assert (len(killed), killed.in_progress, killed.finished) == (about["frames"], False, False)
    assert killed.total_missing == about["frames_missing"]
    assert killed.damage() == ()
    host("repair", directory)
    repaired = vantor.open(directory)
    assert repaired.finished
    assert len(repaired) == len(killed) >= 19
    np.testing.assert_array_equal(repaired[0, 1].samples, killed[0, 1].samples)
    np.testing.assert_array_equal(repaired.missing, killed.missing)


@pytest.mark.parametrize(("lost", "noticed"), [(7, False), (8, True)])
def test_a_killed_recorder_may_have_written_a_block_to_some_items_only(
    lost: int, noticed: bool, two_sensors: Path, tmp_path: Path
) -> None:
    unfinished = tmp_path / "unfinished"
    shutil.copytree(two_sensors, unfinished)
    for meta in unfinished.glob("*.sigmf-meta"):
        document = json.loads(meta.read_text())
        for name in ("core:sha512", "vantor:frames", "vantor:frames_missing", "vantor:frame_table_sha512"):
            del document["global"][name]
        document["global"]["vantor:frames_per_block"] = 7
        meta.write_text(json.dumps(document))
    samples = unfinished / "group-2-item-1.sigmf-data"
    frame_size = 4 * json.loads(samples.with_suffix(".sigmf-meta").read_text())["global"][
        "vantor:samples_per_frame"
    ]
    samples.write_bytes(samples.read_bytes()[: -lost * frame_size])
    with pytest.warns(vantor.RecordingWarning):
        recording = vantor.open(unfinished)
    damage = reported_damage(unfinished)["damage"]
    assert list(recording.damage()) == damage
    assert any("sigmf-data contains" in fault for fault in damage) == noticed


def test_gaps_of_an_unfinished_recording_come_from_the_ticks(with_gaps: Path, tmp_path: Path) -> None:
    expected = vantor.open(with_gaps).missing
    unfinished = tmp_path / "unfinished"
    shutil.copytree(with_gaps, unfinished)
    meta = unfinished / "group-1-item-1.sigmf-meta"
    document = json.loads(meta.read_text())
    for name in ("core:sha512", "vantor:frames", "vantor:frames_missing", "vantor:frame_table_sha512"):
        del document["global"][name]
    del document["captures"][1:]
    meta.write_text(json.dumps(document))
    with pytest.warns(vantor.RecordingWarning):
        recording = vantor.open(unfinished)
    assert recording.total_missing == reported_damage(unfinished)["frames_missing"]
    np.testing.assert_array_equal(recording.missing, expected)


# A last line of the truth that is too long, and a group that is not a list.
@pytest.mark.parametrize("seed", sorted({*range(COUNT), 351, 692, 1090, 1578}))
def test_damage_is_what_the_host_reports(seed: int, two_sensors: Path, tmp_path: Path) -> None:
    directory = tmp_path / "damaged"
    shutil.copytree(two_sensors, directory)
    changes = Mutator(str(directory), seed).mutate()
    expected = reported_damage(directory)
    with warnings.catch_warnings(record=True) as warned:
        warnings.simplefilter("always")
        try:
            recording = vantor.open(directory)
        except vantor.RecordingError as failure:
            texts = [expected.get("error"), *expected["damage"]]
            assert same_text(str(failure)) in map(same_text, texts), changes
            return
    found = list(map(same_text, recording.damage()))
    assert found == list(map(same_text, expected["damage"])), changes
    assert len(recording) == expected["frames"], changes
    assert recording.total_missing == expected["frames_missing"], changes
    assert bool(warned) <= bool(found)


def test_damage_that_is_seen_at_once_is_a_warning(two_sensors: Path, tmp_path: Path) -> None:
    directory = tmp_path / "cut"
    shutil.copytree(two_sensors, directory)
    samples = directory / "group-1-item-2.sigmf-data"
    os.truncate(samples, 1000)
    message = "is damaged; 0 of 40 frames are left: .* lacks 69400 bytes"
    with pytest.warns(vantor.RecordingWarning, match=message):
        assert len(vantor.open(directory)) == 0


def test_damage_of_samples_is_found_by_reading_them(two_sensors: Path, tmp_path: Path) -> None:
    directory = tmp_path / "changed"
    shutil.copytree(two_sensors, directory)
    samples = directory / "group-1-item-2.sigmf-data"
    content = bytearray(samples.read_bytes())
    content[random.Random(3).randrange(len(content))] ^= 1
    samples.write_bytes(content)
    assert vantor.open(directory).damage() == (
        "The samples in group-1-item-2.sigmf-data differ from those that were recorded.",
    )


def test_what_is_not_a_recording(tmp_path: Path) -> None:
    for place, message in [
        (tmp_path / "none", "does not exist: give the directory of a recording"),
        (tmp_path, "Cannot read .*session.sigmf-collection: give the directory of a recording"),
        (
            EXAMPLES / "two_sensors.json",
            "two_sensors.json is not a file of a recording: .* configuration, use vantor.load_configuration",
        ),
    ]:
        with pytest.raises(vantor.RecordingError, match=message):
            vantor.open(place)


def test_hostile_tables_and_documents_take_no_time(two_sensors: Path, tmp_path: Path) -> None:
    """Long digits and repeated members took minutes: the time grew with their square."""
    copy = tmp_path / "copy"
    shutil.copytree(two_sensors, copy)
    table = copy / "group-1-item-1.frames.csv"
    head, first, *rest = table.read_bytes().splitlines(keepends=True)
    table.write_bytes(head + b"0," + b"1" * 1_000_000 + b"\n")
    with pytest.warns(vantor.RecordingWarning):
        assert len(vantor.open(copy)) == 0
    cells = first.split(b",")
    cells[1] = b"0." + b"0" * 4000
    rows = [b",".join([b"%d" % number, *cells[1:]]) for number in range(40)]
    table.write_bytes(head + b"".join(rows))
    assert len(vantor.open(copy)) == 40
    members = ",".join(f'"{number}":0' for number in range(50_000))
    document = tmp_path / "document.json"
    document.write_text("{" + members + ',"\\u001b]0;x":1,"\\u001b]0;x":2}')
    with pytest.raises(vantor.ConfigurationError) as failure:
        vantor.load_configuration(document)
    assert r'"\x1b]0;x" twice' in str(failure.value)


TABLE_HEAD = (
    "frame,time_s,tick,temperature,data_saturated,frame_delayed,calibration_needed,data_valid,cca_value,"
    "cca_detected,tx_enabled"
)


def test_tables_with_and_without_utc(tmp_path: Path) -> None:
    path = tmp_path / "a.csv"
    path.write_text(f"{TABLE_HEAD}\n0,0,1,20,0,0,0,,,,\n1,0.1,2,20,0,0,0,,,,\n")
    table = read_frame_table(path)
    assert (table.fault, table.rows["tick"].tolist()) == (None, [1, 2])
    assert np.isnan(table.rows["utc_s"]).all() and np.isnan(table.rows["utc_bound_s"]).all()
    lines = ["0,0,1,20,0,0,0,,,,,,", "1,0.1,2,20,0,0,0,,,,,1795455600.123456,0.000512", "2,1,3,2,0,0,0,,,,,-0.5", ""]
    path.write_text(f"{TABLE_HEAD},utc_s,utc_bound_s\n" + "\n".join(lines))
    table = read_frame_table(path)
    np.testing.assert_array_equal(table.rows["utc_s"], [np.nan, 1795455600.123456])
    np.testing.assert_array_equal(table.rows["utc_bound_s"], [np.nan, 0.000512])
    assert table.fault == f"{path}: line 4 does not describe a frame."


@pytest.mark.parametrize(
    "cells",
    [
        *("1.000000,", ",1.000000", "1.0,1.0", "1,1", "1.000000,-1.000000", ",,"),
        *("4600000000.000000,0.000001", "-4600000000.000000,0.000001", "0.000000,4600000000.000000"),
        *("1e300,1.000000", "-1e300,1.000000", "nan,nan", "inf,inf", "-inf,1.000000", "1.000000,1e300"),
    ],
)
def test_impossible_times_in_utc(cells: str, tmp_path: Path) -> None:
    path = tmp_path / "a.csv"
    for cell, correct in [("-1.000000,1.000000", 1), ("-4599999999.999999,4599999999.999999", 1), (cells, 0)]:
        path.write_text(f"{TABLE_HEAD},utc_s,utc_bound_s\n0,0,1,20,0,0,0,,,,,{cell}\n")
        assert len(read_frame_table(path).rows) == correct


def test_items_have_the_times_in_utc_of_their_table(two_sensors: Path, tmp_path: Path) -> None:
    directory = shutil.copytree(two_sensors, tmp_path / "copy")
    tables = sorted(directory.glob("*.frames.csv"))
    for number, table in enumerate(tables):
        known = [f"{1.8e9 + number + frame:.6f},{frame + 1}.500000" for frame in range(1, 40)]
        set_utc(table, [",", *known])
    recording = vantor.open(directory)
    for place, name in [(0, (0, 0)), (2, (1, 0))]:
        item = recording[name]
        frames = np.arange(1, 40)
        np.testing.assert_array_equal(item.utc_s, [np.nan, *(1.8e9 + place + frames)])
        np.testing.assert_array_equal(item.utc_bound_s, [np.nan, *(frames + 1.5)])
        assert not item.utc_s.flags.writeable
        np.testing.assert_array_equal(item[3:5].utc_s, 1.8e9 + place + np.array([3, 4]))
        for frame in recording:
            assert np.array_equal(frame[name].utc_s, item.utc_s[frame.number], equal_nan=True)
            assert np.array_equal(frame[name].utc_bound_s, item.utc_bound_s[frame.number], equal_nan=True)
    frame = pickle.loads(pickle.dumps(recording.frame(7)))
    assert (frame.utc_s, frame.utc_bound_s) == (1.8e9 + 7, 8.5)


def test_earlier_recordings_have_no_utc(two_sensors: Path, tmp_path: Path) -> None:
    directory = shutil.copytree(two_sensors, tmp_path / "copy")
    for table in directory.glob("*.frames.csv"):
        rows = [line.split(",")[:11] for line in table.read_text().splitlines()]
        table.write_text("\n".join([*map(",".join, rows), ""]))
    recording = vantor.open(directory)
    assert len(recording) == 40
    assert np.isnan(recording[1, 0].utc_s).all() and np.isnan(recording[1, 0].utc_bound_s).all()
    assert np.isnan(recording.frame(3).utc_s) and np.isnan(recording.frame(3)[1, 0].utc_bound_s)


def test_a_recording_that_is_being_started_is_not_abandoned(two_sensors: Path, tmp_path: Path) -> None:
    copy = tmp_path / "copy"
    copy.mkdir()
    samples = copy / "group-1-item-1.sigmf-data"
    samples.touch()
    with pytest.raises(vantor.RecordingError, match="Remove the directory"):
        vantor.open(copy)
    with samples.open("rb") as recorder:
        fcntl.flock(recorder, fcntl.LOCK_EX)
        with pytest.raises(vantor.RecordingError, match="open it in a moment"):
            vantor.open(copy)
