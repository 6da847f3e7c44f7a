// Written by simhost/tool/ryn_sim/generate.py from members/ and names.py: change it there.
//
// The rows of a store, as structs. Each knows the query that reads it and checks every column as it is read.
#pragma once

// clang-format off

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simhost/host/row_reader.h"

namespace simhost {

inline constexpr int kSchemaVersion = 2;

// Names that stand for numbers, from names.py.
enum PortKind : std::int64_t {
  kVnic = 1,
  kUplink = 2,
  kGeneric = 3,
  kQobnic = 4,
};
enum TxType : int {
  kTxNone = 0,
  kTxSingle = 1,
  kTxLag = 2,
  kTxSrcMac = 3,
  kTxAll = 4,
  kTxNoTeaming = 5,
};
enum ReceiveFilter : std::uint32_t {
  kFilterUnicast = 1,
  kFilterMulticast = 2,
  kFilterAllmulti = 4,
  kFilterBroadcast = 8,
  kFilterPromisc = 16,
  kFilterUseLadrf = 32,
};
enum MirrorFlag : std::uint16_t {
  kMirrorNoInput = 1,
  kMirrorNoOutput = 2,
  kMirrorVlanEncap = 4,
  kMirrorOrigVlan = 8,
};
enum BalancerMetric : std::uint32_t {
  kMetricNone = 0,
  kMetricCpu = 1,
  kMetricCount = 2,
};
enum Weight : std::size_t {
  kWeightCrossNumaCommunication = 0,
  kWeightCrossNumaMigration = 1,
  kWeightCrossLcoreCommunication = 2,
  kWeightCrossLcoreMigration = 3,
  kWeightVmAffinity = 4,
  kWeightDeviceAffinity = 5,
  kWeightStabilityDecay = 6,
  kWeightPortCount = 7,
};

// Columns that hold one of a few texts, and the texts of each.
enum class ClockMode { kRun, kFreeze };
template <> inline constexpr std::array<std::string_view, 2> kTextsOf<ClockMode>{
    "run", "freeze"};
enum class PropertyScope { kHost, kGlobal, kPort };
template <> inline constexpr std::array<std::string_view, 3> kTextsOf<PropertyScope>{
    "host", "global", "port"};
enum class MirrorRole { kIn, kOut, kDst };
template <> inline constexpr std::array<std::string_view, 3> kTextsOf<MirrorRole>{
    "in", "out", "dst"};
enum class Delivery { kUnicast, kMulticast, kBroadcast };
template <> inline constexpr std::array<std::string_view, 3> kTextsOf<Delivery>{
    "unicast", "multicast", "broadcast"};
enum class Corruption { kZero, kOnes, kRandom, kHalf };
template <> inline constexpr std::array<std::string_view, 4> kTextsOf<Corruption>{
    "zero", "ones", "random", "half"};
enum class FaultArgument { kSw, kPort, kLcore, kScope, kKey, kSwitch, kDvport, kAlias, kDevice };
template <> inline constexpr std::array<std::string_view, 9> kTextsOf<FaultArgument>{
    "sw", "port", "lcore", "scope", "key", "switch", "dvport", "alias", "device"};
enum class EventKind { kUplinkDown, kUplinkHang, kCoreStuck, kMacLimit, kCountersNearWrap };
template <> inline constexpr std::array<std::string_view, 5> kTextsOf<EventKind>{
    "uplink-down", "uplink-hang", "core-stuck", "mac-limit", "counters-near-wrap"};
enum class BaseKind { kPort, kRx, kTx, kFlow, kCore, kPassed, kLost };
template <> inline constexpr std::array<std::string_view, 7> kTextsOf<BaseKind>{
    "port", "rx", "tx", "flow", "core", "passed", "lost"};

// What each kind of event concerns, and the limits of its value; 0 to 0: it has none.
enum class EventTarget { kNic, kCore, kSwitch, kPort };

struct EventRule {
  EventTarget target;
  std::int64_t low;   // of its value
  std::int64_t high;
  std::int64_t usual; // while its row has none
  bool once;          // it is over as soon as it has happened
};
inline constexpr std::array<EventRule, 5> kEventRules{{  // by EventKind
    {EventTarget::kNic, 0, 0, 0, false},  // uplink-down
    {EventTarget::kNic, 0, 0, 0, false},  // uplink-hang
    {EventTarget::kCore, 0, 0, 0, false},  // core-stuck
    {EventTarget::kSwitch, 0, 4294967295, 16, false},  // mac-limit
    {EventTarget::kPort, 32, 64, 32, true},  // counters-near-wrap
}};

struct HostRow {
  std::string name{};                       // the host's name
  std::string profile{};                    // what it was made from; shown only
  std::string description{};                // a line about it; shown only
  std::uint64_t seed{};                     // what is made up follows from it
  std::uint32_t flow_timeout_s{};           // whole seconds that an idle flow stays in the table
  std::int64_t flow_floor_ms{};             // history: flows idle since before this have left the table
  bool fastslabs{};                         // history: the packet buffers are set up
  std::int64_t segment_ms{};                // since when counting goes on from base

