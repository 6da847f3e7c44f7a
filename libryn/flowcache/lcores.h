// The core numbers that a script asks the flow cache about.
#pragma once

#include <cstdint>

#include "libryn/base/call.h"
#include "libryn/base/values.h"

constexpr Py_ssize_t kMaxLcores = 64;

struct LcoreList {
  std::uint32_t ids[kMaxLcores] = {};
  std::uint32_t count = 0;
};

// A tuple, or an instance of a subclass, of at most 64 items.
inline bool IsLcoreTuple(PyObject* object) { return PyTuple_Check(object) && PyTuple_GET_SIZE(object) <= kMaxLcores; }

// The items of such a tuple, in order. The first error of an item that is not an int is saved.
inline LcoreList ReadLcores(PyObject* tuple, DeferredError* error) {
  LcoreList lcores;
  while (lcores.count < PyTuple_GET_SIZE(tuple)) {
    lcores.ids[lcores.count] = LowWord(PyTuple_GET_ITEM(tuple, lcores.count), error);
    ++lcores.count;
  }
  return lcores;
}

// Deliberate: the counters are 64 bits wide and are shown modulo 2 to the power 32.
inline Ref LowWordInt(std::uint64_t counter) { return Int(static_cast<std::uint32_t>(counter)); }
