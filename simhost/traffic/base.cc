#include "simhost/traffic/base.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <span>
#include <string>

#include "simhost/host/row_reader.h"
#include "simhost/traffic/losses.h"

namespace simhost {

namespace {

std::uint32_t U32(std::int64_t value) { return static_cast<std::uint32_t>(value); }

// Words in the store are in this machine's byte order. A row that an older version of a record has written may be
// shorter: its last counters begin at 0.
template <std::size_t N>
void CopyWords(std::span<const std::uint8_t> blob, std::array<std::uint64_t, N>& words) {
  if (!blob.empty())  // else it may have no address
    std::memcpy(words.data(), blob.data(), std::min(blob.size(), sizeof words));
}

template <class Words>
std::span<const std::uint8_t> Bytes(const Words& words) {
  return {reinterpret_cast<const std::uint8_t*>(words.data()), words.size() * sizeof(words[0])};
}

// Writes rows. Nearly always the row is there and as long as before, which SQLite updates in place; replacing it would
// cost twice as much.
class RowWriter {
 public:
  explicit RowWriter(Store& store)
      : store_(store), update_(store.Prepare("UPDATE base SET counts = ? WHERE kind = ? AND sw = ? AND id = ?")) {}

  void Put(BaseKind kind, int sw, int id, std::span<const std::uint8_t> counts) {
    update_.Run(counts, TextOf(kind), sw, id);
    if (store_.Changes() == 0)
      store_.Run("INSERT INTO base (kind, sw, id, counts) VALUES (?, ?, ?, ?)", TextOf(kind), sw, id, counts);
  }

 private:
  Store& store_;
  Statement update_;
};

}  // namespace

// Counts of ports and conversations that have gone since are left out; those of new ones begin at 0.
void LoadBase(Store& store, Model& model) {
  Base& base = model.base;
  base = {};
  base.ports.resize(model.ports.size());
  base.flows.resize(kSwitches * kCores);
  base.seen.resize(model.conversations.size());
  // Only uplinks count by queue. One without a queue in some direction has one that shows, so that its sums are right.
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

  ForEach<BaseRow>(store, [&](const BaseRow& row, const RowReader& reader) {
    const std::span<const std::uint8_t> counts(row.counts);
    if (counts.size() % sizeof(std::uint64_t) != 0)
      reader.Refuse("counts", "has " + std::to_string(counts.size()) + " bytes, which are no whole words");
    if (row.kind == BaseKind::kFlow) {
      if (row.id >= kCores)
        reader.Refuse("id", "is " + std::to_string(row.id) + ", which is no core");
      CopyWords(counts, base.flows[Index(row.sw * kCores + row.id)]);
    } else if (row.kind == BaseKind::kCore) {  // one row for all cores: there are no switches in it
      CopyWords(counts, base.busy_ns);
    } else if (row.kind == BaseKind::kLost) {
      // What the words say depends on the paths, which are not there yet: RestoreLosses checks them.
      base.losses.resize(counts.size() / sizeof(std::uint64_t));
      if (!base.losses.empty())
        std::memcpy(base.losses.data(), counts.data(), counts.size());
    } else if (row.kind == BaseKind::kPassed) {
      if (const auto it = conversation_index.find(row.id); it != conversation_index.end()) {
        CopyWords(counts, base.seen[it->second]);
        for (std::uint64_t& flows : base.seen[it->second])
          flows = std::min<std::uint64_t>(flows, model.conversations[it->second].flows);
      }
    } else if (const int port = model.PortIndex(U32(row.sw), U32(row.id)); port >= 0) {
      if (row.kind == BaseKind::kPort) {
        CopyWords(counts, base.ports[Index(port)]);
      } else if (const auto it = base.queues.find(port); it != base.queues.end()) {
        std::vector<QueueCounts>& queues = it->second[row.kind == BaseKind::kRx ? 0 : 1];
        // Of a port that has lost queues since, the last one keeps their counts.
        for (std::size_t q = 0; (q + 1) * sizeof(QueueCounts) <= counts.size(); ++q) {
          QueueCounts words{};
          std::memcpy(words.data(), counts.data() + q * sizeof(QueueCounts), sizeof words);
          for (std::size_t i = 0; i < words.size(); ++i)
            queues[std::min(q, queues.size() - 1)][i] += words[i];
        }
      }
    }
  });
  model.stored_base = base;
}

bool SameCounters(const Model& one, const Model& other) {
  const auto same_port = [](const Port& a, const Port& b) {
    return a.sw == b.sw && a.id == b.id && a.IsUplink() == b.IsUplink() && a.tx_queues == b.tx_queues &&
           a.rx_queues == b.rx_queues;
  };
  const auto same_talk = [](const Conversation& a, const Conversation& b) { return a.id == b.id; };
  return std::equal(one.ports.begin(), one.ports.end(), other.ports.begin(), other.ports.end(), same_port) &&
         std::equal(one.conversations.begin(), one.conversations.end(), other.conversations.begin(),
                    other.conversations.end(), same_talk);
}

// Only what differs from what is stored: ports without traffic and flows that are all known stay as they are. Rows of
// what has gone stay too, and lead nowhere.
void StoreBase(Store& store, Model& model) {
  if (!model.base_changed)
    return;
  RowWriter rows(store);
  const Base& base = model.base;
  const Base& stored = model.stored_base;
  for (std::size_t i = 0; i < model.ports.size(); ++i) {
    if (base.ports[i] != stored.ports[i])
      rows.Put(BaseKind::kPort, model.ports[i].sw, model.ports[i].id, Bytes(base.ports[i]));
  }
  for (const auto& [port, queues] : base.queues) {
    for (const int way : {0, 1}) {
      const std::vector<QueueCounts>& own = queues[Index(way)];
      if (own != stored.queues.at(port)[Index(way)])
        rows.Put(way == 0 ? BaseKind::kRx : BaseKind::kTx, model.ports[Index(port)].sw, model.ports[Index(port)].id,
                 {reinterpret_cast<const std::uint8_t*>(own.data()), own.size() * sizeof(QueueCounts)});
    }
  }
  for (std::size_t place = 0; place < base.flows.size(); ++place) {
    if (base.flows[place] != stored.flows[place])
      rows.Put(BaseKind::kFlow, static_cast<int>(place / kCores), static_cast<int>(place % kCores),
               Bytes(base.flows[place]));
  }
  rows.Put(BaseKind::kCore, 0, 0, Bytes(base.busy_ns));
  for (std::size_t i = 0; i < model.conversations.size(); ++i) {
    if (base.seen[i] != stored.seen[i])
      rows.Put(BaseKind::kPassed, 0, model.conversations[i].id, Bytes(base.seen[i]));
  }
  StoreLosses(store, model);
  store.Run("UPDATE host SET segment_ms = ?", model.segment_ms);
  model.stored_base = base;
  model.base_changed = false;
}

// Done after each look even where no segment ended: losses since the segment began may be hours of windows to work out.
void StoreLosses(Store& store, const Model& model) {
  const std::vector<std::uint64_t> words = SaveLosses(model);
  RowWriter(store).Put(BaseKind::kLost, 0, 0, Bytes(words));
}

}  // namespace simhost
