// The module definition and the table of its methods.

#include <cstddef>
#include <string_view>

#include "libryn/base/python.h"
#include "libryn/flowcache/flowcache.h"
#include "libryn/loadbal/loadbal.h"
#include "libryn/ports/ports.h"
#include "libryn/uplinks/uplinks.h"

namespace {

// Deliberate: documentation texts are part of the interface and keep their misspellings; names and order are fixed.
// clang-format off
constexpr PyMethodDef kMethods[] = {
    {"ListSwitches", PyRYN_List_Switches, METH_VARARGS, "List All RYN switches"},
    {"ListPorts", PyRYN_List_Ports, METH_VARARGS, "List all ports on a RYN switch."},
    {"GetPortStats", PyRYN_Get_Port_Stats, METH_VARARGS, "Get a port's statistics"},
    {"ListPortMACTable", PyRYN_List_Port_MACTable, METH_VARARGS, "List all mac entries for a port"},
    {"ClearPortMACTable", PyRYN_Clear_Port_MACTable, METH_VARARGS, "clear mac entries for a port"},
    {"AddMACEntry", PyRYN_Add_MAC_Entry, METH_VARARGS, "Add a MAC Entry for a port"},
    {"DelMACEntry", PyRYN_Del_MAC_Entry, METH_VARARGS, "Delete a MAC Entry for a port"},
    {"ListSwitchMACTable", PyRYN_List_Switch_MACTable, METH_VARARGS, "List MAC table for a switch"},
    {"ClearSwitchMACTable", PyRYN_Clear_Switch_MACTable, METH_VARARGS, "Clear MAC table for a switch"},
    {"GetFlowStats", PyRYN_Get_Flow_Stats, METH_VARARGS, "Get flow stats for lcores"},
    {"DumpFlowTable", PyRYN_Dump_Flow_Table, METH_VARARGS, "Dump flow table for a lcore"},
    {"GetPortConf", PyRYN_Get_Port_Conf, METH_VARARGS, "Get Ryn Port Configuration"},
    {"MigratePort", PyRYN_Migrate_Port, METH_VARARGS, "Migrate port between Lcores"},
    {"UnpinPort", PyRYN_Unpin_Port, METH_VARARGS, "Unpin port from Lcore"},
    {"ResetPort", PyRYN_Reset_Port, METH_VARARGS, "Reset a port"},
    {"GetPortTxUplink", PyRYN_Get_Port_Tx_Uplink, METH_VARARGS, "Get the TX uplink of a given port"},
    {"SetPortTxUplink", PyRYN_Set_Port_Tx_Uplink, METH_VARARGS, "Set the TX uplink of a given port"},
    {"GetMirrorConf", PyRYN_Get_Mirror_Conf, METH_VARARGS, "Get mirror conf for all sessions"},
    {"GetUplinkStats", PyRYN_Get_Uplink_Stats, METH_VARARGS, "Get private stats of an uplink port"},
    {"GetUplinkQueueStats", PyRYN_Get_Uplink_Queue_Stats, METH_VARARGS, "Get uplink queue stats"},
    {"SetUplinkMACLearn", PyRYN_Set_Uplink_MAC_Learn, METH_VARARGS, "Set uplink MAC Learn policy"},
    {"ClearSwitchFlowTable", PyRYN_Clear_Switch_Flow_Table, METH_VARARGS, "Clear flow table for a switch"},
    {"EnableSwitchFlowCache", PyRYN_Enable_Switch_Flow_Cache, METH_VARARGS, "Enable flow cache for a switch"},
    {"GetPanicOnTxHang", PyRYN_Get_Panic_On_Tx_Hang, METH_VARARGS, "Get if panic when uplink Tx hang detected on a switch"},
    {"SetPanicOnTxHang", PyRYN_Set_Panic_On_Tx_Hang, METH_VARARGS, "Set if panic when uplink Tx hang detected on a switch"},
    {"GetPortNetQInfo", PyRYN_Get_Port_NetQ_Info, METH_VARARGS, "Get port's netq informastion"},
    {"GetUplinkRingSize", PyRYN_Get_Uplink_Ring_Size, METH_VARARGS, "Get uplink's Tx and Rx ring size"},
    {"SetUplinkRingSize", PyRYN_Set_Uplink_Ring_Size, METH_VARARGS, "Set uplink's Tx and Rx ring size"},
    {"ListDevAffinity", PyRYN_List_Device_Affinity, METH_VARARGS, "List device affinity for all the lunics on this system"},
    {"SetDevAffinity", PyRYN_Set_Device_Affinity, METH_VARARGS, "Set device affinity for a given lunic"},
    {"GetLBWeights", PyRYN_GetLBWeights, METH_VARARGS, "Get current load balancer weight parameters"},
    {"SetLBWeights", PyRYN_SetLBWeights, METH_VARARGS, "Set load balancer weight parameters"},
    {"ResetLBWeights", PyRYN_ResetLBWeights, METH_VARARGS, "Reset load balancer weight parameters to the default values"},
    {"GetLBParams", PyRYN_GetLBParams, METH_VARARGS, "Get current load balancer per switch options"},
    {"SetLBParams", PyRYN_SetLBParams, METH_VARARGS, "Set load balancer per switch options"},
    {"DumpLBSnapshot", PyRYN_DumpLBSnapshot, METH_VARARGS, "Dump the latest LB Snapshot"},
    {"GetLBAlgorithm", PyRYN_GetLBAlgorithm, METH_VARARGS, "Get load balancing algorithm used"},
    {"SetLBAlgorithm", PyRYN_SetLBAlgorithm, METH_VARARGS, "Set load balancing algorithm to be used"},
    {"GetSwitchNUMATeam", PyRYN_GetSwitchNUMATeam, METH_VARARGS, "Get the current status NUMA awareness of teaming"},
    {"SetSwitchNUMATeam", PyRYN_SetSwitchNUMATeam, METH_VARARGS, "Set NUMA awareness of teaming to enabled or disabled"},
    {"GetSwitchBurstSize", PyRYN_GetSwitchBurstSize, METH_VARARGS, "Get burst size of an RYN switch"},
    {"SetSwitchBurstSize", PyRYN_SetSwitchBurstSize, METH_VARARGS, "Set burst size of an RYN switch"},
    {"DumpLBPortStats", PyRYN_DumpLBPortStats, METH_VARARGS, "Dump the latest LB Port Statistics"},
    {"GetPortLRO", PyRYN_GetPortLRO, METH_VARARGS, "Get the current status of LRO of a port"},
    {"SetPortLRO", PyRYN_SetPortLRO, METH_VARARGS, "Enable or Disable LRO for a ort"},
    {"GetSwitchLRO", PyRYN_GetSwitchLRO, METH_VARARGS, "Get the current status of LRO of a switch"},
    {"SetSwitchLRO", PyRYN_SetSwitchLRO, METH_VARARGS, "Enable or Disable LRO for a switch. This overrides per-port setting"},
    {"GetFPOEnabled", PyRYN_GetFPOEnabled, METH_VARARGS, "Get FPO enabled on a DVS"},
    {"EnableFPO", PyRYN_EnableFPO, METH_VARARGS, "Enable/Disable FPO on a DVS"},
    {"GetFPOStats", PyRYN_Get_FPO_Stats, METH_VARARGS, "Get FPO stats for lcores"},
    {"GetFPOUplinkStatus", PyRYN_Get_FPO_Uplink_Status, METH_VARARGS, "Get FPO stats for an uplink"},
    {"GetFlowTimeout", PyRYN_GetFlowTimeout, METH_VARARGS, "Get flow timeout in seconds"},
    {"SetFlowTimeout", PyRYN_SetFlowTimeout, METH_VARARGS, "Set flow timeout in seconds"},
    {"ListLCoreIDs", PyRyn_ListLCoreIDs, METH_VARARGS, "List All lcore IDs"},
    {"InitMbufFastslabs", PyRyn_InitMbufFastslabs, METH_VARARGS, "Init RYN mbuf fastslabs"},
    {nullptr, nullptr, 0, nullptr},
};
// clang-format on

constexpr std::size_t kMethodCount = sizeof(kMethods) / sizeof(kMethods[0]) - 1;

// The linker resolves the handler's address: under a sanitizer it is not a constant expression.
consteval bool IsComplete(const PyMethodDef& row) {
  return row.ml_name && row.ml_flags == METH_VARARGS && row.ml_doc && *row.ml_doc;
}

consteval bool AllRowsAreComplete() {
  for (std::size_t i = 0; i < kMethodCount; ++i) {
    if (!IsComplete(kMethods[i]))
      return false;
  }
  return true;
}

consteval bool NamesAreUnique() {
  for (std::size_t i = 0; i < kMethodCount; ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (std::string_view(kMethods[i].ml_name) == kMethods[j].ml_name)
        return false;
    }
  }
  return true;
}

static_assert(AllRowsAreComplete());
static_assert(NamesAreUnique());
static_assert(!kMethods[kMethodCount].ml_name, "the table is closed by an empty row");

constexpr int kApiVersion = 1013;
static_assert(PYTHON_API_VERSION == kApiVersion);

// No state: the module cannot be initialised again in a sub-interpreter.
PyModuleDef module_definition = {
    PyModuleDef_HEAD_INIT,
    "_libryn",
    "Python binding for ryn",
    -1,
    const_cast<PyMethodDef*>(kMethods),  // Python only reads it
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

}  // namespace

// Python 3.8's own declaration does not export it.
PyMODINIT_FUNC PyInit__libryn [[gnu::visibility("default")]] ();
PyMODINIT_FUNC PyInit__libryn() { return PyModule_Create2(&module_definition, kApiVersion); }
