#include "simhost/traffic/rates.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>
#include <vector>

#include "simhost/traffic/counts.h"
#include "simhost/traffic/paths.h"

namespace simhost {

namespace {

// The stages that lose packets, in the order in which these pass them.
enum Stage : std::size_t {
  kLinkIn,
  kErrors,
  kDeviceIn,
  kNowhere,
  kCoreIn,
  kDropped,
  kCoreOut,
  kDeviceOut,
  kLinkOut,
  kStages
};
constexpr std::array<const char*, kStages> kStageNames{"link_in", "errors",   "device_in",  "nowhere", "core_in",
                                                       "dropped", "core_out", "device_out", "link_out"};

// Counts are of the whole window; PerSecond makes rates of them as they are written.

// One direction of a conversation, all its paths together.
struct TalkRates {
  int from = -1;
  std::vector<int> to;
  std::uint64_t offered = 0;
  std::uint64_t delivered = 0;
  std::array<std::uint64_t, kStages> lost{};
};

// One direction of a link, mirror copies included.
struct LinkRates {
  std::uint64_t packets = 0;
  std::uint64_t bits = 0;
  std::uint64_t lost = 0;
};

std::uint64_t Sum(const PacketsByClass& packets) { return packets[0] + packets[1] + packets[2] + packets[3]; }
std::uint64_t Sum(const PacketsBySpeed& packets) { return packets[0] + packets[1]; }

// Rates of the second that ms is in, or of the part of it that belongs to the segment: losses are known for windows of
// a second, so this is the finest grain at which a core's usage and what it lost can be set side by side. They have to
// be known until its end, which may lie ahead of ms.
class Rates {
 public:
  Rates(const Model& model, std::int64_t ms) : model_(model) {
    // Before the segment nothing is known any more: paths and losses are those of now.
    from_ms_ = std::max(model.segment_ms, ms - ms % 1000);
    until_ms_ = ms - ms % 1000 + 1000;
    links_.resize(model.nics.size());
    for (const Path& path : model.paths)
      AddPath(path);
    // What cores have done is counted apart from what they were asked for, so that both can be compared.
    const WorkCounts begin = CountWork(model, from_ms_);
    const WorkCounts end = CountWork(model, until_ms_);
    for (std::size_t core = 0; core < kCores; ++core)
      done_ns_[core] = end.busy_ns[core] - begin.busy_ns[core];
  }

  std::string AsJson(std::int64_t ms) const {
    std::string text = "{\"host_ms\": " + std::to_string(ms) + ", \"from_ms\": " + std::to_string(from_ms_) +
                       ", \"until_ms\": " + std::to_string(until_ms_) + ", \"conversations\": [";
    const char* comma = "";
    for (const auto& [key, talk] : talks_) {
      text += std::exchange(comma, ", ") + TalkAsJson(model_.conversations[Index(key.first)], key.second, talk);
    }
    text += "], \"cores\": [";
    comma = "";
    for (const Core& core : model_.cores)
      text += std::exchange(comma, ", ") + CoreAsJson(core);
    text += "], \"links\": [";
    comma = "";
    for (std::size_t nic = 0; nic < model_.nics.size(); ++nic) {
      for (const std::size_t way : {0U, 1U})
        text += std::exchange(comma, ", ") + LinkAsJson(model_.nics[nic], way, links_[nic][way]);
    }
    return text + "]}";
  }

 private:
  // Rounded to the nearest; exact where the window is a whole second.
  std::uint64_t PerSecond(std::uint64_t n) const {
    const auto length = static_cast<std::uint64_t>(until_ms_ - from_ms_);
    return static_cast<std::uint64_t>((static_cast<UInt128>(n) * 1000 + length / 2) / length);
  }

