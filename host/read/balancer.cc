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
  LBGroups groups(*snapshot);
  for (LBGroup group; groups.Next(&group);) {
  }
  LBVertices vertices(*snapshot);
  for (LBVertex vertex; vertices.Next(&vertex);) {
  }
  return groups.Complete() && vertices.Complete() ? Status{} : InvalidResponse(operations::kDumpLBSnapshot);
}

bool LBGroups::Next(LBGroup* group) {
  if (left_ == 0 || position_ + sizeof(LBGroup) > sizeof(snapshot_))
    return false;
  *group = Load<LBGroup>(&snapshot_, position_);
  position_ += sizeof(LBGroup);
  --left_;
  return true;
}

LBVertices::LBVertices(const LBSnapshot& snapshot)
    : snapshot_(snapshot),
      position_(offsetof(LBSnapshot, records) + std::size_t{snapshot.groupCount} * sizeof(LBGroup)),
      left_(snapshot.vertexCount) {}

bool LBVertices::Next(LBVertex* vertex) {
  if (left_ == 0 || position_ + sizeof(LBVertex) > sizeof(snapshot_))
    return false;
  const auto head = Load<LBVertex>(&snapshot_, position_);
  const std::size_t out = position_ + sizeof(LBVertex);
  const std::size_t in = out + std::size_t{head.outCount} * sizeof(LBEdge);
  const std::size_t end = in + std::size_t{head.inCount} * sizeof(LBEdge);
  if (end > sizeof(snapshot_))
    return false;
  *vertex = head;
  out_ = out;
  in_ = in;
  position_ = end;
  --left_;
  return true;
}
