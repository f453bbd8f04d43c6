#pragma once

#include <Acl/Compiled.h>
#include <Acl/InOrder.h>
#include <Acl/Packets.h>

namespace Acl {

/// The entry of the rule of a list that a packet meets first, null when there is none: what the matchers of
/// Match.h ask. The entry lasts until the next change of the rules. `packet()` makes the
/// packet, one of Packets.h, as often as it is asked.
///
/// Inlined where it is called: a packet's headers are at hand there, and what is made of them goes straight
/// into the look-up's registers.
template <class Rule, class MakePacket>
[[gnu::always_inline]] inline const typename RuleMap<Rule>::Entry* firstRule(const RuleMap<Rule>& rules,
                                                                             const MakePacket& packet) {
  const typename RuleMap<Rule>::Entry* found;
  const auto* compiled = static_cast<const Compiled<Rule>*>(rules.compiled());
  if (compiled && compiled->find(packet, found)) [[likely]]
    return found;
  return InOrder::firstRule(rules, packet());
}

}  // namespace Acl
