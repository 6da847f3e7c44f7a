"""One row per method of the module, in the order of its table: what the tests add to its description.

The description (libryn/reference/methods.py) says what a method takes, returns and prints. Each row here adds a good
call with the platform's answers, its result and the library calls that it makes, answers that make it fail in each of
the described ways, and what a failing allocation may lead to. test_every_method.py walks the rows; what a single method
alone does is tested in the file of its topic.
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Callable

from description import DESCRIPTIONS, Description, Idiom
from harness import ANY, BUFFER, DICT_ITEM, MISSING, NULL, Bytes, Call, Double, Outcome, u8, u32, u64

LOADBAL = "com.talvor.kiv.ryn.loadbal"
TEAMING = "com.talvor.kiv.ryn.teaming"
BURSTSIZE = "com.talvor.kiv.ryn.burstsize"
FPO = "com.talvor.kiv.ryn.fpo"
UPLINK_RING = "com.talvor.extraconfig.opqueDvs.ryn.uplinkRing"  # its spelling
OPAQUE_DVS = "com.talvor.extraconfig.opaqueDvs.ryn"
PORTSET = "com.talvor.common.host.portset"

NO_MEMORY = (MemoryError, "")
BUILDS_ITEMS = [Outcome(None, error=BUFFER)]  # built in one go, any failure is this one
BUILDS_KEYS = [Outcome(None, error=BUFFER), Outcome(None, error=DICT_ITEM)]
BUILDS_ONE_VALUE = [Outcome(NULL, error=NO_MEMORY)]


def reports(text: str) -> Outcome:
    """The outer container could not be created: a line on standard error, and the pending error stays."""
    return Outcome(None, text, NO_MEMORY)


def nothing(double: Double) -> None:
    """The platform answers 0 and fills nothing."""


def fails(op: str) -> Callable[[Double], None]:
    return lambda double: double.answer(op, status=0xBAD0007)


@dataclass
class Failure:
    """A way for a call to fail behind its arguments; `script` changes the answers of the good call."""

    name: str
    script: Callable[[Double], None]
    outcome: Outcome | None  # None: as described
    args: tuple | None = None  # other than the good call's
    leaks: int = 0  # blocks of the interpreter that each such call leaks deliberately


def failing(op: str, text: str | None = None, value: Any = None, leaks: int = 0) -> Failure:
    """The operation fails, and the method prints and returns what its description says, or what is given here."""
    return Failure(op, fails(op), None if text is None else Outcome(value, text), leaks=leaks)


DESCRIBED = {row.name: row for row in DESCRIPTIONS}


@dataclass
class Method:
    name: str
    args: tuple  # of the good call
    script: Callable[[Double], None]
    value: Any  # result of the good call
    calls: list[Call]  # the library's operations that it reaches
    refused: tuple[tuple, ...] = ()  # refused arguments other than those above the described maxima
    failures: tuple[Failure, ...] = ()
    no_memory: tuple[Outcome, ...] | list[Outcome] = ()  # what a failing allocation of the interpreter may lead to
    leaks: int = 0  # blocks of the interpreter that each good call leaks deliberately

    def __post_init__(self) -> None:
        if self.name not in DESCRIBED:
            raise LookupError(f"{self.name} is not described: add its row to libryn/reference/methods.py")
        self.row: Description = DESCRIBED[self.name]
        for failure in self.failures:
            if failure.outcome is None:
                failure.outcome = described_outcome(self.row, failure.name)

    @property
    def doc(self) -> str:
        return self.row.doc

    @property
    def format(self) -> str | None:
        return self.row.format

    @property
    def maxima(self) -> tuple[int | None, ...]:
        return self.row.maxima if any(greatest is not None for greatest in self.row.maxima) else ()

    @property
    def invalid(self) -> str:
        return self.row.refuses

    @property
    def invalid_value(self) -> Any:
        return self.row.refusal


def described_outcome(row: Description, op: str) -> Outcome:
    values = {Idiom.NONE: None, Idiom.SAME: None, Idiom.FALSE: False, Idiom.TRUE: True, Idiom.NULL: NULL}
    for failure in row.failures:
        if failure.when == f"`{op}` fails":
            return Outcome(values[failure.sees], failure.prints)
    raise LookupError(
        f"libryn/reference/methods.py says nothing of {row.name} when {op} fails: add a Failure to its row"
    )


PORT_COUNTERS = [
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
# In the record, bytes stand before packets, and drops before errors as above.
PORT_COUNTER_PLACES = [1, 0, 3, 2, 5, 4, 6, 7, 9, 8, 11, 10, 13, 12, 14, 15]

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
UPLINK_LIST = [(name, 1000 + i) for i, name in enumerate(UPLINK_COUNTERS)]
NO_UPLINK_LIST = ["Failed to allocate uplink stats.\n", "Failed to allocate uplink stats counter.\n"]

WEIGHT_NAMES = [
    "Cross-NUMA Communication Weight",
    "Cross-NUMA Migration Weight",
    "Cross-Lcore Communication Weight",
    "Cross-Lcore Migration Weight",
    "VM Affinity Weight",
    "Device Affinity Weight",
    "Stability Decay Rate",
    "Port Count Weight",
]


# The platform's answers to the good calls, and the results


def list_switches(double: Double) -> None:
    area = Bytes(2568).u32(0, 1).text(8, "dvs-1").u32(8 + 128, 3, 1000, 1001, 1002, 9000, 1003).u64(8 + 152, 1 << 63)
    double.answer("Ryn_Get_Switch_List", area=area)


SWITCHES = [
    {
        "name": "dvs-1",
        "swID": 3,
        "maxPorts": 1000,
        "numActivePorts": 1001,
        "numPorts": 1002,
        "mtu": 9000,
        "numLcores": 1003,
        "lcores": -1 << 63,
    }
]


def list_ports(double: Double) -> None:
    area = Bytes(11532).u32(4, 1)
    area.u32(12, 67108864, 5).u8(12 + 8, 1, 2).raw(12 + 10, bytes.fromhex("0200000a0bfc"))
    area.u16(12 + 16, 300).u32(12 + 18, 2).u8(12 + 26, 254).u8(12 + 58, 253, 252)
    double.answer("Ryn_Get_Port_List", area=area)


PORTS = [
    {
        "portID": 67108864,
        "rynPortID": 5,
        "numTxQ": 1,
        "numRxQ": 2,
        "hwAddr": "02:00:00:0a:0b:fc",
        "numMACs": 300,
        "clientType": "UPLINK",
        "txQLM": [254],
        "rxQLM": [253, 252],
    }
]


def port_stats(double: Double) -> None:
    double.answer("Ryn_Get_Port_Stats", area=u64(*range(1000, 1016)))
    double.answer("Ryn_Get_Port_Stats_Slowpath", area=u64(*range(2000, 2016)))


PORT_STATS = {
    **{name: 1000 + place for name, place in zip(PORT_COUNTERS, PORT_COUNTER_PLACES)},
    **{f"sp{name[0].upper()}{name[1:]}": 2000 + place for name, place in zip(PORT_COUNTERS, PORT_COUNTER_PLACES)},
}


def mac_table(op: str, size: int) -> Callable[[Double], None]:
    area = Bytes(size).u32(0, 1).u32(8, 16384, 777)
    area.raw(16, bytes.fromhex("021122aabbcc")).u16(16 + 6, 4094).u32(16 + 8, 500).u32(16 + 16, 600)
    return lambda double: double.answer(op, area=area)


MAC_ENTRIES = [{"macAddr": "02:11:22:aa:bb:cc", "vlanID": 4094, "rynPortID": 500, "macGenDiff": 600}]


def port_conf(double: Double) -> None:
    area = Bytes(1272).u32(0, 1000).u32(16, 1).u32(20, 0x11).u64(24, 1 << 63).raw(32, bytes.fromhex("021122aabbcc"))
    area.u16(38, 4000).u8(40, 1).u32(44, 5001).u32(48, 1).raw(52, bytes.fromhex("01005e000001")).u32(244, 3000)
    area.u16(248, 100, 200)
    double.answer("Ryn_Get_Port_Conf", area=area)


PORT_CONF = {
    "portID": 1000,
    "flags": "UNICAST PROMISC ",
    "ladrf": -1 << 63,
    "hwAddr": "02:11:22:aa:bb:cc",
    "untaggedVlanID": 4000,
    "forgedMACAllowed": 1,
    "numMcastAddrs": 1,
    "vni": 5001,
    "sampleRate": 3000,
    "mcastAddrList": ["01:00:5e:00:00:01"],
    "numTaggedVlanRanges": 1,
    "vlanRanges": ["100-200"],
}


def flow_page(double: Double) -> None:
    area = Bytes(10260).u32(8, 1000, 1, 20 + 304).u16(20 + 64 + 62, 240)
    double.answer("Ryn_Dump_Flow_Table", area=area)


FLOW_PAGE = {
    "startIndex": 1000,
    "list": [
        {
            "key": (
                "%s  %s  %-4u  %-7u" % ("00:00:00:00:00:00", "00:00:00:00:00:00", 0, 0)
                + 2 * ("  %-45s" % "0.0.0.0")
                + "  %-5u  %-7u  %-12u  %-12u" % (0, 0, 0, 0)
            ),
            "actions": "bmap:(nil) inval(s):0 cg:(nil) dp:- len:240; ",
            "stats": "Not Applicable",
        }
    ],
}


def flow_stats(double: Double) -> None:
    area = Bytes(1544).u32(0, 1).u32(8, 300, 1000).u64(16, (1 << 32) + 1001, 1002, 1003, 1004, 1005)
    double.answer("Ryn_Get_Flow_Stats", area=area)


FLOW_STATS = [
    {
        "lcoreID": 300,
        "numFlows": 1000,
        "hits": 1001,
        "miss": 1002,
        "fpoHits": 1003,
        "localHits": 1004,
        "keyInsertFailCount": 1005,
    }
]


def fpo_stats(double: Double) -> None:
    area = Bytes(1800).u32(0, 1).u32(8, 300).u64(16, (1 << 32) + 1001, 1002, 1003, 1004, 1005, 1006)
    double.answer("Ryn_Get_FPO_Stats", area=area)


FPO_STATS = [
    {
        "lcoreID": 300,
        "hits": 1001,
        "markMismatched": 1002,
        "pnicMismatched": 1003,
        "delayMarkMatching": 1004,
        "ephemeralFlows": 1005,
        "transientFlows": 1006,
    }
]


def fpo_uplink_status(double: Double) -> None:
    area = Bytes(40).u32(0, 3, 1001, 1002, 1003, 1004, 1005, 1006, 1007).u64(32, 1 << 63)
    double.answer("Ryn_Get_FPO_Uplink_Status", area=area)


FPO_UPLINK_STATUS = {
    "level": "Model 2",
    "numGroupSupported": 1001,
    "numPrioritySupported": 1002,
    "maxMarkActionBits": 1003,
    "maxFlowsSupported": 1004,
    "maxCountersSupported": 1005,
    "maxFlowKeyLengthInBits": 1006,
    "maxDecTTLActions": 1007,
    "actionsSupported": -1 << 63,
}


def mirror_conf(double: Double) -> None:
    area = Bytes(2048).u16(4, 1).u16(8 + 4, 300, 301, 302, 303, 0x000A, 1, 1, 1, 1)
    area.u64(8 + 24, 1).u64(8 + 48, 1 << 63).u64(8 + 56, 1 << 5).u16(8 + 72, 4094)
    double.answer("Ryn_Get_Mirror_Conf", area=area)


MIRROR_CONF = [
    {
        "noInput": 0,
        "noOutput": 1,
        "vlanEncap": 0,
        "OrigVlan": 1,
        "index": 300,
        "encapVlanID": 301,
        "samplingRate": 303,
        "snapLen": 302,
        "srcInPorts": [0],
        "srcOutPorts": [127],
        "dstPorts": [5],
        "vlans": [4094],
    }
]


def uplink_stats(double: Double) -> None:
    double.answer("Ryn_Get_Uplink_Priv_Stats_Len", area=u32(6))
    double.answer("Ryn_Get_Uplink_Priv_Stats", area=b"text\0\0")
    double.answer("Ryn_Get_Uplink_Stats", area=u64(*range(1000, 1024)))


def netq_info(double: Double) -> None:
    area = Bytes(524288).u32(0, 3, 5).u16(12, 1, 1)
    area.u16(16 + 4, 8, 1).raw(16 + 8, bytes.fromhex("021122aabbcc")).u32(32, 500, 501).u64(40, 1 << 63)
    double.answer("Ryn_Get_Port_NetQ_Info", area=area)


NETQ_INFO = {
    "isUplink": 1,
    "swID": 3,
    "rynPortID": 5,
    "filters": [{"rxf": "macOnly:02:11:22:aa:bb:cc", "qInfo": [{"rynPortID": 500, "qid": 501, "fid": -1 << 63}]}],
}


def dev_affinity(double: Double) -> None:
    double.answer("Ryn_List_Dev_Affinity", area=Bytes(1156).u32(0, 1).text(4, "lunic0").u32(36, 1000))


def weights(double: Double) -> None:
    double.answer("Ryn_GetLBWeights", area=u32(*range(1000, 1008)))


SNAPSHOT_AREA = Bytes(4096).u32(0, 1, 1).i32(8, -5).u64(13, 1, 1, 1 << 3, 0).u32(45, 2, 7, 0xAB, 1, 0, 9, 10, 11)
SNAPSHOT_TEXT = (
    "\nGroups\n[  0 load  -5] : [0-TX] [64-TX] [3-RX]\n\nVeticies and Edges\n"
    "[ 2 WID:         7 Num:  1 F:      ab] -> [to  : 9 EMA: 11 load: 10]\n"
    "[ 2 WID:         7 Num:  0 F:      ab] <-\n"
)


def lb_port_stats(double: Double) -> None:
    # Port 5 is on cores 0 and 1; core 0 was busy for 2 of 4 units of time and did work of 100 million.
    area = Bytes(9224).u32(8 + 5 * 48, 1000, 1001, 0, 1).u64(8 + 5 * 48 + 16, 10_000_000, 0, 40_000_000, 0)
    area.u64(6152, 3 << 20, 1 << 20, 5 << 20, 1 << 20, 100_000_000)
    double.answer("Ryn_Dump_LB_PortStats", area=area)


LB_PORT_STATS = ((1000,), (1001,), (0,), (1,), ((10, 0, 20, 0, 600, 0),), ((50, 1000), *63 * [(0, 0)]))


# Switches and their properties


def with_switch(script: Callable[[Double], None]) -> Callable[[Double], None]:
    def both(double: Double) -> None:
        double.add_switch("dvs-1", id="id-1", host={PORTSET: "portset-1"})
        script(double)

    return both


def with_property(value: bytes) -> Callable[[Double], None]:
    return with_switch(lambda double: double.answer("DVSQOB_HostPropGet", area=value))


def without_property(op: str) -> Callable[[Double], None]:
    """The property is not there, and the datapath fails too."""

    def script(double: Double) -> None:
        double.answer("DVSQOB_HostPropGet", status=MISSING)
        double.answer(op, status=0xBAD0007)

    return script


def unknown_alias(args: tuple, value: Any = None) -> Failure:
    text = f"Failed to find dvs ID for dvs alias {args[0]}.\n"
    return Failure("unknown alias", nothing, Outcome(value, text), args)


def wrong_class(args: tuple, value: Any = None) -> Failure:
    def script(double: Double) -> None:
        double.add_switch("dvs-2", class_name="vswitch-2")

    return Failure("wrong class", script, Outcome(value, f"Failed to find dvs ID for dvs alias {args[0]}.\n"), args)


def bad_property(name: str, area: bytes, text: str, value: Any = None) -> Failure:
    return Failure(name, lambda double: double.answer("DVSQOB_HostPropGet", area=area), Outcome(value, text))


def alias_failures(value: Any = None, *rest: Any) -> tuple[Failure, ...]:
    return unknown_alias(("dvs-9", *rest), value), wrong_class(("dvs-2", *rest), value)


def versioned(key: str, size: int, value: Any = None) -> tuple[Failure, ...]:
    unknown = f"Format of property {key} value is from unknown version.\n"
    odd = f"Property {key} value length is odd.\n"
    return (
        bad_property("unknown version", u32(1) + bytes(size - 4), unknown, value),
        bad_property("unknown version, other length", u32(1) + bytes(size), unknown, value),
        bad_property("too short", bytes(size - 1), odd, value),
        bad_property("too long", bytes(size + 1), odd, value),
    )


def property_read(key: str) -> list[Call]:
    return [Call("DVSQOB_HostPropGet", switchId="id-1", key=key), Call("DVSQOB_DataFree", isNull=0)]


def property_write(key: str, value: bytes) -> Call:
    return Call("DVSQOB_HostPropSet", switchId="id-1", key=key, value=value, length=len(value), option=16)


OPTIONS = u32(0, 2, 1000, 500, 600, 700)


METHODS = [
    Method(
        "ListSwitches",
        (),
        list_switches,
        SWITCHES,
        [Call("Ryn_Get_Switch_List", length=2568, zeroed=True)],
        failures=(
            failing("Ryn_Get_Switch_List"),
            Failure(
                "not UTF-8",
                lambda double: double.answer("Ryn_Get_Switch_List", area=Bytes(2568).u32(0, 1).u8(8, 0xFF)),
                Outcome(None, error=BUFFER),
            ),
        ),
        no_memory=[reports("Failed to allocate buffer.\n"), *BUILDS_KEYS],
    ),
    Method(
        "ListPorts",
        (3,),
        list_ports,
        PORTS,
        [Call("Ryn_Get_Port_List", swID=3, length=11532, zeroed=True)],
        failures=(failing("Ryn_Get_Port_List"),),
        no_memory=[reports("Failed to allocate port list.\n"), *BUILDS_KEYS],
    ),
    Method(
        "GetPortStats",
        (3, 5),
        port_stats,
        PORT_STATS,
        [
            Call("Ryn_Get_Port_Stats", swID=3, rynPortID=5, length=128, zeroed=True),
            Call("Ryn_Get_Port_Stats_Slowpath", swID=3, rynPortID=5, length=128, zeroed=True),
        ],
        failures=(
            failing("Ryn_Get_Port_Stats"),
            # The dict with the fast path's counters is lost: itself, its table of keys and 16 ints
            failing("Ryn_Get_Port_Stats_Slowpath", leaks=18),
        ),
        no_memory=[reports("Failed to allocate stats tuple.\n"), *BUILDS_KEYS],
    ),
    Method(
        "ListPortMACTable",
        (3, 0xFFFFFFFF),
        mac_table("Ryn_Dump_Port_MAC_Table", 327696),
        {"MacLimit": 16384, "LimitExceeded": 777, "MacTableList": MAC_ENTRIES},
        [Call("Ryn_Dump_Port_MAC_Table", swID=3, rynPortID=0xFFFFFFFF, length=327696, zeroed=True)],
        failures=(failing("Ryn_Dump_Port_MAC_Table"),),
        no_memory=[reports("Failed to allocate mac table.\n"), *BUILDS_KEYS],
    ),
    Method(
        "ClearPortMACTable",
        (3, 128),
        nothing,
        None,
        [Call("Ryn_Clear_Port_MAC_Table", swID=3, rynPortID=128)],
        failures=(failing("Ryn_Clear_Port_MAC_Table"),),
    ),
    # The VLAN argument's high half takes the place of the switch ID's low half, before anything is checked.
    Method(
        "AddMACEntry",
        (3, 128, 0x554433221102, 10),
        nothing,
        None,
        [Call("Ryn_MAC_Entry_Ops", swID=0, rynPortID=128, mac=b"\x02\x11\x22\x33\x44\x55", vlanID=10, operation=1)],
        refused=((0, 0, 0, 16 << 16), (1 << 16, 0, 0, 0)),
        failures=(failing("Ryn_MAC_Entry_Ops"),),
    ),
    Method(
        "DelMACEntry",
        (3, 128, 0x554433221102, (15 << 16) + 10),
        nothing,
        None,
        [Call("Ryn_MAC_Entry_Ops", swID=15, rynPortID=128, mac=b"\x02\x11\x22\x33\x44\x55", vlanID=10, operation=0)],
        refused=((0, 0, 0, 16 << 16), (1 << 16, 0, 0, 0)),
        failures=(failing("Ryn_MAC_Entry_Ops"),),
    ),
    Method(
        "ListSwitchMACTable",
        (3,),
        mac_table("Ryn_Dump_Switch_MAC_Table", 1310736),
        {"MacLimit": 16384, "MacTableList": MAC_ENTRIES},
        [Call("Ryn_Dump_Switch_MAC_Table", swID=3, length=1310736, zeroed=True)],
        failures=(failing("Ryn_Dump_Switch_MAC_Table"),),
        no_memory=[reports("Failed to allocate switch mac table.\n"), *BUILDS_KEYS],
    ),
    Method(
        "ClearSwitchMACTable",
        (3,),
        nothing,
        None,
        [Call("Ryn_Clear_Switch_MAC_Table", swID=3)],
        failures=(failing("Ryn_Clear_Switch_MAC_Table"),),
    ),
    Method(
        "GetFlowStats",
        (99, (1, 300), 7),
        flow_stats,
        FLOW_STATS,
        [Call("Ryn_Get_Flow_Stats", swID=99, lcores=[1, 300], lcoreCount=2, option=7, length=1544, zeroed=True)],
        refused=((0, [1], 0), (0, None, 0), (0, 65 * (1,), 0)),
        failures=(
            failing("Ryn_Get_Flow_Stats"),
            Failure("no tuple", nothing, Outcome(None, "TypeError: Invalid parameter passed.\n\n"), (99, [3], 0)),
        ),
        no_memory=[reports("Failed to allocate memory.\n"), *BUILDS_ITEMS],
    ),
    Method(
        "DumpFlowTable",
        (99, 3, 1000, 5),
        flow_page,
        FLOW_PAGE,
        [Call("Ryn_Dump_Flow_Table", swID=99, lcore=3, startIndex=1000, flag=1, length=10260, zeroed=True)],
        failures=(
            failing("Ryn_Dump_Flow_Table"),
            Failure(
                "too few valid bytes",
                lambda double: double.answer("Ryn_Dump_Flow_Table", area=u32(0, 0, 0, 1, 323)),
                Outcome(None, "Invalid response returned.\n"),
            ),
            Failure(
                "action line too long",  # 255 instances
                lambda double: double.answer(
                    "Ryn_Dump_Flow_Table",
                    area=Bytes(10260).u32(8, 0, 1, 10260).u32(20 + 64 + 56, 1 << 18).u8(20 + 64 + 256, 255),
                ),
                Outcome(None, "Invalid action\n"),
            ),
        ),
        no_memory=[reports("Failed to allocate memory.\n"), *BUILDS_KEYS],
    ),
    Method(
        "GetPortConf",
        (3, 5),
        port_conf,
        PORT_CONF,
        [Call("Ryn_Get_Port_Conf", swID=3, rynPortID=5, length=1272, zeroed=True)],
        failures=(failing("Ryn_Get_Port_Conf"),),
        no_memory=[reports("Failed to allocate memory.\n"), *BUILDS_KEYS],
    ),
    Method(
        "MigratePort",
        (3, 5, 1000, 1001, -1),
        nothing,
        None,
        [Call("Ryn_Migrate_Port", swID=3, rynPortID=5, option1=1000, option2=1001, option3=0xFFFFFFFF)],
        failures=(failing("Ryn_Migrate_Port"),),
    ),
    Method(
        "UnpinPort",
        (3, 5, 1000),
        nothing,
        None,
        [Call("Ryn_Unpin_Port", swID=3, rynPortID=5, option=1000)],
        failures=(failing("Ryn_Unpin_Port"),),
    ),
    Method(
        "ResetPort",
        (3, 5),
        nothing,
        None,
        [Call("Ryn_Reset_Port", swID=3, rynPortID=5)],
        failures=(failing("Ryn_Reset_Port"),),
    ),
    Method(
        "GetPortTxUplink",
        (3, 5),
        lambda double: double.answer("Ryn_Get_Port_Tx_Uplink", area=Bytes(18).u8(0, 2, 2).u16(2, 1000, 1001)),
        {"txType": "LAG", "txUplinks": [1000, 1001]},
        [Call("Ryn_Get_Port_Tx_Uplink", swID=3, rynPortID=5, length=18, zeroed=True)],
        failures=(failing("Ryn_Get_Port_Tx_Uplink"),),
        no_memory=[Outcome(None, error=NO_MEMORY), *BUILDS_ONE_VALUE],
        leaks=4,
    ),  # the list, its array and two ints
    Method(
        "SetPortTxUplink",
        (3, 5, {"txType": "SrcMAC", "txUplinks": [1000, -1]}),
        nothing,
        None,
        [
            Call(
                "Ryn_Set_Port_Tx_Uplink",
                swID=3,
                rynPortID=5,
                txType=3,
                count=2,
                uplinks=[1000, 0xFFFFFFFF, 0, 0, 0, 0, 0, 0],
            )
        ],
        failures=(
            failing("Ryn_Set_Port_Tx_Uplink"),
            Failure("no dict", nothing, Outcome(None, "Missing txType.\n"), (3, 5, [])),
            Failure("no type", nothing, Outcome(None, "Missing txType.\n"), (3, 5, {})),
            Failure(
                "a type that is no text",
                nothing,
                Outcome(None, "Missing txType.\n", (TypeError, ANY)),
                (3, 5, {"txType": 1}),
            ),
            Failure("unknown type", nothing, Outcome(None, "Invalid txType none.\n"), (3, 5, {"txType": "none"})),
            Failure("no uplinks", nothing, Outcome(None, "Missing txUplinks.\n"), (3, 5, {"txType": "None"})),
            Failure(
                "nine uplinks",
                nothing,
                Outcome(None, "Too many uplinks.\n"),
                (3, 5, {"txType": "None", "txUplinks": 9 * [0]}),
            ),
            Failure(
                "uplinks that are no list",
                nothing,
                Outcome(None, "Too many uplinks.\n", (SystemError, ANY)),
                (3, 5, {"txType": "None", "txUplinks": (0,)}),
            ),
        ),
    ),
    Method(
        "GetMirrorConf",
        (3,),
        mirror_conf,
        MIRROR_CONF,
        [Call("Ryn_Get_Mirror_Conf", swID=3, length=2048, zeroed=True)],
        failures=(
            failing("Ryn_Get_Mirror_Conf"),
            Failure(
                "65,535 VLANs of a session",
                lambda double: double.answer("Ryn_Get_Mirror_Conf", area=Bytes(2048).u16(4, 1).u16(8 + 20, 65535)),
                Outcome(None, "Invalid response returned.\n"),
            ),
        ),
        # A session, or one of its lists, that cannot be built is None in its place.
        no_memory=[
            Outcome(None, "Failed to allocate memory.\n", NO_MEMORY),
            Outcome([None], "Failed to allocate memory.\n", NO_MEMORY),
            Outcome([None], error=BUFFER),
            Outcome([None], error=DICT_ITEM),
            *[
                Outcome([{**MIRROR_CONF[0], key: None}], *report)
                for key in ("srcInPorts", "srcOutPorts", "dstPorts")
                for report in (("Failed to allocate memory\n", NO_MEMORY), ("", BUFFER))
            ],
            Outcome([{**MIRROR_CONF[0], "vlans": None}], "Failed to allocate memory.\n", NO_MEMORY),
            Outcome([{**MIRROR_CONF[0], "vlans": None}], error=BUFFER),
        ],
    ),
    Method(
        "GetUplinkStats",
        (3, 5),
        uplink_stats,
        {"uplinkStats": UPLINK_LIST, "privStats": "text"},
        [
            Call("Ryn_Get_Uplink_Priv_Stats_Len", swID=3, rynPortID=5, length=4, zeroed=True),
            Call("Ryn_Get_Uplink_Priv_Stats", swID=3, rynPortID=5, length=6, zeroed=True),
            Call("Ryn_Get_Uplink_Stats", swID=3, rynPortID=5, length=192, zeroed=True),
        ],
        failures=(
            failing("Ryn_Get_Uplink_Priv_Stats_Len", "", {"uplinkStats": UPLINK_LIST, "privStats": ""}, leaks=50),
            failing("Ryn_Get_Uplink_Priv_Stats"),
            failing("Ryn_Get_Uplink_Stats"),
            Failure(
                "not UTF-8",
                lambda double: double.answer("Ryn_Get_Uplink_Priv_Stats", area=b"\xff"),
                Outcome(NULL, error=(UnicodeDecodeError, ANY)),
                leaks=50,  # as many as a good call
            ),
        ),
        no_memory=[
            *[Outcome({"uplinkStats": None, "privStats": "text"}, text, NO_MEMORY) for text in NO_UPLINK_LIST],
            *BUILDS_ONE_VALUE,
        ],
        leaks=50,
    ),  # the list, its array, 24 tuples and 24 ints
    Method(
        "GetUplinkQueueStats",
        (3, 5, 9, 1000),
        lambda double: double.answer("Ryn_Get_Uplink_Queue_Stats", area=u64(*range(1000, 1024))),
        UPLINK_LIST,
        [Call("Ryn_Get_Uplink_Queue_Stats", swID=3, rynPortID=5, queue=1000, queueKind=1, length=192, zeroed=True)],
        failures=(failing("Ryn_Get_Uplink_Queue_Stats"),),
        no_memory=[reports(text) for text in NO_UPLINK_LIST],
    ),
    Method(
        "SetUplinkMACLearn",
        (3, 2),
        nothing,
        None,
        [Call("Ryn_Set_Uplink_MAC_Learn", swID=3, enable=1)],
        failures=(failing("Ryn_Set_Uplink_MAC_Learn"),),
    ),
    Method(
        "ClearSwitchFlowTable",
        (3,),
        nothing,
        None,
        [Call("Ryn_Clear_Switch_Flow_Table", swID=3)],
        failures=(failing("Ryn_Clear_Switch_Flow_Table"),),
    ),
    Method(
        "EnableSwitchFlowCache",
        (3, 1),
        nothing,
        None,
        [Call("Ryn_Enable_Switch_Flow_Cache", swID=3, enable=1)],
        failures=(
            failing("Ryn_Enable_Switch_Flow_Cache"),
            Failure(
                "disabling",
                fails("Ryn_Enable_Switch_Flow_Cache"),
                Outcome(None, "Failed to disable switch flow cache.\n"),
                (3, 0),
            ),
        ),
    ),
    Method(
        "GetPanicOnTxHang",
        (3,),
        lambda double: double.answer("Ryn_Get_Panic_On_Tx_Hang", area=u32(0xFFFFFFFE)),
        0xFFFFFFFE,
        [Call("Ryn_Get_Panic_On_Tx_Hang", swID=3, zeroed=True)],
        failures=(failing("Ryn_Get_Panic_On_Tx_Hang"),),
        no_memory=BUILDS_ONE_VALUE,
    ),
    Method(
        "SetPanicOnTxHang",
        (3, 1),
        nothing,
        None,
        [Call("Ryn_Set_Panic_On_Tx_Hang", swID=3, setting=1)],
        failures=(
            failing("Ryn_Set_Panic_On_Tx_Hang"),
            Failure(
                "disabling",
                fails("Ryn_Set_Panic_On_Tx_Hang"),
                Outcome(None, "Failed to disable panic on Tx hang.\n"),
                (3, 0),
            ),
        ),
    ),
    Method(
        "GetPortNetQInfo",
        (3, 5),
        netq_info,
        NETQ_INFO,
        [Call("Ryn_Get_Port_NetQ_Info", swID=3, rynPortID=5, length=524288, zeroed=True)],
        failures=(
            failing("Ryn_Get_Port_NetQ_Info"),
            Failure(
                "65,535 queues of a filter",
                lambda double: double.answer("Ryn_Get_Port_NetQ_Info", area=Bytes(24).u16(14, 1).u16(22, 65535)),
                Outcome(None, "Invalid response returned.\n"),
            ),
        ),
        no_memory=[reports("Failed to allocate NetQ Info resp.\n"), *BUILDS_KEYS],
    ),
    Method(
        "GetUplinkRingSize",
        ("any switch", "port-7"),
        lambda double: double.answer("DVSQOB_PortDataGet", area=u32(4096, 512)),
        (4096, 512),
        [
            Call("DVSQOB_PortDataGet", switchId="any switch", portId="port-7", key=UPLINK_RING),
            Call("DVSQOB_DataFree", isNull=0),
        ],
        failures=(
            failing("DVSQOB_PortDataGet"),
            Failure(
                "no property", lambda double: double.answer("DVSQOB_PortDataGet", status=MISSING), Outcome((2048, 1024))
            ),
            Failure(
                "wrong length",
                lambda double: double.answer("DVSQOB_PortDataGet", area=u32(1)),
                Outcome(None, "ValueError: Invalid property data length.\n"),
            ),
        ),
        no_memory=BUILDS_ONE_VALUE,
    ),
    Method(
        "SetUplinkRingSize",
        ("any switch", "port-7", 4096, 512),
        nothing,
        None,
        [
            Call(
                "DVSQOB_PortDataSet",
                switchId="any switch",
                portId="port-7",
                key=UPLINK_RING,
                value=u32(4096, 512),
                length=8,
                option=8,
            )
        ],
        failures=(
            failing("DVSQOB_PortDataSet"),
            Failure(
                "not aligned",
                nothing,
                Outcome(None, "ValueError: Ring size must be 32 aligned.\n"),
                ("any switch", "port-7", 4096, 1000),
            ),
        ),
    ),
    Method(
        "ListDevAffinity",
        (),
        dev_affinity,
        [{"devname": "lunic0", "affinity": 1000}],
        [Call("Ryn_List_Dev_Affinity", length=1156, zeroed=True)],
        failures=(
            failing("Ryn_List_Dev_Affinity"),
            Failure(
                "not UTF-8",
                lambda double: double.answer("Ryn_List_Dev_Affinity", area=Bytes(1156).u32(0, 1).u8(4, 0xFF)),
                Outcome(None, error=BUFFER),
            ),
        ),
        no_memory=[reports("Failed to allocate port list.\n"), *BUILDS_KEYS],
    ),
    Method(
        "SetDevAffinity",
        ("lunic0", -1),
        nothing,
        None,
        [Call("Ryn_Set_Dev_Affinity", device="lunic0", affinity=0xFFFFFFFF)],
        failures=(failing("Ryn_Set_Dev_Affinity"),),
    ),
    Method(
        "GetLBWeights",
        (),
        weights,
        [{"weightName": name, "weight": 1000 + i} for i, name in enumerate(WEIGHT_NAMES)],
        [Call("Ryn_GetLBWeights", zeroed=True)],
        failures=(failing("Ryn_GetLBWeights"),),
        no_memory=[reports("Failed to allocate tunable list.\n"), *BUILDS_KEYS],
    ),
    Method(
        "SetLBWeights",
        (5, -1, -1, -1, -1, -1, -1, 6),
        weights,
        None,
        [Call("Ryn_GetLBWeights", zeroed=True), Call("Ryn_SetLBWeights", weights=u32(5, *range(1001, 1007), 6))],
        failures=(failing("Ryn_GetLBWeights"), failing("Ryn_SetLBWeights")),
    ),
    Method(
        "ResetLBWeights", (), nothing, None, [Call("Ryn_ResetLBWeights")], failures=(failing("Ryn_ResetLBWeights"),)
    ),
    Method(
        "GetLBParams",
        ("dvs-1",),
        with_property(OPTIONS),
        (
            ("LCore usage threshold high", 1000),
            ("LCore usage threshold low", 500),
            ("LCore usage diff to pause balancing", 600),
            ("Traffic variation sensitivity", 700),
        ),
        property_read(LOADBAL),
        failures=(
            *alias_failures(),
            *versioned(LOADBAL, 24),
            Failure("Ryn_GetCurrentLBData", without_property("Ryn_GetCurrentLBData"), Outcome(None)),
        ),
        no_memory=[*BUILDS_ONE_VALUE, Outcome(ANY, error=NO_MEMORY)],
    ),  # what could be built
    Method(
        "SetLBParams",
        ("dvs-1", -1, 1000, 5, -1),
        with_property(OPTIONS),
        True,
        [*property_read(LOADBAL), property_write(LOADBAL, u32(0, 2, 1000, 1000, 5, 700))],
        failures=(
            *alias_failures(False, -1, -1, -1, -1),
            *versioned(LOADBAL, 24, False),
            Failure("Ryn_GetCurrentLBData", without_property("Ryn_GetCurrentLBData"), Outcome(False)),
            Failure("low above high", nothing, Outcome(False), ("dvs-1", -1, 1001, -1, -1)),
            failing("DVSQOB_HostPropSet"),
        ),
    ),
    Method(
        "DumpLBSnapshot",
        (3,),
        lambda double: double.answer("Ryn_DumpLBSnapshot", area=SNAPSHOT_AREA),
        SNAPSHOT_TEXT,
        [Call("Ryn_DumpLBSnapshot", swID=3, length=4096, zeroed=True)],
        failures=(failing("Ryn_DumpLBSnapshot", "ValueError: Failed to dump LB topology: 0xbad0007.\n"),),
        no_memory=BUILDS_ONE_VALUE,
    ),
    Method(
        "GetLBAlgorithm",
        ("dvs-1",),
        with_property(OPTIONS),
        "count",
        property_read(LOADBAL),
        failures=(
            *alias_failures(),
            *versioned(LOADBAL, 24),
            Failure("Ryn_GetCurrentLBData", without_property("Ryn_GetCurrentLBData"), Outcome(None)),
        ),
        no_memory=BUILDS_ONE_VALUE,
    ),
    Method(
        "SetLBAlgorithm",
        ("dvs-1", "cpu"),
        with_property(OPTIONS),
        True,
        [*property_read(LOADBAL), property_write(LOADBAL, u32(0, 1, 1000, 500, 600, 700))],
        failures=(
            *alias_failures(False, "CPU"),
            *versioned(LOADBAL, 24, False),
            Failure("Ryn_GetCurrentLBData", without_property("Ryn_GetCurrentLBData"), Outcome(False)),
            Failure("unknown name", nothing, Outcome(False, "Invalid metric name CPU.\n"), ("dvs-1", "CPU")),
            failing("DVSQOB_HostPropSet"),
        ),
    ),
    Method(
        "GetSwitchNUMATeam",
        ("dvs-1",),
        with_property(u32(0) + u8(255)),
        True,
        property_read(TEAMING),
        failures=(
            *alias_failures(),
            *versioned(TEAMING, 5),
            Failure("Ryn_GetSwitchNUMATeam", without_property("Ryn_GetSwitchNUMATeam"), Outcome(None)),
        ),
    ),
    Method(
        "SetSwitchNUMATeam",
        ("dvs-1", 257),
        with_switch(nothing),
        None,
        [property_write(TEAMING, u32(0) + u8(1))],
        failures=(*alias_failures(None, 1), failing("DVSQOB_HostPropSet")),
    ),
    Method(
        "GetSwitchBurstSize",
        ("dvs-1",),
        with_property(u32(0, 0xFFFFFFFE)),
        0xFFFFFFFE,
        property_read(BURSTSIZE),
        failures=(
            *alias_failures(),
            *versioned(BURSTSIZE, 8),
            Failure("Ryn_GetSwitchBurstSize", without_property("Ryn_GetSwitchBurstSize"), Outcome(None)),
        ),
        no_memory=BUILDS_ONE_VALUE,
    ),
    Method(
        "SetSwitchBurstSize",
        ("dvs-1", -1),
        with_switch(nothing),
        None,
        [property_write(BURSTSIZE, u32(0, 0xFFFFFFFF))],
        failures=(*alias_failures(None, 1), failing("DVSQOB_HostPropSet")),
    ),
    Method(
        "DumpLBPortStats",
        (3, 5, 5),
        lb_port_stats,
        LB_PORT_STATS,
        [Call("Ryn_Dump_LB_PortStats", swID=3, length=9224, zeroed=True)],
        refused=((3, 7, 5),),
        failures=(failing("Ryn_Dump_LB_PortStats"),),
        no_memory=[Outcome(None, error=NO_MEMORY)],
    ),
    Method(
        "GetPortLRO",
        (3, 5),
        lambda double: double.answer("Ryn_GetLRO", area=u32(1 << 31)),
        True,
        [Call("Ryn_GetLRO", scope=0, swID=3, rynPortID=5, zeroed=True)],
        failures=(failing("Ryn_GetLRO"),),
    ),
    Method(
        "SetPortLRO",
        (3, 5, 7),
        nothing,
        None,
        [Call("Ryn_SetLRO", scope=0, swID=3, rynPortID=5, state=7)],
        failures=(failing("Ryn_SetLRO"),),
    ),
    Method(
        "GetSwitchLRO",
        (3,),
        nothing,
        False,
        [Call("Ryn_GetLRO", scope=1, swID=3, rynPortID=0, zeroed=True)],
        failures=(failing("Ryn_GetLRO"),),
    ),
    Method(
        "SetSwitchLRO",
        (3, 7),
        nothing,
        None,
        [Call("Ryn_SetLRO", scope=1, swID=3, rynPortID=0, state=7)],
        failures=(failing("Ryn_SetLRO"),),
    ),
    Method(
        "GetFPOEnabled",
        ("dvs-1",),
        with_property(u32(0xFFFFFFFE)),
        0xFFFFFFFE,
        property_read(FPO),
        failures=(
            *alias_failures(),
            failing("DVSQOB_HostPropGet"),
            Failure("no property", lambda double: double.answer("DVSQOB_HostPropGet", status=MISSING), Outcome(1)),
            bad_property("too long", bytes(8), f"Format of property {FPO} is invalid\n"),
            bad_property("too short", bytes(3), f"Format of property {FPO} is invalid\n"),
        ),
        no_memory=BUILDS_ONE_VALUE,
    ),
    Method(
        "EnableFPO",
        ("dvs-1", 7),
        with_switch(nothing),
        True,
        [property_write(FPO, u32(7))],
        failures=(*alias_failures(False, 1), failing("DVSQOB_HostPropSet")),
    ),  # True: only the message tells
    Method(
        "GetFPOStats",
        (99, (1, 300)),
        fpo_stats,
        FPO_STATS,
        [Call("Ryn_Get_FPO_Stats", swID=99, lcores=[1, 300], lcoreCount=2, length=1800, zeroed=True)],
        refused=((0, [1]), (0, None), (0, 65 * (1,))),
        failures=(
            failing("Ryn_Get_FPO_Stats"),
            Failure("65 cores", nothing, Outcome(None, "TypeError: Invalid parameter passed.\n\n"), (99, 65 * (0,))),
        ),
        no_memory=[reports("Failed to allocate memory.\n"), *BUILDS_ITEMS],
    ),
    Method(
        "GetFPOUplinkStatus",
        (3, 5),
        fpo_uplink_status,
        FPO_UPLINK_STATUS,
        [Call("Ryn_Get_FPO_Uplink_Status", swID=3, rynPortID=5, length=40, zeroed=True)],
        failures=(failing("Ryn_Get_FPO_Uplink_Status"),),
        no_memory=BUILDS_ONE_VALUE,
    ),
    Method(
        "GetFlowTimeout",
        (),
        lambda double: double.answer("Ryn_Get_Flow_Timeout", area=u32(0xFFFFFFFE)),
        0xFFFFFFFE,
        [Call("Ryn_Get_Flow_Timeout", zeroed=True)],
        failures=(failing("Ryn_Get_Flow_Timeout"),),
        no_memory=BUILDS_ONE_VALUE,
    ),
    Method(
        "SetFlowTimeout",
        (-2,),
        nothing,
        None,
        [Call("Ryn_Set_Flow_Timeout", seconds=0xFFFFFFFE)],
        failures=(failing("Ryn_Set_Flow_Timeout"),),
    ),
    Method(
        "ListLCoreIDs",
        (99,),
        lambda double: double.answer("Ryn_Get_LCore_ID_Bitmap", area=u64((1 << 64) - 1)),
        tuple(range(64)),
        [Call("Ryn_Get_LCore_ID_Bitmap", swID=99, zeroed=True)],
        # Goes on after its message, with whatever the bitmap holds
        failures=(
            Failure(
                "Ryn_Get_LCore_ID_Bitmap",
                lambda double: double.answer("Ryn_Get_LCore_ID_Bitmap", status=1, area=u64(0)),
                Outcome((), "TypeError: Failed to get lcore ID bitmap.\n\n"),
            ),
        ),
        no_memory=BUILDS_ONE_VALUE,
    ),
    Method(
        "InitMbufFastslabs",
        (),
        lambda double: double.add_switch("dvs-1", global_={OPAQUE_DVS: "poll"}),
        True,
        [Call("Ryn_Init_Mbuf_Fastslabs")],
        failures=(failing("Ryn_Init_Mbuf_Fastslabs"), Failure("no such switch", Double.reset, Outcome(None))),
    ),
]
