"""The program `vantor_server`: its command line, its links, its termination."""

import ctypes
import fcntl
import json
import os
import re
import resource
import signal
import socket
import stat
import struct
import subprocess
import tempfile
import termios
import time
import unittest

from vantor_process import (EXAMPLES, SERVER, TIME_OUT, Host, SerialStream, Server, campaign, example, vantor,
                            wait_until)


def run(*arguments, stdin=""):
    """Runs the program to its end."""
    return subprocess.run([SERVER, *arguments], input=stdin, capture_output=True, text=True, timeout=TIME_OUT,
                          check=False)


def has_ipv6():
    """Whether this machine has IPv6."""
    try:
        socket.create_server(("::1", 0), family=socket.AF_INET6).close()
    except OSError:
        return False
    return True


def ignore_everything(connection):
    """Makes the system discard every packet that arrives for a connection, as if the machine had vanished."""
    return_nothing = ctypes.create_string_buffer(struct.pack("HBBI", 0x06, 0, 0, 0))
    program = struct.pack("HP", 1, ctypes.addressof(return_nothing))
    connection.setsockopt(socket.SOL_SOCKET, getattr(socket, "SO_ATTACH_FILTER", 26), program)


class CommandLine(unittest.TestCase):
    def test_help_shows_every_option_and_examples(self):
        result = run("--help")
        self.assertEqual(result.returncode, 0)
        for word in ("--tcp", "--pty", "--stdio", "--sensors", "--name", "--id", "--scene", "--seed", "--memory", "--clock",
                     "--unix", "--stall-limit", "--log-level", "--version", "Examples:", "WARNING, INFO, VERBOSE or DEBUG"):
            self.assertIn(word, result.stdout)
        self.assertNotIn("ENUM", result.stdout)
        self.assertRegex(result.stdout, r"Exit codes:\n  0  success\n  1  .*\n  2  wrong command line\n")

    def test_help_that_cannot_be_printed_is_a_failure(self):
        with open("/dev/full", "w", encoding="ascii") as full:
            result = subprocess.run([SERVER, "--help"], stdout=full, stderr=subprocess.PIPE, text=True, timeout=TIME_OUT,
                                    check=False)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr, "vantor_server: cannot write to standard output\n")

    def test_control_characters_are_not_printed(self):
        with tempfile.TemporaryDirectory() as directory:
            scene = os.path.join(directory, "\x1b[31m\u202escene\u009b.json")
            for text in ('{"\\u001b[31mtargets": 1}', '{"\\u009b\\u202e\\u007f": 1}', '{"targets": [{"\u202e": 1}]}'):
                with open(scene, "w", encoding="utf-8") as file:
                    file.write(text)
                result = run("--tcp", "0", "--scene", scene)
                self.assertEqual(result.returncode, 1)
                self.assertIn("cannot use the scene", result.stderr)
                self.assertFalse(set(result.stderr.strip()) & set("\x1b\u009b\u202e\x7f"), repr(result.stderr))
            path = os.path.join(directory, "\x1b[31m")
            with Server("--unix", path) as server:
                self.assertEqual(server.address, "unix:" + path.replace("\x1b", "?"))

    def test_version(self):
        self.assertRegex(run("--version").stdout, r"^vantor_server \d+\.\d+\.\d+\n$")

    def test_wrong_arguments_are_named(self):
        message = "is not a whole number from"
        for arguments, text in ((("--tcp", "99999"), '"99999"'), (("--tcp", "x"), "PORT"),
                                (("--tcp", "0", "--sensors", "0"), f'--sensors: "0" {message} 1 to 64'),
                                (("--tcp", "0", "--sensors", "65"), f'--sensors: "65" {message} 1 to 64'),
                                (("--tcp", "0", "--sensors", "0x2"), f'--sensors: "0x2" {message} 1 to 64'),
                                (("--tcp", "0", "--log-level", "LOUD"), '--log-level: "LOUD" is not one of ERROR'),
                                (("--tcp", "0", "--clock", "wall"),
                                 '--clock: "wall" is not one of real and virtual\n'),
                                (("--tcp",), "--tcp: the value is missing; expected [HOST:]PORT\n"),
                                (("--tcp", "--", "0"), "--tcp: the value is missing; expected [HOST:]PORT\n"),
                                (("--name", "--stdio"),
                                 '--name: the value is missing; if it is "--stdio", write --name=--stdio\n'),
                                (("--sensors=", "--stdio"), "--sensors: the value is empty; expected NUMBER\n"),
                                (("--stdio=false",), "--stdio takes no value\n"),
                                (("--pty=",), "--pty takes no value\n"),
                                (("--help=false",), "--help takes no value\n"),
                                (("--tcp", "0", "--tcp=1"), "--tcp is given twice\n"),
                                (("--stdio", "--seed=1", "--seed", "1"), "--seed is given twice\n"),
                                (("--tcp", "0", "--memory", "4095"), f'"4095" {message} 4096 to 1073741824'),
                                (("--tcp", "0", "--memory", "1073741825"), f'"1073741825" {message} 4096'),
                                (("--tcp", "0", "--memory", "-1"), f'--memory: "-1" {message}'),
                                (("--tcp", "0", "--stall-limit", "86401"), f'"86401" {message} 0 to 86400'),
                                (("--tcp", "0", "--seed", "-1"), f'--seed: "-1" {message} 0 to {2**64 - 1}'),
                                (("--tcp", "0", "--seed", str(2**64)), f'--seed: "{2**64}" {message}'),
                                (("--tcp", "0", "--seed", "0x10"), f'--seed: "0x10" {message}'),
                                (("--tcp", "0", "--seed", "1.5"), f'--seed: "1.5" {message}'),
                                (("--tcp", "0", "--scene", ""), "--scene: the value is empty"),
                                (("--unix", ""), "--unix: the value is empty"),
                                (("--unix=a", "--tcp=0"), "Exactly 1 option"),
                                (("--tcp", "0", "--pty"), "Exactly 1 option"), ((), "Exactly 1 option"),
                                (("--nonsense",), "unexpected argument: --nonsense\n"),
                                (("--tcp", "0", "c", "b", "a"), "unexpected arguments: c b a\n"),
                                (("--",), "Exactly 1 option"),
                                (("--tcp", "0", "--\x1b[2J"), "unexpected argument: --?[2J\n")):
            with self.subTest(arguments):
                result = run(*arguments)
                self.assertEqual((result.returncode, result.stdout), (2, ""))
                self.assertIn(text, result.stderr)
                self.assertRegex(result.stderr, r"^vantor_server: .+\nRun vantor_server --help .*\n$")

    def test_extreme_values_are_accepted(self):
        for option, value in (("--seed", "0"), ("--seed", str(2**64 - 1)), ("--sensors", "64"),
                              ("--memory", str(2**30)), ("--log-level", "debug"), ("--clock", "real")):
            with self.subTest(option=option, value=value):
                result = run("--stdio", option, value, stdin='{"command":"ping"}\n')
                self.assertEqual((result.returncode, json.loads(result.stdout)["status"]), (0, "ok"))

    def test_help_is_not_printed_to_the_host(self):
        for option, text in (("--help", "Examples:"), ("--version", "vantor_server ")):
            result = run("--stdio", option)
            self.assertEqual((result.returncode, result.stdout), (0, ""))
            self.assertIn(text, result.stderr)

    def test_too_little_memory_for_the_sensors_is_an_error(self):
        result = run("--stdio", "--memory", "4096")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("zet_integration_mem_alloc failed", result.stderr)

    def test_a_port_in_use_is_an_error(self):
        with Server("--tcp", "0") as server:
            result = run("--tcp", server.address.rpartition(":")[2])
            self.assertNotEqual(result.returncode, 0)
            self.assertIn("cannot listen", result.stderr)

    def test_log_lines_of_the_level_and_above_go_to_standard_error(self):
        commands = json.dumps({"command": "configure", "configuration": example("single_sensor.json")}) + "\n"
        quiet = run("--stdio", "--log-level", "ERROR", stdin=commands)
        loud = run("--stdio", "--log-level", "INFO", stdin=commands)
        self.assertEqual(quiet.stderr, "")
        self.assertIn("info: vantor_server_system_k330: Powered on sensor id 1", loud.stderr)
        self.assertIn("info: vantor_server_system_k330: Powered off sensor id 1", loud.stderr)


