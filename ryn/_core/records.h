// The record types of the package: struct sequences, which need no platform library.
#pragma once

#include <array>
#include <cstddef>
#include <utility>

#include "ryn/_core/values.h"

namespace ryn {

enum RecordType : std::size_t {
  kCounters,
  kRates,
  kUplinkCountersRecord,
  kSwitchRecord,
  kMacEntry,
  kDevice,
  kTeaming,
  kPortConfig,
  kMirror,
  kNetQ,
  kNetQFilterRecord,
  kNetQQueueRecord,
  kFlowStats,
  kFpoStats,
  kOffload,
  kWeightsRecord,
  kBalancerGroup,
  kBalancerVertex,
  kBalancerEdge,
  kBalancerPort,
  kBalancerCore,
  kDvsRecord,
  kRecordTypes
};

using RecordTypes = std::array<PyTypeObject*, kRecordTypes>;

// Makes the types and adds them to the module. False with Python's error set.
bool AddRecordTypes(PyObject* module, RecordTypes* types);

// A record of `size` fields, field i being make(i).
template <class Make>
Ref RecordOf(PyTypeObject* type, std::size_t size, Make make) {
  Ref record(PyStructSequence_New(type));
  for (std::size_t i = 0; record && i < size; ++i) {
    Ref field = make(i);
    if (!field)
      return nullptr;
    PyStructSequence_SET_ITEM(record.get(), static_cast<Py_ssize_t>(i), field.release());
  }
  return record;
}

// A record of the fields, in their order; null when one of them is.
template <class... Fields>
Ref Record(PyTypeObject* type, Fields... fields) {
  Ref values[] = {std::move(fields)...};
  for (const Ref& value : values) {
    if (!value)
      return nullptr;
  }
  return RecordOf(type, sizeof...(fields), [&](std::size_t i) { return std::move(values[i]); });
}

}  // namespace ryn
