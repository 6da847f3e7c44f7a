"""Which flows are wanted, and the walk through the flow tables of cores."""

from __future__ import annotations

from typing import TYPE_CHECKING, Iterable, Iterator, Optional, Sequence, Tuple, Union

from ryn._records import Flow, FlowFilter, MacAddress
from ryn.names import PROTOCOLS, Actions
from ryn.settings import word

if TYPE_CHECKING:
    import ipaddress

    from ryn.switch import Switch

    Address = Union[
        str,
        ipaddress.IPv4Address,
        ipaddress.IPv6Address,
        ipaddress.IPv4Network,
        ipaddress.IPv6Network,
    ]
    Mac = Union[str, bytes, MacAddress]

TABLE_CORES = 32  # the flow tables of cores 0 to 31 can be read


def flow_filter(
    src: Optional[Address] = None,
    dst: Optional[Address] = None,
    sport: Optional[int] = None,
    dport: Optional[int] = None,
    protocol: Union[int, str, None] = None,
    vlan: Optional[int] = None,
    action: Union[str, Actions, None] = None,
    mac_a: Optional[Mac] = None,
    mac_b: Optional[Mac] = None,
) -> Optional[FlowFilter]:
    """What a flow has to match; None where everything does."""
    wanted = (src, dst, sport, dport, protocol, vlan, action, mac_a, mac_b)
    if all(value is None for value in wanted):
        return None
    return FlowFilter(
        src=_network(src),
        dst=_network(dst),
        sport=_number("sport", sport, 0xFFFF),
        dport=_number("dport", dport, 0xFFFF),
        protocol=_protocol(protocol),
        vlan=_number("vlan", vlan, 4095),
        actions=_actions(action),
        mac_a=None if mac_a is None else MacAddress(mac_a).packed,
        mac_b=None if mac_b is None else MacAddress(mac_b).packed,
    )


def _network(address: Optional[Address]) -> Optional[Tuple[bytes, int]]:
    if address is None:
        return None
    import ipaddress  # takes a while, and few need it

    if isinstance(address, (str, ipaddress.IPv4Address, ipaddress.IPv6Address)):
        address = ipaddress.ip_network(address, strict=False)
    if not isinstance(address, (ipaddress.IPv4Network, ipaddress.IPv6Network)):
        raise TypeError(f"{address!r} is no IP address or network")
    return address.network_address.packed, address.prefixlen


def _number(name: str, value: Optional[int], highest: int) -> Optional[int]:
    return None if value is None else word(name, value, highest=highest)


def _protocol(protocol: Union[int, str, None]) -> Optional[int]:
    if not isinstance(protocol, str):
        return _number("protocol", protocol, 255)
    try:
        return PROTOCOLS[protocol.lower()]
    except KeyError:
        names = ", ".join(PROTOCOLS)
        raise ValueError(f"protocol {protocol!r} is neither a number nor one of {names}") from None


def _actions(action: Union[str, Actions, None]) -> int:
    if action is None:
        return 0
    if isinstance(action, Actions):
        return int(action)
    if not isinstance(action, str):
        raise TypeError(f"an action is a name, not {action!r}")
    try:
        return int(Actions[action.upper()])
    except KeyError:
        names = ", ".join(member.name or "" for member in Actions)
        raise ValueError(f"there is no action {action!r}; there are {names}") from None


def table_cores(cores: Iterable[int]) -> Tuple[int, ...]:
    """The cores, each once, in their order. ValueError for one whose table cannot be read."""
    return tuple(dict.fromkeys(word("core", core, highest=TABLE_CORES - 1) for core in cores))


class Flows(Iterator[Flow]):
    """The flows of some switches, read page by page while they are iterated over.

    The datapath goes on working meanwhile: a flow that comes or goes between two pages can be missed, or be seen
    twice. `unlisted` is how many more flows the statistics show on cores above 31, whose tables cannot be read; it
    grows with the walk and is complete at its end. It is None where the cores were named.
    """

    def __init__(
        self,
        switches: Sequence[Switch],
        wanted: Optional[FlowFilter],
        cores: Optional[Tuple[int, ...]],
        offloaded: bool,
    ):
        self.unlisted: Optional[int] = 0 if cores is None else None
        self._walk = self._flows(switches, wanted, cores, offloaded)

    def __next__(self) -> Flow:
        return next(self._walk)

    def _flows(
        self,
        switches: Sequence[Switch],
        wanted: Optional[FlowFilter],
        cores: Optional[Tuple[int, ...]],
        offloaded: bool,
    ) -> Iterator[Flow]:
        for switch in switches:
            platform, number = switch.platform, switch.datapath_number()
            present = platform.cores(number) if cores is None else cores
            for core in present:
                if core < TABLE_CORES:
                    yield from platform.flows(number, core, offloaded, wanted)
            beyond = [core for core in present if core >= TABLE_CORES]
            if self.unlisted is not None and beyond:
                self.unlisted += sum(stats.flows for stats in platform.flow_stats(number, beyond))
