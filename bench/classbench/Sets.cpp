#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "classbench/Contest.h"
#include "classbench/Sections.h"

namespace Bench {

namespace {

/// How many times faster than a peer a look-up is to be; 0: as may be.
struct Lead {
  double trace, uniform;            ///< geometric means
  double leastTrace, leastUniform;  ///< no set below
};
enum PeerNumber { rteAcl, dbTable, peers };
constexpr const char* peerNames[peers] = {"rte_acl", "DBTable"};

struct SizeClass {
  size_t most;  ///< rules
  const char* name;
  Lead leads[peers];
};
constexpr SizeClass sizeClasses[] = {{300, "up to 100", {{4.5, 4, 3.5, 3.5}, {0, 0, 0, 0}}},
                                     {3000, "1,000", {{5, 5, 3.5, 3.5}, {2.5, 3.5, 1, 1.4}}},
                                     {30000, "10,000", {{7, 7, 3.5, 3.5}, {1.8, 2.6, 1, 1.4}}},
                                     {~size_t{0}, "100,000", {{10, 12, 3.5, 3.5}, {1.2, 1.8, 1, 1.4}}}};

const SizeClass& sizeClassOf(size_t rules) {
  return *std::find_if(std::begin(sizeClasses), std::end(sizeClasses),
                       [rules](const SizeClass& c) { return rules <= c.most; });
}

/// Of the headers that repeat in a row, one is enough for a check that takes long.
template <class Answer>
void checkOnce(const std::string& who, const std::string& where, const Trace& trace,
               const std::vector<int32_t>& expected, const Answer& answer) {
  int32_t found = noRule;
  check(who, where, expected, [&](size_t i) {
    if (i == 0 || trace.headers[i] != trace.headers[i - 1]) found = answer(i);
    return found;
  });
}

/// What a set's rules take the peer longer than our look-up, by the kind of trace.
struct Ratios {
  std::vector<double> trace, uniform;

  std::vector<double>& of(const std::string& trace_) {
    return trace_.find("uni") == trace_.npos ? trace : uniform;
  }
};

Cell mean(const std::vector<double>& values) {
  if (values.empty()) return {};
  return Number{geometricMean(values), 2};
}
Cell least(const std::vector<double>& values) {
  if (values.empty()) return {};
  return Number{*std::min_element(values.begin(), values.end()), 2};
}

/// The ratios of all sets, by size and peer, under one condition.
class Standing {
 public:
  void ratioIs(size_t rules, PeerNumber peer, const std::string& trace, double ratio) {
    bySize_[sizeClassOf(rules).name][peer].of(trace).push_back(ratio);
  }

  void report(Run& run, const std::string& condition, bool withGoals) const {
    Table means(
        fmt::format("How many times faster, {}: geometric means, and the least of all sets", condition),
        {"peer", "rules", "sets", "trace", "uni.trace", "least trace", "least uni.trace"});
    for (int peer = 0; peer < peers; ++peer) {
      for (const SizeClass& c : sizeClasses) {
        const auto found = bySize_.find(c.name);
        if (found == bySize_.end() || !found->second.contains(peer)) continue;
        const Ratios& r = found->second.at(peer);
        means.rowIs({std::string(peerNames[peer]), std::string(c.name),
                     Number{static_cast<double>(std::max(r.trace.size(), r.uniform.size())), 0},
                     mean(r.trace), mean(r.uniform), least(r.trace), least(r.uniform)});
        if (withGoals)
          goals(run, fmt::format("{} rules, against {}", c.name, peerNames[peer]), r, c.leads[peer]);
      }
    }
    run.tableIs(means);
  }

 private:
  static void goals(Run& run, const std::string& where, const Ratios& r, const Lead& lead) {
    const auto goal = [&](const char* what, const std::vector<double>& values, double limit, double slowest) {
      if (values.empty()) return;
      if (limit > 0) {
        run.goalIs({fmt::format("{}, {}: times faster", where, what), geometricMean(values), limit, true});
      }
      if (slowest > 0) {
        run.goalIs({fmt::format("{}, {}: the slowest set", where, what),
                    *std::min_element(values.begin(), values.end()), slowest, true});
      }
    };
    goal("trace", r.trace, lead.trace, lead.leastTrace);
    goal("uni.trace", r.uniform, lead.uniform, lead.leastUniform);
  }

