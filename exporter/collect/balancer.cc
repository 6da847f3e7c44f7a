// core, balancer: the usage of cores, and what the balancer goes by.

#include <algorithm>
#include <string_view>

#include "exporter/collect/collect.h"
#include "exporter/settings.h"
#include "host/read/balancer.h"

namespace {

// Busy share of the time between the two marks. Marks that contradict each other give a share within 0 and 1 all the
// same.
double Usage(const LBCoreRecord& core) {
  const std::uint64_t period = core.timeNow - core.timeBefore;
  const std::uint64_t busy = core.busyNow - core.busyBefore;
  return period == 0 ? 0 : std::min(static_cast<double>(busy) / static_cast<double>(period), 1.0);
}

// In the order of the record
constexpr std::string_view kWeightNames[kWeights] = {
    "cross_numa_communication", "cross_numa_migration", "cross_lcore_communication",
    "cross_lcore_migration",    "vm_affinity",          "device_affinity",
    "stability_decay",          "port_count",
};

// By the value of the metric word
constexpr std::string_view kAlgorithms[] = {"none", "cpu", "count"};

std::string_view AlgorithmName(std::uint32_t metric) {
  return metric < std::size(kAlgorithms) ? kAlgorithms[metric] : "invalid";
}

}  // namespace

// Usage is the host's, whatever switch answers: the first one that does is enough.
bool CollectCores(Round& round, Snapshot* snapshot) {
  Samples usage{MetricOf("ryn_core_usage_ratio")};
  bool answered = round.Switches().empty();
  for (const HostSwitch& hostSwitch : round.Switches()) {
    std::uint64_t cores = 0;
    LBPortStats stats;
    if (!round.Check(GetLCoreIDBitmap(hostSwitch.number, &cores), &hostSwitch) ||
        !round.Check(DumpLBPortStats(hostSwitch.number, &stats), &hostSwitch)) {
      if (!round.InTime())
        return false;
      continue;
    }
    for (std::uint32_t core = 0; core < kMaxStatsCores; ++core) {
      if (cores >> core & 1)
        usage.AddReal(Labels().Add("core", core), {Usage(stats.cores[core])});
    }
    answered = true;
    break;
  }
  *snapshot = {std::move(usage)};
  return answered;
}

bool CollectBalancer(Round& round, Snapshot* snapshot) {
  Samples info{MetricOf("ryn_balancer_info")};
  for (const HostSwitch& hostSwitch : round.Switches()) {
    LBSwitchOptions options = {};
    const Status status = ReadBalancerOptions(hostSwitch, &options);
    if (status.kind == Status::Kind::kInvalidResponse)
      options.metric = static_cast<std::uint32_t>(std::size(kAlgorithms));  // what is stored is none
    else if (!round.Check(status, &hostSwitch)) {
      if (!round.Gone())
        return false;
      continue;
    }
    info.Add(LabelsOf(hostSwitch).Add("algorithm", AlgorithmName(options.metric)), {1});
  }

  Samples weights{MetricOf("ryn_balancer_weight")};
  LBWeights values;
  if (!round.Check(GetLBWeights(&values)))
    return false;
  for (std::size_t i = 0; i < kWeights; ++i)
    weights.Add(Labels().Add("weight", kWeightNames[i]), {values.words[i]});
  *snapshot = {std::move(info), std::move(weights)};
  return true;
}
