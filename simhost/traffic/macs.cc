#include "simhost/traffic/macs.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>

#include "simhost/traffic/counts.h"

namespace simhost {

namespace {

constexpr std::uint32_t kRelearnMs = 3'000;     // after a clear everything is known again within this time
constexpr std::int64_t kGenerationMs = 10'000;  // an entry that is not seen grows a generation older this often

enum TableOffset : std::size_t { kCount = 0, kLimitWord = 8, kExceeded = 12, kEntries = 16 };
enum EntryOffset : std::size_t { kMac = 0, kVlan = 6, kPort = 8, kGeneration = 16, kEntrySize = 20 };

// turn: of `turns` packets of the speaker, this one has the address. When it is learned after a clear is made up, so
// that a table fills within kRelearnMs rather than at once.
MacCandidate Candidate(const Model& model, int port, const Mac& mac, std::uint16_t vlan, std::size_t speaker,
                       std::uint64_t turn, std::uint64_t turns) {
  std::uint64_t key = 0;
  for (const std::uint8_t byte : mac)
    key = key << 8 | byte;
  const std::uint64_t dice = Mix(model.seed ^ Mix(key ^ (static_cast<std::uint64_t>(port) << 48)));
  return {port, mac, vlan, static_cast<std::uint32_t>(dice % kRelearnMs), speaker, turn, turns};
}

// All that the switch's ports can learn, by port. It follows from the inventory and the paths alone, so it is kept
// until the model changes: a full table of 65,536 addresses is too much to make up at each call.
const MacCandidates& Candidates(const Model& model, const Switch& sw) {
  const auto known = model.mac_cache.find(sw.id);
  if (known != model.mac_cache.end())
    return known->second;
  MacCandidates& found = model.mac_cache[sw.id];
  for (const int index : sw.ports) {
    const Port& port = model.ports[Index(index)];
    if (port.IsUplink() ? !sw.uplink_mac_learn : !port.active)
      continue;
    // All that comes in by the port; its own address and those behind it take turns. An uplink's own address is not
    // learned: nobody on the switch talks to it.
    const std::size_t speaker = found.speakers.size();
    found.speakers.emplace_back();
    for (const int path : model.paths_of_port[Index(index)]) {
      if (model.paths[Index(path)].in == index)
        found.speakers[speaker].push_back(path);
    }
    const std::uint64_t own = port.IsUplink() ? 0 : 1;
    const std::uint64_t turns = own + port.macs_behind;
    if (own != 0)
      found.all.push_back(Candidate(model, port.id, port.mac, port.vlan, speaker, 0, turns));
    for (std::uint32_t i = 0; i < port.macs_behind; ++i) {
      const Mac mac =
          MadeUpMac(model.seed, static_cast<std::uint64_t>(sw.id) << 8 | static_cast<std::uint64_t>(port.id), i);
      found.all.push_back(Candidate(model, port.id, mac, port.vlan, speaker, own + i, turns));
    }
    if (!port.IsUplink())
      continue;
    // The neighbours on the wire are learned where their answers come in.
    std::map<std::pair<Mac, std::uint16_t>, std::size_t> neighbours;
    for (const int path_index : model.paths_of_port[Index(index)]) {
      const Path& path = model.paths[Index(path_index)];
      const Conversation& talk = model.conversations[Index(path.conversation)];
      if (path.in != index || path.direction == kThere || talk.destination >= 0)
        continue;
      const auto [place, added] = neighbours.try_emplace({talk.remote_mac, talk.vlan}, found.speakers.size());
      if (added) {
        found.speakers.emplace_back();
        found.all.push_back(Candidate(model, port.id, talk.remote_mac, talk.vlan, place->second, 0, 1));
      }
      found.speakers[place->second].push_back(path_index);
    }
  }
  return found;
}

// How long ago the addresses of one speaker were last heard, in generations. Packets are counted from 1, in all since
// the host booted, and an address is heard with each packet whose turn it is. Lost packets are heard all the same:
// what a table says does not depend on load.
class Ages {
 public:
  Ages(const Model& model, const std::vector<int>& paths, std::int64_t ms)
      : model_(model), paths_(paths), ms_(ms), now_(Packets(ms)) {}

