// DumpLBPortStats: the balancer's latest figures of ports and cores.

#include "host/figures.h"
#include "host/records/loadbal.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/loadbal/loadbal.h"
#include "platform/ryn.h"

namespace {

template <class Make>
bool FillTuple(PyObject* tuple, std::size_t size, Make make) {
  for (std::size_t i = 0; i < size; ++i) {
    Ref item = make(i);
    if (!item)
      return false;
    PyTuple_SET_ITEM(tuple, static_cast<Py_ssize_t>(i), item.release());
  }
  return true;
}

// Tuples of `size` ints, and of `size` tuples, item i being make(i); null with Python's error set. Making ints does not
// call the collector, making tuples does.
template <class Make>
Ref TupleOfInts(std::size_t size, Make make) {
  Ref tuple(PyTuple_New(static_cast<Py_ssize_t>(size)));
  if (tuple && !FillTuple(tuple.get(), size, make))
    return nullptr;
  return tuple;
}

template <class Make>
Ref TupleOfTuples(std::size_t size, Make make) {
  Ref tuple(PyTuple_New(static_cast<Py_ssize_t>(size)));
  if (!tuple || size == 0)
    return tuple;
  const GcUntracked untracked(tuple.get());
  return FillTuple(tuple.get(), size, make) ? std::move(tuple) : nullptr;
}

template <std::size_t size>
Ref FigureTuple(const std::uint64_t (&figures)[size]) {
  return TupleOfInts(size, [&](std::size_t i) { return Ref(PyLong_FromUnsignedLong(figures[i])); });
}

// Five columns with an item for each of `count` ports from `first` on, and one with an item for each core.
bool FillResult(PyObject* result, const LBPortStats& stats, std::uint32_t first, std::uint32_t count) {
  const auto column = [&](auto field) {
    return TupleOfInts(count, [&](std::size_t i) { return Int(field(stats.ports[first + i])); });
  };
  return SetItem(result, 0, column([](const LBPortRecord& port) { return port.p0; })) &&
         SetItem(result, 1, column([](const LBPortRecord& port) { return port.p1; })) &&
         SetItem(result, 2, column([](const LBPortRecord& port) { return port.cores[0]; })) &&
         SetItem(result, 3, column([](const LBPortRecord& port) { return port.cores[1]; })) &&
         SetItem(result, 4,
                 TupleOfTuples(count,
                               [&](std::size_t i) {
                                 return FigureTuple(FiguresOf(stats.ports[first + i], stats.cores).values);
                               })) &&
         SetItem(result, 5, TupleOfTuples(kMaxStatsCores, [&](std::size_t core) {
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
