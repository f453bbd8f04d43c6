#pragma once

#include <Acl/Model.h>

#include <utility>

namespace Acl {

/// The operations of a list on the rules of one kind, for code that is the same for all three.
template <class Rule>
struct RuleKind;

template <>
struct RuleKind<IpRuleConfig> {
  using Rule = IpRuleConfig;
  static const Zeb::Attribute& attribute() { return AclSubConfig::ipRuleByIdAttribute(); }
  static const RuleMap<Rule>& rules(const AclSubConfig& list) { return list.ipRuleById(); }
  static void write(AclSubConfig& list, const Kiv::UniqueId& id, Rule rule) {
    list.ipRuleByIdIs(id, std::move(rule));
  }
  static void remove(AclSubConfig& list, const Kiv::UniqueId& id) { list.ipRuleByIdDel(id); }
};

template <>
struct RuleKind<Ip6RuleConfig> {
  using Rule = Ip6RuleConfig;
  static const Zeb::Attribute& attribute() { return AclSubConfig::ip6RuleByIdAttribute(); }
  static const RuleMap<Rule>& rules(const AclSubConfig& list) { return list.ip6RuleById(); }
  static void write(AclSubConfig& list, const Kiv::UniqueId& id, Rule rule) {
    list.ip6RuleByIdIs(id, std::move(rule));
  }
  static void remove(AclSubConfig& list, const Kiv::UniqueId& id) { list.ip6RuleByIdDel(id); }
};

template <>
struct RuleKind<MacRuleConfig> {
  using Rule = MacRuleConfig;
  static const Zeb::Attribute& attribute() { return AclSubConfig::macRuleByIdAttribute(); }
  static const RuleMap<Rule>& rules(const AclSubConfig& list) { return list.macRuleById(); }
  static void write(AclSubConfig& list, const Kiv::UniqueId& id, Rule rule) {
    list.macRuleByIdIs(id, std::move(rule));
  }
  static void remove(AclSubConfig& list, const Kiv::UniqueId& id) { list.macRuleByIdDel(id); }
};

/// Calls visit(RuleKind<Rule>()) for the kind that lists of a type have.
template <class Visit>
auto withRuleKind(AclType type, const Visit& visit) {
  switch (type) {
    case AclType::ip:
      return visit(RuleKind<IpRuleConfig>());
    case AclType::ipv6:
      return visit(RuleKind<Ip6RuleConfig>());
    case AclType::mac:
      break;
  }
  return visit(RuleKind<MacRuleConfig>());
}

/// The same for all kinds, one after the other.
template <class Visit>
void forEachRuleKind(const Visit& visit) {
  visit(RuleKind<IpRuleConfig>());
  visit(RuleKind<Ip6RuleConfig>());
  visit(RuleKind<MacRuleConfig>());
}

}  // namespace Acl
