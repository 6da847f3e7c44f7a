// The collectors: each reads one subject of the host and makes samples of it.
#pragma once

#include <bitset>
#include <cstddef>
#include <string_view>
#include <vector>

#include "exporter/samples.h"

class Round;

// What a collector has read. It does not change once it is published.
using Snapshot = std::vector<Samples>;

struct Collector {
  std::string_view name;
  bool byDefault;
  // False after a failure that the round was told of; the samples are dropped then.
  bool (*collect)(Round& round, Snapshot* snapshot);
};

// In the order in which they run
inline constexpr std::size_t kCollectorCount = 11;
extern const Collector kCollectors[kCollectorCount];

using CollectorSet = std::bitset<kCollectorCount>;
CollectorSet DefaultCollectors();
