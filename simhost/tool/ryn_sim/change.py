"""The command set: changes the host by way of its description, so that what may be set and how is said in one place."""

from __future__ import annotations

from . import places
from .check import check_form
from .compile import COLUMNS, Compiler, literal
from .document import Document, _Loader
from .errors import BadInput, Failed, nearest
from .export import describe
from .store import Store
from .table import counted

# The columns by which a table's rows are known.
_KEYS = {
    "host": ("id",),
    "clock": ("id",),
    "lcore": ("lcore",),
    "nic": ("name",),
    "dvs": ("switch_id",),
    "prop": ("scope", "switch_id", "port", "key"),
    "sw": ("sw",),
    "port": ("sw", "port"),
    "port_uplink": ("sw", "port", "seq"),
    "port_mcast": ("sw", "port", "seq"),
    "port_vlan_range": ("sw", "port", "seq"),
    "mirror": ("sw", "session"),
    "mirror_port": ("sw", "session", "role", "port"),
    "mirror_vlan": ("sw", "session", "seq"),
    "mac_entry": ("sw", "port", "mac", "vlan"),
    "conversation": ("id",),
    "weight": ("position",),
    "balancer": ("id",),
}
# What a setting may not change: other commands do, or the host would be another one.
_ELSEWHERE = {
    "clock": "use: ryn-sim clock",
    "faults": "use: ryn-sim fault",
    "events": "use: ryn-sim event",
    "numa": "a host's cores stay; describe another host and use: ryn-sim init",
    "seed": "a host's seed stays; use: ryn-sim init --seed",
}


def set_command(options) -> None:
    store = Store(options.path)
    before = describe(store, every_port=True)
    after = _copy(before)
    for text in options.settings:
        _set(after, text)
    profile = store.row("SELECT profile FROM host")[0]
    old = Compiler(Document.of(_copy(before), "the host"), profile).rows
    document = Document.of(after, "set")
    check_form(document, places.read_data("host.schema.json"))
    statements = _difference(old, Compiler(document, profile).rows)
    conversations = [row["id"] for row in store.rows("SELECT id FROM conversation ORDER BY id")]
    if conversations != list(range(1, len(conversations) + 1)) and any("conversation" in one for one in statements):
        raise Failed("the host's conversations are not numbered from 1 on; export it and make it anew to change them")
    if statements:
        store.apply(";\n".join(statements))
    print(f"changed {counted(len(statements), 'rows')}" if statements else "nothing to change")


def _copy(value):
    if isinstance(value, dict):
        return {key: _copy(item) for key, item in value.items()}
    return [_copy(item) for item in value] if isinstance(value, list) else value


def _set(description: dict, text: str) -> None:
    path_text, equals, value_text = text.partition("=")
    if not equals or not path_text:
        raise BadInput(f'set: expected PATH=VALUE, got "{text}"')
    value = Document(value_text or "''", f"set: {path_text}").value if value_text.strip() else ""
    head, _, rest = path_text.partition(".")
    if head in _ELSEWHERE:
        raise BadInput(f"set: {head} is not set here; {_ELSEWHERE[head]}")
    place = description
    if head in ("switches", "ports", "traffic", "nics"):
        name, keys = _named(description.get(head, {} if head == "nics" else []), head, rest, path_text)
        place, keys = name, keys.split(".") if keys else []
        if not keys:
            raise BadInput(f"set: {path_text}: expected a key behind it, such as {path_text}.{_EXAMPLES[head]}")
    else:
        keys = path_text.split(".")
    # Keys of properties have dots in them: all behind host, global or ports.NAME is one key.
    if "properties" in keys:
        at = keys.index("properties")
        depth = at + 3 if keys[at + 1 : at + 2] == ["ports"] else at + 2
        keys = keys[:depth] + ([".".join(keys[depth:])] if keys[depth:] else [])
    for key in keys[:-1]:
        if key not in place:
            place[key] = {}
        if not isinstance(place[key], dict):
            raise BadInput(f'set: {path_text}: there is nothing within "{key}"')
        place = place[key]
    if value is None and "properties" not in keys:
        place.pop(keys[-1], None)
    else:
        place[keys[-1]] = value


_EXAMPLES = {"switches": "mtu=9000", "ports": "vlan=200", "traffic": "pps=80k", "nics": "crc_ppm=100"}


def _named(items, head: str, rest: str, path_text: str):
    """The item that the path names, and what of the path is left. Names may have dots; the longest one counts."""
    if head == "nics":
        known = {name: item for name, item in items.items()}
    elif head == "switches":
        known = {item["alias"]: item for item in items}
    elif head == "traffic":
        known = {str(index): item for index, item in enumerate(items)}
    else:
        known = {}
        for item in items:
            known[f"{item['switch']}/{item['port']}"] = item
            name = item.get("nic") or item.get("vm")
            if name:
                known[name] = item if name not in known else None
    fits = [name for name in known if rest == name or rest.startswith(name + ".")]
    if not fits:
        name = rest.partition(".")[0]
        listed = [known_name for known_name in known if "/" not in known_name] if head != "traffic" else []
        limit = f"; known: 0 to {len(known) - 1}" if head == "traffic" and known else nearest(name, listed)
        raise BadInput(f'set: {path_text}: there is no "{name}" among {head}{limit}')
    name = max(fits, key=len)
    if known[name] is None:
        raise BadInput(f'set: {path_text}: several ports are called "{name}"; name it by SWITCH/NUMBER')
    return known[name], rest[len(name) + 1 :]


def _difference(old: dict, new: dict) -> list[str]:
    """The statements that make the new rows of the old ones."""
    deletes, changes = [], []
    for table, key in _KEYS.items():
        columns = COLUMNS[table]
        places_of_key = [columns.index(column) for column in key]
        before = {tuple(row[place] for place in places_of_key): row for row in old[table]}
        after = {tuple(row[place] for place in places_of_key): row for row in new[table]}
        for found, row in before.items():
            where = " AND ".join(f"{column} = {literal(value)}" for column, value in zip(key, found))
            if found not in after:
                deletes.insert(0, f"DELETE FROM {table} WHERE {where}")
            elif after[found] != row:
                sets = ", ".join(
                    f"{column} = {literal(value)}"
                    for column, value, was in zip(columns, after[found], row)
                    if value != was
                )
                changes.append(f"UPDATE {table} SET {sets} WHERE {where}")
        for found, row in after.items():
            if found not in before:
                changes.append(f"INSERT INTO {table} ({', '.join(columns)}) VALUES ({', '.join(map(literal, row))})")
    return deletes + changes
