"""The rows of each command that reads: one function a command, named in commands.py."""

from __future__ import annotations

from functools import partial
from typing import TYPE_CHECKING, Any, Callable, Dict, Iterable, Iterator, List, Mapping, Optional, Sequence, Tuple

from rynctl.columns import COLUMNS, Column
from rynctl.errors import NoSuchObject, UsageError
from rynctl.render import Row

if TYPE_CHECKING:
    from ryn import Host, Port, Switch, Uplink
    from rynctl.cli import Context


def row(table: str, *values: Any) -> Row:
    """The values of a row under the names of its columns."""
    columns: Sequence[Column] = COLUMNS[table]
    assert len(values) == len(columns), table
    return {column.name: value for column, value in zip(columns, values)}


def which_switches(host: Host, which: Optional[str]) -> List[Switch]:
    """The switch that is named, or all that the datapath has, each once."""
    if which is not None:
        return [host.switch(which)]
    found: Dict[Any, Switch] = {}
    for switch in host.switches():
        if switch.number is not None:
            found.setdefault(switch.number, switch)
    return list(found.values())


def which_ports(host: Host, which: Optional[str]) -> List[Port]:
    """A port, the ports of a switch, or all."""
    if which is not None and "/" in which:
        return [port_or_switch(host, which)]
    return [port for switch in which_switches(host, which) for port in switch.ports()]


def port_or_switch(host: Host, which: str) -> Any:
    """SWITCH/NUMBER is a port, unless a switch has just that name."""
    import ryn

    try:
        return host.port(which)
    except (ValueError, ryn.NotFound) as error:
        try:
            return host.switch(which)
        except ryn.NotFound:
            raise error from None


def which_uplinks(host: Host, which: Optional[str]) -> List[Uplink]:
    import ryn

    ports = [port for port in which_ports(host, which) if port.kind == ryn.Kind.UPLINK]
    if which is not None and "/" in which and not ports:
        raise NoSuchObject(f"port {which} is no uplink")
    return [ryn.Uplink(port) for port in ports]


# Switches


def _switch(switch: Switch) -> Tuple[Any, ...]:
    return switch.number, switch.name, switch.alias, switch.id, switch.mtu, switch.max_ports


def switches(context: Context) -> Iterator[Row]:
    host, which = context.host(), context.options.switch
    for switch in host.switches() if which is None else [host.switch(which)]:
        yield row("switch.list", *_switch(switch))


def switch_show(context: Context) -> Iterator[Row]:
    switch = context.host().switch(context.options.switch)
    there = switch.number is not None
    yield row(
        "switch.show",
        *_switch(switch),
        len(switch.ports()),
        None if switch.cores is None else list(switch.cores),
        len(switch.macs()) if there else None,
        len(switch.mirrors()) if there else None,
    )


# Ports


def _port(port: Port) -> Tuple[Any, ...]:
    return (
        port.switch.name,
        port.number,
        port.dvport,
        str(port.kind),
        str(port.mac),
        port.mac_count,
        list(port.tx_cores),
        list(port.rx_cores),
    )


def ports(context: Context) -> Iterator[Row]:
    for port in which_ports(context.host(), context.options.switch):
        yield row("port.list", *_port(port))


def port_show(context: Context) -> Iterator[Row]:
    port = context.host().port(context.options.port)
    config, teaming = port.config(), port.teaming
    yield row(
        "port.show",
        *_port(port),
        port.lro,
        teaming.type,
        list(teaming.uplinks),
        flags_text(config.flags),
        config.untagged_vlan,
        [list(pair) for pair in config.vlan_ranges],
        config.vni,
        config.forged_allowed,
        config.sample_rate,
        [str(mac) for mac in config.multicast],
    )


def flags_text(flags: int) -> str:
    from ryn.names import ReceiveFlags

    return str(ReceiveFlags(flags))


def port_stats(context: Context) -> Iterator[Row]:
    host, which = context.host(), _which(context)
    if which is None:
        reading = host.counters()
        read: Iterable[Tuple[Any, Any]] = ((port, reading[port]) for port in reading)
    else:
        read = ((port, port.counters()) for port in which_ports(host, which))
    for port, counters in read:
        yield row("port.stats", port.switch.name, port.number, *counters.total, *counters.fast, *counters.slow)


def _which(context: Context) -> Optional[str]:
    """The argument that is a switch or a port."""
    return getattr(context.options, "switch|port", None)