class Links(unittest.TestCase):
    def test_standard_input_and_output(self):
        result = run("--stdio", stdin='{"command":"identify"}\n{"command":"ping"}\n')
        self.assertEqual(result.returncode, 0)
        identify, ping = map(json.loads, result.stdout.splitlines())
        self.assertEqual(identify["sensor"], "k330")
        self.assertEqual(ping["command"], "ping")

    def test_sensor_count_can_be_set(self):
        result = run("--stdio", "--sensors", "7", stdin='{"command":"identify"}\n')
        identify = json.loads(result.stdout)
        self.assertEqual(identify["sensor_count"], 7)
        self.assertEqual(identify["connected_sensors"], [1, 2, 3, 4, 5, 6, 7])

    def test_name_and_id_of_the_board_can_be_set(self):
        def board(*arguments):
            return json.loads(run("--stdio", *arguments, stdin='{"command":"identify"}\n').stdout)["board"]

        for arguments, expected in (((), {"name": "simulated board"}),
                                    (("--id", "7"), {"name": "simulated board", "id": "7"}),
                                    (("--name", 'my "Gerät"', "--id", "a\\b"), {"name": 'my "Gerät"', "id": "a\\b"})):
            self.assertEqual(board(*arguments), {**expected, "sensors": "simulated"})

    def test_memory_has_the_requested_size_and_is_freed_after_running_out(self):
        item = {"sensor_id": 1, "config": {"subsweeps": [{"start_point": 80, "num_points": 1000}]}}
        with Server("--tcp", "0", "--memory", "65536") as server, server.connect() as host:
            before = host.ask("stats")["memory"]
            self.assertEqual((before["size"], before["failures"]), (65536, 0))
            for items in (20, 40, 80, 160):
                refused = host.ask("configure", configuration={"groups": [[item]] * items})
                self.assertEqual(refused["status"], "error", items)
            after = host.ask("stats")["memory"]
            self.assertGreaterEqual(after["failures"], 4)
            self.assertEqual(after["live"], before["live"])
            self.assertEqual(after["largest_free"], before["largest_free"])
            self.assertEqual(host.ask("configure", configuration=example("single_sensor.json"))["status"], "ok")
            self.assertEqual(host.ask("frame")["status"], "ok")

    def test_memory_that_is_lost_while_a_session_is_described_is_recovered(self):
        items = [{"sensor_id": i, "config": {}} for i in range(1, 6)]
        commands = [{"command": "stats"}]
        commands += [{"command": "configure", "configuration": {"groups": [items]}}, {"command": "end"}] * 20
        lines = "".join(json.dumps(command) + "\n" for command in commands + [{"command": "stats"}])
        codes = set()
        for size in range(19000, 27000, 200):
            result = run("--stdio", "--memory", str(size), "--clock", "virtual", stdin=lines)
            answers = [json.loads(line) for line in result.stdout.splitlines()]
            before, after = answers[0]["memory"], answers[-1]["memory"]
            self.assertEqual((after["live"], after["largest_free"]), (before["live"], before["largest_free"]), size)
            self.assertEqual(result.returncode, 0, result.stderr)
            codes.add(answers[1].get("code"))
        self.assertIn("metadata_failed", codes)

    def test_memory_that_runs_out_while_a_session_is_set_up_is_counted_as_failures(self):
        items = [{"sensor_id": i, "config": {}, "cpd_overrides": {"tx_duration": 1}} for i in range(1, 6)]
        configure = {"command": "configure", "configuration": {"groups": [items] * 8}}
        commands = json.dumps(configure) + '\n{"command":"stats"}\n'
        codes = set()
        for size in range(20000, 150000, 800):
            result = run("--stdio", "--memory", str(size), "--clock", "virtual", "--log-level", "INFO", stdin=commands)
            self.assertNotIn("Recovered 0 bytes", result.stderr)
            answer, stats = map(json.loads, result.stdout.splitlines())
            self.assertEqual(answer["status"] == "error", stats["memory"]["failures"] > 0, (size, answer))
            codes.add(answer.get("code"))
        self.assertGreaterEqual(codes, {None, "nox_create_sensor", "bad_config"})

    def test_a_second_host_is_refused_because_the_server_is_busy(self):
        with Server("--tcp", "0") as server, server.connect() as first:
            first.ask("ping")
            with server.connect() as second:
                answer, _ = second.message()
                self.assertEqual((answer["status"], answer["code"]), ("error", "busy"))
            self.assertEqual(first.ask("ping")["status"], "ok")

    def test_many_hosts_at_once_are_all_refused(self):
        with Server("--tcp", "0") as server, server.connect() as first:
            first.ask("ping")
            server.process.send_signal(signal.SIGSTOP)
            try:
                others = [self.enterContext(server.connect()) for _ in range(100)]
            finally:
                server.process.send_signal(signal.SIGCONT)
            for other in others:
                self.assertEqual(other.message()[0]["code"], "busy")
            self.assertEqual(first.ask("ping")["status"], "ok")

    def test_a_second_host_is_refused_while_the_first_does_not_read(self):
        with Server("--tcp", "0", "--clock", "virtual") as server, server.connect() as first:
            first.ask("configure", configuration=example("two_sensors.json"))
            first.command("start")
            server.wait_until_stuck(first)
            unread = first.stream.unread()
            for _ in range(10):
                with server.connect() as second:
                    self.assertEqual(second.message()[0]["code"], "busy")
            self.assertEqual(first.stream.unread(), unread, "bytes that the first host has not read")
            first.command("stop")
            answer, frames = first.answer()
            self.assertEqual(answer["command"], "start")
            answer, frames = first.answer()
            self.assertEqual(answer["command"], "stop")
            self.assertGreater(sum(len(payload) for _, payload in frames), unread // 2)

    def test_all_received_commands_are_executed_between_two_frames(self):
        item = {"sensor_id": 1, "config": {"frame_rate": 5}}
        with Server("--tcp", "0") as server, server.connect() as host:
            host.ask("configure", configuration={"groups": [[item]]})
            host.ask("start")
            host.message()
            # All commands arrive before the server reads its input again.
            server.process.send_signal(signal.SIGSTOP)
            try:
                wait_until(lambda: server.state() == "T", "the server to stop")
                before = host.receive_all()
                host.send(b'{"command":"ping"}\n' * 3000 + b'{"command":"stop"}\n')
                wait_until(lambda: host.stream.unsent() == 0, "the commands to arrive")
            finally:
                server.process.send_signal(signal.SIGCONT)
            frames = 0
            while (answer := host.answer())[0]["command"] != "stop":
                frames += len(answer[1])
            self.assertLessEqual(frames + len(answer[1]), before + 1)

    def test_a_host_that_has_stopped_sending_gets_all_its_answers(self):
        frames = 2000
        with Server("--tcp", "0", "--clock", "virtual") as server:
            with server.connect() as host:
                host.command("configure", configuration=example("two_sensors.json"))
                host.send(b'{"command":"frame"}\n' * frames)
                host.stream.socket.shutdown(socket.SHUT_WR)
                server.wait_until_stuck(host)
                for _ in range(1 + frames):
                    self.assertEqual(host.message()[0]["status"], "ok")
            with server.connect() as host:
                self.assertEqual(host.ask("ping")["status"], "ok")

    def test_the_next_host_is_served_after_the_first_disconnects(self):
        with Server("--tcp", "0") as server:
            for _ in range(5):
                with server.connect() as host:
                    self.assertEqual(host.ask("ping")["status"], "ok")

    def test_baud_rate_is_fixed_over_tcp(self):
        with Server("--tcp", "0") as server, server.connect() as host:
            self.assertEqual(host.ask("identify")["max_baudrate"], 0)
            self.assertEqual(host.ask("baudrate", baudrate=115200)["code"], "baudrate_fixed")

    def test_baud_rate_over_a_serial_device(self):
        with Server("--pty") as server, server.connect() as host:
            highest = host.ask("identify")["max_baudrate"]
            self.assertEqual(host.ask("baudrate", baudrate=highest)["status"], "ok")
            self.assertEqual(host.ask("ping")["status"], "ok")
            self.assertEqual(host.ask("baudrate", baudrate=highest + 1)["code"], "bad_argument")


class ReopenedDevice(unittest.TestCase):
    def test_no_command_is_lost_if_the_next_host_opens_the_device_at_once(self):
        with Server("--pty") as server:
            device = server.address.removeprefix("serial:")
            for _ in range(campaign(10000, 2000)):
                with Host(SerialStream(device)) as host:
                    self.assertEqual(host.ask("ping")["status"], "ok")


class Browsers(unittest.TestCase):
    """A web page can make a browser send any body to a port of the same machine."""

    BODY = (json.dumps({"command": "configure", "configuration": example("single_sensor.json")})
            + '\n{"command":"start"}\n').encode()

    def send_as_browser(self, server, request, piece=None):
        """Sends a request, in pieces or at once, and returns what the server sends until it disconnects."""
        connection = server.connect().stream.socket
        answer = b""
        try:
            for start in range(0, len(request), piece or len(request)):
                connection.sendall(request[start:start + (piece or len(request))])
            while data := connection.recv(65536):
                answer += data
        except ConnectionError:
            pass
        finally:
            connection.close()
        return answer

    def test_nothing_of_a_request_is_executed(self):
        post = b"POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/plain\r\n\r\n" + self.BODY
        tls = b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\n" + self.BODY
        with Server("--tcp", "0", "--log-level", "INFO") as server:
            for request in (post, b"\r\n\n" + post, post.lower(), b"GET /\r\n" + self.BODY, tls):
                for piece in (None, 1):
                    with self.subTest(request=request[:20], piece=piece):
                        self.assertNotIn(b'"ok"', self.send_as_browser(server, request, piece))
            with server.connect() as host:
                stats = host.ask("stats")
                self.assertEqual((stats["frames"], stats["errors"]), (0, {}))
            server.process.send_signal(signal.SIGTERM)
            log = server.process.communicate(timeout=TIME_OUT)[1].decode()
        self.assertNotIn("Powered on", log)
        self.assertEqual(len(re.findall(r"warning: link: Disconnected 127\.0\.0\.1:\d+, which sends HTTP or TLS", log)), 10)

    def test_the_answer_is_the_one_in_the_documentation(self):
        with Server("--tcp", "0") as server:
            answer = self.send_as_browser(server, b"GET / HTTP/1.1\r\n\r\n").decode()
        self.assertEqual(json.loads(answer)["code"], "wrong_protocol")
        with open(os.path.join(EXAMPLES, "..", "docs", "protocol.md"), encoding="utf-8") as document:
            self.assertIn("```json\n" + answer + "```\n", document.read())

    def test_a_host_may_begin_with_empty_lines_and_a_damaged_command(self):
        with Server("--tcp", "0") as server, server.connect() as host:
            host.send(b'\r\n\nmand":"ping"}\n')
            self.assertEqual(host.message()[0]["code"], "bad_json")
            self.assertEqual(host.ask("ping")["status"], "ok")

    def test_only_an_address_beyond_loopback_causes_a_warning(self):
        addresses = [("0", False), ("127.0.0.2:0", False), ("0.0.0.0:0", True)]
        if has_ipv6():
            addresses += [("[::1]:0", False), ("[::]:0", True)]
        for address, warned in addresses:
            with self.subTest(address), Server("--tcp", address) as server:
                server.process.send_signal(signal.SIGTERM)
                log = server.process.communicate(timeout=TIME_OUT)[1].decode()
                self.assertEqual("warning: link: Everyone who can reach tcp:" in log, warned, log)


class LocalSocket(unittest.TestCase):
    def setUp(self):
        self.path = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), "radar")

    def test_only_the_owner_can_open_it_and_it_is_removed_at_the_end(self):
        mask = os.umask(0)
        try:
            with Server("--unix", self.path) as server:
                self.assertEqual(server.address, "unix:" + self.path)
                status = os.stat(self.path)
                self.assertTrue(stat.S_ISSOCK(status.st_mode))
                self.assertEqual(stat.S_IMODE(status.st_mode), 0o600)
        finally:
            os.umask(mask)
        self.assertFalse(os.path.lexists(self.path))

    def test_hosts_are_served_one_after_the_other(self):
        with Server("--unix", self.path) as server:
            with server.connect() as first:
                self.assertEqual(first.ask("ping")["status"], "ok")
                with server.connect() as second:
                    self.assertEqual(second.message()[0]["code"], "busy")
            with server.connect() as host:
                self.assertEqual(host.ask("ping")["status"], "ok")

    def test_the_command_connects_to_it(self):
        with Server("--unix", self.path, "--name", "garage") as server:
            result = vantor("identify", "--connect", server.address)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertIn("garage", result.stdout)
        result = vantor("identify", "--connect", "unix:" + self.path)
        self.assertIn(f"Cannot connect to unix:{self.path}: No such file", result.stderr)
        result = vantor("identify", "--connect", "unix:" + 200 * "x")
        self.assertIn("File name too long", result.stderr)

    def test_an_abandoned_socket_is_replaced(self):
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(self.path)
            listener.listen()
        with Server("--unix", self.path) as server, server.connect() as host:
            self.assertEqual(host.ask("ping")["status"], "ok")

    def test_a_socket_in_use_is_not_replaced(self):
        with Server("--unix", self.path) as server:
            result = run("--unix", self.path)
            self.assertEqual(result.returncode, 1)
            self.assertIn(f"cannot listen on {self.path}: another program uses it; stop that program, or use another "
                          "path\n", result.stderr)
            with server.connect() as host:
                self.assertEqual(host.ask("ping")["status"], "ok")

    def test_other_files_are_not_replaced(self):
        for create in (lambda: open(self.path, "w", encoding="ascii").close(), lambda: os.mkfifo(self.path),
                       lambda: os.symlink("/nowhere", self.path)):
            create()
            before = os.lstat(self.path)
            result = run("--unix", self.path)
            self.assertEqual(result.returncode, 1)
            self.assertIn(f"cannot listen on {self.path}: it is not a socket; remove it, or use another path\n",
                          result.stderr)
            self.assertEqual(os.lstat(self.path), before)
            os.remove(self.path)

    def test_the_socket_of_another_server_is_not_removed(self):
        with Server("--unix", self.path):
            os.remove(self.path)
            with socket.socket(socket.AF_UNIX) as other:
                other.bind(self.path)
        self.assertTrue(os.path.lexists(self.path))

    def test_a_path_that_is_too_long_is_an_error(self):
        result = run("--unix", "x" * 108)
        self.assertEqual(result.returncode, 1)
        self.assertIn("must be shorter than 108 bytes", result.stderr)

    def test_a_program_that_locks_the_directory_does_not_stop_the_server_for_ever(self):
        directory = os.open(os.path.dirname(self.path), os.O_RDONLY)
        self.addCleanup(os.close, directory)
        fcntl.flock(directory, fcntl.LOCK_EX)
        result = run("--unix", self.path)
        self.assertEqual(result.returncode, 1)
        self.assertIn(f"cannot listen on {self.path}: another program has locked its directory\n", result.stderr)
        with subprocess.Popen([SERVER, "--unix", self.path]) as waiting:
            waiting.send_signal(signal.SIGINT)
            waiting.wait(TIME_OUT)


