"""`rynctl diff BEFORE AFTER`: two saved outputs of -j, row by row."""

from __future__ import annotations

import datetime
import json
from typing import TYPE_CHECKING, Any, Dict, Iterator, List, Tuple

from rynctl.columns import COLUMNS
from rynctl.errors import DONE, UsageError
from rynctl.render import Row
from rynctl.rows import row

if TYPE_CHECKING:
    from rynctl.cli import Context

# What tells the rows of a table apart: those of its columns that stand here.
KEYS = (
    "number",
    "name",
    "switch",
    "port",
    "dvport",
    "core",
    "side",
    "queue",
    "line",
    "index",
    "filter",
    "device",
    "mac",
    "vlan",
    "object",
    "key",
    "record",
    "peer",
    "protocol",
    "src",
    "sport",
    "dst",
    "dport",
    "match",
    "check",
)


def saved(path: str) -> Dict[str, Any]:
    """A saved output; UsageError for what is none."""
    try:
        with open(path, encoding="utf-8") as file:
            output = json.load(file)
    except (json.JSONDecodeError, UnicodeDecodeError) as error:
        raise UsageError(f"{path} is no output of rynctl -j: {error}") from None
    if not isinstance(output, dict) or not isinstance(output.get("data"), list) or "schema" not in output:
        raise UsageError(f"{path} is no output of rynctl -j")
    if not all(isinstance(each, dict) for each in output["data"]):
        raise UsageError(f"{path} has rows that are no objects")
    return output


def seconds(output: Dict[str, Any], path: str) -> float:
    try:
        return datetime.datetime.fromisoformat(str(output["time"]).replace("Z", "+00:00")).timestamp()
    except (KeyError, ValueError):
        raise UsageError(f"{path} does not say when it was made") from None


def keyed(data: List[Row]) -> Dict[Tuple[Any, ...], Row]:
    """The rows by their keys; rows that share one are told apart by their order."""
    found: Dict[Tuple[Any, ...], Row] = {}
    for each in data:
        key = tuple((name, str(each[name])) for name in KEYS if name in each)
        place = 0
        while (*key, place) in found:
            place += 1
        found[(*key, place)] = each
    return found


def differences(before: Dict[str, Any], after: Dict[str, Any], elapsed: float) -> Iterator[Row]:
    table = str(after["schema"]).split("/")[1] if str(after["schema"]).count("/") == 2 else ""
    counters = {column.name for column in COLUMNS.get(table, ()) if column.type == "count"}
    old, new = keyed(before["data"]), keyed(after["data"])
    for key in [*old, *(key for key in new if key not in old)]:
        name = " ".join(f"{name}={value}" for name, value in key[:-1])
        if key not in new:
            yield row("diff", "removed", name, None, None, None, None, None)
        elif key not in old:
            yield row("diff", "added", name, None, None, None, None, None)
        else:
            for column in [*old[key], *(column for column in new[key] if column not in old[key])]:
                was: Any = old[key].get(column)
                now: Any = new[key].get(column)
                if was == now and type(was) is type(now):
                    continue
                numbers = all(isinstance(each, (int, float)) and not isinstance(each, bool) for each in (was, now))
                delta = now - was if numbers else None
                rate = None
                if column in counters and delta is not None and delta >= 0 and elapsed > 0:
                    rate = round(delta / elapsed, 3)
                yield row(
                    "diff",
                    "changed" if delta is None or delta >= 0 or column not in counters else "reset",
                    name,
                    column,
                    was,
                    now,
                    delta,
                    rate,
                )


def run(context: Context) -> int:
    paths = context.options.before, context.options.after
    before, after = map(saved, paths)
    if before["schema"] != after["schema"]:
        raise UsageError(f"{paths[0]} holds {before['schema']}, {paths[1]} {after['schema']}")
    elapsed = seconds(after, paths[1]) - seconds(before, paths[0])
    context.out.backend = after.get("backend")
    context.out.rows(differences(before, after, elapsed))
    return DONE
