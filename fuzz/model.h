// Independent models of the module's texts: chains of bounded prints over offsets, and plain arithmetic.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>

#include "harness.h"

// All records may be shorter than their fields; what is missing counts as 0.
std::string FlowKeyModel(const Bytes& key);
// The text in an area of `size` bytes, and the result.
std::pair<std::string, int> ActionsModel(const Bytes& record, std::size_t size);
std::string StatisticsModel(const Bytes& record);
std::string FlagsModel(std::uint32_t flags);
std::string MacModel(const Bytes& bytes, std::size_t offset);

// A field of a record and how it stands in a dict.
enum class Kind { kByte, kHalf, kWord, kSigned, kLowWord, kMac };
struct Cell {
  const char* key;
  std::size_t offset;
  Kind kind = Kind::kWord;
};
// 'key': value, 'key': value, ... of the record at a place of an area
std::string CellsModel(const Bytes& area, std::size_t record, std::initializer_list<Cell> cells);
// The whole text, however long, of a snapshot of 4096 bytes
std::string SnapshotModel(const Bytes& snapshot);
