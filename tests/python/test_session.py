"""Tests of sessions with the simulated server: what it measures, its truth, its log, its errors."""

import json
import logging
import os
import pathlib
import signal
import subprocess
import time

import numpy as np
import pytest

import vantor
from processes import TIME_OUT, RunningServer

EXAMPLES = pathlib.Path(os.environ["VANTOR_EXAMPLES"])
PATIENCE = vantor.Timeouts(*[TIME_OUT] * 4)


def connect(address="sim:--clock virtual"):
    return vantor.connect(address, PATIENCE)


def item(**config):
    return {"groups": [[{"sensor_id": 1, "config": {"num_points": 100, **config}}]]}


@pytest.fixture
def scene(tmp_path):
    """Writes a scene; returns the address of a server that shows it."""
    def write(**members):
        file = tmp_path / "scene.json"
        file.write_text(json.dumps(members))
        return f"sim:--clock virtual --scene '{file}'"
    return write


def test_finds_the_strongest_echo_of_an_example():
    with connect() as server, server.session(EXAMPLES / "two_sensors.json") as session:
        *_, frame = session.frames(count=20)
        assert len(frame) == 3 and [place.layout.sensor_id for place in frame] == [1, 2, 2]
        near = frame[0, 0]
        assert near.distances_m[near.level.argmax()] == pytest.approx(0.5, abs=0.03)
        assert near.level_dbfs.max() < 0.0


def test_measures_the_velocity_of_a_target(scene):
    address = scene(targets=[{"distance_m": 0.35, "strength_m2": 0.5, "velocity_m_s": 0.2}])
    with connect(address) as server, server.session(item(sweeps_per_frame=64, sweep_rate=1000)) as session:
        for frame in session.frames(count=3):
            moving = frame[0, 0]
            point = moving.level.argmax()
            spectrum = np.fft.fftshift(np.fft.fft(moving.iq[:, point]))
            step = moving.velocities_m_s[1] - moving.velocities_m_s[0]
            if frame.number > 0:
                assert moving.velocities_m_s[abs(spectrum).argmax()] == pytest.approx(0.2, abs=step)
                assert moving.truth.targets[0].velocity_m_s == pytest.approx(0.2)
        np.testing.assert_allclose(moving.sweep_times_s, np.arange(64) / 1000)


def test_gives_the_truth_of_a_private_server(scene):
    address = scene(targets=[{"distance_m": 0.3, "strength_m2": 0.5}, {"distance_m": 0.4, "strength_m2": 0.1}])
    with connect(address) as server:
        for _ in range(2):
            with server.session(EXAMPLES / "two_sensors.json") as session:
                for frame in session.frames(count=300):
                    for place, truth in zip(frame, frame.truth, strict=True):
                        assert truth is place.truth
                        assert (truth.sensor_id, truth.tick) == (place.layout.sensor_id, place.tick)
                        assert [target.distance_m for target in truth.targets] == pytest.approx([0.3, 0.4])
                assert session.single_frame()[0, 0].truth.time_s > 0.0


def test_returns_the_memory_of_the_truth():
    with connect() as server, server.session(item(num_points=1)) as session:
        for frame in session.frames(count=12_000):
            assert frame[0, 0].truth is not None
        file = os.stat(server._truth.path)
        assert file.st_size > 3 * 2**20
        assert file.st_blocks * 512 < 2.5 * 2**20


def test_leaves_other_files_alone_after_it_was_closed(tmp_path):
    content = b"A" * 4 * 2**20
    (tmp_path / "other").write_bytes(content)
    with open(tmp_path / "other", "r+b", buffering=0) as other:
        with connect() as server:
            session = server.session(item(num_points=1))
            frames = session.frames()
            next(frames)
            # Frames that arrive before this answer are kept for the loop.
            server.stats()
            truth = server._truth
            number = truth._descriptor
        # Another file gets the number of the truth file.
        os.dup2(other.fileno(), number)
        try:
            with pytest.raises(vantor.ConnectionLost, match="was closed"):
                list(frames)
            with pytest.raises(vantor.ConnectionLost, match="was closed"):
                session.single_frame()
            session.end()
            truth.begin_session([1])
            assert truth.find(1, 0) is None
            assert (tmp_path / "other").read_bytes() == content
            truth.close()
            assert os.path.sameopenfile(number, other.fileno())
        finally:
            os.close(number)


def test_has_no_truth_of_other_servers(tmp_path):
    with RunningServer("--tcp", "0", "--clock", "virtual") as running, connect(running.address) as server:
        assert server.session(item()).single_frame().truth == (None,)
    with connect(f"sim:--truth '{tmp_path}/truth.jsonl'") as server:
        assert server.session(item()).single_frame().truth == (None,)
    assert (tmp_path / "truth.jsonl").exists()


def test_repeats_a_session_exactly():
    def measure():
        with connect() as server, server.session(EXAMPLES / "two_sensors.json") as session:
            return [[place.samples.tobytes() for place in frame] for frame in session.frames(count=10)]
    assert measure() == measure()


def test_keeps_frames_unchanged():
    with connect() as server, server.session(item(sweeps_per_frame=60)) as session:
        frames, copies = [], []
        for frame in session.frames(count=300):
            frames.append(frame)
            copies.append(frame[0, 0].samples.copy())
        assert frames[0][0, 0].samples.nbytes > 2**14, "it is long enough to be received without a copy"
        for frame, copy in zip(frames, copies, strict=True):
            np.testing.assert_array_equal(frame[0, 0].samples, copy)
            with pytest.raises(ValueError, match="read-only"):
                frame[0, 0].samples[0] = 0


