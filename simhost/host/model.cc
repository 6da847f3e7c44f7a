#include "simhost/host/model.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <map>
#include <span>
#include <system_error>
#include <utility>

namespace simhost {

namespace {

// For numbers that the store has as int64 and whose limits were checked as they were read.
std::uint32_t U32(std::int64_t value) { return static_cast<std::uint32_t>(value); }
std::uint64_t U64(std::int64_t value) { return static_cast<std::uint64_t>(value); }

// Property values are in the byte order of the platform, which is this machine's.
std::uint32_t WordAt(std::span<const std::uint8_t> bytes, std::size_t offset) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes.data() + offset, sizeof word);
  return word;
}

// Each of the functions that load reads the tables it names, and may rely on what those before it have loaded.

void LoadHost(Store& store, Model& model) {
  static_cast<HostRow&>(model) = OnlyRow<HostRow>(store);
  const auto clock = OnlyRow<ClockRow>(store);
  model.clock = {clock.mode == ClockMode::kFreeze, clock.base_wall_ns, clock.base_host_ns, clock.speed_permille};

  std::size_t weights = 0;
  ForEach<WeightRow>(store, [&](const WeightRow& row, RowReader&) {
    model.weights[Index(row.position)] = row.value;
    model.default_weights[Index(row.position)] = row.default_value;
    ++weights;
  });
  if (weights != model.weights.size())
    throw StoreError("weight: the store has " + std::to_string(weights) + " rows, expected " +
                     std::to_string(model.weights.size()));
}

// A host needs a core at least, since ports have to be placed somewhere; it can do without devices and switches.
void LoadHardware(Store& store, Model& model) {
  model.core_index.fill(-1);
  ForEach<Core>(store, [&](const Core& core, const RowReader&) {
    model.core_index[Index(core.id)] = static_cast<std::int8_t>(model.cores.size());
    model.cores.push_back(core);
  });
  if (model.cores.empty())
    throw StoreError("lcore: the host has no cores");
  ForEach<Nic>(store, [&](Nic& nic, const RowReader&) {
    nic.fpo_limits = {nic.fpo_groups,   nic.fpo_priorities, nic.fpo_mark_bits, nic.fpo_flows,
                      nic.fpo_counters, nic.fpo_key_bits,   nic.fpo_dec_ttl};
    model.nics.push_back(std::move(nic));
  });
}

// What the datapath has of its own; properties may change what is in force (ApplyHostProperties), and events the limit.
void LoadSwitches(Store& store, Model& model) {
  ForEach<DvsRow>(store, [](const DvsRow&, const RowReader&) {});  // read for its checks: those without a datapath too
  ForEach<Switch>(store, [&](Switch& sw, const RowReader&) {
    sw.balancer = {sw.lb_metric, sw.lb_high, sw.lb_low, sw.lb_pause, sw.lb_sensitivity};
    sw.own_mac_limit = sw.mac_limit;
    sw.index.fill(-1);
    model.switches.push_back(std::move(sw));
  });
}

// The datapath follows the host properties that it knows, as long as they are well-formed. Those of another version or
// length stay in the store, where scripts find them, and change nothing.
void ApplyHostProperties(Store& store, Model& model) {
  ForEach<PropertyRow>(store, [&](const PropertyRow& row, RowReader&) {
    const auto sw = std::find_if(model.switches.begin(), model.switches.end(),
                                 [&](const Switch& candidate) { return candidate.switch_id == row.switch_id; });
    if (row.scope != PropertyScope::kHost || sw == model.switches.end())
      return;
    const std::vector<std::uint8_t>& value = row.value;
    // Offload is a bare word; the others begin with a version, 0.
    if (row.key == "com.talvor.kiv.ryn.fpo" && value.size() == 4)
      sw->fpo = WordAt(value, 0) != 0;
    if (value.size() < 5 || WordAt(value, 0) != 0)
      return;
    if (row.key == "com.talvor.kiv.ryn.loadbal" && value.size() == 24)
      sw->balancer = {WordAt(value, 4), WordAt(value, 8), WordAt(value, 12), WordAt(value, 16), WordAt(value, 20)};
    else if (row.key == "com.talvor.kiv.ryn.teaming" && value.size() == 5)
      sw->numa_team = value[4] != 0;
    else if (row.key == "com.talvor.kiv.ryn.burstsize" && value.size() == 8)
      sw->burst_size = WordAt(value, 4);
  });
}

