#pragma once

#include <Acl/MatchFields.h>
#include <Acl/RuleMap.h>

/// The rules tried one after the other: the reference that the compiled form must agree with, and what is
/// fallen back on where a list has none.
namespace Acl::InOrder {

/// The entry of the rule that a packet (see Packets.h) meets first, null when there is none. Keep it plain.
template <class Rule, class Packet>
[[gnu::noinline]] const typename RuleMap<Rule>::Entry* firstRule(const RuleMap<Rule>& rules,
                                                                 const Packet& packet) {
  const auto fields = packet.fields();
  for (const auto* entry : rules.ordered()) {
    if (matchesFilter(entry->value.filter(), fields)) return entry;
  }
  return nullptr;
}

}  // namespace Acl::InOrder