  static constexpr const char* kTable = "host";
  static constexpr const char* kQuery =
      "SELECT name, profile, description, seed, flow_timeout_s, flow_floor_ms, fastslabs, segment_ms FROM host "
      "ORDER BY id";
  static constexpr int kKeys = 0;

  void Read(RowReader& row) {
    row.Text("name", 1, 63, name);
    row.Text("profile", 0, 65536, profile);
    row.Text("description", 0, 65536, description);
    row.Number("seed", 0, 9223372036854775807, seed);
    row.Number("flow_timeout_s", 0, 4294967295, flow_timeout_s);
    row.Number("flow_floor_ms", 0, 4611686018427, flow_floor_ms);
    row.Number("fastslabs", 0, 4294967295, fastslabs);
    row.Number("segment_ms", 0, 4611686018427, segment_ms);
  }
};

struct ClockRow {
  std::int64_t base_host_ns{};              // host time to begin with
  std::int64_t speed_permille{};            // seconds of host time a second (permille)
  ClockMode mode{};                         // the clock stands
  std::int64_t base_wall_ns{};              // wall time at base_host_ns; 0: set it at the next opening

  static constexpr const char* kTable = "clock";
  static constexpr const char* kQuery =
      "SELECT base_host_ns, speed_permille, mode, base_wall_ns FROM clock ORDER BY id";
  static constexpr int kKeys = 0;

  void Read(RowReader& row) {
    row.Number("base_host_ns", 0, 4611686018427387904, base_host_ns);
    row.Number("speed_permille", 1, 1000000000, speed_permille);
    row.Choice("mode", mode);
    row.Number("base_wall_ns", 0, 4611686018427387904, base_wall_ns);
  }
};

struct BalancerRow {
  std::int64_t period_ms{};                 // how often the balancer looks
  std::int64_t tick_ms{};                   // when it last looked
  std::vector<std::uint8_t> state{};        // belongs to the stand-ins

  static constexpr const char* kTable = "balancer";
  static constexpr const char* kQuery =
      "SELECT period_ms, tick_ms, state FROM balancer ORDER BY id";
  static constexpr int kKeys = 0;

  void Read(RowReader& row) {
    row.Number("period_ms", 100, 4611686018427, period_ms);
    row.Number("tick_ms", 0, 4611686018427, tick_ms);
    row.Bytes("state", 0, 16777216, state);
  }
};

struct WeightRow {
  int position{};                           // in the platform's order
  std::uint32_t value{};
  std::uint32_t default_value{};

  static constexpr const char* kTable = "weight";
  static constexpr const char* kQuery =
      "SELECT position, value, default_value FROM weight ORDER BY position";
  static constexpr int kKeys = 1;

  void Read(RowReader& row) {
    row.Number("position", 0, 7, position);
    row.Number("value", 0, 4294967295, value);
    row.Number("default_value", 0, 4294967295, default_value);
  }
};

struct CoreRow {
  int id{};
  int node{};
  std::int64_t packets_per_s{};

  static constexpr const char* kTable = "lcore";
  static constexpr const char* kQuery =
      "SELECT lcore, node, packets_per_s FROM lcore ORDER BY lcore";
  static constexpr int kKeys = 1;

