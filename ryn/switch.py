"""A switch: its ports, tables, flows and settings."""

from __future__ import annotations

import operator
from typing import TYPE_CHECKING, Any, Dict, Iterable, List, Optional, Tuple, cast

from ryn import properties
from ryn._records import DvsRecord, FlowStats, FpoStats, MacTable, Mirror, SwitchRecord
from ryn.balancer import Balancer
from ryn.errors import BadParameter, NotFound
from ryn.flows import Flows, flow_filter, table_cores
from ryn.names import Kind
from ryn.port import Port
from ryn.records import Setting
from ryn.settings import all_settings, fpo_value, kept_value, settle, store, word
from ryn.uplink import Uplink

if TYPE_CHECKING:
    from ryn._core import Platform
    from ryn.host import Host

SWITCH_CLASS = "vswitch"
HIGHEST_CORE = 63


class Switch:
    """One of `host.switches()`; `host.switch("dvs-1")`.

    The attributes are what the listing gave. `number`, 0 to 15, `max_ports`, `active_ports`, `port_count`, `mtu` in
    bytes and `cores` (the numbers of those that serve it) are the datapath's, and None where only the configuration
    knows the switch; `alias` and `id` are the configuration's, and None where only the datapath knows it. `name` is
    the name by which the datapath knows it, or would.

    >>> import ryn
    >>> switch = ryn.Host().switch("dvs-1")
    >>> switch.number, switch.name, switch.alias, switch.mtu, switch.cores
    (0, 'dvs-1-set', 'dvs-1', 1500, (0, 1, 2, 3, 8, 9, 10, 11))
    >>> switch.burst_size = 64
    >>> print(switch.settings()["burst_size"])
    Setting(name='burst_size', value=64, source='property', stored=64, running=64)
    >>> [mirror.index for mirror in switch.mirrors()]
    [1, 2, 7]
    """

    __slots__ = ("host", "platform", "record", "configured", "number", "name", "alias", "id")

    def __init__(self, host: Host, record: Optional[SwitchRecord], configured: Optional[DvsRecord]):
        self.host = host
        self.platform: Platform = host.platform
        self.record = record
        self.configured = configured
        self.number: Optional[int] = None if record is None else record.number
        self.alias: Optional[str] = None if configured is None else configured.alias
        self.id: Optional[str] = None if configured is None else configured.id
        if record is not None:
            self.name: str = record.name
        else:
            self.name = portset_name(cast(DvsRecord, configured))

    @property
    def max_ports(self) -> Optional[int]:
        return None if self.record is None else self.record.max_ports

    @property
    def active_ports(self) -> Optional[int]:
        return None if self.record is None else self.record.active_ports

    @property
    def port_count(self) -> Optional[int]:
        return None if self.record is None else self.record.ports

    @property
    def mtu(self) -> Optional[int]:
        return None if self.record is None else self.record.mtu

    @property
    def cores(self) -> Optional[Tuple[int, ...]]:
        return None if self.record is None else self.record.cores

    def datapath_number(self) -> int:
        """The number, where the datapath knows the switch. NotFound otherwise."""
        if self.number is None:
            raise NotFound(f"the datapath does not know switch {self}")
        return self.number

    def identifier(self) -> str:
        """The configuration's identifier, under which the host keeps settings of the switch.

        NotFound where the configuration does not know the switch, BadParameter where it is of another class than
        those that have settings.
        """
        if self.configured is None:
            raise NotFound(f"the configuration does not know switch {self}; so it has no settings")
        if self.configured.class_name != SWITCH_CLASS:
            kind = self.configured.class_name
            raise BadParameter(f"switch {self} is of class {kind!r}, not {SWITCH_CLASS!r}")
        return self.configured.id

    # Its ports

    def ports(self) -> List[Port]:
        """The ports, as the datapath lists them; none where it does not know the switch."""
        if self.number is None:
            return []
        return cast(List[Port], self.platform.ports(self.number, self, Port))

    def port(self, number: int) -> Port:
        """The port of a number, 0 to 127. NotFound where there is none."""
        number = operator.index(number)
        for port in self.ports():
            if port.number == number:
                return port
        raise NotFound(f"there is no port {number} on switch {self}")

    def uplinks(self) -> List[Uplink]:
        """Those of the ports that lead out of the host."""
        return [Uplink(port) for port in self.ports() if port.kind_code == Kind.UPLINK]

    # Its tables and flows

    def macs(self) -> MacTable:
        """The MAC addresses of the whole switch, at most 65,536, with `limit`."""
        return self.platform.switch_macs(self.datapath_number())

    def clear_macs(self) -> None:
        """Forgets the addresses that were learned."""
        self.platform.clear_switch_macs(self.datapath_number())

    def mirrors(self) -> List[Mirror]:
        """The mirror sessions."""
        return self.platform.mirrors(self.datapath_number())

    def flows(self, *, cores: Optional[Iterable[int]] = None, offloaded: bool = False, **wanted: Any) -> Flows:
        """The flows in the caches of the cores 0 to 31, or of `cores`; with `offloaded` only those that a device has
        taken over (assumed).

        Filters, all of which have to match: `src`, `dst` (an address or network), `sport`, `dport` (ICMP: type and
        code), `protocol` (a number or tcp, udp, icmp, icmp6), `vlan`, `action` (the name of one), `mac_a`, `mac_b`.

        >>> import ryn
        >>> flow = next(ryn.Host().switch("dvs-1").flows(dst="10.0.0.0/8", action="DROP"))
        >>> flow.dst, flow.dport, flow.protocol, str(flow.actions)
        (IPv4Address('10.0.0.5'), 23, 6, 'LRO|IPFIX_INGRESS|DROP|VR|0x80')
        """
        chosen = None if cores is None else table_cores(cores)
        return Flows([self], flow_filter(**wanted), chosen, bool(offloaded))

    def flow_stats(self, cores: Optional[Iterable[int]] = None) -> List[FlowStats]:
        """Hits and misses of the flow cache of each core, of all cores unless `cores` names some (0 to 63)."""
        number = self.datapath_number()
        return self.platform.flow_stats(number, self._stats_cores(cores))

    def fpo_stats(self, cores: Optional[Iterable[int]] = None) -> List[FpoStats]:
        """What devices have taken over of each core's flows, of all cores unless `cores` names some (0 to 63)."""
        number = self.datapath_number()
        return self.platform.fpo_stats(number, self._stats_cores(cores))

    def _stats_cores(self, cores: Optional[Iterable[int]]) -> Tuple[int, ...]:
        if cores is None:
            return self.platform.cores(self.datapath_number())
        return tuple(word("core", core, highest=HIGHEST_CORE) for core in cores)

    def clear_flows(self) -> None:
        """Empties the flow cache."""
        self.platform.clear_flows(self.datapath_number())

    def set_flow_cache(self, on: bool) -> None:
        """Switches the flow cache on or off. The platform does not say which it is."""
        self.platform.set_flow_cache(self.datapath_number(), bool(word("on", on, highest=1)))

    def set_uplink_learning(self, on: bool) -> None:
        """Whether MAC addresses are learned on uplinks. The platform does not say which it is."""
        self.platform.set_uplink_learning(self.datapath_number(), word("on", on, highest=1))

    # Its settings

    def settings(self) -> Dict[str, Setting]:
        """Every setting that can be read, by its name, with its value and where that comes from."""
        return all_settings(self)

    @property
    def balancer(self) -> Balancer:
        return Balancer(self)

    @property
    def burst_size(self) -> int:
        """How many packets are taken at once: what the host keeps, else what the datapath runs with.

        Set to 1 to 4294967295.
        """
        return cast(int, kept_value(self, "burst_size"))

    @burst_size.setter
    def burst_size(self, size: int) -> None:
        size = word("burst_size", size, lowest=1)
        store(self, properties.BURST_SIZE, size)
        settle("burst_size", lambda: self.burst_size, size, self.host.settle)

    @property
    def numa_teaming(self) -> bool:
        """Whether uplinks on the sender's NUMA node go first: what the host keeps, else what the datapath runs with."""
        return cast(bool, kept_value(self, "numa_teaming"))

    @numa_teaming.setter
    def numa_teaming(self, on: bool) -> None:
        on = bool(word("numa_teaming", on, highest=1))
        store(self, properties.NUMA_TEAMING, on)
        settle("numa_teaming", lambda: self.numa_teaming, on, self.host.settle)

    @property
    def fpo(self) -> int:
        """Whether devices take over flow processing: 0 off, anything else on; 1 where the host keeps nothing.

        Set to a bool or a number of 32 bits.
        """
        return fpo_value(self)

    @fpo.setter
    def fpo(self, value: int) -> None:
        value = word("fpo", value)
        store(self, properties.FPO, value)
        settle("fpo", lambda: self.fpo, value, self.host.settle)

    @property
    def lro(self) -> bool:
        """Whether large receive offload is on. It overrides the ports' own settings."""
        return self.platform.switch_lro(self.datapath_number())

    @lro.setter
    def lro(self, on: int) -> None:
        on = word("lro", on)
        self.platform.set_switch_lro(self.datapath_number(), on)
        settle("lro", lambda: self.lro, bool(on), self.host.settle)

    @property
    def panic_on_tx_hang(self) -> int:
        """Whether the host stops when an uplink hangs in sending: 0 or 1, as the datapath has it."""
        return self.platform.panic_on_tx_hang(self.datapath_number())

    @panic_on_tx_hang.setter
    def panic_on_tx_hang(self, on: int) -> None:
        on = word("panic_on_tx_hang", on, highest=1)
        self.platform.set_panic_on_tx_hang(self.datapath_number(), on)
        settle("panic_on_tx_hang", lambda: self.panic_on_tx_hang, on, self.host.settle)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Switch):
            return NotImplemented
        return (self.record, self.configured) == (other.record, other.configured)

    def __hash__(self) -> int:
        return hash((self.number, self.name, self.id))

    def __str__(self) -> str:
        return self.name if self.alias is None else self.alias

    def __repr__(self) -> str:
        return f"<ryn.Switch {self.number} {self}>"


NAME_SIZE = 128  # bytes that the datapath has for a switch's name


def portset_name(configured: DvsRecord) -> str:
    """The name by which the datapath knows a switch of the configuration."""
    name = configured.portset
    if name is None:
        name = configured.alias
    if name is None:
        name = configured.id
    return name.encode("utf-8", "surrogateescape")[:NAME_SIZE].decode("utf-8", "surrogateescape")
