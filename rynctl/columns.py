"""The columns of every command: the one list from which tables, JSON, CSV, schemas, help and completion are made."""

from __future__ import annotations

from typing import Dict, NamedTuple, Tuple

COUNTERS = (
    "packets",
    "bytes",
    "multicast_packets",
    "multicast_bytes",
    "broadcast_packets",
    "broadcast_bytes",
    "drops",
    "errors",
)

# Of a column's values. `count` is an int that tables shorten (12.34k); the others are shown exactly.
TYPES = ("int", "count", "float", "bool", "str", "ints", "strs", "pairs", "any")


class Column(NamedTuple):
    name: str  # the JSON key, the CSV heading, what --columns, --sort and --filter take
    type: str
    text: str  # what it says, for help and schema
    unit: str = ""  # beside the table's heading, where the name does not say it
    null: bool = False  # may be null


def _counters(prefix: str = "", what: str = "") -> Tuple[Column, ...]:
    sides = (("tx", "sent"), ("rx", "received"))
    return tuple(
        Column(f"{prefix}{side}_{name}", "count", f"{name.replace('_', ' ')} {verb}{what}")
        for side, verb in sides
        for name in COUNTERS
    )


_SWITCH = Column("switch", "str", "the datapath's name of the switch")
_PORT = Column("port", "int", "number of the port, 0 to 127")
_CORE = Column("core", "int", "number of the core, 0 to 63")
_MAC = Column("mac", "str", "MAC address")

_PORT_LIST = (
    _SWITCH,
    _PORT,
    Column("dvport", "int", "number of the distributed port"),
    Column("kind", "str", "VNIC, UPLINK, GENERIC, QOBNIC or UNKNOWN"),
    _MAC,
    Column("mac_count", "count", "MAC addresses known on the port"),
    Column("tx_cores", "ints", "cores that send, one for each queue"),
    Column("rx_cores", "ints", "cores that receive, one for each queue"),
)
_UPLINK_COUNTERS = tuple(
    Column(name, "count", name.replace("_", " "))
    for name in (
        "rx_packets tx_packets rx_bytes tx_bytes rx_errors tx_errors rx_drops tx_drops rx_multicast_packets "
        "rx_broadcast_packets tx_multicast_packets tx_broadcast_packets collisions rx_length_errors "
        "rx_overflow_errors rx_crc_errors rx_frame_align_errors rx_fifo_errors rx_miss_errors tx_aborted_errors "
        "tx_carrier_errors tx_fifo_errors tx_heartbeat_errors tx_window_errors"
    ).split()
)
_SWITCH_LIST = (
    Column("number", "int", "number in the datapath, 0 to 15; null: only configured", null=True),
    Column("name", "str", "the datapath's name"),
    Column("alias", "str", "the name that operators gave; null: not configured", null=True),
    Column("id", "str", "identifier in the configuration", null=True),
    Column("mtu", "int", "largest payload of a frame", "B", null=True),
    Column("max_ports", "int", "room for ports", null=True),
)
_LB_LIST = (
    _SWITCH,
    Column("algorithm", "str", "what is balanced: cpu, count or none"),
    Column("high", "int", "no core above it keeps its load", "%"),
    Column("low", "int", "only cores below it are given more", "%"),
    Column("pause", "int", "least difference in usage at which a port is moved", "%"),
    Column("sensitivity", "int", "least share of traffic that counts", "%"),
)
_FLOWS = (
    _SWITCH,
    _CORE,
    Column("protocol", "int", "IP protocol"),
    Column("src", "str", "source address"),
    Column("sport", "int", "source port; ICMP: type"),
    Column("dst", "str", "destination address"),
    Column("dport", "int", "destination port; ICMP: code"),
    Column("packets", "count", "since the last flush; null: does not apply", null=True),
    Column("bytes", "count", "since the last flush; null: does not apply", null=True),
    Column("vlan", "int", "VLAN"),
    Column("actions", "strs", "what is done with its packets"),
    Column("offloaded", "bool", "whether the NIC handles it"),
    Column("mac_a", "str", "first MAC address of the key"),
    Column("mac_b", "str", "second MAC address of the key"),
)
_MACS = (
    _SWITCH,
    _PORT,
    _MAC,
    Column("vlan", "int", "VLAN, 0 to 4095"),
    Column("generation", "int", "age of the entry; 0: just seen (assumed)"),
)
_CHANGES = (
    Column("object", "str", "what is changed"),
    Column("key", "str", "the setting, or the action"),
    Column("old", "any", "value before; null: cannot be read", null=True),
    Column("new", "any", "value read back, or what was asked for; null: cannot be read", null=True),
    Column("result", "str", "changed, unchanged, unverified (cannot be read back) or planned (--dry-run)"),
)
_SETTINGS = (
    Column("object", "str", "whose setting it is"),
    Column("key", "str", "the setting, as `set` takes it"),
    Column("value", "any", "the value in force", null=True),
    Column("source", "str", "where it comes from: property, datapath or default"),
    Column("stored", "any", "what the host keeps; null: nothing", null=True),
    Column("running", "any", "what the datapath says; null: no answer", null=True),
)

