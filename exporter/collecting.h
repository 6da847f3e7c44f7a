// The thread that runs the collectors, and what a scrape sees of them.
//
// All calls into the platform are made by this one thread, so there is never more than one at a time, and what walks
// the process's switch configuration runs in one piece. A call that hangs holds this thread and nobody else: scrapes
// take what was published before, and see by the clock that a collector is overdue.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "exporter/collectors.h"
#include "exporter/options.h"
#include "exporter/round.h"

using Clock = std::chrono::steady_clock;

// What is known of a collector at a moment.
struct CollectorView {
  const Collector* collector;
  bool success;                            // its last run ended well, and it is not overdue now
  double duration;                         // seconds of its last run, or so far where it is overdue; 0 before the first
  std::optional<double> age;               // seconds since its last success; nothing before the first
  std::shared_ptr<const Snapshot> values;  // of its last success; null before it, and ten intervals after it
  std::uint64_t version;                   // of the values, another one for each success; 0 where they are null
};

struct Overview {
  bool up;       // the last listing of the switches succeeded, and none is overdue
  bool healthy;  // a round ended within the last three intervals
  std::vector<CollectorView> collectors;
};

class Collecting {
 public:
  explicit Collecting(const Options& options) : options_(options) {}
  Collecting(const Collecting&) = delete;
  Collecting& operator=(const Collecting&) = delete;

  void Start();
  bool HasEndedRound() const;
  // Waits until the first round has ended or, with a call that hangs, a collector is overdue.
  void WaitForFirstRound();
  // Asks the thread to end and waits for it; false when it still hangs in a call after `patience`. Then it must not be
  // waited for, and this object must live until the process ends.
  bool Stop(Clock::duration patience);

  Overview Look(Clock::time_point now) const;

 private:
  struct State {
    bool success = false;
    Clock::duration duration = {};
    std::optional<Clock::time_point> succeeded;
    std::shared_ptr<const Snapshot> values;
    std::uint64_t version = 0;
    bool complained = false;  // of its failure, which is told once
  };

  void Run();
  void RunRound();
  bool Begin(Round* round, std::size_t index);  // false when the thread is to end
  void End(Round* round, std::size_t index, bool success, Snapshot snapshot);
  bool IsOverdue(std::size_t index, Clock::time_point now) const;

  const Options& options_;
  Configuration configuration_;  // the thread's
  std::thread thread_;

  mutable std::mutex mutex_;  // of what follows; never held during a call into the platform
  std::condition_variable changed_;
  std::array<State, kCollectorCount> states_;
  std::optional<std::size_t> running_;
  bool listing_ = false;  // the step that runs is the listing of the switches
  Clock::time_point stepBegan_;
  bool up_ = false;
  Clock::time_point lastRoundEnd_ = Clock::now();  // before the first: when it began
  bool roundEnded_ = false;
  bool stopping_ = false;
  bool stopped_ = false;
};
