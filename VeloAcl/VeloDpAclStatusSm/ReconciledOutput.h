#pragma once

#include <VeloAcl/VeloDpAclStatusSm/MachineTask.h>
#include <VeloAcl/VeloDpAclStatusSm/Output.h>

namespace Velo::VeloAcl {

/// One run of a deletion scan: says when to stop, and counts.
struct DeletionRun {
  /// `task` null: there is none to go on in, so the run goes to the end.
  explicit DeletionRun(const Kiv::TimerTask* theTask) : task(theTask), statuses(theTask) {}

  size_t items = 0;
  size_t deletions = 0;
  const Kiv::TimerTask* const task;
  SmallSteps statuses;

  /// To be asked before each entry.
  bool mustStop() const {
    return task && items > 0 && (!task->taskCurrentlyRunning() || task->taskShouldYield());
  }
  /// To be asked before the status of each list, since one without entries takes its time, too.
  bool mustStopBeforeStatus() { return statuses.timeIsUp(); }
};

/// How a run of a walk ended: at the end of what is walked, at a place that is kept for the next run, or
/// because somebody who was told of a deletion has ended the machine.
enum class WalkEnd { complete, yielded, stopped };

/// An output whose part of the status may hold entries of an earlier run. What the inputs have not produced
/// again when they are complete is taken out, in runs of the output's task, and only then is it ready.
class ReconciledOutput : public Output {
 public:
  using Output::Output;

  /// Entries are there that no input may have produced, and it is being noted which ones are produced.
  bool pending() const { return pending_; }
  void pendingIs(bool pending) { pending_ = pending; }
  /// There was a walk, and it is through; what was seen is being forgotten, or is.
  bool wasWalked() const { return wasWalked_; }

  void reconciliationTaskIs(const MachineFrame::Scheduler& scheduler, int priority, const char* name);
  void taskIs(const MachineFrame::Scheduler& scheduler, int priority) override {
    reconciliationTaskIs(scheduler, priority, spec_.taskName);
  }
  void taskDel() override { task_.del(); }
  const MachineTask& task() const { return task_; }

 protected:
  /// Takes out what was not seen, from where the last run stopped.
  virtual WalkEnd walk(DeletionRun& run) = 0;
  /// Forgets what was seen and where the walk stopped; false when time is up.
  virtual bool forget(SmallSteps& steps) = 0;

  /// The walk over one collection, from a key on or from its beginning: takes out with `del(key)` what is not
  /// `seen(key)`, and says with `yieldBefore(key)` where it stopped.
  template <class Map, class Seen, class Del, class YieldBefore>
  WalkEnd deleteUnseen(DeletionRun& run, const Map& map, const typename Map::Key* from, const Seen& seen,
                       const Del& del, const YieldBefore& yieldBefore) {
    for (auto entry = from ? map.from(*from) : map.begin(); entry; entry.next()) {
      const typename Map::Key key = entry.key();
      if (run.mustStop()) {
        yieldBefore(key);
        return WalkEnd::yielded;
      }
      if (!seen(key)) {
        del(key);
        ++run.deletions;
        if (machine_.stopped()) return WalkEnd::stopped;
      }
      ++run.items;
    }
    return WalkEnd::complete;
  }

 private:
  bool reconciled() final;
  bool walked();

  MachineTask task_;
  bool pending_ = false;
  bool wasWalked_ = false;
};

}  // namespace Velo::VeloAcl
