// The host as it stands in the store: its inventory, settings and traffic, read into memory as one consistent whole.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "simhost/host/rows.h"
#include "simhost/host/store.h"
#include "simhost/time/clock.h"
#include "simhost/traffic/path.h"
#include "simhost/traffic/pattern.h"

namespace simhost {

inline constexpr int kCores = 64;
inline constexpr int kSwitches = 16;
inline constexpr int kPortsPerSwitch = 128;
inline constexpr int kQueuesPerPort = 32;

// For a number that is not negative and indexes a container; rows and links keep theirs as int, with -1 for "none".
inline std::size_t Index(std::int64_t number) { return static_cast<std::size_t>(number); }
template <class Enum>
requires std::is_enum_v<Enum>
constexpr std::size_t Index(Enum value) { return static_cast<std::size_t>(value); }

// What follows is a row of the store (rows.h) and what is known of it besides.

struct Core : CoreRow {
  bool stuck = false;
};

struct Nic : NicRow {
  std::array<std::uint32_t, 7> fpo_limits{};  // groups, priorities, mark bits, flows, counters, key bits, TTL actions
  bool down = false;
  bool hung = false;
};

// The load balancer's settings of a switch, in the order of the property's words after its version.
struct BalancerOptions {
  std::uint32_t metric = 0;
  std::uint32_t high = 0;
  std::uint32_t low = 0;
  std::uint32_t pause = 0;
  std::uint32_t sensitivity = 0;
};

// burst_size, numa_team and balancer: as in force, a property before the datapath's own value.
struct Switch : SwitchRow {
  std::uint32_t own_mac_limit = 0;  // mac_limit without events
  BalancerOptions balancer;
  bool fpo = true;
  std::vector<int> ports;                             // indexes into Model::ports, by port number
  std::vector<int> uplinks;                           // those of them that are uplinks
  std::array<std::int16_t, kPortsPerSwitch> index{};  // by port number; -1: no such port
};

struct VlanRange {
  std::uint16_t first = 0;
  std::uint16_t last = 0;
};

struct Port : PortRow {
  int nic = -1;              // index into Model::nics
  bool placed_here = false;  // the store had no core for it yet
  std::uint32_t tx_ring = 2048;
  std::uint32_t rx_ring = 1024;
  std::vector<std::uint32_t> uplinks;  // as set
  std::vector<Mac> multicast;
  std::vector<VlanRange> vlan_ranges;

  bool IsUplink() const { return kind == kUplink; }
};

struct MirrorSession : MirrorRow {
  std::array<std::vector<int>, 3> ports;  // by MirrorRole
  std::vector<std::uint16_t> vlans;
};

// An address that a port learns: how long after a clear, and with which packets it is heard again.
struct MacCandidate {
  int port = 0;
  Mac mac{};
  std::uint16_t vlan = 0;
  std::uint32_t delay_ms = 0;
  std::size_t speaker = 0;  // index into MacCandidates::speakers
  std::uint64_t turn = 0;   // of `turns` packets of the speaker, this one has the address
  std::uint64_t turns = 1;
};

struct MacCandidates {
  std::vector<MacCandidate> all;           // by port
  std::vector<std::vector<int>> speakers;  // the paths by which packets come that have a speaker's addresses
};

// What a flow's entry says shall happen to its packets, those of the platform's bits that mean something here.
enum FlowAction : std::uint32_t {
  kInputChildPort = 1U << 2,
  kLro = 1U << 3,
  kDrop = 1U << 5,
  kHasDestination = 1U << 7,
  kSlowPath = 1U << 8,
  kInsertVlan = 1U << 10,
  kRemoveVlan = 1U << 11,
  kInsertPriority = 1U << 12,
  kVdr = 1U << 18,
  kHasVni = 1U << 20,
  kEncap = 1U << 21,
  kDecap = 1U << 22,
  kSetOutputVlan = 1U << 28
};

struct Conversation : ConversationRow {
  int source = 0;        // index into Model::ports
  int destination = -1;  // -1: outside the host
  Mac remote_mac{};
  std::array<Pattern, 2> pattern;       // there and back
  std::array<std::uint32_t, 2> size{};  // bytes of a frame, there and back
};

using MacEntry = MacEntryRow;

struct Fault : FaultRow {
  std::vector<FaultWhereRow> where;  // all of it must hold
};

enum EventStage : int { kEventAhead = 0, kEventOn = 1, kEventOver = 2 };

struct Event : EventRow {
  int target_index = -1;    // of what it happens to, in the container of its kind's target (EventRule)
  std::int64_t effect = 0;  // its value, or its kind's usual one

