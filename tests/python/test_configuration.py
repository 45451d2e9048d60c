"""The package finds in configuration documents what the C++ host finds."""

import json
import math
import os
import re
from dataclasses import asdict
from pathlib import Path
from random import Random
from typing import Any

import numpy as np
import pytest
from documents import DocumentMaker
from processes import campaign
from verdicts import BAUDRATE, host_verdicts

import vantor

EXAMPLES = Path(os.environ["VANTOR_EXAMPLES"])
COUNT = campaign(whole=100_000, sample=1000)

ITEM_NAMES = {
    "index": "item",
    "sweeps": "sweeps_per_frame",
    "points": "samples_per_sweep",
    "frame_length": "samples_per_frame",
    "greatest_velocity_m_s": "greatest_velocity_mps",
    "smallest_velocity_m_s": "smallest_velocity_mps",
}


def same_numbers(text: str) -> str:
    """A text in which every number has as few digits as possible; the host now and then writes one more."""
    return re.sub(r"\d+\.\d+", lambda found: repr(float(found[0])), text)


def host_fault(fault: dict[str, Any]) -> dict[str, Any]:
    """A fault as the host prints it. Nearest values are compared by their types, too."""
    return {**fault, "nearest": json.dumps(fault["nearest"]), "allowed": same_numbers(fault["allowed"])}


def fault_of(fault: vantor.Fault) -> dict[str, Any]:
    """The same for a fault that the package has found."""
    return host_fault(asdict(fault))


def public_figures(part: Any) -> dict[str, Any]:
    """All numbers of an object, with the names that the host uses."""
    other_names = ITEM_NAMES if isinstance(part, vantor.ItemPlan) else {"length": "points"}
    names = [name for name in dir(part) if not name.startswith("_")]
    values = {other_names.get(name, name).removesuffix("_hz"): getattr(part, name) for name in names}
    return {name: value for name, value in values.items() if isinstance(value, (int, float, type(None)))}


def check_figures(plan: vantor.Plan, expected: dict[str, Any]) -> None:
    """Compare all figures of a plan, which must be the same to the last bit."""
    assert public_figures(plan) == {name: expected[name] for name in public_figures(plan)}
    unused = {"assumed", "warnings", "items"} | set(public_figures(plan))
    assert set(expected) <= unused
    assert list(map(fault_of, plan.warnings)) == list(map(host_fault, expected["warnings"]))
    for item, expected_item in zip(plan.items, expected["items"], strict=True):
        figures = public_figures(item)
        figures.update(group=item.group + 1, item=item.index + 1)
        figures.pop("frame_rate")
        assert figures == {name: value for name, value in expected_item.items() if name != "subsweeps"}
        subsweeps = [public_figures(part) for part in item.subsweeps]
        assert subsweeps == expected_item["subsweeps"]


def test_faults_and_figures_of_generated_documents() -> None:
    maker = DocumentMaker(seed=7)
    documents = [maker.document() for _ in range(COUNT)]
    verdicts = host_verdicts(json.dumps(document).encode() for document in documents)
    valid = 0
    for document, verdict in zip(documents, verdicts, strict=True):
        faults = vantor.validate(document)
        assert list(map(fault_of, faults)) == list(map(host_fault, verdict["faults"])), document
        if not faults:
            valid += 1
            check_figures(vantor.plan(document, BAUDRATE), verdict["figures"])
    assert COUNT / 10 < valid < COUNT * 9 / 10


def test_every_rule_is_broken_by_a_generated_document() -> None:
    maker = DocumentMaker(seed=7)
    found = "\n".join(str(fault) for _ in range(1000) for fault in vantor.validate(maker.document()))
    parts = (
        "only once in a group", "a last point of", "points times sweeps", "not deeper than",
        "above 0", "times \"sweeps_per_frame\"", "of one group", "not together with \"max_update_rate\"",
        "not together with \"update_rate\"", "a sweep takes longer", "a frame takes longer",
    )  # fmt: skip
    assert [part for part in parts if part not in found] == []


@pytest.mark.parametrize("name", ["single_sensor.json", "two_sensors.json"])
def test_examples_are_valid(name: str) -> None:
    document = vantor.load_configuration(EXAMPLES / name)
    assert vantor.validate(document) == ()
    [verdict] = host_verdicts([(EXAMPLES / name).read_bytes()])
    check_figures(vantor.plan(document, BAUDRATE), verdict["figures"])


