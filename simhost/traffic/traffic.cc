#include "simhost/traffic/traffic.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <set>

namespace simhost {

namespace {

constexpr std::uint64_t kMillion = 1'000'000;
constexpr std::uint64_t kUsableNs =
    950'000'000;                          // of a second of a core: what it gives to packets before it drops some
constexpr std::uint64_t kSlowCost = 8;    // a packet on the slow path costs as much as so many on the fast path
constexpr std::uint64_t kAggregated = 4;  // frames that large receive offload makes one of

std::size_t Index(std::int64_t value) { return static_cast<std::size_t>(value); }

template <class T, class Value>
bool Has(const std::vector<T>& values, Value value) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

// Which of a port's uplinks are usable now, in the order of its policy.
std::vector<int> UsableUplinks(const Model& model, const Switch& sw, const Port& port) {
  std::vector<int> all;
  for (const std::uint32_t id : port.uplinks) {
    const int index = id < kPortsPerSwitch ? sw.index[id] : -1;
    if (index >= 0 && std::find(sw.uplinks.begin(), sw.uplinks.end(), index) != sw.uplinks.end())
      all.push_back(index);
  }
  if (port.uplinks.empty())
    all = sw.uplinks;
  const auto nic_of = [&](int index) -> const Nic& { return model.nics[Index(model.ports[Index(index)].nic)]; };
  if (port.tx_type == kTxNoTeaming) {  // no failover: the first one, or none
    all.resize(std::min<std::size_t>(all.size(), 1));
    if (!all.empty() && nic_of(all[0]).down)
      all.clear();
    return all;
  }
  std::erase_if(all, [&](int index) { return nic_of(index).down; });
  if (sw.numa_team) {
    std::vector<int> near;
    std::copy_if(all.begin(), all.end(), std::back_inserter(near),
                 [&](int index) { return nic_of(index).node == model.NodeOfCore(port.tx_core); });
    if (!near.empty())
      return near;
  }
  return all;
}

struct UplinkChoice {
  std::vector<int> uplinks;
  bool copies = false;  // every one gets every packet; else they share the flows
};

UplinkChoice ChooseUplinks(const Model& model, const Switch& sw, const Port& port) {
  UplinkChoice choice{UsableUplinks(model, sw, port), port.tx_type == kTxAll};
  if (choice.uplinks.size() > 1 && port.tx_type != kTxLag && port.tx_type != kTxAll) {
    std::size_t pick = 0;
    if (port.tx_type == kTxSourceMac) {
      std::uint64_t address = 0;
      for (const std::uint8_t byte : port.mac)
        address = address << 8 | byte;
      pick = Mix(address) % choice.uplinks.size();
    }
    choice.uplinks = {choice.uplinks[pick]};
  }
  return choice;
}

// Frames that a ring of so many descriptors loses, of a million.
std::uint64_t RingLossPpm(std::uint32_t ring) {
  if (ring >= 1024)
    return 0;
  if (ring == 0)
    return kMillion;
  const std::uint64_t missing = 1024 - ring;
  return missing * missing / 20;
}

std::uint64_t AtMostAll(std::uint64_t ppm) { return std::min(ppm, kMillion); }

// How a burst of that many packets spreads the cost of a look at the queues; beyond 64 nothing more is gained.
std::uint64_t BurstPermille(std::uint32_t burst) { return 850 + 4800 / std::clamp<std::uint64_t>(burst, 1, 64); }

class Builder {
 public:
  explicit Builder(Model& model) : model_(model) {}

  void Build() {
    for (std::size_t i = 0; i < model_.conversations.size(); ++i) {
      const Conversation& talk = model_.conversations[i];
      for (int back = 0; back < 2; ++back) {
        if (talk.pattern[Index(back)].milli_pps > 0)
          AddWays(static_cast<int>(i), back);
      }
    }
    AddCosts();
    AddCopies();
    FillLinks(false);
    AddSaturation();
    FillLinks(true);
    for (std::size_t i = 0; i < model_.paths.size(); ++i) {
      const Path& path = model_.paths[i];
      const Port& in = model_.ports[Index(path.in)];
      const auto concerns = [&](int port) {
        std::vector<int>& paths = model_.paths_of_port[Index(port)];
        if (paths.empty() || paths.back() != static_cast<int>(i))
          paths.push_back(static_cast<int>(i));
      };
      model_.paths_of_flow_core[Index(in.sw * kCores + CoreOf(in))].push_back(static_cast<int>(i));
      concerns(path.in);
      std::for_each(path.out.begin(), path.out.end(), concerns);
      for (const MirrorCopy& copy : path.copies)
        concerns(copy.port);
    }
  }

