// Independent models of the module's texts: chains of bounded prints over offsets, and plain arithmetic.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "harness.h"

// All records may be shorter than their fields; what is missing counts as 0.
std::string FlowKeyModel(const Bytes& key);
// The text in an area of `size` bytes, and the result.
std::pair<std::string, int> ActionsModel(const Bytes& record, std::size_t size);
std::string StatisticsModel(const Bytes& record);
std::string FlagsModel(std::uint32_t flags);
// The whole text, however long, of a snapshot of 4096 bytes
std::string SnapshotModel(const Bytes& snapshot);
