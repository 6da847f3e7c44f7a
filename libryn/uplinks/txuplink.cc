// The transmit policy of a port: how it picks the uplink for what it sends, and from which uplinks.

#include <algorithm>
#include <iterator>
#include <string_view>

#include "host/records/uplinks.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/uplinks/uplinks.h"
#include "platform/ryn.h"

namespace {

constinit Key kTxType{"txType"};
constinit Key kTxUplinks{"txUplinks"};

constexpr const char* kTypeNames[] = {"None", "Single", "LAG", "SrcMAC", "All", "NoTeaming"};

const char* TypeName(std::uint8_t code) { return code < std::size(kTypeNames) ? kTypeNames[code] : "Unknown"; }

// A new reference to an item of a dict; null when there is none.
Ref Lookup(PyObject* dict, Key& key) {
  PyObject* const name = key.Object();
  return NewRef(name ? PyDict_GetItemWithError(dict, name) : nullptr);
}

// A new reference to an item of a list; null with Python's error set when the list has become shorter.
Ref ListItem(PyObject* list, std::uint32_t index) { return NewRef(PyList_GetItem(list, index)); }

}  // namespace

PyObject* PyRYN_Get_Port_Tx_Uplink(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  if (!ParseArgs(args, &swID, &rynPortID) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  TxUplinks policy = {};
  std::uint32_t length = sizeof(policy);
  if (Ryn_Get_Port_Tx_Uplink(swID, rynPortID, &policy, &length) != 0)
    return NoneAfter("Failed to get port TX uplink.\n");

  Ref list = NewList(policy.count);
  if (!list)
    return None();
  for (std::uint32_t i = 0; i < policy.count; ++i) {
    // A count above the room of the record shows zeros behind it.
    Ref uplink = Int(i < kMaxTxUplinks ? policy.uplinks[i] : 0);
    // Deliberate: null, with the error that Python set and without one of ours.
    if (!uplink || PyList_SetItem(list.get(), i, uplink.release()) != 0)
      return nullptr;
  }
  // Deliberate: the dict takes a reference of its own, and ours is never dropped: one list leaks per call.
  return Py_BuildValue("{s:s, s:O}", "txType", TypeName(policy.txType), "txUplinks", list.release());
}

PyObject* PyRYN_Set_Port_Tx_Uplink(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  PyObject* policy;
  if (!ParseArgs(args, &swID, &rynPortID, &policy) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  const Ref type = PyDict_Check(policy) ? Lookup(policy, kTxType) : nullptr;
  Py_ssize_t length;
  const char* const typeName = type ? PyUnicode_AsUTF8AndSize(type.get(), &length) : nullptr;
  if (!typeName)
    return NoneAfter("Missing txType.\n");
  const std::string_view wanted(typeName, static_cast<std::size_t>(length));
  const auto* const found = std::find(std::begin(kTypeNames), std::end(kTypeNames), wanted);
  if (found == std::end(kTypeNames))
    return NoneAfter("Invalid txType %s.\n", typeName);

  // Our own references: an item's conversion may run the caller's code, which may change the dict and the list.
  const Ref list = Lookup(policy, kTxUplinks);
  if (!list)
    return NoneAfter("Missing txUplinks.\n");
  const auto count = static_cast<std::uint32_t>(PyList_Size(list.get()));  // -1 for what is not a list
  if (count > kMaxTxUplinks)
    return NoneAfter("Too many uplinks.\n");

  DeferredError error;
  std::uint32_t uplinks[kMaxTxUplinks] = {};
  for (std::uint32_t i = 0; i < count; ++i) {
    const Ref item = ListItem(list.get(), i);
    uplinks[i] = LowWord(item.get(), &error);
  }
  const auto code = static_cast<std::uint32_t>(found - kTypeNames);
  if (Ryn_Set_Port_Tx_Uplink(swID, rynPortID, code, count, uplinks) != 0)
    return NoneAfter("Failed to set port TX uplink.\n");
  return None();
}
