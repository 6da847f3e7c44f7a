#include "host/config.h"

#include "host/operations.h"
#include "platform/jor_public.h"

namespace {

Status Load(const HostState& state) {
  if (const std::uint32_t code = DVSState_ConfigReset(); code != 0)
    return StatusOf(operations::kConfigReset, code);
  return StatusOf(operations::kConfigDeserialize, DVSState_ConfigDeserialize(state.bytes.get(), state.length));
}

}  // namespace

Status FetchState(HostState* state) {
  void* bytes = nullptr;
  std::uint32_t length = 0;
  if (const std::uint32_t code = DVSQOB_StateGet(&bytes, &length); code != 0)
    return StatusOf(operations::kStateGet, code);  // nothing was handed out
  state->bytes.reset(bytes);
  state->length = length;
  return {};
}

Status LoadState(const HostState& state, const HostState* former) {
  const Status status = Load(state);
  if (!status.Ok() && former)
    static_cast<void>(Load(*former));  // the caller hears of the first failure
  return status;
}
