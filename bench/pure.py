"""Pure Python, as well as it can be done: the bytes come through ctypes into areas that are used again, and are taken
apart by struct, whole tables at a time where they have rows of one size."""

from ctypes import CDLL, POINTER, byref, c_char_p, c_uint32, c_void_p
from itertools import islice
from struct import Struct

import text

LIB = CDLL("libjorPublic.so")  # its look-up finds the operations of libryn.so as well
U32 = Struct("<I")


def area(size):
    data = bytearray(size)
    return data, memoryview(data), (c_uint32 * 0).from_buffer(data), c_uint32(size)


def operation(name):
    function = LIB[name]
    function.restype = c_uint32
    return function


dump_macs = operation("Ryn_Dump_Switch_MAC_Table")
MACS, MACS_VIEW, MACS_AREA, MACS_LENGTH = area(1310736)
MAC_HEAD, MAC_ENTRY = Struct("<I4xI"), Struct("<6sHI4xI")


def ListSwitchMACTable(switch):
    if dump_macs(switch, MACS_AREA, byref(MACS_LENGTH)):
        return None
    count, limit = MAC_HEAD.unpack_from(MACS)
    return {
        "MacLimit": limit,
        "MacTableList": [
            {"macAddr": mac.hex(":"), "vlanID": vlan, "rynPortID": port, "macGenDiff": diff}
            for mac, vlan, port, diff in MAC_ENTRY.iter_unpack(MACS_VIEW[16 : 16 + 20 * count])
        ],
    }


get_ports = operation("Ryn_Get_Port_List")
PORTS, PORTS_VIEW, PORTS_AREA, PORTS_LENGTH = area(11532)
PORT = Struct("<IIBB6sHI4x32s32s")


def ListPorts(switch):
    if get_ports(switch, PORTS_AREA, byref(PORTS_LENGTH)):
        return None
    (count,) = U32.unpack_from(PORTS, 4)
    types = text.CLIENT_TYPES
    return [
        {
            "portID": port,
            "rynPortID": ryn_port,
            "numTxQ": tx,
            "numRxQ": rx,
            "hwAddr": mac.hex(":"),
            "numMACs": macs,
            "clientType": types[client if client < 5 else 0],
            "txQLM": [*tx_queues[:tx]],
            "rxQLM": [*rx_queues[:rx]],
        }
        for port, ryn_port, tx, rx, mac, macs, client, tx_queues, rx_queues in PORT.iter_unpack(
            PORTS_VIEW[12 : 12 + 90 * count]
        )
    ]


get_switches = operation("Ryn_Get_Switch_List")
SWITCHES, SWITCHES_VIEW, SWITCHES_AREA, SWITCHES_LENGTH = area(2568)
SWITCH = Struct("<128sIIIIIIq")


def ListSwitches():
    if get_switches(SWITCHES_AREA, byref(SWITCHES_LENGTH)):
        return None
    (count,) = U32.unpack_from(SWITCHES)
    return [
        {
            "name": name.partition(b"\0")[0].decode(),
            "swID": switch,
            "maxPorts": max_ports,
            "numActivePorts": active,
            "numPorts": ports,
            "mtu": mtu,
            "numLcores": lcores,
            "lcores": bitmap,
        }
        for name, switch, max_ports, active, ports, mtu, lcores, bitmap in SWITCH.iter_unpack(
            SWITCHES_VIEW[8 : 8 + 160 * count]
        )
    ]


get_stats, get_slow_stats = operation("Ryn_Get_Port_Stats"), operation("Ryn_Get_Port_Stats_Slowpath")
STATS, STATS_VIEW, STATS_AREA, STATS_LENGTH = area(128)
COUNTERS = Struct("<16q")


