// Operations of libryn.so on switches, ports and MAC tables.
#include <algorithm>

#include "platform/ryn.h"
#include "simhost/host/session.h"
#include "simhost/traffic/counts.h"
#include "simhost/traffic/macs.h"

namespace simhost {

namespace {

// A bit for each core that a port of the switch sends or receives on.
std::uint64_t CoresInUse(const Model& model, const Switch& sw) {
  std::uint64_t cores = 0;
  for (const int index : sw.ports) {
    const Port& port = model.ports[Index(index)];
    cores |= std::uint64_t{1} << port.tx_core | std::uint64_t{1} << port.rx_core;
  }
  return cores;
}

// A list of at most 16 switches.
std::uint32_t WriteSwitches(const View& host, Area& list) {
  constexpr std::size_t kHead = 8;
  constexpr std::size_t kRecord = 160;
  if (!list.Fits(0, kHead))
    return kNoRoom;
  list.Clear(kHead);
  // Of the ports, those that are active and all; of the cores, how many and which are in use.
  const std::size_t count = std::min(host.model.switches.size(), list.RoomFor(kHead, kRecord));
  for (std::size_t i = 0; i < count; ++i) {
    const Switch& sw = host.model.switches[i];
    const std::size_t at = kHead + i * kRecord;
    const auto active =
        std::count_if(sw.ports.begin(), sw.ports.end(), [&](int port) { return host.model.ports[Index(port)].active; });
    const std::uint64_t cores = CoresInUse(host.model, sw);
    list.PutText(at, sw.name, 128);
    list.Put32(at + 128, sw.id);
    list.Put32(at + 132, sw.max_ports);
    list.Put32(at + 136, active);
    list.Put32(at + 140, sw.ports.size());
    list.Put32(at + 144, sw.mtu);
    list.Put32(at + 148, __builtin_popcountll(cores));
    list.Put64(at + 152, cores);
  }
  list.Put32(0, count);
  return kOk;
}

// As many ports as there is room for, in the order of their numbers. Each of a port's queues is served by the same
// core.
std::uint32_t WritePorts(const View& host, const Switch& sw, Area& list) {
  constexpr std::size_t kHead = 12;
  constexpr std::size_t kRecord = 90;  // cores of 32 transmit queues from byte 26 on, of 32 receive queues from 58
  if (!list.Fits(0, kHead))
    return kNoRoom;
  list.Clear(kHead);
  list.Put32(0, sw.id);
  const std::size_t count = std::min(sw.ports.size(), list.RoomFor(kHead, kRecord));
  for (std::size_t i = 0; i < count; ++i) {
    const Port& port = host.model.ports[Index(sw.ports[i])];
    const std::size_t at = kHead + i * kRecord;
    list.Zero(at, kRecord);
    list.Put32(at, port.dvport);
    list.Put32(at + 4, port.id);
    list.Put8(at + 8, port.tx_queues);
    list.Put8(at + 9, port.rx_queues);
    list.PutMac(at + 10, port.mac);
    list.Put16(at + 16, 1 + std::min<std::uint32_t>(port.macs_behind, 65534));
    list.Put32(at + 18, port.kind);
    for (int queue = 0; queue < port.tx_queues; ++queue)
      list.Put8(at + 26 + Index(queue), port.tx_core);
    for (int queue = 0; queue < port.rx_queues; ++queue)
      list.Put8(at + 58 + Index(queue), port.rx_core);
  }
  list.Put32(4, count);
  return kOk;
}

// The store holds no more group addresses and VLAN ranges than the record has room for.
std::uint32_t WritePortConf(const Port& port, Area& conf) {
  constexpr std::size_t kSize = 1272;
  if (!conf.Fits(0, kSize))
    return kNoRoom;
  conf.Clear(kSize);
  conf.Put32(0, port.dvport);
  conf.Put32(16, port.multicast.size());
  conf.Put32(20, port.filter_flags);
  conf.Put64(24, port.ladrf);
  conf.PutMac(32, port.mac);
  conf.Put16(38, port.vlan);
  conf.Put8(40, port.forged_ok ? 1 : 0);
  conf.Put32(44, port.vni);
  conf.Put32(48, port.vlan_ranges.size());
  for (std::size_t i = 0; i < port.multicast.size(); ++i)
    conf.PutMac(52 + 6 * i, port.multicast[i]);
  conf.Put32(244, port.sample_rate);
  for (std::size_t i = 0; i < port.vlan_ranges.size(); ++i) {
    conf.Put16(248 + 4 * i, port.vlan_ranges[i].first);
    conf.Put16(250 + 4 * i, port.vlan_ranges[i].last);
  }
  return kOk;
}

// The sixteen counters from `first` on: the fast path's (0), or the slow path's (kSlow).
std::uint32_t PortStats(const char* operation, std::uint32_t sw, std::uint32_t port, std::size_t first, void* counters,
                        std::uint32_t* length) {
  constexpr std::size_t kCounters = 16;
  Area record(counters, length);
  return ReadHost({operation, {{"sw", sw}, {"port", port}}}, &record, [&](const View& host) {
    const int index = host.model.PortIndex(sw, port);
    if (index < 0)
      return kNotFound;
    if (!record.Fits(0, kCounters * 8))
      return kNoRoom;
    const PortCounts words = CountPort(host.model, index, host.ms);
    for (std::size_t i = 0; i < kCounters; ++i)
      record.Put64(8 * i, words[first + i]);
    return record.Finish(kOk);
  });
}

// whole_switch: the port is not looked at.
std::uint32_t MacTable(const char* operation, std::uint32_t sw, std::uint32_t port, bool whole_switch, void* table,
                       std::uint32_t* length) {
  Area area(table, length);
  return ReadHost({operation, {{"sw", sw}, {"port", port}}}, &area, [&](const View& host) {
    const Switch* found = host.model.FindSwitch(sw);
    if (found == nullptr || (!whole_switch && host.model.FindPort(sw, port) == nullptr))
      return kNotFound;
    return area.Finish(WriteMacTable(host.model, *found, whole_switch ? -1 : static_cast<int>(port), host.ms, area));
  });
}

// The port's flows are looked up on another core from then on, where none of them is known.
void StoreCores(Store& store, const Port& port, std::int64_t ms) {
  store.Run("UPDATE port SET tx_core = ?, rx_core = ?, pinned = ?, flow_cleared_ms = ? WHERE sw = ? AND port = ?",
            port.tx_core, port.rx_core, port.pinned, ms, port.sw, port.id);
}

}  // namespace

}  // namespace simhost