  // When it begins or ends next; none: it is over, or goes on for ever.
  std::optional<std::int64_t> NextMs() const {
    return stage == kEventAhead ? std::optional(from_ms) : stage == kEventOn ? until_ms : std::nullopt;
  }
};

// What is kept of a port's traffic: the sixteen counters of the fast path in the order of the platform's record, the
// sixteen of the slow path, then the work it made on its cores in nanoseconds (halved where the platform counts
// double): sending slow, receiving slow, sending fast, receiving fast.
enum PortWord : std::size_t {
  kTxBytes,
  kTxPackets,
  kTxMcastBytes,
  kTxMcastPackets,
  kTxBcastBytes,
  kTxBcastPackets,
  kTxDrops,
  kTxErrors,
  kRxBytes,
  kRxPackets,
  kRxMcastBytes,
  kRxMcastPackets,
  kRxBcastBytes,
  kRxBcastPackets,
  kRxDrops,
  kRxErrors,
  kSlow = 16,
  kWork = 32,
  kPortWords = 36
};
using PortCounts = std::array<std::uint64_t, kPortWords>;

// What is kept of one queue of an uplink; the uplink's own figures are the sums of its queues'.
enum QueueWord : std::size_t {
  kQueuePackets,
  kQueueBytes,
  kQueueMulticast,
  kQueueBroadcast,
  kQueueDrops,
  kQueueCrc,
  kQueueLength,
  kQueueFifo,
  kQueueMissed,
  kQueueAborted,
  kQueueWords
};
using QueueCounts = std::array<std::uint64_t, kQueueWords>;

// What is kept of a switch's flow cache on one core.
enum FlowWord : std::size_t { kFlowMisses, kFlowOffloadHits, kFlowLocalHits, kFlowShortFlows, kFlowWords };
using FlowCounts = std::array<std::uint64_t, kFlowWords>;

// The counts at the start of the current segment.
struct Base {
  std::vector<PortCounts> ports;                                  // by index into Model::ports
  std::map<int, std::array<std::vector<QueueCounts>, 2>> queues;  // by the same index; receive queues, transmit queues
  std::vector<FlowCounts> flows;                                  // by switch * kCores + core
  std::array<std::uint64_t, kCores> busy_ns{};
  // By conversation, there and back: its flows that have missed once since they were cleared, at most all of them.
  std::vector<std::array<std::uint64_t, 2>> seen;
  std::vector<std::uint64_t> losses;  // as SaveLosses has them
};

struct BalancerPort {
  std::array<std::uint64_t, 4> total{};   // work up to the last look
  std::array<std::uint64_t, 4> window{};  // of it, since the look before
  std::int64_t moved_ms = -1;
};

struct Balancer {
  std::int64_t period_ms = 0;
  std::int64_t tick_ms = 0;
  bool fresh = true;  // it has not looked yet: at tick_ms its first window begins
  std::int64_t window_ms = 0;
  std::array<std::uint64_t, kCores> busy_total{};
  std::array<std::uint64_t, kCores> busy_window{};
  std::vector<BalancerPort> ports;  // by index into Model::ports
};

struct Model : HostRow {
  Clock clock;

  std::vector<Core> cores;                       // by number, ascending
  std::array<std::int8_t, kCores> core_index{};  // -1: no such core
  std::vector<Nic> nics;
  std::vector<Switch> switches;  // by number, ascending
  std::vector<Port> ports;       // by switch and number, ascending
  std::map<int, std::vector<MirrorSession>> mirrors;
  std::map<int, std::vector<MacEntry>> mac_entries;
  std::vector<Conversation> conversations;
  std::array<std::uint32_t, 8> weights{};
  std::array<std::uint32_t, 8> default_weights{};
  std::vector<Fault> faults;
  std::vector<Event> events;
  Balancer balancer;
  Base base;
  Base stored_base;  // as the store has it

  // Derived
  std::vector<Path> paths;
  Losses losses;
  std::vector<std::vector<int>> paths_of_port;       // by port index
  std::vector<std::vector<int>> paths_of_flow_core;  // by switch * kCores + core of the port they come in by
  mutable std::map<int, MacCandidates> mac_cache;
  bool base_changed = false;

  const Switch* FindSwitch(std::uint32_t id) const;
  const Switch* FindSwitchByPortset(std::string_view name) const;  // or by alias or identifier, as resolvers fall back
  const Port* FindPort(std::uint32_t sw, std::uint32_t port) const;
  int PortIndex(std::uint32_t sw, std::uint32_t port) const;  // -1: no such port
  int FindNic(std::string_view name) const;                   // -1: no such device
  const Core* FindCore(std::uint32_t id) const;
  int NodeOfCore(int id) const;
  std::int64_t NextDueMs() const;  // when something happens by itself next
};

// An address of the simulation's own making; the same arguments give the same address.
Mac MadeUpMac(std::uint64_t seed, std::uint64_t a, std::uint64_t b);
std::uint64_t Mix(std::uint64_t value);  // scatters the bits of a number

// Reads inventory, settings and traffic from the store; call it inside a transaction. What was counted and what the
// balancer remembers are LoadBase's and LoadBalancer's. Everything that the store says is checked as it is loaded, so
// that the rest can rely on it; what cannot be is a StoreError that names the row and the column.
Model LoadModel(Store& store);

}  // namespace simhost
