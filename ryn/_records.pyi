"""Records, tables and flows: native types that need no platform library. All are exported by `ryn`."""

from ipaddress import IPv4Address, IPv6Address
from typing import Any, Final, Iterator, List, Optional, Sequence, Tuple, Union, final, overload

from _typeshed import structseq

from ryn.names import Actions

@final
class MacAddress:
    """A MAC address of 6 bytes, from a text with colons or dashes in any case, or from bytes."""

    def __init__(self, address: Union[str, bytes, MacAddress], /) -> None: ...
    @property
    def packed(self) -> bytes: ...
    def __bytes__(self) -> bytes: ...
    @property
    def is_multicast(self) -> bool: ...
    @property
    def is_local(self) -> bool: ...
    def __lt__(self, other: MacAddress, /) -> bool: ...
    def __le__(self, other: MacAddress, /) -> bool: ...
    def __gt__(self, other: MacAddress, /) -> bool: ...
    def __ge__(self, other: MacAddress, /) -> bool: ...
    def __eq__(self, other: object, /) -> bool: ...
    def __hash__(self) -> int: ...

@final
class Counters(structseq[int], Tuple[int, ...]):
    """The counters of one path of a port, or of both, unsigned 64 bits."""

    _fields: Tuple[str, ...]
    __match_args__: Final = (
        "tx_packets",
        "tx_bytes",
        "tx_multicast_packets",
        "tx_multicast_bytes",
        "tx_broadcast_packets",
        "tx_broadcast_bytes",
        "tx_drops",
        "tx_errors",
        "rx_packets",
        "rx_bytes",
        "rx_multicast_packets",
        "rx_multicast_bytes",
        "rx_broadcast_packets",
        "rx_broadcast_bytes",
        "rx_drops",
        "rx_errors",
    )
    @property
    def tx_packets(self) -> int: ...
    @property
    def tx_bytes(self) -> int: ...
    @property
    def tx_multicast_packets(self) -> int: ...
    @property
    def tx_multicast_bytes(self) -> int: ...
    @property
    def tx_broadcast_packets(self) -> int: ...
    @property
    def tx_broadcast_bytes(self) -> int: ...
    @property
    def tx_drops(self) -> int: ...
    @property
    def tx_errors(self) -> int: ...
    @property
    def rx_packets(self) -> int: ...
    @property
    def rx_bytes(self) -> int: ...
    @property
    def rx_multicast_packets(self) -> int: ...
    @property
    def rx_multicast_bytes(self) -> int: ...
    @property
    def rx_broadcast_packets(self) -> int: ...
    @property
    def rx_broadcast_bytes(self) -> int: ...
    @property
    def rx_drops(self) -> int: ...
    @property
    def rx_errors(self) -> int: ...

@final
class Rates(structseq[float], Tuple[float, ...]):
    """Counters of both paths of a port, a second."""

    _fields: Tuple[str, ...]
    __match_args__: Final = (
        "tx_packets",
        "tx_bytes",
        "tx_multicast_packets",
        "tx_multicast_bytes",
        "tx_broadcast_packets",
        "tx_broadcast_bytes",
        "tx_drops",
        "tx_errors",
        "rx_packets",
        "rx_bytes",
        "rx_multicast_packets",
        "rx_multicast_bytes",
        "rx_broadcast_packets",
        "rx_broadcast_bytes",
        "rx_drops",
        "rx_errors",
    )
    @property
    def tx_packets(self) -> float: ...
    @property
    def tx_bytes(self) -> float: ...
    @property
    def tx_multicast_packets(self) -> float: ...
    @property
    def tx_multicast_bytes(self) -> float: ...
    @property
    def tx_broadcast_packets(self) -> float: ...
    @property
    def tx_broadcast_bytes(self) -> float: ...
    @property
    def tx_drops(self) -> float: ...
    @property
    def tx_errors(self) -> float: ...
    @property
    def rx_packets(self) -> float: ...
    @property
    def rx_bytes(self) -> float: ...
    @property
    def rx_multicast_packets(self) -> float: ...
    @property
    def rx_multicast_bytes(self) -> float: ...
    @property
    def rx_broadcast_packets(self) -> float: ...
    @property
    def rx_broadcast_bytes(self) -> float: ...
    @property
    def rx_drops(self) -> float: ...
    @property
    def rx_errors(self) -> float: ...

