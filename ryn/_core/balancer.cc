// Platform's methods for the load balancer: weights, topology, figures, what runs for a switch.

#include "host/read/balancer.h"
#include "host/change/datapath.h"
#include "host/figures.h"
#include "host/names.h"
#include "host/operations.h"
#include "ryn/_core/platform.h"

namespace ryn {

using namespace operations;

namespace {

// ---- Weights ------------------------------------------------------------------------------------------------------

PyObject* Weights(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  if (!ReadArguments("weights", values, count))
    return nullptr;
  return Get<LBWeights>(self, Operation(kGetLBWeights), GetLBWeights, [](const LBWeights& weights) {
    return RecordOf(RecordTypeOf(kWeightsRecord), kWeights, [&](std::size_t i) { return Int(weights.words[i]); });
  });
}

PyObject* SetWeights(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  LBWeights weights;
  std::uint32_t given;
  if (!ReadArguments("set_weights", values, count, Numbers{weights.words, &given, "weights", kWeights}))
    return nullptr;
  if (given != kWeights) {
    PyErr_Format(PyExc_ValueError, "%u weights: there are 8", given);
    return nullptr;
  }
  const auto& w = weights.words;
  return Change(self, Operation(kSetLBWeights, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]),
                [weights] { return SetLBWeights(weights); });
}

PyObject* ResetWeights(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  if (!ReadArguments("reset_weights", values, count))
    return nullptr;
  return Change(self, Operation(kResetLBWeights), ResetLBWeights);
}

// ---- Snapshot -----------------------------------------------------------------------------------------------------

Ref PortsOf(const LBPortSet& ports) {
  const std::uint64_t words[] = {ports.words[0], ports.words[1]};  // aligned, unlike those of the record
  return BitsOf(words, 2, kMaxStatsPorts);
}

Ref EdgeOf(const LBEdge& edge) {
  return Record(RecordTypeOf(kBalancerEdge), SignedInt(edge.peer), Int(edge.load), Int(edge.ema));
}

// A tuple of what `walk` finds, each made by `make`.
template <class Item, class Walk, class Make>
Ref TupleOfWalk(Walk walk, Make make) {
  const Ref list(PyList_New(0));
  for (Item item; list && walk.Next(&item);) {
    const Ref record = make(item, walk);
    if (!record || PyList_Append(list.get(), record.get()) != 0)
      return nullptr;
  }
  return Ref(list ? PyList_AsTuple(list.get()) : nullptr);
}

Ref GroupsOf(const LBSnapshot& snapshot) {
  return TupleOfWalk<LBGroup>(LBGroups(snapshot), [](const LBGroup& group, const LBGroups&) {
    return Record(RecordTypeOf(kBalancerGroup), SignedInt(group.load), PortsOf(group.txPorts), PortsOf(group.rxPorts));
  });
}

Ref VerticesOf(const LBSnapshot& snapshot) {
  return TupleOfWalk<LBVertex>(LBVertices(snapshot), [](const LBVertex& vertex, const LBVertices& vertices) {
    return Record(RecordTypeOf(kBalancerVertex), SignedInt(vertex.number), Int(vertex.wid), Int(vertex.flags),
                  Tuple(vertex.outCount, [&](std::size_t i) { return EdgeOf(vertices.OutEdge(i)); }),
                  Tuple(vertex.inCount, [&](std::size_t i) { return EdgeOf(vertices.InEdge(i)); }));
  });
}

PyObject* Snapshot(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs;
  if (!ReadArguments("balancer_snapshot", values, count, Switch(&dvs)))
    return nullptr;
  return Get<LBSnapshot>(
      self, Operation(kDumpLBSnapshot, dvs), [=](LBSnapshot* snapshot) { return DumpLBSnapshot(dvs, snapshot); },
      [](const LBSnapshot& snapshot) {
        const Ref groups = GroupsOf(snapshot), vertices = VerticesOf(snapshot);
        return Ref(groups && vertices ? PyTuple_Pack(2, groups.get(), vertices.get()) : nullptr);
      });
}

// ---- Figures ------------------------------------------------------------------------------------------------------

Ref PortFiguresOf(const LBPortStats& stats, std::size_t port) {
  const LBPortRecord& record = stats.ports[port];
  const PortFigures figures = FiguresOf(record, stats.cores);
  const std::uint64_t numbers[] = {port, record.p0, record.p1, record.cores[0], record.cores[1]};
  return RecordOf(RecordTypeOf(kBalancerPort), std::size(numbers) + std::size(figures.values), [&](std::size_t i) {
    return Int(i < std::size(numbers) ? numbers[i] : figures.values[i - std::size(numbers)]);
  });
}

Ref CoreFiguresOf(const LBPortStats& stats, std::size_t core) {
  const CoreFigures figures = FiguresOf(stats.cores[core]);
  return Record(RecordTypeOf(kBalancerCore), Int(core), Int(figures.values[0]), Int(figures.values[1]));
}

PyObject* Figures(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs;
  if (!ReadArguments("balancer_port_stats", values, count, Switch(&dvs)))
    return nullptr;
  return Get<LBPortStats>(
      self, Operation(kDumpLBPortStats, dvs), [=](LBPortStats* stats) { return DumpLBPortStats(dvs, stats); },
      [](const LBPortStats& stats) {
        const Ref ports = Tuple(kMaxStatsPorts, [&](std::size_t i) { return PortFiguresOf(stats, i); });
        const Ref cores = Tuple(kMaxStatsCores, [&](std::size_t i) { return CoreFiguresOf(stats, i); });
        return Ref(ports && cores ? PyTuple_Pack(2, ports.get(), cores.get()) : nullptr);
      });
}

// ---- What runs ----------------------------------------------------------------------------------------------------

// The datapath's name of a switch, cut to its 128 bytes.
struct PortsetOf {
  PortsetName* portset;

