#pragma once

#include <agent/config/Cursor.h>
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
/// protocol, an EtherType, or both addresses with their ports: "tcp 10.0.0.0/8 any eq 22 not established not
/// host 10.0.0.1 any". Returns nothing, with what is wrong and at which column of the text, when it is none.
std::optional<Condition> readCondition(Acl::AclType type, std::string_view text,
                                       Config::Cursor::Problem* wrong);
/// The same, with what is wrong as a sentence.
std::optional<Condition> readCondition(Acl::AclType type, std::string_view text, std::string* wrong);

/// Of some kinds of lists those that a text is a condition for. When there are none `wrong` is what is wrong
/// with it for the kind that its words fit longest.
std::vector<Acl::AclType> kindsOfCondition(std::string_view text, const std::vector<Acl::AclType>& among,
                                           Config::Cursor::Problem* wrong);

PacketSet setOf(const Condition& condition, const RuleSets& sets);

}  // namespace Proof
