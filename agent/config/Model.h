#pragma once

#include <Acl/Rule.h>
#include <Acl/Types.h>

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace Config {

/// A rule of any kind of list; the alternative is the one of the list's type.
using Rule = std::variant<Acl::IpRule, Acl::Ip6Rule, Acl::MacRule>;

/// What every kind of rule has.
inline const Acl::RuleBase& common(const Rule& rule) {
  return std::visit([](const auto& r) -> const Acl::RuleBase& { return r; }, rule);
}

/// Whether two rules are one rule but for remark and spelling; rules of different kinds are not.
inline bool isSameRule(const Rule& a, const Rule& b) {
  return std::visit(
      [&b](const auto& rule) {
        const auto* other = std::get_if<std::decay_t<decltype(rule)>>(&b);
        return other && rule.isSameRule(*other);
      },
      a);
}

/// An access list as the text defines it. Each rule's key is its sequence number. A list without rules is
/// defined all the same.
struct List {
  Acl::AclType type = Acl::AclType::ip;
  std::string name;
  bool standard = false;  ///< its rules are written `permit|deny SOURCE`
  std::map<uint32_t, Rule> rules;
  std::vector<std::string> pendingRemarks;  ///< those that no rule has followed yet: the next one takes them

  bool operator==(const List&) const = default;
};

/// The place of a binding; there is one list for each.
struct BindingKey {
  Acl::AclType type = Acl::AclType::ip;
  Acl::AclDirection direction = Acl::AclDirection::in;
  std::string interface;

  auto operator<=>(const BindingKey&) const = default;
};

/// Everything that configuration texts say, as plain values: no entity, no id, no reference to a text.
///
/// Invariants: keys repeat what their values say; members and destinations are not empty and name no
/// interface twice; no interface is a member of two port-channels or of itself, and no member is a
/// port-channel. Bindings and rules may name lists and mirror sessions that do not exist.
struct Model {
  using ListKey = std::pair<Acl::AclType, std::string>;

  std::map<ListKey, List> lists;
  std::map<BindingKey, std::string> bindings;                      ///< the list bound at each place
  std::map<std::string, std::vector<std::string>> portChannels;    ///< members in the order of the text
  std::map<std::string, std::vector<std::string>> mirrorSessions;  ///< destinations in the order of the text

  bool operator==(const Model&) const = default;
};

}  // namespace Config
