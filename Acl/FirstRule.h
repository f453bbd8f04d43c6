#pragma once

#include <Acl/Compiled.h>
#include <Acl/InOrder.h>
#include <Acl/Packets.h>

#include <algorithm>

namespace Acl {

/// The entry of the first rule of a list that a packet matches; null when there is none. The matchers of
/// Match.h call it. The entry lasts until the next change of the rules. `packet()` makes the packet, one of
/// Packets.h; it may be called several times.
///
/// Inlined where it is called, so that the keys are made from the packet's headers in registers.
template <class Rule, class MakePacket>
[[gnu::always_inline]] inline const typename RuleMap<Rule>::Entry* firstRule(const RuleMap<Rule>& rules,
                                                                             const MakePacket& packet) {
  const typename RuleMap<Rule>::Entry* found;
  const auto* compiled = static_cast<const Compiled<Rule>*>(rules.compiled());
  if (compiled && compiled->find(packet, found)) [[likely]]
    return found;
  return InOrder::firstRule(rules, packet());
}

/// The same of a burst of packets: found[i] is what firstRule() gives for packetAt(i), up to `count`. It
/// takes less time for all of them than one by one. `packetAt` is asked as often as it takes, in any order.
template <class Rule, class PacketAt>
void firstRules(const RuleMap<Rule>& rules, uint32_t count, const PacketAt& packetAt,
                const typename RuleMap<Rule>::Entry** found) {
  const auto* compiled = static_cast<const Compiled<Rule>*>(rules.compiled());
  const auto inOrder = [&](uint32_t i) { return InOrder::firstRule(rules, packetAt(i)); };
  if (!compiled) {
    for (uint32_t i = 0; i < count; ++i) found[i] = inOrder(i);
    return;
  }
  for (uint32_t begin = 0; begin < count; begin += Classify::burstMost) {
    compiled->find(
        std::min(count - begin, Classify::burstMost), [&](uint32_t i) { return packetAt(begin + i); },
        [&](uint32_t i) { return inOrder(begin + i); }, found + begin);
  }
}

}  // namespace Acl
