// A scrape of the same host, over the platform double, in two ways: as the exporter does it, and with prometheus-cpp.
//
// Each line of standard input names one ("exporter", "prometheus-cpp"); the answer is a line with the CPU time in
// nanoseconds, the series and the bytes. bench/exporter.py runs it.

#include <prometheus/client_metric.h>
#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "exporter/collectors.h"
#include "exporter/options.h"
#include "exporter/round.h"
#include "host/read/ports.h"
#include "tests/double/double.h"

namespace {

constexpr std::uint32_t kSwitches = 16, kPorts = 128;

void Answer(const char* operation, const std::vector<unsigned char>& area) {
  DoubleAnswer answer = {};
  answer.times = -1;
  answer.area = area.data();
  answer.size = area.size();
  answer.length = -1;
  double_answer(operation, &answer);
}

void Put(std::vector<unsigned char>* area, std::size_t offset, std::uint64_t value, std::size_t size) {
  std::memcpy(area->data() + offset, &value, size);
}

// Every switch has the same ports, and every port the same counters.
void ScriptHost() {
  double_recording(0);
  std::vector<unsigned char> switches(2568), ports(11532), counters(128);
  Put(&switches, 0, kSwitches, 4);
  for (std::uint32_t i = 0; i < kSwitches; ++i) {
    const std::string name = "dvs-" + std::to_string(i) + "-set";
    std::memcpy(switches.data() + 8 + 160 * i, name.data(), name.size());
    Put(&switches, 8 + 160 * i + 128, i, 4);
  }
  Put(&ports, 4, kPorts, 4);
  for (std::uint32_t i = 0; i < kPorts; ++i) {
    Put(&ports, 12 + 90 * i, 1000 + i, 4);
    Put(&ports, 12 + 90 * i + 4, i, 4);
    Put(&ports, 12 + 90 * i + 18, 1, 4);
  }
  for (std::size_t i = 0; i < 16; ++i)
    Put(&counters, 8 * i, 123456789012 + i, 8);
  Answer("Ryn_Get_Switch_List", switches);
  Answer("Ryn_Get_Port_List", ports);
  Answer("Ryn_Get_Port_Stats", counters);
  Answer("Ryn_Get_Port_Stats_Slowpath", counters);
}

struct Result {
  std::size_t series, bytes;
};

bool List(Round* round) {
  round->Begin(std::chrono::steady_clock::now() + std::chrono::hours(1));
  return round->ListSwitches();
}

Result WithExporter(const Options& options) {
  static Buffer buffer;
  Configuration configuration;
  Round round(options, &configuration);
  Snapshot snapshot;
  constexpr std::size_t kPortCollector = 1;
  if (!List(&round) || !kCollectors[kPortCollector].collect(round, &snapshot))
    return {};
  buffer.Clear();
  std::size_t series = 0;
  for (const Samples& samples : snapshot) {
    series += samples.Rows() * samples.Columns();
    for (std::size_t column = 0; column < samples.Columns(); ++column)
      samples.Write(column, false, &buffer);
  }
  return {series, buffer.Size()};
}

prometheus::MetricFamily Family(const char* name, prometheus::MetricType type) {
  return {name, "Of the host.", type, {}};
}

// The same readings, as a collector of that library hands them over.
std::vector<prometheus::MetricFamily> Collect(const Options& options) {
  using prometheus::MetricType;
  std::vector<prometheus::MetricFamily> families = {
      Family("ryn_port_info", MetricType::Gauge),
      Family("ryn_port_macs", MetricType::Gauge),
      Family("ryn_port_receive_packets_total", MetricType::Counter),
      Family("ryn_port_receive_bytes_total", MetricType::Counter),
      Family("ryn_port_receive_drops_total", MetricType::Counter),
      Family("ryn_port_receive_errors_total", MetricType::Counter),
      Family("ryn_port_transmit_packets_total", MetricType::Counter),
      Family("ryn_port_transmit_bytes_total", MetricType::Counter),
      Family("ryn_port_transmit_drops_total", MetricType::Counter),
      Family("ryn_port_transmit_errors_total", MetricType::Counter),
  };
  Configuration configuration;
  Round round(options, &configuration);
  if (!List(&round))
    return {};
  round.ForEachPort([&](const HostSwitch& hostSwitch, const HostPort& port) {
    const std::string number = std::to_string(port.number);
    prometheus::ClientMetric info;
    info.label = {{"switch", hostSwitch.name},
                  {"port", number},
                  {"dvport", std::to_string(port.record.portID)},
                  {"kind", "VNIC"},
                  {"mac", "00:00:00:00:00:00"}};
    info.gauge.value = 1;
    families[0].metric.push_back(info);
    prometheus::ClientMetric macs;
    macs.label = {{"switch", hostSwitch.name}, {"port", number}};
    macs.gauge.value = port.record.numMACs;
    families[1].metric.push_back(macs);
    for (const char* path : {"fast", "slow"}) {
      PortStats stats;
      const auto read = path[0] == 'f' ? GetPortStats : GetPortStatsSlowpath;
      if (!read(hostSwitch.number, port.number, &stats).Ok())
        return false;
      const std::uint64_t values[] = {stats.rxPkts, stats.rxBytes, stats.rxDrops, stats.rxErrors,
                                      stats.txPkts, stats.txBytes, stats.txDrops, stats.txErrors};
      for (std::size_t i = 0; i < 8; ++i) {
        prometheus::ClientMetric metric;
        metric.label = {{"switch", hostSwitch.name}, {"port", number}, {"path", path}};
        metric.counter.value = static_cast<double>(values[i]);
        families[2 + i].metric.push_back(metric);
      }
    }
    return true;
  });
  return families;
}

Result WithPrometheusCpp(const Options& options) {
  const std::vector<prometheus::MetricFamily> families = Collect(options);
  std::ostringstream out;
  prometheus::TextSerializer().Serialize(out, families);
  std::size_t series = 0;
  for (const prometheus::MetricFamily& family : families)
    series += family.metric.size();
  return {series, out.str().size()};
}

long long CpuNs() {
  timespec time;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return time.tv_sec * 1000000000LL + time.tv_nsec;
}

}  // namespace

int main() {
  ScriptHost();
  const Options options;
  for (std::string way; std::getline(std::cin, way);) {
    const long long start = CpuNs();
    const Result result = way == "exporter" ? WithExporter(options) : WithPrometheusCpp(options);
    std::printf("%lld %zu %zu\n", CpuNs() - start, result.series, result.bytes);
    std::fflush(stdout);
  }
}
