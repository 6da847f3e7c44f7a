// The datapath's records of uplinks, mirror sessions, network queues and devices.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Transmit policy ----------------------------------------------------------------------------------------------

constexpr std::uint32_t kMaxTxUplinks = 8;

// Deliberate: identifiers are 16 bits wide here, and 32 bits when a policy is set.
struct TxUplinks {
  std::uint8_t txType;
  std::uint8_t count;
  std::uint16_t uplinks[kMaxTxUplinks];
};
static_assert(sizeof(TxUplinks) == 18);
static_assert(offsetof(TxUplinks, uplinks) == 2);

// ---- Mirror sessions ----------------------------------------------------------------------------------------------

struct MirrorConf {
  std::uint32_t header;  // not interpreted
  std::uint16_t sessionCount;
  std::uint16_t unread6;
  std::uint8_t sessions[2040];  // one after another
};
static_assert(sizeof(MirrorConf) == 2048);
static_assert(offsetof(MirrorConf, sessions) == 8);

struct MirrorSession {
  std::uint32_t unread0;
  std::uint16_t index;
  std::uint16_t encapVlanID;
  std::uint16_t snapLen;
  std::uint16_t samplingRate;
  std::uint16_t flags;
  std::uint16_t srcInCount;
  std::uint16_t srcOutCount;
  std::uint16_t dstCount;
  std::uint16_t vlanCount;
  std::uint16_t unread22;
  std::uint64_t srcInPorts[2];
  std::uint64_t srcOutPorts[2];
  std::uint64_t dstPorts[2];
  // vlanCount VLAN IDs of 16 bits follow, then padding up to a multiple of 8 bytes.
};
static_assert(sizeof(MirrorSession) == 72);
static_assert(offsetof(MirrorSession, vlanCount) == 20);
static_assert(offsetof(MirrorSession, srcInPorts) == 24);

constexpr std::size_t SessionLength(std::uint16_t vlanCount) {
  return sizeof(MirrorSession) + (vlanCount * sizeof(std::uint16_t) + 7) / 8 * 8;
}
static_assert(SessionLength(0) == 72 && SessionLength(1) == 80 && SessionLength(4) == 80 && SessionLength(5) == 88);

// ---- Counters -----------------------------------------------------------------------------------------------------

constexpr std::size_t kUplinkCounters = 24;

struct UplinkStats {
  std::uint64_t counters[kUplinkCounters];
};
static_assert(sizeof(UplinkStats) == 192);

// The text of an uplink's driver is as long as the datapath says, but not longer than this.
constexpr std::uint32_t kMaxPrivateStatsBytes = 16U << 20;

// ---- Network queues -----------------------------------------------------------------------------------------------

struct NetQHeader {
  std::uint32_t swID;
  std::uint32_t rynPortID;
  std::uint32_t unread8;
  std::uint16_t isUplink;
  std::uint16_t filterCount;
  // the filters follow, one after another
};
static_assert(sizeof(NetQHeader) == 16);
static_assert(offsetof(NetQHeader, isUplink) == 12);

constexpr std::size_t kNetQBytes = 524288;

struct NetQResponse {
  std::uint8_t bytes[kNetQBytes];
};

// A filter: its head, a body of the length that the head tells, then its queues.
struct NetQFilter {
  std::uint16_t kind;
  std::uint16_t unread2;
  std::uint16_t bodyLength;
  std::uint16_t queueCount;
};
static_assert(sizeof(NetQFilter) == 8);

constexpr std::uint16_t kMacOnlyFilter = 0;
constexpr std::uint16_t kGeneveFilter = 1;

struct MacOnlyBody {
  std::uint8_t mac[6];
};
static_assert(sizeof(MacOnlyBody) == 6);

struct GeneveBody {
  std::uint8_t outerMac[6];
  std::uint8_t innerMac[6];
  std::uint32_t vni;
};
static_assert(sizeof(GeneveBody) == 16);
static_assert(offsetof(GeneveBody, vni) == 12);

struct NetQQueue {
  std::uint32_t rynPortID;
  std::uint32_t qid;
  std::uint64_t fid;
};
static_assert(sizeof(NetQQueue) == 16);

// ---- Rings --------------------------------------------------------------------------------------------------------

// In descriptors. Kept as a property of the uplink's distributed port.
struct RingSizes {
  std::uint32_t tx;
  std::uint32_t rx;
};
static_assert(sizeof(RingSizes) == 8);

constexpr RingSizes kDefaultRingSizes = {2048, 1024};
constexpr std::uint32_t kRingAlignment = 32;

// ---- Devices ------------------------------------------------------------------------------------------------------

constexpr std::uint32_t kMaxDevices = 32;

struct DeviceRecord {
  char name[32];
  std::uint32_t affinity;
};
static_assert(sizeof(DeviceRecord) == 36);

struct DeviceList {
  std::uint32_t count;
  DeviceRecord devices[kMaxDevices];
};
static_assert(sizeof(DeviceList) == 1156);
static_assert(offsetof(DeviceList, devices) == 4);
