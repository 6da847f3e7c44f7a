// Counters of uplinks and of their queues, private statistics, and two policies of a switch's uplinks.

#include <cstring>

#include "host/native.h"
#include "host/records/uplinks.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/uplinks/uplinks.h"
#include "platform/ryn.h"

namespace {

// In the order of the record.
constinit Key kCounterNames[kUplinkCounters] = {
    Key("rxPkts"),
    Key("txPkts"),
    Key("rxBytes"),
    Key("txBytes"),
    Key("rxErrors"),
    Key("txErrors"),
    Key("rxDrops"),
    Key("txDrops"),
    Key("rxMulticastPkts"),
    Key("rxBroadcastPkts"),
    Key("txMulticastPkts"),
    Key("txBroadcastPkts"),
    Key("collisions"),
    Key("rxLengthErrors"),
    Key("rxOverflowErrors"),
    Key("rxCRCErrors"),
    Key("rxFrameAlignErrors"),
    Key("rxFifoErrors"),
    Key("rxMissErrors"),
    Key("txAbortedErrors"),
    Key("txCarrierErrors"),
    Key("txFifoErrors"),
    Key("txHeartbeatErrors"),
    Key("txWindowErrors"),
};

// A (name, counter) tuple; null with Python's error set.
Ref CounterPair(Key& key, std::uint64_t counter) {
  PyObject* const name = key.Object();
  const Ref value = name ? Int(counter) : nullptr;
  return Ref(value ? PyTuple_Pack(2, name, value.get()) : nullptr);
}

// A list of 24 pairs, or None after a message on standard error; never null.
PyObject* UplinkStatsToList(const UplinkStats& stats) {
  Ref list = NewList(kUplinkCounters);
  if (!list)
    return NoneAfter("Failed to allocate uplink stats.\n");
  for (std::size_t i = 0; i < kUplinkCounters; ++i) {
    Ref pair = CounterPair(kCounterNames[i], stats.counters[i]);
    if (!pair)
      return NoneAfter("Failed to allocate uplink stats counter.\n");
    if (PyList_SetItem(list.get(), static_cast<Py_ssize_t>(i), pair.release()) != 0)
      return NoneAfter("Failed to set uplink stats counter.\n");
  }
  return list.release();
}

// The length of an uplink's private statistics; 0 also when the datapath does not report it.
std::uint32_t PrivateStatsLength(std::uint32_t swID, std::uint32_t rynPortID) {
  std::uint32_t statsLength = 0;
  std::uint32_t length = sizeof(statsLength);
  return Ryn_Get_Uplink_Priv_Stats_Len(swID, rynPortID, &statsLength, &length) == 0 ? statsLength : 0;
}

}  // namespace

PyObject* PyRYN_Get_Uplink_Stats(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  if (!ParseArgs(args, &swID, &rynPortID) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  const std::uint32_t privateLength = PrivateStatsLength(swID, rynPortID);
  HeapArea<char> privateStats;
  if (privateLength != 0) {
    privateStats.reset(static_cast<char*>(std::calloc(privateLength, 1)));
    if (!privateStats)
      return NoneAfter("Failed to allocate memory.\n");
    std::uint32_t length = privateLength;
    if (Ryn_Get_Uplink_Priv_Stats(swID, rynPortID, privateStats.get(), &length) != 0) {
      Report("Failed to get private stats.\n");
      return nullptr;  // Deliberate: no error is set; the interpreter complains of that itself.
    }
  }

  UplinkStats stats = {};
  std::uint32_t length = sizeof(stats);
  if (Ryn_Get_Uplink_Stats(swID, rynPortID, &stats, &length) != 0) {
    Report("Failed to get uplink stats.\n");
    return nullptr;  // Deliberate: as above.
  }

  // The text ends at the reported length at the latest, wherever its NUL is.
  const char* const text = privateStats ? privateStats.get() : "";
  const auto textLength = static_cast<Py_ssize_t>(strnlen(text, privateLength));
  // Deliberate: the dict takes a reference of its own, and ours is never dropped: one list leaks per call.
  return Py_BuildValue("{s:O, s:s#}", "uplinkStats", UplinkStatsToList(stats), "privStats", text, textLength);
}

PyObject* PyRYN_Get_Uplink_Queue_Stats(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID, queueKind, queue;
  if (!ParseArgs(args, &swID, &rynPortID, &queueKind, &queue) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  UplinkStats stats = {};
  std::uint32_t length = sizeof(stats);
  // Deliberate: the script names the kind first, the datapath the queue.
  if (Ryn_Get_Uplink_Queue_Stats(swID, rynPortID, queue, queueKind != 0, &stats, &length) != 0)
    return NoneAfter("Failed to get uplink stats.\n");
  return UplinkStatsToList(stats);
}

PyObject* PyRYN_Set_Uplink_MAC_Learn(PyObject*, PyObject* args) {
  std::uint32_t swID, enable;
  if (!ParseArgs(args, &swID, &enable) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  if (Ryn_Set_Uplink_MAC_Learn(swID, enable != 0) != 0)
    return NoneAfter("Failed to set uplink mac learn policy.\n");
  return None();
}

PyObject* PyRYN_Get_Panic_On_Tx_Hang(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!ParseArgs(args, &swID) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  std::uint32_t setting = 0;
  if (Ryn_Get_Panic_On_Tx_Hang(swID, &setting) != 0)
    return NoneAfter("Failed to get panic on Tx hang configuration.\n");
  return Int(setting).release();
}

PyObject* PyRYN_Set_Panic_On_Tx_Hang(PyObject*, PyObject* args) {
  std::uint32_t swID, setting;
  if (!ParseArgs(args, &swID, &setting) || !IsSwitch(swID) || setting > 1)
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  if (Ryn_Set_Panic_On_Tx_Hang(swID, setting) != 0)
    return NoneAfter("Failed to %s panic on Tx hang.\n", setting ? "enable" : "disable");
  return None();
}
