"""The branches of each method: its good call, each of its failures, and answers of 0 and of 3 records."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Callable

from harness import Bytes, Double, u64
from method_table import Failure, Method, nothing


def list_ports(double: Double) -> None:
    area = Bytes(11532).u32(4, 3)
    for i, (tx, rx, client) in enumerate([(0, 2, 1), (1, 0, 4), (2, 1, 77)]):
        area.u8(12 + 90 * i + 8, tx, rx).u32(12 + 90 * i + 18, client)
    double.answer("Ryn_Get_Port_List", area=area)


def port_conf(double: Double) -> None:
    double.answer("Ryn_Get_Port_Conf", area=Bytes(1272).u32(16, 3, 0x3F).u32(48, 3).u16(248, 1, 2, 300, 300))


def flow_page(double: Double) -> None:
    area = Bytes(10260).u32(12, 3, 20 + 3 * 304)
    for i, (bitmap, flags) in enumerate([(1 << 5, 8), (1 << 18 | 1 << 21, 0), (0, 8)]):
        area.u32(20 + 304 * i + 64 + 56, bitmap).u8(20 + 304 * i + 64 + 61, flags).u16(20 + 304 * i + 126, 240)
    double.answer("Ryn_Dump_Flow_Table", area=area)


def mirror_conf(double: Double) -> None:
    area, offset = Bytes(2048).u16(4, 3), 8
    for index, vlans in enumerate([0, 3, 5]):
        area.u16(offset + 4, 1000 + index).u16(offset + 14, index, 2 - index, 1, vlans)
        area.u64(offset + 24, index, 0, 0, 2 - index, 1 << 9)
        offset += 72 + (2 * vlans + 7) // 8 * 8
    double.answer("Ryn_Get_Mirror_Conf", area=area)


def netq_info(double: Double) -> None:
    area, offset = Bytes(524288).u16(12, 0, 3), 16
    for kind, length, queues in [(1, 16, 2), (7, 8, 0), (0, 6, 1)]:
        area.u16(offset, kind).u16(offset + 4, length, queues)
        offset += 8 + length + 16 * queues
    double.answer("Ryn_Get_Port_NetQ_Info", area=area)


def records(op: str, size: int) -> Callable[[Double], None]:
    return lambda double: double.answer(op, area=Bytes(size).u32(0, 3))


THREE_RECORDS: dict[str, Callable[[Double], None]] = {
    "ListSwitches": records("Ryn_Get_Switch_List", 2568),
    "ListPorts": list_ports,
    "ListPortMACTable": records("Ryn_Dump_Port_MAC_Table", 327696),
    "ListSwitchMACTable": records("Ryn_Dump_Switch_MAC_Table", 1310736),
    "GetFlowStats": records("Ryn_Get_Flow_Stats", 1544),
    "GetFPOStats": records("Ryn_Get_FPO_Stats", 1800),
    "DumpFlowTable": flow_page,
    "GetPortConf": port_conf,
    "GetPortTxUplink": lambda double: double.answer("Ryn_Get_Port_Tx_Uplink", area=Bytes(18).u8(0, 9, 3)),
    "GetMirrorConf": mirror_conf,
    "GetPortNetQInfo": netq_info,
    "ListDevAffinity": records("Ryn_List_Dev_Affinity", 1156),
    "ListLCoreIDs": lambda double: double.answer("Ryn_Get_LCore_ID_Bitmap", area=u64(1 << 63 | 1 << 5 | 1)),
}
THREE_ARGS = {"GetFlowStats": (0, (1, 2, 3), 0), "GetFPOStats": (0, (1, 2, 3))}


@dataclass
class Branch:
    name: str
    script: Callable[[Double], None]
    args: tuple
    leaks: int = 0  # blocks that a completed call leaks deliberately


def branches(method: Method) -> list[Branch]:
    def of_failure(failure: Failure) -> Branch:
        def script(double: Double) -> None:
            method.script(double)
            failure.script(double)

        return Branch(failure.name, script, method.args if failure.args is None else failure.args, failure.leaks)

    # Failures that leave an error set have tests of their own: an injected failure could not be told from them.
    failures = [failure for failure in method.failures if failure.outcome is None or failure.outcome.error is None]
    result = [Branch("good", method.script, method.args, method.leaks), *map(of_failure, failures)]
    if method.name in THREE_RECORDS:
        # GetPortTxUplink leaks its list: the object, and the array of one that is not empty
        none, three = (1, 2) if method.leaks else (0, 0)
        result.append(Branch("0 records", nothing, method.args, none))
        result.append(Branch("3 records", THREE_RECORDS[method.name], THREE_ARGS.get(method.name, method.args), three))
    if method.name == "DumpLBPortStats":
        result += [Branch("no port", method.script, (3, 6, 5)), Branch("3 ports", method.script, (3, 5, 7))]
    return result