  std::map<std::string, std::map<int, Ratios>> bySize_;
};

class SetTable {
 public:
  explicit SetTable(Run& run)
      : run_(run),
        warm_("Look-ups, ns a packet, warm: median (p10-p90)",
              {"set", "rules", "trace", "look-up", "matcher", "64 a call", "rte_acl", "rte_acl / ours",
               "rte_acl, 64 a call", "ratio of 64", "DBTable", "DBTable / ours"}),
        behind_(
            "The same, each behind the others, which have used the caches",
            {"set", "rules", "trace", "look-up", "rte_acl", "rte_acl / ours", "DBTable", "DBTable / ours"}) {}

  void measure(const RuleSet& set) {
    run_.progress(fmt::format("{}: building", set.name));
    const OurList<Acl::IpRule> ours(ipRules(set.rules));
    std::string why;
    std::unique_ptr<Peer> rte;
    std::unique_ptr<DbTable> table;
    if (run_.isAgainst(peerNames[rteAcl])) {
      run_.progress(fmt::format("{}: building librte_acl", set.name));
      rte = Peer::make(set.rules, std::nullopt, &why);
      if (!rte) whyNot(set.name, peerNames[rteAcl], why);
      run_.peers[set.name] = buildOf(rte);
    }
    if (run_.isAgainst(peerNames[dbTable])) {
      table = DbTable::make(set.rules, &why);
      if (!table) whyNot(set.name, peerNames[dbTable], why);
    }
    for (const Trace& trace : set.traces) measure(set, trace, ours, rte.get(), table.get());
  }

  void finish() {
    run_.tableIs(warm_);
    run_.tableIs(behind_);
    warmStanding_.report(run_, "warm", true);
    behindStanding_.report(run_, "behind the others", false);
    reportBursts();
  }

 private:
  using Ip = Acl::IpRule;

  void reportBursts() {
    Table table(
        "64 packets a call: geometric means of ns a packet, and how many times faster than librte_acl",
        {"rules", "trace", "uni.trace", "times, trace", "times, uni.trace", "least"});
    for (const SizeClass& c : sizeClasses) {
      if (!bursts_.contains(c.name)) continue;
      const Ratios &ns = bursts_[c.name], &times = batches_[c.name];
      std::vector<double> all = times.trace;
      all.insert(all.end(), times.uniform.begin(), times.uniform.end());
      table.rowIs({std::string(c.name), mean(ns.trace), mean(ns.uniform), mean(times.trace),
                   mean(times.uniform), least(all)});
      if (!all.empty()) {
        const double slowest = *std::min_element(all.begin(), all.end());
        run_.goalIs({fmt::format("{} rules, 64 a call: the slowest set against librte_acl", c.name), slowest,
                     1, true});
      }
      constexpr double mostNs = 8;
      if (c.most != 3000) continue;
      run_.goalIs({"1,000 rules, 64 a call, trace: ns", geometricMean(ns.trace), mostNs, false});
      run_.goalIs({"1,000 rules, 64 a call, uni.trace: ns", geometricMean(ns.uniform), mostNs, false});
    }
    run_.tableIs(table);
  }

  void whyNot(const std::string& set, const char* peer, const std::string& why) {
    if (why == lastWhy_[peer]) return;
    lastWhy_[peer] = why;
    warm_.noteIs(fmt::format("{}: no figures of {}: {}", set, peer, why));
  }

