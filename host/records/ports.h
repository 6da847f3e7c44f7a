// The datapath's records of switches and ports.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Listings -----------------------------------------------------------------------------------------------------

struct SwitchRecord {
  char name[128];
  std::uint32_t swID;
  std::uint32_t maxPorts;
  std::uint32_t numActivePorts;
  std::uint32_t numPorts;
  std::uint32_t mtu;
  std::uint32_t numLcores;
  std::uint64_t lcores;
};
static_assert(sizeof(SwitchRecord) == 160);
static_assert(offsetof(SwitchRecord, swID) == 128);
static_assert(offsetof(SwitchRecord, lcores) == 152);

constexpr std::uint32_t kMaxSwitches = 16;

struct SwitchList {
  std::uint32_t count;
  std::uint32_t unread4;
  SwitchRecord switches[kMaxSwitches];
};
static_assert(sizeof(SwitchList) == 2568);
static_assert(offsetof(SwitchList, switches) == 8);

constexpr std::uint32_t kMaxQueues = 32;

struct [[gnu::packed]] PortRecord {
  std::uint32_t portID;
  std::uint32_t rynPortID;
  std::uint8_t numTxQ;
  std::uint8_t numRxQ;
  std::uint8_t hwAddr[6];
  std::uint16_t numMACs;
  std::uint32_t clientType;
  std::uint8_t unread22[4];
  std::uint8_t txQLM[kMaxQueues];
  std::uint8_t rxQLM[kMaxQueues];
};
static_assert(sizeof(PortRecord) == 90);
static_assert(offsetof(PortRecord, clientType) == 18);
static_assert(offsetof(PortRecord, txQLM) == 26);
static_assert(offsetof(PortRecord, rxQLM) == 58);

constexpr std::uint32_t kMaxPorts = 128;

struct [[gnu::packed]] PortList {
  std::uint32_t unread0;
  std::uint32_t count;
  std::uint32_t unread8;
  PortRecord ports[kMaxPorts];
};
static_assert(sizeof(PortList) == 11532);
static_assert(offsetof(PortList, ports) == 12);

// ---- Counters -----------------------------------------------------------------------------------------------------

struct PortStats {
  std::uint64_t txBytes;
  std::uint64_t txPkts;
  std::uint64_t txMcastBytes;
  std::uint64_t txMcastPkts;
  std::uint64_t txBcastBytes;
  std::uint64_t txBcastPkts;
  std::uint64_t txDrops;
  std::uint64_t txErrors;
  std::uint64_t rxBytes;
  std::uint64_t rxPkts;
  std::uint64_t rxMcastBytes;
  std::uint64_t rxMcastPkts;
  std::uint64_t rxBcastBytes;
  std::uint64_t rxBcastPkts;
  std::uint64_t rxDrops;
  std::uint64_t rxErrors;
};
static_assert(sizeof(PortStats) == 128);

// ---- Large receive offload ----------------------------------------------------------------------------------------

// What a call is about: one port, or the whole switch, which overrides its ports.
constexpr std::uint32_t kPortScope = 0;
constexpr std::uint32_t kSwitchScope = 1;
constexpr std::uint32_t kNoPort = 0;

// ---- Configuration ------------------------------------------------------------------------------------------------

struct VlanRange {
  std::uint16_t first;
  std::uint16_t last;
};

constexpr std::uint32_t kMaxMcastAddrs = 32;
constexpr std::uint32_t kMaxVlanRanges = 256;

struct PortConf {
  std::uint32_t portID;
  std::uint8_t unread4[12];
  std::uint32_t numMcastAddrs;
  std::uint32_t flags;
  std::uint64_t ladrf;
  std::uint8_t hwAddr[6];
  std::uint16_t untaggedVlanID;
  std::uint8_t forgedMACAllowed;
  std::uint8_t unread41[3];
  std::uint32_t vni;
  std::uint32_t numTaggedVlanRanges;
  std::uint8_t mcastAddrs[kMaxMcastAddrs][6];
  std::uint32_t sampleRate;
  VlanRange vlanRanges[kMaxVlanRanges];
};
static_assert(sizeof(PortConf) == 1272);
static_assert(offsetof(PortConf, numMcastAddrs) == 16);
static_assert(offsetof(PortConf, ladrf) == 24);
static_assert(offsetof(PortConf, untaggedVlanID) == 38);
static_assert(offsetof(PortConf, vni) == 44);
static_assert(offsetof(PortConf, mcastAddrs) == 52);
static_assert(offsetof(PortConf, sampleRate) == 244);
static_assert(offsetof(PortConf, vlanRanges) == 248);

// ---- MAC tables ---------------------------------------------------------------------------------------------------

struct MacEntry {
  std::uint8_t mac[6];
  std::uint16_t vlanID;
  std::uint32_t rynPortID;
  std::uint32_t unread12;
  std::uint32_t macGenDiff;
};
static_assert(sizeof(MacEntry) == 20);
static_assert(offsetof(MacEntry, macGenDiff) == 16);

template <std::uint32_t room>
struct MacTable {
  std::uint32_t count;
  std::uint32_t unread4;
  std::uint32_t macLimit;
  std::uint32_t limitExceeded;  // of a port's table only
  MacEntry entries[room];
};

constexpr std::uint32_t kMaxPortMacs = 16384;
constexpr std::uint32_t kMaxSwitchMacs = 65536;

// What Ryn_MAC_Entry_Ops does with an entry
constexpr std::uint32_t kDeleteEntry = 0;
constexpr std::uint32_t kAddEntry = 1;

using PortMacTable = MacTable<kMaxPortMacs>;
using SwitchMacTable = MacTable<kMaxSwitchMacs>;
static_assert(sizeof(PortMacTable) == 327696);
static_assert(sizeof(SwitchMacTable) == 1310736);
static_assert(offsetof(PortMacTable, entries) == 16);
