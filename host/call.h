// Calling an operation that fills a record. Only sources of host/ include this.
#pragma once

#include <cstdint>
#include <cstring>

#include "host/native.h"
#include "host/status.h"

// Zeroes the record, then calls `operation(arguments..., record, &length)` with the length word preset to its size.
// What the operation leaves in the length word is not used: all records have a size of their own.
template <class Record, class Operation, class... Arguments>
Status FillRecord(const char* name, Record* record, Operation operation, Arguments... arguments) {
  std::memset(record, 0, sizeof(Record));
  std::uint32_t length = sizeof(Record);
  return StatusOf(name, operation(arguments..., record, &length));
}

// The same for a record that is too large to be cleared or copied without need: a new one, whose pages stay untouched
// where the platform writes nothing. *record changes only on success.
template <class Record, class Operation, class... Arguments>
Status AllocateAndFill(const char* name, HeapArea<Record>* record, Operation operation, Arguments... arguments) {
  auto area = AllocateRecord<Record>();
  if (!area)
    return NoMemory(name);
  std::uint32_t length = sizeof(Record);
  const Status status = StatusOf(name, operation(arguments..., area.get(), &length));
  if (status.Ok())
    *record = std::move(area);
  return status;
}

// Cuts a count that came from the platform to the room of its array.
template <class Count>
void CutTo(std::size_t room, Count* count) {
  if (*count > room)
    *count = static_cast<Count>(room);
}
