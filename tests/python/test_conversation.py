"""Tests of conversations with scripted servers, also hostile ones, in virtual time."""

import contextlib
import itertools
import json
import logging
import random
import tracemalloc

import numpy as np
import pytest

import vantor
from processes import campaign
from scripted_server import (
    ScriptedServer, answer_with, dump, error, example_configuration, example_metadata, frame_bytes, frame_header,
    frame_payload, identity, item_metadata, plain_answer, stay_silent, stream_frames)

END_LINE = '{"command":"end"}'


@pytest.fixture
def server():
    return ScriptedServer()


def answer_after(server, seconds):
    """A reaction that answers after a delay."""
    def react(host, command):
        server.pause(seconds)
        host.send_message(plain_answer(command))
    return react


def session_of(server, **timeouts):
    """The example session."""
    return server.connect(**timeouts).session(example_configuration())


def time_until_given_up(server, action):
    """The duration of an action that ends with a time-out."""
    before = server.now
    with pytest.raises(vantor.ServerTimeout):
        action()
    return pytest.approx(server.now - before, abs=1e-6)


def ticks(frames):
    return [frame[0, 0].tick for frame in frames]


def missing(frames):
    return [(frame.missing, frame.lost_before) for frame in frames]


def test_starts_by_ending_any_session(server):
    host = server.connect()
    assert server.lines == [END_LINE, '{"command":"identify"}']
    assert server.written[0][1] == b"\n" + END_LINE.encode() + b"\n"
    assert server.now == 0.0
    assert host.info.sensor == "k330" and host.info.connected_sensors == (1, 2)


@pytest.mark.parametrize("start, found", [(0.5, 1), (1.0, 1), (1.001, 2), (3.0, 3), (9.5, 10)])
def test_finds_a_server_that_is_still_starting(server, start, found):
    server.on("end", lambda host, command: server.now >= start and host.send_message(plain_answer(command)))
    host = server.connect(answer=11.0)
    assert server.now == pytest.approx(found)
    assert len(server.lines) == found + 2
    host.ping()
    host.session(example_configuration())
    server.now += 3600.0
    host.ping()
    assert server.lines[-1] == '{"command":"ping"}'


def test_sends_end_every_second_until_the_server_answers(server):
    def react(host, command):
        if server.now >= 3.0:
            answer_after(server, 0.4)(host, command)
    server.on("end", react)
    server.connect()
    # The last one is "identify".
    assert [moment for moment, _ in server.written] == pytest.approx([0, 1, 2, 3, 3.4])


def test_does_not_mistake_a_late_answer_to_end_for_a_new_one(server):
    ends = []

    def react(host, command):
        ends.append(command)
        if server.now < 3.0:
            return
        for end in ends:
            host.send_message(error("bad_json"))
            host.send_message(plain_answer(end))
        ends.clear()
    server.on("end", react)
    host = server.connect()
    assert server.now == pytest.approx(3.0)
    host.ping()
    session = host.session(example_configuration())
    assert len(session.items) == 3
    session.end()
    host.ping()
    assert server.now == pytest.approx(3.0)


def test_accepts_late_answers_to_repeated_ends(server):
    def identify(host, command):
        server.pause(3.5)
        host.send_message(identity())
    server.on("end", answer_after(server, 3.5))
    server.on("identify", identify)
    host = server.connect()
    assert server.now == pytest.approx(7.0)
    host.ping()
    session = host.session(example_configuration())
    server.on("end", stay_silent)
    assert time_until_given_up(server, session.end) == 5.06


def test_skips_answers_to_the_ends_of_earlier_hosts(server):
    server.on("end", lambda host, command: [host.send_message(plain_answer(command)) for _ in range(20)])
    server.connect().ping()
    assert server.now == 0.0


def test_gives_up_on_a_server_that_answers_only_end(server):
    def identify(host, command):
        for _ in range(600):
            server.pause(0.01)
            host.send_message({"status": "ok", "command": "end", "payload_size": 0})
    server.on("identify", identify)
    assert time_until_given_up(server, server.connect) == 5.0


def test_does_not_mistake_the_answer_to_an_abandoned_end_for_a_new_one(server):
    host = server.connect()
    session = host.session(example_configuration())
    server.on("end", answer_after(server, 6.0))
    assert time_until_given_up(server, session.end) == 5.06
    server.on("end", answer_after(server, 2.0))
    session.end()
    assert len(host.session(example_configuration()).items) == 3
    host.ping()


def test_reports_a_damaged_command_after_all_ends_are_answered(server):
    host = server.connect()
    server.on("ping", answer_with(error("bad_json")))
    with pytest.raises(vantor.ServerError, match="bad_json"):
        host.ping()


def test_reports_at_once_that_the_configuration_of_a_second_session_is_not_json(server):
    host = server.connect()
    host.session(example_configuration())
    server.on("configure", answer_with(error("bad_json")))
    with pytest.raises(vantor.ServerError, match="bad_json"):
        host.session(example_configuration())
    assert server.now == 0.0, "it waited"


@pytest.mark.parametrize("timeout", [0.5, 0.999, 1.0, 5.0, 9.5])
def test_gives_up_on_a_server_that_never_answers(server, timeout):
    server.on("end", stay_silent)
    assert time_until_given_up(server, lambda: server.connect(answer=timeout)) == timeout
    assert server.open_links == 0


def test_says_what_to_check_if_a_server_never_answers(server):
    server.on("end", stay_silent)
    with pytest.raises(vantor.ServerTimeout) as failure:
        server.connect(answer=2.0)
    assert str(failure.value) == (
        "The server sent no answer in time. Check the connection and its baud rate, that no other program uses the "
        "server, and that the board does not restart (see its log).")
    assert failure.value.code == "timeout"
    assert len(server.lines) == 2


