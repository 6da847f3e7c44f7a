// What the host's conversations do to its counters.
#pragma once

#include <cstdint>

#include "simhost/host/model.h"

namespace simhost {

// What becomes of the packets that a path brought in, since the segment began.
struct PathCounts {
  std::uint64_t errors = 0;     // refused: too large for the switch, or damaged on the wire
  std::uint64_t wire_lost = 0;  // by the device, before the datapath saw them
  std::uint64_t core_lost = 0;  // by a core without time
  std::uint64_t passed = 0;     // seen by the flow cache, or by the slow path if it is off
  std::uint64_t missed = 0;     // the rest of these figures: of the packets that passed
  std::uint64_t short_flows = 0;
  std::uint64_t offloaded = 0;
  std::uint64_t slow = 0;
  std::uint64_t fast = 0;
};

// Works out, from the settings, which ways packets take and what they cost. Call it after each change of the model.
void BuildPaths(Model& model);

// All packets that are offered to the path until host time ms, since the host booted.
std::uint64_t Offered(const Model& model, const Path& path, std::int64_t ms);
PathCounts CountPath(const Model& model, const Path& path, std::int64_t ms);

PortCounts CountPort(const Model& model, int port, std::int64_t ms);
QueueCounts CountQueue(const Model& model, int port, bool transmit, int queue, std::int64_t ms);
FlowCounts CountFlows(const Model& model, int sw, int core, std::int64_t ms);
std::array<std::uint64_t, kCores> CountBusyNs(const Model& model, std::int64_t ms);

// Ends the segment: the counts so far become the base of the next one.
void CloseSegment(Model& model, std::int64_t ms);
void StoreBase(Store& store, Model& model);

// Forgets what was learned of the flows that come in by the port, as after a clear: each misses once more.
void ForgetFlows(Model& model, int port);

// Packets per second at this moment, in the mean over the last `over_ms`.
std::uint64_t RateOf(const Model& model, const Path& path, std::int64_t ms, std::int64_t over_ms);

}  // namespace simhost
