// What the host's conversations do to its counters.
//
// A counter is the base of its port, queue or core, plus what the paths of this segment have added since it began. All
// of it is a function of host time, exact and never falling: each stage divides a count by Share(), whose parts and
// rests both grow with the whole.
#pragma once

#include <cstdint>

#include "simhost/host/model.h"

namespace simhost {

// All packets that the path's pattern makes until host time ms, since the host booted.
std::uint64_t PacketsOf(const Model& model, const Path& path, std::int64_t ms);

// For all counts losses have to be known until ms (SolveLosses), which is at or after the segment's beginning.
PathCounts CountPath(const Model& model, const Path& path, std::int64_t ms);
LegCounts CountLeg(const Model& model, const Path& path, std::size_t leg, const PathCounts& counts);
PortCounts CountPort(const Model& model, int port, std::int64_t ms);
QueueCounts CountQueue(const Model& model, int port, bool transmit, int queue, std::int64_t ms);
FlowCounts CountFlows(const Model& model, int sw, int core, std::int64_t ms);
std::array<std::uint64_t, kCores> CountBusyNs(const Model& model, std::int64_t ms);

// The work of all ports and cores, in one go.
struct WorkCounts {
  std::array<std::uint64_t, kCores> busy_ns{};
  std::vector<std::array<std::uint64_t, 4>> ports;  // as PortWord has it from kWork on
};
WorkCounts CountWork(const Model& model, std::int64_t ms);

// The stages in which a path's counts come about, one after the other; the losses that a stage begins with are given.
void CountAsked(const Model& model, const Path& path, std::int64_t ms, PathCounts& counts);
void CountArrived(const Model& model, const Path& path, PathCounts& counts);  // unasked and link_lost given
void CountCame(const Leg& leg, const PathCounts& path, LegCounts& counts);    // core_lost of the path given
void CountDeviceLoss(const Leg& leg, LegCounts& counts);                      // core_lost given

// Ends the segment: the counts so far become the base of the next one.
void CloseSegment(Model& model, std::int64_t ms);

// Forgets what was learned of the flows that come in by the port, as after a clear: each misses once more. Close the
// segment first.
void ForgetFlows(Model& model, int port);

// Packets per second that the path is asked for, in the mean over the last `over_ms`.
std::uint64_t RateOf(const Model& model, const Path& path, std::int64_t ms, std::int64_t over_ms);

// Whether the same packets take the same ways at the same cost, so that a segment need not end.
bool SameTraffic(const Model& one, const Model& other);

}  // namespace simhost
