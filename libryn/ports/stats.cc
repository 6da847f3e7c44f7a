// GetPortStats: the counters of one port.

#include "host/native.h"
#include "host/records/ports.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/ports/ports.h"
#include "platform/ryn.h"

namespace {

struct Counter {
  Key key;
  std::uint64_t PortStats::*field;
};

// In the order of the result, which is not the order of the record: packets come before bytes.
constinit Counter kFastPath[] = {
    {Key("txPkts"), &PortStats::txPkts},           {Key("txBytes"), &PortStats::txBytes},
    {Key("txMcastPkts"), &PortStats::txMcastPkts}, {Key("txMcastBytes"), &PortStats::txMcastBytes},
    {Key("txBcastPkts"), &PortStats::txBcastPkts}, {Key("txBcastBytes"), &PortStats::txBcastBytes},
    {Key("txDrops"), &PortStats::txDrops},         {Key("txErrors"), &PortStats::txErrors},
    {Key("rxPkts"), &PortStats::rxPkts},           {Key("rxBytes"), &PortStats::rxBytes},
    {Key("rxMcastPkts"), &PortStats::rxMcastPkts}, {Key("rxMcastBytes"), &PortStats::rxMcastBytes},
    {Key("rxBcastPkts"), &PortStats::rxBcastPkts}, {Key("rxBcastBytes"), &PortStats::rxBcastBytes},
    {Key("rxDrops"), &PortStats::rxDrops},         {Key("rxErrors"), &PortStats::rxErrors},
};

constinit Counter kSlowPath[] = {
    {Key("spTxPkts"), &PortStats::txPkts},           {Key("spTxBytes"), &PortStats::txBytes},
    {Key("spTxMcastPkts"), &PortStats::txMcastPkts}, {Key("spTxMcastBytes"), &PortStats::txMcastBytes},
    {Key("spTxBcastPkts"), &PortStats::txBcastPkts}, {Key("spTxBcastBytes"), &PortStats::txBcastBytes},
    {Key("spTxDrops"), &PortStats::txDrops},         {Key("spTxErrors"), &PortStats::txErrors},
    {Key("spRxPkts"), &PortStats::rxPkts},           {Key("spRxBytes"), &PortStats::rxBytes},
    {Key("spRxMcastPkts"), &PortStats::rxMcastPkts}, {Key("spRxMcastBytes"), &PortStats::rxMcastBytes},
    {Key("spRxBcastPkts"), &PortStats::rxBcastPkts}, {Key("spRxBcastBytes"), &PortStats::rxBcastBytes},
    {Key("spRxDrops"), &PortStats::rxDrops},         {Key("spRxErrors"), &PortStats::rxErrors},
};

bool AddCounters(PyObject* dict, Counter (&counters)[16], const PortStats& stats) {
  for (Counter& counter : counters) {
    if (!SetOrReport(dict, counter.key, Int(stats.*counter.field)))
      return false;
  }
  return true;
}

}  // namespace

PyObject* PyRYN_Get_Port_Stats(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  if (!ParseArgs(args, &swID, &rynPortID) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  const auto stats = AllocateRecord<PortStats>();
  if (!stats)
    return NoneAfter("Failed to allocate memory.\n");

  std::uint32_t length = sizeof(PortStats);
  if (Ryn_Get_Port_Stats(swID, rynPortID, stats.get(), &length) != 0)
    return NoneAfter("Failed to retrieve port stats.\n");

  Ref dict(PyDict_New());
  if (!dict)
    return NoneAfter("Failed to allocate stats tuple.\n");  // Deliberate: the dict is called a tuple.
  if (!AddCounters(dict.get(), kFastPath, *stats))
    return NoneWithError();

  // Reuses the area, zeroed, and the length word that the first call left, but never more than the room.
  *stats = {};
  if (length > sizeof(PortStats))
    length = sizeof(PortStats);
  if (Ryn_Get_Port_Stats_Slowpath(swID, rynPortID, stats.get(), &length) != 0) {
    // Deliberate: the dict is abandoned, one leaks per failing call; it is neither returned nor released.
    static_cast<void>(dict.release());
    return NoneAfter("Failed to retrieve slowpath port stats.\n");
  }
  if (!AddCounters(dict.get(), kSlowPath, *stats))
    return NoneWithError();
  return dict.release();
}
