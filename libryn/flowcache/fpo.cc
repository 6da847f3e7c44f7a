// Flow processing offload: a switch's setting, kept as a host property, and what the datapath reports about it.

#include <algorithm>

#include "host/native.h"
#include "host/records/flowcache.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/dvs/property.h"
#include "libryn/flowcache/flowcache.h"
#include "libryn/flowcache/lcores.h"
#include "platform/ryn.h"

namespace {

constinit Key kLcoreID{"lcoreID"};
constinit Key kHits{"hits"};
constinit Key kMarkMismatched{"markMismatched"};
constinit Key kPnicMismatched{"pnicMismatched"};
constinit Key kDelayMarkMatching{"delayMarkMatching"};
constinit Key kEphemeralFlows{"ephemeralFlows"};
constinit Key kTransientFlows{"transientFlows"};

// Null with Python's error set.
Ref RecordDict(const FPOLcoreRecord& record) {
  Ref dict(PyDict_New());
  const bool built = dict && Set(dict.get(), kLcoreID, Int(record.lcoreID)) &&
                     Set(dict.get(), kHits, LowWordInt(record.hits)) &&
                     Set(dict.get(), kMarkMismatched, LowWordInt(record.markMismatched)) &&
                     Set(dict.get(), kPnicMismatched, LowWordInt(record.pnicMismatched)) &&
                     Set(dict.get(), kDelayMarkMatching, LowWordInt(record.delayMarkMatching)) &&
                     Set(dict.get(), kEphemeralFlows, LowWordInt(record.ephemeralFlows)) &&
                     Set(dict.get(), kTransientFlows, LowWordInt(record.transientFlows));
  return built ? std::move(dict) : nullptr;
}

const char* LevelName(std::uint32_t code) {
  switch (code) {
    case 1:
      return "Model 1 Level 1";
    case 2:
      return "Model 1 Level 2";
    case 3:
      return "Model 2";
    default:
      return "Not Supported";
  }
}

}  // namespace

PyObject* PyRYN_GetFPOEnabled(PyObject*, PyObject* args) {
  const char* alias;
  if (!ParseArgs(args, &alias))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  SwitchId switchId;
  if (!FindSwitchIdOrReport(alias, &switchId))
    return None();

  PropertyValue value;
  const Status status = value.ReadHost(switchId.text, kFPOProperty);
  if (status.code == kNotFound)
    return Int(kDefaultFPO).release();
  if (!status.Ok())
    return NoneAfter("Failed to get DVS property com.talvor.kiv.ryn.fpo\n");
  if (value.Length() != sizeof(std::uint32_t))
    return NoneAfter("Format of property com.talvor.kiv.ryn.fpo is invalid\n");
  return Int(value.FirstWord()).release();
}

PyObject* PyRYN_EnableFPO(PyObject*, PyObject* args) {
  const char* alias;
  std::uint32_t setting;
  if (!ParseArgs(args, &alias, &setting))
    return FalseAfter("TypeError: Invalid parameter passed.\n");
  SwitchId switchId;
  if (!FindSwitchIdOrReport(alias, &switchId))
    return Bool(false);
  // Deliberate: a store that fails is told by its message alone, the answer is True all the same.
  SetPropertyOrReport(switchId, kFPOProperty, &setting, sizeof(setting));
  return Bool(true);
}

PyObject* PyRYN_Get_FPO_Stats(PyObject*, PyObject* args) {
  std::uint32_t swID;  // the datapath checks the switch
  PyObject* lcoreIDs;
  if (!ParseArgs(args, &swID, &lcoreIDs) || !IsLcoreTuple(lcoreIDs))
    return NoneAfter("TypeError: Invalid parameter passed.\n\n");

  const auto stats = AllocateRecord<FPOLcoreStats>();
  if (!stats)
    return NoneAfter("Failed to allocate memory.\n");

  DeferredError error;
  const LcoreList lcores = ReadLcores(lcoreIDs, &error);
  std::uint32_t length = sizeof(FPOLcoreStats);
  // Deliberate: the message is that of the flow statistics.
  if (Ryn_Get_FPO_Stats(swID, lcores.ids, lcores.count, stats.get(), &length) != 0)
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

PyObject* PyRYN_Get_FPO_Uplink_Status(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  if (!ParseArgs(args, &swID, &rynPortID) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  FPOUplinkCaps caps = {};
  std::uint32_t length = sizeof(caps);
  if (Ryn_Get_FPO_Uplink_Status(swID, rynPortID, &caps, &length) != 0)
    return NoneAfter("Failed to get FPO uplink status.\n");

  return Py_BuildValue("{s:s, s:I, s:I, s:I, s:I, s:I, s:I, s:I, s:L}", "level", LevelName(caps.level),
                       "numGroupSupported", caps.numGroupSupported, "numPrioritySupported", caps.numPrioritySupported,
                       "maxMarkActionBits", caps.maxMarkActionBits, "maxFlowsSupported", caps.maxFlowsSupported,
                       "maxCountersSupported", caps.maxCountersSupported, "maxFlowKeyLengthInBits",
                       caps.maxFlowKeyLengthInBits, "maxDecTTLActions", caps.maxDecTTLActions, "actionsSupported",
                       static_cast<long long>(caps.actionsSupported));
}
