#include "simhost/host/model.h"

#include <algorithm>
#include <cstring>

namespace simhost {

namespace {

std::uint32_t U32(std::int64_t value) { return static_cast<std::uint32_t>(value); }
std::uint16_t U16(std::int64_t value) { return static_cast<std::uint16_t>(value); }
std::uint64_t U64(std::int64_t value) { return static_cast<std::uint64_t>(value); }
std::size_t Index(std::int64_t value) { return static_cast<std::size_t>(value); }

Mac MacOf(std::span<const std::uint8_t> bytes) {
  Mac mac{};
  std::copy_n(bytes.begin(), std::min(bytes.size(), mac.size()), mac.begin());
  return mac;
}

std::uint32_t WordAt(std::span<const std::uint8_t> bytes, std::size_t offset) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes.data() + offset, sizeof word);
  return word;
}

std::optional<std::int64_t> Optional(const Statement& row, int column) {
  return row.IsNull(column) ? std::nullopt : std::optional(row.Int(column));
}

void LoadHost(Store& store, Model& model) {
  Statement host = store.Prepare(
      "SELECT name, seed, flow_timeout_s, flow_floor_ms, fastslabs, segment_ms, mode, base_wall_ns, base_host_ns,"
      " speed_permille, period_ms, tick_ms FROM host, clock, balancer");
  if (!host.Step())
    throw StoreError("the store has no host");
  model.name = host.Text(0);
  model.seed = U64(host.Int(1));
  model.flow_timeout_s = U32(host.Int(2));
  model.flow_floor_ms = host.Int(3);
  model.fastslabs = host.Int(4) != 0;
  model.segment_ms = host.Int(5);
  model.clock = {host.Text(6) == "freeze", host.Int(7), host.Int(8), host.Int(9)};
  model.balancer.period_ms = std::max<std::int64_t>(100, host.Int(10));
  model.balancer.tick_ms = host.Int(11);

  Statement weights = store.Prepare("SELECT position, value, default_value FROM weight");
  while (weights.Step()) {
    model.weights[Index(weights.Int(0))] = U32(weights.Int(1));
    model.default_weights[Index(weights.Int(0))] = U32(weights.Int(2));
  }
}

void LoadHardware(Store& store, Model& model) {
  model.core_index.fill(-1);
  Statement cores = store.Prepare("SELECT lcore, node, packets_per_s FROM lcore ORDER BY lcore");
  while (cores.Step()) {
    model.core_index[Index(cores.Int(0))] = static_cast<std::int8_t>(model.cores.size());
    model.cores.push_back({static_cast<int>(cores.Int(0)), static_cast<int>(cores.Int(1)), cores.Int(2), false});
  }

  Statement nics = store.Prepare(
      "SELECT name, node, affinity, link_mbps, driver_text, crc_ppm, drop_ppm, fpo_level, fpo_groups, fpo_priorities,"
      " fpo_mark_bits, fpo_flows, fpo_counters, fpo_key_bits, fpo_dec_ttl, fpo_actions FROM nic ORDER BY name");
  while (nics.Step()) {
    Nic& nic = model.nics.emplace_back();
    nic.name = nics.Text(0);
    nic.node = static_cast<int>(nics.Int(1));
    nic.affinity = U32(nics.Int(2));
    nic.link_mbps = nics.Int(3);
    nic.driver_text = nics.Int(4) != 0;
    nic.crc_ppm = std::min<std::uint64_t>(U64(nics.Int(5)), 1'000'000);
    nic.drop_ppm = std::min<std::uint64_t>(U64(nics.Int(6)), 1'000'000);
    nic.fpo_level = U32(nics.Int(7));
    for (int i = 0; i < 7; ++i)
      nic.fpo_limits[Index(i)] = U32(nics.Int(8 + i));
    nic.fpo_actions = U64(nics.Int(15));
  }
}

