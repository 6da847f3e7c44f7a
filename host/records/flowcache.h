// The datapath's records of the flow cache.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/native.h"

// ---- Flow table ---------------------------------------------------------------------------------------------------

struct FlowKey {
  std::uint8_t mac1[6];
  std::uint8_t mac2[6];
  std::uint16_t flagsAndVlan;  // bits 0-3 flags, bits 4-15 VLAN ID
  std::uint16_t number14;      // 15 bits; the meaning is the datapath's
  std::uint16_t transport[2];  // ports in network byte order; ICMP type and code as host values
  std::uint16_t number20Low;   // a number of 24 bits; the meaning is the datapath's
  std::uint8_t number20High;
  std::uint8_t protocol;
  std::uint8_t address1[16];  // of IPv4 the first 4 bytes are the first address, the next 4 the second
  std::uint8_t address2[16];
  std::uint8_t unread56[8];
};
static_assert(sizeof(FlowKey) == 64);
static_assert(offsetof(FlowKey, flagsAndVlan) == 12);
static_assert(offsetof(FlowKey, number20Low) == 20);
static_assert(offsetof(FlowKey, address1) == 24);
static_assert(offsetof(FlowKey, address2) == 40);

constexpr std::uint16_t kFlowKeyIsIPv6 = 0x0002;

// An actions record, of a length of its own.
constexpr Field<std::uint64_t> kHandle{8};  // "cg", shown as a pointer
constexpr Field<std::uint64_t> kPacketsSinceFlush{24};
constexpr Field<std::uint64_t> kBytesSinceFlush{40};
constexpr Field<std::uint32_t> kBitmap{56};
constexpr Field<std::uint8_t> kActionFlags{61};
constexpr Field<std::uint16_t> kLength{62};
constexpr Field<std::uint8_t> kDp{64};  // valid with bit 7 of the bitmap
constexpr Field<std::uint32_t> kInvalCount{68};
constexpr Field<std::uint8_t> kPi{72};
constexpr Field<std::uint16_t> kVi{74};
constexpr Field<std::uint32_t> kVni{76};
constexpr Field<std::uint32_t> kKcpInputChildPort{114};
constexpr Field<std::uint16_t> kKcpOutputVlan{118};
// These may lie behind the end of a page.
constexpr Field<std::uint8_t> kEncapVni{244};  // 3 bytes in network byte order
constexpr Field<std::uint8_t> kVdrCount{256};
constexpr Field<std::uint32_t> kVdrInstance{274};
constexpr std::size_t kVdrStride = 32;

// Bits of the action bitmap; those that are left out have no known meaning.
enum Action : int {
  kActionKcpInputChildPort = 2,
  kActionLro = 3,
  kActionIpfixIngress = 4,
  kActionDrop = 5,
  kActionDfwOnSrcPort = 6,
  kActionDpIsValid = 7,  // no action: kDp holds something
  kActionSp = 8,
  kActionVi = 10,
  kActionVr = 11,
  kActionPi = 12,
  kActionPr = 13,
  kActionGvlanInsert = 16,
  kActionVdr = 18,
  kActionVni = 20,
  kActionVniEncap = 21,
  kActionDecap = 22,
  kActionGvlanRemove = 23,
  kActionIpfixEgress = 26,
  kActionDfwOnDstPort = 27,
  kActionKcpOutputVlan = 28,
};

constexpr std::uint8_t kStatisticsApply = 0x08;  // of the action flags

constexpr std::size_t kActionsHeadBytes = 64;  // every actions record has these; further fields follow as they apply

struct FlowPage {
  std::uint8_t unread0[8];
  std::uint32_t startIndex;
  std::uint32_t count;
  std::uint32_t validBytes;  // from the start of the page
  std::uint8_t entries[10240];
};
static_assert(sizeof(FlowPage) == 10260);
static_assert(offsetof(FlowPage, startIndex) == 8);
static_assert(offsetof(FlowPage, entries) == 20);

// An entry with fewer valid bytes left is refused, even if its own length is smaller.
constexpr std::size_t kMinEntryBytes = 304;
static_assert(sizeof(FlowKey) + kKcpOutputVlan.offset + sizeof(std::uint16_t) <= kMinEntryBytes);  // always there

// ---- Counters -----------------------------------------------------------------------------------------------------

constexpr std::uint32_t kMaxLcoreRecords = 32;

struct FlowStatsRecord {
  std::uint32_t lcoreID;
  std::uint32_t numFlows;
  std::uint64_t hits;
  std::uint64_t miss;
  std::uint64_t fpoHits;
  std::uint64_t localHits;
  std::uint64_t keyInsertFailCount;
};
static_assert(sizeof(FlowStatsRecord) == 48);

struct FlowStats {
  std::uint32_t count;
  std::uint32_t unread4;
  FlowStatsRecord records[kMaxLcoreRecords];
};
static_assert(sizeof(FlowStats) == 1544);
static_assert(offsetof(FlowStats, records) == 8);

// ---- Flow processing offload --------------------------------------------------------------------------------------

struct FPOLcoreRecord {
  std::uint32_t lcoreID;
  std::uint32_t unread4;
  std::uint64_t hits;
  std::uint64_t markMismatched;
  std::uint64_t pnicMismatched;
  std::uint64_t delayMarkMatching;
  std::uint64_t ephemeralFlows;
  std::uint64_t transientFlows;
};
static_assert(sizeof(FPOLcoreRecord) == 56);
static_assert(offsetof(FPOLcoreRecord, hits) == 8);

struct FPOLcoreStats {
  std::uint32_t count;
  std::uint32_t unread4;
  FPOLcoreRecord records[kMaxLcoreRecords];
};
static_assert(sizeof(FPOLcoreStats) == 1800);
static_assert(offsetof(FPOLcoreStats, records) == 8);

struct FPOUplinkCaps {
  std::uint32_t level;
  std::uint32_t numGroupSupported;
  std::uint32_t numPrioritySupported;
  std::uint32_t maxMarkActionBits;
  std::uint32_t maxFlowsSupported;
  std::uint32_t maxCountersSupported;
  std::uint32_t maxFlowKeyLengthInBits;
  std::uint32_t maxDecTTLActions;
  std::uint64_t actionsSupported;
};
static_assert(sizeof(FPOUplinkCaps) == 40);
