"""Tests of long frames that are received several at once: they are what they are one by one, whatever comes between."""

import json
import random

import pytest

import vantor
from scripted_server import ScriptedServer, dump, item_metadata, plain_answer
from vantor._header_form import HeaderForm
from vantor._messages import MessageReader

SIZE = 20_000
LOG = b'{"status":"log","level":"INFO","module":"m","message":"text","payload_size":0}\n'


def frame_header(tick, temperature=27, size=SIZE):
    item = {"tick": tick, "data_saturated": False, "temperature": temperature, "calibration_needed": False,
            "frame_delayed": False}
    return {"status": "ok", "result_info": [[item]], "payload_size": size}


def frame(tick, temperature=27, size=SIZE):
    """The bytes of a frame; its payload depends on its tick."""
    return dump(frame_header(tick, temperature, size)) + random.Random(tick).randbytes(size)


def reader_of_frames(size=SIZE, known=True):
    """A reader of frames of a size, with headers of known form or not."""
    reader = MessageReader()
    reader.frame_size = size
    reader.form = HeaderForm(frame_header(0, size=size)) if known else None
    return reader


def fill(reader, data, **options):
    """Lets a reader receive what it has room for; returns the rest."""
    count = 0
    for buffer in reader.buffers(**options):
        part = data[count:count + len(buffer)]
        buffer[:len(part)] = part
        count += len(part)
    reader.advance(count)
    return data[count:]


def take_all(reader):
    """The messages that were received, and faults."""
    outcome = []
    while True:
        try:
            message = reader.next()
            if message is None:
                return outcome
            outcome.append(message)
        except vantor.BadMessage as fault:
            outcome.append(fault)


def read(reader, data, pieces=(10**9,)):
    """The messages and faults in some bytes that arrive in pieces of these sizes, again and again."""
    outcome = []
    number = 0
    while data:
        piece = pieces[number % len(pieces)]
        data = fill(reader, data[:piece]) + data[piece:]
        outcome += take_all(reader)
        number += 1
    return outcome


def contents(outcome):
    """Positions, ticks or headers, and payloads of messages; texts of faults."""
    return [str(each) if isinstance(each, vantor.BadMessage)
            else (each.position, each.header_size, reported(each), each.payload.tobytes()) for each in outcome]


def reported(message):
    if message.readings is not None:
        return [(item.tick, item.temperature) for item in message.readings]
    if message.is_frame:
        return [(item["tick"], item["temperature"]) for item in message.header["result_info"][0]]
    return message.header


def warmed_up():
    """A reader that has read two frames whose ticks have five digits."""
    reader = reader_of_frames()
    assert len(read(reader, frame(10000) + frame(10001))) == 2
    return reader


def test_receives_several_frames_at_once_without_a_copy():
    reader = warmed_up()
    room = sum(map(len, reader.buffers()))
    assert room == 8 * len(frame(10002))
    places = reader.buffers()
    data = b"".join(map(frame, range(10002, 10010)))
    assert fill(reader, data) == b""
    messages = take_all(reader)
    assert [message.payload.tobytes() for message in messages] == [frame(tick)[-SIZE:] for tick in range(10002, 10010)]
    assert [message.payload.data.obj is place.obj for message, place in zip(messages, places[1::2])] == [True] * 8
    assert not reader.within_message


def test_payloads_never_change():
    reader = warmed_up()
    messages = read(reader, b"".join(map(frame, range(10002, 10040))), [50_000, 70_001, 30])
    assert [message.payload.tobytes() for message in messages] == [frame(tick)[-SIZE:] for tick in range(10002, 10040)]
    for message in messages:
        with pytest.raises(ValueError, match="read-only"):
            message.payload[0] = 1


def random_message(values, tick):
    """A frame, or sometimes another message."""
    if values.random() < 0.2:
        return values.choice([LOG, dump(plain_answer({"command": "ping"}))])
    return frame(tick, values.choice([27, 27, 27, 9, -3]))


def damaged(values, data):
    """Some bytes of which some are missing, or changed."""
    place = values.randrange(len(data))
    return data[:place] + values.choice([b"", b"\n", values.randbytes(40)]) + data[place + values.randrange(300):]


