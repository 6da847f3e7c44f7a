#include "simhost/traffic/paths.h"

#include <algorithm>
#include <iterator>

#include "simhost/traffic/losses.h"

namespace simhost {

namespace {

constexpr std::uint64_t kSlowCost = 8;  // a packet on the slow path costs as much as so many on the fast path

template <class T, class Value>
bool Has(const std::vector<T>& values, Value value) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

// Which of a port's uplinks are usable now, in the order of its policy. A policy without uplinks means all of its
// switch; of one that names ports that are no uplinks the others count.
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

// The uplinks that packets from a port leave by.
struct UplinkChoice {
  std::vector<int> uplinks;
  bool copies = false;  // every one gets every packet; else they share the flows
};

UplinkChoice ChooseUplinks(const Model& model, const Switch& sw, const Port& port) {
  UplinkChoice choice{UsableUplinks(model, sw, port), port.tx_type == kTxAll};
  if (choice.uplinks.size() > 1 && port.tx_type != kTxLag && port.tx_type != kTxAll) {
    std::size_t pick = 0;  // the first one that is usable; the others stand by
    if (port.tx_type == kTxSrcMac) {
      std::uint64_t address = 0;
      for (const std::uint8_t byte : port.mac)
        address = address << 8 | byte;
      pick = Mix(address) % choice.uplinks.size();
    }
    choice.uplinks = {choice.uplinks[pick]};
  }
  return choice;
}

// Frames that a ring of so many descriptors loses, of a million: the more, the further it is below what a burst needs.
// 1,000 descriptors lose 28, 64 lose 46,080.
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

// The broadcast domain that a conversation's packets are in: what they say themselves, else the sender's, else (from an
// uplink, which is in all of them) the receiver's. VNI 0 is no overlay network, VLAN 0 is untagged.
struct Domain {
  bool any = false;  // nothing says which: packets from outside for no port in particular
  std::uint16_t vlan = 0;
  std::uint32_t vni = 0;
};

Domain DomainOf(const Model& model, const Conversation& talk) {
  if (talk.vlan != 0 || talk.vni != 0)
    return {false, talk.vlan, talk.vni};
  const Port& source = model.ports[Index(talk.source)];
  if (!source.IsUplink())
    return {false, source.vlan, source.vni};
  if (talk.destination < 0)
    return {true};
  const Port& destination = model.ports[Index(talk.destination)];
  return {false, destination.vlan, destination.vni};
}

// Whether a port belongs to a domain. Overlay networks and VLANs are apart: who is in one is in no other.
bool IsIn(const Port& port, const Domain& domain) {
  if (domain.any || port.IsUplink())
    return true;
  if (domain.vni != 0 || port.vni != 0)
    return port.vni == domain.vni;
  return port.vlan == domain.vlan ||
         std::any_of(port.vlan_ranges.begin(), port.vlan_ranges.end(),
                     [&](VlanRange range) { return range.first <= domain.vlan && domain.vlan <= range.last; });
}

// The bit that a group address has in a hash filter: the upper six of its CRC, as network devices have it.
std::uint64_t HashBit(const Mac& mac) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const std::uint8_t byte : mac) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
  }
  return std::uint64_t{1} << (crc >> 26);
}

// Whether the port's receive filter takes the packet in. A port that wants multicast and lists no group wants all.
bool PassesFilter(const Port& port, const Conversation& talk) {
  const std::uint32_t flags = port.filter_flags;
  if (port.IsUplink() || (flags & kFilterPromisc) != 0)
    return true;
  switch (talk.delivery) {
    case Delivery::kUnicast:
      return (flags & kFilterUnicast) != 0;
    case Delivery::kBroadcast:
      return (flags & kFilterBroadcast) != 0;
    case Delivery::kMulticast:
      break;
  }
  const Mac group = GroupOf(talk);
  return (flags & kFilterAllmulti) != 0 || ((flags & kFilterUseLadrf) != 0 && (port.ladrf & HashBit(group)) != 0) ||
         ((flags & kFilterMulticast) != 0 && (port.multicast.empty() || Has(port.multicast, group)));
}

// Makes the paths of all conversations, in their order: those there before those back, parts in the order of the
// uplinks. The store keeps losses in this order (SaveLosses), so it follows from the settings alone.
class Builder {
 public:
  explicit Builder(Model& model) : model_(model) {}

