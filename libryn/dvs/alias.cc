// The look-ups of names for native callers.

#include "host/names.h"
#include "libryn/include/libryn.h"
#include "platform/jor_public.h"

static_assert(LIBRYN_SWITCH_ID_SIZE == kSwitchIdBytes);
static_assert(LIBRYN_PORTSET_NAME_SIZE == kPortsetNameBytes);
static_assert(LIBRYN_ALIAS_SIZE == kAliasBytes);

std::uint32_t DVSAliasToSwitchId(const char* alias, char* switchId) { return FindSwitchId(alias, switchId); }

std::uint32_t DVSAliasToPortsetName(const char* alias, char* portsetName) {
  return FindPortsetName(alias, portsetName);
}

std::uint32_t DVSPortsetNameToAlias(const char* portsetName, char* alias) { return FindAlias(portsetName, alias); }

int DVPortExist(std::uintptr_t a, std::uintptr_t b, std::uintptr_t c, std::uintptr_t d, std::uintptr_t e,
                std::uintptr_t f) {
  return DVSState_PortFind(a, b, c, d, e, f) ? 1 : 0;
}
