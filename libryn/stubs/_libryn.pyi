"""Types of the module `_libryn`, for editors and type checkers; docs/methods.md says more.

Made from libryn/reference by ./dev docs. The names with an underscore exist for type checkers only.

Switches are numbered 0 to 15 (swID), ports of a switch 0 to 127 (rynPortID). `None` in place of a result means failure:
the reason is on standard error. Arguments that are refused, and a few failures, raise a SystemError.
"""

from typing import Literal, Optional, TypedDict

class _Switch(TypedDict):
    name: str  # its portset name
    swID: int  # its number, 0 to 15, which most other methods take
    maxPorts: int  # how many ports it can have
    numActivePorts: int  # how many of its ports are active
    numPorts: int  # how many ports it has
    mtu: int  # the largest frame, in bytes
    numLcores: int  # how many cores serve it
    lcores: int  # its cores, as the datapath reports them

class _Port(TypedDict):
    portID: int  # the number of the distributed port
    rynPortID: int  # the port's number in its switch, 0 to 127
    numTxQ: int  # transmit queues
    numRxQ: int  # receive queues
    hwAddr: str  # a MAC address: `02:00:00:0a:0b:fc`
    numMACs: int  # MAC addresses on the port
    clientType: Literal["VNIC", "UPLINK", "GENERIC", "QOBNIC", "UNKNOWN"]  # what is connected
    txQLM: list[int]  # a value for each transmit queue
    rxQLM: list[int]  # a value for each receive queue

class _PortStats(TypedDict):
    txPkts: int  # packets on transmission, fast path
    txBytes: int  # bytes on transmission, fast path
    txMcastPkts: int  # multicast packets on transmission, fast path
    txMcastBytes: int  # multicast bytes on transmission, fast path
    txBcastPkts: int  # broadcast packets on transmission, fast path
    txBcastBytes: int  # broadcast bytes on transmission, fast path
    txDrops: int  # packets dropped on transmission, fast path
    txErrors: int  # packets with errors on transmission, fast path
    rxPkts: int  # packets on reception, fast path
    rxBytes: int  # bytes on reception, fast path
    rxMcastPkts: int  # multicast packets on reception, fast path
    rxMcastBytes: int  # multicast bytes on reception, fast path
    rxBcastPkts: int  # broadcast packets on reception, fast path
    rxBcastBytes: int  # broadcast bytes on reception, fast path
    rxDrops: int  # packets dropped on reception, fast path
    rxErrors: int  # packets with errors on reception, fast path
    spTxPkts: int  # packets on transmission, slow path
    spTxBytes: int  # bytes on transmission, slow path
    spTxMcastPkts: int  # multicast packets on transmission, slow path
    spTxMcastBytes: int  # multicast bytes on transmission, slow path
    spTxBcastPkts: int  # broadcast packets on transmission, slow path
    spTxBcastBytes: int  # broadcast bytes on transmission, slow path
    spTxDrops: int  # packets dropped on transmission, slow path
    spTxErrors: int  # packets with errors on transmission, slow path
    spRxPkts: int  # packets on reception, slow path
    spRxBytes: int  # bytes on reception, slow path
    spRxMcastPkts: int  # multicast packets on reception, slow path
    spRxMcastBytes: int  # multicast bytes on reception, slow path
    spRxBcastPkts: int  # broadcast packets on reception, slow path
    spRxBcastBytes: int  # broadcast bytes on reception, slow path
    spRxDrops: int  # packets dropped on reception, slow path
    spRxErrors: int  # packets with errors on reception, slow path

class _PortConfAlways(TypedDict):
    portID: int  # the port, as the datapath reports it
    flags: str  # receive filter: words, each followed by a blank: `UNICAST PROMISC `
    ladrf: int  # multicast hash filter
    hwAddr: str  # a MAC address: `02:00:00:0a:0b:fc`
    untaggedVlanID: int  # VLAN of untagged frames
    forgedMACAllowed: int  # 1: frames with foreign source addresses may be sent
    numMcastAddrs: int  # multicast addresses
    vni: int  # overlay network
    sampleRate: int  # sampling rate
    numTaggedVlanRanges: int  # ranges of tagged VLANs

