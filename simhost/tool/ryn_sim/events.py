"""The command event: makes something happen to the host."""

from __future__ import annotations

import argparse
from typing import Any, Mapping

from . import units
from .compile import literal
from .compile_traffic import event_target, wrong_value
from .errors import BadInput, Failed, nearest
from .kinds import Wrong
from .members.event import EVENT
from .store import Store
from .table import print_json, print_table
from .times import milliseconds


def event_command(options: argparse.Namespace) -> None:
    """Adds, lists or ends events."""
    store, kind = Store(options.path), options.kind
    if kind in ("list", "end"):
        _list_or_end(store, options)
        return
    if kind not in EVENT:
        raise BadInput(f'event: there is no event "{kind}"{nearest(kind, (*EVENT, "list", "end"))}')
    if options.target is None:
        raise BadInput(f"event {kind}: expected what it happens to; see: ryn-sim event --help")
    lasting, ahead = (
        milliseconds(f"event {kind}: {option}", time)
        for option, time in (("--for", options.lasting), ("--in", options.ahead))
    )
    event = add_event(store, kind, options.target, lasting_ms=lasting, ahead_ms=ahead, value=options.value)
    if options.json:
        print_json(event)
    else:
        until = "" if event["until"] is None else f" until {event['until']}"
        print(f"event {event['id']}: {kind} {event['target']}, from host time {event['from']}{until}")


def _list_or_end(store: Store, options: argparse.Namespace) -> None:
    further = options.lasting or options.ahead or options.value is not None
    if options.kind == "list":
        if further or options.target is not None:
            raise BadInput("event list: nothing is expected after it")
        found = list_events(store)
        if options.json:
            print_json(found)
        else:
            print_table(found, ["id", "event", "target", "value", "from", "until", "stage"], "no events")
        return
    if further or options.target is None:
        raise BadInput("event end: expected the number of an event, and nothing else")
    if not options.target.isdecimal():
        raise BadInput(f'event end: expected the number of an event, got "{options.target}"')
    end_event(store, int(options.target))
    if options.json:
        print_json({"ended": int(options.target)})


def add_event(
    store: Store,
    kind: str,
    target: str,
    *,
    lasting_ms: int | None = None,
    ahead_ms: int | None = None,
    value: int | None = None,
) -> dict[str, Any]:
    """Lets an event begin, now or in so many milliseconds of host time. Answers it as listed."""
    rule = EVENT[kind]
    target = _target(store, kind, target)
    if value is not None and rule.default is None:
        raise BadInput(f"event {kind}: --value means nothing here")
    problem = wrong_value(kind, value)
    if problem:
        raise BadInput(f"event {kind}: --value: {problem}")
    if rule.once and lasting_ms is not None:
        raise BadInput(f"event {kind}: it happens once, --for means nothing here")
    if lasting_ms == 0:
        raise BadInput(f"event {kind}: --for: expected a time above 0")
    start = store.now_ns() // 10**6 + (ahead_ms or _lead_ms(store, 0))
    stop = None if lasting_ms is None else start + lasting_ms
    known = {row["id"] for row in store.rows("SELECT id FROM event")}
    given = ", ".join(map(literal, (kind, target, value, start, stop)))
    store.apply(f"INSERT INTO event (kind, target, value, from_ms, until_ms) VALUES ({given})")
    return next(event for event in reversed(list_events(store)) if event["id"] not in known)


def _lead_ms(store: Store, frozen: int) -> int:
    """How far ahead something is to happen at the least, since nothing may happen before what others have seen."""
    clock = store.row("SELECT * FROM clock")
    return frozen if clock["mode"] == "freeze" else max(10, int(clock["speed_permille"]) // 50)


def _target(store: Store, kind: str, text: str) -> str:
    """The target as the store has it."""
    ports: dict[str, list[tuple[int, int]]] = {}
    for row in store.rows(
        "SELECT sw, port, nic, client, alias FROM port JOIN sw USING (sw) JOIN dvs USING (switch_id)"
    ):
        for name in (row["nic"] or row["client"], f"{row['alias']}/{row['port']}"):
            ports.setdefault(name, []).append((row["sw"], row["port"]))
    switches = {row["alias"]: row["sw"] for row in store.rows("SELECT alias, sw FROM sw JOIN dvs USING (switch_id)")}
    nics = [row["name"] for row in store.rows("SELECT name FROM nic")]
    cores = {row["lcore"] for row in store.rows("SELECT lcore FROM lcore")}
    try:
        return event_target(kind, text, nics, cores, switches, ports)
    except Wrong as error:
        raise BadInput(f"event {kind}: {error.message}") from None


def list_events(store: Store) -> list[dict[str, Any]]:
    """The events, by number; from and until in host time."""
    now = store.now_ns() // 10**6
    return [_event(row, now) for row in store.rows("SELECT * FROM event ORDER BY id")]


def _event(row: Mapping[str, Any], now_ms: int) -> dict[str, Any]:
    if now_ms < row["from_ms"]:
        stage = "ahead"
    elif row["until_ms"] is not None and now_ms >= row["until_ms"]:
        stage = "over"
    else:
        stage = "done" if EVENT[row["kind"]].once else "on"
    return {
        "id": row["id"],
        "event": row["kind"],
        "target": row["target"],
        "value": row["value"],
        "from_ms": row["from_ms"],
        "until_ms": row["until_ms"],
        "from": units.age_text(row["from_ms"] * 10**6),
        "until": None if row["until_ms"] is None else units.age_text(row["until_ms"] * 10**6),
        "stage": stage,
    }


def end_event(store: Store, number: int) -> None:
    """Ends an event that is on, or calls off one that is ahead."""
    event = next((event for event in list_events(store) if event["id"] == number), None)
    if event is None:
        raise Failed(f"there is no event {number}")
    if event["stage"] == "ahead":
        store.apply(f"DELETE FROM event WHERE id = {number}")
    elif event["stage"] == "on":
        end = store.now_ns() // 10**6 + _lead_ms(store, 1)
        store.apply(f"UPDATE event SET until_ms = {end} WHERE id = {number}")
    else:
        raise Failed(f"event {number} is {event['stage']} already")