def test_reports_clear_channel_assessment():
    with connect() as server:
        document = item()
        document["groups"][0][0].update(cca_enable=True, cca_debug=True)
        first, second = server.session(document).frames(count=2)
        assert first[0, 0].flags.data_valid is False and not first[0, 0].flags.usable
        assert second[0, 0].flags.data_valid is True and second[0, 0].flags.usable
        assert second[0, 0].flags.tx_enabled is True and second[0, 0].flags.cca_detected is False
        assert second[0, 0].cca_value is not None


def test_counts_the_frames_that_the_server_leaves_out():
    document = {"update_rate": 500, "groups": [[{"sensor_id": 1, "config": {"num_points": 4, "hwaas": 1}}]]}
    with RunningServer("--tcp", "0") as running, connect(running.address) as server:
        session = server.session(document)
        assert session.frame_rate_hz == pytest.approx(500)
        frames = []
        for frame in session.frames(count=100):
            frames.append(frame)
            if frame.number == 10:
                running.kill(signal.SIGSTOP)
                # At least 49 frames become due.
                time.sleep(0.1)
                running.kill(signal.SIGCONT)
        first, last = frames[0], frames[-1]
        # Each frame is late by less than a period.
        assert abs(last.number + last.missing - (last[0, 0].tick - first[0, 0].tick) / 2000) < 1
        assert last.missing >= 49
        assert max(frame.lost_before for frame in frames) >= 48
        # The last frame may be late by so much that one more seems to be missing.
        assert session.frames_left_out >= last.missing - 1


def test_a_forked_process_leaves_the_session_alone():
    with connect() as server, server.session(item()) as session:
        for frame in session.frames(count=20):
            if frame.number == 5:
                child = os.fork()
                if child == 0:
                    # Leaves the loop and both contexts like a program that ends.
                    break
        if child == 0:
            message = ""
            try:
                session.single_frame()
            except vantor.ConnectionLost as failure:
                message = str(failure)
            server.close()
            os._exit(0 if message.startswith("This process was forked") else 1)
        assert os.waitpid(child, 0) == (child, 0)
        assert frame.number == 19 and session.single_frame().number == 0


def test_hands_calibrations_back(scene):
    with connect() as server:
        calibrations = server.session(item()).calibrations
        assert [entry.sensor_id for entry in calibrations] == [1] and len(calibrations[0].data) == 480
        again = server.session(item(), calibrations)
        assert again.calibrations == calibrations
        assert again.configuration["calibration_info"][0]["data"] == calibrations[0].data


def test_saves_and_loads_calibrations(tmp_path):
    with connect() as server:
        vantor.save_calibrations(tmp_path / "calibration.json", server.session(item()).calibrations)
        server.session(item(), vantor.load_calibrations(tmp_path / "calibration.json")).single_frame()


def test_passes_the_log_of_the_server_to_logging(caplog):
    with connect() as server, caplog.at_level(logging.INFO, "vantor.server"):
        server.log("INFO")
        server.session(item()).end()
    assert any("Powered on sensor id 1" in record.getMessage() for record in caplog.records)


def test_reports_refused_configurations_and_goes_on():
    with connect() as server:
        with pytest.raises(vantor.ServerError) as failure:
            server.session(item(prf="fast"))
        assert failure.value.code == "invalid_prf"
        assert failure.value.faults == vantor.validate(item(prf="fast"))
        assert "\n/groups/0/0/config/prf: got \"fast\"; allowed: " in str(failure.value)
        with pytest.raises(vantor.ServerError) as failure:
            server.session({"groups": [[{"sensor_id": 3, "config": {}}], [{"sensor_id": 9, "config": {}}]]})
        assert failure.value.faults == () and "\n" not in str(failure.value)
        with pytest.raises(vantor.ConfigurationError):
            server.session("/does/not/exist.json")
        assert len(server.session(item()).single_frame()) == 1


def test_reports_a_sensor_that_fails(scene):
    with connect(scene(faults=[{"sensor": 1, "kind": "failing_read", "skip": 3}])) as server:
        with pytest.raises(vantor.ServerError) as failure:
            list(server.session(item()).frames(count=10))
        assert failure.value.code == "nox_data"
        assert server.stats()["errors"] == {"nox_data": 1}


def test_receives_a_replayed_recording(tmp_path):
    recorded = str(tmp_path / "recorded")
    subprocess.run([os.environ["VANTOR"], "record", EXAMPLES / "two_sensors.json", "--frames", "20", "--output", recorded,
                    "--connect", "sim:--clock virtual"], check=True, capture_output=True, timeout=TIME_OUT)
    recording = vantor.open(recorded)
    replay = RunningServer(recorded, "--tcp", "0", "--speed", "max", program=("VANTOR", "replay"))
    with replay, connect(replay.address) as server:
        assert server.info.configuration == recording.configuration
        with server.session(server.info.configuration) as session:
            for frame, original in zip(session.frames(count=20), recording, strict=True):
                assert (frame.time, frame.missing) == (original.time, original.missing)
                for place, stored in zip(frame, original, strict=True):
                    np.testing.assert_array_equal(place.samples, stored.samples)
                    assert (place.tick, place.time, place.flags) == (stored.tick, stored.time, stored.flags)


def test_measures_groups_in_order():
    with connect() as server, server.session(EXAMPLES / "two_sensors.json") as session:
        times = [[place.time for place in frame] for frame in session.frames(count=3)]
        assert times[0][0] == 0.0 and times[1][2] > times[1][0] > times[0][2] > 0.0
