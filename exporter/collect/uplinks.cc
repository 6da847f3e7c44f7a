// uplink, queue: the counters of uplinks and of their queues, and the state of the link.

#include <charconv>
#include <optional>
#include <string_view>

#include "exporter/collect/collect.h"
#include "host/read/uplinks.h"

namespace {

// The counters of an uplink's record that are offered, by their position.
enum Counter : std::size_t { kRxPackets, kTxPackets, kRxBytes, kTxBytes, kRxErrors, kTxErrors, kRxDrops, kTxDrops };

constexpr std::uint32_t kUplink = 2;  // of the kinds of ports

bool IsUplink(const HostPort& port) { return port.record.clientType == kUplink; }

// What the driver says of its link by a line "link_up: N"; nothing when it has no such line.
std::optional<bool> LinkUp(std::string_view text) {
  constexpr std::string_view kName = "link_up:";
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.starts_with(kName))
      continue;
    line.remove_prefix(kName.size());
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
    if (!line.empty() && line.find_first_not_of("0123456789") == line.npos)
      return line.find_first_not_of('0') != line.npos;
  }
  return std::nullopt;
}

// Adds the state of an uplink's link where the driver tells it; false after a failure.
bool AddLink(Round& round, const HostSwitch& hostSwitch, const HostPort& port, Samples* link) {
  std::uint32_t length = 0;
  if (!GetUplinkPrivStatsLen(hostSwitch.number, port.number, &length).Ok() || length == 0)
    return true;  // not every driver has a text
  PrivateStats stats;
  if (!round.Check(GetUplinkPrivStats(hostSwitch.number, port.number, length, &stats), &hostSwitch, &port))
    return round.Gone();
  if (const std::optional<bool> up = LinkUp(stats.Text()))
    link->Add(LabelsOf(hostSwitch, port), {*up ? 1U : 0U});
  return true;
}

// Reads the counters of `count` queues of an uplink and adds packets and bytes at these positions.
bool AddQueues(Round& round, const HostSwitch& hostSwitch, const HostPort& port, bool transmit, Samples* queues) {
  const std::uint32_t count = transmit ? port.record.numTxQ : port.record.numRxQ;
  for (std::uint32_t queue = 0; queue < count; ++queue) {
    UplinkStats stats;
    if (!round.Check(GetUplinkQueueStats(hostSwitch.number, port.number, queue, transmit, &stats), &hostSwitch, &port))
      return round.Gone();
    queues->Add(LabelsOf(hostSwitch, port).Add("queue", queue),
                {stats.counters[transmit ? kTxPackets : kRxPackets], stats.counters[transmit ? kTxBytes : kRxBytes]});
  }
  return true;
}

}  // namespace

bool CollectUplinks(Round& round, Snapshot* snapshot) {
  Samples counters{
      MetricOf("ryn_uplink_receive_packets_total"),  MetricOf("ryn_uplink_receive_bytes_total"),
      MetricOf("ryn_uplink_receive_drops_total"),    MetricOf("ryn_uplink_receive_errors_total"),
      MetricOf("ryn_uplink_transmit_packets_total"), MetricOf("ryn_uplink_transmit_bytes_total"),
      MetricOf("ryn_uplink_transmit_drops_total"),   MetricOf("ryn_uplink_transmit_errors_total"),
  };
  Samples link{MetricOf("ryn_uplink_link_up")};
  const bool done = round.ForEachPort([&](const HostSwitch& hostSwitch, const HostPort& port) {
    if (!IsUplink(port))
      return true;
    UplinkStats stats;
    if (!round.Check(GetUplinkStats(hostSwitch.number, port.number, &stats), &hostSwitch, &port))
      return round.Gone();
    const auto& c = stats.counters;
    counters.Add(LabelsOf(hostSwitch, port), {c[kRxPackets], c[kRxBytes], c[kRxDrops], c[kRxErrors], c[kTxPackets],
                                              c[kTxBytes], c[kTxDrops], c[kTxErrors]});
    return AddLink(round, hostSwitch, port, &link);
  });
  *snapshot = {std::move(counters), std::move(link)};
  return done;
}

bool CollectQueues(Round& round, Snapshot* snapshot) {
  Samples receive{MetricOf("ryn_uplink_queue_receive_packets_total"), MetricOf("ryn_uplink_queue_receive_bytes_total")};
  Samples transmit{MetricOf("ryn_uplink_queue_transmit_packets_total"),
                   MetricOf("ryn_uplink_queue_transmit_bytes_total")};
  const bool done = round.ForEachPort([&](const HostSwitch& hostSwitch, const HostPort& port) {
    return !IsUplink(port) ||
           (AddQueues(round, hostSwitch, port, false, &receive) && AddQueues(round, hostSwitch, port, true, &transmit));
  });
  *snapshot = {std::move(receive), std::move(transmit)};
  return done;
}
