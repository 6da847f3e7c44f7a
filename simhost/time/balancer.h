// The load balancer: looks at its cores at a fixed period of host time, and moves ports between them.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "simhost/host/model.h"

namespace simhost {

// Looks at host time ms: what was done since the last look becomes the window, and each switch may move one port.
void Look(Store& store, Model& model, std::int64_t ms);
void LookWithoutMoving(Model& model, std::int64_t ms);

void RestoreBalancer(Model& model, std::span<const std::uint8_t> state);
std::vector<std::uint8_t> SaveBalancer(const Model& model);

// The share of the window that a core was busy, in permille; never above 1000.
std::uint64_t BusyPermille(const Model& model, int core);

}  // namespace simhost
