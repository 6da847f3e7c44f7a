"""The members of a simulated host: one row for each key of a description and each column of the store.

schema.sql, host.schema.json, the stand-ins' rows.h and the tables of docs/ryn-sim.md are written from here by
generate.py; compiling, exporting, showing and setting go by these rows as they are. A new setting is a row here and its
use in the stand-ins.
"""

from __future__ import annotations

from dataclasses import dataclass
from fractions import Fraction
from typing import Any

from . import names
from .kinds import (
    BYTES,
    CORE,
    FRAME,
    IP,
    LCORE,
    MAC,
    MS,
    NAME,
    NODE,
    PORT,
    PPM,
    SEED,
    SETTING,
    SHARE,
    STATION,
    TRUTH,
    U16,
    U24,
    U32,
    VLAN,
    Kind,
    Wrong,
    bits,
    choice,
    duration,
    free,
    listed,
    named,
    number,
    part,
    quantity,
    rate,
    scaled,
    text,
    word64,
)


class _Required:
    def __repr__(self) -> str:
        return "required"


REQUIRED = _Required()


@dataclass(frozen=True)
class Member:
    """A key of a description, a column of the store, or, mostly, both."""

    key: str  # where it stands in its entity, with dots between nested keys; "": a description has no such key
    place: str  # TABLE.COLUMN; "": compiled into something else
    kind: Kind
    default: Any = None  # as a description has it (a member without a key: as the store has it); REQUIRED: none
    about: str = ""  # what it means and affects
    derived: str = ""  # what the default follows from, where it is not the same everywhere
    field: str = ""  # its name in the stand-ins' row, if not the column's
    null: bool = False  # the column may be NULL
    own: bool = False  # belongs to the stand-ins: compiling leaves it at its default
    together: bool = False  # the mapping that it is in has it, or is not there

    @property
    def table(self) -> str:
        return self.place.partition(".")[0]

    @property
    def column(self) -> str:
        return self.place.partition(".")[2]

    @property
    def stored_default(self) -> Any:
        """The default as the store has it; None where there is none."""
        if self.default is REQUIRED or self.default is None:
            return None
        return self.kind.parse(self.default) if self.key else self.default


@dataclass(frozen=True)
class Entity:
    """A kind of thing in a description: a mapping with these members."""

    name: str  # of its definition in the JSON schema
    what: str  # in messages
    members: tuple[Member, ...]

    def __post_init__(self) -> None:
        keys = [member.key for member in self.members if member.key]
        assert len(keys) == len(set(keys)), self.name


@dataclass(frozen=True)
class Table:
    """A table of the store. Its columns are the members whose place is in it, in their order."""

    name: str
    about: str
    key: tuple[str, ...]
    constraints: tuple[str, ...] = ()
    row: str = ""  # the stand-ins' struct for its rows; "": they have none
    join: str = ""  # a further table whose columns belong to the row
    kept: bool = False  # no description has anything of it


M = Member
ONE = number(1, 1)  # the key of a table with one row
_HOST_NAME = text(
    1,
    63,
    "a name of up to 63 letters, digits, dots, hyphens and underscores, the first a letter or digit",
    "[A-Za-z0-9][A-Za-z0-9._-]{0,62}",
)


def _parse_frozen(value: Any) -> str:
    if not isinstance(value, bool):
        raise Wrong("true or false")
    return "freeze" if value else "run"


def _parse_deleted(value: Any) -> int:
    return 1 - int(TRUTH.parse(value))


FROZEN = Kind(
    "true or false",
    _parse_frozen,
    lambda mode: mode == "freeze",
    {"type": "boolean"},
    sql="TEXT",
    choices=("run", "freeze"),
    cxx="ClockMode",
)
DELETED = Kind(
    "true or false", _parse_deleted, lambda present: not present, {"type": "boolean"}, low=0, high=1, cxx="bool"
)
METRIC = named(names.METRICS)
_VALUE = "a property's value: text:WORDS (with its closing NUL), hex:00ff..., u32:1,2,... or null for none"
_VALUES = {
    "type": "object",
    "additionalProperties": {
        "type": ["string", "null"],
        "pattern": "^(text:[^\\u0000]*|hex:([0-9A-Fa-f]{2})*|u32:[0-9]+(,[0-9]+)*)$",
    },
}


def _items(entity: str, expected: str, least: int = 0, most: int | None = None) -> Kind:
    schema: dict[str, Any] = {"type": "array", "items": {"$ref": f"#/$defs/{entity}"}}
    if least:
        schema["minItems"] = least
    if most:
        schema["maxItems"] = most

    def parse(value: Any) -> Any:
        if not isinstance(value, list) or not least <= len(value) <= (most or len(value)):
            raise Wrong(expected)
        return value

    return Kind(expected, parse, schema=schema)


