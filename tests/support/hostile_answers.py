"""Malformed answers of the platform: the fields of each response that say how many, how long, which or where."""

from __future__ import annotations

import os
import random
from dataclasses import dataclass, field
from itertools import combinations, product
from typing import Callable, Iterator

from harness import Bytes, Double, u32

SOAK = "RYN_SOAK" in os.environ  # all pairs, those that take minutes too

EDGES = [0, 1, 0x7F, 0x80, 0xFF, 0x7FFF, 0x8000, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]


@dataclass
class Field:
    offset: int
    width: int  # in bytes
    room: int  # the greatest value that fits
    long: tuple[int, ...] = ()  # values that mean tens of thousands of records: in pairs only when soaking

    def paired_values(self) -> list[int]:
        return [value for value in self.values() if SOAK or value not in self.long]

    def values(self) -> list[int]:
        values = [*EDGES, self.room - 1, self.room, self.room + 1, 2 * self.room]
        return sorted({value & ((1 << 8 * self.width) - 1) for value in values})

    def put(self, area: Bytes, value: int) -> None:
        area.raw(self.offset, value.to_bytes(self.width, "little"))


@dataclass
class Response:
    method: str
    args: tuple
    op: str
    size: int
    fields: list[Field]
    shown: list[Field] = field(default_factory=list)  # numbers that are only shown: in pairs when soaking
    prepare: Callable[[Double], None] = lambda double: None  # what else the platform answers

    @property
    def id(self) -> str:
        return f"{self.method}-{self.op}"

    def fills(self) -> dict[str, Bytes]:
        """What stands in the area where no field does."""
        noise = random.Random(self.op).getrandbits(8 * self.size).to_bytes(self.size, "little")  # randbytes is of 3.9
        return {"zeros": self.zeros(), "ones": Bytes(b"\xff" * self.size), "noise": Bytes(noise)}

    def largest(self) -> Iterator[Bytes]:
        """Each fill with as much of everything as there is room for, and each count alone at its room on it."""
        for area in self.fills().values():
            for alone in self.fields:
                only = Bytes(area)
                alone.put(only, alone.room)
                yield only
            for all_fields in self.fields:
                all_fields.put(area, all_fields.room)
            yield area

    def zeros(self) -> Bytes:
        """All that holds fields: the module's areas are zeroed, and a large one takes long to copy."""
        return Bytes(min(self.size, 4096))

    def areas(self) -> Iterator[tuple[str, Bytes]]:
        """Each field alone with each of its values on each fill; the fields two by two on zeros."""
        for fill, area in self.fills().items():
            yield fill, area
            for alone in self.fields + self.shown:
                for value in alone.values():
                    changed = Bytes(area)
                    alone.put(changed, value)
                    yield f"{fill}, {alone} = {value:#x}", changed
        for first, second in combinations(self.fields + self.shown * SOAK, 2):
            for values in product(first.paired_values(), second.paired_values()):
                changed = self.zeros()
                first.put(changed, values[0])
                second.put(changed, values[1])
                yield f"{first} = {values[0]:#x}, {second} = {values[1]:#x}", changed


def words(*offsets: int, room: int) -> list[Field]:
    return [Field(offset, 4, room) for offset in offsets]


def halves(*offsets: int, room: int) -> list[Field]:
    return [Field(offset, 2, room) for offset in offsets]


def a_switch(double: Double) -> None:
    double.add_switch("dvs-1", id="id-1")
    double.answer("DVSQOB_HostPropGet", status=0xBAD0003)


def a_property(double: Double) -> None:
    double.add_switch("dvs-1", id="id-1")


def private_text(double: Double) -> None:
    double.answer("Ryn_Get_Uplink_Priv_Stats_Len", area=u32(64))
    double.answer("Ryn_Get_Uplink_Priv_Stats", area=b"x" * 200)


