#include <Kelp/Assert.h>
#include <Kiv/TaskScheduler.h>

#include <exception>
#include <string>
#include <utility>

namespace Kiv {

Task::Task(Kelp::Ptr<TaskScheduler> scheduler, int priority, Kelp::String name)
    : scheduler_(std::move(scheduler)), name_(std::move(name)), priority_(priority) {
  KELP_ASSERT(scheduler_ != nullptr, "a task needs a scheduler");
}

TimerTask::TimerTask(Kelp::Ptr<TaskScheduler> scheduler, int priority, Kelp::String name)
    : Task(std::move(scheduler), priority, std::move(name)) {}

Task::~Task() {
  scheduler_->byName_.erase(name_);
  // Objects that the callback has captured are destroyed with it. They may ask for a task of this name, or
  // schedule this one.
  dispatch_ = nullptr;
  scheduler_->dequeue(*this);
}

void Task::dispatchIs(std::function<void()> dispatch, const void* owner) {
  std::swap(dispatch_, dispatch);
  owner_ = owner;
  dispatchReplaced_ = true;
}

void Task::dispatchDel(const void* owner) {
  if (owner_ == owner) dispatchIs(nullptr);
}

void Task::scheduleTask() {
  if (queue_ != Queue::ready) scheduler_->enqueue(*this);
}

void Task::cancelTask() { scheduler_->dequeue(*this); }

void Task::scheduleAfter(Kelp::Duration delay) {
  if (!(delay > Kelp::Duration())) return scheduleTask();
  if (queue_ != Queue::ready) scheduler_->enqueueDelayed(*this, scheduler_->clock_->now().later(delay));
}

bool Task::taskShouldYield() const { return alwaysYield() || scheduler_->sliceUsedUp(*this); }

bool Task::taskCurrentlyRunning() const { return scheduler_->runningTask() == this; }

void Task::run() {
  if (!dispatch_) return;
  // Moved out of the member while it runs, because the callback may replace itself.
  std::function<void()> running = std::exchange(dispatch_, nullptr);
  dispatchReplaced_ = false;
  std::string escaped;
  try {
    running();
  } catch (const std::exception& error) {
    escaped = error.what();
    if (escaped.empty()) escaped = "of no text";
  } catch (...) {
    escaped = "of unknown type";
  }
  KELP_ASSERT(escaped.empty(), "an exception escaped task \"" + name_.str() + "\": " + escaped);
  if (!dispatchReplaced_) dispatch_ = std::move(running);
}

}  // namespace Kiv
