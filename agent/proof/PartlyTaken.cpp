#include <agent/proof/OrderedSets.h>
#include <agent/proof/PartlyTaken.h>

#include <utility>

namespace Proof {

void forEachPartlyTaken(const Config::List& list, const RuleSets& sets, size_t mostBoxes,
                        const std::function<void(const PartlyTaken&)>& tell) {
  OrderedSets rules(sets);
  LooseBits loose;
  loose.add(list);
  for (const auto& [sequence, rule] : list.rules) rules.add(sequence, 0, sets.of(rule));
  for (size_t at = 0; at < rules.size(); ++at) {
    if (rules[at].isDead) continue;
    const PacketSet& asked = rules[at].asked;
    PartlyTaken part{rules[at].sequence, {}, {}, {}, {}};
    PacketSet left = asked;
    for (const size_t each : rules.near(at, 0, at)) {
      PacketSet less = left - rules[each].asked;
      if (less != left) part.by.push_back(rules[each].sequence);
      left = std::move(less);
      if (left.isEmpty()) break;
    }
    if (part.by.empty() || left.isEmpty()) continue;
    const PacketSet taken = asked - left;
    part.taken = boxesOf(taken, sets, loose, mostBoxes);
    part.left = boxesOf(left, sets, loose, mostBoxes);
    part.example = sets.exampleOf(taken);
    tell(part);
  }
}

}  // namespace Proof
