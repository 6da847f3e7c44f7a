"""Compiles what refers to ports: MAC table entries, mirror sessions, conversations, faults and events."""

from __future__ import annotations

import fnmatch
from typing import Any, Collection, Mapping, Sequence

from . import names, values
from .check import read, read_list, shown
from .compile import Host, PortKey, Row, row_of
from .document import Path
from .errors import nearest
from .kinds import VLAN, Wrong
from .members.conversation import CONVERSATION
from .members.event import EVENT, EVENT_ENTITY
from .members.fault import FAULT, WHERE_ITEM
from .members.mac_entry import MAC_ENTRY
from .members.mirror import MIRROR

_GLOB = frozenset("*?[")
STATUS_OR_CORRUPT = "a status is answered instead of the operation, so there is no answer to corrupt"
_MIRROR_ANSWER, _MIRROR_HEAD, _MIRROR_RECORD = 2048, 8, 72  # bytes that a switch's sessions have room in, and need


def find_ports(host: Host, path: Path, name: Any, sw: int | None = None) -> list[PortKey]:
    """The ports that a name, a pattern or SWITCH/NUMBER stands for; a number stands for a port of switch `sw`."""
    found: list[PortKey] = []
    if isinstance(name, int):
        found = [(sw, name)] if sw is not None and (sw, name) in host.ports else []
    elif name in host.by_name and name:
        found = host.by_name[name]
    elif _GLOB & set(name):
        fitting = [
            ports
            for known, ports in host.by_name.items()
            if fnmatch.fnmatchcase(known, name) and known.count("/") == name.count("/")
        ]
        found = sorted({port for ports in fitting for port in ports})
    if sw is not None:
        found = [port for port in found if port[0] == sw]
    if not found:
        known_names = [known for known in host.by_name if "/" not in known]
        close = "" if isinstance(name, int) else nearest(name, known_names)
        host.missing("ports", path, f"there is no port {shown(name)}{close}")
    return found


def add_mac_entries(host: Host) -> None:
    """Entries of MAC tables that were added or deleted by hand."""
    for switch in host.switches.values():
        seen = set()
        for position, item in enumerate(switch.given.get("mac_entries", []) if switch.number is not None else []):
            path = (*switch.path, "mac_entries", position)
            given = read(MAC_ENTRY, item, path, host.problems)
            if given is None:
                continue
            row = row_of("mac_entry", given, sw=switch.number)
            if (switch.number, row["port"]) not in host.ports:
                host.missing("ports", (*path, "port"), f"there is no port {row['port']}")
            key = (row["port"], row["mac"], row["vlan"])
            if key in seen:
                host.problems.add(path, "the same entry is listed already")
            seen.add(key)
            host.rows["mac_entry"].append(row)


def add_mirrors(host: Host) -> None:
    """The switches' mirror sessions, as far as they fit their answer."""
    for switch in host.switches.values():
        if switch.number is None:
            continue
        sessions: set[int] = set()
        room = _MIRROR_ANSWER - _MIRROR_HEAD
        for index, item in enumerate(switch.given.get("mirrors", [])):
            path = (*switch.path, "mirrors", index)
            given = read(MIRROR, item, path, host.problems)
            if given is None:
                continue
            session = given["session"]
            if session in sessions:
                host.problems.add((*path, "session"), f"session {session} is listed already")
                continue
            sessions.add(session)
            host.rows["mirror"].append(row_of("mirror", given, sw=switch.number))
            vlans = _add_mirror_parts(host, given, path, switch.number)
            needed = _MIRROR_RECORD + (2 * vlans + 7) // 8 * 8
            if needed > room:
                text = f"expected sessions that fit the {_MIRROR_ANSWER} bytes of GetMirrorConf's answer"
                host.problems.add(path, f"{text}: this one needs {needed}, and {max(0, room)} are left")
            room -= needed


def _add_mirror_parts(host: Host, given: Mapping[str, Any], path: Path, sw: int) -> int:
    """A session's ports and VLANs; answers the number of its VLANs."""
    session = given["session"]
    for role, key in (("in", "in"), ("out", "out"), ("dst", "to")):
        chosen: set[PortKey] = set()
        for position, name in enumerate(given.get(key, [])):
            if isinstance(name, (int, str)):
                chosen.update(find_ports(host, (*path, key, position), name, sw))
            else:
                host.problems.add((*path, key, position), f"expected a port's name or number, got {shown(name)}")
        for _, port in sorted(chosen):
            host.rows["mirror_port"].append(dict(sw=sw, session=session, role=role, port=port))
    vlans = read_list(given.get("vlans", []), VLAN, (*path, "vlans"), host.problems)
    for seq, vlan in enumerate(vlans):
        host.rows["mirror_vlan"].append(dict(sw=sw, session=session, seq=seq, vlan=vlan))
    return len(vlans)


