// mac, netq, mirror: how much is in tables that are large to read.

#include "exporter/collect/collect.h"
#include "host/read/ports.h"
#include "host/read/uplinks.h"

bool CollectMacs(Round& round, Snapshot* snapshot) {
  Samples macs{MetricOf("ryn_mac_entries"), MetricOf("ryn_mac_limit")};
  for (const HostSwitch& hostSwitch : round.Switches()) {
    HeapArea<SwitchMacTable> table;
    if (round.Check(DumpSwitchMACTable(hostSwitch.number, &table), &hostSwitch))
      macs.Add(LabelsOf(hostSwitch), {table->count, table->macLimit});
    else if (!round.Gone())
      return false;
  }
  *snapshot = {std::move(macs)};
  return true;
}

bool CollectFilters(Round& round, Snapshot* snapshot) {
  Samples filters{MetricOf("ryn_netq_filters")};
  const bool done = round.ForEachPort([&](const HostSwitch& hostSwitch, const HostPort& port) {
    HeapArea<NetQResponse> response;
    if (!round.Check(GetPortNetQInfo(hostSwitch.number, port.number, &response), &hostSwitch, &port))
      return round.Gone();
    filters.Add(LabelsOf(hostSwitch, port), {HeaderOf(*response).filterCount});
    return true;
  });
  *snapshot = {std::move(filters)};
  return done;
}

bool CollectMirrors(Round& round, Snapshot* snapshot) {
  Samples mirrors{MetricOf("ryn_mirror_info")};
  for (const HostSwitch& hostSwitch : round.Switches()) {
    const auto conf = AllocateRecord<MirrorConf>();
    if (!conf || !round.Check(GetMirrorConf(hostSwitch.number, conf.get()), &hostSwitch)) {
      if (!conf || !round.Gone())
        return false;
      continue;
    }
    std::vector<std::uint16_t> seen;
    MirrorSessions sessions(*conf);
    for (MirrorSession session; sessions.Next(&session);) {
      if (std::find(seen.begin(), seen.end(), session.index) != seen.end())
        continue;
      seen.push_back(session.index);
      mirrors.Add(LabelsOf(hostSwitch).Add("session", session.index), {1});
    }
  }
  *snapshot = {std::move(mirrors)};
  return true;
}