@final
class UplinkCounters(structseq[int], Tuple[int, ...]):
    """The counters of an uplink's device or of one of its queues, unsigned 64 bits."""

    _fields: Tuple[str, ...]
    __match_args__: Final = (
        "rx_packets",
        "tx_packets",
        "rx_bytes",
        "tx_bytes",
        "rx_errors",
        "tx_errors",
        "rx_drops",
        "tx_drops",
        "rx_multicast_packets",
        "rx_broadcast_packets",
        "tx_multicast_packets",
        "tx_broadcast_packets",
        "collisions",
        "rx_length_errors",
        "rx_overflow_errors",
        "rx_crc_errors",
        "rx_frame_align_errors",
        "rx_fifo_errors",
        "rx_miss_errors",
        "tx_aborted_errors",
        "tx_carrier_errors",
        "tx_fifo_errors",
        "tx_heartbeat_errors",
        "tx_window_errors",
    )
    @property
    def rx_packets(self) -> int: ...
    @property
    def tx_packets(self) -> int: ...
    @property
    def rx_bytes(self) -> int: ...
    @property
    def tx_bytes(self) -> int: ...
    @property
    def rx_errors(self) -> int: ...
    @property
    def tx_errors(self) -> int: ...
    @property
    def rx_drops(self) -> int: ...
    @property
    def tx_drops(self) -> int: ...
    @property
    def rx_multicast_packets(self) -> int: ...
    @property
    def rx_broadcast_packets(self) -> int: ...
    @property
    def tx_multicast_packets(self) -> int: ...
    @property
    def tx_broadcast_packets(self) -> int: ...
    @property
    def collisions(self) -> int: ...
    @property
    def rx_length_errors(self) -> int: ...
    @property
    def rx_overflow_errors(self) -> int: ...
    @property
    def rx_crc_errors(self) -> int: ...
    @property
    def rx_frame_align_errors(self) -> int: ...
    @property
    def rx_fifo_errors(self) -> int: ...
    @property
    def rx_miss_errors(self) -> int: ...
    @property
    def tx_aborted_errors(self) -> int: ...
    @property
    def tx_carrier_errors(self) -> int: ...
    @property
    def tx_fifo_errors(self) -> int: ...
    @property
    def tx_heartbeat_errors(self) -> int: ...
    @property
    def tx_window_errors(self) -> int: ...

@final
class SwitchRecord(structseq[Any], Tuple[Any, ...]):
    """A switch as the datapath lists it."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("name", "number", "max_ports", "active_ports", "ports", "mtu", "core_count", "cores")
    @property
    def name(self) -> str: ...
    @property
    def number(self) -> int: ...
    @property
    def max_ports(self) -> int: ...
    @property
    def active_ports(self) -> int: ...
    @property
    def ports(self) -> int: ...
    @property
    def mtu(self) -> int: ...
    @property
    def core_count(self) -> int: ...
    @property
    def cores(self) -> Tuple[int, ...]: ...

@final
class MacEntry(structseq[Any], Tuple[Any, ...]):
    """A row of a table of MAC addresses; `generation` grows with the row's age (assumed)."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("mac", "vlan", "port", "generation")
    @property
    def mac(self) -> MacAddress: ...
    @property
    def vlan(self) -> int: ...
    @property
    def port(self) -> int: ...
    @property
    def generation(self) -> int: ...

@final
class Device(structseq[Any], Tuple[Any, ...]):
    """A network device of the host."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("name", "affinity")
    @property
    def name(self) -> str: ...
    @property
    def affinity(self) -> int: ...

@final
class Teaming(structseq[Any], Tuple[Any, ...]):
    """How a port picks the uplink for what it sends."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("type", "uplinks")
    @property
    def type(self) -> str: ...
    @property
    def uplinks(self) -> Tuple[int, ...]: ...

@final
class PortConfig(structseq[Any], Tuple[Any, ...]):
    """The configuration of a port."""

    _fields: Tuple[str, ...]
    __match_args__: Final = (
        "dvport",
        "flags",
        "ladrf",
        "mac",
        "untagged_vlan",
        "forged_allowed",
        "vni",
        "sample_rate",
        "multicast",
        "vlan_ranges",
    )
    @property
    def dvport(self) -> int: ...
    @property
    def flags(self) -> int: ...
    @property
    def ladrf(self) -> int: ...
    @property
    def mac(self) -> MacAddress: ...
    @property
    def untagged_vlan(self) -> int: ...
    @property
    def forged_allowed(self) -> bool: ...
    @property
    def vni(self) -> int: ...
    @property
    def sample_rate(self) -> int: ...
    @property
    def multicast(self) -> Tuple[MacAddress, ...]: ...
    @property
    def vlan_ranges(self) -> Tuple[Tuple[int, int], ...]: ...

