// A switch's settings by alias, kept as host properties. Failures are reported: a message on standard error, and false.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/names.h"
#include "host/properties.h"
#include "libryn/base/call.h"

// Look a switch up by its alias.
inline bool FindSwitchIdOrReport(const char* alias, SwitchId* switchId) {
  if (FindSwitchId(alias, switchId->text) == 0)
    return true;
  Report("Failed to find dvs ID for dvs alias %s.\n", alias);
  return false;
}
bool FindPortsetNameOrReport(const char* alias, PortsetName* name);

// Stores a value as a host property.
bool SetPropertyOrReport(const SwitchId& switchId, const char* property, const void* value, std::uint32_t length);

enum class PropertyState { kRead, kAbsent, kMalformed };

// Reads a property whose value is a record of exactly `length` bytes that begins with a 32-bit version word, 0.
// kMalformed after a message on standard error. Deliberate: a property that cannot be read for any reason is absent.
PropertyState ReadRecordOrReport(const SwitchId& switchId, const char* property, void* record, std::size_t length);

// Reads a switch's setting: the property or, while the switch has none, what runs in the datapath.
// `readDatapath(portsetName, record)` returns the datapath's status; its failure is silent.
template <class Record, class ReadDatapath>
bool ReadSettingOrReport(const char* alias, const char* property, Record* record, ReadDatapath readDatapath) {
  SwitchId switchId;
  if (!FindSwitchIdOrReport(alias, &switchId))
    return false;
  const PropertyState state = ReadRecordOrReport(switchId, property, record, sizeof(Record));
  if (state != PropertyState::kAbsent)
    return state == PropertyState::kRead;
  PortsetName name;
  return FindPortsetNameOrReport(alias, &name) && readDatapath(name.text, record) == 0;
}

// Stores a switch's setting as a property; its version word is set to 0. The alias is looked up again.
template <class Record>
bool WriteSettingOrReport(const char* alias, const char* property, Record* record) {
  SwitchId switchId;
  if (!FindSwitchIdOrReport(alias, &switchId))
    return false;
  record->version = 0;
  return SetPropertyOrReport(switchId, property, record, sizeof(Record));
}