  // What the path's packets asked of each stage in the window, and what it lost of them.
  void AddPath(const Path& path) {
    const PathCounts begin = CountPath(model_, path, from_ms_);
    const PathCounts end = CountPath(model_, path, until_ms_);
    TalkRates& talk = talks_[{path.conversation, path.direction}];
    const Port& in = model_.ports[Index(path.in)];
    talk.from = in.id;
    const std::uint64_t offered = end.Offered() - begin.Offered();
    talk.offered += offered;
    talk.lost[kLinkIn] += end.link_lost - begin.link_lost;
    talk.lost[kErrors] += end.errors - begin.errors;
    talk.lost[kDeviceIn] += end.device_lost - begin.device_lost;
    talk.lost[kNowhere] += end.nowhere - begin.nowhere;
    // Everybody who sends to a core asks for its time, whether it passes or not; what is lost is told apart.
    const std::uint64_t lost = Sum(end.core_lost) - Sum(begin.core_lost);
    talk.lost[kCoreIn] += lost;
    Ask(CoreIn(in), Sum(end.arrived) - Sum(begin.arrived), lost, InNs(path, begin, end));
    if (in.IsUplink())
      AddLink(links_[Index(in.nic)][0], offered, end.link_lost - begin.link_lost,
              model_.conversations[Index(path.conversation)].size[path.direction]);
    for (std::size_t i = 0; i < path.legs.size(); ++i)
      AddLeg(path, i, CountLeg(model_, path, i, begin), CountLeg(model_, path, i, end), talk);
  }

  // Copies load cores and links like other packets, but are nobody's deliveries.
  void AddLeg(const Path& path, std::size_t index, const LegCounts& begin, const LegCounts& end, TalkRates& talk) {
    const Leg& leg = path.legs[index];
    const Port& out = model_.ports[Index(leg.port)];
    const auto grown = [&](PacketsBySpeed LegCounts::*figure) { return Sum(end.*figure) - Sum(begin.*figure); };
    const std::uint64_t core_lost = grown(&LegCounts::core_lost);
    const std::uint64_t link_lost = grown(&LegCounts::link_lost);
    std::uint64_t at_core = 0, at_link = 0, delivered = 0, ns = 0;
    for (std::size_t s = 0; s < kSpeeds; ++s) {
      at_core += end.AtCore(s) - begin.AtCore(s);
      at_link += end.AtLink(s) - begin.AtLink(s);
      delivered += end.Delivered(s) - begin.Delivered(s);
      ns += (end.AtCore(s) - begin.AtCore(s)) * (s == kOnSlowPath ? 2 * leg.slow_half_ns : leg.fast_ns);
    }
    Ask(CoreOut(out), at_core, core_lost, ns);
    if (out.IsUplink())
      AddLink(links_[Index(out.nic)][1], at_link, link_lost, leg.size);
    if (leg.copy)
      return;  // a mirror session's, not the conversation's
    if (std::find(talk.to.begin(), talk.to.end(), out.id) == talk.to.end())
      talk.to.push_back(out.id);
    talk.delivered += delivered;
    talk.lost[kDropped] += grown(&LegCounts::blocked);
    talk.lost[kCoreOut] += core_lost;
    talk.lost[kDeviceOut] += grown(&LegCounts::device_lost);
    talk.lost[kLinkOut] += link_lost;
  }

  // The time that they would have taken of their core, all of them.
  static std::uint64_t InNs(const Path& path, const PathCounts& begin, const PathCounts& end) {
    const auto came = [&](PacketClass c) { return end.arrived[c] - begin.arrived[c]; };
    return 2 * path.slow_half_ns * (came(kMissed) + came(kPunted)) + path.offload_ns * came(kOffloaded) +
           path.fast_ns * came(kLocal);
  }

  void Ask(int core, std::uint64_t packets, std::uint64_t lost, std::uint64_t ns) {
    asked_ns_[Index(core)] += ns;
    asked_[Index(core)] += packets;
    lost_[Index(core)] += lost;
  }

