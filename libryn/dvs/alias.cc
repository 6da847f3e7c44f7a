// Resolving a switch alias to the switch's identifier or its portset name, and a portset name back to an alias.

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "libryn/dvs/dvs.h"
#include "libryn/include/libryn.h"
#include "platform/jor_public.h"

namespace {

constexpr char kClass[] = "vswitch";
constexpr char kPortsetKey[] = "com.talvor.common.host.portset";
constexpr char kAliasKey[] = "com.talvor.common.alias";

// Copies a text and fills the rest with NULs; a longer text is cut and not terminated.
void CopyText(char* out, std::string_view text, std::size_t size) {
  const std::size_t length = std::min(text.size(), size);
  std::memcpy(out, text.data(), length);
  std::memset(out + length, 0, size - length);
}

// A switch's identifier as the library keeps it: 64 readable bytes, which need not hold a NUL.
class Identifier {
 public:
  explicit Identifier(DVSSwitch* dvs) {
    static constexpr char kNone[LIBRYN_SWITCH_ID_SIZE] = {};
    const char* const switchId = DVS_SwitchId(dvs);
    std::memcpy(text_, switchId ? switchId : kNone, LIBRYN_SWITCH_ID_SIZE);
  }

  const char* Bytes() const { return text_; }  // all 64, and a NUL behind them

 private:
  char text_[LIBRYN_SWITCH_ID_SIZE + 1] = {};
};

// The text ends at its NUL, or where the library says that the value ends. Of a value without a length only the NUL is
// known.
std::string_view DatumText(DVSData* datum) {
  const void* value = nullptr;
  const std::uint32_t length = DVSData_Data(datum, &value);
  if (!value)
    return "";
  const char* const text = static_cast<const char*>(value);
  return length > 0 ? std::string_view(text, strnlen(text, length)) : std::string_view(text);
}

// The text of a property as the loaded configuration has it; nothing when the switch has no such property.
std::optional<std::string_view> HostText(const Identifier& switchId, const char* key) {
  DVSData* datum = nullptr;
  if (DVSState_HostPropLookup(switchId.Bytes(), key, &datum) != 0)
    return std::nullopt;
  return DatumText(datum);
}

std::optional<std::string_view> GlobalText(const Identifier& switchId, const char* key) {
  DVSData* datum = nullptr;
  if (DVSState_GlobalPropLookup(switchId.Bytes(), key, &datum) != 0)
    return std::nullopt;
  return DatumText(datum);
}

struct Search {
  const char* portsetName = nullptr;
  char alias[LIBRYN_ALIAS_SIZE] = {};
};

// The library may stop at the first match or go on; a later match then writes over an earlier one.
int MatchPortset(DVSSwitch* dvs, void* context) {
  Search& search = *static_cast<Search*>(context);
  const Identifier switchId(dvs);
  const auto portset = HostText(switchId, kPortsetKey);
  // Deliberate: a prefix test over the length of the property. A name that begins with a switch's portset name matches
  // that switch, and an empty property matches every name.
  if (!portset || std::strncmp(portset->data(), search.portsetName, portset->size()) != 0)
    return 0;

  if (const auto alias = GlobalText(switchId, kAliasKey)) {
    // Deliberate: no terminator is copied, so a shorter alias keeps the tail of a longer one found before it.
    std::memcpy(search.alias, alias->data(), std::min(alias->size(), sizeof(search.alias)));
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
  std::memcpy(switchId, Identifier(dvs).Bytes(), LIBRYN_SWITCH_ID_SIZE);
  switchId[LIBRYN_SWITCH_ID_SIZE - 1] = '\0';
  return 0;
}

std::uint32_t DVSAliasToPortsetName(const char* alias, char* portsetName) {
  DVSSwitch* const dvs = DVSState_SwitchFindByAlias(alias);
  if (!dvs)
    return kNotFound;
  const Identifier switchId(dvs);
  auto name = HostText(switchId, kPortsetKey);
  if (!name)
    name = GlobalText(switchId, kAliasKey);
  CopyText(portsetName, name ? *name : switchId.Bytes(), LIBRYN_PORTSET_NAME_SIZE);
  return 0;
}

std::uint32_t DVSPortsetNameToAlias(const char* portsetName, char* alias) {
  if (!portsetName || !*portsetName)
    return kBadParameter;
  Search search;
  search.portsetName = portsetName;
  DVSState_SwitchForEach(MatchPortset, &search);
  CopyText(alias, {search.alias, strnlen(search.alias, sizeof(search.alias))},
           LIBRYN_ALIAS_SIZE);  // all zeros when nothing matched
  return 0;
}

int DVPortExist(std::uintptr_t a, std::uintptr_t b, std::uintptr_t c, std::uintptr_t d, std::uintptr_t e,
                std::uintptr_t f) {
  return DVSState_PortFind(a, b, c, d, e, f) ? 1 : 0;
}
