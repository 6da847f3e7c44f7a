"""Turns a description into the rows of a store: the host and its hardware, its switches and their properties.

compile_ports.py does the ports and compile_traffic.py what refers to them. Each function takes what has been compiled
so far, adds rows to it, and reports what does not fit together; compiled() puts them in their order.
"""

from __future__ import annotations

import struct
from dataclasses import dataclass, field
from typing import Any, Callable, Mapping

from . import names, values
from .check import Problems, read, read_list, shown
from .document import Document, Path
from .kinds import LCORE, Wrong
from .members import COLUMNS, MEMBERS, TABLE
from .members import default as default_of
from .members import member as member_of
from .members.host import HOST
from .members.nic import NIC
from .members.node import NODE_ENTITY
from .members.switch import SWITCH

Row = dict[str, Any]
Rows = dict[str, list[Row]]
Progress = Callable[[int, int], None]


@dataclass
class Switch:
    """A switch of the description."""

    alias: str
    id: str
    path: Path
    given: Mapping[str, Any]
    number: int | None = None  # None: it has no datapath
    properties: dict[tuple[str, str, str], bytes] = field(default_factory=dict)


@dataclass
class Port:
    """A port of a switch, its row and where it came from."""

    row: Row
    switch: Switch
    path: Path
    given: Mapping[str, Any]


PortKey = tuple[int, int]  # switch number, port number


@dataclass
class Host:
    """What has been compiled so far."""

    description: Mapping[str, Any]
    given: Mapping[str, Any]
    problems: Problems
    progress: Progress
    rows: Rows = field(default_factory=lambda: {table: [] for table in TABLE})
    cores: set[int] = field(default_factory=set)
    nics: set[str] = field(default_factory=set)
    switches: dict[str, Switch] = field(default_factory=dict)  # by alias
    ports: dict[PortKey, Port] = field(default_factory=dict)
    by_name: dict[str, list[PortKey]] = field(default_factory=dict)
    # Parts of the description of which an item could not be read: what refers to them may well mean that item.
    unread: set[str] = field(default_factory=set)

    def items(self, part: str) -> list[Any]:
        """The items of a list of the description; none if it is no list."""
        found = self.given.get(part) or []
        return found if isinstance(found, list) else []

    def missing(self, part: str, path: Path, message: str) -> None:
        """Reports that something of another part of the description, which is referred to, is not there."""
        if part not in self.unread:
            self.problems.add(path, message)


def row_of(table: str, given: Mapping[str, Any], **columns: Any) -> Row:
    """A row: what the description gives, else the columns given here, else the members' defaults."""
    written = COLUMNS[table]
    row = {}
    for member in MEMBERS[table]:
        if member.column in written:
            usual = columns.get(member.column, member.stored_default)
            row[member.column] = given.get(member.key, usual) if member.key else usual
    return row


def compiled(document: Document, profile: str, progress: Progress = lambda done, of: None) -> Rows:
    """The rows of the host that a document describes. BadInput names all that is wrong with it."""
    problems = Problems(document)
    host = compile_host(document, profile, problems, progress)
    problems.raise_any()
    return host.rows


def compile_host(
    document: Document, profile: str, problems: Problems, progress: Progress = lambda done, of: None
) -> Host:
    """As compiled(), but leaves it to the caller what to do about the problems."""
    from .compile_ports import add_ports, team_up
    from .compile_traffic import add_events, add_faults, add_mac_entries, add_mirrors, add_traffic

    given = read(HOST, document.value, (), problems)
    if given is None:
        given = {}
        if isinstance(document.value, dict):  # what else is wrong can be said all the same
            given = {key: value for key, value in document.value.items() if isinstance(value, (list, dict))}
    description = document.value if isinstance(document.value, dict) else {}
    host = Host(description, given, problems, progress)
    add_host(host, profile)
    add_cores(host)
    add_nics(host)
    add_switches(host)
    add_ports(host)
    team_up(host)
    add_mac_entries(host)
    add_mirrors(host)
    add_traffic(host)
    add_faults(host)
    add_events(host)
    return host


