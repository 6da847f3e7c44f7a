// The Python module `_literal`: the same results built the way that comes to mind first, with Py_BuildValue,
// PyDict_SetItemString and snprintf.
#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "bench/format.h"
#include "host/records/flowcache.h"
#include "host/records/loadbal.h"
#include "host/records/ports.h"
#include "host/records/uplinks.h"
#include "platform/jor_public.h"
#include "platform/ryn.h"

namespace {

void Set(PyObject* dict, const char* key, PyObject* value) {
  PyDict_SetItemString(dict, key, value);
  Py_DECREF(value);
}

void SetInt(PyObject* dict, const char* key, std::uint64_t value) {
  Set(dict, key, PyLong_FromLong(static_cast<long>(value)));
}

void SetText(PyObject* dict, const char* key, const char* text) { Set(dict, key, Py_BuildValue("s", text)); }

PyObject* MacTableOfSwitch(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!PyArg_ParseTuple(args, "I", &swID))
    return nullptr;
  auto* const table = static_cast<SwitchMacTable*>(std::calloc(1, sizeof(SwitchMacTable)));
  std::uint32_t length = sizeof(SwitchMacTable);
  Ryn_Dump_Switch_MAC_Table(swID, table, &length);
  PyObject* const dict = PyDict_New();
  SetInt(dict, "MacLimit", table->macLimit);
  PyObject* const list = PyList_New(table->count);
  for (std::uint32_t i = 0; i < table->count; ++i) {
    const MacEntry& entry = table->entries[i];
    char mac[18];
    FormatMac(entry.mac, mac);
    PyList_SetItem(list, i,
                   Py_BuildValue("{s:s, s:I, s:I, s:I}", "macAddr", mac, "vlanID", entry.vlanID, "rynPortID",
                                 entry.rynPortID, "macGenDiff", entry.macGenDiff));
  }
  Set(dict, "MacTableList", list);
  std::free(table);
  return dict;
}

void SetQueues(PyObject* dict, const char* key, std::uint32_t count, const std::uint8_t* values) {
  PyObject* const list = PyList_New(count);
  for (std::uint32_t i = 0; i < count; ++i)
    PyList_SetItem(list, i, PyLong_FromLong(values[i]));
  Set(dict, key, list);
}

PyObject* Ports(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!PyArg_ParseTuple(args, "I", &swID))
    return nullptr;
  auto* const answer = static_cast<PortList*>(std::calloc(1, sizeof(PortList)));
  std::uint32_t length = sizeof(PortList);
  Ryn_Get_Port_List(swID, answer, &length);
  PyObject* const list = PyList_New(answer->count);
  for (std::uint32_t i = 0; i < answer->count; ++i) {
    const PortRecord& port = answer->ports[i];
    PyObject* const dict = PyDict_New();
    PyList_SetItem(list, i, dict);
    char mac[18];
    FormatMac(port.hwAddr, mac);
    SetInt(dict, "portID", port.portID);
    SetInt(dict, "rynPortID", port.rynPortID);
    SetInt(dict, "numTxQ", port.numTxQ);
    SetInt(dict, "numRxQ", port.numRxQ);
    SetText(dict, "hwAddr", mac);
    SetInt(dict, "numMACs", port.numMACs);
    SetText(dict, "clientType", kClientTypeNames[port.clientType < 5 ? port.clientType : 0]);
    SetQueues(dict, "txQLM", port.numTxQ, port.txQLM);
    SetQueues(dict, "rxQLM", port.numRxQ, port.rxQLM);
  }
  std::free(answer);
  return list;
}

