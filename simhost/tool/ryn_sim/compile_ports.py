"""Compiles the ports of a description, and which uplinks each of them may use."""

from __future__ import annotations

import struct
from typing import Any, NamedTuple

from . import names, values
from .check import read, read_list
from .compile import Host, Port, Switch, row_of
from .document import Path
from .errors import nearest
from .kinds import GROUP
from .members.port import PORT_ENTITY, UPLINK_REFERENCE, VLAN_RANGE

_NUMBERS = range(128)


class _Wanted(NamedTuple):
    """A port that a description asks for."""

    switch: Switch
    given: dict[str, Any]
    path: Path
    offset: int | None  # among the `count` ports of one entry; None: it says no count


def add_ports(host: Host) -> None:
    """Numbers first, since those given by hand are taken before others are dealt out."""
    wanted = _wanted(host)
    taken: set[tuple[int, int]] = set()
    numbers: list[int | None] = []
    for port in wanted:
        number = _given_number(host, port, taken)
        if number is not None and port.switch.number is not None:
            taken.add((port.switch.number, number))
        numbers.append(number)
    lowest: dict[int, int] = {}
    for done, (port, number) in enumerate(zip(wanted, numbers)):
        sw = port.switch.number
        if sw is None:
            continue
        if number is None:
            number = next((free for free in range(lowest.get(sw, 0), 129) if (sw, free) not in taken), 128)
            lowest[sw] = number + 1
            if number not in _NUMBERS:
                host.problems.add(port.path, f'expected at most 128 ports on "{port.switch.alias}"')
                continue
        _add_port(host, port, number)
        if done % 64 == 0:
            host.progress(done, len(wanted))
    host.progress(len(wanted), len(wanted))
    _refuse_twins(host)


def _wanted(host: Host) -> list[_Wanted]:
    wanted = []
    for alias, switch in host.switches.items():
        for position, nic in enumerate(switch.given.get("uplinks", [])):
            if isinstance(nic, str):
                at = (*switch.path, "uplinks", position)
                wanted.append(_Wanted(switch, {"switch": alias, "nic": nic}, at, None))
            else:
                host.problems.add((*switch.path, "uplinks", position), "expected a NIC's name")
    for index, item in enumerate(host.items("ports")):
        path: Path = ("ports", index)
        given = read(PORT_ENTITY, item, path, host.problems)
        if given is None:
            host.unread.add("ports")
            continue
        found = host.switches.get(given["switch"])
        if found is None or found.number is None:
            host.unread.add("ports")
            _refuse_switch(host, given["switch"], found, (*path, "switch"))
            continue
        count = given.get("count", 1)
        if count > 1 and "nic" in given:
            host.problems.add((*path, "count"), "expected 1 for a port with a nic")
        if count > 1 and "{n}" not in given.get("vm", "{n}"):
            host.problems.add((*path, "vm"), "expected a name with {n} in it, since count is above 1")
        wanted += [_Wanted(found, given, path, offset if "count" in given else None) for offset in range(count)]
    return wanted


def _refuse_switch(host: Host, alias: str, found: Switch | None, path: Path) -> None:
    if found is None:
        host.missing("switches", path, f'there is no switch "{alias}"{nearest(alias, host.switches)}')
    elif not found.given.get("datapath", 1):
        host.problems.add(path, f'"{alias}" is not a switch of the datapath, it has no ports')


def _given_number(host: Host, port: _Wanted, taken: set[tuple[int, int]]) -> int | None:
    if "port" not in port.given or port.switch.number is None:
        return None
    number: int = port.given["port"] + (port.offset or 0)
    if number not in _NUMBERS:
        host.problems.add((*port.path, "port"), f"expected port numbers up to 127, got {number}")
        return None
    if (port.switch.number, number) in taken:
        host.problems.add((*port.path, "port"), f"port {number} is taken already")
    return number


def _counted_up(host: Host, port: _Wanted, sw: int, number: int) -> dict[str, Any]:
    """What is given for this one of the `count` ports of an entry."""
    given, step = dict(port.given), port.offset or 0
    given["port"] = number
    if port.offset is not None and "vm" in given:
        given["vm"] = given["vm"].replace("{n}", str(given.get("first", 0) + port.offset))
    if "dvport" in given:
        given["dvport"] += step
    if "mac" in given:
        address = (int.from_bytes(given["mac"], "big") + step) & (1 << 48) - 1
        given["mac"] = address.to_bytes(6, "big")
    return given


