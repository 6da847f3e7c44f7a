#include "host/change/datapath.h"

#include "host/operations.h"
#include "platform/ryn.h"

Status ClearSwitchFlowTable(std::uint32_t swID) {
  return StatusOf(operations::kClearSwitchFlowTable, Ryn_Clear_Switch_Flow_Table(swID));
}

Status EnableSwitchFlowCache(std::uint32_t swID, std::uint32_t enable) {
  return StatusOf(operations::kEnableSwitchFlowCache, Ryn_Enable_Switch_Flow_Cache(swID, enable));
}

Status SetFlowTimeout(std::uint32_t seconds) {
  return StatusOf(operations::kSetFlowTimeout, Ryn_Set_Flow_Timeout(seconds));
}

Status SetPortTxUplink(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t txType, std::uint32_t count,
                       const std::uint32_t (&uplinks)[kMaxTxUplinks]) {
  return StatusOf(operations::kSetPortTxUplink, Ryn_Set_Port_Tx_Uplink(swID, rynPortID, txType, count, uplinks));
}

Status SetUplinkMACLearn(std::uint32_t swID, std::uint32_t enable) {
  return StatusOf(operations::kSetUplinkMACLearn, Ryn_Set_Uplink_MAC_Learn(swID, enable));
}

Status SetPanicOnTxHang(std::uint32_t swID, std::uint32_t setting) {
  return StatusOf(operations::kSetPanicOnTxHang, Ryn_Set_Panic_On_Tx_Hang(swID, setting));
}

Status SetDevAffinity(const char* device, std::uint32_t affinity) {
  return StatusOf(operations::kSetDevAffinity, Ryn_Set_Dev_Affinity(device, affinity));
}

Status SetLBWeights(const LBWeights& weights) {
  return StatusOf(operations::kSetLBWeights, Ryn_SetLBWeights(&weights));
}

Status ResetLBWeights() { return StatusOf(operations::kResetLBWeights, Ryn_ResetLBWeights()); }

Status InitMbufFastslabs() { return StatusOf(operations::kInitMbufFastslabs, Ryn_Init_Mbuf_Fastslabs()); }
