#include <Kelp/Assert.h>
#include <agent/proof/ListAnalysis.h>
#include <agent/proof/OrderedSets.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace Proof {

namespace {

using Near = std::vector<size_t>;  // entries, in their order

/// Numbers for what becomes of packets: odd ones where they pass.
class Effects {
 public:
  static uint32_t ofVerdict(const Config::Rule& rule) {
    return Config::common(rule).action == Acl::Action::permit ? 1 : 0;
  }
  /// Of the verdict together with what is logged and mirrored.
  uint32_t of(const Config::Rule& rule) {
    const uint32_t verdict = ofVerdict(rule);
    if (isPlain(rule)) return verdict;
    const Acl::RuleBase& base = Config::common(rule);
    const auto next = static_cast<uint32_t>(numbers_.size() + 1);
    return 2 * numbers_.try_emplace({base.log, base.mirrorSession.str()}, next).first->second + verdict;
  }
  static bool isPlain(const Config::Rule& rule) {
    const Acl::RuleBase& base = Config::common(rule);
    return !base.log && base.mirrorSession.empty();
  }

 private:
  std::map<std::pair<bool, std::string>, uint32_t> numbers_;
};

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

  std::vector<RuleFinding> needless() {
    Effects effects;
    addAll([&effects](const Config::Rule& rule) { return effects.of(rule); });
    std::vector<RuleFinding> all;
    for (size_t i = 0; i + 1 < rules_.size(); ++i) {
      if (auto finding = neverMatches(i)) take(i, std::move(*finding), all);
    }
    takeRedundant(all);
    return all;
  }

 private:
  template <class EffectOf>
  void addAll(const EffectOf& effectOf) {
    for (const auto& [sequence, rule] : list_.rules) rules_.add(sequence, effectOf(rule), sets_.of(rule));
    // What no rule matches is dropped.
    rules_.add(0, 0, sets_.packets());
  }
  bool permits(size_t at) const { return rules_[at].effect % 2 != 0; }

  /// Takes rules away that change nothing, each beside those that are left. When a rule goes, only earlier
  /// ones may begin to change nothing: a later one takes at least what it took before, and what lies behind
  /// it is the same. So one way from the end to the beginning finds all of them.
  void takeRedundant(std::vector<RuleFinding>& all) {
    for (size_t i = rules_.size() - 1; i-- > 0;) {
      if (rules_[i].isDead || !mayGo(i)) continue;
      sets_.sets().cameTo(rules_.size() - i, rules_.size());
      if (auto finding = judge(i)) take(i, std::move(*finding), all);
    }
  }
  void take(size_t at, RuleFinding finding, std::vector<RuleFinding>& all) {
    all.push_back(std::move(finding));
    rules_[at].isDead = true;
  }
  bool mayGo(size_t at) const {
    const bool last = at + 2 == rules_.size();
    return Effects::isPlain(list_.rules.at(rules_[at].sequence)) && (permits(at) || !last);
  }

  void judgeAll() {
    addAll(Effects::ofVerdict);
    const size_t rest = rules_.size() - 1;
    for (size_t i = 0; i < rest; ++i, ++found_.judged) {
      sets_.sets().cameTo(i, rest);
      if (auto finding = judge(i)) found_.rules.push_back(std::move(*finding));
      permits_ = permits_ || (permits(i) && !rules_[i].isDead);
      drops_ = drops_ || (!permits(i) && !rules_[i].isDead);
    }
    const bool passesAll = !drops_ && !isReached(rest, rules_.near(rest, 0, rest));
    if (!permits_ || passesAll) found_.example = sets_.exampleOf(sets_.packets());
    found_.passesNothing = !permits_;
    found_.passesAll = passesAll;
  }

  bool isReached(size_t at, const Near& earlier) {
    return !isCoveredByOne(at, earlier) &&
           (rules_.tryPackets(at, earlier, {}, random_).taken || rules_.leftOf(at, earlier).packet);
  }

  RuleFinding impossible(size_t at) const { return {rules_[at].sequence, Oddity::impossible, {}, false, {}}; }

