#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "classbench/Checks.h"
#include "classbench/Peer.h"
#include "classbench/Sections.h"

namespace Bench {

namespace {

struct SizeClass {
  size_t most;  ///< rules
  const char* name;
  double trace, uniform;  ///< goals: how many times faster than the peer
  double least;           ///< no set below
};
constexpr SizeClass sizeClasses[] = {{300, "up to 100", 4.5, 4, 0},
                                     {3000, "1,000", 3.5, 2.5, 0},
                                     {30000, "10,000", 5, 4, 3},
                                     {~size_t{0}, "100,000", 7, 7, 0}};

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

struct Ratios {
  std::vector<double> trace, uniform;
};

class SetTable {
 public:
  explicit SetTable(Run& run)
      : run_(run),
        table_("Look-ups, ns a packet: median (p10-p90)",
               {"set", "rules", "trace", "look-up", "matcher", "rte_acl", "ratio", "rte_acl, 64 a call"}) {}

  void measure(const RuleSet& set) {
    run_.progress(fmt::format("{}: building", set.name));
    const OurList<Acl::IpRule> ours(ipRules(set.rules));
    std::string why;
    run_.progress(fmt::format("{}: building librte_acl", set.name));
    const std::unique_ptr<Peer> peer = Peer::make(set.rules, std::nullopt, &why);
    if (!peer) whyNot(set.name, why);
    run_.peers[set.name] = peer ? std::optional(PeerBuild{peer->buildNs(), peer->bytes()}) : std::nullopt;
    for (const Trace& trace : set.traces) measure(set, trace, ours, peer.get());
  }

  void finish() {
    run_.tableIs(table_);
    std::map<size_t, Ratios> byClass;
    Table means("How many times faster than librte_acl, one packet a call: geometric means",
                {"rules", "sets", "trace", "uni.trace", "least"});
    for (const SizeClass& c : sizeClasses) {
      const auto found = ratios_.find(c.name);
      if (found == ratios_.end()) continue;
      const Ratios& r = found->second;
      std::vector<double> all = r.trace;
      all.insert(all.end(), r.uniform.begin(), r.uniform.end());
      const double least = *std::min_element(all.begin(), all.end());
      means.rowIs({std::string(c.name),
                   Number{static_cast<double>(std::max(r.trace.size(), r.uniform.size())), 0}, mean(r.trace),
                   mean(r.uniform), Number{least, 2}});
      const auto goal = [&](const char* what, double reached, double limit) {
        run_.goalIs(
            {fmt::format("{} rules, {}: times faster than librte_acl", c.name, what), reached, limit, true});
      };
      if (!r.trace.empty()) goal("trace", geometricMean(r.trace), c.trace);
      if (!r.uniform.empty()) goal("uni.trace", geometricMean(r.uniform), c.uniform);
      if (c.least > 0) goal("slowest set", least, c.least);
    }
    run_.tableIs(means);
  }

 private:
  using Ip = Acl::IpRule;

  static Cell mean(const std::vector<double>& values) {
    if (values.empty()) return {};
    return Number{geometricMean(values), 2};
  }

  void whyNot(const std::string& set, const std::string& why) {
    if (why == lastWhy_) return;
    lastWhy_ = why;
    table_.noteIs(fmt::format("{}: no figures of librte_acl: {}", set, why));
  }

  void measure(const RuleSet& set, const Trace& trace, const OurList<Ip>& ours, Peer* peer) {
    const std::string where = set.name + " " + trace.name;
    run_.progress(where + ": checking");
    const auto packets = packetsOf(trace.headers, ipPacket);
    std::vector<int32_t> expected = firstRules(set.rules, trace.headers, Ports::ofProtocolsThatDo);
    size_t differ = 0;
    for (size_t i = 0; i < expected.size(); ++i) differ += expected[i] != trace.first[i];
    if (differ) {
      table_.noteIs(
          fmt::format("{}: {} headers meet another rule in a list, where only TCP, UDP and SCTP have ports",
                      where, differ));
    }
    checkOnce("look-up", where, trace, expected, [&](size_t i) { return ours.lookUp(packets[i]); });
    checkOnce("matcher", where, trace, expected, [&](size_t i) { return ours.match(packets[i]); });

    Contender lookUp{"look-up", [&](Portion p) { return ours.lookUps(packets, p); }};
    Contender matcher{"matcher", [&](Portion p) { return ours.matches(packets, p); }};
    Contender one{"rte_acl", [&](Portion p) { return peer->lookUps(p); }};
    Contender batch{"rte_acl, 64 a call", [&](Portion p) { return peer->batches(p); }};
    std::vector<Contender*> all{&lookUp};
    if (peer) {
      peer->packetsAre(packets);
      check("librte_acl", where, trace.first, [&](size_t i) { return peer->lookUp(i); });
      all = {&lookUp, &one, &matcher, &batch};
    } else {
      all.push_back(&matcher);
    }
    run_.progress(where + ": timing");
    alternate(all, packets.size(), run_.rounds);

    std::vector<Cell> row{set.name, Number{static_cast<double>(set.rules.size()), 0}, trace.name, lookUp.ns,
                          matcher.ns};
    if (peer) {
      const double ratio = ratioOf(one, lookUp);
      Ratios& ratios = ratios_[sizeClassOf(set.rules.size()).name];
      (trace.name.find("uni") == trace.name.npos ? ratios.trace : ratios.uniform).push_back(ratio);
      row.insert(row.end(), {one.ns, Number{ratio, 2}, batch.ns});
    } else {
      row.resize(8);
    }
    table_.rowIs(std::move(row));
  }

  Run& run_;
  Table table_;
  std::string lastWhy_;
  std::map<std::string, Ratios> ratios_;
};

}  // namespace

void measureSets(Run& run, const std::vector<RuleSet>& sets) {
  SetTable table(run);
  for (const RuleSet& set : sets) table.measure(set);
  table.finish();
}

}  // namespace Bench
