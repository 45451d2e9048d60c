"""`vantor selftest`: good servers pass, and each planted fault is found by the case that tests for it."""

import json
import select
import socket
import threading
import unittest

from vantor_process import TIME_OUT, Server, self_test, vantor

FIXED_RATE = {"the baud rate can be changed and changed back", "without a ping the baud rate falls back"}
LOST_HOST = {"a session ends when its host disconnects"}
CLOCK = {"the clock runs at the right rate"}  # skipped when it is virtual


class FaultyServer(threading.Thread):
    """A relay between a server on TCP and hosts, one after the other, that changes what the server sends."""

    def __init__(self, server):
        super().__init__(daemon=True)
        name, _, port = server.address.removeprefix("tcp:").rpartition(":")
        self.server_address = (name, int(port))
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"tcp:127.0.0.1:{self.listener.getsockname()[1]}"
        self.upstream = None
        self.from_server = b""
        self.ending = False

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.ending = True
        socket.create_connection(self.listener.getsockname(), TIME_OUT).close()  # makes accept() return
        self.join(TIME_OUT)
        self.listener.close()
        self.close_upstream()

    def run(self):
        while True:
            host, _ = self.listener.accept()
            with host:
                if self.ending:
                    return
                self.serve(host)

    def close_upstream(self):
        """Closes the connection to the server, if there is one."""
        if self.upstream is not None:
            self.upstream.close()
            self.upstream = None
            self.from_server = b""

    def serve(self, host):
        """Serves one host until it disconnects."""
        if self.upstream is None:
            self.upstream = socket.create_connection(self.server_address, TIME_OUT)
        from_host = b""
        while True:
            for source in select.select([host, self.upstream], [], [])[0]:
                try:
                    data = source.recv(65536)
                    if not data:
                        return self.lose_host()
                    if source is host:
                        *lines, from_host = (from_host + data).split(b"\n")
                        for line in lines:
                            self.on_line(line)
                        self.upstream.sendall(self.to_server(data))
                    else:
                        self.from_server += data
                        self.forward(host)
                except ConnectionError:
                    return self.lose_host()

    def forward(self, host):
        """Passes on every complete message."""
        while (end := self.from_server.find(b"\n") + 1) > 0:
            line = self.from_server[:end]
            header = json.loads(line)
            size = header["payload_size"]
            if len(self.from_server) < end + size:
                return
            payload = self.from_server[end:end + size]
            self.from_server = self.from_server[end + size:]
            changed = self.change(header)
            if changed is None:
                continue
            if changed is not header:
                line = json.dumps(changed, separators=(",", ":")).encode() + b"\n"
            host.sendall(line + payload)

    def lose_host(self):
        """Called when the host has disconnected."""
        self.close_upstream()

    def on_line(self, line):
        """Called for every line of the host."""

    def to_server(self, data):
        """The bytes that the server gets instead of bytes of the host."""
        return data

    def change(self, header):
        """The message that a host gets instead of a message of the server; nothing to drop it."""
        return header


class StatesTooSmallPayload(FaultyServer):
    """Reports a payload that is one sample too short, in a frame of several sensors."""

    def change(self, header):
        if len(header.get("result_info", [[]])[0]) > 1:
            return {**header, "payload_size": header["payload_size"] - 4}
        return header


class AnswersWrongCode(FaultyServer):
    """Answers text that is not JSON with a different error."""

    text = False

    def on_line(self, line):
        self.text = line == b"this is not JSON"

    def change(self, header):
        return {**header, "code": "unknown_command"} if self.text and header["status"] == "error" else header


class PacedFrames(FaultyServer):
    """Counts the frames of a session whose rate the server keeps."""

    def __init__(self, server):
        super().__init__(server)
        self.period = 0
        self.frames = 0

    def change(self, header):
        if "tick_period" in header:
            self.period = header["tick_period"]
            self.frames = 0
        if "result_info" in header and self.period > 0:
            self.frames += 1
            return self.change_paced(header)
        return header

    def with_tick(self, header, tick):
        """A frame of one item with a different tick."""
        return {**header, "result_info": [[{**header["result_info"][0][0], "tick": tick % 2**32}]]}

    def change_paced(self, header):
        """The message that is sent instead of a paced frame."""
        return header


class RepeatsTick(PacedFrames):
    """Sends the tick of a frame again with the next frame."""

    tick = 0

    def change_paced(self, header):
        if self.frames == 11:
            return self.with_tick(header, self.tick)
        self.tick = header["result_info"][0][0]["tick"]
        return header


class GoesBack(PacedFrames):
    """Sends a tick that is before the tick of the previous frame."""

    def change_paced(self, header):
        tick = header["result_info"][0][0]["tick"]
        return self.with_tick(header, tick - 2 * self.period) if self.frames == 11 else header