@final
class Mirror(structseq[Any], Tuple[Any, ...]):
    """A mirror session: what is copied from the source ports and VLANs to the destination ports."""

    _fields: Tuple[str, ...]
    __match_args__: Final = (
        "index",
        "encap_vlan",
        "snap_len",
        "sampling_rate",
        "no_input",
        "no_output",
        "vlan_encap",
        "orig_vlan",
        "source_in",
        "source_out",
        "destinations",
        "vlans",
    )
    @property
    def index(self) -> int: ...  # type: ignore[override]
    @property
    def encap_vlan(self) -> int: ...
    @property
    def snap_len(self) -> int: ...
    @property
    def sampling_rate(self) -> int: ...
    @property
    def no_input(self) -> bool: ...
    @property
    def no_output(self) -> bool: ...
    @property
    def vlan_encap(self) -> bool: ...
    @property
    def orig_vlan(self) -> bool: ...
    @property
    def source_in(self) -> Tuple[int, ...]: ...
    @property
    def source_out(self) -> Tuple[int, ...]: ...
    @property
    def destinations(self) -> Tuple[int, ...]: ...
    @property
    def vlans(self) -> Tuple[int, ...]: ...

@final
class NetQQueue(structseq[int], Tuple[int, ...]):
    """A queue of the hardware that serves a filter."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("port", "queue", "flow")
    @property
    def port(self) -> int: ...
    @property
    def queue(self) -> int: ...
    @property
    def flow(self) -> int: ...

@final
class NetQFilter(structseq[Any], Tuple[Any, ...]):
    """A receive filter in the hardware; `text` is how `_libryn` words it."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("kind", "text", "queues")
    @property
    def kind(self) -> int: ...
    @property
    def text(self) -> str: ...
    @property
    def queues(self) -> Tuple[NetQQueue, ...]: ...

@final
class NetQ(structseq[Any], Tuple[Any, ...]):
    """The receive filters of a port."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("switch", "port", "is_uplink", "filters")
    @property
    def switch(self) -> int: ...
    @property
    def port(self) -> int: ...
    @property
    def is_uplink(self) -> bool: ...
    @property
    def filters(self) -> Tuple[NetQFilter, ...]: ...

@final
class FlowStats(structseq[int], Tuple[int, ...]):
    """What the flow cache of a core has counted."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("core", "flows", "hits", "misses", "fpo_hits", "local_hits", "insert_failures")
    @property
    def core(self) -> int: ...
    @property
    def flows(self) -> int: ...
    @property
    def hits(self) -> int: ...
    @property
    def misses(self) -> int: ...
    @property
    def fpo_hits(self) -> int: ...
    @property
    def local_hits(self) -> int: ...
    @property
    def insert_failures(self) -> int: ...

@final
class FpoStats(structseq[int], Tuple[int, ...]):
    """What devices have taken over of a core's flows."""

    _fields: Tuple[str, ...]
    __match_args__: Final = (
        "core",
        "hits",
        "mark_mismatches",
        "pnic_mismatches",
        "delayed_matches",
        "ephemeral_flows",
        "transient_flows",
    )
    @property
    def core(self) -> int: ...
    @property
    def hits(self) -> int: ...
    @property
    def mark_mismatches(self) -> int: ...
    @property
    def pnic_mismatches(self) -> int: ...
    @property
    def delayed_matches(self) -> int: ...
    @property
    def ephemeral_flows(self) -> int: ...
    @property
    def transient_flows(self) -> int: ...

@final
class Offload(structseq[Any], Tuple[Any, ...]):
    """What an uplink's device can take over of flow processing."""

    _fields: Tuple[str, ...]
    __match_args__: Final = (
        "level",
        "groups",
        "priorities",
        "mark_bits",
        "flows",
        "counters",
        "key_bits",
        "dec_ttl",
        "actions",
    )
    @property
    def level(self) -> str: ...
    @property
    def groups(self) -> int: ...
    @property
    def priorities(self) -> int: ...
    @property
    def mark_bits(self) -> int: ...
    @property
    def flows(self) -> int: ...
    @property
    def counters(self) -> int: ...
    @property
    def key_bits(self) -> int: ...
    @property
    def dec_ttl(self) -> int: ...
    @property
    def actions(self) -> int: ...

