// switch, port: the inventory, and the counters of ports.

#include <cstdio>

#include "exporter/collect/collect.h"
#include "exporter/settings.h"
#include "host/read/ports.h"

bool CollectSwitches(Round& round, Snapshot* snapshot) {
  Samples info{MetricOf("ryn_switch_info")};
  Samples mtu{MetricOf("ryn_switch_mtu_bytes")};
  Samples burst{MetricOf("ryn_switch_burst_size")};
  for (HostSwitch& hostSwitch : round.Switches()) {
    info.Add(
        LabelsOf(hostSwitch).Add("number", hostSwitch.number).Add("alias", hostSwitch.alias).Add("id", hostSwitch.id),
        {1});
    mtu.Add(LabelsOf(hostSwitch), {hostSwitch.mtu});
    BurstSize size = {};
    const Status status = ReadBurstSize(hostSwitch, &size);
    if (status.kind == Status::Kind::kInvalidResponse)
      continue;  // what is stored is no size
    if (round.Check(status, &hostSwitch))
      burst.Add(LabelsOf(hostSwitch), {size.packets});
    else if (!round.Gone())
      return false;
  }
  *snapshot = {std::move(info), std::move(mtu), std::move(burst)};
  return true;
}

namespace {

const char* KindName(std::uint32_t code) {
  constexpr const char* kNames[] = {"UNKNOWN", "VNIC", "UPLINK", "GENERIC", "QOBNIC"};
  return kNames[code < std::size(kNames) ? code : 0];
}

void AddCounters(const HostSwitch& hostSwitch, const HostPort& port, const char* path, const PortStats& stats,
                 Samples* samples) {
  samples->Add(LabelsOf(hostSwitch, port).Add("path", path),
               {stats.rxPkts, stats.rxBytes, stats.rxDrops, stats.rxErrors, stats.txPkts, stats.txBytes, stats.txDrops,
                stats.txErrors});
}

void AddInfo(const HostSwitch& hostSwitch, const HostPort& port, Samples* info, Samples* macs) {
  char mac[18];
  const std::uint8_t(&m)[6] = port.record.hwAddr;
  std::snprintf(mac, sizeof(mac), "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
  info->Add(LabelsOf(hostSwitch, port)
                .Add("dvport", port.record.portID)
                .Add("kind", KindName(port.record.clientType))
                .Add("mac", mac),
            {1});
  macs->Add(LabelsOf(hostSwitch, port), {port.record.numMACs});
}

}  // namespace

bool CollectPorts(Round& round, Snapshot* snapshot) {
  Samples info{MetricOf("ryn_port_info")};
  Samples macs{MetricOf("ryn_port_macs")};
  Samples counters{
      MetricOf("ryn_port_receive_packets_total"),  MetricOf("ryn_port_receive_bytes_total"),
      MetricOf("ryn_port_receive_drops_total"),    MetricOf("ryn_port_receive_errors_total"),
      MetricOf("ryn_port_transmit_packets_total"), MetricOf("ryn_port_transmit_bytes_total"),
      MetricOf("ryn_port_transmit_drops_total"),   MetricOf("ryn_port_transmit_errors_total"),
  };
  const bool done = round.ForEachPort([&](const HostSwitch& hostSwitch, const HostPort& port) {
    PortStats fast, slow;
    if (!round.Check(GetPortStats(hostSwitch.number, port.number, &fast), &hostSwitch, &port) ||
        !round.Check(GetPortStatsSlowpath(hostSwitch.number, port.number, &slow), &hostSwitch, &port))
      return round.Gone();
    AddInfo(hostSwitch, port, &info, &macs);
    AddCounters(hostSwitch, port, "fast", fast, &counters);
    AddCounters(hostSwitch, port, "slow", slow, &counters);
    return true;
  });
  *snapshot = {std::move(info), std::move(macs), std::move(counters)};
  return done;
}