  void Read(RowReader& row) {
    row.Number("lcore", 0, 63, id);
    row.Number("node", 0, 7, node);
    row.Number("packets_per_s", 1000, 1000000000, packets_per_s);
  }
};

struct NicRow {
  std::string name{};
  int node{};                               // the NUMA node it is plugged into
  std::uint32_t affinity{};                 // the node whose cores serve it
  std::int64_t link_mbps{};                 // bits a second
  bool driver_text{};                       // its driver has private statistics
  std::uint64_t crc_ppm{};                  // frames received damaged, of a million
  std::uint64_t drop_ppm{};                 // frames dropped in each direction, of a million
  std::uint32_t fpo_level{};                // offload level
  std::uint32_t fpo_groups{};               // what it says of its offload: GetFPOUplinkStatus shows it
  std::uint32_t fpo_priorities{};           // what it says of its offload: GetFPOUplinkStatus shows it
  std::uint32_t fpo_mark_bits{};            // what it says of its offload: GetFPOUplinkStatus shows it
  std::uint32_t fpo_flows{};                // what it says of its offload: GetFPOUplinkStatus shows it
  std::uint32_t fpo_counters{};             // what it says of its offload: GetFPOUplinkStatus shows it
  std::uint32_t fpo_key_bits{};             // what it says of its offload: GetFPOUplinkStatus shows it
  std::uint32_t fpo_dec_ttl{};              // what it says of its offload: GetFPOUplinkStatus shows it
  std::uint64_t fpo_actions{};              // what it says of its offload: GetFPOUplinkStatus shows it

  static constexpr const char* kTable = "nic";
  static constexpr const char* kQuery =
      "SELECT name, node, affinity, link_mbps, driver_text, crc_ppm, drop_ppm, fpo_level, fpo_groups, "
      "fpo_priorities, fpo_mark_bits, fpo_flows, fpo_counters, fpo_key_bits, fpo_dec_ttl, fpo_actions FROM nic "
      "ORDER BY name";
  static constexpr int kKeys = 1;

  void Read(RowReader& row) {
    row.Text("name", 1, 31, name);
    row.Number("node", 0, 7, node);
    row.Number("affinity", 0, 4294967295, affinity);
    row.Number("link_mbps", 1, 1000000, link_mbps);
    row.Number("driver_text", 0, 1, driver_text);
    row.Number("crc_ppm", 0, 1000000, crc_ppm);
    row.Number("drop_ppm", 0, 1000000, drop_ppm);
    row.Number("fpo_level", 0, 3, fpo_level);
    row.Number("fpo_groups", 0, 4294967295, fpo_groups);
    row.Number("fpo_priorities", 0, 4294967295, fpo_priorities);
    row.Number("fpo_mark_bits", 0, 4294967295, fpo_mark_bits);
    row.Number("fpo_flows", 0, 4294967295, fpo_flows);
    row.Number("fpo_counters", 0, 4294967295, fpo_counters);
    row.Number("fpo_key_bits", 0, 4294967295, fpo_key_bits);
    row.Number("fpo_dec_ttl", 0, 4294967295, fpo_dec_ttl);
    row.Number("fpo_actions", INT64_MIN, 9223372036854775807, fpo_actions);
  }
};

struct DvsRow {
  std::string switch_id{};                  // its identifier
  std::string alias{};                      // what scripts call it
  std::string class_name{};                 // its class

  static constexpr const char* kTable = "dvs";
  static constexpr const char* kQuery =
      "SELECT switch_id, alias, class FROM dvs ORDER BY switch_id";
  static constexpr int kKeys = 1;

  void Read(RowReader& row) {
    row.Text("switch_id", 1, 63, switch_id);
    row.Text("alias", 1, 127, alias);
    row.Text("class", 1, 127, class_name);
  }
};

struct PropertyRow {
  PropertyScope scope{};
  std::string switch_id{};
  std::string port{};                       // the text of port.dvport for a port's property
  std::string key{};
  std::vector<std::uint8_t> value{};        // as it is: a wrong version or length is kept

  static constexpr const char* kTable = "prop";
  static constexpr const char* kQuery =
      "SELECT scope, switch_id, port, key, value FROM prop ORDER BY scope, switch_id, port, key";
  static constexpr int kKeys = 4;