using namespace simhost;

extern "C" {

#pragma GCC visibility push(default)

// Switches of the datapath only: one that is distributed but has no ports here is not among them.
uint32_t Ryn_Get_Switch_List(void* switches, uint32_t* length) {
  Area list(switches, length);
  return ReadHost({"Ryn_Get_Switch_List", {}}, &list,
                  [&](const View& host) { return list.Finish(WriteSwitches(host, list)); });
}

uint32_t Ryn_Get_Port_List(uint32_t swID, void* ports, uint32_t* length) {
  Area list(ports, length);
  return ReadHost({"Ryn_Get_Port_List", {{"sw", swID}}}, &list, [&](const View& host) {
    const Switch* sw = host.model.FindSwitch(swID);
    if (sw == nullptr)
      return kNotFound;
    return list.Finish(WritePorts(host, *sw, list));
  });
}

uint32_t Ryn_Get_Port_Stats(uint32_t swID, uint32_t rynPortID, void* counters, uint32_t* length) {
  return PortStats("Ryn_Get_Port_Stats", swID, rynPortID, 0, counters, length);
}

// The length word goes in as the first call left it, which was as long.
uint32_t Ryn_Get_Port_Stats_Slowpath(uint32_t swID, uint32_t rynPortID, void* counters, uint32_t* length) {
  return PortStats("Ryn_Get_Port_Stats_Slowpath", swID, rynPortID, kSlow, counters, length);
}

// What the port asks of the switch: what it receives, its VLANs and overlay network.
uint32_t Ryn_Get_Port_Conf(uint32_t swID, uint32_t rynPortID, void* conf, uint32_t* length) {
  Area record(conf, length);
  return ReadHost({"Ryn_Get_Port_Conf", {{"sw", swID}, {"port", rynPortID}}}, &record, [&](const View& host) {
    const Port* port = host.model.FindPort(swID, rynPortID);
    if (port == nullptr)
      return kNotFound;
    return record.Finish(WritePortConf(*port, record));
  });
}

// option1: the core to send on, option2: the core to receive on (0xFFFFFFFF: as it is), option3: pin the port there.
uint32_t Ryn_Migrate_Port(uint32_t swID, uint32_t rynPortID, uint32_t option1, uint32_t option2, uint32_t option3) {
  const Call call{"Ryn_Migrate_Port", {{"sw", swID}, {"port", rynPortID}, {"lcore", option1}}};
  return ChangeHost(call, [&](Change& host) {
    const int index = host.model.PortIndex(swID, rynPortID);
    if (index < 0)
      return kNotFound;
    Port port = host.model.ports[Index(index)];
    const uint64_t allowed = host.model.FindSwitch(swID)->lcores;
    // A core that the host does not have, or that the switch may not use, is refused before anything is changed.
    const auto place = [&](uint32_t core, int& on) {
      if (core == 0xFFFFFFFF)
        return true;
      if (host.model.FindCore(core) == nullptr || (allowed >> core & 1) == 0)
        return false;
      on = static_cast<int>(core);
      return true;
    };
    if (!place(option1, port.tx_core) || !place(option2, port.rx_core))
      return kBadParameter;
    port.pinned = option3 != 0;
    host.ForgetFlows(index);
    StoreCores(host.store, port, host.ms);
    return kOk;
  });
}

// The balancer may move the port again. option means nothing here.
uint32_t Ryn_Unpin_Port(uint32_t swID, uint32_t rynPortID, uint32_t option) {
  const Call call{"Ryn_Unpin_Port", {{"sw", swID}, {"port", rynPortID}, {"lcore", option}}};
  return ChangeHost(call, [&](Change& host) {
    if (host.model.PortIndex(swID, rynPortID) < 0)
      return kNotFound;
    host.store.Run("UPDATE port SET pinned = 0 WHERE sw = ? AND port = ?", swID, rynPortID);
    return kOk;
  });
}

// The port's counters start at 0 again, and what was learned by it is learned anew. Those of its peers, and what its
// cores did, stay: they have counted the same packets on their own account.
uint32_t Ryn_Reset_Port(uint32_t swID, uint32_t rynPortID) {
  const Call call{"Ryn_Reset_Port", {{"sw", swID}, {"port", rynPortID}}};
  return ChangeHost(call, [&](Change& host) {
    const int index = host.model.PortIndex(swID, rynPortID);
    if (index < 0)
      return kNotFound;
    host.ResetCounts(index);
    host.ForgetFlows(index);
    host.store.Run("UPDATE port SET mac_cleared_ms = ?1, flow_cleared_ms = ?1 WHERE sw = ?2 AND port = ?3", host.ms,
                   swID, rynPortID);
    return kOk;
  });
}

// scope: 0 a port, 1 a switch, for which the port is not looked at. A state is kept as it was set, not as 0 or 1.
uint32_t Ryn_GetLRO(uint32_t scope, uint32_t swID, uint32_t rynPortID, uint32_t* state) {
  Area answer(state, sizeof *state);
  const Call call{"Ryn_GetLRO", {{"scope", scope}, {"sw", swID}, {"port", rynPortID}}};
  return ReadHost(call, &answer, [&](const View& host) {
    const Switch* sw = host.model.FindSwitch(swID);
    const Port* port = host.model.FindPort(swID, rynPortID);
    if (scope > 1)
      return kBadParameter;
    if (sw == nullptr || (scope == 0 && port == nullptr))
      return kNotFound;
    answer.Put32(0, scope == 1 ? sw->lro : port->lro);
    return kOk;
  });
}

// Setting it for a switch sets it for each of its ports; a port may be set again after that.
uint32_t Ryn_SetLRO(uint32_t scope, uint32_t swID, uint32_t rynPortID, uint32_t state) {
  const Call call{"Ryn_SetLRO", {{"scope", scope}, {"sw", swID}, {"port", rynPortID}}};
  return ChangeHost(call, [&](Change& host) {
    if (scope > 1)
      return kBadParameter;
    if (host.model.FindSwitch(swID) == nullptr || (scope == 0 && host.model.FindPort(swID, rynPortID) == nullptr))
      return kNotFound;
    if (scope == 1) {
      host.store.Run("UPDATE sw SET lro = ? WHERE sw = ?", state, swID);
      host.store.Run("UPDATE port SET lro = ? WHERE sw = ?", state, swID);
    } else {
      host.store.Run("UPDATE port SET lro = ? WHERE sw = ? AND port = ?", state, swID, rynPortID);
    }
    return kOk;
  });
}

uint32_t Ryn_Dump_Port_MAC_Table(uint32_t swID, uint32_t rynPortID, void* table, uint32_t* length) {
  return MacTable("Ryn_Dump_Port_MAC_Table", swID, rynPortID, false, table, length);
}

uint32_t Ryn_Dump_Switch_MAC_Table(uint32_t swID, void* table, uint32_t* length) {
  return MacTable("Ryn_Dump_Switch_MAC_Table", swID, 0, true, table, length);
}

// What was learned is cleared, and learned again; entries that were added by hand stay. That an entry was deleted by
// hand is forgotten, since the clear deletes it as well.
uint32_t Ryn_Clear_Port_MAC_Table(uint32_t swID, uint32_t rynPortID) {
  const Call call{"Ryn_Clear_Port_MAC_Table", {{"sw", swID}, {"port", rynPortID}}};
  return ChangeHost(call, [&](Change& host) {
    if (host.model.PortIndex(swID, rynPortID) < 0)
      return kNotFound;
    host.store.Run("UPDATE port SET mac_cleared_ms = ? WHERE sw = ? AND port = ?", host.ms, swID, rynPortID);
    host.store.Run("DELETE FROM mac_entry WHERE sw = ? AND port = ? AND present = 0", swID, rynPortID);
    return kOk;
  });
}

uint32_t Ryn_Clear_Switch_MAC_Table(uint32_t swID) {
  return ChangeHost({"Ryn_Clear_Switch_MAC_Table", {{"sw", swID}}}, [&](Change& host) {
    if (host.model.FindSwitch(swID) == nullptr)
      return kNotFound;
    host.store.Run("UPDATE sw SET mac_cleared_ms = ? WHERE sw = ?", host.ms, swID);
    host.store.Run("DELETE FROM mac_entry WHERE sw = ? AND present = 0", swID);
    return kOk;
  });
}

// operation: 0 deletes, 1 adds. An entry that was deleted is learned again when its station is next heard. One that is
// there may be added again: it is then by hand, and as old as that.
uint32_t Ryn_MAC_Entry_Ops(uint32_t swID, uint32_t rynPortID, const uint8_t* mac, uint16_t vlanID, uint32_t operation) {
  const Call call{"Ryn_MAC_Entry_Ops", {{"sw", swID}, {"port", rynPortID}}};
  return ChangeHost(call, [&](Change& host) {
    const Switch* sw = host.model.FindSwitch(swID);
    if (sw == nullptr || host.model.FindPort(swID, rynPortID) == nullptr)
      return kNotFound;
    if (mac == nullptr || (mac[0] & 1) != 0 || vlanID > 4095 || operation > 1)  // a group is no station
      return kBadParameter;
    Mac address{};
    std::copy_n(mac, address.size(), address.begin());
    const int port = static_cast<int>(rynPortID);
    // What is in the table needs no room; what is learned and added by hand is in it once.
    const bool known = HasMac(host.model, *sw, port, address, vlanID, host.ms);
    if (operation == 0 && !known)
      return kNotFound;
    if (operation == 1 && !known && !HasRoomForMac(host.model, *sw, port, host.ms))
      return kLimit;
    // A deletion is kept too, with its time: from then on the address has to be heard again.
    host.store.Run("INSERT OR REPLACE INTO mac_entry (sw, port, mac, vlan, present, at_ms) VALUES (?, ?, ?, ?, ?, ?)",
                   swID, rynPortID, address, vlanID, operation, host.ms);
    return kOk;
  });
}

#pragma GCC visibility pop

}  // extern "C"
