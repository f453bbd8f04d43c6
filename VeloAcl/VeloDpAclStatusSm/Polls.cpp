#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>
#include <Zeb/System.h>

/// The polls: each copies its collection of counters into the status, a second after it last came to the end;
/// and the stream that all of them feed.
namespace Velo::VeloAcl {

using Acl::RuleStatus;
using Kiv::UniqueId;

namespace {

constexpr Kelp::Duration pollInterval{1.0};
constexpr auto dropType = Acl::ImplicitRuleType::drop;

/// "copyInCounters" as part of a name that goes on.
std::string capitalised(std::string_view name) {
  std::string text(name);
  text[0] = static_cast<char>(text[0] - 'a' + 'A');
  return text;
}

}  // namespace

void VeloDpAclStatusSm::handlePollInputReady(CounterPoll& poll) {
  if (!initialized_) return;
  if (statusTrace().on(9)) traceStatus(9, "handle{}CodefInputReady", capitalised(poll.row.name));
  if (!initialScanDone_) {
    handleInitialScanDone();
    return;
  }
  traceStatus(9, "Inputs for {}Codef ready", poll.row.name);
  if (!synchronous_ && poll.task) poll.task->scheduleTask();
}

void VeloDpAclStatusSm::handlePoll(CounterPoll& poll) {
  if (!initialized_) return;
  InputSmScanState& state = *scanState_;
  const CounterPoll::Row& row = poll.row;
  (state.*(row.idleIs))(false);
  state.handleIdle();
  if (!initialized_) return;
  const bool complete = pollPass(poll, (state.*(row.generation))());
  if (!initialized_) return;
  if (!complete) {
    poll.task->scheduleTask();
    return;
  }
  (state.*(row.idleIs))(true);
  state.handleIdle();
  if (!initialized_) return;
  if (!synchronous_) poll.task->scheduleTaskDelay(pollInterval);
  (state.*(row.generationInc))();
  (state.*(row.doneGenIs))((state.*(row.generation))());
}

/// The generation is the pass that was asked for; a pass copies whatever is there.
bool VeloDpAclStatusSm::pollPass(CounterPoll& poll, uint64_t) {
  const CounterPoll::Row& row = poll.row;
  const Kelp::Ptr<const Counters> input = (this->*(row.input))();
  const auto& counters = input->counterCollection();
  traceStatus(7, "{} = Poll fired", row.name);
  if (poll.bookmark) {
    traceStatus(6, " Resuming foreach( {}.counterCollection ) w/key {}, while flattening {} elements",
                row.inputName, *poll.bookmark, counters.size());
  } else {
    traceStatus(6, " foreach( {}.counterCollection ) flattening {} elements", row.inputName, counters.size());
  }
  const Kelp::Ptr<Kiv::TimerTask> task = poll.task.get();
  size_t done = 0;
  for (auto at = poll.bookmark ? counters.from(*poll.bookmark) : counters.begin(); at;) {
    traceStatus(9, "Flattening element: {}", at.key());
    eventToUpdateCounters(at.key(), *at.value());
    if (stopped_) return true;
    ++done;
    if (!synchronous_ && (this->*(row.duplicateSeen))()) {
      (this->*(row.duplicateSeenIs))(false);
      traceStatus(6, "Restarting iteration, as input state of pipeline has changed");
      task->taskWorkCountInc(done);
      return false;
    }
    at.next();
    if (at && !synchronous_ && task->taskShouldYield()) {
      poll.bookmark = at.key();
      task->taskWorkCountInc(done);
      return false;
    }
  }
  poll.bookmark.reset();
  if (!synchronous_) task->taskWorkCountInc(done);
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
  if (stopped_) return;
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
