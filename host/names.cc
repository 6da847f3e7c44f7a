#include "host/names.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "host/operations.h"

namespace {

constexpr char kClass[] = "vswitch";
constexpr char kPortsetKey[] = "com.talvor.common.host.portset";
constexpr char kAliasKey[] = "com.talvor.common.alias";

// The global property that marks a switch as served by the datapath, and the values that say so.
constexpr char kMarker[] = "com.talvor.extraconfig.opaqueDvs.ryn";
constexpr const char* kServed[] = {"true", "poll", "intr"};
constexpr std::size_t kServedSize = 5;  // with the terminator

// A switch's identifier as the library has it: 64 readable bytes, which need not hold a NUL.
class Identifier {
 public:
  explicit Identifier(DVSSwitch* dvs) {
    static constexpr char kNone[kSwitchIdBytes] = {};
    const char* const id = DVS_SwitchId(dvs);
    std::memcpy(bytes_, id ? id : kNone, kSwitchIdBytes);
  }

  const char* Bytes() const { return bytes_; }  // all 64, and a NUL behind them
  std::string_view Text() const { return bytes_; }

 private:
  char bytes_[kSwitchIdBytes + 1] = {};
};

// The text of a property ends at its NUL, or at the length that the library reports where that is above 0 and smaller.
std::string_view DatumText(DVSData* datum) {
  const void* value = nullptr;
  const std::uint32_t length = DVSData_Data(datum, &value);
  if (!value)
    return "";
  const auto* const text = static_cast<const char*>(value);
  return {text, length > 0 ? strnlen(text, length) : std::strlen(text)};
}

// The text of a property as the configuration has it; data() is null where the switch has no such property.
std::string_view HostText(const Identifier& id, const char* key) {
  DVSData* datum = nullptr;
  return DVSState_HostPropLookup(id.Bytes(), key, &datum) == 0 ? DatumText(datum) : std::string_view();
}

std::string_view GlobalText(const Identifier& id, const char* key) {
  DVSData* datum = nullptr;
  return DVSState_GlobalPropLookup(id.Bytes(), key, &datum) == 0 ? DatumText(datum) : std::string_view();
}

// Copies a text and fills the rest with NULs; one that fills the area is cut and not terminated.
void CopyText(std::string_view text, std::size_t size, char* out) {
  const std::size_t length = std::min(text.size(), size);
  std::memcpy(out, text.data(), length);
  std::memset(out + length, 0, size - length);
}

struct AliasSearch {
  const char* portset;
  char alias[kAliasBytes] = {};
};

// The library may stop at the first match or go on; a later match then writes over an earlier one.
int MatchPortset(DVSSwitch* dvs, void* context) {
  AliasSearch& search = *static_cast<AliasSearch*>(context);
  const Identifier id(dvs);
  const std::string_view portset = HostText(id, kPortsetKey);
  // Deliberate: a prefix test over the length of the property. A name that begins with a switch's portset name matches
  // that switch, and an empty property matches every name.
  if (!portset.data() || std::strncmp(portset.data(), search.portset, portset.size()) != 0)
    return 0;

  if (const std::string_view alias = GlobalText(id, kAliasKey); alias.data()) {
    // Deliberate: no terminator is copied, so a shorter alias keeps the tail of a longer one found before it.
    std::memcpy(search.alias, alias.data(), std::min(alias.size(), sizeof(search.alias)));
  } else {
    const std::size_t length = strnlen(search.portset, sizeof(search.alias) - 1);
    std::memcpy(search.alias, search.portset, length);
    search.alias[length] = '\0';
  }
  return 1;
}

// A value shorter than a word is compared over its own length, so an empty value serves too.
bool IsServed(const char* value, std::uint32_t length) {
  const std::size_t compared = std::min<std::size_t>(length, kServedSize);
  return std::any_of(std::begin(kServed), std::end(kServed),
                     [=](const char* word) { return std::strncmp(value, word, compared) == 0; });
}

int FindMarker(DVSData* datum, void* context) {
  const char* const name = DVSData_Name(datum);
  if (!name || std::strncmp(name, kMarker, sizeof(kMarker)) != 0)
    return 0;
  const void* value = nullptr;
  const std::uint32_t length = DVSData_Data(datum, &value);
  if (!value && length > 0)  // no value at all; one of length 0 may come as null
    return 0;
  if (!IsServed(value ? static_cast<const char*>(value) : "", length))
    return 0;
  *static_cast<bool*>(context) = true;
  return 1;
}

int FindServedSwitch(DVSSwitch* dvs, void* context) {
  DVSState_GlobalPropForEach(dvs, FindMarker, context);
  return *static_cast<bool*>(context) ? 1 : 0;
}

// Makes room for `more` elements behind the first `size`, doubling the area. False without memory; all stays as it was.
template <class Element>
bool Reserve(std::size_t size, std::size_t more, HeapArea<Element>* area, std::size_t* room) {
  if (more <= *room - size)
    return true;
  const std::size_t wanted = std::max(2 * *room, size + more);
  void* const grown = std::realloc(static_cast<void*>(area->get()), wanted * sizeof(Element));
  if (!grown)
    return false;
  static_cast<void>(area->release());  // realloc has freed it, or grown it in place
  area->reset(static_cast<Element*>(grown));
  *room = wanted;
  return true;
}

}  // namespace