class MeasuresTooEarly(PacedFrames):
    """From the tenth frame on, measures each frame half a period before it is due."""

    def change_paced(self, header):
        tick = header["result_info"][0][0]["tick"]
        return self.with_tick(header, tick - self.period // 2) if self.frames > 10 else header


class LeavesOutWithoutCounting(PacedFrames):
    """From the tenth frame on, measures one period late, and does not count frames as left out."""

    def change_paced(self, header):
        tick = header["result_info"][0][0]["tick"]
        return self.with_tick(header, tick + self.period) if self.frames > 10 else header


class LosesFrame(FaultyServer):
    """Drops the 500th frame of a session."""

    frames = 0

    def on_line(self, line):
        if b'"configure"' in line:
            self.frames = 0

    def change(self, header):
        if "result_info" in header:
            self.frames += 1
        return None if self.frames == 500 and "result_info" in header else header


class RunsFast(FaultyServer):
    """Counts twelve times as fast as it reports, from the first statistics on."""

    first = None

    def change(self, header):
        if "uptime_s" not in header:
            return header
        if self.first is None:
            self.first = header["uptime_s"]
        return {**header, "uptime_s": self.first + 12 * (header["uptime_s"] - self.first)}


class LeaksMemory(FaultyServer):
    """Reports that a few more bytes are in use after each session."""

    sessions = 0

    def on_line(self, line):
        self.sessions += b'"configure"' in line

    def change(self, header):
        if header.get("command") == "identify":
            memory = header["memory"]
            return {**header, "memory": {**memory, "live": memory["live"] + 8 * self.sessions}}
        return header


class SplitsMemory(FaultyServer):
    """Reports a smaller largest free block after each session."""

    sessions = 0

    def on_line(self, line):
        self.sessions += b'"configure"' in line

    def change(self, header):
        if header.get("command") == "identify":
            memory = header["memory"]
            return {**header, "memory": {**memory, "largest_free": memory["largest_free"] - 8 * self.sessions}}
        return header


class KeepsSession(FaultyServer):
    """Does not detect that a host has disconnected."""

    def lose_host(self):
        pass


class ChangesAnyRate(FaultyServer):
    """Confirms every change of the baud rate."""

    def change(self, header):
        if header.get("code") == "baudrate_fixed":
            return {"status": "ok", "command": "baudrate", "payload_size": 0}
        return header


class SerialLine(FaultyServer):
    """Behaves like a server on a serial line with a baud rate of up to 921,600."""

    rate = 0

    def on_line(self, line):
        if b'"baudrate"' in line:
            self.rate = json.loads(line)["baudrate"]

    def change(self, header):
        if "max_baudrate" in header:
            return {**header, "max_baudrate": 921600}
        if header.get("code") == "baudrate_fixed":
            if 1 <= self.rate <= 921600:
                return {"status": "ok", "command": "baudrate", "payload_size": 0}
            return {**header, "code": "bad_argument"}
        return header


class NeverFallsBack(SerialLine):
    """Stays at a baud rate that no ping has confirmed: bytes at the old rate are received as noise."""

    changes = 0

    def on_line(self, line):
        super().on_line(line)
        self.changes += b'"baudrate"' in line and 1 <= self.rate <= 921600

    def to_server(self, data):
        return data if self.changes < 3 or b"baudrate" in data else b""


class Describes(FaultyServer):
    """Describes itself with different members."""

    def __init__(self, server, members):
        super().__init__(server)
        self.members = members

    def change(self, header):
        if header.get("command") == "identify":
            return {key: value for key, value in {**header, **self.members}.items() if value is not None}
        return header


class SelfTest(unittest.TestCase):
    def results(self, address, **options):
        """Tests a server; returns the exit code, and the cases by result with their details."""
        result = self_test(address, "--json", **options)
        document = json.loads(result.stdout)
        self.assertEqual(document["address"], address)
        cases = {kind: {case["case"]: case for case in document["cases"] if case["result"] == kind}
                 for kind in ("ok", "failed", "skipped")}
        self.assertEqual([len(cases[kind]) for kind in ("ok", "failed", "skipped")],
                         [document[kind] for kind in ("passed", "failed", "skipped")])
        self.assertEqual(sum(map(len, cases.values())), len(document["cases"]))
        self.assertEqual(result.returncode, 1 if cases["failed"] else 0, result.stderr)
        return cases

    def passes(self, address, skipped):
        """Tests a server that has no fault."""
        cases = self.results(address)
        self.assertEqual(cases["failed"], {})
        self.assertEqual(set(cases["skipped"]), skipped)
        self.assertTrue(all(case["reason"] for case in cases["skipped"].values()))
        self.assertGreaterEqual(len(cases["ok"]), 30)

    def finds(self, kind, case, expected, got, skipped=FIXED_RATE | CLOCK, seconds=60, clock="virtual",
              **arguments):
        """Tests a server with a fault that exactly one case finds."""
        with Server("--tcp", "0", "--clock", clock) as server, kind(server, **arguments) as faulty:
            cases = self.results(faulty.address, seconds=seconds)
        self.assertEqual(set(cases["failed"]), {case}, cases["failed"])
        self.assertEqual(set(cases["skipped"]), skipped)
        self.assertRegex(cases["failed"][case]["expected"], expected)
        self.assertRegex(cases["failed"][case]["got"], got)
        self.assertTrue(cases["failed"][case]["look_at"])


class GoodServers(SelfTest):
    def test_over_tcp(self):
        with Server("--tcp", "0") as server:
            self.passes(server.address, FIXED_RATE)

    def test_over_a_serial_device(self):
        with Server("--pty", "--sensors", "2") as server:
            self.passes(server.address, LOST_HOST)

    def test_a_private_simulated_server(self):
        self.passes("sim:--clock virtual --sensors 1 --memory 65536", FIXED_RATE | LOST_HOST | CLOCK)

    def test_through_a_relay_without_a_fault(self):
        with Server("--tcp", "0", "--clock", "virtual") as server, FaultyServer(server) as relay:
            self.passes(relay.address, FIXED_RATE | CLOCK)

    def test_over_tcp_to_a_serial_line(self):
        with Server("--tcp", "0", "--clock", "virtual") as server, SerialLine(server) as relay:
            self.passes(relay.address, LOST_HOST | CLOCK)

    def test_a_server_that_does_not_report_its_memory(self):
        with Server("--tcp", "0", "--clock", "virtual") as server, Describes(server, {"memory": None}) as relay:
            self.passes(relay.address, FIXED_RATE | CLOCK | {"20 sessions do not leak memory"})

    def test_results_are_printed_as_text(self):
        result = self_test("sim:--clock virtual")
        self.assertEqual(result.returncode, 0)
        *cases, summary = result.stdout.splitlines()
        self.assertEqual(summary, f"{len(cases) - 4} passed, 0 failed, 4 skipped")
        self.assertEqual(cases[0], 'ok       "identify" describes the server')
        self.assertIn("skipped  the baud rate can be changed and changed back: the baud rate of this link is fixed",
                      cases)

    def test_no_server(self):
        result = vantor("selftest", "--connect", "tcp:127.0.0.1:1")
        self.assertEqual((result.returncode, result.stdout), (4, ""))


class PlantedFaults(SelfTest):
    def test_a_payload_size_that_is_too_small(self):
        self.finds(StatesTooSmallPayload, "all sensors measure at the same time", "valid messages", "156 bytes.* 160")

    def test_a_wrong_error_code(self):
        self.finds(AnswersWrongCode, "text that is not JSON is refused", '"bad_json"', "unknown_command")

    def test_a_tick_that_is_sent_twice(self):
        self.finds(RepeatsTick, "frames keep the configured rate", "different tick", "twice")

    def test_a_tick_that_goes_back(self):
        self.finds(GoesBack, "frames keep the configured rate", "not earlier than the previous one", "after")

    def test_frames_before_they_are_due(self):
        self.finds(MeasuresTooEarly, "frames keep the configured rate", "never early", "frame 10 ")

    def test_frames_that_are_left_out_and_not_counted(self):
        self.finds(LeavesOutWithoutCounting, "frames keep the configured rate", "frames_left_out",
                   "frame 10 .* 0 left out")

    def test_a_lost_frame(self):
        self.finds(LosesFrame, "1,000 frames arrive without a gap", "frames, the number", "frames")

    def test_a_leak(self):
        self.finds(LeaksMemory, "20 sessions do not leak memory", "bytes in use", "bytes in use")

    def test_fragmented_memory(self):
        self.finds(SplitsMemory, "20 sessions do not leak memory", "largest free", "largest free")

    def test_a_clock_that_is_too_fast(self):
        self.finds(RunsFast, "the clock runs at the right rate", '"uptime_s" that grows by', r"^\d+\.\d+ s$",
                   skipped=FIXED_RATE, clock="real")

    def test_a_session_that_continues_without_its_host(self):
        self.finds(KeepsSession, "a session ends when its host disconnects", '"wrong_state"', "result_info|ok")

    def test_a_baud_rate_that_is_accepted_but_fixed(self):
        self.finds(ChangesAnyRate, "a refused baud rate does not change the link", "baudrate_fixed", "ok")

    def test_a_baud_rate_that_does_not_fall_back(self):
        self.finds(NeverFallsBack, "without a ping the baud rate falls back", "ping", "nothing within 10000 ms",
                   skipped=LOST_HOST | CLOCK, seconds=10)

    def test_a_description_of_the_wrong_type(self):
        self.finds(Describes, '"identify" describes the server', '"server_version": a string', '""',
                   members={"server_version": ""})

    def test_a_failed_case_is_printed_with_a_hint(self):
        with Server("--tcp", "0", "--clock", "virtual") as server, AnswersWrongCode(server) as faulty:
            result = self_test(faulty.address)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stdout, r'FAILED   text that is not JSON is refused\n +expected: the error "bad_json"\n'
                                        r" +got: +\{.*unknown_command.*\}\n +check: +whether the port passes on")
        self.assertRegex(result.stdout.splitlines()[-1], r"^\d+ passed, 1 failed, 3 skipped$")


if __name__ == "__main__":
    unittest.main()
