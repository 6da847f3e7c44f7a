"""Answers of the platform that do not fit: the fields of each response that say how many, how long, which or where."""

from __future__ import annotations

import random
from dataclasses import dataclass
from itertools import combinations, product
from typing import Iterator

from harness import Bytes

EDGES = [0, 1, 0x7F, 0x80, 0xFF, 0x7FFF, 0x8000, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]


@dataclass
class Field:
    offset: int
    width: int  # in bytes
    room: int  # the greatest value that fits

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

    def fills(self) -> dict[str, Bytes]:
        """What stands in the area where no field does."""
        noise = random.Random(self.op).randbytes(self.size)
        return {"zeros": Bytes(self.size), "ones": Bytes(b"\xff" * self.size), "noise": Bytes(noise)}

    def areas(self) -> Iterator[tuple[str, Bytes]]:
        """Each field alone with each of its values on each fill; the fields two by two on zeros."""
        for fill, area in self.fills().items():
            yield fill, area
            for field in self.fields:
                for value in field.values():
                    changed = Bytes(area)
                    field.put(changed, value)
                    yield f"{fill}, {field} = {value:#x}", changed
        for first, second in combinations(self.fields, 2):
            for values in product(first.values(), second.values()):
                changed = Bytes(self.size)
                first.put(changed, values[0])
                second.put(changed, values[1])
                yield f"{first} = {values[0]:#x}, {second} = {values[1]:#x}", changed


def words(*offsets: int, room: int) -> list[Field]:
    return [Field(offset, 4, room) for offset in offsets]


def halves(*offsets: int, room: int) -> list[Field]:
    return [Field(offset, 2, room) for offset in offsets]


ENTRY, SESSION, FILTER, VERTEX = 20, 8, 16, 8 + 37
RESPONSES = [
    Response("ListSwitches", (), "Ryn_Get_Switch_List", 2568, words(0, room=16) + words(8 + 128, room=15)),
    Response("ListPorts", (0,), "Ryn_Get_Port_List", 11532,
             words(4, room=128) + [Field(12 + 8, 1, 32), Field(12 + 9, 1, 32)] + words(12 + 18, room=4)),
    Response("ListPortMACTable", (0, 0), "Ryn_Dump_Port_MAC_Table", 327696, words(0, room=16384)),
    Response("ListSwitchMACTable", (0,), "Ryn_Dump_Switch_MAC_Table", 1310736, words(0, room=65536)),
    Response("GetPortConf", (0, 0), "Ryn_Get_Port_Conf", 1272, words(16, room=32) + words(48, room=256)),
    Response("DumpFlowTable", (0, 0, 0, 0), "Ryn_Dump_Flow_Table", 10260,
             words(12, room=33) + words(16, room=10260) + words(ENTRY + 64 + 56, room=1 << 18)
             + halves(ENTRY + 64 + 62, room=240) + [Field(ENTRY + 64 + 256, 1, 12)]),
    Response("GetFlowStats", (0, (), 0), "Ryn_Get_Flow_Stats", 1544, words(0, room=32)),
    Response("GetFPOStats", (0, ()), "Ryn_Get_FPO_Stats", 1800, words(0, room=32)),
    Response("GetFPOUplinkStatus", (0, 0), "Ryn_Get_FPO_Uplink_Status", 40, words(0, room=3)),
    Response("GetPortTxUplink", (0, 0), "Ryn_Get_Port_Tx_Uplink", 18, [Field(0, 1, 5), Field(1, 1, 8)]),
    Response("GetMirrorConf", (0,), "Ryn_Get_Mirror_Conf", 2048,
             halves(4, room=28) + halves(*(SESSION + offset for offset in (14, 16, 18)), room=128)
             + halves(SESSION + 20, room=984)),
    Response("GetUplinkStats", (0, 0), "Ryn_Get_Uplink_Priv_Stats_Len", 4, words(0, room=64)),
    Response("GetUplinkQueueStats", (0, 0, 0, 0), "Ryn_Get_Uplink_Queue_Stats", 192, []),
    Response("GetPortNetQInfo", (0, 0), "Ryn_Get_Port_NetQ_Info", 524288,
             halves(14, room=65534) + halves(FILTER, room=1) + halves(FILTER + 4, room=16)
             + halves(FILTER + 6, room=32766)),
    Response("ListDevAffinity", (), "Ryn_List_Dev_Affinity", 1156, words(0, room=32)),
    Response("DumpLBSnapshot", (0,), "Ryn_DumpLBSnapshot", 4096,
             words(0, room=110) + words(4, room=204) + words(8 + 12, 8 + 16, room=339)
             + words(VERTEX + 12, VERTEX + 16, room=335)),
    Response("DumpLBPortStats", (0, 0, 0), "Ryn_Dump_LB_PortStats", 9224, words(8 + 8, 8 + 12, room=63)),
    Response("GetLBWeights", (), "Ryn_GetLBWeights", 32, []),
    Response("ListLCoreIDs", (0,), "Ryn_Get_LCore_ID_Bitmap", 8, []),
]
