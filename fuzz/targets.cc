#include "targets.h"

#include "main.h"

namespace {

constexpr Target kTargets[] = {
    {"alias", FuzzAlias},
    {"balancer_figures", FuzzBalancerFigures},
    {"bounded_actions", FuzzBoundedActions},
    {"device_affinity", FuzzDeviceAffinity},
    {"fastslabs", FuzzFastslabs},
    {"flow_actions", FuzzFlowActions},
    {"flow_filter", FuzzFlowFilter},
    {"flow_key", FuzzFlowKey},
    {"flow_page", FuzzFlowPage},
    {"flow_statistics", FuzzFlowStatistics},
    {"flow_stats", FuzzFlowStats},
    {"flow_walk", FuzzFlowWalk},
    {"fpo_stats", FuzzFPOStats},
    {"mac_table", FuzzMacTable},
    {"mirror_conf", FuzzMirrorConf},
    {"mirror_sessions", FuzzMirrorSessions},
    {"netq", FuzzNetQ},
    {"netq_filters", FuzzNetQFilters},
    {"port_conf", FuzzPortConf},
    {"port_flags", FuzzPortFlags},
    {"port_list", FuzzPortList},
    {"port_macs", FuzzPortMacs},
    {"port_stats", FuzzPortStats},
    {"properties", FuzzProperties},
    {"snapshot", FuzzSnapshot},
    {"snapshot_records", FuzzSnapshotRecords},
    {"snapshot_text", FuzzSnapshotText},
    {"switch_directory", FuzzSwitchDirectory},
    {"switch_list", FuzzSwitchList},
    {"switch_macs", FuzzSwitchMacs},
    {"tx_uplink", FuzzTxUplink},
    {"uplink_stats", FuzzUplinkStats},
};

}  // namespace

std::span<const Target> Targets() { return kTargets; }
