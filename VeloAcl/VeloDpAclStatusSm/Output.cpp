#include <VeloAcl/VeloDpAclStatusSm/Output.h>
#include <VeloAcl/VeloDpAclStatusSm/ReconciledOutput.h>

#include <algorithm>

namespace Velo::VeloAcl {

bool Output::waitsForScan(const Zeb::Attribute& field) const {
  return std::any_of(spec_.scans.begin(), spec_.scans.end(),
                     [&](const StreamScan* scan) { return &scan->attribute() == &field; });
}

bool Output::scansAreDone() const {
  const InputSmScanState& state = *machine_.inputSmScanState();
  return std::all_of(spec_.scans.begin(), spec_.scans.end(),
                     [&](const StreamScan* scan) { return (state.*scan->done)(); });
}

/// Whether everything is there that comes with or behind the second pass, once the scans are done.
bool Output::inputsAreComplete() const {
  if (spec_.afterRuleIds && !machine_.outputState()->ruleIdsByAclRuleIdsOutputReady()) return false;
  if (!spec_.afterPolls || machine_.synchronous()) return true;
  const InputSmScanState& state = *machine_.inputSmScanState();
  return std::all_of(pollScans.begin(), pollScans.end(),
                     [&](const PollScan* poll) { return poll->complete(state); });
}

void Output::handleInputReady() {
  if (!machine_.initialized()) return;
  if (spec_.handlerText) trace("{}", spec_.handlerText);
  if (ready()) return trace(" already ready, not reconciling.");
  if (!scansAreDone()) return;
  if (!machine_.initialScanDone()) return machine_.handleInitialScanDone();
  if (!inputsAreComplete()) return;
  trace("{}", spec_.completeText);
  if (reconcile() != RunEnd::complete) return;
  const Kelp::Ptr<OutputState> state = machine_.outputState();
  ((*state).*spec_.readyIs)(true);
  state->handleReady();
  if (whenReady_ && !machine_.stopped()) whenReady_();
}

void ReconciledOutput::reconciliationTaskIs(const MachineFrame::Scheduler& scheduler, int priority,
                                            const char* name) {
  task_.is(scheduler, priority, name, [this] { machine_.withMachine([this] { handleInputReady(); }); });
}

/// The walk, then what was seen is forgotten, as much of it as a slice is long.
RunEnd ReconciledOutput::reconcile() {
  trace(spec_.reconcilingText, bool{pending_});
  if (const RunEnd end = pending_ ? walkOnce() : RunEnd::complete; end != RunEnd::complete) return end;
  const Kelp::Ptr<Kiv::TimerTask> task = task_.get();
  SmallSteps steps(machine_.synchronous() ? nullptr : task.get());
  const RunEnd end = forget(steps);
  if (machine_.stopped()) return RunEnd::stopped;
  if (end == RunEnd::yielded) {
    task->scheduleTask();
  } else if (wasWalked_) {
    task_.del();
  }
  return end;
}

/// One run of the walk.
RunEnd ReconciledOutput::walkOnce() {
  const Kelp::Ptr<Kiv::TimerTask> task = task_.get();
  DeletionRun run(machine_.synchronous() ? nullptr : task.get());
  const RunEnd end = walk(run);
  if (task) task->taskWorkCountInc(run.items);
  if (machine_.stopped()) return RunEnd::stopped;
  if (end == RunEnd::yielded) {
    trace("Yielding in reconciliation processing after processing {} items, including {} deletions .",
          run.items, run.deletions);
    task->scheduleTask();
    return end;
  }
  trace("Deletion scan for reconciliation is done, last task run processed {} items, deleting {} items.",
        run.items, run.deletions);
  pending_ = false;
  wasWalked_ = true;
  return end;
}

}  // namespace Velo::VeloAcl
