// One call of an operation of the double: records its arguments and carries out what the script says.
#pragma once

#include <cstddef>
#include <cstdint>

#include "script.h"

class Call {
 public:
  Call(const char* operation, Script& script) : recording_(TheDouble().recording), answer_(script.standing.get()) {
    if (!script.counted.empty())
      NextOf(script);
    if (recording_)
      RecordOperation(operation);
  }
  ~Call() {
    if (recording_)
      RecordEnd();
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  Call& Number(const char* name, std::uint64_t value) {
    if (recording_)
      RecordNumber(name, value);
    return *this;
  }
  Call& Numbers(const char* name, const std::uint32_t* values, std::size_t count);
  Call& Text(const char* name, const char* text, std::size_t bound = SIZE_MAX);
  Call& Bytes(const char* name, const void* bytes, std::size_t size);

  // An output area with its length word, or of fixed size
  Call& Area(void* area, std::uint32_t* length);
  Call& Area(void* area, std::size_t room);
  // A fresh block from malloc of exactly the scripted bytes; true when one was handed out
  bool Block(void** block, std::uint32_t* length);

  std::uint32_t Status(std::uint32_t unscripted = 0) const { return answer_ ? answer_->status : unscripted; }
  std::uint32_t Length(std::uint32_t unscripted) const {
    return answer_ && answer_->length >= 0 ? static_cast<std::uint32_t>(answer_->length) : unscripted;
  }

 private:
  void RecordOperation(const char* operation);
  void RecordEnd();
  void NextOf(Script& script);
  void RecordNumber(const char* name, std::uint64_t value);
  void Name(const char* name);
  void Hex(const char* kind, const void* bytes, std::size_t size);
  void Fill(void* area, std::size_t room);

  bool recording_;
  const Answer* answer_;
};

// The call of the function that this stands in. Its script is looked up once: what the double takes of a call's time
// is not what the benchmarks are there to measure.
#define THIS_CALL CALL_OF(__func__)
#define CALL_OF(operation)                             \
  Call(operation, [](const char* name) -> Script& {    \
    static Script& script = TheDouble().scripts[name]; \
    return script;                                     \
  }(operation))
