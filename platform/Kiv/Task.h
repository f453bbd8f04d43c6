#pragma once

#include <Kelp/Duration.h>
#include <Kelp/Ptr.h>
#include <Kelp/String.h>

#include <cstdint>
#include <functional>

namespace Kiv {

class TaskScheduler;

/// A unit of work that is scheduled cooperatively: after it was scheduled, its scheduler calls its dispatch
/// callback once, on the event-loop thread. TaskScheduler::taskIs makes tasks, and gives the same task to all
/// users of one name. The users own it together; the scheduler does not own it. When the last Ptr goes, the
/// task leaves the queue; a task that is dropped within its own run lives to the end of that run.
///
/// A dispatch callback may schedule, cancel, drop or make any task, also its own. An exception that leaves it
/// ends the process.
class Task : public Kelp::Node {
 public:
  const Kelp::String& name() const { return name_; }
  int priority() const { return priority_; }
  const Kelp::Ptr<TaskScheduler>& scheduler() const { return scheduler_; }

  /// Sets the callback of the task, in place of the one before; within a run, for the next run. `owner` is
  /// only compared in dispatchDel().
  void dispatchIs(std::function<void()> dispatch, const void* owner = nullptr);
  /// Removes the callback if `owner` has set it: when two users share a task, the one that goes first does
  /// not remove the callback of the other. A run without a callback does nothing.
  void dispatchDel(const void* owner);

  /// Schedules a run in the next turn, behind the tasks that are queued with the same priority. A second call
  /// before the run begins changes nothing; a call within a run schedules another one. It replaces a delay.
  void scheduleTask();
  /// Cancels a scheduled run, delayed or not, that has not begun.
  void cancelTask();
  /// True while a run is scheduled, delayed or not, and has not begun.
  bool taskWorkQueued() const { return queue_ != Queue::none; }

  /// True when the time is used up. Within the task's own run: the slice of the run, or the budget of the
  /// turn. Elsewhere: as much time since the current turn of the loop began. Always true while alwaysYield()
  /// holds. Reads a clock once; meant to be asked once for each item.
  bool taskShouldYield() const;
  /// True within the task's own run.
  bool taskCurrentlyRunning() const;

  /// For diagnostics: how many items were done since the task was made, and how many are waiting as its user
  /// says.
  void taskWorkCountInc(uint64_t items) { workCount_ += items; }
  void taskWorkPendingIs(uint64_t items) { workPending_ = items; }
  uint64_t taskWorkCount() const { return workCount_; }
  uint64_t taskWorkPending() const { return workPending_; }

 protected:
  Task(Kelp::Ptr<TaskScheduler> scheduler, int priority, Kelp::String name);
  ~Task() override;

  void scheduleAfter(Kelp::Duration delay);

 private:
  friend class TaskScheduler;
  enum class Queue : uint8_t { none, ready, delayed };

  void run();

  const Kelp::Ptr<TaskScheduler> scheduler_;
  const Kelp::String name_;
  uint64_t workCount_ = 0;
  uint64_t workPending_ = 0;

  std::function<void()> dispatch_;
  const void* owner_ = nullptr;
  bool dispatchReplaced_ = false;

  // Changed by the scheduler only; together they are the task's place in its queue.
  int priority_;
  Queue queue_ = Queue::none;
  uint64_t order_ = 0;
  Kelp::Duration due_;
};

/// A task that can also be asked to run after a delay.
class TimerTask final : public Task {
 public:
  /// For TaskScheduler::taskIs, which keeps names unique.
  TimerTask(Kelp::Ptr<TaskScheduler> scheduler, int priority, Kelp::String name);

  /// Schedules a run in the first turn that begins `delay` or more from now; zero or less is scheduleTask().
  /// Of several calls the earliest time counts: a call never delays a scheduled run.
  void scheduleTaskDelay(Kelp::Duration delay) { scheduleAfter(delay); }
};

}  // namespace Kiv
