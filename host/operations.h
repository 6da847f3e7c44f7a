// The name of each platform operation, for messages and exceptions. The constant is the operation's name without
// `Ryn_`, `DVSQOB_` or `DVSState_`, and without underscores. A test holds the list against platform/*.h.
#pragma once

namespace operations {

// Switches and ports
inline constexpr char kGetSwitchList[] = "Ryn_Get_Switch_List";
inline constexpr char kGetPortList[] = "Ryn_Get_Port_List";
inline constexpr char kGetPortStats[] = "Ryn_Get_Port_Stats";
inline constexpr char kGetPortStatsSlowpath[] = "Ryn_Get_Port_Stats_Slowpath";
inline constexpr char kGetPortConf[] = "Ryn_Get_Port_Conf";
inline constexpr char kMigratePort[] = "Ryn_Migrate_Port";
inline constexpr char kUnpinPort[] = "Ryn_Unpin_Port";
inline constexpr char kResetPort[] = "Ryn_Reset_Port";

// Large receive offload
inline constexpr char kGetLRO[] = "Ryn_GetLRO";
inline constexpr char kSetLRO[] = "Ryn_SetLRO";

// MAC tables
inline constexpr char kDumpPortMACTable[] = "Ryn_Dump_Port_MAC_Table";
inline constexpr char kClearPortMACTable[] = "Ryn_Clear_Port_MAC_Table";
inline constexpr char kDumpSwitchMACTable[] = "Ryn_Dump_Switch_MAC_Table";
inline constexpr char kClearSwitchMACTable[] = "Ryn_Clear_Switch_MAC_Table";
inline constexpr char kMACEntryOps[] = "Ryn_MAC_Entry_Ops";

// Flow cache and its offload
inline constexpr char kDumpFlowTable[] = "Ryn_Dump_Flow_Table";
inline constexpr char kGetFlowStats[] = "Ryn_Get_Flow_Stats";
inline constexpr char kClearSwitchFlowTable[] = "Ryn_Clear_Switch_Flow_Table";
inline constexpr char kEnableSwitchFlowCache[] = "Ryn_Enable_Switch_Flow_Cache";
inline constexpr char kGetFlowTimeout[] = "Ryn_Get_Flow_Timeout";
inline constexpr char kSetFlowTimeout[] = "Ryn_Set_Flow_Timeout";
inline constexpr char kGetFPOStats[] = "Ryn_Get_FPO_Stats";
inline constexpr char kGetFPOUplinkStatus[] = "Ryn_Get_FPO_Uplink_Status";

// Uplinks and mirroring
inline constexpr char kGetPortTxUplink[] = "Ryn_Get_Port_Tx_Uplink";
inline constexpr char kSetPortTxUplink[] = "Ryn_Set_Port_Tx_Uplink";
inline constexpr char kGetMirrorConf[] = "Ryn_Get_Mirror_Conf";
inline constexpr char kGetUplinkPrivStatsLen[] = "Ryn_Get_Uplink_Priv_Stats_Len";
inline constexpr char kGetUplinkPrivStats[] = "Ryn_Get_Uplink_Priv_Stats";
inline constexpr char kGetUplinkStats[] = "Ryn_Get_Uplink_Stats";
inline constexpr char kGetUplinkQueueStats[] = "Ryn_Get_Uplink_Queue_Stats";
inline constexpr char kSetUplinkMACLearn[] = "Ryn_Set_Uplink_MAC_Learn";
inline constexpr char kGetPanicOnTxHang[] = "Ryn_Get_Panic_On_Tx_Hang";
inline constexpr char kSetPanicOnTxHang[] = "Ryn_Set_Panic_On_Tx_Hang";
inline constexpr char kGetPortNetQInfo[] = "Ryn_Get_Port_NetQ_Info";

// Devices
inline constexpr char kListDevAffinity[] = "Ryn_List_Dev_Affinity";
inline constexpr char kSetDevAffinity[] = "Ryn_Set_Dev_Affinity";

// The balancer, and settings that a switch has until a property is stored
inline constexpr char kGetLBWeights[] = "Ryn_GetLBWeights";
inline constexpr char kSetLBWeights[] = "Ryn_SetLBWeights";
inline constexpr char kResetLBWeights[] = "Ryn_ResetLBWeights";
inline constexpr char kGetCurrentLBData[] = "Ryn_GetCurrentLBData";
inline constexpr char kDumpLBSnapshot[] = "Ryn_DumpLBSnapshot";
inline constexpr char kDumpLBPortStats[] = "Ryn_Dump_LB_PortStats";
inline constexpr char kGetSwitchNUMATeam[] = "Ryn_GetSwitchNUMATeam";
inline constexpr char kGetSwitchBurstSize[] = "Ryn_GetSwitchBurstSize";

// Cores and packet buffers
inline constexpr char kGetLCoreIDBitmap[] = "Ryn_Get_LCore_ID_Bitmap";
inline constexpr char kInitMbufFastslabs[] = "Ryn_Init_Mbuf_Fastslabs";

// The configuration of the process, which needs the lock (host/names.h)
inline constexpr char kConfigReset[] = "DVSState_ConfigReset";
inline constexpr char kStateGet[] = "DVSQOB_StateGet";
inline constexpr char kConfigDeserialize[] = "DVSState_ConfigDeserialize";
inline constexpr char kSwitchFindByAlias[] = "DVSState_SwitchFindByAlias";
inline constexpr char kSwitchForEach[] = "DVSState_SwitchForEach";
inline constexpr char kDVSClassName[] = "DVS_ClassName";
inline constexpr char kDVSSwitchId[] = "DVS_SwitchId";
inline constexpr char kHostPropLookup[] = "DVSState_HostPropLookup";
inline constexpr char kGlobalPropLookup[] = "DVSState_GlobalPropLookup";
inline constexpr char kGlobalPropForEach[] = "DVSState_GlobalPropForEach";
inline constexpr char kDVSDataName[] = "DVSData_Name";
inline constexpr char kDVSDataData[] = "DVSData_Data";
inline constexpr char kPortFind[] = "DVSState_PortFind";

// Properties as the host keeps them
inline constexpr char kHostPropGet[] = "DVSQOB_HostPropGet";
inline constexpr char kHostPropSet[] = "DVSQOB_HostPropSet";
inline constexpr char kPortDataGet[] = "DVSQOB_PortDataGet";
inline constexpr char kPortDataSet[] = "DVSQOB_PortDataSet";
inline constexpr char kDataFree[] = "DVSQOB_DataFree";

}  // namespace operations
