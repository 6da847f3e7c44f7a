"""The cases: for each, what the platform answers, which method is called and how it is described."""

from __future__ import annotations

import random
from dataclasses import dataclass
from functools import lru_cache
from typing import Callable

from harness import Bytes, Double, u32, u64


@dataclass
class Case:
    method: str
    title: str
    args: tuple
    script: Callable[[Double], None]
    target: float | None = None  # relative to marshal.loads of an equal result, at most


@lru_cache(maxsize=None)
def _mac_table(rows: int) -> bytes:
    chance = random.Random(rows)
    area = Bytes(16 + 20 * rows).u32(0, rows, 0, 65536)  # the double fills no more
    for at in range(16, 16 + 20 * rows, 20):
        area.raw(at, b"\2" + chance.randbytes(5)).u16(at + 6, chance.randrange(1, 4095))
        area.u32(at + 8, chance.randrange(128)).u32(at + 16, chance.randrange(1000))
    return area


def mac_table(rows: int) -> Case:
    return Case(
        "ListSwitchMACTable",
        f"MAC table, {rows:,} entries",
        (3,),
        lambda double: double.answer("Ryn_Dump_Switch_MAC_Table", area=_mac_table(rows)),
    )


def _ports(double: Double) -> None:
    chance = random.Random(2)
    area = Bytes(11532).u32(4, 128)
    for i, at in enumerate(range(12, 11532, 90)):
        area.u32(at, 67108864 + i, i).u8(at + 8, 4, 4).raw(at + 10, b"\2" + chance.randbytes(5))
        area.u16(at + 16, chance.randrange(4)).u32(at + 18, chance.randrange(5))
        area.raw(at + 26, bytes(chance.randrange(64) for _ in range(64)))
    double.answer("Ryn_Get_Port_List", area=area)


def _switches(double: Double) -> None:
    area = Bytes(2568).u32(0, 16)
    for i, at in enumerate(range(8, 2568, 160)):
        area.text(at, f"dvs-production-{i}").u32(at + 128, i, 1024, 100 + i, 120 + i, 9000, 8)
        area.u64(at + 152, 0xFF << i)
    double.answer("Ryn_Get_Switch_List", area=area)


def _counters(count: int, seed: int) -> bytes:
    chance = random.Random(seed)
    return u64(*(chance.getrandbits(chance.choice([10, 20, 30, 40])) for _ in range(count)))


def _port_stats(double: Double) -> None:
    double.answer("Ryn_Get_Port_Stats", area=_counters(16, 3))
    double.answer("Ryn_Get_Port_Stats_Slowpath", area=_counters(16, 4))


def _port_conf(double: Double) -> None:
    chance = random.Random(5)
    area = Bytes(1272).u32(0, 67108869).u32(16, 32).u32(20, 0x3F).u64(24, chance.getrandbits(62))
    area.raw(32, b"\2" + chance.randbytes(5)).u16(38, 100).u8(40, 1).u32(44, 5001).u32(48, 256)
    area.raw(52, b"".join(b"\1\0\x5e" + chance.randbytes(3) for _ in range(32))).u32(244, 1000)
    area.u16(248, *sorted(chance.sample(range(4095), 512)))
    double.answer("Ryn_Get_Port_Conf", area=area)


def _flow_page(double: Double) -> None:
    """33 entries of 304 bytes each, most of them IPv4, with four to six actions."""
    chance = random.Random(6)
    area = Bytes(10260).u32(8, 7000, 33, 20 + 33 * 304)
    for i, at in enumerate(range(20, 20 + 33 * 304, 304)):
        is_ipv6 = i % 4 == 3
        area.raw(at, b"\2" + chance.randbytes(5)).raw(at + 6, b"\2" + chance.randbytes(5))
        area.u16(at + 12, chance.randrange(4095) << 4 | is_ipv6 << 1, chance.randrange(1 << 15))
        area.raw(at + 16, chance.randbytes(4)).u16(at + 20, chance.randrange(1 << 16))
        area.u8(at + 23, chance.choice([6, 17, 1]))
        area.raw(at + 24, chance.randbytes(32))
        record = at + 64
        area.u64(record + 8, 0x4300_0000_0000 + 0x1000 * i).u64(record + 24, chance.getrandbits(24))
        area.u64(record + 40, chance.getrandbits(34))
        area.u32(record + 56, 0x80 | chance.choice([0x00101444, 0x1800044C, 0x0C101454])).u8(record + 61, 8)
        area.u16(record + 62, 240).u8(record + 64, chance.randrange(256)).u32(record + 68, chance.randrange(10))
        area.u8(record + 72, chance.randrange(128)).u16(record + 74, chance.randrange(4096))
        area.u32(record + 76, chance.randrange(1 << 24)).u32(record + 114, chance.randrange(128))
        area.u16(record + 118, chance.randrange(4095))
    double.answer("Ryn_Dump_Flow_Table", area=area)


def _flow_stats(double: Double) -> None:
    chance = random.Random(7)
    area = Bytes(1544).u32(0, 32)
    for i, at in enumerate(range(8, 1544, 48)):
        area.u32(at, i, chance.randrange(100000)).u64(at + 8, *(chance.getrandbits(40) for _ in range(5)))
    double.answer("Ryn_Get_Flow_Stats", area=area)


