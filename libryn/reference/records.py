"""The records that the methods return, key by key in their order."""

from __future__ import annotations

from typing import Tuple

from reference.model import Field, Record

CLIENT_TYPES = ("VNIC", "UPLINK", "GENERIC", "QOBNIC", "UNKNOWN")
LEVELS = ("Not Supported", "Model 1 Level 1", "Model 1 Level 2", "Model 2")
TX_TYPES = ("None", "Single", "LAG", "SrcMAC", "All", "NoTeaming")
METRICS = ("none", "cpu", "count")


def literal(values: Tuple[str, ...]) -> str:
    return "Literal[" + ", ".join(f'"{value}"' for value in values) + "]"


PORT_ID = Field("rynPortID", "u32", "the port's number in its switch, 0 to 127")
MAC = "a MAC address: `02:00:00:0a:0b:fc`"

SWITCH = Record(
    "Switch",
    "a switch",
    (
        Field("name", "text", "its portset name"),
        Field("swID", "u32", "its number, 0 to 15, which most other methods take"),
        Field("maxPorts", "u32", "how many ports it can have"),
        Field("numActivePorts", "u32", "how many of its ports are active"),
        Field("numPorts", "u32", "how many ports it has"),
        Field("mtu", "u32", "the largest frame, in bytes"),
        Field("numLcores", "u32", "how many cores serve it"),
        Field("lcores", "s64", "its cores, as the datapath reports them"),
    ),
)
PORT = Record(
    "Port",
    "a port of a switch",
    (
        Field("portID", "u32", "the number of the distributed port"),
        PORT_ID,
        Field("numTxQ", "u8", "transmit queues"),
        Field("numRxQ", "u8", "receive queues"),
        Field("hwAddr", "text", MAC),
        Field("numMACs", "u16", "MAC addresses on the port"),
        Field("clientType", "text", "what is connected", literal(CLIENT_TYPES)),
        Field("txQLM", "list of u8", "a value for each transmit queue", "list[int]"),
        Field("rxQLM", "list of u8", "a value for each receive queue", "list[int]"),
    ),
)


def _counters(prefix: str, path: str) -> Tuple[Field, ...]:
    def key(direction: str, what: str) -> str:
        return f"{prefix}{direction.capitalize() if prefix else direction}{what}"

    kinds = (
        ("Pkts", "packets"),
        ("Bytes", "bytes"),
        ("McastPkts", "multicast packets"),
        ("McastBytes", "multicast bytes"),
        ("BcastPkts", "broadcast packets"),
        ("BcastBytes", "broadcast bytes"),
        ("Drops", "packets dropped"),
        ("Errors", "packets with errors"),
    )
    return tuple(
        Field(key(direction, suffix), "s64", f"{words} {done}, {path}")
        for direction, done in (("tx", "on transmission"), ("rx", "on reception"))
        for suffix, words in kinds
    )


PORT_STATS = Record(
    "PortStats",
    "a port's counters",
    (*_counters("", "fast path"), *_counters("sp", "slow path")),
)
PORT_CONF = Record(
    "PortConf",
    "a port's configuration",
    (
        Field("portID", "u32", "the port, as the datapath reports it"),
        Field("flags", "text", "receive filter: words, each followed by a blank: `UNICAST PROMISC `"),
        Field("ladrf", "s64", "multicast hash filter"),
        Field("hwAddr", "text", MAC),
        Field("untaggedVlanID", "u16", "VLAN of untagged frames"),
        Field("forgedMACAllowed", "u8", "1: frames with foreign source addresses may be sent"),
        Field("numMcastAddrs", "u32", "multicast addresses"),
        Field("vni", "u32", "overlay network"),
        Field("sampleRate", "u32", "sampling rate"),
        Field(
            "mcastAddrList",
            "list of text",
            "the multicast addresses; not there when there are none",
            "list[str]",
            optional=True,
        ),
        Field("numTaggedVlanRanges", "u32", "ranges of tagged VLANs"),
        Field(
            "vlanRanges",
            "list of text",
            "the ranges, `100-200`; not there when there are none",
            "list[str]",
            optional=True,
        ),
    ),
)
MAC_ENTRY = Record(
    "MacEntry",
    "an entry of a MAC table",
    (
        Field("macAddr", "text", MAC),
        Field("vlanID", "u16", "its VLAN"),
        Field("rynPortID", "u32", "the port on which it was learned"),
        Field("macGenDiff", "u32", "its age in generations"),
    ),
)
_MAC_LIMIT = Field("MacLimit", "u32", "how many entries the table may hold")
_MAC_LIST = Field("MacTableList", "list of dict", "the entries", "list[_MacEntry]")
PORT_MAC_TABLE = Record(
    "PortMacTable",
    "the MAC table of a port",
    (_MAC_LIMIT, Field("LimitExceeded", "u32", "whether the limit was exceeded"), _MAC_LIST),
)
SWITCH_MAC_TABLE = Record("SwitchMacTable", "the MAC table of a switch", (_MAC_LIMIT, _MAC_LIST))

