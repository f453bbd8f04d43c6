#include <Kelp/Assert.h>
#include <agent/proof/ListAnalysis.h>
#include <agent/proof/OrderedSets.h>

#include <set>

namespace Proof {

namespace {

using Near = std::vector<size_t>;  // entries, in their order

class Analysis {
 public:
  Analysis(const Config::List& list, const RuleSets& sets) : list_(list), sets_(sets), rules_(sets) {}

  ListFindings run() {
    try {
      judgeAll();
    } catch (const LimitReached& limit) {
      found_.cutOff = limit.what();
    }
    return std::move(found_);
  }

 private:
  void judgeAll() {
    for (const auto& [sequence, rule] : list_.rules)
      rules_.add(sequence, Config::common(rule).action == Acl::Action::permit, sets_.of(rule));
    // What no rule matches is dropped.
    const size_t rest = rules_.size();
    rules_.add(0, false, sets_.packets());
    for (size_t i = 0; i < rest; ++i, ++found_.judged) {
      if (auto finding = judge(i)) found_.rules.push_back(std::move(*finding));
      permits_ = permits_ || (rules_[i].permits && !rules_[i].isDead);
      drops_ = drops_ || (!rules_[i].permits && !rules_[i].isDead);
    }
    const bool passesAll = !drops_ && !isReached(rest);
    if (!permits_ || passesAll) found_.example = sets_.exampleOf(sets_.packets());
    found_.passesNothing = !permits_;
    found_.passesAll = passesAll;
  }

  bool isReached(size_t at) {
    const Near earlier = rules_.near(at, 0, at);
    return !coverOfOne(at, earlier) && (rules_.tryPackets(at, earlier, {}, random_).taken ||
                                        rules_.leftOf(at, rules_[at].asked, earlier));
  }

  std::optional<RuleFinding> judge(size_t at) {
    if (rules_[at].isDead) return RuleFinding{rules_[at].sequence, Oddity::impossible, {}, false, {}};
    const Near earlier = rules_.near(at, 0, at);
    if (const auto cover = coverOfOne(at, earlier)) return never(at, {*cover});
    // The last entry is what happens without any rule.
    const Near later = rules_.near(at, at + 1, rules_.size() - 1);
    auto tried = rules_.tryPackets(at, earlier, later, random_);
    if (tried.changed) return std::nullopt;
    if (tried.taken && isRepeated(at, later)) return redundant(at, earlier, *tried.taken);
    if (!tried.taken) {
      std::set<size_t> needed;
      tried.taken = rules_.leftOf(at, rules_[at].asked, earlier, &needed);
      if (!tried.taken) return never(at, fewestOf(at, {needed.begin(), needed.end()}));
    }
    if (rules_.leftOf(at, otherwise(at, later), earlier)) return std::nullopt;
    return redundant(at, earlier, *tried.taken);
  }

  std::optional<size_t> coverOfOne(size_t at, const Near& earlier) const {
    for (const size_t each : earlier) {
      if (rules_.covers(each, at)) return each;
    }
    return std::nullopt;
  }

  /// Whether a later rule does the same with all that this one asks for, and nothing stands between.
  bool isRepeated(size_t at, const Near& later) const {
    for (const size_t each : later) {
      if (rules_[each].permits != rules_[at].permits) return false;
      if (rules_.covers(each, at)) return true;
    }
    return !rules_[at].permits;
  }

  /// What of all that a rule asks for meets another verdict behind it.
  PacketSet otherwise(size_t at, const Near& later) const {
    const auto& rule = rules_[at];
    PacketSet other = rule.permits ? rule.asked : PacketSet();
    for (size_t i = later.size(); i-- > 0;) {
      const auto& next = rules_[later[i]];
      other = next.permits == rule.permits ? other - next.asked : other | (rule.asked & next.asked);
    }
    return other;
  }

  RuleFinding never(size_t at, const Near& by) {
    auto& rule = rules_[at];
    rule.isDead = true;
    RuleFinding finding{rule.sequence, Oddity::covered, {}, false, sets_.exampleOf(rule.asked)};
    for (const size_t each : by) {
      finding.by.push_back(rules_[each].sequence);
      finding.otherAction = finding.otherAction || rules_[each].permits != rule.permits;
    }
    return finding;
  }

  RuleFinding redundant(size_t at, const Near& earlier, const Bits& taken) const {
    const Packet example = sets_.asUsual(taken, [&](const Bits& packet) {
      return rules_.has(at, packet) && !rules_.firstOf(earlier, packet);
    });
    return {rules_[at].sequence, Oddity::redundant, {}, false, example};
  }

  /// Of rules that cover one together as few as taking away one after the other from the end leaves.
  Near fewestOf(size_t at, const Near& covering) const {
    const PacketSet& asked = rules_[at].asked;
    std::vector<PacketSet> upTo{{}};  // what the first so many of them ask for of that
    for (const size_t each : covering) upTo.push_back(upTo.back() | (rules_[each].asked & asked));
    Near kept;
    PacketSet missing = asked;
    for (size_t i = covering.size(); i-- > 0;) {
      if ((missing - upTo[i]).isEmpty()) continue;
      kept.insert(kept.begin(), covering[i]);
      missing = missing - rules_[covering[i]].asked;
    }
    return kept;
  }

  const Config::List& list_;
  const RuleSets& sets_;
  OrderedSets rules_;
  bool permits_ = false, drops_ = false;  // by a rule
  std::mt19937_64 random_;                // the same for every list: so are the findings
  ListFindings found_;
};

}  // namespace

ListFindings analyse(const Config::List& list, const RuleSets& sets) {
  KELP_ASSERT(list.type == sets.type(), "sets for another kind of list");
  return Analysis(list, sets).run();
}

}  // namespace Proof
