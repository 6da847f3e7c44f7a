// What came of an operation of the platform.
#pragma once

#include <cstdint>

// Status codes that the platform documents, and that host/ answers where it looks something up itself.
constexpr std::uint32_t kNotFound = 0x0BAD0003;      // no such switch, no such property
constexpr std::uint32_t kBadParameter = 0x0BAD0007;  // bad parameter, or a switch of another class

// The result of a function that calls the platform: success, or the operation that failed and why. Plain data, 16
// bytes, passed by value.
struct [[nodiscard]] Status {
  enum class Kind : std::uint8_t {
    kOk,
    kFailed,           // the operation answered the status `code`, which is not 0
    kInvalidResponse,  // it answered 0, but its answer contradicts itself or reaches past its own end
    kNoMemory,         // the area for the answer could not be allocated; the operation was not called
  };

  bool Ok() const { return kind == Kind::kOk; }

  // The operation that failed, by the name that platform/*.h gives it (host/operations.h); a constant. Null for
  // success.
  const char* operation = nullptr;
  std::uint32_t code = 0;
  Kind kind = Kind::kOk;
};

inline Status InvalidResponse(const char* operation) { return {operation, 0, Status::Kind::kInvalidResponse}; }
inline Status NoMemory(const char* operation) { return {operation, 0, Status::Kind::kNoMemory}; }

// The status `code` of an operation, 0 for success.
inline Status StatusOf(const char* operation, std::uint32_t code) {
  return code == 0 ? Status{} : Status{operation, code, Status::Kind::kFailed};
}
