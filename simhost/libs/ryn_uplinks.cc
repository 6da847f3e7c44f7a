// Operations of libryn.so on uplinks, mirroring, network queues and devices.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <string>

#include "platform/ryn.h"
#include "simhost/host/session.h"
#include "simhost/traffic/counts.h"

namespace simhost {

namespace {

constexpr std::size_t kUplinkRecord = 192;  // 24 counters of 64 bits, of an uplink or of one of its queues

// The index of an uplink, or a status in `status`. A port that is there and is no uplink is a bad parameter.
int FindUplink(const Model& model, std::uint32_t sw, std::uint32_t port, std::uint32_t& status) {
  const int index = model.PortIndex(sw, port);
  status = index < 0 ? kNotFound : model.base.queues.count(index) == 0 ? kBadParameter : kOk;
  return status == kOk ? index : -1;
}

// An uplink's own figures are nothing but the sums of its queues', so that both can never differ.
QueueCounts SumQueues(const Model& model, int port, bool transmit, std::int64_t ms) {
  QueueCounts sum{};
  const std::size_t queues = model.base.queues.at(port)[transmit ? 1 : 0].size();
  for (std::size_t queue = 0; queue < queues; ++queue) {
    const QueueCounts words = CountQueue(model, port, transmit, static_cast<int>(queue), ms);
    for (std::size_t i = 0; i < sum.size(); ++i)
      sum[i] += words[i];
  }
  return sum;
}

// Counters by their offsets in the record; those that are not written have no meaning here and stay 0. Errors are the
// sum of those by length and by checksum, drops of those by FIFO and missed.
void PutReceived(Area& record, const QueueCounts& words) {
  record.Put64(0, words[kQueuePackets]);
  record.Put64(16, words[kQueueBytes]);
  record.Put64(32, words[kQueueCrc] + words[kQueueLength]);
  record.Put64(48, words[kQueueDrops]);
  record.Put64(64, words[kQueueMulticast]);
  record.Put64(72, words[kQueueBroadcast]);
  record.Put64(104, words[kQueueLength]);
  record.Put64(120, words[kQueueCrc]);
  record.Put64(136, words[kQueueFifo]);
  record.Put64(144, words[kQueueMissed]);
}

// A packet that a hung device sends not is a drop, and no error beside it: it is lost once.
void PutSent(Area& record, const QueueCounts& words) {
  record.Put64(8, words[kQueuePackets]);
  record.Put64(24, words[kQueueBytes]);
  record.Put64(56, words[kQueueDrops]);
  record.Put64(80, words[kQueueMulticast]);
  record.Put64(88, words[kQueueBroadcast]);
  record.Put64(152, words[kQueueAborted]);
  record.Put64(168, words[kQueueFifo]);
}

// The driver's own text. Its length depends on the number of queues only, so that it fits the length asked for before.
std::string DriverText(const Model& model, int index, std::int64_t ms) {
  const Port& port = model.ports[Index(index)];
  const Nic& nic = model.nics[Index(port.nic)];
  if (!nic.driver_text)
    return {};
  std::string text;
  char line[128];
  const auto add = [&](const char* name, int queue, std::uint64_t value) {
    if (queue >= 0)
      std::snprintf(line, sizeof line, "%s_queue_%02d: %020" PRIu64 "\n", name, queue, value);
    else
      std::snprintf(line, sizeof line, "%s: %020" PRIu64 "\n", name, value);
    text += line;
  };
  // Numbers are of fixed width, so that the text is as long at the second call, by which time more has been counted.
  text += nic.name + " (simulated)\n";
  add("link_up", -1, nic.down ? 0 : 1);
  add("link_mbps", -1, static_cast<std::uint64_t>(nic.link_mbps));
  add("tx_ring", -1, port.tx_ring);
  add("rx_ring", -1, port.rx_ring);
  for (int queue = 0; queue < std::max(1, port.rx_queues); ++queue)
    add("rx_packets", queue, CountQueue(model, index, false, queue, ms)[kQueuePackets]);
  for (int queue = 0; queue < std::max(1, port.tx_queues); ++queue)
    add("tx_packets", queue, CountQueue(model, index, true, queue, ms)[kQueuePackets]);
  return text;
}

// Ports as a bit set of 128, port 0 the lowest bit of the first word.
void PutPortSet(Area& area, std::size_t at, const std::vector<int>& ports) {
  std::uint64_t words[2] = {};
  for (const int port : ports)
    words[port / 64] |= std::uint64_t{1} << port % 64;
  area.Put64(at, words[0]);
  area.Put64(at + 8, words[1]);
}

// One record for each session, its VLANs behind it up to a full eight bytes. Records are not cut: sessions that do not
// fit are an answer that the area has no room for.
std::uint32_t WriteMirrors(const Model& model, const Switch& sw, Area& conf) {
  constexpr std::size_t kHead = 8;
  constexpr std::size_t kRecord = 72;
  if (!conf.Fits(0, kHead))
    return kNoRoom;
  conf.Clear(kHead);
  conf.Put32(0, sw.id);
  std::size_t at = kHead;
  std::size_t count = 0;
  const auto sessions = model.mirrors.find(sw.id);
  if (sessions == model.mirrors.end())
    return kOk;
  for (const MirrorSession& session : sessions->second) {
    const std::size_t size = kRecord + (2 * session.vlans.size() + 7) / 8 * 8;
    if (!conf.Fits(at, size))
      return kNoRoom;
    conf.Zero(at, size);
    conf.Put32(at, 0x4D530000U | session.index);  // an identifier that no other session of the switch has
    conf.Put16(at + 4, session.index);
    conf.Put16(at + 6, session.encap_vlan);
    conf.Put16(at + 8, session.snap_len);
    conf.Put16(at + 10, session.sampling_rate);
    conf.Put16(at + 12, session.flags);
    for (std::size_t role = 0; role < 3; ++role) {
      conf.Put16(at + 14 + 2 * role, session.ports[role].size());
      PutPortSet(conf, at + 24 + 16 * role, session.ports[role]);
    }
    conf.Put16(at + 20, session.vlans.size());
    for (std::size_t i = 0; i < session.vlans.size(); ++i)
      conf.Put16(at + kRecord + 2 * i, session.vlans[i]);
    at += size;
    ++count;
  }
  conf.Put16(4, count);
  return kOk;
}

// Which filter a port has in the network hardware, and the queues that it leads to: for an uplink those of all
// machines, for a machine its own on each uplink. An inactive port keeps its filter, which then leads to no queue. The
// kind, and so the length of a filter's body, follows from the port: Geneve in an overlay, one that no reader knows for
// GENERIC ports.
class NetQueueWriter {
 public:
  NetQueueWriter(const Model& model, Area& area) : model_(model), area_(area) {}

