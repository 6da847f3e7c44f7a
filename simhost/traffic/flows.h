// The flow tables. A path's flows are known by their numbers: lasting ones take its packets in turn, and some packets
// open a short flow of their own. A flow is in the table if it had a packet within the flow timeout, and since the
// table was cleared.
#pragma once

#include <cstdint>

#include "simhost/host/answer.h"
#include "simhost/host/model.h"

namespace simhost {

// The flows that came in on this core.
std::uint64_t CountLiveFlows(const Model& model, int sw, int core, std::int64_t ms);

// Writes as many entries as fit, from entry `start` on; offloaded_only: of the offloaded ones.
std::uint32_t WriteFlowPage(const Model& model, int sw, int core, std::uint32_t start, bool offloaded_only,
                            std::int64_t ms, Area& page);

}  // namespace simhost
