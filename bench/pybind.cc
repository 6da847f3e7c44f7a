// The Python module `_pybind`: the same results by pybind11, as its users write it.
#include <pybind11/pybind11.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "bench/format.h"
#include "host/records/flowcache.h"
#include "host/records/ports.h"
#include "platform/ryn.h"

namespace py = pybind11;

namespace {

std::string MacText(const std::uint8_t* mac) {
  char text[18];
  FormatMac(mac, text);
  return text;
}

py::dict ListSwitchMACTable(std::uint32_t swID) {
  const auto table = std::make_unique<SwitchMacTable>();
  std::uint32_t length = sizeof(SwitchMacTable);
  Ryn_Dump_Switch_MAC_Table(swID, table.get(), &length);
  py::list rows(table->count);
  for (std::uint32_t i = 0; i < table->count; ++i) {
    const MacEntry& entry = table->entries[i];
    py::dict row;
    row["macAddr"] = MacText(entry.mac);
    row["vlanID"] = entry.vlanID;
    row["rynPortID"] = entry.rynPortID;
    row["macGenDiff"] = entry.macGenDiff;
    rows[i] = std::move(row);
  }
  py::dict result;
  result["MacLimit"] = table->macLimit;
  result["MacTableList"] = std::move(rows);
  return result;
}

py::list Numbers(std::uint32_t count, const std::uint8_t* values) {
  py::list list(count);
  for (std::uint32_t i = 0; i < count; ++i)
    list[i] = values[i];
  return list;
}

py::list ListPorts(std::uint32_t swID) {
  const auto answer = std::make_unique<PortList>();
  std::uint32_t length = sizeof(PortList);
  Ryn_Get_Port_List(swID, answer.get(), &length);
  py::list list(answer->count);
  for (std::uint32_t i = 0; i < answer->count; ++i) {
    const PortRecord port = answer->ports[i];  // its fields are not aligned in the answer
    py::dict row;
    row["portID"] = std::uint32_t{port.portID};
    row["rynPortID"] = std::uint32_t{port.rynPortID};
    row["numTxQ"] = port.numTxQ;
    row["numRxQ"] = port.numRxQ;
    row["hwAddr"] = MacText(port.hwAddr);
    row["numMACs"] = std::uint16_t{port.numMACs};
    row["clientType"] = kClientTypeNames[port.clientType < 5 ? port.clientType : 0];
    row["txQLM"] = Numbers(port.numTxQ, port.txQLM);
    row["rxQLM"] = Numbers(port.numRxQ, port.rxQLM);
    list[i] = std::move(row);
  }
  return list;
}

py::list ListSwitches() {
  const auto answer = std::make_unique<SwitchList>();
  std::uint32_t length = sizeof(SwitchList);
  Ryn_Get_Switch_List(answer.get(), &length);
  py::list list(answer->count);
  for (std::uint32_t i = 0; i < answer->count; ++i) {
    const SwitchRecord& record = answer->switches[i];
    py::dict row;
    row["name"] = static_cast<const char*>(record.name);
    row["swID"] = record.swID;
    row["maxPorts"] = record.maxPorts;
    row["numActivePorts"] = record.numActivePorts;
    row["numPorts"] = record.numPorts;
    row["mtu"] = record.mtu;
    row["numLcores"] = record.numLcores;
    row["lcores"] = static_cast<std::int64_t>(record.lcores);
    list[i] = std::move(row);
  }
  return list;
}

py::dict GetPortStats(std::uint32_t swID, std::uint32_t rynPortID) {
  std::int64_t counters[16] = {};
  std::uint32_t length = sizeof(counters);
  py::dict result;
  Ryn_Get_Port_Stats(swID, rynPortID, counters, &length);
  for (int i = 0; i < 16; ++i)
    result[kCounterNames[i]] = counters[kCounterPlaces[i]];
  Ryn_Get_Port_Stats_Slowpath(swID, rynPortID, counters, &length);
  for (int i = 0; i < 16; ++i)
    result[kSlowCounterNames[i]] = counters[kCounterPlaces[i]];
  return result;
}

py::dict GetPortConf(std::uint32_t swID, std::uint32_t rynPortID) {
  PortConf conf = {};
  std::uint32_t length = sizeof(conf);
  Ryn_Get_Port_Conf(swID, rynPortID, &conf, &length);
  char flags[120];
  FormatFlags(conf.flags, flags, sizeof(flags));
  py::dict result;
  result["portID"] = conf.portID;
  result["flags"] = static_cast<const char*>(flags);
  result["ladrf"] = static_cast<std::int64_t>(conf.ladrf);
  result["hwAddr"] = MacText(conf.hwAddr);
  result["untaggedVlanID"] = conf.untaggedVlanID;
  result["forgedMACAllowed"] = conf.forgedMACAllowed;
  result["numMcastAddrs"] = conf.numMcastAddrs;
  result["vni"] = conf.vni;
  result["sampleRate"] = conf.sampleRate;
  if (conf.numMcastAddrs) {
    py::list addresses(conf.numMcastAddrs);
    for (std::uint32_t i = 0; i < conf.numMcastAddrs; ++i)
      addresses[i] = MacText(conf.mcastAddrs[i]);
    result["mcastAddrList"] = std::move(addresses);
  }
  result["numTaggedVlanRanges"] = conf.numTaggedVlanRanges;
  if (conf.numTaggedVlanRanges) {
    py::list ranges(conf.numTaggedVlanRanges);
    for (std::uint32_t i = 0; i < conf.numTaggedVlanRanges; ++i)
      ranges[i] = std::to_string(conf.vlanRanges[i].first) + "-" + std::to_string(conf.vlanRanges[i].last);
    result["vlanRanges"] = std::move(ranges);
  }
  return result;
}

py::dict DumpFlowTable(std::uint32_t swID, std::uint32_t lcore, std::uint32_t start, std::uint32_t flag) {
  const auto page = std::make_unique<FlowPage>();
  std::uint32_t length = sizeof(FlowPage);
  Ryn_Dump_Flow_Table(swID, lcore, start, page.get(), &length, flag != 0);
  py::list list(page->count);
  const std::uint8_t* position = page->entries;
  for (std::uint32_t i = 0; i < page->count; ++i) {
    char key[257], actions[512], stats[128];
    FormatFlowKey(position, key, 256);
    FormatActions(position + 64, actions, sizeof(actions));
    FormatStats(position + 64, stats, sizeof(stats));
    py::dict row;
    row["key"] = static_cast<const char*>(key);
    row["actions"] = static_cast<const char*>(actions);
    row["stats"] = static_cast<const char*>(stats);
    list[i] = std::move(row);
    position += 64 + At<std::uint16_t>(position, 64 + 62);
  }
  py::dict result;
  result["startIndex"] = page->startIndex;
  result["list"] = std::move(list);
  return result;
}

py::list GetFlowStats(std::uint32_t swID, const py::tuple& ids, std::uint32_t option) {
  std::uint32_t lcores[64];
  std::uint32_t count = 0;
  for (const auto& id : ids)
    lcores[count++] = id.cast<std::uint32_t>();
  FlowStats stats = {};
  std::uint32_t length = sizeof(stats);
  Ryn_Get_Flow_Stats(swID, lcores, count, option, &stats, &length);
  py::list list(stats.count);
  for (std::uint32_t i = 0; i < stats.count; ++i) {
    const FlowStatsRecord& record = stats.records[i];
    py::dict row;
    row["lcoreID"] = record.lcoreID;
    row["numFlows"] = record.numFlows;
    row["hits"] = static_cast<std::uint32_t>(record.hits);
    row["miss"] = static_cast<std::uint32_t>(record.miss);
    row["fpoHits"] = static_cast<std::uint32_t>(record.fpoHits);
    row["localHits"] = static_cast<std::uint32_t>(record.localHits);
    row["keyInsertFailCount"] = static_cast<std::uint32_t>(record.keyInsertFailCount);
    list[i] = std::move(row);
  }
  return list;
}

py::list GetUplinkQueueStats(std::uint32_t swID, std::uint32_t rynPortID, std::uint32_t kind, std::uint32_t queue) {
  std::int64_t counters[24] = {};
  std::uint32_t length = sizeof(counters);
  Ryn_Get_Uplink_Queue_Stats(swID, rynPortID, queue, kind != 0, counters, &length);
  py::list list(24);
  for (std::size_t i = 0; i < 24; ++i)
    list[i] = py::make_tuple(kUplinkCounterNames[i], counters[i]);
  return list;
}

py::list PortNumbers(std::uint16_t count, const std::uint64_t* words) {
  py::list list(count);
  std::size_t position = 0;
  for (int word = 0; word < 2; ++word) {
    for (int bit = 0; bit < 64 && position < count; ++bit) {
      if (words[word] >> bit & 1)
        list[position++] = 64 * word + bit;
    }
  }
  return list;
}

py::list GetMirrorConf(std::uint32_t swID) {
  MirrorConf conf = {};
  std::uint32_t length = sizeof(conf);
  Ryn_Get_Mirror_Conf(swID, &conf, &length);
  py::list list(conf.sessionCount);
  const std::uint8_t* position = conf.sessions;
  for (std::size_t i = 0; i < conf.sessionCount; ++i) {
    const auto session = At<MirrorSession>(position, 0);
    py::dict row;
    row["noInput"] = session.flags & 1;
    row["noOutput"] = session.flags >> 1 & 1;
    row["vlanEncap"] = session.flags >> 2 & 1;
    row["OrigVlan"] = session.flags >> 3 & 1;
    row["index"] = session.index;
    row["encapVlanID"] = session.encapVlanID;
    row["samplingRate"] = session.samplingRate;
    row["snapLen"] = session.snapLen;
    row["srcInPorts"] = PortNumbers(session.srcInCount, session.srcInPorts);
    row["srcOutPorts"] = PortNumbers(session.srcOutCount, session.srcOutPorts);
    row["dstPorts"] = PortNumbers(session.dstCount, session.dstPorts);
    py::list vlans(session.vlanCount);
    for (std::size_t j = 0; j < session.vlanCount; ++j)
      vlans[j] = At<std::uint16_t>(position, 72 + 2 * j);
    row["vlans"] = std::move(vlans);
    list[i] = std::move(row);
    position += 72 + (2 * session.vlanCount + 7) / 8 * 8;
  }
  return list;
}

py::dict GetPortNetQInfo(std::uint32_t swID, std::uint32_t rynPortID) {
  std::uint32_t length = 524288;
  const auto response = std::make_unique<std::uint8_t[]>(length);
  Ryn_Get_Port_NetQ_Info(swID, rynPortID, response.get(), &length);
  const auto head = At<NetQHeader>(response.get(), 0);
  py::list filters(head.filterCount);
  const std::uint8_t* position = response.get() + 16;
  for (std::size_t i = 0; i < head.filterCount; ++i) {
    const auto filter = At<NetQFilter>(position, 0);
    char text[250];
    FormatFilter(position, text, sizeof(text));
    py::list queues(filter.queueCount);
    position += 8 + filter.bodyLength;
    for (std::size_t j = 0; j < filter.queueCount; ++j, position += 16) {
      const auto queue = At<NetQQueue>(position, 0);
      py::dict entry;
      entry["rynPortID"] = queue.rynPortID;
      entry["qid"] = queue.qid;
      entry["fid"] = static_cast<std::int64_t>(queue.fid);
      queues[j] = std::move(entry);
    }
    py::dict row;
    row["rxf"] = static_cast<const char*>(text);
    row["qInfo"] = std::move(queues);
    filters[i] = std::move(row);
  }
  py::dict result;
  result["isUplink"] = head.isUplink;
  result["swID"] = head.swID;
  result["rynPortID"] = head.rynPortID;
  result["filters"] = std::move(filters);
  return result;
}

py::str DumpLBSnapshot(std::uint32_t swID) {
  LBSnapshot snapshot = {};
  std::uint32_t length = sizeof(snapshot);
  Ryn_DumpLBSnapshot(&swID, &snapshot, &length);
  char text[16384];
  return py::str(text, FormatSnapshot(snapshot, text, sizeof(text)));
}

py::tuple DumpLBPortStats(std::uint32_t swID, std::uint32_t first, std::uint32_t last) {
  LBPortStats stats = {};
  std::uint32_t length = sizeof(stats);
  Ryn_Dump_LB_PortStats(swID, &stats, &length);
  const std::size_t count = last + 1 - first;
  py::tuple p0(count), p1(count), a(count), b(count), figures(count), cores(64);
  for (std::size_t i = 0; i < count; ++i) {
    const LBPortRecord& port = stats.ports[first + i];
    std::uint64_t of[6];
    FiguresOfPort(port, stats.cores, of);
    p0[i] = port.p0;
    p1[i] = port.p1;
    a[i] = port.cores[0];
    b[i] = port.cores[1];
    figures[i] = py::make_tuple(of[0], of[1], of[2], of[3], of[4], of[5]);
  }
  for (std::size_t i = 0; i < 64; ++i) {
    std::uint64_t of[2];
    FiguresOfCore(stats.cores[i], of);
    cores[i] = py::make_tuple(of[0], of[1]);
  }
  return py::make_tuple(p0, p1, a, b, figures, cores);
}

void SetUplinkMACLearn(std::uint32_t swID, std::uint32_t enable) { Ryn_Set_Uplink_MAC_Learn(swID, enable != 0); }

py::object GetSwitchBurstSize(const char* alias) {
  BurstSize burst;
  if (!ReadBurstSize(alias, &burst))
    return py::none();
  return py::int_(burst.packets);
}

}  // namespace

PYBIND11_MODULE(_pybind, module) {
  module.def("ListSwitchMACTable", ListSwitchMACTable);
  module.def("ListPorts", ListPorts);
  module.def("ListSwitches", ListSwitches);
  module.def("GetPortStats", GetPortStats);
  module.def("GetPortConf", GetPortConf);
  module.def("DumpFlowTable", DumpFlowTable);
  module.def("GetFlowStats", GetFlowStats);
  module.def("GetUplinkQueueStats", GetUplinkQueueStats);
  module.def("GetMirrorConf", GetMirrorConf);
  module.def("GetPortNetQInfo", GetPortNetQInfo);
  module.def("DumpLBSnapshot", DumpLBSnapshot);
  module.def("DumpLBPortStats", DumpLBPortStats);
  module.def("SetUplinkMACLearn", SetUplinkMACLearn);
  module.def("GetSwitchBurstSize", GetSwitchBurstSize);
}
