"""Writes the C source of `_cffi`, the module by which with_cffi.py reaches the platform's operations."""

import sys

from cffi import FFI

STRUCTURES = """
typedef struct { char name[128]; uint32_t swID, maxPorts, numActivePorts, numPorts, mtu, numLcores; int64_t lcores; }
    Switch;
typedef struct { uint32_t count, unread; Switch switches[16]; } SwitchList;
typedef struct { uint8_t mac[6]; uint16_t vlanID; uint32_t rynPortID, unread, macGenDiff; } Mac;
typedef struct { uint32_t count, unread, limit, exceeded; Mac entries[65536]; } MacTable;
typedef struct { uint32_t portID, unread[3], numMcastAddrs, flags; int64_t ladrf; uint8_t hwAddr[6];
    uint16_t untaggedVlanID; uint8_t forgedMACAllowed, unread41[3]; uint32_t vni, numRanges; uint8_t mcasts[32][6];
    uint32_t sampleRate; uint16_t ranges[256][2]; } PortConf;
typedef struct { uint8_t mac1[6], mac2[6]; uint16_t vlan, number14, port1, port2, low20; uint8_t high20, protocol,
    address1[16], address2[16], unread[8]; } FlowKey;
typedef struct { uint64_t unread0, handle, unread16, packets, unread32, bytes, unread48; uint32_t bitmap;
    uint8_t unread60, flags; uint16_t length; uint8_t dp, unread65[3]; uint32_t inval; uint8_t pi, unread73;
    uint16_t vi;
    uint32_t vni; }
    Actions;
typedef struct { uint32_t lcoreID, numFlows; uint64_t counters[5]; } FlowStats;
typedef struct { uint32_t count, unread; FlowStats records[32]; } FlowStatsList;
typedef struct { uint32_t unread0; uint16_t index, encap, snapLen, rate, flags, ins, outs, dsts, vlans, unread22;
    uint8_t inPorts[16], outPorts[16], dstPorts[16]; } Session;
typedef struct { uint32_t swID, rynPortID, unread; uint16_t isUplink, count; } NetQ;
typedef struct { uint16_t kind, unread, length, queues; uint8_t outer[6], inner[6]; uint32_t vni; } Filter;
typedef struct { uint32_t rynPortID, qid; int64_t fid; } Queue;
typedef struct { int32_t number; uint32_t wid, flags, outs, ins; } Vertex;
typedef struct { int32_t peer, load, ema; } Edge;
typedef struct { uint32_t p0, p1, a, b; uint64_t counters[4]; } BalancerPort;
typedef struct { uint64_t busyNow, busyBefore, timeNow, timeBefore, work, unread; } BalancerCore;
typedef struct { uint64_t unread; BalancerPort ports[128]; BalancerCore cores[64]; } Balancer;
"""

PACKED = """
typedef struct { uint32_t portID, rynPortID; uint8_t numTxQ, numRxQ, hwAddr[6]; uint16_t numMACs; uint32_t clientType;
    uint8_t unread[4], txQLM[32], rxQLM[32]; } Port;
typedef struct { uint32_t unread0, count, unread8; Port ports[128]; } PortList;
typedef struct { int32_t load; uint8_t unread, tx[16], rx[16]; } Group;
"""

OPERATIONS = """
uint32_t Ryn_Get_Switch_List(void* list, uint32_t* length);
uint32_t Ryn_Get_Port_List(uint32_t swID, void* list, uint32_t* length);
uint32_t Ryn_Get_Port_Stats(uint32_t swID, uint32_t rynPortID, void* counters, uint32_t* length);
uint32_t Ryn_Get_Port_Stats_Slowpath(uint32_t swID, uint32_t rynPortID, void* counters, uint32_t* length);
uint32_t Ryn_Get_Port_Conf(uint32_t swID, uint32_t rynPortID, void* conf, uint32_t* length);
uint32_t Ryn_Dump_Switch_MAC_Table(uint32_t swID, void* table, uint32_t* length);
uint32_t Ryn_Dump_Flow_Table(uint32_t swID, uint32_t lcore, uint32_t startIndex, void* page, uint32_t* length,
                             uint32_t flag);
uint32_t Ryn_Get_Flow_Stats(uint32_t swID, const uint32_t* lcores, uint32_t lcoreCount, uint32_t option, void* stats,
                            uint32_t* length);
uint32_t Ryn_Get_Mirror_Conf(uint32_t swID, void* conf, uint32_t* length);
uint32_t Ryn_Get_Uplink_Queue_Stats(uint32_t swID, uint32_t rynPortID, uint32_t queue, uint32_t queueKind,
                                    void* counters, uint32_t* length);
uint32_t Ryn_Set_Uplink_MAC_Learn(uint32_t swID, uint32_t enable);
uint32_t Ryn_Get_Port_NetQ_Info(uint32_t swID, uint32_t rynPortID, void* response, uint32_t* length);
uint32_t Ryn_DumpLBSnapshot(const uint32_t* swID, void* snapshot, uint32_t* length);
uint32_t Ryn_Dump_LB_PortStats(uint32_t swID, void* stats, uint32_t* length);
typedef struct DVSSwitch DVSSwitch;
DVSSwitch* DVSState_SwitchFindByAlias(const char* alias);
const char* DVS_ClassName(DVSSwitch* dvs);
const char* DVS_SwitchId(DVSSwitch* dvs);
uint32_t DVSQOB_HostPropGet(const char* switchId, const char* key, void** value, uint32_t* length);
void DVSQOB_DataFree(void* value);
"""

ffi = FFI()
ffi.cdef(STRUCTURES)
ffi.cdef(PACKED, packed=True)
ffi.cdef(OPERATIONS)
ffi.set_source(
    "_cffi",
    f"""
#include <stdint.h>
#include "platform/jor_public.h"
#include "platform/ryn.h"
{STRUCTURES}
#pragma pack(push, 1)
{PACKED}
#pragma pack(pop)
""",
)
ffi.emit_c_code(sys.argv[1])
