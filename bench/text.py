"""The lines of flow entries and of the balancer's snapshot in Python, for the contenders that are written in it."""

from socket import AF_INET6, inet_ntop, ntohs

ACTIONS = {
    3: "LRO; ",
    4: "IPFIX Ingress; ",
    6: "DFW on srcPort; ",
    8: "SP; ",
    11: "VR; ",
    13: "PR; ",
    16: "GVLAN Insert; ",
    22: "DECAP; ",
    23: "GVLAN Remove; ",
    26: "IPFIX Egress; ",
    27: "DFW on dstPort; ",
}
# Bit, text, place of the number among the arguments of actions_line
NUMBERS = {
    2: ("KCPInputChildPort: %d; ", 0),
    10: ("VI: %d; ", 1),
    12: ("PI: %d; ", 2),
    20: ("VNI: %d; ", 3),
    28: ("KCPOutputVLAN: %d; ", 4),
}


def key_line(mac1, mac2, vlan_flags, number14, port1, port2, low20, high20, protocol, address1, address2):
    if vlan_flags & 2:
        address1, address2 = inet_ntop(AF_INET6, address1), inet_ntop(AF_INET6, address2)
    else:
        address1, address2 = "%d.%d.%d.%d" % (*address1[:4],), "%d.%d.%d.%d" % (*address1[4:8],)
    if protocol != 1 and protocol != 58:
        port1, port2 = ntohs(port1), ntohs(port2)
    return "%s  %s  %-4d  %-7d  %-45s  %-45s  %-5d  %-7d  %-12d  %-12d" % (
        mac1.hex(":"),
        mac2.hex(":"),
        vlan_flags >> 4,
        number14 & 0x7FFF,
        address1,
        address2,
        protocol,
        high20 << 16 | low20,
        port1,
        port2,
    )


def actions_line(bitmap, inval, handle, dp, length, numbers, record, offset):
    line = [
        "bmap:%s inval(s):%d cg:%s dp:%s len:%d; "
        % (
            hex(bitmap) if bitmap else "(nil)",
            inval,
            hex(handle) if handle else "(nil)",
            dp if bitmap & 0x80 else "-",
            length,
        )
    ]
    rest = bitmap
    while rest:
        bit = (rest & -rest).bit_length() - 1
        rest &= rest - 1
        if bit == 5:
            line.append("DROP; ")
            break
        if bit in ACTIONS:
            line.append(ACTIONS[bit])
        elif bit in NUMBERS:
            text, place = NUMBERS[bit]
            line.append(text % numbers[place])
        elif bit == 21:
            line.append(
                "VNI: %d; ENCAP VNI: %d; " % (numbers[3], int.from_bytes(record[offset + 244 : offset + 247], "big"))
            )
        elif bit == 18:
            count = record[offset + 256]
            line.append("VDR inst: %d; " % count)
            for i in range(count):
                at = offset + 274 + 32 * i
                line.append("INST %d: 0x%x; " % (i + 1, int.from_bytes(record[at : at + 4], "little")))
    return "".join(line)


def stats_text(flags, packets, size):
    return f"pktsSinceLastFlush:{packets} bytesSinceLastFlush:{size}" if flags & 8 else "Not Applicable"


def ports_of(words):
    ports = []
    while words:
        lowest = words & -words
        ports.append(lowest.bit_length() - 1)
        words ^= lowest
    return ports


def group_line(number, load, tx, rx):
    return "[%3d load %3d] :%s%s\n" % (
        number,
        load,
        "".join([" [%d-TX]" % port for port in ports_of(tx)]),
        "".join([" [%d-RX]" % port for port in ports_of(rx)]),
    )


def vertex_lines(number, wid, flags, out_edges, in_edges):
    """Edges are (peer, load, EMA)."""
    return "[%2d WID:%10d Num:%3d F:%8x] ->%s\n[%2d WID:%10d Num:%3d F:%8x] <-%s\n" % (
        number,
        wid,
        len(out_edges),
        flags,
        "".join([" [to  :%2d EMA:%3d load:%3d]" % (peer, ema, load) for peer, load, ema in out_edges]),
        number,
        wid,
        len(in_edges),
        flags,
        "".join([" [from:%2d EMA:%3d load:%3d]" % (peer, ema, load) for peer, load, ema in in_edges]),
    )


def snapshot(groups, vertices):
    return "\nGroups\n%s\nVeticies and Edges\n%s" % ("".join(groups), "".join(vertices))


FLAG_WORDS = ["UNICAST ", "MULTICAST ", "ALLMULTI ", "BROADCAST ", "PROMISC ", "USE_LADRF "]


def flags_text(flags):
    return "".join([word for bit, word in enumerate(FLAG_WORDS) if flags >> bit & 1])


CLIENT_TYPES = ["UNKNOWN", "VNIC", "UPLINK", "GENERIC", "QOBNIC"]
UPLINK_COUNTERS = [
    "rxPkts",
    "txPkts",
    "rxBytes",
    "txBytes",
    "rxErrors",
    "txErrors",
    "rxDrops",
    "txDrops",
    "rxMulticastPkts",
    "rxBroadcastPkts",
    "txMulticastPkts",
    "txBroadcastPkts",
    "collisions",
    "rxLengthErrors",
    "rxOverflowErrors",
    "rxCRCErrors",
    "rxFrameAlignErrors",
    "rxFifoErrors",
    "rxMissErrors",
    "txAbortedErrors",
    "txCarrierErrors",
    "txFifoErrors",
    "txHeartbeatErrors",
    "txWindowErrors",
]


def figures(c0, c1, c2, c3, a, b):
    """Of a port; `a` and `b` are (busy, period * work) of its cores."""
    (busy_a, work_a), (busy_b, work_b) = a, b
    return (
        busy_a * 200 * c0 // work_a if work_a else 0,
        busy_b * 200 * c1 // work_b if work_b else 0,
        busy_a * 100 * c2 // work_a if work_a else 0,
        busy_b * 100 * c3 // work_b if work_b else 0,
        (2 * c0 + c2 + 99999) // 100000,
        (2 * c1 + c3 + 99999) // 100000,
    )


def share(busy_now, busy_before, time_now, time_before, work):
    return busy_now + 0xFFFFF - busy_before >> 20, (time_now + 0xFFFFF - time_before >> 20) * work


def core_figures(busy_now, busy_before, time_now, time_before, work):
    period = time_now - time_before
    return (busy_now - busy_before) * 100 // period if period else 0, (work + 99999) // 100000
