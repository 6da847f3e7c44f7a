// One call of an operation of the double: records its arguments and carries out what the script says.
#pragma once

#include <cstddef>
#include <cstdint>

struct Answer;

class Call {
 public:
  explicit Call(const char* operation);
  ~Call();
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

  std::uint32_t Status(std::uint32_t unscripted = 0) const;

 private:
  void RecordNumber(const char* name, std::uint64_t value);
  void Name(const char* name);
  void Hex(const char* kind, const void* bytes, std::size_t size);
  void Fill(void* area, std::size_t room);

  bool recording_;
  const Answer* answer_;
};