  void Build() {
    for (std::size_t i = 0; i < model_.conversations.size(); ++i)
      AddConversation(static_cast<int>(i));
    std::size_t legs = 0;
    for (std::size_t i = 0; i < model_.paths.size(); ++i) {
      Path& path = model_.paths[i];
      path.number = i;
      path.first_leg = legs;
      legs += path.legs.size();
      const Port& in = PortAt(path.in);
      // A port is concerned once by each path, however many of its legs lead to it.
      const auto concerns = [&](int port) {
        std::vector<int>& paths = model_.paths_of_port[Index(port)];
        if (paths.empty() || paths.back() != static_cast<int>(i))
          paths.push_back(static_cast<int>(i));
      };
      model_.paths_of_flow_core[Index(in.sw * kCores + CoreIn(in))].push_back(static_cast<int>(i));
      concerns(path.in);
      for (const Leg& leg : path.legs)
        concerns(leg.port);
    }
  }

 private:
  const Port& PortAt(int index) const { return model_.ports[Index(index)]; }
  const Nic& NicOf(const Port& port) const { return model_.nics[Index(port.nic)]; }

  // Both directions. Who is not reached does not answer, so the answers come to as much less.
  void AddConversation(int index) {
    const Conversation& talk = model_.conversations[Index(index)];
    if (talk.pattern[kThere].milli_pps <= 0)
      return;
    const std::size_t first = model_.paths.size();
    AddWays(index, kThere);
    Finish(first);
    const std::size_t end = model_.paths.size();
    if (talk.pattern[kBack].milli_pps <= 0)
      return;
    const std::uint64_t lost = LostForSure(first, end);
    if (lost >= kMillion)
      return;
    AddWays(index, kBack);
    Finish(end);
    for (std::size_t i = end; i < model_.paths.size(); ++i)
      model_.paths[i].unanswered_ppm = lost;
  }

  // Of a million packets of these paths, those that get nowhere whatever else is going on.
  std::uint64_t LostForSure(std::size_t first, std::size_t end) const {
    std::uint64_t flows = 0;
    UInt128 delivered = 0;
    for (std::size_t i = first; i < end; ++i) {
      const Path& path = model_.paths[i];
      std::uint64_t best = 0;
      for (std::size_t leg = 0; leg < path.receivers; ++leg)
        best = std::max(best, path.legs[leg].blocked ? 0 : kMillion - path.legs[leg].device_drop_ppm);
      std::uint64_t share = path.oversize ? 0 : kMillion - path.crc_ppm;
      share = Share(share, kMillion - path.device_drop_ppm, kMillion);
      delivered += static_cast<UInt128>(Share(share, best, kMillion)) * path.flows;
      flows += path.flows;
    }
    return flows == 0 ? kMillion : kMillion - static_cast<std::uint64_t>(delivered / flows);
  }

  // The ways of one direction: one, or one for each uplink that its flows are spread over. A path without a receiver is
  // kept, since its packets come in and are lost; a sender that cannot send has none, and nothing is counted.
  void AddWays(int conversation, Direction direction) {
    const Conversation& talk = model_.conversations[Index(conversation)];
    const Switch& sw = *model_.FindSwitch(static_cast<std::uint32_t>(talk.sw));
    Path path;
    path.conversation = conversation;
    path.direction = direction;
    path.flows = talk.flows;
    const int from = direction == kBack ? talk.destination : talk.source;
    const int to = direction == kBack ? talk.source : talk.destination;

    if (from < 0) {  // an answer from outside comes back by the way that the question took
      UplinkChoice choice = ChooseUplinks(model_, sw, PortAt(to));
      if (choice.copies && !choice.uplinks.empty())
        choice.uplinks.resize(1);
      for (std::size_t i = 0; i < choice.uplinks.size(); ++i) {
        Path way = path;
        way.in = choice.uplinks[i];
        if (Receives(PortAt(to), talk))
          AddReceiver(way, to);
        AddPart(std::move(way), i, choice.uplinks.size(), talk.flows);
      }
      return;
    }

    path.in = from;
    const Port& in = PortAt(from);
    if (!Sends(in))
      return;
    if (talk.delivery != Delivery::kUnicast) {  // to all that let it in, and once to the wire
      for (const int index : sw.ports) {
        if (index != from && !PortAt(index).IsUplink() && Receives(PortAt(index), talk))
          AddReceiver(path, index);
      }
      if (!in.IsUplink()) {
        const UplinkChoice choice = ChooseUplinks(model_, sw, in);
        if (!choice.uplinks.empty())
          AddReceiver(path, choice.uplinks.front());
      }
    } else if (to < 0 || PortAt(to).IsUplink()) {
      UplinkChoice choice = ChooseUplinks(model_, sw, in);
      if (to >= 0)
        choice = {NicOf(PortAt(to)).down ? std::vector<int>{} : std::vector<int>{to}, false};
      if (!choice.copies && !choice.uplinks.empty()) {  // each flow by one of them
        for (std::size_t i = 0; i < choice.uplinks.size(); ++i) {
          Path way = path;
          AddReceiver(way, choice.uplinks[i]);
          AddPart(std::move(way), i, choice.uplinks.size(), talk.flows);
        }
        return;
      }
      for (const int uplink : choice.uplinks)  // each packet by all of them; by none: it is lost
        AddReceiver(path, uplink);
    } else if (Receives(PortAt(to), talk)) {
      AddReceiver(path, to);
    }
    model_.paths.push_back(std::move(path));
  }

