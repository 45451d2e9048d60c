"""Recordings of several boards: one object with the recording of each, and their frames on one time axis."""

import copy
import json
import math
import os
import pickle
import shutil
import subprocess
import warnings
from pathlib import Path
from typing import Any

import numpy as np
import pytest
from processes import ordinary_user
from recordings import describe_boards, make_boards, set_utc

import vantor

DOCUMENT = "boards.sigmf-collection"

FRAMES = 20


def utc_of(board: int, frame: int) -> float:
    """The time of a frame of the first or second board."""
    return 1.8e9 + 0.1 * frame + 0.925 * board


@pytest.fixture(scope="module")
def original(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Two boards."""
    return make_boards(tmp_path_factory.mktemp("boards") / "both", FRAMES)


@pytest.fixture
def directory(original: Path, tmp_path: Path) -> Path:
    """A copy, to change."""
    return shutil.copytree(original, tmp_path / "copy")


def test_has_the_recording_of_each_board(original: Path) -> None:
    for path in (original, original / DOCUMENT, str(original)):
        recording = vantor.open(path)
        assert isinstance(recording, vantor.BoardsRecording)
        assert list(recording.boards) == ["ceiling-a17", "door"]
    ceiling, door = recording.boards.values()
    assert ceiling.board == vantor.RecordedBoard("Ceiling", "A17", "tcp:10.0.0.7:6110")
    assert door.board == vantor.RecordedBoard("Door", None, "tcp:10.0.0.8:6110")
    assert recording.directory == original and ceiling.directory == original / "ceiling-a17"
    for name, board in recording.boards.items():
        single = vantor.open(original / name)
        assert type(single) is vantor.Recording and len(board) == len(single) == FRAMES
        np.testing.assert_array_equal(board[0, 1].samples, single[0, 1].samples)
    assert repr(recording) == f"<BoardsRecording {original}: ceiling-a17, door>"


def test_a_single_recording_is_its_only_board(original: Path) -> None:
    single = vantor.open(original / "door")
    assert dict(single.boards) == {"door": single}
    assert (single.board.name, single.board.id) == ("Door", None)
    assert str(single.board.address).startswith("sim:")
    assert [name for name, _ in single.frames_by_utc()] == ["door"] * FRAMES


def test_walks_the_frames_of_all_boards_in_order_of_utc(original: Path) -> None:
    recording = vantor.open(original)
    walked = [(name, frame.number) for name, frame in recording.frames_by_utc()]
    every = [
        (utc_of(board, number), (name, number))
        for board, name in enumerate(recording.boards)
        for number in range(FRAMES)
    ]
    assert walked == [frame for _, frame in sorted(every)]
    assert walked[8:13] == [("ceiling-a17", 8), ("ceiling-a17", 9), ("door", 0), ("ceiling-a17", 10), ("door", 1)]
    for name, frame in recording.frames_by_utc():
        assert frame.utc_s == recording.boards[name][0, 0].utc_s[frame.number]


def test_frames_whose_time_is_not_known_are_left_out(directory: Path) -> None:
    times = [",", ",", *(f"{utc_of(1, frame):.6f},0.001000" for frame in range(2, FRAMES))]
    set_utc(directory / "door" / "group-1-item-1.frames.csv", times)
    recording = vantor.open(directory)
    assert math.isnan(recording.boards["door"].frame(1).utc_s)
    walked = [frame.number for name, frame in recording.frames_by_utc() if name == "door"]
    assert walked == list(range(2, FRAMES))


def test_says_which_board_to_use(original: Path) -> None:
    recording = vantor.open(original)
    uses = [
        lambda: recording[0, 1],
        lambda: len(recording),
        lambda: list(recording),
        lambda: recording.frame(0),
        lambda: recording.configuration,
        lambda: recording.layouts,
        lambda: recording.board,
        lambda: recording.truth(0, 0),
        lambda: (0, 1) in recording,
        lambda: recording.frame_rate_hz,
    ]
    for use in uses:
        with pytest.raises(vantor.RecordingError, match=r'several boards: use one of boards\["ceiling-a17"\], boards'):
            use()
    with pytest.raises(AttributeError, match="'bords'"):
        recording.bords  # type: ignore[attr-defined]


def test_is_about_all_boards(directory: Path) -> None:
    recording = vantor.open(directory)
    assert recording.finished and not recording.in_progress
    assert recording.total_missing == 0
    # The times were written later.
    assert {fault.partition(":")[0] for fault in recording.damage()} == {"ceiling-a17", "door"}
    for again in (pickle.loads(pickle.dumps(recording)), copy.copy(recording)):
        assert list(again.boards) == ["ceiling-a17", "door"]
    with vantor.open(directory) as recording:
        door = recording.boards["door"]
    with pytest.raises(vantor.RecordingError, match="was closed"):
        door.frame(0)


def test_a_board_that_cannot_be_read_is_left_out(directory: Path) -> None:
    shutil.rmtree(directory / "door")
    with pytest.warns(vantor.RecordingWarning, match="board door is left out: .*/door does not exist") as shown:
        recording = vantor.open(directory)
    assert [warning.filename for warning in shown] == [__file__]
    assert list(recording.boards) == ["ceiling-a17"]
    assert recording.damage()[0].endswith("door does not exist: nothing of this board is left.")
    (directory / "door").mkdir()
    with pytest.warns(vantor.RecordingWarning, match="board door is left out: Cannot read"):
        vantor.open(directory)
    shutil.rmtree(directory / "ceiling-a17")
    with pytest.raises(vantor.RecordingError, match="/ceiling-a17 does not exist"):
        vantor.open(directory)


def test_a_damaged_board_is_reported_where_it_was_opened(directory: Path) -> None:
    (directory / "door" / "group-1-item-1.sigmf-meta").write_text("{")
    with pytest.warns(vantor.RecordingWarning, match="/door is damaged") as shown:
        recording = vantor.open(directory)
    assert [warning.filename for warning in shown] == [__file__]
    assert len(recording.boards["door"]) == FRAMES


def test_reports_metadata_that_are_not_as_listed(directory: Path) -> None:
    before = vantor.open(directory).damage()
    metadata = directory / "door" / "group-1-item-2.sigmf-meta"
    metadata.write_bytes(metadata.read_bytes() + b"\n")
    with pytest.warns(vantor.RecordingWarning, match="/door is damaged"):
        after = vantor.open(directory).damage()
    assert f"door: {metadata.name} is not as {DOCUMENT} lists it." in set(after) - set(before)


def test_a_list_that_is_missing_or_damaged_can_be_written_again(directory: Path) -> None:
    document = directory / DOCUMENT
    document.write_bytes(document.read_bytes()[:100])
    with pytest.raises(vantor.RecordingError, match=f'not valid JSON.* "vantor repair {directory}" writes it again'):
        vantor.open(directory)
    document.unlink()
    with pytest.raises(vantor.RecordingError) as failure:
        vantor.open(directory)
    assert str(failure.value) == (
        f'{document} is missing: if the recordings beside it belong together, "vantor repair {directory}" writes it '
        "again; otherwise give one of their directories."
    )
    # The times of the boards were written later, so that they cannot be repaired themselves.
    repaired = subprocess.run([os.environ["VANTOR"], "repair", directory], capture_output=True, text=True, check=False)
    assert f"{DOCUMENT}: lists the 2 boards again" in repaired.stdout
    recording = vantor.open(directory)
    assert list(recording.boards) == ["ceiling-a17", "door"]
    assert recording.boards["ceiling-a17"].board.name == "Ceiling"
    assert not [fault for fault in recording.damage() if DOCUMENT in fault]


def test_a_board_whose_address_is_not_known(directory: Path) -> None:
    recording = vantor.open(describe_boards(directory, [{"directory": name} for name in ("ceiling-a17", "door")]))
    assert recording.boards["door"].board.address is None


@pytest.mark.parametrize("kind", ["link", "file"])
def test_boards_must_be_directories_beside_the_document(kind: str, directory: Path) -> None:
    (directory / "door").rename(directory.with_name("elsewhere"))
    if kind == "link":
        (directory / "door").symlink_to(directory.with_name("elsewhere"))
    else:
        (directory / "door").touch()
    message = "/door is a symbolic link: a recording" if kind == "link" else "/door is not a directory"
    with pytest.raises(vantor.RecordingError, match=message):
        vantor.open(directory)


BOARD = {"directory": "door", "address": "sim:"}


@pytest.mark.parametrize(
    ("boards", "message"),
    [
        (None, ' was not written by "vantor record": a member is missing or has the wrong type.'),
        ({}, " was not written by"),
        ([], " lists 0 boards; a recording has 1 to 1024."),
        ([BOARD] * 1025, " lists 1025 boards; a recording has 1 to 1024."),
        ([{}], " was not written by"),
        (["door"], " was not written by"),
        ([{**BOARD, "directory": 1}], " was not written by"),
        ([{"address": "sim:"}], " was not written by"),
        ([{**BOARD, "name": 1}], " was not written by"),
        ([{**BOARD, "id": None}], " was not written by"),
        ([{**BOARD, "address": []}], " was not written by"),
        ([BOARD, BOARD], ' lists two boards with the directory "door".'),
        ([BOARD], ': "ceiling-a17/group-1-item-1" is not an item of one of the boards.'),
        *(
            ([{**BOARD, "directory": name}], f': "{name}" is not the name of a directory beside this file.')
            for name in ("", ".", "..", "../door", "a/b", "/door", ".door", "x" * 256, "ä" * 128)
        ),
        ([{**BOARD, "directory": "door\0"}], r': "door\x00" is not the name'),
    ],
)
def test_hostile_documents(directory: Path, boards: Any, message: str) -> None:
    with pytest.raises(vantor.RecordingError) as failure:
        vantor.open(describe_boards(directory, boards))
    assert str(failure.value).startswith(f"{directory / DOCUMENT}{message}")


@pytest.mark.parametrize(
    ("stream", "message"),
    [
        ({"name": "door", "hash": ""}, ': "door" is not an item of one of the boards.'),
        ({"name": "door/../x", "hash": ""}, ': "door/../x" is not an item of one of the boards.'),
        ({"name": "wall/x", "hash": ""}, ': "wall/x" is not an item of one of the boards.'),
        ({"name": "door/x", "hash": 1}, " was not written by"),
        ({"name": "door/x"}, " was not written by"),
        ("door/x", " was not written by"),
    ],
)
def test_hostile_items(directory: Path, stream: Any, message: str) -> None:
    collection = {"core:streams": [stream], "vantor:boards": [BOARD]}
    (directory / DOCUMENT).write_text(json.dumps({"collection": collection}))
    with pytest.raises(vantor.RecordingError) as failure:
        vantor.open(directory)
    assert str(failure.value).startswith(f"{directory / DOCUMENT}{message}")


@pytest.mark.parametrize(
    ("text", "message"),
    [
        (b"", "is not valid JSON"),
        (b"{", "is not valid JSON"),
        (b"\xff{}", "is not valid JSON"),
        (b'{"collection":{"vantor:boards":[{"directory":"\\ud800"}]}}', "is not valid JSON"),
        (b"[]", "was not written by"),
        (b"{}", "was not written by"),
        (b'{"collection":[]}', "was not written by"),
        (b"[" * 100_000, f"{DOCUMENT}"),
        (b'{"collection":{"a":1,"a":2}}', "twice"),
        (b" " * (2**24 + 1), "too large"),
    ],
)
def test_hostile_texts(directory: Path, text: bytes, message: str) -> None:
    (directory / DOCUMENT).write_bytes(text)
    with pytest.raises(vantor.RecordingError, match=message):
        vantor.open(directory)


def test_a_document_that_cannot_be_read(original: Path, tmp_path: Path) -> None:
    (tmp_path / DOCUMENT).mkdir()
    with pytest.raises(vantor.RecordingError, match="not a regular file"):
        vantor.open(tmp_path)
    with ordinary_user() as (place, become_ordinary):
        shutil.copyfile(original / DOCUMENT, place / DOCUMENT)
        (place / DOCUMENT).chmod(0)
        become_ordinary()
        with pytest.raises(vantor.RecordingError, match="Permission denied"):
            vantor.open(place)


def test_no_warning_for_boards_that_are_intact(original: Path) -> None:
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        vantor.open(original)
