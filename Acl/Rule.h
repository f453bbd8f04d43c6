#pragma once

#include <Acl/Filter.h>
#include <Acl/Types.h>
#include <Kelp/String.h>

#include <cstdint>

/// Rules as they are written down: plain values, which configuration readers fill and other threads work on.
/// What a list holds is made of them, see RuleConfig.h.
namespace Acl {

/// What every rule has.
struct RuleBase {
  uint32_t sequence = 0;  ///< 1 to 4294967295; rules are tried smallest first
  Action action = Action::permit;
  bool log = false;            ///< kept and shown; the packet path does not act on it
  Kelp::String mirrorSession;  ///< empty: no mirroring
  Kelp::String text;           ///< as it was typed, without the number
  Kelp::String remark;         ///< the remarks in front of the rule, a line each

  bool operator==(const RuleBase&) const = default;
  /// Equal in everything that makes it this rule: all but remark and spelling.
  bool isSameBase(const RuleBase& other) const {
    return sequence == other.sequence && action == other.action && log == other.log &&
           mirrorSession == other.mirrorSession;
  }
};

/// A rule with the filter of its kind of list.
template <class Filter>
struct FilterRule : RuleBase {
  using FilterType = Filter;
  Filter filter;

  /// False when it would be another rule, with an id of its own: anything but remark and spelling differs.
  bool isSameRule(const FilterRule& other) const { return isSameBase(other) && filter == other.filter; }
  bool operator==(const FilterRule&) const = default;
};

// What lists hold of them, see RuleConfig.h.
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
