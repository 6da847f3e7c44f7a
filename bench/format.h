// Texts by snprintf, and what else the native contenders share.
#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "host/records/loadbal.h"
#include "host/records/uplinks.h"
#include "platform/jor_public.h"

template <class T>
T At(const void* bytes, std::size_t position) {
  T value;
  std::memcpy(&value, static_cast<const std::uint8_t*>(bytes) + position, sizeof(value));
  return value;
}

inline constexpr const char* kClientTypeNames[] = {"UNKNOWN", "VNIC", "UPLINK", "GENERIC", "QOBNIC"};
inline constexpr const char* kCounterNames[] = {
    "txPkts", "txBytes", "txMcastPkts", "txMcastBytes", "txBcastPkts", "txBcastBytes", "txDrops", "txErrors",
    "rxPkts", "rxBytes", "rxMcastPkts", "rxMcastBytes", "rxBcastPkts", "rxBcastBytes", "rxDrops", "rxErrors"};
inline constexpr const char* kSlowCounterNames[] = {
    "spTxPkts",      "spTxBytes",      "spTxMcastPkts", "spTxMcastBytes", "spTxBcastPkts", "spTxBcastBytes",
    "spTxDrops",     "spTxErrors",     "spRxPkts",      "spRxBytes",      "spRxMcastPkts", "spRxMcastBytes",
    "spRxBcastPkts", "spRxBcastBytes", "spRxDrops",     "spRxErrors"};
inline constexpr int kCounterPlaces[] = {1, 0, 3, 2, 5, 4, 6, 7, 9, 8, 11, 10, 13, 12, 14, 15};
inline constexpr const char* kUplinkCounterNames[] = {
    "rxPkts",       "txPkts",          "rxBytes",          "txBytes",         "rxErrors",           "txErrors",
    "rxDrops",      "txDrops",         "rxMulticastPkts",  "rxBroadcastPkts", "txMulticastPkts",    "txBroadcastPkts",
    "collisions",   "rxLengthErrors",  "rxOverflowErrors", "rxCRCErrors",     "rxFrameAlignErrors", "rxFifoErrors",
    "rxMissErrors", "txAbortedErrors", "txCarrierErrors",  "txFifoErrors",    "txHeartbeatErrors",  "txWindowErrors"};

