// DumpLBPortStats: the balancer's latest figures of ports and cores.

#include "loadbal/portstats.h"

#include "loadbal/loadbal.h"
#include "module/call.h"
#include "module/native.h"
#include "module/values.h"
#include "platform/ryn.h"

namespace {

constexpr std::uint64_t kLoadUnit = 100000;

std::uint64_t LoadUnits(std::uint64_t work) { return (work + kLoadUnit - 1) / kLoadUnit; }

// A difference of marks in units of 2 to the power 20, rounded up.
std::uint64_t RoundedDifference(std::uint64_t now, std::uint64_t before) { return (now + 0xFFFFF - before) >> 20; }

// What a counter's share of the work of a core makes of the core's usage, times `scale`.
std::uint64_t Usage(const LBCoreRecord (&cores)[kMaxStatsCores], std::uint32_t core, std::uint64_t counter,
                    std::uint64_t scale) {
  if (core >= kMaxStatsCores)
    return 0;
  const LBCoreRecord& record = cores[core];
  const std::uint64_t period = RoundedDifference(record.timeNow, record.timeBefore);
  const std::uint64_t busy = RoundedDifference(record.busyNow, record.busyBefore);
  const std::uint64_t divisor = period * record.workTotal;  // may wrap, to 0 as well
  return divisor == 0 ? 0 : busy * scale * counter / divisor;
}

Ref UnsignedInt(std::uint64_t figure) { return Ref(PyLong_FromUnsignedLong(figure)); }

// A tuple of `size` items, item i being make(i); null with Python's error set.
template <class Make>
Ref BuildTuple(std::size_t size, Make make) {
  Ref tuple = NewTuple(size);
  for (std::size_t i = 0; tuple && i < size; ++i) {
    if (!PutItem(tuple.get(), i, make(i)))
      tuple.reset();
  }
  return tuple;
}

// All ints are made before the tuple, so that no empty place is ever seen.
template <std::size_t size>
Ref FigureTuple(const std::uint64_t (&figures)[size]) {
  Ref ints[size];
  for (std::size_t i = 0; i < size; ++i) {
    ints[i] = UnsignedInt(figures[i]);
    if (!ints[i])
      return nullptr;
  }
  Ref tuple(PyTuple_New(size));
  for (std::size_t i = 0; tuple && i < size; ++i)
    PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i), ints[i].release());
  return tuple;
}

}  // namespace

PortFigures FiguresOf(const LBPortRecord& port, const LBCoreRecord (&cores)[kMaxStatsCores]) {
  const std::uint64_t(&c)[4] = port.counters;
  const auto [a, b] = port.cores;
  // The first two counters count double.
  return {{
      Usage(cores, a, c[0], 200),
      Usage(cores, b, c[1], 200),
      Usage(cores, a, c[2], 100),
      Usage(cores, b, c[3], 100),
      LoadUnits(2 * c[0] + c[2]),
      LoadUnits(2 * c[1] + c[3]),
  }};
}

CoreFigures FiguresOf(const LBCoreRecord& core) {
  // Raw differences here, not rounded as they are for ports.
  const std::uint64_t period = core.timeNow - core.timeBefore;
  const std::uint64_t usage = period == 0 ? 0 : (core.busyNow - core.busyBefore) * 100 / period;
  return {{usage, LoadUnits(core.workTotal)}};
}

namespace {

// Five columns with an item for each of `count` ports from `first` on, and one with an item for each core.
bool FillResult(PyObject* result, const LBPortStats& stats, std::uint32_t first, std::uint32_t count) {
  const auto ports = [&](auto item) {
    return BuildTuple(count, [&](std::size_t i) { return item(stats.ports[first + i]); });
  };
  return PutItem(result, 0, ports([](const LBPortRecord& port) { return Int(port.p0); })) &&
         PutItem(result, 1, ports([](const LBPortRecord& port) { return Int(port.p1); })) &&
         PutItem(result, 2, ports([](const LBPortRecord& port) { return Int(port.cores[0]); })) &&
         PutItem(result, 3, ports([](const LBPortRecord& port) { return Int(port.cores[1]); })) &&
         PutItem(result, 4,
                 ports([&](const LBPortRecord& port) { return FigureTuple(FiguresOf(port, stats.cores).values); })) &&
         PutItem(result, 5, BuildTuple(kMaxStatsCores, [&](std::size_t core) {
                   return FigureTuple(FiguresOf(stats.cores[core]).values);
                 }));
}

}  // namespace

PyObject* PyRYN_DumpLBPortStats(PyObject*, PyObject* args) {
  std::uint32_t swID, first, last;
  if (!ParseArgs(args, &swID, &first, &last) || !IsSwitch(swID) || !IsPort(first) || !IsPort(last) || first > last + 1)
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  LBPortStats stats = {};
  std::uint32_t length = sizeof(stats);
  if (Ryn_Dump_LB_PortStats(swID, &stats, &length) != 0)
    return NoneAfter("ValueError: Failed to dump LB statistics.\n");

  Ref result = NewTuple(6);
  if (!result || !FillResult(result.get(), stats, first, last + 1 - first))
    return None();
  return result.release();
}
