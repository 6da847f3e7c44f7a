#include "simhost/traffic/losses.h"

#include <algorithm>
#include <limits>

#include "simhost/traffic/counts.h"
#include "simhost/traffic/paths.h"

namespace simhost {

namespace {

constexpr std::int64_t kWindowMs = 1000;
constexpr std::uint64_t kUsableNsPerMs = 950'000;  // of a core's time, what it gives to packets before it drops some
constexpr std::int64_t kForEverMs = std::numeric_limits<std::int64_t>::max() / 4;

// Packets that ask for a stage's time in a window, and how many of them get it. They are of three kinds, which pass
// alike: of any number of packets each kind is its share, rounded down. Costs are nanoseconds of a core, or bits of a
// link, for which all packets are of the same kind.
struct Demand {
  std::uint64_t n = 0;                                           // all packets
  std::uint64_t slow = 0;                                        // of these, on the slow path
  std::uint64_t offloaded = 0;                                   // of the rest, offloaded
  std::uint64_t slow_cost = 0, offload_cost = 0, fast_cost = 0;  // of one packet
  std::uint64_t passed = 0;  // at most n; grows only, so that a stage never takes back what the next one has seen

  // Of p packets; p + 1 have one more in one of the kinds and as many in the others, so costs rise by one packet's.
  std::uint64_t Slow(std::uint64_t p) const { return Share(slow, p, n); }
  std::uint64_t Offloaded(std::uint64_t p) const { return Share(offloaded, p - Slow(p), n - slow); }
  UInt128 Cost(std::uint64_t p) const {
    const std::uint64_t s = Slow(p);
    const std::uint64_t o = Share(offloaded, p - s, n - slow);
    return static_cast<UInt128>(s) * slow_cost + static_cast<UInt128>(o) * offload_cost +
           static_cast<UInt128>(p - s - o) * fast_cost;
  }
};

UInt128 CostOfPassed(const std::vector<Demand*>& demands) {
  UInt128 cost = 0;
  for (const Demand* demand : demands)
    cost += demand->Cost(demand->passed);
  return cost;
}

UInt128 CostOfAll(const std::vector<Demand*>& demands) {
  UInt128 cost = 0;
  for (const Demand* demand : demands)
    cost += demand->Cost(demand->n);
  return cost;
}

// How far to shift a cost so that it fits 64 bits, and a product of two such costs 128. Costs of a window fit
// unless a core is asked for 18 thousand million times what it can do; then the lowest bits do not matter.
int ExcessBits(UInt128 cost) {
  int bits = 0;
  while ((cost >> bits) > std::numeric_limits<std::uint64_t>::max())
    ++bits;
  return bits;
}

// n * part / whole, rounded down; n and part are at most whole, which is not 0.
UInt128 ShareOfCost(UInt128 n, UInt128 part, UInt128 whole) {
  const int bits = ExcessBits(whole);
  return ((n >> bits) * (part >> bits) / (whole >> bits)) << bits;
}

// The packets, of n that cost `whole`, that `part` of it pays for.
std::uint64_t PacketsFor(UInt128 part, std::uint64_t n, UInt128 whole) {
  const int bits = ExcessBits(whole);
  return static_cast<std::uint64_t>((part >> bits) * n / (whole >> bits));
}

// Lets packets pass until their cost comes to the budget, evenly of all; more of them may pass already, none is taken
// back. reach: let one packet more pass rather than leave time unused, as a core finishes the packet that it has begun;
// a link does not begin a frame that it has no time for.
void LetPass(std::vector<Demand*>& demands, UInt128 budget, bool reach) {
  const UInt128 all = CostOfAll(demands);
  if (all <= budget) {
    for (Demand* demand : demands)
      demand->passed = demand->n;
    return;
  }
  const UInt128 so_far = CostOfPassed(demands);
  if (so_far >= budget)
    return;
  const UInt128 more = budget - so_far;
  const UInt128 rest = all - so_far;
  // What one demand leaves for want of a whole packet goes to those after it, so that rests do not add up.
  UInt128 due = 0;    // what the demands so far should get
  UInt128 given = 0;  // and what they got
  for (Demand* demand : demands) {
    const UInt128 own_rest = demand->Cost(demand->n) - demand->Cost(demand->passed);
    const std::uint64_t waiting = demand->n - demand->passed;
    if (own_rest == 0) {  // these cost nothing
      demand->passed = demand->n;
      continue;
    }
    due += ShareOfCost(own_rest, more, rest);
    if (due <= given)
      continue;
    const UInt128 own = std::min(due - given, own_rest);
    const UInt128 before = demand->Cost(demand->passed);
    demand->passed += std::min(waiting, PacketsFor(own, waiting, own_rest));
    given += demand->Cost(demand->passed) - before;
  }
  // At most about as many packets as there are demands are missing now: they go one by one, in turn.
  UInt128 used = so_far + given;
  for (bool stuck = !reach; used < budget && !stuck;) {
    stuck = true;
    for (Demand* demand : demands) {
      if (used >= budget || demand->passed == demand->n)
        continue;
      const UInt128 before = demand->Cost(demand->passed);
      used += demand->Cost(++demand->passed) - before;
      stuck = false;
    }
  }
}

// Works windows out, one after the other. In a window each of the functions is one stage, which reads what the stages
// before it have left in path_now_ and leg_now_: counts since the segment began, as they are at the window's end.
class WindowSolver {
 public:
  explicit WindowSolver(Model& model) : model_(model), losses_(model.losses) {
    std::size_t legs = 0;
    for (const Path& path : model.paths)
      legs += path.legs.size();
    in_.resize(model.paths.size());
    out_.resize(legs);
    path_now_.resize(model.paths.size());
    leg_now_.resize(legs);
  }

