#include "simhost/time/balancer.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "simhost/traffic/counts.h"
#include "simhost/traffic/losses.h"
#include "simhost/traffic/paths.h"

namespace simhost {

namespace {

constexpr std::int64_t kKeptMoves = 500;

// Nanoseconds of work that a port made on a core in the last window: what it sends where it sends, what it receives
// where it receives. Work on the slow path is kept halved (PortWord).
std::uint64_t WorkOn(const Port& port, const BalancerPort& seen, int core) {
  std::uint64_t work = 0;
  if (port.tx_core == core)
    work += 2 * seen.window[0] + seen.window[2];
  if (port.rx_core == core)
    work += 2 * seen.window[1] + seen.window[3];
  return work;
}

// A port that could go from one core to another; moves without a positive score are not made.
struct Move {
  int port = -1;
  int from = -1;
  int to = -1;
  std::int64_t score = 0;
};

// Chooses what a look at one switch moves: nothing, or one port, of which all that was on the busy core goes. It reads
// the window before the look, never the present, so that whoever looks, whenever, chooses the same. Ties go to the
// lower core and the lower port.
class MoveChooser {
 public:
  MoveChooser(const Model& model, const Switch& sw, std::int64_t ms) : model_(model), sw_(sw), ms_(ms) {
    for (const Core& core : model.cores) {
      if ((sw.lcores >> core.id & 1) != 0 && !core.stuck)
        cores_.push_back(core.id);
    }
    // A port counts once on each core that it is on; uplinks count too, though they do not move.
    for (const int index : sw.ports) {
      const Port& port = model.ports[Index(index)];
      ++count_[Index(port.tx_core)];
      if (port.rx_core != port.tx_core)
        ++count_[Index(port.rx_core)];
    }
  }

  std::optional<Move> Best() const {
    if (cores_.size() < 2)
      return std::nullopt;
    if (sw_.balancer.metric == kMetricCpu)
      return ByUsage();
    if (sw_.balancer.metric == kMetricCount)
      return ByCount();
    return std::nullopt;
  }

 private:
  // Thresholds are percent, usage is permille. A move gains what it takes off the busy core, at most what is left
  // between both after it: a move that would swap the two cores' roles gains nothing.
  std::optional<Move> ByUsage() const {
    const auto busier = [&](int a, int b) { return BusyPermille(model_, a) < BusyPermille(model_, b); };
    // A core that others keep busy is none of this switch's business.
    std::vector<int> own;
    std::copy_if(cores_.begin(), cores_.end(), std::back_inserter(own), [&](int core) {
      return std::any_of(sw_.ports.begin(), sw_.ports.end(),
                         [&](int index) { return MayMove(model_.ports[Index(index)], core); });
    });
    if (own.empty())
      return std::nullopt;
    const int hot = *std::max_element(own.begin(), own.end(), busier);
    const std::uint64_t hot_permille = BusyPermille(model_, hot);
    if (hot_permille <= std::uint64_t{sw_.balancer.high} * 10)
      return std::nullopt;
    std::optional<Move> best;
    for (const int cold : cores_) {
      const std::uint64_t cold_permille = BusyPermille(model_, cold);
      if (cold == hot || cold_permille >= std::uint64_t{sw_.balancer.low} * 10 ||
          hot_permille - std::min(hot_permille, cold_permille) <= std::uint64_t{sw_.balancer.pause} * 10)
        continue;
      for (const int index : sw_.ports) {
        const Port& port = model_.ports[Index(index)];
        if (!MayMove(port, hot))
          continue;
        const std::uint64_t load = LoadPermille(index, hot);
        // A load too small to matter is left alone, and one that would only make the other core the hot one.
        if (load * 100 < hot_permille * sw_.balancer.sensitivity || load == 0 || cold_permille + load >= hot_permille)
          continue;
        const auto gain = static_cast<std::int64_t>(std::min(load, hot_permille - cold_permille - load));
        Keep(best, {index, hot, cold, 10 * gain - Penalty(index, hot, cold)});
      }
    }
    return best;
  }

  // Every move is worth the same, so the penalties decide which port goes.
  std::optional<Move> ByCount() const {
    const auto fuller = [&](int a, int b) { return count_[Index(a)] < count_[Index(b)]; };
    const int most = *std::max_element(cores_.begin(), cores_.end(), fuller);
    const int least = *std::min_element(cores_.begin(), cores_.end(), fuller);
    if (count_[Index(most)] - count_[Index(least)] < 2)
      return std::nullopt;
    std::optional<Move> best;
    for (const int index : sw_.ports) {
      if (MayMove(model_.ports[Index(index)], most))
        Keep(best, {index, most, least, 1'000'000 - Penalty(index, most, least)});
    }
    return best;
  }