 private:
  // Packets from a port are looked up where it sends, packets from the wire where the uplink receives.
  static int CoreOf(const Port& in) { return in.IsUplink() ? in.rx_core : in.tx_core; }
  static int CoreTo(const Port& out) { return out.IsUplink() ? out.tx_core : out.rx_core; }

  const Port& PortAt(int index) const { return model_.ports[Index(index)]; }
  const Nic& NicOf(const Port& port) const { return model_.nics[Index(port.nic)]; }

  void AddWays(int conversation, int back) {
    const Conversation& talk = model_.conversations[Index(conversation)];
    const Switch& sw = *model_.FindSwitch(static_cast<std::uint32_t>(talk.sw));
    Path path;
    path.conversation = conversation;
    path.back = back;
    path.flows = talk.flows;
    const int from = back != 0 ? talk.destination : talk.source;
    const int to = back != 0 ? talk.source : talk.destination;

    if (talk.delivery != Delivery::kUnicast) {
      path.in = from;
      const Port& in = PortAt(from);
      if (!Sends(in))
        return;
      for (const int index : sw.ports) {
        const Port& port = PortAt(index);
        if (index != from && !port.IsUplink() && Receives(port) && (port.vlan == talk.vlan || in.IsUplink()))
          path.out.push_back(index);
      }
      if (!in.IsUplink()) {
        const UplinkChoice choice = ChooseUplinks(model_, sw, in);
        if (!choice.uplinks.empty())
          path.out.push_back(choice.uplinks.front());
      }
      model_.paths.push_back(std::move(path));
    } else if (from < 0) {  // an answer from outside comes back by the way that the question took
      UplinkChoice choice = ChooseUplinks(model_, sw, PortAt(to));
      if (choice.copies && !choice.uplinks.empty())
        choice.uplinks.resize(1);
      for (std::size_t i = 0; i < choice.uplinks.size(); ++i) {
        Path way = path;
        way.in = choice.uplinks[i];
        if (Receives(PortAt(to)))
          way.out = {to};
        AddPart(std::move(way), i, choice.uplinks.size(), talk.flows);
      }
    } else if (to < 0 || PortAt(to).IsUplink()) {
      path.in = from;
      if (!Sends(PortAt(from)))
        return;
      UplinkChoice choice = ChooseUplinks(model_, sw, PortAt(from));
      if (to >= 0)
        choice = {NicOf(PortAt(to)).down ? std::vector<int>{} : std::vector<int>{to}, false};
      if (choice.copies || choice.uplinks.empty()) {
        path.out = choice.uplinks;
        model_.paths.push_back(std::move(path));
        return;
      }
      for (std::size_t i = 0; i < choice.uplinks.size(); ++i) {
        Path way = path;
        way.out = {choice.uplinks[i]};
        AddPart(std::move(way), i, choice.uplinks.size(), talk.flows);
      }
    } else {
      path.in = from;
      if (!Sends(PortAt(from)))
        return;
      if (Receives(PortAt(to)))
        path.out = {to};
      model_.paths.push_back(std::move(path));
    }
  }

  void AddPart(Path way, std::size_t part, std::size_t parts, std::uint64_t flows) {
    way.part = static_cast<int>(part);
    way.parts = static_cast<int>(parts);
    way.flows = (flows + parts - 1 - part) / parts;
    if (way.flows > 0)
      model_.paths.push_back(std::move(way));
  }

  bool Sends(const Port& port) const { return port.IsUplink() ? port.nic >= 0 && !NicOf(port).down : port.active; }
  static bool Receives(const Port& port) { return port.active; }

