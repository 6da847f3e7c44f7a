#include "simhost/traffic/flows.h"

#include <algorithm>

#include "simhost/traffic/counts.h"
#include "simhost/traffic/paths.h"

namespace simhost {

namespace {

constexpr std::uint64_t kFirstShortPort = 32768;  // of the ports that short flows come from
constexpr std::uint64_t kShortPorts = 16384;
constexpr std::int64_t kFlushMs = 10'000;  // the counters of a flow are flushed this often

// A page of flows.
enum PageOffset : std::size_t { kPageNext = 8, kPageCount = 12, kPageBytes = 16, kPageEntries = 20 };

// A flow's key, 64 bytes, and its actions, which follow it.
enum EntryOffset : std::size_t {
  kKeyMacA = 0,
  kKeyMacB = 6,
  kKeyFlagsVlan = 12,
  kKeyPort = 14,
  kKeyL4A = 16,
  kKeyL4B = 18,
  kKeyVni = 20,
  kKeyVniHigh = 22,
  kKeyProtocol = 23,
  kKeyAddressA = 24,
  kKeyAddressB4 = 28,
  kKeyAddressB6 = 40,
  kActions = 64,
  kHandle = kActions + 8,
  kPackets = kActions + 24,
  kBytes = kActions + 40,
  kBitmap = kActions + 56,
  kStatsFlags = kActions + 61,
  kLength = kActions + 62,
  kDestination = kActions + 64,
  kInvalidations = kActions + 68,
  kPriority = kActions + 72,
  kVlanInsert = kActions + 74,
  kVni = kActions + 76,
  kChildPort = kActions + 114,
  kOutputVlan = kActions + 118,
  kEncapVni = kActions + 244,
  kRouters = kActions + 256,
  kRouter = kActions + 274
};
constexpr std::uint8_t kKeyIsV6 = 0x02;
constexpr std::uint8_t kHasStats = 0x08;

// A page takes no entry shorter than this, key included.
constexpr std::size_t kShortestEntry = 304;
constexpr std::size_t kRouterStride = 32;
constexpr std::uint32_t kMostRouters = 12;
constexpr std::size_t kLongestActionText = 500;  // readers have room for 511 characters

// What a path's flows are at one moment: some of the lasting ones, numbered from `first` on and around, then short
// ones.
struct LiveFlows {
  std::uint64_t lasting = 0;
  std::uint64_t first = 0;
  std::uint64_t short_lived = 0;
  std::uint64_t first_short = 0;
  std::uint64_t offloaded = 0;  // of the lasting ones, those with the lowest numbers

  std::uint64_t Count(bool offloaded_only) const { return offloaded_only ? offloaded : lasting + short_lived; }
};

// Short flows are numbered in the order in which they open, of all packets since the host booted: by this count the
// flow of one packet has the same number at each call, whatever segments there were.
std::uint64_t ShortFlowsUntil(const Model& model, const Path& path, std::int64_t ms) {
  return Share(PacketsOf(model, path, ms), model.conversations[Index(path.conversation)].churn_ppm, 1'000'000);
}

// Packets go to the lasting flows in turn, so of those since `since` the latest path.flows ones show which flows they
// were.
LiveFlows FindLive(const Model& model, const Switch& sw, const Path& path, std::int64_t ms) {
  LiveFlows live;
  if (!sw.flow_cache)
    return live;
  const Port& in = model.ports[Index(path.in)];
  const std::int64_t timeout_ms = std::int64_t{model.flow_timeout_s} * 1000;
  const std::int64_t since = std::min(
      ms, std::max({std::int64_t{0}, ms - timeout_ms, model.flow_floor_ms, sw.flow_cleared_ms, in.flow_cleared_ms}));
  // A shorter timeout, a clear and a floor all bring the same about: flows idle since before then are gone.
  const std::uint64_t before = PacketsOf(model, path, since);
  const std::uint64_t now = PacketsOf(model, path, ms);
  live.lasting = std::min(path.flows, now - before);
  live.first = live.lasting == path.flows ? 0 : before % path.flows;
  const std::uint64_t short_before = ShortFlowsUntil(model, path, since);
  const std::uint64_t short_now = ShortFlowsUntil(model, path, ms);
  // A conversation's parts share its ports; when they begin anew, the flow that had one before is gone.
  live.short_lived = std::min(short_now - short_before, kShortPorts / static_cast<std::uint64_t>(path.parts));
  live.first_short = short_now - live.short_lived;
  live.offloaded = Share(live.lasting, path.offload_permille, 1000);
  return live;
}

struct FlowId {
  std::uint64_t number = 0;  // within the path
  bool lasting = true;
  bool offloaded = false;
};

// A flow's entry: its key and its actions. Its length is known before it is written, since a page takes no part of one.
class Entry {
 public:
  Entry(const Model& model, const Switch& sw, const Path& path, FlowId flow, std::int64_t ms)
      : model_(model),
        sw_(sw),
        path_(path),
        talk_(model.conversations[Index(path.conversation)]),
        flow_(flow),
        ms_(ms) {
    ChooseActions();
  }