def add_host(host: Host, profile: str) -> None:
    """The host, its clock, and the balancer with its weights."""
    given = host.given
    host.rows["host"].append(row_of("host", given, id=1, profile=profile))
    host.rows["clock"].append(row_of("clock", given, id=1))
    clock, period = host.rows["clock"][0], given.get("balancer.period", default_of("balancer", "period_ms"))
    uptime = clock["base_host_ns"] // 10**6
    # The last look before the host was made, so that the first one after it does not depend on who looks when
    tick = max(0, uptime - uptime % period - period)
    host.rows["balancer"].append(row_of("balancer", given, id=1, tick_ms=tick))
    for position, (name, usual) in enumerate(zip(names.WEIGHTS, names.DEFAULT_WEIGHTS)):
        default = given.get(f"balancer.default_weights.{name}", usual)
        value = given.get(f"balancer.weights.{name}", default)
        host.rows["weight"].append(row_of("weight", {}, position=position, value=value, default_value=default))


def add_cores(host: Host) -> None:
    """The cores of all NUMA nodes."""
    for index, node in enumerate(host.items("numa")):
        path: Path = ("numa", index)
        given = read(NODE_ENTITY, node, path, host.problems)
        if given is None:
            host.unread.add("cores")
            continue
        lcores = read_list(given["lcores"], LCORE, (*path, "lcores"), host.problems)
        if not given["lcores"]:
            host.problems.add((*path, "lcores"), "expected a list of core numbers, got an empty list")
        for position, lcore in enumerate(lcores):
            if lcore in host.cores:
                host.problems.add((*path, "lcores", position), f"core {lcore} is listed already")
                continue
            host.cores.add(lcore)
            host.rows["lcore"].append(row_of("lcore", given, lcore=lcore, node=index))


def add_nics(host: Host) -> None:
    """The NICs, with what those of their level offer."""
    described = host.given.get("nics")
    nodes = len(host.items("numa"))
    for name, nic in (described if isinstance(described, dict) else {}).items():
        path: Path = ("nics", name)
        host.nics.add(name)
        try:
            member_of("nic", "name").kind.parse(name)
        except Wrong as error:
            host.problems.add(path, f"expected {error}")
        if name == "uplink":
            host.problems.add(path, 'a NIC cannot be called "uplink": as the end of a conversation it means any uplink')
        given = read(NIC, nic, path, host.problems)
        if given is None:
            continue
        if nodes and given["numa"] >= nodes:
            expected = f"one of the {nodes} NUMA nodes (from 0)"
            host.problems.add((*path, "numa"), f"expected {expected}, got {given['numa']}")
        level = given.get("fpo", 0)
        usual = {f"fpo_{limit}": number for limit, number in zip(names.FPO_LIMITS, names.FPO_DEFAULTS[level])}
        host.rows["nic"].append(row_of("nic", given, name=name, affinity=given["numa"], **usual))


# What only a switch of the datapath has
_DATAPATH = {
    member.key.partition(".")[0]
    for member in SWITCH.members
    if member.key and member.table == "sw" and member.key != "name"
} | {"number", "uplinks", "mirrors", "mac_entries"}


def add_switches(host: Host) -> None:
    """The switches and their properties; ports come later."""
    described = host.items("switches")
    taken = {item["number"] for item in described if isinstance(item, dict) and isinstance(item.get("number"), int)}
    for index, item in enumerate(described):
        path: Path = ("switches", index)
        given = read(SWITCH, item, path, host.problems)
        if given is None:
            host.unread.add("switches")
            continue
        alias = given["alias"]
        if alias in host.switches:
            host.problems.add((*path, "alias"), f'the alias "{alias}" is taken already')
            continue
        switch_id = given.get("id") or values.switch_id(str(host.given.get("host", "")), alias)
        if any(other.id == switch_id for other in host.switches.values()):
            host.problems.add((*path, "id"), f'the identifier "{switch_id}" is taken already')
            continue
        switch = host.switches[alias] = Switch(alias, switch_id, path, given)
        host.rows["dvs"].append(row_of("dvs", given, switch_id=switch_id))
        _add_properties(host, switch, item)
        if given.get("datapath", 1):
            _add_datapath(host, switch, taken)
        else:
            for key in item:
                if key in _DATAPATH:
                    host.problems.add((*path, key), "only a switch of the datapath has this (datapath is false)")