  // packets: those that came to the link, of which so many were lost.
  static void AddLink(LinkRates& link, std::uint64_t packets, std::uint64_t lost, std::uint64_t size) {
    link.packets += packets - lost;
    link.bits += (packets - lost) * LinkBits(size);
    link.lost += lost;
  }

  // Keys and units of the JSON are those of docs/ryn-sim.md: packets a second, percent, megabits a second.
  std::string TalkAsJson(const Conversation& talk, Direction direction, const TalkRates& rates) const {
    std::string text = "{\"id\": " + std::to_string(talk.id) + ", \"direction\": \"" +
                       (direction == kBack ? "back" : "there") + "\", \"switch\": " + std::to_string(talk.sw) +
                       ", \"from\": " + std::to_string(rates.from) + ", \"to\": [";
    const char* comma = "";
    for (const int port : rates.to)
      text += std::exchange(comma, ", ") + std::to_string(port);
    text += "], \"offered\": " + std::to_string(PerSecond(rates.offered)) +
            ", \"delivered\": " + std::to_string(PerSecond(rates.delivered)) + ", \"lost\": {";
    comma = "";
    for (std::size_t stage = 0; stage < kStages; ++stage)
      text += std::exchange(comma, ", ") + ("\"" + std::string(kStageNames[stage])) +
              "\": " + std::to_string(PerSecond(rates.lost[stage]));
    return text + "}}";
  }

  std::string CoreAsJson(const Core& core) const {
    const std::size_t c = Index(core.id);
    const auto length_ns = static_cast<std::uint64_t>(until_ms_ - from_ms_) * 1'000'000;
    return "{\"core\": " + std::to_string(core.id) + ", \"node\": " + std::to_string(core.node) +
           ", \"stuck\": " + (core.stuck ? "true" : "false") +
           ", \"busy_percent\": " + std::to_string(Share(done_ns_[c], 100, length_ns)) +
           ", \"asked_percent\": " + std::to_string(Share(asked_ns_[c], 100, length_ns)) +
           ", \"packets\": " + std::to_string(PerSecond(asked_[c])) +
           ", \"lost\": " + std::to_string(PerSecond(lost_[c])) + "}";
  }

  std::string LinkAsJson(const Nic& nic, std::size_t way, const LinkRates& link) const {
    return "{\"nic\": \"" + Escaped(nic.name) + "\", \"direction\": \"" + (way == 0 ? "in" : "out") +
           "\", \"state\": \"" +
           (nic.down   ? "down"
            : nic.hung ? "hung"
                       : "up") +
           "\", \"mbps\": " + std::to_string(PerSecond(link.bits) / 1'000'000) +
           ", \"limit_mbps\": " + std::to_string(nic.link_mbps) +
           ", \"packets\": " + std::to_string(PerSecond(link.packets)) +
           ", \"lost\": " + std::to_string(PerSecond(link.lost)) + "}";
  }

  // As JSON has it: a device's name may hold anything but NUL.
  static std::string Escaped(const std::string& name) {
    constexpr char kHex[] = "0123456789abcdef";
    std::string text;
    for (const char c : name) {
      if (const auto byte = static_cast<unsigned char>(c); byte < 0x20)
        text += std::string("\\u00") + kHex[byte >> 4] + kHex[byte & 15];
      else
        text += (c == '"' || c == '\\' ? std::string("\\") : std::string()) + c;
    }
    return text;
  }

  const Model& model_;
  std::int64_t from_ms_ = 0, until_ms_ = 0;
  std::map<std::pair<int, Direction>, TalkRates> talks_;  // by conversation and direction
  std::array<std::uint64_t, kCores> done_ns_{}, asked_ns_{}, asked_{}, lost_{};
  std::vector<std::array<LinkRates, 2>> links_;  // in, out
};

}  // namespace

std::string RatesAsJson(const Model& model, std::int64_t ms) { return Rates(model, ms).AsJson(ms); }

}  // namespace simhost
