#pragma once

#include <Acl/Filter.h>
#include <Acl/Types.h>
#include <Kelp/String.h>

#include <cstdint>

/// Rules as plain values, which readers of configuration fill in and other threads may work on. Lists hold
/// rules that are made from them, see RuleConfig.h.
namespace Acl {

/// The part that rules of every kind have.
struct RuleBase {
  uint32_t sequence = 0;  ///< 1 to 4294967295; rules are tried smallest first
  Action action = Action::permit;
  bool log = false;            ///< kept and shown; the packet path does not act on it
  Kelp::String mirrorSession;  ///< empty: no mirroring
  Kelp::String text;           ///< as it was typed, without the number
  Kelp::String remark;         ///< the remarks in front of the rule, a line each

  bool operator==(const RuleBase&) const = default;
  /// Whether everything is equal except number, remark and spelling.
  bool doesTheSame(const RuleBase& other) const {
    return action == other.action && log == other.log && mirrorSession == other.mirrorSession;
  }
  /// Whether everything is equal except remark and spelling.
  bool isSameBase(const RuleBase& other) const { return sequence == other.sequence && doesTheSame(other); }
};

/// A rule with the filter of its kind of list.
template <class Filter>
struct FilterRule : RuleBase {
  using FilterType = Filter;
  Filter filter;

  /// Whether it is the same rule under the same number: everything is equal except remark and spelling.
  bool isSameRule(const FilterRule& other) const { return isSameBase(other) && filter == other.filter; }
  bool operator==(const FilterRule&) const = default;
};

// The rules that lists hold, see RuleConfig.h.
struct IpRuleConfig;
struct Ip6RuleConfig;
struct MacRuleConfig;

struct IpRule : FilterRule<IpFilter> {
  using Config = IpRuleConfig;
};
struct Ip6Rule : FilterRule<Ip6Filter> {
  using Config = Ip6RuleConfig;
};
struct MacRule : FilterRule<MacFilter> {
  using Config = MacRuleConfig;
};

}  // namespace Acl
