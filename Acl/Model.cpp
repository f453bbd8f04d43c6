#include <Acl/Counters.h>
#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Zeb/Dir.h>
#include <Zeb/TypeModule.h>

#include <tuple>

namespace Acl {

namespace {

template <class T>
Kelp::Ptr<T> named(const Kelp::String& name) {
  return MemSlab::make<T>(name);
}

const Zeb::TypeModule modelModule("Acl", {
                                             Zeb::typeEntry(&named<Zeb::Dir>),
                                             Zeb::typeEntry(&named<Config>),
                                             Zeb::typeEntry(&named<Input::Config>),
                                             Zeb::typeEntry(&intfConfigFactory),
                                             Zeb::typeEntry(&named<StatusDp>),
                                             Zeb::typeEntry<AclTypeConfig>(),
                                             Zeb::typeEntry(&named<AclConfig>),
                                             Zeb::typeEntry<AclSubConfig>(),
                                             Zeb::typeEntry<IntfTypeConfig>(),
                                             Zeb::typeEntry<AclIntf>(),
                                             Zeb::typeEntry<AclTypeStatus>(),
                                             Zeb::typeEntry(&named<AclStatus>),
                                             Zeb::typeEntry<Velo::Counter::VeloDpAclCounter>(),
                                             Zeb::typeEntry<Velo::Counter::VeloDpAclCounterColl>(),
                                             Zeb::typeEntry<Velo::Counter::RuleIdSet>(),
                                         });

}  // namespace

// The destructors stand here so that the virtual tables do: status and counters outlive the plugin whose code
// made them.
AclSubConfig::~AclSubConfig() = default;

template <class Self, class Visit>
auto AclSubConfig::withRules(Self& self, AclType type, const Visit& visit) {
  return withRuleType(type, [&](auto rule) {
    constexpr auto kind = static_cast<size_t>(listTypeOf<typename decltype(rule)::type>);
    return visit(std::get<kind>(std::tie(self.ipRuleById_, self.ip6RuleById_, self.macRuleById_)));
  });
}

void AclSubConfig::compile(AclType type) {
  withRules(*this, type, [](auto& rules) { rules.compile(); });
}

void AclSubConfig::upkeepIs(AclType type, bool on) {
  withRules(*this, type, [on](auto& rules) { rules.upkeepIs(on); });
}

bool AclSubConfig::compiledReady(AclType type) const {
  return withRules(*this, type, [](auto& rules) { return rules.compiled() && rules.compiled()->settled(); });
}

AclConfig::~AclConfig() = default;
AclTypeConfig::~AclTypeConfig() = default;
Config::~Config() = default;
AclIntf::~AclIntf() = default;
IntfTypeConfig::~IntfTypeConfig() = default;
IntfConfig::~IntfConfig() = default;
Input::Config::~Config() = default;
AclStatusBase::~AclStatusBase() = default;
AclStatus::~AclStatus() = default;
AclTypeStatus::~AclTypeStatus() = default;
StatusBase::~StatusBase() = default;
StatusDp::~StatusDp() = default;

Kelp::Ptr<IntfConfig> intfConfigFactory(const Kelp::String& name) { return MemSlab::make<IntfConfig>(name); }

}  // namespace Acl

namespace Velo::Counter {

VeloDpAclCounter::~VeloDpAclCounter() = default;
VeloDpAclCounterColl::~VeloDpAclCounterColl() = default;
RuleIdSet::~RuleIdSet() = default;

}  // namespace Velo::Counter