  // Of moves with the same score the first one found stays, so the outcome does not depend on anything but the order.
  static void Keep(std::optional<Move>& best, Move move) {
    if (move.score > 0 && (!best || move.score > best->score))
      best = move;
  }

  // Uplinks stay near their devices, pinned ports where they were put.
  bool MayMove(const Port& port, int core) const {
    return !port.IsUplink() && !port.pinned && (port.tx_core == core || port.rx_core == core);
  }

  // A port's work on a core as a share of the window, which has no length before the second look.
  std::uint64_t LoadPermille(int index, int core) const {
    const std::uint64_t work = WorkOn(model_.ports[Index(index)], model_.balancer.ports[Index(index)], core);
    return Share(work, 1000,
                 static_cast<std::uint64_t>(std::max<std::int64_t>(1, model_.balancer.window_ms)) * 1'000'000);
  }

  // What speaks against a move, by the host's weights, in units of a hundredth of a percent of usage gained. Weights
  // above 24 bits are cut, so that sums cannot overflow.
  std::int64_t Penalty(int index, int from, int to) const {
    const auto weight = [&](Weight which) { return std::int64_t{model_.weights[which] & 0xFFFFFF}; };
    const Port& port = model_.ports[Index(index)];
    const int node = model_.NodeOfCore(to);
    const bool far = node != model_.NodeOfCore(from);
    std::int64_t penalty = far ? weight(kWeightCrossNumaMigration) : weight(kWeightCrossLcoreMigration);

    for (const int path_index : model_.paths_of_port[Index(index)]) {
      const Path& path = model_.paths[Index(path_index)];
      const auto rate = static_cast<std::int64_t>(RateOf(model_, path, ms_, model_.balancer.window_ms) / 10'000);
      std::vector<int> others{path.in};
      if (path.in == index) {
        others.clear();
        for (std::size_t leg = 0; leg < path.receivers; ++leg)
          others.push_back(path.legs[leg].port);
      }
      for (const int other : others) {
        const Port& peer = model_.ports[Index(other)];
        if (peer.IsUplink()) {
          if (model_.nics[Index(peer.nic)].node != node)
            penalty += weight(kWeightDeviceAffinity) * rate / 10;
        } else if (model_.NodeOfCore(peer.rx_core) != node) {
          penalty += weight(kWeightCrossNumaCommunication) * rate / 10;
        } else if (peer.rx_core != to) {
          penalty += weight(kWeightCrossLcoreCommunication) * rate / 10;
        }
      }
    }
    for (const int other : sw_.ports) {
      const Port& peer = model_.ports[Index(other)];
      if (other != index && !port.client.empty() && peer.client == port.client &&
          model_.NodeOfCore(peer.tx_core) != node)
        penalty += weight(kWeightVmAffinity);
    }
    penalty += weight(kWeightPortCount) * (count_[Index(to)] - count_[Index(from)]);
    // A port that was moved a short while ago stays; the higher the rate, the sooner this is forgotten.
    if (const std::int64_t moved = model_.balancer.ports[Index(index)].moved_ms; moved >= 0) {
      const std::int64_t looks = (ms_ - moved) / model_.balancer.period_ms;
      penalty += std::max<std::int64_t>(0, 1000 - looks * (weight(kWeightStabilityDecay) + 1));
    }
    return penalty;
  }

  const Model& model_;
  const Switch& sw_;
  std::int64_t ms_;
  std::vector<int> cores_;
  std::array<int, kCores> count_{};
};

// The segment ends, since packets cost other cores from now on; the port's flows are learned anew where it went.
void Perform(Store& store, Model& model, const Move& move, std::int64_t ms) {
  CloseSegment(model, ms);
  Port& port = model.ports[Index(move.port)];
  if (port.tx_core == move.from)
    port.tx_core = move.to;
  if (port.rx_core == move.from)
    port.rx_core = move.to;
  port.flow_cleared_ms = ms;
  ForgetFlows(model, move.port);
  model.balancer.ports[Index(move.port)].moved_ms = ms;
  BuildPaths(model);
  store.Run("UPDATE port SET tx_core = ?, rx_core = ?, flow_cleared_ms = ? WHERE sw = ? AND port = ?", port.tx_core,
            port.rx_core, ms, port.sw, port.id);
  store.Run("INSERT INTO move (at_ms, sw, port, from_core, to_core) VALUES (?, ?, ?, ?, ?)", ms, port.sw, port.id,
            move.from, move.to);
  store.Run("DELETE FROM move WHERE id <= (SELECT max(id) FROM move) - ?", kKeptMoves);
}

// Bytes of the state: of what all ports have in common, and of each port.
constexpr std::size_t kSavedHead = (1 + 2 * kCores) * sizeof(std::uint64_t);
constexpr std::size_t kSavedPort = 10 * sizeof(std::uint64_t);

}  // namespace

void BeginWindow(Model& model, std::int64_t ms) {
  Balancer& balancer = model.balancer;
  // Looks and segments come in order, so this is later than the look only if the store's times were set by hand.
  const std::int64_t counted = std::max(ms, model.segment_ms);
  SolveLosses(model, counted);
  const WorkCounts work = CountWork(model, counted);
  balancer.window_ms = balancer.fresh ? 0 : ms - balancer.tick_ms;
  for (std::size_t core = 0; core < kCores; ++core) {
    // Totals fall only if the inventory changed or a port was reset; then the window is empty rather than huge.
    const std::uint64_t total = work.busy_ns[core];
    balancer.busy_window[core] = balancer.fresh ? 0 : total - std::min(total, balancer.busy_total[core]);
    balancer.busy_total[core] = total;
  }
  for (std::size_t i = 0; i < model.ports.size(); ++i) {
    BalancerPort& seen = balancer.ports[i];
    for (std::size_t w = 0; w < 4; ++w) {
      const std::uint64_t total = work.ports[i][w];
      seen.window[w] = balancer.fresh ? 0 : total - std::min(total, seen.total[w]);
      seen.total[w] = total;
    }
  }
  balancer.tick_ms = ms;
  balancer.fresh = false;
}

// All switches see the same window, whatever was just moved on another one.
void LookAndMove(Store& store, Model& model, std::int64_t ms) {
  BeginWindow(model, ms);
  for (std::size_t i = 0; i < model.switches.size(); ++i) {
    const std::optional<Move> move = MoveChooser(model, model.switches[i], ms).Best();
    if (move)
      Perform(store, model, *move, ms);
  }
}

// The state in the store: the length of the window, the cores' totals and windows, then for each port its switch and
// number, totals, window and last move. Without any the balancer has not looked yet.
void LoadBalancer(Store& store, Model& model) {
  const auto row = OnlyRow<BalancerRow>(store);
  Balancer& balancer = model.balancer;
  balancer.period_ms = row.period_ms;
  balancer.tick_ms = row.tick_ms;
  balancer.ports.assign(model.ports.size(), {});
  std::span<const std::uint8_t> rest(row.state);
  balancer.fresh = rest.empty();
  if (balancer.fresh)
    return;
  if (rest.size() < kSavedHead || (rest.size() - kSavedHead) % kSavedPort != 0)
    throw StoreError("balancer: state has " + std::to_string(rest.size()) + " bytes, which are no state of it");
  const auto take = [&](auto& value) {
    std::memcpy(&value, rest.data(), sizeof value);
    rest = rest.subspan(sizeof value);
  };
  const auto take_time = [&](std::int64_t least, std::int64_t& ms) {
    take(ms);
    if (ms < least || ms > kLatestMs)
      throw StoreError("balancer: state has a time of " + std::to_string(ms) + " ms in it");
  };
  take_time(0, balancer.window_ms);
  take(balancer.busy_total);
  take(balancer.busy_window);
  while (!rest.empty()) {
    std::uint64_t key = 0;
    BalancerPort port;
    take(key);
    take(port.total);
    take(port.window);
    take_time(-1, port.moved_ms);
    const int index = model.PortIndex(static_cast<std::uint32_t>(key >> 32), static_cast<std::uint32_t>(key));
    if (index >= 0)  // the port may have gone since
      balancer.ports[Index(index)] = port;
  }
}

void StoreBalancer(Store& store, const Model& model) {
  const Balancer& balancer = model.balancer;
  std::vector<std::uint8_t> state;
  state.reserve(kSavedHead + model.ports.size() * kSavedPort);
  const auto put = [&](const auto& value) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&value);
    state.insert(state.end(), bytes, bytes + sizeof value);
  };
  put(balancer.window_ms);
  put(balancer.busy_total);
  put(balancer.busy_window);
  for (std::size_t i = 0; i < model.ports.size(); ++i) {
    put(static_cast<std::uint64_t>(model.ports[i].sw) << 32 | static_cast<std::uint64_t>(model.ports[i].id));
    put(balancer.ports[i].total);
    put(balancer.ports[i].window);
    put(balancer.ports[i].moved_ms);
  }
  store.Run("UPDATE balancer SET tick_ms = ?, state = ?", balancer.tick_ms, state);
}

// A window that is not made of whole seconds may have more work in it than time, since losses are worked out by the
// second.
std::uint64_t BusyPermille(const Model& model, int core) {
  const auto window_ns = static_cast<std::uint64_t>(std::max<std::int64_t>(0, model.balancer.window_ms)) * 1'000'000;
  return std::min<std::uint64_t>(1000, Share(model.balancer.busy_window[Index(core)], 1000, window_ns));
}

}  // namespace simhost
