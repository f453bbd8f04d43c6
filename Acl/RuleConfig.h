#pragma once

#include <Acl/Rule.h>
#include <Kelp/Ptr.h>

#include <type_traits>
#include <utility>

/// Rules as lists hold them: values whose copies share the same content, which never changes. The shared
/// content is counted, so that rules must stay on the event loop's thread.
namespace Acl {

/// The part that rules of every kind have. A default-constructed one has no content and reads like a default
/// rule.
class RuleConfig {
 public:
  RuleConfig() = default;

  uint32_t sequence() const { return base().sequence; }
  Action action() const { return base().action; }
  bool log() const { return base().log; }
  const Kelp::String& mirrorSession() const { return base().mirrorSession; }
  const Kelp::String& text() const { return base().text; }
  const Kelp::String& remark() const { return base().remark; }
  /// All of these together; valid as long as a copy of the rule exists.
  const RuleBase& base() const { return body_ ? body_->base : defaultBase; }

 protected:
  struct Body : Kelp::Node {
    explicit Body(const RuleBase& said) : base(said) {}
    ~Body() override;
    const RuleBase base;
  };
  explicit RuleConfig(Kelp::Ptr<const Body> body) : body_(std::move(body)) {}

  static const RuleBase defaultBase;
  Kelp::Ptr<const Body> body_;
};

/// A rule with the filter of its kind of list. Rules are compared by content; copies of one rule are known to
/// be equal without that.
template <class Filter>
class FilterRuleConfig : public RuleConfig {
 public:
  using FilterType = Filter;
  using Draft = FilterRule<Filter>;

  FilterRuleConfig() = default;
  FilterRuleConfig(const Draft& draft);

  const Filter& filter() const {
    return body_ ? static_cast<const FilterBody*>(body_.get())->filter : defaultFilter;
  }

  bool sharesBody(const FilterRuleConfig& other) const { return body_ == other.body_; }
  bool isEq(const FilterRuleConfig& other) const {
    return sharesBody(other) || (base() == other.base() && filter() == other.filter());
  }
  bool operator==(const FilterRuleConfig& other) const { return isEq(other); }
  /// See FilterRule.
  bool isSameRule(const Draft& other) const { return base().isSameBase(other) && filter() == other.filter; }

 private:
  struct FilterBody final : Body {
    explicit FilterBody(const Draft& draft) : Body(draft), filter(draft.filter) {}
    ~FilterBody() override;
    const Filter filter;
  };
  static const Filter defaultFilter;
};

struct IpRuleConfig : FilterRuleConfig<IpFilter> {
  using Draft = IpRule;
  using FilterRuleConfig::FilterRuleConfig;
};
struct Ip6RuleConfig : FilterRuleConfig<Ip6Filter> {
  using Draft = Ip6Rule;
  using FilterRuleConfig::FilterRuleConfig;
};
struct MacRuleConfig : FilterRuleConfig<MacFilter> {
  using Draft = MacRule;
  using FilterRuleConfig::FilterRuleConfig;
};

extern template class FilterRuleConfig<IpFilter>;
extern template class FilterRuleConfig<Ip6Filter>;
extern template class FilterRuleConfig<MacFilter>;

/// The kind of list that has rules of this kind.
template <class Rule, class Filter = typename Rule::FilterType>
inline constexpr AclType listTypeOf = std::is_same_v<Filter, IpFilter>    ? AclType::ip
                                      : std::is_same_v<Filter, Ip6Filter> ? AclType::ipv6
                                                                          : AclType::mac;

/// Calls visit(std::type_identity<Rule>()) for the rules that lists of a type have.
template <class Visit>
auto withRuleType(AclType type, const Visit& visit) {
  switch (type) {
    case AclType::ip:
      return visit(std::type_identity<IpRuleConfig>());
    case AclType::ipv6:
      return visit(std::type_identity<Ip6RuleConfig>());
    case AclType::mac:
      break;
  }
  return visit(std::type_identity<MacRuleConfig>());
}

}  // namespace Acl