class _PortConf(_PortConfAlways, total=False):
    mcastAddrList: list[str]  # the multicast addresses; not there when there are none
    vlanRanges: list[str]  # the ranges, `100-200`; not there when there are none

class _MacEntry(TypedDict):
    macAddr: str  # a MAC address: `02:00:00:0a:0b:fc`
    vlanID: int  # its VLAN
    rynPortID: int  # the port on which it was learned
    macGenDiff: int  # its age in generations

class _PortMacTable(TypedDict):
    MacLimit: int  # how many entries the table may hold
    LimitExceeded: int  # whether the limit was exceeded
    MacTableList: list[_MacEntry]  # the entries

class _SwitchMacTable(TypedDict):
    MacLimit: int  # how many entries the table may hold
    MacTableList: list[_MacEntry]  # the entries

class _FlowStats(TypedDict):
    lcoreID: int  # the core's number
    numFlows: int  # flows in the cache
    hits: int  # packets whose flow was in it
    miss: int  # packets whose flow was not
    fpoHits: int  # hits served by offload
    localHits: int  # local hits
    keyInsertFailCount: int  # flows that could not be put in

class _Flow(TypedDict):
    key: str  # MAC addresses, two numbers, IP addresses, protocol, ports, four numbers
    actions: str  # what is done with its packets: words, each followed by `; `
    stats: str  # packets and bytes, or `Not Applicable`

class _FlowPage(TypedDict):
    startIndex: int  # the datapath's index; on the simulated host where the next page begins
    list: list[_Flow]  # the flows

class _FPOStats(TypedDict):
    lcoreID: int  # the core's number
    hits: int  # hits
    markMismatched: int  # marks that did not match
    pnicMismatched: int  # packets from another NIC than the flow's
    delayMarkMatching: int  # marks matched late
    ephemeralFlows: int  # ephemeral flows
    transientFlows: int  # transient flows

class _FPOUplinkStatus(TypedDict):
    level: Literal["Not Supported", "Model 1 Level 1", "Model 1 Level 2", "Model 2"]  # offload model
    numGroupSupported: int  # groups
    numPrioritySupported: int  # priorities
    maxMarkActionBits: int  # bits of a mark
    maxFlowsSupported: int  # flows
    maxCountersSupported: int  # counters
    maxFlowKeyLengthInBits: int  # bits of a flow's key
    maxDecTTLActions: int  # actions that decrement the TTL
    actionsSupported: int  # a set of bits, one for each action

class _TxUplink(TypedDict):
    txType: Literal["None", "Single", "LAG", "SrcMAC", "All", "NoTeaming", "Unknown"]  # teaming type
    txUplinks: list[int]  # port numbers of the uplinks

class _TxPolicy(TypedDict):
    txType: Literal["None", "Single", "LAG", "SrcMAC", "All", "NoTeaming"]  # teaming type, exactly as written here
    txUplinks: list[int]  # port numbers of the uplinks, at most 8

class _MirrorSession(TypedDict):
    noInput: int  # 1: destination ports take nothing in
    noOutput: int  # 1: nothing is sent to the destination ports
    vlanEncap: int  # 1: mirrored frames carry the encapsulation VLAN
    OrigVlan: int  # 1: the original VLAN is kept
    index: int  # the session's number
    encapVlanID: int  # VLAN of mirrored frames
    samplingRate: int  # sampling rate
    snapLen: int  # bytes kept of each frame
    srcInPorts: Optional[list[Optional[int]]]  # ports whose incoming frames are mirrored, ascending
    srcOutPorts: Optional[list[Optional[int]]]  # ports whose outgoing frames are mirrored, ascending
    dstPorts: Optional[list[Optional[int]]]  # ports to which frames are mirrored, ascending
    vlans: Optional[list[int]]  # VLANs that are mirrored

_UplinkCounter = tuple[
    Literal[
        "rxPkts", "txPkts", "rxBytes", "txBytes", "rxErrors", "txErrors", "rxDrops", "txDrops",
        "rxMulticastPkts", "rxBroadcastPkts", "txMulticastPkts", "txBroadcastPkts", "collisions",
        "rxLengthErrors", "rxOverflowErrors", "rxCRCErrors", "rxFrameAlignErrors", "rxFifoErrors",
        "rxMissErrors", "txAbortedErrors", "txCarrierErrors", "txFifoErrors", "txHeartbeatErrors",
        "txWindowErrors",
    ],
    int,
]

