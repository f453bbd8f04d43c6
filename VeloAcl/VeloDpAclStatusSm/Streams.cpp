#include <VeloAcl/VeloDpAclStatusSm/StreamValues.h>

/// The streams of lists, bindings and implicit rules: what an event goes through from the walker that raised
/// it to the status that it writes. Every stream drops what comes before the second pass, traces itself at
/// level 7, and a failed filter at level 6. After each write the event may have been overtaken, or the
/// machine stopped: the next write asks.
namespace Velo::VeloAcl {

using Acl::AclDirection;
using Acl::AclType;
using Acl::RuleStatus;
using Kiv::UniqueId;

Kelp::Ptr<Acl::AclStatus> VeloDpAclStatusSm::statusOf(AclType aclType, const Kelp::String& aclName) const {
  const auto lists = aclStatus_->status(aclType);
  return lists ? lists->acl(aclName) : nullptr;
}

/// A direction without bindings goes in the same step as the last of them, and so does its type.
void VeloDpAclStatusSm::pruneDirection(AclType aclType, AclDirection direction) {
  const auto types = aclStatus_->status(aclType);
  const auto bindings = types ? types->intf(direction) : nullptr;
  if (bindings && bindings->intf().empty()) types->intfDel(direction);
  pruneTypeStatus(aclType);
}

/// A type status without lists and bindings goes in the same step as the last of them.
void VeloDpAclStatusSm::pruneTypeStatus(AclType aclType) {
  const auto lists = aclStatus_->status(aclType);
  if (lists && lists->acl().empty() && lists->intf().empty()) aclStatus_->statusDel(aclType);
}

/// A status that an earlier run left of a list that is configured only now, when the walk over what is in the
/// lists is through and nobody would look at what is in this one again. Its own reconciliation, under way,
/// was to take it away. An output that had no walk to do has nothing in it.
bool VeloDpAclStatusSm::isLeftOver(AclType aclType, const Kelp::String& aclName) const {
  return aclStatusStatusAclOutput_.pending && !aclStatusStatusAclOutputSeenHas({aclType, aclName}) &&
         (aclAclStatusPtrRuleStatusOutput_.walked || aclAclStatusPtrImplicitRuleStatusOutput_.walked ||
          aclAclStatusPtrImplicitRuleIdOutput_.walked) &&
         statusOf(aclType, aclName);
}

/// The status of a list that has come, recorded with the outputs that write into it. False when the event is
/// over.
bool VeloDpAclStatusSm::publishList(AclType aclType, const Kelp::String& aclName, bool leftOver) {
  if (leftOver) {
    traceStatus(9,
                "aclStatusStatusAclOutput: deleting what an earlier run left of k1={}, k2={}, to begin anew",
                aclType, aclName);
    traceStatus(7, "into( aclStatus.status[ aclType ].acl[ aclName ] ): deleting k1={}, k2={}", aclType,
                aclName);
    aclStatus_->status(aclType)->aclDel(aclName);
    if (stopped_ || listEvents_.overtaken()) return false;
  }
  Kelp::Ptr<Acl::AclTypeStatus> lists;
  do {
    lists = aclStatus_->statusIs(aclType);
    if (stopped_ || listEvents_.overtaken()) {
      pruneTypeStatus(aclType);
      return false;
    }
    // Whoever was told of a new type may have taken it away again with another list.
  } while (aclStatus_->status(aclType) != lists);
  traceStatus(7, "into( aclStatus.status[ aclType ].acl[ aclName ] ): inserting k1={}, k2={}, value={}",
              aclType, aclName, aclName);
  const auto list = lists->aclIs(aclName);
  if (stopped_ || listEvents_.overtaken()) return false;
  if (aclAclStatusPtrImplicitRuleStatusOutput_.pending)
    aclAclStatusPtrImplicitRuleStatusOutput_.ptrSeen.record(list);
  if (aclAclStatusPtrImplicitRuleIdOutput_.pending) aclAclStatusPtrImplicitRuleIdOutput_.ptrSeen.record(list);
  if (aclAclStatusPtrRuleStatusOutput_.pending) aclAclStatusPtrRuleStatusOutput_.ptrSeen.record(list);
  return true;
}

void VeloDpAclStatusSm::eventToAclConfigStream(AclType aclType, const Kelp::String& aclName,
                                               const ListCfg& aclCfg) {
  if (!streaming()) return;
  traceStatus(7, "aclConfigStream = from( aclConfig.config[].acl[] ): aclType={} aclName={} aclCfg={}",
              aclType, aclName, text(aclCfg));
  const EventsUnderWay<AclStatusStatusAclOutputKeyType>::Event event(listEvents_, {aclType, aclName});
  const bool leftOver = isLeftOver(aclType, aclName);
  const bool isNew = !statusOf(aclType, aclName);
  if (aclStatusStatusAclOutput_.pending) aclStatusStatusAclOutputSeenIs({aclType, aclName});
  if (aclCfg) {
    if (!publishList(aclType, aclName, leftOver)) return;
    // A list that was taken away while its rules were being recorded has left some, which nobody publishes.
    if (isNew) withdrawRules(aclType, aclName, [](const UniqueId&) { return true; });
  } else if (const auto lists = aclStatus_->status(aclType)) {
    traceStatus(7, "into( aclStatus.status[ aclType ].acl[ aclName ] ): deleting k1={}, k2={}", aclType,
                aclName);
    lists->aclDel(aclName);
    pruneTypeStatus(aclType);
  }
  eventToAclImplicitRuleCfgStream(aclType, aclName, aclCfg);
  eventToAclIpRuleInitStream(aclType, aclName, aclCfg);
  eventToAclMacRuleInitStream(aclType, aclName, aclCfg);
  eventToAclIp6RuleInitStream(aclType, aclName, aclCfg);
}

void VeloDpAclStatusSm::eventToAclIntfConfigStream(AclType aclType, AclDirection direction,
                                                   const Nimnet::IntfId& intfId,
                                                   const std::optional<Kelp::String>& aclName) {
  if (!streaming()) return;
  traceStatus(7,
              "aclIntfConfigStream = from( aclIntfConfig.config[].intf[].intf[] ): aclType={} direction={} "
              "intfId={} aclName={}",
              aclType, direction, intfId, text(aclName));
  const EventsUnderWay<AclStatusStatusIntfIntfOutputKeyType>::Event event(bindingEvents_,
                                                                          {aclType, direction, intfId});
  if (aclStatusStatusIntfIntfOutput_.pending)
    aclStatusStatusIntfIntfOutputSeenIs({aclType, direction, intfId});
  if (aclName) return publishBinding(aclType, direction, intfId, *aclName);
  const auto types = aclStatus_->status(aclType);
  const auto bindings = types ? types->intf(direction) : nullptr;
  if (!bindings) return;
  traceStatus(
      7, "into( aclStatus.status[ aclType ].intf[ direction ].intf[ intfId ] ): deleting k1={}, k2={}, k3={}",
      aclType, direction, intfId);
  bindings->intfDel(intfId);
  pruneDirection(aclType, direction);
}

void VeloDpAclStatusSm::publishBinding(AclType aclType, AclDirection direction, const Nimnet::IntfId& intfId,
                                       const Kelp::String& aclName) {
  Kelp::Ptr<Acl::AclIntf> bindings;
  do {
    const auto types = aclStatus_->statusIs(aclType);
    if (!stopped_ && !bindingEvents_.overtaken()) bindings = types->intfIs(direction);
    if (stopped_ || bindingEvents_.overtaken()) return pruneDirection(aclType, direction);
    // Whoever was told of a new direction may have taken it away again with another binding.
  } while (!aclStatus_->status(aclType) || aclStatus_->status(aclType)->intf(direction) != bindings);
  traceStatus(7,
              "into( aclStatus.status[ aclType ].intf[ direction ].intf[ intfId ] ): inserting k1={}, "
              "k2={}, k3={}, value={}",
              aclType, direction, intfId, aclName);
  bindings->intfIs(intfId, aclName);
}

// ---- implicit rules
// ----------------------------------------------------------------------------------------

void VeloDpAclStatusSm::eventToAclImplicitRuleCfgStream(AclType aclType, const Kelp::String& aclName,
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
  const std::optional<UniqueId> id = UniqueId::generateUniqueId();
  if (aclAclStatusPtrImplicitRuleIdOutput_.pending) {
    aclAclStatusPtrImplicitRuleIdOutput_.ptrSeen.add(maybeStatus, {ruleType});
  }
  if (id) {
    traceStatus(7, "into( status.implicitRuleId[ ruleType ] ): inserting k1={}, value={}", ruleType, *id);
    maybeStatus->implicitRuleIdIs(ruleType, *id);
  } else {
    traceStatus(7, "into( status.implicitRuleId[ ruleType ] ): deleting k1={}", ruleType);
    maybeStatus->implicitRuleIdDel(ruleType);
  }
  if (stopped_ || listEvents_.overtaken()) return;
  const std::optional<RuleStatus> value = freshRuleStatus();
  if (aclAclStatusPtrImplicitRuleStatusOutput_.pending) {
    aclAclStatusPtrImplicitRuleStatusOutput_.ptrSeen.add(maybeStatus, {ruleType});
  }
  if (value) {
    traceStatus(7, "into( status.implicitRuleStatus[ ruleType ] ): inserting k1={}, value={}", ruleType,
                *value);
    maybeStatus->implicitRuleStatusIs(ruleType, *value);
  } else {
    traceStatus(7, "into( status.implicitRuleStatus[ ruleType ] ): deleting k1={}", ruleType);
    maybeStatus->implicitRuleStatusDel(ruleType);
  }
}

}  // namespace Velo::VeloAcl
