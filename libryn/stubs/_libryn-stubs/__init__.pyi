"""Types of the module `_libryn`, for editors and type checkers.

Switches are numbered 0 to 15 (swID), ports of a switch 0 to 127 (rynPortID); other numbers are refused where nothing
else is said. `None` in place of a result means failure: the reason is on standard error, nothing is raised, but for
wrong arguments, whose TypeError the interpreter reports as the cause of a SystemError. 64-bit counters come out signed
where nothing else is said.
"""

from typing import Literal, Optional, TypedDict

class Switch(TypedDict):
    name: str
    swID: int
    maxPorts: int
    numActivePorts: int
    numPorts: int
    mtu: int  # bytes
    numLcores: int
    lcores: int  # as the datapath reports it

class Port(TypedDict):
    portID: int  # of the distributed port
    rynPortID: int
    numTxQ: int
    numRxQ: int
    hwAddr: str  # "02:00:00:0a:0b:fc"
    numMACs: int
    clientType: Literal["VNIC", "UPLINK", "GENERIC", "QOBNIC", "UNKNOWN"]
    txQLM: list[int]  # one value a queue
    rxQLM: list[int]

class PortStats(TypedDict):
    txPkts: int
    txBytes: int
    txMcastPkts: int
    txMcastBytes: int
    txBcastPkts: int
    txBcastBytes: int
    txDrops: int
    txErrors: int
    rxPkts: int
    rxBytes: int
    rxMcastPkts: int
    rxMcastBytes: int
    rxBcastPkts: int
    rxBcastBytes: int
    rxDrops: int
    rxErrors: int
    spTxPkts: int  # the same of the slow path
    spTxBytes: int
    spTxMcastPkts: int
    spTxMcastBytes: int
    spTxBcastPkts: int
    spTxBcastBytes: int
    spTxDrops: int
    spTxErrors: int
    spRxPkts: int
    spRxBytes: int
    spRxMcastPkts: int
    spRxMcastBytes: int
    spRxBcastPkts: int
    spRxBcastBytes: int
    spRxDrops: int
    spRxErrors: int

class _PortConf(TypedDict):
    portID: int
    flags: str  # words, each with a blank behind it: "UNICAST PROMISC "
    ladrf: int  # signed
    hwAddr: str
    untaggedVlanID: int
    forgedMACAllowed: int
    numMcastAddrs: int
    vni: int
    sampleRate: int
    numTaggedVlanRanges: int

class PortConf(_PortConf, total=False):
    mcastAddrList: list[str]  # only when numMcastAddrs is not 0
    vlanRanges: list[str]  # "100-200"; only when numTaggedVlanRanges is not 0

class MacEntry(TypedDict):
    macAddr: str
    vlanID: int
    rynPortID: int
    macGenDiff: int

class SwitchMacTable(TypedDict):
    MacLimit: int
    MacTableList: list[MacEntry]

class PortMacTable(SwitchMacTable):
    LimitExceeded: int

class FlowStats(TypedDict):  # counters modulo 2**32
    lcoreID: int
    numFlows: int
    hits: int
    miss: int
    fpoHits: int
    localHits: int
    keyInsertFailCount: int

class Flow(TypedDict):
    key: str
    actions: str
    stats: str

class FlowPage(TypedDict):
    startIndex: int
    list: list[Flow]

class FPOStats(TypedDict):  # counters modulo 2**32
    lcoreID: int
    hits: int
    markMismatched: int
    pnicMismatched: int
    delayMarkMatching: int
    ephemeralFlows: int
    transientFlows: int

class FPOUplinkStatus(TypedDict):
    level: Literal["Not Supported", "Model 1 Level 1", "Model 1 Level 2", "Model 2"]
    numGroupSupported: int
    numPrioritySupported: int
    maxMarkActionBits: int
    maxFlowsSupported: int
    maxCountersSupported: int
    maxFlowKeyLengthInBits: int
    maxDecTTLActions: int
    actionsSupported: int  # a set of bits, signed

class TxUplink(TypedDict):
    txType: Literal["None", "Single", "LAG", "SrcMAC", "All", "NoTeaming", "Unknown"]
    txUplinks: list[int]

class MirrorSession(TypedDict):
    noInput: int  # 0 or 1, as the next three
    noOutput: int
    vlanEncap: int
    OrigVlan: int
    index: int
    encapVlanID: int
    samplingRate: int
    snapLen: int  # bytes of each frame
    srcInPorts: Optional[list[Optional[int]]]
    srcOutPorts: Optional[list[Optional[int]]]
    dstPorts: Optional[list[Optional[int]]]
    vlans: Optional[list[int]]

class UplinkStats(TypedDict):
    uplinkStats: Optional[list[tuple[str, int]]]  # 24 pairs
    privStats: str

class NetQQueue(TypedDict):
    rynPortID: int
    qid: int
    fid: int  # signed

class NetQFilter(TypedDict):
    rxf: str
    qInfo: list[NetQQueue]

class PortNetQInfo(TypedDict):
    isUplink: int
    swID: int
    rynPortID: int
    filters: list[NetQFilter]

class DeviceAffinity(TypedDict):
    devname: str
    affinity: int

class LBWeight(TypedDict):
    weightName: str
    weight: int

_Named = tuple[str, int]
_Ints = tuple[int, ...]