@pytest.mark.parametrize("seed", range(60))
def test_gives_the_same_as_one_by_one(seed):
    values = random.Random(seed)
    ticks = range(values.choice([0, 90, 99_990]), 10**9)
    data = b"".join(random_message(values, tick) for _, tick in zip(range(40), ticks))
    if seed % 2:
        data = damaged(values, damaged(values, data))
    pieces = [values.choice([1, 100, 130, SIZE, len(frame(10000)), 65_536, 10**6]) for _ in range(30)]
    known = contents(read(reader_of_frames(), data, pieces))
    assert known == contents(read(reader_of_frames(known=False), data, pieces))
    assert seed % 2 or len(known) == 40


def test_receives_ahead_again_after_another_message():
    reader = warmed_up()
    read(reader, frame(10002) + LOG + b"".join(map(frame, range(10003, 10010))))
    assert len(reader.buffers()) == 16
    read(reader, frame(100_000) + frame(100_001))
    assert sum(map(len, reader.buffers())) == 8 * len(frame(100_001))


@pytest.mark.parametrize("size, places", [
    (16_383, 0), (16_384, 8), (65_536, 8), (131_072, 4), (200_000, 2), (524_288, 1), (524_289, 0),
])
def test_limits_the_memory_of_frames_that_are_still_to_come(size, places):
    reader = reader_of_frames(size)
    read(reader, frame(10000, size=size) + frame(10001, size=size))
    if places:
        assert sum(map(len, reader.buffers())) == places * len(frame(10001, size=size))
    else:
        assert len(reader.buffers()) == 1


def test_receives_one_frame_if_asked_to():
    reader = warmed_up()
    data = b"".join(map(frame, range(10002, 10020)))
    messages = []
    while data:
        rest = fill(reader, data, several=False)
        assert len(data) - len(rest) <= 70_000
        data = rest
        messages += take_all(reader)
    assert [reported(message)[0][0] for message in messages] == list(range(10002, 10020))


def test_expects_nothing_after_bytes_were_lost():
    reader = warmed_up()
    fill(reader, frame(10002) + frame(10003)[:300])
    reader.resynchronise()
    assert contents(read(reader, b"rest\n" + LOG))[0][2] == json.loads(LOG)


def test_a_reader_of_another_session_does_not_use_the_places():
    reader = warmed_up()
    other = frame(10002, size=SIZE + 4)
    fill(reader, other)
    reader.frame_size, reader.form = SIZE + 4, HeaderForm(frame_header(0, size=SIZE + 4))
    message, = take_all(reader)
    assert reported(message) == [(10002, 27)] and message.payload.tobytes() == other[-SIZE - 4:]


def slow_server(count):
    """A server in virtual time that sends some frames at once after "start"."""
    server = ScriptedServer()
    metadata = {"status": "ok", "tick_period": 0, "payload_size": 0, "calibration_info": [],
                "metadata": [[item_metadata(SIZE // 4, [SIZE // 4])]]}
    server.on("configure", lambda host, command: host.send_message(metadata))
    server.on("start", lambda host, command: host.send(
        dump(plain_answer(command)) + b"".join(map(frame, range(10000, 10000 + count)))))
    return server


@pytest.mark.parametrize("loop_time, most", [(0.0, 8), (0.1, 8), (1.1, 1)])
def test_a_slow_loop_reads_less_at_once(loop_time, most):
    server = slow_server(60)
    reads = []
    read_into = server.read_into

    def count_bytes(buffers, timeout):
        reads.append(read_into(buffers, timeout))
        return reads[-1]
    configuration = {"groups": [[{"sensor_id": 1, "config": {"num_points": SIZE // 4}}]]}
    session = server.connect().session(configuration)
    frames = session.frames(count=60)
    next(frames)
    server.read_into = count_bytes
    for number, _ in enumerate(frames):
        server.now += loop_time if number > 10 else 0.0
    assert max(reads[len(reads) // 2:]) // len(frame(10000)) == most