  // Works the window [from, until) out, the next one after what is known.
  void Solve(std::int64_t from, std::int64_t until) {
    length_ms_ = static_cast<std::uint64_t>(until - from);
    lost_ = false;
    Begin(from);
    Enter(until);
    WorkOnPackets();
    Leave();
    if (lost_)
      Keep(from, until);
    NoteLostQuestions();
  }

 private:
  const Port& InOf(const Path& path) const { return model_.ports[Index(path.in)]; }
  const Port& OutOf(const Leg& leg) const { return model_.ports[Index(leg.port)]; }

  // As many bits as each link has time for, of those that want to pass.
  void PassLinks(std::vector<std::vector<Demand*>>& links) {
    for (std::size_t nic = 0; nic < links.size(); ++nic) {
      if (!links[nic].empty())
        LetPass(links[nic], static_cast<std::uint64_t>(model_.nics[nic].link_mbps) * 1000 * length_ms_, false);
    }
  }

  // Counts at the window's beginning; those at its end start with the same losses. They are at hand if the window
  // before this one lost something, else they are counted.
  void Begin(std::int64_t from) {
    if (losses_.any && losses_.after_ms == from) {
      path_begin_ = losses_.path_after;
      leg_begin_ = losses_.leg_after;
    } else {
      path_begin_.resize(model_.paths.size());
      leg_begin_.resize(leg_now_.size());
      for (const Path& path : model_.paths) {
        path_begin_[path.number] = CountPath(model_, path, from);
        for (std::size_t i = 0; i < path.legs.size(); ++i)
          leg_begin_[path.first_leg + i] = CountLeg(model_, path, i, path_begin_[path.number]);
      }
    }
    path_now_ = path_begin_;
    leg_now_ = leg_begin_;
  }

  // Questions are asked and answered, and links bring packets in. Answers to questions that were lost a window ago are
  // not given: a question has to be lost before its answer can be missing, and a second is the finest grain there is.
  void Enter(std::int64_t until) {
    std::vector<std::vector<Demand*>> links(model_.nics.size());
    for (const Path& path : model_.paths) {
      PathCounts& now = path_now_[path.number];
      const PathCounts& begin = path_begin_[path.number];
      CountAsked(model_, path, until, now);
      if (path.direction == kBack) {
        const std::uint64_t unasked =
            Share(now.asked - begin.asked, losses_.question_loss_ppm[Index(path.conversation)], kMillion);
        now.unasked += unasked;
        lost_ |= unasked > 0;
      }
      if (InOf(path).IsUplink()) {
        Demand& demand = in_[path.number];
        demand = {};
        demand.n = now.Offered() - begin.Offered();
        demand.fast_cost = LinkBits(model_.conversations[Index(path.conversation)].size[path.direction]);
        links[Index(InOf(path).nic)].push_back(&demand);
      }
    }
    PassLinks(links);
    for (const Path& path : model_.paths) {
      PathCounts& now = path_now_[path.number];
      if (InOf(path).IsUplink()) {
        const std::uint64_t lost = in_[path.number].n - in_[path.number].passed;
        now.link_lost += lost;
        lost_ |= lost > 0;
      }
      CountArrived(model_, path, now);
    }
  }