LCORE_ID = Field("lcoreID", "u32", "the core's number")
FLOW_STATS = Record(
    "FlowStats",
    "a core's flow cache",
    (
        LCORE_ID,
        Field("numFlows", "u32", "flows in the cache"),
        Field("hits", "low 32 of u64", "packets whose flow was in it"),
        Field("miss", "low 32 of u64", "packets whose flow was not"),
        Field("fpoHits", "low 32 of u64", "hits served by offload"),
        Field("localHits", "low 32 of u64", "local hits"),
        Field("keyInsertFailCount", "low 32 of u64", "flows that could not be put in"),
    ),
)
FLOW = Record(
    "Flow",
    "a flow, as three lines of text",
    (
        Field("key", "text", "MAC addresses, two numbers, IP addresses, protocol, ports, four numbers"),
        Field("actions", "text", "what is done with its packets: words, each followed by `; `"),
        Field("stats", "text", "packets and bytes, or `Not Applicable`"),
    ),
)
FLOW_PAGE = Record(
    "FlowPage",
    "a page of a core's flow table",
    (
        Field("startIndex", "u32", "the datapath's index; on the simulated host where the next page begins"),
        Field("list", "list of dict", "the flows", "list[_Flow]"),
    ),
)
FPO_STATS = Record(
    "FPOStats",
    "a core's offloaded flows",
    (
        LCORE_ID,
        Field("hits", "low 32 of u64", "hits"),
        Field("markMismatched", "low 32 of u64", "marks that did not match"),
        Field("pnicMismatched", "low 32 of u64", "packets from another NIC than the flow's"),
        Field("delayMarkMatching", "low 32 of u64", "marks matched late"),
        Field("ephemeralFlows", "low 32 of u64", "ephemeral flows"),
        Field("transientFlows", "low 32 of u64", "transient flows"),
    ),
)
FPO_UPLINK_STATUS = Record(
    "FPOUplinkStatus",
    "what an uplink's NIC can offload",
    (
        Field("level", "text", "offload model", literal(LEVELS)),
        Field("numGroupSupported", "u32", "groups"),
        Field("numPrioritySupported", "u32", "priorities"),
        Field("maxMarkActionBits", "u32", "bits of a mark"),
        Field("maxFlowsSupported", "u32", "flows"),
        Field("maxCountersSupported", "u32", "counters"),
        Field("maxFlowKeyLengthInBits", "u32", "bits of a flow's key"),
        Field("maxDecTTLActions", "u32", "actions that decrement the TTL"),
        Field("actionsSupported", "s64", "a set of bits, one for each action"),
    ),
)
TX_UPLINK = Record(
    "TxUplink",
    "how a port chooses the uplink that it transmits by",
    (
        Field("txType", "text", "teaming type", literal((*TX_TYPES, "Unknown"))),
        Field("txUplinks", "list of u16", "port numbers of the uplinks", "list[int]"),
    ),
)
# What SetPortTxUplink takes: not every type that is read back may be set.
TX_POLICY = Record(
    "TxPolicy",
    "the policy that `SetPortTxUplink` takes",
    (
        Field("txType", "text", "teaming type, exactly as written here", literal(TX_TYPES)),
        Field("txUplinks", "list of u32", "port numbers of the uplinks, at most 8", "list[int]"),
    ),
)
_PORTS = "Optional[list[Optional[int]]]"
MIRROR_SESSION = Record(
    "MirrorSession",
    "a mirror session",
    (
        Field("noInput", "flag", "1: destination ports take nothing in"),
        Field("noOutput", "flag", "1: nothing is sent to the destination ports"),
        Field("vlanEncap", "flag", "1: mirrored frames carry the encapsulation VLAN"),
        Field("OrigVlan", "flag", "1: the original VLAN is kept"),
        Field("index", "u16", "the session's number"),
        Field("encapVlanID", "u16", "VLAN of mirrored frames"),
        Field("samplingRate", "u16", "sampling rate"),
        Field("snapLen", "u16", "bytes kept of each frame"),
        Field("srcInPorts", "list of int", "ports whose incoming frames are mirrored, ascending", _PORTS),
        Field("srcOutPorts", "list of int", "ports whose outgoing frames are mirrored, ascending", _PORTS),
        Field("dstPorts", "list of int", "ports to which frames are mirrored, ascending", _PORTS),
        Field("vlans", "list of u16", "VLANs that are mirrored", "Optional[list[int]]"),
    ),
)
UPLINK_COUNTERS = Record(
    "UplinkCounters",
    "an uplink's counters, as pairs of (name, value)",
    tuple(
        Field(key, "s64", meaning)
        for key, meaning in (
            ("rxPkts", "packets received"),
            ("txPkts", "packets sent"),
            ("rxBytes", "bytes received"),
            ("txBytes", "bytes sent"),
            ("rxErrors", "reception errors"),
            ("txErrors", "transmission errors"),
            ("rxDrops", "received packets dropped"),
            ("txDrops", "packets dropped instead of sent"),
            ("rxMulticastPkts", "multicast packets received"),
            ("rxBroadcastPkts", "broadcast packets received"),
            ("txMulticastPkts", "multicast packets sent"),
            ("txBroadcastPkts", "broadcast packets sent"),
            ("collisions", "collisions"),
            ("rxLengthErrors", "frames of a wrong length"),
            ("rxOverflowErrors", "receive ring overflows"),
            ("rxCRCErrors", "frames with a wrong checksum"),
            ("rxFrameAlignErrors", "misaligned frames"),
            ("rxFifoErrors", "receive FIFO errors"),
            ("rxMissErrors", "frames missed"),
            ("txAbortedErrors", "transmissions aborted"),
            ("txCarrierErrors", "carrier losses"),
            ("txFifoErrors", "transmit FIFO errors"),
            ("txHeartbeatErrors", "heartbeat errors"),
            ("txWindowErrors", "window errors"),
        )
    ),
    shape="pairs",
)
UPLINK_STATS = Record(
    "UplinkStats",
    "an uplink's counters and its driver's",
    (
        Field("uplinkStats", "list of pairs", "the uplink's counters", "Optional[list[_UplinkCounter]]"),
        Field("privStats", "text", "statistics of the NIC's driver, as it words them; empty where it has none"),
    ),
)
NETQ_QUEUE = Record(
    "NetQQueue",
    "a hardware queue",
    (
        Field("rynPortID", "u32", "the port that owns it"),
        Field("qid", "u32", "its number"),
        Field("fid", "s64", "the flow that is bound to it"),
    ),
)
NETQ_FILTER = Record(
    "NetQFilter",
    "a receive filter in the NIC",
    (
        Field("rxf", "text", "`macOnly:MAC`, `geneve:outer:MAC:inner:MAC:vni:NUMBER` or `UnknownFilter`"),
        Field("qInfo", "list of dict", "the queues that serve it", "list[_NetQQueue]"),
    ),
)
PORT_NETQ_INFO = Record(
    "PortNetQInfo",
    "a port's hardware queues",
    (
        Field("isUplink", "u16", "not 0: the port is an uplink"),
        Field("swID", "u32", "the switch's number"),
        PORT_ID,
        Field("filters", "list of dict", "the receive filters", "list[_NetQFilter]"),
    ),
)
RING_SIZE = Record(
    "RingSize",
    "the ring sizes of an uplink",
    (Field("tx", "u32", "transmit ring, in descriptors"), Field("rx", "u32", "receive ring, in descriptors")),
    shape="tuple",
)
DEVICE_AFFINITY = Record(
    "DeviceAffinity",
    "a NIC and its affinity",
    (Field("devname", "text", "the NIC's name: `lunic0`"), Field("affinity", "u32", "its affinity")),
)
WEIGHTS = (
    "Cross-NUMA Communication Weight",
    "Cross-NUMA Migration Weight",
    "Cross-Lcore Communication Weight",
    "Cross-Lcore Migration Weight",
    "VM Affinity Weight",
    "Device Affinity Weight",
    "Stability Decay Rate",
    "Port Count Weight",
)
LB_WEIGHT = Record(
    "LBWeight",
    "a weight of the load balancer",
    (Field("weightName", "text", "its name", literal(WEIGHTS)), Field("weight", "u32", "its value")),
)
LB_PARAMS = Record(
    "LBParams",
    "a switch's options of the load balancer, as pairs of (name, value)",
    (
        Field("LCore usage threshold high", "u32", "usage from which a core is busy"),
        Field("LCore usage threshold low", "u32", "usage up to which a core is idle"),
        Field("LCore usage diff to pause balancing", "u32", "difference below which nothing is moved"),
        Field("Traffic variation sensitivity", "u32", "sensitivity to changes of the traffic"),
    ),
    shape="pairs",
)
LB_PORT_LOAD = Record(
    "LBPortLoad",
    "a port's share of its two cores",
    (
        Field("usage0", "u64", "share of core A that counter 0 took, in percent, doubled as the balancer does"),
        Field("usage1", "u64", "the same of core B and counter 1"),
        Field("usage2", "u64", "share of core A that counter 2 took, in percent"),
        Field("usage3", "u64", "the same of core B and counter 3"),
        Field("totalA", "u64", "work on core A, in units of 100,000, rounded up"),
        Field("totalB", "u64", "work on core B, in units of 100,000, rounded up"),
    ),
    shape="tuple",
)
LB_CORE_LOAD = Record(
    "LBCoreLoad",
    "a core's load",
    (
        Field("usage", "u64", "busy share of the last period, in percent"),
        Field("load", "u64", "work in units of 100,000, rounded up"),
    ),
    shape="tuple",
)
LB_PORT_STATS = Record(
    "LBPortStats",
    "what the load balancer last measured",
    (
        Field(
            "word0",
            "list of u32",
            "first word of each port; by position: item 0 is the first port asked for",
            "tuple[int, ...]",
        ),
        Field("word1", "list of u32", "second word of each port, by position", "tuple[int, ...]"),
        Field("coreA", "list of u32", "number of each port's core A, by position", "tuple[int, ...]"),
        Field("coreB", "list of u32", "number of each port's core B, by position", "tuple[int, ...]"),
        Field("loads", "list of tuple", "each port's load, by position", "tuple[_LBPortLoad, ...]"),
        Field(
            "cores",
            "list of tuple",
            "each core's load; 64 items, the index is the core's number",
            "tuple[_LBCoreLoad, ...]",
        ),
    ),
    shape="tuple",
)

RECORDS = (
    SWITCH, PORT, PORT_STATS, PORT_CONF, MAC_ENTRY, PORT_MAC_TABLE, SWITCH_MAC_TABLE, FLOW_STATS, FLOW, FLOW_PAGE,
    FPO_STATS, FPO_UPLINK_STATUS, TX_UPLINK, TX_POLICY, MIRROR_SESSION, UPLINK_COUNTERS, UPLINK_STATS, NETQ_QUEUE,
    NETQ_FILTER, PORT_NETQ_INFO, RING_SIZE, DEVICE_AFFINITY, LB_WEIGHT, LB_PARAMS, LB_PORT_LOAD, LB_CORE_LOAD,
    LB_PORT_STATS,
)  # fmt: skip
