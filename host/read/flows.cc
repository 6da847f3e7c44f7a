#include "host/read/flows.h"

#include <bit>

#include "host/call.h"
#include "host/operations.h"
#include "platform/ryn.h"

Status DumpFlowTable(std::uint32_t swID, std::uint32_t lcore, std::uint32_t startIndex, bool flag, FlowPage* page) {
  // Not FillRecord: the flag stands behind the length word.
  *page = {};
  std::uint32_t length = sizeof(*page);
  return StatusOf(operations::kDumpFlowTable, Ryn_Dump_Flow_Table(swID, lcore, startIndex, page, &length, flag));
}

Status FlowWalk::NextPage(FlowPage* page) {
  done_ = true;
  if (const Status status = DumpFlowTable(swID_, lcore_, index_, flag_, page); !status.Ok())
    return status;
  if (page->count == 0)
    return {};

  const Status invalid = InvalidResponse(operations::kDumpFlowTable);
  if (!IsWhole<FlowEntry>(FlowEntries(*page)) || page->count > kMaxFlows - flows_)
    return invalid;
  flows_ += page->count;

  constexpr std::uint32_t kNoIndex = 0xFFFFFFFF;
  const std::uint64_t next = page->startIndex > index_ ? page->startIndex : std::uint64_t{index_} + page->count;
  if (next >= kNoIndex)
    return invalid;
  index_ = static_cast<std::uint32_t>(next);
  done_ = false;
  return {};
}

LcoreList TakeLcores(std::uint64_t* bitmap) {
  LcoreList lcores;
  for (; *bitmap != 0 && lcores.count < kMaxLcoreRecords; *bitmap &= *bitmap - 1)
    lcores.ids[lcores.count++] = static_cast<std::uint32_t>(std::countr_zero(*bitmap));
  return lcores;
}

Status GetFlowStats(std::uint32_t swID, const LcoreList& lcores, std::uint32_t option, FlowStats* stats) {
  const Status status =
      FillRecord(operations::kGetFlowStats, stats, Ryn_Get_Flow_Stats, swID, lcores.ids, lcores.count, option);
  CutTo(kMaxLcoreRecords, &stats->count);
  return status;
}

Status GetFPOStats(std::uint32_t swID, const LcoreList& lcores, FPOLcoreStats* stats) {
  const Status status = FillRecord(operations::kGetFPOStats, stats, Ryn_Get_FPO_Stats, swID, lcores.ids, lcores.count);
  CutTo(kMaxLcoreRecords, &stats->count);
  return status;
}

Status GetFlowTimeout(std::uint32_t* seconds) {
  *seconds = 0;
  return StatusOf(operations::kGetFlowTimeout, Ryn_Get_Flow_Timeout(seconds));
}

Status GetFPOUplinkStatus(std::uint32_t swID, std::uint32_t rynPortID, FPOUplinkCaps* caps) {
  return FillRecord(operations::kGetFPOUplinkStatus, caps, Ryn_Get_FPO_Uplink_Status, swID, rynPortID);
}