def _add_port(host: Host, port: _Wanted, number: int) -> None:
    sw, path = port.switch.number, port.path
    assert sw is not None
    given = _counted_up(host, port, sw, number)
    nic = given.get("nic")
    kind = given.get("kind", names.UPLINK if nic else names.KINDS["VNIC"])
    if (kind == names.UPLINK) != (nic is not None):
        host.problems.add((*path, "kind"), "a port is an UPLINK if and only if it has a nic")
    if nic is not None:
        _check_nic(host, nic, path)
    if given.get("vm") == "uplink":
        host.problems.add(
            (*path, "vm"), 'a machine cannot be called "uplink": as the end of a conversation it means any uplink'
        )
    for key in ("core", "tx_core", "rx_core"):
        if given.get(key, -1) != -1 and given[key] not in host.cores:
            host.missing("cores", (*path, key), f"there is no core {given[key]}")
    seed = host.given.get("seed", 1)
    queues, core = given.get("queues", 4 if nic else 1), given.get("core", -1)
    row = row_of(
        "port",
        given,
        sw=sw,
        kind=kind,
        dvport=values.dvport(sw, number),
        mac=values.port_mac(seed, sw, number, nic is not None),
        tx_queues=queues,
        rx_queues=queues,
        tx_core=core,
        rx_core=core,
    )
    if row["dvport"] >= 1 << 32 or any(other.row["dvport"] == row["dvport"] for other in _on(host, sw)):
        host.problems.add((*path, "dvport"), f"the distributed port {row['dvport']} is taken already")
    host.rows["port"].append(row)
    host.ports[sw, number] = Port(row, port.switch, path, given)
    host.by_name.setdefault(row["nic"] or row["client"], []).append((sw, number))
    host.by_name[f"{port.switch.alias}/{number}"] = [(sw, number)]
    _add_lists(host, host.ports[sw, number])


def _on(host: Host, sw: int) -> list[Port]:
    return [port for (number, _), port in host.ports.items() if number == sw]


def _check_nic(host: Host, nic: str, path: Path) -> None:
    if nic not in host.nics:
        at = path if "uplinks" in path else (*path, "nic")
        host.problems.add(at, f'there is no NIC "{nic}"{nearest(nic, host.nics)}')
    elif nic in host.by_name:
        host.problems.add(path, f'the NIC "{nic}" is an uplink already')


def _add_lists(host: Host, port: Port) -> None:
    """A port's group addresses, VLANs and rings."""
    key = {"sw": port.row["sw"], "port": port.row["port"]}
    given, path = port.given, port.path
    for seq, mac in enumerate(read_list(given.get("multicast", []), GROUP, (*path, "multicast"), host.problems)):
        host.rows["port_mcast"].append(dict(key, seq=seq, mac=mac))
    for seq, item in enumerate(read_list(given.get("vlans", []), VLAN_RANGE, (*path, "vlans"), host.problems)):
        first, _, last = str(item).partition("-")
        host.rows["port_vlan_range"].append(dict(key, seq=seq, first=int(first), last=int(last or first)))
    if "rings.tx" in given and "rings.rx" in given:
        dvport, switch = str(port.row["dvport"]), port.switch
        if ("port", dvport, names.UPLINK_RING) in switch.properties:
            host.problems.add((*path, "rings"), "the switch's properties have this port's rings already")
        rings = struct.pack("<II", given["rings.tx"], given["rings.rx"])
        row = dict(scope="port", switch_id=switch.id, port=dvport, key=names.UPLINK_RING, value=rings)
        host.rows["prop"].append(row)


def _refuse_twins(host: Host) -> None:
    """Two ports of a switch with one address: neither could be told from the other."""
    seen: dict[tuple[int, bytes], Port] = {}
    for (sw, _), port in host.ports.items():
        first = seen.setdefault((sw, port.row["mac"]), port)
        if first is not port:
            mac, other = port.row["mac"].hex(":"), f"{first.switch.alias}/{first.row['port']}"
            at = (*port.path, "mac") if "mac" in port.given else port.path
            host.problems.add(at, f"the address {mac} is that of {other} already")


def team_up(host: Host) -> None:
    """Each port's uplinks, once all uplinks have their numbers. One that says nothing may use all of its switch."""
    uplinks: dict[int, list[int]] = {}
    for (sw, number), port in sorted(host.ports.items()):
        if port.row["kind"] == names.UPLINK:
            uplinks.setdefault(sw, []).append(number)
    for (sw, number), port in host.ports.items():
        if "teaming.uplinks" in port.given:
            chosen = _chosen(host, port, uplinks.get(sw, []))
        else:
            chosen = default_uplinks(port.row["kind"], uplinks.get(sw, []))
        for seq, uplink in enumerate(chosen):
            host.rows["port_uplink"].append(dict(sw=sw, port=number, seq=seq, uplink=uplink))


def _chosen(host: Host, port: Port, uplinks: list[int]) -> list[int]:
    sw, path = port.row["sw"], (*port.path, "teaming", "uplinks")
    chosen: list[int] = []
    by_nic = {host.ports[sw, uplink].row["nic"]: uplink for uplink in uplinks}
    for position, item in enumerate(read_list(port.given["teaming.uplinks"], UPLINK_REFERENCE, path, host.problems)):
        if isinstance(item, int):
            chosen.append(item)
        elif item in by_nic:
            chosen.append(by_nic[item])
        else:
            host.problems.add((*path, position), f'"{port.switch.alias}" has no uplink "{item}"{nearest(item, by_nic)}')
    return chosen


def default_uplinks(kind: int, uplinks: list[int]) -> list[int]:
    """The uplinks of a port that names none: all of its switch, as many as a policy holds. An uplink has none."""
    return [] if kind == names.UPLINK else uplinks[:8]
