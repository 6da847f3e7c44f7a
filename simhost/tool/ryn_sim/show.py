"""The command show: the host's inventory, settings and figures of the moment, as tables or JSON.

What is a member of something is named, typed and headed as its row in members/ says. What is computed is named here.
"""

from __future__ import annotations

import argparse
import re
from dataclasses import dataclass
from typing import Any, Callable, Dict, List, Mapping, Sequence

from . import names, units, values
from .errors import BadInput, Failed, nearest
from .library import Library
from .members.base import Entity, Member
from .members.conversation import CONVERSATION
from .members.mirror import MIRROR
from .members.nic import NIC
from .members.port import PORT_ENTITY
from .members.switch import SWITCH
from .nesting import at_key, nested
from .store import Store
from .table import Column, cell, print_json, print_table

Record = Dict[str, Any]
Rows = List[Record]


@dataclass(frozen=True)
class Section:
    """Something that can be shown: records with values of their own types, and what of them a table has."""

    rows: Callable[[Store, "int | None"], Rows]
    columns: Sequence[Column]
    warns: Callable[[Mapping[str, Any]], bool] = lambda row: False


def show_command(options: argparse.Namespace) -> None:
    """Prints a section of what there is, or all of them."""
    if options.what not in (*SECTIONS, "all"):
        raise BadInput(f'show: there is no "{options.what}" to show{nearest(options.what, [*SECTIONS, "all"])}')
    store = Store(options.path)
    wanted = [name for name in SECTIONS if name != "summary"] if options.what == "all" else [options.what]
    results = show(store, wanted, options.switch)
    if options.json:
        print_json(results if options.what == "all" else results[options.what])
        return
    for index, (name, rows) in enumerate(results.items()):
        if len(results) > 1:
            print(("\n" if index else "") + name.capitalize())
        print_table(rows, SECTIONS[name].columns, warns=SECTIONS[name].warns)


def show(store: Store, wanted: Sequence[str], switch: str | None = None) -> dict[str, Rows]:
    """The records of these sections, of one switch or all, at the present moment."""
    store.catch_up()
    with store.reading():
        sw = _switch_number(store, switch)
        return {name: SECTIONS[name].rows(store, sw) for name in wanted}


def _switch_number(store: Store, name: str | None) -> int | None:
    if name is None:
        return None
    for row in store.rows("SELECT sw, alias, name FROM sw JOIN dvs USING (switch_id)"):
        if name in (row["alias"], row["name"], str(row["sw"])):
            return int(row["sw"])
    known = [row["alias"] for row in store.rows("SELECT alias FROM sw JOIN dvs USING (switch_id)")]
    raise Failed(f'there is no switch "{name}" of the datapath{nearest(name, known)}')


def _only(sw: int | None, table: str) -> str:
    return "" if sw is None else f" WHERE {table}.sw = {sw}"


def _called(store: Store) -> dict[tuple[int, int], str]:
    """What each port is called, by switch and number."""
    return {
        (row["sw"], row["port"]): row["nic"] or row["client"] or f"{row['sw']}/{row['port']}"
        for row in store.rows("SELECT sw, port, nic, client FROM port")
    }


def _summary(store: Store, _: int | None) -> Rows:
    rows = []
    for row in store.rows(
        "SELECT switch_id, alias FROM dvs LEFT JOIN sw USING (switch_id) ORDER BY sw IS NULL, sw, alias"
    ):
        found = store.rows("SELECT * FROM sw WHERE switch_id = ?", row["switch_id"])
        sw = found[0]["sw"] if found else None
        uplinks = store.rows("SELECT nic FROM port WHERE sw = ? AND kind = 2 ORDER BY port", sw)
        count, sum_of_rates = store.row(
            "SELECT COUNT(*), COALESCE(SUM(milli_pps * (1000 + reply_permille) / 1000), 0) FROM conversation"
            " WHERE sw = ?",
            sw,
        )
        rows.append(
            {
                "switch": row["alias"],
                "number": sw,
                "name": found[0]["name"] if found else None,
                "uplinks": [port["nic"] for port in uplinks],
                "ports": store.row("SELECT COUNT(*) FROM port WHERE sw = ?", sw)[0],
                "conversations": count,
                "mean_pps": sum_of_rates // 1000,
            }
        )
    return rows


