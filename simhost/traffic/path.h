// The ways that packets take through the host, and how many of them get how far.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace simhost {

// The two directions of a conversation: its packets, and the answers to them. Indexes Conversation::pattern and size.
enum Direction : std::size_t { kThere = 0, kBack = 1 };

// One way out of the switch: to a receiver, or a mirror session's copy of the packet. Costs are those of its core.
struct Leg {
  int port = -1;  // index into Model::ports
  bool copy = false;
  bool blocked = false;      // the flow's actions say DROP
  std::uint64_t one_of = 1;  // a copy: so many packets make one
  std::uint64_t size = 0;    // bytes of a frame
  std::uint64_t device_drop_ppm = 0;
  std::uint64_t fast_ns = 0;
  std::uint64_t slow_half_ns = 0;

  bool operator==(const Leg&) const = default;
};

// One way that packets of a conversation take: in by one port, out by its legs. Derived from the settings when a
// segment begins, so everything in it holds until the segment ends.
struct Path {
  std::size_t number = 0;  // index into Model::paths
  int conversation = 0;
  Direction direction = kThere;
  int part = 0;  // of `parts` ways that share the packets flow by flow
  int parts = 1;
  std::uint64_t flows = 0;           // lasting flows that go this way
  int in = -1;                       // index of the port
  std::vector<Leg> legs;             // receivers first, each gets every packet; then copies
  std::size_t receivers = 0;         // how many of the legs are no copies; 0: there is nowhere to go
  std::size_t first_leg = 0;         // its legs' place among those of all paths
  std::uint64_t asked_before = 0;    // packets until the segment began
  std::uint64_t unanswered_ppm = 0;  // answers only: of the questions, those that are lost however little is going on
  bool oversize = false;
  std::uint64_t crc_ppm = 0;
  std::uint64_t device_drop_ppm = 0;  // what an uplink's device and ring lose of what they receive
  std::uint64_t offload_permille = 0;
  std::uint64_t slow_permille = 0;
  std::uint64_t fast_ns = 0, offload_ns = 0, slow_half_ns = 0;

  int Receiver() const { return receivers > 0 ? legs.front().port : -1; }
  bool operator==(const Path&) const = default;
};

// What the flow cache makes of a packet. The first two take the slow path.
enum PacketClass : std::size_t { kMissed, kPunted, kOffloaded, kLocal, kPacketClasses };
using PacketsByClass = std::array<std::uint64_t, kPacketClasses>;

// How far the packets of a path got, since the segment began. What one stage passes on is what the next one sees:
//     asked - unasked = offered;  offered - link_lost - errors - device_lost - nowhere = the sum of `arrived`;
//     arrived - core_lost = passed, class by class.
struct PathCounts {
  std::uint64_t asked = 0;        // what the pattern makes, of answers without those to questions that are lost anyhow
  std::uint64_t unasked = 0;      // answers that nobody gave: their questions were lost for want of time
  std::uint64_t link_lost = 0;    // a full link
  std::uint64_t errors = 0;       // too large for the switch, or damaged on the wire
  std::uint64_t device_lost = 0;  // by the uplink's device and ring
  std::uint64_t nowhere = 0;      // no receiver
  PacketsByClass arrived{};       // at the core
  PacketsByClass core_lost{};
  std::uint64_t short_flows = 0;  // flows of one packet, among the misses that arrived
  std::uint64_t short_lost = 0;   // of these, lost by the core

  std::uint64_t Offered() const { return asked - unasked; }
  std::uint64_t Passed(PacketClass c) const { return arrived[c] - core_lost[c]; }
  std::uint64_t Slow() const { return Passed(kMissed) + Passed(kPunted); }
  std::uint64_t Fast() const { return Passed(kOffloaded) + Passed(kLocal); }
};

enum Speed : std::size_t { kOnFastPath, kOnSlowPath, kSpeeds };
using PacketsBySpeed = std::array<std::uint64_t, kSpeeds>;

// How far the packets of a leg got, since the segment began: came - blocked - core - device - link = delivered.
struct LegCounts {
  PacketsBySpeed came{};
  PacketsBySpeed blocked{};
  PacketsBySpeed core_lost{};
  PacketsBySpeed device_lost{};
  PacketsBySpeed link_lost{};

  std::uint64_t AtCore(std::size_t s) const { return came[s] - blocked[s]; }
  std::uint64_t Worked(std::size_t s) const { return AtCore(s) - core_lost[s]; }
  std::uint64_t AtLink(std::size_t s) const { return Worked(s) - device_lost[s]; }
  std::uint64_t Delivered(std::size_t s) const { return AtLink(s) - link_lost[s]; }
  std::uint64_t Lost(std::size_t s) const { return came[s] - Delivered(s); }
};

// What cores and links lose for want of time. It is worked out window by window; a window ends with each second of host
// time, or with the segment. `before` and `after` hold all counts when the latest window that lost something began and
// when it ended: in between losses follow the packets, and after it they stay as they are until `known_until_ms`.
struct Losses {
  std::int64_t known_until_ms = 0;
  std::int64_t calm_until_ms = 0;  // until then the peaks of all rates leave room, so that nothing is lost
  bool any = false;                // something was lost in this segment; else the vectors of counts are empty
  std::int64_t before_ms = 0, after_ms = 0;
  std::vector<PathCounts> path_before, path_after;
  std::vector<LegCounts> leg_before, leg_after;
  // By conversation: of a million questions those lost in the latest window, which nobody answers in the next one; and
  // in the window before it.
  std::vector<std::uint64_t> question_loss_ppm, question_loss_before_ppm;
};

}  // namespace simhost
