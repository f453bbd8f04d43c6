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

PacketSet permitted(MetList list, const PacketSet& set, const RuleSets& sets) {
  return list ? TakenSets(list, set, sets).permitted() : set;
}

}  // namespace Proof
