"""The flash that a whole firmware needs, optimised for size: compares it with limits and with the document."""

import pathlib
import re
import subprocess
import sys

# The images: names, what they are, and limits of their code and initialised data, in bytes.
IMAGES = (
    ("bare_netduinoplus2", "without a sensor library", 39500),
    ("library_netduinoplus2", "with the sensor library of the tests, which checks its use", 48000),
)


def sizes_of(image):
    """Returns bytes of code and of initialised data."""
    shown = subprocess.run(["arm-none-eabi-size", image], capture_output=True, text=True, check=True).stdout
    return [int(size) for size in re.findall(r"^ *(\d+)\s+(\d+)", shown, re.MULTILINE)[0]]


def check(folder, document):
    """Prints the table, and what is wrong with it; returns the exit code."""
    faults = []
    lines = ["| firmware of `netduinoplus2` | text | data | flash |", "|---|---:|---:|---:|"]
    for name, description, limit in IMAGES:
        text, data = sizes_of(f"{folder}/{name}.elf")
        lines.append(f"| {description} | {text:,} | {data:,} | {text + data:,} |")
        if text + data > limit:
            faults.append(f"{name} needs {text + data} bytes of flash, more than {limit}")
    table = "\n".join(lines)
    print(table)
    if table not in pathlib.Path(document).read_text(encoding="utf-8"):
        faults.append(f"{document} does not contain this table; copy it into the document")
    for fault in faults:
        print(fault, file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(check(*sys.argv[1:]))
