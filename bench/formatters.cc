// The native formatters by themselves, against snprintf and inet_ntop.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "bench/format.h"
#include "host/snapshot.h"
#include "host/text.h"
#include "libryn/include/libryn.h"

namespace {

constexpr std::size_t kRecords = 1024;

std::vector<std::uint8_t> RandomBytes(std::size_t size) {
  std::mt19937 generator(1);
  std::vector<std::uint8_t> bytes(size);
  for (auto& byte : bytes)
    byte = static_cast<std::uint8_t>(generator());
  return bytes;
}

template <void (*format)(const std::uint8_t*, char*)>
void Mac(benchmark::State& state) {
  const auto bytes = RandomBytes(6 * kRecords);
  char text[18];
  std::size_t i = 0;
  for (auto _ : state) {
    format(bytes.data() + 6 * (i++ % kRecords), text);
    benchmark::DoNotOptimize(text);
  }
}

// Keys of 64 bytes, all of IPv4 or all of IPv6.
std::vector<std::uint8_t> Keys(bool isIPv6) {
  auto bytes = RandomBytes(64 * kRecords);
  for (std::size_t at = 12; at < bytes.size(); at += 64)
    bytes[at] = static_cast<std::uint8_t>((bytes[at] & 0xF0) | (isIPv6 ? 2 : 0));
  return bytes;
}

void WithPrint(const std::uint8_t* key, char* text) { FormatFlowKey(key, text, LIBRYN_FLOW_KEY_TEXT_SIZE); }
void WithModule(const std::uint8_t* key, char* text) { FCFlowKeyToStr(key, text); }

template <void (*format)(const std::uint8_t*, char*), bool isIPv6>
void FlowKeyLine(benchmark::State& state) {
  const auto keys = Keys(isIPv6);
  char text[LIBRYN_FLOW_KEY_TEXT_SIZE];
  std::size_t i = 0;
  for (auto _ : state) {
    format(keys.data() + 64 * (i++ % kRecords), text);
    benchmark::DoNotOptimize(text);
  }
}

// Actions of 240 bytes: KCPInputChildPort, DFW, VI, PI, VNI.
std::vector<std::uint8_t> Actions() {
  auto bytes = RandomBytes(240 * kRecords);
  for (std::size_t at = 0; at < bytes.size(); at += 240) {
    const std::uint32_t bitmap = 0x001014C4;
    std::memcpy(bytes.data() + at + 56, &bitmap, sizeof(bitmap));
    bytes[at + 61] = 8;
  }
  return bytes;
}

void ActionsWithPrint(const std::uint8_t* actions, char* text) { FormatActions(actions, text, 512); }
void ActionsWithModule(const std::uint8_t* actions, char* text) { FCActionsToStr(actions, text, 512, 240); }
void StatsWithPrint(const std::uint8_t* actions, char* text) { FormatStats(actions, text, 128); }
void StatsWithModule(const std::uint8_t* actions, char* text) { FCActionsStatsToStr(actions, text, 128); }

template <void (*format)(const std::uint8_t*, char*)>
void ActionsLine(benchmark::State& state) {
  const auto records = Actions();
  char text[512];
  std::size_t i = 0;
  for (auto _ : state) {
    format(records.data() + 240 * (i++ % kRecords), text);
    benchmark::DoNotOptimize(text);
  }
}

LBSnapshot FullSnapshot() {
  LBSnapshot snapshot = {};
  const auto bytes = RandomBytes(sizeof(snapshot.records));
  std::memcpy(snapshot.records, bytes.data(), bytes.size());
  snapshot.groupCount = 20;
  std::size_t at = 20 * sizeof(LBGroup);
  for (std::uint32_t edges[2] = {4, 4}; at + 116 <= sizeof(snapshot.records); at += 116, ++snapshot.vertexCount)
    std::memcpy(snapshot.records + at + 12, edges, sizeof(edges));
  return snapshot;
}

void SnapshotWithPrint(benchmark::State& state) {
  const LBSnapshot snapshot = FullSnapshot();
  char text[16384];
  for (auto _ : state)
    benchmark::DoNotOptimize(FormatSnapshot(snapshot, text, sizeof(text)));
}

void SnapshotWithModule(benchmark::State& state) {
  const LBSnapshot snapshot = FullSnapshot();
  char area[16384];
  for (auto _ : state) {
    BoundedText text(area, sizeof(area));
    AppendSnapshot(snapshot, &text);
    benchmark::DoNotOptimize(text.Length());
  }
}

BENCHMARK(Mac<FormatMac>)->Name("MAC address/snprintf");
BENCHMARK(Mac<WriteMac>)->Name("MAC address/module");
BENCHMARK(FlowKeyLine<WithPrint, false>)->Name("flow key, IPv4/snprintf");
BENCHMARK(FlowKeyLine<WithModule, false>)->Name("flow key, IPv4/module");
BENCHMARK(FlowKeyLine<WithPrint, true>)->Name("flow key, IPv6/snprintf");
BENCHMARK(FlowKeyLine<WithModule, true>)->Name("flow key, IPv6/module");
BENCHMARK(ActionsLine<ActionsWithPrint>)->Name("actions/snprintf");
BENCHMARK(ActionsLine<ActionsWithModule>)->Name("actions/module");
BENCHMARK(ActionsLine<StatsWithPrint>)->Name("flow statistics/snprintf");
BENCHMARK(ActionsLine<StatsWithModule>)->Name("flow statistics/module");
BENCHMARK(SnapshotWithPrint)->Name("snapshot/snprintf");
BENCHMARK(SnapshotWithModule)->Name("snapshot/module");

}  // namespace

BENCHMARK_MAIN();
