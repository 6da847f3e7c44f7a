// The counts at the beginning of a segment, and what was lost in it so far, as the store keeps them.
#pragma once

#include "simhost/host/model.h"

namespace simhost {

// Reads them into a model whose inventory is there; losses are put in force by RestoreLosses when its paths are, too.
void LoadBase(Store& store, Model& model);

// Whether both have the same counters: of the same ports, queues and conversations, in the same order.
bool SameCounters(const Model& one, const Model& other);

// Stores them if they have changed.
void StoreBase(Store& store, Model& model);

// Stores how far losses are known, so that nobody has to work them out from the segment's beginning.
void StoreLosses(Store& store, const Model& model);

}  // namespace simhost