  void Read(RowReader& row) {
    row.Choice("scope", scope);
    row.Text("switch_id", 1, 63, switch_id);
    row.Text("port", 0, 65536, port);
    row.Text("key", 0, 65536, key);
    row.Bytes("value", 0, 16777216, value);
  }
};

struct SwitchRow {
  int id{};
  std::string name{};
  std::uint32_t mtu{};                      // frames larger than this and 18 are refused
  std::uint32_t max_ports{};                // what ListSwitches says of it
  std::uint32_t lro{};                      // large receive offload, as last set for the whole switch
  bool flow_cache{};                        // false: all goes by the slow path
  std::uint32_t panic_on_tx_hang{};         // the log says that a real host would stop
  bool uplink_mac_learn{};                  // false: its uplinks learn no addresses
  std::uint32_t mac_limit{};                // addresses that it learns at most
  std::uint32_t burst_size{};               // the datapath's own burst size; stored goes before it
  bool numa_team{};                         // uplinks on the sender's node go first
  std::uint32_t lb_metric{};                // what the balancer goes by: load, ports, or nothing
  std::uint32_t lb_high{};                  // percent of a core: above it ports are moved away
  std::uint32_t lb_low{};                   // percent of a core: below it ports may come
  std::uint32_t lb_pause{};                 // percent of a core: less difference moves nothing
  std::uint32_t lb_sensitivity{};           // percent of a core's load: a port below it stays
  std::int64_t flow_cleared_ms{};           // history: host time of the last clearing
  std::int64_t mac_cleared_ms{};            // history: host time of the last clearing
  std::string switch_id{};
  std::uint64_t lcores{};                   // the cores its ports may be placed on, a bit set
  std::string alias{};                      // what scripts call it
  std::string class_name{};                 // its class

  static constexpr const char* kTable = "sw";
  static constexpr const char* kQuery =
      "SELECT sw, name, mtu, max_ports, lro, flow_cache, panic_on_tx_hang, uplink_mac_learn, mac_limit, burst_size,"
      " numa_team, lb_metric, lb_high, lb_low, lb_pause, lb_sensitivity, flow_cleared_ms, mac_cleared_ms, "
      "switch_id, lcores, alias, class FROM sw LEFT JOIN dvs USING (switch_id) ORDER BY sw";
  static constexpr int kKeys = 1;

  void Read(RowReader& row) {
    row.Number("sw", 0, 15, id);
    row.Text("name", 1, 127, name);
    row.Number("mtu", 0, 4294967295, mtu);
    row.Number("max_ports", 0, 128, max_ports);
    row.Number("lro", 0, 4294967295, lro);
    row.Number("flow_cache", 0, 1, flow_cache);
    row.Number("panic_on_tx_hang", 0, 4294967295, panic_on_tx_hang);
    row.Number("uplink_mac_learn", 0, 4294967295, uplink_mac_learn);
    row.Number("mac_limit", 0, 4294967295, mac_limit);
    row.Number("burst_size", 0, 4294967295, burst_size);
    row.Number("numa_team", 0, 4294967295, numa_team);
    row.Number("lb_metric", 0, 2, lb_metric);
    row.Number("lb_high", 0, 4294967295, lb_high);
    row.Number("lb_low", 0, 4294967295, lb_low);
    row.Number("lb_pause", 0, 4294967295, lb_pause);
    row.Number("lb_sensitivity", 0, 4294967295, lb_sensitivity);
    row.Number("flow_cleared_ms", 0, 4611686018427, flow_cleared_ms);
    row.Number("mac_cleared_ms", 0, 4611686018427, mac_cleared_ms);
    row.Text("switch_id", 1, 63, switch_id);
    row.Number("lcores", INT64_MIN, 9223372036854775807, lcores);
    row.Text("alias", 1, 127, alias);
    row.Text("class", 1, 127, class_name);
  }
};

struct PortRow {
  int sw{};
  int id{};                                 // its number in the switch
  std::string client{};                     // who is connected; other parts of the description call the port so
  std::optional<std::string> nic_name;      // makes it an uplink
  std::int64_t kind{};                      // what is connected, as ListPorts has it
  std::uint32_t dvport{};                   // its distributed number
  bool active{};                            // false: nothing reaches it
  Mac mac{};                                // its address
  std::uint32_t macs_behind{};              // further addresses that are learned here
  std::uint32_t mac_limit{};                // addresses that it learns at most
  int tx_queues{};                          // transmit queues
  int rx_queues{};                          // receive queues
  std::uint32_t filter_flags{};             // what it receives
  std::uint64_t ladrf{};                    // the multicast hash filter
  std::uint16_t vlan{};                     // the untagged VLAN
  std::uint32_t vni{};                      // the overlay network; 0: none
  bool forged_ok{};                         // it may send from other addresses
  std::uint32_t sample_rate{};              // shown only
  std::uint32_t lro{};                      // large receive offload: four TCP frames are handed over as one
  int tx_type{};                            // how its packets choose an uplink: None, Single, LAG, SrcMAC, All, NoTeaming
  int tx_core{};                            // the core it sends on
  int rx_core{};                            // the core it receives on
  bool pinned{};                            // the balancer leaves it where it is
  std::int64_t flow_cleared_ms{};           // history: host time of the last clearing
  std::int64_t mac_cleared_ms{};            // history: host time of the last clearing

