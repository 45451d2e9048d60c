"""Reads the documents of a recording: the collection and the metadata of the items."""

import hashlib
import os
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path
from typing import Any, TypeVar

from ._input_files import read_file, size_of
from ._items import list_items
from ._json_text import parse
from ._layout import SessionMetadata, decode_metadata, nominal_frame_rate
from ._printable import printable
from .errors import ConfigurationError, ProtocolError, RecordingError
from .frame import ItemLayout

COLLECTION_NAME = "session.sigmf-collection"
BOARDS_NAME = "boards.sigmf-collection"
NEXT_STREAMS = "vantor:next_streams"
TABLE_DIGEST = "vantor:frame_table_sha512"
UNLISTED_BREAKS = "vantor:breaks_not_listed"
#: Member of the metadata of an item that are not final: the most frames that are written at once, if not 1.
BLOCK_FRAMES = "vantor:frames_per_block"
_MOST_BLOCK_FRAMES = 64
TRUTH = "vantor:truth"

_FIRST_ITEM = "group-1-item-1"
_LARGEST_DOCUMENT = 2**24
_MOST_FRAMES = 10**12
_LONGEST_TIME = 2e22

_MOST_BOARDS = 1024
_LONGEST_NAME = 255

_Members = dict[str, Any]
_Result = TypeVar("_Result")


class _NotWritten(Exception):
    """A document was not written by the recorder: a member is missing or has the wrong type."""


@dataclass(frozen=True, slots=True)
class RecordedServer:
    """The server of a recorded session.

    Attributes:
        server_version: version of the server program.
        protocol_version: version of the protocol.
        sensor: model of the sensors.
        ticks_per_second: unit of all ticks; 0 if the server has no clock.
    """

    server_version: str
    protocol_version: int
    sensor: str
    ticks_per_second: float


@dataclass(frozen=True, slots=True)
class RecordedBoard:
    """The board of a recording; None for what is not known.

    Attributes:
        name: kind of board.
        id: distinguishes boards of one kind.
        address: of its server.
    """

    name: str | None
    id: str | None
    address: str | None


@dataclass(frozen=True, slots=True)
class ListedBoard:
    """A board of a recording of several ones.

    Attributes:
        board: the board.
        digests: SHA-512 of the metadata of its items, by the names of the items.
    """

    board: RecordedBoard
    digests: dict[str, str]


@dataclass(frozen=True, slots=True, eq=False)
class SessionDescription:
    """What is needed to understand the frames of a session.

    Attributes:
        configuration: the configuration document.
        metadata: the answer of the server to it.
        server: the server.
        source: where it was recorded from; None if unknown.
        truth: scene, seed, clock and sensors of a simulator whose truth is recorded; None if it is not.
    """

    configuration: _Members
    metadata: SessionMetadata
    server: RecordedServer
    source: Any
    truth: _Members | None

    @property
    def board(self) -> RecordedBoard:
        """The board, as far as the source describes it."""
        about = _text_members(self.source, "address")
        board = self.source.get("board") if isinstance(self.source, dict) else None
        return RecordedBoard(**about, **_text_members(board, "name", "id"))

    @property
    def frame_rate_hz(self) -> float:
        """Frames per second that were due; 0 if unknown."""
        return nominal_frame_rate(self.configuration, self.metadata, self.server.ticks_per_second)

    @property
    def tick_period(self) -> float:
        """Ticks between two frames that are due; 0 if unknown."""
        rate = self.frame_rate_hz
        return self.server.ticks_per_second / rate if rate > 0.0 else 0.0


@dataclass(slots=True, eq=False)
class ItemDocument:
    """The metadata of an item.

    Attributes:
        name: of its files, without extension.
        layout: of its frames.
        document: as read; None if it is damaged.
        digest: SHA-512 of the file; empty if it cannot be read.
    """

    name: str
    layout: ItemLayout
    document: _Members | None = None
    digest: str = ""

    @property
    def is_finished(self) -> bool:
        """Whether the metadata contain the number of frames and the digest of the samples."""
        return self.document is not None and "core:sha512" in self.document["global"]