def test_plan_of_an_item() -> None:
    plan = vantor.plan(vantor.load_configuration(EXAMPLES / "two_sensors.json"))
    assert plan[1, 0] is plan.items[2]
    with pytest.raises(IndexError, match=r"no item \[1, 1\]; it has \[0, 0\], \[0, 1\], \[1, 0\]"):
        plan[1, 1]
    with pytest.raises(TypeError, match="by group and index"):
        plan[0]  # type: ignore[index]
    assert (1, 0) in plan
    assert plan.items[1] in plan
    assert (1, 1) not in plan
    assert list(plan) == list(plan.items)
    assert len(plan) == 3
    item = plan.items[1]
    assert len(item.distances_m) == item.points
    for part in item.subsweeps:
        distances = item.distances_m[part.offset : part.offset + part.length]
        np.testing.assert_allclose(distances, np.linspace(part.first_m, part.last_m, part.length))


def with_numpy(value: Any) -> Any:
    """A document in which numbers and lists of numbers are those of NumPy."""
    if isinstance(value, dict):
        return {name: with_numpy(member) for name, member in value.items()}
    if isinstance(value, list):
        return np.array(value) if value and all(type(each) is int for each in value) else [*map(with_numpy, value)]
    kinds: dict[type, type] = {bool: np.bool_, int: np.int64, float: np.float64}
    return kinds[type(value)](value) if type(value) in kinds and abs(value) < 2**63 else value


def test_numbers_of_numpy_are_numbers() -> None:
    maker = DocumentMaker(seed=8)
    for document in [maker.document() for _ in range(100)]:
        assert vantor.validate(with_numpy(document)) == vantor.validate(document), document
    document = vantor.load_configuration(EXAMPLES / "two_sensors.json")
    assert vantor.plan(with_numpy(document)) == vantor.plan(document)
    config = {"num_points": np.uint16(20), "sweep_rate": np.float32(1000.5), "enable_tx": np.True_}
    document = {"update_rate": np.array(10.5), "groups": (({"sensor_id": np.int8(1), "config": config},),)}
    assert vantor.validate(document) == ()
    with vantor.connect("sim:--clock virtual") as server, server.session(document) as session:
        assert session.items[0].points == 20
        assert session.configuration["groups"][0][0]["config"] == {
            "num_points": 20, "sweep_rate": 1000.5, "enable_tx": True,
        }  # fmt: skip


def test_values_that_are_not_json_are_faults_with_a_place() -> None:
    config = {"hwaas": {1, 2}, "sweep_rate": math.nan, "subsweeps": np.array([1.0, math.inf]), "prf": 1j}
    document: dict[Any, Any] = {"groups": [[{"sensor_id": 1, "config": config}]], "update_rate": -math.inf, (1,): 2}
    faults = vantor.validate(document)
    place = "/groups/0/0/config"
    assert [(fault.pointer, fault.got) for fault in faults] == [
        (f"{place}/hwaas", "a value of type set"),
        (f"{place}/sweep_rate", "nan"),
        (f"{place}/subsweeps/1", "inf"),
        (f"{place}/prf", "a value of type complex"),
        ("/update_rate", "-inf"),
        ("", "a name of type tuple"),
    ]
    assert vantor.validate(document, most=2) == faults[:2]
    with pytest.raises(vantor.ConfigurationError, match=f"written as JSON:\n{place}/hwaas: got a value") as failure:
        vantor.plan(document)
    assert failure.value.faults == faults
    with vantor.connect("sim:") as server, pytest.raises(vantor.ConfigurationError) as failure:
        server.session(document)
    assert failure.value.faults == faults
    document = {}
    document["groups"] = [document]
    with pytest.raises(vantor.ConfigurationError, match="Circular reference"):
        vantor.validate(document)


@pytest.mark.parametrize(
    ("config", "fault"),
    [
        ({"prf": "a\ud800b"}, r'/groups/0/0/config/prf: got "a\ud800b"; '),
        ({"x\udc00": [1]}, r'/groups/0/0/config: got the name "x\udc00"; '),
    ],
)
def test_half_of_a_surrogate_pair_is_a_fault_with_its_place(config: dict[str, Any], fault: str) -> None:
    document = {"groups": [[{"sensor_id": 1, "config": config}]]}
    fault += "allowed: text without halves of surrogate pairs"
    assert list(map(str, vantor.validate(document))) == [fault]
    with pytest.raises(vantor.ConfigurationError, match=r"JSON:\n/groups/0/0/config.*surrogate pairs$") as failure:
        vantor.plan(document)
    assert list(map(str, failure.value.faults)) == [fault]


def test_both_halves_of_a_surrogate_pair_are_a_character() -> None:
    halves, whole = (vantor.validate({"enable_log": text}) for text in ("\ud83d\ude00", "\U0001f600"))
    assert halves == whole != ()