def _cores(store: Store, _: int | None) -> Rows:
    figures = {core["core"]: core for core in Library(store.path).rates()["cores"]}
    rows = []
    for row in store.rows("SELECT * FROM lcore ORDER BY lcore"):
        found = figures[row["lcore"]]
        rows.append(
            {
                "core": row["lcore"],
                "numa": row["node"],
                "capacity": row["packets_per_s"],
                "busy_percent": found["busy_percent"],
                "asked_percent": found["asked_percent"],
                "lost_pps": found["lost"],
                "stuck": found["stuck"],
            }
        )
    return rows


def _links(store: Store, _: int | None) -> Rows:
    return [
        {
            "nic": link["nic"],
            "direction": link["direction"],
            "state": link["state"],
            "mbps": link["mbps"],
            "limit_mbps": link["limit_mbps"],
            "pps": link["packets"],
            "lost_pps": link["lost"],
        }
        for link in sorted(Library(store.path).rates()["links"], key=lambda link: _natural(link["nic"]))
    ]


def _rates(store: Store, sw: int | None) -> Rows:
    called = _called(store)
    positions = {
        row["id"]: position for position, row in enumerate(store.rows("SELECT id FROM conversation ORDER BY id"))
    }
    rows = []
    for talk in Library(store.path).rates()["conversations"]:
        if sw is None or talk["switch"] == sw:
            lost = {where: count for where, count in talk["lost"].items() if count}
            rows.append(
                {
                    "index": positions.get(talk["id"]),
                    "direction": talk["direction"],
                    "from": called.get((talk["switch"], talk["from"])),
                    "to": [called.get((talk["switch"], port)) for port in talk["to"]],
                    "offered_pps": talk["offered"],
                    "delivered_pps": talk["delivered"],
                    "lost_pps": sum(lost.values()),
                    "lost": lost,
                }
            )
    return rows


def _flows(store: Store, sw: int | None) -> Rows:
    """Conversations by what they keep in the flow table."""
    offered = {
        (talk["id"], talk["direction"]): talk["offered"] for talk in Library(store.path).rates()["conversations"]
    }
    called, rows = _called(store), []
    for position, row in enumerate(store.rows("SELECT * FROM conversation ORDER BY id")):
        if sw is None or row["sw"] == sw:
            pps = offered.get((row["id"], "there"), 0)
            rows.append(
                {
                    "index": position,
                    "from": called.get((row["sw"], row["src_port"])),
                    "to": "uplink" if row["dst_port"] is None else called.get((row["sw"], row["dst_port"])),
                    "proto": names.name_of(names.PROTOCOLS, row["protocol"]),
                    "sport": row["src_l4"],
                    "dport": row["dst_l4"],
                    "flows": row["flows"],
                    "short_flows_per_s": pps * row["churn_ppm"] / 10**6,
                    "offered_pps": pps,
                    "slow_share": row["slow_permille"] / 1000,
                }
            )
    return rows


def _typed(entity: Entity, *tables: str) -> Callable[[Mapping[str, Any]], Record]:
    """What makes a record of a row: the members that are columns of these tables, by their keys, of their own types."""
    members = [member for member in entity.members if member.key and member.table in tables]

    def record(row: Mapping[str, Any]) -> Record:
        return nested({member.key: member.kind.typed(row[member.column]) for member in members})

    return record


def _headed(entity: Entity) -> list[Column]:
    """The columns that the members of an entity have in its table; members of one heading share a column."""
    headings: dict[str, list[Member]] = {}
    for member in entity.members:
        if member.shown:
            headings.setdefault(member.shown, []).append(member)
    return [(heading, _texts(members)) for heading, members in headings.items()]


