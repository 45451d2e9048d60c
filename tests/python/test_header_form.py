"""Tests of the reader of headers of a known form: it reads what the JSON decoder reads, or leaves the header to it."""

import functools
import json
import math
import random

import pytest

import vantor
from vantor._header_form import HeaderForm
from vantor._item_reading import read_item
from vantor._messages import MessageReader

SIZE = 8
FLAGS = ["data_saturated", "frame_delayed", "calibration_needed"]
DEBUG_FLAGS = ["data_valid", "cca_detected", "tx_enabled"]
TIME = ["utc_s", "utc_bound_s"]


def random_item(values, members):
    """An item with random values of some members."""
    item = {}
    for name in members:
        if name == "tick":
            item[name] = values.choice([0, 7, 2**31, 2**32 - 1, values.randrange(2**32)])
        elif name == "temperature":
            item[name] = values.choice([-(2**15), -1, 0, 27, 2**15 - 1])
        elif name == "cca_value":
            item[name] = values.choice([0, -3, 0.5, -0.0, 1e-7, 0.73123455, values.random(), values.gauss(0, 1e6)])
        elif name in TIME:
            item[name] = values.choice([0, 1800000000, 1795455600.123457, 4599999999.999998, 1e-6, values.random() * 1e9])
        elif name == "other":
            item[name] = "ü \\ \" [a-z]*"
        else:
            item[name] = values.random() < 0.5
    return item


def random_shape(values):
    """Groups of lists of members, in any order."""
    shape = []
    for _ in range(values.randint(1, 3)):
        members = ["tick", "temperature", *FLAGS, *values.choice([[], DEBUG_FLAGS, [*DEBUG_FLAGS, "cca_value", "other"]]),
                   *values.choice([[], TIME])]
        values.shuffle(members)
        shape.append([members] * values.randint(1, 3))
    return shape


def random_header(values, shape):
    groups = [[random_item(values, members) for members in group] for group in shape]
    return {"status": "ok", "result_info": groups, "payload_size": SIZE}


def counting_header(values, shape, place):
    """A header that says how many frames are missing, in this place among its members."""
    members = [*random_header(values, shape).items()]
    members.insert(place, ("missing", values.choice([0, 7, 2**32 - 1])))
    return dict(members)


def text_of(header):
    return json.dumps(header, separators=(",", ":"), ensure_ascii=False).encode() + b"\n"


def items_of(header):
    return [read_item(item) for group in header["result_info"] for item in group]


@pytest.mark.parametrize("seed", range(20))
def test_reads_what_the_decoder_reads(seed):
    values = random.Random(seed)
    shape = random_shape(values)
    form = HeaderForm(random_header(values, shape))
    for _ in range(50):
        header = random_header(values, shape)
        text = text_of(header)
        common, readings, end = form.read(bytearray(b"before" + text + b"after"), 6, 6 + len(text))
        assert readings == items_of(header) and end == 6 + len(text)
        assert common == {"status": "ok", "payload_size": SIZE}
        signs = [math.copysign(1, reading.cca_value or 0) for reading in readings]
        assert signs == [math.copysign(1, reading.cca_value or 0) for reading in items_of(header)]
        assert form.payload_size == SIZE


@pytest.mark.parametrize("place", range(4))
def test_reads_how_many_frames_are_missing(place):
    values = random.Random(place)
    shape = random_shape(values)
    form = HeaderForm(counting_header(values, shape, place))
    for _ in range(20):
        header = counting_header(values, shape, place)
        text = text_of(header)
        common, readings, end = form.read(bytearray(text), 0, len(text))
        assert readings == items_of(header) and end == len(text)
        assert common == {"status": "ok", "payload_size": SIZE, "missing": header["missing"]}


