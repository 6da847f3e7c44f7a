// Properties of the switch state. Values are in the byte order of the host, and as long as whoever stored them liked.

#include "host/properties.h"

#include <cstring>

#include "host/operations.h"

Status PropertyValue::ReadHost(const char* switchId, const char* property) {
  void* block = nullptr;
  std::uint32_t length = 0;
  const std::uint32_t code = DVSQOB_HostPropGet(switchId, property, &block, &length);
  if (code == 0)
    Own(block, length);
  return StatusOf(operations::kHostPropGet, code);
}

Status PropertyValue::ReadPort(const char* switchId, const char* portId, const char* property) {
  void* block = nullptr;
  std::uint32_t length = 0;
  const std::uint32_t code = DVSQOB_PortDataGet(switchId, portId, property, &block, &length);
  if (code == 0)
    Own(block, length);
  return StatusOf(operations::kPortDataGet, code);
}

// Called only after success: after a failure the block is not ours to free.
void PropertyValue::Own(void* block, std::uint32_t length) {
  block_.reset(block);
  length_ = block ? length : 0;
}

// The version is examined first: a record of a later version may well have another length.
RecordFormat FormatOf(const PropertyValue& value, std::size_t length) {
  if (value.FirstWord() != 0)
    return RecordFormat::kUnknownVersion;
  return value.Length() == length ? RecordFormat::kValid : RecordFormat::kWrongLength;
}

// *record changes on success only, so a caller may keep its default there.
Status GetPropertyRecord(const char* switchId, const char* property, void* record, std::size_t length) {
  PropertyValue value;
  if (const Status status = value.ReadHost(switchId, property); !status.Ok())
    return status;
  if (FormatOf(value, length) != RecordFormat::kValid)
    return InvalidResponse(operations::kHostPropGet);
  std::memcpy(record, value.Bytes(), length);
  return {};
}

// Without a version word, unlike the records: the length alone tells a value of another kind.
Status GetStoredFPO(const char* switchId, std::uint32_t* setting) {
  PropertyValue value;
  if (const Status status = value.ReadHost(switchId, kFPOProperty); !status.Ok())
    return status;
  if (value.Length() != sizeof(*setting))
    return InvalidResponse(operations::kHostPropGet);
  *setting = value.FirstWord();
  return {};
}

Status GetStoredRingSizes(const char* switchId, const char* portId, RingSizes* sizes) {
  PropertyValue value;
  if (const Status status = value.ReadPort(switchId, portId, kRingSizeProperty); !status.Ok())
    return status;
  if (value.Length() != sizeof(*sizes))
    return InvalidResponse(operations::kPortDataGet);
  std::memcpy(sizes, value.Bytes(), sizeof(*sizes));
  return {};
}