  // Cores let packets in, then out. First all of them pass: if each core has time for that, it is the answer.
  void WorkOnPackets() {
    std::array<std::vector<Demand*>, kCores> in;
    std::array<std::vector<Demand*>, kCores> out;
    for (const Path& path : model_.paths) {
      Demand& demand = in_[path.number];
      SetDemand(path, demand);
      in[Index(CoreIn(InOf(path)))].push_back(&demand);
      for (std::size_t i = 0; i < path.legs.size(); ++i)
        out[Index(CoreOut(OutOf(path.legs[i])))].push_back(&out_[path.first_leg + i]);
    }
    for (Demand& demand : in_)
      demand.passed = demand.n;
    PassToLegs();
    for (Demand& demand : out_)
      demand.passed = demand.n;
    ShareCores(in, out);
    for (const Demand& demand : in_)
      lost_ |= demand.passed < demand.n;
    for (const Path& path : model_.paths) {
      for (std::size_t i = 0; i < path.legs.size(); ++i) {
        const Demand& demand = out_[path.first_leg + i];
        LegCounts& now = leg_now_[path.first_leg + i];
        const std::uint64_t slow = demand.Slow(demand.passed);
        now.core_lost[kOnSlowPath] += demand.slow - slow;
        now.core_lost[kOnFastPath] += demand.n - demand.slow - (demand.passed - slow);
        lost_ |= demand.passed < demand.n;
      }
    }
  }

  // What a core shares out between incoming and outgoing packets. All of them pass so far.
  void ShareCores(std::array<std::vector<Demand*>, kCores>& in, std::array<std::vector<Demand*>, kCores>& out) {
    const UInt128 usable = static_cast<UInt128>(kUsableNsPerMs) * length_ms_;
    std::array<UInt128, kCores> for_in{};
    bool enough = true;
    for (const Core& core : model_.cores) {
      const std::size_t c = Index(core.id);
      const UInt128 asked_in = CostOfAll(in[c]);
      const UInt128 asked = asked_in + CostOfAll(out[c]);
      for_in[c] = asked <= usable ? usable : ShareOfCost(asked_in, usable, asked);
      enough &= asked <= usable && (!core.stuck || (in[c].empty() && out[c].empty()));
    }
    if (enough)
      return;
    // What comes out of one core goes into another, and the other way round, so what cores ask for depends on what they
    // let pass. It is settled in three rounds, each of which only adds packets: what a core gives to incoming packets
    // for sure; then what the outgoing ones do not need of it; then the outgoing ones get all that is left.
    for (Demand& demand : in_)
      demand.passed = 0;
    for (const Core& core : model_.cores)
      LetPassUnlessStuck(core, in[Index(core.id)], for_in[Index(core.id)]);
    PassToLegs();
    for (const Core& core : model_.cores) {
      const UInt128 needed = CostOfAll(out[Index(core.id)]);
      if (usable > needed)
        LetPassUnlessStuck(core, in[Index(core.id)], usable - needed);
    }
    PassToLegs();
    for (const Core& core : model_.cores) {
      const UInt128 used = CostOfPassed(in[Index(core.id)]);
      LetPassUnlessStuck(core, out[Index(core.id)], usable > used ? usable - used : 0);
    }
  }

  // A core that is stuck works on nothing, so it loses all.
  static void LetPassUnlessStuck(const Core& core, std::vector<Demand*>& demands, UInt128 budget) {
    if (!core.stuck)
      LetPass(demands, budget, true);
  }