  static constexpr const char* kTable = "port";
  static constexpr const char* kQuery =
      "SELECT sw, port, client, nic, kind, dvport, active, mac, macs_behind, mac_limit, tx_queues, rx_queues, "
      "filter_flags, ladrf, vlan, vni, forged_ok, sample_rate, lro, tx_type, tx_core, rx_core, pinned, "
      "flow_cleared_ms, mac_cleared_ms FROM port ORDER BY sw, port";
  static constexpr int kKeys = 2;

  void Read(RowReader& row) {
    row.Number("sw", 0, 15, sw);
    row.Number("port", 0, 127, id);
    row.Text("client", 0, 127, client);
    row.Text("nic", 1, 31, nic_name);
    row.Number("kind", 0, 4294967295, kind);
    row.Number("dvport", 0, 4294967295, dvport);
    row.Number("active", 0, 1, active);
    row.Bytes("mac", 6, 6, mac);
    row.Number("macs_behind", 0, 65536, macs_behind);
    row.Number("mac_limit", 0, 4294967295, mac_limit);
    row.Number("tx_queues", 0, 32, tx_queues);
    row.Number("rx_queues", 0, 32, rx_queues);
    row.Number("filter_flags", 0, 4294967295, filter_flags);
    row.Number("ladrf", INT64_MIN, 9223372036854775807, ladrf);
    row.Number("vlan", 0, 4095, vlan);
    row.Number("vni", 0, 16777215, vni);
    row.Number("forged_ok", 0, 4294967295, forged_ok);
    row.Number("sample_rate", 0, 4294967295, sample_rate);
    row.Number("lro", 0, 4294967295, lro);
    row.Number("tx_type", 0, 5, tx_type);
    row.Number("tx_core", -1, 63, tx_core);
    row.Number("rx_core", -1, 63, rx_core);
    row.Number("pinned", 0, 4294967295, pinned);
    row.Number("flow_cleared_ms", 0, 4611686018427, flow_cleared_ms);
    row.Number("mac_cleared_ms", 0, 4611686018427, mac_cleared_ms);
  }
};

struct PortUplinkRow {
  int sw{};
  int port{};
  int seq{};
  std::uint32_t uplink{};

  static constexpr const char* kTable = "port_uplink";
  static constexpr const char* kQuery =
      "SELECT sw, port, seq, uplink FROM port_uplink ORDER BY sw, port, seq";
  static constexpr int kKeys = 3;

  void Read(RowReader& row) {
    row.Number("sw", 0, 15, sw);
    row.Number("port", 0, 127, port);
    row.Number("seq", 0, 7, seq);
    row.Number("uplink", 0, 4294967295, uplink);
  }
};

struct PortMulticastRow {
  int sw{};
  int port{};
  int seq{};
  Mac mac{};

  static constexpr const char* kTable = "port_mcast";
  static constexpr const char* kQuery =
      "SELECT sw, port, seq, mac FROM port_mcast ORDER BY sw, port, seq";
  static constexpr int kKeys = 3;

