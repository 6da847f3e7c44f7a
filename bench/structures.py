"""ctypes, with the records as structures."""

from ctypes import (
    CDLL,
    LittleEndianStructure,
    Structure,
    addressof,
    byref,
    c_char,
    c_int32,
    c_int64,
    c_uint8,
    c_uint16,
    c_uint32,
    c_uint64,
)

import text
from pure import BURST, class_name, find_switch, free_property, get_property, switch_id

LIB = CDLL("libjorPublic.so")  # its look-up finds the operations of libryn.so as well
U8, U16, U32, U64 = c_uint8, c_uint16, c_uint32, c_uint64


def record(name, *fields, pack=8):
    return type(name, (LittleEndianStructure,), {"_pack_": pack, "_fields_": [*fields]})


def u32(*names):
    return [(name, U32) for name in names]


Switch = record(
    "Switch",
    ("name", c_char * 128),
    *u32("swID", "maxPorts", "numActivePorts", "numPorts", "mtu", "numLcores"),
    ("lcores", c_int64),
)
SwitchList = record("SwitchList", *u32("count", "unread"), ("switches", Switch * 16))
Mac = record("Mac", ("mac", U8 * 6), ("vlanID", U16), *u32("rynPortID", "unread", "macGenDiff"))
MacTable = record("MacTable", *u32("count", "unread", "limit", "exceeded"), ("entries", Mac * 65536))
Port = record(
    "Port",
    *u32("portID", "rynPortID"),
    ("numTxQ", U8),
    ("numRxQ", U8),
    ("hwAddr", U8 * 6),
    ("numMACs", U16),
    ("clientType", U32),
    ("unread", U8 * 4),
    ("txQLM", U8 * 32),
    ("rxQLM", U8 * 32),
    pack=1,
)
PortList = record("PortList", *u32("unread0", "count", "unread8"), ("ports", Port * 128), pack=1)
COUNTERS = [
    "txBytes",
    "txPkts",
    "txMcastBytes",
    "txMcastPkts",
    "txBcastBytes",
    "txBcastPkts",
    "txDrops",
    "txErrors",
    "rxBytes",
    "rxPkts",
    "rxMcastBytes",
    "rxMcastPkts",
    "rxBcastBytes",
    "rxBcastPkts",
    "rxDrops",
    "rxErrors",
]
PortStats = record("PortStats", *((name, c_int64) for name in COUNTERS))
PortConf = record(
    "PortConf",
    ("portID", U32),
    ("unread", U32 * 3),
    *u32("numMcastAddrs", "flags"),
    ("ladrf", c_int64),
    ("hwAddr", U8 * 6),
    ("untaggedVlanID", U16),
    ("forgedMACAllowed", U8),
    ("unread41", U8 * 3),
    *u32("vni", "numRanges"),
    ("mcasts", U8 * 6 * 32),
    ("sampleRate", U32),
    ("ranges", U16 * 2 * 256),
)
FlowKey = record(
    "FlowKey",
    ("mac1", U8 * 6),
    ("mac2", U8 * 6),
    ("vlan", U16),
    ("number14", U16),
    ("port1", U16),
    ("port2", U16),
    ("low20", U16),
    ("high20", U8),
    ("protocol", U8),
    ("address1", U8 * 16),
    ("address2", U8 * 16),
    ("unread", U8 * 8),
    pack=1,
)
Actions = record(
    "Actions",
    ("unread0", U64),
    ("handle", U64),
    ("unread16", U64),
    ("packets", U64),
    ("unread32", U64),
    ("bytes", U64),
    ("unread48", U64),
    ("bitmap", U32),
    ("unread60", U8),
    ("flags", U8),
    ("length", U16),
    ("dp", U8),
    ("unread65", U8 * 3),
    ("inval", U32),
    ("pi", U8),
    ("unread73", U8),
    ("vi", U16),
    ("vni", U32),
    ("unread80", U8 * 34),
    ("child", U32),
    ("vlan", U16),
    pack=1,
)
FlowStats = record("FlowStats", *u32("lcoreID", "numFlows"), ("counters", U64 * 5))
FlowStatsList = record("FlowStatsList", *u32("count", "unread"), ("records", FlowStats * 32))
Session = record(
    "Session",
    ("unread0", U32),
    *(
        (name, U16)
        for name in ("index", "encap", "snapLen", "rate", "flags", "ins", "outs", "dsts", "vlans", "unread22")
    ),
    ("inPorts", U8 * 16),
    ("outPorts", U8 * 16),
    ("dstPorts", U8 * 16),
)
NetQ = record("NetQ", *u32("swID", "rynPortID", "unread"), ("isUplink", U16), ("count", U16))
Filter = record(
    "Filter",
    ("kind", U16),
    ("unread", U16),
    ("length", U16),
    ("queues", U16),
    ("outer", U8 * 6),
    ("inner", U8 * 6),
    ("vni", U32),
)
Queue = record("Queue", *u32("rynPortID", "qid"), ("fid", c_int64), pack=1)
Group = record("Group", ("load", c_int32), ("unread", U8), ("tx", U8 * 16), ("rx", U8 * 16), pack=1)
Vertex = record("Vertex", ("number", c_int32), *u32("wid", "flags", "outs", "ins"), pack=1)
Edge = record("Edge", ("peer", c_int32), ("load", c_int32), ("ema", c_int32), pack=1)
BalancerPort = record("BalancerPort", *u32("p0", "p1", "a", "b"), ("counters", U64 * 4))
BalancerCore = record(
    "BalancerCore", *((name, U64) for name in ("busyNow", "busyBefore", "timeNow", "timeBefore", "work", "unread"))
)
Balancer = record("Balancer", ("unread", U64), ("ports", BalancerPort * 128), ("cores", BalancerCore * 64))