class _UplinkStats(TypedDict):
    uplinkStats: Optional[list[_UplinkCounter]]  # the uplink's counters
    privStats: str  # statistics of the NIC's driver, as it words them; empty where it has none

class _NetQQueue(TypedDict):
    rynPortID: int  # the port that owns it
    qid: int  # its number
    fid: int  # the flow that is bound to it

class _NetQFilter(TypedDict):
    rxf: str  # `macOnly:MAC`, `geneve:outer:MAC:inner:MAC:vni:NUMBER` or `UnknownFilter`
    qInfo: list[_NetQQueue]  # the queues that serve it

class _PortNetQInfo(TypedDict):
    isUplink: int  # not 0: the port is an uplink
    swID: int  # the switch's number
    rynPortID: int  # the port's number in its switch, 0 to 127
    filters: list[_NetQFilter]  # the receive filters

_RingSize = tuple[
    int,  # tx: transmit ring, in descriptors
    int,  # rx: receive ring, in descriptors
]

class _DeviceAffinity(TypedDict):
    devname: str  # the NIC's name: `lunic0`
    affinity: int  # its affinity

class _LBWeight(TypedDict):
    # its name
    weightName: Literal[
        "Cross-NUMA Communication Weight",
        "Cross-NUMA Migration Weight",
        "Cross-Lcore Communication Weight",
        "Cross-Lcore Migration Weight",
        "VM Affinity Weight",
        "Device Affinity Weight",
        "Stability Decay Rate",
        "Port Count Weight",
    ]
    weight: int  # its value

_LBParams = tuple[
    tuple[Literal["LCore usage threshold high"], int],
    tuple[Literal["LCore usage threshold low"], int],
    tuple[Literal["LCore usage diff to pause balancing"], int],
    tuple[Literal["Traffic variation sensitivity"], int],
]

_LBPortLoad = tuple[
    int,  # usage0: share of core A that counter 0 took, in percent, doubled as the balancer does
    int,  # usage1: the same of core B and counter 1
    int,  # usage2: share of core A that counter 2 took, in percent
    int,  # usage3: the same of core B and counter 3
    int,  # totalA: work on core A, in units of 100,000, rounded up
    int,  # totalB: work on core B, in units of 100,000, rounded up
]

_LBCoreLoad = tuple[
    int,  # usage: busy share of the last period, in percent
    int,  # load: work in units of 100,000, rounded up
]

_LBPortStats = tuple[
    tuple[int, ...],  # word0: first word of each port; by position: item 0 is the first port asked for
    tuple[int, ...],  # word1: second word of each port, by position
    tuple[int, ...],  # coreA: number of each port's core A, by position
    tuple[int, ...],  # coreB: number of each port's core B, by position
    tuple[_LBPortLoad, ...],  # loads: each port's load, by position
    tuple[_LBCoreLoad, ...],  # cores: each core's load; 64 items, the index is the core's number
]

# Find switches, ports and cores
def ListSwitches(*ignored: object) -> Optional[list[_Switch]]: ...
def ListPorts(swID: int, /) -> Optional[list[_Port]]: ...
def ListLCoreIDs(swID: int, /) -> Optional[tuple[int, ...]]: ...

# Read counters
def GetPortStats(swID: int, rynPortID: int, /) -> Optional[_PortStats]: ...
def GetFlowStats(swID: int, lcores: tuple[int, ...], option: int, /) -> Optional[list[_FlowStats]]: ...
def GetUplinkStats(swID: int, rynPortID: int, /) -> Optional[_UplinkStats]: ...
def GetUplinkQueueStats(swID: int, rynPortID: int, queueKind: int, queue: int, /) -> Optional[list[_UplinkCounter]]: ...

# Configure and place ports
def GetPortConf(swID: int, rynPortID: int, /) -> Optional[_PortConf]: ...
def MigratePort(swID: int, rynPortID: int, option1: int, option2: int, option3: int, /) -> None: ...
def UnpinPort(swID: int, rynPortID: int, option: int, /) -> None: ...
def ResetPort(swID: int, rynPortID: int, /) -> None: ...
def GetPortLRO(swID: int, rynPortID: int, /) -> Optional[bool]: ...
def SetPortLRO(swID: int, rynPortID: int, state: int, /) -> None: ...

