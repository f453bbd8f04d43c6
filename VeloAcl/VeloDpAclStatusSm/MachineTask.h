#pragma once

#include <Kiv/TaskScheduler.h>

#include <functional>

namespace Velo::VeloAcl {

/// A task that the machine uses. When it is deleted, its callback is removed, too.
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

/// Asks a task whether its time is up, once in many steps: the steps are so small that reading a clock takes
/// longer.
class SmallSteps {
 public:
  /// `task` null: the work cannot continue in a task later, so time is never up.
  explicit SmallSteps(const Kiv::TimerTask* task) : task_(task) {}
  bool timeIsUp() { return task_ && ++steps_ % stepsBetweenLooks == 0 && task_->taskShouldYield(); }

 private:
  static constexpr size_t stepsBetweenLooks = 64;
  const Kiv::TimerTask* const task_;
  size_t steps_ = 0;
};

}  // namespace Velo::VeloAcl