  std::uint32_t Write(const Switch& sw, int index) {
    constexpr std::size_t kHead = 16;
    if (!area_.Fits(0, kHead))
      return kNoRoom;
    const Port& asked = model_.ports[Index(index)];
    area_.Clear(kHead);
    area_.Put32(0, sw.id);
    area_.Put32(4, asked.id);
    area_.Put16(12, asked.IsUplink() ? 1 : 0);
    at_ = kHead;
    if (asked.IsUplink()) {
      for (const int other : sw.ports) {
        if (!model_.ports[Index(other)].IsUplink())
          AddFilter(model_.ports[Index(other)], asked);
      }
    } else {
      for (const int uplink : sw.uplinks)
        AddFilter(asked, model_.ports[Index(uplink)]);
    }
    area_.Put16(14, count_);
    return full_ ? kNoRoom : kOk;
  }

 private:
  enum Kind : std::uint32_t { kMacOnly = 0, kGeneve = 1, kOther = 7 };

  void AddFilter(const Port& port, const Port& uplink) {
    constexpr std::size_t kQueueEntry = 16;
    const std::uint32_t kind = port.kind == kGeneric ? kOther : port.vni != 0 ? kGeneve : kMacOnly;
    const std::size_t body = kind == kGeneve ? 16 : kind == kMacOnly ? 8 : 12;
    const std::size_t queues = port.active ? 1 : 0;
    const std::size_t size = 8 + body + queues * kQueueEntry;
    if (!area_.Fits(at_, size)) {  // the rest is left out; the count is of those that are there
      full_ = true;
      return;
    }
    area_.Zero(at_, size);
    area_.Put16(at_, kind);
    area_.Put16(at_ + 4, body);
    area_.Put16(at_ + 6, queues);
    if (kind == kGeneve) {
      area_.PutMac(at_ + 8, uplink.mac);
      area_.PutMac(at_ + 14, port.mac);
      area_.Put32(at_ + 20, port.vni);
    } else if (kind == kMacOnly) {
      area_.PutMac(at_ + 8, port.mac);
    }
    if (queues > 0) {
      const std::size_t queue = at_ + 8 + body;
      area_.Put32(queue, port.id);
      // The queue is the one that frames for the port are counted in (QueueOf); its handle is made up.
      area_.Put32(queue + 4, port.id % std::max(1, uplink.rx_queues));
      area_.Put64(queue + 8, Mix(model_.seed ^ static_cast<std::uint64_t>(port.dvport) << 16 ^
                                 static_cast<std::uint64_t>(uplink.id)));
    }
    at_ += size;
    ++count_;
  }

