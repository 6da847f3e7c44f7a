#include "host/config.h"

#include "host/operations.h"
#include "platform/jor_public.h"

namespace {

Status Reset() { return StatusOf(operations::kConfigReset, DVSState_ConfigReset()); }

Status Deserialize(const HostState& state) {
  return StatusOf(operations::kConfigDeserialize, DVSState_ConfigDeserialize(state.bytes.get(), state.length));
}

Status ResetAndDeserialize(const HostState& state) {
  const Status status = Reset();
  return status.Ok() ? Deserialize(state) : status;
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
  const Status status = ResetAndDeserialize(state);
  if (!status.Ok() && former)
    static_cast<void>(ResetAndDeserialize(*former));  // the caller hears of the first failure
  return status;
}

Status FetchAndLoadState() {
  if (const Status status = Reset(); !status.Ok())
    return status;
  HostState state;
  if (const Status status = FetchState(&state); !status.Ok())
    return status;
  return Deserialize(state);
}
