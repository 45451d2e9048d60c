"""The firmware on an emulated Cortex-M4F board."""

import array
import json
import os
import pty
import socket
import subprocess
import tempfile
import time
import unittest

from emulated_board import (BOARD_NAME, EMULATOR, FIRMWARE, NUMBERS, Board, end_session, free_port,
                            repeat_until_answered)
from pace import check_server_paced
from vantor_process import Host, Server, SocketStream, TIME_OUT, VANTOR, campaign, example, self_test, wait_until

SMALL = {"groups": [[{"sensor_id": 1, "config": {"num_points": 20}}]]}

FAULTY_FIRMWARE = os.environ["VANTOR_FAULTY_FIRMWARE"]

EMULATE_BOARD = os.path.join(os.path.dirname(__file__), "../../scripts/emulate-board")

STACK_LIMIT = 4096
COMMAND_SIZE = 128  # bytes of the document of a command
COMMAND_SLACK = 32  # bytes by which holes for its four blocks may be too large

START_BAUDRATE = NUMBERS["LINK_START_BAUDRATE"]
MAX_BAUDRATE = NUMBERS["LINK_MAX_BAUDRATE"]


def error_code(answer):
    """Returns the code of an answer, which must be an error."""
    if answer["status"] != "error":
        raise AssertionError(f"expected an error, got {answer}")
    return answer["code"]


def frames_of(host, configuration, count):
    """Configures a session, streams some frames and stops; returns the metadata and the frames."""
    metadata = host.ask("configure", configuration=configuration)
    if metadata["status"] != "ok":
        raise AssertionError(metadata)
    host.command("start")
    assert host.message()[0]["command"] == "start"
    frames = [host.message() for _ in range(count)]
    host.command("stop")
    answer, _ = host.answer()
    assert answer["command"] == "stop", answer
    return metadata, frames


def in_time(frames):
    """Whether no frame was delayed (usually because the machine is busy)."""
    return not any(item["frame_delayed"] for header, _ in frames for group in header["result_info"] for item in group)


def discard_old_messages(host):
    """Discards messages that were sent to another host, up to the answer to `end`."""
    host.send(b"\n")
    host.command("end")
    while b'"command":"end"' not in host.line():
        pass


def run_session(host):
    """Runs a session from configuration to end."""
    _, frames = frames_of(host, SMALL, 3)
    assert len(frames[-1][1]) == 80
    assert host.ask("end")["status"] == "ok"


