"""Boards outside of the tree: a copy of the template, brought up by the steps of the guide, and unusual boards.

They run in an emulator, with simulated sensors or with a stand-in for the sensor library. The stand-in returns frames
with known samples and counts contract violations. The program outside_boards.py has built them.
"""

import itertools
import json
import os
import pathlib
import re
import struct
import subprocess
import tempfile
import termios
import unittest

from board_folders import build_targets
from emulated_board import FIRMWARE, Board, symbol, symbols
from guide_steps import ADDRESS, commands_of_step, image_path, most_stack, ram_table, section, steps
from outside_boards import BUILDS, FIRMWARE_BUILD, STAND_IN
from vantor_process import EXAMPLES, Relay, example, queued, self_test, vantor, wait_until

SMALL = {"groups": [[{"sensor_id": 1, "config": {"num_points": 20}}]]}
BOTH = {"groups": [[{"sensor_id": 1, "config": {"num_points": 30}}, {"sensor_id": 2, "config": {"num_points": 40}}],
                   [{"sensor_id": 2, "config": {"num_points": 10, "sweeps_per_frame": 4}}]]}
CUT = {"groups": [[{"sensor_id": 2, "config": {}}]]}

STACK_PAINT = 0xA5A5A5A5

WORK = pathlib.Path(os.environ["VANTOR_OUTSIDE_BOARDS"])  # the folder of the boards and of their builds


def image_of(build, name):
    """Returns the path of an image."""
    return str(WORK / build / "bin" / f"{name}.elf")


def symbol_value(image, name):
    """Returns the value of a symbol of the linker script."""
    return symbol(image, name)[0]


def library_in_ram(image):
    """Returns the size of the stand-in's variables, from the linker's map, where a long name is on a separate line."""
    text = pathlib.Path(image).with_suffix(".map").read_text(encoding="utf-8")
    sizes = re.findall(r"^ \.(?:data|bss)\S*\s+0x0*2\w{7} +0x(\w+) \S*/libstand_in_sensors\.a\(", text, re.MULTILINE)
    return sum(int(size, 16) for size in sizes)


def parts_of_ram(image):
    """Returns the size of each part of the RAM, by its name in the guide's table."""
    def between(begin, end):
        return symbol_value(image, end) - symbol_value(image, begin)

    guards = (between("interrupt_guard_begin", "interrupt_stack_bottom") +
              between("program_guard_begin", "program_stack_bottom"))
    line = symbol(image, "line")[1]
    ring, send_ring = (symbol(image, name)[1] & -256 for name in ("ring", "send_ring"))  # without their counts
    library = library_in_ram(image)
    return {"heap": between("heap_begin", "heap_end"),
            "program's stack": between("program_stack_bottom", "program_stack_top"),
            "interrupts' stack": between("interrupt_stack_bottom", "interrupt_stack_top"),
            "two guards": guards,
            "command line": line,
            "receive ring": ring,
            "send ring": send_ring,
            "sensor library's variables": library,
            "server, allocator, log, retained fault":
                between("program_stack_top", "heap_begin") - line - ring - send_ring - library,
            "left over": symbol_value(image, "ram_size") - between("ram_begin", "heap_end")}


