// The metrics, one row each. Help texts, the list that --metrics prints, the table in the documents and the checks all
// come from here.
#pragma once

#include <string_view>

enum class MetricType { kCounter, kGauge };

struct Metric {
  std::string_view name;
  MetricType type;
  std::string_view collector;  // empty: told with every scrape
  std::string_view labels;     // in the order of the output, separated by commas
  std::string_view unit;       // "" where the metric only counts or informs
  std::string_view source;     // the operation or the record that it is read from
  std::string_view help;
  bool real = false;  // a decimal fraction; all others are unsigned integers
};

inline constexpr Metric kMetrics[] = {
    // ---- switch
    {"ryn_switch_info", MetricType::kGauge, "switch", "switch,number,alias,id", "",
     "Ryn_Get_Switch_List, switch configuration",
     "Always 1. A switch with its number, its alias and its identifier in the configuration."},
    {"ryn_switch_mtu_bytes", MetricType::kGauge, "switch", "switch", "bytes", "Ryn_Get_Switch_List",
     "Largest payload of a frame."},
    {"ryn_switch_burst_size", MetricType::kGauge, "switch", "switch", "packets",
     "com.talvor.kiv.ryn.burstsize, else Ryn_GetSwitchBurstSize", "Packets handled in one go, at most."},
    // ---- port
    {"ryn_port_info", MetricType::kGauge, "port", "switch,port,dvport,kind,mac", "", "Ryn_Get_Port_List",
     "Always 1. A port with its distributed port, its kind and its own MAC address."},
    {"ryn_port_macs", MetricType::kGauge, "port", "switch,port", "addresses", "Ryn_Get_Port_List",
     "MAC addresses known behind the port."},
    {"ryn_port_receive_packets_total", MetricType::kCounter, "port", "switch,port,path", "packets",
     "Ryn_Get_Port_Stats, Ryn_Get_Port_Stats_Slowpath", "Packets handed to the port."},
    {"ryn_port_receive_bytes_total", MetricType::kCounter, "port", "switch,port,path", "bytes",
     "Ryn_Get_Port_Stats, Ryn_Get_Port_Stats_Slowpath", "Bytes handed to the port."},
    {"ryn_port_receive_drops_total", MetricType::kCounter, "port", "switch,port,path", "packets",
     "Ryn_Get_Port_Stats, Ryn_Get_Port_Stats_Slowpath", "Packets for the port that were dropped."},
    {"ryn_port_receive_errors_total", MetricType::kCounter, "port", "switch,port,path", "packets",
     "Ryn_Get_Port_Stats, Ryn_Get_Port_Stats_Slowpath", "Packets for the port that were bad."},
    {"ryn_port_transmit_packets_total", MetricType::kCounter, "port", "switch,port,path", "packets",
     "Ryn_Get_Port_Stats, Ryn_Get_Port_Stats_Slowpath", "Packets sent by the port."},
    {"ryn_port_transmit_bytes_total", MetricType::kCounter, "port", "switch,port,path", "bytes",
     "Ryn_Get_Port_Stats, Ryn_Get_Port_Stats_Slowpath", "Bytes sent by the port."},
    {"ryn_port_transmit_drops_total", MetricType::kCounter, "port", "switch,port,path", "packets",
     "Ryn_Get_Port_Stats, Ryn_Get_Port_Stats_Slowpath", "Packets from the port that were dropped."},
    {"ryn_port_transmit_errors_total", MetricType::kCounter, "port", "switch,port,path", "packets",
     "Ryn_Get_Port_Stats, Ryn_Get_Port_Stats_Slowpath", "Packets from the port that were bad."},
    // ---- uplink
    {"ryn_uplink_receive_packets_total", MetricType::kCounter, "uplink", "switch,port", "packets",
     "Ryn_Get_Uplink_Stats", "Packets received from the wire."},
    {"ryn_uplink_receive_bytes_total", MetricType::kCounter, "uplink", "switch,port", "bytes", "Ryn_Get_Uplink_Stats",
     "Bytes received from the wire."},
    {"ryn_uplink_receive_drops_total", MetricType::kCounter, "uplink", "switch,port", "packets", "Ryn_Get_Uplink_Stats",
     "Packets from the wire that were dropped."},
    {"ryn_uplink_receive_errors_total", MetricType::kCounter, "uplink", "switch,port", "packets",
     "Ryn_Get_Uplink_Stats", "Packets from the wire that were bad."},
    {"ryn_uplink_transmit_packets_total", MetricType::kCounter, "uplink", "switch,port", "packets",
     "Ryn_Get_Uplink_Stats", "Packets sent to the wire."},
    {"ryn_uplink_transmit_bytes_total", MetricType::kCounter, "uplink", "switch,port", "bytes", "Ryn_Get_Uplink_Stats",
     "Bytes sent to the wire."},
    {"ryn_uplink_transmit_drops_total", MetricType::kCounter, "uplink", "switch,port", "packets",
     "Ryn_Get_Uplink_Stats", "Packets to the wire that were dropped."},
    {"ryn_uplink_transmit_errors_total", MetricType::kCounter, "uplink", "switch,port", "packets",
     "Ryn_Get_Uplink_Stats", "Packets to the wire that could not be sent."},
    {"ryn_uplink_link_up", MetricType::kGauge, "uplink", "switch,port", "", "Ryn_Get_Uplink_Priv_Stats",
     "1 while the link is up, 0 while it is down. Only where the driver's own text has a line link_up."},
    // ---- flow
    {"ryn_flow_timeout_seconds", MetricType::kGauge, "flow", "", "seconds", "Ryn_Get_Flow_Timeout",
     "Idle time after which a flow leaves the flow cache."},
    {"ryn_flow_cache_entries", MetricType::kGauge, "flow", "switch,core", "flows", "Ryn_Get_Flow_Stats",
     "Flows in the flow cache."},
    {"ryn_flow_cache_hits_total", MetricType::kCounter, "flow", "switch,core", "packets", "Ryn_Get_Flow_Stats",
     "Packets whose flow was in the flow cache."},
    {"ryn_flow_cache_misses_total", MetricType::kCounter, "flow", "switch,core", "packets", "Ryn_Get_Flow_Stats",
     "Packets whose flow was not in the flow cache."},
    {"ryn_flow_cache_offload_hits_total", MetricType::kCounter, "flow", "switch,core", "packets", "Ryn_Get_Flow_Stats",
     "Hits that the network hardware had marked."},
    {"ryn_flow_cache_local_hits_total", MetricType::kCounter, "flow", "switch,core", "packets", "Ryn_Get_Flow_Stats",
     "Hits found without the network hardware."},
    {"ryn_flow_cache_key_insert_failures_total", MetricType::kCounter, "flow", "switch,core", "flows",
     "Ryn_Get_Flow_Stats", "Flows that found no room in the flow cache."},
    // ---- fpo
    {"ryn_fpo_hits_total", MetricType::kCounter, "fpo", "switch,core", "packets", "Ryn_Get_FPO_Stats",
     "Packets handled by flow processing offload."},
    {"ryn_fpo_mark_mismatches_total", MetricType::kCounter, "fpo", "switch,core", "packets", "Ryn_Get_FPO_Stats",
     "Packets whose mark was not that of their flow."},
    {"ryn_fpo_pnic_mismatches_total", MetricType::kCounter, "fpo", "switch,core", "packets", "Ryn_Get_FPO_Stats",
     "Packets that came in by another uplink than their flow."},
    {"ryn_fpo_delayed_mark_matches_total", MetricType::kCounter, "fpo", "switch,core", "packets", "Ryn_Get_FPO_Stats",
     "Packets whose mark matched only later."},
    {"ryn_fpo_ephemeral_flows", MetricType::kGauge, "fpo", "switch,core", "flows", "Ryn_Get_FPO_Stats",
     "Offloaded flows too short to gain from it."},
    {"ryn_fpo_transient_flows", MetricType::kGauge, "fpo", "switch,core", "flows", "Ryn_Get_FPO_Stats",
     "Flows on their way into or out of the network hardware."},
    // ---- core
    {"ryn_core_usage_ratio", MetricType::kGauge, "core", "core", "ratio",
     "Ryn_Dump_LB_PortStats, Ryn_Get_LCore_ID_Bitmap",
     "Busy share of a core's time, 0 to 1, between the balancer's last two looks.", true},
    // ---- balancer
    {"ryn_balancer_info", MetricType::kGauge, "balancer", "switch,algorithm", "",
     "com.talvor.kiv.ryn.loadbal, else Ryn_GetCurrentLBData",
     "Always 1. What the balancer of a switch goes by: none, cpu, count, or invalid."},
    {"ryn_balancer_weight", MetricType::kGauge, "balancer", "weight", "", "Ryn_GetLBWeights",
     "One of the balancer's eight weights."},
    // ---- queue
    {"ryn_uplink_queue_receive_packets_total", MetricType::kCounter, "queue", "switch,port,queue", "packets",
     "Ryn_Get_Uplink_Queue_Stats", "Packets received by a queue of an uplink."},
    {"ryn_uplink_queue_receive_bytes_total", MetricType::kCounter, "queue", "switch,port,queue", "bytes",
     "Ryn_Get_Uplink_Queue_Stats", "Bytes received by a queue of an uplink."},
    {"ryn_uplink_queue_transmit_packets_total", MetricType::kCounter, "queue", "switch,port,queue", "packets",
     "Ryn_Get_Uplink_Queue_Stats", "Packets sent by a queue of an uplink."},
    {"ryn_uplink_queue_transmit_bytes_total", MetricType::kCounter, "queue", "switch,port,queue", "bytes",
     "Ryn_Get_Uplink_Queue_Stats", "Bytes sent by a queue of an uplink."},
    // ---- mac
    {"ryn_mac_entries", MetricType::kGauge, "mac", "switch", "addresses", "Ryn_Dump_Switch_MAC_Table",
     "Entries of the switch's MAC table."},
    {"ryn_mac_limit", MetricType::kGauge, "mac", "switch", "addresses", "Ryn_Dump_Switch_MAC_Table",
     "Entries that the switch's MAC table may have."},
    // ---- netq
    {"ryn_netq_filters", MetricType::kGauge, "netq", "switch,port", "filters", "Ryn_Get_Port_NetQ_Info",
     "Receive filters of the port in the network hardware."},
    // ---- mirror
    {"ryn_mirror_info", MetricType::kGauge, "mirror", "switch,session", "", "Ryn_Get_Mirror_Conf",
     "Always 1. A mirror session of the switch."},
    // ---- the exporter itself
    {"ryn_up", MetricType::kGauge, "", "", "", "the exporter", "1 while the last listing of the switches succeeded."},
    {"ryn_collector_success", MetricType::kGauge, "", "collector", "", "the exporter",
     "1 when the collector's last run succeeded, 0 when it failed or has run for longer than the time-out."},
    {"ryn_collector_duration_seconds", MetricType::kGauge, "", "collector", "seconds", "the exporter",
     "Time that the collector's last run took, or has taken so far.", true},
    {"ryn_collector_age_seconds", MetricType::kGauge, "", "collector", "seconds", "the exporter",
     "Age of the collector's values: time since its last run that succeeded.", true},
    {"ryn_build_info", MetricType::kGauge, "", "version,backend", "", "the exporter",
     "Always 1. The exporter's version, and whether the platform is the real one or a simulated host."},
};

// A row by its name; a name that is not there does not compile.
consteval const Metric* MetricOf(std::string_view name) {
  for (const Metric& metric : kMetrics) {
    if (metric.name == name)
      return &metric;
  }
  throw "no such metric";
}
