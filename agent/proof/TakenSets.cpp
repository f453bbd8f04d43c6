#include <agent/proof/TakenSets.h>

#include <utility>

namespace Proof {

TakenSets::TakenSets(MetList list, const PacketSet& among, const RuleSets& sets) : isList_(list != nullptr) {
  PacketSet left = among;
  if (list) {
    size_t done = 0;
    for (const auto& [sequence, rule] : list->rules) {
      sets.sets().cameTo(done++, list->rules.size());
      if (left.isEmpty()) return;
      const PacketSet asked = sets.of(rule);
      PacketSet taken = left & asked;
      if (taken.isEmpty()) continue;
      left = left - asked;
      all_.push_back({sequence, &rule, std::move(taken)});
    }
  }
  if (!left.isEmpty()) all_.push_back({0, nullptr, std::move(left)});
}

PacketSet takenBy(const Config::List& list, uint32_t sequence, const PacketSet& among, const RuleSets& sets) {
  const auto own = list.rules.find(sequence);
  PacketSet left = sets.of(own->second) & among;
  for (auto at = list.rules.begin(); at != own && !left.isEmpty(); ++at) left = left - sets.of(at->second);
  return left;
}

Deciding TakenSets::about(const PacketSet& packets) const {
  Deciding rules;
  for (const Taken& each : all_) {
    if (!(each.packets & packets).isEmpty()) rules.push_back(each.sequence);
  }
  return rules;
}

namespace {

/// Which of some packets rules that follow each other decide about, and which of these they permit.
struct Decided {
  PacketSet all, permitted;
};

class Deciders {
 public:
  Deciders(const Config::List& list, const PacketSet& among, const RuleSets& sets)
      : among_(among), sets_(sets) {
    for (const auto& [sequence, rule] : list.rules) rules_.push_back(&rule);
  }

  PacketSet permitted() { return rules_.empty() ? PacketSet() : decided(0, rules_.size()).permitted; }

 private:
  /// In halves: so most rules take part in unions of small sets only.
  Decided decided(size_t begin, size_t end) {
    if (end - begin == 1) {
      sets_.sets().cameTo(begin, rules_.size());
      const PacketSet asked = sets_.of(*rules_[begin]) & among_;
      const bool permits = Config::common(*rules_[begin]).action == Acl::Action::permit;
      return {asked, permits ? asked : PacketSet()};
    }
    const size_t middle = begin + (end - begin) / 2;
    const Decided first = decided(begin, middle);
    if (first.all == among_) return first;
    const Decided then = decided(middle, end);
    return {first.all | then.all, first.permitted | (then.permitted - first.all)};
  }

  const PacketSet& among_;
  const RuleSets& sets_;
  std::vector<const Config::Rule*> rules_;
};

}  // namespace

PacketSet permitted(MetList list, const PacketSet& set, const RuleSets& sets) {
  return list ? Deciders(*list, set, sets).permitted() : set;
}

}  // namespace Proof