  void Read(RowReader& row) {
    row.Number("sw", 0, 15, sw);
    row.Number("port", 0, 127, port);
    row.Number("seq", 0, 31, seq);
    row.Bytes("mac", 6, 6, mac);
  }
};

struct PortVlanRow {
  int sw{};
  int port{};
  int seq{};
  std::uint16_t first{};
  std::uint16_t last{};

  static constexpr const char* kTable = "port_vlan_range";
  static constexpr const char* kQuery =
      "SELECT sw, port, seq, first, last FROM port_vlan_range ORDER BY sw, port, seq";
  static constexpr int kKeys = 3;

  void Read(RowReader& row) {
    row.Number("sw", 0, 15, sw);
    row.Number("port", 0, 127, port);
    row.Number("seq", 0, 255, seq);
    row.Number("first", 0, 4095, first);
    row.Number("last", 0, 4095, last);
  }
};

struct MirrorRow {
  int sw{};
  std::uint16_t index{};                    // its index
  std::uint16_t encap_vlan{};               // shown only
  std::uint16_t snap_len{};                 // copies are cut to so many bytes; 0: they are not
  std::uint16_t sampling_rate{};            // one packet of so many is copied
  std::uint16_t flags{};                    // vlanEncap makes a copy four bytes longer; the others are only shown

  static constexpr const char* kTable = "mirror";
  static constexpr const char* kQuery =
      "SELECT sw, session, encap_vlan, snap_len, sampling_rate, flags FROM mirror ORDER BY sw, session";
  static constexpr int kKeys = 2;

  void Read(RowReader& row) {
    row.Number("sw", 0, 15, sw);
    row.Number("session", 0, 65535, index);
    row.Number("encap_vlan", 0, 65535, encap_vlan);
    row.Number("snap_len", 0, 65535, snap_len);
    row.Number("sampling_rate", 0, 65535, sampling_rate);
    row.Number("flags", 0, 15, flags);
  }
};

struct MirrorPortRow {
  int sw{};
  std::uint16_t session{};
  MirrorRole role{};
  int port{};

  static constexpr const char* kTable = "mirror_port";
  static constexpr const char* kQuery =
      "SELECT sw, session, role, port FROM mirror_port ORDER BY sw, session, role, port";
  static constexpr int kKeys = 4;

  void Read(RowReader& row) {
    row.Number("sw", 0, 15, sw);
    row.Number("session", 0, 65535, session);
    row.Choice("role", role);
    row.Number("port", 0, 127, port);
  }
};

struct MirrorVlanRow {
  int sw{};
  std::uint16_t session{};
  int seq{};
  std::uint16_t vlan{};

  static constexpr const char* kTable = "mirror_vlan";
  static constexpr const char* kQuery =
      "SELECT sw, session, seq, vlan FROM mirror_vlan ORDER BY sw, session, seq";
  static constexpr int kKeys = 3;

  void Read(RowReader& row) {
    row.Number("sw", 0, 15, sw);
    row.Number("session", 0, 65535, session);
    row.Number("seq", 0, 63, seq);
    row.Number("vlan", 0, 4095, vlan);
  }
};

struct MacEntryRow {
  int sw{};
  int port{};                               // the port's number
  Mac mac{};                                // the address
  std::uint16_t vlan{};                     // its VLAN
  bool present{};                           // it was deleted by hand, not added
  std::int64_t at_ms{};                     // when, in host time

  static constexpr const char* kTable = "mac_entry";
  static constexpr const char* kQuery =
      "SELECT sw, port, mac, vlan, present, at_ms FROM mac_entry ORDER BY sw, port, mac, vlan";
  static constexpr int kKeys = 4;

