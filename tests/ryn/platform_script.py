"""A small host on the platform double, its answers written by offset."""

from __future__ import annotations

from dataclasses import dataclass

from harness import MISSING, Bytes, Double, u32

PORTSET = "com.talvor.common.host.portset"
ALIAS = "com.talvor.common.alias"
VNIC, UPLINK = 1, 2


@dataclass
class PortLine:
    """A port as the datapath lists it."""

    number: int
    dvport: int
    kind: int = VNIC
    mac: bytes = b"\x02\x00\x00\x00\x00\x00"
    mac_count: int = 1
    tx_cores: tuple = (0,)
    rx_cores: tuple = (0,)


def switch_list(*switches: tuple[str, int]) -> Bytes:
    """The datapath's switches: pairs of name and number, cores 0, 2 and 63."""
    area = Bytes(2568).u32(0, len(switches))
    for i, (name, number) in enumerate(switches):
        at = 8 + 160 * i
        area.raw(at, name.encode("utf-8", "surrogateescape"))
        area.u32(at + 128, number, 128, 2, 3, 9000, 3).u64(at + 152, 1 << 63 | 0b101)
    return area


def port_list(*ports: PortLine) -> Bytes:
    area = Bytes(11532).u32(4, len(ports))
    for i, port in enumerate(ports):
        at = 12 + 90 * i
        area.u32(at, port.dvport, port.number).u8(at + 8, len(port.tx_cores), len(port.rx_cores))
        area.raw(at + 10, port.mac).u16(at + 16, port.mac_count).u32(at + 18, port.kind)
        area.u8(at + 26, *port.tx_cores).u8(at + 58, *port.rx_cores)
    return area


PORTS = (
    PortLine(0, 10, UPLINK, b"\x02\x00\x00\x00\x00\x10", 1, (0, 2), (0, 2, 2)),
    PortLine(1, 11, VNIC, b"\x02\x00\x00\x00\x00\x11", 2),
    PortLine(7, 17, 77, b"\x02\x00\x00\x00\x00\x17", 3),
)


class Platform:
    """Scripts the double: at first the switch dvs-1 (number 3, name dvs-1-set) with PORTS, and no property stored."""

    def __init__(self, double: Double) -> None:
        self.double = double
        self.datapath(("dvs-1-set", 3))
        self.ports(*PORTS)
        self.configure("dvs-1", "id-1", portset="dvs-1-set")
        double.answer("DVSQOB_HostPropGet", status=MISSING)
        double.answer("DVSQOB_PortDataGet", status=MISSING)
        double.answer("DVSQOB_StateGet", area=b"state")

    def datapath(self, *switches: tuple[str, int]) -> None:
        self.double.answer("Ryn_Get_Switch_List", area=switch_list(*switches))

    def ports(self, *ports: PortLine) -> None:
        self.double.answer("Ryn_Get_Port_List", area=port_list(*ports))

    def configure(
        self,
        alias: str | None,
        identifier: str,
        portset: str | None = None,
        class_name: str = "vswitch",
    ) -> None:
        """Adds a switch to the configuration."""
        self.double.add_switch(
            alias or "",
            identifier,
            class_name,
            host={} if portset is None else {PORTSET: portset},
            global_={} if alias is None else {ALIAS: alias},
        )

    def property(self, value: bytes) -> None:
        """What the host keeps, whatever it is asked for."""
        self.double.answer("DVSQOB_HostPropGet", area=value)

    def options(self, *words: int) -> None:
        """What the datapath's balancer runs with: metric, high, low, pause, sensitivity."""
        self.double.answer("Ryn_GetCurrentLBData", area=u32(0, *words))