# Uplinks


def _uplink(uplink: Uplink) -> Row:
    import ryn

    port = uplink.port
    try:
        tx, rx = uplink.ring_size
    except (ryn.NotFound, ryn.BadParameter):  # only a configured switch keeps ring sizes
        tx = rx = None  # type: ignore[assignment]
    return row(
        "uplink.list",
        port.switch.name,
        port.number,
        port.dvport,
        str(port.mac),
        uplink.link_up,
        tx,
        rx,
        uplink.offload.level,
    )


def uplinks(context: Context) -> Iterator[Row]:
    return map(_uplink, which_uplinks(context.host(), context.options.switch))


def uplink_show(context: Context) -> Iterator[Row]:
    return map(_uplink, which_uplinks(context.host(), context.options.port))


def uplink_stats(context: Context) -> Iterator[Row]:
    for uplink in which_uplinks(context.host(), _which(context)):
        yield row("uplink.stats", uplink.switch.name, uplink.number, *uplink.counters())


def uplink_queues(context: Context) -> Iterator[Row]:
    (uplink,) = which_uplinks(context.host(), context.options.port)
    for kind, side in enumerate(("rx", "tx")):
        for queue, counters in enumerate(uplink.queues(kind)):
            yield row("uplink.queues", uplink.switch.name, uplink.number, side, queue, *counters)


def uplink_dump(context: Context) -> Iterator[Row]:
    (uplink,) = which_uplinks(context.host(), context.options.port)
    for number, line in enumerate(uplink.driver_text.splitlines(), 1):
        yield row("uplink.dump", uplink.switch.name, uplink.number, number, line)


# MAC addresses and flows


def macs(context: Context) -> Iterator[Row]:
    found = port_or_switch(context.host(), _which(context) or "")
    name = found.switch.name if hasattr(found, "dvport") else found.name
    for entry in found.macs():
        yield row("mac.list", name, entry.port, str(entry.mac), entry.vlan, entry.generation)


def flow_filters(context: Context) -> Dict[str, Any]:
    """The keywords of Switch.flows."""
    from rynctl.cli import number

    options = context.options
    wanted: Dict[str, Any] = {
        "src": options.src,
        "dst": options.dst,
        "action": options.action,
        "sport": number(options.sport, "--sport", 0, 0xFFFF),
        "dport": number(options.dport, "--dport", 0, 0xFFFF),
        "vlan": number(options.vlan, "--vlan", 0, 4095),
    }
    protocol = options.protocol
    wanted["protocol"] = int(protocol) if protocol is not None and protocol.isdigit() else protocol
    if options.core:
        wanted["cores"] = [number(core, "--core", 0, 31) for core in options.core]
    if options.offloaded:
        wanted["offloaded"] = True
    return {name: value for name, value in wanted.items() if value is not None}


def flow_row(flow: Any, names: Dict[int, str]) -> Row:
    actions = str(flow.actions)
    return row(
        "flow.list",
        names.get(flow.switch, str(flow.switch)),
        flow.core,
        flow.protocol,
        str(flow.src),
        flow.sport,
        str(flow.dst),
        flow.dport,
        flow.packets,
        flow.bytes,
        flow.vlan,
        actions.split("|") if actions else [],
        flow.offloaded,
        str(flow.mac_a),
        str(flow.mac_b),
    )


def flows(context: Context) -> Iterator[Row]:
    wanted = flow_filters(context)
    found = which_switches(context.host(), context.options.switch)
    for switch in found:
        names = {number: switch.name for number in [switch.number] if number is not None}
        walk = switch.flows(**wanted)
        for flow in walk:
            yield flow_row(flow, names)
        if walk.unlisted:
            context.out.note(
                f"{walk.unlisted} more flows of {switch.name} are on cores above 31, whose tables cannot " "be read"
            )


def flow_stats(context: Context) -> Iterator[Row]:
    for switch in which_switches(context.host(), context.options.switch):
        for stats in switch.flow_stats():
            yield row("flow.stats", switch.name, *stats)


# Mirror sessions and receive filters


def mirrors(context: Context) -> Iterator[Row]:
    for switch in which_switches(context.host(), context.options.switch):
        for mirror in switch.mirrors():
            values = {
                name: list(value) if isinstance(value, tuple) else value for name, value in zip(mirror._fields, mirror)
            }
            yield {"switch": switch.name, **values}


