#pragma once

#include <Kelp/Node.h>
#include <Kiv/Clock.h>
#include <Kiv/Task.h>

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

namespace Kiv {

/// Runs tasks between the other work of one event loop. The loop calls turnBegin() when a turn begins, and
/// runTurn() when its other work is done. It may sleep for timeUntilDue().
///
/// A turn runs the tasks that were due when runTurn() was called, each of them at most once: tasks of higher
/// priority first, and among equals the one that was queued first. When the budget of the turn is used up,
/// the running task is told to yield and no other one begins. Of the turns that follow such a turn, every
/// second one begins with the task that has waited longest, so that no task waits for ever. A task that is
/// scheduled during a turn waits for the next one. So a task that schedules itself goes behind all others of
/// its priority, and a turn always ends.
///
/// Delays are counted on one clock, slices and turns on another, which may be the same: a replay takes delays
/// from its capture and slices from real time. With ManualClocks the order of runs is repeatable. Clocks are
/// not owned. The scheduler is held by its tasks; make it with MemSlab::make. For one thread.
class TaskScheduler final : public Kelp::Node {
 public:
  static constexpr Kelp::Duration defaultSlice{0.001};
  static constexpr Kelp::Duration defaultTurnBudget{0.002};

  explicit TaskScheduler(const Clock& clock = steadyClock());
  ~TaskScheduler() override;

  /// The task with that name, made when there is none. One that exists gets the priority, and queues behind
  /// the tasks of that priority.
  Kelp::Ptr<TimerTask> taskIs(int priority, const Kelp::String& name);

  /// Replaces the clock of delays; pending delays keep what is left of them.
  void clockIs(const Clock& clock);
  /// Replaces the clock of slices and turns; the current turn starts over. Not from within a task.
  void sliceClockIs(const Clock& clock);
  /// How long a task may run before taskShouldYield() says so. Not from within a task.
  void sliceIs(Kelp::Duration slice) { slice_ = slice; }
  /// How long all tasks of a turn may run together; the first one begins in any case. Not from within a task.
  void turnBudgetIs(Kelp::Duration budget) { turnBudget_ = budget; }

  /// Starts a turn of the loop, which lasts until the next one starts.
  void turnBegin();
  /// How long ago the turn started.
  Kelp::Duration turnAge() const { return sliceClock_->now() - turnStart_; }
  /// Runs the due tasks; starts a turn if turnBegin() was not called since the last run. `used`: how much of
  /// the budget other work of the loop has taken. Returns how many tasks ran. Not from within a task.
  size_t runTurn(Kelp::Duration used = Kelp::Duration());
  /// The same for the first due task only; false when there is none.
  bool runOne();

  /// The time until the next run is due, on the clock of delays: zero when one is due already, nothing when
  /// none is scheduled.
  std::optional<Kelp::Duration> timeUntilDue() const;
  const Task* runningTask() const { return running_; }
  /// Calls `visit` for every task that somebody holds, in no particular order; it makes and drops none.
  void forEachTask(const std::function<void(const TimerTask&)>& visit) const {
    for (const auto& [name, task] : byName_) visit(*task);
  }

 private:
  friend class Task;
  // Higher priority first, then in the order of queueing.
  struct ReadyKey {
    int priority;
    uint64_t order;
    bool operator<(const ReadyKey& other) const {
      return priority != other.priority ? priority > other.priority : order < other.order;
    }
  };
  using DelayedKey = std::pair<Kelp::Duration, uint64_t>;

  void enqueue(Task& task);
  void enqueueDelayed(Task& task, Kelp::Duration due);
  void dequeue(Task& task);
  bool sliceUsedUp(const Task& task) const;
  void takeDue();
  /// Of the ready tasks that were queued before: the first, and the one that was queued first.
  Task* nextBefore(uint64_t order) const;
  Task* oldestBefore(uint64_t order) const;
  void prepareRuns();
  void run(Task& task, Kelp::Duration end);

  const Clock* clock_;
  const Clock* sliceClock_;
  Kelp::Duration slice_ = defaultSlice;
  Kelp::Duration turnBudget_ = defaultTurnBudget;

  std::unordered_map<Kelp::String, TimerTask*> byName_;
  std::map<ReadyKey, Task*> ready_;
  std::map<DelayedKey, Task*> delayed_;
  uint64_t nextOrder_ = 0;

  Task* running_ = nullptr;
  Kelp::Duration runEnd_;  ///< when the running task should yield
  Kelp::Duration turnStart_;
  bool turnBegun_ = false;
  bool oldestFirst_ = false;  ///< the next turn begins with the task that was queued first
};

/// The process-wide default scheduler.
class TaskSchedulerRoot {
 public:
  /// Makes it when there is none. It lives as long as somebody holds it; the program's event loop does.
  static Kelp::Ptr<TaskScheduler> findOrCreateScheduler();
};

/// Debugging: while on, every taskShouldYield() is true. Initially on when the environment has
/// VELO_ALWAYS_YIELD=1.
bool alwaysYield();
void alwaysYieldIs(bool on);

}  // namespace Kiv