class SlowFrames:
    """A sensor that measures once in 100 seconds. Nobody has to wait for it. Runs over each kind of link."""

    PERIOD = 100.0
    SESSION = {"groups": [[{"sensor_id": 1, "config": {"frame_rate": 1 / PERIOD}}]]}

    def setUp(self):
        self.directory = self.enterContext(tempfile.TemporaryDirectory())
        self.server = self.enterContext(Server(*self.link()))
        self.begin = time.monotonic()

    def tearDown(self):
        self.assertLess(time.monotonic() - self.begin, self.PERIOD / 2)

    def stream(self, host):
        """Starts a stream and receives its first frame, which comes at once."""
        self.assertEqual(host.ask("log", level="DEBUG")["status"], "ok")
        host.command("configure", configuration=self.SESSION)
        self.assertIn("metadata", host.answer()[0])
        host.command("start")
        self.assertEqual(host.answer()[0]["command"], "start")
        self.assertIn("result_info", host.message()[0])
        wait_until(lambda: self.server.state() == "S", "the wait for the second frame")

    def messages_until(self, host, command):
        """The answers up to the one to a command, without log lines, and the texts of the log lines."""
        answers, log = [], []
        while not answers or answers[-1].get("command") != command:
            header, _ = host.message()
            if header["status"] == "log":
                log.append(header["message"])
            else:
                answers.append(header)
        return answers, log

    def end_and_check(self, host, sent_before=b"", answers_before=()):
        """Sends `end` in two pieces. The session ends at once, without errors."""
        host.send(sent_before + b'{"command":')
        host.send(b'"end"}\n')
        answers, log = self.messages_until(host, "end")
        self.assertEqual([answer.get("command") for answer in answers], [*answers_before, "end"])
        self.assertEqual([text for text in log if "timeout" in text], [])
        self.assertIn("Powered off sensor id 1", log)
        self.assertEqual(host.ask("stats")["errors"], {})

    def test_end_is_answered_at_once(self):
        with self.server.connect() as host:
            self.stream(host)
            self.end_and_check(host)
            self.stream(host)
            self.end_and_check(host)
        self.server.process.send_signal(signal.SIGTERM)
        self.assertNotIn("timeout", self.server.process.communicate(timeout=TIME_OUT)[1].decode())

    def test_commands_before_end_are_executed(self):
        with self.server.connect() as host:
            self.stream(host)
            self.end_and_check(host, b'{"command":"stats"}\n{"command":"stop"}\n{"command":"ping"}\n',
                               ["stats", "stop", "ping"])

    def test_the_next_host_is_served_when_the_host_of_a_stream_has_disconnected(self):
        with self.server.connect() as host:
            self.stream(host)
        with self.server.connect() as host:
            stats = host.ask("stats")
            self.assertEqual((stats["frames"], stats["errors"]), (1, {}))
            self.assertEqual(host.ask("stop")["code"], "wrong_state")

    def test_signals_end_the_server_at_once(self):
        with self.server.connect() as host:
            self.stream(host)
            self.server.process.send_signal(signal.SIGTERM)
            wait_until(lambda: self.server.process.poll() is not None, "the end of the server")
            self.assertEqual(self.server.process.returncode, 0)