MACS, MACS_LENGTH = MacTable(), U32(1310736)
dump_macs = LIB.Ryn_Dump_Switch_MAC_Table


def ListSwitchMACTable(switch):
    if dump_macs(switch, byref(MACS), byref(MACS_LENGTH)):
        return None
    return {
        "MacLimit": MACS.limit,
        "MacTableList": [
            {
                "macAddr": bytes(entry.mac).hex(":"),
                "vlanID": entry.vlanID,
                "rynPortID": entry.rynPortID,
                "macGenDiff": entry.macGenDiff,
            }
            for entry in MACS.entries[: MACS.count]
        ],
    }


PORTS, PORTS_LENGTH = PortList(), U32(11532)
get_ports = LIB.Ryn_Get_Port_List


def ListPorts(switch):
    if get_ports(switch, byref(PORTS), byref(PORTS_LENGTH)):
        return None
    types = text.CLIENT_TYPES
    return [
        {
            "portID": port.portID,
            "rynPortID": port.rynPortID,
            "numTxQ": port.numTxQ,
            "numRxQ": port.numRxQ,
            "hwAddr": bytes(port.hwAddr).hex(":"),
            "numMACs": port.numMACs,
            "clientType": types[port.clientType if port.clientType < 5 else 0],
            "txQLM": port.txQLM[: port.numTxQ],
            "rxQLM": port.rxQLM[: port.numRxQ],
        }
        for port in PORTS.ports[: PORTS.count]
    ]


SWITCHES, SWITCHES_LENGTH = SwitchList(), U32(2568)
get_switches = LIB.Ryn_Get_Switch_List


def ListSwitches():
    if get_switches(byref(SWITCHES), byref(SWITCHES_LENGTH)):
        return None
    return [
        {
            "name": each.name.decode(),
            "swID": each.swID,
            "maxPorts": each.maxPorts,
            "numActivePorts": each.numActivePorts,
            "numPorts": each.numPorts,
            "mtu": each.mtu,
            "numLcores": each.numLcores,
            "lcores": each.lcores,
        }
        for each in SWITCHES.switches[: SWITCHES.count]
    ]


STATS, STATS_LENGTH = PortStats(), U32(128)
get_stats, get_slow_stats = LIB.Ryn_Get_Port_Stats, LIB.Ryn_Get_Port_Stats_Slowpath
ORDER = [
    "txPkts",
    "txBytes",
    "txMcastPkts",
    "txMcastBytes",
    "txBcastPkts",
    "txBcastBytes",
    "txDrops",
    "txErrors",
    "rxPkts",
    "rxBytes",
    "rxMcastPkts",
    "rxMcastBytes",
    "rxBcastPkts",
    "rxBcastBytes",
    "rxDrops",
    "rxErrors",
]
SLOW_ORDER = [(f"sp{name[0].upper()}{name[1:]}", name) for name in ORDER]


def GetPortStats(switch, port):
    if get_stats(switch, port, byref(STATS), byref(STATS_LENGTH)):
        return None
    result = {name: getattr(STATS, name) for name in ORDER}
    if get_slow_stats(switch, port, byref(STATS), byref(STATS_LENGTH)):
        return None
    for slow, name in SLOW_ORDER:
        result[slow] = getattr(STATS, name)
    return result


CONF, CONF_LENGTH = PortConf(), U32(1272)
get_conf = LIB.Ryn_Get_Port_Conf


