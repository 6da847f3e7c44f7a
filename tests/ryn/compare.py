"""Everything that ryn and the module both read, compared value by value on a simulated host whose clock stands."""

import _libryn

import ryn

MASK = (1 << 64) - 1
COUNTERS = ["Pkts", "Bytes", "McastPkts", "McastBytes", "BcastPkts", "BcastBytes", "Drops", "Errors"]
compared = 0


def same(one, other, where):
    global compared
    compared += 1
    assert one == other, (where, difference(one, other))


def difference(one, other):
    if isinstance(one, (list, tuple)) and isinstance(other, (list, tuple)):
        for i, (a, b) in enumerate(zip(one, other)):
            if a != b:
                return (i, difference(a, b))
        return f"{len(one)} and {len(other)} items"
    return one, other


def unsigned(numbers):
    return tuple(number & MASK for number in numbers)


def narrowed(numbers):
    """The module reports these counters modulo 2**32."""
    return tuple(number & 0xFFFFFFFF for number in numbers)


def bits(number):
    return tuple(n for n in range(64) if number >> n & 1)


def rows(table):
    return [{"macAddr": str(r.mac), "vlanID": r.vlan, "rynPortID": r.port, "macGenDiff": r.generation} for r in table]


def compare_port(port, listed):
    number, index = port.switch.number, port.number
    where = str(port)
    same(
        (port.dvport, index, str(port.mac), port.mac_count, str(port.kind), list(port.tx_cores), list(port.rx_cores)),
        (
            listed["portID"],
            listed["rynPortID"],
            listed["hwAddr"],
            listed["numMACs"],
            listed["clientType"],
            listed["txQLM"],
            listed["rxQLM"],
        ),
        where,
    )
    stats = _libryn.GetPortStats(number, index)
    fast = [stats[f"{d}{c}"] for d in ("tx", "rx") for c in COUNTERS]
    slow = [stats[f"sp{d}{c}"] for d in ("Tx", "Rx") for c in COUNTERS]
    counters = port.counters()
    same((tuple(counters.fast), tuple(counters.slow)), (unsigned(fast), unsigned(slow)), where)
    same(tuple(counters.total), unsigned(a + b for a, b in zip(fast, slow)), where)

    conf = _libryn.GetPortConf(number, index)
    config = port.config()
    same(
        (
            config.dvport,
            config.ladrf,
            str(config.mac),
            config.untagged_vlan,
            config.forged_allowed,
            config.vni,
            config.sample_rate,
            [str(mac) for mac in config.multicast],
            [f"{a}-{b}" for a, b in config.vlan_ranges],
        ),
        (
            conf["portID"],
            conf["ladrf"] & MASK,
            conf["hwAddr"],
            conf["untaggedVlanID"],
            bool(conf["forgedMACAllowed"]),
            conf["vni"],
            conf["sampleRate"],
            conf.get("mcastAddrList", []),
            conf.get("vlanRanges", []),
        ),
        where,
    )
    same(str(ryn.ReceiveFlags(config.flags)).replace("|", " "), conf["flags"].rstrip(), where)

    teaming = _libryn.GetPortTxUplink(number, index)
    same(port.teaming, (teaming["txType"], tuple(teaming["txUplinks"])), where)
    same(port.lro, _libryn.GetPortLRO(number, index), where)
    table = _libryn.ListPortMACTable(number, index)
    macs = port.macs()
    same(
        (rows(macs), macs.limit, macs.limit_exceeded),
        (table["MacTableList"], table["MacLimit"], table["LimitExceeded"]),
        where,
    )
    queues = _libryn.GetPortNetQInfo(number, index)
    netq = port.netq()
    same(
        (netq.switch, netq.port, netq.is_uplink), (queues["swID"], queues["rynPortID"], bool(queues["isUplink"])), where
    )
    same(
        [(f.text, [(q.port, q.queue, q.flow) for q in f.queues]) for f in netq.filters],
        [(f["rxf"], [(q["rynPortID"], q["qid"], q["fid"] & MASK) for q in f["qInfo"]]) for f in queues["filters"]],
        where,
    )


def compare_uplink(uplink):
    number, index, where = uplink.switch.number, uplink.number, str(uplink)
    stats = _libryn.GetUplinkStats(number, index)
    same(tuple(uplink.counters()), unsigned(value for _, value in stats["uplinkStats"]), where)
    same(uplink.driver_text, stats["privStats"], where)
    for kind in (0, 1):
        for queue, counters in enumerate(uplink.queues(kind)):
            values = _libryn.GetUplinkQueueStats(number, index, kind, queue)
            same(tuple(counters), unsigned(value for _, value in values), where)
    offload = _libryn.GetFPOUplinkStatus(number, index)
    same(tuple(uplink.offload)[:-1], tuple(offload.values())[:-1], where)
    same(uplink.offload.actions, offload["actionsSupported"] & MASK, where)
    if uplink.switch.id is not None:
        same(uplink.ring_size, _libryn.GetUplinkRingSize(uplink.switch.id, str(uplink.port.dvport)), where)


