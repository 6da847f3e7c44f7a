// The configuration load, once per process, when the shared object is loaded.

#include "host/native.h"
#include "libryn/include/libryn.h"
#include "platform/jor_public.h"

std::uint32_t DVSLoadConfig() {
  if (const std::uint32_t status = DVSState_ConfigReset(); status != 0)
    return status;

  void* state = nullptr;
  std::uint32_t length = 0;
  if (const std::uint32_t status = DVSQOB_StateGet(&state, &length); status != 0)
    return status;  // nothing was handed out

  const HeapArea<void> owned(state);
  return DVSState_ConfigDeserialize(state, length);
}

// A failed load is silent: the module is imported all the same, and no alias is found.
[[gnu::constructor]] void LibraryInit() { DVSLoadConfig(); }