def GetPortConf(switch, port):
    if get_conf(switch, port, byref(CONF), byref(CONF_LENGTH)):
        return None
    result = {
        "portID": CONF.portID,
        "flags": text.flags_text(CONF.flags),
        "ladrf": CONF.ladrf,
        "hwAddr": bytes(CONF.hwAddr).hex(":"),
        "untaggedVlanID": CONF.untaggedVlanID,
        "forgedMACAllowed": CONF.forgedMACAllowed,
        "numMcastAddrs": CONF.numMcastAddrs,
        "vni": CONF.vni,
        "sampleRate": CONF.sampleRate,
    }
    if CONF.numMcastAddrs:
        result["mcastAddrList"] = [bytes(each).hex(":") for each in CONF.mcasts[: CONF.numMcastAddrs]]
    result["numTaggedVlanRanges"] = CONF.numRanges
    if CONF.numRanges:
        result["vlanRanges"] = ["%d-%d" % (*each,) for each in CONF.ranges[: CONF.numRanges]]
    return result


FLOWS, FLOWS_LENGTH = bytearray(10260), U32(10260)
FLOWS_AREA, FLOWS_HEAD = (U8 * 10260).from_buffer(FLOWS), (U32 * 5).from_buffer(FLOWS)
dump_flows = LIB.Ryn_Dump_Flow_Table


def DumpFlowTable(switch, lcore, start, flag):
    if dump_flows(switch, lcore, start, FLOWS_AREA, byref(FLOWS_LENGTH), flag != 0):
        return None
    _, _, start, count, valid = FLOWS_HEAD
    flows, position = [], 20
    for _ in range(count):
        if position + 304 > valid:
            return None
        key, actions = FlowKey.from_buffer(FLOWS, position), Actions.from_buffer(FLOWS, position + 64)
        flows.append(
            {
                "key": text.key_line(
                    bytes(key.mac1),
                    bytes(key.mac2),
                    key.vlan,
                    key.number14,
                    key.port1,
                    key.port2,
                    key.low20,
                    key.high20,
                    key.protocol,
                    bytes(key.address1),
                    bytes(key.address2),
                ),
                "actions": text.actions_line(
                    actions.bitmap,
                    actions.inval,
                    actions.handle,
                    actions.dp,
                    actions.length,
                    (actions.child, actions.vi, actions.pi, actions.vni, actions.vlan),
                    FLOWS,
                    position + 64,
                ),
                "stats": text.stats_text(actions.flags, actions.packets, actions.bytes),
            }
        )
        position += 64 + actions.length
    return {"startIndex": start, "list": flows}


FLOW_STATS, FLOW_STATS_LENGTH, LCORES = FlowStatsList(), U32(1544), U32 * 64
get_flow_stats = LIB.Ryn_Get_Flow_Stats


def GetFlowStats(switch, lcores, option):
    if get_flow_stats(switch, LCORES(*lcores), len(lcores), option, byref(FLOW_STATS), byref(FLOW_STATS_LENGTH)):
        return None
    low = 0xFFFFFFFF
    result = []
    for each in FLOW_STATS.records[: FLOW_STATS.count]:
        hits, miss, fpo, local, failed = each.counters
        result.append(
            {
                "lcoreID": each.lcoreID,
                "numFlows": each.numFlows,
                "hits": hits & low,
                "miss": miss & low,
                "fpoHits": fpo & low,
                "localHits": local & low,
                "keyInsertFailCount": failed & low,
            }
        )
    return result


QUEUE_STATS, QUEUE_STATS_LENGTH = (c_int64 * 24)(), U32(192)
get_queue_stats = LIB.Ryn_Get_Uplink_Queue_Stats


def GetUplinkQueueStats(switch, port, kind, queue):
    if get_queue_stats(switch, port, queue, kind != 0, QUEUE_STATS, byref(QUEUE_STATS_LENGTH)):
        return None
    return [*zip(text.UPLINK_COUNTERS, QUEUE_STATS)]


MIRROR, MIRROR_LENGTH = bytearray(2048), U32(2048)
MIRROR_AREA = (U16 * 1024).from_buffer(MIRROR)
get_mirror = LIB.Ryn_Get_Mirror_Conf


def port_list(count, bitmap):
    return text.ports_of(int.from_bytes(bytes(bitmap), "little"))[:count]


def GetMirrorConf(switch):
    if get_mirror(switch, MIRROR_AREA, byref(MIRROR_LENGTH)):
        return None
    sessions, position = [], 8
    for _ in range(MIRROR_AREA[2]):
        each = Session.from_buffer(MIRROR, position)
        flags, vlans, first_vlan = each.flags, each.vlans, (position + 72) // 2
        sessions.append(
            {
                "noInput": flags & 1,
                "noOutput": flags >> 1 & 1,
                "vlanEncap": flags >> 2 & 1,
                "OrigVlan": flags >> 3 & 1,
                "index": each.index,
                "encapVlanID": each.encap,
                "samplingRate": each.rate,
                "snapLen": each.snapLen,
                "srcInPorts": port_list(each.ins, each.inPorts),
                "srcOutPorts": port_list(each.outs, each.outPorts),
                "dstPorts": port_list(each.dsts, each.dstPorts),
                "vlans": MIRROR_AREA[first_vlan : first_vlan + vlans],
            }
        )
        position += 72 + (2 * vlans + 7) // 8 * 8
    return sessions


