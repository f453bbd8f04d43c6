#include <Kelp/Assert.h>
#include <Kiv/TaskScheduler.h>
#include <MemSlab/Slab.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace Kiv {

namespace {

bool askedToAlwaysYield() {
  const char* value = std::getenv("VELO_ALWAYS_YIELD");
  return value && std::string_view(value) == "1";
}

bool alwaysYieldOn = askedToAlwaysYield();
TaskScheduler* defaultScheduler = nullptr;

}  // namespace

bool alwaysYield() { return alwaysYieldOn; }
void alwaysYieldIs(bool on) { alwaysYieldOn = on; }

Kelp::Ptr<TaskScheduler> TaskSchedulerRoot::findOrCreateScheduler() {
  if (defaultScheduler) return Kelp::Ptr<TaskScheduler>(defaultScheduler);
  auto made = MemSlab::make<TaskScheduler>();
  defaultScheduler = made.get();
  return made;
}

TaskScheduler::TaskScheduler(const Clock& clock)
    : clock_(&clock), sliceClock_(&clock), turnStart_(clock.now()) {}

TaskScheduler::~TaskScheduler() {
  if (defaultScheduler == this) defaultScheduler = nullptr;
}

Kelp::Ptr<TimerTask> TaskScheduler::taskIs(int priority, const Kelp::String& name) {
  if (auto known = byName_.find(name); known != byName_.end()) {
    TimerTask& task = *known->second;
    if (task.priority_ != priority) {
      const bool wasReady = task.queue_ == Task::Queue::ready;
      if (wasReady) dequeue(task);
      task.priority_ = priority;
      if (wasReady) enqueue(task);
    }
    return Kelp::Ptr<TimerTask>(&task);
  }
  auto made = MemSlab::make<TimerTask>(Kelp::Ptr<TaskScheduler>(this), priority, name);
  byName_.emplace(name, made.get());
  return made;
}

void TaskScheduler::clockIs(const Clock& clock) {
  const Kelp::Duration before = clock_->now(), now = clock.now();
  clock_ = &clock;
  std::map<DelayedKey, Task*> shifted;
  for (auto& [key, task] : delayed_) {
    task->due_ = now.later(key.first - before);
    shifted.emplace_hint(shifted.end(), DelayedKey(task->due_, key.second), task);
  }
  delayed_ = std::move(shifted);
}

void TaskScheduler::sliceClockIs(const Clock& clock) {
  sliceClock_ = &clock;
  turnStart_ = clock.now();
}

void TaskScheduler::turnBegin() {
  turnStart_ = sliceClock_->now();
  turnBegun_ = true;
}

void TaskScheduler::enqueue(Task& task) {
  dequeue(task);
  task.queue_ = Task::Queue::ready;
  task.order_ = nextOrder_++;
  ready_.emplace(ReadyKey{task.priority_, task.order_}, &task);
}

void TaskScheduler::enqueueDelayed(Task& task, Kelp::Duration due) {
  if (task.queue_ == Task::Queue::delayed && task.due_ <= due) return;
  dequeue(task);
  task.queue_ = Task::Queue::delayed;
  task.order_ = nextOrder_++;
  task.due_ = due;
  delayed_.emplace(DelayedKey(due, task.order_), &task);
}

void TaskScheduler::dequeue(Task& task) {
  switch (std::exchange(task.queue_, Task::Queue::none)) {
    case Task::Queue::none:
      break;
    case Task::Queue::ready:
      ready_.erase(ReadyKey{task.priority_, task.order_});
      break;
    case Task::Queue::delayed:
      delayed_.erase(DelayedKey(task.due_, task.order_));
      break;
  }
}

bool TaskScheduler::sliceUsedUp(const Task& task) const {
  return sliceClock_->now() >= (running_ == &task ? runEnd_ : turnStart_ + std::min(slice_, turnBudget_));
}

void TaskScheduler::takeDue() {
  if (delayed_.empty()) return;
  const Kelp::Duration now = clock_->now();
  while (!delayed_.empty() && delayed_.begin()->first.first <= now) enqueue(*delayed_.begin()->second);
}

Task* TaskScheduler::nextBefore(uint64_t order) const {
  for (auto& [key, task] : ready_) {
    if (key.order < order) return task;
  }
  return nullptr;
}

Task* TaskScheduler::oldestBefore(uint64_t order) const {
  Task* oldest = nullptr;
  for (auto& [key, task] : ready_) {
    if (key.order < order && (!oldest || task->order_ < oldest->order_)) oldest = task;
  }
  return oldest;
}

void TaskScheduler::prepareRuns() {
  KELP_ASSERT(running_ == nullptr, "a turn was started from within a task");
  if (!turnBegun_) turnBegin();
  takeDue();
}

void TaskScheduler::run(Task& task, Kelp::Duration end) {
  runEnd_ = end;
  dequeue(task);
  running_ = &task;
  task.run();
  running_ = nullptr;
}

size_t TaskScheduler::runTurn(Kelp::Duration used) {
  // A task may drop the last other reference to its scheduler.
  const Kelp::Ptr<TaskScheduler> self(this);
  prepareRuns();
  const uint64_t last = nextOrder_;
  const Kelp::Duration end = sliceClock_->now() + turnBudget_ - used;
  const bool oldestFirst = std::exchange(oldestFirst_, false);
  size_t runs = 0;
  for (;; ++runs) {
    const Kelp::Ptr<Task> task(runs == 0 && oldestFirst ? oldestBefore(last) : nextBefore(last));
    if (!task) break;
    const Kelp::Duration now = sliceClock_->now();
    if (runs > 0 && now >= end) {
      oldestFirst_ = !oldestFirst;
      break;
    }
    run(*task, std::min(now + slice_, end));
  }
  turnBegun_ = false;
  return runs;
}

bool TaskScheduler::runOne() {
  const Kelp::Ptr<TaskScheduler> self(this);
  prepareRuns();
  const Kelp::Ptr<Task> task(nextBefore(nextOrder_));
  if (task) run(*task, sliceClock_->now() + slice_);
  turnBegun_ = false;
  return task != nullptr;
}

std::optional<Kelp::Duration> TaskScheduler::timeUntilDue() const {
  if (!ready_.empty()) return Kelp::Duration();
  if (delayed_.empty()) return std::nullopt;
  return std::max(Kelp::Duration(), delayed_.begin()->first.first - clock_->now());
}

}  // namespace Kiv