void LoadSwitches(Store& store, Model& model) {
  Statement rows = store.Prepare(
      "SELECT sw, switch_id, alias, name, max_ports, mtu, lcores, lro, flow_cache, panic_on_tx_hang, uplink_mac_learn,"
      " mac_limit, burst_size, numa_team, lb_metric, lb_high, lb_low, lb_pause, lb_sensitivity, flow_cleared_ms,"
      " mac_cleared_ms FROM sw JOIN dvs USING (switch_id) ORDER BY sw");
  while (rows.Step()) {
    Switch& sw = model.switches.emplace_back();
    sw.id = static_cast<int>(rows.Int(0));
    sw.switch_id = rows.Text(1);
    sw.alias = rows.Text(2);
    sw.name = rows.Text(3);
    sw.max_ports = U32(rows.Int(4));
    sw.mtu = U32(rows.Int(5));
    sw.lcores = U64(rows.Int(6));
    sw.lro = U32(rows.Int(7));
    sw.flow_cache = rows.Int(8) != 0;
    sw.panic_on_tx_hang = U32(rows.Int(9));
    sw.uplink_mac_learn = rows.Int(10) != 0;
    sw.mac_limit = U32(rows.Int(11));
    sw.burst_size = U32(rows.Int(12));
    sw.numa_team = rows.Int(13) != 0;
    sw.balancer = {U32(rows.Int(14)), U32(rows.Int(15)), U32(rows.Int(16)), U32(rows.Int(17)), U32(rows.Int(18))};
    sw.flow_cleared_ms = rows.Int(19);
    sw.mac_cleared_ms = rows.Int(20);
    sw.index.fill(-1);
  }
}

// The datapath follows the host properties that it knows, as long as they are well-formed.
void ApplyHostProperties(Store& store, Model& model) {
  Statement rows = store.Prepare("SELECT switch_id, key, value FROM prop WHERE scope = 'host'");
  while (rows.Step()) {
    const std::string switch_id = rows.Text(0);
    const auto sw = std::find_if(model.switches.begin(), model.switches.end(),
                                 [&](const Switch& candidate) { return candidate.switch_id == switch_id; });
    if (sw == model.switches.end())
      continue;
    const std::string key = rows.Text(1);
    const std::span<const std::uint8_t> value = rows.Blob(2);
    if (key == "com.talvor.kiv.ryn.fpo" && value.size() == 4)
      sw->fpo = WordAt(value, 0) != 0;
    if (value.size() < 5 || WordAt(value, 0) != 0)  // the others begin with a version, 0
      continue;
    if (key == "com.talvor.kiv.ryn.loadbal" && value.size() == 24)
      sw->balancer = {WordAt(value, 4), WordAt(value, 8), WordAt(value, 12), WordAt(value, 16), WordAt(value, 20)};
    else if (key == "com.talvor.kiv.ryn.teaming" && value.size() == 5)
      sw->numa_team = value[4] != 0;
    else if (key == "com.talvor.kiv.ryn.burstsize" && value.size() == 8)
      sw->burst_size = WordAt(value, 4);
  }
}

