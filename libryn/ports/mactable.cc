// MAC tables: of a port, of a switch, and single entries.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "host/native.h"
#include "host/records/ports.h"
#include "libryn/base/call.h"
#include "libryn/base/text.h"
#include "libryn/base/values.h"
#include "libryn/ports/ports.h"
#include "platform/ryn.h"

namespace {

constinit Key kMacLimit{"MacLimit"};
constinit Key kLimitExceeded{"LimitExceeded"};
constinit Key kMacTableList{"MacTableList"};

constinit Key kMacAddr{"macAddr"};
constinit Key kVlanID{"vlanID"};
constinit Key kRynPortID{"rynPortID"};
constinit Key kMacGenDiff{"macGenDiff"};

// Ints of a table's columns: a number that recurs is often the same object as in an earlier row. In the benchmark's
// table a row takes 290 bytes that way instead of 311, and less where VLANs recur. A small table prepares few slots.
class IntCache {
 public:
  explicit IntCache(std::uint32_t rows) : used_(std::bit_ceil(std::clamp(rows, 1U, kMostSlots))) {
    std::fill_n(objects_, used_, nullptr);
  }
  IntCache(const IntCache&) = delete;
  IntCache& operator=(const IntCache&) = delete;
  ~IntCache() {
    for (std::uint32_t i = 0; i < used_; ++i)
      Py_XDECREF(objects_[i]);
  }

  Ref Get(std::uint32_t number) {
    if (number > kMostNumber)
      return Int(number);
    const std::uint32_t slot = number & (used_ - 1);
    if (!objects_[slot] || numbers_[slot] != number) {
      Py_XDECREF(objects_[slot]);
      objects_[slot] = Int(number).release();
      numbers_[slot] = static_cast<std::uint16_t>(number);
    }
    return NewRef(objects_[slot]);
  }

 private:
  static constexpr std::uint32_t kMostSlots = 1024;  // 10 KiB on the stack, which may be as small as 32 KiB
  static constexpr std::uint32_t kMostNumber = 0xFFFF;

  std::uint32_t used_;             // a power of two
  PyObject* objects_[kMostSlots];  // owned
  std::uint16_t numbers_[kMostSlots];
};

// Null with Python's error set.
Ref EntryDict(const MacEntry& entry, IntCache& ints) {
  Ref dict(PyDict_New());
  const bool built =
      dict && Set(dict.get(), kMacAddr, MacText(entry.mac)) && Set(dict.get(), kVlanID, ints.Get(entry.vlanID)) &&
      Set(dict.get(), kRynPortID, Int(entry.rynPortID)) && Set(dict.get(), kMacGenDiff, ints.Get(entry.macGenDiff));
  return built ? std::move(dict) : nullptr;
}

bool AddEntries(PyObject* dict, const MacEntry* entries, std::uint32_t count) {
  const Ref list = SetNewList(dict, kMacTableList, count);
  if (!list)
    return false;
  const GcUntracked untracked(list.get());
  IntCache ints(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!SetItemOrReport(list.get(), i, EntryDict(entries[i], ints)))
      return false;
  }
  return true;
}

PyObject* PyRYN_MAC_Entry_Ops(PyObject* args, std::uint32_t operation) {
  std::uint32_t swID, rynPortID, vlanID;
  long long mac;
  if (!ParseArgs(args, &swID, &rynPortID, &mac, &vlanID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  // Deliberate: the high half of the VLAN argument takes the place of the low half of the switch ID, so an ordinary
  // call reaches switch 0, not the switch it names.
  swID = (swID & 0xFFFF0000) + (vlanID >> 16);
  if (!IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  std::uint8_t bytes[6];
  std::memcpy(bytes, &mac, sizeof(bytes));  // lowest byte first
  if (Ryn_MAC_Entry_Ops(swID, rynPortID, bytes, static_cast<std::uint16_t>(vlanID), operation) == 0)
    return None();
  // Deliberate: the first of the two messages has no line end.
  return operation == kAddEntry ? NoneAfter("Failed to add a MAC entry.") : NoneAfter("Failed to delete MAC entry.\n");
}

}  // namespace

PyObject* PyRYN_List_Port_MACTable(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;  // the datapath checks the port
  if (!ParseArgs(args, &swID, &rynPortID) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  const auto table = AllocateRecord<PortMacTable>();
  if (!table)
    return NoneAfter("Failed to allocate memory.\n");

  std::uint32_t length = sizeof(PortMacTable);
  if (Ryn_Dump_Port_MAC_Table(swID, rynPortID, table.get(), &length) != 0)
    return NoneAfter("Failed to retrieve mac table.\n");

  Ref dict(PyDict_New());
  if (!dict)
    return NoneAfter("Failed to allocate mac table.\n");
  if (!SetOrReport(dict.get(), kMacLimit, Int(table->macLimit)) ||
      !SetOrReport(dict.get(), kLimitExceeded, Int(table->limitExceeded)) ||
      !AddEntries(dict.get(), table->entries, std::min(table->count, kMaxPortMacs)))
    return NoneWithError();
  return dict.release();
}

PyObject* PyRYN_List_Switch_MACTable(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!ParseArgs(args, &swID) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  const auto table = AllocateRecord<SwitchMacTable>();
  if (!table)
    return NoneAfter("Failed to allocate memory.\n");

  std::uint32_t length = sizeof(SwitchMacTable);
  if (Ryn_Dump_Switch_MAC_Table(swID, table.get(), &length) != 0)
    return NoneAfter("Failed to retrieve switch mac table.\n");

  Ref dict(PyDict_New());
  if (!dict)
    return NoneAfter("Failed to allocate switch mac table.\n");
  if (!SetOrReport(dict.get(), kMacLimit, Int(table->macLimit)) ||
      !AddEntries(dict.get(), table->entries, std::min(table->count, kMaxSwitchMacs)))
    return NoneWithError();
  return dict.release();
}

PyObject* PyRYN_Clear_Port_MACTable(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;  // the datapath checks the port
  if (!ParseArgs(args, &swID, &rynPortID) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  if (Ryn_Clear_Port_MAC_Table(swID, rynPortID) != 0)
    return NoneAfter("Failed to clear mac table.\n");
  return None();
}

PyObject* PyRYN_Clear_Switch_MACTable(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!ParseArgs(args, &swID) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  if (Ryn_Clear_Switch_MAC_Table(swID) != 0)
    return NoneAfter("Failed to clear mac table.\n");
  return None();
}

PyObject* PyRYN_Add_MAC_Entry(PyObject*, PyObject* args) { return PyRYN_MAC_Entry_Ops(args, kAddEntry); }

PyObject* PyRYN_Del_MAC_Entry(PyObject*, PyObject* args) { return PyRYN_MAC_Entry_Ops(args, kDeleteEntry); }