def flow_line(flow):
    """The fields of a flow as the module's key line has them."""
    return [
        str(flow.mac_a),
        str(flow.mac_b),
        str(flow.vlan),
        str(flow.number15),
        str(flow.src),
        str(flow.dst),
        str(flow.protocol),
        str(flow.number24),
        str(flow.sport),
        str(flow.dport),
    ]


def compare_flows(switch):
    for core in _libryn.ListLCoreIDs(switch.number):
        if core > 31:
            continue  # no table of theirs can be read
        for offloaded in (False, True):
            found, index = [], 0
            while True:
                page = _libryn.DumpFlowTable(switch.number, core, index, int(offloaded))
                if not page["list"]:
                    break
                found += page["list"]
                index += len(page["list"])
            flows = list(switch.flows(cores=[core], offloaded=offloaded))
            same([flow_line(flow) for flow in flows], [line["key"].split() for line in found], (str(switch), core))
            for flow, line in zip(flows, found):
                stats = line["stats"]
                if flow.packets is None:
                    same(stats, "Not Applicable", str(switch))
                else:
                    same(stats, f"pktsSinceLastFlush:{flow.packets} bytesSinceLastFlush:{flow.bytes}", str(switch))
                same(f"bmap:{flow.bitmap:#x} " in line["actions"] or flow.bitmap == 0, True, line["actions"])


def compare_switch(switch, listed):
    number, where = switch.number, str(switch)
    same(
        (switch.name, number, switch.max_ports, switch.active_ports, switch.port_count, switch.mtu, switch.cores),
        (
            listed["name"],
            listed["swID"],
            listed["maxPorts"],
            listed["numActivePorts"],
            listed["numPorts"],
            listed["mtu"],
            bits(listed["lcores"]),
        ),
        where,
    )
    ports = switch.ports()
    for port, line in zip(ports, _libryn.ListPorts(number)):
        compare_port(port, line)
    for uplink in switch.uplinks():
        compare_uplink(uplink)
    compare_flows(switch)
    table = _libryn.ListSwitchMACTable(number)
    macs = switch.macs()
    same((rows(macs), macs.limit, macs.limit_exceeded), (table["MacTableList"], table["MacLimit"], None), where)
    cores = _libryn.ListLCoreIDs(number)
    same(
        [narrowed(line) for line in switch.flow_stats()],
        [
            tuple(line.values())
            for some in (cores[:32], cores[32:])
            for line in (some and _libryn.GetFlowStats(number, some, 0))
        ],
        where,
    )
    same(
        [narrowed(line) for line in switch.fpo_stats()],
        [
            tuple(line.values())
            for some in (cores[:32], cores[32:])
            for line in (some and _libryn.GetFPOStats(number, some))
        ],
        where,
    )
    same(
        [
            [
                mirror.no_input,
                mirror.no_output,
                mirror.vlan_encap,
                mirror.orig_vlan,
                mirror.index,
                mirror.encap_vlan,
                mirror.sampling_rate,
                mirror.snap_len,
                list(mirror.source_in),
                list(mirror.source_out),
                list(mirror.destinations),
                list(mirror.vlans),
            ]
            for mirror in switch.mirrors()
        ],
        [list(mirror.values()) for mirror in _libryn.GetMirrorConf(number)],
        where,
    )
    same(switch.lro, _libryn.GetSwitchLRO(number), where)
    same(switch.panic_on_tx_hang, _libryn.GetPanicOnTxHang(number), where)
    same(str(switch.balancer.snapshot()), _libryn.DumpLBSnapshot(number), where)
    stats = switch.balancer.port_stats()
    figures = _libryn.DumpLBPortStats(number, 0, 127)
    same(
        [tuple(port) for port in stats.ports],
        [(i, a, b, c, d, *figures[4][i]) for i, (a, b, c, d) in enumerate(zip(*figures[:4]))],
        where,
    )
    same([tuple(core) for core in stats.cores], [(i, *core) for i, core in enumerate(figures[5])], where)
    if switch.alias is not None:
        same(switch.balancer.algorithm, _libryn.GetLBAlgorithm(switch.alias), where)
        same(tuple(switch.balancer.options), tuple(v for _, v in _libryn.GetLBParams(switch.alias)), where)
        same(switch.burst_size, _libryn.GetSwitchBurstSize(switch.alias), where)
        same(switch.numa_teaming, _libryn.GetSwitchNUMATeam(switch.alias), where)
        same(switch.fpo, _libryn.GetFPOEnabled(switch.alias), where)


host = ryn.Host()
listed = _libryn.ListSwitches() or []
switches = [switch for switch in host.switches() if switch.number is not None]
same(len(switches), len(listed), "switches")
for switch, line in zip(switches, listed):
    compare_switch(switch, line)
same(host.cores, _libryn.ListLCoreIDs(listed[0]["swID"]) if listed else (), "cores")
same(
    [tuple(device) for device in host.devices()],
    [tuple(d.values()) for d in _libryn.ListDevAffinity() or []],
    "devices",
)
same(tuple(host.balancer_weights), tuple(w["weight"] for w in _libryn.GetLBWeights() or []), "weights")
same(host.flow_timeout, _libryn.GetFlowTimeout(), "flow timeout")
print(compared)
