"""The commands that change something. Each says old and new value, reads back what can be read, and is one line in the
system's log. All that can be refused is refused before anything is sent.
"""

from __future__ import annotations

import sys
from typing import TYPE_CHECKING, Any, Callable, Dict, List, NamedTuple, Optional, Sequence

from rynctl.cli import number
from rynctl.errors import DONE, CommandError, UsageError
from rynctl.rows import plain, port_or_switch, row, teaming, the_device, which_uplinks

if TYPE_CHECKING:
    from rynctl.cli import Context

ON = {"on": True, "yes": True, "true": True, "1": True}
OFF = {"off": False, "no": False, "false": False, "0": False}


class Change(NamedTuple):
    object: str
    key: str
    new: Any  # what is asked for; None: an action without a value
    send: Callable[[], Any]
    read: Optional[Callable[[], Any]] = None  # None: the platform does not tell
    danger: Optional[str] = None  # what is asked before it is sent
    shows: bool = True  # whether what is read back shows the change: equal before is unchanged, different after changed


def on_off(text: str, name: str) -> bool:
    try:
        return {**ON, **OFF}[text.lower()]
    except KeyError:
        raise UsageError(f"{name} is on or off, not {text!r}") from None


def values(context: Context, key: str, count: int) -> List[str]:
    given: List[str] = context.options.value
    if len(given) != count:
        raise UsageError(f"{key} takes {count} value{'s' * (count != 1)}, not {len(given)}: {' '.join(given)}")
    return given


def unknown(context: Context, keys: Sequence[str]) -> UsageError:
    from rynctl.select import nearest

    key = context.options.key
    return UsageError(
        f"{context.command.words[0]} has no setting {key!r}" f"{nearest(key, keys) or '; there are ' + ', '.join(keys)}"
    )


def carry_out(context: Context, change: Change) -> int:
    """Shows, asks, sends, reads back, shows."""
    from rynctl.log import log_change

    options = context.options
    ask = change.danger is not None and not options.yes and not options.dry_run
    if ask and not sys.stdin.isatty():
        raise UsageError(f"{context.command.name} is dangerous ({change.danger}); --yes says that it is meant")
    old = None if change.read is None else plain(change.read())
    same = change.shows and change.read is not None and old == change.new
    if same or options.dry_run:
        result = "unchanged" if same else "planned"
        return show(context, change, old, change.new, result)
    if ask:
        sys.stderr.write(f"{change.object}: {change.danger}? [y/N] ")
        sys.stderr.flush()
        if sys.stdin.readline().strip().lower() not in ("y", "yes"):
            raise CommandError("nothing was changed")
    try:
        change.send()
        new = change.new if change.read is None else plain(change.read())
    except KeyboardInterrupt:
        log_change(context, change, old, change.new, "interrupted")
        raise CommandError("interrupted; the change may still happen") from None
    except Exception as error:
        log_change(context, change, old, change.new, f"failed: {str(error) or type(error).__name__}")
        raise
    if change.read is None:
        result = "unverified"
    else:
        result = "changed" if (new == change.new if change.shows else new != old) else "unverified"
    log_change(context, change, old, new, result)
    return show(context, change, old, new, result)


def show(context: Context, change: Change, old: Any, new: Any, result: str) -> int:
    context.out.rows([row("switch.set", change.object, change.key, old, new, result)])
    return DONE


# Switches


def switch_set(context: Context) -> int:
    options = context.options
    key = options.key
    parse: Dict[str, Callable[[str], Any]] = {
        "burst_size": lambda text: number(text, key, 1),
        "numa_teaming": lambda text: on_off(text, key),
        "lro": lambda text: on_off(text, key),
        "panic_on_tx_hang": lambda text: int(on_off(text, key)),
        "uplink_mac_learn": lambda text: on_off(text, key),
    }
    if key not in parse:
        raise unknown(context, list(parse))
    wanted = parse[key](values(context, key, 1)[0])
    switch = context.host().switch(options.switch)
    if key == "uplink_mac_learn":
        return carry_out(context, Change(switch.name, key, wanted, lambda: switch.set_uplink_learning(wanted)))
    danger = "the host panics when an uplink hangs" if key == "panic_on_tx_hang" and wanted else None
    return carry_out(
        context,
        Change(switch.name, key, wanted, lambda: setattr(switch, key, wanted), lambda: getattr(switch, key), danger),
    )


