// MacTable: the rows of a MAC table as the platform fills them.
#pragma once

#include "host/native.h"
#include "host/records/ports.h"
#include "ryn/_core/records.h"

namespace ryn {

// What of an answer stands before its rows.
struct MacTableHead {
  std::uint32_t count;
  std::uint32_t unread4;
  std::uint32_t macLimit;
  std::uint32_t limitExceeded;  // of a port's table only
};
static_assert(sizeof(MacTableHead) == offsetof(PortMacTable, entries));

extern PyTypeObject mac_table_type;

bool AddMacTableType(PyObject* module, const RecordTypes* records);

// Takes over an answer of `count` rows in a block of the standard allocator. Null with Python's error set; the answer
// is then freed.
PyObject* NewMacTable(HeapArea<MacTableHead> answer, std::size_t count, bool of_port);

}  // namespace ryn
