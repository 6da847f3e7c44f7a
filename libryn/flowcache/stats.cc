// Counters and controls of the flow cache.

#include <algorithm>

#include "host/native.h"
#include "host/records/flowcache.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/flowcache/flowcache.h"
#include "libryn/flowcache/lcores.h"
#include "platform/ryn.h"

namespace {

constinit Key kLcoreID{"lcoreID"};
constinit Key kNumFlows{"numFlows"};
constinit Key kHits{"hits"};
constinit Key kMiss{"miss"};
constinit Key kFpoHits{"fpoHits"};
constinit Key kLocalHits{"localHits"};
constinit Key kKeyInsertFailCount{"keyInsertFailCount"};

// Null with Python's error set.
Ref RecordDict(const FlowStatsRecord& record) {
  Ref dict(PyDict_New());
  const bool built =
      dict && Set(dict.get(), kLcoreID, Int(record.lcoreID)) && Set(dict.get(), kNumFlows, Int(record.numFlows)) &&
      Set(dict.get(), kHits, LowWordInt(record.hits)) && Set(dict.get(), kMiss, LowWordInt(record.miss)) &&
      Set(dict.get(), kFpoHits, LowWordInt(record.fpoHits)) &&
      Set(dict.get(), kLocalHits, LowWordInt(record.localHits)) &&
      Set(dict.get(), kKeyInsertFailCount, LowWordInt(record.keyInsertFailCount));
  return built ? std::move(dict) : nullptr;
}

}  // namespace

PyObject* PyRYN_Get_Flow_Stats(PyObject*, PyObject* args) {
  std::uint32_t swID, option;  // the datapath checks the switch
  PyObject* lcoreIDs;
  if (!ParseArgs(args, &swID, &lcoreIDs, &option) || !IsLcoreTuple(lcoreIDs))
    return NoneAfter("TypeError: Invalid parameter passed.\n\n");

  const auto stats = AllocateRecord<FlowStats>();
  if (!stats)
    return NoneAfter("Failed to allocate memory.\n");

  DeferredError error;
  const LcoreList lcores = ReadLcores(lcoreIDs, &error);
  std::uint32_t length = sizeof(FlowStats);
  if (Ryn_Get_Flow_Stats(swID, lcores.ids, lcores.count, option, stats.get(), &length) != 0)
    return NoneAfter("Failed to retrieve flow stats.\n");

  const std::uint32_t count = std::min(stats->count, kMaxLcoreRecords);
  Ref list = NewList(count);
  if (!list)
    return NoneAfter("Failed to allocate memory.\n");
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!SetItemOrReport(list.get(), i, RecordDict(stats->records[i])))
      return NoneWithError();
  }
  return list.release();
}

PyObject* PyRYN_Clear_Switch_Flow_Table(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!ParseArgs(args, &swID) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  if (Ryn_Clear_Switch_Flow_Table(swID) != 0)
    return NoneAfter("Failed clear switch flow table\n");  // Deliberate: a word is missing.
  return None();
}

PyObject* PyRYN_Enable_Switch_Flow_Cache(PyObject*, PyObject* args) {
  std::uint32_t swID, enable;
  if (!ParseArgs(args, &swID, &enable) || !IsSwitch(swID) || enable > 1)
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  if (Ryn_Enable_Switch_Flow_Cache(swID, enable) != 0)
    return NoneAfter("Failed to %s switch flow cache.\n", enable ? "enable" : "disable");
  return None();
}

PyObject* PyRYN_GetFlowTimeout(PyObject*, PyObject*) {
  std::uint32_t seconds = 0;
  if (Ryn_Get_Flow_Timeout(&seconds) != 0)
    return NoneAfter("ValueError: Failed to get flow timeout.\n\n");
  return Int(seconds).release();
}

PyObject* PyRYN_SetFlowTimeout(PyObject*, PyObject* args) {
  std::uint32_t seconds;
  if (!ParseArgs(args, &seconds))
    return NoneAfter("TypeError: Invalid parameter passed.\n\n");
  if (Ryn_Set_Flow_Timeout(seconds) != 0)
    return NoneAfter("ValueError: Failed to set flow timeout.\n\n");
  return None();
}