COLUMNS: Dict[str, Tuple[Column, ...]] = {
    "switch.list": _SWITCH_LIST,
    "switch.show": _SWITCH_LIST
    + (
        Column("ports", "int", "ports that there are"),
        Column("cores", "ints", "cores that work for the switch", null=True),
        Column("macs", "count", "MAC addresses known", null=True),
        Column("mirrors", "int", "mirror sessions", null=True),
    ),
    "port.list": _PORT_LIST,
    "port.show": _PORT_LIST
    + (
        Column("lro", "bool", "large receive offload"),
        Column("teaming", "str", "how the uplink is chosen"),
        Column("uplinks", "ints", "uplinks to choose from"),
        Column("flags", "str", "receive filters"),
        Column("vlan", "int", "untagged VLAN"),
        Column("vlan_ranges", "pairs", "first and last VLAN of each range let through"),
        Column("vni", "int", "overlay network"),
        Column("forged_allowed", "bool", "whether foreign source addresses may be sent"),
        Column("sample_rate", "int", "one packet of so many is sampled"),
        Column("multicast", "strs", "multicast addresses listened to"),
    ),
    "port.stats": (_SWITCH, _PORT)
    + _counters()
    + _counters("fast_", " on the fast path")
    + _counters("slow_", " on the slow path"),
    "uplink.list": (
        _SWITCH,
        _PORT,
        Column("dvport", "int", "number of the distributed port"),
        _MAC,
        Column("link_up", "bool", "link state; null: the driver does not say", null=True),
        Column("tx_ring", "int", "descriptors of the transmit ring", null=True),
        Column("rx_ring", "int", "descriptors of the receive ring", null=True),
        Column("offload", "str", "level of flow processing offload"),
    ),
    "uplink.stats": (_SWITCH, _PORT) + _UPLINK_COUNTERS,
    "uplink.queues": (
        _SWITCH,
        _PORT,
        Column("side", "str", "rx or tx (assumed)"),
        Column("queue", "int", "number of the queue"),
    )
    + _UPLINK_COUNTERS,
    "uplink.dump": (
        _SWITCH,
        _PORT,
        Column("line", "int", "number of the line"),
        Column("text", "str", "the driver's text"),
    ),
    "mac.list": _MACS,
    "flow.list": _FLOWS,
    "flow.stats": (
        _SWITCH,
        _CORE,
        Column("flows", "count", "flows in the table"),
        Column("hits", "count", "packets of known flows"),
        Column("misses", "count", "packets of unknown flows"),
        Column("fpo_hits", "count", "hits in the NIC"),
        Column("local_hits", "count", "hits on the core"),
        Column("insert_failures", "count", "flows that the NIC could not take"),
    ),
    "mirror.list": (
        _SWITCH,
        Column("index", "int", "number of the session"),
        Column("source_in", "ints", "ports whose received packets are copied"),
        Column("source_out", "ints", "ports whose sent packets are copied"),
        Column("destinations", "ints", "ports that get the copies"),
        Column("vlans", "ints", "VLANs that are copied; none: all"),
        Column("snap_len", "int", "bytes of a packet that are copied; 0: all", "B"),
        Column("sampling_rate", "int", "one packet of so many is copied"),
        Column("encap_vlan", "int", "VLAN of the copies"),
        Column("vlan_encap", "bool", "copies are tagged"),
        Column("orig_vlan", "bool", "copies keep their VLAN"),
        Column("no_input", "bool", "destinations send nothing"),
        Column("no_output", "bool", "destinations receive nothing else"),
    ),
    "netq.list": (
        _SWITCH,
        _PORT,
        Column("filter", "int", "number of the filter"),
        Column("kind", "int", "kind of the filter"),
        Column("text", "str", "what the filter matches"),
        Column("queues", "pairs", "port, queue and flow of each queue"),
    ),
    "lb.list": _LB_LIST,
    "lb.stats": (
        _SWITCH,
        _PORT,
        Column("core_a", "int", "first core of the port"),
        Column("core_b", "int", "second core of the port"),
        Column("usage0", "int", "share of the first core", "%"),
        Column("usage1", "int", "share of the second core", "%"),
        Column("usage2", "int", "share of the first core", "%"),
        Column("usage3", "int", "share of the second core", "%"),
        Column("load_a", "count", "load on the first core"),
        Column("load_b", "count", "load on the second core"),
    ),
    "lb.dump": (
        _SWITCH,
        Column("record", "str", "group, vertex or edge"),
        Column("number", "int", "group, vertex, or the vertex that an edge leaves"),
        Column("peer", "int", "vertex that an edge reaches", null=True),
        Column("load", "int", "load of a group or an edge", null=True),
        Column("ema", "int", "moving average of an edge", null=True),
        Column("wid", "int", "world of a vertex", null=True),
        Column("flags", "int", "flags of a vertex", null=True),
        Column("tx_ports", "ints", "ports that send in a group", null=True),
        Column("rx_ports", "ints", "ports that receive in a group", null=True),
    ),
    "fpo.list": (
        _SWITCH,
        _PORT,
        Column("level", "str", "level of the uplink"),
        Column("enabled", "int", "the switch's setting; 0: off", null=True),
        Column("groups", "int", "groups"),
        Column("priorities", "int", "priorities"),
        Column("mark_bits", "int", "bits of a mark"),
        Column("flows", "count", "flows that the NIC can take"),
        Column("counters", "count", "counters that the NIC has"),
        Column("key_bits", "int", "bits of the keys that it matches"),
        Column("dec_ttl", "int", "whether it decrements TTLs"),
        Column("actions", "int", "bits of the actions that it can do"),
    ),
    "fpo.stats": (
        _SWITCH,
        _CORE,
        Column("hits", "count", "packets that the NIC handled"),
        Column("mark_mismatches", "count", "marks that did not match"),
        Column("pnic_mismatches", "count", "packets from another NIC"),
        Column("delayed_matches", "count", "marks that matched late"),
        Column("ephemeral_flows", "count", "flows of one packet"),
        Column("transient_flows", "count", "flows under way to the NIC"),
    ),
    "core.list": (
        _CORE,
        Column("switches", "strs", "switches that it works for"),
        Column("usage", "int", "at the balancer's last look", "%", null=True),
        Column("load", "count", "at the balancer's last look", null=True),
    ),
    "device.list": (
        Column("device", "str", "name of the NIC"),
        Column("affinity", "int", "NUMA node that serves it (assumed)"),
    ),
    "host.list": (
        Column("name", "str", "the host's name"),
        Column("backend", "str", "platform or simulated"),
        Column("switches", "int", "switches"),
        Column("ports", "int", "ports of all switches"),
        Column("cores", "ints", "cores of the datapath"),
        Column("flow_timeout", "int", "after which an idle flow is forgotten", "s"),
    ),
    "find": (
        Column("match", "str", "what was found: switch, port, mac, device or flow"),
        _SWITCH._replace(null=True),
        _PORT._replace(null=True),
        Column("kind", "str", "kind of the port", null=True),
        Column("mac", "str", "MAC address", null=True),
        Column("vlan", "int", "VLAN of the entry", null=True),
        Column("uplinks", "ints", "uplinks that it may leave by", null=True),
        Column("cores", "ints", "cores that work for it", null=True),
        Column("flows", "count", "flows that have it as an end", null=True),
        Column("detail", "str", "more about it", null=True),
    ),
    "diff": (
        Column("change", "str", "changed, added or removed"),
        Column("row", "str", "which row"),
        Column("column", "str", "which value", null=True),
        Column("before", "any", "value in the first file", null=True),
        Column("after", "any", "value in the second file", null=True),
        Column("delta", "count", "difference of two numbers", null=True),
        Column("rate", "float", "difference of two counters", "1/s", null=True),
    ),
    "doctor": (
        Column("check", "str", "what is looked at"),
        Column("status", "str", "ok, warning or failed"),
        Column("detail", "str", "what was found"),
        Column("fix", "str", "the command that mends it", null=True),
    ),
    "top.ports": (
        _SWITCH,
        _PORT,
        Column("kind", "str", "kind of the port"),
        Column("tx_bytes", "count", "bytes sent", "B/s", null=True),
        Column("rx_bytes", "count", "bytes received", "B/s", null=True),
        Column("drops", "count", "packets dropped, sent and received", "1/s", null=True),
        Column("tx_packets", "count", "packets sent", "1/s", null=True),
        Column("rx_packets", "count", "packets received", "1/s", null=True),
        Column("errors", "count", "packets with errors, sent and received", "1/s", null=True),
        Column("reset", "bool", "a counter fell: no rates"),
    ),
    "top.cores": (
        _CORE,
        Column("usage", "int", "at the balancer's last look", "%", null=True),
        Column("load", "count", "at the balancer's last look", null=True),
        Column("flows", "count", "flows in the table"),
        Column("hits", "count", "hits of the flow cache", "1/s", null=True),
        Column("misses", "count", "misses of the flow cache", "1/s", null=True),
        Column("reset", "bool", "a counter fell: no rates"),
    ),
    "top.flows": _FLOWS,
}
for _show, _list in (
    ("uplink.show", "uplink.list"),
    ("flow.dump", "flow.list"),
    ("lb.show", "lb.list"),
    ("fpo.show", "fpo.list"),
    ("core.show", "core.list"),
    ("device.show", "device.list"),
    ("host.show", "host.list"),
    ("mirror.show", "mirror.list"),
    ("netq.show", "netq.list"),
):
    COLUMNS[_show] = COLUMNS[_list]
for _object in ("switch", "port", "uplink", "lb", "device", "host", "fpo"):
    COLUMNS[f"{_object}.get"] = _SETTINGS
for _change in (
    "switch.set port.set port.reset port.migrate port.unpin uplink.set mac.add mac.del mac.clear flow.clear "
    "flow.enable flow.disable lb.set fpo.enable fpo.disable device.set host.set host.reset"
).split():
    COLUMNS[_change] = _CHANGES