  // What arrived for the path's core in this window. A slow packet's cost is kept as its half, see PortWord.
  void SetDemand(const Path& path, Demand& demand) const {
    const PathCounts& now = path_now_[path.number];
    const PathCounts& begin = path_begin_[path.number];
    const auto came = [&](PacketClass c) { return now.arrived[c] - begin.arrived[c]; };
    demand = {};
    demand.slow = came(kMissed) + came(kPunted);
    demand.offloaded = came(kOffloaded);
    demand.n = demand.slow + demand.offloaded + came(kLocal);
    demand.slow_cost = 2 * path.slow_half_ns;
    demand.offload_cost = path.offload_ns;
    demand.fast_cost = path.fast_ns;
  }

  // What the cores that packets come in by let pass, class by class, and what so comes to the legs. Called again when
  // more packets pass; it sets all that it computes anew.
  void PassToLegs() {
    for (const Path& path : model_.paths) {
      PathCounts& now = path_now_[path.number];
      const PathCounts& begin = path_begin_[path.number];
      const Demand& demand = in_[path.number];
      const auto came = [&](PacketClass c) { return now.arrived[c] - begin.arrived[c]; };
      const auto lose = [&](PacketClass c, std::uint64_t passed) {
        now.core_lost[c] = begin.core_lost[c] + came(c) - passed;
      };
      const std::uint64_t slow = demand.Slow(demand.passed);
      const std::uint64_t missed = Share(came(kMissed), slow, demand.slow);
      const std::uint64_t offloaded = demand.Offloaded(demand.passed);
      lose(kMissed, missed);
      lose(kPunted, slow - missed);
      lose(kOffloaded, offloaded);
      lose(kLocal, demand.passed - slow - offloaded);
      const std::uint64_t opened = now.short_flows - begin.short_flows;
      now.short_lost = begin.short_lost + opened - Share(opened, missed, came(kMissed));
      for (std::size_t i = 0; i < path.legs.size(); ++i) {
        const std::size_t leg = path.first_leg + i;
        CountCame(path.legs[i], now, leg_now_[leg]);
        Demand& own = out_[leg];
        own = {};
        own.slow = leg_now_[leg].AtCore(kOnSlowPath) - leg_begin_[leg].AtCore(kOnSlowPath);
        own.n = own.slow + leg_now_[leg].AtCore(kOnFastPath) - leg_begin_[leg].AtCore(kOnFastPath);
        own.slow_cost = 2 * path.legs[i].slow_half_ns;
        own.fast_cost = path.legs[i].fast_ns;
      }
    }
  }

  // Devices and links of uplinks send what their cores have worked on.
  void Leave() {
    std::vector<std::vector<Demand*>> links(model_.nics.size());
    for (const Path& path : model_.paths) {
      for (std::size_t i = 0; i < path.legs.size(); ++i) {
        const std::size_t leg = path.first_leg + i;
        LegCounts& now = leg_now_[leg];
        CountDeviceLoss(path.legs[i], now);
        if (!OutOf(path.legs[i]).IsUplink())
          continue;
        Demand& demand = out_[leg];
        demand = {};
        demand.slow = now.AtLink(kOnSlowPath) - leg_begin_[leg].AtLink(kOnSlowPath);
        demand.n = demand.slow + now.AtLink(kOnFastPath) - leg_begin_[leg].AtLink(kOnFastPath);
        demand.slow_cost = demand.fast_cost = LinkBits(path.legs[i].size);
        links[Index(OutOf(path.legs[i]).nic)].push_back(&demand);
      }
    }
    PassLinks(links);
    for (const Path& path : model_.paths) {
      for (std::size_t i = 0; i < path.legs.size(); ++i) {
        const std::size_t leg = path.first_leg + i;
        if (!OutOf(path.legs[i]).IsUplink())
          continue;
        const Demand& demand = out_[leg];
        const std::uint64_t slow = demand.Slow(demand.passed);
        leg_now_[leg].link_lost[kOnSlowPath] += demand.slow - slow;
        leg_now_[leg].link_lost[kOnFastPath] += demand.n - demand.slow - (demand.passed - slow);
        lost_ |= demand.passed < demand.n;
      }
    }
  }

  // The window becomes the latest one that lost something; counts before it are asked for no more.
  void Keep(std::int64_t from, std::int64_t until) {
    losses_.any = true;
    losses_.before_ms = from;
    losses_.after_ms = until;
    losses_.path_before.swap(path_begin_);
    losses_.leg_before.swap(leg_begin_);
    losses_.path_after = path_now_;
    losses_.leg_after = leg_now_;
    losses_.question_loss_before_ppm = losses_.question_loss_ppm;
  }

