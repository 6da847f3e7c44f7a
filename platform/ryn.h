// The operations of libryn.so, the datapath library, that the module uses.
//
// Every operation returns a status code: 0 is success, anything else failure. Areas belong to the caller; where a
// length word goes with one, it is preset to the area's size in bytes and may be changed by the library. All
// integers in areas are little-endian.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Switches and ports
uint32_t Ryn_Get_Switch_List(void* switches, uint32_t* length);
uint32_t Ryn_Get_Port_List(uint32_t swID, void* ports, uint32_t* length);
uint32_t Ryn_Get_Port_Stats(uint32_t swID, uint32_t rynPortID, void* counters, uint32_t* length);
uint32_t Ryn_Get_Port_Stats_Slowpath(uint32_t swID, uint32_t rynPortID, void* counters, uint32_t* length);
uint32_t Ryn_Get_Port_Conf(uint32_t swID, uint32_t rynPortID, void* conf, uint32_t* length);
uint32_t Ryn_Migrate_Port(uint32_t swID, uint32_t rynPortID, uint32_t option1, uint32_t option2, uint32_t option3);
uint32_t Ryn_Unpin_Port(uint32_t swID, uint32_t rynPortID, uint32_t option);
uint32_t Ryn_Reset_Port(uint32_t swID, uint32_t rynPortID);

// Large receive offload. scope: 0 one port, 1 the whole switch (rynPortID 0).
uint32_t Ryn_GetLRO(uint32_t scope, uint32_t swID, uint32_t rynPortID, uint32_t* state);
uint32_t Ryn_SetLRO(uint32_t scope, uint32_t swID, uint32_t rynPortID, uint32_t state);

// MAC tables. mac: 6 bytes. operation: 1 adds the entry, 0 deletes it.
uint32_t Ryn_Dump_Port_MAC_Table(uint32_t swID, uint32_t rynPortID, void* table, uint32_t* length);
uint32_t Ryn_Clear_Port_MAC_Table(uint32_t swID, uint32_t rynPortID);
uint32_t Ryn_Dump_Switch_MAC_Table(uint32_t swID, void* table, uint32_t* length);
uint32_t Ryn_Clear_Switch_MAC_Table(uint32_t swID);
uint32_t Ryn_MAC_Entry_Ops(uint32_t swID, uint32_t rynPortID, const uint8_t* mac, uint16_t vlanID, uint32_t operation);

// Flow cache. flag, enable: 0 or 1. lcores: lcoreCount core numbers. The flow timeout is the host's, in seconds.
uint32_t Ryn_Dump_Flow_Table(uint32_t swID, uint32_t lcore, uint32_t startIndex, void* page, uint32_t* length,
                             uint32_t flag);
uint32_t Ryn_Get_Flow_Stats(uint32_t swID, const uint32_t* lcores, uint32_t lcoreCount, uint32_t option, void* stats,
                            uint32_t* length);
uint32_t Ryn_Clear_Switch_Flow_Table(uint32_t swID);
uint32_t Ryn_Enable_Switch_Flow_Cache(uint32_t swID, uint32_t enable);
uint32_t Ryn_Get_Flow_Timeout(uint32_t* seconds);
uint32_t Ryn_Set_Flow_Timeout(uint32_t seconds);
uint32_t Ryn_Get_FPO_Stats(uint32_t swID, const uint32_t* lcores, uint32_t lcoreCount, void* stats, uint32_t* length);
uint32_t Ryn_Get_FPO_Uplink_Status(uint32_t swID, uint32_t rynPortID, void* capabilities, uint32_t* length);

// Uplinks and mirroring. uplinks: 8 identifiers, the first `count` of which are filled. queueKind: 0 or 1.
uint32_t Ryn_Get_Port_Tx_Uplink(uint32_t swID, uint32_t rynPortID, void* policy, uint32_t* length);
uint32_t Ryn_Set_Port_Tx_Uplink(uint32_t swID, uint32_t rynPortID, uint32_t txType, uint32_t count,
                                const uint32_t* uplinks);
uint32_t Ryn_Get_Mirror_Conf(uint32_t swID, void* conf, uint32_t* length);
uint32_t Ryn_Get_Uplink_Priv_Stats_Len(uint32_t swID, uint32_t rynPortID, uint32_t* statsLength, uint32_t* length);
uint32_t Ryn_Get_Uplink_Priv_Stats(uint32_t swID, uint32_t rynPortID, void* stats, uint32_t* length);
uint32_t Ryn_Get_Uplink_Stats(uint32_t swID, uint32_t rynPortID, void* counters, uint32_t* length);
uint32_t Ryn_Get_Uplink_Queue_Stats(uint32_t swID, uint32_t rynPortID, uint32_t queue, uint32_t queueKind,
                                    void* counters, uint32_t* length);
uint32_t Ryn_Set_Uplink_MAC_Learn(uint32_t swID, uint32_t enable);
uint32_t Ryn_Get_Panic_On_Tx_Hang(uint32_t swID, uint32_t* setting);
uint32_t Ryn_Set_Panic_On_Tx_Hang(uint32_t swID, uint32_t setting);
uint32_t Ryn_Get_Port_NetQ_Info(uint32_t swID, uint32_t rynPortID, void* response, uint32_t* length);
uint32_t Ryn_List_Dev_Affinity(void* devices, uint32_t* length);
uint32_t Ryn_Set_Dev_Affinity(const char* device, uint32_t affinity);

// Load balancer. The weights are a record of 32 bytes. portset: 128 bytes. bitmap: bit n set means core n exists.
uint32_t Ryn_GetLBWeights(void* weights);
uint32_t Ryn_SetLBWeights(const void* weights);
uint32_t Ryn_ResetLBWeights(void);
uint32_t Ryn_GetCurrentLBData(const char* portset, uint32_t portsetSize, void* options);
uint32_t Ryn_DumpLBSnapshot(const uint32_t* swID, void* snapshot, uint32_t* length);
uint32_t Ryn_Dump_LB_PortStats(uint32_t swID, void* stats, uint32_t* length);
uint32_t Ryn_GetSwitchNUMATeam(const char* portset, uint32_t portsetSize, uint8_t* flag);
uint32_t Ryn_GetSwitchBurstSize(const char* portset, uint32_t* burst);
uint32_t Ryn_Get_LCore_ID_Bitmap(uint32_t swID, uint64_t* bitmap);
uint32_t Ryn_Init_Mbuf_Fastslabs(void);

#ifdef __cplusplus
}
#endif
