#include <agent/proof/OnePacket.h>
#include <agent/proof/OrderedSets.h>

namespace Proof {

std::optional<Packet> oneJudged(MetList list, bool passes, const PacketSet& among, const RuleSets& sets) {
  if (among.isEmpty() || (!list && !passes)) return std::nullopt;
  if (!list) return sets.exampleOf(among);
  constexpr uint32_t drop = 0, permit = 1;
  const uint32_t wanted = passes ? permit : drop;
  OrderedSets entries(sets);
  entries.add(0, wanted, among);
  size_t done = 0;
  for (const auto& [sequence, rule] : list->rules) {
    sets.sets().cameTo(done++, list->rules.size());
    entries.add(sequence, Config::common(rule).action == Acl::Action::permit ? permit : drop, sets.of(rule));
  }
  const auto rules = entries.near(0, 1, entries.size());
  const auto found = entries.metOtherwise(0, passes ? drop : permit, rules);
  if (!found) return std::nullopt;
  return sets.asUsual(*found, [&](const Bits& packet) {
    const auto first = entries.firstOf(rules, packet);
    return entries.has(0, packet) && (first ? entries[*first].effect : drop) == wanted;
  });
}

}  // namespace Proof