NETQ, NETQ_LENGTH = bytearray(524288), U32(524288)
NETQ_AREA = (U8 * 524288).from_buffer(NETQ)
NETQ_HEAD = NetQ.from_buffer(NETQ)
get_netq = LIB.Ryn_Get_Port_NetQ_Info


def GetPortNetQInfo(switch, port):
    if get_netq(switch, port, NETQ_AREA, byref(NETQ_LENGTH)):
        return None
    filters, position, last = [], 16, len(NETQ) - 24
    for _ in range(NETQ_HEAD.count):
        each = Filter.from_buffer(NETQ, min(position, last))
        if each.kind == 0:
            rxf = "macOnly:" + bytes(each.outer).hex(":")
        elif each.kind == 1:
            rxf = f"geneve:outer:{bytes(each.outer).hex(':')}:inner:{bytes(each.inner).hex(':')}:vni:{each.vni}"
        else:
            rxf = "UnknownFilter"
        position += 8 + each.length
        queues = (Queue * each.queues).from_buffer(NETQ, position)
        filters.append(
            {
                "rxf": rxf,
                "qInfo": [{"rynPortID": queue.rynPortID, "qid": queue.qid, "fid": queue.fid} for queue in queues],
            }
        )
        position += 16 * each.queues
    return {
        "isUplink": NETQ_HEAD.isUplink,
        "swID": NETQ_HEAD.swID,
        "rynPortID": NETQ_HEAD.rynPortID,
        "filters": filters,
    }


SNAPSHOT, SNAPSHOT_LENGTH = bytearray(4096), U32(4096)
SNAPSHOT_AREA = (U32 * 1024).from_buffer(SNAPSHOT)
dump_snapshot = LIB.Ryn_DumpLBSnapshot


def DumpLBSnapshot(switch):
    if dump_snapshot(byref(U32(switch)), SNAPSHOT_AREA, byref(SNAPSHOT_LENGTH)):
        return None
    groups, vertices = SNAPSHOT_AREA[:2]
    group_lines = [
        text.group_line(
            i, group.load, int.from_bytes(bytes(group.tx), "little"), int.from_bytes(bytes(group.rx), "little")
        )
        for i, group in enumerate((Group * groups).from_buffer(SNAPSHOT, 8))
    ]
    position, vertex_lines = 8 + 37 * groups, []
    for _ in range(vertices):
        vertex = Vertex.from_buffer(SNAPSHOT, position)
        outs, ins = vertex.outs, vertex.ins
        edges = [
            (edge.peer, edge.load, edge.ema) for edge in (Edge * (outs + ins)).from_buffer(SNAPSHOT, position + 20)
        ]
        vertex_lines.append(text.vertex_lines(vertex.number, vertex.wid, vertex.flags, edges[:outs], edges[outs:]))
        position += 20 + 12 * (outs + ins)
    return text.snapshot(group_lines, vertex_lines)


BALANCER, BALANCER_LENGTH = Balancer(), U32(9224)
dump_balancer = LIB.Ryn_Dump_LB_PortStats


def DumpLBPortStats(switch, first, last):
    if dump_balancer(switch, byref(BALANCER), byref(BALANCER_LENGTH)):
        return None
    cores = [(core.busyNow, core.busyBefore, core.timeNow, core.timeBefore, core.work) for core in BALANCER.cores]
    shares = [text.share(*core) for core in cores]
    ports = [(port.p0, port.p1, port.a, port.b, *port.counters) for port in BALANCER.ports[first : last + 1]]
    p0, p1, a, b, *_ = zip(*ports)
    return (
        p0,
        p1,
        a,
        b,
        tuple(
            [
                text.figures(c0, c1, c2, c3, shares[core_a], shares[core_b])
                for _, _, core_a, core_b, c0, c1, c2, c3 in ports
            ]
        ),
        tuple([text.core_figures(*core) for core in cores]),
    )


set_mac_learn = LIB.Ryn_Set_Uplink_MAC_Learn


def SetUplinkMACLearn(switch, enable):
    set_mac_learn(switch, enable != 0)


class Burst(Structure):
    _fields_ = [("version", U32), ("packets", U32)]


def GetSwitchBurstSize(alias):
    dvs = find_switch(alias.encode())
    if not dvs or class_name(dvs) != b"vswitch":
        return None
    value, length = BURST(), U32()
    if get_property(switch_id(dvs), b"com.talvor.kiv.ryn.burstsize", byref(value), byref(length)):
        return None
    burst = Burst.from_address(addressof(value.contents))
    version, packets = burst.version, burst.packets
    free_property(value)
    return packets if version == 0 and length.value == 8 else None
