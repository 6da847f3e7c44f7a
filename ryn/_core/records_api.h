// What ryn._core takes of ryn._records, through a capsule: one needs the platform libraries, the other must not.
#pragma once

#include "ryn/_core/counters.h"
#include "ryn/_core/flow.h"
#include "ryn/_core/listed_port.h"
#include "ryn/_core/mac_table.h"
#include "ryn/_core/records.h"

namespace ryn {

// All belongs to ryn._records and lives as long as the process.
struct RecordsApi {
  RecordTypes records;
  PyTypeObject* listed_port;
  PyTypeObject* flow_filter;
  decltype(&NewPortCounters) new_port_counters;
  decltype(&NewCounterTable) new_counter_table;
  decltype(&NewListedPort) new_listed_port;
  decltype(&NewMacTable) new_mac_table;
  decltype(&NewFlow) new_flow;
  PyObject* (*new_mac_address)(const std::uint8_t* bytes);
  bool (*read_mac_address)(PyObject* address, std::uint8_t* bytes);
};

constexpr char kRecordsCapsule[] = "ryn._records._api";

}  // namespace ryn