# Switches and ports. Methods that take *ignored do not read their arguments.
def ListSwitches(*ignored: object) -> Optional[list[Switch]]: ...
def ListPorts(swID: int, /) -> Optional[list[Port]]: ...
def GetPortStats(swID: int, rynPortID: int, /) -> Optional[PortStats]: ...
def GetPortConf(swID: int, rynPortID: int, /) -> Optional[PortConf]: ...
def MigratePort(swID: int, rynPortID: int, option1: int, option2: int, option3: int, /) -> None: ...
def UnpinPort(swID: int, rynPortID: int, option: int, /) -> None: ...
def ResetPort(swID: int, rynPortID: int, /) -> None: ...
def GetPortLRO(swID: int, rynPortID: int, /) -> Optional[bool]: ...
def SetPortLRO(swID: int, rynPortID: int, state: int, /) -> None: ...
def GetSwitchLRO(swID: int, /) -> Optional[bool]: ...
def SetSwitchLRO(swID: int, state: int, /) -> None: ...

# MAC tables. The port is not checked. An entry lands on switch (swID & 0xFFFF0000) + (vlanID >> 16), so on switch 0 in
# an ordinary call; mac is an int whose lowest byte is the first of the address.
def ListPortMACTable(swID: int, rynPortID: int, /) -> Optional[PortMacTable]: ...
def ClearPortMACTable(swID: int, rynPortID: int, /) -> None: ...
def AddMACEntry(swID: int, rynPortID: int, mac: int, vlanID: int, /) -> None: ...
def DelMACEntry(swID: int, rynPortID: int, mac: int, vlanID: int, /) -> None: ...
def ListSwitchMACTable(swID: int, /) -> Optional[SwitchMacTable]: ...
def ClearSwitchMACTable(swID: int, /) -> None: ...

# The flow cache. At most 64 lcores; lcore of a dump 0 to 31; the switch is not checked where lcores are named.
def GetFlowStats(swID: int, lcores: _Ints, option: int, /) -> Optional[list[FlowStats]]: ...
def DumpFlowTable(swID: int, lcore: int, startIndex: int, flag: int, /) -> Optional[FlowPage]: ...
def ClearSwitchFlowTable(swID: int, /) -> None: ...
def EnableSwitchFlowCache(swID: int, enable: int, /) -> None: ...
def GetFlowTimeout(*ignored: object) -> Optional[int]: ...
def SetFlowTimeout(seconds: int, /) -> None: ...
def GetFPOEnabled(alias: str, /) -> Optional[int]: ...
def EnableFPO(alias: str, value: int, /) -> bool: ...  # True also when the value could not be stored
def GetFPOStats(swID: int, lcores: _Ints, /) -> Optional[list[FPOStats]]: ...
def GetFPOUplinkStatus(swID: int, rynPortID: int, /) -> Optional[FPOUplinkStatus]: ...

# Uplinks. GetPortTxUplink and GetUplinkStats each leak one list a call.
def GetPortTxUplink(swID: int, rynPortID: int, /) -> Optional[TxUplink]: ...
def SetPortTxUplink(swID: int, rynPortID: int, policy: TxUplink, /) -> None: ...
def GetMirrorConf(swID: int, /) -> Optional[list[Optional[MirrorSession]]]: ...
def GetUplinkStats(swID: int, rynPortID: int, /) -> Optional[UplinkStats]: ...  # SystemError when the datapath fails
def GetUplinkQueueStats(swID: int, rynPortID: int, queueKind: int, queue: int, /) -> Optional[list[_Named]]: ...
def SetUplinkMACLearn(swID: int, enable: int, /) -> None: ...
def GetPanicOnTxHang(swID: int, /) -> Optional[int]: ...
def SetPanicOnTxHang(swID: int, setting: int, /) -> None: ...
def GetPortNetQInfo(swID: int, rynPortID: int, /) -> Optional[PortNetQInfo]: ...
def GetUplinkRingSize(switchId: str, portId: str, /) -> Optional[tuple[int, int]]: ...  # tx, rx
def SetUplinkRingSize(switchId: str, portId: str, tx: int, rx: int, /) -> None: ...  # multiples of 32
def ListDevAffinity(*ignored: object) -> Optional[list[DeviceAffinity]]: ...
def SetDevAffinity(device: str, affinity: int, /) -> None: ...

# The load balancer and other tunables. -1 keeps a weight or a threshold as it is.
def GetLBWeights(*ignored: object) -> Optional[list[LBWeight]]: ...
def SetLBWeights(
    crossNumaCommunication: int,
    crossNumaMigration: int,
    crossLcoreCommunication: int,
    crossLcoreMigration: int,
    vmAffinity: int,
    deviceAffinity: int,
    stabilityDecay: int,
    portCount: int,
    /,
) -> None: ...
def ResetLBWeights(*ignored: object) -> None: ...
def GetLBParams(alias: str, /) -> Optional[tuple[_Named, _Named, _Named, _Named]]: ...
def SetLBParams(alias: str, high: int, low: int, pause: int, sensitivity: int, /) -> bool: ...
def GetLBAlgorithm(alias: str, /) -> Optional[Literal["none", "cpu", "count", "invalid"]]: ...
def SetLBAlgorithm(alias: str, metric: str, /) -> bool: ...
def DumpLBSnapshot(swID: int, /) -> Optional[str]: ...
def DumpLBPortStats(
    swID: int, firstPort: int, lastPort: int, /
) -> Optional[tuple[_Ints, _Ints, _Ints, _Ints, tuple[_Ints, ...], tuple[tuple[int, int], ...]]]: ...
def GetSwitchNUMATeam(alias: str, /) -> Optional[bool]: ...
def SetSwitchNUMATeam(alias: str, setting: int, /) -> None: ...  # the low 8 bits count
def GetSwitchBurstSize(alias: str, /) -> Optional[int]: ...
def SetSwitchBurstSize(alias: str, packets: int, /) -> None: ...
def ListLCoreIDs(swID: int, /) -> Optional[_Ints]: ...
def InitMbufFastslabs(*ignored: object) -> Optional[bool]: ...  # None: no switch is served by the datapath