PyObject* Switches(PyObject*, PyObject*) {
  auto* const answer = static_cast<SwitchList*>(std::calloc(1, sizeof(SwitchList)));
  std::uint32_t length = sizeof(SwitchList);
  Ryn_Get_Switch_List(answer, &length);
  PyObject* const list = PyList_New(answer->count);
  for (std::uint32_t i = 0; i < answer->count; ++i) {
    const SwitchRecord& record = answer->switches[i];
    PyObject* const dict = PyDict_New();
    PyList_SetItem(list, i, dict);
    SetText(dict, "name", record.name);
    SetInt(dict, "swID", record.swID);
    SetInt(dict, "maxPorts", record.maxPorts);
    SetInt(dict, "numActivePorts", record.numActivePorts);
    SetInt(dict, "numPorts", record.numPorts);
    SetInt(dict, "mtu", record.mtu);
    SetInt(dict, "numLcores", record.numLcores);
    SetInt(dict, "lcores", record.lcores);
  }
  std::free(answer);
  return list;
}

PyObject* StatsOfPort(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  if (!PyArg_ParseTuple(args, "II", &swID, &rynPortID))
    return nullptr;
  PortStats stats = {};
  std::uint32_t length = sizeof(stats);
  Ryn_Get_Port_Stats(swID, rynPortID, &stats, &length);
  PyObject* const dict = PyDict_New();
  for (int slow = 0; slow < 2; ++slow) {
    if (slow)
      Ryn_Get_Port_Stats_Slowpath(swID, rynPortID, &stats, &length);
    for (int i = 0; i < 16; ++i) {
      std::uint64_t counters[16];
      std::memcpy(counters, &stats, sizeof(counters));
      SetInt(dict, (slow ? kSlowCounterNames : kCounterNames)[i], counters[kCounterPlaces[i]]);
    }
  }
  return dict;
}

PyObject* ConfOfPort(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  if (!PyArg_ParseTuple(args, "II", &swID, &rynPortID))
    return nullptr;
  auto* const conf = static_cast<PortConf*>(std::calloc(1, sizeof(PortConf)));
  std::uint32_t length = sizeof(PortConf);
  Ryn_Get_Port_Conf(swID, rynPortID, conf, &length);
  PyObject* const dict = PyDict_New();
  char text[120];
  SetInt(dict, "portID", conf->portID);
  FormatFlags(conf->flags, text, sizeof(text));
  SetText(dict, "flags", text);
  SetInt(dict, "ladrf", conf->ladrf);
  FormatMac(conf->hwAddr, text);
  SetText(dict, "hwAddr", text);
  SetInt(dict, "untaggedVlanID", conf->untaggedVlanID);
  SetInt(dict, "forgedMACAllowed", conf->forgedMACAllowed);
  SetInt(dict, "numMcastAddrs", conf->numMcastAddrs);
  SetInt(dict, "vni", conf->vni);
  SetInt(dict, "sampleRate", conf->sampleRate);
  if (conf->numMcastAddrs) {
    PyObject* const list = PyList_New(conf->numMcastAddrs);
    for (std::uint32_t i = 0; i < conf->numMcastAddrs; ++i) {
      FormatMac(conf->mcastAddrs[i], text);
      PyList_SetItem(list, i, Py_BuildValue("s", text));
    }
    Set(dict, "mcastAddrList", list);
  }
  SetInt(dict, "numTaggedVlanRanges", conf->numTaggedVlanRanges);
  if (conf->numTaggedVlanRanges) {
    PyObject* const list = PyList_New(conf->numTaggedVlanRanges);
    for (std::uint32_t i = 0; i < conf->numTaggedVlanRanges; ++i) {
      std::snprintf(text, sizeof(text), "%d-%d", conf->vlanRanges[i].first, conf->vlanRanges[i].last);
      PyList_SetItem(list, i, Py_BuildValue("s", text));
    }
    Set(dict, "vlanRanges", list);
  }
  std::free(conf);
  return dict;
}