def _queue_stats(double: Double) -> None:
    double.answer("Ryn_Get_Uplink_Queue_Stats", area=_counters(24, 8))


def _mirror_conf(double: Double) -> None:
    """25 sessions of 80 bytes, then 40 bytes that do not hold another."""
    chance = random.Random(9)
    area = Bytes(2048).u16(4, 25)
    for i, at in enumerate(range(8, 8 + 25 * 80, 80)):
        sets = [chance.sample(range(128), 4) for _ in range(3)]
        area.u16(at + 4, i, chance.randrange(4095), 128, 1000, chance.randrange(16), 4, 4, 4, 4)
        for offset, ports in zip((24, 40, 56), sets):
            area.raw(at + offset, sum(1 << port for port in ports).to_bytes(16, "little"))
        area.u16(at + 72, *chance.sample(range(1, 4095), 4))
    double.answer("Ryn_Get_Mirror_Conf", area=area)


def _netq(double: Double) -> None:
    """Filters of 6 to 16 bytes of body, half of each kind, with two queues each, to the end of the area."""
    chance = random.Random(10)
    area = Bytes(524288).u32(0, 3, 5).u16(12, 1)
    position, count = 16, 0
    while True:
        kind = count % 2
        inner = b"\2" + chance.randbytes(5) + u32(chance.randrange(1 << 24))
        body = b"\2" + chance.randbytes(5) + (inner if kind else b"\0\0")
        size = 8 + len(body) + 2 * 16
        if position + size > len(area):
            break
        area.u16(position, kind, 0, len(body), 2).raw(position + 8, body)
        for queue in (position + 8 + len(body), position + 24 + len(body)):
            area.u32(queue, chance.randrange(128), chance.randrange(64)).u64(queue + 8, chance.getrandbits(40))
        position, count = position + size, count + 1
    double.answer("Ryn_Get_Port_NetQ_Info", area=area.u16(14, count))


def _snapshot(double: Double) -> None:
    """20 groups, and vertices of 4 + 4 edges to the end of the area."""
    chance = random.Random(11)
    groups, edges = 20, 8
    vertices = (4096 - 8 - 37 * groups) // (20 + 12 * edges)
    area = Bytes(4096).u32(0, groups, vertices)
    for at in range(8, 8 + 37 * groups, 37):
        area.i32(at, chance.randrange(100))
        for offset in (5, 21):
            ports = chance.sample(range(128), 6)
            area.raw(at + offset, sum(1 << port for port in ports).to_bytes(16, "little"))
    at = 8 + 37 * groups
    for i in range(vertices):
        area.i32(at, i).u32(at + 4, chance.randrange(1 << 30), chance.randrange(1 << 16), edges // 2, edges // 2)
        for edge in range(at + 20, at + 20 + 12 * edges, 12):
            area.i32(edge, chance.randrange(vertices)).u32(edge + 4, chance.randrange(1000), chance.randrange(1000))
        at += 20 + 12 * edges
    double.answer("Ryn_DumpLBSnapshot", area=area)


def _balancer(double: Double) -> None:
    chance = random.Random(12)
    area = Bytes(9224)
    for at in range(8, 6152, 48):
        area.u32(at, chance.randrange(1 << 20), chance.randrange(1 << 20), chance.randrange(64), chance.randrange(64))
        area.u64(at + 16, *(chance.getrandbits(30) for _ in range(4)))
    for at in range(6152, 9224, 48):
        before, period = chance.getrandbits(34), chance.getrandbits(30)
        area.u64(at, before + period // 2, before, before + period, before, chance.getrandbits(32))
    double.answer("Ryn_Dump_LB_PortStats", area=area)


def _burst_size(double: Double) -> None:
    double.add_switch("dvs-1", id="50 2e 11 aa-bb")
    double.answer("DVSQOB_HostPropGet", area=u32(0, 32))


CASES = [
    Case("ListSwitchMACTable", "MAC table of a switch, 65,536 entries", (3,), mac_table(65536).script, 0.75),
    Case("ListPorts", "128 ports", (3,), _ports, 0.65),
    Case("ListSwitches", "16 switches", (), _switches),
    Case("GetPortStats", "statistics of a port", (3, 5), _port_stats, 0.40),
    Case("GetPortConf", "configuration of a port, 32 addresses, 256 ranges", (3, 5), _port_conf),
    Case("DumpFlowTable", "page of 33 flows", (3, 1, 7000, 0), _flow_page, 1.70),
    Case("GetFlowStats", "flow statistics of 32 cores", (3, tuple(range(32)), 0), _flow_stats),
    Case("GetUplinkQueueStats", "statistics of an uplink", (3, 5, 0, 2), _queue_stats),
    Case("GetMirrorConf", "mirror sessions, 2,048 bytes", (3,), _mirror_conf),
    Case("GetPortNetQInfo", "network queues, 524,288 bytes", (3, 5), _netq, 0.80),
    Case("DumpLBSnapshot", "snapshot of the balancer, 4,096 bytes", (3,), _snapshot),
    Case("DumpLBPortStats", "figures of the balancer, 128 ports, 64 cores", (3, 0, 127), _balancer, 0.68),
    Case("SetUplinkMACLearn", "a setter", (3, 1), lambda double: None),
    Case("GetSwitchBurstSize", "a getter by alias", ("dvs-1",), _burst_size),
]