  void AddCosts() {
    for (Path& path : model_.paths) {
      const Conversation& talk = model_.conversations[Index(path.conversation)];
      const Switch& sw = *model_.FindSwitch(static_cast<std::uint32_t>(talk.sw));
      const Port& in = PortAt(path.in);
      const std::uint32_t size = talk.size[Index(path.back)];
      path.oversize = size > sw.mtu + 18;
      path.slow_permille = (talk.actions & kSlowPath) != 0 ? 1000 : talk.slow_permille;
      if (talk.delivery != Delivery::kUnicast)
        path.slow_permille = std::max<std::uint64_t>(path.slow_permille, 200);
      if (in.IsUplink())
        path.in_drop_ppm = AtMostAll(NicOf(in).drop_ppm + RingLossPpm(in.rx_ring));

      std::uint32_t level = in.IsUplink() ? NicOf(in).fpo_level : 0;
      bool far = false;
      const int in_node = model_.NodeOfCore(CoreOf(in));
      for (const int index : path.out) {
        const Port& out = PortAt(index);
        if (out.IsUplink()) {
          const Nic& nic = NicOf(out);
          level = std::max(level, nic.fpo_level);
          far |= nic.node != in_node;
        } else {
          far |= model_.NodeOfCore(out.rx_core) != in_node;
        }
        path.out_drop_ppm.push_back((talk.actions & kDrop) != 0 ? kMillion : SendLossPpm(out));
        const std::uint64_t whole = CostNs(sw, CoreTo(out), false);
        path.out_fast_ns.push_back(whole * 3 / 10);
        path.out_slow_half_ns.push_back(whole * 3 / 10 * kSlowCost / 2);
      }
      if (sw.fpo && talk.delivery == Delivery::kUnicast && !path.out.empty())
        path.offload_permille = level == 1 ? 300 : level == 2 ? 600 : level == 3 ? 900 : 0;

      const std::uint64_t whole = CostNs(sw, CoreOf(in), far);
      path.in_fast_ns = whole * 7 / 10;
      path.in_offload_ns = path.in_fast_ns * 4 / 10;
      path.in_slow_half_ns = path.in_fast_ns * kSlowCost / 2;
    }
  }

  // A session copies a packet once, however many of its conditions hold, to each of its destinations but the port that
  // the packet came in by.
  void AddCopies() {
    constexpr std::uint64_t kVlanTag = 4;
    for (Path& path : model_.paths) {
      const Conversation& talk = model_.conversations[Index(path.conversation)];
      const Switch& sw = *model_.FindSwitch(static_cast<std::uint32_t>(talk.sw));
      const auto sessions = model_.mirrors.find(talk.sw);
      if (sessions == model_.mirrors.end() || path.oversize)
        continue;
      for (const MirrorSession& session : sessions->second) {
        const auto lists = [&](MirrorRole role, int index) { return Has(session.ports[role], PortAt(index).id); };
        if (!lists(kMirrorIn, path.in) &&
            std::none_of(path.out.begin(), path.out.end(), [&](int out) { return lists(kMirrorOut, out); }))
          continue;
        if (!session.vlans.empty() && !Has(session.vlans, talk.vlan))
          continue;
        const std::uint64_t whole = talk.size[Index(path.back)];
        const std::uint64_t cut = session.snap_len != 0 ? std::min<std::uint64_t>(whole, session.snap_len) : whole;
        for (const int id : session.ports[kMirrorTo]) {
          const int index = sw.index[Index(id)];
          if (index < 0 || index == path.in ||
              !(PortAt(index).IsUplink() ? Sends(PortAt(index)) : PortAt(index).active))
            continue;
          MirrorCopy& copy = path.copies.emplace_back();
          copy.port = index;
          copy.one_of = std::max<std::uint64_t>(1, session.sampling_rate);
          copy.size = cut + ((session.flags & kMirrorVlanEncap) != 0 ? kVlanTag : 0);
          copy.drop_ppm = SendLossPpm(PortAt(index));
          copy.fast_ns = CostNs(sw, CoreTo(PortAt(index)), false) * 3 / 10;
        }
      }
    }
  }

  // What a link has no room for is lost: by the mean rates, as with cores. What comes in is judged before the cores
  // have dropped anything, what goes out afterwards.
  void FillLinks(bool transmit) {
    constexpr std::uint64_t kGap = 24;  // bytes of the wire's time that a frame takes beside its own
    std::vector<std::uint64_t> kbps(model_.nics.size());
    const auto each = [&](const auto& visit) {
      for (Path& path : model_.paths) {
        const Conversation& talk = model_.conversations[Index(path.conversation)];
        const std::uint64_t size = talk.size[Index(path.back)];
        if (!transmit) {
          if (PortAt(path.in).IsUplink())
            visit(PortAt(path.in), path.in_drop_ppm, MilliPps(path), size);
          continue;
        }
        const std::uint64_t passed = Share(Arriving(path), kMillion - path.core_drop_ppm, kMillion);
        for (std::size_t i = 0; i < path.out.size(); ++i) {
          if (PortAt(path.out[i]).IsUplink())
            visit(PortAt(path.out[i]), path.out_drop_ppm[i], passed, size);
        }
        for (MirrorCopy& copy : path.copies) {
          if (PortAt(copy.port).IsUplink())
            visit(PortAt(copy.port), copy.drop_ppm, passed / copy.one_of, copy.size);
        }
      }
    };
    each([&](const Port& port, std::uint64_t& drop_ppm, std::uint64_t milli_pps, std::uint64_t size) {
      kbps[Index(port.nic)] += Share(Share(milli_pps, kMillion - drop_ppm, kMillion), 8 * (size + kGap), kMillion);
    });
    each([&](const Port& port, std::uint64_t& drop_ppm, std::uint64_t, std::uint64_t) {
      const std::uint64_t room = static_cast<std::uint64_t>(NicOf(port).link_mbps) * 1000;
      if (kbps[Index(port.nic)] > room)
        drop_ppm += Share(kMillion - drop_ppm, kbps[Index(port.nic)] - room, kbps[Index(port.nic)]);
    });
  }

