// Platform's methods for the flow cache: walks, counters of cores, controls.

#include "host/read/flows.h"
#include "host/change/datapath.h"
#include "host/operations.h"
#include "ryn/_core/platform.h"

namespace ryn {

using namespace operations;

namespace {

// ---- Walks --------------------------------------------------------------------------------------------------------

// The flows of one core that match, page by page. Iterated by one thread at a time.
struct FlowIterator {
  PyObject head;
  double timeout;
  std::uint32_t dvs;
  std::uint32_t core;
  bool offloaded;
  bool busy;   // a page is being fetched
  bool ended;  // by a failure
  FlowMatch match;
  ::FlowWalk walk;
  FlowPage* page;  // owned
  ::FlowEntries entries;
};

struct PageWork {
  ::FlowWalk walk;
  Operation operation;
  HeapArea<FlowPage> page;

  void Run(Line& line) {
    page.reset(static_cast<FlowPage*>(std::malloc(sizeof(FlowPage))));
    if (page)
      line.Call(operation, [this] { return walk.NextPage(page.get()); });
    else
      line.Fail(operation, NoMemory(kDumpFlowTable));
  }
};

// After a failure the walk is at its end.
bool FetchPage(FlowIterator* self) {
  self->busy = true;
  const std::uint32_t flag = self->offloaded;
  PageWork work = {self->walk, Operation(kDumpFlowTable, self->dvs, self->core, self->walk.Index(), flag), nullptr};
  PyObject* const fetched = Perform(self->timeout, std::move(work), [self](PageWork& done) {
    std::free(self->page);
    self->page = done.page.release();
    self->walk = done.walk;
    return None().release();
  });
  self->busy = false;
  if (!fetched) {
    self->ended = true;
    return false;
  }
  Py_DECREF(fetched);
  self->entries = ::FlowEntries(*self->page);
  return true;
}

PyObject* Next(PyObject* object) {
  auto* const self = As<FlowIterator>(object);
  if (self->busy) {
    PyErr_SetString(PyExc_ValueError, "another thread waits for the next flow");
    return nullptr;
  }
  for (;;) {
    FlowFields flow;
    flow.dvs = self->dvs;
    flow.core = self->core;
    flow.offloaded = self->offloaded;
    for (FlowEntry entry; self->page && !self->ended && self->entries.Next(&entry);) {
      ReadFlow(entry, &flow);
      if (self->match.Matches(flow))
        return records_api->new_flow(flow);
    }
    if (self->ended || self->walk.Done() || !FetchPage(self) || PyErr_CheckSignals() != 0)
      return nullptr;
  }
}

void Deallocate(PyObject* self) {
  std::free(As<FlowIterator>(self)->page);
  PyObject_Free(self);
}

PyTypeObject MakeWalkType() {
  PyTypeObject type = StaticType("ryn._core.FlowWalk");
  type.tp_doc = "An iterator over flows, which fetches them page by page.";
  type.tp_basicsize = sizeof(FlowIterator);
  type.tp_dealloc = Deallocate;
  type.tp_iter = PyObject_SelfIter;
  type.tp_iternext = Next;
  return type;
}

PyObject* Flows(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, core;
  PyObject *offloaded, *filter;
  if (!ReadArguments("flows", values, count, Switch(&dvs), Number{&core, "core", 31}, Object{&offloaded},
                     Object{&filter}))
    return nullptr;
  const int flag = PyObject_IsTrue(offloaded);
  if (flag < 0)
    return nullptr;
  if (filter != Py_None && Py_TYPE(filter) != records_api->flow_filter) {
    PyErr_Format(PyExc_TypeError, "expected a FlowFilter or None, not %.100s", Py_TYPE(filter)->tp_name);
    return nullptr;
  }
  auto* const walk = PyObject_New(FlowIterator, &flow_walk_type);
  if (!walk)
    return nullptr;
  walk->timeout = TimeoutOf(self);
  walk->dvs = dvs;
  walk->core = core;
  walk->offloaded = flag != 0;
  walk->busy = false;
  walk->ended = false;
  walk->match = filter == Py_None ? FlowMatch{} : As<FlowFilter>(filter)->match;
  walk->walk = ::FlowWalk(dvs, core, flag != 0);
  walk->page = nullptr;
  return reinterpret_cast<PyObject*>(walk);
}

// ---- Counters of cores --------------------------------------------------------------------------------------------

constexpr std::uint32_t kMaxCores = 64;

// Asks for 32 cores at a time, as many as an answer has room for.
template <class Stats>
struct CoreStats {
  static constexpr std::uint32_t kQuestions = kMaxCores / kMaxLcoreRecords;
  static_assert(kMaxCores % kMaxLcoreRecords == 0);

  std::uint32_t dvs;
  std::uint32_t cores[kMaxCores];
  std::uint32_t count = 0;
  HeapArea<Stats> stats[kQuestions];

  template <class Name, class Read>
  void Ask(Line& line, Name name, Read read) {
    for (std::uint32_t asked = 0; asked < count; asked += kMaxLcoreRecords) {
      LcoreList list;
      list.count = std::min(count - asked, kMaxLcoreRecords);
      std::memcpy(list.ids, cores + asked, list.count * sizeof(*cores));
      const Operation operation = name(list);
      HeapArea<Stats>& answer = stats[asked / kMaxLcoreRecords];
      answer = AllocateRecord<Stats>();
      if (!answer) {
        line.Fail(operation, NoMemory(operation.name));
        return;
      }
      if (!line.Call(operation, [&] { return read(list, answer.get()); }))
        return;
    }
  }

