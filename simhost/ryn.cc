// Stand-ins for the operations of libryn.so.

#include "platform/ryn.h"

// What an operation answers that this host does not model (yet).
static constexpr uint32_t kNotModelled = 0x0BAD0001;

extern "C" {

#pragma GCC visibility push(default)

// Says that this library is a stand-in of a simulated host.
extern const char ryn_sim_version[];
const char ryn_sim_version[] = "1";

uint32_t Ryn_Get_Switch_List(void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_Port_List(uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_Port_Stats(uint32_t, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_Port_Stats_Slowpath(uint32_t, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_Port_Conf(uint32_t, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Migrate_Port(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) { return kNotModelled; }
uint32_t Ryn_Unpin_Port(uint32_t, uint32_t, uint32_t) { return kNotModelled; }
uint32_t Ryn_Reset_Port(uint32_t, uint32_t) { return kNotModelled; }
uint32_t Ryn_GetLRO(uint32_t, uint32_t, uint32_t, uint32_t*) { return kNotModelled; }
uint32_t Ryn_SetLRO(uint32_t, uint32_t, uint32_t, uint32_t) { return kNotModelled; }
uint32_t Ryn_Dump_Port_MAC_Table(uint32_t, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Clear_Port_MAC_Table(uint32_t, uint32_t) { return kNotModelled; }
uint32_t Ryn_Dump_Switch_MAC_Table(uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Clear_Switch_MAC_Table(uint32_t) { return kNotModelled; }
uint32_t Ryn_MAC_Entry_Ops(uint32_t, uint32_t, const uint8_t*, uint16_t, uint32_t) { return kNotModelled; }
uint32_t Ryn_Dump_Flow_Table(uint32_t, uint32_t, uint32_t, void*, uint32_t*, uint32_t) { return kNotModelled; }
uint32_t Ryn_Get_Flow_Stats(uint32_t, const uint32_t*, uint32_t, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Clear_Switch_Flow_Table(uint32_t) { return kNotModelled; }
uint32_t Ryn_Enable_Switch_Flow_Cache(uint32_t, uint32_t) { return kNotModelled; }
uint32_t Ryn_Get_Flow_Timeout(uint32_t*) { return kNotModelled; }
uint32_t Ryn_Set_Flow_Timeout(uint32_t) { return kNotModelled; }
uint32_t Ryn_Get_FPO_Stats(uint32_t, const uint32_t*, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_FPO_Uplink_Status(uint32_t, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_Port_Tx_Uplink(uint32_t, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Set_Port_Tx_Uplink(uint32_t, uint32_t, uint32_t, uint32_t, const uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_Mirror_Conf(uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_Uplink_Priv_Stats_Len(uint32_t, uint32_t, uint32_t*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_Uplink_Priv_Stats(uint32_t, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_Uplink_Stats(uint32_t, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_Uplink_Queue_Stats(uint32_t, uint32_t, uint32_t, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Set_Uplink_MAC_Learn(uint32_t, uint32_t) { return kNotModelled; }
uint32_t Ryn_Get_Panic_On_Tx_Hang(uint32_t, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Set_Panic_On_Tx_Hang(uint32_t, uint32_t) { return kNotModelled; }
uint32_t Ryn_Get_Port_NetQ_Info(uint32_t, uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_List_Dev_Affinity(void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Set_Dev_Affinity(const char*, uint32_t) { return kNotModelled; }
uint32_t Ryn_GetLBWeights(void*) { return kNotModelled; }
uint32_t Ryn_SetLBWeights(const void*) { return kNotModelled; }
uint32_t Ryn_ResetLBWeights() { return kNotModelled; }
uint32_t Ryn_GetCurrentLBData(const char*, uint32_t, void*) { return kNotModelled; }
uint32_t Ryn_DumpLBSnapshot(const uint32_t*, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Dump_LB_PortStats(uint32_t, void*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_GetSwitchNUMATeam(const char*, uint32_t, uint8_t*) { return kNotModelled; }
uint32_t Ryn_GetSwitchBurstSize(const char*, uint32_t*) { return kNotModelled; }
uint32_t Ryn_Get_LCore_ID_Bitmap(uint32_t, uint64_t*) { return kNotModelled; }
uint32_t Ryn_Init_Mbuf_Fastslabs() { return kNotModelled; }

#pragma GCC visibility pop

}  // extern "C"
