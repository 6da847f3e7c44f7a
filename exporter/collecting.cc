#include "exporter/collecting.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "exporter/journal.h"
#include "exporter/memory.h"
#include "exporter/round.h"

namespace {

constexpr std::size_t kSwitchCollector =
    0;  // the listing of the switches is part of it, and is done where it is off too

double Seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

}  // namespace

void Collecting::Start() {
  lastRoundEnd_ = Clock::now();
  thread_ = std::thread([this] { Run(); });
}

bool Collecting::HasEndedRound() const {
  const std::lock_guard lock(mutex_);
  return roundEnded_;
}

void Collecting::WaitForFirstRound() {
  std::unique_lock lock(mutex_);
  while (!roundEnded_) {
    const Clock::time_point now = Clock::now();
    if (running_ && IsOverdue(*running_, now))
      return;
    changed_.wait_until(lock, (running_ ? stepBegan_ : now) + options_.timeout);
  }
}

bool Collecting::Stop(Clock::duration patience) {
  if (!thread_.joinable())
    return true;
  std::unique_lock lock(mutex_);
  stopping_ = true;
  changed_.notify_all();
  if (!changed_.wait_for(lock, patience, [this] { return stopped_; })) {
    thread_.detach();
    return false;
  }
  lock.unlock();
  thread_.join();
  return true;
}

bool Collecting::IsOverdue(std::size_t index, Clock::time_point now) const {
  return running_ == index && now - stepBegan_ >= options_.timeout;
}

Overview Collecting::Look(Clock::time_point now) const {
  const std::lock_guard lock(mutex_);
  Overview view;
  view.up = up_ && !(listing_ && IsOverdue(kSwitchCollector, now));
  view.healthy = now - lastRoundEnd_ <= 3 * options_.interval;
  for (std::size_t i = 0; i < kCollectorCount; ++i) {
    if (!options_.collectors[i])
      continue;
    const State& state = states_[i];
    const bool overdue = IsOverdue(i, now);
    CollectorView& seen = view.collectors.emplace_back();
    seen.collector = &kCollectors[i];
    seen.success = state.success && !overdue;
    seen.duration = Seconds(overdue ? now - stepBegan_ : state.duration);
    if (!state.succeeded)
      continue;
    const Clock::duration age = std::max(now - *state.succeeded, Clock::duration::zero());
    seen.age = Seconds(age);
    if (age <= 10 * options_.interval) {
      seen.values = state.values;
      seen.version = state.version;
    }
  }
  return view;
}

void Collecting::Run() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    Clock::time_point next = Clock::now();
    lock.unlock();
    RunRound();
    ReleaseFreeMemory();
    lock.lock();
    lastRoundEnd_ = Clock::now();
    roundEnded_ = true;
    changed_.notify_all();
    // A round that takes longer than the interval costs the host the turns that it missed, not its rest.
    do {
      next += options_.interval;
    } while (next <= lastRoundEnd_);
    changed_.wait_until(lock, next, [this] { return stopping_; });
  }
  stopped_ = true;
  changed_.notify_all();
}

void Collecting::RunRound() {
  Round round(options_, &configuration_);
  Begin(&round, kSwitchCollector);
  const bool listed = round.ListSwitches();
  {
    const std::lock_guard lock(mutex_);
    up_ = listed;
    listing_ = false;
  }
  const bool named = listed && round.NameSwitches();
  for (std::size_t i = 0; i < kCollectorCount; ++i) {
    const bool on = options_.collectors[i];
    if (i != kSwitchCollector) {
      if (!on)
        continue;
      if (!Begin(&round, i))
        return;
    }
    Snapshot snapshot;
    const bool ready = i == kSwitchCollector ? named : listed;
    const bool success = ready && (!on || kCollectors[i].collect(round, &snapshot)) && round.InTime();
    End(&round, i, success, std::move(snapshot));
  }
}

bool Collecting::Begin(Round* round, std::size_t index) {
  const std::lock_guard lock(mutex_);
  running_ = index;
  listing_ = index == kSwitchCollector;
  stepBegan_ = Clock::now();
  round->Begin(stepBegan_ + options_.timeout);
  changed_.notify_all();
  return !stopping_;
}

void Collecting::End(Round* round, std::size_t index, bool success, Snapshot snapshot) {
  auto values = success ? std::make_shared<const Snapshot>(std::move(snapshot)) : nullptr;
  const Clock::time_point now = Clock::now();
  bool complain = false, recovered = false;
  {
    const std::lock_guard lock(mutex_);
    State& state = states_[index];
    complain = !success && !state.complained && !round->Failure().empty();
    recovered = success && state.complained;
    state.complained = complain || (state.complained && !success);
    state.success = success;
    state.duration = now - stepBegan_;
    if (success) {
      state.succeeded = now;
      ++state.version;
      state.values.swap(values);  // the former ones are freed after the lock
    }
    running_.reset();
  }
  const std::string_view name = kCollectors[index].name;
  if (complain)
    LogError("%.*s: %s", static_cast<int>(name.size()), name.data(), round->Failure().c_str());
  if (recovered)
    LogInfo("%.*s: works again", static_cast<int>(name.size()), name.data());
}
