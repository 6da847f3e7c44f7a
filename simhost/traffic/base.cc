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

template <std::size_t N>
void CopyWords(std::span<const std::uint8_t> blob, std::array<std::uint64_t, N>& words) {
  std::memcpy(words.data(), blob.data(), std::min(blob.size(), sizeof words));
}

template <class Words>
std::span<const std::uint8_t> Bytes(const Words& words) {
  return {reinterpret_cast<const std::uint8_t*>(words.data()), words.size() * sizeof(words[0])};
}

template <std::size_t N>
bool IsZero(const std::array<std::uint64_t, N>& words) {
  return std::all_of(words.begin(), words.end(), [](std::uint64_t word) { return word == 0; });
}

void Put(Statement& row, std::string_view kind, int sw, int id, std::span<const std::uint8_t> counts) {
  row.Run(kind, sw, id, counts);
}

constexpr std::string_view kPutRow = "INSERT OR REPLACE INTO base (kind, sw, id, counts) VALUES (?, ?, ?, ?)";

}  // namespace

void LoadBase(Store& store, Model& model) {
  Base& base = model.base;
  base = {};
  base.ports.resize(model.ports.size());
  base.flows.resize(kSwitches * kCores);
  base.seen.resize(model.conversations.size());
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
    if (row.kind == "flow") {
      if (row.id >= kCores)
        reader.Refuse("id", "is " + std::to_string(row.id) + ", which is no core");
      CopyWords(counts, base.flows[Index(row.sw * kCores + row.id)]);
    } else if (row.kind == "core") {
      CopyWords(counts, base.busy_ns);
    } else if (row.kind == "lost") {
      base.losses.resize(counts.size() / sizeof(std::uint64_t));
      if (!base.losses.empty())
        std::memcpy(base.losses.data(), counts.data(), counts.size());
    } else if (row.kind == "passed") {
      // Conversations and ports may have gone since.
      if (const auto it = conversation_index.find(row.id); it != conversation_index.end())
        CopyWords(counts, base.seen[it->second]);
    } else if (const int port = model.PortIndex(U32(row.sw), U32(row.id)); port >= 0) {
      if (row.kind == "port") {
        CopyWords(counts, base.ports[Index(port)]);
      } else if (const auto it = base.queues.find(port); it != base.queues.end()) {
        std::vector<QueueCounts>& queues = it->second[row.kind == "rx" ? 0 : 1];
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
}

void StoreBase(Store& store, Model& model) {
  if (!model.base_changed)
    return;
  Statement row = store.Prepare(kPutRow);
  const Base& base = model.base;
  for (std::size_t i = 0; i < model.ports.size(); ++i)
    Put(row, "port", model.ports[i].sw, model.ports[i].id, Bytes(base.ports[i]));
  for (const auto& [port, queues] : base.queues) {
    for (const int way : {0, 1}) {
      const std::vector<QueueCounts>& own = queues[Index(way)];
      Put(row, way == 0 ? "rx" : "tx", model.ports[Index(port)].sw, model.ports[Index(port)].id,
          {reinterpret_cast<const std::uint8_t*>(own.data()), own.size() * sizeof(QueueCounts)});
    }
  }
  for (const Switch& sw : model.switches) {
    for (const Core& core : model.cores) {
      if (const FlowCounts& words = base.flows[Index(sw.id * kCores + core.id)]; !IsZero(words))
        Put(row, "flow", sw.id, core.id, Bytes(words));
    }
  }
  Put(row, "core", 0, 0, Bytes(base.busy_ns));
  for (std::size_t i = 0; i < model.conversations.size(); ++i)
    Put(row, "passed", 0, model.conversations[i].id, Bytes(base.seen[i]));
  StoreLosses(store, model);
  store.Run("UPDATE host SET segment_ms = ?", model.segment_ms);
  model.base_changed = false;
}

void StoreLosses(Store& store, const Model& model) {
  const std::vector<std::uint64_t> words = SaveLosses(model);
  Statement row = store.Prepare(kPutRow);
  Put(row, "lost", 0, 0, Bytes(words));
}

}  // namespace simhost