class SlowFramesOverTcp(SlowFrames, unittest.TestCase):
    def link(self):
        return "--tcp", "0"

    def test_a_second_host_is_refused_at_once(self):
        with self.server.connect() as first:
            self.stream(first)
            for _ in range(3):
                with self.server.connect() as second:
                    self.assertEqual(second.message()[0]["code"], "busy")
            self.end_and_check(first)

    def test_the_next_host_is_served_although_the_last_one_has_requested_a_frame(self):
        with self.server.connect() as host:
            host.ask("configure", configuration=self.SESSION)
            host.ask("frame")
            host.command("frame")
            wait_until(lambda: host.stream.unsent() == 0, "the command to arrive")
            # The system resets a connection that is closed like this.
            host.stream.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        with self.server.connect() as host:
            self.assertEqual(host.ask("stats")["errors"], {})


class SlowFramesOverUnix(SlowFrames, unittest.TestCase):
    def link(self):
        return "--unix", os.path.join(self.directory, "radar")


class SlowFramesOverSerial(SlowFrames, unittest.TestCase):
    def link(self):
        return ("--pty",)


class RequestedFrames(unittest.TestCase):
    SESSION = {"groups": [[{"sensor_id": 1, "config": {"frame_rate": 5}}]]}

    def test_stop_is_answered_after_the_frame_being_measured(self):
        with Server("--tcp", "0") as server, server.connect() as host:
            host.ask("configure", configuration=self.SESSION)
            host.ask("start")
            host.message()
            host.command("stop")
            answer, frames = host.answer()
            self.assertEqual(answer["command"], "stop")
            self.assertLessEqual(len(frames), 1)

    def test_requested_frames_are_measured_although_end_is_already_there(self):
        commands = [{"command": "configure", "configuration": self.SESSION}, *[{"command": "frame"}] * 3, {"command": "end"}]
        result = subprocess.run([SERVER, "--stdio"], input="\n".join(map(json.dumps, commands)).encode() + b"\n",
                                capture_output=True, timeout=TIME_OUT, check=True)
        self.assertEqual(result.stdout.count(b'"result_info"'), 3)
        self.assertTrue(result.stdout.endswith(b'{"status":"ok","command":"end","payload_size":0}\n'))