def netq(context: Context) -> Iterator[Row]:
    port = context.host().port(context.options.port)
    for number, each in enumerate(port.netq().filters):
        yield row(
            "netq.list",
            port.switch.name,
            port.number,
            number,
            each.kind,
            each.text,
            [list(queue) for queue in each.queues],
        )


# The balancer, cores, offload


def lb(context: Context) -> Iterator[Row]:
    import ryn

    which = context.options.switch
    for switch in which_switches(context.host(), which):
        try:
            yield row("lb.list", switch.name, switch.balancer.algorithm, *switch.balancer.options)
        except ryn.NotFound:
            if which is not None:
                raise  # of all switches, only those that are configured have options


def lb_stats(context: Context) -> Iterator[Row]:
    for switch in which_switches(context.host(), context.options.switch):
        listed = {port.number for port in switch.ports()}
        for port in switch.balancer.port_stats().ports:
            if port.port in listed:
                yield row(
                    "lb.stats",
                    switch.name,
                    port.port,
                    port.core_a,
                    port.core_b,
                    port.usage0,
                    port.usage1,
                    port.usage2,
                    port.usage3,
                    port.load_a,
                    port.load_b,
                )


def lb_dump(context: Context) -> Iterator[Row]:
    switch = context.host().switch(context.options.switch)
    snapshot = switch.balancer.snapshot()
    name = switch.name
    for number, group in enumerate(snapshot.groups):
        yield row(
            "lb.dump",
            name,
            "group",
            number,
            None,
            group.load,
            None,
            None,
            None,
            list(group.tx_ports),
            list(group.rx_ports),
        )
    for vertex in snapshot.vertices:
        yield row("lb.dump", name, "vertex", vertex.number, None, None, None, vertex.wid, vertex.flags, None, None)
        for edge in vertex.outgoing:
            yield row("lb.dump", name, "edge", vertex.number, edge.peer, edge.load, edge.ema, None, None, None, None)


def fpo(context: Context) -> Iterator[Row]:
    import ryn

    for switch in which_switches(context.host(), context.options.switch):
        try:
            enabled: Optional[int] = switch.fpo
        except ryn.NotFound:  # not configured
            enabled = None
        for uplink in switch.uplinks():
            offload = uplink.offload
            yield row("fpo.list", switch.name, uplink.number, offload.level, enabled, *offload[1:])


def fpo_stats(context: Context) -> Iterator[Row]:
    for switch in which_switches(context.host(), context.options.switch):
        for stats in switch.fpo_stats():
            yield row("fpo.stats", switch.name, *stats)


def core_rows(host: Host, which: Optional[str] = None) -> List[Row]:
    """Usage is the host's, whatever switch answers, so one is asked."""
    users: Dict[int, List[str]] = {}
    figures: Dict[int, Any] = {}
    for switch in which_switches(host, which):
        for core in switch.cores or ():
            users.setdefault(core, []).append(switch.name)
        if not figures:
            figures = {stats.core: stats for stats in switch.balancer.port_stats().cores}
    return [
        row(
            "core.list",
            core,
            users[core],
            figures[core].usage if core in figures else None,
            figures[core].load if core in figures else None,
        )
        for core in sorted(users)
    ]


def cores(context: Context) -> List[Row]:
    return core_rows(context.host(), context.options.switch)


def core_show(context: Context) -> List[Row]:
    from rynctl.cli import number

    wanted = number(context.options.core, "CORE", 0, 63)
    found = [each for each in core_rows(context.host()) if each["core"] == wanted]
    if not found:
        raise NoSuchObject(f"there is no core {wanted}")
    return found


def devices(context: Context) -> Iterator[Row]:
    return (row("device.list", *device) for device in context.host().devices())


def device_show(context: Context) -> List[Row]:
    return [row("device.list", *the_device(context.host(), context.options.device))]


def the_device(host: Host, name: str) -> Any:
    found = host.devices()
    for device in found:
        if device.name == name:
            return device
    names = ", ".join(device.name for device in found)
    raise NoSuchObject(f"there is no device {name!r}" + (f"; there are {names}" if names else ""))


# The host


def host(context: Context) -> Iterator[Row]:
    import os

    there = context.host()
    found = which_switches(there, None)
    yield row(
        "host.list",
        os.uname().nodename,
        there.backend,
        len(there.switches()),
        sum(len(switch.ports()) for switch in found),
        list(there.cores),
        there.flow_timeout,
    )