@final
class Weights(structseq[int], Tuple[int, ...]):
    """What the balancer judges a move by."""

    _fields: Tuple[str, ...]
    __match_args__: Final = (
        "cross_numa_communication",
        "cross_numa_migration",
        "cross_lcore_communication",
        "cross_lcore_migration",
        "vm_affinity",
        "device_affinity",
        "stability_decay",
        "port_count",
    )
    @property
    def cross_numa_communication(self) -> int: ...
    @property
    def cross_numa_migration(self) -> int: ...
    @property
    def cross_lcore_communication(self) -> int: ...
    @property
    def cross_lcore_migration(self) -> int: ...
    @property
    def vm_affinity(self) -> int: ...
    @property
    def device_affinity(self) -> int: ...
    @property
    def stability_decay(self) -> int: ...
    @property
    def port_count(self) -> int: ...

@final
class BalancerGroup(structseq[Any], Tuple[Any, ...]):
    """A group of ports in the balancer's topology."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("load", "tx_ports", "rx_ports")
    @property
    def load(self) -> int: ...
    @property
    def tx_ports(self) -> Tuple[int, ...]: ...
    @property
    def rx_ports(self) -> Tuple[int, ...]: ...

@final
class BalancerEdge(structseq[int], Tuple[int, ...]):
    """An edge to or from a vertex of the balancer's topology."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("peer", "load", "ema")
    @property
    def peer(self) -> int: ...
    @property
    def load(self) -> int: ...
    @property
    def ema(self) -> int: ...

@final
class BalancerVertex(structseq[Any], Tuple[Any, ...]):
    """A vertex of the balancer's topology."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("number", "wid", "flags", "outgoing", "incoming")
    @property
    def number(self) -> int: ...
    @property
    def wid(self) -> int: ...
    @property
    def flags(self) -> int: ...
    @property
    def outgoing(self) -> Tuple[BalancerEdge, ...]: ...
    @property
    def incoming(self) -> Tuple[BalancerEdge, ...]: ...

@final
class BalancerPort(structseq[int], Tuple[int, ...]):
    """The balancer's last figures of a port: usage in percent, load in units of 100,000."""

    _fields: Tuple[str, ...]
    __match_args__: Final = (
        "port",
        "number0",
        "number4",
        "core_a",
        "core_b",
        "usage0",
        "usage1",
        "usage2",
        "usage3",
        "load_a",
        "load_b",
    )
    @property
    def port(self) -> int: ...
    @property
    def number0(self) -> int: ...
    @property
    def number4(self) -> int: ...
    @property
    def core_a(self) -> int: ...
    @property
    def core_b(self) -> int: ...
    @property
    def usage0(self) -> int: ...
    @property
    def usage1(self) -> int: ...
    @property
    def usage2(self) -> int: ...
    @property
    def usage3(self) -> int: ...
    @property
    def load_a(self) -> int: ...
    @property
    def load_b(self) -> int: ...

