// Resolving a switch alias to the switch's identifier or its portset name, and a portset name back to an alias.

#include <cstring>

#include "libryn/dvs/dvs.h"
#include "libryn/include/libryn.h"
#include "platform/jor_public.h"

namespace {

constexpr char kClass[] = "vswitch";
constexpr char kPortsetKey[] = "com.talvor.common.host.portset";
constexpr char kAliasKey[] = "com.talvor.common.alias";

// Copies a text of at most `size` bytes and fills the rest with NULs; a longer text is cut and not terminated.
void CopyText(char* out, const char* text, std::size_t size) {
  const std::size_t length = strnlen(text, size);
  std::memcpy(out, text, length);
  std::memset(out + length, 0, size - length);
}

// The library answers at least 64 readable bytes.
const char* Identifier(DVSSwitch* dvs) {
  static constexpr char kNone[LIBRYN_SWITCH_ID_SIZE] = {};
  const char* const switchId = DVS_SwitchId(dvs);
  return switchId ? switchId : kNone;
}

const char* DatumText(DVSData* datum) {
  const void* text = nullptr;
  DVSData_Data(datum, &text);
  return text ? static_cast<const char*>(text) : "";
}

// The text of a property as the loaded configuration has it; null when the switch has no such property.
const char* HostText(const char* switchId, const char* key) {
  DVSData* datum = nullptr;
  return DVSState_HostPropLookup(switchId, key, &datum) == 0 ? DatumText(datum) : nullptr;
}

const char* GlobalText(const char* switchId, const char* key) {
  DVSData* datum = nullptr;
  return DVSState_GlobalPropLookup(switchId, key, &datum) == 0 ? DatumText(datum) : nullptr;
}

struct Search {
  const char* portsetName = nullptr;
  char alias[LIBRYN_ALIAS_SIZE] = {};
};

// The library may stop at the first match or go on; a later match then writes over an earlier one.
int MatchPortset(DVSSwitch* dvs, void* context) {
  Search& search = *static_cast<Search*>(context);
  const char* const switchId = Identifier(dvs);
  const char* const portset = HostText(switchId, kPortsetKey);
  // Deliberate: a prefix test over the length of the property. A name that begins with a switch's portset name matches
  // that switch, and an empty property matches every name.
  if (!portset || std::strncmp(portset, search.portsetName, std::strlen(portset)) != 0)
    return 0;

  if (const char* const alias = GlobalText(switchId, kAliasKey)) {
    // Deliberate: no terminator is copied, so a shorter alias keeps the tail of a longer one found before it.
    std::memcpy(search.alias, alias, strnlen(alias, sizeof(search.alias)));
  } else {
    const std::size_t length = strnlen(search.portsetName, sizeof(search.alias) - 1);
    std::memcpy(search.alias, search.portsetName, length);
    search.alias[length] = '\0';
  }
  return 1;
}

}  // namespace

std::uint32_t DVSAliasToSwitchId(const char* alias, char* switchId) {
  DVSSwitch* const dvs = DVSState_SwitchFindByAlias(alias);
  if (!dvs)
    return kNotFound;
  const char* const className = DVS_ClassName(dvs);
  if (!className || std::strncmp(className, kClass, sizeof(kClass)) != 0)
    return kBadParameter;
  std::memcpy(switchId, Identifier(dvs), LIBRYN_SWITCH_ID_SIZE);
  switchId[LIBRYN_SWITCH_ID_SIZE - 1] = '\0';
  return 0;
}

std::uint32_t DVSAliasToPortsetName(const char* alias, char* portsetName) {
  DVSSwitch* const dvs = DVSState_SwitchFindByAlias(alias);
  if (!dvs)
    return kNotFound;
  const char* const switchId = Identifier(dvs);
  const char* name = HostText(switchId, kPortsetKey);
  if (!name)
    name = GlobalText(switchId, kAliasKey);
  if (!name)
    name = switchId;
  CopyText(portsetName, name, LIBRYN_PORTSET_NAME_SIZE);
  return 0;
}

std::uint32_t DVSPortsetNameToAlias(const char* portsetName, char* alias) {
  if (!portsetName || !*portsetName)
    return kBadParameter;
  Search search;
  search.portsetName = portsetName;
  DVSState_SwitchForEach(MatchPortset, &search);
  CopyText(alias, search.alias, LIBRYN_ALIAS_SIZE);  // all zeros when nothing matched
  return 0;
}

int DVPortExist(std::uintptr_t a, std::uintptr_t b, std::uintptr_t c, std::uintptr_t d, std::uintptr_t e,
                std::uintptr_t f) {
  return DVSState_PortFind(a, b, c, d, e, f) ? 1 : 0;
}
