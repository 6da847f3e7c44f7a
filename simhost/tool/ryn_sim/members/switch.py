"""Distributed switches, in the datapath and in the switch-state library, and their properties."""

from __future__ import annotations

from .. import names
from ..kinds import BYTES, MS, NAME, SETTING, TRUTH, U32, choice, listed, named, number, part, text, word64
from .base import HISTORY, REQUIRED, Entity, M, Table, items

_METRIC = named(names.METRICS)


_VALUES = {
    "type": "object",
    "additionalProperties": {
        "type": ["string", "null"],
        "pattern": "^(text:[^\\u0000]*|hex:([0-9A-Fa-f]{2})*|u32:[0-9]+(,[0-9]+)*)$",
    },
}


SWITCH = Entity(
    "switch",
    "a switch: a mapping with alias",
    (
        M("", "sw.sw", number(0, 15, cxx="int"), REQUIRED, field="id"),
        M("alias", "dvs.alias", NAME, REQUIRED, "what scripts call it", shown="alias", stays=True),
        M(
            "id",
            "dvs.switch_id",
            text(1, 63, "an identifier of 1 to 63 bytes"),
            None,
            "its identifier",
            "made up",
            stays=True,
        ),
        M("class", "dvs.class", NAME, "vswitch", "its class", field="class_name"),
        M(
            "name",
            "sw.name",
            NAME,
            None,
            "its portset name, also kept as its portset property; without it there is no such property",
            "the alias",
            shown="name",
        ),
        M(
            "number",
            "",
            number(0, 15, "a switch number"),
            None,
            "its number in the datapath",
            "the next free",
            stays=True,
        ),
        M("datapath", "", TRUTH, True, "false: only the switch-state library knows it", stays=True),
        M(
            "marker",
            "",
            text(0, 127),
            None,
            "its property that says whether the datapath serves it: `poll`, `intr`, `true`, ...",
        ),
        M("mtu", "sw.mtu", U32, 1500, "frames larger than this and 18 are refused", shown="mtu"),
        M("max_ports", "sw.max_ports", number(0, 128, cxx="std::uint32_t"), 128, "what ListSwitches says of it"),
        M(
            "uplinks",
            "",
            listed(text(1, 31, "a NIC's name"), 128, "a list of NIC names"),
            None,
            "NICs; each is a port with number 0, 1, ...",
            stays=True,
        ),
        M("lro", "sw.lro", SETTING, True, "large receive offload, as last set for the whole switch", shown="lro"),
        M("flow_cache", "sw.flow_cache", TRUTH, True, "false: all goes by the slow path", shown="cache"),
        M("panic_on_tx_hang", "sw.panic_on_tx_hang", SETTING, False, "the log says that a real host would stop"),
        M(
            "uplink_mac_learn",
            "sw.uplink_mac_learn",
            SETTING.held_as("bool"),
            True,
            "false: its uplinks learn no addresses",
        ),
        M("mac_limit", "sw.mac_limit", U32, 65536, "addresses that it learns at most", shown="mac_limit"),
        M("burst", "sw.burst_size", U32, 32, "the datapath's own burst size; `stored` goes before it", shown="burst"),
        M("numa_team", "sw.numa_team", SETTING.held_as("bool"), False, "uplinks on the sender's node go first"),
        M(
            "balancer.metric",
            "sw.lb_metric",
            _METRIC,
            "cpu",
            "what the balancer goes by: load, ports, or nothing",
            shown="metric",
        ),
        M("balancer.high", "sw.lb_high", U32, 60, "percent of a core: above it ports are moved away"),
        M("balancer.low", "sw.lb_low", U32, 40, "percent of a core: below it ports may come"),
        M("balancer.pause", "sw.lb_pause", U32, 10, "percent of a core: less difference moves nothing"),
        M("balancer.sensitivity", "sw.lb_sensitivity", U32, 5, "percent of a core's load: a port below it stays"),
        M("flows_cleared", "sw.flow_cleared_ms", MS, "0s", HISTORY),
        M("macs_cleared", "sw.mac_cleared_ms", MS, "0s", HISTORY),
        M("stored.fpo", "", U32, None, "kept as a property: 0 offloads nothing"),
        M("stored.burst", "", U32, None, "kept as a property, which goes before `burst`"),
        M("stored.numa_team", "", SETTING, None, "kept as a property, which goes before `numa_team`"),
        M("stored.balancer.metric", "", _METRIC, "cpu", "kept as a property, which goes before `balancer`"),
        M("stored.balancer.high", "", U32, 60),
        M("stored.balancer.low", "", U32, 40),
        M("stored.balancer.pause", "", U32, 10),
        M("stored.balancer.sensitivity", "", U32, 5),
        M(
            "properties.host",
            "",
            part("a mapping of property keys to values", _VALUES, dict),
            None,
            "key to value: `text:WORDS` (with the closing NUL), `hex:00ff`, `u32:1,2`, or null for no such property",
        ),
        M("properties.global", "", part("a mapping of property keys to values", _VALUES, dict), None, "likewise"),
        M(
            "properties.ports",
            "",
            part(
                "a mapping of port identifiers to their properties",
                {"type": "object", "additionalProperties": _VALUES},
                dict,
            ),
            None,
            "a distributed port's number to such a mapping",
        ),
        M("mirrors", "", items("mirror", "a list of mirror sessions"), None, "below"),
        M("mac_entries", "", items("mac_entry", "a list of MAC table entries"), None, "below"),
        M("", "sw.switch_id", text(1, 63), REQUIRED, field="switch_id"),
        M("", "sw.lcores", word64(), -1, "the cores its ports may be placed on, a bit set", own=True),
    ),
)

PROPERTY = Entity(
    "property",
    "a property",
    (
        M("", "prop.scope", choice("host", "global", "port", enum="PropertyScope"), REQUIRED),
        M("", "prop.switch_id", text(1, 63), REQUIRED),
        M("", "prop.port", text(0, 2**16), REQUIRED, "the text of port.dvport for a port's property"),
        M("", "prop.key", text(0, 2**16), REQUIRED),
        M("", "prop.value", BYTES, REQUIRED, "as it is: a wrong version or length is kept"),
    ),
)

ENTITIES = (SWITCH, PROPERTY)
TABLES = (
    Table(
        "dvs",
        "A distributed switch, as the switch-state library knows it. What it knows of it besides stands in `prop`, its"
        " portset name and its alias included.",
        ("switch_id",),
        ("UNIQUE (alias)",),
        row="DvsRow",
    ),
    Table(
        "prop",
        "Properties, their values as they are: a wrong version or length is kept.",
        ("scope", "switch_id", "port", "key"),
        ("FOREIGN KEY (switch_id) REFERENCES dvs ON DELETE CASCADE",),
        row="PropertyRow",
    ),
    Table(
        "sw",
        "A switch of the datapath. burst_size, numa_team and lb_* hold while the distributed switch has no property for"
        " them.",
        ("sw",),
        ("UNIQUE (switch_id)", "UNIQUE (name)", "FOREIGN KEY (switch_id) REFERENCES dvs"),
        row="SwitchRow",
        join="dvs",
    ),
)
