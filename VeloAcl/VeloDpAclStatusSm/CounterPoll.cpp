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

const InputSmScanState& CounterPoll::state() const { return *machine_.inputSmScanState(); }

// A handler that follows the scan state may end the machine, which is held meanwhile.

void CounterPoll::askedIs(uint64_t pass) { ((*machine_.inputSmScanState()).*spec_.scan->askedIs)(pass); }

void CounterPoll::doneIs(uint64_t pass) { ((*machine_.inputSmScanState()).*spec_.scan->doneIs)(pass); }

void CounterPoll::idleIs(bool idle) { ((*machine_.inputSmScanState()).*spec_.scan->idleIs)(idle); }

void CounterPoll::ask() { askedIs((state().*spec_.scan->done)() + 1); }

void CounterPoll::askAnew() {
  askedAnew_ = bookmark_.has_value();
  if (!complete()) return;
  ask();
  if (task_) task_->scheduleTask();
}

/// A run before the second pass was asked for by an earlier machine, in a task of the same name. This machine
/// asks for its own runs later.
void CounterPoll::run() {
  if (!machine_.initialized() || !machine_.initialScanDone()) return;
  const Kelp::Ptr<InputSmScanState> state = machine_.inputSmScanState();
  idleIs(false);
  state->handleIdle();
  if (!machine_.initialized()) return;
  const RunEnd end = pass(asked());
  if (!machine_.initialized()) return;
  if (end != RunEnd::complete) {
    if (task_) task_->scheduleTask();
    return;
  }
  idleIs(true);
  state->handleIdle();
  if (!machine_.initialized()) return;
  const bool another = std::exchange(askedAnew_, false);
  if (!machine_.synchronous() && task_) task_->scheduleTaskDelay(another ? Kelp::Duration() : pollInterval);
  const uint64_t done = asked() + 1;
  askedIs(done);
  if (another) askedIs(done + 1);
  doneIs(done);
}

RunEnd CounterPoll::pass(uint64_t) {
  if (!machine_.streaming()) return machine_.stopped() ? RunEnd::stopped : RunEnd::yielded;
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
    traceStatusAt(spec_.line, 9, "Flattening element: {}", at.key());
    machine_.eventToUpdateCounters(at.key(), *at.value());
    if (machine_.stopped()) return RunEnd::stopped;
    ++done;
    if (restartIsWanted()) {
      workDone();
      return RunEnd::yielded;
    }
    at.next();
    if (at && task && task->taskShouldYield()) {
      bookmark_ = at.key();
      workDone();
      return RunEnd::yielded;
    }
  }
  bookmark_.reset();
  workDone();
  return RunEnd::complete;
}

/// Whether somebody has set the poll's flag; clears the flag.
bool CounterPoll::restartIsWanted() {
  if (machine_.synchronous() || !(machine_.*spec_.duplicateSeen)()) return false;
  (machine_.*spec_.duplicateSeenIs)(false);
  traceStatusAt(spec_.line, 6, "Restarting iteration, as input state of pipeline has changed");
  return true;
}

}  // namespace Velo::VeloAcl
