"""The commands fault, event and log: what goes wrong on the host, and what it did."""

from __future__ import annotations

from fractions import Fraction

from . import units, words
from .compile import literal, unknown_operation, unknown_target
from .errors import BadInput, Failed, nearest
from .store import Store
from .table import counted, print_json, print_table


# What a fault answers if nothing is said.
_USUAL_STATUS = 0x0BAD0001


def _milliseconds(option: str, text: str | None, bare: int = 1000) -> int | None:
    """A time of the command line. bare: what a number without a unit counts, in milliseconds."""
    if text is None:
        return None
    try:
        ns = int(text) * bare * 10**6 if text.isdecimal() else units.nanoseconds(text)
    except ValueError:
        ns = -1
    if ns < 0 or ns % 10**6:
        raise BadInput(f'{option}: expected a time such as 30s, 250ms or 2h, got "{text}"')
    return ns // 10**6


def fault_command(options) -> None:
    store = Store(options.path)
    if options.action == "add":
        _add_fault(store, options)
    elif options.action == "list":
        rows = [_fault(row) for row in store.rows("SELECT * FROM fault ORDER BY id")]
        if options.json:
            print_json(rows)
        else:
            print_table(rows, ["id", "operation", "where", "does", "when", "calls", "hits"], "no faults")
    else:
        with store.writing() as db:
            if options.action == "clear":
                count = db.execute("DELETE FROM fault").rowcount
                print(f"removed {counted(count, 'faults')}")
                return
            for number in options.ids:
                if db.execute("DELETE FROM fault WHERE id = ?", (number,)).rowcount == 0:
                    raise Failed(f"there is no fault {number}; nothing was removed")


def _add_fault(store: Store, options) -> None:
    problem = unknown_operation(options.operation)
    if problem:
        raise BadInput(f"fault add: {problem}")
    if options.status is None and options.delay is None and options.corrupt is None:
        options.status = _USUAL_STATUS
    for option, number, low, high in (
        ("--status", options.status, 1, 2**32 - 1),
        ("--times", options.times, 1, 2**63 - 1),
        ("--after", options.after, 0, 2**63 - 1),
        ("--seed", options.seed, 0, 2**63 - 1),
    ):
        if number is not None and not low <= number <= high:
            raise BadInput(f"fault add: {option}: expected a number from {low} to {high}, got {number}")
    name, equals, glob = (options.where or "").partition("=")
    if options.where is not None and (not equals or name not in words.FAULT_ARGUMENTS):
        raise BadInput(
            f'fault add: --where: expected ARGUMENT=GLOB, got "{options.where}"' + nearest(name, words.FAULT_ARGUMENTS)
        )
    now = store.now_ns() // 10**6
    begin, until = _milliseconds("--from", options.begin), _milliseconds("--until", options.until)
    if until is not None and until <= (begin or 0):
        raise BadInput("fault add: --until: expected a time after --from")
    columns = {
        "operation": options.operation,
        "where_name": name or None,
        "where_glob": glob if name else None,
        "status": options.status,
        "delay_ms": _milliseconds("--delay", options.delay, bare=1) or 0,
        "corrupt": options.corrupt,
        "after": options.after or 0,
        "times": options.times,
        "probability_ppm": _ppm(options.probability),
        "seed": 1 if options.seed is None else options.seed,
        "from_ms": None if begin is None else now + begin,
        "until_ms": None if until is None else now + until,
    }
    with store.writing() as db:
        marks = ", ".join("?" for _ in columns)
        cursor = db.execute(f"INSERT INTO fault ({', '.join(columns)}) VALUES ({marks})", tuple(columns.values()))
    row = _fault(store.row("SELECT * FROM fault WHERE id = ?", cursor.lastrowid))
    if options.json:
        print_json(row)
    else:
        print(f"fault {row['id']}: {row['operation']}: {row['does']}" + (f", {row['when']}" if row["when"] else ""))


