#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>

/// The outputs: when each has all that its inputs say, and the deletion of what an earlier run left.
namespace Velo::VeloAcl {

bool VeloDpAclStatusSm::pollsComplete() const {
  for (const CounterPoll* poll :
       {&copyIpOutCounters_, &copyIp6OutCounters_, &copyInCounters_, &copyMacOutCounters_}) {
    const uint64_t asked = ((*scanState_).*(poll->spec.generation))();
    if (asked == 0 || asked != ((*scanState_).*(poll->spec.doneGen))()) return false;
  }
  return true;
}

/// True when an output that is not ready yet has everything it waits for. Ends the first pass when that is
/// all that is missing.
bool VeloDpAclStatusSm::outputInputsComplete(const OutputBase& output) {
  const OutputSpec& spec = output.spec;
  if (!initialized_) return false;
  if (spec.tracesHandler) {
    traceStatus(9, "handle{}{}InputReady", static_cast<char>(spec.name[0] - 'a' + 'A'), spec.name.substr(1));
  }
  if (((*outputState_).*(spec.ready))()) {
    traceStatus(9, " already ready, not reconciling.");
    return false;
  }
  for (const auto scan : spec.scans) {
    if (!((*scanState_).*scan)()) return false;
  }
  if (!initialScanDone_) {
    handleInitialScanDone();
    return false;
  }
  if (spec.afterRuleIds && !outputState_->ruleIdsByAclRuleIdsOutputReady()) return false;
  if (spec.afterPolls && !synchronous_ && !pollsComplete()) return false;
  traceStatus(9, "Input scans for {} complete", spec.name);
  return true;
}

void VeloDpAclStatusSm::outputReadyIs(OutputBase& output) {
  ((*outputState_).*(output.spec.readyIs))(true);
  outputState_->handleReady();
}

/// `walk(run)` handles the entries that are left, asks run.mustStop() before each, and returns false when it
/// stopped and noted where.
template <class Walk>
void VeloDpAclStatusSm::reconcile(ReconciledOutputBase& output, const Walk& walk) {
  traceStatus(9, "Reconciling {}: {:}", output.spec.name, output.pending);
  if (!output.pending) return;
  DeletionRun run;
  const Kelp::Ptr<Kiv::TimerTask> task = output.task.get();
  run.mayStop = task && !synchronous_;
  run.task = task.get();
  const bool complete = walk(run);
  if (task) task->taskWorkCountInc(run.items);
  if (stopped_) return;
  if (!complete) {
    output.resume = true;
    traceStatus(9,
                "Yielding in reconciliation processing after processing {} items, including {} deletions .",
                run.items, run.deletions);
    task->scheduleTask();
    return;
  }
  traceStatus(
      9, "Deletion scan for reconciliation is done, last task run processed {} items, deleting {} items.",
      run.items, run.deletions);
  output.task.del();
  output.resume = false;
  output.pending = false;
}

/// Walks the status of every list that was recorded; what an output writes there is what `mapOf` and `del`
/// say.
template <class Key>
void VeloDpAclStatusSm::reconcilePerStatus(PerStatusOutput<Key>& output) {
  const auto walk = [&](DeletionRun& run, const auto& mapOf, const auto& del) {
    for (size_t at = output.resumeStatus; at < output.ptrSeen.size(); ++at) {
      const Kelp::Ptr<Acl::AclStatus> status = output.ptrSeen.status(at);
      const auto& map = mapOf(*status);
      const bool resumed = output.resume && at == output.resumeStatus && output.resumeKey;
      for (auto entry = resumed ? map.from(output.resumeKey->key) : map.begin(); entry; entry.next()) {
        const Key key{entry.key()};
        if (run.mustStop()) {
          output.resumeStatus = at;
          output.resumeKey = key;
          return false;
        }
        if (!output.ptrSeen.has(at, key)) {
          del(*status, key.key);
          ++run.deletions;
          if (stopped_) return true;
        }
        ++run.items;
      }
    }
    return true;
  };
  reconcile(output, [&](DeletionRun& run) {
    if constexpr (std::is_same_v<Key, AclAclStatusPtrRuleStatusOutputKeyType>) {
      return walk(
          run, [](Acl::AclStatus & s) -> auto& { return s.ruleStatus(); },
          [](Acl::AclStatus& s, const Kiv::UniqueId& k) { s.ruleStatusDel(k); });
    } else if (&output == &aclAclStatusPtrImplicitRuleIdOutput_) {
      return walk(
          run, [](Acl::AclStatus & s) -> auto& { return s.implicitRuleId(); },
          [](Acl::AclStatus& s, Acl::ImplicitRuleType k) { s.implicitRuleIdDel(k); });
    } else {
      return walk(
          run, [](Acl::AclStatus & s) -> auto& { return s.implicitRuleStatus(); },
          [](Acl::AclStatus& s, Acl::ImplicitRuleType k) { s.implicitRuleStatusDel(k); });
    }
  });
  if (output.pending || stopped_) return;
  output.forget();
  outputReadyIs(output);
}

void VeloDpAclStatusSm::handleRuleIdsByAclRuleIdsOutputInputReady() {
  if (outputInputsComplete(ruleIdsByAclRuleIdsOutput_)) outputReadyIs(ruleIdsByAclRuleIdsOutput_);
}

void VeloDpAclStatusSm::handleAclAclStatusPtrImplicitRuleStatusOutputInputReady() {
  auto& output = aclAclStatusPtrImplicitRuleStatusOutput_;
  if (outputInputsComplete(output)) reconcilePerStatus(output);
}

void VeloDpAclStatusSm::handleAclAclStatusPtrImplicitRuleIdOutputInputReady() {
  auto& output = aclAclStatusPtrImplicitRuleIdOutput_;
  if (outputInputsComplete(output)) reconcilePerStatus(output);
}

void VeloDpAclStatusSm::handleAclAclStatusPtrCounterUpdateTimeOutputInputReady() {
  auto& output = aclAclStatusPtrCounterUpdateTimeOutput_;
  if (outputInputsComplete(output)) outputReadyIs(output);
}

void VeloDpAclStatusSm::handleAclStatusStatusAclOutputInputReady() {
  auto& output = aclStatusStatusAclOutput_;
  if (!outputInputsComplete(output)) return;
  reconcile(output, [&](DeletionRun& run) {
    const auto& types = aclStatus_->status();
    const bool resume = output.resume && output.resumeKey;
    for (auto type = resume ? types.from(output.resumeKey->aclType) : types.begin(); type; type.next()) {
      const Acl::AclType aclType = type.key();
      const auto lists = aclStatus_->status(aclType);
      if (!lists) continue;
      const bool here = resume && aclType == output.resumeKey->aclType;
      for (auto list = here ? lists->acl().from(output.resumeKey->aclName) : lists->acl().begin(); list;
           list.next()) {
        const AclStatusStatusAclOutputKeyType key{aclType, list.key()};
        if (run.mustStop()) {
          output.resumeKey = key;
          return false;
        }
        if (!aclStatusStatusAclOutputSeenHas(key)) {
          lists->aclDel(key.aclName);
          ++run.deletions;
          if (stopped_) return true;
        }
        ++run.items;
      }
      if (lists->acl().empty() && lists->intf().empty()) {
        aclStatus_->statusDel(aclType);
        ++run.items;
        if (stopped_) return true;
      }
    }
    return true;
  });
  if (output.pending || stopped_) return;
  output.forget();
  outputReadyIs(output);
}

void VeloDpAclStatusSm::handleAclAclStatusPtrRuleStatusOutputInputReady() {
  auto& output = aclAclStatusPtrRuleStatusOutput_;
  if (outputInputsComplete(output)) reconcilePerStatus(output);
}

void VeloDpAclStatusSm::handleAclStatusStatusIntfIntfOutputInputReady() {
  auto& output = aclStatusStatusIntfIntfOutput_;
  if (!outputInputsComplete(output)) return;
  reconcile(output, [&](DeletionRun& run) {
    const auto& types = aclStatus_->status();
    const auto& from = output.resumeKey;
    const bool resume = output.resume && from;
    for (auto type = resume ? types.from(from->aclType) : types.begin(); type; type.next()) {
      const Acl::AclType aclType = type.key();
      const auto directions = aclStatus_->status(aclType);
      if (!directions) continue;
      const bool hereType = resume && aclType == from->aclType;
      for (auto at = hereType ? directions->intf().from(from->direction) : directions->intf().begin(); at;
           at.next()) {
        const Acl::AclDirection direction = at.key();
        const auto bindings = directions->intf(direction);
        if (!bindings) continue;
        const bool here = hereType && direction == from->direction;
        for (auto intf = here ? bindings->intf().from(from->intfId) : bindings->intf().begin(); intf;
             intf.next()) {
          const AclStatusStatusIntfIntfOutputKeyType key{aclType, direction, intf.key()};
          if (run.mustStop()) {
            output.resumeKey = key;
            return false;
          }
          if (!aclStatusStatusIntfIntfOutputSeenHas(key)) {
            bindings->intfDel(key.intfId);
            ++run.deletions;
            if (stopped_) return true;
          }
          ++run.items;
        }
        if (bindings->intf().empty()) directions->intfDel(direction);
      }
      if (directions->acl().empty() && directions->intf().empty()) {
        aclStatus_->statusDel(aclType);
        ++run.items;
        if (stopped_) return true;
      }
    }
    return true;
  });
  if (output.pending || stopped_) return;
  output.forget();
  outputReadyIs(output);
}

bool VeloDpAclStatusSm::aclStatusStatusAclOutputSeenHas(const AclStatusStatusAclOutputKeyType& key) const {
  return aclStatusStatusAclOutput_.seen.has(key);
}
void VeloDpAclStatusSm::aclStatusStatusAclOutputSeenIs(const AclStatusStatusAclOutputKeyType& key) {
  aclStatusStatusAclOutput_.seen.add(key);
}
bool VeloDpAclStatusSm::aclStatusStatusIntfIntfOutputSeenHas(
    const AclStatusStatusIntfIntfOutputKeyType& key) const {
  return aclStatusStatusIntfIntfOutput_.seen.has(key);
}
void VeloDpAclStatusSm::aclStatusStatusIntfIntfOutputSeenIs(const AclStatusStatusIntfIntfOutputKeyType& key) {
  aclStatusStatusIntfIntfOutput_.seen.add(key);
}

// ---- reconciliation tasks
// ----------------------------------------------------------------------------------

#define RECONCILIATION_TASK(output, handler)                                                      \
  void VeloDpAclStatusSm::output##ReconciliationTaskIs(const Scheduler& scheduler, int priority,  \
                                                       const char* name) {                        \
    output##_.task.is(scheduler, priority, name, [this] { withMachine([this] { handler(); }); }); \
  }                                                                                               \
  void VeloDpAclStatusSm::output##ReconciliationTaskDel() { output##_.task.del(); }

RECONCILIATION_TASK(aclStatusStatusAclOutput, handleAclStatusStatusAclOutputInputReady)
RECONCILIATION_TASK(aclStatusStatusIntfIntfOutput, handleAclStatusStatusIntfIntfOutputInputReady)
RECONCILIATION_TASK(aclAclStatusPtrRuleStatusOutput, handleAclAclStatusPtrRuleStatusOutputInputReady)
RECONCILIATION_TASK(aclAclStatusPtrImplicitRuleIdOutput, handleAclAclStatusPtrImplicitRuleIdOutputInputReady)
RECONCILIATION_TASK(aclAclStatusPtrImplicitRuleStatusOutput,
                    handleAclAclStatusPtrImplicitRuleStatusOutputInputReady)

#undef RECONCILIATION_TASK

}  // namespace Velo::VeloAcl