def _texts(members: Sequence[Member]) -> Callable[[Mapping[str, Any]], Any]:
    def text(row: Mapping[str, Any]) -> Any:
        shown = []
        for member in members:
            value = at_key(row, member.key)
            # As a description has it: 25G, 10s
            shown.append(member.kind.show(member.kind.parse(value)) if member.kind.plain else value)
        return "/".join(map(cell, shown)) if len(shown) > 1 else shown[0]

    return text


def _nics(store: Store, _: int | None) -> Rows:
    typed = _typed(NIC, "nic")
    rows = store.rows("SELECT nic.*, port.sw, port.port FROM nic LEFT JOIN port ON port.nic = nic.name")
    return [
        {"nic": row["name"], **typed(row), "switch": row["sw"], "port": row["port"]}
        for row in sorted(rows, key=lambda row: _natural(row["name"]))
    ]


def _natural(name: str) -> list[tuple[int, str]]:
    """Orders lunic2 before lunic10."""
    return [(int(part), "") if part.isdecimal() else (-1, part) for part in re.split("([0-9]+)", name)]


def _switches(store: Store, sw: int | None) -> Rows:
    typed = _typed(SWITCH, "sw", "dvs")
    query = f"SELECT sw.*, alias, class FROM sw JOIN dvs USING (switch_id){_only(sw, 'sw')} ORDER BY sw"
    return [{"number": row["sw"], **typed(row)} for row in store.rows(query)]


def _ports(store: Store, sw: int | None) -> Rows:
    typed = _typed(PORT_ENTITY, "port")
    return [
        {"switch": row["alias"], "number": row["sw"], "client": row["nic"] or row["client"], **typed(row)}
        for row in store.rows(
            f"SELECT port.*, alias FROM port JOIN sw USING (sw) JOIN dvs USING (switch_id){_only(sw, 'port')}"
            " ORDER BY port.sw, port.port"
        )
    ]


def _traffic(store: Store, sw: int | None) -> Rows:
    called, typed = _called(store), _typed(CONVERSATION, "conversation")
    return [
        {
            "index": position,
            "from": called.get((row["sw"], row["src_port"])),
            "to": "uplink" if row["dst_port"] is None else called.get((row["sw"], row["dst_port"])),
            **typed(row),
        }
        for position, row in enumerate(store.rows("SELECT * FROM conversation ORDER BY id"))
        if sw is None or row["sw"] == sw
    ]


def _mirrors(store: Store, sw: int | None) -> Rows:
    rows, typed = [], _typed(MIRROR, "mirror")
    for row in store.rows(
        f"SELECT mirror.*, alias FROM mirror JOIN sw USING (sw) JOIN dvs USING (switch_id){_only(sw, 'mirror')}"
        " ORDER BY mirror.sw, session"
    ):
        of = (row["sw"], row["session"])
        ports: dict[str, list[int]] = {"in": [], "out": [], "dst": []}
        for found in store.rows("SELECT * FROM mirror_port WHERE sw = ? AND session = ? ORDER BY port", *of):
            ports[found["role"]].append(found["port"])
        vlans = store.rows("SELECT vlan FROM mirror_vlan WHERE sw = ? AND session = ? ORDER BY seq", *of)
        lists = {
            "in": ports["in"],
            "out": ports["out"],
            "to": ports["dst"],
            "vlans": [found["vlan"] for found in vlans],
        }
        rows.append({"switch": row["alias"], **typed(row), **lists})
    return rows


def _properties(store: Store, sw: int | None) -> Rows:
    return [
        {
            "switch": row["alias"],
            "scope": row["scope"],
            "port": row["port"] or None,
            "key": row["key"],
            "value": values.to_text(row["value"]),
        }
        for row in store.rows(
            "SELECT prop.*, alias, sw FROM prop JOIN dvs USING (switch_id) LEFT JOIN sw USING (switch_id)"
            " ORDER BY alias, scope, port, key"
        )
        if sw is None or row["sw"] == sw
    ]