def stack_used(board, name):
    """Returns the largest use of a stack in bytes: the size from the first word that is not painted."""
    bottom, top = (symbol_value(board.image, f"{name}_stack_{end}") for end in ("bottom", "top"))
    words = board.words(bottom, (top - bottom) // 4)
    return 4 * sum(1 for _ in itertools.dropwhile(lambda word: word == STACK_PAINT, words))


def samples_of(sensor_id, frame_number, count):
    """Returns the payload of an item, according to the formula of the stand-in."""
    def wrapped(value):
        return (value + 2**15) % 2**16 - 2**15
    return b"".join(struct.pack("<hh", wrapped(frame_number * 7 + point * 3 + sensor_id), wrapped(point))
                    for point in range(count))


def expected_payloads(configuration, metadata):
    """Yields the payloads of a session with the stand-in."""
    items = [item["sensor_id"] for group in configuration["groups"] for item in group]
    counts = [item["frame_data_length"] for group in metadata["metadata"] for item in group]
    numbers = {sensor_id: itertools.count() for sensor_id in items}
    while True:
        yield b"".join(samples_of(sensor_id, next(numbers[sensor_id]), count)
                       for sensor_id, count in zip(items, counts))


class BoardTest(unittest.TestCase):
    """Starts boards."""

    def start(self, build, name, **options):
        """Starts a board; returns it and its first host."""
        board = self.enterContext(Board(image=image_of(build, name), virtual_clock=False, **options))
        return board, self.enterContext(board.connect())

    def session(self, host, configuration, count):
        """Runs a session from configuration to end; returns its metadata and its frames."""
        metadata = host.ask("configure", configuration=configuration)
        self.assertEqual(metadata["status"], "ok", metadata)
        host.command("start")
        self.assertEqual(host.message()[0]["command"], "start")
        frames = [host.message() for _ in range(count)]
        host.command("stop")
        self.assertEqual(host.answer()[0]["command"], "stop")
        self.assertEqual(host.ask("end")["status"], "ok")
        return metadata, frames

    def check_session(self, board, host, configuration, count):
        """Runs a session with the stand-in. Every byte must match its formula, without a contract violation."""
        metadata, frames = self.session(host, configuration, count)
        for number, ((header, payload), expected) in enumerate(zip(frames, expected_payloads(configuration, metadata))):
            self.assertEqual(header["status"], "ok", header)
            self.assertGreater(len(payload), 0)
            self.assertEqual(payload, expected, number)
        self.assertEqual(board.variable("stand_in_violations"), 0, board.log())

    def record(self, board, count):
        """Records the example with two sensors with the host command."""
        with tempfile.TemporaryDirectory() as directory:
            output = os.path.join(directory, "recording")
            recorded = vantor("record", os.path.join(EXAMPLES, "two_sensors.json"), "--connect", board.address,
                              "--frames", count, "--output", output)
            self.assertEqual(recorded.returncode, 0, recorded.stderr)
            self.assertEqual(json.loads(vantor("info", output, "--json").stdout)["frames"], count)


class SlowStart(Relay):
    """Starts a board only after the first bytes of the host are lost. Keeps all bytes that the host sends."""

    def __init__(self, board):
        super().__init__(board.connect(board_listens=False))
        self.board = board
        self.from_host = b""

    def to_server(self, data):
        super().to_server(data)
        if not self.from_host:
            wait_until(lambda: queued(self.server, termios.TIOCOUTQ) == 0, "the emulator to read the first bytes")
            self.board.resume()
        self.from_host += data


class BringUp(BoardTest):
    """The steps of the guide, each with its check."""

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        os.symlink(EXAMPLES, os.path.join(self.folder, "examples"))

    def run_host(self, command, board, *more):
        """Runs a command of the guide with the address of a board; returns what it prints."""
        finished = self.finish_host(command, board, *more)
        self.assertEqual(finished.returncode, 0, finished.stdout + finished.stderr)
        return finished.stdout

    def finish_host(self, command, board, *more):
        """Does the same for a command that may fail; returns the finished process."""
        self.assertEqual(command[0], "vantor")
        words = [board.address if word == ADDRESS else word for word in (*command[1:], *more)]
        return vantor(*words, cwd=self.folder)

    def frames_of(self, shown):
        """Returns the number of frames in a recording and its folder, from the output of the command."""
        recording = os.path.join(self.folder, re.search(r"^recording: (.*)$", shown, re.MULTILINE)[1])
        return json.loads(vantor("info", recording, "--json").stdout)["frames"], recording

    def test_build(self):
        for build in BUILDS:
            image = image_of(build, "vantor_as_copied")
            place = image_path().replace("build/firmware", str(WORK / build)).replace("my_board", "as_copied")
            self.assertEqual(image, place)
            self.assertTrue(os.path.exists(image))

    def test_build_prints_how_much_is_used(self):
        for build in BUILDS:
            image = image_of(build, "vantor_as_copied")
            printed = re.search(r"bin/vantor_as_copied\.elf\n *Memory region .*\n"
                                r" *FLASH: +(\d+) B +512 KB .*\n *RAM: +(\d+) B +128 KB ", (WORK / f"{build}.txt").read_text())
            self.assertIsNotNone(printed, build)
            data = symbol_value(image, "data_end") - symbol_value(image, "data_begin")
            flash = symbol_value(image, "data_image") + data - symbol_value(image, "flash_begin")
            ram = symbol_value(image, "heap_end") - symbol_value(image, "ram_begin")
            self.assertEqual([int(size) for size in printed.groups()], [flash, ram])

    def test_log(self):
        board, _ = self.start_without_link("vantor_with_log")
        wait_until(lambda: board.log().count("reset cause") > 2, "the second restart")
        first, fault, second = board.log().splitlines()[:3]
        shown = re.search(r"^ +(info: .*) \.\.\.$", section("Bring it up"), re.MULTILINE)[1]
        self.assertTrue(first.startswith(shown.replace("my_board", "with_log")), first)
        self.assertRegex(first, r"^info: board: with_log, version \S+, sensors: simulated, reset cause: power on; "
                                r"open: peripherals 40000000-5fffffff id 1fff7a00-1fff7a1f memory 20000000-2001ffff "
                                r"code 08000000-080fffff$")
        # The link still uses the registers of the template.
        self.assertRegex(fault, r"^fault: memory fault, cfsr 00000082, hfsr 00000000, address a000300c, .*; restart")
        self.assertIn("reset cause: fault;", second)

    def start_without_link(self, name):
        """Starts a board that never listens."""
        board = self.enterContext(Board(image=image_of("simulator", name), unexpected_accesses=True))
        return board, self.enterContext(board.connect(board_listens=False))

    def test_link(self):
        board, host = self.start("simulator", "vantor_with_link")
        identity = host.ask("identify")
        self.assertEqual(identity["board"], {"name": "with_link", "reset_cause": "power on", "sensors": "simulated"})
        self.assertEqual(identity["max_baudrate"], 2000000)
        self.session(host, BOTH, 5)

    def test_link_over_a_serial_device(self):
        # Without settings, like a real board. The device stays open: the emulator checks for a host once a second only.
        board, host = self.start("simulator", "vantor_with_link", serial_link=True, settings_address=None)
        self.assertEqual(host.ask("identify")["status"], "ok")
        scan, identify, record = commands_of_step("Link")
        # By default, a scan does not try pseudo-terminals.
        device = board.address.removeprefix("serial:").removesuffix("@115200")
        self.assertRegex(self.run_host(scan, board, device),
                         f"^{board.address}  vantor_server .*, connected: 1, 2, board: with_link\n$")
        shown = self.run_host(identify, board)
        self.assertRegex(shown, r"(?m)^board +with_link$")
        self.assertRegex(shown, r"(?m)^sensors +k330, 2 positions, connected: 1, 2; simulated$")
        frames, _ = self.frames_of(self.run_host(record, board, "--connect", board.address))
        self.assertEqual(frames, 20)

    def test_first_host_connects_before_the_board_has_started(self):
        board = self.enterContext(Board(image=image_of("simulator", "vantor_with_link"), virtual_clock=False,
                                        narrow_link=True, starts_stopped=True))
        with SlowStart(board) as relay:
            shown = vantor("identify", "--connect", relay.address)
        self.assertEqual(shown.returncode, 0, shown.stderr)
        self.assertRegex(shown.stdout, r"(?m)^board +with_link$")
        self.assertGreater(relay.from_host.count(b'"end"'), 1)

    def test_clock(self):
        # A clock with a wrong prescaler is wrong by more than a factor of ten.
        _, host = self.start("simulator", "vantor_with_link")
        slow = {**SMALL, "update_rate": 10}
        typed = re.search(r"`(\{.*?\})`", steps()["Clock"])[1].encode() + b"\n"
        host.send(typed)
        before = host.message()[0]["uptime_s"]
        begin = os.times().elapsed
        self.session(host, slow, 11)
        seconds = os.times().elapsed - begin
        host.send(typed)
        counted = host.message()[0]["uptime_s"] - before
        self.assertGreater(seconds, 0.999)
        self.assertLess(counted, 10 * seconds)
        self.assertGreater(counted, seconds / 10)

    def test_sensors(self):
        board, host = self.start("library", "vantor_my_board")
        self.assertEqual(host.ask("identify")["connected_sensors"], [1, 2])
        host.stream.close()
        identify, calibrate = commands_of_step("Sensors")
        self.assertIn("connected: 1, 2; library\n", self.run_host(identify, board, "--connect", board.address))
        self.run_host(calibrate, board, "--connect", board.address)
        self.assertEqual(board.variable("stand_in_violations"), 0, board.log())

    def test_lines_are_watched(self):
        for function in ("board_sensor_set_supply", "board_sensor_set_enable"):
            self.assertIn(f" T __wrap_{function}\n", symbols(image_of("library", "vantor_my_board")))
            self.assertNotIn(f"__wrap_{function}\n", symbols(image_of("library", "vantor_as_copied")))

    def test_lines_of_the_sensors(self):
        board, host = self.start("library", "vantor_my_board")
        self.assertEqual(host.ask("identify")["status"], "ok")
        written = re.findall(r"^GPIOB: unimplemented device write \(size 4, offset 0x0*18, value 0x(\w+)\)$",
                             board.errors(), re.MULTILINE)
        for sensor in (1, 2):
            # Chip select, enable line and supply; upper case if they go high.
            pins = ((sensor - 1, "c"), (sensor + 3, "e"), (sensor + 7, "s"))
            high = {1 << pin: letter.upper() for pin, letter in pins}
            low = {1 << pin + 16: letter for pin, letter in pins}
            shown = "".join((high | low).get(int(word, 16), "") for word in written)
            # All low; then supply on, enable, transfers, disable, supply off.
            self.assertRegex(shown, "^cesSCE(cC)+ces$")

    def test_interrupt(self):
        board, host = self.start("library", "vantor_cut_line")
        before = host.ask("stats")["uptime_s"]
        host.stream.close()
        _, calibrate = commands_of_step("Sensors")
        calibrated = self.finish_host(calibrate, board, "--sensor", 2, "--connect", board.address)
        self.assertEqual(calibrated.returncode, 5, calibrated.stdout)
        self.assertIn("nox_sensor_calibration", calibrated.stderr)
        with board.connect() as host:
            waited = host.ask("stats")["uptime_s"] - before
        self.assertGreater(waited, 0.999)
        # On an idle machine this takes 1.02 s.
        self.assertLess(waited, 10.3)

    def test_session(self):
        board, host = self.start("library", "vantor_my_board")
        self.check_session(board, host, BOTH, 20)
        host.stream.close()
        record, plot = commands_of_step("Session")
        frames, recording = self.frames_of(self.run_host(record, board, "--connect", board.address))
        self.assertEqual(frames, 100)
        self.run_host(plot, board, recording)
        pictures = list(pathlib.Path(recording).glob("*.png"))
        self.assertEqual([picture.read_bytes()[:8] for picture in pictures], [b"\x89PNG\r\n\x1a\n"])
        self.assertEqual(board.variable("stand_in_violations"), 0, board.log())

    def test_selftest(self):
        board, host = self.start("library", "vantor_my_board")
        host.stream.close()
        self.assertEqual(commands_of_step("Selftest"), [["vantor", "selftest", "--connect", ADDRESS]])
        tested = self_test(board.address)
        self.assertEqual(tested.returncode, 0, tested.stdout + tested.stderr)
        self.assertEqual(board.variable("stand_in_violations"), 0, board.log())


class StandIn(BoardTest):
    """The emulated board of the tree with the stand-in for the sensor library."""

    image = str(FIRMWARE_BUILD / "bin/library_netduinoplus2.elf")

    def test_streams_each_byte(self):
        with Board(image=self.image) as board, board.connect() as host:
            self.check_session(board, host, example("two_sensors.json"), 100)
            self.assertEqual(board.variable("lines"), 0, "a supply is still on")

    def test_detects_a_sensor_without_supply(self):
        with Board(image=str(FIRMWARE_BUILD / "bin/unsupplied_netduinoplus2.elf")) as board, board.connect() as host:
            self.assertEqual(host.ask("identify")["connected_sensors"], [])
            self.assertIn("contract violation: zet_sensor_connected: sensor 1 is not supplied and enabled", board.log())
            self.assertGreater(board.variable("stand_in_violations"), 0)

    def test_contains_nothing_of_the_simulator(self):
        def defined(path):
            listed = subprocess.run(["arm-none-eabi-nm", "--defined-only", "--just-symbols", path], check=True,
                                    capture_output=True, text=True).stdout
            return {line for line in listed.splitlines() if line and not line.endswith(":")}

        simulator = set().union(*map(defined, (FIRMWARE_BUILD / "simulator").rglob("*.a")))
        others = set().union(*map(defined, [STAND_IN, *(FIRMWARE_BUILD / "application").rglob("*.a")]))
        own = {name for name in simulator - others if "zet_simulator" in name or "9simulator" in name}
        self.assertGreater(len(own), 50)
        self.assertGreater(len(own & defined(FIRMWARE)), 50)
        self.assertEqual(own & defined(self.image), set())


class CutLine(BoardTest):
    """The interrupt line of sensor 2 is cut."""

    def test_calibration_ends_with_the_time_out(self):
        board, host = self.start("library", "vantor_cut_line")
        before = host.ask("stats")["uptime_s"]
        answer = host.ask("configure", configuration=CUT)
        waited = host.ask("stats")["uptime_s"] - before
        self.assertEqual(answer.get("code"), "nox_sensor_calibration", answer)
        self.assertIn("error: vantor_server_system_k330: Sensor 2 interrupt timeout", board.log())
        self.assertGreater(waited, 0.999)
        # On an idle machine this takes 1.02 s.
        self.assertLess(waited, 10.3)
        self.check_session(board, host, SMALL, 5)

    def test_next_item_after_the_time_out_does_not_violate_a_contract(self):
        # The server then also prepares sensor 2, which it has switched off.
        board, host = self.start("library", "vantor_cut_line")
        items = [{"sensor_id": sensor_id, "config": {}} for sensor_id in (2, 1)]
        self.assertEqual(host.ask("configure", configuration={"groups": [items]})["status"], "error")
        self.assertIn("error: stand_in: zet_sensor_prepare: sensor 2 is switched off", board.log())
        self.check_session(board, host, SMALL, 5)

    def test_frame_ends_with_the_time_out(self):
        _, other_host = self.start("library", "vantor_my_board")
        calibration = other_host.ask("configure", configuration=CUT)["calibration_info"]
        board, host = self.start("library", "vantor_cut_line")
        metadata = host.ask("configure", configuration={**CUT, "calibration_info": calibration})
        self.assertEqual(metadata["status"], "ok", metadata)
        before = host.ask("stats")["uptime_s"]
        self.assertEqual(host.ask("frame").get("code"), "nox_data")
        waited = host.ask("stats")["uptime_s"] - before
        self.assertGreater(waited, 0.999)
        self.assertLess(waited, 10.3)
        self.assertEqual(host.ask("end")["status"], "ok")
        self.check_session(board, host, SMALL, 5)

    def test_sleeps_while_it_waits(self):
        # If the board sleeps, the emulator uses less than 0.04 s of processor time for all of this.
        board, host = self.start("library", "vantor_cut_line")
        before = board.processor_time()
        self.assertEqual(host.ask("configure", configuration=CUT)["status"], "error")
        self.assertLess(board.processor_time() - before, 0.4)

    def test_frees_all_memory(self):
        board, host = self.start("library", "vantor_cut_line")
        self.check_session(board, host, SMALL, 3)
        at_rest = host.ask("identify")["memory"]
        self.assertEqual(host.ask("configure", configuration=CUT)["status"], "error")
        self.check_session(board, host, SMALL, 3)
        after = host.ask("identify")["memory"]
        self.assertEqual((after["live"], after["largest_free"]), (at_rest["live"], at_rest["largest_free"]))

    def test_sends_log_lines_to_the_host(self):
        _, host = self.start("library", "vantor_cut_line")
        host.ask("log", level="INFO")
        host.command("configure", configuration=CUT)
        lines = []
        while (message := host.message()[0])["status"] == "log":
            lines.append(message["message"])
        self.assertIn("Powered on sensor id 2", lines)
        self.assertIn("Sensor 2 interrupt timeout", lines)
        self.assertEqual(message["status"], "error")


class Layouts(BoardTest):
    """Boards whose memory is not a single power of two at the usual address."""

    # The memory in the start line, the start of the code, start and end of the RAM, and the address of the settings.
    # The RAM of the first board is also accessible below its start, except for the guard.
    layouts = {
        "two_banks": ("memory 20000000-2000bfff heap 20020000-2002ffff code 08000000-080fffff",
                      0x08000000, 0x20000400, 0x2000C000, "0x080fffe0"),
        "ram_of_96k": ("memory 20000000-20017fff code 08000000-080fffff",
                       0x08000000, 0x20000000, 0x20018000, "0x080fffe0"),
        "behind_boot_loader": ("memory 20000000-2001ffff code 08020000-0803ffff",
                               0x08020200, 0x20000000, 0x20020000, "0x0803ffe0"),
    }

    # Disables interrupts and starts the image at 0x08020200 from its vector table, but with its own stack.
    boot_loader = struct.pack("<II4HI", 0x20001000, 0x08000009,
                              0x4801,  # ldr r0, the word after the code
                              0x6841,  # ldr r1, [r0, #4]
                              0xB672,  # cpsid i
                              0x4708,  # bx r1
                              0x08020200)

    def options(self, name):
        """Returns the options that start the board."""
        return {"settings_address": self.layouts[name][4],
                "boot_image": self.boot_loader if name == "behind_boot_loader" else None}

    def test_measure(self):
        for name, (opened, *_) in self.layouts.items():
            with self.subTest(name):
                board, host = self.start("simulator", f"vantor_{name}", sensors=2, **self.options(name))
                self.session(host, BOTH, 3)
                self.assertRegex(board.log(), rf"open: peripherals 40000000-5fffffff id \S+ {opened}\n")
                self.assertEqual(host.ask("identify")["memory"]["size"], 64 * 1024)

    def faults(self, code, ram_begin, ram_end):
        """Returns the faults of the faulty image by number, and the contents of their reports."""
        interrupt_guard, program_guard = ram_begin, ram_begin + 256 + 512
        return ((0, "memory fault", "address 00000000"),
                (1, "memory fault", "address 000003f0"),
                (2, "memory fault", f"address {code + 0x1000:08x}"),
                (3, "memory fault", f"address {ram_end:08x}"),
                (4, "memory fault", "pc 2000"),
                (6, "memory fault", f"address {program_guard >> 8:06x}.., stack exhausted"),
                (7, "memory fault", f"address {interrupt_guard >> 8:06x}.., stack exhausted"))

    def test_faults_are_reported(self):
        for name, (_, *addresses, _) in self.layouts.items():
            for number, exception, detail in self.faults(*addresses):
                with self.subTest(name, fault=number):
                    self.check_report(name, number, exception, detail)

    def check_report(self, name, number, exception, detail):
        """Causes a fault, which must be reported and retained."""
        with Board(image=image_of("simulator", f"faulty_{name}"), seed=number, unexpected_accesses=True,
                   **self.options(name)) as board, board.connect(False):
            wait_until(lambda: board.log().count("\n") > 2, "the restart")
            started, report, restarted = board.log().splitlines()[:3]
            self.assertEqual(started, "info: test: started, power on, none")
            self.assertRegex(report, f"^fault: {exception}, .*{detail}")
            self.assertEqual(restarted, "info: test: started, fault, "
                             + report.removeprefix("fault: ").removesuffix("; restarting"))


class Unusual(BoardTest):
    """Boards with their own code or little memory."""

    def test_own_exception_handlers_in_code_of_the_manufacturer(self):
        board, host = self.start("library", "vantor_own_handlers")
        self.assertEqual(host.ask("identify")["board"]["id"], "all handled")
        self.check_session(board, host, BOTH, 5)

    def test_own_wait_in_a_task(self):
        board, host = self.start("library", "vantor_task")
        self.assertEqual(host.ask("identify")["board"]["id"], "has")
        self.check_session(board, host, BOTH, 5)

    def test_small_memory(self):
        board, host = self.start("library", "vantor_small")
        configuration = example("two_sensors.json")
        calibration = host.ask("configure", configuration=configuration)["calibration_info"]
        self.assertEqual(host.ask("end")["status"], "ok")
        self.check_session(board, host, {**configuration, "calibration_info": calibration}, 20)

    def test_smallest_memory(self):
        board, host = self.start("library", "vantor_smallest")
        host.stream.close()
        self.record(board, 100)
        self.assertEqual(board.variable("stand_in_violations"), 0, board.log())
        with board.connect() as host:
            identity = host.ask("identify")
            self.assertEqual(identity["memory"]["failures"], 0)
            program, interrupts = (stack_used(board, name) for name in ("program", "interrupt"))
            self.assertEqual(program + interrupts, host.ask("identify")["stack"]["peak"])
        # An interrupt at the deepest point needs 104 more bytes.
        self.assertLess(program, most_stack())
        self.assertGreater(program, 0.9 * most_stack())

    def test_guide_lists_the_ram_of_small_boards(self):
        table, sizes = ram_table()
        for column, name in enumerate(("smallest", "small")):
            parts = parts_of_ram(image_of("library", f"vantor_{name}"))
            self.assertEqual(sum(parts.values()), 1024 * sizes[column])
            self.assertEqual({part: row[column] for part, row in table.items()}, parts)

    def test_board_in_c_and_assembler(self):
        board, host = self.start("simulator", "vantor_c_board", sensors=2)
        self.assertEqual(host.ask("identify")["board"], {"name": "c_board", "reset_cause": "power on",
                                                         "sensors": "simulated"})
        self.session(host, BOTH, 5)
        self.assertRegex(board.log(), "info: board: c_board, .*; open: peripherals 40000000-5fffffff memory ")


class Refused(unittest.TestCase):
    """Boards whose build must fail."""

    def refused(self, target):
        """Builds a target, which must fail; returns the output of compiler and linker."""
        built = build_targets(WORK / "library", target)
        self.assertNotEqual(built.returncode, 0)
        self.assertIn(f"FAILED: {target}", built.stdout)
        return built.stdout

    def check_numbers(self, board, *errors):
        """Expects every file of the firmware to be refused, so that no other error comes first; checks all errors."""
        folder = f"ports/firmware/CMakeFiles/vantor_{board}"
        self.assertIn(errors[0], self.refused(f"{folder}.dir/main.cpp.obj"))
        self.assertIn(errors[0], self.refused(f"{folder}_objects.dir/clock.cpp.obj"))
        output = self.refused(f"{folder}_objects.dir/interrupts.cpp.obj")
        self.assertEqual(re.findall("error: static assertion failed: (.*)", output), list(errors))

    def test_numbers_that_are_too_large(self):
        self.check_numbers("crowd",
                           "BOARD_AREA_COUNT: 1 or 2 areas",
                           "BOARD_LONGEST_WAIT_US: the counter wraps after 71 minutes, and no wrap may be missed",
                           "BOARD_LINK_INTERRUPT: less than BOARD_INTERRUPT_COUNT",
                           "BOARD_LINK_SEND_INTERRUPT: less than BOARD_INTERRUPT_COUNT",
                           "BOARD_LINK_MAX_BAUDRATE: 0, or at least BOARD_LINK_START_BAUDRATE",
                           "BOARD_RING_SIZE: a power of two, at least 16",
                           "BOARD_SEND_RING_SIZE: a power of two, at least 16",
                           "BOARD_SENSOR_COUNT: a board has at most 32 sensors",
                           "BOARD_LINK_INTERRUPT: it is one of BOARD_SENSOR_INTERRUPTS",
                           "BOARD_SENSOR_INTERRUPTS: less than BOARD_INTERRUPT_COUNT")

    def test_numbers_that_are_too_small_and_an_interrupt_used_twice(self):
        self.check_numbers("nothing",
                           "BOARD_CORE_CLOCK_HZ: at least 1 MHz",
                           "BOARD_AREA_COUNT: 1 or 2 areas",
                           "BOARD_LONGEST_WAIT_US: the counter wraps after 71 minutes, and no wrap may be missed",
                           "BOARD_LINK_START_BAUDRATE: at least 1",
                           "BOARD_LINK_MAX_BAUDRATE: 0, or at least BOARD_LINK_START_BAUDRATE",
                           "BOARD_RING_SIZE: a power of two, at least 16",
                           "BOARD_SEND_RING_SIZE: a power of two, at least 16",
                           "BOARD_LINE_SIZE: at least 128, for a small session",
                           "BOARD_MAX_VALUES: at least 16, for a small session",
                           "BOARD_SENSOR_COUNT: a board has at least one sensor",
                           "BOARD_LINK_INTERRUPT: it is one of BOARD_SENSOR_INTERRUPTS",
                           "BOARD_LINK_SEND_INTERRUPT: it is one of BOARD_SENSOR_INTERRUPTS")

    def check_memory(self, board, *errors):
        """Expects the linker to refuse a board with these messages, among others."""
        output = self.refused(f"bin/vantor_{board}.elf")
        for error in errors:
            self.assertIn(f": {error}\n", output)

    def test_sizes_that_are_too_small(self):
        self.check_memory("scanty",
                          "program_stack_size must be at least 2304 bytes, for a small session",
                          "program_stack_size must be a multiple of 8 bytes",
                          "interrupt_stack_size must be at least 512 bytes, for the report of a fault",
                          "interrupt_stack_size must be a multiple of 256 bytes",
                          "heap_size must be at least 4K",
                          "BOARD_TOLERATED_LOSS must be less than heap_size",
                          "BOARD_MAX_VALUES: 64 bytes for each are more than half of heap_size")

    def test_banks_that_overlap(self):
        self.check_memory("overlapping",
                          "FLASH and RAM overlap",
                          "the heap lies in FLASH",
                          "BOARD_TOLERATED_LOSS must be less than heap_size",
                          "BOARD_MAX_VALUES: 64 bytes for each are more than half of heap_size")
        self.check_memory("same_place", "HEAP must be RAM, or a bank that does not overlap it")

    def test_memory_without_sections(self):
        self.check_memory("without_sections", "required symbol `sections.ld' not defined")

    def test_missing_functions_are_named(self):
        built = build_targets(WORK / "library", "vantor_lacking")
        self.assertNotEqual(built.returncode, 0)
        missing = set(re.findall(r"undefined reference to `(\w+)'", built.stdout))
        self.assertEqual(missing, {"board_link_receive", "board_sensor_transfer"})


if __name__ == "__main__":
    unittest.main()