  // Of each conversation's questions, what share was lost in this window, all its ways weighed by their flows: shares
  // of stages that follow one another multiply. A question with several receivers is answered if one of them gets it.
  // Losses that do not depend on load are left out here: they are in Path::unanswered_ppm.
  void NoteLostQuestions() {
    std::vector<std::uint64_t>& loss = losses_.question_loss_ppm;
    std::fill(loss.begin(), loss.end(), 0);
    if (!lost_)
      return;
    const auto got = [](std::uint64_t lost, std::uint64_t came) {
      return came == 0 ? kMillion : kMillion - Share(kMillion, lost, came);
    };
    std::vector<UInt128> reached(loss.size());
    std::vector<std::uint64_t> flows(loss.size());
    for (const Path& path : model_.paths) {
      if (path.direction == kBack)
        continue;
      const PathCounts& now = path_now_[path.number];
      const PathCounts& begin = losses_.path_before[path.number];
      std::uint64_t lost_in = 0;
      std::uint64_t came_in = 0;
      for (std::size_t c = 0; c < kPacketClasses; ++c) {
        lost_in += now.core_lost[c] - begin.core_lost[c];
        came_in += now.arrived[c] - begin.arrived[c];
      }
      std::uint64_t best = path.receivers == 0 ? kMillion : 0;
      for (std::size_t i = 0; i < path.receivers; ++i) {
        const LegCounts& leg = leg_now_[path.first_leg + i];
        const LegCounts& leg_begin = losses_.leg_before[path.first_leg + i];
        const auto grown = [&](const auto& figure) {
          return figure(leg, kOnFastPath) + figure(leg, kOnSlowPath) - figure(leg_begin, kOnFastPath) -
                 figure(leg_begin, kOnSlowPath);
        };
        const std::uint64_t at_core = got(grown([](const LegCounts& l, std::size_t s) { return l.core_lost[s]; }),
                                          grown([](const LegCounts& l, std::size_t s) { return l.AtCore(s); }));
        const std::uint64_t at_link = got(grown([](const LegCounts& l, std::size_t s) { return l.link_lost[s]; }),
                                          grown([](const LegCounts& l, std::size_t s) { return l.AtLink(s); }));
        best = std::max(best, Share(at_core, at_link, kMillion));
      }
      std::uint64_t share = got(now.link_lost - begin.link_lost, now.Offered() - begin.Offered());
      share = Share(Share(share, got(lost_in, came_in), kMillion), best, kMillion);
      reached[Index(path.conversation)] += static_cast<UInt128>(share) * path.flows;
      flows[Index(path.conversation)] += path.flows;
    }
    for (std::size_t i = 0; i < loss.size(); ++i) {
      if (flows[i] > 0)
        loss[i] = kMillion - static_cast<std::uint64_t>(reached[i] / flows[i]);
    }
  }

