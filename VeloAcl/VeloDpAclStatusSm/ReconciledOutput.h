#pragma once

#include <Kiv/OwnedTask.h>
#include <VeloAcl/VeloDpAclStatusSm/Output.h>
#include <VeloAcl/VeloDpAclStatusSm/SmallSteps.h>

namespace Velo::VeloAcl {

/// One run of a deletion scan. It counts, and says when to stop.
struct DeletionRun {
  /// `task` null: the scan cannot continue in a task later, so the run goes to the end.
  explicit DeletionRun(const Kiv::TimerTask* theTask) : task(theTask), statuses(theTask) {}

  size_t items = 0;
  size_t deletions = 0;
  const Kiv::TimerTask* const task;
  SmallSteps statuses;

  /// To be called before each entry.
  bool mustStop() const {
    return task && items > 0 && (!task->taskCurrentlyRunning() || task->taskShouldYield());
  }
  /// To be called before the status of each list: one without entries takes time, too.
  bool mustStopBeforeStatus() { return statuses.timeIsUp(); }
};

/// An output whose part of the status may have entries of an earlier run. When the inputs are complete, it
/// deletes the entries that they have not produced again, in runs of its task. Only then is it ready.
class ReconciledOutput : public Output {
 public:
  using Output::Output;

  /// Whether there are entries that the inputs may not produce. While it is true, the keys of entries that
  /// are produced are noted.
  bool pending() const { return pending_; }
  void pendingIs(bool pending) { pending_ = pending; }
  /// Whether there was a walk and it has ended. What was seen is forgotten after that.
  bool wasWalked() const { return wasWalked_; }

  void reconciliationTaskIs(const MachineFrame::Scheduler& scheduler, int priority, const char* name);
  void taskIs(const MachineFrame::Scheduler& scheduler, int priority) override {
    reconciliationTaskIs(scheduler, priority, spec_.taskName);
  }
  void taskDel() override { task_.del(); }
  const Kiv::OwnedTask& task() const { return task_; }

 protected:
  /// Deletes entries that were not seen, from where the last run has stopped.
  virtual RunEnd walk(DeletionRun& run) = 0;
  /// Forgets what was seen, and where the walk has stopped.
  virtual RunEnd forget(SmallSteps& steps) = 0;

  /// Walks one collection, from a key on or from its beginning. Calls del(key) for each entry that is not
  /// seen(key), and yieldBefore(key) where it stops.
  template <class Map, class Seen, class Del, class YieldBefore>
  RunEnd deleteUnseen(DeletionRun& run, const Map& map, const typename Map::Key* from, const Seen& seen,
                      const Del& del, const YieldBefore& yieldBefore) {
    for (auto entry = from ? map.from(*from) : map.begin(); entry; entry.next()) {
      const typename Map::Key key = entry.key();
      if (run.mustStop()) {
        yieldBefore(key);
        return RunEnd::yielded;
      }
      if (!seen(key)) {
        del(key);
        ++run.deletions;
        if (machine_.stopped()) return RunEnd::stopped;
      }
      ++run.items;
    }
    return RunEnd::complete;
  }

 private:
  RunEnd reconcile() final;
  RunEnd walkOnce();

  Kiv::OwnedTask task_;
  bool pending_ = false;
  bool wasWalked_ = false;
};

}  // namespace Velo::VeloAcl
