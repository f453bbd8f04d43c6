#include <VeloAcl/VeloDpAclStatusSm/StreamValues.h>

/// The streams of implicit rules and of counters.
namespace Velo::VeloAcl {

using Acl::AclType;
using Acl::RuleStatus;
using Kiv::UniqueId;

namespace {

constexpr Into<ImplicitRuleIdEntries> intoImplicitRuleId{
    "into( status.implicitRuleId[ ruleType ] ): inserting k1={}, value={}",
    "into( status.implicitRuleId[ ruleType ] ): deleting k1={}"};
constexpr Into<ImplicitRuleStatusEntries> intoImplicitRuleStatus{
    "into( status.implicitRuleStatus[ ruleType ] ): inserting k1={}, value={}",
    "into( status.implicitRuleStatus[ ruleType ] ): deleting k1={}"};

constexpr Into<ImplicitRuleStatusEntries> intoStatusOfDrop{
    "into( status.implicitRuleStatus[ dropType ] ): inserting k1={}, value={}",
    "into( status.implicitRuleStatus[ dropType ] ): deleting k1={}"};
constexpr Into<RuleStatusEntries> intoStatusOfRule{
    "into( status.ruleStatus[ key.ruleId ] ): inserting k1={}, value={}",
    "into( status.ruleStatus[ key.ruleId ] ): deleting k1={}"};

}  // namespace

void MachineStreams::eventToAclImplicitRuleCfgStream(AclType aclType, const Kelp::String& aclName,
                                                     const ListCfg& aclCfg) {
  if (!streaming() || listEvents_.overtaken()) return;
  const bool exists = aclCfg.has_value();
  traceStatus(7, "aclImplicitRuleCfgStream = merge( aclConfigStream ): aclType={} aclName={} exists={}",
              aclType, aclName, exists);
  const auto maybeStatus = statusOf(aclType, aclName);
  if (!exists || !maybeStatus) {
    traceStatus(6, "filter( ( exists && maybeStatus ) ) failed, terminating pipeline");
    return;
  }
  const auto ruleType = dropType;
  aclAclStatusPtrImplicitRuleIdOutput_.write(intoImplicitRuleId, maybeStatus, ruleType,
                                             UniqueId::generateUniqueId());
  if (stopped_ || listEvents_.overtaken()) return;
  aclAclStatusPtrImplicitRuleStatusOutput_.write(intoImplicitRuleStatus, maybeStatus, ruleType,
                                                 freshRuleStatus());
}

void MachineStreams::eventToUpdateCounters(const CounterKey& key,
                                           const Velo::Counter::VeloDpAclCounter& counter) {
  if (!streaming()) return;
  traceStatus(
      7,
      "updateCounters = merge( copyInCounters, copyMacOutCounters, copyIpOutCounters, copyIp6OutCounters ): key={} shadowVal={}",
      key, fmt::ptr(&counter));
  const auto maybeStatus = statusOf(key.aclType, key.aclName);
  if (!maybeStatus) {
    traceStatus(6, "filter( maybeStatus ) failed, terminating pipeline");
    return;
  }
  const RuleStatus value{0, counter.packets(), counter.lastUpdateTime().seconds(), true};
  const UniqueId* implicitId = maybeStatus->implicitRuleId(dropType);
  if (implicitId && *implicitId == key.ruleId) {
    aclAclStatusPtrImplicitRuleStatusOutput_.write(intoStatusOfDrop, maybeStatus, dropType, value);
  } else {
    aclAclStatusPtrRuleStatusOutput_.write(intoStatusOfRule, maybeStatus, key.ruleId, value);
  }
  if (stopped_ || statusOf(key.aclType, key.aclName) != maybeStatus) return;
  const Kelp::Duration now = Zeb::System::currentTime();
  traceStatus(7, "into( status.counterUpdateTime ): inserting value={}", now);
  maybeStatus->counterUpdateTimeIs(now);
}

}  // namespace Velo::VeloAcl
