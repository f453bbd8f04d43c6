#include <VeloAcl/VeloDpAclStatusSm/CounterPoll.h>
#include <VeloAcl/VeloDpAclStatusSm/Polls.h>
#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>

namespace Velo::VeloAcl {

namespace {

constexpr Kelp::Duration pollInterval{1.0};

}  // namespace

void CounterPoll::taskIs(const MachineFrame::Scheduler& scheduler, int priority, const char* name) {
  task_.is(scheduler, priority, name, [this] { machine_.withMachine([this] { run(); }); });
}

void CounterPoll::handleInputReady() {
  if (!machine_.initialized()) return;
  traceStatus(9, "{}", spec_.inputReadyText);
  if (!machine_.initialScanDone()) {
    machine_.handleInitialScanDone();
    return;
  }
  traceStatus(9, "{}", spec_.inputsText);
  if (!machine_.synchronous() && task_) task_->scheduleTask();
}

void CounterPoll::ask() {
  InputSmScanState& state = *machine_.inputSmScanState();
  (state.*spec_.state.askedIs)((state.*spec_.state.done)() + 1);
}

void CounterPoll::askAnew() {
  askedAnew_ = bookmark_.has_value();
  if (!spec_.state.complete(*machine_.inputSmScanState())) return;
  ask();
  if (task_) task_->scheduleTask();
}

/// A run that comes before the second pass is none of this machine's: an earlier one has asked for it in a
/// task of the same name. This machine asks for its own when it is time.
void CounterPoll::run() {
  if (!machine_.initialized() || !machine_.initialScanDone()) return;
  const Kelp::Ptr<InputSmScanState> held = machine_.inputSmScanState();
  InputSmScanState& state = *held;
  const PollState& poll = spec_.state;
  (state.*poll.idleIs)(false);
  state.handleIdle();
  if (!machine_.initialized()) return;
  const bool complete = pass((state.*poll.asked)());
  if (!machine_.initialized()) return;
  if (!complete) {
    if (task_) task_->scheduleTask();
    return;
  }
  (state.*poll.idleIs)(true);
  state.handleIdle();
  if (!machine_.initialized()) return;
  const bool another = std::exchange(askedAnew_, false);
  if (!machine_.synchronous() && task_) task_->scheduleTaskDelay(another ? Kelp::Duration() : pollInterval);
  (state.*poll.askedInc)();
  const uint64_t done = (state.*poll.asked)();
  if (another) (state.*poll.askedInc)();
  (state.*poll.doneIs)(done);
}

bool CounterPoll::pass(uint64_t) {
  if (!machine_.streaming()) return false;
  const Arguments::Counters input = (machine_.*spec_.input)();
  const auto& counters = input->counterCollection();
  traceStatus(7, "{}", spec_.firedText);
  if (bookmark_) {
    traceStatus(6, spec_.resumingText, std::as_const(*bookmark_), counters.size());
  } else {
    traceStatus(6, spec_.flatteningText, counters.size());
  }
  const Kelp::Ptr<Kiv::TimerTask> task = machine_.synchronous() ? nullptr : task_.get();
  size_t done = 0;
  const auto workDone = [&] {
    if (task) task->taskWorkCountInc(done);
  };
  for (auto at = bookmark_ ? counters.from(*bookmark_) : counters.begin(); at;) {
    traceStatus(9, "Flattening element: {}", at.key());
    machine_.eventToUpdateCounters(at.key(), *at.value());
    if (machine_.stopped()) return false;
    ++done;
    if (restartIsWanted()) {
      workDone();
      return false;
    }
    at.next();
    if (at && task && task->taskShouldYield()) {
      bookmark_ = at.key();
      workDone();
      return false;
    }
  }
  bookmark_.reset();
  workDone();
  return true;
}

/// Somebody has set the poll's flag, which is taken back.
bool CounterPoll::restartIsWanted() {
  if (machine_.synchronous() || !(machine_.*spec_.duplicateSeen)()) return false;
  (machine_.*spec_.duplicateSeenIs)(false);
  traceStatus(6, "Restarting iteration, as input state of pipeline has changed");
  return true;
}

}  // namespace Velo::VeloAcl
