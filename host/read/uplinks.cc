// Uplinks, devices, mirror sessions and network queues. Records of variable length are walked once here, so that
// callers may walk them without checks of their own.

#include "host/read/uplinks.h"

#include <cstdlib>

#include "host/call.h"
#include "host/operations.h"
#include "platform/ryn.h"

Status GetPortTxUplink(std::uint32_t swID, std::uint32_t rynPortID, TxUplinks* policy) {
  const Status status = FillRecord(operations::kGetPortTxUplink, policy, Ryn_Get_Port_Tx_Uplink, swID, rynPortID);
  CutTo(kMaxTxUplinks, &policy->count);
  return status;
}

Status GetPanicOnTxHang(std::uint32_t swID, std::uint32_t* setting) {
  *setting = 0;  // where the platform succeeds and fills nothing
  return StatusOf(operations::kGetPanicOnTxHang, Ryn_Get_Panic_On_Tx_Hang(swID, setting));
}

Status ListDevAffinity(DeviceList* devices) {
  const Status status = FillRecord(operations::kListDevAffinity, devices, Ryn_List_Dev_Affinity);
  CutTo(kMaxDevices, &devices->count);
  return status;
}

Status GetUplinkStats(std::uint32_t swID, std::uint32_t rynPortID, UplinkStats* stats) {
  return FillRecord(operations::kGetUplinkStats, stats, Ryn_Get_Uplink_Stats, swID, rynPortID);
}

Status GetUplinkQueueStats(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t queue, bool queueKind,
                           UplinkStats* stats) {
  return FillRecord(operations::kGetUplinkQueueStats, stats, Ryn_Get_Uplink_Queue_Stats, swID, rynPortID, queue,
                    queueKind);
}

// A length beyond all reason is a broken answer, not a reason to allocate it.
Status GetUplinkPrivStatsLen(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t* statsLength) {
  const Status status =
      FillRecord(operations::kGetUplinkPrivStatsLen, statsLength, Ryn_Get_Uplink_Priv_Stats_Len, swID, rynPortID);
  if (status.Ok() && *statsLength > kMaxPrivateStatsBytes)
    return InvalidResponse(operations::kGetUplinkPrivStatsLen);
  return status;
}

Status GetUplinkPrivStats(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t statsLength, PrivateStats* stats) {
  if (statsLength == 0) {
    *stats = {};
    return {};
  }
  // The driver may have less to say by now, or forget the NUL: the area is zeroed, and the text ends with it at the
  // latest.
  HeapArea<char> area(static_cast<char*>(std::calloc(statsLength, 1)));
  if (!area)
    return NoMemory(operations::kGetUplinkPrivStats);
  std::uint32_t length = statsLength;
  const Status status =
      StatusOf(operations::kGetUplinkPrivStats, Ryn_Get_Uplink_Priv_Stats(swID, rynPortID, area.get(), &length));
  if (status.Ok()) {
    stats->length = strnlen(area.get(), statsLength);
    stats->bytes = std::move(area);
  }
  return status;
}

Status GetMirrorConf(std::uint32_t swID, MirrorConf* conf) {
  if (const Status status = FillRecord(operations::kGetMirrorConf, conf, Ryn_Get_Mirror_Conf, swID); !status.Ok())
    return status;
  return IsWhole<MirrorSession>(MirrorSessions(*conf)) ? Status{} : InvalidResponse(operations::kGetMirrorConf);
}

Status GetPortNetQInfo(std::uint32_t swID, std::uint32_t rynPortID, HeapArea<NetQResponse>* response) {
  HeapArea<NetQResponse> answer;
  if (const Status status =
          AllocateAndFill(operations::kGetPortNetQInfo, &answer, Ryn_Get_Port_NetQ_Info, swID, rynPortID);
      !status.Ok())
    return status;
  if (!IsWhole<NetQFilterView>(NetQFilters(*answer)))
    return InvalidResponse(operations::kGetPortNetQInfo);
  *response = std::move(answer);
  return {};
}
