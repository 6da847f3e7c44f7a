#include "ryn/_core/records.h"

#include <cstring>

namespace ryn {
namespace {

#define PORT_COUNTERS(unit)                                                                                   \
  {"tx_packets", unit}, {"tx_bytes", unit}, {"tx_multicast_packets", unit}, {"tx_multicast_bytes", unit},     \
      {"tx_broadcast_packets", unit}, {"tx_broadcast_bytes", unit}, {"tx_drops", unit}, {"tx_errors", unit},  \
      {"rx_packets", unit}, {"rx_bytes", unit}, {"rx_multicast_packets", unit}, {"rx_multicast_bytes", unit}, \
      {"rx_broadcast_packets", unit}, {"rx_broadcast_bytes", unit}, {"rx_drops", unit}, {"rx_errors", unit},

constexpr PyStructSequence_Field kCounterFields[] = {PORT_COUNTERS("unsigned, of 64 bits"){nullptr, nullptr}};
constexpr PyStructSequence_Field kRateFields[] = {PORT_COUNTERS("a second, as a float"){nullptr, nullptr}};
#undef PORT_COUNTERS

constexpr PyStructSequence_Field kUplinkCounterFields[] = {
    {"rx_packets", nullptr},
    {"tx_packets", nullptr},
    {"rx_bytes", nullptr},
    {"tx_bytes", nullptr},
    {"rx_errors", nullptr},
    {"tx_errors", nullptr},
    {"rx_drops", nullptr},
    {"tx_drops", nullptr},
    {"rx_multicast_packets", nullptr},
    {"rx_broadcast_packets", nullptr},
    {"tx_multicast_packets", nullptr},
    {"tx_broadcast_packets", nullptr},
    {"collisions", nullptr},
    {"rx_length_errors", nullptr},
    {"rx_overflow_errors", nullptr},
    {"rx_crc_errors", nullptr},
    {"rx_frame_align_errors", nullptr},
    {"rx_fifo_errors", nullptr},
    {"rx_miss_errors", nullptr},
    {"tx_aborted_errors", nullptr},
    {"tx_carrier_errors", nullptr},
    {"tx_fifo_errors", nullptr},
    {"tx_heartbeat_errors", nullptr},
    {"tx_window_errors", nullptr},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kSwitchFields[] = {
    {"name", "the datapath's name of the switch"},
    {"number", "0 to 15"},
    {"max_ports", nullptr},
    {"active_ports", nullptr},
    {"ports", nullptr},
    {"mtu", "bytes"},
    {"core_count", "as the datapath reports it"},
    {"cores", "tuple of the datapath cores that serve the switch, ascending"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kMacEntryFields[] = {
    {"mac", "MacAddress"},
    {"vlan", nullptr},
    {"port", "number of the port that the address is on"},
    {"generation", "generation difference of the entry"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kDeviceFields[] = {{"name", nullptr}, {"affinity", nullptr}, {nullptr, nullptr}};

constexpr PyStructSequence_Field kTeamingFields[] = {
    {"type", "None, Single, LAG, SrcMAC, All, NoTeaming or Unknown"},
    {"uplinks", "tuple of port numbers in policy order, at most 8"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kPortConfigFields[] = {
    {"dvport", "the distributed port's number"},
    {"flags", "bits of the receive filter"},
    {"ladrf", "multicast hash filter, 64 bits"},
    {"mac", "MacAddress"},
    {"untagged_vlan", nullptr},
    {"forged_allowed", "bool: forged source addresses pass"},
    {"vni", nullptr},
    {"sample_rate", nullptr},
    {"multicast", "tuple of MacAddress, at most 32"},
    {"vlan_ranges", "tuple of pairs (first, last), at most 256"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kMirrorFields[] = {
    {"index", nullptr},
    {"encap_vlan", nullptr},
    {"snap_len", "bytes of each frame that are kept"},
    {"sampling_rate", nullptr},
    {"no_input", "bool"},
    {"no_output", "bool"},
    {"vlan_encap", "bool: mirrored frames carry the encapsulation VLAN"},
    {"orig_vlan", "bool"},
    {"source_in", "tuple of port numbers mirrored on ingress"},
    {"source_out", "tuple of port numbers mirrored on egress"},
    {"destinations", "tuple of port numbers"},
    {"vlans", "tuple of the VLANs filtered on"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kNetQFields[] = {
    {"switch", nullptr}, {"port", nullptr}, {"is_uplink", "bool"}, {"filters", "tuple of NetQFilter"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kNetQFilterFields[] = {
    {"kind", "0: by MAC address, 1: Geneve, others are unknown"},
    {"text", nullptr},
    {"queues", "tuple of NetQQueue"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kNetQQueueFields[] = {
    {"port", "number of the port that owns the queue"},
    {"queue", nullptr},
    {"flow", "64 bits"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kFlowStatsFields[] = {
    {"core", nullptr},
    {"flows", nullptr},
    {"hits", nullptr},
    {"misses", nullptr},
    {"fpo_hits", nullptr},
    {"local_hits", nullptr},
    {"insert_failures", nullptr},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kFpoStatsFields[] = {
    {"core", nullptr},
    {"hits", nullptr},
    {"mark_mismatches", nullptr},
    {"pnic_mismatches", nullptr},
    {"delayed_matches", nullptr},
    {"ephemeral_flows", nullptr},
    {"transient_flows", nullptr},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kOffloadFields[] = {
    {"level", "Model 1 Level 1, Model 1 Level 2, Model 2 or Not Supported"},
    {"groups", nullptr},
    {"priorities", nullptr},
    {"mark_bits", nullptr},
    {"flows", "flows supported"},
    {"counters", "counters supported"},
    {"key_bits", nullptr},
    {"dec_ttl", nullptr},
    {"actions", "bits of the actions supported, 64 bits"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kWeightsFields[] = {
    {"cross_numa_communication", nullptr}, {"cross_numa_migration", nullptr}, {"cross_lcore_communication", nullptr},
    {"cross_lcore_migration", nullptr},    {"vm_affinity", nullptr},          {"device_affinity", nullptr},
    {"stability_decay", nullptr},          {"port_count", nullptr},           {nullptr, nullptr},
};

constexpr PyStructSequence_Field kBalancerGroupFields[] = {
    {"load", nullptr},
    {"tx_ports", "tuple of port numbers"},
    {"rx_ports", "tuple of port numbers"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kBalancerVertexFields[] = {
    {"number", nullptr},
    {"wid", nullptr},
    {"flags", nullptr},
    {"outgoing", "tuple of BalancerEdge"},
    {"incoming", "tuple of BalancerEdge"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kBalancerEdgeFields[] = {
    {"peer", "number of the vertex at the other end"},
    {"load", nullptr},
    {"ema", "moving average"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kBalancerPortFields[] = {
    {"port", nullptr},
    {"number0", "first word of the record; its meaning is the datapath's"},
    {"number4", "second word of the record; its meaning is the datapath's"},
    {"core_a", nullptr},
    {"core_b", nullptr},
    {"usage0", "of core A"},
    {"usage1", "of core B"},
    {"usage2", "of core A"},
    {"usage3", "of core B"},
    {"load_a", "weighted work on core A in units of 100000, rounded up"},
    {"load_b", "weighted work on core B in units of 100000, rounded up"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kBalancerCoreFields[] = {
    {"core", nullptr},
    {"usage", "per cent of the time between the two marks"},
    {"load", "work in units of 100000, rounded up"},
    {nullptr, nullptr},
};

constexpr PyStructSequence_Field kDvsFields[] = {
    {"id", nullptr},
    {"alias", "None: the switch has no alias"},
    {"portset", "the datapath's name as the configuration has it, or None"},
    {"class_name", nullptr},
    {nullptr, nullptr},
};

struct Definition {
  const char* name;
  const char* doc;
  const PyStructSequence_Field* fields;
};

// In the order of RecordType. The package exports each type under its name, which pickling relies on.
constexpr Definition kDefinitions[] = {
    {"ryn.Counters", "Traffic counters of a port, on one path or in all.", kCounterFields},
    {"ryn.Rates", "What a port's counters grew by in a second.", kRateFields},
    {"ryn.UplinkCounters", "Counters of an uplink or of one of its queues, unsigned, of 64 bits.",
     kUplinkCounterFields},
    {"ryn.SwitchRecord", "A switch as the datapath lists it.", kSwitchFields},
    {"ryn.MacEntry", "A row of a MAC table.", kMacEntryFields},
    {"ryn.Device", "A network device of the host and its affinity.", kDeviceFields},
    {"ryn.Teaming", "How a port picks the uplink of what it sends.", kTeamingFields},
    {"ryn.PortConfig", "Configuration of a port.", kPortConfigFields},
    {"ryn.Mirror", "A mirror session.", kMirrorFields},
    {"ryn.NetQ", "Receive filters of a port and the queues that serve them.", kNetQFields},
    {"ryn.NetQFilter", "A receive filter.", kNetQFilterFields},
    {"ryn.NetQQueue", "A hardware queue of a receive filter.", kNetQQueueFields},
    {"ryn.FlowStats", "Counters of the flow cache of one core.", kFlowStatsFields},
    {"ryn.FpoStats", "Counters of flow processing offload of one core.", kFpoStatsFields},
    {"ryn.Offload", "What of flow processing offload an uplink supports.", kOffloadFields},
    {"ryn.Weights", "The weights of the load balancer, 32 bits each.", kWeightsFields},
    {"ryn.BalancerGroup", "A group of ports as the balancer last saw it.", kBalancerGroupFields},
    {"ryn.BalancerVertex", "A vertex of the balancer's graph.", kBalancerVertexFields},
    {"ryn.BalancerEdge", "An edge of the balancer's graph, seen from one of its ends.", kBalancerEdgeFields},
    {"ryn.BalancerPort", "The balancer's figures of a port.", kBalancerPortFields},
    {"ryn.BalancerCore", "The balancer's figures of a core.", kBalancerCoreFields},
    {"ryn.DvsRecord", "A distributed switch of the host's configuration.", kDvsFields},
};
static_assert(sizeof(kDefinitions) / sizeof(kDefinitions[0]) == kRecordTypes);

constexpr std::size_t CountFields(const PyStructSequence_Field* fields) {
  std::size_t count = 0;
  while (fields[count].name)
    ++count;
  return count;
}

Ref FieldNames(const Definition& definition) {
  return Tuple(CountFields(definition.fields),
               [&](std::size_t i) { return Ref(PyUnicode_InternFromString(definition.fields[i].name)); });
}

}  // namespace

bool AddRecordTypes(PyObject* module, RecordTypes* types) {
  for (std::size_t i = 0; i < kRecordTypes; ++i) {
    const Definition& definition = kDefinitions[i];
    PyStructSequence_Desc description = {definition.name, definition.doc,
                                         const_cast<PyStructSequence_Field*>(definition.fields),  // only read
                                         static_cast<int>(CountFields(definition.fields))};
    PyTypeObject* const type = PyStructSequence_NewType(&description);
    if (!type)
      return false;
    (*types)[i] = type;  // owned for the life of the process
    const Ref names = FieldNames(definition);
    auto* const object = reinterpret_cast<PyObject*>(type);
    if (!names || PyObject_SetAttrString(object, "_fields", names.get()) != 0)
      return false;
    Py_INCREF(object);
    if (PyModule_AddObject(module, std::strrchr(definition.name, '.') + 1, object) != 0) {
      Py_DECREF(object);
      return false;
    }
  }
  return true;
}

}  // namespace ryn