  // Of the address whose turn it is with every so manieth packet; none: it was never heard.
  std::optional<std::int64_t> Of(std::uint64_t turn, std::uint64_t turns) {
    if (now_ <= turn)
      return std::nullopt;
    const std::uint64_t last = now_ - (now_ - 1 - turn) % turns;  // its latest packet, counted from 1
    // Usually lately: the counts of the last generations are kept, since the speaker's other addresses ask for them
    // too.
    for (std::size_t generation = 0; generation < kRemembered; ++generation) {
      if (generation == before_.size())
        before_.push_back(Packets(ms_ - static_cast<std::int64_t>(generation + 1) * kGenerationMs));
      if (before_[generation] < last)
        return generation;
    }
    // Long ago: search for the first millisecond by which the packet was there.
    std::int64_t low = 0;
    std::int64_t high = ms_;
    while (low < high) {
      const std::int64_t middle = low + (high - low) / 2;
      if (Packets(middle) >= last)
        high = middle;
      else
        low = middle + 1;
    }
    return (ms_ - high) / kGenerationMs;
  }

 private:
  static constexpr std::size_t kRemembered = 64;

  std::uint64_t Packets(std::int64_t ms) const {
    std::uint64_t packets = 0;
    for (const int path : paths_)
      packets += ms <= 0 ? 0 : PacketsOf(model_, model_.paths[Index(path)], ms);
    return packets;
  }

