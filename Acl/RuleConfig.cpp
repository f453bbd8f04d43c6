#include <Acl/RuleConfig.h>
#include <MemSlab/Slab.h>

namespace Acl {

const RuleBase RuleConfig::defaultBase{};

RuleConfig::Body::~Body() = default;

template <class Filter>
const Filter FilterRuleConfig<Filter>::defaultFilter{};

template <class Filter>
FilterRuleConfig<Filter>::FilterRuleConfig(const Draft& draft)
    : RuleConfig(Kelp::Ptr<const Body>(MemSlab::make<FilterBody>(draft))) {}

// Here, so that the virtual tables are: rules outlive the plugin whose code may have made them.
template <class Filter>
FilterRuleConfig<Filter>::FilterBody::~FilterBody() = default;

template class FilterRuleConfig<IpFilter>;
template class FilterRuleConfig<Ip6Filter>;
template class FilterRuleConfig<MacFilter>;

}  // namespace Acl