def _port_reference(value: Any) -> bool:
    return (isinstance(value, str) and value != "") or (
        isinstance(value, int) and not isinstance(value, bool) and 0 <= value <= 127
    )


_PORT_REFERENCE = free(
    "a port's name, or its number from 0 to 127",
    {"anyOf": [{"type": "string", "minLength": 1}, {"type": "integer", "minimum": 0, "maximum": 127}]},
    _port_reference,
)
PORTS = listed(_PORT_REFERENCE, 128, "a list of port names or numbers")


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


# What may happen to a host -------------------------------------------------------------------------------------------


@dataclass(frozen=True)
class Event:
    """Something that can happen to a host."""

    name: str
    target: str  # nic, core, switch or port
    about: str
    values: tuple[int, ...] = ()  # what `value` may be: these,
    low: int = 0  # or a number in these limits
    high: int = 0
    default: int | None = None  # of `value`; None: it has none
    once: bool = False  # it is over as soon as it has happened


EVENTS = (
    Event("uplink-down", "nic", "its link is down; policies choose among the others"),
    Event("uplink-hang", "nic", "its link is up, but nothing is sent"),
    Event("core-stuck", "core", "it works on nothing; what reaches it is dropped"),
    Event("mac-limit", "switch", "its MAC tables hold at most `value` entries", high=2**32 - 1, default=16),
    Event(
        "counters-near-wrap",
        "port",
        "its counters go up to a little below 2^`value`, once",
        values=(32, 63, 64),
        default=32,
        once=True,
    ),
)
EVENT = {event.name: event for event in EVENTS}
EVENT_TARGETS = {"nic": "NIC", "core": "CORE", "switch": "SWITCH", "port": "SWITCH/PORT"}


# The host -------------------------------------------------------------------------------------------------------------

_WEIGHTS = tuple(
    M(f"balancer.{group}.{name}", "", U32, default if group == "default_weights" else None, about, derived)
    for group, about, derived in (
        ("weights", "what the balancer goes by", "the default weight"),
        ("default_weights", "what ResetLBWeights puts back", ""),
    )
    for name, default in zip(names.WEIGHTS, names.DEFAULT_WEIGHTS)
)

HOST = Entity(
    "host",
    "a mapping that begins with host:",
    (
        M("", "host.id", ONE),
        M("host", "host.name", _HOST_NAME, REQUIRED, "the host's name"),
        M("", "host.profile", text(), REQUIRED, "what it was made from; shown only"),
        M("about", "host.description", text(), "", "a line about it; shown only"),
        M("seed", "host.seed", SEED.held_as("std::uint64_t"), 1, "what is made up follows from it"),
        M(
            "flow_timeout",
            "host.flow_timeout_s",
            duration(10**9, high=2**32 - 1, cxx="std::uint32_t"),
            "10s",
            "whole seconds that an idle flow stays in the table",
        ),
        M("flow_floor", "host.flow_floor_ms", MS, "0s", "history: flows idle since before this have left the table"),
        M("fastslabs", "host.fastslabs", SETTING.held_as("bool"), False, "history: the packet buffers are set up"),
        M("", "host.segment_ms", MS, 0, "since when counting goes on from `base`", own=True),
        M("", "clock.id", ONE),
        M("clock.uptime", "clock.base_host_ns", duration(1), "0s", "host time to begin with"),
        M(
            "clock.speed",
            "clock.speed_permille",
            scaled(
                "a speed from 0.001 to 1000000, in seconds of host time a second",
                Fraction(1, 1000),
                10**6,
                1000,
                "permille",
            ),
            1,
            "seconds of host time a second",
        ),
        M("clock.frozen", "clock.mode", FROZEN, False, "the clock stands"),
        M(
            "",
            "clock.base_wall_ns",
            duration(1),
            0,
            "wall time at base_host_ns; 0: set it at the next opening",
            own=True,
        ),
        M("", "balancer.id", ONE),
        M("balancer.period", "balancer.period_ms", duration(low=100), "5s", "how often the balancer looks"),
        M("", "balancer.tick_ms", MS, 0, "when it last looked"),
        M("", "balancer.state", BYTES, b"", "belongs to the stand-ins", own=True),
        *_WEIGHTS,
        M("numa", "", _items("node", "a list of one to eight NUMA nodes", 1, 8), REQUIRED, "a list of nodes; below"),
        M(
            "nics",
            "",
            part(
                "a mapping of NIC names to their descriptions",
                {"type": "object", "additionalProperties": {"$ref": "#/$defs/nic"}},
                dict,
            ),
            None,
            "a mapping of names to NICs; below",
        ),
        M("switches", "", _items("switch", "a list of switches"), None, "below"),
        M("ports", "", _items("port", "a list of ports"), None, "below"),
        M("traffic", "", _items("conversation", "a list of conversations"), None, "below"),
        M("faults", "", _items("fault", "a list of faults"), None, "below"),
        M("events", "", _items("event", "a list of events"), None, "below"),
    ),
)

