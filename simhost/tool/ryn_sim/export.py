"""Turns a store back into a description: compiled again, it gives the same rows, but for counts and history."""

from __future__ import annotations

import struct
from typing import Any, Mapping, Sequence

from . import names, values
from .check import read_known
from .compile import implied_properties
from .compile_ports import default_uplinks
from .compile_traffic import conversation_defaults
from .members import PARTS
from .members.base import Entity, Member
from .members.conversation import CONVERSATION
from .members.event import EVENT_ENTITY
from .members.fault import FAULT
from .members.host import HOST
from .members.mac_entry import MAC_ENTRY
from .members.mirror import MIRROR
from .members.nic import NIC
from .members.node import NODE_ENTITY
from .members.port import PORT_ENTITY
from .members.switch import SWITCH
from .store import Store

Row = Mapping[str, Any]
Description = dict[str, Any]


def entry_of(
    entity: Entity, rows: Mapping[str, Row], further: Mapping[str, Any], usual: Mapping[str, Any]
) -> Description:
    """One mapping of a description.

    rows: the rows that it was compiled into, by table; further: what its keys without a column say; usual: columns'
    values where nothing is said, if they are not the members' defaults. What is as usual is left out.
    """
    entry: Description = {}
    unusual = {
        member.key.rpartition(".")[0]
        for member in entity.members
        if member.together and member.table in rows and rows[member.table][member.column] != member.stored_default
    }
    for member in entity.members:
        if not member.key:
            continue
        if member.table in rows:
            stored = rows[member.table][member.column]
            whole = member.together and member.key.rpartition(".")[0] in unusual
            if not whole and stored == usual.get(member.column, member.stored_default):
                continue
            value = member.kind.show(stored)
        elif member.key in further:
            value = further[member.key]
        else:
            continue
        *around, last = member.key.split(".")
        inside = entry
        for key in around:
            inside = inside.setdefault(key, {})
        inside[last] = value
    return entry


def describe(store: Store, every_port: bool = False, by_number: bool = False) -> Description:
    """The description of the host as it stands.

    every_port: uplinks stand among the ports even if their switch's list of names says all; by_number: ports are
    referred to as SWITCH/NUMBER, so that their names may change.
    """
    with store.reading():
        inventory = _Inventory(store, every_port, by_number)
        return {key: value for key, value in _host(inventory).items() if value not in ([], {})}


def typed(part: str, items: Any) -> Any:
    """The items of a part of a description with numbers for 25G, 40k and 10s: bits, packets, seconds."""
    if isinstance(items, dict):
        return {name: typed(part, [item])[0] for name, item in items.items()}
    known = PARTS[part].members
    return [_typed(item, {member.key: member for member in known if member.key}) for item in items]


def _typed(item: Description, members: Mapping[str, Member], prefix: str = "") -> Description:
    found: Description = {}
    for key, value in item.items():
        member = members.get(prefix + key)
        if key in PARTS and isinstance(value, (dict, list)) and not prefix:
            found[key] = typed(key, value)
        elif isinstance(value, dict):
            found[key] = _typed(value, members, f"{prefix}{key}.")
        elif member is not None and member.kind.plain and value is not None:
            found[key] = member.kind.typed(member.kind.parse(value))
        else:
            found[key] = value
    return found