def _ppm(text: str | None) -> int:
    if text is None:
        return 10**6
    try:
        exact = Fraction(text) * 10**6
    except (ValueError, ZeroDivisionError):
        exact = Fraction(-1)
    if exact.denominator != 1 or not 0 <= exact <= 10**6:
        raise BadInput(f'--probability: expected a number from 0 to 1 in steps of 0.000001, got "{text}"')
    return int(exact)


def _fault(row) -> dict:
    does, when = [], []
    if row["delay_ms"]:
        does.append(f"delay {units.duration_text(row['delay_ms'] * 10**6)}")
    if row["status"] is not None:
        does.append(f"status 0x{row['status']:08X}")
    if row["corrupt"]:
        does.append(f"corrupt {row['corrupt']}")
    if row["after"]:
        when.append(f"after {row['after']} calls")
    if row["times"] is not None:
        when.append(f"{row['times']} time{'s' if row['times'] != 1 else ''}")
    if row["probability_ppm"] != 10**6:
        when.append(f"probability {row['probability_ppm'] / 10**6:g}")
    if row["from_ms"] is not None:
        when.append(f"from {units.age_text(row['from_ms'] * 10**6)}")
    if row["until_ms"] is not None:
        when.append(f"until {units.age_text(row['until_ms'] * 10**6)}")
    entry = {key: row[key] for key in row.keys()}
    entry.update(
        where=f"{row['where_name']}={row['where_glob']}" if row["where_name"] else None,
        does=" ".join(does),
        when=", ".join(when),
    )
    return entry


