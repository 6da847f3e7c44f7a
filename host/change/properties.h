// Storing settings as properties, of a switch and of a distributed port. The keys and records are in host/properties.h;
// no configuration is touched, so the stored value does not show in names or aliases until the next load.
#pragma once

#include <cstdint>
#include <type_traits>

#include "host/status.h"

// The last argument of the two operations is the library's own; these are the values that settings are stored with.
constexpr std::uint32_t kHostPropOption = 16;
constexpr std::uint32_t kPortDataOption = 8;

// DVSQOB_HostPropSet, DVSQOB_PortDataSet: store `length` bytes, which are copied.
Status SetHostProperty(const char* switchId, const char* property, const void* value, std::uint32_t length);
Status SetPortProperty(const char* switchId, const char* portId, const char* property, const void* value,
                       std::uint32_t length);

// Stores a record of host/records/loadbal.h as a host property; its version word is written as 0.
template <class Record>
Status SetPropertyRecord(const char* switchId, const char* property, Record record) {
  static_assert(std::is_trivially_copyable_v<Record>);
  record.version = 0;
  return SetHostProperty(switchId, property, &record, sizeof(record));
}
