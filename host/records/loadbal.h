// The records of the balancer, and of the settings that are kept as properties of a switch.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Weights and settings -----------------------------------------------------------------------------------------

// In a request to change some of several words: leave this one as it is.
constexpr std::uint32_t kKeepCurrent = 0xFFFFFFFF;

constexpr std::size_t kWeights = 8;

struct LBWeights {
  std::uint32_t words[kWeights];
};
static_assert(sizeof(LBWeights) == 32);

struct LBSwitchOptions {
  std::uint32_t version;
  std::uint32_t metric;
  std::uint32_t thresholdHigh;
  std::uint32_t thresholdLow;
  std::uint32_t pauseDifference;
  std::uint32_t sensitivity;
};
static_assert(sizeof(LBSwitchOptions) == 24);

struct [[gnu::packed]] Teaming {
  std::uint32_t version;
  std::uint8_t numaAware;
};
static_assert(sizeof(Teaming) == 5);

struct BurstSize {
  std::uint32_t version;
  std::uint32_t packets;
};
static_assert(sizeof(BurstSize) == 8);

// ---- Snapshot -----------------------------------------------------------------------------------------------------

struct LBSnapshot {
  std::uint32_t groupCount;
  std::uint32_t vertexCount;
  std::uint8_t records[4088];  // the groups, then the vertices, one after another without padding
};
static_assert(sizeof(LBSnapshot) == 4096);
static_assert(offsetof(LBSnapshot, records) == 8);

// Bit b of word w stands for port 64 w + b.
struct LBPortSet {
  std::uint64_t words[2];
};

struct [[gnu::packed]] LBGroup {
  std::int32_t load;
  std::uint8_t unread4;
  LBPortSet txPorts;
  LBPortSet rxPorts;
};
static_assert(sizeof(LBGroup) == 37);
static_assert(offsetof(LBGroup, txPorts) == 5);
static_assert(offsetof(LBGroup, rxPorts) == 21);

struct LBVertex {
  std::int32_t number;
  std::uint32_t wid;
  std::uint32_t flags;
  std::uint32_t outCount;
  std::uint32_t inCount;
  // outCount edges, then inCount edges follow
};
static_assert(sizeof(LBVertex) == 20);

struct LBEdge {
  std::int32_t peer;
  std::uint32_t load;
  std::uint32_t ema;
};
static_assert(sizeof(LBEdge) == 12);

// ---- Port statistics ----------------------------------------------------------------------------------------------

constexpr std::uint32_t kMaxStatsPorts = 128;
constexpr std::uint32_t kMaxStatsCores = 64;

struct LBPortRecord {
  std::uint32_t p0;
  std::uint32_t p1;
  std::uint32_t cores[2];     // A and B
  std::uint64_t counters[4];  // even ones are measured against core A, odd ones against core B
};
static_assert(sizeof(LBPortRecord) == 48);
static_assert(offsetof(LBPortRecord, cores) == 8);
static_assert(offsetof(LBPortRecord, counters) == 16);

struct LBCoreRecord {
  std::uint64_t busyNow;
  std::uint64_t busyBefore;
  std::uint64_t timeNow;
  std::uint64_t timeBefore;
  std::uint64_t workTotal;
  std::uint64_t unread40;
};
static_assert(sizeof(LBCoreRecord) == 48);

struct LBPortStats {
  std::uint64_t unread0;
  LBPortRecord ports[kMaxStatsPorts];  // by port number
  LBCoreRecord cores[kMaxStatsCores];  // by core number
};
static_assert(sizeof(LBPortStats) == 9224);
static_assert(offsetof(LBPortStats, ports) == 8);
static_assert(offsetof(LBPortStats, cores) == 6152);