def _add_datapath(host: Host, switch: Switch, taken: set[int]) -> None:
    path, given = switch.path, switch.given
    number = given.get("number")
    if number is None:
        number = next((free for free in range(16) if free not in taken), None)
        if number is None:
            host.problems.add(path, "expected at most 16 switches of the datapath")
            return
        taken.add(number)
    elif any(other.number == number for other in host.switches.values()):
        host.problems.add((*path, "number"), f"number {number} is taken already")
        return
    switch.number = number
    name = given.get("name", switch.alias)
    if any(row["name"] == name for row in host.rows["sw"]):
        key = "name" if "name" in given else "alias"
        host.problems.add((*path, key), f'the portset name "{name}" is taken already')
        return
    host.rows["sw"].append(row_of("sw", given, sw=number, switch_id=switch.id, name=name))


def _add_properties(host: Host, switch: Switch, item: Mapping[str, Any]) -> None:
    """A switch's properties: those that its own keys stand for, then what `properties` adds, changes or removes."""
    properties = switch.properties
    properties.update(implied_properties(switch.given))
    for scope in ("host", "global"):
        described = switch.given.get(f"properties.{scope}", {})
        _set_properties(host, properties, described, (scope, ""), (*switch.path, "properties", scope))
    for port, described in switch.given.get("properties.ports", {}).items():
        at = (*switch.path, "properties", "ports", port)
        if isinstance(described, dict):
            _set_properties(host, properties, described, ("port", port), at)
        else:
            host.problems.add(at, f"expected a mapping of property keys to values, got {shown(described)}")
    for (scope, port, key), value in properties.items():
        row = dict(scope=scope, switch_id=switch.id, port=port, key=key, value=value)
        host.rows["prop"].append(row_of("prop", {}, **row))


def _set_properties(
    host: Host,
    properties: dict[tuple[str, str, str], bytes],
    described: Mapping[str, Any],
    of: tuple[str, str],
    path: Path,
) -> None:
    for key, text in described.items():
        properties.pop((*of, key), None)
        if text is None:
            continue
        try:
            properties[(*of, key)] = values.to_bytes(text)
        except ValueError:
            host.problems.add((*path, key), f"expected {_value_form(text)}, got {shown(text)}")


def _value_form(text: Any) -> str:
    if isinstance(text, str) and text.startswith("u32:"):
        return "numbers from 0 to 4294967295"
    return "a property's value: text:WORDS (with its closing NUL), hex:00ff..., u32:1,2,... or null for none"


def implied_properties(given: Mapping[str, Any]) -> dict[tuple[str, str, str], bytes]:
    """The properties that a switch's own keys stand for, by (scope, port, key)."""
    properties = {("global", "", names.ALIAS): given["alias"].encode() + b"\0"}
    if "name" in given:
        properties["host", "", names.PORTSET] = given["name"].encode() + b"\0"
    if "marker" in given:
        properties["global", "", names.MARKER] = given["marker"].encode() + b"\0"
    if "stored.fpo" in given:
        properties["host", "", names.STORED_FPO] = struct.pack("<I", given["stored.fpo"])
    if "stored.burst" in given:
        properties["host", "", names.STORED_BURST] = struct.pack("<II", 0, given["stored.burst"])
    if "stored.numa_team" in given:
        properties["host", "", names.STORED_TEAMING] = struct.pack("<IB", 0, given["stored.numa_team"] & 255)
    options = {key for key in given if key.startswith("stored.balancer.")}
    if options:
        numbers = [
            given.get(member.key, member.stored_default)
            for member in SWITCH.members
            if member.key.startswith("stored.balancer.")
        ]
        properties["host", "", names.STORED_BALANCER] = struct.pack("<6I", 0, *numbers)
    return properties


def literal(value: Any) -> str:
    """A value as SQL has it."""
    if value is None:
        return "NULL"
    if isinstance(value, bytes):
        return f"x'{value.hex()}'"
    if isinstance(value, str):
        return "'" + value.replace("'", "''") + "'"
    return str(int(value))


def sql(rows: Rows) -> str:
    """The rows as INSERT statements, for a store that schema.sql has just made."""
    parts = []
    for table, columns in COLUMNS.items():
        if rows.get(table):
            tuples = ",\n".join(
                "  (" + ", ".join(literal(row[column]) for column in columns) + ")" for row in rows[table]
            )
            parts.append(f"INSERT INTO {table} ({', '.join(columns)}) VALUES\n{tuples};\n")
    return "\n".join(parts)
