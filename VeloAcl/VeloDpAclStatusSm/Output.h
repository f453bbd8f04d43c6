#pragma once

#include <Kiv/TaskScheduler.h>
#include <VeloAcl/VeloDpAclStatusSm/OutputKeys.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanState.h>

#include <functional>
#include <initializer_list>
#include <optional>
#include <string_view>
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

/// What one output waits for: a row of the machine's table of outputs.
struct OutputSpec {
  using Flag = const bool& (InputSmScanState::*)() const;

  std::string_view name;
  const bool& (OutputState::*ready)() const;
  bool (OutputState::*readyIs)(bool);
  std::vector<Flag> scans;    ///< the scans that feed it
  bool afterRuleIds = false;  ///< the rule-id index must be ready
  bool afterPolls = false;    ///< every poll must have completed the pass last asked of it (but in a machine
                              ///< without tasks)
  bool tracesHandler = false;
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
};

/// One that writes into the status itself.
template <class Key>
struct KeyedOutput : ReconciledOutputBase {
  using ReconciledOutputBase::ReconciledOutputBase;
  SeenSet<Key> seen;
  std::optional<Key> resumeKey;
  void forget() {
    seen.clear();
    resumeKey.reset();
  }
};

/// One that writes into the status of each list.
template <class Key>
struct PerStatusOutput : ReconciledOutputBase {
  using ReconciledOutputBase::ReconciledOutputBase;
  PtrSeenMap<Key> ptrSeen;
  size_t resumeStatus = 0;
  std::optional<Key> resumeKey;
  void forget() {
    ptrSeen.clear();
    resumeKey.reset();
    resumeStatus = 0;
  }
};

/// One run of a deletion scan: says when to stop, and counts.
struct DeletionRun {
  size_t items = 0;
  size_t deletions = 0;
  bool mayStop = false;  ///< there is a task to go on in
  const Kiv::TimerTask* task = nullptr;

  /// To be asked before each entry.
  bool mustStop() const {
    return mayStop && items > 0 && (!task->taskCurrentlyRunning() || task->taskShouldYield());
  }
};

}  // namespace Velo::VeloAcl
