// The load balancer: looks at its cores at a fixed period of host time, and moves ports between them.
#pragma once

#include <cstdint>

#include "simhost/host/model.h"

namespace simhost {

// What was done since the last look becomes the window, and the next one begins at host time ms.
void BeginWindow(Model& model, std::int64_t ms);
// A look: the same, and each switch may move one port.
void LookAndMove(Store& store, Model& model, std::int64_t ms);

// What it remembers between its looks. Loading takes a model whose ports are there.
void LoadBalancer(Store& store, Model& model);
void StoreBalancer(Store& store, const Model& model);

// The share of the window that a core was busy, in permille; never above 1000.
std::uint64_t BusyPermille(const Model& model, int core);

}  // namespace simhost