  void Read(RowReader& row) {
    row.Number("sw", 0, 15, sw);
    row.Number("port", 0, 127, port);
    row.Bytes("mac", 6, 6, mac);
    row.Number("vlan", 0, 4095, vlan);
    row.Number("present", 0, 1, present);
    row.Number("at_ms", 0, 4611686018427, at_ms);
  }
};

struct ConversationRow {
  int id{};
  int sw{};
  int src_port{};
  std::optional<int> dst_port;              // NULL: leaves the host by the uplink its policy picks
  std::int64_t milli_pps{};                 // mean packets a second of each sender, at most 1G (packets in 1000 s)
  std::uint32_t frame_size{};               // bytes of a frame
  std::int64_t reply_permille{};            // packets back for each packet (permille)
  std::uint32_t reply_size{};               // bytes of a frame back
  Delivery delivery{};                      // unicast, multicast, broadcast
  std::uint8_t protocol{};
  std::uint16_t source_l4{};                // source port; ICMP: its type
  std::uint16_t destination_l4{};           // destination port; ICMP: its code
  std::vector<std::uint8_t> source_ip{};    // source address
  std::vector<std::uint8_t> destination_ip{};// destination address
  std::optional<Mac> dst_mac;               // the next hop's address
  std::uint16_t vlan{};                     // the VLAN of its packets
  std::uint32_t vni{};                      // the overlay network of its packets; 0: none
  std::uint32_t flows{};                    // lasting flows
  std::uint32_t churn_ppm{};
  std::uint32_t slow_permille{};            // the share that always takes the slow path (permille)
  std::int64_t swing_permille{};            // share of the mean by which the rate swings, as a triangle (permille)
  std::int64_t period_ms{};                 // how long a swing takes, to 7d
  std::int64_t phase_ms{};                  // so much later in its swing and bursts
  std::int64_t burst_every_ms{};            // between the starts of two bursts
  std::int64_t burst_for_ms{};              // how long each lasts
  std::int64_t burst_permille{};            // the rate meanwhile, in usual rates (permille)
  std::int64_t start_ms{};                  // in host time
  std::optional<std::int64_t> stop_ms;      // in host time
  std::uint32_t actions{};
  std::uint32_t vdr{};                      // routers on its way

  static constexpr const char* kTable = "conversation";
  static constexpr const char* kQuery =
      "SELECT id, sw, src_port, dst_port, milli_pps, size, reply_permille, reply_size, delivery, protocol, src_l4, "
      "dst_l4, src_ip, dst_ip, dst_mac, vlan, vni, flows, churn_ppm, slow_permille, swing_permille, period_ms, "
      "phase_ms, burst_every_ms, burst_for_ms, burst_permille, start_ms, stop_ms, actions, vdr FROM conversation "
      "ORDER BY id";
  static constexpr int kKeys = 1;

  void Read(RowReader& row) {
    row.Number("id", 1, 2147483647, id);
    row.Number("sw", 0, 15, sw);
    row.Number("src_port", 0, 127, src_port);
    row.Number("dst_port", 0, 127, dst_port);
    row.Number("milli_pps", 0, 1000000000000, milli_pps);
    row.Number("size", 60, 65535, frame_size);
    row.Number("reply_permille", 0, 10000, reply_permille);
    row.Number("reply_size", 60, 65535, reply_size);
    row.Choice("delivery", delivery);
    row.Number("protocol", 0, 255, protocol);
    row.Number("src_l4", 0, 65535, source_l4);
    row.Number("dst_l4", 0, 65535, destination_l4);
    row.Bytes("src_ip", 4, 16, source_ip);
    row.Bytes("dst_ip", 4, 16, destination_ip);
    row.Bytes("dst_mac", 6, 6, dst_mac);
    row.Number("vlan", 0, 4095, vlan);
    row.Number("vni", 0, 16777215, vni);
    row.Number("flows", 1, 65536, flows);
    row.Number("churn_ppm", 0, 100000, churn_ppm);
    row.Number("slow_permille", 0, 1000, slow_permille);
    row.Number("swing_permille", 0, 1000, swing_permille);
    row.Number("period_ms", 1000, 604800000, period_ms);
    row.Number("phase_ms", 0, 4611686018427, phase_ms);
    row.Number("burst_every_ms", 0, 4611686018427, burst_every_ms);
    row.Number("burst_for_ms", 0, 4611686018427, burst_for_ms);
    row.Number("burst_permille", 1000, 100000, burst_permille);
    row.Number("start_ms", 0, 4611686018427, start_ms);
    row.Number("stop_ms", 0, 4611686018427, stop_ms);
    row.Number("actions", 0, 4294967295, actions);
    row.Number("vdr", 0, 12, vdr);
  }
};

struct FaultRow {
  std::int64_t id{};
  std::string operation{};                  // an operation's name, or a pattern such as Ryn_Get*
  std::optional<std::uint32_t> status;      // answered instead of the operation
  std::int64_t delay_ms{};                  // it waits first
  std::optional<Corruption> corrupt;        // zero, ones, random, half: what is done to the answer's bytes
  std::int64_t after{};                     // so many matching calls pass first
  std::optional<std::int64_t> times;        // at most so many calls are touched
  std::uint64_t probability_ppm{};          // how likely a matching call is touched
  std::uint64_t seed{};                     // of the probability's dice
  std::optional<std::int64_t> from_ms;      // in host time
  std::optional<std::int64_t> until_ms;     // in host time
  std::int64_t calls{};                     // matching calls so far
  std::int64_t hits{};                      // of these, touched

