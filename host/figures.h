// Usages and loads that are computed from the balancer's counters, in unsigned 64 bits with truncating division.
#pragma once

#include <cstdint>

#include "host/records/loadbal.h"

struct PortFigures {
  // Four usages in percent, on cores A, B, A, B; then the load on A and on B, in units of 100,000.
  std::uint64_t values[6];
};

struct CoreFigures {
  std::uint64_t values[2];  // usage in percent, load in units of 100,000
};

namespace figures {

constexpr std::uint64_t kLoadUnit = 100000;

inline std::uint64_t LoadUnits(std::uint64_t work) { return (work + kLoadUnit - 1) / kLoadUnit; }

// A difference of marks in units of 2 to the power 20, rounded up.
inline std::uint64_t RoundedDifference(std::uint64_t now, std::uint64_t before) {
  return (now + 0xFFFFF - before) >> 20;
}

// What turns a counter of work into a share of a core's usage: times the core's busy time, by the divisor.
struct CoreShare {
  std::uint64_t busy;
  std::uint64_t divisor;  // may have wrapped, to 0 as well

  std::uint64_t Usage(std::uint64_t counter, std::uint64_t scale) const {
    return divisor == 0 ? 0 : busy * scale * counter / divisor;
  }
};

inline CoreShare ShareOf(const LBCoreRecord (&cores)[kMaxStatsCores], std::uint32_t core) {
  if (core >= kMaxStatsCores)
    return {0, 0};
  const LBCoreRecord& record = cores[core];
  return {RoundedDifference(record.busyNow, record.busyBefore),
          RoundedDifference(record.timeNow, record.timeBefore) * record.workTotal};
}

}  // namespace figures

// A core number above 63 gives 0 for its usages, and so does a divisor that wraps to 0.
inline PortFigures FiguresOf(const LBPortRecord& port, const LBCoreRecord (&cores)[kMaxStatsCores]) {
  const std::uint64_t(&c)[4] = port.counters;
  const figures::CoreShare a = figures::ShareOf(cores, port.cores[0]), b = figures::ShareOf(cores, port.cores[1]);
  // The first two counters count double.
  return {{
      a.Usage(c[0], 200),
      b.Usage(c[1], 200),
      a.Usage(c[2], 100),
      b.Usage(c[3], 100),
      figures::LoadUnits(2 * c[0] + c[2]),
      figures::LoadUnits(2 * c[1] + c[3]),
  }};
}

inline CoreFigures FiguresOf(const LBCoreRecord& core) {
  // Raw differences here, not rounded as they are for ports.
  const std::uint64_t period = core.timeNow - core.timeBefore;
  const std::uint64_t usage = period == 0 ? 0 : (core.busyNow - core.busyBefore) * 100 / period;
  return {{usage, figures::LoadUnits(core.workTotal)}};
}