class _Inventory:
    """The rows that the parts of a description refer to each other by."""

    def __init__(self, store: Store, every_port: bool, by_number: bool):
        self.rows = store.rows
        self.row = store.row
        self.dvs = {row["switch_id"]: row for row in store.rows("SELECT * FROM dvs ORDER BY alias")}
        self.switches = {row["sw"]: row for row in store.rows("SELECT * FROM sw ORDER BY sw")}
        self.ports = {(row["sw"], row["port"]): row for row in store.rows("SELECT * FROM port ORDER BY sw, port")}
        self.seed: int = store.row("SELECT seed FROM host")[0]
        self.uplinks: dict[int, list[int]] = {}
        for (sw, port), row in self.ports.items():
            if row["kind"] == names.UPLINK:
                self.uplinks.setdefault(sw, []).append(port)
        self.names = self._names(by_number)
        self.rings = self._rings()
        self.lists = {
            table: _by_port(store.rows(f"SELECT * FROM {table} ORDER BY sw, port, seq"))
            for table in ("port_uplink", "port_mcast", "port_vlan_range")
        }
        # A switch whose uplinks are all as the list of their names would make them is written with that list.
        self.plain_uplinks = {
            sw
            for sw, uplinks in self.uplinks.items()
            if not every_port
            and uplinks == list(range(len(uplinks)))
            and all(set(_port(self, sw, port)) <= {"switch", "nic", "port"} for port in uplinks)
        }

    def alias(self, sw: int) -> str:
        """A switch's alias, by its number."""
        return str(self.dvs[self.switches[sw]["switch_id"]]["alias"])

    def _names(self, by_number: bool) -> dict[tuple[int, int], str]:
        """What each port is called by others: its machine's or NIC's name where that is plain and its own."""
        if by_number:
            return {(sw, port): f"{self.alias(sw)}/{port}" for sw, port in self.ports}
        counts: dict[str, int] = {}
        for row in self.ports.values():
            name = row["nic"] or row["client"]
            counts[name] = counts.get(name, 0) + 1
        called = {}
        for (sw, port), row in self.ports.items():
            name = row["nic"] or row["client"]
            plain = name and counts[name] == 1 and name != "uplink" and not set("*?[/") & set(name)
            called[sw, port] = name if plain else f"{self.alias(sw)}/{port}"
        return called

    def _rings(self) -> dict[tuple[str, str], bytes]:
        """Ring sizes that ports have, by switch identifier and distributed port, in the form that the module writes."""
        known = {(self.switches[sw]["switch_id"], str(row["dvport"])) for (sw, _), row in self.ports.items()}
        found = self.rows("SELECT * FROM prop WHERE scope = 'port' AND key = ?", names.UPLINK_RING)
        return {
            (row["switch_id"], row["port"]): row["value"]
            for row in found
            if (row["switch_id"], row["port"]) in known and len(row["value"]) == 8
        }


def _by_port(rows: Sequence[Row]) -> dict[tuple[int, int], list[Row]]:
    found: dict[tuple[int, int], list[Row]] = {}
    for row in rows:
        found.setdefault((row["sw"], row["port"]), []).append(row)
    return found


def _host(of: _Inventory) -> Description:
    further: dict[str, Any] = {}
    for name, default, row in zip(
        names.WEIGHTS, names.DEFAULT_WEIGHTS, of.rows("SELECT * FROM weight ORDER BY position")
    ):
        if row["value"] != row["default_value"]:
            further[f"balancer.weights.{name}"] = row["value"]
        if row["default_value"] != default:
            further[f"balancer.default_weights.{name}"] = row["default_value"]
    numbers = {row["switch_id"]: number for number, row in of.switches.items()}
    # Switches of the datapath by their numbers, then the others by their aliases
    in_order = sorted(of.dvs.values(), key=lambda row: (numbers.get(row["switch_id"], 16), row["alias"]))
    listed = [key for key, row in of.ports.items() if not (row["nic"] and row["sw"] in of.plain_uplinks)]
    further["numa"] = _nodes(of)
    further["nics"] = {row["name"]: _nic(row) for row in of.rows("SELECT * FROM nic ORDER BY name")}
    further["switches"] = [_switch(of, dvs, numbers.get(dvs["switch_id"])) for dvs in in_order]
    further["ports"] = [_port(of, sw, port) for sw, port in listed]
    conversations = of.rows("SELECT * FROM conversation ORDER BY id")
    further["traffic"] = [_conversation(of, position, row) for position, row in enumerate(conversations)]
    further["faults"] = [_fault(of, row) for row in of.rows("SELECT * FROM fault ORDER BY id")]
    further["events"] = [_event(row) for row in of.rows("SELECT * FROM event ORDER BY id")]
    tables = {table: of.row(f"SELECT * FROM {table}") for table in ("host", "clock", "balancer")}
    return entry_of(HOST, tables, further, {})


def _nodes(of: _Inventory) -> list[Description]:
    nodes: dict[int, list[Row]] = {}
    for row in of.rows("SELECT * FROM lcore ORDER BY lcore"):
        nodes.setdefault(row["node"], []).append(row)
    return [
        entry_of(NODE_ENTITY, {"lcore": nodes[node][0]}, {"lcores": [row["lcore"] for row in nodes[node]]}, {})
        for node in sorted(nodes)
    ]