def test_waits_for_each_kind_of_answer_until_its_time_out(server):
    host = server.connect(answer=3.0, configure=7.0, frame=4.0)
    # A command may have to wait for frames; the period is 20 ms.
    for command, action, duration in [
            ("ping", lambda session: host.ping(), 3.06), ("frame", lambda session: session.single_frame(), 4.06),
            ("start", lambda session: next(session.frames()), 3.06), ("end", lambda session: session.end(), 3.06)]:
        session = host.session(example_configuration())
        server.on(command, stay_silent)
        assert time_until_given_up(server, lambda: action(session)) == duration, command
        server.on(command, lambda host, command: host.send_message(plain_answer(command)))
    session.end()
    server.on("configure", stay_silent)
    assert time_until_given_up(server, lambda: host.session({})) == 7.0


SLOW = example_configuration() | {"max_update_rate": 0.05}


def test_waits_three_periods_longer_in_a_session_of_slow_frames(server):
    server.on("configure", answer_with(example_metadata(20_000_000)))
    for command, action, duration in [
            ("ping", lambda host, session: host.ping(), 65.0), ("end", lambda host, session: session.end(), 65.0),
            ("frame", lambda host, session: session.single_frame(), 70.0),
            ("none", lambda host, session: next(session.frames()), 70.0)]:
        host = server.connect()
        session = host.session(SLOW)
        server.on(command, stay_silent)
        assert time_until_given_up(server, lambda: action(host, session)) == duration, command
        server.on(command, lambda host, command: host.send_message(plain_answer(command)))


@pytest.mark.parametrize("rates", [{"max_update_rate": 50}, {}])
def test_waits_no_longer_because_a_server_announces_slow_frames(server, rates):
    server.on("configure", answer_with(example_metadata(2**32 - 1)))
    server.on("ping", stay_silent)
    host = server.connect()
    host.session({"groups": example_configuration()["groups"]} | rates)
    assert time_until_given_up(server, host.ping) == (5.06 if rates else 5.0)


def test_stops_a_stream_of_slow_frames(server):
    server.on("configure", answer_with(example_metadata(20_000_000)))
    server.on("start", stream_frames(1))
    host = server.connect()
    session = host.session(SLOW)
    server.on("stop", answer_after(server, 20.0))
    assert len(list(session.frames(count=1))) == 1
    assert server.now == pytest.approx(20.0)
    session.end()
    server.on("ping", stay_silent)
    assert time_until_given_up(server, host.ping) == 5.0


def test_ends_a_session_promptly_after_a_failure(server):
    server.on("configure", answer_with(example_metadata(20_000_000)))
    host = server.connect()
    server.on("end", stay_silent)
    with pytest.raises(KeyError), host.session(SLOW):
        raise KeyError
    assert server.now == pytest.approx(1.0)
    # Messages without end do not hold it up either.
    server.on("end", lambda host, command: [(server.pause(0.01), host.send(frame_bytes(1))) for _ in range(500)])
    host.close()
    assert server.now == pytest.approx(2.0, abs=0.02)


def test_names_a_device_that_sends_other_data(server):
    server.on("end", lambda host, command: host.send(b"\x7f\0\xff<garbage>\nand more"))
    with pytest.raises(vantor.ProtocolError) as failure:
        server.connect()
    assert str(failure.value) == (
        "The data received are not messages of a Vantor server; they start with 7f 00 ff 3c 67 61 72 62 61 67 65 3e 0a "
        "61 6e 64. The baud rate may be wrong, or it may be another device.")
    assert server.now == pytest.approx(5.0)


def never_silent(server, data):
    def react(host, command):
        for _ in range(2000):
            host.send(data)
            server.pause(0.007)
    return react


def test_names_a_device_that_never_stops_sending_other_data(server):
    server.on("end", never_silent(server, b"$GPGGA,\n"))
    with pytest.raises(vantor.ProtocolError, match="start with 24 47 50 47 47 41 2c 0a"):
        server.connect()
    assert server.now == pytest.approx(5.0, abs=0.01)


def test_gives_the_time_since_the_first_frame(server):
    def start(host, command):
        host.send_message(plain_answer(command))
        # The ticks wrap around after the first frame.
        for tick in (4_294_000_000, 4_294_500_000, 532_704, 3_000_532_704):
            host.send(frame_bytes(0, tick))
    server.on("start", start)
    session = session_of(server)
    for _ in range(2):
        frames = list(session.frames(count=4))
        assert [frame.time for frame in frames] == pytest.approx([0.0, 0.5, 1.5, 3001.5])
        assert [frame[0, 1].time for frame in frames] == pytest.approx([5e-6, 0.500005, 1.500005, 3001.500005])
        assert [frame.number for frame in frames] == [0, 1, 2, 3]


def test_gives_the_time_of_an_item_measured_before_the_first_one(server):
    def start(host, command):
        host.send_message(plain_answer(command))
        header = frame_header(0, tick=3)
        header["result_info"][1][0]["tick"] = 2**32 - 7
        host.send_message(header, frame_payload(0))
    server.on("start", start)
    frame, = session_of(server).frames(count=1)
    assert frame[1, 0].time == pytest.approx(-10e-6)


def test_gives_distances_with_every_frame(server):
    server.on("start", stream_frames(1))
    frame, = session_of(server).frames(count=1)
    assert frame[0, 0].distances_m[7] == pytest.approx(0.32)
    layout = frame[0, 1].layout
    assert frame[0, 1].distances_m[layout.subsweeps[1].points][0] == pytest.approx(0.5)
    assert frame[0, 0].iq[1, 7] == 3000 + 4000j
    assert layout.sensor_id == 2


def test_receives_frames_for_a_time(server):
    def start(host, command):
        host.send_message(plain_answer(command))
        for number in range(10):
            host.send(frame_bytes(number))
            server.pause(0.1)
    server.on("start", start)
    session = session_of(server)
    assert ticks(session.frames(seconds=0.25)) == [0, 20000, 40000]
    assert server.now == pytest.approx(0.25)
    assert server.commands("stop") == [{"command": "stop"}]


