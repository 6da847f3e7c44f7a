// Counters of ports: PortCounters of one, CounterTable of many. Both hold native records; ints are made when asked for.
#pragma once

#include "host/native.h"
#include "host/records/ports.h"
#include "ryn/_core/records.h"

namespace ryn {

// As the platform fills them, on the fast and on the slow path.
struct PathCounters {
  PortStats fast;
  PortStats slow;
};
static_assert(sizeof(PathCounters) == 256);

extern PyTypeObject port_counters_type;
extern PyTypeObject counter_table_type;

// Finishes the types. `records` outlives them.
bool AddCounterTypes(PyObject* module, const RecordTypes* records);

PyObject* NewPortCounters(const PathCounters& counters);

// A table of `count` rows, which it takes over. Null with Python's error set; the rows are then freed.
PyObject* NewCounterTable(HeapArea<PathCounters> rows, std::size_t count);

}  // namespace ryn
