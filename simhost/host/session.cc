#include "simhost/host/session.h"

#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

#include "simhost/host/turn.h"
#include "simhost/time/balancer.h"
#include "simhost/time/timeline.h"
#include "simhost/traffic/base.h"
#include "simhost/traffic/counts.h"
#include "simhost/traffic/losses.h"

namespace simhost {

namespace {

// What a process has of its host.
struct Session {
  explicit Session(pid_t process) : pid(process) {}

  std::mutex mutex;
  pid_t pid;
  std::unique_ptr<Store> store;
  std::unique_ptr<TurnFile> turns;
  std::optional<Model> model;  // as of `version`
  std::int64_t version = 0;
  std::int64_t latest_ns = 0;  // host time never goes back, even if wall time does
  std::set<std::string> reported;
};

// The process's only session. A child does not touch what its parent had open, nor a mutex that may have been held: it
// begins anew, and what it inherited is not freed, since it may be in any state.
Session& OwnSession() {
  static Session* session = new Session(getpid());
  if (session->pid != getpid()) {
    if (session->store)
      session->store->Abandon();
    if (session->turns)
      session->turns->Abandon();
    session = new Session(getpid());
  }
  return *session;
}

// Says what is wrong with the store once for each process and text: scripts poll, and the same line thousands of times
// would hide the rest.
void Report(Session& session, const StoreError& error) {
  const std::string text = error.what();
  if (session.reported.insert(text).second)
    std::fprintf(stderr, "ryn-sim: %s\n", text.c_str());
}

// The environment is looked at anew at each call, and so is the file: a script may turn to another host, and a host may
// be made anew under the same name.
void Open(Session& session) {
  std::string path = Store::Locate();
  if (session.store && (session.store->path() != path || !session.store->IsCurrent())) {
    session.model.reset();
    session.turns.reset();
    session.store.reset();
  }
  if (!session.store) {
    session.latest_ns = 0;
    session.turns.reset();
    session.store = std::make_unique<Store>(std::move(path));
  }
  if (!session.turns)
    session.turns = std::make_unique<TurnFile>(session.store->path());
}

// The latest time that was seen holds for one setting of the clock only.
void ForgetTimeOfOtherClock(Session& session, const Clock& before) {
  const Clock& now = session.model->clock;
  if (before.frozen != now.frozen || before.base_wall_ns != now.base_wall_ns ||
      before.base_host_ns != now.base_host_ns || before.speed_permille != now.speed_permille)
    session.latest_ns = 0;
}

// The model is read again when the store has changed. Inside a transaction this is the last word. The version counts
// commits of other connections only: after a change of its own a process has the model at hand.
void Refresh(Session& session) {
  Store& store = *session.store;
  const std::int64_t version = store.Version();
  if (session.model && session.version == version)
    return;
  const Clock before = session.model ? session.model->clock : Clock{};
  session.model.reset();
  session.model.emplace(LoadModel(store));
  LoadBase(store, *session.model);
  LoadBalancer(store, *session.model);
  PrepareTimeline(*session.model);
  RestoreLosses(*session.model, session.model->base.losses);
  ForgetTimeOfOtherClock(session, before);
  session.version = version;
}

// One consistent reading: the tables are read in one transaction.
void RefreshForReading(Session& session) {
  Store& store = *session.store;
  if (session.model && session.version == store.Version())
    return;
  store.Execute("BEGIN");
  try {
    session.model.reset();
    store.Prepare("SELECT 1 FROM host").Step();  // the snapshot is taken here, before the version is read
    Refresh(session);
  } catch (...) {
    store.Execute("ROLLBACK");
    throw;
  }
  store.Execute("COMMIT");
}

// Milliseconds of host time, never less than what this process has answered for before: wall time may be set back. A
// clock that stands is the same for all, whatever was seen while it ran.
std::int64_t HostMs(Session& session) {
  const std::int64_t ns = session.model->clock.HostNsAt(WallNs());
  session.latest_ns = session.model->clock.frozen ? ns : std::max(session.latest_ns, ns);
  return session.latest_ns / 1'000'000;
}

// A host that was described to run starts when it is first looked at: wall time 0 stands for that moment. Of several
// processes the first one sets it.
void StartClock(Session& session) {
  if (session.model->clock.base_wall_ns != 0 || session.model->clock.frozen)
    return;
  const Turn turn(*session.turns, TurnTo::kWrite);
  Transaction transaction(*session.store);
  session.store->Run("UPDATE clock SET base_wall_ns = ? WHERE base_wall_ns = 0 AND mode = 'run'", WallNs());
  transaction.Commit();
  session.model.reset();
  RefreshForReading(session);
}

// Brings the process's idea of the host up to the present.
void BringUpToDate(Session& session) {
  Open(session);
  RefreshForReading(session);
  StartClock(session);
}

// Ports that were placed when the host was loaded get their cores in the store before anything may depend on them: a
// later change of the inventory would place them otherwise.
void PersistPlacement(Store& store, const Model& model) {
  for (const Port& port : model.ports) {
    if (port.placed_here)
      store.Run("UPDATE port SET tx_core = ?, rx_core = ? WHERE sw = ? AND port = ?", port.tx_core, port.rx_core,
                port.sw, port.id);
  }
}

// Replays what is due until now. Other processes may be about to do the same; the first one does it for all. Call it in
// the process's turn to write; it answers the host time.
std::int64_t CatchUp(Session& session) {
  Transaction transaction(*session.store);
  Refresh(session);
  const std::int64_t ms = std::max(HostMs(session), session.model->segment_ms);
  if (ms >= session.model->NextDueMs()) {
    Model changed = std::move(*session.model);
    session.model.reset();
    PersistPlacement(*session.store, changed);
    ReplayTimeline(*session.store, changed, ms);
    transaction.Commit();
    for (Port& port : changed.ports)
      port.placed_here = false;
    changed.mac_cache.clear();
    session.model.emplace(std::move(changed));  // as the store has it now
  }
  return ms;
}

// What a call meets with. No status: it is answered, after the delay, and its answer is spoiled if so said.
struct FaultOutcome {
  std::optional<std::uint32_t> status;
  std::optional<Corruption> corrupt;
  std::uint64_t random = 0;
  std::int64_t delay_ms = 0;
};

// Whether a rule concerns the call: its operation, its time, and each of its conditions by any argument of that name.
bool Holds(const Fault& fault, const Call& call, std::int64_t ms) {
  if (fnmatch(fault.operation.c_str(), call.operation, 0) != 0)
    return false;
  if ((fault.from_ms && ms < *fault.from_ms) || (fault.until_ms && ms >= *fault.until_ms))
    return false;
  return std::all_of(fault.where.begin(), fault.where.end(), [&](const FaultWhereRow& where) {
    return std::any_of(call.arguments.begin(), call.arguments.end(), [&](const Argument& argument) {
      return TextOf(where.name) == argument.name && fnmatch(where.glob.c_str(), argument.AsText().c_str(), 0) == 0;
    });
  });
}

// As the log has it.
std::string Describe(const FaultOutcome& outcome) {
  std::string text;
  const auto add = [&](const std::string& piece) { text += (text.empty() ? "" : ", ") + piece; };
  if (outcome.delay_ms > 0)
    add("delay " + std::to_string(outcome.delay_ms) + " ms");
  if (outcome.status) {
    char status[24];
    std::snprintf(status, sizeof status, "status 0x%08X", *outcome.status);
    add(status);
  }
  if (outcome.corrupt)
    add("corrupt " + std::string(TextOf(*outcome.corrupt)));
  return text.empty() ? "nothing" : text;
}

std::string DescribeArguments(const Call& call) {
  std::string text;
  for (const Argument& argument : call.arguments)
    text += (text.empty() ? "" : " ") + std::string(argument.name) + "=" + argument.AsText();
  return text;
}

// Counts the call for the rules that it matches and finds the one to apply, if any. Of several that match the first one
// that hits is applied, and those after it do not count the call. Dice are thrown by the rule's seed and the call's
// number, so the same calls meet with the same faults again.
FaultOutcome ApplyFaults(Session& session, const Call& call) {
  const auto concerns = [&] {
    const std::int64_t ms = HostMs(session);
    return std::any_of(session.model->faults.begin(), session.model->faults.end(),
                       [&](const Fault& fault) { return Holds(fault, call, ms); });
  };
  if (session.model->faults.empty() || *call.operation == '\0' || !concerns())
    return {};

  FaultOutcome outcome;
  Transaction transaction(*session.store);
  Refresh(session);
  const std::int64_t ms = HostMs(session);
  bool hit = false;
  for (Fault& fault : session.model->faults) {
    if (hit || !Holds(fault, call, ms))
      continue;
    const std::int64_t number = fault.calls;
    fault.calls += number < std::numeric_limits<std::int64_t>::max() ? 1 : 0;
    const std::uint64_t dice = Mix(Mix(fault.seed) ^ static_cast<std::uint64_t>(number));
    hit = number >= fault.after && (!fault.times || fault.hits < *fault.times) &&
          dice % 1'000'000 < fault.probability_ppm;
    fault.hits += hit && fault.hits < fault.calls ? 1 : 0;  // whatever the store said
    session.store->Run("UPDATE fault SET calls = ?, hits = ? WHERE id = ?", fault.calls, fault.hits, fault.id);
    if (hit) {
      outcome = {fault.status, fault.corrupt, Mix(dice), fault.delay_ms};
      session.store->Run("INSERT INTO log (at_ms, pid, operation, arguments, what) VALUES (?, ?, ?, ?, ?)", ms,
                         session.pid, call.operation, DescribeArguments(call), Describe(outcome));
    }
  }
  transaction.Commit();
  return outcome;
}

// Spoils what was written of the answer, never more: what lies behind it is the caller's.
void Corrupt(const FaultOutcome& outcome, Area& answer) {
  const std::size_t size = answer.used();
  std::uint64_t random = outcome.random;
  for (std::size_t i = 0; i < size; ++i) {
    if (outcome.corrupt == Corruption::kOnes)
      answer.bytes()[i] = 0xFF;
    else if (outcome.corrupt == Corruption::kRandom)
      answer.bytes()[i] = static_cast<std::uint8_t>(random = Mix(random));
    else if (outcome.corrupt == Corruption::kZero || i >= size / 2)  // kHalf: the rest of the answer never came
      answer.bytes()[i] = 0;
  }
}

// In wall time, signals or not.
void Wait(std::int64_t ms) {
  timespec rest{ms / 1000, ms % 1000 * 1'000'000};
  while (nanosleep(&rest, &rest) != 0) {
  }
}

// Runs what an operation does under the process's mutex and turns every exception into a status. What the model was in
// the middle of is not known then, so it is read again at the next call.
template <class Body>
std::uint32_t Guarded(const Body& body) {
  Session& session = OwnSession();
  std::unique_lock lock(session.mutex);
  try {
    return body(session, lock);
  } catch (const StoreError& error) {
    Report(session, StoreError(session.store && std::string_view(error.what()).find(session.store->path()) != 0
                                   ? session.store->path() + ": " + error.what()
                                   : error.what()));
  } catch (const std::exception& error) {
    Report(session, StoreError(error.what()));
  }
  session.model.reset();
  return kNoStore;
}

// Applies faults, and waits out the delay of one without the mutex, so that other threads go on meanwhile.
FaultOutcome TakeFaults(Session& session, std::unique_lock<std::mutex>& lock, const Call& call) {
  FaultOutcome outcome = ApplyFaults(session, call);
  if (outcome.delay_ms > 0) {
    lock.unlock();
    Wait(outcome.delay_ms);
    lock.lock();
    BringUpToDate(session);
  }
  return outcome;
}

// Ends the segment in which the change was made, by the settings before it. What the change asks for of counts comes
// between the two segments.
void EndSegment(const Change& change, Model& before) {
  CloseSegment(before, change.ms);
  for (const int port : change.ports_to_reset()) {
    before.base.ports[Index(port)] = {};
    if (const auto queues = before.base.queues.find(port); queues != before.base.queues.end()) {
      for (std::vector<QueueCounts>& way : queues->second)
        std::fill(way.begin(), way.end(), QueueCounts{});
    }
  }
  for (const int port : change.ports_to_forget())
    ForgetFlows(before, port);
  before.base_changed = true;
  StoreBase(change.store, before);
}

// The host after a change, whose statements were made. Counts go on from where they are; those of `before` are taken
// over rather than read again, as long as they are of the same ports and conversations.
Model AfterChange(const Change& change, Model& before) {
  Model after = LoadModel(change.store);
  LoadBalancer(change.store, after);
  PrepareTimeline(after);
  const bool segment_goes_on =
      change.ports_to_forget().empty() && change.ports_to_reset().empty() && SameTraffic(before, after);
  if (!segment_goes_on) {
    EndSegment(change, before);
    after.segment_ms = before.segment_ms;
    BeginSegment(after);
    RestoreLosses(after, SaveLosses(before));
  } else {
    after.losses = std::move(before.losses);
  }
  if (SameCounters(before, after)) {
    after.base = std::move(before.base);
    after.stored_base = std::move(before.stored_base);
  } else {
    LoadBase(change.store, after);
  }
  return after;
}

// Makes a change, from the decision at which moment it happens to its commit, while nobody counts. Whatever fails on
// the way, a status of the body included, leaves the store as it was.
std::uint32_t ChangeInTurn(Session& session, const std::function<std::uint32_t(Change&)>& body) {
  const Turn turn(*session.turns, TurnTo::kWrite);
  Transaction transaction(*session.store);
  Refresh(session);
  // From here on the model is ahead of the store; unless all goes well it is read again.
  Model model = std::move(*session.model);
  session.model.reset();
  // Not before what this process has answered for, nor before the segment: others may have answered until there.
  const std::int64_t ns = std::max(session.latest_ns, model.clock.HostNsAt(WallNs()));
  const std::int64_t ms = std::max(ns / 1'000'000, model.segment_ms);
  PersistPlacement(*session.store, model);
  ReplayTimeline(*session.store, model, ms);
  Change change(*session.store, model, ms);
  const std::uint32_t status = body(change);
  if (status != kOk)
    return status;
  const Clock before = model.clock;
  session.model.emplace(AfterChange(change, model));
  transaction.Commit();
  ForgetTimeOfOtherClock(session, before);
  return kOk;
}

}  // namespace

std::uint32_t ReadHost(const Call& call, Area* answer, const std::function<std::uint32_t(const View&)>& body) {
  return Guarded([&](Session& session, std::unique_lock<std::mutex>& lock) -> std::uint32_t {
    BringUpToDate(session);
    const FaultOutcome fault = TakeFaults(session, lock, call);
    if (fault.status)
      return *fault.status;
    const auto count = [&](std::int64_t ms) {
      SolveLosses(*session.model, ms);
      const std::uint32_t status = body(View{*session.store, *session.model, ms});
      if (status == kOk && answer != nullptr && fault.corrupt)
        Corrupt(fault, *answer);
      return status;
    };
    // Nothing is due, mostly: then readers count side by side, and nothing is written.
    {
      const Turn turn(*session.turns, TurnTo::kRead);
      RefreshForReading(session);
      const std::int64_t ms = std::max(HostMs(session), session.model->segment_ms);
      if (ms < session.model->NextDueMs())
        return count(ms);
    }
    const Turn turn(*session.turns, TurnTo::kWrite);
    return count(CatchUp(session));
  });
}

std::uint32_t ChangeHost(const Call& call, const std::function<std::uint32_t(Change&)>& body) {
  return Guarded([&](Session& session, std::unique_lock<std::mutex>& lock) -> std::uint32_t {
    BringUpToDate(session);
    const FaultOutcome fault = TakeFaults(session, lock, call);
    return fault.status ? *fault.status : ChangeInTurn(session, body);
  });
}

// A store that cannot be used is no fault: what asks here can do without it.
std::uint32_t FaultOf(const Call& call) {
  std::uint32_t status = kOk;
  Guarded([&](Session& session, std::unique_lock<std::mutex>& lock) -> std::uint32_t {
    BringUpToDate(session);
    status = TakeFaults(session, lock, call).status.value_or(kOk);
    return kOk;
  });
  return status;
}

std::int64_t HostNowMs() {
  std::int64_t ms = -1;
  Guarded([&](Session& session, std::unique_lock<std::mutex>&) -> std::uint32_t {
    BringUpToDate(session);
    ms = HostMs(session);
    return kOk;
  });
  return ms;
}

std::int64_t CatchUpHost() {
  std::int64_t ms = -1;
  Guarded([&](Session& session, std::unique_lock<std::mutex>&) -> std::uint32_t {
    BringUpToDate(session);
    const Turn turn(*session.turns, TurnTo::kWrite);
    ms = CatchUp(session);
    return kOk;
  });
  return ms;
}

std::uint32_t ApplySql(const char* sql) {
  return Guarded([&](Session& session, std::unique_lock<std::mutex>&) -> std::uint32_t {
    BringUpToDate(session);
    return ChangeInTurn(session, [&](Change& change) {
      change.store.Execute(sql);
      return kOk;
    });
  });
}

std::uint32_t SetHostClock(std::optional<bool> running, std::int64_t speed_permille, std::int64_t ahead_ns) {
  constexpr std::int64_t kMs = 1'000'000;
  return Guarded([&](Session& session, std::unique_lock<std::mutex>&) -> std::uint32_t {
    BringUpToDate(session);
    return ChangeInTurn(session, [&](Change& change) -> std::uint32_t {
      const Clock& clock = change.model.clock;
      const std::int64_t wall_ns = WallNs();
      std::int64_t now_ns = std::max(session.latest_ns, clock.HostNsAt(wall_ns));
      if (speed_permille < 0 || ahead_ns < 0 || ahead_ns > kLatestNs - now_ns)
        return kBadParameter;
      now_ns += ahead_ns;
      const bool runs = running.value_or(!clock.frozen);
      // What was answered for so far lies before now_ns, so time goes on from there whichever way the clock is set.
      if (!runs)  // at a full millisecond, which is as exact as its time is shown
        now_ns = std::min((now_ns + kMs - 1) / kMs, kLatestMs) * kMs;
      change.store.Run("UPDATE clock SET mode = ?, base_wall_ns = ?, base_host_ns = ?, speed_permille = ?",
                       runs ? "run" : "freeze", wall_ns, now_ns,
                       speed_permille != 0 ? speed_permille : clock.speed_permille);
      return kOk;
    });
  });
}

}  // namespace simhost