PyObject* Flows(PyObject*, PyObject* args) {
  std::uint32_t swID, lcore, start, flag;
  if (!PyArg_ParseTuple(args, "IIII", &swID, &lcore, &start, &flag))
    return nullptr;
  auto* const page = static_cast<FlowPage*>(std::calloc(1, sizeof(FlowPage)));
  std::uint32_t length = sizeof(FlowPage);
  Ryn_Dump_Flow_Table(swID, lcore, start, page, &length, flag != 0);
  PyObject* const dict = PyDict_New();
  SetInt(dict, "startIndex", page->startIndex);
  PyObject* const list = PyList_New(page->count);
  Set(dict, "list", list);
  const auto* position = page->entries;
  for (std::uint32_t i = 0; i < page->count; ++i) {
    char key[257], actions[512], stats[128];
    FormatFlowKey(position, key, 256);
    FormatActions(position + 64, actions, sizeof(actions));
    FormatStats(position + 64, stats, sizeof(stats));
    PyList_SetItem(list, i, Py_BuildValue("{s:s, s:s, s:s}", "key", key, "actions", actions, "stats", stats));
    position += 64 + At<std::uint16_t>(position, 64 + 62);
  }
  std::free(page);
  return dict;
}

PyObject* StatsOfFlows(PyObject*, PyObject* args) {
  std::uint32_t swID, option, lcores[64];
  PyObject* ids;
  if (!PyArg_ParseTuple(args, "IOI", &swID, &ids, &option))
    return nullptr;
  const auto count = static_cast<std::uint32_t>(PyTuple_Size(ids));
  for (std::uint32_t i = 0; i < count; ++i)
    lcores[i] = static_cast<std::uint32_t>(PyLong_AsLong(PyTuple_GetItem(ids, i)));
  FlowStats stats = {};
  std::uint32_t length = sizeof(stats);
  Ryn_Get_Flow_Stats(swID, lcores, count, option, &stats, &length);
  PyObject* const list = PyList_New(stats.count);
  for (std::uint32_t i = 0; i < stats.count; ++i) {
    const FlowStatsRecord& record = stats.records[i];
    const auto low = [](std::uint64_t counter) { return static_cast<unsigned>(counter); };
    PyList_SetItem(
        list, i,
        Py_BuildValue("{s:I, s:I, s:I, s:I, s:I, s:I, s:I}", "lcoreID", record.lcoreID, "numFlows", record.numFlows,
                      "hits", low(record.hits), "miss", low(record.miss), "fpoHits", low(record.fpoHits), "localHits",
                      low(record.localHits), "keyInsertFailCount", low(record.keyInsertFailCount)));
  }
  return list;
}

PyObject* StatsOfQueue(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID, kind, queue;
  if (!PyArg_ParseTuple(args, "IIII", &swID, &rynPortID, &kind, &queue))
    return nullptr;
  UplinkStats stats = {};
  std::uint32_t length = sizeof(stats);
  Ryn_Get_Uplink_Queue_Stats(swID, rynPortID, queue, kind != 0, &stats, &length);
  PyObject* const list = PyList_New(24);
  for (int i = 0; i < 24; ++i)
    PyList_SetItem(list, i, Py_BuildValue("(s, l)", kUplinkCounterNames[i], static_cast<long>(stats.counters[i])));
  return list;
}

PyObject* PortNumbers(std::uint16_t count, const std::uint64_t* words) {
  PyObject* const list = PyList_New(count);
  int position = 0;
  for (int word = 0; word < 2; ++word) {
    for (int bit = 0; bit < 64 && position < count; ++bit) {
      if (words[word] >> bit & 1)
        PyList_SetItem(list, position++, PyLong_FromLong(64 * word + bit));
    }
  }
  return list;
}

