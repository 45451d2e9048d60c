"""The rules of the SigMF standard, version 1.2.5, that a recording of `vantor` must follow."""

import csv
import datetime
import hashlib
import json
import keyword
import os
import re

from vantor_process import EXAMPLES

EXTENSION_DOCUMENTS = os.path.join(os.path.dirname(EXAMPLES), "docs")

CPP_KEYWORDS = set("""alignas alignof and and_eq asm auto bitand bitor bool break case catch char char8_t char16_t
    char32_t class co_await co_return co_yield compl concept const consteval constexpr constinit const_cast continue
    decltype default delete do double dynamic_cast else enum explicit export extern false float for friend goto if
    inline int long mutable namespace new noexcept not not_eq nullptr operator or or_eq private protected public
    register reinterpret_cast requires return short signed sizeof static static_assert static_cast struct switch
    template this thread_local throw true try typedef typeid typename union unsigned using virtual void volatile
    wchar_t while xor xor_eq""".split())

SAMPLE_SIZE = 4


class RuleBroken(AssertionError):
    """A document breaks a rule of the standard."""


def require(is_followed, rule):
    """Fails unless a rule is followed."""
    if not is_followed:
        raise RuleBroken(rule)


def is_integer(value):
    return isinstance(value, int) and not isinstance(value, bool) and value >= 0


def is_number(value):
    return isinstance(value, (int, float)) and not isinstance(value, bool)


def is_text(value):
    return isinstance(value, str)


def is_sha512(value):
    return is_text(value) and re.fullmatch(r"[0-9a-fA-F]{128}", value) is not None


def is_version(value):
    return is_text(value) and re.match(r"^\d+\.\d+\.\d", value) is not None


def is_datatype(value):
    return is_text(value) and re.match(r"^(c|r)(f32|f64|i32|i16|u32|u16|i8|u8)(_le|_be)?$", value) is not None


def is_sample_rate(value):
    return is_number(value) and 1 <= value <= 1e12


def is_datetime(value):
    """RFC 3339 in UTC, with upper-case letters, and a time that exists."""
    if not is_text(value) or not re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?Z", value):
        return False
    try:
        return datetime.datetime.fromisoformat(value).tzinfo == datetime.timezone.utc
    except ValueError:
        return False


def is_extensions(value):
    """A list of declarations, each with exactly the three members."""
    return isinstance(value, list) and all(
        isinstance(entry, dict) and set(entry) == {"name", "version", "optional"} and is_text(entry["name"]) and
        is_version(entry["version"]) and isinstance(entry["optional"], bool) for entry in value)


def is_streams(value):
    return isinstance(value, list) and all(
        isinstance(entry, dict) and set(entry) == {"name", "hash"} and is_text(entry["name"]) and
        is_sha512(entry["hash"]) for entry in value)


# The members that the standard defines, for each object of a recording, and their types.
GLOBAL = {"core:datatype": is_datatype, "core:version": is_version, "core:sample_rate": is_sample_rate,
          "core:sha512": is_sha512, "core:description": is_text, "core:recorder": is_text, "core:hw": is_text,
          "core:author": is_text, "core:license": is_text, "core:collection": is_text, "core:offset": is_integer,
          "core:num_channels": is_integer, "core:extensions": is_extensions}
CAPTURE = {"core:sample_start": is_integer, "core:global_index": is_integer, "core:datetime": is_datetime,
           "core:frequency": is_number}
ANNOTATION = {"core:sample_start": is_integer, "core:sample_count": is_integer, "core:label": is_text,
              "core:comment": is_text, "core:generator": is_text, "core:uuid": is_text}
COLLECTION = {"core:version": is_version, "core:description": is_text, "core:author": is_text,
              "core:license": is_text, "core:extensions": is_extensions, "core:streams": is_streams}


def check_members(members, known, required, namespaces, where):
    """Checks names, types and presence of an object's members."""
    require(isinstance(members, dict), f"{where} is an object")
    for name in required:
        require(name in members, f"{where} has {name}")
    for name, value in members.items():
        parts = name.split(":")
        require(len(parts) == 2, f"{where}: {name} is a namespace, a colon and a name")
        for part in parts:
            require(re.fullmatch(r"[A-Za-z_][A-Za-z0-9_]*", part), f"{where}: {name} has only letters, digits and _")
            require(part not in CPP_KEYWORDS and not keyword.iskeyword(part), f"{where}: {name} is not a keyword")
        if parts[0] == "core":
            require(name in known, f"{where}: {name} is a member of the standard")
            require(known[name](value), f"{where}: {value!r} is a valid {name}")
        else:
            require(parts[0] in namespaces, f"{where}: the namespace of {name} is declared")


