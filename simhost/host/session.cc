#include "simhost/host/session.h"

#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

#include "simhost/host/turn.h"
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

// A child does not touch what its parent had open, nor a mutex that may have been held: it begins anew.
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

void Report(Session& session, const StoreError& error) {
  const std::string text = error.what();
  if (session.reported.insert(text).second)
    std::fprintf(stderr, "ryn-sim: %s\n", text.c_str());
}

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

// The model is read again when the store has changed. Inside a transaction this is the last word.
void Refresh(Session& session) {
  Store& store = *session.store;
  const std::int64_t version = store.Version();
  if (session.model && session.version == version)
    return;
  const Clock before = session.model ? session.model->clock : Clock{};
  session.model.reset();
  session.model.emplace(LoadModel(store));
  PrepareTimeline(store, *session.model);
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

std::int64_t HostMs(Session& session) {
  const std::int64_t ns = session.model->clock.HostNsAt(WallNs());
  session.latest_ns = session.model->clock.frozen ? ns : std::max(session.latest_ns, ns);
  return session.latest_ns / 1'000'000;
}

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

struct FaultOutcome {
  std::optional<std::uint32_t> status;
  std::string corrupt;
  std::uint64_t random = 0;
  std::int64_t delay_ms = 0;
};

bool Holds(const Fault& fault, const Call& call, std::int64_t ms) {
  if (fnmatch(fault.operation.c_str(), call.operation, 0) != 0)
    return false;
  if ((fault.from_ms && ms < *fault.from_ms) || (fault.until_ms && ms >= *fault.until_ms))
    return false;
  return std::all_of(fault.where.begin(), fault.where.end(), [&](const FaultWhereRow& where) {
    return std::any_of(call.arguments.begin(), call.arguments.end(), [&](const Argument& argument) {
      return where.name == argument.name && fnmatch(where.glob.c_str(), argument.AsText().c_str(), 0) == 0;
    });
  });
}

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
  if (!outcome.corrupt.empty())
    add("corrupt " + outcome.corrupt);
  return text.empty() ? "nothing" : text;
}

std::string DescribeArguments(const Call& call) {
  std::string text;
  for (const Argument& argument : call.arguments)
    text += (text.empty() ? "" : " ") + std::string(argument.name) + "=" + argument.AsText();
  return text;
}

// Counts the call for the rules that it matches and finds the one to apply, if any.
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
    const std::int64_t number = fault.calls++;
    const std::uint64_t dice = Mix(Mix(fault.seed) ^ static_cast<std::uint64_t>(number));
    hit = number >= fault.after && (!fault.times || fault.hits < *fault.times) &&
          dice % 1'000'000 < fault.probability_ppm;
    fault.hits += hit ? 1 : 0;
    session.store->Run("UPDATE fault SET calls = ?, hits = ? WHERE id = ?", fault.calls, fault.hits, fault.id);
    if (hit) {
      outcome = {fault.status, fault.corrupt.value_or(""), Mix(dice), fault.delay_ms};
      session.store->Run("INSERT INTO log (at_ms, pid, operation, arguments, what) VALUES (?, ?, ?, ?, ?)", ms,
                         session.pid, call.operation, DescribeArguments(call), Describe(outcome));
    }
  }
  transaction.Commit();
  return outcome;
}

void Corrupt(const FaultOutcome& outcome, Area& answer) {
  const std::size_t size = answer.used();
  std::uint64_t random = outcome.random;
  for (std::size_t i = 0; i < size; ++i) {
    if (outcome.corrupt == "ones")
      answer.bytes()[i] = 0xFF;
    else if (outcome.corrupt == "random")
      answer.bytes()[i] = static_cast<std::uint8_t>(random = Mix(random));
    else if (outcome.corrupt == "zero" || i >= size / 2)  // "half": the rest of the answer never came
      answer.bytes()[i] = 0;
  }
}

void Wait(std::int64_t ms) {
  timespec rest{ms / 1000, ms % 1000 * 1'000'000};
  while (nanosleep(&rest, &rest) != 0) {
  }
}

// Runs what an operation does under the process's mutex and turns every exception into a status.
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

// The host after a change, whose statements were made. Counts go on from where they are.
Model AfterChange(Change& change, Model& before) {
  Store& store = change.store;
  Model after = LoadModel(store);
  PrepareTimeline(store, after);
  if (change.ports_to_forget().empty() && change.ports_to_reset().empty() && SameTraffic(before, after)) {
    after.losses = std::move(before.losses);
    return after;
  }
  CloseSegment(before, change.ms);
  for (const int port : change.ports_to_reset()) {
    before.base.ports[static_cast<std::size_t>(port)] = {};
    if (const auto queues = before.base.queues.find(port); queues != before.base.queues.end()) {
      for (std::vector<QueueCounts>& way : queues->second)
        std::fill(way.begin(), way.end(), QueueCounts{});
    }
  }
  for (const int port : change.ports_to_forget())
    ForgetFlows(before, port);
  before.base_changed = true;
  StoreBase(store, before);
  after.segment_ms = before.segment_ms;
  LoadBase(store, after);
  BeginSegment(after);
  RestoreLosses(after, after.base.losses);
  return after;
}

std::uint32_t ChangeInTurn(Session& session, const std::function<std::uint32_t(Change&)>& body) {
  const Turn turn(*session.turns, TurnTo::kWrite);
  Transaction transaction(*session.store);
  Refresh(session);
  // From here on the model is ahead of the store; unless all goes well it is read again.
  Model model = std::move(*session.model);
  session.model.reset();
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
      if (status == kOk && answer != nullptr && !fault.corrupt.empty())
        Corrupt(fault, *answer);
      return status;
    };
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
  constexpr std::int64_t kLatestNs = std::int64_t{1} << 62;
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
      if (!runs)  // at a full millisecond, which is as exact as its time is shown
        now_ns = (now_ns + kMs - 1) / kMs * kMs;
      change.store.Run("UPDATE clock SET mode = ?, base_wall_ns = ?, base_host_ns = ?, speed_permille = ?",
                       runs ? "run" : "freeze", wall_ns, now_ns,
                       speed_permille != 0 ? speed_permille : clock.speed_permille);
      return kOk;
    });
  });
}

}  // namespace simhost