class Session(unittest.TestCase):
    """Sessions, compared with the port for a PC."""

    def test_identifies_itself(self):
        with Board(sensors=3, virtual_clock=False) as board, board.connect() as host:
            identity = host.ask("identify")
            self.assertEqual(identity["sensor"], "k330")
            self.assertEqual(identity["sensor_count"], 3)
            self.assertEqual(identity["connected_sensors"], [1, 2, 3])
            self.assertEqual(identity["ticks_per_second"], 1000000)
            self.assertEqual(identity["max_baudrate"], MAX_BAUDRATE)
            self.assertGreater(identity["memory"]["size"], 64 * 1024)
            self.assertGreater(identity["memory"]["live"], 0)
            self.assertEqual(identity["memory"]["failures"], 0)
            self.assertGreater(identity["stack"]["peak"], 0)

    def test_measures_the_same_as_the_port_for_a_pc(self):
        frame_count = campaign(200, 40)
        configuration = example("two_sensors.json")
        with Board(virtual_clock=True, seed=7) as board, board.connect() as host, \
                Server("--tcp", "0", "--clock", "virtual", "--seed", "7", "--sensors", "5") as server, \
                server.connect() as pc_host:
            first, frames = frames_of(host, configuration, frame_count)
            pc_first, pc_frames = frames_of(pc_host, configuration, frame_count)
            self.compare(first, frames, pc_first, pc_frames)

            for connected in (host, pc_host):
                self.assertEqual(connected.ask("end")["status"], "ok")
            again = {**configuration, "calibration_info": first["calibration_info"]}
            second, frames = frames_of(host, again, 20)
            self.assertEqual(second["calibration_info"], first["calibration_info"])
            pc_again = {**configuration, "calibration_info": pc_first["calibration_info"]}
            # The number of frames sent before the stop may differ, and with it the time of the second session.
            self.compare(second, frames, *frames_of(pc_host, pc_again, 20), with_ticks=False)

    def test_measures_the_same_as_the_port_for_a_pc_in_real_time(self):
        config = {"num_points": 40, "frame_rate": 4}
        configuration = {"groups": [[{"sensor_id": sensor_id, "config": config} for sensor_id in (1, 2)]]}
        with Board(virtual_clock=False, seed=3) as board, board.connect() as host, \
                Server("--tcp", "0", "--seed", "3", "--sensors", "5") as server, server.connect() as pc_host:
            for _ in range(10):
                sessions = [frames_of(connected, configuration, 4) for connected in (host, pc_host)]
                for connected in (host, pc_host):
                    self.assertEqual(connected.ask("end")["status"], "ok")
                if all(in_time(frames) for _, frames in sessions):
                    self.compare(*sessions[0], *sessions[1], with_ticks=False)
                    return
        self.fail("every session had a delayed frame")

    def compare(self, metadata, frames, pc_metadata, pc_frames, with_ticks=True):
        """Expects two sessions to be the same."""
        self.assertEqual(metadata["metadata"], pc_metadata["metadata"])
        self.assertEqual(len(frames), len(pc_frames))
        for (header, payload), (pc_header, pc_payload) in zip(frames, pc_frames):
            if not with_ticks:
                for item in [item for both in (header, pc_header) for group in both["result_info"] for item in group]:
                    item.pop("tick")
            self.assertEqual(header, pc_header)
            self.assertEqual(len(payload), len(pc_payload))
            samples, pc_samples = array.array("h", payload), array.array("h", pc_payload)
            self.assertGreater(max(samples), 100, "there is no signal")
            self.assertEqual(samples, pc_samples)

    def test_keeps_the_frame_rate_on_its_own_clock(self):
        with Board(virtual_clock=False) as board, board.connect() as host:
            check_server_paced(host, SMALL, 50, 30)

    def test_sleeps_when_there_is_nothing_to_do(self):
        # While the board sleeps, the emulator uses at most 0.02 s of processor time in each of the two intervals.
        with Board(virtual_clock=False) as board, board.connect() as host:
            host.ask("identify")
            before = board.processor_time()
            time.sleep(1)
            self.assertLess(board.processor_time() - before, 0.2)
            host.ask("configure", configuration={**SMALL, "update_rate": 2})
            host.command("start")
            host.message()
            host.message()
            before = board.processor_time()
            for _ in range(2):
                host.message()
            self.assertLess(board.processor_time() - before, 0.2)

    def test_serves_the_host_command(self):
        with Board(virtual_clock=True) as board, tempfile.TemporaryDirectory() as directory:
            board.connect().stream.close()
            output = os.path.join(directory, "recording")
            configuration = os.path.join(os.environ["VANTOR_EXAMPLES"], "two_sensors.json")
            recorded = subprocess.run([VANTOR, "record", configuration, "--connect", board.address,
                                       "--frames", "20", "--output", output],
                                      capture_output=True, text=True, timeout=TIME_OUT, check=False)
            self.assertEqual(recorded.returncode, 0, recorded.stderr)
            info = subprocess.run([VANTOR, "info", output, "--json"], capture_output=True, text=True, timeout=TIME_OUT,
                                  check=True)
            self.assertIn('"frames": 20', info.stdout)
            identity = json.loads(subprocess.run([VANTOR, "identify", "--connect", board.address, "--json"],
                                                 capture_output=True, text=True, timeout=TIME_OUT, check=True).stdout)
            self.assertIn("memory", identity)
            self.assertIn("stack", identity)

    def test_passes_the_self_test(self):
        with Board(virtual_clock=False) as board:
            board.connect().stream.close()
            tested = self_test(board.address)
            self.assertEqual(tested.returncode, 0, tested.stdout + tested.stderr)
            self.assertNotIn("FAILED", tested.stdout)

    def test_the_script_runs_in_the_background_of_a_terminal(self):
        port = free_port()
        shell, terminal = pty.fork()
        if shell == 0:
            os.execlp("bash", "bash", "--norc", "-ic", f"{EMULATE_BOARD} {port} {BOARD_NAME} {FIRMWARE} & wait")
        try:
            wait_until(lambda: self.answers_at(port), "an answer")
        finally:
            os.close(terminal)  # hangs up, which ends shell and board
            os.waitpid(shell, 0)

    def test_the_script_refuses_boards_that_it_cannot_emulate(self):
        with socket.create_server(("127.0.0.1", 0)) as listener:
            for arguments, code, message in (
                    (("70000",), 2, 'PORT is "70000"; use a number from 1 to 65535.\nusage: '),
                    (("6110", "template"), 2, 'BOARD is "template", which cannot be emulated.\nusage: '),
                    (("6110", "foo"), 2, 'BOARD is "foo", which cannot be emulated.\nusage: '),
                    (("6110", BOARD_NAME, "absent.elf"), 1, "There is no image absent.elf. To build it:\n"),
                    (("6110", BOARD_NAME, FIRMWARE, "more"), 2, "usage: "),
                    ((str(listener.getsockname()[1]), BOARD_NAME, FIRMWARE), 1, "is in use; choose another one.\n")):
                refused = subprocess.run([EMULATE_BOARD, *arguments], capture_output=True, text=True, timeout=TIME_OUT,
                                         check=False)
                self.assertEqual((refused.returncode, refused.stdout), (code, ""), arguments)
                self.assertIn(message, refused.stderr)

    def test_the_script_prints_its_usage(self):
        shown = subprocess.run([EMULATE_BOARD, "--help"], capture_output=True, text=True, timeout=TIME_OUT, check=True)
        self.assertIn("usage: scripts/emulate-board [PORT [BOARD [IMAGE]]]\n", shown.stdout)
        self.assertIn("BOARD is mps2_an386 or netduinoplus2,", shown.stdout)

    def answers_at(self, port):
        """Whether a board answers on a TCP port."""
        try:
            stream = SocketStream("127.0.0.1", port)
        except ConnectionRefusedError:
            return False
        with Host(stream) as host:
            repeat_until_answered(host, "identify")
        return True


