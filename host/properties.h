// Properties as the host keeps them: settings of a switch (host properties) and of a distributed port.
//
// They are read here and written in host/change/properties.h, by DVSQOB_*, which does not touch the in-process
// configuration: no lock is needed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "host/names.h"
#include "host/native.h"
#include "host/records/uplinks.h"
#include "host/status.h"
#include "platform/jor_public.h"

// The keys of the settings.
inline constexpr char kLoadBalanceProperty[] = "com.talvor.kiv.ryn.loadbal";  // LBSwitchOptions
inline constexpr char kTeamingProperty[] = "com.talvor.kiv.ryn.teaming";      // Teaming
inline constexpr char kBurstSizeProperty[] = "com.talvor.kiv.ryn.burstsize";  // BurstSize
inline constexpr char kFPOProperty[] = "com.talvor.kiv.ryn.fpo";              // a word of 32 bits, without a version
// Of a distributed port; RingSizes. Deliberate: not spelled as other keys are ("opaqueDvs"); the sizes are found under
// this one.
inline constexpr char kRingSizeProperty[] = "com.talvor.extraconfig.opqueDvs.ryn.uplinkRing";

constexpr std::uint32_t kDefaultFPO = 1;  // of a switch without the property

struct FreeBlock {
  void operator()(void* block) const { DVSQOB_DataFree(block); }
};

// The value of a property; its block goes back to the switch-state library on every path. A null block holds nothing,
// whatever length came with it.
class PropertyValue {
 public:
  // DVSQOB_HostPropGet, DVSQOB_PortDataGet. The code kNotFound: there is no such property. The value changes on success
  // only.
  Status ReadHost(const char* switchId, const char* property);
  Status ReadPort(const char* switchId, const char* portId, const char* property);

  const void* Bytes() const { return block_.get(); }
  std::size_t Length() const { return length_; }

  // The first 32 bits; bytes that are missing count as 0.
  std::uint32_t FirstWord() const { return View(Bytes(), length_).GetOrZero(Field<std::uint32_t>{0}); }

 private:
  void Own(void* block, std::uint32_t length);

  std::unique_ptr<void, FreeBlock> block_;
  std::size_t length_ = 0;
};

// Whether a value is a record of `length` bytes whose first word is its version, 0.
enum class RecordFormat { kValid, kUnknownVersion, kWrongLength };
RecordFormat FormatOf(const PropertyValue& value, std::size_t length);

// Reads a property that holds such a record. kInvalidResponse where its format is another one.
Status GetPropertyRecord(const char* switchId, const char* property, void* record, std::size_t length);

template <class Record>
Status GetPropertyRecord(const char* switchId, const char* property, Record* record) {
  static_assert(std::is_trivially_copyable_v<Record>);
  return GetPropertyRecord(switchId, property, record, sizeof(Record));
}

// The FPO setting that is stored for a switch, and the ring sizes stored for an uplink's distributed port. The code
// kNotFound: none is stored. kInvalidResponse where a value has another length.
Status GetStoredFPO(const char* switchId, std::uint32_t* setting);
Status GetStoredRingSizes(const char* switchId, const char* portId, RingSizes* sizes);
