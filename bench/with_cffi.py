"""cffi, with its compiled interface: areas made once, fields read through its structures."""

import text
from _cffi import ffi, lib

new, buffer = ffi.new, ffi.buffer


def length(size):
    return new("uint32_t*", size)


MACS, MACS_LENGTH = new("MacTable*"), length(1310736)


def ListSwitchMACTable(switch):
    if lib.Ryn_Dump_Switch_MAC_Table(switch, MACS, MACS_LENGTH):
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
            for entry in MACS.entries[0 : MACS.count]
        ],
    }


PORTS, PORTS_LENGTH = new("PortList*"), length(11532)


def ListPorts(switch):
    if lib.Ryn_Get_Port_List(switch, PORTS, PORTS_LENGTH):
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
            "txQLM": [*port.txQLM[0 : port.numTxQ]],
            "rxQLM": [*port.rxQLM[0 : port.numRxQ]],
        }
        for port in PORTS.ports[0 : PORTS.count]
    ]


SWITCHES, SWITCHES_LENGTH = new("SwitchList*"), length(2568)


def ListSwitches():
    if lib.Ryn_Get_Switch_List(SWITCHES, SWITCHES_LENGTH):
        return None
    return [
        {
            "name": ffi.string(each.name).decode(),
            "swID": each.swID,
            "maxPorts": each.maxPorts,
            "numActivePorts": each.numActivePorts,
            "numPorts": each.numPorts,
            "mtu": each.mtu,
            "numLcores": each.numLcores,
            "lcores": each.lcores,
        }
        for each in SWITCHES.switches[0 : SWITCHES.count]
    ]


STATS, STATS_LENGTH = new("int64_t[16]"), length(128)
NAMES = [
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
PLACES = [*zip(NAMES, [1, 0, 3, 2, 5, 4, 6, 7, 9, 8, 11, 10, 13, 12, 14, 15])]
SLOW_PLACES = [(f"sp{name[0].upper()}{name[1:]}", place) for name, place in PLACES]


def GetPortStats(switch, port):
    if lib.Ryn_Get_Port_Stats(switch, port, STATS, STATS_LENGTH):
        return None
    counters = ffi.unpack(STATS, 16)
    result = {name: counters[place] for name, place in PLACES}
    if lib.Ryn_Get_Port_Stats_Slowpath(switch, port, STATS, STATS_LENGTH):
        return None
    counters = ffi.unpack(STATS, 16)
    for name, place in SLOW_PLACES:
        result[name] = counters[place]
    return result


CONF, CONF_LENGTH = new("PortConf*"), length(1272)


def GetPortConf(switch, port):
    if lib.Ryn_Get_Port_Conf(switch, port, CONF, CONF_LENGTH):
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
        result["mcastAddrList"] = [bytes(each).hex(":") for each in CONF.mcasts[0 : CONF.numMcastAddrs]]
    result["numTaggedVlanRanges"] = CONF.numRanges
    if CONF.numRanges:
        result["vlanRanges"] = ["%d-%d" % (first, last) for first, last in CONF.ranges[0 : CONF.numRanges]]
    return result


FLOWS, FLOWS_LENGTH = new("uint8_t[10260]"), length(10260)
FLOWS_HEAD = ffi.cast("uint32_t*", FLOWS)


def DumpFlowTable(switch, lcore, start, flag):
    if lib.Ryn_Dump_Flow_Table(switch, lcore, start, FLOWS, FLOWS_LENGTH, flag != 0):
        return None
    flows, position = [], 20
    for _ in range(FLOWS_HEAD[3]):
        if position + 304 > FLOWS_HEAD[4]:
            return None
        key, actions = ffi.cast("FlowKey*", FLOWS + position), ffi.cast("Actions*", FLOWS + position + 64)
        record = buffer(FLOWS + position + 64, 240)
        child, vlan = int.from_bytes(record[114:118], "little"), int.from_bytes(record[118:120], "little")
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
                    (child, actions.vi, actions.pi, actions.vni, vlan),
                    record,
                    0,
                ),
                "stats": text.stats_text(actions.flags, actions.packets, actions.bytes),
            }
        )
        position += 64 + actions.length
    return {"startIndex": FLOWS_HEAD[2], "list": flows}


FLOW_STATS, FLOW_STATS_LENGTH, LCORES = new("FlowStatsList*"), length(1544), new("uint32_t[64]")


def GetFlowStats(switch, lcores, option):
    LCORES[0 : len(lcores)] = lcores
    if lib.Ryn_Get_Flow_Stats(switch, LCORES, len(lcores), option, FLOW_STATS, FLOW_STATS_LENGTH):
        return None
    low = 0xFFFFFFFF
    result = []
    for record in FLOW_STATS.records[0 : FLOW_STATS.count]:
        hits, miss, fpo, local, failed = ffi.unpack(record.counters, 5)
        result.append(
            {
                "lcoreID": record.lcoreID,
                "numFlows": record.numFlows,
                "hits": hits & low,
                "miss": miss & low,
                "fpoHits": fpo & low,
                "localHits": local & low,
                "keyInsertFailCount": failed & low,
            }
        )
    return result