# Ports


def port_set(context: Context) -> int:
    options = context.options
    if options.key == "lro":
        wanted = on_off(values(context, "lro", 1)[0], "lro")
        port = context.host().port(options.port)
        return carry_out(
            context, Change(name_of(port), "lro", wanted, lambda: setattr(port, "lro", wanted), lambda: port.lro)
        )
    if options.key != "teaming":
        raise unknown(context, ["lro", "teaming"])
    from ryn.names import TEAMING_TYPES
    from rynctl.select import nearest

    kind, *texts = options.value
    if kind not in TEAMING_TYPES:
        raise UsageError(
            f"there is no type of teaming {kind!r}"
            f"{nearest(kind, TEAMING_TYPES) or '; there are ' + ', '.join(TEAMING_TYPES)}"
        )
    uplinks = [number(text, "an uplink", 0, 0xFFFF) for text in texts]
    if len(uplinks) > 8:
        raise UsageError(f"{len(uplinks)} uplinks are more than 8")
    port = context.host().port(options.port)
    return carry_out(
        context,
        Change(
            name_of(port),
            "teaming",
            [kind, *uplinks],
            lambda: setattr(port, "teaming", (kind, uplinks)),
            lambda: teaming(port),
        ),
    )


def name_of(port: Any) -> str:
    return f"{port.switch.name}/{port.number}"


def port_reset(context: Context) -> int:
    port = context.host().port(context.options.port)
    return carry_out(context, Change(name_of(port), "reset", None, port.reset, danger="reset the port"))


def port_migrate(context: Context) -> int:
    options = context.options
    numbers = [number(getattr(options, name), name.upper()) for name in ("a", "b", "c")]
    port = context.host().port(options.port)

    def cores() -> List[List[int]]:
        port.refresh()
        return [list(port.tx_cores), list(port.rx_cores)]

    return carry_out(
        context,
        Change(
            name_of(port),
            "migrate",
            numbers,
            lambda: port.migrate(*numbers),
            cores,
            "move the port to other cores",
            shows=False,
        ),
    )


def port_unpin(context: Context) -> int:
    wanted = number(context.options.n, "N")
    port = context.host().port(context.options.port)
    return carry_out(context, Change(name_of(port), "unpin", wanted, lambda: port.unpin(wanted)))


# Uplinks


def uplink_set(context: Context) -> int:
    options = context.options
    if options.key != "ring_size":
        raise unknown(context, ["ring_size"])
    sizes = [number(text, name) for name, text in zip(("TX", "RX"), values(context, "ring_size", 2))]
    for size in sizes:
        if size is not None and size % 32:
            raise UsageError(f"ring size {size} is no multiple of 32")
    (uplink,) = which_uplinks(context.host(), options.port)
    return carry_out(
        context,
        Change(
            name_of(uplink.port),
            "ring_size",
            sizes,
            lambda: setattr(uplink, "ring_size", sizes),
            lambda: uplink.ring_size,
        ),
    )


# MAC addresses


def _mac_entry(context: Context, add: bool) -> int:
    from ryn import MacAddress

    options = context.options
    mac = MacAddress(options.mac)
    vlan = number(options.vlan or "0", "--vlan", 0, 4095) or 0
    port = context.host().port(options.port)

    def present() -> bool:
        return any(entry.vlan == vlan and entry.port == port.number for entry in port.macs().find(mac))

    send = port.add_mac if add else port.del_mac
    return carry_out(
        context, Change(name_of(port), f"mac {mac} vlan {vlan}", add, lambda: send(mac, vlan=vlan), present)
    )


def mac_add(context: Context) -> int:
    return _mac_entry(context, True)


def mac_del(context: Context) -> int:
    return _mac_entry(context, False)


def mac_clear(context: Context) -> int:
    found = port_or_switch(context.host(), getattr(context.options, "switch|port"))
    name = name_of(found) if hasattr(found, "dvport") else found.name
    return carry_out(
        context,
        Change(name, "macs", 0, found.clear_macs, lambda: len(found.macs()), "forget its MAC addresses", shows=False),
    )


# Flow cache, offload


def flow_clear(context: Context) -> int:
    switch = context.host().switch(context.options.switch)
    return carry_out(
        context,
        Change(
            switch.name,
            "flows",
            0,
            switch.clear_flows,
            lambda: sum(stats.flows for stats in switch.flow_stats()),
            "empty its flow cache",
            shows=False,
        ),
    )


