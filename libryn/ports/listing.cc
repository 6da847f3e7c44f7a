// ListSwitches, ListPorts: the inventory of the datapath.

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "host/native.h"
#include "host/records/ports.h"
#include "libryn/base/call.h"
#include "libryn/base/text.h"
#include "libryn/base/values.h"
#include "libryn/ports/ports.h"
#include "platform/ryn.h"

namespace {

constinit Key kName{"name"};
constinit Key kSwID{"swID"};
constinit Key kMaxPortCount{"maxPorts"};
constinit Key kNumActivePorts{"numActivePorts"};
constinit Key kNumPorts{"numPorts"};
constinit Key kMtu{"mtu"};
constinit Key kNumLcores{"numLcores"};
constinit Key kLcores{"lcores"};

constinit Key kPortID{"portID"};
constinit Key kRynPortID{"rynPortID"};
constinit Key kNumTxQ{"numTxQ"};
constinit Key kNumRxQ{"numRxQ"};
constinit Key kHwAddr{"hwAddr"};
constinit Key kNumMACs{"numMACs"};
constinit Key kClientType{"clientType"};
constinit Key kTxQLM{"txQLM"};
constinit Key kRxQLM{"rxQLM"};

constinit Key kClientTypes[] = {Key("UNKNOWN"), Key("VNIC"), Key("UPLINK"), Key("GENERIC"), Key("QOBNIC")};

Ref ClientType(std::uint32_t code) { return Share(kClientTypes[code < std::size(kClientTypes) ? code : 0].Object()); }

bool FillSwitch(PyObject* dict, const SwitchRecord& record) {
  return Store(dict, kName, Text(FieldText(record.name))) && Store(dict, kSwID, Int(record.swID)) &&
         Store(dict, kMaxPortCount, Int(record.maxPorts)) && Store(dict, kNumActivePorts, Int(record.numActivePorts)) &&
         Store(dict, kNumPorts, Int(record.numPorts)) && Store(dict, kMtu, Int(record.mtu)) &&
         Store(dict, kNumLcores, Int(record.numLcores)) && Store(dict, kLcores, Int(record.lcores));
}

// One value per queue; a queue count above the room of the record is cut to it.
Ref Queues(std::uint32_t count, const std::uint8_t (&values)[kMaxQueues]) {
  return ValueList(std::min(count, kMaxQueues), [&](std::size_t i) { return Int(values[i]); });
}

bool FillPort(PyObject* dict, const PortRecord& record) {
  return Store(dict, kPortID, Int(record.portID)) && Store(dict, kRynPortID, Int(record.rynPortID)) &&
         Store(dict, kNumTxQ, Int(record.numTxQ)) && Store(dict, kNumRxQ, Int(record.numRxQ)) &&
         Store(dict, kHwAddr, MacText(record.hwAddr)) && Store(dict, kNumMACs, Int(record.numMACs)) &&
         Store(dict, kClientType, ClientType(record.clientType)) &&
         Store(dict, kTxQLM, Queues(record.numTxQ, record.txQLM)) &&
         Store(dict, kRxQLM, Queues(record.numRxQ, record.rxQLM));
}

}  // namespace

PyObject* PyRYN_List_Switches(PyObject*, PyObject*) {
  const auto answer = AllocateRecord<SwitchList>();
  if (!answer)
    return NoneAfter("Failed to allocate memory.\n");

  std::uint32_t length = sizeof(SwitchList);
  if (Ryn_Get_Switch_List(answer.get(), &length) != 0)
    return NoneAfter("Failed to retrieve list of switches.\n");

  const std::uint32_t count = std::min(answer->count, kMaxSwitches);
  Ref list = NewList(count);
  if (!list)
    return NoneAfter("Failed to allocate buffer.\n");

  for (std::uint32_t i = 0; i < count; ++i) {
    const Ref dict = StoreNewDict(list.get(), i);
    if (!dict || !FillSwitch(dict.get(), answer->switches[i]))
      return NoneWithError();
  }
  return list.release();
}

PyObject* PyRYN_List_Ports(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!ParseArgs(args, &swID) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid switch ID passed.\n");

  const auto answer = AllocateRecord<PortList>();
  if (!answer)
    return NoneAfter("Failed to allocate memory.\n");

  std::uint32_t length = sizeof(PortList);
  if (Ryn_Get_Port_List(swID, answer.get(), &length) != 0)
    return NoneAfter("Failed to retrieve list of ports.\n");

  const std::uint32_t count = std::min<std::uint32_t>(answer->count, kMaxPorts);
  Ref list = NewList(count);
  if (!list)
    return NoneAfter("Failed to allocate port list.\n");

  for (std::uint32_t i = 0; i < count; ++i) {
    const Ref dict = StoreNewDict(list.get(), i);
    if (!dict || !FillPort(dict.get(), answer->ports[i]))
      return NoneWithError();
  }
  return list.release();
}