WEIGHT = Entity(
    "weight",
    "a weight of the balancer",
    (
        M("", "weight.position", number(0, 7, cxx="int"), REQUIRED, "in the platform's order"),
        M("", "weight.value", U32, REQUIRED),
        M("", "weight.default_value", U32, REQUIRED),
    ),
)

NODE_ENTITY = Entity(
    "node",
    "a NUMA node: a mapping with lcores",
    (
        M("", "lcore.lcore", LCORE, REQUIRED, field="id"),
        M("", "lcore.node", NODE, REQUIRED),
        M("lcores", "", listed(LCORE, 64, "a list of core numbers"), REQUIRED, "its cores, numbers from 0 to 63"),
        M(
            "capacity",
            "lcore.packets_per_s",
            quantity("packets a second", 1000, 10**9),
            "1M",
            "fast-path packets a second that each core has time for, with a burst size of 32",
        ),
    ),
)

_FPO_ABOUT = "what it says of its offload: GetFPOUplinkStatus shows it"
NIC = Entity(
    "nic",
    "a NIC: a mapping with numa",
    (
        M("", "nic.name", text(1, 31, "a name of 1 to 31 bytes"), REQUIRED),
        M("numa", "nic.node", NODE, REQUIRED, "the NUMA node it is plugged into"),
        M("affinity", "nic.affinity", U32, None, "the node whose cores serve it", "`numa`"),
        M(
            "link",
            "nic.link_mbps",
            quantity("bits a second, a multiple of 1M,", 1, 10**6, 10**6),
            "25G",
            "bits a second",
        ),
        M("driver_text", "nic.driver_text", TRUTH, True, "its driver has private statistics"),
        M("crc_ppm", "nic.crc_ppm", PPM.held_as("std::uint64_t"), 0, "frames received damaged, of a million"),
        M(
            "drop_ppm",
            "nic.drop_ppm",
            PPM.held_as("std::uint64_t"),
            0,
            "frames dropped in each direction, of a million",
        ),
        M("fpo", "nic.fpo_level", named(names.FPO_LEVELS, quoted=True), "none", "offload level"),
        *(
            M(
                f"fpo_limits.{limit}",
                f"nic.fpo_{limit}",
                word64() if limit == "actions" else U32,
                0,
                _FPO_ABOUT,
                "by level",
            )
            for limit in names.FPO_LIMITS
        ),
    ),
)