PyObject* MirrorSessions(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!PyArg_ParseTuple(args, "I", &swID))
    return nullptr;
  auto* const conf = static_cast<MirrorConf*>(std::calloc(1, sizeof(MirrorConf)));
  std::uint32_t length = sizeof(MirrorConf);
  Ryn_Get_Mirror_Conf(swID, conf, &length);
  PyObject* const list = PyList_New(conf->sessionCount);
  const std::uint8_t* position = conf->sessions;
  for (int i = 0; i < conf->sessionCount; ++i) {
    const auto session = At<MirrorSession>(position, 0);
    PyObject* const dict = PyDict_New();
    PyList_SetItem(list, i, dict);
    SetInt(dict, "noInput", session.flags & 1);
    SetInt(dict, "noOutput", session.flags >> 1 & 1);
    SetInt(dict, "vlanEncap", session.flags >> 2 & 1);
    SetInt(dict, "OrigVlan", session.flags >> 3 & 1);
    SetInt(dict, "index", session.index);
    SetInt(dict, "encapVlanID", session.encapVlanID);
    SetInt(dict, "samplingRate", session.samplingRate);
    SetInt(dict, "snapLen", session.snapLen);
    Set(dict, "srcInPorts", PortNumbers(session.srcInCount, session.srcInPorts));
    Set(dict, "srcOutPorts", PortNumbers(session.srcOutCount, session.srcOutPorts));
    Set(dict, "dstPorts", PortNumbers(session.dstCount, session.dstPorts));
    PyObject* const vlans = PyList_New(session.vlanCount);
    for (int j = 0; j < session.vlanCount; ++j)
      PyList_SetItem(vlans, j, PyLong_FromLong(At<std::uint16_t>(position, 72 + 2 * static_cast<std::size_t>(j))));
    Set(dict, "vlans", vlans);
    position += 72 + (2 * session.vlanCount + 7) / 8 * 8;
  }
  std::free(conf);
  return list;
}

PyObject* NetQueues(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  if (!PyArg_ParseTuple(args, "II", &swID, &rynPortID))
    return nullptr;
  std::uint32_t length = 524288;
  auto* const response = static_cast<std::uint8_t*>(std::calloc(1, length));
  Ryn_Get_Port_NetQ_Info(swID, rynPortID, response, &length);
  const auto head = At<NetQHeader>(response, 0);
  PyObject* const dict = PyDict_New();
  SetInt(dict, "isUplink", head.isUplink);
  SetInt(dict, "swID", head.swID);
  SetInt(dict, "rynPortID", head.rynPortID);
  PyObject* const filters = PyList_New(head.filterCount);
  Set(dict, "filters", filters);
  const std::uint8_t* position = response + 16;
  for (int i = 0; i < head.filterCount; ++i) {
    const auto filter = At<NetQFilter>(position, 0);
    PyObject* const item = PyDict_New();
    PyList_SetItem(filters, i, item);
    char text[250];
    FormatFilter(position, text, sizeof(text));
    SetText(item, "rxf", text);
    PyObject* const queues = PyList_New(filter.queueCount);
    Set(item, "qInfo", queues);
    position += 8 + filter.bodyLength;
    for (int j = 0; j < filter.queueCount; ++j, position += 16) {
      const auto queue = At<NetQQueue>(position, 0);
      PyObject* const entry = PyDict_New();
      PyList_SetItem(queues, j, entry);
      SetInt(entry, "rynPortID", queue.rynPortID);
      SetInt(entry, "qid", queue.qid);
      SetInt(entry, "fid", queue.fid);
    }
  }
  std::free(response);
  return dict;
}

PyObject* Snapshot(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!PyArg_ParseTuple(args, "I", &swID))
    return nullptr;
  LBSnapshot snapshot = {};
  std::uint32_t length = sizeof(snapshot);
  Ryn_DumpLBSnapshot(&swID, &snapshot, &length);
  static char text[16384];
  const std::size_t size = FormatSnapshot(snapshot, text, sizeof(text));
  return PyUnicode_FromStringAndSize(text, static_cast<Py_ssize_t>(size));
}

