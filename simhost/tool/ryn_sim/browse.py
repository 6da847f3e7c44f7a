"""The commands ls and get: what a path of the description leads to, as it holds now."""

from __future__ import annotations

import argparse
import json
from typing import Any, Mapping

from .errors import BadInput, nearest
from .export import Description, describe
from .members.base import REQUIRED, Entity
from .members.conversation import CONVERSATION
from .members.host import HOST
from .members.nic import NIC
from .members.port import PORT_ENTITY
from .members.switch import SWITCH
from .settings import find, item_names
from .store import Store
from .table import cell, print_json, print_table

_ENTITIES = {"nics": NIC, "switches": SWITCH, "ports": PORT_ENTITY, "traffic": CONVERSATION}


def get_command(options: argparse.Namespace) -> None:
    store = Store(options.path)
    value = get(store, options.what)
    if options.json:
        print_json(value)
    elif isinstance(value, (dict, list)) or value is None:
        print(json.dumps(value, ensure_ascii=False))
    else:
        print(cell(value) if isinstance(value, bool) else value)


def ls_command(options: argparse.Namespace) -> None:
    store = Store(options.path)
    rows = ls(store, options.what or "")
    if options.json:
        print_json(rows)
    else:
        print_table(rows, ["key", "value"])


def get(store: Store, path: str) -> Any:
    """The value of a path of the description, whether it is said or follows from what is."""
    description = describe(store, every_port=True)
    head = path.partition(".")[0]
    value, around, keys = find(description, path, "get")
    entity = _ENTITIES.get(head) if len(around) == 2 else HOST if head not in _ENTITIES else None
    if entity is not None:
        value = _nested(values_of(store, entity, value, around))
    if head in _ENTITIES and not keys and len(around) == 1:
        return description.get(head, {} if head == "nics" else [])
    for key in keys:
        if not isinstance(value, dict) or key not in value:
            known = value if isinstance(value, dict) else []
            raise BadInput(f'get: {path}: there is no "{key}" here{nearest(key, known)}')
        value = value[key]
    return value


def ls(store: Store, path: str) -> list[dict[str, Any]]:
    """What is directly under a path: the items of a list by the names that paths have for them, or keys and values."""
    description = describe(store, every_port=True)
    if path in _ENTITIES:
        items = description.get(path, {} if path == "nics" else [])
        known = item_names(items, path)
        shown = {where: name for name, where in known.items() if where is not None}
        return [{"key": f"{path}.{name}", "value": _about(items[where])} for where, name in shown.items()]
    value = get(store, path) if path else _nested(values_of(store, HOST, description, ()))
    prefix = f"{path}." if path else ""
    if not isinstance(value, dict):
        return [{"key": path, "value": value}]
    return [{"key": prefix + key, "value": _brief(item)} for key, item in value.items()]


def _about(item: Mapping[str, Any]) -> str:
    """A line about an item of a list."""
    left_out = ("switch", "port", "alias", "id", "properties")
    return " ".join(f"{key}={cell(_brief(value))}" for key, value in item.items() if key not in left_out)


def _brief(value: Any) -> Any:
    if isinstance(value, dict):
        return "{" + ", ".join(f"{key}: {cell(_brief(item))}" for key, item in value.items()) + "}"
    if isinstance(value, list) and value and isinstance(value[0], dict):
        return f"{len(value)} of them"
    return value


def values_of(store: Store, entity: Entity, item: Description, around: tuple[Any, ...]) -> dict[str, Any]:
    """All of an item's values by dotted key: as the store has them, else as the description, else the defaults."""
    rows = _rows(store, entity, item, around)
    found: dict[str, Any] = {}
    for member in entity.members:
        if not member.key:
            continue
        if member.table in rows:
            stored = rows[member.table][member.column]
            found[member.key] = None if stored is None else member.kind.show(stored)
        else:
            value = _said(item, member.key)
            usual = None if member.default is REQUIRED else member.default
            found[member.key] = usual if value is None else value
    if entity is PORT_ENTITY:
        for key in ("count", "first", "queues", "core"):  # ways to say what stands elsewhere
            del found[key]
    return found


def _said(item: Any, key: str) -> Any:
    for part in key.split("."):
        item = item.get(part) if isinstance(item, dict) else None
    return item


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


def _nested(values: Mapping[str, Any]) -> dict[str, Any]:
    result: dict[str, Any] = {}
    for key, value in values.items():
        *around, last = key.split(".")
        place = result
        for part in around:
            place = place.setdefault(part, {})
        place[last] = value
    return result
