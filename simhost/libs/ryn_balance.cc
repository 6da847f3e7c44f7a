// Operations of libryn.so on the load balancer, cores and buffers.
#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "platform/ryn.h"
#include "simhost/host/session.h"
#include "simhost/time/balancer.h"
#include "simhost/traffic/counts.h"

namespace simhost {

namespace {

constexpr std::size_t kWeights = 8;

// A name of at most so many bytes, with or without a NUL at its end.
std::string_view PortsetOf(const char* portset, std::size_t size) {
  return portset != nullptr ? std::string_view(portset, strnlen(portset, size)) : std::string_view();
}

// In the platform's order, which is that of the table's positions.
std::uint32_t StoreWeights(Store& store, const std::uint32_t* weights) {
  Statement update = store.Prepare("UPDATE weight SET value = ? WHERE position = ?");
  for (std::size_t i = 0; i < kWeights; ++i)
    update.Run(weights[i], i);
  return kOk;
}

// The snapshot: a group for each core that has ports of the switch, a vertex for each port, an edge for each pair of
// ports that have something to say. Vertices are left out, the last ones first, until all fits.
class SnapshotWriter {
 public:
  SnapshotWriter(const Model& model, const Switch& sw, std::int64_t ms, Area& area)
      : model_(model), sw_(sw), ms_(ms), area_(area), included_(model.ports.size()) {}

  // Which vertices fit is known before any is written, since an edge stands with both of its ends.
  std::uint32_t Write() {
    if (!area_.Fits(0, kHead))
      return kNoRoom;
    area_.Clear(kHead);
    std::size_t groups = 0;
    for (const Core& core : model_.cores)
      groups += AddGroup(core.id, kHead + groups * kGroup) ? 1 : 0;
    const std::size_t start = kHead + groups * kGroup;

    // A vertex brings its own record and, for each edge to one that is in already, an entry at both ends.
    FindEdges();
    std::size_t vertices = 0;
    std::size_t size = 0;
    for (const int index : sw_.ports) {
      const std::size_t more = size + kVertex + NewEdges(index) * 2 * kEdge;
      if (!area_.Fits(start, more))
        break;
      size = more;
      included_[Index(index)] = true;
      ++vertices;
    }
    std::size_t at = start;
    for (std::size_t i = 0; i < vertices; ++i)
      at = WriteVertex(sw_.ports[i], at);
    area_.Put32(0, groups);
    area_.Put32(4, vertices);
    return kOk;
  }

 private:
  static constexpr std::size_t kHead = 8, kGroup = 37, kVertex = 20, kEdge = 12;

  // From a port to another, by their indexes. Thousands of packets a second: over the last period, and on average over
  // the last ones.
  struct Edge {
    int from = 0;
    int to = 0;
    std::uint64_t load = 0;
    std::uint64_t average = 0;
  };

  // Nothing for a core without ports of the switch.
  bool AddGroup(int core, std::size_t at) {
    std::uint64_t tx[2] = {};
    std::uint64_t rx[2] = {};
    for (const int index : sw_.ports) {
      const Port& port = model_.ports[Index(index)];
      const std::uint64_t bit = std::uint64_t{1} << port.id % 64;
      if (port.tx_core == core)
        tx[port.id / 64] |= bit;
      if (port.rx_core == core)
        rx[port.id / 64] |= bit;
    }
    if ((tx[0] | tx[1] | rx[0] | rx[1]) == 0 || !area_.Fits(at, kGroup))
      return false;
    area_.Put32(at, BusyPermille(model_, core) / 10);
    area_.Put8(at + 4, core);
    area_.Put64(at + 5, tx[0]);
    area_.Put64(at + 13, tx[1]);
    area_.Put64(at + 21, rx[0]);
    area_.Put64(at + 29, rx[1]);
    return true;
  }

  // From one port to another, as of the balancer's last look, all conversations between the two together. Pairs that
  // say less than a thousand packets a second have no edge.
  void FindEdges() {
    constexpr std::int64_t kAveraged = 12;  // looks that the moving average goes back
    const std::int64_t at = std::min(ms_, std::max<std::int64_t>(model_.balancer.tick_ms, 0));
    for (const Path& path : model_.paths) {
      if (model_.conversations[Index(path.conversation)].sw != sw_.id)
        continue;
      const std::uint64_t load = RateOf(model_, path, at, model_.balancer.period_ms) / 1000;
      const std::uint64_t average = RateOf(model_, path, at, kAveraged * model_.balancer.period_ms) / 1000;
      for (std::size_t leg = 0; leg < path.receivers; ++leg)
        edges_.push_back({path.in, path.legs[leg].port, load, average});
    }
    const auto ends = [](const Edge& edge) { return std::pair(edge.from, edge.to); };
    std::ranges::sort(edges_, {}, ends);
    std::size_t kept = 0;  // edges before it are whole
    for (const Edge& edge : edges_) {
      if (kept > 0 && ends(edges_[kept - 1]) == ends(edge)) {
        edges_[kept - 1].load += edge.load;
        edges_[kept - 1].average += edge.average;
      } else {
        edges_[kept++] = edge;
      }
    }
    edges_.resize(kept);
    std::erase_if(edges_, [](const Edge& edge) { return edge.load == 0 && edge.average == 0; });
  }