void LoadPorts(Store& store, Model& model) {
  Statement rows = store.Prepare(
      "SELECT sw, port, dvport, kind, nic, client, active, mac, macs_behind, tx_queues, rx_queues, filter_flags, ladrf,"
      " vlan, forged_ok, vni, sample_rate, lro, tx_type, mac_limit, tx_core, rx_core, pinned, flow_cleared_ms,"
      " mac_cleared_ms FROM port ORDER BY sw, port");
  while (rows.Step()) {
    Port port;
    port.sw = static_cast<int>(rows.Int(0));
    port.id = static_cast<int>(rows.Int(1));
    port.dvport = U32(rows.Int(2));
    port.kind = static_cast<int>(rows.Int(3));
    port.nic = rows.IsNull(4) ? -1 : model.FindNic(rows.Text(4));
    port.client = rows.Text(5);
    port.active = rows.Int(6) != 0;
    port.mac = MacOf(rows.Blob(7));
    port.macs_behind = U32(rows.Int(8));
    port.tx_queues = static_cast<int>(rows.Int(9));
    port.rx_queues = static_cast<int>(rows.Int(10));
    port.filter_flags = U32(rows.Int(11));
    port.ladrf = U64(rows.Int(12));
    port.vlan = U16(rows.Int(13));
    port.forged_ok = rows.Int(14) != 0;
    port.vni = U32(rows.Int(15));
    port.sample_rate = U32(rows.Int(16));
    port.lro = U32(rows.Int(17));
    port.tx_type = static_cast<int>(rows.Int(18));
    port.mac_limit = U32(rows.Int(19));
    port.tx_core = static_cast<int>(rows.Int(20));
    port.rx_core = static_cast<int>(rows.Int(21));
    port.pinned = rows.Int(22) != 0;
    port.flow_cleared_ms = rows.Int(23);
    port.mac_cleared_ms = rows.Int(24);

    const auto sw = std::find_if(model.switches.begin(), model.switches.end(),
                                 [&](const Switch& candidate) { return candidate.id == port.sw; });
    if (sw == model.switches.end())
      continue;
    const int index = static_cast<int>(model.ports.size());
    sw->index[Index(port.id)] = static_cast<std::int16_t>(index);
    sw->ports.push_back(index);
    if (port.IsUplink() && port.nic >= 0)
      sw->uplinks.push_back(index);
    model.ports.push_back(std::move(port));
  }

  const auto port_of = [&](const Statement& row) -> Port* {
    const int index = model.PortIndex(U32(row.Int(0)), U32(row.Int(1)));
    return index >= 0 ? &model.ports[Index(index)] : nullptr;
  };
  Statement uplinks = store.Prepare("SELECT sw, port, uplink FROM port_uplink ORDER BY sw, port, seq");
  while (uplinks.Step()) {
    if (Port* port = port_of(uplinks))
      port->uplinks.push_back(U32(uplinks.Int(2)));
  }
  Statement multicast = store.Prepare("SELECT sw, port, mac FROM port_mcast ORDER BY sw, port, seq");
  while (multicast.Step()) {
    if (Port* port = port_of(multicast))
      port->multicast.push_back(MacOf(multicast.Blob(2)));
  }
  Statement ranges = store.Prepare("SELECT sw, port, first, last FROM port_vlan_range ORDER BY sw, port, seq");
  while (ranges.Step()) {
    if (Port* port = port_of(ranges))
      port->vlan_ranges.push_back({U16(ranges.Int(2)), U16(ranges.Int(3))});
  }
  Statement rings = store.Prepare(
      "SELECT sw, port.port, value FROM prop JOIN sw USING (switch_id) JOIN port USING (sw)"
      " WHERE scope = 'port' AND key = 'com.talvor.extraconfig.opqueDvs.ryn.uplinkRing' AND prop.port = dvport");
  while (rings.Step()) {
    Port* port = port_of(rings);
    if (port != nullptr && rings.Blob(2).size() == 8) {
      port->tx_ring = WordAt(rings.Blob(2), 0);
      port->rx_ring = WordAt(rings.Blob(2), 4);
    }
  }
}

// Ports that the store has no core for are placed in turn over their switch's cores, uplinks near their device.
void PlacePorts(Model& model) {
  for (const Switch& sw : model.switches) {
    if (sw.ports.empty())
      continue;
    std::vector<int> own;
    for (const Core& core : model.cores) {
      if ((sw.lcores >> core.id & 1) != 0)
        own.push_back(core.id);
    }
    if (own.empty() && !model.cores.empty())
      own.push_back(model.cores.front().id);
    if (own.empty())
      throw StoreError("the host has no lcores");

    std::size_t next_uplink = 0;
    std::size_t next = 0;
    for (const int index : sw.ports) {
      Port& port = model.ports[Index(index)];
      std::vector<int> near;
      if (port.IsUplink() && port.nic >= 0) {
        const std::uint32_t node = model.nics[Index(port.nic)].affinity;
        std::copy_if(own.begin(), own.end(), std::back_inserter(near),
                     [&](int core) { return U32(model.NodeOfCore(core)) == node; });
      }
      const std::vector<int>& choice = near.empty() ? own : near;
      std::size_t& turn = port.IsUplink() ? next_uplink : next;
      for (int* core : {&port.tx_core, &port.rx_core}) {
        if (model.FindCore(U32(*core)) == nullptr) {
          *core = choice[(turn + (core == &port.rx_core ? 1 : 0)) % choice.size()];
          port.placed_here = true;
        }
      }
      ++turn;
    }
  }
}