  // Mean packets per 1000 s of a path: what it is offered, and what of it gets in.
  std::uint64_t MilliPps(const Path& path) const {
    const Conversation& talk = model_.conversations[Index(path.conversation)];
    if (!model_.IsOn(talk))
      return 0;
    return Share(static_cast<std::uint64_t>(talk.pattern[Index(path.back)].MeanMilliPps()), path.flows, talk.flows);
  }
  std::uint64_t Arriving(const Path& path) const {
    return path.oversize ? 0 : Share(MilliPps(path), kMillion - path.in_drop_ppm, kMillion);
  }

  // What the device of an uplink loses of what it shall send.
  std::uint64_t SendLossPpm(const Port& port) const {
    if (!port.IsUplink())
      return 0;
    return NicOf(port).hung ? kMillion : AtMostAll(NicOf(port).drop_ppm + RingLossPpm(port.tx_ring));
  }

  std::uint64_t CostNs(const Switch& sw, int core, bool far) const {
    const Core* found = model_.FindCore(static_cast<std::uint32_t>(core));
    const std::uint64_t usual =
        1'000'000'000 / static_cast<std::uint64_t>(found != nullptr ? found->packets_per_s : 1'000'000);
    const std::uint64_t slabs = model_.fastslabs ? 950 : 1000;
    return usual * BurstPermille(sw.burst_size) / 1000 * (far ? 1200 : 1000) / 1000 * slabs / 1000;
  }

  // A core is judged by the mean rates of what it has to do: while a segment lasts it drops a fixed share.
  void AddSaturation() {
    std::array<std::uint64_t, kCores> demand_ns{};
    for (const Path& path : model_.paths) {
      const Conversation& talk = model_.conversations[Index(path.conversation)];
      const Switch& sw = *model_.FindSwitch(static_cast<std::uint32_t>(talk.sw));
      const std::uint64_t milli_pps = Arriving(path);
      const std::uint64_t slow = sw.flow_cache ? path.slow_permille + talk.churn_ppm / 1000 : 1000;
      const auto demand = [&](std::uint64_t fast_ns, std::uint64_t slow_half_ns) {
        return Share(milli_pps, (1000 - std::min<std::uint64_t>(slow, 1000)) * fast_ns + slow * 2 * slow_half_ns,
                     kMillion);
      };
      const Port& in = PortAt(path.in);
      demand_ns[Index(CoreOf(in))] += demand(path.in_fast_ns, path.in_slow_half_ns);
      for (std::size_t i = 0; i < path.out.size(); ++i) {
        const Port& out = PortAt(path.out[i]);
        demand_ns[Index(CoreTo(out))] += demand(path.out_fast_ns[i], path.out_slow_half_ns[i]);
      }
      for (const MirrorCopy& copy : path.copies)
        demand_ns[Index(CoreTo(PortAt(copy.port)))] += Share(milli_pps / copy.one_of, copy.fast_ns, 1000);
    }

    std::array<std::uint64_t, kCores> drop_ppm{};
    for (const Core& core : model_.cores) {
      const std::uint64_t demand = demand_ns[Index(core.id)];
      drop_ppm[Index(core.id)] = core.stuck           ? kMillion
                                 : demand > kUsableNs ? kMillion - Share(kMillion, kUsableNs, demand)
                                                      : 0;
    }
    for (Path& path : model_.paths) {
      path.core_drop_ppm = drop_ppm[Index(CoreOf(PortAt(path.in)))];
      for (std::size_t i = 0; i < path.out.size(); ++i) {
        const std::uint64_t core = drop_ppm[Index(CoreTo(PortAt(path.out[i])))];
        path.out_drop_ppm[i] += Share(kMillion - path.out_drop_ppm[i], core, kMillion);
      }
      for (MirrorCopy& copy : path.copies)
        copy.drop_ppm += Share(kMillion - copy.drop_ppm, drop_ppm[Index(CoreTo(PortAt(copy.port)))], kMillion);
    }
  }

