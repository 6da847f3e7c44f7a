"""An uplink: a port that leads out of the host, with the counters of its device."""

from __future__ import annotations

from typing import TYPE_CHECKING, Dict, List, Optional, Sequence

from ryn import properties
from ryn._records import Offload, UplinkCounters
from ryn.names import decimal
from ryn.records import RingSize
from ryn.settable import Settable
from ryn.settings import settle, word

if TYPE_CHECKING:
    from ryn.port import Port
    from ryn.switch import Switch

RECEIVE_QUEUES, TRANSMIT_QUEUES = 0, 1


def driver_statistics(text: str) -> Dict[str, int]:
    """The lines "name: N" of a driver's text, N in decimal digits; of one name the last."""
    statistics = {}
    for line in text.split("\n"):
        name, _, digits = line.partition(":")
        number = decimal(digits.strip())
        if name.strip() and number is not None:
            statistics[name.strip()] = number
    return statistics


class Uplink:
    """One of `switch.uplinks()`. What it shares with all ports is in `port`.

    >>> import ryn
    >>> uplink = ryn.Host().switch("dvs-1").uplinks()[0]
    >>> uplink.port.kind, uplink.ring_size, uplink.offload.level, uplink.link_up
    (<Kind.UPLINK: 2>, RingSize(tx=2048, rx=1024), 'Model 2', True)
    >>> uplink.ring_size = (4096, 512)
    >>> uplink.ring_size.tx
    4096
    """

    __slots__ = ("port",)

    def __init__(self, port: Port):
        self.port = port

    @property
    def number(self) -> int:
        """The port's number in its switch, 0 to 127."""
        return self.port.number

    @property
    def switch(self) -> Switch:
        return self.port.switch

    def counters(self) -> UplinkCounters:
        """The 24 counters of the uplink's device, unsigned 64 bits."""
        port = self.port
        return port.switch.platform.uplink_counters(port.switch.datapath_number(), port.number)

    def queues(self, kind: int = RECEIVE_QUEUES) -> List[UplinkCounters]:
        """The counters of each queue: of the receive queues for kind 0, of the transmit queues for 1.

        Assumed: the platform does not say which kind is which.
        """
        word("the kind of queues", kind, highest=1)
        port = self.port
        cores = port.tx_cores if kind == TRANSMIT_QUEUES else port.rx_cores
        number = port.switch.datapath_number()
        read = port.switch.platform.uplink_queue_counters
        return [read(number, port.number, queue, kind) for queue in range(len(cores))]

    @property
    def offload(self) -> Offload:
        """What the uplink's device can take over of flow processing, and how much of it."""
        port = self.port
        return port.switch.platform.offload(port.switch.datapath_number(), port.number)

    @property
    def driver_text(self) -> str:
        """The driver's own statistics as it words them; "" where it has none."""
        port = self.port
        return port.switch.platform.uplink_driver_text(port.switch.datapath_number(), port.number)

    @property
    def driver_stats(self) -> Dict[str, int]:
        """Those lines of the driver's text that are a name, a colon and a decimal number."""
        return driver_statistics(self.driver_text)

    @property
    def link_up(self) -> Optional[bool]:
        """Whether the link is up; None where the driver's text has no line "link_up: N"."""
        state = self.driver_stats.get("link_up")
        return None if state is None else state != 0

    def _get_ring_size(self) -> RingSize:
        """The descriptors of the transmit and the receive ring, as the host keeps them; (2048, 1024) where it keeps
        none. InvalidResponse where what it keeps is malformed.

        Set to two multiples of 32; ValueError otherwise, Gone where the port is another's now.
        """
        port, kept = self.port, properties.UPLINK_RING
        arguments = (port.switch.identifier(), str(port.dvport), kept.key)
        value = port.switch.platform.port_property(*arguments)
        sizes = kept.decode(value, "DVSQOB_PortDataGet", arguments)
        return RingSize(*(properties.UPLINK_RING_DEFAULT if sizes is None else sizes))

    def _set_ring_size(self, sizes: Sequence[int]) -> None:
        wanted = tuple(sizes)
        if len(wanted) != 2:
            raise ValueError(f"a ring size is two numbers, transmit and receive, not {len(wanted)}")
        wanted = tuple(word(f"{name} ring size", size) for name, size in zip(RingSize._fields, wanted))
        for name, size in zip(RingSize._fields, wanted):
            if size % properties.RING_ALIGNMENT:
                raise ValueError(f"{name} ring size {size} is no multiple of {properties.RING_ALIGNMENT}")
        port, kept = self.port, properties.UPLINK_RING
        identifier = port.switch.identifier()
        port.check()
        port.switch.platform.set_port_property(identifier, str(port.dvport), kept.key, kept.encode(*wanted))
        settle("ring_size", lambda: self.ring_size, wanted, port.switch.host.settle)

    ring_size = Settable(_get_ring_size, _set_ring_size)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Uplink):
            return NotImplemented
        return self.port == other.port

    def __hash__(self) -> int:
        return hash(self.port)

    def __str__(self) -> str:
        return str(self.port)

    def __repr__(self) -> str:
        return f"<ryn.Uplink {self.port}>"