class Errors(unittest.TestCase):
    """Errors are reported, and the board continues to work."""

    def test_bad_input(self):
        with Board() as board, board.connect() as host:
            for line, code in ((b"nonsense\n", "bad_json"), (b'{"command":"ping"} x\n', "trailing_text"),
                               (b"[" * 17 + b"]" * 17 + b"\n", "nesting_too_deep"),
                               (b"[" + b"1," * NUMBERS["MAX_VALUES"] + b"1]\n", "too_many_values"),
                               (b"x" * NUMBERS["LINE_SIZE"] + b"\n", "line_too_long"),
                               (b'{"command":"fly"}\n', "unknown_command"),
                               (b'{"command":"stop"}\n', "wrong_state")):
                host.send(line)
                self.assertEqual(error_code(host.message()[0]), code, line[:20])
            run_session(host)

    def test_a_number_of_any_length(self):
        with Board() as board, board.connect() as host:
            long_rate = "50." + "0" * 4000 + "1"
            host.send(b'{"command":"configure","configuration":{"update_rate":' + long_rate.encode()
                      + b',"groups":[[{"sensor_id":1,"config":{}}]]}}\n')
            self.assertEqual(host.message()[0]["tick_period"], 20000)

    def test_a_host_that_disconnects_and_connects_again(self):
        with Board(virtual_clock=False) as board:
            with board.connect() as host:
                host.ask("configure", configuration={**SMALL, "update_rate": 100})
                host.command("start")
                host.message()
            self.find_again(board)

    def find_again(self, board):
        """A new host connects to a board that still streams, and uses it."""
        identity = subprocess.run([VANTOR, "identify", "--connect", board.address], capture_output=True, text=True,
                                  timeout=TIME_OUT, check=False)
        self.assertEqual(identity.returncode, 0, identity.stderr)
        with board.connect() as host:
            run_session(host)

    @unittest.skipIf(EMULATOR["waits_for_host"], "this emulator stops the board while its host does not read")
    def test_a_host_that_does_not_read(self):
        with Board(virtual_clock=False, hurried_time=True, narrow_link=True) as board:
            with board.connect() as host:
                configuration = {"groups": [[{"sensor_id": 1, "config": {"num_points": 2000}}]]}
                self.assertEqual(host.ask("configure", configuration=configuration)["status"], "ok")
                host.command("start")
                board.wait_for_restarted_link()
            with board.connect() as host:
                discard_old_messages(host)
                self.assertEqual(host.ask("identify")["last_drop"], "it accepted no data for 5 s")
                self.assertEqual(host.ask("stats")["hosts_dropped"], 1)
                run_session(host)

    @unittest.skipIf(EMULATOR["waits_for_host"], "this emulator stops the board while its log is not read")
    def test_a_log_that_is_not_read(self):
        with Board(log_is_read=False, virtual_clock=False) as board, board.connect() as host:
            for _ in range(3):
                bad = {"groups": [[{"sensor_id": 1, "config": {"nonsense": 1}}]]}
                self.assertEqual(host.ask("configure", configuration=bad)["status"], "error")
                self.assertEqual(host.ask("end")["status"], "ok")
            run_session(host)

    def test_more_input_than_fits_while_it_is_busy(self):
        with Board(virtual_clock=False) as board, board.connect() as host:
            configuration = {"groups": [[{"sensor_id": 1, "config": {"num_points": 20, "frame_rate": 1}}]]}
            self.assertEqual(host.ask("configure", configuration=configuration)["status"], "ok")
            host.command("start")
            host.message()
            for _ in range(600):
                host.command("ping")
            answers = []
            while "end" not in [answer.get("command") for answer in answers]:
                header, _ = host.message()
                if "result_info" not in header:
                    answers.append(header)
                elif len(answers) > 0:
                    host.send(b"\n")
                    host.command("end")
            codes = {answer.get("code", "ok") for answer in answers}
            self.assertLessEqual(codes, {"ok", "bad_json", "trailing_text"})
            self.assertTrue(codes & {"bad_json", "trailing_text"}, "no input was lost")
            # Answers to earlier commands may still arrive.
            host.send(b"\n")
            host.command("identify")
            while host.answer()[0].get("command") != "identify":
                pass

    def test_commands_that_arrive_together_are_executed_together(self):
        with Board(virtual_clock=False) as board, board.connect() as host:
            configuration = {"groups": [[{"sensor_id": 1, "config": {"num_points": 20, "frame_rate": 2}}]]}
            self.assertEqual(host.ask("configure", configuration=configuration)["status"], "ok")
            host.command("start")
            host.message()
            host.message()
            # Send all commands before the board continues.
            with board.stopped():
                host.send(b'{"command":"ping"}\n' * 20 + b'{"command":"stop"}\n')
                wait_until(lambda: host.stream.unsent() == 0, "the commands to arrive")
            messages = [host.message()[0] for _ in range(22)]
            self.assertEqual(messages[-1].get("command"), "stop", "more than one frame was sent before the last answer")

    def test_end_is_answered_at_once_while_the_board_waits_for_a_slow_sensor(self):
        period = 100.0
        configuration = {"groups": [[{"sensor_id": 1, "config": {"num_points": 20, "frame_rate": 1 / period}}]]}
        with Board(virtual_clock=False) as board, board.connect() as host:
            begin = time.monotonic()
            self.assertEqual(host.ask("configure", configuration=configuration)["status"], "ok")
            host.command("start")
            host.message()
            host.message()
            for part in (b'{"command":"stop"}\n{"comm', b'and":"end"}\n'):
                host.send(part)
            self.assertEqual([host.message()[0].get("command") for _ in range(2)], ["stop", "end"])
            self.assertEqual(host.ask("stats")["errors"], {})
            self.assertLess(time.monotonic() - begin, period / 2)
            run_session(host)
            self.assertNotIn("timeout", board.log())

    def wait_for_baudrate(self, board, baudrate):
        """Waits until the board has set the baud rate of the link."""
        wait_until(lambda: round(board.baudrate() / baudrate, 1) == 1, f"{baudrate} baud")

    def test_a_changed_baud_rate_falls_back_without_a_ping(self):
        with Board(virtual_clock=False) as board, board.connect() as host:
            self.assertEqual(host.ask("baudrate", baudrate=MAX_BAUDRATE)["status"], "ok")
            self.wait_for_baudrate(board, MAX_BAUDRATE)
            self.wait_for_baudrate(board, START_BAUDRATE)
            self.assertEqual(host.ask("baudrate", baudrate=921600)["status"], "ok")
            self.assertEqual(host.ask("ping")["status"], "ok")
            self.assertEqual(host.ask("baudrate", baudrate=MAX_BAUDRATE)["status"], "ok")
            self.wait_for_baudrate(board, MAX_BAUDRATE)
            self.wait_for_baudrate(board, 921600)
            run_session(host)
            self.assertEqual(error_code(host.ask("baudrate", baudrate=MAX_BAUDRATE + 1)), "bad_argument")

    def test_an_impossible_baud_rate_is_refused(self):
        with Board(virtual_clock=False) as board, board.connect() as host:
            # Halfway between the two smallest dividers, if the port allows such a high rate.
            halfway = EMULATOR["baud_clock_hz"] * 2 // 33
            for baudrate in (1, halfway) if halfway <= MAX_BAUDRATE else (1,):
                answer = host.ask("baudrate", baudrate=baudrate)
                self.assertEqual(error_code(answer), "bad_argument")
                self.assertIn("baud", answer["message"])
            self.assertEqual(round(board.baudrate() / START_BAUDRATE, 1), 1)
            run_session(host)

    @unittest.skipIf(EMULATOR["waits_for_host"], "this emulator stops the board while its host does not read")
    def test_a_host_that_does_not_read_at_another_baud_rate(self):
        with Board(virtual_clock=False, hurried_time=True, narrow_link=True) as board, board.connect() as host:
            configuration = {"groups": [[{"sensor_id": 1, "config": {"num_points": 2000}}]]}
            # In hurried time, the board may return to the first rate before the ping of a busy machine arrives.
            wait_until(lambda: host.ask("baudrate", baudrate=921600)["status"] == "ok" and
                       host.ask("ping")["status"] == "ok", "the new baud rate")
            self.assertEqual(host.ask("configure", configuration=configuration)["status"], "ok")
            host.command("start")
            board.wait_for_log("restarting the link")
            begin = board.variable("last_count")
            self.wait_for_baudrate(board, START_BAUDRATE)
            # The board must not wait for the host again.
            self.assertLess((board.variable("last_count") - begin) % 2**32, 3_000_000)