@pytest.mark.parametrize("arguments", [{"count": -1}, {"seconds": -0.1}, {"seconds": float("nan")}])
def test_refuses_impossible_limits(server, arguments):
    with pytest.raises(ValueError, match="must not be negative"):
        session_of(server).frames(**arguments)


@pytest.mark.parametrize("arguments, message", [
    ({"count": 2.5}, "count must be a whole number of frames, not 2.5; seconds=… limits the time."),
    ({"count": "3"}, "count must be a whole number of frames, not '3'"),
    ({"seconds": "3"}, "seconds must be a number, not '3'")])
def test_refuses_limits_of_other_types(server, arguments, message):
    with pytest.raises(TypeError, match=message):
        session_of(server).frames(**arguments)


def test_accepts_limits_of_numpy(server):
    server.on("start", stream_frames(5))
    session = session_of(server)
    assert len(list(session.frames(np.int64(3)))) == 3
    assert list(session.frames(seconds=np.float32(0.0))) == []


@pytest.mark.parametrize("timeout", [-1, -0.001, np.nan, np.inf, 1e10, 10**400])
def test_refuses_impossible_time_outs(timeout):
    message = f'The time-out "answer" is {timeout}; use a number of seconds from 0 to 1e9.'
    with pytest.raises(ValueError, match=message.replace("+", r"\+")):
        vantor.Timeouts(answer=timeout)


def test_refuses_arguments_of_other_types(server):
    for action, message in [
            (lambda: vantor.connect(None), 'must be text, such as "tcp:localhost:6110" or "sim:", not None.'),
            (lambda: vantor.connect("sim:", 5.0), r"The time-outs must be vantor.Timeouts\(answer=…\), not 5.0."),
            (lambda: vantor.Timeouts(frame="1"), "The time-out \"frame\" must be a number of seconds, not '1'."),
            (lambda: server.connect().session(None), "must be a dictionary or the path of a file, not NoneType."),
            (lambda: server.connect().session({}, 3), "list of vantor.Calibration or the path of a file, not int."),
            (lambda: server.connect().session({}, [{}]), "The calibrations must be those of a session"),
            (lambda: server.connect().log(None), "The level must be a name")]:
        with pytest.raises(TypeError, match=message):
            action()
    assert not server.commands("configure") and not server.commands("log")


@pytest.mark.parametrize("level, sent", [
    ("debug", "DEBUG"), ("Off", "OFF"), (logging.NOTSET, "DEBUG"), (logging.DEBUG, "DEBUG"), (11, "VERBOSE"),
    (15, "VERBOSE"), (16, "INFO"), (logging.INFO, "INFO"), (logging.WARNING, "WARNING"), (logging.ERROR, "ERROR"),
    (logging.CRITICAL, "OFF")])
def test_accepts_the_levels_of_logging(server, level, sent):
    server.connect().log(level)
    assert server.commands("log") == [{"command": "log", "level": sent}]


def test_receives_no_frame_if_none_is_wanted(server):
    server.on("start", stream_frames(3))
    session = session_of(server)
    assert list(session.frames(count=0)) == [] == list(session.frames(seconds=0.0))


def test_gives_up_on_a_stream_without_frames(server):
    server.on("start", stream_frames(2))
    session = session_of(server)
    frames = session.frames()
    assert ticks([next(frames), next(frames)]) == [0, 20000]
    assert time_until_given_up(server, lambda: next(frames)) == 10.06


def test_works_again_after_giving_up_on_a_silent_server(server):
    server.on("ping", stay_silent)
    host = server.connect()
    with pytest.raises(vantor.ServerTimeout, match='The server sent no answer to "ping" in time.'):
        host.ping()
    assert server.now == pytest.approx(5.0)
    assert host.identify().sensor == "k330"


def test_accepts_an_answer_at_the_last_moment(server):
    host = server.connect()
    server.on("ping", answer_after(server, 5.0))
    host.ping()
    assert server.now == pytest.approx(5.0)
    server.on("ping", answer_after(server, 5.001))
    assert time_until_given_up(server, host.ping) == 5.0


def test_accepts_an_answer_in_pieces_in_the_last_millisecond(server):
    def react(host, command):
        server.pause(4.999)
        for byte in b'{"status":"ok","command":"ping","payload_size":0}\n':
            server.pause(1e-5)
            host.send(bytes([byte]))
    server.on("ping", react)
    server.connect().ping()
    assert 4.999 < server.now < 5.0


def test_gives_up_on_a_line_that_is_never_silent(server):
    host = server.connect()
    server.on("ping", never_silent(server, b"$GPGGA,"))
    assert time_until_given_up(server, host.ping) == 5.0


def test_gives_up_on_invalid_data_when_it_ends_a_session(server):
    session = session_of(server)
    server.on("end", never_silent(server, b"$GPGGA,\n"))
    before = server.now
    with pytest.raises(vantor.ServerTimeout):
        session.end()
    assert server.now - before == pytest.approx(5.06, abs=0.01)


def test_gives_up_on_a_stream_of_invalid_data(server):
    def start(host, command):
        host.send_message(plain_answer(command))
        for _ in range(1000):
            server.pause(0.05)
            host.send(b"garbage\n" + json.dumps({"status": "ok"}).encode() + b"\n")
    server.on("start", start)
    session = session_of(server)
    with pytest.raises(vantor.ServerTimeout):
        next(session.frames())
    assert server.now == pytest.approx(10.06, abs=0.06)


def test_gives_up_on_an_endless_series_of_messages(server):
    def send_frames(host, command):
        for number in range(120):
            server.pause(0.05)
            host.send(frame_bytes(number))
    server.on("end", send_frames)
    assert time_until_given_up(server, server.connect) == 5.0
    server.on("end", answer_after(server, 0.0))
    server.on("ping", send_frames)
    assert time_until_given_up(server, server.connect().ping) == 5.0