void LoadMirrors(Store& store, Model& model) {
  Statement rows =
      store.Prepare("SELECT sw, session, encap_vlan, snap_len, sampling_rate, flags FROM mirror ORDER BY sw, session");
  while (rows.Step()) {
    MirrorSession& session = model.mirrors[static_cast<int>(rows.Int(0))].emplace_back();
    session.index = U16(rows.Int(1));
    session.encap_vlan = U16(rows.Int(2));
    session.snap_len = U16(rows.Int(3));
    session.sampling_rate = U16(rows.Int(4));
    session.flags = U16(rows.Int(5));
  }
  const auto session_of = [&](const Statement& row) -> MirrorSession* {
    for (MirrorSession& session : model.mirrors[static_cast<int>(row.Int(0))]) {
      if (session.index == row.Int(1))
        return &session;
    }
    return nullptr;
  };
  Statement ports = store.Prepare("SELECT sw, session, role, port FROM mirror_port ORDER BY sw, session, role, port");
  while (ports.Step()) {
    const std::string role = ports.Text(2);
    if (MirrorSession* session = session_of(ports))
      session->ports[role == "in"    ? kMirrorIn
                     : role == "out" ? kMirrorOut
                                     : kMirrorTo]
          .push_back(static_cast<int>(ports.Int(3)));
  }
  Statement vlans = store.Prepare("SELECT sw, session, vlan FROM mirror_vlan ORDER BY sw, session, seq");
  while (vlans.Step()) {
    if (MirrorSession* session = session_of(vlans))
      session->vlans.push_back(U16(vlans.Int(2)));
  }
}

void LoadMacEntries(Store& store, Model& model) {
  Statement rows =
      store.Prepare("SELECT sw, port, mac, vlan, present, at_ms FROM mac_entry ORDER BY sw, port, mac, vlan");
  while (rows.Step())
    model.mac_entries[static_cast<int>(rows.Int(0))].push_back(
        {static_cast<int>(rows.Int(1)), MacOf(rows.Blob(2)), U16(rows.Int(3)), rows.Int(4) != 0, rows.Int(5)});
}

void LoadConversations(Store& store, Model& model) {
  Statement rows = store.Prepare(
      "SELECT id, sw, src_port, dst_port, delivery, protocol, src_ip, dst_ip, src_l4, dst_l4, dst_mac, vlan, vni,"
      " milli_pps, reply_permille, size, reply_size, flows, churn_ppm, slow_permille, swing_permille, period_ms,"
      " phase_ms, burst_every_ms, burst_for_ms, burst_permille, start_ms, stop_ms, actions, vdr"
      " FROM conversation ORDER BY id");
  while (rows.Step()) {
    Conversation talk;
    talk.id = static_cast<int>(rows.Int(0));
    talk.sw = static_cast<int>(rows.Int(1));
    talk.source = model.PortIndex(U32(rows.Int(1)), U32(rows.Int(2)));
    talk.destination = rows.IsNull(3) ? -1 : model.PortIndex(U32(rows.Int(1)), U32(rows.Int(3)));
    if (talk.source < 0)
      continue;
    const std::string delivery = rows.Text(4);
    talk.delivery = delivery == "unicast"     ? Delivery::kUnicast
                    : delivery == "multicast" ? Delivery::kMulticast
                                              : Delivery::kBroadcast;
    talk.protocol = static_cast<std::uint8_t>(rows.Int(5));
    talk.source_ip.assign(rows.Blob(6).begin(), rows.Blob(6).end());
    talk.destination_ip.assign(rows.Blob(7).begin(), rows.Blob(7).end());
    talk.source_l4 = U16(rows.Int(8));
    talk.destination_l4 = U16(rows.Int(9));
    talk.remote_mac = rows.IsNull(10) ? MadeUpMac(model.seed, 0x52, U64(rows.Int(1))) : MacOf(rows.Blob(10));
    talk.vlan = U16(rows.Int(11));
    talk.vni = U32(rows.Int(12));
    Pattern& there = talk.pattern[0];
    there.milli_pps = rows.Int(13);
    there.swing_permille = rows.Int(20);
    there.period_ms = std::max<std::int64_t>(1, rows.Int(21));
    there.phase_ms = rows.Int(22);
    there.burst_every_ms = rows.Int(23);
    there.burst_for_ms = rows.Int(24);
    there.burst_permille = rows.Int(25);
    there.start_ms = rows.Int(26);
    there.stop_ms = Optional(rows, 27);
    talk.pattern[1] = there;
    talk.pattern[1].milli_pps = talk.delivery == Delivery::kUnicast
                                    ? static_cast<std::int64_t>(Share(U64(there.milli_pps), U64(rows.Int(14)), 1000))
                                    : 0;
    talk.size = {U32(rows.Int(15)), U32(rows.Int(16))};
    talk.flows = std::max<std::uint32_t>(1, U32(rows.Int(17)));
    talk.churn_ppm = U32(rows.Int(18));
    talk.slow_permille = U32(rows.Int(19));
    talk.actions = U32(rows.Int(28));
    talk.vdr = U32(rows.Int(29));
    model.conversations.push_back(std::move(talk));
  }
}

