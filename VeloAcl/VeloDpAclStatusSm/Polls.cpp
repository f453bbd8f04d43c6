#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>

/// The polls: each copies its collection of counters into the status, a second after it last came to the end.
namespace Velo::VeloAcl {

namespace {

constexpr Kelp::Duration pollInterval{1.0};

/// "copyInCounters" as part of a name that goes on.
std::string capitalised(std::string_view name) {
  std::string text(name);
  text[0] = static_cast<char>(text[0] - 'a' + 'A');
  return text;
}

}  // namespace

void VeloDpAclStatusSm::handlePollInputReady(CounterPoll& poll) {
  if (!initialized_) return;
  if (statusTrace().on(9)) traceStatus(9, "handle{}CodefInputReady", capitalised(poll.spec.name));
  if (!initialScanDone_) {
    handleInitialScanDone();
    return;
  }
  traceStatus(9, "Inputs for {}Codef ready", poll.spec.name);
  if (!synchronous_ && poll.task) poll.task->scheduleTask();
}

void VeloDpAclStatusSm::handlePoll(CounterPoll& poll) {
  if (!initialized_) return;
  InputSmScanState& state = *scanState_;
  const CounterPoll::Spec& spec = poll.spec;
  (state.*(spec.idleIs))(false);
  state.handleIdle();
  if (!initialized_) return;
  const bool complete = pollPass(poll, (state.*(spec.generation))());
  if (!initialized_) return;
  if (!complete) {
    poll.task->scheduleTask();
    return;
  }
  (state.*(spec.idleIs))(true);
  state.handleIdle();
  if (!initialized_) return;
  if (!synchronous_) poll.task->scheduleTaskDelay(pollInterval);
  (state.*(spec.generationInc))();
  (state.*(spec.doneGenIs))((state.*(spec.generation))());
}

/// The generation is the pass that was asked for; a pass copies whatever is there.
bool VeloDpAclStatusSm::pollPass(CounterPoll& poll, uint64_t) {
  const CounterPoll::Spec& spec = poll.spec;
  const Kelp::Ptr<const Counters> input = (this->*(spec.input))();
  const auto& counters = input->counterCollection();
  traceStatus(7, "{} = Poll fired", spec.name);
  if (poll.bookmark) {
    traceStatus(6, " Resuming foreach( {}.counterCollection ) w/key {}, while flattening {} elements",
                spec.inputName, *poll.bookmark, counters.size());
  } else {
    traceStatus(6, " foreach( {}.counterCollection ) flattening {} elements", spec.inputName,
                counters.size());
  }
  const Kelp::Ptr<Kiv::TimerTask> task = poll.task.get();
  size_t done = 0;
  for (auto at = poll.bookmark ? counters.from(*poll.bookmark) : counters.begin(); at;) {
    traceStatus(9, "Flattening element: {}", at.key());
    eventToUpdateCounters(at.key(), *at.value());
    if (stopped_) return true;
    ++done;
    if (!synchronous_ && (this->*(spec.duplicateSeen))()) {
      (this->*(spec.duplicateSeenIs))(false);
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
