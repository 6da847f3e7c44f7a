"""The command set: changes the host by way of its description, so that what may be set and how is said in one place."""

from __future__ import annotations

import argparse
import copy
from typing import Any, Mapping, Sequence, Tuple

from .check import Problems
from .compile import Rows, compile_host, literal
from .document import Document, path_text, value_of
from .errors import BadInput, Failed, nearest
from .export import Description, describe
from .members import COLUMNS, PARTS, TABLE
from .store import Store
from .table import counted, print_json

# What a setting may not change: other commands do, or the host would be another one.
_ELSEWHERE = {
    "clock": "use: ryn-sim clock",
    "faults": "use: ryn-sim fault",
    "events": "use: ryn-sim event",
    "numa": "describe another host and use: ryn-sim init",
    "seed": "use: ryn-sim init --seed",
}
# The parts of a description whose items have names in paths, and a setting of each
_EXAMPLES = {"switches": "mtu=9000", "ports": "vlan=200", "traffic": "pps=80k", "nics": "crc_ppm=100"}
NAMED = {part: PARTS[part] for part in _EXAMPLES}
_STAYING = {part: {member.key for member in entity.members if member.stays} for part, entity in NAMED.items()}
# Tables that a setting changes: the clock, faults and events have commands of their own.
_SETTABLE = [table for table in COLUMNS if table not in ("clock", "fault", "fault_where", "event")]
_KEPT_COLUMNS = {"tick_ms"}  # compiled, but the stand-ins go on from there

Path = Tuple[Any, ...]


def set_command(options: argparse.Namespace) -> None:
    """Changes settings."""
    store = Store(options.path)
    changed = set_all(store, options.settings)
    if options.json:
        print_json({"changed": changed})
    else:
        print(f"changed {counted(changed, 'rows')}" if changed else "nothing to change")


def set_all(store: Store, settings: Sequence[str] | Mapping[str, Any]) -> int:
    """Makes all of the settings, or none: a list of PATH=VALUE, the values in YAML, or a mapping of paths to values.

    Answers how many rows of the store have changed.
    """
    before = describe(store, every_port=True, by_number=True)
    after = copy.deepcopy(before)
    typed: dict[Path, str] = {}
    refused: list[str] = []
    for setting in settings.items() if isinstance(settings, Mapping) else settings:
        try:
            name, value = _parsed(setting) if isinstance(setting, str) else setting
            path = _set(after, name, value)
        except BadInput as error:
            refused.append(str(error))
            continue
        if path in typed:
            refused.append(f"set: {name}: this path is given twice")
        typed[path] = name
    profile = store.row("SELECT profile FROM host")[0]
    old = compile_host(*_document(before, profile)).rows
    document = Document.of(after, "set")
    problems = Problems(document)
    new = compile_host(document, profile, problems).rows
    refused += _refused(problems, typed)
    if refused:
        raise BadInput("\n".join(dict.fromkeys(refused)))
    statements = _difference(old, new)
    conversations = [row["id"] for row in store.rows("SELECT id FROM conversation ORDER BY id")]
    if conversations != list(range(1, len(conversations) + 1)) and any("conversation" in one for one in statements):
        raise Failed("the host's conversations are not numbered from 1 on; export it and make it anew to change them")
    if statements:
        store.apply(";\n".join(statements))
    return len(statements)


def _document(description: Description, profile: str) -> tuple[Document, str, Problems]:
    document = Document.of(copy.deepcopy(description), "the host")
    return document, profile, Problems(document)


def _refused(problems: Problems, typed: Mapping[Path, str]) -> list[str]:
    """What is wrong, by the typed paths that it is about; what no path is about follows from all of them."""
    own, others = [], []
    for path, message in sorted(((path, message) for _, path, message in problems.found), key=str):
        near = [prefix for prefix in typed if path[: len(prefix)] == prefix or prefix[: len(path)] == path]
        if near:
            prefix = max(near, key=len)
            rest = "".join(f"[{part}]" if isinstance(part, int) else f".{part}" for part in path[len(prefix) :])
            name = typed[prefix].rsplit(".", max(0, len(prefix) - len(path)))[0]
            own.append(f"set: {name}{rest}: {message}")
        else:
            others.append((path, message))
    if own or not others:
        return own
    path, message = others[0]
    more = f" ({len(others) - 1} more like this)" if len(others) > 1 else ""
    what = ", ".join(typed.values())
    return [f"set: {what}: the rest of the host does not allow it: {path_text(path)}: {message}{more}"]


def _parsed(text: str) -> tuple[str, Any]:
    """The path and the value of PATH=VALUE."""
    typed, equals, value_text = text.partition("=")
    if not equals or not typed:
        raise BadInput(f'set: expected PATH=VALUE, got "{text}"')
    return typed, value_of(value_text, f"set: {typed}") if value_text.strip() else ""


