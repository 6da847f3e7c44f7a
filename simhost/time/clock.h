// The host's clock, the only source of time. Wall time comes in here and nowhere else.
#pragma once

#include <cstdint>

namespace simhost {

struct Clock {
  bool frozen = false;
  std::int64_t base_wall_ns = 0;
  std::int64_t base_host_ns = 0;
  std::int64_t speed_permille = 1000;

  std::int64_t HostNsAt(std::int64_t wall_ns) const;
};

std::int64_t WallNs();

}  // namespace simhost
