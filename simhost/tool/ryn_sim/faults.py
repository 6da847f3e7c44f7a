"""The command fault: makes operations of the platform libraries fail, answer late or wrongly."""

from __future__ import annotations

import argparse
from fractions import Fraction
from typing import Any, Mapping, Sequence

from . import names, units
from .compile_traffic import STATUS_OR_CORRUPT, unknown_operation
from .errors import BadInput, Failed, nearest
from .store import Store
from .table import counted, print_json, print_table
from .times import milliseconds

# What a fault answers if nothing is said
USUAL_STATUS = 0x0BAD0001


def fault_command(options: argparse.Namespace) -> None:
    """Adds, lists or removes faults."""
    store = Store(options.path)
    if options.action == "add":
        fault = add_fault(store, **_columns(store, options), where=options.where or [])
        if options.json:
            print_json(fault)
        else:
            print(
                f"fault {fault['id']}: {fault['operation']}: {fault['does']}" + (fault["when"] and f", {fault['when']}")
            )
    elif options.action == "list":
        found = list_faults(store)
        if options.json:
            print_json(found)
        else:
            print_table(found, ["id", "operation", "where", "does", "when", "calls", "hits"], "no faults")
    else:
        count = clear_faults(store) if options.action == "clear" else remove_faults(store, options.ids)
        if options.json:
            print_json({"removed": count})
        else:
            print(f"removed {counted(count, 'faults')}")


def _columns(store: Store, options: argparse.Namespace) -> dict[str, Any]:
    """The columns that the options stand for."""
    for option, number, low, high in (
        ("--status", options.status, 1, 2**32 - 1),
        ("--times", options.times, 1, 2**63 - 1),
        ("--after", options.after, 0, 2**63 - 1),
        ("--seed", options.seed, 0, 2**63 - 1),
    ):
        if number is not None and not low <= number <= high:
            raise BadInput(f"fault add: {option}: expected a number from {low} to {high}, got {number}")
    begin, until = (
        milliseconds(f"fault add: {option}", time)
        for option, time in (("--from", options.begin), ("--until", options.until))
    )
    if until is not None and until <= (begin or 0):
        raise BadInput("fault add: --until: expected a time after --from")
    now = store.now_ns() // 10**6
    return {
        "operation": options.operation,
        "status": options.status,
        "delay_ms": milliseconds("fault add: --delay", options.delay, bare=1) or 0,
        "corrupt": options.corrupt,
        "after": options.after or 0,
        "times": options.times,
        "probability_ppm": _ppm(options.probability),
        "seed": 1 if options.seed is None else options.seed,
        "from_ms": None if begin is None else now + begin,
        "until_ms": None if until is None else now + until,
    }


def add_fault(store: Store, *, where: Sequence[str] = (), **columns: Any) -> dict[str, Any]:
    """Adds a fault: columns of its row, and the conditions ARGUMENT=GLOB, which must all hold. Answers it as listed."""
    problem = unknown_operation(columns["operation"])
    if problem:
        raise BadInput(f"fault add: {problem}")
    if columns.get("status") is None and not columns.get("delay_ms") and columns.get("corrupt") is None:
        columns["status"] = USUAL_STATUS
    if columns.get("status") is not None and columns.get("corrupt") is not None:
        raise BadInput(f"fault add: {STATUS_OR_CORRUPT}")
    conditions = []
    for text in where:
        name, equals, glob = text.partition("=")
        if not equals or name not in names.FAULT_ARGUMENTS:
            close = "" if name in names.FAULT_ARGUMENTS else nearest(name, names.FAULT_ARGUMENTS)
            raise BadInput(f'fault add: --where: expected ARGUMENT=GLOB, got "{text}"{close}')
        conditions.append((name, glob))
    if len(conditions) > 9:
        raise BadInput(f"fault add: --where: expected at most 9 of them, got {len(conditions)}")
    with store.writing() as db:
        marks = ", ".join("?" for _ in columns)
        cursor = db.execute(f"INSERT INTO fault ({', '.join(columns)}) VALUES ({marks})", tuple(columns.values()))
        number = cursor.lastrowid
        db.executemany(
            "INSERT INTO fault_where VALUES (?, ?, ?, ?)", [(number, seq, *pair) for seq, pair in enumerate(conditions)]
        )
    return next(fault for fault in list_faults(store) if fault["id"] == number)


def clear_faults(store: Store) -> int:
    """Removes all faults; answers how many there were."""
    with store.writing() as db:
        return db.execute("DELETE FROM fault").rowcount


def remove_faults(store: Store, numbers: Sequence[int]) -> int:
    """Removes these faults, or none if one of them is not there."""
    with store.writing() as db:
        for number in set(numbers):
            if db.execute("DELETE FROM fault WHERE id = ?", (number,)).rowcount == 0:
                raise Failed(f"there is no fault {number}; nothing was removed")
    return len(set(numbers))


def list_faults(store: Store) -> list[dict[str, Any]]:
    """The faults, by number: columns of their rows, and what they do and when as texts."""
    with store.reading():
        conditions: dict[int, list[str]] = {}
        for row in store.rows("SELECT * FROM fault_where ORDER BY fault, seq"):
            conditions.setdefault(row["fault"], []).append(f"{row['name']}={row['glob']}")
        return [_fault(row, conditions.get(row["id"], [])) for row in store.rows("SELECT * FROM fault ORDER BY id")]


def _ppm(text: str | None) -> int:
    if text is None:
        return 10**6
    try:
        exact = Fraction(text) * 10**6
    except (ValueError, ZeroDivisionError):
        exact = Fraction(-1)
    if exact.denominator != 1 or not 0 <= exact <= 10**6:
        raise BadInput(f'fault add: --probability: expected a number from 0 to 1 in steps of 0.000001, got "{text}"')
    return int(exact)


def _fault(row: Mapping[str, Any], where: list[str]) -> dict[str, Any]:
    does, when = [], []
    if row["delay_ms"]:
        does.append(f"delay {units.duration_text(row['delay_ms'] * 10**6)}")
    if row["status"] is not None:
        does.append(f"status 0x{row['status']:08X}")
    if row["corrupt"]:
        does.append(f"corrupt {row['corrupt']}")
    if row["after"]:
        when.append(f"after {counted(row['after'], 'calls')}")
    if row["times"] is not None:
        when.append(counted(row["times"], "times"))
    if row["probability_ppm"] != 10**6:
        when.append(f"probability {row['probability_ppm'] / 10**6:g}")
    for key in ("from", "until"):
        if row[f"{key}_ms"] is not None:
            when.append(f"{key} {units.age_text(row[f'{key}_ms'] * 10**6)}")
    return {**dict(row), "where": where, "does": " ".join(does), "when": ", ".join(when)}