def complete_log(board):
    """The log of a board without the line that it is just writing."""
    return board.log().rpartition("\n")[0]


class Faults(unittest.TestCase):
    """A fault of the program is reported, and the board restarts."""

    faults = (
        ("write through null", "memory fault", "address 00000000"),
        ("read of a member through null", "memory fault", "address 000003f0"),
        ("write to code", "memory fault", f"address {int(EMULATOR['code'], 16) + 0x1000:08x}"),
        ("access beyond the memory", "memory fault", f"address {int(EMULATOR['memory_end'], 16):08x}"),
        ("execution of data", "memory fault", "pc 2000"),
        ("division by zero", "usage fault", "cfsr 02000000"),
        ("endless recursion", "memory fault", "stack exhausted"),
        ("endless recursion in a handler", "memory fault", "stack exhausted"),
        ("interrupt without a handler", "unexpected exception 47 (interrupt 31)", "pc "),
        ("supervisor call without a handler", "unexpected exception 11", "pc "),
    )

    def faulty_board(self, number):
        return Board(image=FAULTY_FIRMWARE, seed=number, unexpected_accesses=True)

    def test_faults_are_reported(self):
        for number, (name, exception, detail) in enumerate(self.faults):
            with self.subTest(name), self.faulty_board(number) as board, board.connect(False):
                wait_until(lambda board=board: complete_log(board).count("started") > 2, "the second restart")
                started, report, restarted = complete_log(board).splitlines()[:3]
                self.assertRegex(started, "^info: test: started, power on, none$")
                self.assertRegex(report, "^fault: .*; restarting$")
                self.assertIn(exception, report)
                self.assertIn(detail, report)
                retained = report.removeprefix("fault: ").removesuffix("; restarting")
                self.assertEqual(restarted, f"info: test: started, fault, {retained}")

    def test_a_fault_in_the_report_of_a_fault_in_a_handler(self):
        with self.faulty_board(len(self.faults)) as board, board.connect(False):
            wait_until(lambda: complete_log(board).count("started") > 2, "the second restart")
            _, *restarted = complete_log(board).splitlines()[:3]
            for line in restarted:
                self.assertRegex(line, "^info: test: started, fault, memory fault, .*, address 00000000, pc .*, lr ")

    def test_a_program_that_returns_is_started_again(self):
        with self.faulty_board(len(self.faults) + 1) as board, board.connect(False):
            wait_until(lambda: complete_log(board).count("started") > 2, "the second restart")


