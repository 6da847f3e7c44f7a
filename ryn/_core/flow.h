// Flow: an entry of a flow cache. FlowFilter: what a flow has to match.
#pragma once

#include <cstdint>
#include <cstring>

#include "host/walks.h"
#include "ryn/_core/values.h"

namespace ryn {

// What is known of a flow. All bytes are set, so that flows are equal when their bytes are.
struct FlowFields {
  std::uint8_t src[16];  // of IPv4 the first 4 bytes, the others are 0
  std::uint8_t dst[16];
  std::uint64_t packets;
  std::uint64_t bytes;
  std::uint32_t dvs;  // the switch's number
  std::uint32_t core;
  std::uint32_t bitmap;
  std::uint32_t number24;
  std::uint16_t sport;
  std::uint16_t dport;
  std::uint16_t vlan;
  std::uint16_t number15;
  std::uint8_t mac_a[6];
  std::uint8_t mac_b[6];
  std::uint8_t protocol;
  std::uint8_t ipv6;       // 0 or 1
  std::uint8_t counted;    // 0 or 1: packets and bytes apply
  std::uint8_t offloaded;  // 0 or 1
};
static_assert(sizeof(FlowFields) == 88, "without gaps");

// Part of an address to match: all bits of `mask`.
struct AddressMatch {
  bool given;
  std::uint8_t ipv6;
  std::uint64_t value[2];  // 16 bytes, in the order of the address
  std::uint64_t mask[2];

  bool Matches(const std::uint8_t* address, std::uint8_t is_ipv6) const {
    if (!given)
      return true;
    std::uint64_t words[2];
    std::memcpy(words, address, sizeof(words));
    return ipv6 == is_ipv6 && (words[0] & mask[0]) == value[0] && (words[1] & mask[1]) == value[1];
  }
};

struct NumberMatch {
  bool given;
  std::uint16_t value;

  bool Matches(std::uint16_t number) const { return !given || number == value; }
};

struct MacMatch {
  bool given;
  std::uint8_t value[6];

  bool Matches(const std::uint8_t* mac) const { return !given || std::memcmp(mac, value, sizeof(value)) == 0; }
};

struct FlowMatch {
  AddressMatch src, dst;
  NumberMatch sport, dport, protocol, vlan;
  MacMatch mac_a, mac_b;
  std::uint32_t actions;  // all these bits have to be set

  bool Matches(const FlowFields& flow) const {
    return (flow.bitmap & actions) == actions && protocol.Matches(flow.protocol) && sport.Matches(flow.sport) &&
           dport.Matches(flow.dport) && vlan.Matches(flow.vlan) && src.Matches(flow.src, flow.ipv6) &&
           dst.Matches(flow.dst, flow.ipv6) && mac_a.Matches(flow.mac_a) && mac_b.Matches(flow.mac_b);
  }
};

struct FlowFilter {
  PyObject head;
  FlowMatch match;
};

extern PyTypeObject flow_type;
extern PyTypeObject flow_filter_type;

bool AddFlowTypes(PyObject* module);

PyObject* NewFlow(const FlowFields& fields);

// Takes over what an entry tells; dvs, core and offloaded are the caller's.
inline void ReadFlow(const FlowEntry& entry, FlowFields* fields) {
  constexpr std::uint8_t kIcmp = 1, kIcmpV6 = 58;
  const auto swapped = [](std::uint16_t port) { return static_cast<std::uint16_t>(port << 8 | port >> 8); };
  const FlowKey& key = entry.key;
  const bool icmp = key.protocol == kIcmp || key.protocol == kIcmpV6;
  const bool ipv6 = key.flagsAndVlan & kFlowKeyIsIPv6;
  if (ipv6) {
    std::memcpy(fields->src, key.address1, 16);
    std::memcpy(fields->dst, key.address2, 16);
  } else {  // sizes that are constants: a walk is mostly this
    std::memset(fields->src, 0, 16);
    std::memset(fields->dst, 0, 16);
    std::memcpy(fields->src, key.address1, 4);
    std::memcpy(fields->dst, key.address1 + 4, 4);
  }
  std::memcpy(fields->mac_a, key.mac1, sizeof(key.mac1));
  std::memcpy(fields->mac_b, key.mac2, sizeof(key.mac2));
  fields->counted = (entry.actions.Get(kActionFlags) & kStatisticsApply) != 0;
  fields->packets = fields->counted ? entry.actions.Get(kPacketsSinceFlush) : 0;
  fields->bytes = fields->counted ? entry.actions.Get(kBytesSinceFlush) : 0;
  fields->bitmap = entry.actions.Get(kBitmap);
  fields->number24 = static_cast<std::uint32_t>(key.number20High) << 16 | key.number20Low;
  fields->sport = icmp ? key.transport[0] : swapped(key.transport[0]);
  fields->dport = icmp ? key.transport[1] : swapped(key.transport[1]);
  fields->vlan = key.flagsAndVlan >> 4;
  fields->number15 = key.number14 & 0x7FFF;
  fields->protocol = key.protocol;
  fields->ipv6 = ipv6;
}

}  // namespace ryn
