// The host's clock, the only source of time. Wall time comes in here and nowhere else.
#pragma once

#include <cstdint>

namespace simhost {

// The latest host time there is, some 146 years after the host booted. A clock that gets there stands still.
inline constexpr std::int64_t kLatestNs = std::int64_t{1} << 62;
inline constexpr std::int64_t kLatestMs = kLatestNs / 1'000'000;

struct Clock {
  bool frozen = false;
  std::int64_t base_wall_ns = 0;  // since 1970
  std::int64_t base_host_ns = 0;  // host time at base_wall_ns, and for ever while frozen
  std::int64_t speed_permille = 1000;

  std::int64_t HostNsAt(std::int64_t wall_ns) const;
};

std::int64_t WallNs();

}  // namespace simhost