class StalledHosts(unittest.TestCase):
    REASON = "it accepted no data for 1 s"

    def check_drop(self, server, host):
        """Waits until a host that does not read is dropped. The next host learns about it."""
        host.ask("configure", configuration=example("two_sensors.json"))
        host.command("start")
        self.assertEqual(server.process.stderr.readline().decode(),
                         f"warning: link: Disconnected the host: {self.REASON}\n")
        # A serial device stays open, so its next host is the same one.
        with server.connect() if server.device is None else host as next_host:
            self.assertEqual(next_host.ask("identify")["last_drop"], self.REASON)
            stats = next_host.ask("stats")
            self.assertEqual((stats["hosts_dropped"], stats["errors"]), (1, {}))
            self.assertEqual(next_host.ask("stop")["code"], "wrong_state")

    def test_a_host_that_accepts_nothing_is_dropped(self):
        for link in (("--tcp", "0"), ("--pty",)):
            with self.subTest(link), Server(*link, "--clock", "virtual", "--stall-limit", "1") as server, \
                    server.connect() as host:
                self.assertNotIn("last_drop", host.ask("identify"))
                self.assertEqual(host.ask("stats")["hosts_dropped"], 0)
                self.check_drop(server, host)

    def check_small_frames(self, server, rate, vanishes=False):
        """The system could store many such frames. A host that takes none is dropped before; returns their number."""
        item = {"sensor_id": 1, "config": {"num_points": 50}}
        with server.connect() as host:
            host.ask("configure", configuration={"update_rate": rate, "groups": [[item]]})
            host.ask("start")
            if vanishes:
                ignore_everything(host.stream.socket)
            self.assertEqual(server.process.stderr.readline().decode(),
                             f"warning: link: Disconnected the host: {self.REASON}\n")
        with server.connect() as next_host:
            stats = next_host.ask("stats")
        self.assertEqual(stats["hosts_dropped"], 1)
        return stats["frames"]

    def test_a_host_that_accepts_no_small_frames_is_dropped(self):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        with Server("--unix", os.path.join(directory, "radar"), "--stall-limit", "1") as server:
            # A busy machine needs more than one second; the system could store 160 frames.
            self.assertLess(self.check_small_frames(server, 5), 50)

    def test_a_host_whose_system_accepts_no_more_small_frames_is_dropped(self):
        with Server("--tcp", "0", "--stall-limit", "1") as server:
            self.check_small_frames(server, 50)

    def test_a_host_whose_machine_has_vanished_is_dropped(self):
        with Server("--tcp", "0", "--stall-limit", "1") as server:
            self.check_small_frames(server, 5, vanishes=True)

    def test_a_host_that_reads_everything_may_wait_for_frames(self):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        for link in (("--tcp", "0"), ("--unix", os.path.join(directory, "radar")), ("--pty",)):
            with self.subTest(link), Server(*link, "--stall-limit", "1") as server, server.connect() as host:
                item = {"sensor_id": 1, "config": {"num_points": 50}}
                host.ask("configure", configuration={"update_rate": 0.8, "groups": [[item]]})
                host.ask("start")
                for _ in range(3):
                    self.assertIn("result_info", host.message()[0])
                self.assertEqual(host.ask("stats")["hosts_dropped"], 0)

    def read_steadily(self, host, seconds):
        """Reads 50 kB/s for some time. Begins again if the machine has interrupted that."""
        begin = last = time.monotonic()
        while last - begin < seconds:
            host.stream.socket.recv(5000)
            time.sleep(0.1)
            now = time.monotonic()
            begin = now if now - last > 1 else begin
            last = now

    def test_a_host_that_reads_slowly_is_served(self):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        for link in (("--tcp", "0"), ("--unix", os.path.join(directory, "radar"))):
            with self.subTest(link), Server(*link, "--clock", "virtual") as server:
                with server.connect() as host:
                    host.ask("configure", configuration=example("two_sensors.json"))
                    host.command("start")
                    server.wait_until_stuck(host)
                    self.read_steadily(host, 12)
                with server.connect() as next_host:
                    self.assertEqual(next_host.ask("stats")["hosts_dropped"], 0)

    def test_a_host_may_accept_nothing_for_any_time_if_there_is_no_limit(self):
        with Server("--tcp", "0", "--clock", "virtual", "--stall-limit", "0") as server, server.connect() as host:
            host.ask("configure", configuration=example("two_sensors.json"))
            host.command("start")
            server.wait_until_stuck(host)
            host.command("end")
            self.assertEqual(host.answer()[0]["command"], "start")
            self.assertEqual(host.answer()[0]["command"], "end")
            self.assertEqual(host.ask("stats")["hosts_dropped"], 0)


