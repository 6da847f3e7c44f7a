#include "simhost/traffic/counts.h"

#include <algorithm>
#include <set>

#include "simhost/traffic/losses.h"
#include "simhost/traffic/paths.h"

namespace simhost {

namespace {

constexpr std::uint64_t kAggregated = 4;  // frames that large receive offload makes one of

const Conversation& TalkOf(const Model& model, const Path& path) {
  return model.conversations[Index(path.conversation)];
}

// The packets that take this path, of the n that its conversation has sent. Flows are spread evenly over the parts and
// packets evenly over the flows; the shares of the parts before this one are taken off first, so that all parts
// together have exactly n.
std::uint64_t PartOf(const Conversation& talk, const Path& path, std::uint64_t n) {
  std::uint64_t flows = talk.flows;
  std::uint64_t rest = n;
  const auto parts = static_cast<std::uint64_t>(path.parts);
  for (std::uint64_t part = 0; part < static_cast<std::uint64_t>(path.part); ++part) {
    const std::uint64_t own = (talk.flows + parts - 1 - part) / parts;
    rest -= Share(rest, own, flows);
    flows -= own;
  }
  return Share(rest, path.flows, flows);
}

// The packets lost among the first n. Losses are known after n_before and n_after packets, n_before <= n, and are
// spread evenly over the packets between the two, so the result never falls as n grows.
std::uint64_t LostOf(std::uint64_t n, std::uint64_t lost_before, std::uint64_t n_before, std::uint64_t lost_after,
                     std::uint64_t n_after) {
  if (n >= n_after || lost_before == lost_after)
    return lost_after;
  return lost_before + Share(lost_after - lost_before, n - n_before, n_after - n_before);
}

// Adds to the counters from `first` on: bytes and packets in all, then those of multicast and of broadcast.
void AddTraffic(PortCounts& words, std::size_t first, const Conversation& talk, std::uint64_t packets,
                std::uint64_t bytes) {
  words[first] += bytes;
  words[first + 1] += packets;
  if (talk.delivery != Delivery::kUnicast) {
    const std::size_t cast = first + (talk.delivery == Delivery::kMulticast ? 2 : 4);
    words[cast] += bytes;
    words[cast + 1] += packets;
  }
}

// Work that packets make on a core, in nanoseconds; on the slow path half of it, since the platform counts that twice.
struct Work {
  std::uint64_t slow_half_ns = 0;
  std::uint64_t fast_ns = 0;
};

Work WorkIn(const Path& path, const PathCounts& counts) {
  return {counts.Slow() * path.slow_half_ns,
          counts.Passed(kOffloaded) * path.offload_ns + counts.Passed(kLocal) * path.fast_ns};
}

Work WorkOut(const Leg& leg, const LegCounts& counts) {
  return {counts.Worked(kOnSlowPath) * leg.slow_half_ns, counts.Worked(kOnFastPath) * leg.fast_ns};
}

std::uint64_t LostByCore(const PathCounts& counts) {
  std::uint64_t lost = 0;
  for (const std::uint64_t packets : counts.core_lost)
    lost += packets;
  return lost;
}

// What enters the switch: an uplink has received it, any other port has sent it. Lost packets are the drops of the port
// they came in by. Packets that the core passed are counted by the speed it passed them at; those that it lost had none
// yet, so their drops stand with the fast ones.
void AddIncoming(const Model& model, const Path& path, const PathCounts& counts, PortCounts& words) {
  const Conversation& talk = TalkOf(model, path);
  const std::uint64_t size = talk.size[path.direction];
  const bool uplink = model.ports[Index(path.in)].IsUplink();
  const std::size_t first = uplink ? kRxBytes : kTxBytes;
  AddTraffic(words, first, talk, counts.Fast(), counts.Fast() * size);
  AddTraffic(words, kSlow + first, talk, counts.Slow(), counts.Slow() * size);
  // A packet without a receiver is a drop too.
  words[uplink ? kRxDrops : kTxDrops] += counts.link_lost + counts.device_lost + counts.nowhere + LostByCore(counts);
  words[uplink ? kRxErrors : kTxErrors] += counts.errors;
  const Work work = WorkIn(path, counts);
  words[kWork + (uplink ? 1 : 0)] += work.slow_half_ns;
  words[kWork + (uplink ? 3 : 2)] += work.fast_ns;
}

// What leaves the switch: an uplink sends it, any other port receives it. Bytes are those of the frames, which large
// receive offload does not change.
void AddOutgoing(const Model& model, const Path& path, const Leg& leg, const LegCounts& counts, PortCounts& words) {
  const Conversation& talk = TalkOf(model, path);
  const Port& port = model.ports[Index(leg.port)];
  const bool uplink = port.IsUplink();
  const std::size_t first = uplink ? kTxBytes : kRxBytes;
  const std::uint64_t fast = counts.Delivered(kOnFastPath);
  const std::uint64_t slow = counts.Delivered(kOnSlowPath);
  // Large receive offload merges kAggregated TCP frames (protocol 6) into one packet, rounded up: the count grows with
  // the frames, and the first frame shows.
  const bool aggregate =
      !uplink && !leg.copy && port.lro != 0 && talk.protocol == 6 && talk.delivery == Delivery::kUnicast;
  AddTraffic(words, first, talk, aggregate ? (fast + kAggregated - 1) / kAggregated : fast, fast * leg.size);
  AddTraffic(words, kSlow + first, talk, slow, slow * leg.size);
  words[uplink ? kTxDrops : kRxDrops] += counts.Lost(kOnFastPath);
  words[kSlow + (uplink ? kTxDrops : kRxDrops)] += counts.Lost(kOnSlowPath);
  const Work work = WorkOut(leg, counts);
  words[kWork + (uplink ? 0 : 1)] += work.slow_half_ns;
  words[kWork + (uplink ? 2 : 3)] += work.fast_ns;
}

// Receive queues are told apart by the port that a frame is for, transmit queues by the one that it is from.
int QueueOf(const Model& model, const Path& path, bool transmit) {
  if (transmit)
    return model.ports[Index(path.in)].id;
  return path.receivers == 1 ? model.ports[Index(path.Receiver())].id : 0;
}

// packets, each of so many bytes.
void AddToQueue(const Conversation& talk, std::uint64_t packets, std::uint64_t bytes, QueueCounts& words) {
  words[kQueuePackets] += packets;
  words[kQueueBytes] += packets * bytes;
  if (talk.delivery != Delivery::kUnicast)
    words[talk.delivery == Delivery::kMulticast ? kQueueMulticast : kQueueBroadcast] += packets;
}

// A packet is lost in one place only: the uplink's drops are the sum of what its device and link had no room for
// (kQueueFifo) and what the core had no time or no receiver for (kQueueMissed). Bad frames are errors, not drops.
void AddReceiveQueue(const Model& model, const Path& path, const PathCounts& counts, QueueCounts& words) {
  const Conversation& talk = TalkOf(model, path);
  const std::uint64_t unserved = counts.link_lost + counts.device_lost;
  const std::uint64_t missed = counts.nowhere + LostByCore(counts);
  AddToQueue(talk, counts.Fast() + counts.Slow(), talk.size[path.direction], words);
  words[path.oversize ? kQueueLength : kQueueCrc] += counts.errors;
  words[kQueueFifo] += unserved;
  words[kQueueMissed] += missed;
  words[kQueueDrops] += unserved + missed;
}

// Copies of mirror sessions are sent like any other packet. All that a device loses while it hangs is called aborted.
void AddTransmitQueue(const Model& model, const Path& path, const Leg& leg, const LegCounts& counts,
                      QueueCounts& words) {
  AddToQueue(TalkOf(model, path), counts.Delivered(kOnFastPath) + counts.Delivered(kOnSlowPath), leg.size, words);
  const std::uint64_t lost = counts.Lost(kOnFastPath) + counts.Lost(kOnSlowPath);
  words[kQueueDrops] += lost;
  words[model.nics[Index(model.ports[Index(leg.port)].nic)].hung ? kQueueAborted : kQueueFifo] += lost;
}

// Hits and misses of the flow cache, of packets that the core passed. While the cache is off there are neither.
void AddFlows(const PathCounts& counts, bool flow_cache, FlowCounts& words) {
  if (!flow_cache)
    return;
  words[kFlowMisses] += counts.Passed(kMissed);
  words[kFlowOffloadHits] += counts.Passed(kOffloaded);
  words[kFlowLocalHits] += counts.Passed(kPunted) + counts.Passed(kLocal);
  words[kFlowShortFlows] += counts.short_flows - counts.short_lost;
}

}  // namespace

// Since the host booted, not since the segment began: settings do not change what a pattern has made so far.
std::uint64_t PacketsOf(const Model& model, const Path& path, std::int64_t ms) {
  const Conversation& talk = TalkOf(model, path);
  return PartOf(talk, path, talk.pattern[path.direction].PacketsUntil(ms));
}

void CountAsked(const Model& model, const Path& path, std::int64_t ms, PathCounts& counts) {
  const std::uint64_t packets = PacketsOf(model, path, ms) - path.asked_before;
  counts.asked = packets - Share(packets, path.unanswered_ppm, kMillion);
}

// Each stage takes its share of what is left (Share), so whatever is rounded, what came is what went on and what was
// lost.
void CountArrived(const Model& model, const Path& path, PathCounts& counts) {
  const Conversation& talk = TalkOf(model, path);
  std::uint64_t rest = counts.Offered() - counts.link_lost;
  counts.errors = path.oversize ? rest : Share(rest, path.crc_ppm, kMillion);
  rest -= counts.errors;
  counts.device_lost = Share(rest, path.device_drop_ppm, kMillion);
  rest -= counts.device_lost;
  counts.nowhere = path.receivers == 0 ? rest : 0;
  rest -= counts.nowhere;

  counts.arrived = {};
  if (!model.FindSwitch(static_cast<std::uint32_t>(talk.sw))->flow_cache) {  // all is slow, nothing is looked up
    counts.arrived[kPunted] = rest;
    return;
  }
  // The first packet of each lasting flow misses, then those that open a short flow.
  const std::uint64_t before = PartOf(talk, path, model.base.seen[Index(path.conversation)][path.direction]);
  const std::uint64_t first = std::min(path.flows, before + rest) - std::min(path.flows, before);
  counts.short_flows = Share(rest - first, talk.churn_ppm, kMillion);
  counts.arrived[kMissed] = first + counts.short_flows;
  const std::uint64_t hits = rest - counts.arrived[kMissed];
  counts.arrived[kPunted] = Share(hits, path.slow_permille, 1000);
  const std::uint64_t fast = hits - counts.arrived[kPunted];
  counts.arrived[kOffloaded] = Share(fast, path.offload_permille, 1000);
  counts.arrived[kLocal] = fast - counts.arrived[kOffloaded];
}

void CountCame(const Leg& leg, const PathCounts& path, LegCounts& counts) {
  if (leg.copy)  // one of so many, whatever speed the packets had; the copy itself is fast
    counts.came = {(path.Fast() + path.Slow()) / leg.one_of, 0};
  else
    counts.came = {path.Fast(), path.Slow()};
  counts.blocked = leg.blocked ? counts.came : PacketsBySpeed{};
}

void CountDeviceLoss(const Leg& leg, LegCounts& counts) {
  for (std::size_t speed = 0; speed < kSpeeds; ++speed)
    counts.device_lost[speed] = Share(counts.Worked(speed), leg.device_drop_ppm, kMillion);
}

// The stages in their order. Losses for want of time are known before and after the latest window that lost something;
// each is spread over the packets that came to its own stage in between. Before that window nobody asks, and after it
// losses stand still while packets go on.
PathCounts CountPath(const Model& model, const Path& path, std::int64_t ms) {
  PathCounts counts;
  CountAsked(model, path, ms, counts);
  if (!model.losses.any) {
    CountArrived(model, path, counts);
    return counts;
  }
  const PathCounts& before = model.losses.path_before[path.number];
  const PathCounts& after = model.losses.path_after[path.number];
  counts.unasked = LostOf(counts.asked, before.unasked, before.asked, after.unasked, after.asked);
  counts.link_lost = LostOf(counts.Offered(), before.link_lost, before.Offered(), after.link_lost, after.Offered());
  CountArrived(model, path, counts);
  for (std::size_t c = 0; c < kPacketClasses; ++c)
    counts.core_lost[c] =
        LostOf(counts.arrived[c], before.core_lost[c], before.arrived[c], after.core_lost[c], after.arrived[c]);
  counts.short_lost =
      LostOf(counts.short_flows, before.short_lost, before.short_flows, after.short_lost, after.short_flows);
  return counts;
}

LegCounts CountLeg(const Model& model, const Path& path, std::size_t leg, const PathCounts& counts) {
  LegCounts own;
  CountCame(path.legs[leg], counts, own);
  if (!model.losses.any) {
    CountDeviceLoss(path.legs[leg], own);
    return own;
  }
  const LegCounts& before = model.losses.leg_before[path.first_leg + leg];
  const LegCounts& after = model.losses.leg_after[path.first_leg + leg];
  for (std::size_t s = 0; s < kSpeeds; ++s)
    own.core_lost[s] =
        LostOf(own.AtCore(s), before.core_lost[s], before.AtCore(s), after.core_lost[s], after.AtCore(s));
  CountDeviceLoss(path.legs[leg], own);
  for (std::size_t s = 0; s < kSpeeds; ++s)
    own.link_lost[s] =
        LostOf(own.AtLink(s), before.link_lost[s], before.AtLink(s), after.link_lost[s], after.AtLink(s));
  return own;
}

PortCounts CountPort(const Model& model, int port, std::int64_t ms) {
  PortCounts words = model.base.ports[Index(port)];
  for (const int index : model.paths_of_port[Index(port)]) {
    const Path& path = model.paths[Index(index)];
    const PathCounts counts = CountPath(model, path, ms);
    if (path.in == port)
      AddIncoming(model, path, counts, words);
    for (std::size_t leg = 0; leg < path.legs.size(); ++leg) {
      if (path.legs[leg].port == port)
        AddOutgoing(model, path, path.legs[leg], CountLeg(model, path, leg, counts), words);
    }
  }
  return words;
}

// A port has at least one queue in each direction; numbers beyond it fold onto those that there are.
QueueCounts CountQueue(const Model& model, int port, bool transmit, int queue, std::int64_t ms) {
  const std::vector<QueueCounts>& queues = model.base.queues.at(port)[transmit ? 1 : 0];
  QueueCounts words = queues[Index(queue)];
  for (const int index : model.paths_of_port[Index(port)]) {
    const Path& path = model.paths[Index(index)];
    if ((!transmit && path.in != port) || QueueOf(model, path, transmit) % static_cast<int>(queues.size()) != queue)
      continue;
    const PathCounts counts = CountPath(model, path, ms);
    if (!transmit)
      AddReceiveQueue(model, path, counts, words);
    for (std::size_t leg = 0; transmit && leg < path.legs.size(); ++leg) {
      if (path.legs[leg].port == port)
        AddTransmitQueue(model, path, path.legs[leg], CountLeg(model, path, leg, counts), words);
    }
  }
  return words;
}

// Of flows that come in on the core by ports of the switch.
FlowCounts CountFlows(const Model& model, int sw, int core, std::int64_t ms) {
  FlowCounts words = model.base.flows[Index(sw * kCores + core)];
  const Switch* found = model.FindSwitch(static_cast<std::uint32_t>(sw));
  for (const int index : model.paths_of_flow_core[Index(sw * kCores + core)])
    AddFlows(CountPath(model, model.paths[Index(index)], ms), found->flow_cache, words);
  return words;
}

// Packets that were worked on count, lost ones do not: a core's work and its losses are of the same moment.
WorkCounts CountWork(const Model& model, std::int64_t ms) {
  WorkCounts counts;
  counts.busy_ns = model.base.busy_ns;
  counts.ports.resize(model.ports.size());
  for (std::size_t i = 0; i < model.ports.size(); ++i)
    std::copy_n(model.base.ports[i].begin() + kWork, 4, counts.ports[i].begin());
  const auto add = [&](int index, bool sends, int core, const Work& work) {
    counts.busy_ns[Index(core)] += 2 * work.slow_half_ns + work.fast_ns;
    counts.ports[Index(index)][sends ? 0 : 1] += work.slow_half_ns;
    counts.ports[Index(index)][sends ? 2 : 3] += work.fast_ns;
  };
  for (const Path& path : model.paths) {
    const Port& in = model.ports[Index(path.in)];
    const PathCounts passed = CountPath(model, path, ms);
    add(path.in, !in.IsUplink(), CoreIn(in), WorkIn(path, passed));
    for (std::size_t leg = 0; leg < path.legs.size(); ++leg) {
      const Port& out = model.ports[Index(path.legs[leg].port)];
      add(path.legs[leg].port, out.IsUplink(), CoreOut(out),
          WorkOut(path.legs[leg], CountLeg(model, path, leg, passed)));
    }
  }
  return counts;
}

// Counts of paths are since the segment began, so each is added to its base exactly once. A segment of no length adds
// nothing, but whoever closes it is about to change the base, hence base_changed.
void CloseSegment(Model& model, std::int64_t ms) {
  if (ms > model.segment_ms) {
    SolveLosses(model, ms);
    Base& base = model.base;
    const WorkCounts work = CountWork(model, ms);
    base.busy_ns = work.busy_ns;
    // What the flow cache has seen decides what the following paths miss, so it is added last.
    std::vector<std::uint64_t> seen;
    seen.reserve(model.paths.size());
    for (const Path& path : model.paths) {
      const PathCounts counts = CountPath(model, path, ms);
      const Port& in = model.ports[Index(path.in)];
      AddIncoming(model, path, counts, base.ports[Index(path.in)]);
      const auto queue_of = [&](int port, bool transmit) -> QueueCounts& {
        std::vector<QueueCounts>& queues = base.queues.at(port)[transmit ? 1 : 0];
        return queues[Index(QueueOf(model, path, transmit)) % queues.size()];
      };
      if (in.IsUplink())
        AddReceiveQueue(model, path, counts, queue_of(path.in, false));
      for (std::size_t i = 0; i < path.legs.size(); ++i) {
        const Leg& leg = path.legs[i];
        const LegCounts own = CountLeg(model, path, i, counts);
        AddOutgoing(model, path, leg, own, base.ports[Index(leg.port)]);
        if (model.ports[Index(leg.port)].IsUplink())
          AddTransmitQueue(model, path, leg, own, queue_of(leg.port, true));
      }
      AddFlows(counts, model.FindSwitch(static_cast<std::uint32_t>(in.sw))->flow_cache,
               base.flows[Index(in.sw * kCores + CoreIn(in))]);
      std::uint64_t arrived = 0;
      for (const std::uint64_t packets : counts.arrived)
        arrived += packets;
      seen.push_back(arrived);
    }
    for (std::size_t i = 0; i < model.paths.size(); ++i) {
      const Path& path = model.paths[i];
      std::uint64_t& flows = base.seen[Index(path.conversation)][path.direction];
      flows = std::min<std::uint64_t>(flows + seen[i], TalkOf(model, path).flows);
    }
    model.segment_ms = ms;
    BeginSegment(model);
  }
  model.base_changed = true;
}

// Flows are known by conversation, so all parts of one are forgotten together.
void ForgetFlows(Model& model, int port) {
  for (const int index : model.paths_of_port[Index(port)]) {
    const Path& path = model.paths[Index(index)];
    if (path.in == port)
      model.base.seen[Index(path.conversation)][path.direction] = 0;
  }
}

std::uint64_t RateOf(const Model& model, const Path& path, std::int64_t ms, std::int64_t over_ms) {
  const std::int64_t from = std::max<std::int64_t>(0, ms - over_ms);
  if (ms <= from)
    return 0;
  return Share(PacketsOf(model, path, ms) - PacketsOf(model, path, from), 1000, static_cast<std::uint64_t>(ms - from));
}

bool SameTraffic(const Model& one, const Model& other) {
  const auto same_port = [](const Port& a, const Port& b) {
    return a.sw == b.sw && a.id == b.id && a.kind == b.kind && a.nic == b.nic && a.lro == b.lro &&
           a.tx_core == b.tx_core && a.rx_core == b.rx_core && a.tx_queues == b.tx_queues && a.rx_queues == b.rx_queues;
  };
  const auto same_switch = [](const Switch& a, const Switch& b) {
    return a.id == b.id && a.flow_cache == b.flow_cache;
  };
  const auto same_nic = [](const Nic& a, const Nic& b) {
    return a.name == b.name && a.link_mbps == b.link_mbps && a.hung == b.hung;
  };
  const auto same_core = [](const Core& a, const Core& b) {
    return a.id == b.id && a.packets_per_s == b.packets_per_s && a.stuck == b.stuck;
  };
  // What its flows look like affects no count; costs, ways and shares are compared with the paths.
  const auto same_talk = [](const Conversation& a, const Conversation& b) {
    return a.id == b.id && a.sw == b.sw && a.source == b.source && a.destination == b.destination &&
           a.delivery == b.delivery && a.protocol == b.protocol && a.flows == b.flows && a.churn_ppm == b.churn_ppm &&
           a.pattern == b.pattern && a.size == b.size;
  };
  const auto same = [](const auto& a, const auto& b, const auto& equal) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), equal);
  };
  return one.segment_ms == other.segment_ms && one.paths == other.paths && same(one.cores, other.cores, same_core) &&
         same(one.conversations, other.conversations, same_talk) && same(one.ports, other.ports, same_port) &&
         same(one.switches, other.switches, same_switch) && same(one.nics, other.nics, same_nic);
}

}  // namespace simhost
