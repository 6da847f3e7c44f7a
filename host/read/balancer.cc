#include "host/read/balancer.h"

#include "host/call.h"
#include "host/names.h"
#include "host/operations.h"
#include "platform/ryn.h"

Status GetLBWeights(LBWeights* weights) {
  *weights = {};
  return StatusOf(operations::kGetLBWeights, Ryn_GetLBWeights(weights));
}

Status GetCurrentLBData(const char* portset, LBSwitchOptions* options) {
  *options = {};
  return StatusOf(operations::kGetCurrentLBData, Ryn_GetCurrentLBData(portset, kPortsetNameBytes, options));
}

Status GetSwitchNUMATeam(const char* portset, std::uint8_t* flag) {
  *flag = 0;
  return StatusOf(operations::kGetSwitchNUMATeam, Ryn_GetSwitchNUMATeam(portset, kPortsetNameBytes, flag));
}

Status GetSwitchBurstSize(const char* portset, std::uint32_t* burst) {
  *burst = 0;
  return StatusOf(operations::kGetSwitchBurstSize, Ryn_GetSwitchBurstSize(portset, burst));
}

Status GetLCoreIDBitmap(std::uint32_t swID, std::uint64_t* bitmap) {
  *bitmap = 0;
  return StatusOf(operations::kGetLCoreIDBitmap, Ryn_Get_LCore_ID_Bitmap(swID, bitmap));
}

Status DumpLBPortStats(std::uint32_t swID, LBPortStats* stats) {
  return FillRecord(operations::kDumpLBPortStats, stats, Ryn_Dump_LB_PortStats, swID);
}

Status DumpLBSnapshot(std::uint32_t swID, LBSnapshot* snapshot) {
  if (const Status status = FillRecord(operations::kDumpLBSnapshot, snapshot, Ryn_DumpLBSnapshot, &swID); !status.Ok())
    return status;
  const bool whole = IsWhole<LBGroup>(LBGroups(*snapshot)) && IsWhole<LBVertex>(LBVertices(*snapshot));
  return whole ? Status{} : InvalidResponse(operations::kDumpLBSnapshot);
}