def declared_namespaces(members):
    """The namespaces that an object declares; each must be documented."""
    names = [entry["name"] for entry in members.get("core:extensions", []) if isinstance(entry, dict)]
    for name in names:
        require(os.path.exists(os.path.join(EXTENSION_DOCUMENTS, f"{name}.sigmf-ext.md")), f"{name} has a document")
    return names


def check_order(segments, member, where):
    values = [segment[member] for segment in segments]
    require(values == sorted(values), f"{where} are in ascending order of {member}")


def check_item_document(document):
    """Checks an item's metadata alone."""
    require(isinstance(document, dict) and set(document) == {"global", "captures", "annotations"},
           "a document has only global, captures and annotations")
    about = document["global"]
    require(isinstance(about, dict), "global is an object")
    namespaces = declared_namespaces(about)
    check_members(about, GLOBAL, ("core:datatype", "core:version"), namespaces, "global")
    for name, known in (("captures", CAPTURE), ("annotations", ANNOTATION)):
        require(isinstance(document[name], list), f"{name} is an array")
        for segment in document[name]:
            check_members(segment, known, ("core:sample_start",), namespaces, name)
        check_order(document[name], "core:sample_start", name)
    require(len(document["captures"]) > 0, "there is a capture")
    check_order(document["captures"], "core:global_index", "captures")
    for segment in document["captures"]:
        require(segment["core:global_index"] >= segment["core:sample_start"], "global_index is at least sample_start")


def check_data(document, base, complete):
    """The samples and the frame table are as described in the metadata."""
    about = document["global"]
    require(about["core:datatype"] == "ci16_le", "samples are complex 16-bit integers, low byte first")
    with open(base + ".sigmf-data", "rb") as file:
        digest = hashlib.file_digest(file, "sha512").hexdigest()
    samples, rest = divmod(os.path.getsize(base + ".sigmf-data"), SAMPLE_SIZE)
    require(rest == 0 or complete is False, "the data contains only complete samples")
    require("core:sha512" in about or complete is not True, "a complete recording has a digest")
    require("core:sha512" not in about or complete is not False, "a killed recording does not have a digest")
    for segment in document["captures"] + document["annotations"]:
        require(segment["core:sample_start"] <= samples, "segments start within the data")
    if "core:sha512" not in about:
        return
    require(about["core:sha512"] == digest, "the digest matches the data")
    require(samples == about["vantor:frames"] * about["vantor:samples_per_frame"], "the data is exactly the frames")
    with open(os.path.join(os.path.dirname(base), about["vantor:frame_table"]), encoding="ascii", newline="") as file:
        rows = list(csv.DictReader(file))
    require([int(row["frame"]) for row in rows] == list(range(about["vantor:frames"])), "the table has every frame")


def check_collection(document, metas):
    """Checks a collection, which must list every recording with the digest of its metadata."""
    require(isinstance(document, dict) and set(document) == {"collection"}, "a document has only collection")
    about = document["collection"]
    require(isinstance(about, dict), "collection is an object")
    check_members(about, COLLECTION, ("core:version",), declared_namespaces(about), "collection")
    listed = [(entry["name"], entry["hash"]) for entry in about["core:streams"]]
    require(sorted(listed) == sorted(metas.items()), "the streams are the recordings, with the correct digests")


def read_json(path):
    """A document, which must be JSON in UTF-8, and the digest of its file."""
    with open(path, "rb") as file:
        content = file.read()
    return json.loads(content.decode("utf-8")), hashlib.sha512(content).hexdigest()


def check_recording(directory, complete=True):
    """
    Checks a complete recording.

    complete: whether the recording was finished; None if the disk may have been too full for its last documents.
    """
    bases = {}
    for name in sorted(os.listdir(directory)):
        bases.setdefault(os.path.splitext(name)[1], set()).add(os.path.splitext(name)[0])
    metas = bases.get(".sigmf-meta", set())
    require(metas and metas == bases.get(".sigmf-data"), "every recording has data and metadata")
    digests = {}
    for name in metas:
        require(re.fullmatch(r"[A-Za-z0-9.-]+", name), f"{name} has neither spaces nor underscores")
        document, digests[name] = read_json(os.path.join(directory, name + ".sigmf-meta"))
        check_item_document(document)
        check_data(document, os.path.join(directory, name), complete)
        require(document["global"]["core:collection"] in bases[".sigmf-collection"], "the collection exists")
    require(len(bases[".sigmf-collection"]) == 1, "there is exactly one collection")
    for name in bases[".sigmf-collection"]:
        document, _ = read_json(os.path.join(directory, name + ".sigmf-collection"))
        check_collection(document, digests)