  std::size_t Size() const { return kActions + length_; }

  void Write(Area& page, std::size_t at) const {
    WriteKey(page, at);
    WriteActions(page, at);
  }

 private:
  const Port& In() const { return model_.ports[Index(path_.in)]; }
  const Port* Out() const { return path_.receivers == 0 ? nullptr : &model_.ports[Index(path_.Receiver())]; }
  const Port& SourcePort() const { return model_.ports[Index(talk_.source)]; }

  // What follows from the ways that packets take is added to what the description says. The text of all actions has to
  // fit readers' room, so routers are left out, the last ones first, until it does.
  void ChooseActions() {
    const Port* out = Out();
    actions_ = talk_.actions;
    if (talk_.slow_permille >= 1000)
      actions_ |= kSlowPath;
    if (out == nullptr) {
      actions_ |= kDrop;
    } else {
      actions_ |= kHasDestination;
      if (!out->IsUplink() && out->lro != 0 && talk_.protocol == 6 && talk_.delivery == Delivery::kUnicast)
        actions_ |= kLro;
      if (out->IsUplink() && talk_.vni != 0)
        actions_ |= kEncap;
      else if (out->IsUplink() && talk_.vlan != 0)
        actions_ |= kInsertVlan;
      if (In().IsUplink() && talk_.vni != 0)
        actions_ |= kDecap;
      else if (In().IsUplink() && talk_.vlan != 0)
        actions_ |= kRemoveVlan;
      if (In().kind == kGeneric)
        actions_ |= kInputChildPort;
    }
    routers_ = std::min(talk_.vdr, kMostRouters);
    if (routers_ > 0)
      actions_ |= kVdr;
    if ((actions_ & kVdr) == 0)
      routers_ = 0;
    while (routers_ > 0 && TextLength() > kLongestActionText)
      --routers_;

    std::size_t end = kShortestEntry - kActions;
    if ((actions_ & kEncap) != 0)
      end = std::max(end, kEncapVni - kActions + 3);
    if ((actions_ & kVdr) != 0)
      end = std::max(end, kRouter - kActions + routers_ * kRouterStride);
    length_ = (end + 7) / 8 * 8;
  }

  // How long the text of these actions can become at most.
  std::size_t TextLength() const {
    constexpr std::size_t kHead = 96;
    constexpr std::size_t kOther = 16;  // the mean of the texts of single actions, the longer ones apart
    std::size_t length = kHead + routers_ * 20;
    for (std::uint32_t bit = 2; bit <= 28; ++bit) {
      if ((actions_ >> bit & 1) == 0 || bit == 7)
        continue;
      length += bit == 2 ? 32 : bit == 21 ? 40 : bit == 28 ? 24 : kOther + 4;
    }
    return length;
  }

  std::uint64_t Hash() const {
    return Mix(model_.seed ^
               Mix(static_cast<std::uint64_t>(talk_.id) << 32 | flow_.number << 1 | (flow_.lasting ? 1 : 0)));
  }