class Descriptors(unittest.TestCase):
    def test_closed_standard_streams_are_not_used_for_the_host(self):
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "socket")
            close = ["/bin/sh", "-c", 'exec "$0" "$@" <&- >&- 2>&-']
            # pylint: disable-next=consider-using-with
            process = subprocess.Popen([*close, SERVER, "--unix", path, "--log-level", "DEBUG"])
            try:
                wait_until(lambda: os.path.exists(path), "the socket of the server")
                for descriptor in range(3):
                    self.assertEqual(os.readlink(f"/proc/{process.pid}/fd/{descriptor}"), "/dev/null")
            finally:
                process.send_signal(signal.SIGTERM)
                self.assertEqual(process.wait(TIME_OUT), 0)

    def test_a_server_without_free_descriptors_reports_it_and_accepts_later(self):
        with Server("--tcp", "0") as server:
            pid = server.process.pid
            used = len(os.listdir(f"/proc/{pid}/fd"))
            limit = resource.prlimit(pid, resource.RLIMIT_NOFILE)
            resource.prlimit(pid, resource.RLIMIT_NOFILE, (used, limit[1]))
            with server.connect() as host:
                self.assertEqual(server.process.stderr.readline(),
                                 b"warning: link: Cannot accept a host: Too many open files; trying again\n")
                resource.prlimit(pid, resource.RLIMIT_NOFILE, limit)
                self.assertEqual(host.ask("ping")["status"], "ok")

    def test_other_hosts_are_refused_after_a_lack_of_descriptors_although_the_first_one_is_idle(self):
        with Server("--tcp", "0") as server, server.connect() as host:
            host.ask("ping")
            pid = server.process.pid
            used = len(os.listdir(f"/proc/{pid}/fd"))
            limit = resource.prlimit(pid, resource.RLIMIT_NOFILE)
            resource.prlimit(pid, resource.RLIMIT_NOFILE, (used, limit[1]))
            with server.connect() as second, server.connect() as third:
                self.assertEqual(server.process.stderr.readline(),
                                 b"warning: link: Cannot accept a host: Too many open files; trying again\n")
                resource.prlimit(pid, resource.RLIMIT_NOFILE, limit)
                for other in (second, third):
                    self.assertEqual(other.message()[0]["code"], "busy")