  template <class Make>
  PyObject* Records(Make make) {
    Ref list(PyList_New(0));
    for (const HeapArea<Stats>& answer : stats) {
      for (std::uint32_t i = 0; list && answer && i < answer->count; ++i) {
        const Ref record = make(answer->records[i]);
        if (!record || PyList_Append(list.get(), record.get()) != 0)
          return nullptr;
      }
    }
    return list.release();
  }
};

constexpr std::uint32_t kFlowStatsOption = 0;  // the operation's own; what others mean is not known

struct FlowStatsWork : CoreStats<FlowStats> {
  void Run(Line& line) {
    Ask(
        line,
        [&](const LcoreList& list) {
          return Operation(kGetFlowStats, dvs, Argument::Numbers(list.ids, list.count), list.count, kFlowStatsOption);
        },
        [&](const LcoreList& list, FlowStats* answer) { return GetFlowStats(dvs, list, kFlowStatsOption, answer); });
  }
};

struct FpoStatsWork : CoreStats<FPOLcoreStats> {
  void Run(Line& line) {
    Ask(
        line,
        [&](const LcoreList& list) {
          return Operation(kGetFPOStats, dvs, Argument::Numbers(list.ids, list.count), list.count);
        },
        [&](const LcoreList& list, FPOLcoreStats* answer) { return GetFPOStats(dvs, list, answer); });
  }
};

PyObject* CoreFlowStats(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  FlowStatsWork work;
  if (!ReadArguments("flow_stats", values, count, Switch(&work.dvs),
                     Numbers{work.cores, &work.count, "cores", kMaxCores}))
    return nullptr;
  return Perform(TimeoutOf(self), std::move(work), [](FlowStatsWork& done) {
    return done.Records([](const FlowStatsRecord& core) {
      return Record(RecordTypeOf(kFlowStats), Int(core.lcoreID), Int(core.numFlows), Int(core.hits), Int(core.miss),
                    Int(core.fpoHits), Int(core.localHits), Int(core.keyInsertFailCount));
    });
  });
}

PyObject* CoreFpoStats(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  FpoStatsWork work;
  if (!ReadArguments("fpo_stats", values, count, Switch(&work.dvs),
                     Numbers{work.cores, &work.count, "cores", kMaxCores}))
    return nullptr;
  return Perform(TimeoutOf(self), std::move(work), [](FpoStatsWork& done) {
    return done.Records([](const FPOLcoreRecord& core) {
      return Record(RecordTypeOf(kFpoStats), Int(core.lcoreID), Int(core.hits), Int(core.markMismatched),
                    Int(core.pnicMismatched), Int(core.delayMarkMatching), Int(core.ephemeralFlows),
                    Int(core.transientFlows));
    });
  });
}

// ---- Controls -----------------------------------------------------------------------------------------------------

PyObject* ClearFlows(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs;
  if (!ReadArguments("clear_flows", values, count, Switch(&dvs)))
    return nullptr;
  return Change(self, Operation(kClearSwitchFlowTable, dvs), [=] { return ClearSwitchFlowTable(dvs); });
}

PyObject* SetFlowCache(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t dvs, on;
  if (!ReadArguments("set_flow_cache", values, count, Switch(&dvs), Flag(&on, "on")))
    return nullptr;
  return Change(self, Operation(kEnableSwitchFlowCache, dvs, on), [=] { return EnableSwitchFlowCache(dvs, on); });
}

PyObject* FlowTimeout(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  if (!ReadArguments("flow_timeout", values, count))
    return nullptr;
  return Get<std::uint32_t>(self, Operation(kGetFlowTimeout), GetFlowTimeout,
                            [](const std::uint32_t& seconds) { return Int(seconds); });
}

PyObject* ChangeFlowTimeout(PyObject* self, PyObject* const* values, Py_ssize_t count) {
  std::uint32_t seconds;
  if (!ReadArguments("set_flow_timeout", values, count, Number{&seconds, "seconds"}))
    return nullptr;
  return Change(self, Operation(kSetFlowTimeout, seconds), [=] { return SetFlowTimeout(seconds); });
}

}  // namespace

PyTypeObject flow_walk_type = MakeWalkType();

PyMethodDef flow_methods[] = {
    Row("flows", Flows,
        "flows($self, switch, core, offloaded, filter, /)\n--\n\n"
        "An iterator over the flows of a core (0 to 31) that match a FlowFilter, all with None. Pages are fetched "
        "while\n"
        "it is iterated."),
    Row("flow_stats", CoreFlowStats,
        "flow_stats($self, switch, cores, /)\n--\n\nA list of FlowStats of at most 64 cores, asked for 32 at a time."),
    Row("fpo_stats", CoreFpoStats,
        "fpo_stats($self, switch, cores, /)\n--\n\nA list of FpoStats of at most 64 cores, asked for 32 at a time."),
    Row("clear_flows", ClearFlows, "clear_flows($self, switch, /)\n--\n\nClears the flow cache of a switch."),
    Row("set_flow_cache", SetFlowCache, "set_flow_cache($self, switch, on, /)\n--\n\nSwitches it on or off."),
    Row("flow_timeout", FlowTimeout, "flow_timeout($self, /)\n--\n\nThe host's flow timeout in seconds."),
    Row("set_flow_timeout", ChangeFlowTimeout, "set_flow_timeout($self, seconds, /)\n--\n\nSets it."),
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace ryn
