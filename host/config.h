// The in-process configuration of libjorPublic.so: the host's switches and their properties as they were when it was
// loaded. There is one for the process, whoever loads it.
#pragma once

#include <cstdint>

#include "host/native.h"
#include "host/status.h"

// A serialised state of the host, owned.
struct HostState {
  HeapArea<void> bytes;
  std::uint32_t length = 0;
};

// DVSQOB_StateGet: fetches the host's present state. Does not touch the configuration: no lock is needed. *state is
// replaced on success only.
Status FetchState(HostState* state);

// DVSState_ConfigReset, DVSState_ConfigDeserialize: replaces the configuration by a fetched state. Where that fails and
// `former` is not null, the configuration is loaded from it again, so that names go on being found; the status is that
// of the first step that failed. Without `former` a failure leaves the configuration empty, or as the step left it.
//
// Threads: hold the lock that guards walks of the configuration (host/names.h) from begin to end.
Status LoadState(const HostState& state, const HostState* former = nullptr);

// Loads the host's present state at the start of a process: the configuration is reset first, and left empty where the
// state cannot be fetched. For later reloads, which must not lose what there is, use the two functions above.
//
// Threads: as LoadState.
Status FetchAndLoadState();
