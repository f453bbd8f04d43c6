#pragma once

#include <Acl/Model.h>

#include <utility>

namespace Acl {

/// The operations of a list on the rules of one kind, made of those of its attribute.
template <class RuleType, const Zeb::Attribute& (*attributeOf)(),
          const RuleMap<RuleType>& (AclSubConfig::*rulesOf)() const,
          bool (AclSubConfig::*ruleIs)(const Kiv::UniqueId&, RuleType),
          bool (AclSubConfig::*ruleDel)(const Kiv::UniqueId&)>
struct RuleOperations {
  using Rule = RuleType;
  static const Zeb::Attribute& attribute() { return attributeOf(); }
  static const RuleMap<Rule>& rules(const AclSubConfig& list) { return (list.*rulesOf)(); }
  static void write(AclSubConfig& list, const Kiv::UniqueId& id, Rule rule) {
    (list.*ruleIs)(id, std::move(rule));
  }
  static void remove(AclSubConfig& list, const Kiv::UniqueId& id) { (list.*ruleDel)(id); }
};

/// The operations for each of the three kinds of rules, for code that is the same for all of them.
template <class Rule>
struct RuleKind;
template <>
struct RuleKind<IpRuleConfig>
    : RuleOperations<IpRuleConfig, &AclSubConfig::ipRuleByIdAttribute, &AclSubConfig::ipRuleById,
                     &AclSubConfig::ipRuleByIdIs, &AclSubConfig::ipRuleByIdDel> {};
template <>
struct RuleKind<Ip6RuleConfig>
    : RuleOperations<Ip6RuleConfig, &AclSubConfig::ip6RuleByIdAttribute, &AclSubConfig::ip6RuleById,
                     &AclSubConfig::ip6RuleByIdIs, &AclSubConfig::ip6RuleByIdDel> {};
template <>
struct RuleKind<MacRuleConfig>
    : RuleOperations<MacRuleConfig, &AclSubConfig::macRuleByIdAttribute, &AclSubConfig::macRuleById,
                     &AclSubConfig::macRuleByIdIs, &AclSubConfig::macRuleByIdDel> {};

/// Calls visit(RuleKind<Rule>()) for the kind that lists of a type have.
template <class Visit>
auto withRuleKind(AclType type, const Visit& visit) {
  return withRuleType(type, [&visit](auto rule) { return visit(RuleKind<typename decltype(rule)::type>()); });
}

/// The same for all kinds, one after the other.
template <class Visit>
void forEachRuleKind(const Visit& visit) {
  for (const AclType type : aclTypes) withRuleKind(type, visit);
}

}  // namespace Acl