// The switch that a row belongs to.
Switch& SwitchOf(Model& model, int sw, const RowReader& row) {
  for (Switch& candidate : model.switches) {
    if (candidate.id == sw)
      return candidate;
  }
  row.Refuse("sw", "is " + std::to_string(sw) + ", which is no switch of the datapath");
}

// The index into Model::ports of the port that a row names in `column`.
int PortOf(const Model& model, int sw, int port, const RowReader& row, const char* column) {
  const int index = model.PortIndex(U32(sw), U32(port));
  if (index < 0)
    row.Refuse(column, "is " + std::to_string(port) + ", which is no port of switch " + std::to_string(sw));
  return index;
}

// Ports in the order of switch and number, with what belongs to each. A device is one port's only, and an uplink is a
// port with a device: the rest of the model finds either from the other.
void LoadPorts(Store& store, Model& model) {
  std::vector<bool> used(model.nics.size());
  ForEach<Port>(store, [&](Port& port, const RowReader& reader) {
    Switch& sw = SwitchOf(model, port.sw, reader);
    if (port.nic_name) {
      port.nic = model.FindNic(*port.nic_name);
      if (port.nic < 0)
        reader.Refuse("nic", "is \"" + Printable(*port.nic_name) + "\", which the host does not have");
      if (used[Index(port.nic)])
        reader.Refuse("nic", "is \"" + Printable(*port.nic_name) + "\", which is another port's already");
      used[Index(port.nic)] = true;
    }
    if (port.IsUplink() != port.nic_name.has_value())
      reader.Refuse("kind",
                    port.IsUplink() ? "is an uplink's, but there is no nic" : "is not an uplink's, but there is a nic");
    const int index = static_cast<int>(model.ports.size());
    sw.index[Index(port.id)] = static_cast<std::int16_t>(index);
    sw.ports.push_back(index);
    if (port.IsUplink())
      sw.uplinks.push_back(index);
    model.ports.push_back(std::move(port));
  });

  const auto port_of = [&](const auto& row, const RowReader& reader) -> Port& {
    return model.ports[Index(PortOf(model, row.sw, row.port, reader, "port"))];
  };
  ForEach<PortUplinkRow>(store, [&](const PortUplinkRow& row, const RowReader& reader) {
    port_of(row, reader).uplinks.push_back(row.uplink);
  });
  ForEach<PortMulticastRow>(store, [&](const PortMulticastRow& row, const RowReader& reader) {
    port_of(row, reader).multicast.push_back(row.mac);
  });
  ForEach<PortVlanRow>(store, [&](const PortVlanRow& row, const RowReader& reader) {
    if (row.first > row.last)
      reader.Refuse("last", "is " + std::to_string(row.last) + ", expected " + std::to_string(row.first) + " or more");
    port_of(row, reader).vlan_ranges.push_back({row.first, row.last});
  });
}

// Ring sizes that are kept as properties of uplinks, in the form that the module writes: two words, transmit and
// receive.
void ApplyPortProperties(Store& store, Model& model) {
  std::map<std::pair<std::string, std::string>, Port*> ports;
  for (Port& port : model.ports)
    ports[{model.FindSwitch(U32(port.sw))->switch_id, std::to_string(port.dvport)}] = &port;
  ForEach<PropertyRow>(store, [&](const PropertyRow& row, RowReader&) {
    if (row.scope != PropertyScope::kPort || row.key != "com.talvor.extraconfig.opqueDvs.ryn.uplinkRing" ||
        row.value.size() != 8)
      return;
    if (const auto port = ports.find({row.switch_id, row.port}); port != ports.end()) {
      port->second->tx_ring = WordAt(row.value, 0);
      port->second->rx_ring = WordAt(row.value, 4);
    }
  });
}

