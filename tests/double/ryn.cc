// The datapath library's double. In each operation: the arguments to record, then the area to fill.
#include "platform/ryn.h"

#include "call.h"

namespace {

constexpr std::size_t kPortsetSize = 128, kWeightsSize = 32, kOptionsSize = 24;

// Both core-list operations: the caller's list has room for 64, however long it says it is.
std::size_t AtMost64(uint32_t count) { return count < 64 ? count : 64; }

}  // namespace

extern "C" {

uint32_t Ryn_Get_Switch_List(void* switches, uint32_t* length) { return THIS_CALL.Area(switches, length).Status(); }

uint32_t Ryn_Get_Port_List(uint32_t swID, void* ports, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Area(ports, length).Status();
}

uint32_t Ryn_Get_Port_Stats(uint32_t swID, uint32_t rynPortID, void* counters, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Area(counters, length).Status();
}

uint32_t Ryn_Get_Port_Stats_Slowpath(uint32_t swID, uint32_t rynPortID, void* counters, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Area(counters, length).Status();
}

uint32_t Ryn_Get_Port_Conf(uint32_t swID, uint32_t rynPortID, void* conf, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Area(conf, length).Status();
}

uint32_t Ryn_Migrate_Port(uint32_t swID, uint32_t rynPortID, uint32_t option1, uint32_t option2, uint32_t option3) {
  return THIS_CALL.Number("swID", swID)
      .Number("rynPortID", rynPortID)
      .Number("option1", option1)
      .Number("option2", option2)
      .Number("option3", option3)
      .Status();
}

uint32_t Ryn_Unpin_Port(uint32_t swID, uint32_t rynPortID, uint32_t option) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Number("option", option).Status();
}

uint32_t Ryn_Reset_Port(uint32_t swID, uint32_t rynPortID) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Status();
}

uint32_t Ryn_GetLRO(uint32_t scope, uint32_t swID, uint32_t rynPortID, uint32_t* state) {
  return THIS_CALL.Number("scope", scope)
      .Number("swID", swID)
      .Number("rynPortID", rynPortID)
      .Area(state, sizeof *state)
      .Status();
}

uint32_t Ryn_SetLRO(uint32_t scope, uint32_t swID, uint32_t rynPortID, uint32_t state) {
  return THIS_CALL.Number("scope", scope)
      .Number("swID", swID)
      .Number("rynPortID", rynPortID)
      .Number("state", state)
      .Status();
}

uint32_t Ryn_Dump_Port_MAC_Table(uint32_t swID, uint32_t rynPortID, void* table, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Area(table, length).Status();
}

uint32_t Ryn_Clear_Port_MAC_Table(uint32_t swID, uint32_t rynPortID) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Status();
}

uint32_t Ryn_Dump_Switch_MAC_Table(uint32_t swID, void* table, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Area(table, length).Status();
}

uint32_t Ryn_Clear_Switch_MAC_Table(uint32_t swID) { return THIS_CALL.Number("swID", swID).Status(); }

uint32_t Ryn_MAC_Entry_Ops(uint32_t swID, uint32_t rynPortID, const uint8_t* mac, uint16_t vlanID, uint32_t operation) {
  return THIS_CALL.Number("swID", swID)
      .Number("rynPortID", rynPortID)
      .Bytes("mac", mac, 6)
      .Number("vlanID", vlanID)
      .Number("operation", operation)
      .Status();
}

uint32_t Ryn_Dump_Flow_Table(uint32_t swID, uint32_t lcore, uint32_t startIndex, void* page, uint32_t* length,
                             uint32_t flag) {
  return THIS_CALL.Number("swID", swID)
      .Number("lcore", lcore)
      .Number("startIndex", startIndex)
      .Number("flag", flag)
      .Area(page, length)
      .Status();
}

uint32_t Ryn_Get_Flow_Stats(uint32_t swID, const uint32_t* lcores, uint32_t lcoreCount, uint32_t option, void* stats,
                            uint32_t* length) {
  return THIS_CALL.Number("swID", swID)
      .Numbers("lcores", lcores, AtMost64(lcoreCount))
      .Number("lcoreCount", lcoreCount)
      .Number("option", option)
      .Area(stats, length)
      .Status();
}

uint32_t Ryn_Clear_Switch_Flow_Table(uint32_t swID) { return THIS_CALL.Number("swID", swID).Status(); }

uint32_t Ryn_Enable_Switch_Flow_Cache(uint32_t swID, uint32_t enable) {
  return THIS_CALL.Number("swID", swID).Number("enable", enable).Status();
}

uint32_t Ryn_Get_Flow_Timeout(uint32_t* seconds) { return THIS_CALL.Area(seconds, sizeof *seconds).Status(); }

uint32_t Ryn_Set_Flow_Timeout(uint32_t seconds) { return THIS_CALL.Number("seconds", seconds).Status(); }

uint32_t Ryn_Get_FPO_Stats(uint32_t swID, const uint32_t* lcores, uint32_t lcoreCount, void* stats, uint32_t* length) {
  return THIS_CALL.Number("swID", swID)
      .Numbers("lcores", lcores, AtMost64(lcoreCount))
      .Number("lcoreCount", lcoreCount)
      .Area(stats, length)
      .Status();
}

