// Reading the positional arguments of a method.
#pragma once

#include "ryn/_core/records_api.h"
#include "ryn/_core/values.h"

namespace ryn {

// What ryn._records lends; set when the module is made.
extern const RecordsApi* records_api;

// Readers: each takes one argument, or sets Python's error.

// An unsigned number of 32 bits, at most `most`.
struct Number {
  std::uint32_t* number;
  const char* name;
  std::uint32_t most = UINT32_MAX;

  bool operator()(PyObject* object) const { return ReadNumber(object, name, most, number); }
};

inline Number Switch(std::uint32_t* dvs) { return {dvs, "switch", 15}; }
inline Number Port(std::uint32_t* port) { return {port, "port", 127}; }
inline Number Flag(std::uint32_t* flag, const char* name) { return {flag, name, 1}; }

struct Object {
  PyObject** object;

  bool operator()(PyObject* given) const {
    *object = given;
    return true;
  }
};

// A text for the platform, copied; it ends in a NUL.
using OwnText = HeapArea<char>;

struct TextOf {
  OwnText* text;

  bool operator()(PyObject* object) const {
    const Ref bytes = TextBytes(object);
    if (!bytes)
      return false;
    const auto size = static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.get())) + 1;
    text->reset(static_cast<char*>(std::malloc(size)));
    if (!*text) {
      PyErr_NoMemory();
      return false;
    }
    std::memcpy(text->get(), PyBytes_AS_STRING(bytes.get()), size);
    return true;
  }
};

struct MacOf {
  std::uint8_t* mac;

  bool operator()(PyObject* object) const { return records_api->read_mac_address(object, mac); }
};

// At most `room` numbers of 32 bits from a sequence.
struct Numbers {
  std::uint32_t* numbers;
  std::uint32_t* count;
  const char* name;
  std::uint32_t room;

  bool operator()(PyObject* object) const;
};

bool HasCount(const char* method, Py_ssize_t count, std::size_t expected);

template <class... Readers>
bool ReadArguments(const char* method, PyObject* const* values, Py_ssize_t count, const Readers&... readers) {
  return HasCount(method, count, sizeof...(readers)) && (readers(*values++) && ...);
}

}  // namespace ryn
