"""The command log: what faults and events did."""

from __future__ import annotations

import argparse
import json
import sqlite3
import time
from typing import Any, Sequence

from . import units
from .errors import BadInput
from .store import Store
from .table import counted, print_json


def log_command(options: argparse.Namespace) -> None:
    """Prints the log, follows it, or empties it."""
    store = Store(options.path)
    if options.clear:
        if options.follow or options.lines is not None or options.operation:
            raise BadInput("log --clear: nothing is expected with it")
        with store.writing() as db:
            count = db.execute("DELETE FROM log").rowcount
        if options.json:
            print_json({"removed": count})
        else:
            print(f"removed {counted(count, 'lines')}")
        return
    pattern = options.operation or "*"
    rows = read_log(store, pattern, options.lines)
    if options.json and not options.follow:
        print_json([dict(row) for row in rows])
        return
    last = _print_lines(rows, options.json, 0)
    if not rows and not options.follow:
        print("nothing in the log")
    while options.follow:
        time.sleep(0.2)
        more = store.rows("SELECT * FROM log WHERE id > ? AND operation GLOB ? ORDER BY id", last, pattern)
        last = _print_lines(more, options.json, last)


def read_log(store: Store, pattern: str = "*", lines: int | None = None) -> list[sqlite3.Row]:
    """The latest lines of the log, oldest first; all of them if no number is given."""
    return store.rows(
        "SELECT * FROM (SELECT * FROM log WHERE operation GLOB ? ORDER BY id DESC LIMIT ?) ORDER BY id",
        pattern,
        -1 if lines is None else lines,
    )


def _print_lines(rows: Sequence[Any], as_json: bool, last: int) -> int:
    for row in rows:
        if as_json:
            print(json.dumps(dict(row)), flush=True)
        else:
            at = f"{units.age_text(row['at_ms'] * 10**6)}.{row['at_ms'] % 1000:03}"
            called = f"{row['operation']}({row['arguments']})"
            print(f"{at:>16}  pid {row['pid']:<7} {called}: {row['what']}", flush=True)
        last = row["id"]
    return last
