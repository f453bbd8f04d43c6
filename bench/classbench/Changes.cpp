#include <Acl/Workshop.h>
#include <Kiv/TaskScheduler.h>
#include <fmt/format.h>

#include <algorithm>

#include "classbench/Dice.h"
#include "classbench/Ours.h"
#include "classbench/Peer.h"
#include "classbench/Sections.h"

namespace Bench {

namespace {

using Ip = Acl::IpRule;

struct Times {
  std::vector<double> ns;

  void add(double taken) { ns.push_back(taken); }
  double mean() const {
    double sum = 0;
    for (const double value : ns) sum += value;
    return ns.empty() ? 0 : sum / static_cast<double>(ns.size());
  }
  std::vector<Cell> cells(double unit, int digits) const {
    return {Number{mean() / unit, digits}, Number{quantile(ns, 0.5) / unit, digits},
            Number{quantile(ns, 0.99) / unit, digits}, Number{quantile(ns, 1) / unit, digits}};
  }
};

/// What reading the clock takes itself.
const double clockCost = [] {
  std::vector<double> all;
  for (int i = 0; i < 1000; ++i) {
    const double start = processorTime();
    all.push_back(processorTime() - start);
  }
  return quantile(all, 0.5);
}();

/// Processor time of this thread, so that what else the computer does is nobody's fault.
template <class Do>
double taken(const Do& what) {
  const double start = processorTime();
  what();
  return std::max(0.0, processorTime() - start - clockCost);
}

/// What every change of one rule in force costs, and what the packet behind it does.
struct Changed {
  Times change, packet;
};

Changed changeRules(OurList<Ip>& list, const std::vector<IpPacket>& packets, size_t rules, uint64_t seed) {
  constexpr double budget = 2e9;
  Dice dice(seed);
  Changed made;
  const auto scheduler = Kiv::TaskSchedulerRoot::findOrCreateScheduler();
  const double start = wallTime();
  for (int i = 0; i < 4000 && (i < 200 || wallTime() - start < budget); ++i) {
    const size_t rule = dice.below(rules);
    const IpPacket& packet = dice.of(packets);
    const auto meet = [&] { made.packet.add(taken([&] { list.lookUp(packet); })); };
    scheduler->runTurn();  // takes a form that a thread has made
    made.change.add(taken([&] { list.ruleDel(rule); }));
    meet();
    made.change.add(taken([&] { list.ruleIs(rule); }));
    meet();
  }
  return made;
}

void checkAfterwards(const OurList<Ip>& list, const RuleSet& set, const std::vector<IpPacket>& packets) {
  const auto expected = firstRules(set.rules, set.traces.front().headers, Ports::ofProtocolsThatDo);
  const size_t step = std::max<size_t>(1, packets.size() / 2000);
  for (size_t i = 0; i < packets.size(); i += step) {
    const int32_t found = list.lookUp(packets[i]);
    if (found == expected[i]) continue;
    throw WrongAnswer(
        fmt::format("{}: after changes: header {}: rule {} instead of {}", set.name, i, found, expected[i]));
  }
}

class ChangesTables {
 public:
  explicit ChangesTables(Run& run)
      : run_(run),
        builds_("Lists: ms of processor time to fill and to compile them, bytes a rule",
                {"set", "rules", "fill ms", "compile ms", "all bytes", "compiled", "rte_acl ms",
                 "rte_acl bytes"}),
        changes_(
            "Changes of one rule in a list in force, us of processor time: taken out, put in again; and the "
            "packet behind it",
            {"set", "rules", "made anew", "mean", "p50", "p99", "max", "packet p50", "packet p99",
             "rte_acl (a build)"}) {}

  void measure(const RuleSet& set) {
    run_.progress(set.name + ": changes");
    auto ours = std::make_unique<OurList<Ip>>(ipRules(set.rules));
    addBuild(set, *ours);
    if (set.traces.empty()) return;
    const auto packets = packetsOf(set.traces.front().headers, ipPacket);
    addChanges(set, *ours, packets, "in the change");
    Acl::Workshop::singleton().threadIs(true);
    ours = std::make_unique<OurList<Ip>>(ipRules(set.rules));
    const Changed changed = addChanges(set, *ours, packets, "on a thread");
    Acl::Workshop::singleton().threadIs(false);
    if (isOf10000(set))
      run_.goalIs({set.name + ": us of a change, p99", quantile(changed.change.ns, 0.99) / 1e3, 20, false});
  }

  void finish() {
    run_.tableIs(builds_);
    run_.tableIs(changes_);
  }

 private:
  static bool isOf10000(const RuleSet& set) { return set.rules.size() > 3000 && set.rules.size() <= 30000; }

  const std::optional<PeerBuild>& peerOf(const RuleSet& set) {
    const auto [at, isNew] = run_.peers.try_emplace(set.name);
    std::string why;
    if (isNew) at->second = buildOf(Peer::make(set.rules, std::nullopt, &why));
    return at->second;
  }

  void addBuild(const RuleSet& set, const OurList<Ip>& ours) {
    const auto rules = static_cast<double>(set.rules.size());
    const auto perRule = [rules](int64_t bytes) { return static_cast<double>(bytes) / rules; };
    const double compiled = perRule(ours.lookUpBytes());
    const std::optional<PeerBuild>& peer = peerOf(set);
    builds_.rowIs({set.name, Number{rules, 0}, Number{ours.fillNs() / 1e6, 2},
                   Number{ours.compileNs() / 1e6, 2}, Number{perRule(ours.bytes()), 0}, Number{compiled, 0},
                   peer ? Cell(Number{peer->ns / 1e6, 1}) : Cell(),
                   peer ? Cell(Number{perRule(peer->bytes), 0}) : Cell()});
    if (rules > 300 && rules <= 30000) run_.goalIs({set.name + ": bytes a rule", compiled, 256, false});
    const double limit = rules <= 300 ? 0 : rules <= 3000 ? 2 : isOf10000(set) ? 30 : 350;
    if (limit > 0) run_.goalIs({set.name + ": ms to compile", ours.compileNs() / 1e6, limit, false});
  }

  Changed addChanges(const RuleSet& set, OurList<Ip>& ours, const std::vector<IpPacket>& packets,
                     std::string madeAnew) {
    Changed changed = changeRules(ours, packets, set.rules.size(), run_.seed);
    checkAfterwards(ours, set, packets);
    std::vector<Cell> row{set.name, Number{static_cast<double>(set.rules.size()), 0}, std::move(madeAnew)};
    for (Cell& cell : changed.change.cells(1e3, 2)) row.push_back(std::move(cell));
    row.push_back(Number{quantile(changed.packet.ns, 0.5) / 1e3, 2});
    row.push_back(Number{quantile(changed.packet.ns, 0.99) / 1e3, 2});
    const std::optional<PeerBuild>& peer = peerOf(set);
    row.push_back(peer ? Cell(Number{peer->ns / 1e3, 0}) : Cell());
    changes_.rowIs(std::move(row));
    return changed;
  }

  Run& run_;
  Table builds_, changes_;
};

}  // namespace

void measureChanges(Run& run, const std::vector<RuleSet>& sets) {
  ChangesTables tables(run);
  for (const RuleSet& set : sets) tables.measure(set);
  tables.finish();
}

}  // namespace Bench
