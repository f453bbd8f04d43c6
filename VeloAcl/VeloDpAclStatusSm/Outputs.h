#pragma once

#include <VeloAcl/VeloDpAclStatusSm/TypeOutputs.h>

#include <array>

namespace Velo::VeloAcl {

/// The outputs of the status machine, with operations by name. What an output waits for is a row in
/// Outputs.cpp.
class MachineOutputs : public MachineFrame {
 public:
  // To be called when something that an output waits for has changed.
  void handleRuleIdsByAclRuleIdsOutputInputReady() { ruleIdsByAclRuleIdsOutput_.handleInputReady(); }
  void handleAclAclStatusPtrImplicitRuleStatusOutputInputReady() {
    aclAclStatusPtrImplicitRuleStatusOutput_.handleInputReady();
  }
  void handleAclAclStatusPtrImplicitRuleIdOutputInputReady() {
    aclAclStatusPtrImplicitRuleIdOutput_.handleInputReady();
  }
  void handleAclAclStatusPtrCounterUpdateTimeOutputInputReady() {
    aclAclStatusPtrCounterUpdateTimeOutput_.handleInputReady();
  }
  void handleAclStatusStatusAclOutputInputReady() { aclStatusStatusAclOutput_.handleInputReady(); }
  void handleAclAclStatusPtrRuleStatusOutputInputReady() {
    aclAclStatusPtrRuleStatusOutput_.handleInputReady();
  }
  void handleAclStatusStatusIntfIntfOutputInputReady() { aclStatusStatusIntfIntfOutput_.handleInputReady(); }

  // The tasks of the reconciled outputs.
  void aclStatusStatusAclOutputReconciliationTaskIs(const Scheduler& scheduler, int priority,
                                                    const char* name) {
    aclStatusStatusAclOutput_.reconciliationTaskIs(scheduler, priority, name);
  }
  void aclStatusStatusIntfIntfOutputReconciliationTaskIs(const Scheduler& scheduler, int priority,
                                                         const char* name) {
    aclStatusStatusIntfIntfOutput_.reconciliationTaskIs(scheduler, priority, name);
  }
  void aclAclStatusPtrRuleStatusOutputReconciliationTaskIs(const Scheduler& scheduler, int priority,
                                                           const char* name) {
    aclAclStatusPtrRuleStatusOutput_.reconciliationTaskIs(scheduler, priority, name);
  }
  void aclAclStatusPtrImplicitRuleIdOutputReconciliationTaskIs(const Scheduler& scheduler, int priority,
                                                               const char* name) {
    aclAclStatusPtrImplicitRuleIdOutput_.reconciliationTaskIs(scheduler, priority, name);
  }
  void aclAclStatusPtrImplicitRuleStatusOutputReconciliationTaskIs(const Scheduler& scheduler, int priority,
                                                                   const char* name) {
    aclAclStatusPtrImplicitRuleStatusOutput_.reconciliationTaskIs(scheduler, priority, name);
  }
  void aclStatusStatusAclOutputReconciliationTaskDel() { aclStatusStatusAclOutput_.taskDel(); }
  void aclStatusStatusIntfIntfOutputReconciliationTaskDel() { aclStatusStatusIntfIntfOutput_.taskDel(); }
  void aclAclStatusPtrRuleStatusOutputReconciliationTaskDel() { aclAclStatusPtrRuleStatusOutput_.taskDel(); }
  void aclAclStatusPtrImplicitRuleIdOutputReconciliationTaskDel() {
    aclAclStatusPtrImplicitRuleIdOutput_.taskDel();
  }
  void aclAclStatusPtrImplicitRuleStatusOutputReconciliationTaskDel() {
    aclAclStatusPtrImplicitRuleStatusOutput_.taskDel();
  }

  // The seen sets. They are used until their output is reconciled.
  bool aclStatusStatusAclOutputSeenHas(const AclStatusStatusAclOutputKeyType& key) const {
    return aclStatusStatusAclOutput_.seenHas(key);
  }
  void aclStatusStatusAclOutputSeenIs(const AclStatusStatusAclOutputKeyType& key) {
    aclStatusStatusAclOutput_.seenIs(key);
  }
  bool aclStatusStatusIntfIntfOutputSeenHas(const AclStatusStatusIntfIntfOutputKeyType& key) const {
    return aclStatusStatusIntfIntfOutput_.seenHas(key);
  }
  void aclStatusStatusIntfIntfOutputSeenIs(const AclStatusStatusIntfIntfOutputKeyType& key) {
    aclStatusStatusIntfIntfOutput_.seenIs(key);
  }
  const auto& aclAclStatusPtrRuleStatusOutputPtrSeen() const {
    return aclAclStatusPtrRuleStatusOutput_.ptrSeen();
  }
  const auto& aclAclStatusPtrImplicitRuleIdOutputPtrSeen() const {
    return aclAclStatusPtrImplicitRuleIdOutput_.ptrSeen();
  }
  const auto& aclAclStatusPtrImplicitRuleStatusOutputPtrSeen() const {
    return aclAclStatusPtrImplicitRuleStatusOutput_.ptrSeen();
  }

 protected:
  explicit MachineOutputs(const Arguments& args);

  /// All of them, in the order in which their handlers run.
  auto outputs() {
    return std::to_array<Output*>({&ruleIdsByAclRuleIdsOutput_, &aclAclStatusPtrImplicitRuleStatusOutput_,
                                   &aclAclStatusPtrImplicitRuleIdOutput_,
                                   &aclAclStatusPtrCounterUpdateTimeOutput_, &aclStatusStatusAclOutput_,
                                   &aclAclStatusPtrRuleStatusOutput_, &aclStatusStatusIntfIntfOutput_});
  }
  /// Finds out which outputs write into a collection that is not empty. If it yields, it continues at the
  /// next call, for which it schedules the task of the rules' output.
  RunEnd findPending();

  Output ruleIdsByAclRuleIdsOutput_;
  PerListOutput<ImplicitRuleStatusEntries> aclAclStatusPtrImplicitRuleStatusOutput_;
  PerListOutput<ImplicitRuleIdEntries> aclAclStatusPtrImplicitRuleIdOutput_;
  Output aclAclStatusPtrCounterUpdateTimeOutput_;
  PerListOutput<RuleStatusEntries> aclAclStatusPtrRuleStatusOutput_;
  ListOutput aclStatusStatusAclOutput_;
  BindingOutput aclStatusStatusIntfIntfOutput_;

 private:
  bool pendingFound_ = false;
  std::optional<AclStatusStatusAclOutputKeyType> pendingResumeKey_;
};

}  // namespace Velo::VeloAcl