@dataclass(slots=True, eq=False)
class RecordingDocuments:
    """The documents of a recording.

    Attributes:
        directory: that contains them.
        session: the description of the session.
        collection: None if it is damaged.
        items: in the order of the configuration.
        faults: what is wrong with documents that are damaged.
    """

    directory: Path
    session: SessionDescription
    collection: _Members | None
    items: list[ItemDocument]
    faults: list[str]


def read_documents(place: Path, in_progress: bool) -> RecordingDocuments:
    """Reads the documents of a recording; if one is damaged, the others replace it as far as possible.

    place: the directory of the recording, or any of its files
    in_progress: whether a program records there now

    Raises RecordingError if there is no recording, or none of its documents describes the session.
    """
    directory = _recording_directory(place)
    _require_recording(place, directory, in_progress)
    documents, confirmed = _read_session_twice(directory)
    originals = [item for group in documents.session.configuration.get("groups", []) for item in group]
    for layout, original in zip(documents.session.metadata.layouts, originals, strict=True):
        item = ItemDocument(f"group-{layout.group + 1}-item-{layout.index + 1}", layout)
        documents.items.append(item)
        try:
            _read_item(directory, item)
            _compare_with_session(documents, original, confirmed)
        except RecordingError as failure:
            documents.faults.append(str(failure))
    return documents


def has_boards(place: Path) -> bool:
    """Whether a place is a recording of several boards: its directory, or the document that lists them.

    The document can be missing in a directory that is not a recording itself, but has recordings in its directories.
    """
    return place.name == BOARDS_NAME or os.path.exists(place / BOARDS_NAME) or _has_recordings_inside(place)


def read_boards(directory: Path) -> dict[str, ListedBoard]:
    """The boards of a recording of several ones, by the names of their directories; raises RecordingError."""
    path = directory / BOARDS_NAME
    _require_document(path)
    text = _read_text(path)

    def read() -> dict[str, ListedBoard]:
        collection = _member(parse(text, str(path)), "collection", dict)
        boards = _list_boards(path, _member(collection, "vantor:boards", list))
        for stream in _member(collection, "core:streams", list):
            _list_item(path, boards, _member(stream, "name", str), _member(stream, "hash", str))
        return boards

    try:
        boards = _read_checked(path, read)
    except RecordingError as failure:
        advice = f' "vantor repair {directory}" writes it again.' if _has_recordings_inside(directory) else ""
        raise RecordingError(f"{failure}{advice}") from None
    for name in boards:
        _require_inside(directory / name)
    return boards


def _has_documents(directory: Path) -> bool:
    """Whether a directory has the collection of a recording, or the metadata of its first item."""
    names = (COLLECTION_NAME, f"{_FIRST_ITEM}.sigmf-meta")
    return any(os.path.exists(directory / name) for name in names)


def _is_board(entry: "os.DirEntry[str]") -> bool:
    """Whether a path is the directory of a recording that can be listed."""
    is_directory = entry.is_dir(follow_symlinks=False)
    return is_directory and _is_file_name(entry.name) and _has_documents(Path(entry.path))


def _has_recordings_inside(directory: Path) -> bool:
    """Whether a directory has directories with recordings, but is not a recording itself."""
    if _has_documents(directory):
        return False
    try:
        with os.scandir(directory) as entries:
            return any(map(_is_board, entries))
    except OSError:
        return False


def _require_document(path: Path) -> None:
    """Raises RecordingError if the document that lists boards is missing beside recordings."""
    if not os.path.lexists(path) and _has_recordings_inside(path.parent):
        raise RecordingError(
            f'{path} is missing: if the recordings beside it belong together, "vantor repair {path.parent}" writes '
            "it again; otherwise give one of their directories."
        )


def has_digest(path: Path, digest: str) -> bool:
    """Whether a document can be read and has a digest."""
    try:
        return hashlib.sha512(_read_text(path)).hexdigest() == digest
    except RecordingError:
        return False