def GetPortStats(switch, port):
    if get_stats(switch, port, STATS_AREA, byref(STATS_LENGTH)):
        return None
    (
        tx_bytes,
        tx,
        tx_mcast_bytes,
        tx_mcast,
        tx_bcast_bytes,
        tx_bcast,
        tx_drops,
        tx_errors,
        rx_bytes,
        rx,
        rx_mcast_bytes,
        rx_mcast,
        rx_bcast_bytes,
        rx_bcast,
        rx_drops,
        rx_errors,
    ) = COUNTERS.unpack(STATS)
    if get_slow_stats(switch, port, STATS_AREA, byref(STATS_LENGTH)):
        return None
    slow = COUNTERS.unpack(STATS)
    return {
        "txPkts": tx,
        "txBytes": tx_bytes,
        "txMcastPkts": tx_mcast,
        "txMcastBytes": tx_mcast_bytes,
        "txBcastPkts": tx_bcast,
        "txBcastBytes": tx_bcast_bytes,
        "txDrops": tx_drops,
        "txErrors": tx_errors,
        "rxPkts": rx,
        "rxBytes": rx_bytes,
        "rxMcastPkts": rx_mcast,
        "rxMcastBytes": rx_mcast_bytes,
        "rxBcastPkts": rx_bcast,
        "rxBcastBytes": rx_bcast_bytes,
        "rxDrops": rx_drops,
        "rxErrors": rx_errors,
        "spTxPkts": slow[1],
        "spTxBytes": slow[0],
        "spTxMcastPkts": slow[3],
        "spTxMcastBytes": slow[2],
        "spTxBcastPkts": slow[5],
        "spTxBcastBytes": slow[4],
        "spTxDrops": slow[6],
        "spTxErrors": slow[7],
        "spRxPkts": slow[9],
        "spRxBytes": slow[8],
        "spRxMcastPkts": slow[11],
        "spRxMcastBytes": slow[10],
        "spRxBcastPkts": slow[13],
        "spRxBcastBytes": slow[12],
        "spRxDrops": slow[14],
        "spRxErrors": slow[15],
    }


get_conf = operation("Ryn_Get_Port_Conf")
CONF, CONF_VIEW, CONF_AREA, CONF_LENGTH = area(1272)
CONF_HEAD, RANGE = Struct("<I12xIIq6sHB3xII192sI"), Struct("<HH")


def GetPortConf(switch, port):
    if get_conf(switch, port, CONF_AREA, byref(CONF_LENGTH)):
        return None
    (port_id, mcasts, flags, ladrf, mac, vlan, forged, vni, ranges, addresses, sample_rate) = CONF_HEAD.unpack_from(
        CONF
    )
    result = {
        "portID": port_id,
        "flags": text.flags_text(flags),
        "ladrf": ladrf,
        "hwAddr": mac.hex(":"),
        "untaggedVlanID": vlan,
        "forgedMACAllowed": forged,
        "numMcastAddrs": mcasts,
        "vni": vni,
        "sampleRate": sample_rate,
    }
    if mcasts:
        result["mcastAddrList"] = [addresses[at : at + 6].hex(":") for at in range(0, 6 * min(mcasts, 32), 6)]
    result["numTaggedVlanRanges"] = ranges
    if ranges:
        result["vlanRanges"] = [
            "%d-%d" % each for each in RANGE.iter_unpack(CONF_VIEW[248 : 248 + 4 * min(ranges, 256)])
        ]
    return result


dump_flows = operation("Ryn_Dump_Flow_Table")
FLOWS, FLOWS_VIEW, FLOWS_AREA, FLOWS_LENGTH = area(10260)
FLOW_HEAD, FLOW_KEY = Struct("<III"), Struct("<6s6sHHHHHBB16s16s")
FLOW_ACTIONS = Struct("<8xQ8xQ8xQ8xI1xBHB3xIBxHI34xIH")


def DumpFlowTable(switch, lcore, start, flag):
    if dump_flows(switch, lcore, start, FLOWS_AREA, byref(FLOWS_LENGTH), flag != 0):
        return None
    start, count, valid = FLOW_HEAD.unpack_from(FLOWS, 8)
    flows, position = [], 20
    for _ in range(count):
        if position + 304 > valid:
            return None
        record = position + 64
        (handle, packets, size, bitmap, flags, length, dp, inval, pi, vi, vni, child, vlan) = FLOW_ACTIONS.unpack_from(
            FLOWS, record
        )
        flows.append(
            {
                "key": text.key_line(*FLOW_KEY.unpack_from(FLOWS, position)),
                "actions": text.actions_line(
                    bitmap, inval, handle, dp, length, (child, vi, pi, vni, vlan), FLOWS, record
                ),
                "stats": text.stats_text(flags, packets, size),
            }
        )
        position = record + length
    return {"startIndex": start, "list": flows}