_HISTORY = "history: host time of the last clearing"
SWITCH = Entity(
    "switch",
    "a switch: a mapping with alias",
    (
        M("", "sw.sw", number(0, 15, cxx="int"), REQUIRED, field="id"),
        M("alias", "dvs.alias", NAME, REQUIRED, "what scripts call it"),
        M("id", "dvs.switch_id", text(1, 63, "an identifier of 1 to 63 bytes"), None, "its identifier", "made up"),
        M("class", "dvs.class", NAME, "vswitch", "its class", field="class_name"),
        M(
            "name",
            "sw.name",
            NAME,
            None,
            "its portset name, also kept as its portset property; without it there is no such property",
            "the alias",
        ),
        M("number", "", number(0, 15, "a switch number"), None, "its number in the datapath", "the next free"),
        M("datapath", "", TRUTH, True, "false: only the switch-state library knows it"),
        M(
            "marker",
            "",
            text(0, 127),
            None,
            "its property that says whether the datapath serves it: `poll`, `intr`, `true`, ...",
        ),
        M("mtu", "sw.mtu", U32, 1500, "frames larger than this and 18 are refused"),
        M("max_ports", "sw.max_ports", number(0, 128, cxx="std::uint32_t"), 128, "what ListSwitches says of it"),
        M(
            "uplinks",
            "",
            listed(text(1, 31, "a NIC's name"), 128, "a list of NIC names"),
            None,
            "NICs; each is a port with number 0, 1, ...",
        ),
        M("lro", "sw.lro", SETTING, True, "large receive offload, as last set for the whole switch"),
        M("flow_cache", "sw.flow_cache", TRUTH, True, "false: all goes by the slow path"),
        M("panic_on_tx_hang", "sw.panic_on_tx_hang", SETTING, False, "the log says that a real host would stop"),
        M(
            "uplink_mac_learn",
            "sw.uplink_mac_learn",
            SETTING.held_as("bool"),
            True,
            "false: its uplinks learn no addresses",
        ),
        M("mac_limit", "sw.mac_limit", U32, 65536, "addresses that it learns at most"),
        M("burst", "sw.burst_size", U32, 32, "the datapath's own burst size; `stored` goes before it"),
        M("numa_team", "sw.numa_team", SETTING.held_as("bool"), False, "uplinks on the sender's node go first"),
        M("balancer.metric", "sw.lb_metric", METRIC, "cpu", "what the balancer goes by: load, ports, or nothing"),
        M("balancer.high", "sw.lb_high", U32, 60, "percent of a core: above it ports are moved away"),
        M("balancer.low", "sw.lb_low", U32, 40, "percent of a core: below it ports may come"),
        M("balancer.pause", "sw.lb_pause", U32, 10, "percent of a core: less difference moves nothing"),
        M("balancer.sensitivity", "sw.lb_sensitivity", U32, 5, "percent of a core's load: a port below it stays"),
        M("flows_cleared", "sw.flow_cleared_ms", MS, "0s", _HISTORY),
        M("macs_cleared", "sw.mac_cleared_ms", MS, "0s", _HISTORY),
        M("stored.fpo", "", U32, None, "kept as a property: 0 offloads nothing"),
        M("stored.burst", "", U32, None, "kept as a property, which goes before `burst`"),
        M("stored.numa_team", "", SETTING, None, "kept as a property, which goes before `numa_team`"),
        M("stored.balancer.metric", "", METRIC, "cpu", "kept as a property, which goes before `balancer`"),
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
        M("mirrors", "", _items("mirror", "a list of mirror sessions"), None, "below"),
        M("mac_entries", "", _items("mac_entry", "a list of MAC table entries"), None, "below"),
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

MIRROR = Entity(
    "mirror",
    "a mirror session: a mapping with session",
    (
        M("", "mirror.sw", number(0, 15, cxx="int"), REQUIRED),
        M("session", "mirror.session", U16, REQUIRED, "its index", field="index"),
        M("in", "", PORTS, None, "ports whose packets it copies as they enter the switch"),
        M("out", "", PORTS, None, "ports whose packets it copies as they leave the switch"),
        M("to", "", PORTS, None, "ports that get the copies"),
        M("vlans", "", listed(VLAN, 64, "a list of at most 64 VLANs"), None, "only packets of these", "all"),
        M("encap_vlan", "mirror.encap_vlan", U16, 0, "shown only"),
        M("snap_len", "mirror.snap_len", U16, 0, "copies are cut to so many bytes; 0: they are not"),
        M("sampling_rate", "mirror.sampling_rate", U16, 1, "one packet of so many is copied"),
        M(
            "flags",
            "mirror.flags",
            bits(names.MIRROR_FLAGS, "flag", 0).held_as("std::uint16_t"),
            [],
            "`vlanEncap` makes a copy four bytes longer; the others are only shown",
        ),
    ),
)

MIRROR_PARTS = Entity(
    "mirror_part",
    "a port or VLAN of a mirror session",
    (
        M("", "mirror_port.sw", number(0, 15, cxx="int"), REQUIRED),
        M("", "mirror_port.session", U16, REQUIRED),
        M("", "mirror_port.role", choice("in", "out", "dst", enum="MirrorRole"), REQUIRED),
        M("", "mirror_port.port", PORT, REQUIRED),
        M("", "mirror_vlan.sw", number(0, 15, cxx="int"), REQUIRED),
        M("", "mirror_vlan.session", U16, REQUIRED),
        M("", "mirror_vlan.seq", number(0, 63, cxx="int"), REQUIRED),
        M("", "mirror_vlan.vlan", VLAN, REQUIRED),
    ),
)

MAC_ENTRY = Entity(
    "mac_entry",
    "a MAC table entry: a mapping with port, mac",
    (
        M("", "mac_entry.sw", number(0, 15, cxx="int"), REQUIRED),
        M("port", "mac_entry.port", U32.held_as("int"), REQUIRED, "the port's number"),
        M("mac", "mac_entry.mac", STATION, REQUIRED, "the address"),
        M("vlan", "mac_entry.vlan", U16, 0, "its VLAN"),
        M("deleted", "mac_entry.present", DELETED, False, "it was deleted by hand, not added"),
        M("at", "mac_entry.at_ms", MS, "0s", "when, in host time"),
    ),
)

PORT_ENTITY = Entity(
    "port",
    "a port: a mapping with switch",
    (
        M("", "port.sw", number(0, 15, cxx="int"), REQUIRED),
        M("switch", "", NAME, REQUIRED, "an alias"),
        M(
            "count",
            "",
            number(1, 128, "a number of ports"),
            1,
            "so many ports like this; `port`, `dvport` and `mac` count up",
        ),
        M("first", "", U32, 0, "what `{n}` in `vm` counts from"),
        M("vm", "port.client", text(0, 127), "", "who is connected; other parts of the description call the port so"),
        M("nic", "port.nic", text(1, 31, "a NIC's name"), None, "makes it an uplink", field="nic_name", null=True),
        M("port", "port.port", PORT, None, "its number in the switch", "the next free", field="id"),
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
        M("mac", "port.mac", STATION, None, "its address", "made up"),
        M(
            "macs_behind",
            "port.macs_behind",
            number(0, 65536, "a number of addresses", cxx="std::uint32_t"),
            0,
            "further addresses that are learned here",
        ),
        M("mac_limit", "port.mac_limit", U32, 16384, "addresses that it learns at most"),
        M("queues", "", number(0, 32, "a number of queues"), None, "queues in both directions", "1; an uplink: 4"),
        M("tx_queues", "port.tx_queues", number(0, 32, "a number of queues", "int"), 1, "transmit queues", "`queues`"),
        M("rx_queues", "port.rx_queues", number(0, 32, "a number of queues", "int"), 1, "receive queues", "`queues`"),
        M(
            "filter",
            "port.filter_flags",
            bits(names.FILTERS, "receive filter", 2**32 - 1),
            ["UNICAST", "MULTICAST", "BROADCAST"],
            "what it receives",
        ),
        M("ladrf", "port.ladrf", word64(), 0, "the multicast hash filter"),
        M("vlan", "port.vlan", VLAN, 0, "the untagged VLAN"),
        M("vni", "port.vni", U24, 0, "the overlay network; 0: none"),
        M("forged", "port.forged_ok", SETTING.held_as("bool"), False, "it may send from other addresses"),
        M("sample_rate", "port.sample_rate", U32, 0, "shown only"),
        M("lro", "port.lro", SETTING, True, "large receive offload: four TCP frames are handed over as one"),
        M(
            "teaming.type",
            "port.tx_type",
            named(names.TX_TYPES).held_as("int"),
            "Single",
            "how its packets choose an uplink: `None`, `Single`, `LAG`, `SrcMAC`, `All`, `NoTeaming`",
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
        M("tx_core", "port.tx_core", CORE, -1, "the core it sends on", "`core`"),
        M("rx_core", "port.rx_core", CORE, -1, "the core it receives on", "`core`"),
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
        M("flows_cleared", "port.flow_cleared_ms", MS, "0s", _HISTORY),
        M("macs_cleared", "port.mac_cleared_ms", MS, "0s", _HISTORY),
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


def _protocol() -> Kind:
    return named(names.PROTOCOLS, (0, 255)).held_as("std::uint8_t")


_ACTIONS = {name: 1 << bit for name, bit in names.ACTIONS.items()}
CONVERSATION = Entity(
    "conversation",
    "a conversation: a mapping with from, to, pps",
    (
        M("", "conversation.id", number(1, 2**31 - 1, cxx="int"), REQUIRED),
        M("", "conversation.sw", number(0, 15, cxx="int"), REQUIRED),
        M(
            "from",
            "",
            NAME,
            REQUIRED,
            "a port's name, `SWITCH/NUMBER`, or a pattern: then one conversation for each port it fits",
        ),
        M(
            "to",
            "",
            NAME,
            REQUIRED,
            "a port of the same switch, or `uplink`: leaves by the uplink that the sender's policy picks",
        ),
        M("", "conversation.src_port", PORT, REQUIRED),
        M(
            "",
            "conversation.dst_port",
            PORT,
            REQUIRED,
            "NULL: leaves the host by the uplink its policy picks",
            null=True,
        ),
        M("pps", "conversation.milli_pps", rate(), REQUIRED, "mean packets a second of each sender, at most 1G"),
        M("size", "conversation.size", FRAME, 512, "bytes of a frame", field="frame_size"),
        M(
            "reply",
            "conversation.reply_permille",
            scaled("a share from 0 to 10", 0, 10, 1000, "permille"),
            0,
            "packets back for each packet",
        ),
        M("reply_size", "conversation.reply_size", FRAME, 66, "bytes of a frame back"),
        M(
            "delivery",
            "conversation.delivery",
            choice(*names.DELIVERIES, enum="Delivery"),
            "unicast",
            "`unicast`, `multicast`, `broadcast`",
        ),
        M(
            "proto",
            "conversation.protocol",
            _protocol(),
            "tcp",
            "`tcp`, `udp`, `icmp`, `icmp6` or a number. Conversations between the same ends should differ in"
            " `dport`, else some of their flows have the same key",
        ),
        M("sport", "conversation.src_l4", U16, 0, "source port; ICMP: its type", "made up", field="source_l4"),
        M(
            "dport",
            "conversation.dst_l4",
            U16,
            0,
            "destination port; ICMP: its code",
            "tcp: 443",
            field="destination_l4",
        ),
        M("src_ip", "conversation.src_ip", IP, None, "source address", "made up", field="source_ip"),
        M("dst_ip", "conversation.dst_ip", IP, None, "destination address", "made up", field="destination_ip"),
        M(
            "dst_mac",
            "conversation.dst_mac",
            MAC,
            None,
            "the next hop's address",
            "the other port's, or made up",
            null=True,
        ),
        M("vlan", "conversation.vlan", VLAN, 0, "the VLAN of its packets", "the port's"),
        M("vni", "conversation.vni", U24, 0, "the overlay network of its packets; 0: none", "the port's"),
        M("flows", "conversation.flows", number(1, 65536, "a number of flows", "std::uint32_t"), 1, "lasting flows"),
        M(
            "churn_ppm",
            "conversation.churn_ppm",
            number(0, 100000, "short flows in a million packets,", "std::uint32_t", "ppm"),
            0,
            "packets, of a million, that open a short flow (at most 16384 live at a time, from source port 32768 on)",
        ),
        M(
            "slow",
            "conversation.slow_permille",
            SHARE.held_as("std::uint32_t"),
            0.001,
            "the share that always takes the slow path",
        ),
        M(
            "pattern.swing",
            "conversation.swing_permille",
            SHARE,
            0,
            "share of the mean by which the rate swings, as a triangle",
        ),
        M(
            "pattern.period",
            "conversation.period_ms",
            duration(low=1000, high=604800000),
            "1d",
            "how long a swing takes, to 7d",
        ),
        M("pattern.daily", "", SHARE, None, "the same as `pattern.swing` alone"),
        M("pattern.phase", "conversation.phase_ms", MS, "0s", "so much later in its swing and bursts"),
        M(
            "pattern.burst.every",
            "conversation.burst_every_ms",
            MS,
            "0s",
            "between the starts of two bursts",
            together=True,
        ),
        M("pattern.burst.for", "conversation.burst_for_ms", MS, "0s", "how long each lasts", together=True),
        M(
            "pattern.burst.times",
            "conversation.burst_permille",
            scaled("a factor from 1 to 100", 1, 100, 1000, "permille"),
            1,
            "the rate meanwhile, in usual rates",
            together=True,
        ),
        M("start", "conversation.start_ms", MS, "0s", "in host time"),
        M("stop", "conversation.stop_ms", MS, None, "in host time", "never", null=True),
        M(
            "actions",
            "conversation.actions",
            bits(_ACTIONS, "action", 31, positions=True),
            [],
            "further actions of its flows, named as in the flow table's text (`DP` for the valid dp value), or bits",
        ),
        M("vdr", "conversation.vdr", number(0, 12, "a number of routers", "std::uint32_t"), 0, "routers on its way"),
    ),
)

_FAULT_NUMBER = number(0, 2**63 - 1)


def _where(value: Any) -> bool:
    return isinstance(value, str) and value.partition("=")[0] in names.FAULT_ARGUMENTS and "=" in value


WHERE_ITEM = free(
    "an argument and what it must match, such as key=*.fpo",
    {"type": "string", "pattern": "^(" + "|".join(names.FAULT_ARGUMENTS) + ")=.*$"},
    _where,
)
WHERE = free(
    "an argument and what it must match, such as key=*.fpo, or a list of them",
    {"anyOf": [WHERE_ITEM.schema, {"type": "array", "items": WHERE_ITEM.schema, "maxItems": 9}]},
    lambda value: isinstance(value, str) or (isinstance(value, list) and len(value) <= 9),
)
FAULT = Entity(
    "fault",
    "a fault: a mapping with operation",
    (
        M("", "fault.id", number(1, 2**63 - 1), REQUIRED),
        M("operation", "fault.operation", NAME, REQUIRED, "an operation's name, or a pattern such as `Ryn_Get*`"),
        M("where", "", WHERE, None, "`ARGUMENT=GLOB`, or a list of them, which must all hold"),
        M(
            "status",
            "fault.status",
            number(1, 2**32 - 1),
            None,
            "answered instead of the operation",
            "the operation answers",
            null=True,
        ),
        M("delay", "fault.delay_ms", MS, "0s", "it waits first"),
        M(
            "corrupt",
            "fault.corrupt",
            choice(*names.CORRUPTIONS, enum="Corruption"),
            None,
            "`zero`, `ones`, `random`, `half`: what is done to the answer's bytes",
            "nothing",
            null=True,
        ),
        M("after", "fault.after", _FAULT_NUMBER, 0, "so many matching calls pass first"),
        M("times", "fault.times", number(1, 2**63 - 1), None, "at most so many calls are touched", "all", null=True),
        M(
            "probability",
            "fault.probability_ppm",
            scaled("a share from 0 to 1", 0, 1, 10**6, "ppm").held_as("std::uint64_t"),
            1,
            "how likely a matching call is touched",
        ),
        M("seed", "fault.seed", SEED.held_as("std::uint64_t"), 1, "of the probability's dice"),
        M("from", "fault.from_ms", MS, None, "in host time", "always", null=True),
        M("until", "fault.until_ms", MS, None, "in host time", "no end", null=True),
        M("", "fault.calls", _FAULT_NUMBER, 0, "matching calls so far", own=True),
        M("", "fault.hits", _FAULT_NUMBER, 0, "of these, touched", own=True),
        M("", "fault_where.fault", number(1, 2**63 - 1), REQUIRED),
        M("", "fault_where.seq", number(0, 8, cxx="int"), REQUIRED),
        M("", "fault_where.name", choice(*names.FAULT_ARGUMENTS, enum="FaultArgument"), REQUIRED, "an argument"),
        M("", "fault_where.glob", text(0, 2**16), REQUIRED, "what that argument, as text, must match"),
    ),
)

_TARGET = free(
    "a NIC's name, a core's or switch's number, or SWITCH/PORT",
    {"type": ["string", "integer"], "minimum": 0},
    lambda value: isinstance(value, str) or (isinstance(value, int) and not isinstance(value, bool) and value >= 0),
)
EVENT_ENTITY = Entity(
    "event",
    "an event: a mapping with event, target",
    (
        M("", "event.id", number(1, 2**63 - 1), REQUIRED),
        M("event", "event.kind", choice(*EVENT, enum="EventKind"), REQUIRED, "which one, see [Events](#events)"),
        M("target", "", _TARGET, REQUIRED, "what it happens to"),
        M("", "event.target", text(1, 127), REQUIRED),
        M(
            "value",
            "event.value",
            U32.held_as("std::int64_t"),
            None,
            "of a limit or a size",
            "the event's own",
            null=True,
        ),
        M("from", "event.from_ms", MS, "0s", "in host time"),
        M("until", "event.until_ms", MS, None, "in host time", "no end", null=True),
        M("", "event.started", number(0, 2, cxx="int"), 0, "0 ahead, 1 on, 2 over", field="stage", own=True),
    ),
)

KEPT = Entity(
    "kept",
    "what the stand-ins and the tool keep for themselves",
    (
        M("", "base.kind", choice("port", "rx", "tx", "flow", "core", "passed", "lost", enum="BaseKind"), REQUIRED),
        M("", "base.sw", number(0, 15, cxx="int"), REQUIRED),
        M("", "base.id", number(0, 2**31 - 1, cxx="int"), REQUIRED),
        M("", "base.counts", BYTES, REQUIRED, "little-endian unsigned 64-bit words"),
        M("", "move.id", number(1, 2**63 - 1), REQUIRED),
        M("", "move.at_ms", MS, REQUIRED),
        M("", "move.sw", number(0, 15, cxx="int"), REQUIRED),
        M("", "move.port", PORT, REQUIRED),
        M("", "move.from_core", LCORE, REQUIRED),
        M("", "move.to_core", LCORE, REQUIRED),
        M("", "log.id", number(1, 2**63 - 1), REQUIRED),
        M("", "log.at_ms", MS, REQUIRED),
        M("", "log.pid", number(0, 2**63 - 1), REQUIRED),
        M("", "log.operation", text(), REQUIRED, "or the event's kind"),
        M("", "log.arguments", text(), ""),
        M("", "log.what", text(), REQUIRED, "'status 0x0BAD0007', 'delay 20 ms', ..."),
        M("", "origin.id", ONE),
        M("", "origin.yaml", text(0, 2**30), "", "'': the shipped profile that host.profile names"),
        M("", "origin.seed", SEED, None, "another one than the description's", null=True),
    ),
)

ENTITIES = (
    HOST,
    WEIGHT,
    NODE_ENTITY,
    NIC,
    SWITCH,
    PROPERTY,
    MIRROR,
    MIRROR_PARTS,
    MAC_ENTRY,
    PORT_ENTITY,
    PORT_PARTS,
    CONVERSATION,
    FAULT,
    EVENT_ENTITY,
    KEPT,
)

# The store's tables, in the order in which they can be filled.
_PORT_KEY = "FOREIGN KEY (sw, port) REFERENCES port ON DELETE CASCADE"
_SESSION_KEY = "FOREIGN KEY (sw, session) REFERENCES mirror ON DELETE CASCADE"
TABLES = (
    Table("host", "One row.", ("id",), row="HostRow"),
    Table(
        "clock",
        "One row, the only source of time. Host time is base_host_ns while frozen, else"
        " base_host_ns + (wall time - base_wall_ns) * speed_permille / 1000. It never goes back: whoever writes this"
        " row writes a host time at or after the present one.",
        ("id",),
        row="ClockRow",
    ),
    Table("lcore", "A core that forwards packets.", ("lcore",), row="CoreRow"),
    Table("nic", "A network card.", ("name",), row="NicRow"),
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
    Table("mirror", "A mirror session.", ("sw", "session"), ("FOREIGN KEY (sw) REFERENCES sw",), row="MirrorRow"),
    Table(
        "mirror_port",
        "Its ports, by what they are to it.",
        ("sw", "session", "role", "port"),
        (_SESSION_KEY,),
        row="MirrorPortRow",
    ),
    Table("mirror_vlan", "Its VLANs; none: all.", ("sw", "session", "seq"), (_SESSION_KEY,), row="MirrorVlanRow"),
    Table(
        "mac_entry",
        "Entries added to and deleted from MAC tables by hand; what ports learn follows from the inventory.",
        ("sw", "port", "mac", "vlan"),
        ("FOREIGN KEY (sw) REFERENCES sw",),
        row="MacEntryRow",
    ),
    Table(
        "conversation",
        "Who sends what to whom, and how much of it. Packets are an exact function of host time: with the mean rate r,"
        " r * (1 + swing * wave(t)) + r * (burst - 1) while a burst lasts, where wave is a triangle of the given period"
        " between -1 and 1. A share of the packets is answered by the other side.",
        ("id",),
        (
            "FOREIGN KEY (sw, src_port) REFERENCES port",
            "FOREIGN KEY (sw, dst_port) REFERENCES port",
            "CHECK (length(dst_ip) = length(src_ip))",
            "CHECK (burst_for_ms <= burst_every_ms)",
            "CHECK (stop_ms IS NULL OR stop_ms >= start_ms)",
        ),
        row="ConversationRow",
    ),
    Table("weight", "The balancer's weights, in the platform's order.", ("position",), row="WeightRow"),
    Table("balancer", "One row. The balancer looks every period_ms of host time.", ("id",), row="BalancerRow"),
    Table(
        "fault",
        "A rule for calls of an operation. All conditions must hold; the first rule that holds is applied.",
        ("id",),
        row="FaultRow",
    ),
    Table(
        "fault_where",
        "What a fault's calls must have as arguments, all of it.",
        ("fault", "seq"),
        ("FOREIGN KEY (fault) REFERENCES fault ON DELETE CASCADE",),
        row="FaultWhereRow",
    ),
    Table(
        "event",
        "Something that happens to the host from from_ms (at or after the present) until until_ms (NULL: no end)."
        " target: a NIC's name, a core's or switch's number, or 'SWITCH/PORT'.",
        ("id",),
        ("CHECK (until_ms IS NULL OR until_ms > from_ms)",),
        row="EventRow",
    ),
    Table(
        "base",
        "The counts at host.segment_ms. Belongs to the stand-ins; a new store has no rows here.",
        ("kind", "sw", "id"),
        row="BaseRow",
        kept=True,
    ),
    Table("move", "Moves of the balancer, the latest few hundred.", ("id",), kept=True),
    Table("log", "Every hit of a fault, and every start and end of an event.", ("id",), kept=True),
    Table(
        "origin", "The description that the host was made from, for a reset: belongs to the tool.", ("id",), kept=True
    ),
)
TABLE = {table.name: table for table in TABLES}


def _of(table: str) -> tuple[Member, ...]:
    members = [member for entity in ENTITIES for member in entity.members if member.table == table]
    key = TABLE[table].key
    rank = {column: place for place, column in enumerate(key)}
    return tuple(sorted(members, key=lambda member: rank.get(member.column, len(key))))


MEMBERS = {table.name: _of(table.name) for table in TABLES}
# The columns that compiling writes: all but the stand-ins' and the tool's own.
COLUMNS = {
    table: tuple(member.column for member in members if not member.own)
    for table, members in MEMBERS.items()
    if not TABLE[table].kept
}


def member(table: str, column: str) -> Member:
    """The row of a column."""
    return next(found for found in MEMBERS[table] if found.column == column)


def default(table: str, column: str) -> Any:
    """A column's default, as the store has it."""
    return member(table, column).stored_default