def _list_boards(path: Path, entries: list[Any]) -> dict[str, ListedBoard]:
    """The boards in the document at a path, by the names of their directories; raises RecordingError."""
    if not 1 <= len(entries) <= _MOST_BOARDS:
        raise RecordingError(f"{path} lists {len(entries)} boards; a recording has 1 to {_MOST_BOARDS}.")
    boards: dict[str, ListedBoard] = {}
    for entry in entries:
        name = _member(entry, "directory", str)
        about = (_optional(entry, "name", str, None), _optional(entry, "id", str, None))
        board = ListedBoard(RecordedBoard(*about, _optional(entry, "address", str, None)), {})
        if not _is_file_name(name):
            raise RecordingError(
                f'{path}: "{printable(name)}" is not the name of a directory beside this file.'
            )
        if boards.setdefault(name, board) is not board:
            raise RecordingError(f'{path} lists two boards with the directory "{name}".')
    return boards


def _list_item(path: Path, boards: dict[str, ListedBoard], name: str, digest: str) -> None:
    """Adds an item to its board; raises RecordingError if it belongs to none."""
    directory, _, item = name.partition("/")
    if directory not in boards or not _is_file_name(item):
        raise RecordingError(f'{path}: "{printable(name)}" is not an item of one of the boards.')
    boards[directory].digests[item] = digest


def _is_file_name(name: str) -> bool:
    """Whether a text is the name of a file or directory in the current directory that is not hidden."""
    fits = 0 < len(name.encode("utf-8", "replace")) <= _LONGEST_NAME and printable(name) == name
    return fits and not name.startswith(".") and "/" not in name


def _require_inside(place: Path) -> None:
    """Raises RecordingError if the recording of a board is not in the directory of the document."""
    if place.is_symlink():
        raise RecordingError(
            f"{place} is a symbolic link: a recording of several boards must contain the recordings themselves."
        )
    if place.exists() and not place.is_dir():
        raise RecordingError(f"{place} is not a directory.")


def _text_members(members: Any, *names: str) -> dict[str, str | None]:
    """Members of an object that may be missing or anything else, which is None then."""
    found = members if isinstance(members, dict) else {}
    return {name: found[name] if isinstance(found.get(name), str) else None for name in names}


def is_listed(collection: _Members, index: int, name: str, digest: str) -> bool:
    """Whether a collection lists the metadata of an item, by the digest of their file."""
    for member in ("core:streams", NEXT_STREAMS):
        streams = collection.get(member)
        if isinstance(streams, list) and index < len(streams):
            if streams[index] == {"name": name, "hash": digest}:
                return True
    return False


def _recording_directory(place: Path) -> Path:
    if not place.exists():
        raise RecordingError(
            f'{place} does not exist: give the directory of a recording, as printed by "vantor record".'
        )
    return place if place.is_dir() else place.parent


def _require_recording(place: Path, directory: Path, in_progress: bool) -> None:
    """Raises RecordingError if the directory of a place does not have the documents of a recording."""
    collection = directory / COLLECTION_NAME
    if collection.exists() or (directory / f"{_FIRST_ITEM}.sigmf-meta").exists():
        return
    if in_progress:
        raise RecordingError(f"The recording in {directory} is just being started: open it in a moment.")
    samples = directory / f"{_FIRST_ITEM}.sigmf-data"
    if samples.exists() and samples.stat().st_size == 0:
        raise RecordingError(
            f"Nothing was recorded in {directory}: the program was ended while it created the files. Remove "
            "the directory."
        )
    advice = 'give the directory of a recording, as printed by "vantor record".'
    if place.suffix == ".json":
        advice += " To read a configuration, use vantor.load_configuration()."
    if place != directory:
        raise RecordingError(f"{place} is not a file of a recording: {advice}")
    raise RecordingError(f"Cannot read {collection}: {advice}")


def _read_text(path: Path) -> bytes:
    if size_of(path) > _LARGEST_DOCUMENT:
        raise RecordingError(f"{path} is too large: it has more than 16 MB.")
    return read_file(path)