ENTRY, SESSION, FILTER, VERTEX, BALANCER = 20, 8, 16, 8 + 37, [8, 12, 16, 20]
RESPONSES = [
    Response(
        "ListSwitches",
        (),
        "Ryn_Get_Switch_List",
        2568,
        words(0, room=16)
        + words(8 + 128, room=15)
        + words(8 + 132, 8 + 136, 8 + 140, room=128)
        + words(8 + 148, room=64),
    ),
    Response(
        "ListPorts",
        (0,),
        "Ryn_Get_Port_List",
        11532,
        words(4, room=128) + [Field(12 + 8, 1, 32), Field(12 + 9, 1, 32)] + words(12 + 18, room=4),
        words(12, room=1 << 26) + words(12 + 4, room=127) + halves(12 + 16, room=16384),
    ),
    Response("GetPortStats", (0, 0), "Ryn_Get_Port_Stats", 128, []),
    Response("GetPortStats", (0, 0), "Ryn_Get_Port_Stats_Slowpath", 128, []),
    Response(
        "ListPortMACTable",
        (0, 0),
        "Ryn_Dump_Port_MAC_Table",
        327696,
        words(0, room=16384),
        words(8, 12, room=16384) + halves(16 + 6, room=4095) + words(16 + 8, room=127),
    ),
    Response(
        "ListSwitchMACTable",
        (0,),
        "Ryn_Dump_Switch_MAC_Table",
        1310736,
        words(0, room=65536),
        words(8, 12, room=65536) + halves(16 + 6, room=4095) + words(16 + 8, room=127),
    ),
    Response(
        "GetPortConf",
        (0, 0),
        "Ryn_Get_Port_Conf",
        1272,
        words(16, room=32) + words(48, room=256) + words(20, room=63) + words(0, room=127),
    ),
    Response("GetPortLRO", (0, 0), "Ryn_GetLRO", 4, words(0, room=1)),
    Response("GetSwitchLRO", (0,), "Ryn_GetLRO", 4, words(0, room=1)),
    Response(
        "DumpFlowTable",
        (0, 0, 0, 0),
        "Ryn_Dump_Flow_Table",
        10260,
        words(12, room=33)
        + words(16, room=10260)
        + words(ENTRY + 64 + 56, room=1 << 18)
        + halves(ENTRY + 64 + 62, room=240)
        + [Field(ENTRY + 64 + 256, 1, 12)],
        words(8, room=33) + words(ENTRY + 64 + 68, room=1) + [Field(ENTRY + 64 + 64, 1, 63)],
    ),
    Response("GetFlowStats", (0, (), 0), "Ryn_Get_Flow_Stats", 1544, words(0, room=32) + words(8, room=63)),
    Response("GetFlowTimeout", (), "Ryn_Get_Flow_Timeout", 4, words(0, room=60)),
    Response("GetFPOStats", (0, ()), "Ryn_Get_FPO_Stats", 1800, words(0, room=32) + words(8, room=63)),
    Response("GetFPOUplinkStatus", (0, 0), "Ryn_Get_FPO_Uplink_Status", 40, words(0, room=3) + words(4, 8, room=16)),
    Response("GetPortTxUplink", (0, 0), "Ryn_Get_Port_Tx_Uplink", 18, [Field(0, 1, 5), Field(1, 1, 8)]),
    Response(
        "GetMirrorConf",
        (0,),
        "Ryn_Get_Mirror_Conf",
        2048,
        halves(4, room=28)
        + halves(*(SESSION + offset for offset in (14, 16, 18)), room=128)
        + halves(SESSION + 20, room=984),
        halves(SESSION + 4, room=28),
    ),
    Response("GetUplinkStats", (0, 0), "Ryn_Get_Uplink_Priv_Stats_Len", 4, words(0, room=64), prepare=private_text),
    Response("GetUplinkStats", (0, 0), "Ryn_Get_Uplink_Priv_Stats", 64, [], prepare=private_text),
    Response("GetUplinkStats", (0, 0), "Ryn_Get_Uplink_Stats", 192, [], prepare=private_text),
    Response("GetUplinkQueueStats", (0, 0, 0, 0), "Ryn_Get_Uplink_Queue_Stats", 192, []),
    Response("GetPanicOnTxHang", (0,), "Ryn_Get_Panic_On_Tx_Hang", 4, words(0, room=1)),
    Response(
        "GetPortNetQInfo",
        (0, 0),
        "Ryn_Get_Port_NetQ_Info",
        524288,
        [Field(14, 2, 65534, long=(0x7FFF, 0x8000, 65532, 65533))]
        + halves(FILTER, room=1)
        + halves(FILTER + 4, room=16)
        + halves(FILTER + 6, room=32766),
    ),
    Response("ListDevAffinity", (), "Ryn_List_Dev_Affinity", 1156, words(0, room=32) + words(4 + 32, room=1)),
    Response(
        "DumpLBSnapshot",
        (0,),
        "Ryn_DumpLBSnapshot",
        4096,
        words(0, room=110)
        + words(4, room=204)
        + words(8 + 12, 8 + 16, room=339)
        + words(VERTEX + 12, VERTEX + 16, room=335),
    ),
    Response("DumpLBPortStats", (0, 0, 0), "Ryn_Dump_LB_PortStats", 9224, words(8 + 8, 8 + 12, room=63)),
    Response("GetLBWeights", (), "Ryn_GetLBWeights", 32, []),
    Response("GetLBParams", ("dvs-1",), "Ryn_GetCurrentLBData", 24, words(*BALANCER, room=100), prepare=a_switch),
    Response("GetLBParams", ("dvs-1",), "DVSQOB_HostPropGet", 24, words(*BALANCER, room=100), prepare=a_property),
    Response("GetLBAlgorithm", ("dvs-1",), "Ryn_GetCurrentLBData", 24, words(0, 4, room=2), prepare=a_switch),
    Response("GetLBAlgorithm", ("dvs-1",), "DVSQOB_HostPropGet", 24, words(4, room=2), prepare=a_property),
    Response("GetSwitchNUMATeam", ("dvs-1",), "Ryn_GetSwitchNUMATeam", 1, [Field(0, 1, 1)], prepare=a_switch),
    Response("GetSwitchBurstSize", ("dvs-1",), "Ryn_GetSwitchBurstSize", 4, words(0, room=64), prepare=a_switch),
    Response("GetSwitchBurstSize", ("dvs-1",), "DVSQOB_HostPropGet", 8, words(4, room=64), prepare=a_property),
    Response("GetUplinkRingSize", ("id", "port"), "DVSQOB_PortDataGet", 8, words(0, 4, room=4096)),
    Response("ListLCoreIDs", (0,), "Ryn_Get_LCore_ID_Bitmap", 8, []),
]