  Model& model_;
};

const Conversation& TalkOf(const Model& model, const Path& path) {
  return model.conversations[Index(path.conversation)];
}

// The packets of one path, of n that its conversation sent: the flows of the parts before it are dealt out first.
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

// The wire side and the inner side of a port go the opposite way: what an uplink brings in, it has received.
void AddIncoming(const Model& model, const Path& path, const PathCounts& counts, PortCounts& words) {
  const Conversation& talk = TalkOf(model, path);
  const std::uint64_t size = talk.size[Index(path.back)];
  const bool uplink = model.ports[Index(path.in)].IsUplink();
  const std::size_t first = uplink ? kRxBytes : kTxBytes;
  AddTraffic(words, first, talk, counts.fast, counts.fast * size);
  AddTraffic(words, kSlow + first, talk, counts.slow, counts.slow * size);
  // Who sends into nothing, sees a drop.
  const std::uint64_t lost = counts.wire_lost + counts.core_lost;
  words[uplink ? kRxDrops : kTxDrops] += lost;
  words[uplink ? kRxErrors : kTxErrors] += counts.errors;
  words[kWork + (uplink ? 1 : 0)] += counts.slow * path.in_slow_half_ns;
  words[kWork + (uplink ? 3 : 2)] += std::min(counts.offloaded, counts.fast) * path.in_offload_ns +
                                     (counts.fast - std::min(counts.offloaded, counts.fast)) * path.in_fast_ns;
}

struct Outgoing {
  std::uint64_t fast = 0;
  std::uint64_t slow = 0;
  std::uint64_t fast_lost = 0;
  std::uint64_t slow_lost = 0;
};

Outgoing CountOutgoing(const Path& path, const PathCounts& counts, std::size_t leg) {
  Outgoing out;
  out.fast_lost = Share(counts.fast, path.out_drop_ppm[leg], kMillion);
  out.slow_lost = Share(counts.slow, path.out_drop_ppm[leg], kMillion);
  out.fast = counts.fast - out.fast_lost;
  out.slow = counts.slow - out.slow_lost;
  return out;
}

void AddOutgoing(const Model& model, const Path& path, const PathCounts& counts, std::size_t leg, PortCounts& words) {
  const Conversation& talk = TalkOf(model, path);
  const std::uint64_t size = talk.size[Index(path.back)];
  const Port& port = model.ports[Index(path.out[leg])];
  const bool uplink = port.IsUplink();
  const std::size_t first = uplink ? kTxBytes : kRxBytes;
  const Outgoing out = CountOutgoing(path, counts, leg);
  // Large receive offload hands over fewer and larger packets.
  const bool aggregate = !uplink && port.lro != 0 && talk.protocol == 6 && talk.delivery == Delivery::kUnicast;
  AddTraffic(words, first, talk, aggregate ? (out.fast + kAggregated - 1) / kAggregated : out.fast, out.fast * size);
  AddTraffic(words, kSlow + first, talk, out.slow, out.slow * size);
  words[uplink ? kTxDrops : kRxDrops] += out.fast_lost;
  words[kSlow + (uplink ? kTxDrops : kRxDrops)] += out.slow_lost;
  words[kWork + (uplink ? 0 : 1)] += out.slow * path.out_slow_half_ns[leg];
  words[kWork + (uplink ? 2 : 3)] += out.fast * path.out_fast_ns[leg];
}

struct Copied {
  std::uint64_t made = 0;
  std::uint64_t lost = 0;