  static constexpr const char* kTable = "fault";
  static constexpr const char* kQuery =
      "SELECT id, operation, status, delay_ms, corrupt, after, times, probability_ppm, seed, from_ms, until_ms, "
      "calls, hits FROM fault ORDER BY id";
  static constexpr int kKeys = 1;

  void Read(RowReader& row) {
    row.Number("id", 1, 9223372036854775807, id);
    row.Text("operation", 1, 127, operation);
    row.Number("status", 1, 4294967295, status);
    row.Number("delay_ms", 0, 4611686018427, delay_ms);
    row.Choice("corrupt", corrupt);
    row.Number("after", 0, 9223372036854775807, after);
    row.Number("times", 1, 9223372036854775807, times);
    row.Number("probability_ppm", 0, 1000000, probability_ppm);
    row.Number("seed", 0, 9223372036854775807, seed);
    row.Number("from_ms", 0, 4611686018427, from_ms);
    row.Number("until_ms", 0, 4611686018427, until_ms);
    row.Number("calls", 0, 9223372036854775807, calls);
    row.Number("hits", 0, 9223372036854775807, hits);
  }
};

struct FaultWhereRow {
  std::int64_t fault{};
  int seq{};
  FaultArgument name{};                     // an argument
  std::string glob{};                       // what that argument, as text, must match

  static constexpr const char* kTable = "fault_where";
  static constexpr const char* kQuery =
      "SELECT fault, seq, name, glob FROM fault_where ORDER BY fault, seq";
  static constexpr int kKeys = 2;

  void Read(RowReader& row) {
    row.Number("fault", 1, 9223372036854775807, fault);
    row.Number("seq", 0, 8, seq);
    row.Choice("name", name);
    row.Text("glob", 0, 65536, glob);
  }
};

struct EventRow {
  std::int64_t id{};
  EventKind kind{};                         // which one, see [Events](#events)
  std::string target{};
  std::optional<std::int64_t> value;        // of a limit or a size
  std::int64_t from_ms{};                   // in host time
  std::optional<std::int64_t> until_ms;     // in host time
  int stage{};                              // 0 ahead, 1 on, 2 over

  static constexpr const char* kTable = "event";
  static constexpr const char* kQuery =
      "SELECT id, kind, target, value, from_ms, until_ms, started FROM event ORDER BY id";
  static constexpr int kKeys = 1;

  void Read(RowReader& row) {
    row.Number("id", 1, 9223372036854775807, id);
    row.Choice("kind", kind);
    row.Text("target", 1, 127, target);
    row.Number("value", 0, 4294967295, value);
    row.Number("from_ms", 0, 4611686018427, from_ms);
    row.Number("until_ms", 0, 4611686018427, until_ms);
    row.Number("started", 0, 2, stage);
  }
};

struct BaseRow {
  BaseKind kind{};
  int sw{};
  int id{};
  std::vector<std::uint8_t> counts{};       // little-endian unsigned 64-bit words

  static constexpr const char* kTable = "base";
  static constexpr const char* kQuery =
      "SELECT kind, sw, id, counts FROM base ORDER BY kind, sw, id";
  static constexpr int kKeys = 3;

  void Read(RowReader& row) {
    row.Choice("kind", kind);
    row.Number("sw", 0, 15, sw);
    row.Number("id", 0, 2147483647, id);
    row.Bytes("counts", 0, 16777216, counts);
  }
};

}  // namespace simhost
