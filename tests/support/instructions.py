#!/usr/bin/python3
"""Counts the instructions of one call of each benchmark case, by callgrind: the same for the same binaries, whatever
else the machine does. ./dev test checks them against instruction_budgets.json (test_instructions.py).

    tests/support/instructions.py             # prints the counts, in the environment that ./dev test sets up
    tests/support/instructions.py --renew     # and makes them, with headroom, the budgets
"""

from __future__ import annotations

import argparse
import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUDGETS = ROOT / "tests/lists/instruction_budgets.json"
HEADROOM = 1.1
MARK = "ResetLBWeights"  # any method that is no case
CALLS = range(4)  # from one mark to the next
ROWS = (1, 16, 256, 4096)  # of the MAC tables that are set against an empty one


def call_each_case() -> None:
    """Run under callgrind, which counts from one call of MARK to the next; prints what was done after each."""
    sys.path[:0] = [str(ROOT / "tests/support"), str(ROOT / "bench")]
    import gc

    import harness

    double = harness.set_up()
    import _libryn
    import cases

    gc.disable()  # what it walks depends on all that the interpreter has loaded
    mark = getattr(_libryn, MARK)
    tables = {f"MAC table {rows}": cases.mac_table(rows) for rows in (0, *ROWS)}
    others = {case.method: case for case in cases.CASES if case.method != "ListSwitchMACTable"}
    for name, case in {**tables, **others}.items():
        double.reset()
        double.recording(False)
        case.script(double)
        method, args = getattr(_libryn, case.method), case.args
        for _ in range(2):  # the second one counts
            mark()
            for _ in CALLS:
                method(*args)
            print(name)
            mark()
            for _ in CALLS:
                pass
            print("loop")
    mark()


def count() -> dict[str, float]:
    """Instructions of one call of each case; of MAC tables those that a row takes."""
    with tempfile.TemporaryDirectory() as folder:
        command = [
            "valgrind",
            "--tool=callgrind",
            f"--callgrind-out-file={folder}/out",
            f"--dump-before=PyRYN_{MARK}(*",
            sys.executable,
            __file__,
            "--call",
        ]
        environment = {**os.environ, "PYTHONHASHSEED": "0", "PYTHONDONTWRITEBYTECODE": "1"}
        done = subprocess.run(command, env=environment, text=True, capture_output=True, timeout=300)
        assert done.returncode == 0, done.stderr
        # A numbered file for each mark, in order; the first has what came before them
        files = sorted(Path(folder).glob("out.*"), key=lambda file: int(file.suffix[1:]))[1:]
        totals = [
            int(total)
            for file in files
            for total in re.findall(r"^(?:totals|summary): (\d+)", file.read_text(), re.MULTILINE)[:1]
        ]
    names = done.stdout.splitlines()
    assert len(names) == len(totals), (len(names), len(totals))
    counts = dict(zip(names, totals))  # the last of each name stays
    loop = counts.pop("loop")
    found = {name: round((total - loop) / len(CALLS), 1) for name, total in counts.items()}
    empty = found.pop("MAC table 0")
    return {
        f"ListSwitchMACTable, a row of {rows}": round((found.pop(f"MAC table {rows}") - empty) / rows, 1)
        for rows in ROWS
    } | found


def main() -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("--call", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--renew", action="store_true", help="make the counts, with headroom, the budgets")
    options = parser.parse_args()
    if options.call:
        return call_each_case()
    counts = count()
    print(json.dumps(counts, indent=1))
    if options.renew:
        budgets = {name: round(HEADROOM * instructions) for name, instructions in counts.items()}
        BUDGETS.write_text(json.dumps(budgets, indent=2) + "\n")


if __name__ == "__main__":
    main()
