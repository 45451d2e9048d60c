"""Tests of the reader of messages: pieces of any size, faults, and recovery after a fault."""

import random

import pytest

import vantor
from vantor._messages import MessageReader


def wire(payload=b""):
    """The bytes of a frame message."""
    return b'{"result_info":[],"status":"ok","payload_size":%d}\n%s' % (len(payload), payload)


def receive(reader, data):
    """Lets a reader receive bytes like from a link; returns those for which it had no room yet."""
    count = 0
    for buffer in reader.buffers():
        part = data[count:count + len(buffer)]
        buffer[:len(part)] = part
        count += len(part)
    reader.advance(count)
    return data[count:]


def read_all(data, reader=None, piece=10**9):
    """The messages in some bytes that arrive in pieces, and the faults."""
    reader = reader or MessageReader()
    messages, faults = [], []
    while data:
        rest = receive(reader, data[:piece])
        data = rest + data[piece:]
        while True:
            try:
                message = reader.next()
                if message is None:
                    break
                messages.append(message)
            except vantor.BadMessage as fault:
                faults.append(fault)
    return messages, faults


def payloads(messages):
    return [message.payload.tobytes() for message in messages]


def fault_of(data, **limits):
    """The first fault in some bytes."""
    return read_all(data, MessageReader(**limits))[1][0]


def test_reads_messages_with_payloads():
    reader = MessageReader()
    messages, faults = read_all(wire(b"a\nb{c") + wire() + wire(b"xyz"), reader)
    assert payloads(messages) == [b"a\nb{c", b"", b"xyz"] and not faults
    assert [message.position for message in messages] == [0, len(wire(b"a\nb{c")), len(wire(b"a\nb{c") + wire())]
    assert messages[0].header["status"] == "ok"
    assert not reader.within_message
    assert reader.position == len(wire(b"a\nb{c") + wire() + wire(b"xyz"))


@pytest.mark.parametrize("piece", range(1, 120))
def test_accepts_pieces_of_any_size(piece):
    messages, faults = read_all(wire(b"first\n") + wire() + wire(b"third"), piece=piece)
    assert payloads(messages) == [b"first\n", b"", b"third"] and not faults


@pytest.mark.parametrize("piece", [1000, 4096, 16384, 65536, 70001, 10**9])
def test_receives_long_and_short_payloads_in_any_order(piece):
    mixed = random.Random(piece)
    sent = [mixed.randbytes(mixed.choice([0, 400, 16383, 16384, 16385, 65536, 300_000])) for _ in range(40)]
    messages, faults = read_all(b"".join(map(wire, sent)), piece=piece)
    assert payloads(messages) == sent and not faults
    assert messages[-1].position == sum(len(wire(payload)) for payload in sent[:-1])


@pytest.mark.parametrize("size", [100, 100_000])
def test_gives_payloads_that_never_change(size):
    reader = MessageReader()
    first, = read_all(wire(b"a" * size), reader)[0]
    read_all(wire(b"b" * size) * 5, reader)
    assert first.payload.tobytes() == b"a" * size
    with pytest.raises(ValueError, match="read-only"):
        first.payload[0] = 1


def test_counts_the_bytes_that_are_missing():
    for size in (100, 100_000):
        reader = MessageReader()
        assert reader.missing == 0
        read_all(wire(b"x" * size)[:-30], reader)
        assert reader.missing == 30 and reader.within_message
        assert len(read_all(b"x" * 30, reader)[0]) == 1
        assert reader.missing == 0 and not reader.within_message


def test_reports_where_a_header_is_not_json():
    fault = fault_of(wire(b"12") + b'{"status":oops}\n')
    assert fault.position == len(wire(b"12")) + 10
    assert "not valid JSON" in str(fault)
    assert fault_of('{"status":"é",oops}\n'.encode()).position == 15


@pytest.mark.parametrize("line, reason", [
    (b"[]\n", "not a JSON object"),
    (b"7\n", "not a JSON object"),
    (b'{"payload_size":0}\n', '"status"'),
    (b'{"status":1,"payload_size":0}\n', '"status"'),
    (b'{"status":"ok"}\n', '"payload_size"'),
    (b'{"status":"ok","payload_size":"8"}\n', '"payload_size"'),
    (b'{"status":"ok","payload_size":true}\n', '"payload_size"'),
    (b'{"status":"ok","payload_size":1.5}\n', '"payload_size"'),
    (b'{"status":"ok","payload_size":-1}\n', "negative"),
    (b'{"status":"ok","payload_size":1}\n', "only a frame can have a payload"),
    (b'{"result_info":[],"status":"ok","payload_size":101}\n', "but at most 100 bytes"),
    (b'{"result_info":[],"status":"ok","payload_size":99999999999999999999}\n', '"payload_size"'),
    (b'{"status":"ok","payload_size":1e999}\n', "out of range"),
    (b'{"status":"ok","payload_size":0,"x":' + b"9" * 5000 + b"}\n", "out of range"),
    (b"\n", "not valid JSON"),
    (b'{"status":"ok","payload_size":0}{}\n', "not valid JSON"),
    (b'{"status":"ok","payload_size":0,"x":NaN}\n', "not valid JSON"),
    (b'{"status":"\xff","payload_size":0}\n', "not valid JSON"),
    (b'{"status":"\\ud800","payload_size":0}\n', "not valid JSON"),
    (b'\xef\xbb\xbf{"status":"ok","payload_size":0}\n', "not valid JSON"),
])
def test_refuses_headers_that_are_not_allowed(line, reason):
    assert reason in str(fault_of(line, largest_header=10_000, largest_payload=100))