void LoadFaults(Store& store, Model& model) {
  Statement rows = store.Prepare(
      "SELECT id, operation, where_name, where_glob, status, delay_ms, corrupt, after, times, probability_ppm, seed,"
      " from_ms, until_ms, calls, hits FROM fault ORDER BY id");
  while (rows.Step()) {
    Fault& fault = model.faults.emplace_back();
    fault.id = rows.Int(0);
    fault.operation = rows.Text(1);
    fault.where_name = rows.Text(2);
    fault.where_glob = rows.Text(3);
    if (!rows.IsNull(4))
      fault.status = U32(rows.Int(4));
    fault.delay_ms = rows.Int(5);
    fault.corrupt = rows.Text(6);
    fault.after = rows.Int(7);
    fault.times = Optional(rows, 8);
    fault.probability_ppm = U64(rows.Int(9));
    fault.seed = U64(rows.Int(10));
    fault.from_ms = Optional(rows, 11);
    fault.until_ms = Optional(rows, 12);
    fault.calls = rows.Int(13);
    fault.hits = rows.Int(14);
  }
  Statement events = store.Prepare("SELECT id, kind, target, value, from_ms, until_ms, started FROM event ORDER BY id");
  while (events.Step())
    model.events.push_back({events.Int(0), events.Text(1), events.Text(2), Optional(events, 3), events.Int(4),
                            Optional(events, 5), static_cast<int>(events.Int(6))});
}

template <std::size_t N>
void CopyWords(std::span<const std::uint8_t> blob, std::array<std::uint64_t, N>& words) {
  std::memcpy(words.data(), blob.data(), std::min(blob.size(), sizeof words));
}

void LoadBase(Store& store, Model& model) {
  Base& base = model.base;
  base.ports.resize(model.ports.size());
  base.flows.resize(kSwitches * kCores);
  base.passed.resize(model.conversations.size());
  for (const Switch& sw : model.switches) {
    for (const int uplink : sw.uplinks) {
      const Port& port = model.ports[Index(uplink)];
      base.queues[uplink][0].resize(Index(std::max(1, port.rx_queues)));
      base.queues[uplink][1].resize(Index(std::max(1, port.tx_queues)));
    }
  }
  std::map<int, std::size_t> conversation_index;
  for (std::size_t i = 0; i < model.conversations.size(); ++i)
    conversation_index[model.conversations[i].id] = i;

  Statement rows = store.Prepare("SELECT kind, sw, id, counts FROM base");
  while (rows.Step()) {
    const std::string kind = rows.Text(0);
    const std::int64_t sw = rows.Int(1);
    const std::int64_t id = rows.Int(2);
    const std::span<const std::uint8_t> counts = rows.Blob(3);
    if (kind == "flow") {
      CopyWords(counts, base.flows[Index(sw * kCores + id)]);
    } else if (kind == "core") {
      CopyWords(counts, base.busy_ns);
    } else if (kind == "passed") {
      if (const auto it = conversation_index.find(static_cast<int>(id)); it != conversation_index.end())
        CopyWords(counts, base.passed[it->second]);
    } else if (const int port = model.PortIndex(U32(sw), U32(id)); port >= 0) {
      if (kind == "port") {
        CopyWords(counts, base.ports[Index(port)]);
      } else if (const auto it = base.queues.find(port); it != base.queues.end()) {
        std::vector<QueueCounts>& queues = it->second[kind == "rx" ? 0 : 1];
        // Of a port that has lost queues since, the last one keeps their counts.
        for (std::size_t q = 0; (q + 1) * sizeof(QueueCounts) <= counts.size(); ++q) {
          QueueCounts words{};
          std::memcpy(words.data(), counts.data() + q * sizeof(QueueCounts), sizeof words);
          for (std::size_t i = 0; i < words.size(); ++i)
            queues[std::min(q, queues.size() - 1)][i] += words[i];
        }
      }
    }
  }
}

}  // namespace

