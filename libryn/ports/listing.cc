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

Ref ClientType(std::uint32_t code) { return NewRef(kClientTypes[code < std::size(kClientTypes) ? code : 0].Object()); }

bool FillSwitch(PyObject* dict, const SwitchRecord& record) {
  return SetOrReport(dict, kName, Text(FieldText(record.name))) && SetOrReport(dict, kSwID, Int(record.swID)) &&
         SetOrReport(dict, kMaxPortCount, Int(record.maxPorts)) &&
         SetOrReport(dict, kNumActivePorts, Int(record.numActivePorts)) &&
         SetOrReport(dict, kNumPorts, Int(record.numPorts)) && SetOrReport(dict, kMtu, Int(record.mtu)) &&
         SetOrReport(dict, kNumLcores, Int(record.numLcores)) && SetOrReport(dict, kLcores, Int(record.lcores));
}

// One value per queue; a queue count above the room of the record is clamped.
Ref Queues(std::uint32_t count, const std::uint8_t (&values)[kMaxQueues]) {
  return ValueList(std::min(count, kMaxQueues), [&](std::size_t i) { return Int(values[i]); });
}

bool FillPort(PyObject* dict, const PortRecord& record) {
  return SetOrReport(dict, kPortID, Int(record.portID)) && SetOrReport(dict, kRynPortID, Int(record.rynPortID)) &&
         SetOrReport(dict, kNumTxQ, Int(record.numTxQ)) && SetOrReport(dict, kNumRxQ, Int(record.numRxQ)) &&
         SetOrReport(dict, kHwAddr, MacText(record.hwAddr)) && SetOrReport(dict, kNumMACs, Int(record.numMACs)) &&
         SetOrReport(dict, kClientType, ClientType(record.clientType)) &&
         SetOrReport(dict, kTxQLM, Queues(record.numTxQ, record.txQLM)) &&
         SetOrReport(dict, kRxQLM, Queues(record.numRxQ, record.rxQLM));
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
    const Ref dict = SetNewDict(list.get(), i);
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
    const Ref dict = SetNewDict(list.get(), i);
    if (!dict || !FillPort(dict.get(), answer->ports[i]))
      return NoneWithError();
  }
  return list.release();
}
