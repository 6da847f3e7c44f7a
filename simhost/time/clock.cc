#include "simhost/time/clock.h"

#include <algorithm>
#include <ctime>

#include "simhost/traffic/pattern.h"

namespace simhost {

std::int64_t WallNs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

std::int64_t Clock::HostNsAt(std::int64_t wall_ns) const {
  if (frozen)
    return base_host_ns;
  const std::int64_t passed = std::max<std::int64_t>(0, wall_ns - base_wall_ns);  // wall time may be set back
  return static_cast<std::int64_t>(
      std::min<Int128>(kLatestNs, base_host_ns + static_cast<Int128>(passed) * speed_permille / 1000));
}

}  // namespace simhost