def test_refuses_deep_nesting_before_it_is_parsed():
    start = b'{"status":"ok","x":'
    fault = fault_of(start + b"[" * 100_000 + b"\n")
    assert fault.position == len(start) + 31
    assert "nested too deeply" in str(fault)


def test_does_not_count_brackets_in_strings():
    messages, faults = read_all(b'{"status":"\\"' + b"[" * 40 + b'\\\\","payload_size":0}\n')
    assert len(messages) == 1 and not faults


def test_accepts_many_brackets_that_are_not_deep():
    assert len(read_all(b'{"status":"ok","payload_size":0,"x":[' + b"[]," * 100 + b"[]]}\n")[0]) == 1


def test_drops_a_header_as_soon_as_it_is_too_long():
    reader = MessageReader(largest_header=50)
    messages, faults = read_all(b"x" * 51, reader)
    assert faults[0].position == 0 and "longer than 50 bytes" in str(faults[0])
    for _ in range(100):
        assert read_all(b"x" * 50, reader) == ([], [])
    messages, faults = read_all(b"\n" + wire(b"abc"), reader)
    assert payloads(messages) == [b"abc"] and not faults
    assert messages[0].position == 51 + 5000 + 1


def test_accepts_a_header_of_maximum_length():
    assert len(read_all(wire(), MessageReader(largest_header=len(wire()) - 1))[0]) == 1
    assert fault_of(wire(), largest_header=len(wire()) - 2)


def test_accepts_long_headers():
    header = b'{"status":"ok","payload_size":0,"x":"%s"}\n' % (b"y" * 1_000_000)
    messages, faults = read_all(header + wire(b"abc"), piece=50_000)
    assert len(messages[0].header["x"]) == 1_000_000 and payloads(messages)[1] == b"abc" and not faults


def test_limits_its_memory_on_an_endless_line():
    reader = MessageReader()
    for _ in range(100):
        read_all(b"x" * 100_000, reader)
    assert sum(map(len, reader.buffers())) < 4 * 2**20


def test_reports_one_fault_and_finds_the_next_message():
    messages, faults = read_all(b"garbage\nmore garbage\n{}\n" + wire(b"found") + b"again\n" + wire())
    assert payloads(messages) == [b"found", b""] and len(faults) == 2


def test_finds_the_next_message_wherever_the_stream_was_joined():
    stream = wire(b"one\n{[") + wire(b"two")
    for lost in range(len(stream) + 1):
        messages, _ = read_all(stream[lost:] + b"\n" + wire(b"three") + wire(b"four"))
        assert payloads(messages)[-1] == b"four", f"{lost} bytes lost"


def frame(payload):
    """A message with everything in its header that makes it hard to find its start."""
    header = rb'{"result_info":[[{"tick":1},{"tick":2,"text":"\"}]{\\"}],[{}]],"status":"ok","payload_size":%d}'
    return header % len(payload) + b"\n" + payload


def test_finds_the_next_frame_of_a_stream_whose_payloads_end_without_line_feed():
    stream = frame(b'one {"[') + frame(b'two\n\\"}') + frame(b"three") + frame(b"four")
    for place in range(len(frame(b'one {"[') + frame(b'two\n\\"}'))):
        received = payloads(read_all(stream[:place] + stream[place + 1:])[0])
        assert b"four" in received and len(received) >= 2, f"byte {place} lost"
        assert b"four" in payloads(read_all(stream[:place] + b"x" + stream[place:])[0]), f"byte added at {place}"


def test_loses_no_message_to_bytes_before_its_header():
    messages, faults = read_all(frame(b"one") + b"noise" + frame(b"two") + b"noise" + frame(b"three"))
    assert payloads(messages) == [b"one", b"two", b"three"] and len(faults) == 2


@pytest.mark.parametrize("digit", range(4))
def test_loses_at_most_two_frames_to_a_damaged_payload_size(digit):
    mixed = random.Random(5)
    sent = [mixed.randbytes(4852) for _ in range(6)]
    stream = b"".join(map(frame, sent))
    place = stream.index(b"4852", len(frame(sent[0])) * 2) + digit
    for value in range(256):
        reader = MessageReader()
        reader.frame_size = 4852
        received = payloads(read_all(stream[:place] + bytes([value]) + stream[place + 1:], reader)[0])
        assert len(received) >= len(sent) - 2, f"digit is {value}"
        assert set(received) <= set(sent)


def test_reports_every_frame_of_another_size():
    reader = MessageReader()
    reader.frame_size = 4
    messages, faults = read_all(b"".join(map(frame, (b"1234", b"12345", b"a\nbcd", b"", b"abcd"))), reader)
    assert payloads(messages) == [b"1234", b"abcd"] and len(faults) == 3


@pytest.mark.parametrize("size", [100, 100_000])
def test_finds_the_next_message_after_bytes_were_lost(size):
    reader = MessageReader()
    read_all(wire(b"x" * size)[:-50], reader)
    reader.resynchronise()
    messages, faults = read_all(b"x" * 7 + wire(b"next"), reader)
    assert payloads(messages) == [b"next"] and not faults