def _read_checked(path: Path, read: Callable[[], _Result]) -> _Result:
    """Calls a function that reads a document; turns each of its exceptions into RecordingError."""
    try:
        return read()
    except _NotWritten:
        raise RecordingError(
            f'{path} was not written by "vantor record": a member is missing or has the wrong type.'
        ) from None
    except (ConfigurationError, ProtocolError) as failure:
        reason = str(failure)
        raise RecordingError(reason if reason.startswith(str(path)) else f"{path}: {reason}") from None


def _member(members: Any, name: str, kind: type | tuple[type, ...]) -> Any:
    """A required member of a type."""
    if not isinstance(members, dict) or name not in members or not _is(members[name], kind):
        raise _NotWritten
    return members[name]


def _optional(members: _Members, name: str, kind: type | tuple[type, ...], otherwise: Any) -> Any:
    return _member(members, name, kind) if name in members else otherwise


def _is(value: Any, kind: type | tuple[type, ...]) -> bool:
    """Whether a value has a type; true and false are not numbers."""
    return isinstance(value, kind) and (kind is bool or not isinstance(value, bool))


def _read_session(members: _Members) -> SessionDescription:
    """Reads the description of the session from an object that contains it."""
    about = _member(members, "vantor:server", dict)
    configuration = _member(members, "vantor:configuration", object)
    document = _member(members, "vantor:metadata", dict)
    _check_number_of_items(configuration, document)
    truth = members.get(TRUTH)
    session = SessionDescription(
        configuration=configuration,
        metadata=decode_metadata(document, configuration),
        server=RecordedServer(
            server_version=_member(about, "version", str),
            protocol_version=_check_version(_member(about, "protocol_version", int)),
            sensor=_member(about, "sensor", str),
            ticks_per_second=float(_member(about, "ticks_per_second", (int, float))),
        ),
        source=members.get("vantor:source"),
        truth=truth,
    )
    if TRUTH in members and not isinstance(truth, dict):
        raise ConfigurationError(f"{TRUTH} is not an object.")
    return session


def _check_version(version: int) -> int:
    if not -(2**31) <= version < 2**31:
        raise ProtocolError("The version of the protocol is not a whole number.")
    return version


def _check_number_of_items(configuration: Any, document: _Members) -> None:
    """Raises ConfigurationError if configuration and metadata have different numbers of items."""
    configured = list_items(configuration) if isinstance(configuration, dict) else []
    groups = document.get("metadata")
    if isinstance(groups, list) and all(isinstance(group, list) for group in groups):
        if not configured or len(configured) != sum(map(len, groups)):
            raise ConfigurationError(
                "The configuration and the metadata of the recording have different numbers of items."
            )


@dataclass(frozen=True, slots=True, eq=False)
class _Description:
    """A document that contains the description of the session, and the digest of its file."""

    members: _Members
    digest: str
    session: SessionDescription


def _read_description(path: Path, *names: str) -> _Description:
    """Reads the description of the session from the object at a place in a document."""
    text = _read_text(path)

    def read() -> _Description:
        members: Any = parse(text, str(path))
        for name in names:
            members = _member(members, name, dict)
        return _Description(members, hashlib.sha512(text).hexdigest(), _read_session(members))

    return _read_checked(path, read)


def _read_session_twice(directory: Path) -> tuple[RecordingDocuments, bool]:
    """Reads the description of the session from the collection, or from its copy if that is damaged.

    Returns also whether a second document confirms it: the collection and its copy agree, or a digest shows
    which one is right.
    """
    copy_path = directory / f"{_FIRST_ITEM}.sigmf-meta"
    try:
        copy = _read_description(copy_path, "global", "vantor:session")
    except RecordingError:
        copy = None
    try:
        found = _read_description(directory / COLLECTION_NAME, "collection")
    except RecordingError as failure:
        if copy is None:
            raise RecordingError(
                f"{failure} No other document contains a copy of the description of the session."
            ) from None
        return RecordingDocuments(directory, copy.session, None, [], [str(failure)]), False
    documents = RecordingDocuments(directory, found.session, found.members, [], [])
    if copy is None:
        return documents, False
    return documents, _compare_with_copy(documents, copy)


