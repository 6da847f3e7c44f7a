"""`rynctl find WHAT`: where a MAC or IP address, a switch, a port or a device is, on all switches."""

from __future__ import annotations

import re
from typing import TYPE_CHECKING, Any, Dict, Iterator, List, Optional

from rynctl.errors import NoSuchObject
from rynctl.render import Row
from rynctl.rows import row, teaming, which_switches

if TYPE_CHECKING:
    from ryn import Host, Port, Switch
    from rynctl.cli import Context

MAC = re.compile(r"[0-9a-fA-F]{2}([:-][0-9a-fA-F]{2}){5}|([0-9a-fA-F]{2}[:-]){1,5}\*")


def rows(context: Context) -> List[Row]:
    what, host = context.options.what, context.host()
    found: List[Row] = []
    if MAC.fullmatch(what):
        found += macs(host, what)
    elif address(what) is not None:
        found += addresses(host, what)
    else:
        found += switches(host, what)
        found += ports(host, what)
        found += devices(host, what)
    if not found:
        raise NoSuchObject(f"{what!r} was not found on any switch")
    return found


def address(text: str) -> Optional[str]:
    import ipaddress

    try:
        return str(ipaddress.ip_address(text))
    except ValueError:
        return None


def uplinks_of(port: Port) -> List[int]:
    """Those that the port may send by; without a list all of its switch."""
    return teaming(port)[1:] or [uplink.number for uplink in port.switch.uplinks()]


def port_row(
    match: str,
    port: Port,
    mac: Optional[str] = None,
    vlan: Optional[int] = None,
    flows: Optional[int] = None,
    detail: Optional[str] = None,
) -> Row:
    cores = sorted({*port.tx_cores, *port.rx_cores})
    return row(
        "find",
        match,
        port.switch.name,
        port.number,
        str(port.kind),
        mac or str(port.mac),
        vlan,
        uplinks_of(port),
        cores,
        flows,
        detail,
    )


def macs(host: Host, mac: str) -> Iterator[Row]:
    """The ports that have the address, and the entries of the MAC tables."""
    for switch in which_switches(host, None):
        known: Dict[int, Port] = {port.number: port for port in switch.ports()}
        for port in known.values():
            if matches(str(port.mac), mac):
                flows = sum(1 for _ in switch.flows(mac_a=str(port.mac))) if "*" not in mac else None
                yield port_row("port", port, flows=flows)
        for entry in switch.macs().find(mac):
            holder = known.get(entry.port)
            if holder is not None:
                yield port_row("mac", holder, str(entry.mac), entry.vlan)
            else:
                yield row(
                    "find",
                    "mac",
                    switch.name,
                    entry.port,
                    None,
                    str(entry.mac),
                    entry.vlan,
                    None,
                    None,
                    None,
                    "its port is gone",
                )


def matches(mac: str, wanted: str) -> bool:
    wanted = wanted.lower().replace("-", ":")
    return mac.startswith(wanted[:-1]) if wanted.endswith("*") else mac == wanted


def addresses(host: Host, ip: str) -> Iterator[Row]:
    """Who has the address by what its flows show: the port whose MAC address sends from it or receives for it."""
    for switch in which_switches(host, None):
        ends: Dict[str, List[Any]] = {}
        for flow in switch.flows(src=ip):
            ends.setdefault(str(flow.mac_a), []).append(flow)
        count = sum(map(len, ends.values()))
        to = 0
        for flow in switch.flows(dst=ip):
            to += 1
            ends.setdefault(str(flow.mac_b), [])
        if not count + to:
            continue
        holders = [port for port in switch.ports() if str(port.mac) in ends]
        for port in holders:
            yield port_row("flow", port, flows=count + to, detail=f"{count} flows from {ip}, {to} to it")
        if not holders:
            cores = sorted({flow.core for flows in ends.values() for flow in flows})
            yield row(
                "find",
                "flow",
                switch.name,
                None,
                None,
                None,
                None,
                None,
                cores,
                count + to,
                f"{count} flows from {ip}, {to} to it; no port of the switch has their MAC address",
            )


def switches(host: Host, what: str) -> Iterator[Row]:
    for switch in host.switches():
        if what in (switch.name, switch.alias, switch.id) or what == str(switch.number):
            yield switch_row(switch)


def switch_row(switch: Switch) -> Row:
    there = switch.number is not None
    flows = sum(stats.flows for stats in switch.flow_stats()) if there else None
    uplinks = [uplink.number for uplink in switch.uplinks()] if there else []
    number = f"number {switch.number}" if there else "only configured"
    detail = f"{number}, alias {switch.alias or '-'}, {len(switch.ports())} ports"
    return row("find", "switch", switch.name, None, None, None, None, uplinks, list(switch.cores or ()), flows, detail)


def ports(host: Host, what: str) -> Iterator[Row]:
    import ryn

    try:
        port = host.port(what)
    except (ValueError, ryn.NotFound):
        return
    flows = sum(1 for _ in port.switch.flows(mac_a=str(port.mac)))
    yield port_row("port", port, flows=flows, detail=f"distributed port {port.dvport}, MAC addresses: {port.mac_count}")


def devices(host: Host, what: str) -> Iterator[Row]:
    for device in host.devices():
        if device.name == what:
            yield row(
                "find",
                "device",
                None,
                None,
                None,
                None,
                None,
                None,
                None,
                None,
                f"{device.name}, affinity {device.affinity}",
            )
