"""Ports, uplinks included."""

from __future__ import annotations

from typing import Any

from .. import names
from ..kinds import (
    CORE,
    MAC,
    MS,
    NAME,
    PORT,
    SETTING,
    STATION,
    TRUTH,
    U24,
    U32,
    VLAN,
    bits,
    free,
    listed,
    named,
    number,
    text,
    word64,
)
from .base import HISTORY, REQUIRED, Entity, M, Table


def _vlan_range(value: Any) -> bool:
    if isinstance(value, int) and not isinstance(value, bool):
        return 0 <= value <= 4095
    if not isinstance(value, str):
        return False
    first, dash, last = value.partition("-")
    plain = all(number.isascii() and number.isdecimal() and len(number) <= 4 for number in (first, last))
    return bool(dash) and plain and int(first) <= int(last) <= 4095


VLAN_RANGE = free(
    "a VLAN, or a range within 0 to 4095 such as 100-200",
    {
        "anyOf": [
            {"type": "integer", "minimum": 0, "maximum": 4095},
            {"type": "string", "pattern": "^[0-9]{1,4}-[0-9]{1,4}$"},
        ]
    },
    _vlan_range,
)


def _uplink_reference(value: Any) -> bool:
    return (isinstance(value, str) and value != "") or (
        isinstance(value, int) and not isinstance(value, bool) and 0 <= value < 1 << 32
    )


UPLINK_REFERENCE = free(
    "a NIC's name, or an uplink's number",
    {"anyOf": [{"type": "string", "minLength": 1}, {"type": "integer", "minimum": 0, "maximum": 2**32 - 1}]},
    _uplink_reference,
)


PORT_ENTITY = Entity(
    "port",
    "a port: a mapping with switch",
    (
        M("", "port.sw", number(0, 15, cxx="int"), REQUIRED),
        M("switch", "", NAME, REQUIRED, "an alias", stays=True),
        M(
            "count",
            "",
            number(1, 128, "a number of ports"),
            1,
            "so many ports like this; `port`, `dvport` and `mac` count up",
            stays=True,
        ),
        M("first", "", U32, 0, "what `{n}` in `vm` counts from", stays=True),
        M("vm", "port.client", text(0, 127), "", "who is connected; other parts of the description call the port so"),
        M("nic", "port.nic", text(1, 31, "a NIC's name"), None, "makes it an uplink", field="nic_name", null=True),
        M(
            "port",
            "port.port",
            PORT,
            None,
            "its number in the switch",
            "the next free",
            field="id",
            shown="port",
            stays=True,
        ),
        M(
            "kind",
            "port.kind",
            named(names.KINDS, (0, 2**32 - 1)).held_as("std::int64_t"),
            None,
            "what is connected, as ListPorts has it",
            "UPLINK with `nic`, else VNIC",
        ),
        M("dvport", "port.dvport", U32, None, "its distributed number", "(switch + 1) * 1000 + port"),
        M("active", "port.active", TRUTH, True, "false: nothing reaches it"),
        M("mac", "port.mac", STATION, None, "its address", "made up", shown="mac"),
        M(
            "macs_behind",
            "port.macs_behind",
            number(0, 65536, "a number of addresses", cxx="std::uint32_t"),
            0,
            "further addresses that are learned here",
        ),
        M("mac_limit", "port.mac_limit", U32, 16384, "addresses that it learns at most"),
        M("queues", "", number(0, 32, "a number of queues"), None, "queues in both directions", "1; an uplink: 4"),
        M(
            "tx_queues",
            "port.tx_queues",
            number(0, 32, "a number of queues", "int"),
            1,
            "transmit queues",
            "`queues`",
            shown="queues",
        ),
        M(
            "rx_queues",
            "port.rx_queues",
            number(0, 32, "a number of queues", "int"),
            1,
            "receive queues",
            "`queues`",
            shown="queues",
        ),
        M(
            "filter",
            "port.filter_flags",
            bits(names.FILTERS, "receive filter", 2**32 - 1),
            ["UNICAST", "MULTICAST", "BROADCAST"],
            "what it receives",
        ),
        M("ladrf", "port.ladrf", word64(), 0, "the multicast hash filter"),
        M("vlan", "port.vlan", VLAN, 0, "the untagged VLAN", shown="vlan/vni"),
        M("vni", "port.vni", U24, 0, "the overlay network; 0: none", shown="vlan/vni"),
        M("forged", "port.forged_ok", SETTING.held_as("bool"), False, "it may send from other addresses"),
        M("sample_rate", "port.sample_rate", U32, 0, "shown only"),
        M("lro", "port.lro", SETTING, True, "large receive offload: four TCP frames are handed over as one"),
        M(
            "teaming.type",
            "port.tx_type",
            named(names.TX_TYPES).held_as("int"),
            "Single",
            "how its packets choose an uplink: `None`, `Single`, `LAG`, `SrcMAC`, `All`, `NoTeaming`",
            shown="teaming",
        ),
        M(
            "teaming.uplinks",
            "",
            listed(UPLINK_REFERENCE, 8, "a list of at most 8 NIC names or numbers"),
            None,
            "the uplinks it may use, in order",
            "all of its switch",
        ),
        M("core", "", CORE, -1, "where it is placed, in both directions; -1: the datapath places it"),
        M("tx_core", "port.tx_core", CORE, -1, "the core it sends on", "`core`", shown="cores"),
        M("rx_core", "port.rx_core", CORE, -1, "the core it receives on", "`core`", shown="cores"),
        M("pinned", "port.pinned", SETTING.held_as("bool"), False, "the balancer leaves it where it is"),
        M(
            "multicast",
            "",
            listed(MAC, 32, "a list of at most 32 MAC addresses"),
            None,
            "group addresses it listens to",
        ),
        M(
            "vlans",
            "",
            listed(VLAN_RANGE, 256, "a list of at most 256 VLANs and ranges such as 100-200"),
            None,
            "tagged VLANs and ranges",
        ),
        M(
            "rings.tx",
            "",
            U32,
            None,
            "an uplink's transmit ring, kept as its property; fewer than 1,024 lose packets",
            together=True,
        ),
        M("rings.rx", "", U32, None, "an uplink's receive ring, likewise", together=True),
        M("flows_cleared", "port.flow_cleared_ms", MS, "0s", HISTORY),
        M("macs_cleared", "port.mac_cleared_ms", MS, "0s", HISTORY),
    ),
)