get_flow_stats = operation("Ryn_Get_Flow_Stats")
FLOW_STATS, FLOW_STATS_VIEW, FLOW_STATS_AREA, FLOW_STATS_LENGTH = area(1544)
FLOW_STATS_RECORD = Struct("<II" + 5 * "I4x")
LCORES = c_uint32 * 64


def GetFlowStats(switch, lcores, option):
    if get_flow_stats(switch, LCORES(*lcores), len(lcores), option, FLOW_STATS_AREA, byref(FLOW_STATS_LENGTH)):
        return None
    (count,) = U32.unpack_from(FLOW_STATS)
    return [
        {
            "lcoreID": lcore,
            "numFlows": flows,
            "hits": hits,
            "miss": miss,
            "fpoHits": fpo,
            "localHits": local,
            "keyInsertFailCount": failed,
        }
        for lcore, flows, hits, miss, fpo, local, failed in FLOW_STATS_RECORD.iter_unpack(
            FLOW_STATS_VIEW[8 : 8 + 48 * count]
        )
    ]


get_queue_stats = operation("Ryn_Get_Uplink_Queue_Stats")
QUEUE_STATS, _, QUEUE_STATS_AREA, QUEUE_STATS_LENGTH = area(192)
QUEUE_COUNTERS = Struct("<24q")


def GetUplinkQueueStats(switch, port, kind, queue):
    if get_queue_stats(switch, port, queue, kind != 0, QUEUE_STATS_AREA, byref(QUEUE_STATS_LENGTH)):
        return None
    return [*zip(text.UPLINK_COUNTERS, QUEUE_COUNTERS.unpack(QUEUE_STATS))]


get_mirror = operation("Ryn_Get_Mirror_Conf")
MIRROR, _, MIRROR_AREA, MIRROR_LENGTH = area(2048)
SESSION = Struct("<4x9H2x16s16s16s")
VLANS = [Struct(f"<{n}H") for n in range(33)]


def port_list(count, bitmap):
    return text.ports_of(int.from_bytes(bitmap, "little"))[:count]


def GetMirrorConf(switch):
    if get_mirror(switch, MIRROR_AREA, byref(MIRROR_LENGTH)):
        return None
    sessions, position = [], 8
    for _ in range(int.from_bytes(MIRROR[4:6], "little")):
        (index, encap, snap, rate, flags, ins, outs, dsts, vlans, in_ports, out_ports, dst_ports) = SESSION.unpack_from(
            MIRROR, position
        )
        sessions.append(
            {
                "noInput": flags & 1,
                "noOutput": flags >> 1 & 1,
                "vlanEncap": flags >> 2 & 1,
                "OrigVlan": flags >> 3 & 1,
                "index": index,
                "encapVlanID": encap,
                "samplingRate": rate,
                "snapLen": snap,
                "srcInPorts": port_list(ins, in_ports),
                "srcOutPorts": port_list(outs, out_ports),
                "dstPorts": port_list(dsts, dst_ports),
                "vlans": [*VLANS[vlans].unpack_from(MIRROR, position + 72)],
            }
        )
        position += 72 + (2 * vlans + 7) // 8 * 8
    return sessions


get_netq = operation("Ryn_Get_Port_NetQ_Info")
NETQ, NETQ_VIEW, NETQ_AREA, NETQ_LENGTH = area(524288)
NETQ_HEAD, FILTER, GENEVE, QUEUE = Struct("<II4xHH"), Struct("<H2xHH"), Struct("<6s6sI"), Struct("<IIq")


