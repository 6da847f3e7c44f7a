"""A port of a switch."""

from __future__ import annotations

from typing import TYPE_CHECKING, Sequence, Tuple, Union

from ryn._records import ListedPort, MacAddress, MacTable, NetQ, PortConfig, PortCounters, Teaming
from ryn.errors import Gone, NotFound
from ryn.names import TEAMING_TYPES, Kind
from ryn.rates import PortKey
from ryn.settable import Settable
from ryn.settings import settle, word

if TYPE_CHECKING:
    from ryn.switch import Switch

HIGHEST_VLAN = 4095
MOST_UPLINKS = 8


class Port(ListedPort):
    """One of `switch.ports()`; `host.port("dvs-1/3")`.

    `number`, 0 to 127, `dvport` (the number of the distributed port), `mac`, `mac_count`, `tx_cores` and `rx_cores`
    (the core of each queue; assumed) are what the listing gave; `refresh()` asks anew. `switch` is its switch.
    Before a change the port's distributed number and address are compared with a new listing; where the number is
    another port's now, Gone is raised and nothing is sent.

    >>> import ryn
    >>> port = ryn.Host().port("dvs-1/3")
    >>> port, port.dvport, port.teaming
    (<ryn.Port dvs-1/3 VNIC 02:00:00:07:00:03>, 1003, ryn.Teaming(type='LAG', uplinks=(0, 1)))
    >>> port.migrate(2, 2, 0)
    >>> port.refresh().tx_cores
    (2, 2)
    >>> port.add_mac("02:00:00:aa:bb:cc", vlan=100)
    >>> [row.vlan for row in port.macs().find("02-00-00-AA-BB-CC")]
    [100]
    """

    __slots__ = ()

    if TYPE_CHECKING:

        @property
        def switch(self) -> Switch:
            ...

    @property
    def kind(self) -> Kind:
        """What the port is for: Kind.VNIC, UPLINK, GENERIC, QOBNIC, or UNKNOWN with its number."""
        return Kind(self.kind_code)

    @property
    def key(self) -> PortKey:
        """What tells the port from all others, at any time."""
        return PortKey(self.switch.name, self.number, self.dvport, self.mac)

    def refresh(self) -> Port:
        """Takes over what a new listing says of this port, and returns it. Gone where it is not there any more."""
        self._replace_record(self._listed_anew())
        return self

    def check(self) -> None:
        """Raises Gone where the port is not there any more, or its number is another's now."""
        self._listed_anew()

    def _listed_anew(self) -> Port:
        try:
            ports = self.switch.ports()
        except NotFound as error:
            raise Gone(f"port {self} is gone, its switch is not there: {error}") from error
        for port in ports:
            if port.number == self.number:
                if (port.dvport, port.mac) == (self.dvport, self.mac):
                    return port
                raise Gone(
                    f"port {self} is another's now: it was distributed port {self.dvport}, {self.mac},"
                    f" and is {port.dvport}, {port.mac}"
                )
        raise Gone(f"port {self} is gone")

    # What it counts and how it is set up

    def counters(self) -> PortCounters:
        """The counters of the fast and the slow path, unsigned 64 bits, and their sum: fast, slow, total."""
        switch = self.switch
        return switch.platform.port_counters(switch.datapath_number(), self.number)

    def config(self) -> PortConfig:
        """Filters, VLANs, multicast addresses, sampling. `flags` are bits of ReceiveFlags."""
        return self.switch.platform.port_config(self.switch.datapath_number(), self.number)

    def netq(self) -> NetQ:
        """The receive filters in the hardware, and the queues that serve each."""
        return self.switch.platform.netq(self.switch.datapath_number(), self.number)

    @property
    def lro(self) -> bool:
        """Whether large receive offload is on. A switch's own setting overrides that of its ports."""
        return self.switch.platform.port_lro(self.switch.datapath_number(), self.number)

    @lro.setter
    def lro(self, on: int) -> None:
        on = word("lro", on)
        self.check()
        self.switch.platform.set_port_lro(self.switch.datapath_number(), self.number, on)
        settle("lro", lambda: self.lro, bool(on), self.switch.host.settle)

    def _get_teaming(self) -> Teaming:
        """How the port picks the uplink for what it sends: (type, uplinks).

        The type is "None", "Single", "LAG", "SrcMAC", "All" or "NoTeaming" ("Unknown" can be read, not set), the
        uplinks at most 8 numbers.
        """
        return self.switch.platform.teaming(self.switch.datapath_number(), self.number)

    def _set_teaming(self, policy: Tuple[str, Sequence[int]]) -> None:
        kind, uplinks = policy
        if not isinstance(kind, str):
            raise TypeError(f"a type of teaming is a text, not {kind!r}")
        if kind not in TEAMING_TYPES:
            names = ", ".join(TEAMING_TYPES)
            raise ValueError(f"there is no type of teaming {kind!r}; there are {names}")
        # Numbers are handed over in 32 bits, but come back in 16.
        numbers = tuple(word("an uplink", uplink, highest=0xFFFF) for uplink in uplinks)
        if len(numbers) > MOST_UPLINKS:
            raise ValueError(f"{len(numbers)} uplinks are more than {MOST_UPLINKS}")
        self.check()
        self.switch.platform.set_teaming(self.switch.datapath_number(), self.number, kind, numbers)
        settle("teaming", lambda: self.teaming, (kind, numbers), self.switch.host.settle)

    teaming = Settable(_get_teaming, _set_teaming)

    # Its MAC addresses

    def macs(self) -> MacTable:
        """The port's table of MAC addresses, with `limit` and `limit_exceeded`."""
        return self.switch.platform.port_macs(self.switch.datapath_number(), self.number)

    def clear_macs(self) -> None:
        """Forgets the addresses learned on the port."""
        self.check()
        self.switch.platform.clear_port_macs(self.switch.datapath_number(), self.number)

    def add_mac(self, mac: Union[str, bytes, MacAddress], vlan: int = 0) -> None:
        """Adds an address in a VLAN, 0 to 4095, to this port of this switch."""
        address = MacAddress(mac)
        vlan = word("vlan", vlan, highest=HIGHEST_VLAN)
        self.check()
        platform, number = self.switch.platform, self.switch.datapath_number()
        platform.add_mac(number, self.number, address, vlan)

    def del_mac(self, mac: Union[str, bytes, MacAddress], vlan: int = 0) -> None:
        """Deletes an address in a VLAN, 0 to 4095, from this port of this switch."""
        address = MacAddress(mac)
        vlan = word("vlan", vlan, highest=HIGHEST_VLAN)
        self.check()
        platform, number = self.switch.platform, self.switch.datapath_number()
        platform.del_mac(number, self.number, address, vlan)

    # Its place on the cores

    def migrate(self, a: int, b: int, c: int) -> None:
        """Moves the port between cores. The three numbers of 32 bits are handed over as they are.

        Assumed: the core to send on, the core to receive on (4294967295: as it is), and whether the port is to be
        pinned there (1) or not (0).
        """
        a, b, c = (word("an option of migrate", number) for number in (a, b, c))
        self.check()
        self.switch.platform.migrate(self.switch.datapath_number(), self.number, a, b, c)

    def unpin(self, a: int = 0) -> None:
        """Lets the balancer move the port again. The number of 32 bits is handed over as it is; its meaning is the
        datapath's."""
        a = word("the option of unpin", a)
        self.check()
        self.switch.platform.unpin(self.switch.datapath_number(), self.number, a)

    def reset(self) -> None:
        """Resets the port. Its counters may begin at 0 again."""
        self.check()
        self.switch.platform.reset_port(self.switch.datapath_number(), self.number)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Port):
            return NotImplemented
        return self._same_record(other) and self.switch == other.switch

    def __hash__(self) -> int:
        return hash((self.number, self.dvport, self.mac))

    def __str__(self) -> str:
        return f"{self.switch}/{self.number}"

    def __repr__(self) -> str:
        return f"<ryn.Port {self} {self.kind} {self.mac}>"