  // The number of a flow within its conversation, the lasting and the short ones apart: the parts take turns, so that
  // no two of them give one number to different flows.
  std::uint64_t NumberInTalk() const {
    return flow_.number * static_cast<std::uint64_t>(path_.parts) + static_cast<std::uint64_t>(path_.part);
  }

  void WriteKey(Area& page, std::size_t at) const {
    const bool back = path_.direction == kBack;
    const Mac& here = SourcePort().mac;
    const Mac there = talk_.delivery != Delivery::kUnicast ? GroupOf(talk_)
                      : talk_.destination >= 0             ? model_.ports[Index(talk_.destination)].mac
                                                           : talk_.remote_mac;
    page.PutMac(at + kKeyMacA, back ? there : here);
    page.PutMac(at + kKeyMacB, back ? here : there);

    const bool v6 = talk_.source_ip.size() == 16;
    page.Put8(at + kKeyFlagsVlan, (talk_.vlan & 0x0FU) << 4 | (v6 ? kKeyIsV6 : 0U));
    page.Put8(at + kKeyFlagsVlan + 1, talk_.vlan >> 4);
    page.Put16(at + kKeyPort, 0x8000U | static_cast<std::uint32_t>(In().id));

    WriteTransport(page, at);
    page.Put16(at + kKeyVni, talk_.vni & 0xFFFF);
    page.Put8(at + kKeyVniHigh, talk_.vni >> 16);
    page.Put8(at + kKeyProtocol, talk_.protocol);

    const std::vector<std::uint8_t>& first = back ? talk_.destination_ip : talk_.source_ip;
    const std::vector<std::uint8_t>& second = back ? talk_.source_ip : talk_.destination_ip;
    page.PutBytes(at + kKeyAddressA, first.data(), first.size());
    page.PutBytes(at + (v6 ? kKeyAddressB6 : kKeyAddressB4), second.data(), second.size());
  }

  // Lasting flows of a conversation count up from its source port; short flows take turns at the ports from 32768 on.
  void WriteTransport(Area& page, std::size_t at) const {
    if (talk_.protocol == 1 || talk_.protocol == 58) {  // type and code, as host values
      page.Put16(at + kKeyL4A, talk_.source_l4);
      page.Put16(at + kKeyL4B, talk_.destination_l4);
      return;
    }
    const std::uint64_t source =
        flow_.lasting ? (talk_.source_l4 + NumberInTalk()) & 0xFFFF : kFirstShortPort + NumberInTalk() % kShortPorts;
    const std::uint64_t ports[2] = {source, talk_.destination_l4};
    const auto put = [&](std::size_t offset, std::uint64_t port) {
      page.Put8(at + offset, port >> 8);
      page.Put8(at + offset + 1, port & 0xFF);
    };
    put(kKeyL4A, ports[path_.direction == kBack ? 1 : 0]);
    put(kKeyL4B, ports[path_.direction == kBack ? 0 : 1]);
  }

  void WriteActions(Area& page, std::size_t at) const {
    const std::uint64_t packets = PacketsSinceFlush();
    page.Put64(at + kHandle, 0x430000000000 + (static_cast<std::uint64_t>(talk_.id) << 8));
    page.Put64(at + kPackets, packets);
    page.Put64(at + kBytes, packets * talk_.size[path_.direction]);
    page.Put32(at + kBitmap, actions_);
    page.Put8(at + kStatsFlags, HasStats() ? kHasStats : 0);
    page.Put16(at + kLength, length_);
    page.Put8(at + kDestination, Out() != nullptr ? static_cast<std::uint64_t>(Out()->id) : 0);
    page.Put32(at + kInvalidations, Hash() % 3);
    page.Put8(at + kPriority, (actions_ & kInsertPriority) != 0 ? 5 : 0);
    page.Put16(at + kVlanInsert, talk_.vlan);
    page.Put32(at + kVni, talk_.vni);
    page.Put32(at + kChildPort, In().dvport);
    page.Put16(at + kOutputVlan, talk_.vlan);
    if ((actions_ & kEncap) != 0) {
      page.Put8(at + kEncapVni, talk_.vni >> 16);
      page.Put8(at + kEncapVni + 1, talk_.vni >> 8 & 0xFF);
      page.Put8(at + kEncapVni + 2, talk_.vni & 0xFF);
    }
    if ((actions_ & kVdr) != 0) {
      page.Put8(at + kRouters, routers_);
      for (std::uint32_t i = 0; i < routers_; ++i)
        page.Put32(at + kRouter + i * kRouterStride, 0x1388 + static_cast<std::uint32_t>(talk_.id) * 16 + i);
    }
  }

