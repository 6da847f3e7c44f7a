// flow, fpo: the flow cache and its offload, by switch and core.

#include <algorithm>

#include "exporter/collect/collect.h"
#include "host/read/balancer.h"
#include "host/read/flows.h"

namespace {

// Asks about all cores of a switch, as many at a time as an answer has room for. `read(lcores, &stats)` asks,
// `add(record)` takes the records of cores that were asked about. False after a failure.
template <class Stats, class Read, class Add>
bool ForEachCore(Round& round, const HostSwitch& hostSwitch, Read read, Add add) {
  std::uint64_t left = 0;
  if (!round.Check(GetLCoreIDBitmap(hostSwitch.number, &left), &hostSwitch))
    return round.Gone();
  while (left != 0) {
    const LcoreList lcores = TakeLcores(&left);
    Stats stats;
    if (!round.Check(read(lcores, &stats), &hostSwitch))
      return round.Gone();
    std::uint64_t asked = 0;
    for (std::uint32_t i = 0; i < lcores.count; ++i)
      asked |= std::uint64_t{1} << lcores.ids[i];
    for (std::uint32_t i = 0; i < stats.count; ++i) {
      const std::uint32_t core = stats.records[i].lcoreID;
      if (core >= 64 || (asked >> core & 1) == 0)
        continue;  // not asked about, or there already
      asked &= ~(std::uint64_t{1} << core);
      add(stats.records[i]);
    }
  }
  return true;
}

}  // namespace

bool CollectFlows(Round& round, Snapshot* snapshot) {
  Samples timeout{MetricOf("ryn_flow_timeout_seconds")};
  std::uint32_t seconds = 0;
  if (!round.Check(GetFlowTimeout(&seconds)))
    return false;
  timeout.Add(Labels(), {seconds});

  Samples cache{
      MetricOf("ryn_flow_cache_entries"),          MetricOf("ryn_flow_cache_hits_total"),
      MetricOf("ryn_flow_cache_misses_total"),     MetricOf("ryn_flow_cache_offload_hits_total"),
      MetricOf("ryn_flow_cache_local_hits_total"), MetricOf("ryn_flow_cache_key_insert_failures_total"),
  };
  for (const HostSwitch& hostSwitch : round.Switches()) {
    const auto read = [&](const LcoreList& lcores, FlowStats* stats) {
      return GetFlowStats(hostSwitch.number, lcores, 0, stats);
    };
    const auto add = [&](const FlowStatsRecord& record) {
      cache.Add(
          LabelsOf(hostSwitch).Add("core", record.lcoreID),
          {record.numFlows, record.hits, record.miss, record.fpoHits, record.localHits, record.keyInsertFailCount});
    };
    if (!ForEachCore<FlowStats>(round, hostSwitch, read, add))
      return false;
  }
  *snapshot = {std::move(timeout), std::move(cache)};
  return true;
}

bool CollectOffload(Round& round, Snapshot* snapshot) {
  Samples offload{
      MetricOf("ryn_fpo_hits_total"),
      MetricOf("ryn_fpo_mark_mismatches_total"),
      MetricOf("ryn_fpo_pnic_mismatches_total"),
      MetricOf("ryn_fpo_delayed_mark_matches_total"),
      MetricOf("ryn_fpo_ephemeral_flows"),
      MetricOf("ryn_fpo_transient_flows"),
  };
  for (const HostSwitch& hostSwitch : round.Switches()) {
    const auto read = [&](const LcoreList& lcores, FPOLcoreStats* stats) {
      return GetFPOStats(hostSwitch.number, lcores, stats);
    };
    const auto add = [&](const FPOLcoreRecord& record) {
      offload.Add(LabelsOf(hostSwitch).Add("core", record.lcoreID),
                  {record.hits, record.markMismatched, record.pnicMismatched, record.delayMarkMatching,
                   record.ephemeralFlows, record.transientFlows});
    };
    if (!ForEachCore<FPOLcoreStats>(round, hostSwitch, read, add))
      return false;
  }
  *snapshot = {std::move(offload)};
  return true;
}
