// Listings, counters and tables of switches and ports. A record is zeroed before the call, so after a failure its
// counts are 0 or what the platform left there; they are cut either way, and the caller need not look at the status
// first.

#include "host/read/ports.h"

#include "host/call.h"
#include "host/operations.h"
#include "platform/ryn.h"

Status GetSwitchList(SwitchList* list) {
  const Status status = FillRecord(operations::kGetSwitchList, list, Ryn_Get_Switch_List);
  CutTo(kMaxSwitches, &list->count);
  return status;
}

Status GetPortList(std::uint32_t swID, PortList* list) {
  const Status status = FillRecord(operations::kGetPortList, list, Ryn_Get_Port_List, swID);
  // The list is packed: its words are written through the struct.
  list->count = std::min<std::uint32_t>(list->count, kMaxPorts);
  for (std::uint32_t i = 0; i < list->count; ++i) {
    CutTo(kMaxQueues, &list->ports[i].numTxQ);
    CutTo(kMaxQueues, &list->ports[i].numRxQ);
  }
  return status;
}

Status GetPortStats(std::uint32_t swID, std::uint32_t rynPortID, PortStats* stats) {
  return FillRecord(operations::kGetPortStats, stats, Ryn_Get_Port_Stats, swID, rynPortID);
}

Status GetPortStatsSlowpath(std::uint32_t swID, std::uint32_t rynPortID, PortStats* stats) {
  return FillRecord(operations::kGetPortStatsSlowpath, stats, Ryn_Get_Port_Stats_Slowpath, swID, rynPortID);
}

Status GetPortConf(std::uint32_t swID, std::uint32_t rynPortID, PortConf* conf) {
  const Status status = FillRecord(operations::kGetPortConf, conf, Ryn_Get_Port_Conf, swID, rynPortID);
  CutTo(kMaxMcastAddrs, &conf->numMcastAddrs);
  CutTo(kMaxVlanRanges, &conf->numTaggedVlanRanges);
  return status;
}

// One operation serves both scopes; for a switch the port is 0.
Status GetPortLRO(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t* state) {
  *state = 0;
  return StatusOf(operations::kGetLRO, Ryn_GetLRO(kPortScope, swID, rynPortID, state));
}

Status GetSwitchLRO(std::uint32_t swID, std::uint32_t* state) {
  *state = 0;
  return StatusOf(operations::kGetLRO, Ryn_GetLRO(kSwitchScope, swID, kNoPort, state));
}

// Tables of 0.3 and 1.3 MB, allocated anew: pages that the platform does not fill are never touched.
Status DumpPortMACTable(std::uint32_t swID, std::uint32_t rynPortID, HeapArea<PortMacTable>* table) {
  const Status status = AllocateAndFill(operations::kDumpPortMACTable, table, Ryn_Dump_Port_MAC_Table, swID, rynPortID);
  if (status.Ok())
    CutTo(kMaxPortMacs, &(*table)->count);
  return status;
}

Status DumpSwitchMACTable(std::uint32_t swID, HeapArea<SwitchMacTable>* table) {
  const Status status = AllocateAndFill(operations::kDumpSwitchMACTable, table, Ryn_Dump_Switch_MAC_Table, swID);
  if (status.Ok())
    CutTo(kMaxSwitchMacs, &(*table)->count);
  return status;
}