  Model& model_;
  Losses& losses_;
  std::uint64_t length_ms_ = 0;
  bool lost_ = false;
  std::vector<PathCounts> path_begin_, path_now_;
  std::vector<LegCounts> leg_begin_, leg_now_;
  std::vector<Demand> in_;   // by path: first of its link, then of its core
  std::vector<Demand> out_;  // by leg: first of its core, then of its link
};

// Whether nothing can be lost in [from, until), in windows of at least length_ms: each core and link has time for the
// highest rates there are in it, and for each path's flows to miss at once. A bound, so plain floating point will do:
// it may say no where nothing is lost, and then windows are worked out in vain, but never yes where something is. That
// it differs from one machine to another could therefore not be seen in any count.
bool IsCalm(const Model& model, std::int64_t from, std::int64_t until, std::int64_t length_ms) {
  constexpr double kMargin = 0.999;
  const double seconds = static_cast<double>(length_ms) / 1000;
  std::array<double, kCores> core_ns{};
  std::vector<std::array<double, 2>> link_bits(model.nics.size());
  for (const Path& path : model.paths) {
    const Conversation& talk = model.conversations[Index(path.conversation)];
    const double peak = talk.pattern[path.direction].PeakPps(from, until);
    if (peak == 0)
      continue;
    // Two more than the rate makes: one for where the window begins within a packet, one for rounding.
    const double packets = peak * static_cast<double>(path.flows) / talk.flows * seconds + 2;
    const bool cached = model.FindSwitch(static_cast<std::uint32_t>(talk.sw))->flow_cache;
    const double slow =
        cached ? std::min(1.0, static_cast<double>(path.slow_permille) / 1e3 + talk.churn_ppm / 1e6) : 1;
    const bool seen = model.base.seen[Index(path.conversation)][path.direction] >= talk.flows;
    const double missed = !cached ? 0 : seen ? 2 : static_cast<double>(path.flows) + 2;
    const auto work = [&](double n, std::uint64_t fast_ns, std::uint64_t slow_half_ns) {
      const double extra = 2.0 * static_cast<double>(slow_half_ns) - static_cast<double>(fast_ns);
      return n * (static_cast<double>(fast_ns) + slow * extra) + std::min(n, missed) * extra;
    };
    const Port& in = model.ports[Index(path.in)];
    core_ns[Index(CoreIn(in))] += work(packets, path.fast_ns, path.slow_half_ns);
    if (in.IsUplink())
      link_bits[Index(in.nic)][0] += packets * static_cast<double>(LinkBits(talk.size[path.direction]));
    for (const Leg& leg : path.legs) {
      const Port& out = model.ports[Index(leg.port)];
      const double n = packets / static_cast<double>(leg.one_of) + 1;
      core_ns[Index(CoreOut(out))] += work(n, leg.fast_ns, leg.slow_half_ns);
      if (out.IsUplink())
        link_bits[Index(out.nic)][1] += n * static_cast<double>(LinkBits(leg.size));
    }
  }
  for (const Core& core : model.cores) {
    const double room = core.stuck ? 0 : static_cast<double>(kUsableNsPerMs) * 1000 * seconds;
    if (core_ns[Index(core.id)] > room * kMargin)
      return false;
  }
  for (std::size_t nic = 0; nic < link_bits.size(); ++nic) {
    const double room = static_cast<double>(model.nics[nic].link_mbps) * 1e6 * seconds;
    if (std::max(link_bits[nic][0], link_bits[nic][1]) > room * kMargin)
      return false;
  }
  return true;
}

// A moment until which nothing can be lost, at or after `from`. The first window may be a short one. Rates swing and
// conversations end, so where there is no calm for ever it is sought for ever longer times, up to some seventy minutes.
std::int64_t FindCalm(const Model& model, std::int64_t from) {
  const std::int64_t first_end = from - from % kWindowMs + kWindowMs;
  if (!IsCalm(model, from, first_end, first_end - from))
    return from;
  if (IsCalm(model, first_end, kForEverMs, kWindowMs))
    return kForEverMs;
  std::int64_t calm = first_end;
  for (std::int64_t windows = 1; windows <= 4096; windows *= 4) {
    const std::int64_t end = first_end + windows * kWindowMs;
    if (!IsCalm(model, first_end, end, kWindowMs))
      break;
    calm = end;
  }
  return calm;
}

bool QuestionsLost(const Losses& losses) {
  return std::any_of(losses.question_loss_ppm.begin(), losses.question_loss_ppm.end(),
                     [](std::uint64_t ppm) { return ppm != 0; });
}

// Words of what is saved: until when losses are known and how many conversations, paths and legs there are; then a
// share for each conversation; then, if anything was lost, the losses of each path and leg.
constexpr std::size_t kSavedHead = 4, kSavedPath = 7, kSavedLeg = 4;

}  // namespace

void BeginSegment(Model& model) {
  Losses& losses = model.losses;
  losses.known_until_ms = losses.calm_until_ms = model.segment_ms;
  losses.any = false;
  losses.path_before.clear();
  losses.path_after.clear();
  losses.leg_before.clear();
  losses.leg_after.clear();
  losses.question_loss_ppm.resize(model.conversations.size());
  for (Path& path : model.paths)
    path.asked_before = PacketsOf(model, path, model.segment_ms);
}

void SolveLosses(Model& model, std::int64_t ms) {
  Losses& losses = model.losses;
  if (losses.known_until_ms > ms)
    return;
  WindowSolver solver(model);
  while (losses.known_until_ms <= ms) {
    const std::int64_t from = losses.known_until_ms;
    // While questions of the last window are lost, answers are missing in this one, however calm it is.
    if (!QuestionsLost(losses)) {
      if (losses.calm_until_ms <= from)
        losses.calm_until_ms = FindCalm(model, from);
      if (losses.calm_until_ms > from) {
        losses.known_until_ms = losses.calm_until_ms;
        continue;
      }
    }
    const std::int64_t until = from - from % kWindowMs + kWindowMs;
    solver.Solve(from, until);
    losses.known_until_ms = until;
  }
}

std::vector<std::uint64_t> SaveLosses(const Model& model) {
  const Losses& losses = model.losses;
  // Where nothing was lost lately, that much is known; a window that lost something has to be worked out again.
  const bool quiet = !losses.any || (losses.known_until_ms > losses.after_ms && !QuestionsLost(losses));
  const std::vector<PathCounts>& paths = quiet ? losses.path_after : losses.path_before;
  const std::vector<LegCounts>& legs = quiet ? losses.leg_after : losses.leg_before;
  const std::vector<std::uint64_t>& questions = quiet ? losses.question_loss_ppm : losses.question_loss_before_ppm;
  std::vector<std::uint64_t> words{static_cast<std::uint64_t>(quiet ? losses.known_until_ms : losses.before_ms),
                                   questions.size(), paths.size(), legs.size()};
  words.reserve(kSavedHead + questions.size() + kSavedPath * paths.size() + kSavedLeg * legs.size());
  words.insert(words.end(), questions.begin(), questions.end());
  for (const PathCounts& path : paths) {
    words.push_back(path.unasked);
    words.push_back(path.link_lost);
    words.insert(words.end(), path.core_lost.begin(), path.core_lost.end());
    words.push_back(path.short_lost);
  }
  for (const LegCounts& leg : legs) {
    words.insert(words.end(), leg.core_lost.begin(), leg.core_lost.end());
    words.insert(words.end(), leg.link_lost.begin(), leg.link_lost.end());
  }
  return words;
}

void RestoreLosses(Model& model, std::span<const std::uint64_t> words) {
  Losses& losses = model.losses;
  std::size_t legs = 0;
  for (const Path& path : model.paths)
    legs += path.legs.size();
  const bool any = words.size() >= kSavedHead && words[2] != 0;
  const std::size_t size =
      kSavedHead + model.conversations.size() + (any ? kSavedPath * model.paths.size() + kSavedLeg * legs : 0);
  // A change of the inventory between saving and now makes other paths; then the segment is worked out from its start.
  if (words.size() != size || words[1] != model.conversations.size() || words[2] != (any ? model.paths.size() : 0) ||
      words[3] != (any ? legs : 0))
    return;
  const auto known_ms = static_cast<std::int64_t>(words[0]);
  if (known_ms < model.segment_ms || known_ms > kForEverMs)
    return;
  losses.any = any;
  losses.known_until_ms = losses.calm_until_ms = losses.before_ms = known_ms;
  const std::uint64_t* next = words.data() + kSavedHead;
  const auto take = [&](auto&... values) { ((values = *next++), ...); };
  for (std::uint64_t& ppm : losses.question_loss_ppm) {
    take(ppm);
    ppm = std::min(ppm, kMillion);
  }
  losses.question_loss_before_ppm = losses.question_loss_ppm;
  if (!any)
    return;
  // Only the losses are known, which is enough: counts that are 0 lie before all that is asked for.
  losses.path_after.assign(model.paths.size(), {});
  losses.leg_after.assign(legs, {});
  for (PathCounts& path : losses.path_after)
    take(path.unasked, path.link_lost, path.core_lost[0], path.core_lost[1], path.core_lost[2], path.core_lost[3],
         path.short_lost);
  for (LegCounts& leg : losses.leg_after)
    take(leg.core_lost[0], leg.core_lost[1], leg.link_lost[0], leg.link_lost[1]);
  losses.path_before = losses.path_after;
  losses.leg_before = losses.leg_after;
  losses.after_ms = -1;  // the next window begins with full counts, not with these
}

}  // namespace simhost
