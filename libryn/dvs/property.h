// A switch's settings as host properties: the owned property block, and reading and writing records with a version.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "host/native.h"
#include "libryn/base/call.h"
#include "libryn/dvs/dvs.h"
#include "libryn/include/libryn.h"
#include "platform/jor_public.h"

struct FreeBlock {
  void operator()(void* block) const { DVSQOB_DataFree(block); }
};

// The value of a property as the host keeps it; the block goes back to the switch-state library on every path.
class PropertyValue {
 public:
  // Reads a property of a switch, or of a distributed port. Both return the library's status; what is said below holds
  // for status 0.
  std::uint32_t ReadHost(const char* switchId, const char* property);
  std::uint32_t ReadPort(const char* switchId, const char* portId, const char* property);

  const void* Bytes() const { return block_.get(); }
  std::size_t Length() const { return length_; }

  // The first 32 bits; bytes that are missing count as 0.
  std::uint32_t FirstWord() const { return View(Bytes(), length_).GetOrZero(Field<std::uint32_t>{0}); }

 private:
  std::uint32_t Own(std::uint32_t status, void* block, std::uint32_t length);

  std::unique_ptr<void, FreeBlock> block_;
  std::size_t length_ = 0;
};

// The identifier of a switch, the key of its host properties.
struct SwitchId {
  char text[LIBRYN_SWITCH_ID_SIZE] = {};
};

// The datapath's name of a switch: 128 bytes, and a NUL behind them, which a name that fills them does not have.
struct PortsetName {
  char text[LIBRYN_PORTSET_NAME_SIZE + 1] = {};
};

// Look a switch up by its alias. False after a message on standard error.
inline bool FindSwitchId(const char* alias, SwitchId* switchId) {
  if (DVSAliasToSwitchId(alias, switchId->text) == 0)
    return true;
  Report("Failed to find dvs ID for dvs alias %s.\n", alias);
  return false;
}
bool FindPortsetName(const char* alias, PortsetName* name);

// Stores a value as a host property. False after a message on standard error.
bool WriteHostProperty(const SwitchId& switchId, const char* property, const void* value, std::uint32_t length);

enum class PropertyState { kRead, kAbsent, kMalformed };

// Reads a property whose value is a record of exactly `length` bytes that begins with a 32-bit version word, 0.
// kMalformed after a message on standard error.
PropertyState ReadRecord(const SwitchId& switchId, const char* property, void* record, std::size_t length);

// Reads a switch's setting: the property or, while the switch has none, what runs in the datapath.
// `readDatapath(portsetName, record)` returns the datapath's status. False after a message on standard error, or
// without one when the datapath fails.
template <class Record, class ReadDatapath>
bool ReadSetting(const char* alias, const char* property, Record* record, ReadDatapath readDatapath) {
  SwitchId switchId;
  if (!FindSwitchId(alias, &switchId))
    return false;
  const PropertyState state = ReadRecord(switchId, property, record, sizeof(Record));
  if (state != PropertyState::kAbsent)
    return state == PropertyState::kRead;
  PortsetName name;
  return FindPortsetName(alias, &name) && readDatapath(name.text, record) == 0;
}

// Stores a switch's setting as a property; its version word is set to 0. The alias is looked up anew. False after a
// message on standard error.
template <class Record>
bool WriteSetting(const char* alias, const char* property, Record* record) {
  SwitchId switchId;
  if (!FindSwitchId(alias, &switchId))
    return false;
  record->version = 0;
  return WriteHostProperty(switchId, property, record, sizeof(Record));
}