@pytest.mark.parametrize("old, new", [
    (b'"tick":48213', b'"tick":4294967296'), (b'"tick":48213', b'"tick":-1'), (b'"tick":48213', b'"tick":048213'),
    (b'"tick":48213', b'"tick":48213.0'), (b'"tick":48213', b'"tick": 48213'), (b'"tick":48213', b'"tock":48213'),
    (b'"temperature":27', b'"temperature":32768'), (b'"temperature":27', b'"temperature":-32769'),
    (b'"temperature":27', b'"temperature":-0'), (b'"cca_value":0.5', b'"cca_value":-0'),
    (b'"cca_value":0.5', b'"cca_value":null'), (b'"cca_value":0.5', b'"cca_value":1e999'),
    (b'"utc_s":-1.5', b'"utc_s":4600000000'), (b'"utc_s":-1.5', b'"utc_s":-4600000000'), (b'"utc_s":-1.5', b'"utc_s":null'),
    (b'"missing":5', b'"missing":-1'), (b'"missing":5', b'"missing":4294967296'), (b'"missing":5,', b""),
    (b'"utc_bound_s":2', b'"utc_bound_s":4600000000'), (b'"utc_bound_s":2', b'"utc_bound_s":-1'),
    (b'"payload_size":8', b'"payload_size":9'), (b'"status":"ok"', b'"status":"log"'), (b"}\n", b"}"), (b"}\n", b"}}\n"),
])
def test_leaves_other_headers_to_the_decoder(old, new):
    item = {"tick": 48213, "temperature": 27, **dict.fromkeys(FLAGS, False), "cca_value": 0.5, "utc_s": -1.5,
            "utc_bound_s": 2}
    header = {"status": "ok", "missing": 5, "result_info": [[item]], "payload_size": SIZE}
    text = text_of(header)
    form = HeaderForm(header)
    assert form.read(bytearray(text), 0, len(text)) is not None
    changed = bytearray(text.replace(old, new))
    assert changed != text and form.read(changed, 0, len(changed)) is None


def read_with(form, data):
    """What a reader gives, with a form or without: positions, what is reported about the items, and faults."""
    reader = MessageReader()
    reader.frame_size, reader.form = SIZE, form
    buffer = reader.buffers()[0]
    buffer[:len(data)] = data
    reader.advance(len(data))
    outcome = []
    while True:
        try:
            message = reader.next()
            if message is None:
                return outcome, reader.within_message
            outcome.append((message.position, message.header_size, message.payload.tobytes(), report_of(message)))
        except vantor.BadMessage as fault:
            outcome.append(str(fault))


def report_of(message):
    """The parts of a header, by the items or why they cannot be read."""
    others = {name: value for name, value in message.header.items() if name != "result_info"}
    try:
        items = message.readings if message.readings is not None else items_of(message.header)
    except (vantor.ProtocolError, TypeError, KeyError) as fault:
        items = str(fault)
    return others, items


MARKS = list(b'0123456789-+.eE"\\{}[],: \ntrufalsn\x00\xff')


def damaged(values, data):
    """Some bytes with a few changes."""
    data = bytearray(data)
    for _ in range(values.randint(1, 3)):
        place = values.randrange(len(data))
        data[place:place + values.randint(0, 2)] = bytes(values.choices(MARKS, k=values.randint(0, 2)))
    return data


@pytest.mark.parametrize("seed", range(50))
def test_damaged_headers_give_the_same_with_and_without_a_form(seed):
    values = random.Random(seed)
    shape = random_shape(values)
    header = random_header if seed % 2 else functools.partial(counting_header, place=seed % 4)
    form = HeaderForm(header(values, shape))
    known = 0
    for _ in range(40):
        data = b"".join(text_of(header(values, shape)) + values.randbytes(SIZE) for _ in range(3))
        start = values.randrange(len(data) // 2)
        changed = data[:start] + damaged(values, data[start:start + 80]) + data[start + 80:]
        assert read_with(form, changed) == read_with(None, changed)
        known += read_with(form, data) == read_with(None, data)
    assert known == 40
