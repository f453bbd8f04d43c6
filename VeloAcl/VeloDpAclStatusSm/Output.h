#pragma once

#include <Kiv/TaskScheduler.h>
#include <VeloAcl/VeloDpAclStatusSm/OutputKeys.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanState.h>
#include <fmt/format.h>

#include <functional>
#include <initializer_list>
#include <optional>
#include <vector>

namespace Velo::VeloAcl {

/// A task with the machine as its user: taken away from the scheduler when it is deleted.
class MachineTask {
 public:
  MachineTask() = default;
  MachineTask(const MachineTask&) = delete;
  MachineTask& operator=(const MachineTask&) = delete;
  ~MachineTask() { del(); }

  void is(const Kelp::Ptr<Kiv::TaskScheduler>& scheduler, int priority, const char* name,
          std::function<void()> dispatch) {
    task_ = scheduler->taskIs(priority, name);
    task_->dispatchIs(std::move(dispatch), this);
  }
  void del() {
    if (!task_) return;
    task_->dispatchDel(this);
    task_ = nullptr;
  }
  const Kelp::Ptr<Kiv::TimerTask>& get() const { return task_; }
  explicit operator bool() const { return static_cast<bool>(task_); }
  Kiv::TimerTask* operator->() const { return task_.get(); }

 private:
  Kelp::Ptr<Kiv::TimerTask> task_;
};

/// What one output waits for and traces: a row of the machine's table of outputs.
struct OutputSpec {
  using Flag = const bool& (InputSmScanState::*)() const;

  const char* handlerText = nullptr;  ///< what its handler traces first, if anything
  const char* completeText;
  fmt::format_string<bool> reconcilingText = "";  ///< of a reconciled one
  const bool& (OutputState::*ready)() const;
  bool (OutputState::*readyIs)(bool);
  std::vector<Flag> scans;    ///< the scans that feed it
  bool afterRuleIds = false;  ///< the rule-id index must be ready
  bool afterPolls = false;    ///< every poll must have completed the pass last asked of it (but in a machine
                              ///< without tasks)
};

struct OutputBase {
  explicit OutputBase(OutputSpec theSpec) : spec(std::move(theSpec)) {}
  const OutputSpec spec;
};

/// An output whose collection may hold entries of an earlier run.
struct ReconciledOutputBase : OutputBase {
  using OutputBase::OutputBase;
  MachineTask task;
  bool pending = false;  ///< entries are there that no input may have produced; the seen set is in use
  bool resume = false;
  bool walked = false;  ///< the deletion scan is through; the seen set is being emptied, or is empty
};

/// One that writes into the status itself.
template <class Key>
struct KeyedOutput : ReconciledOutputBase {
  using ReconciledOutputBase::ReconciledOutputBase;
  SeenSet<Key> seen;
  std::optional<Key> resumeKey;

  void placeReset() { resumeKey.reset(); }
  template <class Stop>
  bool forgetSeen(const Stop& stop) {
    return seen.forget(stop);
  }
};

/// One that writes into the status of each list.
template <class Key>
struct PerStatusOutput : ReconciledOutputBase {
  using ReconciledOutputBase::ReconciledOutputBase;
  PtrSeenMap<Key> ptrSeen;
  size_t resumeStatus = 0;
  std::optional<Key> resumeKey;  ///< in that status; none: from its beginning

  void placeReset() {
    resumeKey.reset();
    resumeStatus = 0;
  }
  template <class Stop>
  bool forgetSeen(const Stop& stop) {
    return ptrSeen.forget(stop);
  }
};

/// Asks whether time is up behind so many of the steps that are so small that a look at the clock is none of
/// them.
class SmallSteps {
 public:
  /// `task` null: there is none to go on in, so time is never up.
  explicit SmallSteps(const Kiv::TimerTask* task) : task_(task) {}
  bool timeIsUp() { return task_ && ++steps_ % stepsBetweenLooks == 0 && task_->taskShouldYield(); }

 private:
  static constexpr size_t stepsBetweenLooks = 64;
  const Kiv::TimerTask* const task_;
  size_t steps_ = 0;
};

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

}  // namespace Velo::VeloAcl
