"""Boards behind a message broker."""

import json
import os
import sys

import pytest
import vantor

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "../end_to_end"))

from broker_process import Bridge, Broker  # noqa: E402
from vantor_process import Server, wait_until  # noqa: E402

# Slow enough that a busy machine leaves no frame out.
CONFIGURATION = {"update_rate": 5.0, "groups": [[{"sensor_id": 1, "config": {"num_points": 50}}]]}


@pytest.fixture(scope="module")
def board(tmp_path_factory):
    """The address of a board behind a broker."""
    directory = tmp_path_factory.mktemp("relay")
    configuration = directory / "config.json"
    configuration.write_text(json.dumps(CONFIGURATION))
    with Broker() as broker, Server("--tcp", "0") as server, \
            Bridge(broker.address, str(configuration), f"--connect=door={server.address}", spool=str(directory / "spool")):
        wait_until(lambda: (broker.state("door") or {}).get("frames"), "frames of the board")
        yield f"{broker.address}/hall/door"


def test_gives_the_frames_of_the_board(board):
    with vantor.connect(board) as server:
        configuration = server.info.configuration
        assert configuration == CONFIGURATION
        with server.session(configuration) as session:
            frames = list(session.frames(count=5))
    assert [frame.missing for frame in frames] == [0] * 5
    assert frames[0][0, 0].samples.shape == (1, 50, 2)
    steps = [later.utc_s - earlier.utc_s for earlier, later in zip(frames, frames[1:], strict=False)]
    assert all(step > 0.0 for step in steps)
    assert 0.0 < frames[0].utc_bound_s < 1.0


def test_says_that_there_is_no_such_board(board):
    nobody = board.replace("door", "nobody")
    with pytest.raises(vantor.ConnectionLost, match="no frames of board nobody"):
        vantor.connect(nobody)


def test_says_that_the_program_is_missing(monkeypatch):
    monkeypatch.delenv("VANTOR", raising=False)
    monkeypatch.setenv("PATH", "/nowhere")
    with pytest.raises(vantor.ConnectError, match="Cannot find the program vantor in PATH"):
        vantor.connect("nats:localhost/hall/door")
