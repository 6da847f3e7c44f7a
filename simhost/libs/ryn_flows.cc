// Operations of libryn.so on the flow cache and its offload.
#include <algorithm>
#include <vector>

#include "platform/ryn.h"
#include "simhost/host/session.h"
#include "simhost/traffic/counts.h"
#include "simhost/traffic/flows.h"

namespace simhost {

namespace {

// The cores that a request names; without any, those that the switch has ports on. False: one of them does not exist.
bool CoresOf(const Model& model, const Switch& sw, const std::uint32_t* lcores, std::uint32_t count,
             std::vector<int>& cores) {
  if (count == 0 || lcores == nullptr) {
    for (const Core& core : model.cores) {
      const bool used = std::any_of(sw.ports.begin(), sw.ports.end(), [&](int port) {
        return model.ports[Index(port)].tx_core == core.id || model.ports[Index(port)].rx_core == core.id;
      });
      if (used)
        cores.push_back(core.id);
    }
    return true;
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    if (model.FindCore(lcores[i]) == nullptr)
      return false;
    cores.push_back(static_cast<int>(lcores[i]));
  }
  return true;
}

// What both kinds of statistics have in common: a count, then one record for each core.
template <class Write>
std::uint32_t WriteCores(const View& host, std::uint32_t sw, const std::uint32_t* lcores, std::uint32_t count,
                         std::size_t record, bool only_with_flows, Area& stats, const Write& write) {
  constexpr std::size_t kHead = 8;
  const Switch* found = host.model.FindSwitch(sw);
  std::vector<int> cores;
  if (found == nullptr)
    return kNotFound;
  if (!CoresOf(host.model, *found, lcores, count, cores))
    return kBadParameter;
  if (!stats.Fits(0, kHead))
    return kNoRoom;
  stats.Clear(kHead);
  std::size_t written = 0;
  // Cores beyond the caller's room are left out; the count is of the records that are there.
  for (const int core : cores) {
    const std::uint64_t flows = CountLiveFlows(host.model, found->id, core, host.ms);
    if (written == stats.RoomFor(kHead, record) || (only_with_flows && flows == 0))
      continue;
    const std::size_t at = kHead + written++ * record;
    stats.Zero(at, record);
    stats.Put32(at, core);
    write(at, flows, CountFlows(host.model, found->id, core, host.ms));
  }
  stats.Put32(0, written);
  return kOk;
}

// Every flow of the switch misses once more.
void Relearn(Change& host, const Switch& sw) {
  for (const int port : sw.ports)
    host.ForgetFlows(port);
}

}  // namespace

}  // namespace simhost

using namespace simhost;