PORT_PARTS = Entity(
    "port_part",
    "an uplink, address or range of a port",
    (
        M("", "port_uplink.sw", number(0, 15, cxx="int"), REQUIRED),
        M("", "port_uplink.port", PORT, REQUIRED),
        M("", "port_uplink.seq", number(0, 7, cxx="int"), REQUIRED),
        M("", "port_uplink.uplink", U32, REQUIRED),
        M("", "port_mcast.sw", number(0, 15, cxx="int"), REQUIRED),
        M("", "port_mcast.port", PORT, REQUIRED),
        M("", "port_mcast.seq", number(0, 31, cxx="int"), REQUIRED),
        M("", "port_mcast.mac", MAC, REQUIRED),
        M("", "port_vlan_range.sw", number(0, 15, cxx="int"), REQUIRED),
        M("", "port_vlan_range.port", PORT, REQUIRED),
        M("", "port_vlan_range.seq", number(0, 255, cxx="int"), REQUIRED),
        M("", "port_vlan_range.first", VLAN, REQUIRED),
        M("", "port_vlan_range.last", VLAN, REQUIRED),
    ),
)

ENTITIES = (PORT_ENTITY, PORT_PARTS)
_PORT_KEY = "FOREIGN KEY (sw, port) REFERENCES port ON DELETE CASCADE"
TABLES = (
    Table(
        "port",
        "A port. An uplink has a nic, the others have none. A core of -1: the datapath places the port when it first"
        " looks (an uplink near its nic, the others in turn).",
        ("sw", "port"),
        (
            "UNIQUE (sw, dvport)",
            "UNIQUE (nic)",
            "FOREIGN KEY (sw) REFERENCES sw",
            "FOREIGN KEY (nic) REFERENCES nic",
            "CHECK ((kind = 2) = (nic IS NOT NULL))",
        ),
        row="PortRow",
    ),
    Table(
        "port_uplink",
        "The uplinks that a port's policy may use, in order (port numbers of the same switch).",
        ("sw", "port", "seq"),
        (_PORT_KEY,),
        row="PortUplinkRow",
    ),
    Table(
        "port_mcast",
        "Group addresses that a port listens to.",
        ("sw", "port", "seq"),
        (_PORT_KEY,),
        row="PortMulticastRow",
    ),
    Table(
        "port_vlan_range",
        "Tagged VLANs of a port.",
        ("sw", "port", "seq"),
        (_PORT_KEY, "CHECK (first <= last)"),
        row="PortVlanRow",
    ),
)