  void measure(const RuleSet& set, const Trace& trace, const OurList<Ip>& ours, Peer* rte, DbTable* table) {
    const std::string where = set.name + " " + trace.name;
    run_.progress(where + ": checking");
    const auto packets = packetsOf(trace.headers, ipPacket);
    checkOurs(set, trace, ours, packets);
    if (rte) {
      rte->packetsAre(packets);
      check("librte_acl", where, trace.first, [&](size_t i) { return rte->lookUp(i); });
    }
    if (table) {
      table->headersAre(trace.headers);
      check("DBTable", where, trace.first, [&](size_t i) { return table->lookUp(i); });
    }
    Contest contest(ours, packets, rte, table);
    run_.progress(where + ": timing");
    contest.run(packets.size(), run_.rounds);
    addRows(set, trace, contest);
  }

  void addRows(const RuleSet& set, const Trace& trace, const Contest& all) {
    const std::vector<Cell> head{set.name, Number{static_cast<double>(set.rules.size()), 0}, trace.name};
    std::vector<Cell> warmRow = head, behindRow = head;
    const Contender& lookUpBehind = all.behind(all.lookUp);
    warmRow.insert(warmRow.end(), {all.lookUp.ns, all.matcher.ns, all.burst.ns});
    behindRow.push_back(lookUpBehind.ns);
    const auto against = [&](PeerNumber peer, const Contender& contender) {
      if (!all.takesPart(contender)) {
        warmRow.resize(warmRow.size() + 2);
        behindRow.resize(behindRow.size() + 2);
        return;
      }
      const Contender& behind = all.behind(contender);
      const double warm = ratioOf(contender, all.lookUp), cold = ratioOf(behind, lookUpBehind);
      warmStanding_.ratioIs(set.rules.size(), peer, trace.name, warm);
      behindStanding_.ratioIs(set.rules.size(), peer, trace.name, cold);
      warmRow.insert(warmRow.end(), {contender.ns, Number{warm, 2}});
      behindRow.insert(behindRow.end(), {behind.ns, Number{cold, 2}});
    };
    against(rteAcl, all.rte);
    addBursts(set, trace, all, warmRow);
    against(dbTable, all.dbTable);
    warm_.rowIs(std::move(warmRow));
    behind_.rowIs(std::move(behindRow));
  }

  void addBursts(const RuleSet& set, const Trace& trace, const Contest& all, std::vector<Cell>& row) {
    const char* size = sizeClassOf(set.rules.size()).name;
    bursts_[size].of(trace.name).push_back(all.burst.ns.median);
    if (!all.takesPart(all.rteBatch)) return row.resize(row.size() + 2);
    const double ratio = ratioOf(all.rteBatch, all.burst);
    row.insert(row.end(), {all.rteBatch.ns, Number{ratio, 2}});
    batches_[size].of(trace.name).push_back(ratio);
  }

  /// All answers, before they are timed.
  void checkOurs(const RuleSet& set, const Trace& trace, const OurList<Ip>& ours,
                 const std::vector<IpPacket>& packets) {
    const std::string where = set.name + " " + trace.name;
    std::vector<int32_t> expected = firstRules(set.rules, trace.headers, Ports::ofProtocolsThatDo);
    size_t differ = 0;
    for (size_t i = 0; i < expected.size(); ++i) differ += expected[i] != trace.first[i];
    if (differ) {
      warm_.noteIs(
          fmt::format("{}: {} headers meet another rule in a list, where only TCP, UDP and SCTP have ports",
                      where, differ));
    }
    checkOnce("look-up", where, trace, expected, [&](size_t i) { return ours.lookUp(packets[i]); });
    checkOnce("matcher", where, trace, expected, [&](size_t i) { return ours.match(packets[i]); });
    const std::vector<int32_t> found = ours.lookUpBursts(packets);
    check("bursts", where, expected, [&](size_t i) { return found[i]; });
  }

  Run& run_;
  Table warm_, behind_;
  std::map<std::string, std::string> lastWhy_;
  Standing warmStanding_, behindStanding_;
  std::map<std::string, Ratios> bursts_, batches_;  // by size: ns, and librte_acl's of ours
};

}  // namespace

void measureSets(Run& run, const std::vector<RuleSet>& sets) {
  SetTable table(run);
  for (const RuleSet& set : sets) table.measure(set);
  table.finish();
}

}  // namespace Bench