// Ports that the store has no core for are placed in turn over their switch's cores, uplinks near their device, sending
// and receiving on neighbouring cores. Every process places them alike, so it does not matter who writes it down first
// (PersistPlacement).
void PlacePorts(Model& model) {
  for (const Switch& sw : model.switches) {
    if (sw.ports.empty())
      continue;
    std::vector<int> own;
    for (const Core& core : model.cores) {
      if ((sw.lcores >> core.id & 1) != 0)
        own.push_back(core.id);
    }
    if (own.empty())  // a switch that may use no core of the host: there has to be one
      own.push_back(model.cores.front().id);

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

// Sessions before their parts. A session's ports have to be there: what copies nothing is a mistake of the store.
void LoadMirrors(Store& store, Model& model) {
  ForEach<MirrorSession>(store, [&](MirrorSession& session, const RowReader& reader) {
    model.mirrors[SwitchOf(model, session.sw, reader).id].push_back(std::move(session));
  });
  const auto session_of = [&](const auto& row, const RowReader& reader) -> MirrorSession& {
    for (MirrorSession& session : model.mirrors[SwitchOf(model, row.sw, reader).id]) {
      if (session.index == row.session)
        return session;
    }
    reader.Refuse("session", "is " + std::to_string(row.session) + ", which the switch does not have");
  };
  ForEach<MirrorPortRow>(store, [&](const MirrorPortRow& row, const RowReader& reader) {
    PortOf(model, row.sw, row.port, reader, "port");
    session_of(row, reader).ports[Index(row.role)].push_back(row.port);
  });
  ForEach<MirrorVlanRow>(store, [&](const MirrorVlanRow& row, const RowReader& reader) {
    session_of(row, reader).vlans.push_back(row.vlan);
  });
}

// An entry's port need not be there: entries stay when a port goes, and hold again when it comes back.
void LoadMacEntries(Store& store, Model& model) {
  ForEach<MacEntryRow>(store, [&](const MacEntryRow& row, const RowReader& reader) {
    if ((row.mac[0] & 1) != 0)
      reader.Refuse("mac", "is a group address, expected that of one station");
    model.mac_entries[SwitchOf(model, row.sw, reader).id].push_back(row);
  });
}

// The pattern of a conversation's packets there; those back have another rate.
// The store has the mean rate with bursts, the pattern the rate between them.
Pattern PatternOf(const ConversationRow& row) {
  Pattern pattern{row.milli_pps,    row.swing_permille, row.period_ms, row.phase_ms, row.burst_every_ms,
                  row.burst_for_ms, row.burst_permille, row.start_ms,  row.stop_ms};
  pattern.IncludeBursts();
  return pattern;
}

// What no single column shows.
void CheckConversation(const ConversationRow& row, const RowReader& reader) {
  const std::size_t size = row.source_ip.size();
  if (size != 4 && size != 16)
    reader.Refuse("src_ip", "has " + std::to_string(size) + " bytes, expected 4 or 16");
  if (row.destination_ip.size() != size)
    reader.Refuse("dst_ip",
                  "has " + std::to_string(row.destination_ip.size()) + " bytes, src_ip " + std::to_string(size));
  if (row.burst_for_ms > row.burst_every_ms)
    reader.Refuse("burst_for_ms", "is longer than what lies between the starts of two bursts");
  if (row.stop_ms && *row.stop_ms < row.start_ms)
    reader.Refuse("stop_ms", "is before start_ms");
}

void LoadConversations(Store& store, Model& model) {
  ForEach<Conversation>(store, [&](Conversation& talk, const RowReader& reader) {
    CheckConversation(talk, reader);
    talk.source = PortOf(model, talk.sw, talk.src_port, reader, "src_port");
    talk.destination = talk.dst_port ? PortOf(model, talk.sw, *talk.dst_port, reader, "dst_port") : -1;
    if (talk.destination == talk.source)
      reader.Refuse("dst_port", "is the sender itself");
    // What leaves the host has to come from it: an uplink's packets are for a port of this switch.
    if (talk.destination < 0 && model.ports[Index(talk.source)].IsUplink())
      reader.Refuse("dst_port", "is NULL, but the sender is an uplink");
    // Whoever is outside has one address for the whole switch, unless the conversation names another.
    talk.remote_mac = talk.dst_mac.value_or(MadeUpMac(model.seed, 0x52, U64(talk.sw)));
    talk.pattern = {PatternOf(talk), PatternOf(talk)};
    // Answers come in the rhythm of the questions; nobody answers a multicast.
    talk.pattern[kBack].milli_pps =
        talk.delivery == Delivery::kUnicast
            ? static_cast<std::int64_t>(Share(U64(talk.pattern[kThere].milli_pps), U64(talk.reply_permille), 1000))
            : 0;
    talk.size = {talk.frame_size, talk.reply_size};
    model.conversations.push_back(std::move(talk));
  });
}

// Rules in the order of their numbers, the order in which they are tried.
void LoadFaults(Store& store, Model& model) {
  std::map<std::int64_t, std::size_t> place;
  ForEach<Fault>(store, [&](Fault& fault, const RowReader&) {
    place[fault.id] = model.faults.size();
    model.faults.push_back(std::move(fault));
  });
  ForEach<FaultWhereRow>(store, [&](const FaultWhereRow& row, const RowReader& reader) {
    const auto fault = place.find(row.fault);
    if (fault == place.end())
      reader.Refuse("fault", "is " + std::to_string(row.fault) + ", which is no fault");
    model.faults[fault->second].where.push_back(row);
  });
}

// A number that is all of a text; -1: it is none.
int NumberIn(std::string_view text) {
  int number = -1;
  const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
  return end.ec == std::errc() && end.ptr == text.data() + text.size() ? number : -1;
}

// The index of what an event names: of a device, core, switch or port in the model's list of these; -1: there is none.
int FindTarget(const Model& model, EventTarget kind, std::string_view target) {
  switch (kind) {
    case EventTarget::kNic:
      return model.FindNic(target);
    case EventTarget::kCore: {
      const Core* core = model.FindCore(U32(NumberIn(target)));
      return core != nullptr ? static_cast<int>(core - model.cores.data()) : -1;
    }
    case EventTarget::kSwitch: {
      const Switch* sw = model.FindSwitch(U32(NumberIn(target)));
      return sw != nullptr ? static_cast<int>(sw - model.switches.data()) : -1;
    }
    case EventTarget::kPort: {
      const std::size_t slash = target.find('/');
      if (slash == std::string_view::npos)
        return -1;
      return model.PortIndex(U32(NumberIn(target.substr(0, slash))), U32(NumberIn(target.substr(slash + 1))));
    }
  }
  return -1;
}

// What an event happens to is looked up once, here; its row keeps the name.
void LoadEvents(Store& store, Model& model) {
  ForEach<Event>(store, [&](Event& event, const RowReader& reader) {
    const EventRule& rule = kEventRules[Index(event.kind)];
    const std::string name(TextOf(event.kind));
    event.target_index = FindTarget(model, rule.target, event.target);
    if (event.target_index < 0)
      reader.Refuse("target", "is \"" + Printable(event.target) + "\", which " + name + " cannot happen to here");
    event.effect = event.value.value_or(rule.usual);
    if (event.value && (event.effect < rule.low || event.effect > rule.high))
      reader.Refuse("value", "is " + std::to_string(event.effect) + ", which means nothing to " + name);
    if (event.until_ms && *event.until_ms <= event.from_ms)
      reader.Refuse("until_ms", "is not after from_ms");
    model.events.push_back(std::move(event));
  });
}

}  // namespace

const Switch* Model::FindSwitch(std::uint32_t id) const {
  for (const Switch& sw : switches) {
    if (U32(sw.id) == id)
      return &sw;
  }
  return nullptr;
}

// A script's resolver hands on what it was given when it finds no portset for it, so other names of a switch lead to it
// too.
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

// The balancer looks for ever, so something is always due.
std::int64_t Model::NextDueMs() const {
  std::int64_t due = balancer.fresh ? balancer.tick_ms : balancer.tick_ms + balancer.period_ms;
  for (const Event& event : events)
    due = std::min(due, event.NextMs().value_or(due));
  return due;
}

// A finalizer of 64 bits: each bit of the result depends on all bits of the value, and different values stay different.
std::uint64_t Mix(std::uint64_t value) {
  value += 0x9E3779B97F4A7C15;
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
  return value ^ (value >> 31);
}

// a and b are spread apart before they are mixed, so that different pairs give different addresses, as far as 40 bits
// go.
Mac MadeUpMac(std::uint64_t seed, std::uint64_t a, std::uint64_t b) {
  const std::uint64_t bits = Mix(Mix(seed ^ (a << 32)) ^ b);
  Mac mac{0x02};  // locally administered, one station
  for (std::size_t i = 1; i < mac.size(); ++i)
    mac[i] = static_cast<std::uint8_t>(bits >> (8 * i));
  return mac;
}

// In the order in which one table refers to another.
Model LoadModel(Store& store) {
  Model model;
  LoadHost(store, model);
  LoadHardware(store, model);
  LoadSwitches(store, model);
  ApplyHostProperties(store, model);
  LoadPorts(store, model);
  ApplyPortProperties(store, model);
  PlacePorts(model);
  LoadMirrors(store, model);
  LoadMacEntries(store, model);
  LoadConversations(store, model);
  LoadFaults(store, model);
  LoadEvents(store, model);
  return model;
}

}  // namespace simhost