@final
class BalancerCore(structseq[int], Tuple[int, ...]):
    """The balancer's last figures of a core: usage in percent, load in units of 100,000."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("core", "usage", "load")
    @property
    def core(self) -> int: ...
    @property
    def usage(self) -> int: ...
    @property
    def load(self) -> int: ...

@final
class DvsRecord(structseq[Any], Tuple[Any, ...]):
    """A switch as the configuration has it."""

    _fields: Tuple[str, ...]
    __match_args__: Final = ("id", "alias", "portset", "class_name")
    @property
    def id(self) -> str: ...
    @property
    def alias(self) -> Optional[str]: ...
    @property
    def portset(self) -> Optional[str]: ...
    @property
    def class_name(self) -> str: ...

@final
class PortCounters:
    """The counters of a port: of the fast path, of the slow path, and their plain sum."""

    _fields: Tuple[str, ...]
    def __init__(self, fast: Sequence[int], slow: Sequence[int]) -> None: ...
    @property
    def fast(self) -> Counters: ...
    @property
    def slow(self) -> Counters: ...
    @property
    def total(self) -> Counters: ...
    def __iter__(self) -> Iterator[Counters]: ...
    def __eq__(self, other: object, /) -> bool: ...
    def __hash__(self) -> int: ...

class ListedPort:
    """A port as the datapath lists it: the base of `ryn.Port`."""

    @property
    def switch(self) -> Any: ...
    @property
    def number(self) -> int: ...
    @property
    def dvport(self) -> int: ...
    @property
    def kind_code(self) -> int: ...
    @property
    def mac(self) -> MacAddress: ...
    @property
    def mac_count(self) -> int: ...
    @property
    def tx_cores(self) -> Tuple[int, ...]: ...
    @property
    def rx_cores(self) -> Tuple[int, ...]: ...
    def _replace_record(self, other: ListedPort, /) -> None: ...
    def _same_record(self, other: ListedPort, /) -> bool: ...

@final
class CounterTable:
    """The counters of many ports, 256 bytes a port."""

    def __init__(self, data: bytes, /) -> None: ...
    def __len__(self) -> int: ...
    def __getitem__(self, row: int, /) -> PortCounters: ...
    def __iter__(self) -> Iterator[PortCounters]: ...
    def __eq__(self, other: object, /) -> bool: ...
    def rates(
        self, row: int, earlier: CounterTable, earlier_row: int, seconds: float, /
    ) -> Tuple[Optional[Rates], bool]: ...

@final
class MacTable:
    """A table of MAC addresses over native rows of 20 bytes, which is a read-only buffer too: numpy.asarray(table).

    `limit` is how many addresses there may be, `limit_exceeded` whether there were more (None for a switch's table).
    """

    def __init__(self, data: bytes, limit: int = 0, limit_exceeded: Optional[int] = None) -> None: ...
    @property
    def limit(self) -> int: ...
    @property
    def limit_exceeded(self) -> Optional[int]: ...
    def __len__(self) -> int: ...
    @overload
    def __getitem__(self, row: int, /) -> MacEntry: ...
    @overload
    def __getitem__(self, rows: slice, /) -> MacTable: ...
    def __iter__(self) -> Iterator[MacEntry]: ...
    def __eq__(self, other: object, /) -> bool: ...
    def find(self, mac: Union[str, bytes, MacAddress], /) -> List[MacEntry]:
        """The rows of an address; a text may end in "*" after whole bytes."""
    def select(
        self,
        *,
        mac: Union[str, bytes, MacAddress, None] = None,
        vlan: Optional[int] = None,
        port: Optional[int] = None,
    ) -> MacTable:
        """The rows that match, as a table."""

@final
class Flow:
    """A flow of a core's flow cache."""

    _fields: Tuple[str, ...]
    def __new__(
        cls,
        switch: int,
        core: int,
        src: _Bytes,
        dst: _Bytes,
        sport: int,
        dport: int,
        protocol: int,
        vlan: int,
        packets: Optional[int],
        bytes: Optional[int],
        actions: int,
        offloaded: bool,
        mac_a: _Bytes,
        mac_b: _Bytes,
        number15: int,
        number24: int,
        /,
    ) -> Flow: ...
    @property
    def switch(self) -> int: ...
    @property
    def core(self) -> int: ...
    @property
    def src(self) -> Union[IPv4Address, IPv6Address]: ...
    @property
    def dst(self) -> Union[IPv4Address, IPv6Address]: ...
    @property
    def sport(self) -> int: ...
    @property
    def dport(self) -> int: ...
    @property
    def protocol(self) -> int: ...
    @property
    def vlan(self) -> int: ...
    @property
    def packets(self) -> Optional[int]: ...
    @property
    def bytes(self) -> Optional[int]: ...
    @property
    def actions(self) -> Actions: ...
    @property
    def offloaded(self) -> bool: ...
    @property
    def mac_a(self) -> MacAddress: ...
    @property
    def mac_b(self) -> MacAddress: ...
    @property
    def number15(self) -> int: ...
    @property
    def number24(self) -> int: ...
    @property
    def bitmap(self) -> int: ...
    def __eq__(self, other: object, /) -> bool: ...
    def __hash__(self) -> int: ...

_Bytes = bytes  # Flow has a field of that name.

@final
class FlowFilter:
    """What a flow has to match; None matches all. Networks are (packed address, bits of the prefix)."""

    def __new__(
        cls,
        *,
        src: Optional[Tuple[_Bytes, int]] = None,
        dst: Optional[Tuple[_Bytes, int]] = None,
        sport: Optional[int] = None,
        dport: Optional[int] = None,
        protocol: Optional[int] = None,
        vlan: Optional[int] = None,
        actions: int = 0,
        mac_a: Optional[_Bytes] = None,
        mac_b: Optional[_Bytes] = None,
    ) -> FlowFilter: ...
    def matches(self, flow: Flow, /) -> bool: ...