uint32_t Ryn_Get_FPO_Uplink_Status(uint32_t swID, uint32_t rynPortID, void* capabilities, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Area(capabilities, length).Status();
}

uint32_t Ryn_Get_Port_Tx_Uplink(uint32_t swID, uint32_t rynPortID, void* policy, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Area(policy, length).Status();
}

uint32_t Ryn_Set_Port_Tx_Uplink(uint32_t swID, uint32_t rynPortID, uint32_t txType, uint32_t count,
                                const uint32_t* uplinks) {
  return THIS_CALL.Number("swID", swID)
      .Number("rynPortID", rynPortID)
      .Number("txType", txType)
      .Number("count", count)
      .Numbers("uplinks", uplinks, 8)
      .Status();
}

uint32_t Ryn_Get_Mirror_Conf(uint32_t swID, void* conf, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Area(conf, length).Status();
}

uint32_t Ryn_Get_Uplink_Priv_Stats_Len(uint32_t swID, uint32_t rynPortID, uint32_t* statsLength, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Area(statsLength, length).Status();
}

uint32_t Ryn_Get_Uplink_Priv_Stats(uint32_t swID, uint32_t rynPortID, void* stats, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Area(stats, length).Status();
}

uint32_t Ryn_Get_Uplink_Stats(uint32_t swID, uint32_t rynPortID, void* counters, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Area(counters, length).Status();
}

uint32_t Ryn_Get_Uplink_Queue_Stats(uint32_t swID, uint32_t rynPortID, uint32_t queue, uint32_t queueKind,
                                    void* counters, uint32_t* length) {
  return THIS_CALL.Number("swID", swID)
      .Number("rynPortID", rynPortID)
      .Number("queue", queue)
      .Number("queueKind", queueKind)
      .Area(counters, length)
      .Status();
}

uint32_t Ryn_Set_Uplink_MAC_Learn(uint32_t swID, uint32_t enable) {
  return THIS_CALL.Number("swID", swID).Number("enable", enable).Status();
}

uint32_t Ryn_Get_Panic_On_Tx_Hang(uint32_t swID, uint32_t* setting) {
  return THIS_CALL.Number("swID", swID).Area(setting, sizeof *setting).Status();
}

uint32_t Ryn_Set_Panic_On_Tx_Hang(uint32_t swID, uint32_t setting) {
  return THIS_CALL.Number("swID", swID).Number("setting", setting).Status();
}

uint32_t Ryn_Get_Port_NetQ_Info(uint32_t swID, uint32_t rynPortID, void* response, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Number("rynPortID", rynPortID).Area(response, length).Status();
}

uint32_t Ryn_List_Dev_Affinity(void* devices, uint32_t* length) { return THIS_CALL.Area(devices, length).Status(); }

uint32_t Ryn_Set_Dev_Affinity(const char* device, uint32_t affinity) {
  return THIS_CALL.Text("device", device).Number("affinity", affinity).Status();
}

uint32_t Ryn_GetLBWeights(void* weights) { return THIS_CALL.Area(weights, kWeightsSize).Status(); }

uint32_t Ryn_SetLBWeights(const void* weights) { return THIS_CALL.Bytes("weights", weights, kWeightsSize).Status(); }

uint32_t Ryn_ResetLBWeights() { return THIS_CALL.Status(); }

uint32_t Ryn_GetCurrentLBData(const char* portset, uint32_t portsetSize, void* options) {
  return THIS_CALL.Bytes("portset", portset, kPortsetSize)
      .Number("portsetSize", portsetSize)
      .Area(options, kOptionsSize)
      .Status();
}

uint32_t Ryn_DumpLBSnapshot(const uint32_t* swID, void* snapshot, uint32_t* length) {
  return THIS_CALL.Number("swID", *swID).Area(snapshot, length).Status();
}

uint32_t Ryn_Dump_LB_PortStats(uint32_t swID, void* stats, uint32_t* length) {
  return THIS_CALL.Number("swID", swID).Area(stats, length).Status();
}

uint32_t Ryn_GetSwitchNUMATeam(const char* portset, uint32_t portsetSize, uint8_t* flag) {
  return THIS_CALL.Bytes("portset", portset, kPortsetSize)
      .Number("portsetSize", portsetSize)
      .Area(flag, sizeof *flag)
      .Status();
}

uint32_t Ryn_GetSwitchBurstSize(const char* portset, uint32_t* burst) {
  return THIS_CALL.Bytes("portset", portset, kPortsetSize).Area(burst, sizeof *burst).Status();
}

uint32_t Ryn_Get_LCore_ID_Bitmap(uint32_t swID, uint64_t* bitmap) {
  return THIS_CALL.Number("swID", swID).Area(bitmap, sizeof *bitmap).Status();
}

uint32_t Ryn_Init_Mbuf_Fastslabs() { return THIS_CALL.Status(); }

}  // extern "C"
