#pragma once

#include <Kiv/TaskScheduler.h>

#include <functional>

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

}  // namespace Velo::VeloAcl