def _set(description: Description, typed: str, value: Any) -> Path:
    """Puts one setting into the description; answers where."""
    head = typed.partition(".")[0]
    if head in _ELSEWHERE:
        raise BadInput(f"set: {typed}: not set here; {_ELSEWHERE[head]}")
    item, around, keys = find(description, typed, "set")
    if not keys:
        name = typed.rstrip(".") + ("" if around[1:] else ".NAME")
        raise BadInput(f"set: {typed}: expected a path further in, such as {name}.{_EXAMPLES[head]}")
    if around and ".".join(keys) in _STAYING[head] and item.get(keys[0]) != value:
        raise BadInput(f"set: {typed}: this stays as it is; describe another host and use: ryn-sim init")
    for key in keys[:-1]:
        if not isinstance(item, dict) or (key in item and not isinstance(item[key], dict)):
            raise BadInput(f'set: {typed}: there is nothing within "{key}"')
        item = item.setdefault(key, {})
    if not isinstance(item, dict):
        raise BadInput(f'set: {typed}: there is nothing within "{typed.rpartition(".")[0]}"')
    if value is None and "properties" not in keys:
        item.pop(keys[-1], None)
    else:
        item[keys[-1]] = value
    return (*around, *keys)


def find(description: Description, typed: str, command: str) -> tuple[Any, Path, list[str]]:
    """The thing that a path names, where it stands in the description, and the keys of the path within it."""
    head, _, rest = typed.partition(".")
    item: Any
    around: Path
    if head in _EXAMPLES and rest:
        item, where, rest = _named(description.get(head, {} if head == "nics" else []), head, rest, typed, command)
        keys, around = rest.split(".") if rest else [], (head, where)
    elif head in _EXAMPLES:
        return description.get(head, {} if head == "nics" else []), (head,), []
    else:
        item, around, keys = description, (), typed.split(".") if typed else []
    # Keys of properties have dots in them: all behind host, global or ports.NAME is one key.
    if "properties" in keys:
        at = keys.index("properties")
        depth = at + 3 if keys[at + 1 : at + 2] == ["ports"] else at + 2
        keys = keys[:depth] + ([".".join(keys[depth:])] if keys[depth:] else [])
    return item, around, keys


def item_names(items: Any, head: str) -> dict[str, Any]:
    """The items of a part of a description by the names that paths know them by; None where a name is not one's own."""
    if head == "nics":
        return {name: name for name in items}
    if head == "switches":
        return {item["alias"]: index for index, item in enumerate(items)}
    if head == "traffic":
        return {str(index): index for index in range(len(items))}
    known: dict[str, Any] = {}
    for index, item in enumerate(items):
        known[f"{item['switch']}/{item['port']}"] = index
        name = item.get("nic") or item.get("vm")
        if name:
            known[name] = index if name not in known else None
    return known


def _named(items: Any, head: str, rest: str, typed: str, command: str) -> tuple[Any, Any, str]:
    """The item that a path names, its item, and what of the path is left. Names may have dots; the longest counts."""
    known = item_names(items, head)
    fits = [name for name in known if rest == name or rest.startswith(name + ".")]
    if not fits:
        name = rest.partition(".")[0]
        listed = [known_name for known_name in known if "/" not in known_name] if head != "traffic" else []
        limit = f"; known: 0 to {len(known) - 1}" if head == "traffic" and known else nearest(name, listed)
        raise BadInput(f'{command}: {typed}: there is no "{name}" among {head}{limit}')
    name = max(fits, key=len)
    where = known[name]
    if where is None:
        raise BadInput(f'{command}: {typed}: several ports are called "{name}"; name it by SWITCH/NUMBER')
    return items[where], where, rest[len(name) + 1 :]


def _difference(old: Rows, new: Rows) -> list[str]:
    """The statements that make the new rows of the old ones."""
    deletes: list[str] = []
    changes: list[str] = []
    for table in _SETTABLE:
        key = TABLE[table].key
        columns = [column for column in COLUMNS[table] if column not in _KEPT_COLUMNS]
        before = {tuple(row[column] for column in key): row for row in old[table]}
        after = {tuple(row[column] for column in key): row for row in new[table]}
        for found, row in before.items():
            where = " AND ".join(f"{column} = {literal(value)}" for column, value in zip(key, found))
            if found not in after:
                deletes.insert(0, f"DELETE FROM {table} WHERE {where}")
                continue
            unlike = [column for column in columns if after[found][column] != row[column]]
            if unlike:
                sets = ", ".join(f"{column} = {literal(after[found][column])}" for column in unlike)
                changes.append(f"UPDATE {table} SET {sets} WHERE {where}")
        for found, row in after.items():
            if found not in before:
                given = ", ".join(literal(row[column]) for column in columns)
                changes.append(f"INSERT INTO {table} ({', '.join(columns)}) VALUES ({given})")
    return deletes + changes
