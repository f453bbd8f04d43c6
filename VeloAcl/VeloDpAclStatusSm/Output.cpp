#include <VeloAcl/VeloDpAclStatusSm/Output.h>
#include <VeloAcl/VeloDpAclStatusSm/ReconciledOutput.h>
#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>

#include <algorithm>

namespace Velo::VeloAcl {

bool Output::waitsForScan(const Zeb::Attribute& field) const {
  return std::any_of(spec_.scans.begin(), spec_.scans.end(),
                     [&](const StreamScan* scan) { return &scan->attribute() == &field; });
}

/// True when the output is not ready yet and everything that it waits for is there.
bool Output::inputsComplete() {
  if (!machine_.initialized()) return false;
  if (spec_.handlerText) traceStatus(9, "{}", spec_.handlerText);
  if (ready()) {
    traceStatus(9, " already ready, not reconciling.");
    return false;
  }
  const InputSmScanState& state = *machine_.inputSmScanState();
  for (const StreamScan* scan : spec_.scans) {
    if (!(state.*scan->done)()) return false;
  }
  if (!machine_.initialScanDone()) {
    machine_.handleInitialScanDone();
    return false;
  }
  if (spec_.afterRuleIds && !machine_.outputState()->ruleIdsByAclRuleIdsOutputReady()) return false;
  if (spec_.afterPolls && !machine_.synchronous()) {
    for (const PollScan* poll : pollScans) {
      if (!poll->complete(state)) return false;
    }
  }
  traceStatus(9, "{}", spec_.completeText);
  return true;
}

void Output::handleInputReady() {
  if (!inputsComplete() || reconciled() != RunEnd::complete) return;
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
RunEnd ReconciledOutput::reconciled() {
  traceStatus(9, spec_.reconcilingText, bool{pending_});
  if (const RunEnd end = pending_ ? walked() : RunEnd::complete; end != RunEnd::complete) return end;
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
RunEnd ReconciledOutput::walked() {
  const Kelp::Ptr<Kiv::TimerTask> task = task_.get();
  DeletionRun run(machine_.synchronous() ? nullptr : task.get());
  const RunEnd end = walk(run);
  if (task) task->taskWorkCountInc(run.items);
  if (machine_.stopped()) return RunEnd::stopped;
  if (end == RunEnd::yielded) {
    traceStatus(9,
                "Yielding in reconciliation processing after processing {} items, including {} deletions .",
                run.items, run.deletions);
    task->scheduleTask();
    return end;
  }
  traceStatus(
      9, "Deletion scan for reconciliation is done, last task run processed {} items, deleting {} items.",
      run.items, run.deletions);
  pending_ = false;
  wasWalked_ = true;
  return end;
}

}  // namespace Velo::VeloAcl
