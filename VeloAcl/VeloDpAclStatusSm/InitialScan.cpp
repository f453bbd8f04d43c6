#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>
#include <VeloAcl/VeloDpAclStatusSm/Walkers.h>

#include <vector>

/// What is to be reconciled, the end of the first pass and the second, and what a finished scan or poll sets
/// off.
namespace Velo::VeloAcl {

namespace {

using S = InputSmScanState;
using M = VeloDpAclStatusSm;

}  // namespace

/// Finds out which outputs write into a collection that is not empty. That of the lists' own entries means a
/// look at one list after the other, until of each kind one was found; so this may stop, goes on at its next
/// call, and has the task of the rules' output make one. Nothing is written before it is through. Returns
/// whether it is.
bool VeloDpAclStatusSm::setReconciliationPending() {
  if (pendingFound_) return true;
  const auto& types = aclStatus_->status();
  aclStatusStatusAclOutput_.pending = !types.empty();
  aclStatusStatusIntfIntfOutput_.pending = false;
  for (auto type = types.begin(); type; type.next()) {
    if (!type.value()->intf().empty()) aclStatusStatusIntfIntfOutput_.pending = true;
  }
  auto& ruleStatus = aclAclStatusPtrRuleStatusOutput_.pending;
  auto& implicitId = aclAclStatusPtrImplicitRuleIdOutput_.pending;
  auto& implicitStatus = aclAclStatusPtrImplicitRuleStatusOutput_.pending;
  const Kelp::Ptr<Kiv::TimerTask> task = aclAclStatusPtrRuleStatusOutput_.task.get();
  SmallSteps steps(synchronous_ ? nullptr : task.get());
  const std::optional<AclStatusStatusAclOutputKeyType> from = pendingResumeKey_;
  for (auto type = from ? types.from(from->aclType) : types.begin(); type; type.next()) {
    const auto& lists = type.value()->acl();
    const bool resumed = from && from->aclType == type.key();
    for (auto list = resumed ? lists.from(from->aclName) : lists.begin(); list; list.next()) {
      if (ruleStatus && implicitId && implicitStatus) break;
      if (steps.timeIsUp()) {
        pendingResumeKey_ = {type.key(), list.key()};
        task->scheduleTask();
        return false;
      }
      ruleStatus = ruleStatus || !list.value()->ruleStatus().empty();
      implicitId = implicitId || !list.value()->implicitRuleId().empty();
      implicitStatus = implicitStatus || !list.value()->implicitRuleStatus().empty();
    }
  }
  return pendingFound_ = true;
}

void VeloDpAclStatusSm::handleInitialScanDone() {
  if (stopped_ || initialScanDone_) return;
  const struct {
    bool done;
    const char* text;
  } scans[] = {
      {scanState_->aclIntfConfigStreamScan(), " aclIntfConfigStream scan is false"},
      {scanState_->aclConfigStreamScan(), " aclConfigStream scan is false"},
      {scanState_->ip6RuleCfgStreamScan(), " ip6RuleCfgStream scan is false"},
      {scanState_->ipRuleCfgStreamScan(), " ipRuleCfgStream scan is false"},
      {scanState_->macRuleCfgStreamScan(), " macRuleCfgStream scan is false"},
      {scanState_->rix_pipeline0Scan(), " rix_pipeline0 scan is false"},
  };
  for (const auto& scan : scans) {
    if (scan.done) continue;
    traceStatus(9, "{}", scan.text);
    return;
  }
  if (!ruleIdsByAclSm7_ || !aclConfigSm3_ || !aclIntfConfigSm0_) {
    traceStatus(9, "Initial scan yielding for child SM VeloDpAclStatusSm.");
    return;
  }
  if (!setReconciliationPending()) return;
  traceStatus(9, "Initial scan done for child SMs. Now scanning with events triggered.");
  initialScanDone_ = true;
  scanState_->aclIntfConfigStreamScanIs(false);
  scanState_->aclConfigStreamScanIs(false);
  scanState_->ip6RuleCfgStreamScanIs(false);
  scanState_->ipRuleCfgStreamScanIs(false);
  scanState_->macRuleCfgStreamScanIs(false);
  scanState_->rix_pipeline0ScanIs(false);
  if (!stopped_ && ruleIdsByAclSm7_->active()) ruleIdsByAclSm7_->doInputScan();
  if (!stopped_ && aclConfigSm3_->active()) aclConfigSm3_->doInputScan();
  if (!stopped_ && aclIntfConfigSm0_->active()) aclIntfConfigSm0_->doInputScan();
  if (stopped_) return;

  for (CounterPoll* poll :
       {&copyIpOutCounters_, &copyIp6OutCounters_, &copyInCounters_, &copyMacOutCounters_}) {
    askForPoll(*poll);
  }
  if (synchronous_) {
    for (auto copy :
         {&M::copyIpOutCounters, &M::copyIp6OutCounters, &M::copyInCounters, &M::copyMacOutCounters}) {
      if (initialized_) (this->*copy)();
    }
  }

  scanState_->handleIdle();
  handleRuleIdsByAclRuleIdsOutputInputReady();
  handleAclAclStatusPtrImplicitRuleStatusOutputInputReady();
  handleAclAclStatusPtrImplicitRuleIdOutputInputReady();
  if (initialized_) handleAclAclStatusPtrCounterUpdateTimeOutputInputReady();
  handleAclStatusStatusAclOutputInputReady();
  handleAclAclStatusPtrRuleStatusOutputInputReady();
  handleAclStatusStatusIntfIntfOutputInputReady();
  for (auto ready : {&M::handleCopyIpOutCountersCodefInputReady, &M::handleCopyIp6OutCountersCodefInputReady,
                     &M::handleCopyInCountersCodefInputReady, &M::handleCopyMacOutCountersCodefInputReady}) {
    if (initialized_) (this->*ready)();
  }
}

void VeloDpAclStatusSm::handleScanStateChange(const Zeb::Attribute& attribute) {
  using Handler = void (VeloDpAclStatusSm::*)();
  const auto changed = [&](const Zeb::Attribute& a) { return &attribute == &a; };
  std::vector<Handler> handlers;
  if (changed(S::aclIntfConfigStreamScanAttribute())) {
    handlers = {&M::handleAclStatusStatusIntfIntfOutputInputReady};
  } else if (changed(S::aclConfigStreamScanAttribute())) {
    handlers = {&M::handleRuleIdsByAclRuleIdsOutputInputReady,
                &M::handleAclAclStatusPtrImplicitRuleStatusOutputInputReady,
                &M::handleAclAclStatusPtrImplicitRuleIdOutputInputReady,
                &M::handleAclStatusStatusAclOutputInputReady};
  } else if (changed(S::ip6RuleCfgStreamScanAttribute()) || changed(S::ipRuleCfgStreamScanAttribute()) ||
             changed(S::macRuleCfgStreamScanAttribute())) {
    handlers = {&M::handleRuleIdsByAclRuleIdsOutputInputReady};
  } else if (changed(S::rix_pipeline0ScanAttribute())) {
    handlers = {&M::handleAclAclStatusPtrRuleStatusOutputInputReady};
  } else if (changed(S::copyIpOutCountersCodefDoneGenAttribute()) ||
             changed(S::copyIp6OutCountersCodefDoneGenAttribute()) ||
             changed(S::copyInCountersCodefDoneGenAttribute()) ||
             changed(S::copyMacOutCountersCodefDoneGenAttribute())) {
    handlers = {&M::handleAclAclStatusPtrImplicitRuleStatusOutputInputReady,
                &M::handleAclAclStatusPtrCounterUpdateTimeOutputInputReady,
                &M::handleAclAclStatusPtrRuleStatusOutputInputReady};
  }
  for (const Handler handler : handlers) {
    if (stopped_) return;
    (this->*handler)();
  }
}

}  // namespace Velo::VeloAcl