def _nic(row: Row) -> Description:
    limits = zip(names.FPO_LIMITS, names.FPO_DEFAULTS[row["fpo_level"]])
    usual = {f"fpo_{limit}": values.signed(number) for limit, number in limits}
    return entry_of(NIC, {"nic": row}, {}, {"affinity": row["node"], **usual})


def _switch(of: _Inventory, dvs: Row, sw: int | None) -> Description:
    found = of.rows("SELECT * FROM prop WHERE switch_id = ? ORDER BY scope, port, key", dvs["switch_id"])
    properties = {(row["scope"], row["port"], row["key"]): row["value"] for row in found}
    tables: dict[str, Row] = {"dvs": dvs}
    further: dict[str, Any] = {"number": sw} if sw is not None else {"datapath": False}
    usual: dict[str, Any] = {}
    if sw is not None:
        row = tables["sw"] = of.switches[sw]
        # The portset property follows the name; one that is there though it says the alias is written as such.
        stored = properties.get(("host", "", names.PORTSET)) == row["name"].encode() + b"\0"
        usual["name"] = None if stored else dvs["alias"]
        if sw in of.plain_uplinks:
            further["uplinks"] = [of.ports[sw, port]["nic"] for port in of.uplinks[sw]]
        mirrors = of.rows("SELECT * FROM mirror WHERE sw = ? ORDER BY session", sw)
        entries = of.rows("SELECT * FROM mac_entry WHERE sw = ? ORDER BY port, mac, vlan", sw)
        if mirrors:
            further["mirrors"] = [_mirror(of, mirror) for mirror in mirrors]
        if entries:
            further["mac_entries"] = [entry_of(MAC_ENTRY, {"mac_entry": entry}, {}, {}) for entry in entries]
    marker = properties.get(("global", "", names.MARKER), b"")
    if values.to_text(marker).startswith("text:") and len(marker) <= 128:
        further["marker"] = marker[:-1].decode()
    further |= _stored(properties)
    entry = entry_of(SWITCH, tables, further, usual)
    given = _given_properties(of, entry, dvs["switch_id"], properties)
    return entry_of(SWITCH, tables, further | given, usual) if given else entry


def _stored(properties: Mapping[tuple[str, str, str], bytes]) -> dict[str, Any]:
    """The settings among a switch's properties, where they have the form that the module writes."""

    def stored_bytes(key: str, size: int) -> bytes | None:
        raw = properties.get(("host", "", key))
        versioned = key != names.STORED_FPO
        return None if raw is None or len(raw) != size or (versioned and raw[:4] != bytes(4)) else raw

    stored: dict[str, Any] = {}
    if (raw := stored_bytes(names.STORED_FPO, 4)) is not None:
        stored["stored.fpo"] = struct.unpack("<I", raw)[0]
    if (raw := stored_bytes(names.STORED_BURST, 8)) is not None:
        stored["stored.burst"] = struct.unpack_from("<I", raw, 4)[0]
    if (raw := stored_bytes(names.STORED_TEAMING, 5)) is not None:
        stored["stored.numa_team"] = bool(raw[4]) if raw[4] in (0, 1) else raw[4]
    if (raw := stored_bytes(names.STORED_BALANCER, 24)) is not None:
        metric, *numbers = struct.unpack_from("<5I", raw, 4)
        if metric in names.METRICS.values():
            stored["stored.balancer.metric"] = names.name_of(names.METRICS, metric)
            for key, number in zip(("high", "low", "pause", "sensitivity"), numbers):
                stored[f"stored.balancer.{key}"] = number
    return stored