QUEUE_STATS, QUEUE_STATS_LENGTH = new("int64_t[24]"), length(192)


def GetUplinkQueueStats(switch, port, kind, queue):
    if lib.Ryn_Get_Uplink_Queue_Stats(switch, port, queue, kind != 0, QUEUE_STATS, QUEUE_STATS_LENGTH):
        return None
    return [*zip(text.UPLINK_COUNTERS, ffi.unpack(QUEUE_STATS, 24))]


MIRROR, MIRROR_LENGTH = new("uint8_t[2048]"), length(2048)


def port_list(count, bitmap):
    return text.ports_of(int.from_bytes(bytes(bitmap), "little"))[:count]


def GetMirrorConf(switch):
    if lib.Ryn_Get_Mirror_Conf(switch, MIRROR, MIRROR_LENGTH):
        return None
    sessions, position = [], MIRROR + 8
    for _ in range(ffi.cast("uint16_t*", MIRROR)[2]):
        each = ffi.cast("Session*", position)
        flags, vlans = each.flags, each.vlans
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
                "vlans": ffi.unpack(ffi.cast("uint16_t*", position + 72), vlans),
            }
        )
        position += 72 + (2 * vlans + 7) // 8 * 8
    return sessions


NETQ, NETQ_LENGTH = new("uint8_t[524288]"), length(524288)


def GetPortNetQInfo(switch, port):
    if lib.Ryn_Get_Port_NetQ_Info(switch, port, NETQ, NETQ_LENGTH):
        return None
    head = ffi.cast("NetQ*", NETQ)
    filters, position = [], NETQ + 16
    cast, filter_type, queue_type = ffi.cast, ffi.typeof("Filter*"), ffi.typeof("Queue*")
    for _ in range(head.count):
        each = cast(filter_type, position)
        if each.kind == 0:
            rxf = "macOnly:" + bytes(each.outer).hex(":")
        elif each.kind == 1:
            rxf = f"geneve:outer:{bytes(each.outer).hex(':')}:inner:{bytes(each.inner).hex(':')}:vni:{each.vni}"
        else:
            rxf = "UnknownFilter"
        position += 8 + each.length
        queues = cast(queue_type, position)
        filters.append(
            {
                "rxf": rxf,
                "qInfo": [
                    {"rynPortID": queue.rynPortID, "qid": queue.qid, "fid": queue.fid}
                    for queue in queues[0 : each.queues]
                ],
            }
        )
        position += 16 * each.queues
    return {"isUplink": head.isUplink, "swID": head.swID, "rynPortID": head.rynPortID, "filters": filters}


SNAPSHOT, SNAPSHOT_LENGTH = new("uint8_t[4096]"), length(4096)


def DumpLBSnapshot(switch):
    if lib.Ryn_DumpLBSnapshot(new("uint32_t*", switch), SNAPSHOT, SNAPSHOT_LENGTH):
        return None
    groups, vertices = ffi.cast("uint32_t*", SNAPSHOT)[0:2]
    group_lines = [
        text.group_line(
            i, group.load, int.from_bytes(bytes(group.tx), "little"), int.from_bytes(bytes(group.rx), "little")
        )
        for i, group in enumerate(ffi.cast("Group*", SNAPSHOT + 8)[0:groups])
    ]
    position, vertex_lines = SNAPSHOT + 8 + 37 * groups, []
    for _ in range(vertices):
        vertex = ffi.cast("Vertex*", position)
        outs, ins = vertex.outs, vertex.ins
        edges = [(edge.peer, edge.load, edge.ema) for edge in ffi.cast("Edge*", position + 20)[0 : outs + ins]]
        vertex_lines.append(text.vertex_lines(vertex.number, vertex.wid, vertex.flags, edges[:outs], edges[outs:]))
        position += 20 + 12 * (outs + ins)
    return text.snapshot(group_lines, vertex_lines)


BALANCER, BALANCER_LENGTH = new("Balancer*"), length(9224)


def DumpLBPortStats(switch, first, last):
    if lib.Ryn_Dump_LB_PortStats(switch, BALANCER, BALANCER_LENGTH):
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


def SetUplinkMACLearn(switch, enable):
    lib.Ryn_Set_Uplink_MAC_Learn(switch, enable != 0)


BLOCK, BLOCK_LENGTH = new("void**"), length(0)


def GetSwitchBurstSize(alias):
    dvs = lib.DVSState_SwitchFindByAlias(alias.encode())
    if not dvs or ffi.string(lib.DVS_ClassName(dvs)) != b"vswitch":
        return None
    if lib.DVSQOB_HostPropGet(lib.DVS_SwitchId(dvs), b"com.talvor.kiv.ryn.burstsize", BLOCK, BLOCK_LENGTH):
        return None
    version, size = ffi.cast("uint32_t*", BLOCK[0])[0:2]
    lib.DVSQOB_DataFree(BLOCK[0])
    return size if version == 0 and BLOCK_LENGTH[0] == 8 else None
