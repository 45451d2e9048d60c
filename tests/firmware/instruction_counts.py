"""Counts the instructions of a frame message on an emulated board; compares them with limits and with the document."""

import json
import subprocess
import sys

from footprint import contains

# Limits of the instructions of a message by number of items, without clear-channel assessment and with it.
BOUNDS = {False: {1: 3600, 5: 9600, 10: 20500, 50: 80500}, True: {1: 5000, 5: 16500, 10: 34000, 50: 140000}}

# The sessions with 10 and 50 items have 10 groups, the others 1. In each pair, the second has at least the groups, and
# the items in a group, of the first one.
SMALLER_AND_LARGER = [(1, 5), (1, 10), (5, 50), (10, 50)]

# Limits of the instructions of a byte that a port accepts at once, and of an interrupt that sends one byte.
SENDING_BOUND = 28
INTERRUPT_BOUND = 100

# Limits of the instructions of the metadata of 50 items, and of the text of any float.
METADATA_BOUND = 350000
FLOAT_BOUND = 900


def count(command):
    """Runs the benchmark image once; returns the counts of every session, of an interrupt and of the text of a float."""
    run = subprocess.run(command, capture_output=True, text=True, timeout=200, check=True)
    *sessions, interrupt, floats = (json.loads(line) for line in run.stdout.splitlines())
    return sessions, interrupt["interrupt"], floats["float_text"]


def sending_a_byte(session):
    """Instructions for a byte of a frame that is sent over the link."""
    return session["sending"] / session["bytes"]


def table(counts):
    """The counts as a table, as in the document."""
    sessions, interrupt, longest_float = counts
    lines = ["| items | bytes | message | by hand | complete frame | sending a byte | allocations | metadata |",
             "|---:|---:|---:|---:|---:|---:|---:|---:|"]
    lines += [f"| {c['items']}{' assessed' if c['assessed'] else ''} | {c['bytes']:,} | {c['message']:,} "
              f"| {c['by_hand']:,} | {c['frame']:,} | {sending_a_byte(c):.1f} | {c['allocations']} "
              f"| {c['metadata']:,} |" for c in sessions]
    return "\n".join([*lines, "", f"An interrupt that sends one byte takes {interrupt} instructions, writing a `float` "
                      f"as text at most {longest_float}."])


def faults_of(sessions, bounds):
    """Lists what is wrong with the counts of sessions that differ only in the number of items."""
    faults = [f"{c['items']} items take more than {bounds[c['items']]} instructions" for c in sessions
              if c["message"] > bounds[c["items"]]]
    if [c["items"] for c in sessions] != list(bounds):
        faults.append(f"the sessions do not have {list(bounds)} items")
    messages = {c["items"]: c["message"] for c in sessions}
    if any(messages[larger] * smaller > messages[smaller] * larger for smaller, larger in SMALLER_AND_LARGER):
        faults.append("the cost grows faster than the number of items")
    return faults


def check(command, document_path):
    """Prints the table and the errors in the counts; returns the exit code."""
    counts = count(command)
    print(table(counts))
    faults = []
    if count(command) != counts:
        faults.append("two runs have different counts")
    sessions, interrupt, longest_float = counts
    for assessed, bounds in BOUNDS.items():
        faults += faults_of([c for c in sessions if c["assessed"] == assessed], bounds)
    if max(c["metadata"] for c in sessions) > METADATA_BOUND:
        faults.append(f"metadata takes more than {METADATA_BOUND} instructions")
    faults += [f"sending a byte of {c['items']} items takes more than {SENDING_BOUND} instructions" for c in sessions
               if sending_a_byte(c) > SENDING_BOUND]
    if interrupt > INTERRUPT_BOUND:
        faults.append(f"an interrupt that sends one byte takes more than {INTERRUPT_BOUND} instructions")
    if longest_float > FLOAT_BOUND:
        faults.append(f"the text of a float takes more than {FLOAT_BOUND} instructions")
    if not contains(document_path, table(counts)):
        faults.append(f"{document_path} does not contain this table; copy it into the document")
    for fault in faults:
        print(fault, file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(check(sys.argv[1:3], sys.argv[3]))
