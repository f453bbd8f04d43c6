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

std::optional<Packet> oneTaken(const Config::List& list, uint32_t sequence, const PacketSet& among,
                               const RuleSets& sets) {
  const auto own = list.rules.find(sequence);
  OrderedSets entries(sets);
  for (auto at = list.rules.begin(); at != own; ++at) {
    sets.sets().cameTo(entries.size(), list.rules.size());
    entries.add(at->first, 0, sets.of(at->second));
  }
  const size_t at = entries.size();
  entries.add(sequence, 0, sets.of(own->second) & among);
  if (entries[at].isDead) return std::nullopt;
  const auto earlier = entries.near(at, 0, at);
  const auto found = entries.leftOf(at, earlier).packet;
  if (!found) return std::nullopt;
  return sets.asUsual(*found, [&](const Bits& packet) {
    return entries.has(at, packet) && !entries.firstOf(earlier, packet);
  });
}

}  // namespace Proof
