// A call of a platform operation, as errors name it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ryn {

// A number or a text that is handed over. Bytes belong to whoever makes the call.
struct Argument {
  enum class Kind : std::uint8_t { kNumber, kNumbers, kText, kHex, kMac };

  Argument() = default;
  Argument(std::uint32_t value) : number(value) {}  // NOLINT(google-explicit-constructor): an argument is a number
  Argument(const char* text) : kind(Kind::kText), bytes(text), size(std::strlen(text)) {}  // NOLINT

  static Argument Numbers(const std::uint32_t* numbers, std::size_t count) {
    return {Kind::kNumbers, numbers, count * sizeof(*numbers)};
  }
  static Argument Hex(const void* bytes, std::size_t size) { return {Kind::kHex, bytes, size}; }
  static Argument Mac(const std::uint8_t* mac) { return {Kind::kMac, mac, 6}; }

  Kind kind = Kind::kNumber;
  std::uint32_t number = 0;
  const void* bytes = nullptr;
  std::size_t size = 0;

 private:
  Argument(Kind given, const void* data, std::size_t length) : kind(given), bytes(data), size(length) {}
};

constexpr std::size_t kMaxArguments = 8;

struct Operation {
  template <class... Arguments>
  explicit Operation(const char* operation, Arguments... given)
      : name(operation), count(sizeof...(given)), arguments{given...} {
    static_assert(sizeof...(given) <= kMaxArguments);
  }

  const char* name;  // a constant
  std::size_t count;
  Argument arguments[kMaxArguments];
};

// A copy of an operation that outlives the one who made the call. Texts beyond its room are cut.
class OperationCopy {
 public:
  OperationCopy() : operation_("") {}
  OperationCopy(const OperationCopy&) = delete;
  OperationCopy& operator=(const OperationCopy&) = delete;

  void CopyFrom(const Operation& operation) {
    operation_ = operation;
    std::size_t used = 0;
    for (std::size_t i = 0; i < operation.count; ++i) {
      Argument& argument = operation_.arguments[i];
      if (argument.size > sizeof(bytes_) - used)
        argument.size = sizeof(bytes_) - used;
      if (argument.size > 0)
        std::memcpy(bytes_ + used, argument.bytes, argument.size);
      argument.bytes = bytes_ + used;
      used += argument.size;
    }
  }
  const Operation& Get() const { return operation_; }

 private:
  Operation operation_;
  char bytes_[1024];
};

}  // namespace ryn