def _flow_cache(context: Context, on: bool) -> int:
    switch = context.host().switch(context.options.switch)
    return carry_out(context, Change(switch.name, "flow_cache", on, lambda: switch.set_flow_cache(on)))


def flow_enable(context: Context) -> int:
    return _flow_cache(context, True)


def flow_disable(context: Context) -> int:
    return _flow_cache(context, False)


def _fpo(context: Context, on: bool) -> int:
    switch = context.host().switch(context.options.switch)
    return carry_out(
        context, Change(switch.name, "fpo", on, lambda: setattr(switch, "fpo", int(on)), lambda: bool(switch.fpo))
    )


def fpo_enable(context: Context) -> int:
    return _fpo(context, True)


def fpo_disable(context: Context) -> int:
    return _fpo(context, False)


# The balancer


def lb_set(context: Context) -> int:
    from ryn.names import ALGORITHMS

    options = context.options
    key = options.key
    names = ("high", "low", "pause", "sensitivity")
    if key != "algorithm" and key not in names:
        raise unknown(context, ["algorithm", *names])
    text = values(context, key, 1)[0]
    if key == "algorithm":
        if text not in ALGORITHMS:
            raise UsageError(f"there is no algorithm {text!r}; there are {', '.join(ALGORITHMS)}")
        balancer = context.host().switch(options.switch).balancer
        return carry_out(
            context,
            Change(
                balancer.switch.name,
                key,
                text,
                lambda: setattr(balancer, "algorithm", text),
                lambda: balancer.algorithm,
            ),
        )
    wanted = number(text, key)
    balancer = context.host().switch(options.switch).balancer
    place = names.index(key)
    new = balancer.options._replace(**{key: wanted})
    if new.low > new.high:
        raise UsageError(f"the low threshold {new.low} is above the high one, {new.high}")
    only = [wanted if i == place else None for i in range(len(names))]
    return carry_out(
        context,
        Change(
            balancer.switch.name,
            key,
            wanted,
            lambda: setattr(balancer, "options", only),
            lambda: balancer.options[place],
        ),
    )


# Devices and the host


def device_set(context: Context) -> int:
    options = context.options
    if options.key != "affinity":
        raise unknown(context, ["affinity"])
    wanted = number(values(context, "affinity", 1)[0], "affinity")
    host = context.host()
    device = the_device(host, options.device)
    return carry_out(
        context,
        Change(
            device.name,
            "affinity",
            wanted,
            lambda: host.set_affinity(device.name, wanted),
            lambda: the_device(host, device.name).affinity,
        ),
    )


def host_set(context: Context) -> int:
    from ryn import Weights

    options = context.options
    key = options.key
    weights = [f"weights.{name}" for name in Weights._fields]
    if key == "flow_timeout":
        wanted = number(values(context, key, 1)[0], key)
        host = context.host()
        return carry_out(
            context,
            Change("host", key, wanted, lambda: setattr(host, "flow_timeout", wanted), lambda: host.flow_timeout),
        )
    if key == "fastslabs":
        if options.value not in ([], ["on"]):
            raise UsageError("fastslabs can only be set up: host set fastslabs on")
        host = context.host()

        def set_up() -> None:
            if not host.init_fastslabs():
                raise CommandError("no switch of the configuration is served by the datapath; nothing was done")

        return carry_out(context, Change("host", key, True, set_up))
    if key not in weights:
        raise unknown(context, ["flow_timeout", "fastslabs", *weights])
    place = weights.index(key)
    wanted = number(values(context, key, 1)[0], key)
    host = context.host()
    only = [wanted if i == place else None for i in range(len(weights))]
    return carry_out(
        context,
        Change(
            "host", key, wanted, lambda: setattr(host, "balancer_weights", only), lambda: host.balancer_weights[place]
        ),
    )


def host_reset(context: Context) -> int:
    if context.options.what != "weights":
        raise UsageError(f"there is nothing like {context.options.what!r} to reset; there is weights")
    host = context.host()
    return carry_out(
        context,
        Change(
            "host",
            "weights",
            None,
            host.reset_balancer_weights,
            lambda: list(host.balancer_weights),
            "give the weights their defaults",
            shows=False,
        ),
    )