  bool Included(int index) const { return included_[Index(index)]; }

  // Edges between this port and those that are in already, in both directions.
  std::size_t NewEdges(int index) const {
    return static_cast<std::size_t>(std::ranges::count_if(edges_, [&](const Edge& edge) {
      return (edge.from == index && Included(edge.to)) || (edge.to == index && Included(edge.from));
    }));
  }

  // A vertex, then its edges: those that go out, then those that come in. Answers the offset behind them.
  std::size_t WriteVertex(int index, std::size_t at) {
    const Port& port = model_.ports[Index(index)];
    area_.Zero(at, kVertex);
    area_.Put32(at, port.id);
    area_.Put32(at + 4, 2'000'000 + port.dvport);  // its WID, a number of its own
    area_.Put32(at + 8, (port.active ? 1U : 0U) | (port.pinned ? 2U : 0U) | (port.IsUplink() ? 4U : 0U));
    std::size_t edge_at = at + kVertex;
    for (const bool outward : {true, false}) {
      std::size_t count = 0;
      for (const Edge& edge : edges_) {
        const int here = outward ? edge.from : edge.to;
        const int there = outward ? edge.to : edge.from;
        if (here != index || !Included(there))
          continue;
        area_.Put32(edge_at, model_.ports[Index(there)].id);
        area_.Put32(edge_at + 4, edge.load);
        area_.Put32(edge_at + 8, edge.average);
        edge_at += kEdge;
        ++count;
      }
      area_.Put32(at + (outward ? 12 : 16), count);
    }
    return edge_at;
  }

  const Model& model_;
  const Switch& sw_;
  std::int64_t ms_;
  Area& area_;
  std::vector<Edge> edges_;     // by their ends; few enough to be looked through for each port
  std::vector<bool> included_;  // by the port's index: it has a vertex
};

// What the balancer saw in its last window: a record for each port number and each core number, 0 for those that are
// not there. Work is in nanoseconds, time in nanoseconds of the host.
std::uint32_t WriteLoads(const Model& model, const Switch& sw, Area& stats) {
  constexpr std::size_t kHead = 8, kPort = 48, kCore = 48;
  constexpr std::size_t kCoreRecords = kHead + kPortsPerSwitch * kPort;
  constexpr std::size_t kSize = kCoreRecords + kCores * kCore;
  if (!stats.Fits(0, kSize))
    return kNoRoom;
  stats.Clear(kSize);
  const Balancer& balancer = model.balancer;
  stats.Put64(0, balancer.tick_ms);
  for (const int index : sw.ports) {
    const Port& port = model.ports[Index(index)];
    const std::size_t at = kHead + Index(port.id) * kPort;
    stats.Put32(at, port.dvport);
    stats.Put32(at + 4, port.pinned ? 1 : 0);
    stats.Put32(at + 8, port.tx_core);
    stats.Put32(at + 12, port.rx_core);
    for (std::size_t i = 0; i < 4; ++i)
      stats.Put64(at + 16 + 8 * i, balancer.ports[Index(index)].window[i]);
  }
  const auto now_ns = static_cast<std::uint64_t>(balancer.tick_ms) * 1'000'000;
  const auto window_ns = static_cast<std::uint64_t>(balancer.window_ms) * 1'000'000;
  for (const Core& core : model.cores) {
    const std::size_t at = kCoreRecords + Index(core.id) * kCore;
    // Busy time and host time at this look and at the one before it: readers work the window out as the differences.
    const std::uint64_t total = balancer.busy_total[Index(core.id)];
    const std::uint64_t work = balancer.busy_window[Index(core.id)];
    stats.Put64(at, total);
    stats.Put64(at + 8, total - std::min({total, work, window_ns}));  // never busy for longer than there was time
    stats.Put64(at + 16, now_ns);
    stats.Put64(at + 24, now_ns - std::min(now_ns, window_ns));
    stats.Put64(at + 32, work);
  }
  return kOk;
}

}  // namespace

}  // namespace simhost

using namespace simhost;

