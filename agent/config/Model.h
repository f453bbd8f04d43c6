#pragma once

#include <Acl/Rule.h>
#include <Acl/Types.h>
#include <agent/config/Notices.h>

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace Config {

/// A rule of any kind of list. All rules of a list have the alternative that belongs to the list's type.
using Rule = std::variant<Acl::IpRule, Acl::Ip6Rule, Acl::MacRule>;

/// The part that every kind of rule has.
inline const Acl::RuleBase& common(const Rule& rule) {
  return std::visit([](const auto& r) -> const Acl::RuleBase& { return r; }, rule);
}

/// Whether two rules are the same apart from remark and spelling. Rules of different kinds are not.
inline bool isSameRule(const Rule& a, const Rule& b) {
  return std::visit(
      [&b](const auto& rule) {
        const auto* other = std::get_if<std::decay_t<decltype(rule)>>(&b);
        return other && rule.isSameRule(*other);
      },
      a);
}

/// The combinations of members of groups that a rule stands for; 0 of one that names no groups.
inline size_t combinations(const Rule& rule) {
  return std::visit(
      [](const auto& r) -> size_t {
        if constexpr (requires { r.filter.alternatives; }) {
          return r.filter.alternatives.given() ? r.filter.alternatives.all().size() : 0;
        }
        return 0;
      },
      rule);
}

/// An access list as the text defines it. The key of a rule is its sequence number. A list without rules is
/// defined, too: it drops everything.
struct List {
  Acl::AclType type = Acl::AclType::ip;
  std::string name;
  bool standard = false;  ///< its rules are written `permit|deny SOURCE`
  std::map<uint32_t, Rule> rules;
  std::vector<std::string> pendingRemarks;  ///< remarks behind the last rule: the next rule will take them

  bool operator==(const List&) const = default;
};

/// An object-group: its members as they were typed, single blanks between the words.
struct ObjectGroup {
  bool service = false;  ///< of protocols and ports; else of networks
  std::vector<std::string> members;

  bool operator==(const ObjectGroup&) const = default;
};

/// What is kept with an interface and shown, and has no effect on traffic.
struct InterfaceNotes {
  std::string description;  ///< empty: none
  bool shutdown = false;

  bool isEmpty() const { return description.empty() && !shutdown; }
  bool operator==(const InterfaceNotes&) const = default;
};

/// Everything that configuration texts say, as plain values: without entities, ids or references to a text.
///
/// Invariants: the key of a list is its type and name, that of a rule its number. Members and destinations
/// are not empty, and none is named twice. An interface is a member of one port-channel at most, and a member
/// is never a port-channel itself. Bindings and rules may name lists and mirror sessions that do not exist.
struct Model {
  using ListKey = Config::ListKey;

  std::map<ListKey, List> lists;
  std::map<BindingKey, std::string> bindings;                      ///< the name of the list at each place
  std::map<std::string, std::vector<std::string>> portChannels;    ///< members in the order of the text
  std::map<std::string, std::vector<std::string>> mirrorSessions;  ///< destinations in the order of the text
  std::map<std::string, InterfaceNotes> interfaceNotes;            ///< none of them empty
  /// Rules that name them have their members as alternatives.
  std::map<std::string, ObjectGroup> objectGroups;
  Notices notices;

  bool operator==(const Model&) const = default;
};

/// How much there is in one model, or in several together.
struct Size {
  size_t lists = 0, rules = 0, bindings = 0;

  void add(const Model& model) {
    lists += model.lists.size();
    for (const auto& [key, list] : model.lists) rules += list.rules.size();
    bindings += model.bindings.size();
  }
};

}  // namespace Config
