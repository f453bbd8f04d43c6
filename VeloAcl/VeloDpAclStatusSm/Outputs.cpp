#include <VeloAcl/VeloDpAclStatusSm/Outputs.h>

#include <algorithm>

namespace Velo::VeloAcl {

MachineOutputs::MachineOutputs(const Arguments& args)
    : MachineFrame(args),
      ruleIdsByAclRuleIdsOutput_(
          *this, {.line = __LINE__,
                  .handlerText = "handleRuleIdsByAclRuleIdsOutputInputReady",
                  .completeText = "Input scans for ruleIdsByAclRuleIdsOutput complete",
                  .ready = &OutputState::ruleIdsByAclRuleIdsOutputReady,
                  .readyIs = &OutputState::ruleIdsByAclRuleIdsOutputReadyIs,
                  .scans = {&aclConfigStream, &ipRuleCfgStream, &ip6RuleCfgStream, &macRuleCfgStream}}),
      aclAclStatusPtrImplicitRuleStatusOutput_(
          *this, {.line = __LINE__,
                  .completeText = "Input scans for aclAclStatusPtrImplicitRuleStatusOutput complete",
                  .reconcilingText = "Reconciling aclAclStatusPtrImplicitRuleStatusOutput: {:}",
                  .taskName = "VeloDpAclStatusSm-aclAclStatusPtrImplicitRuleStatusOutputTask",
                  .ready = &OutputState::aclAclStatusPtrImplicitRuleStatusOutputReady,
                  .readyIs = &OutputState::aclAclStatusPtrImplicitRuleStatusOutputReadyIs,
                  .scans = {&aclConfigStream},
                  .afterPolls = true}),
      aclAclStatusPtrImplicitRuleIdOutput_(
          *this, {.line = __LINE__,
                  .completeText = "Input scans for aclAclStatusPtrImplicitRuleIdOutput complete",
                  .reconcilingText = "Reconciling aclAclStatusPtrImplicitRuleIdOutput: {:}",
                  .taskName = "VeloDpAclStatusSm-aclAclStatusPtrImplicitRuleIdOutputTask",
                  .ready = &OutputState::aclAclStatusPtrImplicitRuleIdOutputReady,
                  .readyIs = &OutputState::aclAclStatusPtrImplicitRuleIdOutputReadyIs,
                  .scans = {&aclConfigStream}}),
      aclAclStatusPtrCounterUpdateTimeOutput_(
          *this, {.line = __LINE__,
                  .handlerText = "handleAclAclStatusPtrCounterUpdateTimeOutputInputReady",
                  .completeText = "Input scans for aclAclStatusPtrCounterUpdateTimeOutput complete",
                  .ready = &OutputState::aclAclStatusPtrCounterUpdateTimeOutputReady,
                  .readyIs = &OutputState::aclAclStatusPtrCounterUpdateTimeOutputReadyIs,
                  .scans = {},
                  .afterPolls = true}),
      aclAclStatusPtrRuleStatusOutput_(
          *this, {.line = __LINE__,
                  .completeText = "Input scans for aclAclStatusPtrRuleStatusOutput complete",
                  .reconcilingText = "Reconciling aclAclStatusPtrRuleStatusOutput: {:}",
                  .taskName = "VeloDpAclStatusSm-aclAclStatusPtrRuleStatusOutputTask",
                  .ready = &OutputState::aclAclStatusPtrRuleStatusOutputReady,
                  .readyIs = &OutputState::aclAclStatusPtrRuleStatusOutputReadyIs,
                  .scans = {&rixPipeline0},
                  .afterRuleIds = true,
                  .afterPolls = true}),
      aclStatusStatusAclOutput_(*this, {.line = __LINE__,
                                        .completeText = "Input scans for aclStatusStatusAclOutput complete",
                                        .reconcilingText = "Reconciling aclStatusStatusAclOutput: {:}",
                                        .taskName = "VeloDpAclStatusSm-aclStatusStatusAclOutputTask",
                                        .ready = &OutputState::aclStatusStatusAclOutputReady,
                                        .readyIs = &OutputState::aclStatusStatusAclOutputReadyIs,
                                        .scans = {&aclConfigStream}}),
      aclStatusStatusIntfIntfOutput_(
          *this, {.line = __LINE__,
                  .completeText = "Input scans for aclStatusStatusIntfIntfOutput complete",
                  .reconcilingText = "Reconciling aclStatusStatusIntfIntfOutput: {:}",
                  .taskName = "VeloDpAclStatusSm-aclStatusStatusIntfIntfOutputTask",
                  .ready = &OutputState::aclStatusStatusIntfIntfOutputReady,
                  .readyIs = &OutputState::aclStatusStatusIntfIntfOutputReadyIs,
                  .scans = {&aclIntfConfigStream}}) {
  static_assert(std::tuple_size_v<decltype(outputs())> + 1 == Zeb::attributeTable<OutputState>.size(),
                "outputs() has not all outputs of OutputState, which has a flag for each and one for all");
  std::vector<PerListOutputBase*> within;
  for (Output* output : outputs()) {
    if (auto* perList = dynamic_cast<PerListOutputBase*>(output)) within.push_back(perList);
  }
  aclStatusStatusAclOutput_.withinIs(std::move(within));
}

/// To know whether the lists have entries it looks at one list after the other, until it has found an entry
/// of each kind. Nothing is written before that is done.
RunEnd MachineOutputs::findPending() {
  if (pendingFound_) return RunEnd::complete;
  const auto& types = aclStatus()->status();
  aclStatusStatusAclOutput_.pendingIs(!types.empty());
  aclStatusStatusIntfIntfOutput_.pendingIs(false);
  for (auto type = types.begin(); type; type.next()) {
    if (!type.value()->intf().empty()) aclStatusStatusIntfIntfOutput_.pendingIs(true);
  }
  const auto& within = aclStatusStatusAclOutput_.within();
  const auto allFound = [&] {
    return std::all_of(within.begin(), within.end(), [](auto* output) { return output->pending(); });
  };
  const Kelp::Ptr<Kiv::TimerTask> task = aclAclStatusPtrRuleStatusOutput_.task().get();
  SmallSteps steps(synchronous_ ? nullptr : task.get());
  const std::optional<AclStatusStatusAclOutputKeyType> from = pendingResumeKey_;
  for (auto type = from ? types.from(from->aclType) : types.begin(); type; type.next()) {
    const auto& lists = type.value()->acl();
    const bool resumed = from && from->aclType == type.key();
    for (auto list = resumed ? lists.from(from->aclName) : lists.begin(); list; list.next()) {
      if (allFound()) break;
      if (steps.timeIsUp()) {
        pendingResumeKey_ = {type.key(), list.key()};
        task->scheduleTask();
        return RunEnd::yielded;
      }
      for (PerListOutputBase* output : within) output->pendingIfEntriesIn(*list.value());
    }
  }
  pendingFound_ = true;
  return RunEnd::complete;
}

}  // namespace Velo::VeloAcl
