#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>

/// The outputs: when each has all that its inputs say, and the deletion of what an earlier run left.
namespace Velo::VeloAcl {

/// The pass that was asked for last is through.
bool VeloDpAclStatusSm::pollComplete(const CounterPoll& poll) const {
  const uint64_t asked = ((*scanState_).*(poll.row.generation))();
  return asked != 0 && asked == ((*scanState_).*(poll.row.doneGen))();
}

bool VeloDpAclStatusSm::pollsComplete() const {
  return pollComplete(copyIpOutCounters_) && pollComplete(copyIp6OutCounters_) &&
         pollComplete(copyInCounters_) && pollComplete(copyMacOutCounters_);
}

/// True when an output that is not ready yet has everything it waits for. Ends the first pass when that is
/// all that is missing.
bool VeloDpAclStatusSm::outputInputsComplete(const OutputBase& output) {
  const OutputSpec& spec = output.spec;
  if (!initialized_) return false;
  if (spec.handlerText) traceStatus(9, "{}", spec.handlerText);
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
  traceStatus(9, "{}", spec.completeText);
  return true;
}

void VeloDpAclStatusSm::outputReadyIs(OutputBase& output) {
  (outputState_.get()->*(output.spec.readyIs))(true);
  outputState_->handleReady();
}

/// `walk(run)` handles the entries that are left, asks run.mustStop() before each, and returns false when it
/// stopped and noted where.
template <class Walk>
void VeloDpAclStatusSm::reconcile(ReconciledOutputBase& output, const Walk& walk) {
  traceStatus(9, output.spec.reconcilingText, bool{output.pending});
  if (!output.pending) return;
  const Kelp::Ptr<Kiv::TimerTask> task = output.task.get();
  DeletionRun run(synchronous_ ? nullptr : task.get());
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
  output.resume = false;
  output.pending = false;
  output.walked = true;
}

/// An output that is reconciled: the walk, once its inputs are complete, then what was seen is forgotten, as
/// much as a slice is long, and then it is ready.
template <class Output, class Walk>
void VeloDpAclStatusSm::reconcileWhenComplete(Output& output, const Walk& walk) {
  if (!outputInputsComplete(output)) return;
  reconcile(output, walk);
  if (output.pending || stopped_) return;
  output.placeReset();
  const Kelp::Ptr<Kiv::TimerTask> task = output.task.get();
  SmallSteps steps(synchronous_ ? nullptr : task.get());
  if (!output.forgetSeen([&] { return steps.timeIsUp(); })) {
    task->scheduleTask();
    return;
  }
  if (output.walked) output.task.del();
  outputReadyIs(output);
}

/// The deletion scan of one collection, from a key on or from its beginning: takes out what was not seen.
/// Returns the key that it stopped before, if it did.
template <class Map, class Seen, class Del>
std::optional<typename Map::Key> VeloDpAclStatusSm::deleteUnseen(DeletionRun& run, const Map& map,
                                                                 const typename Map::Key* from,
                                                                 const Seen& seen, const Del& del) {
  for (auto entry = from ? map.from(*from) : map.begin(); entry; entry.next()) {
    const typename Map::Key key = entry.key();
    if (run.mustStop()) return key;
    if (!seen(key)) {
      del(key);
      ++run.deletions;
      if (stopped_) return std::nullopt;
    }
    ++run.items;
  }
  return std::nullopt;
}

/// Walks the status by kind of list. `walkType(run, aclType, typeStatus, from)` scans what the output writes
/// in one of them, from a key on when that is not null, and returns the key that it stopped before. What is
/// left empty goes with its last entry.
template <class Key, class WalkType>
void VeloDpAclStatusSm::reconcileKeyed(KeyedOutput<Key>& output, const WalkType& walkType) {
  reconcileWhenComplete(output, [&](DeletionRun& run) {
    const auto& types = aclStatus_->status();
    const Key* from = output.resume && output.resumeKey ? &*output.resumeKey : nullptr;
    for (auto type = from ? types.from(from->aclType) : types.begin(); type; type.next()) {
      const Acl::AclType aclType = type.key();
      const auto typeStatus = aclStatus_->status(aclType);
      if (!typeStatus) continue;
      const bool here = from && aclType == from->aclType;
      if (const std::optional<Key> stop = walkType(run, aclType, *typeStatus, here ? from : nullptr)) {
        output.resumeKey = stop;
        return false;
      }
      if (stopped_) return true;
      if (typeStatus->acl().empty() && typeStatus->intf().empty()) {
        aclStatus_->statusDel(aclType);
        ++run.items;
        if (stopped_) return true;
      }
    }
    return true;
  });
}

/// Walks the status of every list that was recorded; what the output writes there is what `mapOf` and `del`
/// say.
template <class Key, class MapOf, class Del>
void VeloDpAclStatusSm::reconcilePerStatus(PerStatusOutput<Key>& output, const MapOf& mapOf, const Del& del) {
  reconcileWhenComplete(output, [&](DeletionRun& run) {
    for (size_t at = output.resumeStatus; at < output.ptrSeen.size(); ++at) {
      if (run.mustStopBeforeStatus()) {
        output.resumeStatus = at;
        output.resumeKey.reset();
        return false;
      }
      const Kelp::Ptr<Acl::AclStatus> status = output.ptrSeen.status(at);
      const bool resumed = output.resume && at == output.resumeStatus && output.resumeKey;
      const auto stop = deleteUnseen(
          run, mapOf(*status), resumed ? &output.resumeKey->key : nullptr,
          [&](const auto& key) { return output.ptrSeen.has(at, Key{key}); },
          [&](const auto& key) { del(*status, key); });
      if (stop) {
        output.resumeStatus = at;
        output.resumeKey = Key{*stop};
        return false;
      }
      if (stopped_) return true;
    }
    return true;
  });
}

void VeloDpAclStatusSm::handleRuleIdsByAclRuleIdsOutputInputReady() {
  if (!outputInputsComplete(ruleIdsByAclRuleIdsOutput_)) return;
  outputReadyIs(ruleIdsByAclRuleIdsOutput_);
  // The status of the rules waits for this and for the polls. One that was faster has met lists that were not
  // there yet, and its next pass is a second away: it comes now.
  if (stopped_ || synchronous_) return;
  for (CounterPoll* poll :
       {&copyIpOutCounters_, &copyIp6OutCounters_, &copyInCounters_, &copyMacOutCounters_}) {
    if (!pollComplete(*poll)) continue;
    askForPoll(*poll);
    if (poll->task) poll->task->scheduleTask();
  }
}

void VeloDpAclStatusSm::handleAclAclStatusPtrImplicitRuleStatusOutputInputReady() {
  reconcilePerStatus(
      aclAclStatusPtrImplicitRuleStatusOutput_,
      [](auto& status) -> auto& { return status.implicitRuleStatus(); },
      [](auto& status, Acl::ImplicitRuleType key) { status.implicitRuleStatusDel(key); });
}

void VeloDpAclStatusSm::handleAclAclStatusPtrImplicitRuleIdOutputInputReady() {
  reconcilePerStatus(
      aclAclStatusPtrImplicitRuleIdOutput_, [](auto& status) -> auto& { return status.implicitRuleId(); },
      [](auto& status, Acl::ImplicitRuleType key) { status.implicitRuleIdDel(key); });
}

void VeloDpAclStatusSm::handleAclAclStatusPtrCounterUpdateTimeOutputInputReady() {
  auto& output = aclAclStatusPtrCounterUpdateTimeOutput_;
  if (outputInputsComplete(output)) outputReadyIs(output);
}

void VeloDpAclStatusSm::handleAclStatusStatusAclOutputInputReady() {
  using Key = AclStatusStatusAclOutputKeyType;
  reconcileKeyed(aclStatusStatusAclOutput_,
                 [this](DeletionRun& run, Acl::AclType aclType, Acl::AclTypeStatus& lists,
                        const Key* from) -> std::optional<Key> {
                   const auto stop = deleteUnseen(
                       run, lists.acl(), from ? &from->aclName : nullptr,
                       [&](const Kelp::String& name) {
                         return aclStatusStatusAclOutputSeenHas({aclType, name});
                       },
                       [&](const Kelp::String& name) { lists.aclDel(name); });
                   if (stop) return Key{aclType, *stop};
                   return std::nullopt;
                 });
}

void VeloDpAclStatusSm::handleAclAclStatusPtrRuleStatusOutputInputReady() {
  reconcilePerStatus(
      aclAclStatusPtrRuleStatusOutput_, [](auto& status) -> auto& { return status.ruleStatus(); },
      [](auto& status, const Kiv::UniqueId& key) { status.ruleStatusDel(key); });
}

void VeloDpAclStatusSm::handleAclStatusStatusIntfIntfOutputInputReady() {
  using Key = AclStatusStatusIntfIntfOutputKeyType;
  reconcileKeyed(aclStatusStatusIntfIntfOutput_,
                 [this](DeletionRun& run, Acl::AclType aclType, Acl::AclTypeStatus& directions,
                        const Key* from) -> std::optional<Key> {
                   for (auto at = from ? directions.intf().from(from->direction) : directions.intf().begin();
                        at; at.next()) {
                     const Acl::AclDirection direction = at.key();
                     const auto bindings = directions.intf(direction);
                     if (!bindings) continue;
                     const bool here = from && direction == from->direction;
                     const auto stop = deleteUnseen(
                         run, bindings->intf(), here ? &from->intfId : nullptr,
                         [&](const Nimnet::IntfId& intfId) {
                           return aclStatusStatusIntfIntfOutputSeenHas({aclType, direction, intfId});
                         },
                         [&](const Nimnet::IntfId& intfId) { bindings->intfDel(intfId); });
                     if (stop) return Key{aclType, direction, *stop};
                     if (stopped_) return std::nullopt;
                     if (bindings->intf().empty()) directions.intfDel(direction);
                   }
                   return std::nullopt;
                 });
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