def test_gives_up_on_a_server_that_sends_messages_faster_than_it_reads_them(server):
    read = server.read_into

    def read_slowly(buffers, timeout):
        server.now += 0.05
        return read(buffers, timeout)
    server.read_into = read_slowly
    host = server.connect()
    for reaction in (lambda host, command: host.send(frame_bytes(0) * 400),
                     lambda host, command: [host.send(frame_bytes(number)) for number in range(400)]):
        server.on("ping", reaction)
        before = server.now
        with pytest.raises(vantor.ServerTimeout):
            host.ping()
        assert server.now - before <= 5.2


def test_gives_up_on_damaged_messages_that_arrive_faster_than_they_are_read(server):
    read = server.read_into

    def read_slowly(buffers, timeout):
        server.now += 0.05
        return read(buffers, timeout)
    log = {"status": "log", "level": "INFO", "module": "m", "message": "text", "payload_size": 0}

    def send_damage(host, command):
        host.send_message(plain_answer(command))
        for _ in range(400):
            host.send(b"damaged\n" + dump(log))
    server.on("start", send_damage)
    session = session_of(server)
    server.read_into = read_slowly
    assert time_until_given_up(server, lambda: next(session.frames())) == 10.2


def test_waits_for_a_message_while_its_bytes_arrive(server):
    def react(host, command):
        message = frame_bytes(1)
        start = len(message) - len(frame_payload(1)) + 50
        host.send(message[:start])
        for place in range(start, len(message), 50):
            server.pause(4.9)
            host.send(message[place:place + 50])
        host.send_message(plain_answer(command))
    server.on("end", react)
    assert server.connect().info.sensor == "k330"
    assert server.now == pytest.approx(7 * 4.9)


@pytest.mark.parametrize("count", [1, 49])
def test_gives_up_on_a_message_whose_bytes_arrive_too_slowly(server, count):
    host = server.connect()
    host.session(example_configuration())

    def react(host, command):
        host.send_message(frame_header(1))
        for byte in frame_payload(1)[:150]:
            server.pause(5.0 / count)
            host.send(bytes([byte]))
    server.on("ping", react)
    # The first bytes of a message may also take longer.
    assert time_until_given_up(server, host.ping) == 10.06


def test_refuses_an_answer_with_a_payload_immediately(server):
    def react(host, command):
        host.send_message(identity() | {"payload_size": 1 << 26})
        for _ in range(1000):
            server.pause(1.0)
            host.send(b"x")
    server.on("identify", react)
    with pytest.raises(vantor.BadMessage, match="only a frame can have a payload"):
        server.connect()
    assert server.now == 0.0


def test_gives_up_on_a_message_that_stops_arriving(server):
    def react(host, command):
        host.send_message(frame_header(1))
        server.pause(6.0)
        host.send(b"x" * 60)
    server.on("end", react)
    # More bytes arrived during two time-outs, none during the third.
    assert time_until_given_up(server, server.connect) == 15.0


def trickle(size, pause=0.2971, count=4000):
    """A reaction that sends the first half of a frame, then the rest and the half of the next one, and so on."""
    frame = dump({"result_info": [], "status": "ok", "payload_size": size}) + bytes(size)
    rest = size // 2

    def react(host, command):
        host.send(frame[:-rest])
        for _ in range(count):
            host.pause(pause)
            host.send(frame[-rest:] + frame[:-rest])
    return react


@pytest.mark.parametrize("command", ["end", "identify"])
def test_gives_up_on_a_server_that_trickles_frames_when_connecting(server, command):
    server.on(command, trickle(size=12))
    with pytest.raises(vantor.ServerTimeout):
        server.connect(answer=0.5)
    # A frame of 12 bytes takes 1.2 s at the slowest rate.
    assert 0.5 < server.now <= 1.7


def test_waits_at_most_ten_minutes_longer_for_a_large_frame(server):
    def react(host, command):
        host.send_message({"result_info": [], "status": "ok", "payload_size": 2**26})
        for _ in range(1000):
            server.pause(1.0)
            host.send(bytes(100))
    server.on("end", react)
    assert time_until_given_up(server, lambda: server.connect(answer=10.0)) == 610.0


@pytest.mark.parametrize("command, action", [
    ("ping", lambda session, host: host.ping()), ("start", lambda session, host: next(session.frames())),
    ("end", lambda session, host: session.end())])
def test_gives_up_on_a_server_that_trickles_frames_in_a_session(server, command, action):
    host = server.connect()
    session = host.session(example_configuration())
    server.on(command, trickle(size=380))
    with pytest.raises(vantor.ServerTimeout):
        action(session, host)
    # Three periods of 20 ms, and 380 bytes at the slowest rate.
    assert 5.06 < server.now <= 5.06 + 38.0


def test_extends_the_wait_for_each_frame_of_a_stream_anew(server):
    size = len(frame_payload(0))

    def start(host, command):
        host.send_message(plain_answer(command))
        for number in range(5):
            server.pause(9.0)
            message = frame_bytes(number)
            host.send(message[:-size])
            for place in range(len(message) - size, len(message), 76):
                server.pause(5.0)
                host.send(message[place:place + 76])
    server.on("start", start)
    assert len(list(session_of(server).frames(count=5))) == 5
    assert server.now == pytest.approx(5 * 34.0)


def test_restores_the_baud_rate_when_the_server_does_not_answer_at_the_new_one(server):
    host = server.connect()
    server.on("ping", lambda host, command: server.baudrate == 9600 and host.send_message(plain_answer(command)))
    assert time_until_given_up(server, lambda: host.set_baudrate(115200)) == 5.0
    assert server.baudrate == 9600
    host.ping()


def test_keeps_the_new_baud_rate_when_the_server_answers_at_it(server):
    server.connect().set_baudrate(115200)
    assert server.baudrate == 115200
    assert server.now == 0.0


