#include "libryn/dvs/property.h"

#include <cstring>

#include "host/change/properties.h"

bool FindPortsetNameOrReport(const char* alias, PortsetName* name) {
  if (FindPortsetName(alias, name->text) == 0)
    return true;
  Report("Failed to get portset name from dvs %s.\n", alias);
  return false;
}

bool SetPropertyOrReport(const SwitchId& switchId, const char* property, const void* value, std::uint32_t length) {
  if (SetHostProperty(switchId.text, property, value, length).Ok())
    return true;
  Report("Failed to set DVS property %s\n", property);
  return false;
}

PropertyState ReadRecordOrReport(const SwitchId& switchId, const char* property, void* record, std::size_t length) {
  PropertyValue value;
  if (!value.ReadHost(switchId.text, property).Ok())
    return PropertyState::kAbsent;
  switch (FormatOf(value, length)) {
    case RecordFormat::kUnknownVersion:
      Report("Format of property %s value is from unknown version.\n", property);
      return PropertyState::kMalformed;
    case RecordFormat::kWrongLength:
      Report("Property %s value length is odd.\n", property);  // Deliberate: said of every wrong length.
      return PropertyState::kMalformed;
    case RecordFormat::kValid:
      break;
  }
  std::memcpy(record, value.Bytes(), length);
  return PropertyState::kRead;
}