def _compare_with_copy(documents: RecordingDocuments, copy: _Description) -> bool:
    """Compares the description with its copy, which is right if the item has its digest.

    Returns whether it is known which one is right.
    """
    collection = documents.collection or {}
    trusted = is_listed(collection, 0, _FIRST_ITEM, copy.digest)
    agree = True
    for name in ("vantor:configuration", "vantor:metadata", "vantor:server", "vantor:source", TRUTH):
        if collection.get(name) == copy.members.get(name):
            continue
        documents.faults.append(
            f"{COLLECTION_NAME}: {name} differs from its copy in {_FIRST_ITEM}.sigmf-meta."
        )
        agree = False
        if trusted:
            collection[name] = copy.members.get(name)
            documents.session = copy.session
    return agree or trusted


def _read_item(directory: Path, item: ItemDocument) -> None:
    """Reads the metadata of an item, and computes their digest."""
    path = directory / f"{item.name}.sigmf-meta"
    text = _read_text(path)
    item.digest = hashlib.sha512(text).hexdigest()

    def read() -> _Members:
        document = parse(text, str(path))
        _check_item(document, item.layout)
        return dict(document)

    item.document = _read_checked(path, read)


def _check_item(document: Any, layout: ItemLayout) -> None:
    """Checks that the metadata of an item have the members that are used, and belong to the session."""
    members = _member(document, "global", dict)
    captures = _member(document, "captures", list)
    if not captures:
        raise _NotWritten
    for capture in captures:
        _check_capture(capture, layout.frame_length)
    if _member(members, "vantor:samples_per_frame", (int, float)) != layout.frame_length:
        raise _NotWritten
    _check_count(members, UNLISTED_BREAKS)
    if not 0 <= _optional(members, BLOCK_FRAMES, int, 1) <= _MOST_BLOCK_FRAMES:
        raise _NotWritten
    if "core:sha512" in members:
        _member(members, "core:sha512", str)
        _optional(members, TABLE_DIGEST, str, "")
        _check_count(members, "vantor:frames_missing")
        frames = _member(members, "vantor:frames", int)
        if not 0 <= frames <= _MOST_FRAMES:
            raise _NotWritten


def _check_count(members: _Members, name: str) -> None:
    """A member must be a number of frames, or missing, as in recordings of earlier versions."""
    if _optional(members, name, int, 0) < 0:
        raise _NotWritten


def _check_capture(capture: Any, frame_length: int) -> None:
    """Checks that a segment of frames is described as the recorder does."""
    start = _member(capture, "core:sample_start", int)
    index = _member(capture, "core:global_index", int)
    _optional(capture, "core:datetime", str, "")
    _optional(capture, "vantor:break", str, "")
    gap = float(_optional(capture, "vantor:break_s", (int, float), 0.0))
    temperature = _optional(capture, "vantor:calibration_temperature", int, 0)
    possible = 0 <= start <= index and 0.0 <= gap <= _LONGEST_TIME and -(2**31) <= temperature < 2**31
    if not possible or start % max(frame_length, 1):
        raise _NotWritten


def _compare_with_session(documents: RecordingDocuments, original: _Members, confirmed: bool) -> None:
    """Compares the metadata of the last item with the description of the session.

    They are corrected if they are not those that the collection lists and a second document confirms the
    description.
    """
    item, index = documents.items[-1], len(documents.items) - 1
    members = item.document["global"] if item.document else {}
    expected = {
        "vantor:samples_per_sweep": item.layout.points,
        "vantor:base_step_length_m": item.layout.base_step_m,
        "vantor:item_configuration": original,
    }
    for name, value in expected.items():
        if members.get(name) is None or members[name] == value:
            continue
        documents.faults.append(
            f"{item.name}.sigmf-meta: {name} differs from the description of the session."
        )
        listed = documents.collection and is_listed(documents.collection, index, item.name, item.digest)
        if not listed and confirmed:
            members[name] = value