def _given_properties(
    of: _Inventory, entry: Description, switch_id: str, properties: Mapping[tuple[str, str, str], bytes]
) -> dict[str, Any]:
    """What of the properties the switch's and the ports' own keys do not say already."""
    implied = implied_properties(read_known(SWITCH, entry))
    given: dict[str, Any] = {}
    for scope, port, key in sorted(set(implied) | set(properties)):
        raw = properties.get((scope, port, key))
        if raw == implied.get((scope, port, key)):
            continue
        if key == names.UPLINK_RING and (switch_id, port) in of.rings:
            continue
        text = None if raw is None else values.to_text(raw)
        if scope == "port":
            given.setdefault("properties.ports", {}).setdefault(port, {})[key] = text
        else:
            given.setdefault(f"properties.{scope}", {})[key] = text
    return given


def _mirror(of: _Inventory, row: Row) -> Description:
    sw, session = row["sw"], row["session"]
    further: dict[str, list[Any]] = {}
    for found in of.rows("SELECT * FROM mirror_port WHERE sw = ? AND session = ? ORDER BY port", sw, session):
        key = "to" if found["role"] == "dst" else found["role"]
        further.setdefault(key, []).append(of.names.get((sw, found["port"]), found["port"]))
    vlans = of.rows("SELECT vlan FROM mirror_vlan WHERE sw = ? AND session = ? ORDER BY seq", sw, session)
    if vlans:
        further["vlans"] = [found["vlan"] for found in vlans]
    return entry_of(MIRROR, {"mirror": row}, further, {})


def _port(of: _Inventory, sw: int, number: int) -> Description:
    row = of.ports[sw, number]
    nic, key = row["nic"], (sw, number)
    further: dict[str, Any] = {"switch": of.alias(sw)}
    queues = 4 if nic else 1
    usual = {
        "kind": names.UPLINK if nic else names.KINDS["VNIC"],
        "dvport": values.dvport(sw, number),
        "mac": values.port_mac(of.seed, sw, number, nic is not None),
        "tx_queues": queues,
        "rx_queues": queues,
    }
    if row["tx_queues"] == row["rx_queues"] != queues:
        further["queues"] = usual["tx_queues"] = usual["rx_queues"] = row["tx_queues"]
    if row["tx_core"] == row["rx_core"] != -1:
        further["core"] = usual["tx_core"] = usual["rx_core"] = row["tx_core"]
    chosen = [found["uplink"] for found in of.lists["port_uplink"].get(key, [])]
    if chosen != default_uplinks(row["kind"], of.uplinks.get(sw, [])):
        known = of.uplinks.get(sw, [])
        further["teaming.uplinks"] = [of.ports[sw, uplink]["nic"] if uplink in known else uplink for uplink in chosen]
        usual["tx_type"] = None  # it is named where the uplinks are
    multicast = of.lists["port_mcast"].get(key, [])
    if multicast:
        further["multicast"] = [found["mac"].hex(":") for found in multicast]
    ranges = of.lists["port_vlan_range"].get(key, [])
    if ranges:
        further["vlans"] = [
            found["first"] if found["first"] == found["last"] else f"{found['first']}-{found['last']}"
            for found in ranges
        ]
    rings = of.rings.get((of.switches[sw]["switch_id"], str(row["dvport"])))
    if rings:
        further["rings.tx"], further["rings.rx"] = struct.unpack("<II", rings)
    return entry_of(PORT_ENTITY, {"port": row}, further, usual)


def _conversation(of: _Inventory, position: int, row: Row) -> Description:
    source = of.ports[row["sw"], row["src_port"]]
    target = None if row["dst_port"] is None else of.ports[row["sw"], row["dst_port"]]
    usual = conversation_defaults(dict(source), dict(target) if target else None, row["protocol"], position)
    further = {"from": of.names[row["sw"], row["src_port"]], "to": "uplink"}
    if target:
        further["to"] = of.names[row["sw"], row["dst_port"]]
    return entry_of(CONVERSATION, {"conversation": row}, further, usual)


def _fault(of: _Inventory, row: Row) -> Description:
    found = of.rows("SELECT * FROM fault_where WHERE fault = ? ORDER BY seq", row["id"])
    where = [f"{condition['name']}={condition['glob']}" for condition in found]
    further = {} if not where else {"where": where[0] if len(where) == 1 else where}
    return entry_of(FAULT, {"fault": row}, further, {})


def _event(row: Row) -> Description:
    target = row["target"]
    return entry_of(EVENT_ENTITY, {"event": row}, {"target": int(target) if target.isdecimal() else target}, {})