def GetPortNetQInfo(switch, port):
    if get_netq(switch, port, NETQ_AREA, byref(NETQ_LENGTH)):
        return None
    switch, port, is_uplink, count = NETQ_HEAD.unpack_from(NETQ)
    filters, position = [], 16
    for _ in range(count):
        kind, length, queues = FILTER.unpack_from(NETQ, position)
        body = position + 8
        if kind == 0:
            rxf = "macOnly:" + NETQ_VIEW[body : body + 6].hex(":")
        elif kind == 1:
            outer, inner, vni = GENEVE.unpack_from(NETQ, body)
            rxf = f"geneve:outer:{outer.hex(':')}:inner:{inner.hex(':')}:vni:{vni}"
        else:
            rxf = "UnknownFilter"
        position = body + length + 16 * queues
        filters.append(
            {
                "rxf": rxf,
                "qInfo": [
                    {"rynPortID": owner, "qid": queue, "fid": fid}
                    for owner, queue, fid in QUEUE.iter_unpack(NETQ_VIEW[body + length : position])
                ],
            }
        )
    return {"isUplink": is_uplink, "swID": switch, "rynPortID": port, "filters": filters}


dump_snapshot = operation("Ryn_DumpLBSnapshot")
SNAPSHOT, SNAPSHOT_VIEW, SNAPSHOT_AREA, SNAPSHOT_LENGTH = area(4096)
GROUP, VERTEX, EDGE = Struct("<ix16s16s"), Struct("<iIIII"), Struct("<iii")


def DumpLBSnapshot(switch):
    if dump_snapshot(byref(c_uint32(switch)), SNAPSHOT_AREA, byref(SNAPSHOT_LENGTH)):
        return None
    groups, vertices = Struct("<II").unpack_from(SNAPSHOT)
    at = 8 + 37 * groups
    group_lines = [
        text.group_line(i, load, int.from_bytes(tx, "little"), int.from_bytes(rx, "little"))
        for i, (load, tx, rx) in enumerate(GROUP.iter_unpack(SNAPSHOT_VIEW[8:at]))
    ]
    vertex_lines = []
    for _ in range(vertices):
        number, wid, flags, outs, ins = VERTEX.unpack_from(SNAPSHOT, at)
        edges = [*EDGE.iter_unpack(SNAPSHOT_VIEW[at + 20 : at + 20 + 12 * (outs + ins)])]
        vertex_lines.append(text.vertex_lines(number, wid, flags, edges[:outs], edges[outs:]))
        at += 20 + 12 * (outs + ins)
    return text.snapshot(group_lines, vertex_lines)


dump_balancer = operation("Ryn_Dump_LB_PortStats")
BALANCER, BALANCER_VIEW, BALANCER_AREA, BALANCER_LENGTH = area(9224)
BALANCER_PORT, BALANCER_CORE = Struct("<IIIIQQQQ"), Struct("<QQQQQ8x")


def DumpLBPortStats(switch, first, last):
    if dump_balancer(switch, BALANCER_AREA, byref(BALANCER_LENGTH)):
        return None
    cores = [*BALANCER_CORE.iter_unpack(BALANCER_VIEW[6152:])]
    shares = [text.share(*core) for core in cores]
    ports = [*islice(BALANCER_PORT.iter_unpack(BALANCER_VIEW[8:6152]), first, last + 1)]
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


set_mac_learn = operation("Ryn_Set_Uplink_MAC_Learn")
set_mac_learn.argtypes = [c_uint32, c_uint32]


def SetUplinkMACLearn(switch, enable):
    set_mac_learn(switch, enable != 0)


find_switch, class_name = LIB["DVSState_SwitchFindByAlias"], LIB["DVS_ClassName"]
find_switch.argtypes, find_switch.restype = [c_char_p], c_void_p
class_name.argtypes, class_name.restype = [c_void_p], c_char_p
switch_id = LIB["DVS_SwitchId"]
switch_id.argtypes, switch_id.restype = [c_void_p], c_char_p
get_property, free_property = operation("DVSQOB_HostPropGet"), LIB["DVSQOB_DataFree"]
get_property.argtypes = [c_char_p, c_char_p, POINTER(POINTER(c_uint32)), POINTER(c_uint32)]
BURST = POINTER(c_uint32)
free_property.argtypes, free_property.restype = [BURST], None


def GetSwitchBurstSize(alias):
    dvs = find_switch(alias.encode())
    if not dvs or class_name(dvs) != b"vswitch":
        return None
    value, length = BURST(), c_uint32()
    if get_property(switch_id(dvs), b"com.talvor.kiv.ryn.burstsize", byref(value), byref(length)):
        return None
    version, size = value[0], value[1]
    free_property(value)
    return size if version == 0 and length.value == 8 else None
