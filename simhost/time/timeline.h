// What happens on the host by itself: events begin and end, and the load balancer looks at its cores now and then.
// Nobody waits for these moments: whoever comes next replays those that have passed, in order.
#pragma once

#include <cstdint>

#include "simhost/host/model.h"

namespace simhost {

// Prepares a model that was just loaded: events that are on take their effect, and packets their ways by it. Counts do
// not matter to it.
void PrepareTimeline(Model& model);

// Replays what has happened up to host time ms and keeps the outcome in the store. Call it inside a transaction that
// writes.
void ReplayTimeline(Store& store, Model& model, std::int64_t ms);

}  // namespace simhost
