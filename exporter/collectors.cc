#include "exporter/collectors.h"

#include "exporter/collect/collect.h"

const Collector kCollectors[kCollectorCount] = {
    {"switch", true, CollectSwitches},   {"port", true, CollectPorts},      {"uplink", true, CollectUplinks},
    {"flow", true, CollectFlows},        {"fpo", true, CollectOffload},     {"core", true, CollectCores},
    {"balancer", true, CollectBalancer}, {"queue", false, CollectQueues},   {"mac", false, CollectMacs},
    {"netq", false, CollectFilters},     {"mirror", false, CollectMirrors},
};

CollectorSet DefaultCollectors() {
  CollectorSet set;
  for (std::size_t i = 0; i < kCollectorCount; ++i)
    set[i] = kCollectors[i].byDefault;
  return set;
}