inline void FormatMac(const std::uint8_t* mac, char* text) {
  std::snprintf(text, 18, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

// Prints at the end of a text, and stops at the end of the area.
class Chain {
 public:
  Chain(char* area, std::size_t size) : at_(area), begin_(area), end_(area + size) {}

  template <class... Value>
  void Print(const char* format, Value... values) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    const int length = std::snprintf(at_, static_cast<std::size_t>(end_ - at_), format, values...);
#pragma GCC diagnostic pop
    at_ = std::min(at_ + length, end_);
  }

  std::size_t Length() const { return static_cast<std::size_t>(at_ - begin_); }

 private:
  char* at_;
  char* begin_;
  char* end_;
};

inline void FormatFlags(std::uint32_t flags, char* text, std::size_t size) {
  std::snprintf(text, size, "%s%s%s%s%s%s", flags & 1 ? "UNICAST " : "", flags & 2 ? "MULTICAST " : "",
                flags & 4 ? "ALLMULTI " : "", flags & 8 ? "BROADCAST " : "", flags & 16 ? "PROMISC " : "",
                flags & 32 ? "USE_LADRF " : "");
}

inline void FormatFlowKey(const std::uint8_t* key, char* text, std::size_t size) {
  Chain line(text, size);
  const auto vlan = At<std::uint16_t>(key, 12);
  line.Print("%02x:%02x:%02x:%02x:%02x:%02x  %02x:%02x:%02x:%02x:%02x:%02x  %-4u  %-7u", key[0], key[1], key[2], key[3],
             key[4], key[5], key[6], key[7], key[8], key[9], key[10], key[11], vlan >> 4,
             At<std::uint16_t>(key, 14) & 0x7FFF);
  for (int i = 0; i < 2; ++i) {
    char address[INET6_ADDRSTRLEN];
    if (vlan & 2) {
      inet_ntop(AF_INET6, key + 24 + 16 * i, address, sizeof(address));
    } else {
      const std::uint8_t* const quad = key + 24 + 4 * i;
      std::snprintf(address, sizeof(address), "%u.%u.%u.%u", quad[0], quad[1], quad[2], quad[3]);
    }
    line.Print("  %-45s", address);
  }
  line.Print("  %-5u", key[23]);
  line.Print("  %-7u", key[22] << 16 | At<std::uint16_t>(key, 20));
  for (std::size_t i = 0; i < 2; ++i) {
    const auto port = At<std::uint16_t>(key, 16 + 2 * i);
    line.Print("  %-12u", key[23] == 1 || key[23] == 58 ? port : ntohs(port));
  }
}

inline void FormatActions(const std::uint8_t* actions, char* text, std::size_t size) {
  Chain line(text, size);
  const auto bitmap = At<std::uint32_t>(actions, 56);
  char dp[4] = "-";
  if (bitmap & 0x80)
    std::snprintf(dp, sizeof(dp), "%u", actions[64]);
  line.Print("bmap:%p inval(s):%u cg:%p dp:%s len:%u; ", reinterpret_cast<void*>(std::uintptr_t{bitmap}),
             At<std::uint32_t>(actions, 68), At<void*>(actions, 8), dp, At<std::uint16_t>(actions, 62));
  for (std::uint32_t rest = bitmap; rest; rest &= rest - 1) {
    switch (__builtin_ctz(rest)) {
      case 2:
        line.Print("KCPInputChildPort: %u; ", At<std::uint32_t>(actions, 114));
        break;
      case 3:
        line.Print("LRO; ");
        break;
      case 4:
        line.Print("IPFIX Ingress; ");
        break;
      case 5:
        line.Print("DROP; ");
        return;
      case 6:
        line.Print("DFW on srcPort; ");
        break;
      case 8:
        line.Print("SP; ");
        break;
      case 10:
        line.Print("VI: %u; ", At<std::uint16_t>(actions, 74));
        break;
      case 11:
        line.Print("VR; ");
        break;
      case 12:
        line.Print("PI: %u; ", actions[72]);
        break;
      case 13:
        line.Print("PR; ");
        break;
      case 16:
        line.Print("GVLAN Insert; ");
        break;
      case 20:
        line.Print("VNI: %u; ", At<std::uint32_t>(actions, 76));
        break;
      case 22:
        line.Print("DECAP; ");
        break;
      case 23:
        line.Print("GVLAN Remove; ");
        break;
      case 26:
        line.Print("IPFIX Egress; ");
        break;
      case 27:
        line.Print("DFW on dstPort; ");
        break;
      case 28:
        line.Print("KCPOutputVLAN: %u; ", At<std::uint16_t>(actions, 118));
        break;
      default:
        break;
    }
  }
}

inline void FormatStats(const std::uint8_t* actions, char* text, std::size_t size) {
  if (actions[61] & 8) {
    std::snprintf(text, size, "pktsSinceLastFlush:%lu bytesSinceLastFlush:%lu", At<std::uint64_t>(actions, 24),
                  At<std::uint64_t>(actions, 40));
  } else {
    std::snprintf(text, size, "Not Applicable");
  }
}

inline void FormatFilter(const std::uint8_t* filter, char* text, std::size_t size) {
  const std::uint8_t* const mac = filter + 8;
  switch (At<std::uint16_t>(filter, 0)) {
    case 0:
      std::snprintf(text, size, "%s:%02x:%02x:%02x:%02x:%02x:%02x", "macOnly", mac[0], mac[1], mac[2], mac[3], mac[4],
                    mac[5]);
      break;
    case 1:
      std::snprintf(text, size, "geneve:outer:%02x:%02x:%02x:%02x:%02x:%02x:inner:%02x:%02x:%02x:%02x:%02x:%02x:vni:%u",
                    mac[0], mac[1], mac[2], mac[3], mac[4], mac[5], mac[6], mac[7], mac[8], mac[9], mac[10], mac[11],
                    At<std::uint32_t>(filter, 20));
      break;
    default:
      std::snprintf(text, size, "UnknownFilter");
  }
}

inline void PrintPorts(const LBPortSet& ports, const char* format, Chain* line) {
  for (int word = 0; word < 2; ++word) {
    for (int bit = 0; bit < 64; ++bit) {
      if (ports.words[word] >> bit & 1)
        line->Print(format, 64 * word + bit);
    }
  }
}

inline std::size_t FormatSnapshot(const LBSnapshot& snapshot, char* text, std::size_t size) {
  Chain line(text, size);
  line.Print("\nGroups\n");
  const std::uint8_t* position = snapshot.records;
  for (std::uint32_t i = 0; i < snapshot.groupCount; ++i, position += sizeof(LBGroup)) {
    const auto group = At<LBGroup>(position, 0);
    line.Print("[%3d load %3d] :", i, group.load);
    PrintPorts(group.txPorts, " [%d-TX]", &line);
    PrintPorts(group.rxPorts, " [%d-RX]", &line);
    line.Print("\n");
  }
  line.Print("\nVeticies and Edges\n");
  for (std::uint32_t i = 0; i < snapshot.vertexCount; ++i) {
    const auto vertex = At<LBVertex>(position, 0);
    position += sizeof(LBVertex);
    line.Print("[%2d WID:%10u Num:%3d F:%8x] ->", vertex.number, vertex.wid, vertex.outCount, vertex.flags);
    for (std::uint32_t j = 0; j < vertex.outCount; ++j, position += sizeof(LBEdge)) {
      const auto edge = At<LBEdge>(position, 0);
      line.Print(" [to  :%2d EMA:%3d load:%3d]", edge.peer, edge.ema, edge.load);
    }
    line.Print("\n[%2d WID:%10u Num:%3d F:%8x] <-", vertex.number, vertex.wid, vertex.inCount, vertex.flags);
    for (std::uint32_t j = 0; j < vertex.inCount; ++j, position += sizeof(LBEdge)) {
      const auto edge = At<LBEdge>(position, 0);
      line.Print(" [from:%2d EMA:%3d load:%3d]", edge.peer, edge.ema, edge.load);
    }
    line.Print("\n");
  }
  return line.Length();
}

// The share of a core: busy, and period times work.
struct CoreShare {
  std::uint64_t busy;
  std::uint64_t divisor;
};

inline CoreShare ShareOf(const LBCoreRecord& core) {
  return {(core.busyNow + 0xFFFFF - core.busyBefore) >> 20,
          ((core.timeNow + 0xFFFFF - core.timeBefore) >> 20) * core.workTotal};
}

inline void FiguresOfPort(const LBPortRecord& port, const LBCoreRecord* cores, std::uint64_t* figures) {
  for (int j = 0; j < 4; ++j) {
    const CoreShare share = ShareOf(cores[port.cores[j % 2]]);
    figures[j] = share.divisor ? share.busy * (j < 2 ? 200 : 100) * port.counters[j] / share.divisor : 0;
  }
  figures[4] = (2 * port.counters[0] + port.counters[2] + 99999) / 100000;
  figures[5] = (2 * port.counters[1] + port.counters[3] + 99999) / 100000;
}

inline void FiguresOfCore(const LBCoreRecord& core, std::uint64_t* figures) {
  const std::uint64_t period = core.timeNow - core.timeBefore;
  figures[0] = period ? (core.busyNow - core.busyBefore) * 100 / period : 0;
  figures[1] = (core.workTotal + 99999) / 100000;
}

// The burst size of a switch, from a property of exactly its size and of version 0.
inline bool ReadBurstSize(const char* alias, BurstSize* burst) {
  DVSSwitch* const dvs = DVSState_SwitchFindByAlias(alias);
  if (!dvs || std::strcmp(DVS_ClassName(dvs), "vswitch") != 0)
    return false;
  char switchId[64];  // the library's need not end in a NUL
  std::memcpy(switchId, DVS_SwitchId(dvs), sizeof(switchId));
  switchId[sizeof(switchId) - 1] = '\0';
  void* block = nullptr;
  std::uint32_t length = 0;
  if (DVSQOB_HostPropGet(switchId, "com.talvor.kiv.ryn.burstsize", &block, &length) != 0)
    return false;
  const bool fits = length == sizeof(*burst);
  if (fits)
    std::memcpy(burst, block, sizeof(*burst));
  DVSQOB_DataFree(block);
  return fits && burst->version == 0;
}
