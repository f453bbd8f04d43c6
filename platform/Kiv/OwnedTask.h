#pragma once

#include <Kiv/TaskScheduler.h>

#include <functional>
#include <utility>

namespace Kiv {

/// A task with the callback of this object's owner. The callback goes with this object: whatever was
/// scheduled does not call it any more. Others may have the same task, and keep it with what is scheduled.
class OwnedTask {
 public:
  /// None yet.
  OwnedTask() = default;
  /// A task of the process's scheduler.
  OwnedTask(int priority, const Kelp::String& name, std::function<void()> dispatch) {
    is(TaskSchedulerRoot::findOrCreateScheduler(), priority, name, std::move(dispatch));
  }
  OwnedTask(const OwnedTask&) = delete;
  OwnedTask& operator=(const OwnedTask&) = delete;
  ~OwnedTask() { del(); }

  /// The task of this name, in place of the one before.
  void is(const Kelp::Ptr<TaskScheduler>& scheduler, int priority, const Kelp::String& name,
          std::function<void()> dispatch) {
    const Kelp::Ptr<TimerTask> before = std::exchange(task_, scheduler->taskIs(priority, name));
    if (before && before != task_) before->dispatchDel(this);
    task_->dispatchIs(std::move(dispatch), this);
  }
  void del() {
    if (!task_) return;
    task_->dispatchDel(this);
    task_ = nullptr;
  }
  const Kelp::Ptr<TimerTask>& get() const { return task_; }
  explicit operator bool() const { return static_cast<bool>(task_); }
  TimerTask* operator->() const { return task_.get(); }

 private:
  Kelp::Ptr<TimerTask> task_;
};

}  // namespace Kiv
