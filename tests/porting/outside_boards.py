"""Builds boards outside of the tree: a copy of the template, brought up by the steps of the guide, and unusual boards.

Usage: outside_boards.py DIRECTORY. What the builds print is in DIRECTORY/BUILD.txt.
"""

import os
import pathlib
import shutil
import sys

from board_folders import EMULATED, TEMPLATE, BoardFolder, build_targets, configure, must_succeed, replaced
from guide_steps import functions_of_step

FIRMWARE_BUILD = pathlib.Path(os.environ["VANTOR_FIRMWARE_BUILD"])
STAND_IN = FIRMWARE_BUILD / "tests/firmware/stand_in/libstand_in_sensors.a"

BUILDS = {
    "simulator": ("-DVANTOR_TESTS=ON", "-DCMAKE_C_FLAGS_RELEASE=-Os", "-DCMAKE_CXX_FLAGS_RELEASE=-Os"),
    "library": ("-DVANTOR_SENSORS=library", f"-DVANTOR_SENSOR_LIBRARY={STAND_IN}",
                "-DCMAKE_C_FLAGS_RELEASE=-Os -flto=auto", "-DCMAKE_CXX_FLAGS_RELEASE=-Os -flto=auto"),
}

C_BOARD = pathlib.Path(__file__).parent / "c_board"

LAYOUTS = ("two_banks", "ram_of_96k", "behind_boot_loader")
REFUSED = ("crowd", "nothing", "lacking", "scanty", "overlapping", "same_place", "without_sections")

FLASH = "ORIGIN = 0x08000000, LENGTH = 1M"

def copy_numbers_and_memory(board):
    """Copies the numbers and the memory of the emulated board."""
    for name in ("board_numbers.h", "memory.ld"):
        board.edit(name, lambda _, name=name: (EMULATED / name).read_text(encoding="utf-8"))


def make_steps(parent):
    """Creates a folder for each step of the guide that brings up the template."""
    boards = [BoardFolder(parent, "as_copied", TEMPLATE)]
    functions = []
    for name, step in (("with_log", "Log"), ("with_link", "Link"), ("my_board", "Sensors")):
        functions += functions_of_step(step)
        board = BoardFolder(parent, name, TEMPLATE)
        copy_numbers_and_memory(board)
        board.take_over(functions)
        boards.append(board)
    watch(boards[-1])
    return boards


def make_layouts(parent):
    """Creates boards with unusual memory."""
    sizes = {"program_stack_size": "4K", "interrupt_stack_size": "512"}
    two_banks, ram_of_96k, behind_boot_loader = boards = [BoardFolder(parent, name) for name in LAYOUTS]
    two_banks.set_memory({"FLASH": FLASH, "RAM": "ORIGIN = 0x20000400, LENGTH = 47K",
                          "BANK": "ORIGIN = 0x20020000, LENGTH = 64K"}, heap="BANK", heap_size="64K", **sizes)
    ram_of_96k.set_memory({"FLASH": FLASH, "RAM": "ORIGIN = 0x20000000, LENGTH = 96K"}, heap_size="64K", **sizes)
    behind_boot_loader.set_memory({"FLASH": "ORIGIN = 0x08020200, LENGTH = 128K - 512",
                                   "RAM": "ORIGIN = 0x20000000, LENGTH = 128K"}, heap_size="64K", **sizes)
    for board in boards:
        board.set_numbers(MAX_VALUES=512)
    return boards


# Exception handlers as from a chip's manufacturer. The code has warnings.
HANDLERS = """
int handled;
static int never_called(int narrow) { char c = narrow; unsigned x; return c < x; }
void SVC_Handler() { int unused; handled |= 1; }
void PendSV_Handler() { handled |= 2; }
void SysTick_Handler() { handled |= 4; }
"""

CALL_HANDLERS = """
extern "C" volatile int handled;

const char *board_id(void)
{
    __asm volatile("svc 0");
    hardware_register(0xE000ED04U) = 1U << 28U | 1U << 26U; // PendSV, SysTick
    __asm volatile("dsb; isb");
    return handled == 7 ? "all handled" : "not handled";
}
"""

TASK = """
target_link_options(vantor_task_objects INTERFACE -Wl,--wrap=run_board)
"""

OWN_WAIT = """
namespace
{
volatile bool woken;
bool has_task;
char waits[] = "has not waited";
}

void board_wait(uint32_t duration_us)
{
    waits[3] = '\\0';
    const uint32_t begin = board_counter_us();
    while (!woken && board_counter_us() - begin < duration_us)
    {
    }
    woken = false;
}

void board_wake(void)
{
    woken = true;
}

const char *board_id(void)
{
    return has_task ? waits : nullptr;
}

extern "C" void __real_run_board();
extern "C" void __wrap_run_board();

void __wrap_run_board()
{
    has_task = true;
    __real_run_board();
}
"""

# Lets the stand-in watch the lines of the sensors. The linker does not wrap calls in code with link-time optimisation.
WATCHED = """
set_source_files_properties(${{sources}} PROPERTIES COMPILE_OPTIONS -fno-lto)
target_link_options(vantor_{name}_objects INTERFACE
  -Wl,--wrap=board_sensor_set_supply -Wl,--wrap=board_sensor_set_enable)
"""


def watch(board):
    """Lets the stand-in watch the lines of a board's sensors."""
    (board.path / "board.cmake").write_text(WATCHED.format(name=board.name), encoding="utf-8")