  /// What is odd about a rule that never matches; nothing of one that does.
  std::optional<RuleFinding> neverMatches(size_t at) {
    if (rules_[at].isDead) return impossible(at);
    const Near earlier = rules_.near(at, 0, at);
    if (isCoveredByOne(at, earlier)) return never(at, takersOf(at, earlier));
    if (rules_.tryPackets(at, earlier, {}, random_).taken) return std::nullopt;
    const auto left = rules_.leftOf(at, earlier);
    if (left.packet) return std::nullopt;
    return never(at, takersOf(at, earlier, left.by));
  }
  std::optional<RuleFinding> judge(size_t at) {
    if (rules_[at].isDead) return impossible(at);
    const Near earlier = rules_.near(at, 0, at);
    if (isCoveredByOne(at, earlier)) return never(at, takersOf(at, earlier));
    // The last entry is what happens without any rule.
    const Near later = rules_.near(at, at + 1, rules_.size() - 1);
    auto tried = rules_.tryPackets(at, earlier, later, random_);
    if (tried.changed) return std::nullopt;
    if (tried.taken && isRepeated(at, later)) return redundant(at, earlier, *tried.taken);
    if (!tried.taken) {
      auto left = rules_.leftOf(at, earlier);
      if (!left.packet) return never(at, takersOf(at, earlier, std::move(left.by)));
      tried.taken = left.packet;
    }
    if (rules_.changedWithout(at, earlier, later)) return std::nullopt;
    return redundant(at, earlier, *tried.taken);
  }

  bool isCoveredByOne(size_t at, const Near& earlier) const {
    return std::any_of(earlier.begin(), earlier.end(), [&](size_t each) { return rules_.covers(each, at); });
  }

  /// Whether a later rule does the same with all that this one asks for, and nothing stands between.
  bool isRepeated(size_t at, const Near& later) const {
    for (const size_t each : later) {
      if (rules_[each].effect != rules_[at].effect) return false;
      if (rules_.covers(each, at)) return true;
    }
    return rules_[at].effect == 0;
  }

  /// Of many rules it would take longer than all else to find out which take some of a rule.
  static constexpr size_t many = 64;

  /// Those that take what a rule asks for, of which one asks for all. Among very many the first such one.
  Near takersOf(size_t at, const Near& earlier) const {
    const auto cover =
        std::find_if(earlier.begin(), earlier.end(), [&](size_t each) { return rules_.covers(each, at); });
    return takersOf(at, {earlier.begin(), cover + 1}, {*cover});
  }
  /// The same when these are known to ask for all of it together. Among very many they stand for the others,
  /// with one that does otherwise if there is any.
  Near takersOf(size_t at, const Near& earlier, Near together) const {
    if (earlier.size() <= many) return rules_.takersOf(at, earlier);
    const uint32_t effect = rules_[together.front()].effect;
    if (std::any_of(together.begin(), together.end(), [&](size_t i) { return rules_[i].effect != effect; }))
      return together;
    if (const auto packet = rules_.metOtherwise(at, effect, earlier)) {
      const size_t other = *rules_.firstOf(earlier, *packet);
      together.insert(std::lower_bound(together.begin(), together.end(), other), other);
    }
    return together;
  }

  RuleFinding never(size_t at, const Near& takers) {
    auto& rule = rules_[at];
    rule.isDead = true;
    RuleFinding finding{rule.sequence, Oddity::covered, {}, false, sets_.exampleOf(rule.asked)};
    for (const size_t each : takers) {
      finding.by.push_back(rules_[each].sequence);
      finding.otherAction = finding.otherAction || permits(each) != permits(at);
    }
    return finding;
  }

  RuleFinding redundant(size_t at, const Near& earlier, const Bits& taken) const {
    const Packet example = sets_.asUsual(taken, [&](const Bits& packet) {
      return rules_.has(at, packet) && !rules_.firstOf(earlier, packet);
    });
    return {rules_[at].sequence, Oddity::redundant, {}, false, example};
  }

  const Config::List& list_;
  const RuleSets& sets_;
  OrderedSets rules_;
  bool permits_ = false, drops_ = false;  // by a rule
  std::mt19937_64 random_;                // the same for every list: so are the findings
  ListFindings found_;
};

}  // namespace

std::vector<RuleFinding> needlessOf(const Config::List& list, const RuleSets& sets) {
  KELP_ASSERT(list.type == sets.type(), "sets for another kind of list");
  return Analysis(list, sets).needless();
}

ListFindings analyse(const Config::List& list, const RuleSets& sets) {
  KELP_ASSERT(list.type == sets.type(), "sets for another kind of list");
  return Analysis(list, sets).run();
}

}  // namespace Proof