extern "C" {

#pragma GCC visibility push(default)

// flag: only flows that are offloaded. The index in the answer is the one to go on from.
uint32_t Ryn_Dump_Flow_Table(uint32_t swID, uint32_t lcore, uint32_t startIndex, void* page, uint32_t* length,
                             uint32_t flag) {
  Area area(page, length);
  return ReadHost({"Ryn_Dump_Flow_Table", {{"sw", swID}, {"lcore", lcore}}}, &area, [&](const View& host) {
    if (host.model.FindSwitch(swID) == nullptr)
      return kNotFound;
    if (host.model.FindCore(lcore) == nullptr)
      return kBadParameter;
    return area.Finish(WriteFlowPage(host.model, static_cast<int>(swID), static_cast<int>(lcore), startIndex, flag != 0,
                                     host.ms, area));
  });
}

// option: 0 for all cores asked for, else only those that have flows.
uint32_t Ryn_Get_Flow_Stats(uint32_t swID, const uint32_t* lcores, uint32_t lcoreCount, uint32_t option, void* stats,
                            uint32_t* length) {
  constexpr std::size_t kRecord = 48;
  Area area(stats, length);
  return ReadHost({"Ryn_Get_Flow_Stats", {{"sw", swID}}}, &area, [&](const View& host) {
    return area.Finish(WriteCores(host, swID, lcores, lcoreCount, kRecord, option != 0, area,
                                  [&](std::size_t at, uint64_t flows, const FlowCounts& words) {
                                    area.Put32(at + 4, flows);
                                    area.Put64(at + 8, words[kFlowOffloadHits] + words[kFlowLocalHits]);
                                    area.Put64(at + 16, words[kFlowMisses]);
                                    area.Put64(at + 24, words[kFlowOffloadHits]);
                                    area.Put64(at + 32, words[kFlowLocalHits]);
                                    // Not installed; the next packet of the flow tries again.
                                    area.Put64(at + 40, words[kFlowMisses] / 5000);
                                  }));
  });
}

uint32_t Ryn_Get_FPO_Stats(uint32_t swID, const uint32_t* lcores, uint32_t lcoreCount, void* stats, uint32_t* length) {
  constexpr std::size_t kRecord = 56;
  Area area(stats, length);
  return ReadHost({"Ryn_Get_FPO_Stats", {{"sw", swID}}}, &area, [&](const View& host) {
    return area.Finish(WriteCores(host, swID, lcores, lcoreCount, kRecord, false, area,
                                  [&](std::size_t at, uint64_t, const FlowCounts& words) {
                                    const uint64_t hits = words[kFlowOffloadHits];
                                    area.Put64(at + 8, hits);
                                    area.Put64(at + 16, hits / 20'000);  // the mark was of another flow
                                    area.Put64(at + 24, hits / 50'000);  // another device answered
                                    area.Put64(at + 32, hits / 8'000);   // the mark came before the flow
                                    area.Put64(at + 40, words[kFlowShortFlows]);
                                    area.Put64(at + 48, words[kFlowShortFlows] / 7);
                                  }));
  });
}

// The table is empty at once; its counters go on.
uint32_t Ryn_Clear_Switch_Flow_Table(uint32_t swID) {
  return ChangeHost({"Ryn_Clear_Switch_Flow_Table", {{"sw", swID}}}, [&](Change& host) {
    const Switch* sw = host.model.FindSwitch(swID);
    if (sw == nullptr)
      return kNotFound;
    Relearn(host, *sw);
    host.store.Run("UPDATE sw SET flow_cleared_ms = ? WHERE sw = ?", host.ms, swID);
    return kOk;
  });
}

// Off: nothing is looked up and the table is empty. On again: everything is learned from nothing. A switch that is set
// to what it is forgets nothing.
uint32_t Ryn_Enable_Switch_Flow_Cache(uint32_t swID, uint32_t enable) {
  return ChangeHost({"Ryn_Enable_Switch_Flow_Cache", {{"sw", swID}}}, [&](Change& host) {
    const Switch* sw = host.model.FindSwitch(swID);
    if (sw == nullptr)
      return kNotFound;
    if (enable > 1)
      return kBadParameter;
    if (sw->flow_cache == (enable == 1))
      return kOk;
    Relearn(host, *sw);
    host.store.Run("UPDATE sw SET flow_cache = ?, flow_cleared_ms = ? WHERE sw = ?", enable, host.ms, swID);
    return kOk;
  });
}

uint32_t Ryn_Get_Flow_Timeout(uint32_t* seconds) {
  Area answer(seconds, sizeof *seconds);
  return ReadHost({"Ryn_Get_Flow_Timeout", {}}, &answer, [&](const View& host) {
    answer.Put32(0, host.model.flow_timeout_s);
    return kOk;
  });
}

// A shorter timeout empties the table at once; with a longer one it grows as time goes by, since what has left stays
// out.
uint32_t Ryn_Set_Flow_Timeout(uint32_t seconds) {
  return ChangeHost({"Ryn_Set_Flow_Timeout", {}}, [&](Change& host) {
    const int64_t oldest = host.ms - int64_t{host.model.flow_timeout_s} * 1000;
    host.store.Run("UPDATE host SET flow_timeout_s = ?, flow_floor_ms = max(flow_floor_ms, ?)", seconds, oldest);
    return kOk;
  });
}

// What the device can offload, whether it is switched on or not.
uint32_t Ryn_Get_FPO_Uplink_Status(uint32_t swID, uint32_t rynPortID, void* capabilities, uint32_t* length) {
  constexpr std::size_t kSize = 40;
  Area record(capabilities, length);
  const Call call{"Ryn_Get_FPO_Uplink_Status", {{"sw", swID}, {"port", rynPortID}}};
  return ReadHost(call, &record, [&](const View& host) {
    const Port* port = host.model.FindPort(swID, rynPortID);
    if (port == nullptr)
      return kNotFound;
    if (port->nic < 0)
      return kBadParameter;
    if (!record.Fits(0, kSize))
      return kNoRoom;
    const Nic& nic = host.model.nics[Index(port->nic)];
    record.Put32(0, nic.fpo_level);
    for (std::size_t i = 0; i < nic.fpo_limits.size(); ++i)
      record.Put32(4 + 4 * i, nic.fpo_limits[i]);
    record.Put64(32, nic.fpo_actions);
    return record.Finish(kOk);
  });
}

#pragma GCC visibility pop

}  // extern "C"
