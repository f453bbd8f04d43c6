#pragma once

#include <agent/config/Model.h>
#include <agent/proof/RuleSets.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Proof {

/// Packets in the words of the configuration language: those that a rule with these fields would match,
/// without those that other rules would.
struct Condition {
  Config::Rule fields;
  std::vector<Config::Rule> without{};
};

/// Reads a condition on packets before a kind of list. It is written like the fields of a rule, and behind
/// them there may be any number of `not`, each with a qualifier, an ICMP message, `vlan ID [WILDCARD]`, a
/// protocol or an EtherType: "tcp 10.0.0.0/8 any eq 22 not established". Returns nothing, and says in `wrong`
/// what was found and what was expected, when it is none.
std::optional<Condition> readCondition(Acl::AclType type, std::string_view text, std::string* wrong);

PacketSet setOf(const Condition& condition, const RuleSets& sets);

}  // namespace Proof