# Look at and edit MAC tables
def ListPortMACTable(swID: int, rynPortID: int, /) -> Optional[_PortMacTable]: ...
def ClearPortMACTable(swID: int, rynPortID: int, /) -> None: ...
def AddMACEntry(swID: int, rynPortID: int, mac: int, vlanID: int, /) -> None: ...
def DelMACEntry(swID: int, rynPortID: int, mac: int, vlanID: int, /) -> None: ...
def ListSwitchMACTable(swID: int, /) -> Optional[_SwitchMacTable]: ...
def ClearSwitchMACTable(swID: int, /) -> None: ...

# Watch and control the flow cache
def DumpFlowTable(swID: int, lcore: int, startIndex: int, flag: int, /) -> Optional[_FlowPage]: ...
def ClearSwitchFlowTable(swID: int, /) -> None: ...
def EnableSwitchFlowCache(swID: int, enable: int, /) -> None: ...
def GetFlowTimeout(*ignored: object) -> Optional[int]: ...
def SetFlowTimeout(seconds: int, /) -> None: ...

# Offload flows to NICs
def GetFPOEnabled(alias: str, /) -> Optional[int]: ...
def EnableFPO(alias: str, value: int, /) -> bool: ...
def GetFPOStats(swID: int, lcores: tuple[int, ...], /) -> Optional[list[_FPOStats]]: ...
def GetFPOUplinkStatus(swID: int, rynPortID: int, /) -> Optional[_FPOUplinkStatus]: ...

# Choose and tune uplinks
def GetPortTxUplink(swID: int, rynPortID: int, /) -> Optional[_TxUplink]: ...
def SetPortTxUplink(swID: int, rynPortID: int, policy: _TxPolicy, /) -> None: ...
def SetUplinkMACLearn(swID: int, enable: int, /) -> None: ...
def GetPanicOnTxHang(swID: int, /) -> Optional[int]: ...
def SetPanicOnTxHang(swID: int, setting: int, /) -> None: ...
def GetUplinkRingSize(switchId: str, portId: str, /) -> Optional[_RingSize]: ...
def SetUplinkRingSize(switchId: str, portId: str, tx: int, rx: int, /) -> None: ...
def ListDevAffinity(*ignored: object) -> Optional[list[_DeviceAffinity]]: ...
def SetDevAffinity(device: str, affinity: int, /) -> None: ...

# Inspect mirror sessions and hardware queues
def GetMirrorConf(swID: int, /) -> Optional[list[Optional[_MirrorSession]]]: ...
def GetPortNetQInfo(swID: int, rynPortID: int, /) -> Optional[_PortNetQInfo]: ...

# Tune the load balancer
def GetLBWeights(*ignored: object) -> Optional[list[_LBWeight]]: ...
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
def GetLBParams(alias: str, /) -> Optional[_LBParams]: ...
def SetLBParams(alias: str, high: int, low: int, pause: int, sensitivity: int, /) -> bool: ...
def DumpLBSnapshot(swID: int, /) -> Optional[str]: ...
def GetLBAlgorithm(alias: str, /) -> Optional[Literal["none", "cpu", "count", "invalid"]]: ...
def SetLBAlgorithm(alias: str, metric: Literal["none", "cpu", "count"], /) -> bool: ...
def DumpLBPortStats(swID: int, firstPort: int, lastPort: int, /) -> Optional[_LBPortStats]: ...

# Tune switches and buffers
def GetSwitchNUMATeam(alias: str, /) -> Optional[bool]: ...
def SetSwitchNUMATeam(alias: str, setting: int, /) -> None: ...
def GetSwitchBurstSize(alias: str, /) -> Optional[int]: ...
def SetSwitchBurstSize(alias: str, packets: int, /) -> None: ...
def GetSwitchLRO(swID: int, /) -> Optional[bool]: ...
def SetSwitchLRO(swID: int, state: int, /) -> None: ...
def InitMbufFastslabs(*ignored: object) -> Optional[bool]: ...