# Settings: `get`


def _settings(
    context: Context,
    name: str,
    settings: Mapping[str, Callable[[], Any]],
    key: Optional[str],
    write_only: Sequence[str] = (),
) -> Iterator[Row]:
    """Rows of those settings that are asked for. Each is read when it is shown: one that fails spoils no other."""
    from rynctl.select import nearest

    if key is not None and key in write_only:
        raise UsageError(f"{key} can be set, but not read: the platform does not tell it")
    if key is not None and key not in settings:
        raise UsageError(
            f"{context.command.words[0]} has no setting {key!r}"
            f"{nearest(key, settings) or '; there are ' + ', '.join(settings)}"
        )
    for each in settings if key is None else [key]:
        value: Any = settings[each]()
        if hasattr(value, "source"):
            yield row(
                "switch.get", name, each, plain(value.value), value.source, plain(value.stored), plain(value.running)
            )
        else:
            yield row("switch.get", name, each, plain(value), "datapath", None, plain(value))


def plain(value: Any) -> Any:
    """As JSON has it: tuples as lists."""
    return [plain(item) for item in value] if isinstance(value, (tuple, list)) else value


def switch_get(context: Context) -> Iterator[Row]:
    switch = context.host().switch(context.options.switch)
    names = ("burst_size", "numa_teaming", "lro", "panic_on_tx_hang")
    settings = {name: partial(_setting, context, switch, name) for name in names}
    return _settings(context, switch.name, settings, context.options.key, ("uplink_mac_learn",))


def _setting(context: Context, switch: Switch, name: str) -> Any:
    """A setting of a switch; of one that is only configured it may be unknown, which fails if it alone is asked for."""
    import ryn
    from ryn.settings import one_setting

    try:
        return one_setting(switch, name)
    except ryn.Error:
        if switch.number is not None or context.options.key is not None:
            raise
        return ryn.Setting(name, None, "datapath", None, None)


def lb_get(context: Context) -> Iterator[Row]:
    switch = context.host().switch(context.options.switch)

    def option(place: int, name: str) -> Callable[[], Any]:
        def get() -> Any:
            setting = _setting(context, switch, "options")
            return setting._replace(
                name=name,
                **{
                    field: getattr(setting, field) and getattr(setting, field)[place]
                    for field in ("value", "stored", "running")
                },
            )

        return get

    names = ("high", "low", "pause", "sensitivity")
    settings: Dict[str, Callable[[], Any]] = {"algorithm": lambda: _setting(context, switch, "algorithm")}
    settings.update({name: option(place, name) for place, name in enumerate(names)})
    return _settings(context, switch.name, settings, context.options.key)


def fpo_get(context: Context) -> Iterator[Row]:
    switch = context.host().switch(context.options.switch)
    return _settings(context, switch.name, {"enabled": lambda: _setting(context, switch, "fpo")}, context.options.key)


def port_get(context: Context) -> Iterator[Row]:
    port = context.host().port(context.options.port)
    settings: Dict[str, Callable[[], Any]] = {"lro": lambda: port.lro, "teaming": lambda: teaming(port)}
    return _settings(context, f"{port.switch.name}/{port.number}", settings, context.options.key)


def teaming(port: Port) -> List[Any]:
    policy = port.teaming
    return [policy.type, *policy.uplinks]


def uplink_get(context: Context) -> Iterator[Row]:
    (uplink,) = which_uplinks(context.host(), context.options.port)
    for found in _settings(
        context, f"{uplink.switch.name}/{uplink.number}", {"ring_size": lambda: uplink.ring_size}, context.options.key
    ):
        yield {**found, "source": "property", "stored": found["value"], "running": None}


def device_get(context: Context) -> Iterator[Row]:
    device = the_device(context.host(), context.options.device)
    return _settings(context, device.name, {"affinity": lambda: device.affinity}, context.options.key)


def host_get(context: Context) -> Iterator[Row]:
    there = context.host()
    weights = there.balancer_weights
    settings: Dict[str, Callable[[], Any]] = {"flow_timeout": lambda: there.flow_timeout}
    for place, name in enumerate(weights._fields):
        settings[f"weights.{name}"] = partial(weights.__getitem__, place)
    return _settings(context, "host", settings, context.options.key, ("fastslabs",))