  // A device that offloads a flow but has no counters says nothing of it.
  bool HasStats() const {
    if (!flow_.offloaded)
      return true;
    const Port* port = In().IsUplink() ? &In() : Out();
    return port == nullptr || port->nic < 0 || model_.nics[Index(port->nic)].fpo_limits[4] != 0;
  }

  // Of a lasting flow, its share of the path's packets since the latest flush or clear: every path.flows-th, beginning
  // with the one of its own number. A short flow has had its one.
  std::uint64_t PacketsSinceFlush() const {
    if (!flow_.lasting)
      return 1;
    const std::int64_t flushed = std::max({ms_ - ms_ % kFlushMs, sw_.flow_cleared_ms, In().flow_cleared_ms});
    const auto own = [&](std::int64_t ms) {
      return (PacketsOf(model_, path_, ms) + path_.flows - 1 - flow_.number) / path_.flows;
    };
    return own(ms_) - own(std::min(flushed, ms_));
  }

  const Model& model_;
  const Switch& sw_;
  const Path& path_;
  const Conversation& talk_;
  FlowId flow_;
  std::int64_t ms_;
  std::uint32_t actions_ = 0;
  std::uint32_t routers_ = 0;
  std::size_t length_ = 0;
};

}  // namespace

// Without writing any: numFlows has to be the length of a full dump, and a dump of 16,384 flows is slow to make.
std::uint64_t CountLiveFlows(const Model& model, int sw, int core, std::int64_t ms) {
  const Switch* found = model.FindSwitch(static_cast<std::uint32_t>(sw));
  std::uint64_t count = 0;
  for (const int index : model.paths_of_flow_core[Index(sw * kCores + core)])
    count += FindLive(model, *found, model.paths[Index(index)], ms).Count(false);
  return count;
}

std::uint32_t WriteFlowPage(const Model& model, int sw, int core, std::uint32_t start, bool offloaded_only,
                            std::int64_t ms, Area& page) {
  if (!page.Fits(0, kPageEntries))
    return kNoRoom;
  const Switch& own = *model.FindSwitch(static_cast<std::uint32_t>(sw));
  page.Clear(kPageEntries);
  std::size_t at = kPageEntries;
  std::uint64_t skip = start;
  std::uint32_t count = 0;
  bool full = false;
  for (const int index : model.paths_of_flow_core[Index(sw * kCores + core)]) {
    if (full)
      break;
    const Path& path = model.paths[Index(index)];
    const LiveFlows live = FindLive(model, own, path, ms);
    const std::uint64_t flows = live.Count(offloaded_only);
    for (std::uint64_t i = std::min(skip, flows); i < flows; ++i) {
      const bool lasting = i < live.lasting;
      const FlowId flow{lasting ? (live.first + i) % path.flows : live.first_short + (i - live.lasting), lasting,
                        lasting && i < live.offloaded};
      const Entry entry(model, own, path, flow, ms);
      if (!page.Fits(at, entry.Size())) {  // it goes to the next page whole
        full = true;
        break;
      }
      page.Zero(at, entry.Size());
      entry.Write(page, at);
      at += entry.Size();
      ++count;
    }
    skip -= std::min(skip, flows);
  }
  page.Put32(kPageNext, start + count);  // where the next page begins, also when this one is empty
  page.Put32(kPageCount, count);
  page.Put32(kPageBytes, at);
  return kOk;
}

}  // namespace simhost
