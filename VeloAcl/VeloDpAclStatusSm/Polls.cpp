#include <VeloAcl/VeloDpAclStatusSm/StreamValues.h>

/// The polls: each copies its collection of counters into the status, a second after it last came to the end;
/// and the stream that all of them feed.
namespace Velo::VeloAcl {

using Acl::RuleStatus;
using Kiv::UniqueId;

namespace {

constexpr Kelp::Duration pollInterval{1.0};

}  // namespace

void VeloDpAclStatusSm::handlePollInputReady(CounterPoll& poll) {
  if (!initialized_) return;
  traceStatus(9, "{}", poll.row.inputReadyText);
  if (!initialScanDone_) {
    handleInitialScanDone();
    return;
  }
  traceStatus(9, "{}", poll.row.inputsText);
  if (!synchronous_ && poll.task) poll.task->scheduleTask();
}

/// Has one more pass outstanding.
void VeloDpAclStatusSm::askForPoll(CounterPoll& poll) {
  InputSmScanState& state = *scanState_.get();
  (state.*(poll.row.generationIs))((state.*(poll.row.doneGen))() + 1);
}

/// A run that comes before the second pass is none of this machine's: an earlier one has asked for it in a
/// task of the same name. This machine asks for its own when it is time.
void VeloDpAclStatusSm::handlePoll(CounterPoll& poll) {
  if (!initialized_ || !initialScanDone_) return;
  InputSmScanState& state = *scanState_.get();
  const CounterPoll::Row& row = poll.row;
  (state.*(row.idleIs))(false);
  state.handleIdle();
  if (!initialized_) return;
  const bool complete = pollPass(poll, (state.*(row.generation))());
  if (!initialized_) return;
  if (!complete) {
    if (poll.task) poll.task->scheduleTask();
    return;
  }
  (state.*(row.idleIs))(true);
  state.handleIdle();
  if (!initialized_) return;
  if (!synchronous_ && poll.task) poll.task->scheduleTaskDelay(pollInterval);
  (state.*(row.generationInc))();
  (state.*(row.doneGenIs))((state.*(row.generation))());
}

/// The generation is the pass that was asked for; a pass copies whatever is there.
bool VeloDpAclStatusSm::pollPass(CounterPoll& poll, uint64_t) {
  if (!streaming()) return false;
  const CounterPoll::Row& row = poll.row;
  const Kelp::Ptr<const Counters> input = (this->*(row.input))();
  const auto& counters = input->counterCollection();
  traceStatus(7, "{}", row.firedText);
  if (poll.bookmark) {
    traceStatus(6, row.resumingText, std::as_const(*poll.bookmark), counters.size());
  } else {
    traceStatus(6, row.flatteningText, counters.size());
  }
  const Kelp::Ptr<Kiv::TimerTask> task = synchronous_ ? nullptr : poll.task.get();
  size_t done = 0;
  const auto workDone = [&] {
    if (task) task->taskWorkCountInc(done);
  };
  for (auto at = poll.bookmark ? counters.from(*poll.bookmark) : counters.begin(); at;) {
    traceStatus(9, "Flattening element: {}", at.key());
    eventToUpdateCounters(at.key(), *at.value());
    if (stopped_) return false;
    ++done;
    if (!synchronous_ && (this->*(row.duplicateSeen))()) {
      (this->*(row.duplicateSeenIs))(false);
      traceStatus(6, "Restarting iteration, as input state of pipeline has changed");
      workDone();
      return false;
    }
    at.next();
    if (at && task && task->taskShouldYield()) {
      poll.bookmark = at.key();
      workDone();
      return false;
    }
  }
  poll.bookmark.reset();
  workDone();
  return true;
}

void VeloDpAclStatusSm::eventToUpdateCounters(const CounterKey& key,
                                              const Velo::Counter::VeloDpAclCounter& counter) {
  if (!streaming()) return;
  traceStatus(
      7,
      "updateCounters = merge( copyInCounters, copyMacOutCounters, copyIpOutCounters, copyIp6OutCounters ): "
      "key={} shadowVal={}",
      key, fmt::ptr(&counter));
  const auto maybeStatus = statusOf(key.aclType, key.aclName);
  if (!maybeStatus) {
    traceStatus(6, "filter( maybeStatus ) failed, terminating pipeline");
    return;
  }
  const std::optional<RuleStatus> value =
      RuleStatus{0, counter.packets(), counter.lastUpdateTime().seconds(), true};
  const UniqueId* implicitId = maybeStatus->implicitRuleId(dropType);
  if (implicitId && *implicitId == key.ruleId) {
    auto& output = aclAclStatusPtrImplicitRuleStatusOutput_;
    if (output.pending) output.ptrSeen.add(maybeStatus, {dropType});
    if (value) {
      traceStatus(7, "into( status.implicitRuleStatus[ dropType ] ): inserting k1={}, value={}", dropType,
                  *value);
      maybeStatus->implicitRuleStatusIs(dropType, *value);
    } else {
      traceStatus(7, "into( status.implicitRuleStatus[ dropType ] ): deleting k1={}", dropType);
      maybeStatus->implicitRuleStatusDel(dropType);
    }
  } else {
    auto& output = aclAclStatusPtrRuleStatusOutput_;
    if (output.pending) output.ptrSeen.add(maybeStatus, {key.ruleId});
    if (value) {
      traceStatus(7, "into( status.ruleStatus[ key.ruleId ] ): inserting k1={}, value={}", key.ruleId,
                  *value);
      maybeStatus->ruleStatusIs(key.ruleId, *value);
    } else {
      traceStatus(7, "into( status.ruleStatus[ key.ruleId ] ): deleting k1={}", key.ruleId);
      maybeStatus->ruleStatusDel(key.ruleId);
    }
  }
  if (stopped_ || statusOf(key.aclType, key.aclName) != maybeStatus) return;
  const Kelp::Duration now = Zeb::System::currentTime();
  traceStatus(7, "into( status.counterUpdateTime ): inserting value={}", now);
  maybeStatus->counterUpdateTimeIs(now);
}

#define POLL_TASK(poll, body)                                                                        \
  void VeloDpAclStatusSm::poll##TaskIs(const Scheduler& scheduler, int priority, const char* name) { \
    poll##_.task.is(scheduler, priority, name, [this] { withMachine([this] { body(); }); });         \
  }

POLL_TASK(copyInCounters, handleCopyInCountersCodef)
POLL_TASK(copyMacOutCounters, handleCopyMacOutCountersCodef)
POLL_TASK(copyIpOutCounters, handleCopyIpOutCountersCodef)
POLL_TASK(copyIp6OutCounters, handleCopyIp6OutCountersCodef)

#undef POLL_TASK

}  // namespace Velo::VeloAcl
