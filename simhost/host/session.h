// How an operation gets at the host: one connection and one model for each process, behind a mutex.
//
//   return ReadHost({"Ryn_Get_Flow_Timeout", {}}, &answer, [&](const View& host) { ... return kOk; });
//
// Faults are applied here, time is taken here, and what has happened by itself since the last call is replayed here.
// Nothing is thrown across it: what goes wrong becomes a status.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "simhost/host/answer.h"
#include "simhost/host/model.h"
#include "simhost/host/store.h"

namespace simhost {

struct Argument {
  const char* name;
  std::string_view text;
  std::int64_t number = 0;
  bool is_text = false;

  Argument(const char* argument, std::uint32_t value) : name(argument), number(value) {}
  Argument(const char* argument, std::string_view value) : name(argument), text(value), is_text(true) {}
  std::string AsText() const { return is_text ? std::string(text) : std::to_string(number); }
};

struct Call {
  const char* operation;  // "": no fault concerns it
  std::initializer_list<Argument> arguments;
};

// The host at one moment.
struct View {
  Store& store;
  const Model& model;
  std::int64_t ms;  // host time
};

// The host while a change is made.
//
// The contract: the model shows the host as it is when the change is made, everything due until then replayed, and
// stands still. What the change is, it writes to the store, settings and inventory only: counts, losses and the
// balancer's memory are not its own, and what it would write there would be lost, or not be seen by this process. When
// it is done settings and inventory are read anew, and the session carries the counts over. If packets then take other
// ways, or cost something else, it ends the segment at `ms`: what was counted becomes the base, by the settings before.
// A change that makes no difference to the traffic ends nothing, so that it leaves no trace in any count. What a change
// wants of counts themselves, it asks for.
class Change {
 public:
  Change(Store& the_store, const Model& the_model, std::int64_t when) : store(the_store), model(the_model), ms(when) {}

  // By index of a port: its flows are learned anew; its counters begin at 0.
  void ForgetFlows(int port) { forget_flows_.push_back(port); }
  void ResetCounts(int port) { reset_counts_.push_back(port); }

  Store& store;
  const Model& model;
  const std::int64_t ms;  // host time when it takes effect

  const std::vector<int>& ports_to_forget() const { return forget_flows_; }
  const std::vector<int>& ports_to_reset() const { return reset_counts_; }

 private:
  std::vector<int> forget_flows_;
  std::vector<int> reset_counts_;
};

std::uint32_t ReadHost(const Call& call, Area* answer, const std::function<std::uint32_t(const View&)>& body);
// The change is kept if the body answers kOk, and undone otherwise.
std::uint32_t ChangeHost(const Call& call, const std::function<std::uint32_t(Change&)>& body);

// For an operation that needs nothing of the store: the status of a fault that concerns it, else kOk, also if there is
// no store.
std::uint32_t FaultOf(const Call& call);

// Without faults and arguments, for the tool's own entry points. -1: the store cannot be used.
std::int64_t HostNowMs();
std::int64_t CatchUpHost();  // replays what is due, and answers the host time
std::uint32_t ApplySql(const char* sql);

// Lets the clock run or stand (none: as it does), at a speed in permille (0: as it is), from its present time and so
// much ahead.
std::uint32_t SetHostClock(std::optional<bool> running, std::int64_t speed_permille, std::int64_t ahead_ns);

}  // namespace simhost
