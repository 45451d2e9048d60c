"""Instructions of a frame message on an emulated board, against their bounds and the table in the documents."""

import json
import subprocess
import sys

from footprint import shows

# Most instructions by number of items.
BOUNDS = {1: 6500, 5: 17000, 10: 35000, 50: 145000}


def count(command):
    """The counts of one run of the benchmark image."""
    run = subprocess.run(command, capture_output=True, text=True, timeout=200, check=True)
    return [json.loads(line) for line in run.stdout.splitlines()]


def table(counts):
    """The counts as the document shows them."""
    lines = ["| items | message | by hand | whole frame | allocations |", "|---:|---:|---:|---:|---:|"]
    lines += [f"| {c['items']} | {c['message']:,} | {c['by_hand']:,} | {c['frame']:,} | {c['allocations']} |"
              for c in counts]
    return "\n".join(lines)


def check(command, document_path):
    """Prints the table and what is wrong with the counts; returns the exit code."""
    counts = count(command)
    print(table(counts))
    faults = []
    if count(command) != counts:
        faults.append("two runs differ")
    if [c["items"] for c in counts] != list(BOUNDS):
        faults.append(f"the sessions do not have {list(BOUNDS)} items")
    faults += [f"{c['items']} items take more than {BOUNDS[c['items']]} instructions" for c in counts
               if c["message"] > BOUNDS[c["items"]]]
    if any(larger["message"] * smaller["items"] > smaller["message"] * larger["items"]
           for smaller, larger in zip(counts, counts[1:])):
        faults.append("the cost grows faster than the number of items")
    if not shows(document_path, table(counts)):
        faults.append(f"{document_path} does not show this table: put it there")
    for fault in faults:
        print(fault, file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(check(sys.argv[1:3], sys.argv[3]))