def event_command(options) -> None:
    store = Store(options.path)
    kind = options.kind
    if kind in ("list", "end"):
        if (
            options.lasting
            or options.ahead
            or options.value is not None
            or (kind == "list") != (options.target is None)
        ):
            raise BadInput(
                "event list takes nothing further" if kind == "list" else "event end: expected the event's number only"
            )
        _list_events(store, options.json) if kind == "list" else _end_event(store, options.target)
        return
    if kind not in words.EVENTS:
        raise BadInput(f'event: there is no event "{kind}"{nearest(kind, (*words.EVENTS, "list", "end"))}')
    if options.target is None:
        raise BadInput(f"event {kind}: expected what it happens to; see: ryn-sim event --help")
    target = _target(store, kind, options.target)
    if options.value is not None and kind not in ("mac-limit", "counters-near-wrap"):
        raise BadInput(f"event {kind}: --value means nothing here")
    if kind == "counters-near-wrap" and options.value not in (None, 32, 63, 64):
        raise BadInput(f"event {kind}: --value: expected 32, 63 or 64, got {options.value}")
    if kind == "counters-near-wrap" and options.lasting:
        raise BadInput(f"event {kind}: it happens once, --for means nothing here")
    lasting = _milliseconds("--for", options.lasting)
    if lasting == 0:
        raise BadInput("event: --for: expected a time above 0")
    # A moment ahead, since nothing may happen before the present that others have seen already.
    clock = store.row("SELECT * FROM clock")
    lead = 0 if clock["mode"] == "freeze" else max(10, clock["speed_permille"] // 50)
    start = store.now_ns() // 10**6 + (_milliseconds("--in", options.ahead) or lead)
    stop = "NULL" if lasting is None else str(start + lasting)
    known = {row["id"] for row in store.rows("SELECT id FROM event")}
    store.apply(
        f"INSERT INTO event (kind, target, value, from_ms, until_ms) VALUES ({literal(kind)}, {literal(target)},"
        f" {literal(options.value)}, {start}, {stop})"
    )
    row = next(row for row in store.rows("SELECT * FROM event ORDER BY id DESC") if row["id"] not in known)
    if options.json:
        print_json(_event(row, store.now_ns() // 10**6))
    else:
        until = "" if row["until_ms"] is None else f" until {units.age_text(row['until_ms'] * 10**6)}"
        print(f"event {row['id']}: {kind} {target}, from host time {units.age_text(start * 10**6)}{until}")


def _target(store: Store, kind: str, text: str) -> str:
    """The target as the store has it; switches and ports may be named."""
    ports = {
        (row["sw"], row["port"]): row["nic"] or row["client"]
        for row in store.rows("SELECT sw, port, nic, client FROM port")
    }
    aliases = {row["alias"]: row["sw"] for row in store.rows("SELECT alias, sw FROM sw JOIN dvs USING (switch_id)")}
    if kind == "mac-limit" and text in aliases:
        text = str(aliases[text])
    elif kind == "counters-near-wrap":
        found = [at for at, name in ports.items() if name == text]
        switch, _, port = text.partition("/")
        text = f"{found[0][0]}/{found[0][1]}" if len(found) == 1 else f"{aliases.get(switch, switch)}/{port}"
    nics = [row["name"] for row in store.rows("SELECT name FROM nic")]
    cores = {row["lcore"] for row in store.rows("SELECT lcore FROM lcore")}
    problem = unknown_target(kind, text, nics, cores, ports)
    if problem:
        raise BadInput(f"event {kind}: {problem}")
    return text


def _event(row, now_ms: int) -> dict:
    if now_ms < row["from_ms"]:
        stage = "ahead"
    elif row["until_ms"] is not None and now_ms >= row["until_ms"]:
        stage = "over"
    else:
        stage = "done" if row["kind"] == "counters-near-wrap" else "on"
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


def _list_events(store: Store, as_json: bool) -> None:
    now = store.now_ns() // 10**6
    rows = [_event(row, now) for row in store.rows("SELECT * FROM event ORDER BY id")]
    if as_json:
        print_json(rows)
    else:
        print_table(rows, ["id", "event", "target", "value", "from", "until", "stage"], "no events")


def _end_event(store: Store, text: str) -> None:
    rows = store.rows("SELECT * FROM event WHERE id = ?", int(text) if text.isdecimal() else -1)
    if not rows:
        raise Failed(f'there is no event "{text}"')
    stage = _event(rows[0], store.now_ns() // 10**6)["stage"]
    if stage == "ahead":
        store.apply(f"DELETE FROM event WHERE id = {rows[0]['id']}")
    elif stage == "on":
        clock = store.row("SELECT * FROM clock")
        lead = 1 if clock["mode"] == "freeze" else max(10, clock["speed_permille"] // 50)
        store.apply(f"UPDATE event SET until_ms = {store.now_ns() // 10**6 + lead} WHERE id = {rows[0]['id']}")
    else:
        raise Failed(f"event {text} is {stage} already")


def log_command(options) -> None:
    store = Store(options.path)
    if options.clear:
        with store.writing() as db:
            count = db.execute("DELETE FROM log").rowcount
        print(f"removed {counted(count, 'lines')}")
        return
    pattern = options.operation or "*"
    rows = store.rows(
        "SELECT * FROM (SELECT * FROM log WHERE operation GLOB ? ORDER BY id DESC LIMIT ?) ORDER BY id",
        pattern,
        -1 if options.lines is None else options.lines,
    )
    if options.json and not options.follow:
        print_json([dict(row) for row in rows])
        return
    last = _print_lines(rows, options.json, 0)
    if not rows and not options.follow:
        print("nothing in the log")
    while options.follow:
        import time

        time.sleep(0.2)
        last = _print_lines(
            store.rows("SELECT * FROM log WHERE id > ? AND operation GLOB ? ORDER BY id", last, pattern),
            options.json,
            last,
        )


def _print_lines(rows, as_json: bool, last: int) -> int:
    import json

    for row in rows:
        if as_json:
            print(json.dumps(dict(row)), flush=True)
        else:
            print(
                f"{units.age_text(row['at_ms'] * 10**6):>12}.{row['at_ms'] % 1000:03}  pid {row['pid']:<7}"
                f" {row['operation']}({row['arguments']}): {row['what']}",
                flush=True,
            )
        last = row["id"]
    return last