  const Model& model_;
  Area& area_;
  std::size_t at_ = 0;
  std::size_t count_ = 0;
  bool full_ = false;
};

}  // namespace

}  // namespace simhost

using namespace simhost;

extern "C" {

#pragma GCC visibility push(default)

// The policy as it was set, whether its uplinks are usable or not.
uint32_t Ryn_Get_Port_Tx_Uplink(uint32_t swID, uint32_t rynPortID, void* policy, uint32_t* length) {
  constexpr std::size_t kSize = 18;
  constexpr std::size_t kMost = 8;
  Area record(policy, length);
  return ReadHost({"Ryn_Get_Port_Tx_Uplink", {{"sw", swID}, {"port", rynPortID}}}, &record, [&](const View& host) {
    const Port* port = host.model.FindPort(swID, rynPortID);
    if (port == nullptr)
      return kNotFound;
    if (!record.Fits(0, kSize))
      return kNoRoom;
    record.Clear(kSize);
    // The store takes eight uplinks at most, which is what the record has room for.
    record.Put8(0, port->tx_type);
    record.Put8(1, std::min(port->uplinks.size(), kMost));
    for (std::size_t i = 0; i < std::min(port->uplinks.size(), kMost); ++i)
      record.Put16(2 + 2 * i, port->uplinks[i]);
    return record.Finish(kOk);
  });
}

// An identifier that names no uplink of the switch is refused, and so is a list longer than the record that shows it.
// No uplinks at all: those of the switch.
uint32_t Ryn_Set_Port_Tx_Uplink(uint32_t swID, uint32_t rynPortID, uint32_t txType, uint32_t count,
                                const uint32_t* uplinks) {
  const Call call{"Ryn_Set_Port_Tx_Uplink", {{"sw", swID}, {"port", rynPortID}}};
  return ChangeHost(call, [&](Change& host) {
    const Switch* sw = host.model.FindSwitch(swID);
    if (host.model.PortIndex(swID, rynPortID) < 0)
      return kNotFound;
    if (txType > kTxNoTeaming || count > 8)
      return kBadParameter;
    for (uint32_t i = 0; i < count; ++i) {
      const int index = host.model.PortIndex(swID, uplinks[i]);
      if (std::find(sw->uplinks.begin(), sw->uplinks.end(), index) == sw->uplinks.end())
        return kBadParameter;
    }
    host.store.Run("UPDATE port SET tx_type = ? WHERE sw = ? AND port = ?", txType, swID, rynPortID);
    host.store.Run("DELETE FROM port_uplink WHERE sw = ? AND port = ?", swID, rynPortID);
    Statement add = host.store.Prepare("INSERT INTO port_uplink (sw, port, seq, uplink) VALUES (?, ?, ?, ?)");
    for (uint32_t i = 0; i < count; ++i)
      add.Run(swID, rynPortID, i, uplinks[i]);
    return kOk;
  });
}

// A switch without sessions answers with a count of 0.
uint32_t Ryn_Get_Mirror_Conf(uint32_t swID, void* conf, uint32_t* length) {
  Area area(conf, length);
  return ReadHost({"Ryn_Get_Mirror_Conf", {{"sw", swID}}}, &area, [&](const View& host) {
    const Switch* sw = host.model.FindSwitch(swID);
    if (sw == nullptr)
      return kNotFound;
    return area.Finish(WriteMirrors(host.model, *sw, area));
  });
}

// The NUL is counted in the length; 0: the driver says nothing.
uint32_t Ryn_Get_Uplink_Priv_Stats_Len(uint32_t swID, uint32_t rynPortID, uint32_t* statsLength, uint32_t* length) {
  Area answer(statsLength, length);
  const Call call{"Ryn_Get_Uplink_Priv_Stats_Len", {{"sw", swID}, {"port", rynPortID}}};
  return ReadHost(call, &answer, [&](const View& host) {
    uint32_t status = kOk;
    const int uplink = FindUplink(host.model, swID, rynPortID, status);
    if (status != kOk)
      return status;
    const std::string text = DriverText(host.model, uplink, host.ms);
    answer.Put32(0, text.empty() ? 0 : text.size() + 1);
    return kOk;
  });
}

// Cut to the room there is, a NUL at its end.
uint32_t Ryn_Get_Uplink_Priv_Stats(uint32_t swID, uint32_t rynPortID, void* stats, uint32_t* length) {
  Area answer(stats, length);
  return ReadHost({"Ryn_Get_Uplink_Priv_Stats", {{"sw", swID}, {"port", rynPortID}}}, &answer, [&](const View& host) {
    uint32_t status = kOk;
    const int uplink = FindUplink(host.model, swID, rynPortID, status);
    if (status != kOk)
      return status;
    if (answer.room() == 0)
      return kNoRoom;
    const std::string text = DriverText(host.model, uplink, host.ms);
    answer.PutText(0, text, std::min(answer.room(), text.size() + 1));
    return answer.Finish(kOk);
  });
}

// The 24 counters that drivers have in common, of all queues together.
uint32_t Ryn_Get_Uplink_Stats(uint32_t swID, uint32_t rynPortID, void* counters, uint32_t* length) {
  Area record(counters, length);
  return ReadHost({"Ryn_Get_Uplink_Stats", {{"sw", swID}, {"port", rynPortID}}}, &record, [&](const View& host) {
    uint32_t status = kOk;
    const int uplink = FindUplink(host.model, swID, rynPortID, status);
    if (status != kOk)
      return status;
    if (!record.Fits(0, kUplinkRecord))
      return kNoRoom;
    record.Clear(kUplinkRecord);
    PutReceived(record, SumQueues(host.model, uplink, false, host.ms));
    PutSent(record, SumQueues(host.model, uplink, true, host.ms));
    return record.Finish(kOk);
  });
}

// queueKind: 0 receive queues, 1 transmit queues. What belongs to the other direction stays 0.
uint32_t Ryn_Get_Uplink_Queue_Stats(uint32_t swID, uint32_t rynPortID, uint32_t queue, uint32_t queueKind,
                                    void* counters, uint32_t* length) {
  Area record(counters, length);
  const Call call{"Ryn_Get_Uplink_Queue_Stats", {{"sw", swID}, {"port", rynPortID}}};
  return ReadHost(call, &record, [&](const View& host) {
    uint32_t status = kOk;
    const int uplink = FindUplink(host.model, swID, rynPortID, status);
    if (status != kOk)
      return status;
    if (queueKind > 1 || queue >= host.model.base.queues.at(uplink)[queueKind].size())
      return kBadParameter;
    if (!record.Fits(0, kUplinkRecord))
      return kNoRoom;
    record.Clear(kUplinkRecord);
    const QueueCounts words = CountQueue(host.model, uplink, queueKind == 1, static_cast<int>(queue), host.ms);
    queueKind == 1 ? PutSent(record, words) : PutReceived(record, words);
    return record.Finish(kOk);
  });
}

// Any value but 0 lets the switch's uplinks learn.
uint32_t Ryn_Set_Uplink_MAC_Learn(uint32_t swID, uint32_t enable) {
  return ChangeHost({"Ryn_Set_Uplink_MAC_Learn", {{"sw", swID}}}, [&](Change& host) {
    if (host.model.FindSwitch(swID) == nullptr)
      return kNotFound;
    host.store.Run("UPDATE sw SET uplink_mac_learn = ? WHERE sw = ?", enable != 0, swID);
    return kOk;
  });
}

// 0 or 1, for all uplinks of the switch.
uint32_t Ryn_Get_Panic_On_Tx_Hang(uint32_t swID, uint32_t* setting) {
  Area answer(setting, sizeof *setting);
  return ReadHost({"Ryn_Get_Panic_On_Tx_Hang", {{"sw", swID}}}, &answer, [&](const View& host) {
    const Switch* sw = host.model.FindSwitch(swID);
    if (sw == nullptr)
      return kNotFound;
    answer.Put32(0, sw->panic_on_tx_hang);
    return kOk;
  });
}

// What it does is said when a device hangs (timeline.cc): nothing here panics.
uint32_t Ryn_Set_Panic_On_Tx_Hang(uint32_t swID, uint32_t setting) {
  return ChangeHost({"Ryn_Set_Panic_On_Tx_Hang", {{"sw", swID}}}, [&](Change& host) {
    if (host.model.FindSwitch(swID) == nullptr)
      return kNotFound;
    if (setting > 1)
      return kBadParameter;
    host.store.Run("UPDATE sw SET panic_on_tx_hang = ? WHERE sw = ?", setting, swID);
    return kOk;
  });
}

// Any port may be asked for; what is in its answer depends on whether it is an uplink (NetQueueWriter).
uint32_t Ryn_Get_Port_NetQ_Info(uint32_t swID, uint32_t rynPortID, void* response, uint32_t* length) {
  Area area(response, length);
  return ReadHost({"Ryn_Get_Port_NetQ_Info", {{"sw", swID}, {"port", rynPortID}}}, &area, [&](const View& host) {
    const int index = host.model.PortIndex(swID, rynPortID);
    if (index < 0)
      return kNotFound;
    return area.Finish(NetQueueWriter(host.model, area).Write(*host.model.FindSwitch(swID), index));
  });
}

// The affinity of a device is the number of the NUMA node whose cores serve it.
uint32_t Ryn_List_Dev_Affinity(void* devices, uint32_t* length) {
  constexpr std::size_t kHead = 4;
  constexpr std::size_t kName = 32;
  constexpr std::size_t kRecord = 36;
  Area list(devices, length);
  return ReadHost({"Ryn_List_Dev_Affinity", {}}, &list, [&](const View& host) {
    if (!list.Fits(0, kHead))
      return kNoRoom;
    // In the order of their names, as many as there is room for.
    const std::size_t count = std::min(host.model.nics.size(), list.RoomFor(kHead, kRecord));
    list.Put32(0, count);
    for (std::size_t i = 0; i < count; ++i) {
      list.PutText(kHead + i * kRecord, host.model.nics[i].name, kName);
      list.Put32(kHead + i * kRecord + kName, host.model.nics[i].affinity);
    }
    return list.Finish(kOk);
  });
}

// Only a node that has cores is a place for a device, and only one where the switch of each of its uplinks may use one:
// else nothing is changed. Ports of machines stay where they are.
uint32_t Ryn_Set_Dev_Affinity(const char* device, uint32_t affinity) {
  const std::string_view name = device != nullptr ? device : "";
  return ChangeHost({"Ryn_Set_Dev_Affinity", {{"device", name}}}, [&](Change& host) {
    const int nic = host.model.FindNic(name);
    if (nic < 0)
      return kNotFound;
    std::vector<int> cores;
    for (const Core& core : host.model.cores) {
      if (static_cast<uint32_t>(core.node) == affinity)
        cores.push_back(core.id);
    }
    if (cores.empty())
      return kBadParameter;
    host.store.Run("UPDATE nic SET affinity = ? WHERE name = ?", affinity, name);
    // The uplink's work goes to the node's cores that its switch may use; devices take turns, and each sends and
    // receives on neighbouring ones.
    for (std::size_t i = 0; i < host.model.ports.size(); ++i) {
      const Port& port = host.model.ports[i];
      if (port.nic != nic)
        continue;
      std::vector<int> own;
      const uint64_t allowed = host.model.FindSwitch(static_cast<uint32_t>(port.sw))->lcores;
      std::copy_if(cores.begin(), cores.end(), std::back_inserter(own),
                   [&](int core) { return (allowed >> core & 1) != 0; });
      if (own.empty())
        return kBadParameter;
      const std::size_t turn = static_cast<std::size_t>(nic);
      host.store.Run("UPDATE port SET tx_core = ?, rx_core = ?, flow_cleared_ms = ? WHERE sw = ? AND port = ?",
                     own[turn % own.size()], own[(turn + 1) % own.size()], host.ms, port.sw, port.id);
      host.ForgetFlows(static_cast<int>(i));
    }
    return kOk;
  });
}

#pragma GCC visibility pop

}  // extern "C"