class Termination(unittest.TestCase):
    def test_signals_end_the_server_cleanly(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with Server("--tcp", "0", "--log-level", "INFO") as server, server.connect() as host:
                host.ask("configure", configuration=example("single_sensor.json"))
                host.ask("start")
                server.process.send_signal(number)
                wait_until(lambda: server.process.poll() is not None, "the end of the server")
                self.assertEqual(server.process.returncode, 0)
                self.assertIn(b"Powered off sensor id 1", server.process.stderr.read())

    def test_hanging_up_removes_the_socket(self):
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "socket")
            with Server("--unix", path) as server:
                server.process.send_signal(signal.SIGHUP)
                server.process.wait(TIME_OUT)
            self.assertFalse(os.path.exists(path))

    def test_nohup_keeps_the_server_alive(self):
        before = signal.signal(signal.SIGHUP, signal.SIG_IGN)
        try:
            server = Server("--tcp", "0")
        finally:
            signal.signal(signal.SIGHUP, before)
        with server, server.connect() as host:
            server.process.send_signal(signal.SIGHUP)
            self.assertEqual(host.ask("ping")["status"], "ok")

    def test_a_host_that_does_not_read_does_not_keep_the_server_alive(self):
        with Server("--tcp", "0", "--clock", "virtual") as server, server.connect() as host:
            host.ask("configure", configuration=example("two_sensors.json"))
            host.ask("start")
            server.process.send_signal(signal.SIGTERM)
            wait_until(lambda: server.process.poll() is not None, "the end of the server")
            self.assertEqual(server.process.returncode, 0)

    def test_a_log_that_nobody_reads_does_not_keep_the_server_alive(self):
        with Server("--tcp", "0", "--log-level", "DEBUG") as server, server.connect() as host:
            # Two pages, of which the second one may stay in part empty.
            fcntl.fcntl(server.process.stderr, fcntl.F_SETPIPE_SZ, 8192)
            for _ in range(500):
                host.command("configure", configuration=example("single_sensor.json"))
                host.command("end")
            sizes = [0]

            def is_full():
                sizes.append(struct.unpack("i", fcntl.ioctl(server.process.stderr, termios.FIONREAD, bytes(4)))[0])
                return sizes[-1] == sizes[-2] > 4096 and server.state() == "S"

            wait_until(is_full, "a full log")
            server.process.send_signal(signal.SIGTERM)
            wait_until(lambda: server.process.poll() is not None, "the end of the server")
            self.assertEqual(server.process.returncode, 0)


if __name__ == "__main__":
    unittest.main()
