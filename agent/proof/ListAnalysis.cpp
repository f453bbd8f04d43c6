#include <Kelp/Assert.h>
#include <agent/proof/ListAnalysis.h>

#include <algorithm>

namespace Proof {

namespace {

bool isIn(const PacketSet& part, const PacketSet& whole) { return (part - whole).isEmpty(); }

class Analysis {
 public:
  Analysis(const Config::List& list, const RuleSets& sets) : sets_(sets) {
    rules_.reserve(list.rules.size());
    for (const auto& [sequence, rule] : list.rules)
      rules_.push_back({sequence, Config::common(rule).action, sets.of(rule), {}});
  }

  ListFindings run() {
    takeInOrder();
    judgeFromTheEnd();
    std::sort(found_.rules.begin(), found_.rules.end(),
              [](const RuleFinding& a, const RuleFinding& b) { return a.sequence < b.sequence; });
    return std::move(found_);
  }

 private:
  struct Entry {
    uint32_t sequence;
    Acl::Action action;
    PacketSet asked;  ///< what the rule would match first of all
    PacketSet taken;  ///< what earlier rules leave of that
  };

  void takeInOrder() {
    PacketSet before;
    for (size_t i = 0; i < rules_.size(); ++i) {
      Entry& rule = rules_[i];
      rule.taken = rule.asked - before;
      if (rule.taken.isEmpty()) {
        found_.rules.push_back(never(i));
      } else {
        before = before | rule.asked;
      }
    }
  }

  RuleFinding never(size_t at) const {
    const Entry& rule = rules_[at];
    RuleFinding finding;
    finding.sequence = rule.sequence;
    if (rule.asked.isEmpty()) return finding;
    finding.oddity = Oddity::covered;
    finding.example = sets_.exampleOf(rule.asked);
    for (const size_t each : cover(at)) {
      finding.by.push_back(rules_[each].sequence);
      finding.otherAction = finding.otherAction || rules_[each].action != rule.action;
    }
    return finding;
  }

  /// The rules that cover one, as few as taking away one after the other from the end leaves.
  std::vector<size_t> cover(size_t at) const {
    const PacketSet& asked = rules_[at].asked;
    std::vector<size_t> taking;       // something of what is asked
    std::vector<PacketSet> upTo{{}};  // what the first so many of them ask for of that
    for (size_t i = 0; i < at; ++i) {
      if ((rules_[i].taken & asked).isEmpty()) continue;
      const PacketSet part = rules_[i].asked & asked;
      if (part == asked) return {i};
      taking.push_back(i);
      upTo.push_back(upTo.back() | part);
    }
    std::vector<size_t> kept;
    PacketSet missing = asked;
    for (size_t i = taking.size(); i-- > 0;) {
      if (isIn(missing, upTo[i])) continue;
      kept.insert(kept.begin(), taking[i]);
      missing = missing - rules_[taking[i]].asked;
    }
    return kept;
  }

  /// What passes the rules behind one decides whether anything changes without it. So do rules that never
  /// match as long as it is there. Behind all of them there is the implicit drop.
  void judgeFromTheEnd() {
    PacketSet passes;
    for (size_t i = rules_.size(); i-- > 0;) {
      const Entry& rule = rules_[i];
      const bool permits = rule.action == Acl::Action::permit;
      const bool same = permits ? isIn(rule.taken, passes) : (rule.taken & passes).isEmpty();
      if (same && !rule.taken.isEmpty())
        found_.rules.push_back({rule.sequence, Oddity::redundant, {}, false, sets_.exampleOf(rule.taken)});
      passes = permits ? passes | rule.asked : passes - rule.asked;
    }
    found_.passesAll = passes == sets_.packets();
    found_.passesNothing = passes.isEmpty();
  }

  const RuleSets& sets_;
  std::vector<Entry> rules_;
  ListFindings found_;
};

}  // namespace

ListFindings analyse(const Config::List& list, const RuleSets& sets) {
  KELP_ASSERT(list.type == sets.type(), "sets for another kind of list");
  return Analysis(list, sets).run();
}

}  // namespace Proof
