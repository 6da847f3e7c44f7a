#include "simhost/time/timeline.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "simhost/time/balancer.h"
#include "simhost/traffic/base.h"
#include "simhost/traffic/counts.h"
#include "simhost/traffic/losses.h"
#include "simhost/traffic/paths.h"

namespace simhost {

namespace {

constexpr std::int64_t kMostLooks = 1'000'000;  // that are replayed: 58 days of the usual period

std::uint32_t Number(std::string_view text) {
  std::uint32_t number = 0xFFFFFFFF;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

void Log(Store& store, std::int64_t ms, const Event& event, std::string_view what) {
  store.Run("INSERT INTO log (at_ms, pid, operation, arguments, what) VALUES (?, ?, ?, ?, ?)", ms, getpid(), event.kind,
            event.target, what);
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
    if (event.kind == "uplink-down" || event.kind == "uplink-hang") {
      if (const int nic = model.FindNic(event.target); nic >= 0)
        (event.kind == "uplink-down" ? model.nics[Index(nic)].down : model.nics[Index(nic)].hung) = true;
    } else if (event.kind == "core-stuck") {
      for (Core& core : model.cores)
        core.stuck |= static_cast<std::uint32_t>(core.id) == Number(event.target);
    } else if (event.kind == "mac-limit") {
      for (Switch& sw : model.switches) {
        if (static_cast<std::uint32_t>(sw.id) == Number(event.target))
          sw.mac_limit = std::min(sw.mac_limit, static_cast<std::uint32_t>(event.value.value_or(16)));
      }
    }
  }
}

// The port's fast-path totals go up to a little below 2^bits; they are never brought down.
void BringNearWrap(Model& model, const Event& event) {
  const std::size_t slash = event.target.find('/');
  if (slash == std::string::npos)
    return;
  const int index = model.PortIndex(Number(std::string_view(event.target).substr(0, slash)),
                                    Number(std::string_view(event.target).substr(slash + 1)));
  if (index < 0)
    return;
  const std::int64_t bits = std::clamp<std::int64_t>(event.value.value_or(32), 20, 64);
  constexpr std::uint64_t kBelow = 100'000;
  const std::uint64_t goal = (bits == 64 ? 0 : std::uint64_t{1} << bits) - kBelow;
  PortCounts& words = model.base.ports[Index(index)];
  for (const PortWord word : {kTxBytes, kTxPackets, kRxBytes, kRxPackets}) {
    const std::uint64_t rise = goal - std::min(goal, words[word]);
    words[word] += rise;
    if (const auto queues = model.base.queues.find(index); queues != model.base.queues.end()) {
      const bool transmit = word == kTxBytes || word == kTxPackets;
      queues->second[transmit ? 1 : 0][0][word == kTxBytes || word == kRxBytes ? kQueueBytes : kQueuePackets] += rise;
    }
  }
}

// Whether the device that hangs is an uplink of a switch that shall panic then.
bool PanicsOn(const Model& model, const Event& event) {
  const int nic = event.kind == "uplink-hang" ? model.FindNic(event.target) : -1;
  return nic >= 0 && std::any_of(model.switches.begin(), model.switches.end(), [&](const Switch& sw) {
           return sw.panic_on_tx_hang != 0 && std::any_of(sw.uplinks.begin(), sw.uplinks.end(), [&](int uplink) {
                    return model.ports[Index(uplink)].nic == nic;
                  });
         });
}

void MoveEvent(Store& store, Model& model, Event& event, std::int64_t ms) {
  CloseSegment(model, std::max(ms, model.segment_ms));
  if (event.stage == kEventAhead) {
    event.stage = event.kind == "counters-near-wrap" ? kEventOver : kEventOn;
    if (event.kind == "counters-near-wrap")
      BringNearWrap(model, event);
    Log(store, ms, event, PanicsOn(model, event) ? "begins; a real host, set to panic on this, would stop" : "begins");
  } else {
    event.stage = kEventOver;
    Log(store, ms, event, "ends");
  }
  store.Run("UPDATE event SET started = ? WHERE id = ?", event.stage, event.id);
  ApplyEvents(model);
  BuildPaths(model);
}

}  // namespace

void PrepareTimeline(Store& store, Model& model) {
  Statement events = store.Prepare("SELECT state FROM balancer");
  if (events.Step())
    RestoreBalancer(model, events.Blob(0));
  ApplyEvents(model);
  BuildPaths(model);
  RestoreLosses(model, model.base.losses);
}

void ReplayTimeline(Store& store, Model& model, std::int64_t ms) {
  Balancer& balancer = model.balancer;
  const std::int64_t period = balancer.period_ms;
  bool looked = false;
  if ((ms - balancer.tick_ms) / period > kMostLooks) {
    balancer.tick_ms = ms - ms % period - period;
    balancer.fresh = true;
  }

  for (std::int64_t due = model.NextDueMs(); due <= ms; due = model.NextDueMs()) {
    Event* next = nullptr;
    for (Event& event : model.events) {
      if ((event.stage == kEventAhead && event.from_ms == due) ||
          (event.stage == kEventOn && event.until_ms && *event.until_ms == due))
        next = &event;
    }
    if (next != nullptr) {
      MoveEvent(store, model, *next, due);
    } else {
      balancer.fresh ? BeginWindow(model, due) : LookAndMove(store, model, due);
      looked = true;
    }
  }

  if (looked) {
    const std::vector<std::uint8_t> state = SaveBalancer(model);
    store.Run("UPDATE balancer SET tick_ms = ?, state = ?", balancer.tick_ms, state);
    if (!model.base_changed)
      StoreLosses(store, model);
  }
  StoreBase(store, model);
}

}  // namespace simhost
