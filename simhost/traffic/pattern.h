// How many packets a conversation has sent by a given time: an exact integral, so that any two processes agree to the
// packet, and one that never falls.
#pragma once

#include <cstdint>
#include <optional>

namespace simhost {

__extension__ using Int128 = __int128;
__extension__ using UInt128 = unsigned __int128;

struct Pattern {
  std::int64_t milli_pps = 0;  // mean rate, without what bursts add
  std::int64_t swing_permille = 0;
  std::int64_t period_ms = 86'400'000;
  std::int64_t phase_ms = 0;
  std::int64_t burst_every_ms = 0;  // 0: no bursts
  std::int64_t burst_for_ms = 0;
  std::int64_t burst_permille = 1000;  // the rate while a burst lasts
  std::int64_t start_ms = 0;
  std::optional<std::int64_t> stop_ms;

  std::uint64_t PacketsUntil(std::int64_t ms) const;

  // Takes milli_pps for the mean with bursts included, and lowers it by what they add.
  void IncludeBursts();

  // No second in [from, until) has more packets than this, rounding apart.
  double PeakPps(std::int64_t from, std::int64_t until) const;

  bool operator==(const Pattern&) const = default;
};

inline constexpr std::uint64_t kMillion = 1'000'000;  // the whole, where a part is in ppm

// n * part / whole, rounded down. Both the share and the rest grow, or stay, as n grows, so that a count may be divided
// again and again without the parts' sum or direction ever going wrong.
std::uint64_t Share(std::uint64_t n, std::uint64_t part, std::uint64_t whole);

}  // namespace simhost
