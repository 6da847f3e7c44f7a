"""The commands ls and get: what a path of the description leads to, as it holds now."""

from __future__ import annotations

import argparse
import json
from typing import Any, Mapping

from . import names, values
from .errors import BadInput, nearest
from .export import Description, describe, typed
from .members.base import REQUIRED, Entity
from .members.conversation import CONVERSATION
from .members.host import HOST
from .members.nic import NIC
from .members.port import PORT_ENTITY
from .members.switch import SWITCH
from .nesting import at_key, flat, nested
from .settings import NAMED, find, item_names
from .store import Store
from .table import cell, print_json, print_table

# Ways to say what other keys have
_OTHER_WAYS = ("count", "first", "queues", "core", "pattern.daily")


def get_command(options: argparse.Namespace) -> None:
    """Prints the value of a path."""
    value = get(Store(options.path), options.what, of_types=options.json)
    if options.json:
        print_json(value)
    elif isinstance(value, (dict, list)) or value is None:
        print(json.dumps(value, ensure_ascii=False))
    else:
        print(cell(value))


def ls_command(options: argparse.Namespace) -> None:
    """Prints what is under a path."""
    rows = ls(Store(options.path), options.what or "", of_types=options.json)
    if options.json:
        print_json(rows)
    else:
        print_table([{"key": row["key"], "value": _brief(row["key"], row["value"])} for row in rows], ["key", "value"])


def get(store: Store, path: str, of_types: bool = True, command: str = "get") -> Any:
    """The value of a path of the description, whether it is said or follows from what is.

    of_types: times, rates and speeds as numbers of seconds, packets and bits a second; else as a description has them.
    """
    description = describe(store, every_port=True)
    path = path.rstrip(".")
    head = path.partition(".")[0]
    item, around, keys = find(description, path, command)
    value: Any = item
    if head in NAMED and not around[1:]:
        value = typed(head, item) if of_types else item
    elif head in NAMED:
        value = _nested_values(store, NAMED[head], item, around, of_types)
    else:
        value = _nested_values(store, HOST, description, (), of_types)
    for key in keys:
        if not isinstance(value, dict) or key not in value:
            known = value if isinstance(value, dict) else []
            raise BadInput(f'{command}: {path}: there is no "{key}" here{nearest(key, known)}')
        value = value[key]
    return value


def ls(store: Store, path: str, of_types: bool = True) -> list[dict[str, Any]]:
    """What is under a path: items of a list by the names that paths have for them, or all keys with their values."""
    path = path.rstrip(".")
    value = get(store, path, of_types, "ls")
    if path in NAMED:
        shown = {where: name for name, where in item_names(value, path).items() if where is not None}
        return [{"key": f"{path}.{name}", "value": value[where]} for where, name in shown.items()]
    if not isinstance(value, dict):
        return [{"key": path, "value": value}]
    prefix = f"{path}." if path else ""
    top = value if path else {key: {} if key in NAMED and not item else item for key, item in value.items()}
    return [
        {"key": prefix + key, "value": item}
        for name, part in top.items()
        for key, item in (flat({name: part}) if name not in NAMED else [(name, part)])
    ]


def _brief(key: str, value: Any) -> str:
    """A line about a value: of something with a name, what a description says of it; of a list of them, how many."""
    if key in NAMED:
        return f"{len(value or ())}; see: ryn-sim ls {key}"
    if isinstance(value, dict):
        left_out = ("switch", "port", "alias", "id", "properties")
        known = {name: item for name, item in value.items() if name not in left_out}
        return " ".join(f"{name}={cell(item)}" for name, item in flat(known)) or "-"
    if isinstance(value, list) and value and isinstance(value[0], dict):
        return f"{len(value)} of them"
    return cell(value)


def _nested_values(
    store: Store, entity: Entity, item: Description, around: tuple[Any, ...], of_types: bool
) -> dict[str, Any]:
    value = nested(values_of(store, entity, item, around))
    if of_types:
        (value,) = typed(around[0] if around else "", [value])
    return value


def values_of(store: Store, entity: Entity, item: Description, around: tuple[Any, ...]) -> dict[str, Any]:
    """All of an item's values by dotted key: as the store has them, else as the description, else the defaults."""
    rows = _rows(store, entity, item, around)
    found: dict[str, Any] = {}
    for member in entity.members:
        if not member.key or member.key in _OTHER_WAYS:
            continue
        if member.table in rows:
            stored = rows[member.table][member.column]
            found[member.key] = None if stored is None else member.kind.show(stored)
        else:
            said = at_key(item, member.key)
            # What no property is kept for has none: such defaults only go along with others
            usual = None if member.default is REQUIRED or member.key.startswith("stored.") else member.default
            found[member.key] = usual if said is None else said
    return {**found, **_derived(store, entity, rows)}


def _derived(store: Store, entity: Entity, rows: Mapping[str, Mapping[str, Any]]) -> dict[str, Any]:
    """What a description need not say and other tables have: weights, uplinks and properties."""
    if entity is HOST:
        weights = store.rows("SELECT * FROM weight ORDER BY position")
        return {
            f"balancer.{group}.{name}": row[column]
            for group, column in (("weights", "value"), ("default_weights", "default_value"))
            for name, row in zip(names.WEIGHTS, weights)
        }
    if entity is PORT_ENTITY:
        of = (rows["port"]["sw"], rows["port"]["port"])
        query = (
            "SELECT uplink, nic FROM port_uplink AS own LEFT JOIN port ON port.sw = own.sw AND port.port = uplink"
            " WHERE own.sw = ? AND own.port = ? ORDER BY seq"
        )
        return {"teaming.uplinks": [row["nic"] or row["uplink"] for row in store.rows(query, *of)]}
    if entity is SWITCH:
        properties: dict[str, Any] = {"host": {}, "global": {}, "ports": {}}
        for row in store.rows("SELECT * FROM prop WHERE switch_id = ? ORDER BY port, key", rows["dvs"]["switch_id"]):
            keys = properties["ports"].setdefault(row["port"], {}) if row["port"] else properties[row["scope"]]
            keys[row["key"]] = values.to_text(row["value"])
        sw = rows["sw"]["sw"] if "sw" in rows else None
        uplinks = store.rows("SELECT nic FROM port WHERE sw = ? AND nic IS NOT NULL ORDER BY port", sw)
        return {**{f"properties.{scope}": found for scope, found in properties.items()},
                "uplinks": [row["nic"] for row in uplinks]}  # fmt: skip
    return {}


def _rows(store: Store, entity: Entity, item: Description, around: tuple[Any, ...]) -> dict[str, Mapping[str, Any]]:
    """The rows that an item was compiled into, by table."""
    if entity is HOST:
        return {table: store.row(f"SELECT * FROM {table}") for table in ("host", "clock", "balancer")}
    if entity is NIC:
        return {"nic": store.row("SELECT * FROM nic WHERE name = ?", around[1])}
    if entity is CONVERSATION:
        return {"conversation": store.row("SELECT * FROM conversation ORDER BY id LIMIT 1 OFFSET ?", around[1])}
    if entity is PORT_ENTITY:
        query = (
            "SELECT port.* FROM port JOIN sw USING (sw) JOIN dvs USING (switch_id) WHERE alias = ? AND port.port = ?"
        )
        return {"port": store.row(query, item["switch"], item["port"])}
    rows = {"dvs": store.row("SELECT * FROM dvs WHERE alias = ?", item["alias"])}
    sw = store.rows("SELECT * FROM sw WHERE switch_id = ?", rows["dvs"]["switch_id"])
    return rows | ({"sw": sw[0]} if sw else {})
