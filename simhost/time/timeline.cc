#include "simhost/time/timeline.h"

#include <unistd.h>

#include <algorithm>

#include "simhost/time/balancer.h"
#include "simhost/traffic/base.h"
#include "simhost/traffic/counts.h"
#include "simhost/traffic/losses.h"
#include "simhost/traffic/paths.h"

namespace simhost {

namespace {

constexpr std::int64_t kMostLooks = 1'000'000;  // that are replayed: 58 days of the usual period

void Log(Store& store, std::int64_t ms, const Event& event, std::string_view what) {
  store.Run("INSERT INTO log (at_ms, pid, operation, arguments, what) VALUES (?, ?, ?, ?, ?)", ms, getpid(),
            TextOf(event.kind), event.target, what);
}

// What is on now, worked out anew from all events that are on.
void ApplyEvents(Model& model) {
  for (Nic& nic : model.nics)
    nic.down = nic.hung = false;
  for (Core& core : model.cores)
    core.stuck = false;
  for (Switch& sw : model.switches)
    sw.mac_limit = sw.own_mac_limit;
  for (const Event& event : model.events) {
    if (event.stage != kEventOn)
      continue;
    const std::size_t target = Index(event.target_index);
    switch (event.kind) {
      case EventKind::kUplinkDown:
        model.nics[target].down = true;
        break;
      case EventKind::kUplinkHang:
        model.nics[target].hung = true;
        break;
      case EventKind::kCoreStuck:
        model.cores[target].stuck = true;
        break;
      case EventKind::kMacLimit:
        model.switches[target].mac_limit =
            std::min(model.switches[target].mac_limit, static_cast<std::uint32_t>(event.effect));
        break;
      case EventKind::kCountersNearWrap:  // happens once, when it begins
        break;
    }
  }
}

// The port's fast-path totals go up to a little below 2^bits; they are never brought down.
void BringNearWrap(Model& model, const Event& event) {
  constexpr std::uint64_t kBelow = 100'000;  // packets or bytes
  const std::uint64_t goal = (event.effect == 64 ? 0 : std::uint64_t{1} << event.effect) - kBelow;
  PortCounts& words = model.base.ports[Index(event.target_index)];
  for (const PortWord word : {kTxBytes, kTxPackets, kRxBytes, kRxPackets}) {
    const std::uint64_t rise = goal - std::min(goal, words[word]);
    words[word] += rise;
    if (const auto queues = model.base.queues.find(event.target_index); queues != model.base.queues.end()) {
      const bool transmit = word == kTxBytes || word == kTxPackets;
      queues->second[transmit ? 1 : 0][0][word == kTxBytes || word == kRxBytes ? kQueueBytes : kQueuePackets] += rise;
    }
  }
}

// Whether the device is an uplink of a switch that is set to panic when one hangs.
bool PanicsOnHang(const Model& model, int nic) {
  return std::any_of(model.switches.begin(), model.switches.end(), [&](const Switch& sw) {
    return sw.panic_on_tx_hang != 0 && std::any_of(sw.uplinks.begin(), sw.uplinks.end(),
                                                   [&](int uplink) { return model.ports[Index(uplink)].nic == nic; });
  });
}

// What happens once happens here; what lasts is worked out by ApplyEvents.
void Begin(Store& store, Model& model, Event& event, std::int64_t ms) {
  event.stage = kEventRules[Index(event.kind)].once ? kEventOver : kEventOn;
  if (event.kind == EventKind::kCountersNearWrap)
    BringNearWrap(model, event);
  const bool panics = event.kind == EventKind::kUplinkHang && PanicsOnHang(model, event.target_index);
  Log(store, ms, event, panics ? "begins; a real host, set to panic on this, would stop" : "begins");
}

void End(Store& store, Event& event, std::int64_t ms) {
  event.stage = kEventOver;
  Log(store, ms, event, "ends");
}

// The next thing that happens to an event: it begins, or it ends. The segment ends with it, since traffic takes other
// ways then.
void MoveEvent(Store& store, Model& model, Event& event, std::int64_t ms) {
  CloseSegment(model, std::max(ms, model.segment_ms));
  event.stage == kEventAhead ? Begin(store, model, event, ms) : End(store, event, ms);
  store.Run("UPDATE event SET started = ? WHERE id = ?", event.stage, event.id);
  ApplyEvents(model);
  BuildPaths(model);
}

}  // namespace

void PrepareTimeline(Model& model) {
  ApplyEvents(model);
  BuildPaths(model);
}

void ReplayTimeline(Store& store, Model& model, std::int64_t ms) {
  Balancer& balancer = model.balancer;
  const std::int64_t period = balancer.period_ms;
  bool looked = false;
  // Deliberate: after more looks than anybody would wait for, the balancer starts again with the latest two, and moves
  // nothing in between. This is the one thing that depends on who called when.
  if (const std::int64_t looks = (ms - balancer.tick_ms) / period; looks > kMostLooks) {
    balancer.tick_ms += (looks - 1) * period;
    balancer.fresh = true;
  }

  for (std::int64_t due = model.NextDueMs(); due <= ms; due = model.NextDueMs()) {
    // Events go before the look of the same moment, and among themselves by their numbers.
    const auto event = std::find_if(model.events.begin(), model.events.end(),
                                    [&](const Event& candidate) { return candidate.NextMs() == due; });
    if (event != model.events.end()) {
      MoveEvent(store, model, *event, due);
    } else {
      balancer.fresh ? BeginWindow(model, due) : LookAndMove(store, model, due);
      looked = true;
    }
  }

  // Whoever reads the store next goes on from here.
  if (looked) {
    StoreBalancer(store, model);
    if (!model.base_changed)
      StoreLosses(store, model);
  }
  StoreBase(store, model);
}

}  // namespace simhost
