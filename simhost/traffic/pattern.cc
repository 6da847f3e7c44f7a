#include "simhost/traffic/pattern.h"

#include <algorithm>

namespace simhost {

namespace {

// The integral of the triangle wave from 0 to x, times 8 * period. The wave has the given period and swings between -1
// and 1; it is 0 and rising at x = 0, and its integral over a whole period is 0.
Int128 TriangleIntegral(std::int64_t x, std::int64_t period) {
  const Int128 p = period;
  const Int128 at = x % period;
  if (4 * at <= p)
    return 16 * at * at;
  if (4 * at <= 3 * p) {
    const Int128 u = 4 * at - p;
    return p * p + 2 * p * u - u * u;
  }
  return 16 * (p - at) * (p - at);
}

// How much of the time from 0 to x lies in bursts.
std::int64_t BurstMs(std::int64_t x, std::int64_t every, std::int64_t length) {
  return x / every * length + std::min(x % every, length);
}

}  // namespace

std::uint64_t Pattern::PacketsUntil(std::int64_t ms) const {
  const std::int64_t end = stop_ms ? std::min(ms, *stop_ms) : ms;
  if (end <= start_ms || milli_pps == 0)
    return 0;

  // Everything over one denominator: 10^6 milliseconds per milli-packet rate, 1000 for permille, 8 * period for the
  // wave.
  const Int128 wave = 8 * static_cast<Int128>(period_ms);
  Int128 weighted = static_cast<Int128>(end - start_ms) * 1000 * wave;
  if (swing_permille != 0)
    weighted += swing_permille *
                (TriangleIntegral(end + phase_ms, period_ms) - TriangleIntegral(start_ms + phase_ms, period_ms));
  if (burst_every_ms != 0 && burst_permille > 1000)
    weighted += static_cast<Int128>(burst_permille - 1000) * wave *
                (BurstMs(end, burst_every_ms, burst_for_ms) - BurstMs(start_ms, burst_every_ms, burst_for_ms));
  return static_cast<std::uint64_t>(milli_pps * weighted / (static_cast<Int128>(1'000'000) * 1000 * wave));
}

std::int64_t Pattern::MeanMilliPps() const {
  if (burst_every_ms == 0 || burst_permille <= 1000)
    return milli_pps;
  const Int128 more = static_cast<Int128>(milli_pps) * (burst_permille - 1000) * burst_for_ms;
  return milli_pps + static_cast<std::int64_t>(more / (1000 * static_cast<Int128>(burst_every_ms)));
}

std::uint64_t Share(std::uint64_t n, std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? 0 : static_cast<std::uint64_t>(static_cast<UInt128>(n) * part / whole);
}

}  // namespace simhost
