// How an operation gets at the host: one connection and one model for each process, behind a mutex.
//
//   return Read({"Ryn_Get_Flow_Timeout", {}}, answer, [&](const View& host) { ... return kOk; });
//
// Faults are applied here, time is taken here, and what has happened by itself since the last call is replayed here.
// Nothing is thrown across it: what goes wrong becomes a status.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

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

// The host while a change is made. ms: when the change takes effect.
struct Change {
  Store& store;
  Model& model;
  std::int64_t ms;
};

// Whether a change bears on how traffic counts; then the segment is closed before it is made.
enum class Bears : bool { kNotOnCounts, kOnCounts };

std::uint32_t ReadHost(const Call& call, Area* answer, const std::function<std::uint32_t(const View&)>& body);
// The change is kept if the body answers kOk, and undone otherwise.
std::uint32_t ChangeHost(const Call& call, Bears bears, const std::function<std::uint32_t(Change&)>& body);

// For an operation that needs nothing of the store: the status of a fault that concerns it, else kOk, also if there is
// no store.
std::uint32_t FaultOf(const Call& call);

// Without faults and arguments, for the tool's own entry points.
std::int64_t HostNowMs();
std::uint32_t ApplySql(const char* sql);

}  // namespace simhost