const Switch* Model::FindSwitch(std::uint32_t id) const {
  for (const Switch& sw : switches) {
    if (U32(sw.id) == id)
      return &sw;
  }
  return nullptr;
}

const Switch* Model::FindSwitchByPortset(std::string_view portset) const {
  for (const Switch& sw : switches) {
    if (sw.name == portset || sw.alias == portset || sw.switch_id == portset)
      return &sw;
  }
  return nullptr;
}

int Model::PortIndex(std::uint32_t sw, std::uint32_t port) const {
  const Switch* found = FindSwitch(sw);
  return found != nullptr && port < kPortsPerSwitch ? found->index[port] : -1;
}

const Port* Model::FindPort(std::uint32_t sw, std::uint32_t port) const {
  const int index = PortIndex(sw, port);
  return index >= 0 ? &ports[Index(index)] : nullptr;
}

int Model::FindNic(std::string_view device) const {
  for (std::size_t i = 0; i < nics.size(); ++i) {
    if (nics[i].name == device)
      return static_cast<int>(i);
  }
  return -1;
}

const Core* Model::FindCore(std::uint32_t id) const {
  return id < kCores && core_index[id] >= 0 ? &cores[Index(core_index[id])] : nullptr;
}

int Model::NodeOfCore(int id) const {
  const Core* core = FindCore(U32(id));
  return core != nullptr ? core->node : -1;
}

bool Model::IsOn(const Conversation& talk) const {
  const Pattern& pattern = talk.pattern[0];
  return pattern.start_ms <= segment_ms && (!pattern.stop_ms || segment_ms < *pattern.stop_ms);
}

std::int64_t Model::NextDueMs() const {
  std::int64_t due = std::min(balancer.tick_ms + balancer.period_ms, next_turn_ms);
  for (const Event& event : events) {
    if (event.stage == kEventAhead)
      due = std::min(due, event.from_ms);
    else if (event.stage == kEventOn && event.until_ms)
      due = std::min(due, *event.until_ms);
  }
  return due;
}

std::uint64_t Mix(std::uint64_t value) {
  value += 0x9E3779B97F4A7C15;
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
  return value ^ (value >> 31);
}

Mac MadeUpMac(std::uint64_t seed, std::uint64_t a, std::uint64_t b) {
  const std::uint64_t bits = Mix(Mix(seed ^ (a << 32)) ^ b);
  Mac mac{0x02};  // locally administered, one station
  for (std::size_t i = 1; i < mac.size(); ++i)
    mac[i] = static_cast<std::uint8_t>(bits >> (8 * i));
  return mac;
}

Model LoadModel(Store& store) {
  Model model;
  LoadHost(store, model);
  LoadHardware(store, model);
  LoadSwitches(store, model);
  ApplyHostProperties(store, model);
  LoadPorts(store, model);
  PlacePorts(model);
  LoadMirrors(store, model);
  LoadMacEntries(store, model);
  LoadConversations(store, model);
  LoadFaults(store, model);
  LoadBase(store, model);
  return model;
}

}  // namespace simhost