  const Model& model_;
  const std::vector<int>& paths_;
  std::int64_t ms_;
  std::uint64_t now_;
  std::vector<std::uint64_t> before_;  // packets until so many generations ago
};

// An entry of the table. The address is the candidate's or the entry's by hand: the model outlives the table.
struct Known {
  int port;
  const Mac* mac;
  std::uint16_t vlan;
  std::int64_t generation;
};

// What is in the tables now, by port. exceeded: by port number, and at the end for the switch, that more is known than
// the limit lets in.
struct Table {
  std::vector<Known> entries;
  std::array<bool, kPortsPerSwitch + 1> exceeded{};
};

// Port by port, and within a port entries by hand first, then what it learned: the limits let the first ones in. The
// port's own limit is looked at before the switch's, so that a port that is full does not fill the switch.
Table Collect(const Model& model, const Switch& sw, std::int64_t ms) {
  Table table;
  const MacCandidates& candidates = Candidates(model, sw);
  table.entries.reserve(candidates.all.size());

  static const std::vector<MacEntry> kNone;
  const auto by_hand = model.mac_entries.find(sw.id);
  const std::vector<MacEntry>& own = by_hand != model.mac_entries.end() ? by_hand->second : kNone;

  std::uint32_t in_port = 0;
  int port = -1;
  const Port* of = nullptr;
  std::size_t next_own = 0;
  const auto add = [&](int number, const Mac& mac, std::uint16_t vlan, std::int64_t generation) {
    if (number != port) {
      port = number;
      in_port = 0;
      of = model.FindPort(static_cast<std::uint32_t>(sw.id), static_cast<std::uint32_t>(number));
    }
    if (of == nullptr)
      return;
    if (in_port >= of->mac_limit) {
      table.exceeded[Index(number)] = true;
    } else if (table.entries.size() >= sw.mac_limit) {  // the port knows an address more as well
      table.exceeded[Index(number)] = table.exceeded[kPortsPerSwitch] = true;
    } else {
      table.entries.push_back({number, &mac, vlan, generation});
      ++in_port;
    }
  };
  const auto add_own_until = [&](int number) {
    for (; next_own < own.size() && own[next_own].port <= number; ++next_own) {
      if (own[next_own].present)
        add(own[next_own].port, own[next_own].mac, own[next_own].vlan,
            std::max<std::int64_t>(0, ms - own[next_own].at_ms) / kGenerationMs);
    }
  };

  std::int64_t cleared = 0;
  int cleared_of = -1;
  std::optional<Ages> ages;
  std::size_t speaker = 0;
  for (const MacCandidate& candidate : candidates.all) {
    if (candidate.port != cleared_of) {
      add_own_until(candidate.port);  // entries made by hand go before what the port learns
      cleared_of = candidate.port;
      const Port* found = model.FindPort(static_cast<std::uint32_t>(sw.id), static_cast<std::uint32_t>(candidate.port));
      cleared = std::max(sw.mac_cleared_ms, found->mac_cleared_ms);
    }
    std::int64_t forgotten = cleared;
    bool entered = false;
    for (const MacEntry& entry : own) {
      if (entry.port == candidate.port && entry.mac == candidate.mac && entry.vlan == candidate.vlan) {
        entered = entry.present;
        forgotten = std::max(forgotten, entry.at_ms);
      }
    }
    // Nothing was cleared yet (0): known since the host booted. Otherwise it comes back after its delay.
    const std::int64_t age = ms - forgotten - candidate.delay_ms;
    if (entered || (forgotten > 0 && age < 0))
      continue;
    if (!ages || candidate.speaker != speaker) {
      speaker = candidate.speaker;
      ages.emplace(model, candidates.speakers[speaker], ms);
    }
    // Heard since it was learned, or never: then it is as old as that.
    const std::int64_t learned = (forgotten > 0 ? age : ms) / kGenerationMs;
    add(candidate.port, candidate.mac, candidate.vlan,
        std::min(learned, ages->Of(candidate.turn, candidate.turns).value_or(learned)));
  }
  add_own_until(kPortsPerSwitch);
  return table;
}

}  // namespace

std::uint32_t WriteMacTable(const Model& model, const Switch& sw, int port, std::int64_t ms, Area& out) {
  if (!out.Fits(0, kEntries))
    return kNoRoom;
  const Table table = Collect(model, sw, ms);
  out.Clear(kEntries);
  const std::size_t room = out.RoomFor(kEntries, kEntrySize);
  std::size_t count = 0;
  for (const Known& known : table.entries) {
    if ((port >= 0 && known.port != port) || count == room)
      continue;
    const std::size_t at = kEntries + count++ * kEntrySize;
    std::uint8_t entry[kEntrySize] = {};
    Area fields(entry, sizeof entry);
    fields.PutMac(kMac, *known.mac);
    fields.Put16(kVlan, known.vlan);
    fields.Put32(kPort, known.port);
    fields.Put32(kGeneration, known.generation);
    out.PutBytes(at, entry, sizeof entry);
  }
  const Port* own =
      port >= 0 ? model.FindPort(static_cast<std::uint32_t>(sw.id), static_cast<std::uint32_t>(port)) : nullptr;
  // Beyond the caller's room entries are left out, and the count says how many are there.
  out.Put32(kCount, count);
  out.Put32(kLimitWord, own != nullptr ? std::min(own->mac_limit, sw.mac_limit) : sw.mac_limit);
  out.Put32(kExceeded, table.exceeded[Index(own != nullptr ? port : kPortsPerSwitch)] ? 1 : 0);
  return kOk;
}

bool HasMac(const Model& model, const Switch& sw, int port, const Mac& mac, std::uint16_t vlan, std::int64_t ms) {
  const Table table = Collect(model, sw, ms);
  return std::any_of(table.entries.begin(), table.entries.end(),
                     [&](const Known& known) { return known.port == port && *known.mac == mac && known.vlan == vlan; });
}

bool HasRoomForMac(const Model& model, const Switch& sw, int port, std::int64_t ms) {
  const Table table = Collect(model, sw, ms);
  const auto in_port =
      std::count_if(table.entries.begin(), table.entries.end(), [&](const Known& known) { return known.port == port; });
  const Port* own = model.FindPort(static_cast<std::uint32_t>(sw.id), static_cast<std::uint32_t>(port));
  return table.entries.size() < sw.mac_limit && own != nullptr &&
         static_cast<std::uint64_t>(in_port) < std::min(own->mac_limit, sw.mac_limit);
}

}  // namespace simhost