def add_traffic(host: Host) -> None:
    """The conversations: one for each sender that an entry fits."""
    described = host.items("traffic")
    for index, item in enumerate(described):
        path: Path = ("traffic", index)
        given = read(CONVERSATION, item, path, host.problems)
        if isinstance(item, dict):
            _add_entry(host, path, item, given)
        host.progress(index + 1, len(described))


def _add_entry(host: Host, path: Path, item: Mapping[str, Any], given: dict[str, Any] | None) -> None:
    """One entry: a conversation for each sender. Its ends are looked at even if something else in it is wrong."""
    ends = {key: item.get(key) for key in ("from", "to")}
    if not all(isinstance(end, str) and end for end in ends.values()):
        return
    sources, target = find_ports(host, (*path, "from"), ends["from"]), None
    if ends["to"] != "uplink":
        found = find_ports(host, (*path, "to"), ends["to"])
        if len(found) > 1:
            host.problems.add((*path, "to"), f"expected one port, {shown(ends['to'])} stands for {len(found)}")
        if not found:
            return
        target = found[0]
        sources = _other_senders(host, path, ends, sources, target)
    for sw, number in sources:
        if target is None and host.ports[sw, number].row["kind"] == names.UPLINK:
            host.problems.add((*path, "to"), "expected a port, since the sender is an uplink")
        elif given is not None:
            _add_conversation(host, path, given, (sw, number), target)


def _other_senders(
    host: Host, path: Path, ends: Mapping[str, Any], sources: list[PortKey], target: PortKey
) -> list[PortKey]:
    """The senders on the target's switch but the target itself, which a pattern may well fit."""
    if sources and all(source[0] != target[0] for source in sources):
        text = f"{shown(ends['to'])} is on another switch than {shown(ends['from'])}"
        host.problems.add((*path, "to"), text)
    if sources == [target]:
        host.problems.add((*path, "to"), f"{shown(ends['from'])} cannot talk to itself")
    return [source for source in sources if source[0] == target[0] and source != target]


def _add_conversation(host: Host, path: Path, given: dict[str, Any], source: PortKey, target: PortKey | None) -> None:
    position = len(host.rows["conversation"])
    protocol = given.get("proto", names.PROTOCOLS["tcp"])
    usual = conversation_defaults(
        host.ports[source].row, host.ports[target].row if target else None, protocol, position
    )
    given = dict(given)
    at = (*path, "pattern")
    if "pattern.daily" in given:
        if {"pattern.swing", "pattern.period"} & set(given):
            host.problems.add((*at, "daily"), "daily is a swing with a period of a day, expected no other")
        given["pattern.swing"] = given["pattern.daily"]
    row = row_of(
        "conversation",
        given,
        **usual,
        id=position + 1,
        sw=source[0],
        src_port=source[1],
        dst_port=target[1] if target else None,
    )
    if len(row["src_ip"]) != len(row["dst_ip"]):
        text = "expected src_ip and dst_ip of one family (the one left out is an IPv4 address)"
        host.problems.add(path, text)
    if row["burst_for_ms"] > row["burst_every_ms"]:
        text = "expected a burst no longer than what lies between the starts of two"
        host.problems.add((*at, "burst", "for"), text)
    if row["stop_ms"] is not None and row["stop_ms"] < row["start_ms"]:
        host.problems.add((*path, "stop"), "expected a time at or after start")
    host.rows["conversation"].append(row)


def conversation_defaults(source: Row, target: Row | None, protocol: int, position: int) -> Row:
    """What a conversation has where its description is silent: columns of its row."""
    inner = target if source["kind"] == names.UPLINK and target else source
    src_l4, dst_l4 = values.transport(protocol, position)
    outside = values.remote_ip(position)
    from_outside = source["kind"] == names.UPLINK
    return {
        "src_l4": src_l4,
        "dst_l4": dst_l4,
        "vlan": inner["vlan"],
        "vni": inner["vni"],
        "src_ip": outside if from_outside else values.port_ip(source["sw"], source["port"]),
        "dst_ip": values.port_ip(target["sw"], target["port"]) if target else outside,
    }


def add_faults(host: Host) -> None:
    """The faults, with the arguments that they look at."""
    for index, item in enumerate(host.items("faults")):
        path: Path = ("faults", index)
        given = read(FAULT, item, path, host.problems)
        if given is None:
            continue
        problem = unknown_operation(given["operation"])
        if problem:
            host.problems.add((*path, "operation"), problem)
        if not {"status", "delay", "corrupt"} & set(item):
            host.problems.add(path, "expected at least one of status, delay, corrupt")
        if given.get("status") and given.get("corrupt"):
            host.problems.add((*path, "corrupt"), STATUS_OR_CORRUPT)
        row = row_of("fault", given, id=index + 1)
        if row["until_ms"] is not None and row["until_ms"] <= (row["from_ms"] or 0):
            host.problems.add((*path, "until"), "expected a time after from")
        host.rows["fault"].append(row)
        _add_conditions(host, index + 1, given.get("where", []), (*path, "where"))