  // One of several ways that share the flows: the first ones get one more where they do not divide evenly.
  void AddPart(Path way, std::size_t part, std::size_t parts, std::uint64_t flows) {
    way.part = static_cast<int>(part);
    way.parts = static_cast<int>(parts);
    way.flows = (flows + parts - 1 - part) / parts;
    if (way.flows > 0)
      model_.paths.push_back(std::move(way));
  }

  static void AddReceiver(Path& path, int port) {
    path.legs.emplace_back().port = port;
    ++path.receivers;
  }

  // An uplink sends into the switch while its link is up, hung or not: a device that hangs still receives.
  bool Sends(const Port& port) const { return port.IsUplink() ? port.nic >= 0 && !NicOf(port).down : port.active; }
  // A router on the way takes unicast from one domain to the other.
  bool Receives(const Port& port, const Conversation& talk) const {
    const bool routed = talk.delivery == Delivery::kUnicast && talk.vdr > 0;
    return port.active && PassesFilter(port, talk) && (routed || IsIn(port, DomainOf(model_, talk)));
  }

  // Costs before copies: a copy's own cost does not depend on where the packet goes.
  void Finish(std::size_t first) {
    for (std::size_t i = first; i < model_.paths.size(); ++i) {
      AddCosts(model_.paths[i]);
      AddCopies(model_.paths[i]);
    }
  }

  // What a packet of the path costs at each stage, by the settings and inventory of now.
  void AddCosts(Path& path) {
    const Conversation& talk = model_.conversations[Index(path.conversation)];
    const Switch& sw = *model_.FindSwitch(static_cast<std::uint32_t>(talk.sw));
    const Port& in = PortAt(path.in);
    const std::uint32_t size = talk.size[path.direction];
    path.oversize = size > sw.mtu + 18;
    path.slow_permille = (talk.actions & kSlowPath) != 0 ? 1000 : talk.slow_permille;
    if (talk.delivery != Delivery::kUnicast)
      path.slow_permille = std::max<std::uint64_t>(path.slow_permille, 200);
    if (in.IsUplink()) {
      path.crc_ppm = AtMostAll(NicOf(in).crc_ppm);
      path.device_drop_ppm = AtMostAll(NicOf(in).drop_ppm + RingLossPpm(in.rx_ring));
    }

    // The best device on the way offloads. Far: the packet is for another NUMA node than the core that takes it in.
    std::uint32_t level = in.IsUplink() ? NicOf(in).fpo_level : 0;
    bool far = false;
    const int in_node = model_.NodeOfCore(CoreIn(in));
    for (Leg& leg : path.legs) {
      const Port& out = PortAt(leg.port);
      if (out.IsUplink())
        level = std::max(level, NicOf(out).fpo_level);
      far |= (out.IsUplink() ? NicOf(out).node : model_.NodeOfCore(out.rx_core)) != in_node;
      leg.size = size;
      leg.blocked = (talk.actions & kDrop) != 0;
      SetCosts(leg, sw);
    }
    if (sw.fpo && talk.delivery == Delivery::kUnicast && path.receivers > 0)
      path.offload_permille = level == 1 ? 300 : level == 2 ? 600 : level == 3 ? 900 : 0;

    // 7/10 of the cost where it comes in, 3/10 where it goes out; see docs/simulated-host.md, "Cores and links".
    const std::uint64_t whole = CostNs(sw, CoreIn(in), far);
    path.fast_ns = whole * 7 / 10;
    path.offload_ns = path.fast_ns * 4 / 10;
    path.slow_half_ns = path.fast_ns * kSlowCost / 2;
  }

