#include "libryn/dvs/property.h"

#include <cstring>

#include "libryn/base/call.h"

std::uint32_t PropertyValue::ReadHost(const char* switchId, const char* property) {
  void* block = nullptr;
  std::uint32_t length = 0;
  const std::uint32_t status = DVSQOB_HostPropGet(switchId, property, &block, &length);
  return Own(status, block, length);
}

std::uint32_t PropertyValue::ReadPort(const char* switchId, const char* portId, const char* property) {
  void* block = nullptr;
  std::uint32_t length = 0;
  const std::uint32_t status = DVSQOB_PortDataGet(switchId, portId, property, &block, &length);
  return Own(status, block, length);
}

std::uint32_t PropertyValue::Own(std::uint32_t status, void* block, std::uint32_t length) {
  if (status == 0) {
    block_.reset(block);
    length_ = block ? length : 0;
  }
  return status;
}

bool FindPortsetName(const char* alias, PortsetName* name) {
  if (DVSAliasToPortsetName(alias, name->text) == 0)
    return true;
  Report("Failed to get portset name from dvs %s.\n", alias);
  return false;
}

bool WriteHostProperty(const SwitchId& switchId, const char* property, const void* value, std::uint32_t length) {
  constexpr std::uint32_t kOption = 16;  // the switch-state library's, the same for every host property
  if (DVSQOB_HostPropSet(switchId.text, property, value, length, kOption) == 0)
    return true;
  Report("Failed to set DVS property %s\n", property);
  return false;
}

PropertyState ReadRecord(const SwitchId& switchId, const char* property, void* record, std::size_t length) {
  PropertyValue value;
  if (value.ReadHost(switchId.text, property) != 0)
    return PropertyState::kAbsent;
  if (value.FirstWord() != 0) {
    Report("Format of property %s value is from unknown version.\n", property);
    return PropertyState::kMalformed;
  }
  if (value.Length() != length) {
    Report("Property %s value length is odd.\n", property);  // Deliberate: said of every wrong length.
    return PropertyState::kMalformed;
  }
  std::memcpy(record, value.Bytes(), length);
  return PropertyState::kRead;
}