def _balancer(store: Store, _: int | None) -> Rows:
    return [
        {"weight": names.WEIGHTS[row["position"]], "value": row["value"], "default": row["default_value"]}
        for row in store.rows("SELECT * FROM weight ORDER BY position")
    ]


def _moves(store: Store, sw: int | None) -> Rows:
    return [
        {
            "at_ms": row["at_ms"],
            "switch": row["alias"],
            "port": row["port"],
            "client": row["client"],
            "from": row["from_core"],
            "to": row["to_core"],
        }
        for row in store.rows(
            "SELECT move.*, alias, client FROM move JOIN sw USING (sw) JOIN dvs USING (switch_id)"
            f" LEFT JOIN port ON port.sw = move.sw AND port.port = move.port{_only(sw, 'move')} ORDER BY move.id"
        )
    ]


def _pair(one: str, two: str) -> Callable[[Mapping[str, Any]], str]:
    def text(row: Mapping[str, Any]) -> str:
        first, second = row[one], row[two]
        return "-" if first is None and second is None else f"{first}/{second}"

    return text


def _short(key: str) -> Callable[[Mapping[str, Any]], str]:
    return lambda row: units.short(row[key])


def _burst(row: Mapping[str, Any]) -> str | None:
    burst = row["pattern"]["burst"]
    if not burst["every"]:
        return None
    every, lasting = (units.duration_text(round(burst[key] * 10**9)) for key in ("every", "for"))
    return f"x{burst['times']:g} {lasting}/{every}"


def _scope(row: Mapping[str, Any]) -> str:
    return f"port {row['port']}" if row["port"] else str(row["scope"])


def _receivers(row: Mapping[str, Any]) -> Any:
    return row["to"] if len(row["to"]) < 4 else f"{len(row['to'])} ports"


def _lost(row: Mapping[str, Any]) -> str:
    return " ".join(f"{where} {units.short(count)}" for where, count in row["lost"].items()) or "-"


def _loses(row: Mapping[str, Any]) -> bool:
    return bool(row["lost_pps"])


SECTIONS = {
    "summary": Section(_summary, ["switch", "number", "name", "uplinks", "ports", "conversations", "mean_pps"]),
    "cores": Section(
        _cores, ["core", "numa", "capacity", "busy_percent", "asked_percent", "lost_pps", "stuck"], _loses
    ),
    "links": Section(_links, ["nic", "direction", "state", "mbps", "limit_mbps", "pps", "lost_pps"], _loses),
    "rates": Section(
        _rates,
        [
            "index",
            "from",
            ("to", _receivers),
            ("offered", _short("offered_pps")),
            ("delivered", _short("delivered_pps")),
            ("lost where", _lost),
        ],
        _loses,
    ),
    "flows": Section(
        _flows,
        ["index", "from", "to", "proto", "sport", "dport", "flows", ("short/s", _short("short_flows_per_s"))],
    ),
    "nics": Section(_nics, ["nic", *_headed(NIC), ("uplink", _pair("switch", "port"))]),
    "switches": Section(_switches, ["number", *_headed(SWITCH)]),
    "ports": Section(_ports, ["switch", "client", *_headed(PORT_ENTITY)]),
    "traffic": Section(_traffic, ["index", "from", "to", *_headed(CONVERSATION), ("burst", _burst)]),
    "mirrors": Section(_mirrors, ["switch", *_headed(MIRROR), "in", "out", "to", "vlans"]),
    "properties": Section(_properties, ["switch", ("scope", _scope), "key", "value"]),
    "balancer": Section(_balancer, ["weight", "value", "default"]),
    "moves": Section(
        _moves,
        [("at", lambda row: units.age_text(row["at_ms"] * 10**6)), "switch", "port", "client", "from", "to"],
    ),
}