def test_drops_messages_of_an_earlier_session(server):
    def react(host, command):
        host.send(b"rest of a payload\nand more\n" + frame_bytes(3))
        host.send_message(error("bad_json"))
        host.send_message(plain_answer(command))
    server.on("end", react)
    assert server.connect().info.sensor == "k330"


def test_reports_that_the_server_is_busy(server):
    def react(host, command):
        host.send_message(error("busy", "Wait."))
        host.close_link()
    server.on("end", react)
    with pytest.raises(vantor.ServerError) as failure:
        server.connect()
    assert failure.value.code == "busy" and str(failure.value) == "Wait. (busy)"


def test_refuses_another_protocol_version(server):
    server.on("identify", answer_with(identity() | {"protocol_version": 2}))
    with pytest.raises(vantor.ProtocolError, match="version 2"):
        server.connect()
    assert server.open_links == 0


def test_runs_a_session(server):
    server.on("start", stream_frames(5))
    server.on("stop", lambda host, command: host.send_message(plain_answer(command) | {"frames_left_out": 7}))
    with server.connect() as host, host.session(example_configuration()) as session:
        assert len(session.items) == 3
        assert session.frame_rate_hz == 50.0
        assert session.calibrations[0].sensor_id == 1
        assert ticks(session.frames(count=3)) == [0, 20000, 40000]
        assert session.frames_left_out == 7
    assert server.commands("configure")[0]["configuration"] == example_configuration()
    names = [json.loads(line)["command"] for line in server.lines]
    assert names == ["end", "identify", "configure", "ping", "start", "stop", "end"]
    assert server.open_links == 0


def test_measures_single_frames(server):
    frame = session_of(server).single_frame()
    assert len(frame) == 3 and frame.time == 0.0 and frame.missing == 0


def test_stops_the_stream_when_the_loop_is_left(server):
    server.on("start", stream_frames(5))
    session = session_of(server)
    for frame in session.frames():
        break
    assert json.loads(server.lines[-1])["command"] == "stop"
    assert ticks(session.frames(count=2)) == [0, 20000]


def test_stops_the_stream_before_another_one(server):
    server.on("start", stream_frames(5))
    session = session_of(server)
    first = session.frames()
    next(first)
    assert ticks(session.frames(count=2)) == [0, 20000]
    with pytest.raises(vantor.Error, match="Another stream was started"):
        next(first)


def test_keeps_frames_that_arrive_before_the_answer_to_a_command(server):
    server.on("start", stream_frames(2))

    def stats(host, command):
        host.send(frame_bytes(3))
        host.send_message(plain_answer(command) | {"frames": 7})
    server.on("stats", stats)
    host = server.connect()
    received = []
    for frame in host.session(example_configuration()).frames(count=3):
        received.append((frame[0, 0].tick, frame.missing, frame.lost_before))
        if frame.number == 0:
            assert host.stats()["frames"] == 7
    assert received == [(0, 0, 0), (20000, 0, 0), (60000, 1, 1)]


def send_at_once(*parts):
    """A reaction to "start" that sends some frames, other messages or bytes together after the answer."""
    data = b"".join(frame_bytes(part) if isinstance(part, int) else part for part in parts)
    return lambda host, command: host.send(dump(plain_answer(command)) + data)


def test_gives_frames_that_arrived_together_before_those_that_are_kept(server):
    server.on("start", send_at_once(0, 1, 2, 3))

    def stats(host, command):
        host.send(frame_bytes(4))
        host.send_message(plain_answer(command))
    server.on("stats", stats)
    host = server.connect()
    ticks = []
    for frame in host.session(example_configuration()).frames(count=5):
        ticks.append(frame[0, 0].tick)
        if frame.number == 2:
            host.stats()
    assert ticks == [0, 20000, 40000, 60000, 80000]


def test_reports_an_error_after_the_frames_that_arrived_before_it(server):
    server.on("start", send_at_once(0, 1, 2, 3, dump(error("nox_data"))))
    numbers = []
    with pytest.raises(vantor.ServerError, match="…"):
        for frame in session_of(server).frames():
            numbers.append(frame.number)
    assert numbers == [0, 1, 2, 3]


def test_frames_that_arrived_together_with_the_last_one_need_a_connection(server):
    server.on("start", send_at_once(0, 1, 2, 3))
    host = server.connect()
    frames = host.session(example_configuration()).frames()
    assert [next(frames).number for _ in range(3)] == [0, 1, 2]
    host.close()
    with pytest.raises(vantor.ConnectionLost):
        next(frames)


def test_counts_damage_before_the_frame_that_follows_it(server):
    server.on("configure", answer_with(example_metadata(tick_period=0)))
    server.on("start", send_at_once(0, 1, 2, b"damaged\n", 3, 4, b"damaged\n", b"{}\n", 5))
    configuration = example_configuration()
    del configuration["max_update_rate"]
    session = server.connect().session(configuration)
    assert missing(session.frames(count=6)) == [(0, 0), (0, 0), (0, 0), (1, 1), (1, 0), (2, 1)]


def test_a_late_frame_that_seemed_lost_is_not_counted_twice(server):
    def start(host, command):
        host.send_message(plain_answer(command))
        for number, tick in enumerate([0, 39600, 40600, 79200, 80600, 120000, 160000]):
            host.send(frame_bytes(number, tick))
    server.on("start", start)
    # The second and the fourth frame seem to come after a gap until the next one arrives. Then two frames are missing.
    assert missing(session_of(server).frames(count=7)) == [(0, 0), (1, 1), (0, 0), (1, 0), (0, 0), (1, 0), (2, 1)]


@contextlib.contextmanager
def memory_below(limit):
    """Checks that the context never needs this many bytes more."""
    tracemalloc.start()
    try:
        yield
        assert tracemalloc.get_traced_memory()[1] < limit
    finally:
        tracemalloc.stop()