class Memory(unittest.TestCase):
    """Sessions that run out of memory or stack do no harm."""

    def setUp(self):
        self.board = self.enterContext(Board())
        self.host = self.enterContext(self.board.connect())
        run_session(self.host)
        self.at_rest = self.host.ask("identify")["memory"]

    def assert_at_rest(self):
        """Expects all memory to be freed, in one block."""
        memory = self.host.ask("identify")["memory"]
        # The command itself may be in small holes. What leaks exceeds this after a few sessions.
        self.assertLessEqual(abs(memory["live"] - self.at_rest["live"]), COMMAND_SLACK)
        self.assertLessEqual(abs(memory["largest_free"] - self.at_rest["largest_free"]), COMMAND_SIZE)

    def assert_at_rest_after(self, answer):
        """Expects the same after a session that ended with this answer."""
        if answer.get("code") == "metadata_failed":
            # A partly built calibration entry is leaked. This is a known leak of limited size.
            memory = self.host.ask("identify")["memory"]
            self.assertLess(memory["live"], self.at_rest["live"] + 1024)
            self.at_rest = memory
        self.assert_at_rest()

    def test_a_command_right_behind_the_end_of_a_session_finds_one_free_block(self):
        for _ in range(5):
            frames_of(self.host, SMALL, 3)
            # The firmware reads 64 bytes at a time.
            self.host.send(b'{"command":"end"}'.ljust(63) + b'\n{"command":"identify"}\n')
            self.assertEqual(self.host.message()[0]["status"], "ok")
            memory = self.host.message()[0]["memory"]
            self.assertEqual(memory["largest_free"], self.at_rest["largest_free"])

    def test_documents_of_growing_size(self):
        failures, before = 0, self.at_rest["failures"]
        for count in range(50, NUMBERS["MAX_VALUES"], campaign(40, 140)):
            items = [{"sensor_id": i + 1, "config": {"num_points": 2650}} for i in range(5)]
            document = {"ignored": [1] * (count - 40), "groups": [items]}
            answer = self.host.ask("configure", configuration=document)
            failures += answer["status"] == "error"
            self.host.ask("end")
            self.assert_at_rest_after(answer)
            run_session(self.host)
        self.assertGreater(failures, 0, "no document was too large for the memory")
        self.assertGreater(self.host.ask("identify")["memory"]["failures"], before)

    def test_more_items_than_fit(self):
        failures = successes = 0
        for groups in range(1, 11, campaign(1, 3)):
            items = [{"sensor_id": i + 1, "config": {"num_points": 700}} for i in range(5)]
            answer = self.host.ask("configure", configuration={"groups": [items] * groups})
            if answer["status"] == "error":
                failures += 1
            else:
                successes += 1
                self.host.command("frame")
                header, payload = self.host.message()
                self.assertTrue(header["status"] == "error" or len(payload) == 4 * 700 * 5 * groups)
            self.host.ask("end")
            self.assert_at_rest()
            run_session(self.host)
        self.assertGreater(failures, 0, "no session was too large for the memory")
        self.assertGreater(successes, 0, "not even one group fits into the memory")

    def test_memory_that_runs_out_at_every_point_of_a_session(self):
        # Each session needs a little more memory, so that each time another allocation is the first to fail.
        outcomes = []
        for points in range(1650, 2500, campaign(20, 60)):
            items = [{"sensor_id": i + 1, "config": {"num_points": points}} for i in range(5)]
            answer = self.host.ask("configure", configuration={"groups": [items, items]})
            while answer["status"] == "ok" and "result_info" not in answer:
                self.host.command("frame")
                answer, _ = self.host.message()
            outcomes.append(answer.get("code", "ok"))
            self.host.ask("end")
            self.assert_at_rest_after(answer)
        self.assertIn("ok", outcomes)
        self.assertGreater(len(set(outcomes)), 2, outcomes)
        run_session(self.host)

    def test_the_board_restarts_when_too_much_memory_is_leaked(self):
        points, lost = 2100, 0
        board = self.host.ask("identify")["board"]
        self.assertEqual((board["name"], board["reset_cause"]), (BOARD_NAME, "power on"))
        for _ in range(400):
            items = [{"sensor_id": i + 1, "config": {"num_points": points}} for i in range(5)]
            answer = self.host.ask("configure", configuration={"groups": [items, items]})
            most_live = self.at_rest["live"] + NUMBERS["TOLERATED_LOSS"]
            live = end_session(self.board, self.host, most_live)["memory"]["live"] - self.at_rest["live"]
            if "memory lost" in self.board.log():
                break
            # Because of earlier leaks, other sessions also run out of memory while the metadata is built.
            points -= 4 if answer["status"] == "error" and live == lost else 0
            points += 20 if answer["status"] == "ok" else 0
            lost = live
        self.assertGreater(lost, NUMBERS["TOLERATED_LOSS"] / 2)
        self.assertIn("warning: board: memory lost", self.board.log())
        run_session(self.host)
        identity = self.host.ask("identify")
        self.assertEqual(identity["memory"]["live"], self.at_rest["live"])
        self.assertEqual(identity["board"]["reset_cause"], "memory lost")
        self.assertNotIn("last_fault", identity["board"])

    def test_many_sessions(self):
        for _ in range(campaign(1000, 50)):
            answer = self.host.ask("configure", configuration=SMALL)
            self.assertEqual(answer["status"], "ok", answer)
            self.host.command("frame")
            self.assertEqual(len(self.host.message()[1]), 80)
            self.host.ask("end")
        memory = self.host.ask("identify")["memory"]
        self.assertEqual(memory, {**self.at_rest, "peak": memory["peak"]})

    def test_the_deepest_document_does_not_use_all_of_the_stack(self):
        run_session(self.host)
        # 16 levels including the command and the configuration, and all features that use stack.
        deepest = "[" * 14 + "1" + "]" * 14
        self.host.send(('{"command":"configure","configuration":{"ignored":' + deepest
                        + ',"update_rate":33.333333333333336,"enable_log":"DEBUG",'
                        '"groups":[[{"sensor_id":1,"config":{"subsweeps":[{},{},{},{}]},"cca_enable":true,'
                        '"cca_threshold":2.2250738585072011e-308,"cca_debug":true}]]}}\n').encode())
        answer, _ = self.host.message()
        self.assertEqual(answer["status"], "ok", answer)
        self.host.command("log", level="DEBUG")
        self.host.answer()
        self.host.command("start")
        for _ in range(30):
            self.host.message()
        self.host.command("end")
        self.host.answer()
        self.host.command("log", level="OFF")
        self.host.answer()
        frames_of(self.host, example("two_sensors.json"), 10)
        stack = self.host.ask("identify")["stack"]
        self.assertLess(stack["peak"], STACK_LIMIT)
        self.assertLess(stack["peak"], stack["size"])


if __name__ == "__main__":
    unittest.main()