  std::uint64_t Arrived() const { return made - lost; }
};

Copied CountCopies(const MirrorCopy& copy, const PathCounts& counts) {
  Copied copied;
  copied.made = counts.passed / copy.one_of;
  copied.lost = Share(copied.made, copy.drop_ppm, kMillion);
  return copied;
}

void AddCopy(const Model& model, const Path& path, const PathCounts& counts, const MirrorCopy& copy,
             PortCounts& words) {
  const bool uplink = model.ports[Index(copy.port)].IsUplink();
  const Copied copied = CountCopies(copy, counts);
  AddTraffic(words, uplink ? kTxBytes : kRxBytes, TalkOf(model, path), copied.Arrived(), copied.Arrived() * copy.size);
  words[uplink ? kTxDrops : kRxDrops] += copied.lost;
  words[kWork + (uplink ? 2 : 3)] += copied.Arrived() * copy.fast_ns;
}

// Receive queues are told apart by the port that a frame is for, transmit queues by the one that it is from.
int QueueOf(const Model& model, const Path& path, bool transmit) {
  if (transmit)
    return model.ports[Index(path.in)].id;
  return path.out.size() == 1 ? model.ports[Index(path.out[0])].id : 0;
}

void AddQueue(const Model& model, const Path& path, const PathCounts& counts, int port, bool transmit,
              QueueCounts& words) {
  const Conversation& talk = TalkOf(model, path);
  const std::uint64_t size = talk.size[Index(path.back)];
  const auto add = [&](std::uint64_t packets, std::uint64_t bytes) {
    words[kQueuePackets] += packets;
    words[kQueueBytes] += packets * bytes;
    if (talk.delivery != Delivery::kUnicast)
      words[talk.delivery == Delivery::kMulticast ? kQueueMulticast : kQueueBroadcast] += packets;
  };
  if (!transmit) {
    add(counts.fast + counts.slow, size);
    words[path.oversize ? kQueueLength : kQueueCrc] += counts.errors;
    words[kQueueFifo] += counts.wire_lost;
    words[kQueueMissed] += counts.core_lost;
    words[kQueueDrops] += counts.wire_lost + counts.core_lost;
    return;
  }
  const auto lose = [&](std::uint64_t lost) {
    words[kQueueDrops] += lost;
    words[model.nics[Index(model.ports[Index(port)].nic)].hung ? kQueueAborted : kQueueFifo] += lost;
  };
  for (std::size_t leg = 0; leg < path.out.size(); ++leg) {
    if (path.out[leg] != port)
      continue;
    const Outgoing out = CountOutgoing(path, counts, leg);
    add(out.fast + out.slow, size);
    lose(out.fast_lost + out.slow_lost);
  }
  for (const MirrorCopy& copy : path.copies) {
    if (copy.port != port)
      continue;
    const Copied copied = CountCopies(copy, counts);
    add(copied.Arrived(), copy.size);
    lose(copied.lost);
  }
}

void AddFlows(const PathCounts& counts, bool flow_cache, FlowCounts& words) {
  if (!flow_cache)
    return;
  words[kFlowMisses] += counts.missed;
  words[kFlowOffloadHits] += counts.offloaded;
  words[kFlowLocalHits] += counts.passed - counts.missed - counts.offloaded;
  words[kFlowShortFlows] += counts.short_flows;
}

void AddBusy(const Model& model, const Path& path, const PathCounts& counts, std::array<std::uint64_t, kCores>& busy) {
  const Port& in = model.ports[Index(path.in)];
  const std::uint64_t offloaded = std::min(counts.offloaded, counts.fast);
  busy[Index(in.IsUplink() ? in.rx_core : in.tx_core)] += 2 * counts.slow * path.in_slow_half_ns +
                                                          offloaded * path.in_offload_ns +
                                                          (counts.fast - offloaded) * path.in_fast_ns;
  for (std::size_t leg = 0; leg < path.out.size(); ++leg) {
    const Port& port = model.ports[Index(path.out[leg])];
    const Outgoing out = CountOutgoing(path, counts, leg);
    busy[Index(port.IsUplink() ? port.tx_core : port.rx_core)] +=
        2 * out.slow * path.out_slow_half_ns[leg] + out.fast * path.out_fast_ns[leg];
  }
  for (const MirrorCopy& copy : path.copies) {
    const Port& port = model.ports[Index(copy.port)];
    busy[Index(port.IsUplink() ? port.tx_core : port.rx_core)] += CountCopies(copy, counts).Arrived() * copy.fast_ns;
  }
}

template <std::size_t N>
std::span<const std::uint8_t> Bytes(const std::array<std::uint64_t, N>& words) {
  return {reinterpret_cast<const std::uint8_t*>(words.data()), sizeof words};
}

template <std::size_t N>
bool IsZero(const std::array<std::uint64_t, N>& words) {
  return std::all_of(words.begin(), words.end(), [](std::uint64_t word) { return word == 0; });
}

}  // namespace

void BuildPaths(Model& model) {
  model.paths.clear();
  model.paths_of_port.assign(model.ports.size(), {});
  model.paths_of_flow_core.assign(kSwitches * kCores, {});
  Builder(model).Build();

  model.next_turn_ms = std::numeric_limits<std::int64_t>::max();
  for (const Conversation& talk : model.conversations) {
    for (const std::int64_t turn : {talk.pattern[0].start_ms, talk.pattern[0].stop_ms.value_or(0)}) {
      if (turn > model.segment_ms)
        model.next_turn_ms = std::min(model.next_turn_ms, turn);
    }
  }
}

std::uint64_t Offered(const Model& model, const Path& path, std::int64_t ms) {
  const Conversation& talk = TalkOf(model, path);
  return PartOf(talk, path, talk.pattern[Index(path.back)].PacketsUntil(ms));
}

PathCounts CountPath(const Model& model, const Path& path, std::int64_t ms) {
  const Conversation& talk = TalkOf(model, path);
  const Pattern& pattern = talk.pattern[Index(path.back)];
  const std::uint64_t sent = pattern.PacketsUntil(ms) - pattern.PacketsUntil(model.segment_ms);
  std::uint64_t rest = PartOf(talk, path, sent);

  PathCounts counts;
  const Port& in = model.ports[Index(path.in)];
  if (path.oversize)
    counts.errors = rest;
  else if (in.IsUplink())
    counts.errors = Share(rest, model.nics[Index(in.nic)].crc_ppm, kMillion);
  rest -= counts.errors;
  counts.wire_lost = Share(rest, path.in_drop_ppm, kMillion);
  rest -= counts.wire_lost;
  counts.core_lost = Share(rest, path.out.empty() ? kMillion : path.core_drop_ppm, kMillion);
  counts.passed = rest - counts.core_lost;

  if (!model.FindSwitch(static_cast<std::uint32_t>(talk.sw))->flow_cache) {
    counts.slow = counts.passed;
    return counts;
  }
  // The first packet of each lasting flow misses, then those that open a short flow.
  const std::uint64_t before = PartOf(talk, path, model.base.passed[Index(path.conversation)][Index(path.back)]);
  const std::uint64_t first = std::min(path.flows, before + counts.passed) - std::min(path.flows, before);
  const std::uint64_t later = counts.passed - first;
  counts.short_flows = Share(later, talk.churn_ppm, kMillion);
  counts.missed = first + counts.short_flows;
  const std::uint64_t hits = counts.passed - counts.missed;
  const std::uint64_t punted = Share(hits, path.slow_permille, 1000);
  counts.slow = counts.missed + punted;
  counts.fast = hits - punted;
  counts.offloaded = Share(counts.fast, path.offload_permille, 1000);
  return counts;
}

PortCounts CountPort(const Model& model, int port, std::int64_t ms) {
  PortCounts words = model.base.ports[Index(port)];
  for (const int index : model.paths_of_port[Index(port)]) {
    const Path& path = model.paths[Index(index)];
    const PathCounts counts = CountPath(model, path, ms);
    if (path.in == port)
      AddIncoming(model, path, counts, words);
    for (std::size_t leg = 0; leg < path.out.size(); ++leg) {
      if (path.out[leg] == port)
        AddOutgoing(model, path, counts, leg, words);
    }
    for (const MirrorCopy& copy : path.copies) {
      if (copy.port == port)
        AddCopy(model, path, counts, copy, words);
    }
  }
  return words;
}

QueueCounts CountQueue(const Model& model, int port, bool transmit, int queue, std::int64_t ms) {
  const std::vector<QueueCounts>& queues = model.base.queues.at(port)[transmit ? 1 : 0];
  QueueCounts words = queues[Index(queue)];
  for (const int index : model.paths_of_port[Index(port)]) {
    const Path& path = model.paths[Index(index)];
    if ((path.in == port) != transmit && QueueOf(model, path, transmit) % static_cast<int>(queues.size()) == queue)
      AddQueue(model, path, CountPath(model, path, ms), port, transmit, words);
  }
  return words;
}

FlowCounts CountFlows(const Model& model, int sw, int core, std::int64_t ms) {
  FlowCounts words = model.base.flows[Index(sw * kCores + core)];
  const Switch* found = model.FindSwitch(static_cast<std::uint32_t>(sw));
  for (const int index : model.paths_of_flow_core[Index(sw * kCores + core)])
    AddFlows(CountPath(model, model.paths[Index(index)], ms), found->flow_cache, words);
  return words;
}

std::array<std::uint64_t, kCores> CountBusyNs(const Model& model, std::int64_t ms) {
  std::array<std::uint64_t, kCores> busy = model.base.busy_ns;
  for (const Path& path : model.paths)
    AddBusy(model, path, CountPath(model, path, ms), busy);
  return busy;
}

void CloseSegment(Model& model, std::int64_t ms) {
  if (ms > model.segment_ms) {
    Base& base = model.base;
    std::vector<PathCounts> counted;
    counted.reserve(model.paths.size());
    for (const Path& path : model.paths)
      counted.push_back(CountPath(model, path, ms));
    for (std::size_t i = 0; i < model.paths.size(); ++i) {
      const Path& path = model.paths[i];
      const PathCounts& counts = counted[i];
      const Port& in = model.ports[Index(path.in)];
      const int core = in.IsUplink() ? in.rx_core : in.tx_core;
      AddIncoming(model, path, counts, base.ports[Index(path.in)]);
      const auto add_queue = [&](int port, bool transmit) {
        std::vector<QueueCounts>& queues = base.queues.at(port)[transmit ? 1 : 0];
        AddQueue(model, path, counts, port, transmit, queues[Index(QueueOf(model, path, transmit)) % queues.size()]);
      };
      if (in.IsUplink())
        add_queue(path.in, false);
      std::set<int> sending;  // AddQueue adds all that goes out by a port at once
      for (std::size_t leg = 0; leg < path.out.size(); ++leg) {
        AddOutgoing(model, path, counts, leg, base.ports[Index(path.out[leg])]);
        sending.insert(path.out[leg]);
      }
      for (const MirrorCopy& copy : path.copies) {
        AddCopy(model, path, counts, copy, base.ports[Index(copy.port)]);
        sending.insert(copy.port);
      }
      for (const int port : sending) {
        if (model.ports[Index(port)].IsUplink())
          add_queue(port, true);
      }
      AddFlows(counts, model.FindSwitch(static_cast<std::uint32_t>(in.sw))->flow_cache,
               base.flows[Index(in.sw * kCores + core)]);
      AddBusy(model, path, counts, base.busy_ns);
      base.passed[Index(path.conversation)][Index(path.back)] += counts.passed;
    }
    model.segment_ms = ms;
  }
  model.base_changed = true;
}

void StoreBase(Store& store, Model& model) {
  if (!model.base_changed)
    return;
  Statement row = store.Prepare("INSERT OR REPLACE INTO base (kind, sw, id, counts) VALUES (?, ?, ?, ?)");
  const auto put = [&](std::string_view kind, int sw, int id, std::span<const std::uint8_t> counts) {
    row.Bind(kind).Bind(std::int64_t{sw}).Bind(std::int64_t{id}).Bind(counts).Run();
  };
  const Base& base = model.base;
  for (std::size_t i = 0; i < model.ports.size(); ++i)
    put("port", model.ports[i].sw, model.ports[i].id, Bytes(base.ports[i]));
  for (const auto& [port, queues] : base.queues) {
    for (const int way : {0, 1})
      put(way == 0 ? "rx" : "tx", model.ports[Index(port)].sw, model.ports[Index(port)].id,
          {reinterpret_cast<const std::uint8_t*>(queues[Index(way)].data()),
           queues[Index(way)].size() * sizeof(QueueCounts)});
  }
  for (const Switch& sw : model.switches) {
    for (const Core& core : model.cores) {
      if (const FlowCounts& words = base.flows[Index(sw.id * kCores + core.id)]; !IsZero(words))
        put("flow", sw.id, core.id, Bytes(words));
    }
  }
  put("core", 0, 0, Bytes(base.busy_ns));
  for (std::size_t i = 0; i < model.conversations.size(); ++i)
    put("passed", 0, model.conversations[i].id, Bytes(base.passed[i]));
  store.Prepare("UPDATE host SET segment_ms = ?").Bind(model.segment_ms).Run();
  model.base_changed = false;
}

void ForgetFlows(Model& model, int port) {
  for (const int index : model.paths_of_port[Index(port)]) {
    const Path& path = model.paths[Index(index)];
    if (path.in == port)
      model.base.passed[Index(path.conversation)][Index(path.back)] = 0;
  }
}

std::uint64_t RateOf(const Model& model, const Path& path, std::int64_t ms, std::int64_t over_ms) {
  const std::int64_t from = std::max<std::int64_t>(0, ms - over_ms);
  if (ms <= from)
    return 0;
  return Share(Offered(model, path, ms) - Offered(model, path, from), 1000, static_cast<std::uint64_t>(ms - from));
}

}  // namespace simhost