def flood(frame, size):
    """A reaction that answers after frames of this many bytes in all."""
    def react(host, command):
        for _ in range(size // len(frame)):
            host.send(frame)
        host.send_message(plain_answer(command))
    return react


def large_session(server):
    """A host, its session of frames of 128 KiB, and a frame."""
    metadata = example_metadata()
    metadata["metadata"] = [[item_metadata(2**15, [2**7])]]
    server.on("configure", answer_with(metadata))
    configuration = {"groups": [[{"sensor_id": 1, "config": {"num_points": 2**7, "sweeps_per_frame": 2**8}}]]}
    header = frame_header(0) | {"payload_size": 2**17}
    frame = dump(header | {"result_info": header["result_info"][1:]}) + bytes(2**17)
    server.on("start", lambda host, command: (host.send_message(plain_answer(command)), host.send(frame)))
    host = server.connect()
    return host, host.session(configuration), frame


def test_keeps_frames_before_an_answer_up_to_a_limit(server):
    host, session, frame = large_session(server)
    frames = session.frames()
    next(frames)
    server.on("stats", flood(frame, 100 * 2**20))
    # What was taken does not count later.
    for _ in range(2):
        host.stats()
        assert len(list(itertools.islice(frames, 790))) == 790
    server.on("stats", flood(frame, 200 * 2**20))
    with pytest.raises(vantor.ServerTimeout, match=r"has sent \d+ frames instead of an answer"):
        host.stats()
    host.ping()


def test_counts_the_memory_of_headers_before_an_answer(server, monkeypatch):
    monkeypatch.setattr("vantor._session._MOST_KEPT_BYTES", 2**22)
    server.on("start", stream_frames(1))
    large = dump(frame_header(0) | {"junk": [{}] * 10_000}) + frame_payload(0)
    server.on("stats", flood(large, 2**24))
    host = server.connect()
    frames = host.session(example_configuration()).frames()
    next(frames)
    with memory_below(2**23), pytest.raises(vantor.ServerTimeout, match="instead of an answer"):
        host.stats()


@pytest.mark.parametrize("command", ["stop", "end"])
def test_keeps_no_frames_when_a_stream_ends(server, command):
    host, session, frame = large_session(server)
    server.on(command, flood(frame, 2**28))
    frames = session.frames()
    next(frames)
    with memory_below(2**24):
        frames.close() if command == "stop" else session.end()
    host.ping()


def test_passes_log_lines_to_logging(server, caplog):
    def ping(host, command):
        for level in ("ERROR", "WARNING", "INFO", "VERBOSE", "DEBUG", "?"):
            host.send_message({"status": "log", "level": level, "module": "core", "message": f"\x1b[1m{level}",
                               "payload_size": 0})
        host.send_message(plain_answer(command))
    server.on("ping", ping)
    host = server.connect()
    host.log("DEBUG")
    with caplog.at_level(1, "vantor.server"):
        host.ping()
    assert [(record.name, record.levelno) for record in caplog.records] == [
        ("vantor.server", level) for level in (logging.ERROR, logging.WARNING, logging.INFO, 15, logging.DEBUG, 10)]
    assert caplog.records[0].getMessage() == r"core: \x1b[1mERROR"
    assert server.commands("log") == [{"command": "log", "level": "DEBUG"}]


def test_reports_errors_of_the_server(server):
    server.on("configure", answer_with(error("invalid_prf", 'Choose another "prf".')))
    host = server.connect()
    with pytest.raises(vantor.ServerError) as failure:
        host.session({})
    assert failure.value.code == "invalid_prf" and failure.value.message == 'Choose another "prf".'
    assert str(failure.value) == 'Choose another "prf". (invalid_prf)'
    host.ping()


def test_reports_errors_without_control_characters(server):
    server.on("ping", answer_with(error("\x1b[2J", "clear\nthe screen\x07")))
    with pytest.raises(vantor.ServerError) as failure:
        server.connect().ping()
    assert str(failure.value).isprintable()


def test_reports_an_error_that_ends_the_stream(server):
    def start(host, command):
        stream_frames(1)(host, command)
        host.send_message(error("nox_data", "The sensor is silent."))
    server.on("start", start)
    session = session_of(server)
    frames = session.frames()
    next(frames)
    with pytest.raises(vantor.ServerError, match="nox_data"):
        next(frames)
    with pytest.raises(vantor.Error, match="The session has ended"):
        next(session.frames())
    session.end()


def test_finds_the_server_again_after_an_error_that_ends_the_stream_before_an_answer(server):
    def stats(host, command):
        host.send_message(error("nox_data", "The sensor is silent."))
        host.send_message(plain_answer(command) | {"frames": 7})
    server.on("start", stream_frames(5))
    server.on("stats", stats)
    host = server.connect()
    frames = host.session(example_configuration()).frames()
    next(frames)
    with pytest.raises(vantor.ServerError, match="nox_data"):
        host.stats()
    host.ping()
    assert len(list(host.session(example_configuration()).frames(count=5))) == 5


def damaged_frame(number, digit="9"):
    """A frame with a damaged digit in its "payload_size"."""
    header = json.dumps(frame_header(number), separators=(",", ":")).replace("380", digit + "80")
    return header.encode() + b"\n" + frame_payload(number)


def test_continues_after_a_damaged_message(server, caplog):
    def start(host, command):
        stream_frames(1)(host, command)
        host.send(b'{"status":"ok","payl\n')
        host.send(frame_bytes(2))
    server.on("start", start)
    frames = list(session_of(server).frames(count=2))
    assert ticks(frames) == [0, 40000] and missing(frames) == [(0, 0), (1, 1)]
    assert "Invalid data from the server at byte" in caplog.text


def test_loses_one_frame_to_a_damaged_digit_of_its_payload_size(server, caplog):
    def start(host, command):
        stream_frames(1)(host, command)
        host.send(damaged_frame(1))
        for number in range(2, 20):
            host.send(frame_bytes(number))
    server.on("start", start)
    frames = list(session_of(server).frames(count=19))
    assert ticks(frames) == [0, *range(40000, 400000, 20000)]
    assert missing(frames)[:3] == [(0, 0), (1, 1), (1, 0)]
    assert '"payload_size" is 980, but every frame of this session has 380 bytes of samples' in caplog.text


def without_pace():
    """The example configuration without a rate."""
    return {"groups": example_configuration()["groups"]}


def test_counts_every_damaged_message_if_no_rate_is_known(server):
    def start(host, command):
        stream_frames(1)(host, command)
        for number in range(3):
            host.send(damaged_frame(number))
        host.send(frame_bytes(4))
    server.on("configure", answer_with(example_metadata(0)))
    server.on("start", start)
    assert missing(server.connect().session(without_pace()).frames(count=2)) == [(0, 0), (3, 3)]


def frame_after(lost, number):
    """A frame before which some are missing, as its header says."""
    return json.dumps({"missing": lost, **frame_header(number)}, separators=(",", ":")).encode() + b"\n" + frame_payload(number)


def start_with_losses(host, command):
    """A stream in which frames were lost on the way to the server, or damaged after it."""
    stream_frames(0)(host, command)
    for message in (frame_after(2, 10), frame_after(0, 11), frame_after(3, 12), damaged_frame(1), frame_after(5, 13),
                    frame_bytes(14), frame_bytes(15), frame_after(1, 16), frame_bytes(17)):
        host.send(message)


def test_counts_frames_that_were_lost_before_the_server_if_no_rate_is_known(server):
    server.on("configure", answer_with(example_metadata(0)))
    server.on("start", start_with_losses)
    assert missing(server.connect().session(without_pace()).frames(count=8)) == \
        [(2, 2), (2, 0), (5, 3), (11, 6), (11, 0), (11, 0), (12, 1), (12, 0)]


def test_counts_frames_by_ticks_if_the_rate_is_known(server):
    server.on("start", start_with_losses)
    # Only those before the first frame cannot be counted by ticks.
    assert missing(session_of(server).frames(count=8)) == [(2, 2), *[(2, 0)] * 7]


def test_a_single_frame_says_how_many_are_missing(server):
    server.on("frame", lambda host, command: host.send(frame_after(4, 1)))
    assert session_of(server).single_frame().missing == 4


def test_sends_stop_once_although_messages_before_its_answer_are_damaged(server):
    def stop(host, command):
        host.send(damaged_frame(2) + damaged_frame(3) + frame_bytes(4))
        host.send_message(plain_answer(command))
    server.on("start", stream_frames(1))
    server.on("stop", stop)
    host = server.connect()
    assert len(list(host.session(example_configuration()).frames(count=1))) == 1
    assert len(server.commands("stop")) == 1
    host.ping()


def test_reports_a_single_frame_of_another_length(server):
    server.on("frame", lambda host, command: host.send_message(frame_header(0) | {"payload_size": 4}, b"abcd"))
    session = session_of(server)
    for _ in range(2):
        with pytest.raises(vantor.BadMessage, match='"payload_size" is 4, .* 380 bytes of samples.$') as fault:
            session.single_frame()
        assert fault.value.code == "bad_message" and fault.value.position > 0


@pytest.mark.parametrize("spoil, reason", [
    (lambda header: header["result_info"].pop(1), "A frame has 1 groups"),
    (lambda header: header["result_info"][0].pop(1), "A frame has 1 items in a group"),
    (lambda header: header["result_info"][0][0].pop("tick"), 'no "tick"')])
def test_counts_frames_that_do_not_fit_the_metadata(server, caplog, spoil, reason):
    def start(host, command):
        stream_frames(1)(host, command)
        header = frame_header(1)
        spoil(header)
        host.send_message(header, frame_payload(1))
        host.send(frame_bytes(2))
    server.on("start", start)
    assert missing(session_of(server).frames(count=2)) == [(0, 0), (1, 1)]
    assert reason in caplog.text


def test_refuses_metadata_of_another_number_of_items(server):
    metadata = example_metadata()
    metadata["metadata"][0].append(metadata["metadata"][0][0])
    server.on("configure", answer_with(metadata))
    host = server.connect()
    with pytest.raises(vantor.ProtocolError,
                       match="The session metadata describe 4 items, but the configuration has 3"):
        host.session(example_configuration())
    host.close()
    assert json.loads(server.lines[-1]) == {"command": "end"}, "the server had set up the session"


@pytest.mark.parametrize("lengths", [[10, 14], [25], [5, 10, 10]])
def test_refuses_metadata_of_other_subsweeps(server, lengths):
    metadata = example_metadata()
    metadata["metadata"][0][1]["subsweep_data_length"] = lengths
    metadata["metadata"][0][1]["subsweep_data_offset"] = [sum(lengths[:i]) for i in range(len(lengths))]
    server.on("configure", answer_with(metadata))
    with pytest.raises(vantor.ProtocolError,
                       match="other sub-sweeps than the configuration requests, in group 1, item 2"):
        session_of(server)


def test_accepts_metadata_of_items_that_it_cannot_use(server):
    configuration = example_configuration()
    configuration["groups"][0][0]["config"] = None
    session = server.connect().session(configuration)
    assert len(session.items) == 3
    assert np.isnan(session.items[0].distances_m).all()


@pytest.mark.parametrize("action", ["ping", "frame", "stream"])
def test_refuses_unexpected_messages(server, action):
    other = answer_with({"status": "ok", "command": "pong", "payload_size": 0})
    server.on("ping", other)
    server.on("frame", other)
    server.on("start", lambda host, command: (host.send_message(plain_answer(command)), other(host, command)))
    host = server.connect()
    session = host.session(example_configuration())
    act = {"ping": host.ping, "frame": session.single_frame, "stream": lambda: next(session.frames())}[action]
    with pytest.raises(vantor.ProtocolError, match="another program may be using the same link"):
        act()


def test_detects_a_closed_connection(server):
    server.on("ping", lambda host, command: host.close_link())
    host = server.connect()
    with pytest.raises(vantor.ConnectionLost, match="closed the connection"):
        host.ping()
    host.close()
    with pytest.raises(vantor.ConnectionLost, match="was closed"):
        host.ping()


def test_detects_a_connection_that_is_lost_during_a_stream(server):
    def start(host, command):
        stream_frames(2)(host, command)
        host.close_link()
    server.on("start", start)
    received = []
    with pytest.raises(vantor.ConnectionLost), server.connect() as host:
        with host.session(example_configuration()) as session:
            for frame in session.frames():
                received.append(frame.number)
    assert received == [0, 1] and server.open_links == 0


@pytest.mark.parametrize("pause, later, hint", [
    (12.0, 0.0, True), (12.0, 9.0, True), (12.0, 11.0, False), (4.0, 0.0, False)])
def test_names_a_long_pause_as_a_possible_cause_of_a_lost_connection(server, pause, later, hint):
    def start(host, command):
        stream_frames(1)(host, command)
        server.pause(pause)
        host.send(frame_bytes(1))
        server.pause(later)
        host.close_link()
    server.on("start", start)
    session = session_of(server, frame=100.0)
    with pytest.raises(vantor.ConnectionLost) as failure:
        for frame in session.frames():
            server.now += pause if frame.number == 0 else 0.0
    assert ("read nothing for 12 s" in str(failure.value)) == hint
    assert ("--stall-limit 0" in str(failure.value)) == hint


def test_names_no_pause_between_streams_as_a_cause_of_a_lost_connection(server):
    session = session_of(server)
    assert list(session.frames(seconds=0.0)) == []
    server.now += 100.0
    server.on("start", lambda host, command: host.close_link())
    with pytest.raises(vantor.ConnectionLost) as failure:
        next(session.frames())
    assert "possible cause" not in str(failure.value)


def test_hands_calibrations_back(server):
    host = server.connect()
    calibrations = host.session(example_configuration()).calibrations
    host.session(example_configuration(), calibrations)
    assert server.commands("configure")[1]["configuration"]["calibration_info"] == \
        example_metadata()["calibration_info"]


def test_represents_objects_by_what_they_are(server):
    server.on("identify", answer_with(identity() | {"board": {"name": "my \x1bboard"}}))
    server.on("start", stream_frames(2))
    host = server.connect()
    assert repr(host) == "<vantor.Server scripted, k330, my \\x1bboard, idle>"
    session = host.session(example_configuration())
    assert repr(host) == "<vantor.Server scripted, k330, my \\x1bboard, in a session>"
    assert repr(session) == "<vantor.Session of scripted, k330, my \\x1bboard: 3 items, in a session>"
    for frame in session.frames(count=1):
        assert repr(session).endswith("3 items, streaming>") and repr(host).endswith("streaming>")
        assert repr(frame[0, 1]) == "<vantor.Item of sensor 2: 1 sweeps of 25 points, time=5e-06, flags: none>"
    server.on("ping", stay_silent)
    with pytest.raises(vantor.ServerTimeout):
        host.ping()
    assert repr(session).endswith("interrupted>")
    session.end()
    assert repr(session).endswith("ended>")
    host.close()
    assert repr(host) == "<vantor.Server scripted, k330, my \\x1bboard, closed>"
    assert repr(session.calibrations) == "(Calibration(sensor_id=1, temperature=24),)"


def test_accepts_the_path_of_calibrations(server, tmp_path):
    host = server.connect()
    vantor.save_calibrations(tmp_path / "calibration.json", host.session(example_configuration()).calibrations)
    for path in (tmp_path / "calibration.json", str(tmp_path / "calibration.json")):
        host.session(example_configuration(), path)
        assert server.commands("configure")[-1]["configuration"]["calibration_info"] == \
            example_metadata()["calibration_info"]


def test_ends_the_earlier_session(server):
    host = server.connect()
    first = host.session(example_configuration())
    host.session(example_configuration())
    assert len(server.commands("end")) == 2
    with pytest.raises(vantor.Error, match="The session has ended"):
        first.single_frame()


def test_refuses_a_document_that_is_not_json(server):
    with pytest.raises(vantor.ConfigurationError):
        server.connect().session({"groups": {1, 2}})


class DamagingServer(ScriptedServer):
    """A server whose messages are damaged now and then: bytes are changed, lost, repeated, or come from JSON."""

    PARTS = [b"{", b"}", b"[", b"]", b'"', b",", b":", b"\\", b"\n", b"null", b"true", b"-1", b"1e999", b"9" * 30,
             b"\xff", b'"result_info"', b'"payload_size":67108864', b'"status":"log"', b'"tick"', b"[" * 50]

    def __init__(self, seed):
        super().__init__()
        self._random = random.Random(seed)
        self._strength = self._random.uniform(0.0, 0.3)
        self.on("start", stream_frames(20))

    def send(self, data):
        while self._random.random() < self._strength:
            place = self._random.randrange(len(data) + 1)
            gap = self._random.choice([0, 0, 1, 1, 5, 100])
            data = data[:place] + self._random.choice(self.PARTS) + data[place + gap:]
        super().send(data)


def test_raises_only_its_own_errors_whatever_the_server_sends(caplog):
    caplog.set_level(logging.ERROR)
    outcomes = set()
    for seed in range(campaign(20_000, 300)):
        server = DamagingServer(seed)
        try:
            with server.connect() as host, host.session(example_configuration()) as session:
                for frame in session.frames(count=15):
                    assert frame[0, 0].samples.shape == (2, 20, 2) and frame.missing >= 0
                host.stats()
                outcomes.add("complete")
        except vantor.Error as failure:
            assert str(failure).isprintable(), seed
            outcomes.add(type(failure))
        assert server.now < 300.0, seed
        assert server.open_links == 0, seed
    assert {"complete", vantor.ServerTimeout, vantor.BadMessage} <= outcomes, "the damage is too weak or too strong"