extern "C" {

#pragma GCC visibility push(default)

uint32_t Ryn_GetLBWeights(void* weights) {
  Area record(weights, kWeights * 4);
  return ReadHost({"Ryn_GetLBWeights", {}}, &record, [&](const View& host) {
    for (std::size_t i = 0; i < kWeights; ++i)
      record.Put32(4 * i, host.model.weights[i]);
    return kOk;
  });
}

// All eight at once; what shall stay as it is has to be given as it is.
uint32_t Ryn_SetLBWeights(const void* weights) {
  return ChangeHost({"Ryn_SetLBWeights", {}}, [&](Change& host) {
    uint32_t words[kWeights];
    std::memcpy(words, weights, sizeof words);
    return StoreWeights(host.store, words);
  });
}

uint32_t Ryn_ResetLBWeights(void) {
  return ChangeHost({"Ryn_ResetLBWeights", {}},
                    [&](Change& host) { return StoreWeights(host.store, host.model.default_weights.data()); });
}

// A version, 0, then the options in force: the same form as the property that may set them.
uint32_t Ryn_GetCurrentLBData(const char* portset, uint32_t portsetSize, void* options) {
  const std::string_view name = PortsetOf(portset, portsetSize);
  Area record(options, 24);
  return ReadHost({"Ryn_GetCurrentLBData", {{"switch", name}}}, &record, [&](const View& host) {
    const Switch* sw = host.model.FindSwitchByPortset(name);
    if (sw == nullptr)
      return kNotFound;
    const BalancerOptions& balancer = sw->balancer;
    const uint32_t words[] = {0, balancer.metric, balancer.high, balancer.low, balancer.pause, balancer.sensitivity};
    for (std::size_t i = 0; i < 6; ++i)
      record.Put32(4 * i, words[i]);
    return kOk;
  });
}

// swID is handed over by address. A snapshot shows the last look, not the present.
uint32_t Ryn_DumpLBSnapshot(const uint32_t* swID, void* snapshot, uint32_t* length) {
  Area area(snapshot, length);
  const uint32_t id = swID != nullptr ? *swID : 0xFFFFFFFF;
  return ReadHost({"Ryn_DumpLBSnapshot", {{"sw", id}}}, &area, [&](const View& host) {
    const Switch* sw = host.model.FindSwitch(id);
    if (sw == nullptr)
      return kNotFound;
    return area.Finish(SnapshotWriter(host.model, *sw, host.ms, area).Write());
  });
}

// Shows the last look as well, from the totals that it kept.
uint32_t Ryn_Dump_LB_PortStats(uint32_t swID, void* stats, uint32_t* length) {
  Area area(stats, length);
  return ReadHost({"Ryn_Dump_LB_PortStats", {{"sw", swID}}}, &area, [&](const View& host) {
    const Switch* sw = host.model.FindSwitch(swID);
    if (sw == nullptr)
      return kNotFound;
    return area.Finish(WriteLoads(host.model, *sw, area));
  });
}

uint32_t Ryn_GetSwitchNUMATeam(const char* portset, uint32_t portsetSize, uint8_t* flag) {
  const std::string_view name = PortsetOf(portset, portsetSize);
  Area answer(flag, 1);
  return ReadHost({"Ryn_GetSwitchNUMATeam", {{"switch", name}}}, &answer, [&](const View& host) {
    const Switch* sw = host.model.FindSwitchByPortset(name);
    if (sw == nullptr)
      return kNotFound;
    answer.Put8(0, sw->numa_team ? 1 : 0);
    return kOk;
  });
}

// What is in force: the property if it is well-formed, else the datapath's own value.
uint32_t Ryn_GetSwitchBurstSize(const char* portset, uint32_t* burst) {
  const std::string_view name = PortsetOf(portset, 128);
  Area answer(burst, sizeof *burst);
  return ReadHost({"Ryn_GetSwitchBurstSize", {{"switch", name}}}, &answer, [&](const View& host) {
    const Switch* sw = host.model.FindSwitchByPortset(name);
    if (sw == nullptr)
      return kNotFound;
    answer.Put32(0, sw->burst_size);
    return kOk;
  });
}

// All cores of the host, of which the switch may use some.
uint32_t Ryn_Get_LCore_ID_Bitmap(uint32_t swID, uint64_t* bitmap) {
  Area answer(bitmap, sizeof *bitmap);
  return ReadHost({"Ryn_Get_LCore_ID_Bitmap", {{"sw", swID}}}, &answer, [&](const View& host) {
    if (host.model.FindSwitch(swID) == nullptr)
      return kNotFound;
    uint64_t cores = 0;
    for (const Core& core : host.model.cores)
      cores |= uint64_t{1} << core.id;
    answer.Put64(0, cores);
    return kOk;
  });
}

// Packets cost a little less from then on.
uint32_t Ryn_Init_Mbuf_Fastslabs(void) {
  return ChangeHost({"Ryn_Init_Mbuf_Fastslabs", {}}, [&](Change& host) {
    host.store.Execute("UPDATE host SET fastslabs = 1");
    return kOk;
  });
}

// Says that this library is a stand-in of a simulated host.
extern const char ryn_sim_version[];
const char ryn_sim_version[] = "1";

#pragma GCC visibility pop

}  // extern "C"
