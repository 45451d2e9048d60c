"""The footprint of the firmware: code and memory of each part, and the memory of sensors, items and sessions."""

import re
import sys

from emulated_board import FIRMWARE, Board
from footprint import contains
from vantor_process import example

# Parts of the image, by the path of the object file. The first match is used.
PARTS = (
    ("backend", r"libzet_vantor_server_system_k330\.a"),
    ("JSON, numbers, messages", r"libzet_common\.a"),
    ("server core", r"libzet_vantor_server\.a"),
    ("cJSON", r"libcjson\.a"),
    ("simulator", r"libzet_simulator\.a"),
    ("allocator", r"libvantor_memory\.a"),
    ("board", r"/boards/"),
    ("firmware", r"ports/firmware/"),
    ("C library, compiler support", r""),
)

# The linker merges identical strings of all parts. Its map does not list their origin.
MERGED_TEXTS = r"\.rodata\S*\.str\d+\.\d+$"

SECTIONS = (".vectors", ".text", ".ARM.exidx", ".data", ".bss", ".retained", ".stacks", ".heap")


def section_kind(output_section):
    """Returns the column of an output section."""
    return {".data": "data", ".bss": "bss", ".retained": "bss", ".stacks": "bss", ".heap": "bss"}.get(output_section, "text")


def sizes_of_parts(map_path):
    """Returns bytes of text, data and bss of each part, from the linker's map."""
    with open(map_path, encoding="utf-8") as file:
        text = file.read().partition("Linker script and memory map")[2]
    # A long name is on a separate line.
    text = re.sub(r"\n( ?\.\S+)\n +0x", r"\n\1 0x", text)
    sizes = {name: {"text": 0, "data": 0, "bss": 0} for name, _ in PARTS}
    output_section = None
    totals = {}
    for line in text.splitlines():
        if line.startswith("."):
            output_section = line.split()[0]
            totals[output_section] = int(line.split()[2], 16) if len(line.split()) > 2 else 0
        match = re.match(r" (\S+) +0x[0-9a-f]+ +(0x[0-9a-f]+) (\S.*)$", line)
        if match and output_section in SECTIONS and not re.match(MERGED_TEXTS, match[1]):
            name = next(name for name, pattern in PARTS if re.search(pattern, match[3]))
            sizes[name][section_kind(output_section)] += int(match[2], 16)
    rest = {kind: sum(size for section, size in totals.items() if section in SECTIONS and section_kind(section) == kind)
            - sum(part[kind] for part in sizes.values()) for kind in ("text", "data", "bss")}
    rest["bss"] -= totals[".stacks"] + totals[".heap"]
    return {**sizes, "strings of all parts, null guard, padding": rest, "stacks": {"text": 0, "data": 0, "bss": totals[".stacks"]},
            "heap": {"text": 0, "data": 0, "bss": totals[".heap"]}}


def live(host):
    """Returns bytes of the heap in use."""
    return host.ask("identify")["memory"]["live"]


def configured(host, groups):
    """Returns bytes of the heap in use while a session is configured."""
    answer = host.ask("configure", configuration={"groups": groups})
    assert answer["status"] == "ok", answer
    bytes_in_use = live(host)
    host.ask("end")
    return bytes_in_use


def memory_of_sessions():
    """Returns bytes of the heap for a sensor position, a session, an item and the example."""
    at_rest = {}
    for sensors in (1, 2):
        with Board(sensors=sensors) as board, board.connect() as host:
            at_rest[sensors] = live(host)
    item = {"sensor_id": 1, "config": {"num_points": 100}}
    with Board(sensors=2) as board, board.connect() as host:
        idle = live(host)
        one = configured(host, [[item]])
        two = configured(host, [[item], [item]])
        two_sensors = configured(host, [[item, {**item, "sensor_id": 2}]])
    with Board(sensors=2) as board, board.connect() as host:
        answer = host.ask("configure", configuration=example("two_sensors.json"))
        assert answer["status"] == "ok", answer
        for _ in range(10):
            host.command("frame")
            host.message()
        example_live = live(host)
        example_peak = host.ask("identify")["memory"]["peak"]
    each_item = two - one
    each_sensor = two_sensors - two
    return (
        ("idle board, two sensor positions", idle),
        ("each sensor position", at_rest[2] - at_rest[1]),
        ("session: itself", one - idle - each_sensor - each_item),
        ("session: each sensor in use", each_sensor),
        ("session: each item, with 100 points", each_item),
        ("`examples/two_sensors.json`, measuring", example_live),
        ("`examples/two_sensors.json`, peak", example_peak),
    )


def rows(table):
    """Returns rows of a table of parts, with their sum."""
    total = {kind: sum(sizes[kind] for sizes in table.values()) for kind in ("text", "data", "bss")}
    return [f"| {name} | {sizes['text']:,} | {sizes['data']:,} | {sizes['bss']:,} |"
            for name, sizes in [*table.items(), ("total", total)]]


def table():
    """Returns the tables, as in the document."""
    parts = sizes_of_parts(re.sub(r"\.elf$", ".map", FIRMWARE))
    heap = memory_of_sessions()
    static = sum(sizes["data"] + sizes["bss"] for sizes in parts.values()) - parts["heap"]["bss"]
    lines = ["| part | text | data | bss |", "|---|---:|---:|---:|", *rows(parts),
             "", "| heap | bytes |", "|---|---:|"]
    lines += [f"| {name} | {size:,} |" for name, size in heap]
    lines.append(f"| total RAM with a heap of that peak | {static + heap[-1][1]:,} |")
    return "\n".join(lines)


def check(document_path):
    """Prints the tables and whether the document contains them; returns the exit code."""
    tables = table()
    print(tables)
    if contains(document_path, tables):
        return 0
    print(f"{document_path} does not contain these tables; copy them into it.", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(check(sys.argv[1]))