PyObject* BalancerFigures(PyObject*, PyObject* args) {
  std::uint32_t swID, first, last;
  if (!PyArg_ParseTuple(args, "III", &swID, &first, &last))
    return nullptr;
  LBPortStats stats = {};
  std::uint32_t length = sizeof(stats);
  Ryn_Dump_LB_PortStats(swID, &stats, &length);
  const Py_ssize_t count = last + 1 - first;
  PyObject* const result = PyTuple_New(6);
  for (int i = 0; i < 5; ++i)
    PyTuple_SetItem(result, i, PyTuple_New(count));
  for (Py_ssize_t i = 0; i < count; ++i) {
    const LBPortRecord& port = stats.ports[first + static_cast<std::size_t>(i)];
    std::uint64_t figures[6];
    FiguresOfPort(port, stats.cores, figures);
    PyTuple_SetItem(PyTuple_GetItem(result, 0), i, Py_BuildValue("I", port.p0));
    PyTuple_SetItem(PyTuple_GetItem(result, 1), i, Py_BuildValue("I", port.p1));
    PyTuple_SetItem(PyTuple_GetItem(result, 2), i, Py_BuildValue("I", port.cores[0]));
    PyTuple_SetItem(PyTuple_GetItem(result, 3), i, Py_BuildValue("I", port.cores[1]));
    PyTuple_SetItem(PyTuple_GetItem(result, 4), i,
                    Py_BuildValue("(kkkkkk)", figures[0], figures[1], figures[2], figures[3], figures[4], figures[5]));
  }
  PyObject* const cores = PyTuple_New(64);
  PyTuple_SetItem(result, 5, cores);
  for (int i = 0; i < 64; ++i) {
    std::uint64_t figures[2];
    FiguresOfCore(stats.cores[i], figures);
    PyTuple_SetItem(cores, i, Py_BuildValue("(kk)", figures[0], figures[1]));
  }
  return result;
}

PyObject* LearnMacs(PyObject*, PyObject* args) {
  std::uint32_t swID, enable;
  if (!PyArg_ParseTuple(args, "II", &swID, &enable))
    return nullptr;
  Ryn_Set_Uplink_MAC_Learn(swID, enable != 0);
  Py_RETURN_NONE;
}

PyObject* BurstOfSwitch(PyObject*, PyObject* args) {
  const char* alias;
  if (!PyArg_ParseTuple(args, "s", &alias))
    return nullptr;
  BurstSize burst;
  if (!ReadBurstSize(alias, &burst))
    Py_RETURN_NONE;
  return Py_BuildValue("I", burst.packets);
}

PyMethodDef methods[] = {
    {"ListSwitchMACTable", MacTableOfSwitch, METH_VARARGS, ""},
    {"ListPorts", Ports, METH_VARARGS, ""},
    {"ListSwitches", Switches, METH_VARARGS, ""},
    {"GetPortStats", StatsOfPort, METH_VARARGS, ""},
    {"GetPortConf", ConfOfPort, METH_VARARGS, ""},
    {"DumpFlowTable", Flows, METH_VARARGS, ""},
    {"GetFlowStats", StatsOfFlows, METH_VARARGS, ""},
    {"GetUplinkQueueStats", StatsOfQueue, METH_VARARGS, ""},
    {"GetMirrorConf", MirrorSessions, METH_VARARGS, ""},
    {"GetPortNetQInfo", NetQueues, METH_VARARGS, ""},
    {"DumpLBSnapshot", Snapshot, METH_VARARGS, ""},
    {"DumpLBPortStats", BalancerFigures, METH_VARARGS, ""},
    {"SetUplinkMACLearn", LearnMacs, METH_VARARGS, ""},
    {"GetSwitchBurstSize", BurstOfSwitch, METH_VARARGS, ""},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {PyModuleDef_HEAD_INIT, "_literal", nullptr, -1, methods, nullptr, nullptr, nullptr, nullptr};

}  // namespace

PyMODINIT_FUNC PyInit__literal();
PyMODINIT_FUNC PyInit__literal() { return PyModule_Create(&definition); }
