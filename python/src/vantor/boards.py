"""Recordings of several boards: one directory for each board, and a document that lists them."""

import os
import warnings
from pathlib import Path
from types import MappingProxyType
from typing import Any, NoReturn

from ._recording_documents import BOARDS_NAME, RecordedBoard, has_boards, has_digest, read_boards
from .errors import RecordingError, RecordingWarning
from .recording import Recording

__all__ = ["BoardsRecording"]

#: What only a recording of one board has.
_OF_ONE_BOARD = frozenset(("layouts", "_files", "_samples", "_places", "_truth", "_board"))


class BoardsRecording(Recording):
    """The recordings of several boards, which were made together.

    `boards` has the recording of each. `directory`, `finished`, `in_progress`, `total_missing`, `damage()`,
    `frames_by_utc()` and `close()` are about all of them; everything else raises a RecordingError.
    """

    def __init__(self, path: str | os.PathLike[str]) -> None:
        """Opens the recordings in a directory, which can also be given by the document that lists the boards.

        A RecordingWarning describes boards whose recording cannot be read; they are left out.

        Raises:
            RecordingError: the document cannot be read, or none of the recordings.
        """
        place = Path(path).absolute()
        self._directory = place if place.is_dir() else place.parent
        self._failures: dict[str, RecordingError] = {}
        boards: dict[str, Recording] = {}
        self._listed = read_boards(self._directory)
        for name, listed in self._listed.items():
            try:
                boards[name] = _open_board(self._directory / name, listed.board)
            except RecordingError as failure:
                self._failures[name] = failure
        self._boards = MappingProxyType(boards)
        for name, reason in self._failures.items():
            if not boards:
                raise reason
            warnings.warn(f"The recording of board {name} is left out: {reason}", RecordingWarning, stacklevel=3)

    @property
    def directory(self) -> Path:
        """The directory of all recordings."""
        return self._directory

    @property
    def boards(self) -> "MappingProxyType[str, Recording]":
        """The recordings of all boards, by the names of their directories."""
        return self._boards

    @property
    def finished(self) -> bool:
        """Whether the recorder completed all recordings."""
        return all(board.finished for board in self._boards.values())

    @property
    def in_progress(self) -> bool:
        """Whether the recorder still wrote one of them when they were opened."""
        return any(board.in_progress for board in self._boards.values())

    @property
    def total_missing(self) -> int:
        """Number of missing frames of all boards."""
        return sum(board.total_missing for board in self._boards.values())

    def damage(self) -> tuple[str, ...]:
        """What is damaged in the recordings of all boards; empty if nothing is. Reads them completely."""
        faults = [str(reason) for reason in self._failures.values()]
        for name, board in self._boards.items():
            faults += [f"{name}: {fault}" for fault in board.damage()]
            faults += [] if board.in_progress else self._changed_documents(name)
        return tuple(faults)

    def _changed_documents(self, name: str) -> list[str]:
        """The metadata of a board that are not as they are listed."""
        return [
            f"{name}: {item}.sigmf-meta is not as {BOARDS_NAME} lists it."
            for item, digest in self._listed[name].digests.items()
            if not has_digest(self._directory / name / f"{item}.sigmf-meta", digest)
        ]

    def close(self) -> None:
        """Closes the files of all recordings."""
        for board in self._boards.values():
            board.close()

    def __reduce__(self) -> tuple[Any, ...]:
        """Copies and pickles as the path: it is opened again where it is used."""
        return BoardsRecording, (self._directory,)

    def __repr__(self) -> str:
        return f"<BoardsRecording {self._directory}: {', '.join(self._boards)}>"

    def __getattr__(self, name: str) -> NoReturn:
        if name not in _OF_ONE_BOARD:
            raise AttributeError(f"A recording has no {name!r}.", name=name, obj=self)
        boards = ", ".join(f'boards["{board}"]' for board in self._boards)
        raise RecordingError(f"{self._directory} contains recordings of several boards: use one of {boards}.")


def _open_board(directory: Path, board: RecordedBoard) -> Recording:
    """Opens the recording of a board; raises RecordingError if there is none."""
    if not directory.is_dir():
        raise RecordingError(f"{directory} does not exist: nothing of this board is left.")
    return Recording(directory, board)


def open(path: str | os.PathLike[str]) -> Recording:  # noqa: A001
    """Opens a recording: its directory, or any of its files; see Recording.

    Of the directory of several boards it is a BoardsRecording.
    """
    return BoardsRecording(path) if has_boards(Path(path)) else Recording(path)