// ---- All switches -------------------------------------------------------------------------------------------------

SwitchId SwitchNames::Id() const {
  SwitchId key;
  std::memcpy(key.text, id.data(), std::min(id.size(), sizeof(key.text) - 1));
  return key;
}

Status SwitchDirectory::Read() {
  size_ = textSize_ = 0;
  full_ = false;
  DVSState_SwitchForEach(Visit, this);
  if (!full_)
    return {};
  size_ = 0;
  return NoMemory(operations::kSwitchForEach);
}

int SwitchDirectory::Visit(DVSSwitch* dvs, void* context) {
  SwitchDirectory& directory = *static_cast<SwitchDirectory*>(context);
  if (!directory.full_)
    directory.full_ = !directory.Add(dvs);
  return 0;  // go on to the last
}

bool SwitchDirectory::Add(DVSSwitch* dvs) {
  const Identifier id(dvs);
  const char* const className = DVS_ClassName(dvs);
  Row row;
  if (!Copy(id.Text(), &row.id) || !Copy(className ? className : "", &row.className) ||
      !Copy(GlobalText(id, kAliasKey), &row.alias) || !Copy(HostText(id, kPortsetKey), &row.portset) ||
      !Reserve(size_, 1, &rows_, &room_))
    return false;
  rows_.get()[size_++] = row;
  return true;
}

bool SwitchDirectory::Copy(std::string_view text, Text* copy) {
  if (!text.data()) {
    *copy = {0, kAbsent};
    return true;
  }
  // One byte more than the text takes, so that an empty text has an address too.
  if (!Reserve(textSize_, text.size() + 1, &texts_, &textRoom_))
    return false;
  std::memcpy(texts_.get() + textSize_, text.data(), text.size());
  texts_.get()[textSize_ + text.size()] = '\0';
  *copy = {textSize_, text.size()};
  textSize_ += text.size() + 1;
  return true;
}

std::string_view SwitchDirectory::View(Text text) const {
  return text.length == kAbsent ? std::string_view() : std::string_view(texts_.get() + text.start, text.length);
}

SwitchNames SwitchDirectory::operator[](std::size_t index) const {
  const Row& row = rows_.get()[index];
  return {View(row.id), View(row.className), View(row.alias), View(row.portset)};
}

// ---- One switch ---------------------------------------------------------------------------------------------------

std::uint32_t FindSwitchId(const char* alias, char* switchId) {
  DVSSwitch* const dvs = DVSState_SwitchFindByAlias(alias);
  if (!dvs)
    return kNotFound;
  const char* const className = DVS_ClassName(dvs);
  if (!className || std::strncmp(className, kClass, sizeof(kClass)) != 0)
    return kBadParameter;
  std::memcpy(switchId, Identifier(dvs).Bytes(), kSwitchIdBytes);  // whatever its length
  switchId[kSwitchIdBytes - 1] = '\0';
  return 0;
}

std::uint32_t FindPortsetName(const char* alias, char* portset) {
  DVSSwitch* const dvs = DVSState_SwitchFindByAlias(alias);
  if (!dvs)
    return kNotFound;
  const Identifier id(dvs);
  std::string_view name = HostText(id, kPortsetKey);
  if (!name.data())
    name = GlobalText(id, kAliasKey);
  if (!name.data())
    name = id.Text();
  CopyText(name, kPortsetNameBytes, portset);
  return 0;
}

std::uint32_t FindAlias(const char* portset, char* alias) {
  if (!portset || !*portset)
    return kBadParameter;
  AliasSearch search = {.portset = portset};
  DVSState_SwitchForEach(MatchPortset, &search);
  CopyText({search.alias, strnlen(search.alias, kAliasBytes)}, kAliasBytes, alias);  // all NULs when nothing matched
  return 0;
}

// ---- Served switches ----------------------------------------------------------------------------------------------

bool HasServedSwitch() {
  bool served = false;
  DVSState_SwitchForEach(FindServedSwitch, &served);
  return served;
}
