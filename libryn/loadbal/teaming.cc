// NUMA-aware teaming and burst size of a switch, each kept in a host property.

#include <cstdint>

#include "host/records/loadbal.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/dvs/property.h"
#include "libryn/loadbal/loadbal.h"
#include "platform/ryn.h"

PyObject* PyRYN_GetSwitchNUMATeam(PyObject*, PyObject* args) {
  const char* alias;
  if (!ParseArgs(args, &alias))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  Teaming teaming = {};
  if (!ReadSettingOrReport(alias, kTeamingProperty, &teaming, [](const char* portset, Teaming* current) {
        return Ryn_GetSwitchNUMATeam(portset, kPortsetNameBytes, &current->numaAware);
      }))
    return None();
  return Bool(teaming.numaAware != 0);
}

PyObject* PyRYN_SetSwitchNUMATeam(PyObject*, PyObject* args) {
  const char* alias;
  std::uint32_t setting;
  if (!ParseArgs(args, &alias, &setting))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  // Deliberate: only the low 8 bits of the setting are stored, so 256 switches it off.
  Teaming teaming = {.version = 0, .numaAware = static_cast<std::uint8_t>(setting)};
  WriteSettingOrReport(alias, kTeamingProperty, &teaming);
  return None();
}

PyObject* PyRYN_GetSwitchBurstSize(PyObject*, PyObject* args) {
  const char* alias;
  if (!ParseArgs(args, &alias))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  BurstSize burst = {};
  if (!ReadSettingOrReport(alias, kBurstSizeProperty, &burst, [](const char* portset, BurstSize* current) {
        return Ryn_GetSwitchBurstSize(portset, &current->packets);
      }))
    return None();
  return Int(burst.packets).release();
}

PyObject* PyRYN_SetSwitchBurstSize(PyObject*, PyObject* args) {
  const char* alias;
  std::uint32_t packets;
  if (!ParseArgs(args, &alias, &packets))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  BurstSize burst = {.version = 0, .packets = packets};
  WriteSettingOrReport(alias, kBurstSizeProperty, &burst);
  return None();
}