def make_unusual(parent):
    """Creates boards with their own code, and some that must not link."""
    handlers = BoardFolder(parent, "own_handlers")
    (handlers.path / "vendor").mkdir()
    (handlers.path / "vendor/handlers.c").write_text(HANDLERS, encoding="utf-8")
    task = BoardFolder(parent, "task")
    (task.path / "board.cmake").write_text(TASK, encoding="utf-8")
    for board, code in ((handlers, CALL_HANDLERS), (task, OWN_WAIT)):
        board.remove("board_id")
        board.add(code)
    cut_line = BoardFolder(parent, "cut_line")
    cut_line.edit("board.cpp", replaced, "hardware_register(exti) = 3;", "hardware_register(exti) = 1;")
    watch(cut_line)
    return [handlers, task, cut_line, *make_small(parent), *make_refused(parent)]


def make_refused(parent):
    """Creates boards whose build must fail."""
    boards = [BoardFolder(parent, name) for name in REFUSED]
    crowd, nothing, lacking, scanty, overlapping, same_place, without_sections = boards
    crowd.set_numbers(SENSOR_COUNT=33, AREA_COUNT=3, LINK_INTERRUPT=82, LINK_SEND_INTERRUPT=83,
                      LINK_MAX_BAUDRATE=115199, RING_SIZE=1000, SEND_RING_SIZE=24, LONGEST_WAIT_US=1000000001)
    crowd.edit("board_numbers.h", replaced, "6, 7", "6, 82")
    nothing.set_numbers(SENSOR_COUNT=0, AREA_COUNT=0, LINK_INTERRUPT=7, CORE_CLOCK_HZ=999999, LONGEST_WAIT_US=0,
                        LINK_SEND_INTERRUPT=6, LINK_START_BAUDRATE=0, LINK_MAX_BAUDRATE=-1, RING_SIZE=8,
                        SEND_RING_SIZE=8, LINE_SIZE=127, MAX_VALUES=15)
    lacking.remove("board_link_receive", "board_sensor_transfer")
    flash, ram = {"FLASH": FLASH}, {"RAM": "ORIGIN = 0x20000000, LENGTH = 128K"}
    stacks = {"program_stack_size": "4K", "interrupt_stack_size": "1K"}
    scanty.set_numbers(TOLERATED_LOSS=4088, MAX_VALUES=32)
    scanty.set_memory(flash | ram, program_stack_size=2300, interrupt_stack_size=400, heap_size=4088)
    overlapping.set_numbers(TOLERATED_LOSS=-1)
    overlapping.set_memory(flash | {"RAM": "ORIGIN = 0x080f0000, LENGTH = 128K"}, heap="FLASH",
                           heap_size="96K - 8", **stacks)
    same_place.set_memory(flash | ram | {"BANK": "ORIGIN = 0x20000000, LENGTH = 120K"}, heap="BANK", heap_size="96K",
                          **stacks)
    without_sections.edit("memory.ld", replaced, "INCLUDE sections.ld", "")
    return boards


def make_c_board(parent):
    """Creates a board without C++ code. Its list of areas is shorter than its number of areas."""
    board = BoardFolder(parent, "c_board")
    (board.path / "board.cpp").unlink()
    for file in C_BOARD.iterdir():
        shutil.copy(file, board.path)
    return board


def make_small(parent):
    """Creates boards with little RAM: 32 KiB, and just enough for the example with two sensors."""
    small, smallest = [BoardFolder(parent, name) for name in ("small", "smallest")]
    small.set_numbers(LINE_SIZE=2560, RING_SIZE=1024, SEND_RING_SIZE=512, MAX_VALUES=128, TOLERATED_LOSS=1024)
    small.set_memory({"FLASH": FLASH, "RAM": "ORIGIN = 0x20000000, LENGTH = 32K"},
                     program_stack_size="4K", interrupt_stack_size="1K", heap_size="19K")
    smallest.set_numbers(LINE_SIZE=2560, RING_SIZE=512, SEND_RING_SIZE=256, MAX_VALUES=128, TOLERATED_LOSS=1024)
    smallest.set_memory({"FLASH": FLASH, "RAM": "ORIGIN = 0x20000000, LENGTH = 28K"},
                        program_stack_size="3K", interrupt_stack_size="512", heap_size="17K")
    return [small, smallest]


def build_all(work):
    """Creates and builds all boards, with a folder for the boards and one for each build."""
    boards = work / "boards"
    as_copied, with_log, with_link, my_board = make_steps(boards)
    simulated = [as_copied, with_log, with_link, *make_layouts(boards), make_c_board(boards)]
    real = [as_copied, my_board, *make_unusual(boards)]
    for build, these in (("simulator", simulated), ("library", real)):
        must_succeed(configure(work / build, these, *BUILDS[build]))
        targets = [f"vantor_{board.name}" for board in these if board.name not in REFUSED]
        targets += [f"faulty_{name}" for name in LAYOUTS] if build == "simulator" else []
        printed = must_succeed(build_targets(work / build, *targets))
        (work / f"{build}.txt").write_text(printed, encoding="utf-8")


if __name__ == "__main__":
    shutil.rmtree(sys.argv[1], ignore_errors=True)
    pathlib.Path(sys.argv[1]).mkdir()
    build_all(pathlib.Path(sys.argv[1]))
