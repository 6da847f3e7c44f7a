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

void Pattern::IncludeBursts() {
  if (burst_every_ms == 0 || burst_permille <= 1000)
    return;
  const Int128 whole = 1000 * static_cast<Int128>(burst_every_ms);
  const Int128 with_bursts = whole + static_cast<Int128>(burst_permille - 1000) * burst_for_ms;
  milli_pps = static_cast<std::int64_t>((milli_pps * whole + with_bursts / 2) / with_bursts);
}

double Pattern::PeakPps(std::int64_t from, std::int64_t until) const {
  if (milli_pps == 0 || until <= start_ms || (stop_ms && from >= *stop_ms))
    return 0;
  // How near the wave comes to its top, a quarter of the period after it begins to rise.
  const std::int64_t quarter = period_ms / 4;
  const std::int64_t at = (from % period_ms + phase_ms % period_ms) % period_ms;
  const std::int64_t to_top = at <= quarter ? quarter - at : quarter - at + period_ms;
  const auto height = [&](std::int64_t off) {  // of the wave so far from its top
    return 1 - static_cast<double>(std::min(off, period_ms - off)) * 4 / static_cast<double>(period_ms);
  };
  const std::int64_t length = until - from;
  double top = 1;
  if (length < to_top) {
    const std::int64_t since_top = (period_ms - to_top) % period_ms;
    top = std::max(height(std::min(since_top, period_ms)), height(to_top - length));
  }
  double factor = 1 + static_cast<double>(swing_permille) / 1000 * top + 1e-6;
  if (burst_every_ms != 0 && burst_permille > 1000 &&
      (length >= burst_every_ms || from % burst_every_ms < burst_for_ms ||
       from % burst_every_ms + length > burst_every_ms))
    factor += static_cast<double>(burst_permille - 1000) / 1000;
  return static_cast<double>(milli_pps) / 1000 * factor;
}

std::uint64_t Share(std::uint64_t n, std::uint64_t part, std::uint64_t whole) {
  if (whole == 0)
    return 0;
  if (((n | part) >> 32) == 0)  // the usual case, several times as fast
    return n * part / whole;
  return static_cast<std::uint64_t>(static_cast<UInt128>(n) * part / whole);
}

}  // namespace simhost
