// The figures that are computed from the balancer's counters, in unsigned 64 bits with truncating division.
#pragma once

#include <cstdint>

#include "host/records/loadbal.h"

struct PortFigures {
  std::uint64_t values[6];  // four usages, on cores A, B, A, B; then the load on A and on B
};

struct CoreFigures {
  std::uint64_t values[2];  // usage, load
};

// A core number above 63 gives 0 for its usages.
PortFigures FiguresOf(const LBPortRecord& port, const LBCoreRecord (&cores)[kMaxStatsCores]);

CoreFigures FiguresOf(const LBCoreRecord& core);