def _add_conditions(host: Host, fault: int, where: Any, path: Path) -> None:
    """The arguments that a fault's calls must have: one ARGUMENT=GLOB, or a list of them."""
    if isinstance(where, str):
        try:
            conditions = [WHERE_ITEM.parse(where)]
        except Wrong as error:
            host.problems.wrong(path, error, where)
            return
    else:
        conditions = read_list(where, WHERE_ITEM, path, host.problems)
    for seq, condition in enumerate(conditions):
        name, _, glob = condition.partition("=")
        host.rows["fault_where"].append(dict(fault=fault, seq=seq, name=name, glob=glob))


def add_events(host: Host) -> None:
    """The events, their targets as the store has them."""
    numbers = {switch.alias: switch.number for switch in host.switches.values() if switch.number is not None}
    for index, item in enumerate(host.items("events")):
        path: Path = ("events", index)
        given = read(EVENT_ENTITY, item, path, host.problems)
        if given is None:
            continue
        row = row_of("event", given, id=index + 1, target=str(given["target"]))
        if row["until_ms"] is not None and EVENT[row["kind"]].once:
            host.problems.add((*path, "until"), f"{row['kind']} happens once, it has no end")
        elif row["until_ms"] is not None and row["until_ms"] <= row["from_ms"]:
            host.problems.add((*path, "until"), "expected a time after from")
        try:
            row["target"] = event_target(row["kind"], row["target"], host.nics, host.cores, numbers, host.by_name)
        except Wrong as error:
            part = {"core": "cores", "switch": "switches", "port": "ports"}.get(EVENT[row["kind"]].target, "")
            host.missing(part, (*path, "target"), error.message)
        problem = wrong_value(row["kind"], row["value"])
        if problem:
            host.problems.add((*path, "value"), problem)
        host.rows["event"].append(row)


def unknown_operation(operation: str) -> str | None:
    """Why no fault can be made for this operation or pattern, if none can."""
    if operation == names.CANNOT_FAIL:
        return f"{operation} has nothing to answer, so it cannot fail"
    if any(fnmatch.fnmatchcase(known, operation) for known in names.OPERATIONS):
        return None
    return f"there is no operation {shown(operation)}{nearest(operation, names.OPERATIONS)}"


def event_target(
    event: str,
    text: str,
    nics: Collection[str],
    cores: Collection[int],
    switches: Mapping[str, int],
    ports: Mapping[str, Sequence[PortKey]],
) -> str:
    """An event's target as the store has it: a NIC's name, a core's or switch's number, or SWITCH/PORT in numbers.

    switches: their numbers by alias; ports: by their names and as ALIAS/NUMBER. Wrong says what there is not.
    """
    what = EVENT[event].target
    if what == "nic":
        if text in nics:
            return text
        raise Wrong(message=f"there is no NIC {shown(text)}{nearest(text, nics)}")
    if what == "core":
        if text.isdecimal() and int(text) in cores:
            return text
        raise Wrong(message=f"there is no core {shown(text)}; known: {', '.join(map(str, sorted(cores)))}")
    numbers = {**switches, **{str(number): number for number in switches.values()}}
    if what == "switch":
        if text in numbers:
            return str(numbers[text])
        raise Wrong(message=f"there is no switch {shown(text)}{nearest(text, switches)}")
    alias, _, number = text.rpartition("/")
    found = [port for port in ports.get(text, []) if text]
    if not found and alias in numbers:
        found = [port for known in ports.values() for port in known if port == (numbers[alias], _decimal(number))][:1]
    if len(found) == 1:
        return f"{found[0][0]}/{found[0][1]}"
    if found:
        raise Wrong(message=f"several ports are called {shown(text)}; name it by SWITCH/NUMBER")
    raise Wrong(message=f"there is no port {shown(text)}{nearest(text, [name for name in ports if '/' not in name])}")


def _decimal(text: str) -> int:
    return int(text) if text.isdecimal() else -1


def wrong_value(event: str, value: int | None) -> str | None:
    """Why an event can't have this value, if it can't."""
    rule = EVENT[event]
    if value is None:
        return None
    if rule.default is None:
        return f"{event} has no value"
    if rule.values and value not in rule.values:
        *first, last = map(str, rule.values)
        return f"expected {', '.join(first)} or {last}, got {value}"
    if not rule.values and not rule.low <= value <= rule.high:
        return f"expected a number from {rule.low} to {rule.high}, got {value}"
    return None