  void SetCosts(Leg& leg, const Switch& sw) const {
    const Port& out = PortAt(leg.port);
    leg.device_drop_ppm = DeviceLossPpm(out);
    leg.fast_ns = CostNs(sw, CoreOut(out), false) * 3 / 10;
    leg.slow_half_ns = leg.fast_ns * kSlowCost / 2;
  }

  // A session copies a packet once, however many of its conditions hold, to each of its destinations but the port that
  // the packet came in by.
  void AddCopies(Path& path) {
    constexpr std::uint64_t kVlanTag = 4;
    const Conversation& talk = model_.conversations[Index(path.conversation)];
    const Switch& sw = *model_.FindSwitch(static_cast<std::uint32_t>(talk.sw));
    const auto sessions = model_.mirrors.find(talk.sw);
    if (sessions == model_.mirrors.end() || path.oversize || path.receivers == 0)
      return;
    for (const MirrorSession& session : sessions->second) {
      const auto lists = [&](MirrorRole role, int index) { return Has(session.ports[Index(role)], PortAt(index).id); };
      bool concerned = lists(MirrorRole::kIn, path.in);
      for (std::size_t leg = 0; leg < path.receivers; ++leg)
        concerned |= lists(MirrorRole::kOut, path.legs[leg].port);
      if (!concerned || (!session.vlans.empty() && !Has(session.vlans, talk.vlan)))
        continue;
      const std::uint64_t whole = talk.size[path.direction];
      const std::uint64_t cut = session.snap_len != 0 ? std::min<std::uint64_t>(whole, session.snap_len) : whole;
      for (const int id : session.ports[Index(MirrorRole::kDst)]) {
        const int index = sw.index[Index(id)];
        if (index < 0 || index == path.in || !(PortAt(index).IsUplink() ? Sends(PortAt(index)) : PortAt(index).active))
          continue;
        Leg& copy = path.legs.emplace_back();
        copy.port = index;
        copy.copy = true;
        copy.one_of = std::max<std::uint64_t>(1, session.sampling_rate);
        copy.size = cut + ((session.flags & kMirrorVlanEncap) != 0 ? kVlanTag : 0);
        SetCosts(copy, sw);
      }
    }
  }

  // What the device and ring of an uplink lose of what they shall send, in ppm; other ports have no device.
  std::uint64_t DeviceLossPpm(const Port& port) const {
    if (!port.IsUplink())
      return 0;
    return NicOf(port).hung ? kMillion : AtMostAll(NicOf(port).drop_ppm + RingLossPpm(port.tx_ring));
  }

  // Nanoseconds of a core that a fast packet costs in all, both sides together. Factors are in permille, and each
  // product is rounded down, so that all processes get the same.
  std::uint64_t CostNs(const Switch& sw, int core, bool far) const {
    const Core* found = model_.FindCore(static_cast<std::uint32_t>(core));
    const std::uint64_t usual =
        1'000'000'000 / static_cast<std::uint64_t>(found != nullptr ? found->packets_per_s : 1'000'000);
    const std::uint64_t slabs = model_.fastslabs ? 950 : 1000;
    return usual * BurstPermille(sw.burst_size) / 1000 * (far ? 1200 : 1000) / 1000 * slabs / 1000;
  }

  Model& model_;
};

}  // namespace

std::uint64_t LinkBits(std::uint64_t size) {
  constexpr std::uint64_t kGapBytes = 24;  // preamble, checksum and the gap between two frames
  return 8 * (size + kGapBytes);
}

int CoreIn(const Port& in) { return in.IsUplink() ? in.rx_core : in.tx_core; }
int CoreOut(const Port& out) { return out.IsUplink() ? out.tx_core : out.rx_core; }

Mac GroupOf(const Conversation& talk) {
  if (talk.delivery == Delivery::kBroadcast)
    return {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  return (talk.remote_mac[0] & 1) != 0 ? talk.remote_mac : Mac{0x01, 0x00, 0x5E, 0x00, 0x00, 0xFB};
}

void BuildPaths(Model& model) {
  model.paths.clear();
  model.paths_of_port.assign(model.ports.size(), {});
  model.paths_of_flow_core.assign(kSwitches * kCores, {});
  Builder(model).Build();
  BeginSegment(model);
}

}  // namespace simhost
