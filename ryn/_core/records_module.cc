// The module ryn._records: record types and tables, for which no platform library is needed.

#include "ryn/_core/mac_address.h"
#include "ryn/_core/records_api.h"

namespace {

ryn::RecordsApi api;

bool AddAll(PyObject* module) {
  if (!ryn::AddRecordTypes(module, &api.records) || !ryn::AddType(module, &ryn::mac_address_type) ||
      !ryn::AddCounterTypes(module, &api.records) || !ryn::AddType(module, &ryn::listed_port_type) ||
      !ryn::AddMacTableType(module, &api.records) || !ryn::AddFlowTypes(module))
    return false;
  api.listed_port = &ryn::listed_port_type;
  api.flow_filter = &ryn::flow_filter_type;
  api.new_port_counters = ryn::NewPortCounters;
  api.new_counter_table = ryn::NewCounterTable;
  api.new_listed_port = ryn::NewListedPort;
  api.new_mac_table = ryn::NewMacTable;
  api.new_flow = ryn::NewFlow;
  api.new_mac_address = ryn::NewMacAddress;
  api.read_mac_address = ryn::ReadMacAddress;
  ryn::Ref capsule(PyCapsule_New(&api, ryn::kRecordsCapsule, nullptr));
  if (!capsule || PyModule_AddObject(module, "_api", capsule.get()) != 0)
    return false;
  static_cast<void>(capsule.release());  // the module has taken it over
  return true;
}

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT,
    "ryn._records",
    "Records and tables of a host.",
    -1,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

}  // namespace

PyMODINIT_FUNC PyInit__records [[gnu::visibility("default")]] ();
PyMODINIT_FUNC PyInit__records() {
  ryn::Ref module(PyModule_Create(&definition));
  if (!module || !AddAll(module.get()))
    return nullptr;
  return module.release();
}