  bool operator()(PyObject* object) const {
    const Ref bytes = TextBytes(object);
    if (bytes)
      std::strncpy(portset->text, PyBytes_AS_STRING(bytes.get()), kPortsetNameBytes);
    return bytes != nullptr;
  }
};

// The name is the work's own: the operation is named while it is out.
struct OptionsWork {
  PortsetName portset;
  LBSwitchOptions options;

  void Run(Line& line) {
    line.Call(Operation(kGetCurrentLBData, portset.text, std::uint32_t{kPortsetNameBytes}),
              [this] { return GetCurrentLBData(portset.text, &options); });
  }
};

PyObject* RunningOptions(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  OptionsWork work;
  if (!ReadArguments("running_options", values, count, PortsetOf{&work.portset}))
    return nullptr;
  return Perform(TimeoutOf(self), work, [](OptionsWork& done) {
    const LBSwitchOptions& o = done.options;
    return Py_BuildValue("(IIIII)", o.metric, o.thresholdHigh, o.thresholdLow, o.pauseDifference, o.sensitivity);
  });
}

struct TeamingFlagWork {
  PortsetName portset;
  std::uint8_t flag;

  void Run(Line& line) {
    line.Call(Operation(kGetSwitchNUMATeam, portset.text, std::uint32_t{kPortsetNameBytes}),
              [this] { return GetSwitchNUMATeam(portset.text, &flag); });
  }
};

PyObject* RunningNumaTeaming(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  TeamingFlagWork work;
  if (!ReadArguments("running_numa_teaming", values, count, PortsetOf{&work.portset}))
    return nullptr;
  return Perform(TimeoutOf(self), work, [](TeamingFlagWork& done) { return Int(done.flag).release(); });
}

struct BurstWork {
  PortsetName portset;
  std::uint32_t burst;

  void Run(Line& line) {
    line.Call(Operation(kGetSwitchBurstSize, portset.text),
              [this] { return GetSwitchBurstSize(portset.text, &burst); });
  }
};

PyObject* RunningBurstSize(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  BurstWork work;
  if (!ReadArguments("running_burst_size", values, count, PortsetOf{&work.portset}))
    return nullptr;
  return Perform(TimeoutOf(self), work, [](BurstWork& done) { return Int(done.burst).release(); });
}

}  // namespace

PyMethodDef balancer_methods[] = {
    Row("weights", Weights, "weights($self, /)\n--\n\nThe Weights of the load balancer."),
    Row("set_weights", SetWeights, "set_weights($self, weights, /)\n--\n\nSets all 8, as they are given."),
    Row("reset_weights", ResetWeights, "reset_weights($self, /)\n--\n\nSets them to the datapath's defaults."),
    Row("balancer_snapshot", Snapshot,
        "balancer_snapshot($self, switch, /)\n--\n\nTuples of BalancerGroup and of BalancerVertex."),
    Row("balancer_port_stats", Figures,
        "balancer_port_stats($self, switch, /)\n--\n\nTuples of 128 BalancerPort and of 64 BalancerCore."),
    Row("running_options", RunningOptions,
        "running_options($self, portset, /)\n--\n\nMetric, high and low threshold, pause difference and sensitivity."),
    Row("running_numa_teaming", RunningNumaTeaming,
        "running_numa_teaming($self, portset, /)\n--\n\nWhether teaming heeds NUMA nodes: 0 is no."),
    Row("running_burst_size", RunningBurstSize, "running_burst_size($self, portset, /)\n--\n\nThe burst size."),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace ryn