def test_the_path_of_a_file_is_accepted() -> None:
    path = EXAMPLES / "two_sensors.json"
    document = vantor.load_configuration(path)
    assert vantor.validate(path) == vantor.validate(str(path)) == ()
    assert vantor.plan(str(path)) == vantor.plan(path) == vantor.plan(document)
    with pytest.raises(vantor.ConfigurationError, match="Cannot read no.json: No such file or directory"):
        vantor.validate("no.json")
    with pytest.raises(vantor.ConfigurationError, match="Cannot read .: it is a directory; use a file"):
        vantor.validate(".")


TEXTS: list[bytes] = [
    b'{"a": 1, "a": 2}',
    b'{"groups": [[{"config": {"hwaas": 1, "hwaas": 2}}]]}',
    b'{"groups": 1e400}',
    b'{"groups": 18446744073709551616}',
    b'{"groups": -9223372036854775809}',
    b'{"update_rate": ' + b"9" * 400 + b"}",
    b'{"update_rate": -0}',
    b'{"update_rate": 1' + b"0" * 30 + b"}",
    b"[" * 64 + b"]" * 64,
    b"[" * 65 + b"1" + b"]" * 65,
    b"[" * 66 + b"]" * 66,
    b"[" + b"1," * 199_998 + b"1]",
    b"[" + b"1," * 199_999 + b"1]",
    b'{"a":\0 1}',
    b"\xef\xbb\xbf{}",
    b"null",
    b"3",
]

BROKEN_TEXTS: list[bytes] = [
    b"", b" ", b"{", b"{]", b'{"a"}', b'{"a":}', b'{"a":1,}', b"[1,]", b"[1 2]", b"{} {}", b"nul", b"tru\n",
    b"NaN", b"-", b"01", b"1.", b"1e", b"+1", b".5", b"-Infinity",
    b'"\\x"', b'"\\u12"', b'"\\ud800"',
    b'"\\udc00\\ud800"', b'"a\nb"', b'"\t"', b'"\xff"', b'"\xed\xa0\x80"', b"\xc3", b"'a'", b"[1\x0b]",
    b"/**/1", b"[" * 5000, b'{"a":' * 5000,
    b"[" + b"1," * 300_000, b"[" * 100 + b"]" * 50 + b"}", b'["' + b"\xc3\xa4" * 100_000,
]  # fmt: skip


def error_of(text: bytes, tmp_path: Path) -> str | None:
    """The message of the package about a text that is not a document."""
    file = tmp_path / "document.json"
    file.write_bytes(text)
    try:
        vantor.load_configuration(file)
    except vantor.ConfigurationError as failure:
        return str(failure).replace(str(file), "The text")
    return None


@pytest.mark.parametrize("text", TEXTS, ids=lambda text: text[:20])
def test_texts(text: bytes, tmp_path: Path) -> None:
    [verdict] = host_verdicts([text])
    error = error_of(text, tmp_path)
    if "error" not in verdict and not text.lstrip(b"\xef\xbb\xbf").startswith(b"{"):
        assert error == "The text must contain one JSON object, { … }."
        return
    assert error == verdict.get("error")
    if error is None:
        file = tmp_path / "document.json"
        faults = vantor.validate(vantor.load_configuration(file))
        assert list(map(fault_of, faults)) == list(map(host_fault, verdict["faults"]))


@pytest.mark.parametrize("text", BROKEN_TEXTS, ids=lambda text: text[:20])
def test_broken_texts(text: bytes, tmp_path: Path) -> None:
    [verdict] = host_verdicts([text])
    assert error_of(text, tmp_path) == verdict["error"]


def test_texts_with_changed_bytes(tmp_path: Path) -> None:
    """Places and reasons are those of the host, whichever bytes of a text change."""
    random = Random(5)
    letters = b'"\\{}[],:0-.eEudD8f \n\t\x00\x7f\x80\xc3\xe0\xed\xf0\xff'
    short = b'{"a": ["\\u00e4\\ud83d\\ude00\xc3\xa4", -1.5e-3, null]}'
    originals = [(EXAMPLES / "single_sensor.json").read_bytes(), short]
    texts = []
    for _ in range(campaign(whole=20_000, sample=500)):
        text = bytearray(random.choice(originals))
        for _ in range(random.choice((1, 1, 3))):
            text[random.randrange(len(text))] = random.choice(letters)
        texts.append(bytes(text[: random.choice((None, random.randrange(len(text))))]))
    for text, verdict in zip(texts, host_verdicts(texts), strict=True):
        error = error_of(text, tmp_path)
        if "error" in verdict or error is None:
            assert error == verdict.get("error"), text
        else:
            assert "must contain one JSON object" in error
