#pragma once

#include <Kelp/Duration.h>
#include <Kelp/Ptr.h>
#include <Kelp/String.h>

#include <cstdint>
#include <functional>

namespace Kiv {

class TaskScheduler;

/// A cooperatively scheduled unit of work: when it is scheduled, its scheduler runs its dispatch callback
/// once, later, on the event-loop thread. Made by TaskScheduler::taskIs, which gives every user of one name
/// the same task; the users own it together, the scheduler does not own it. The last Ptr that goes takes the
/// task out of the queue; a task dropped within its own run lives to the end of that run.
///
/// A dispatch may schedule, cancel, drop or make any task, its own included. An exception that escapes it
/// ends the process.
class Task : public Kelp::Node {
 public:
  const Kelp::String& name() const { return name_; }
  int priority() const { return priority_; }
  const Kelp::Ptr<TaskScheduler>& scheduler() const { return scheduler_; }

  /// Sets what a run does, in place of what was set before; from within a run it holds from the next run on.
  /// `owner` is for dispatchDel only and is never read through.
  void dispatchIs(std::function<void()> dispatch, const void* owner = nullptr);
  /// Takes the callback away if it was set by `owner`: of two users of one task, the one that goes first does
  /// not silence the other. A run without a callback does nothing.
  void dispatchDel(const void* owner);

  /// Asks for a run in the next turn, behind what is queued with the same priority. Asking again before it
  /// begins changes nothing; asking from within a run asks for another one. A delay still pending ends.
  void scheduleTask();
  /// Takes back a run that was asked for, delayed or not, and has not begun.
  void cancelTask();
  /// True while a run, delayed or not, is asked for and has not begun.
  bool taskWorkQueued() const { return queue_ != Queue::none; }

  /// True when the time is used up: within the task's own run that run's slice or the turn's budget, anywhere
  /// else as much since the current turn of the loop began. Always true while alwaysYield() holds. One clock
  /// read; meant to be asked once an item.
  bool taskShouldYield() const;
  /// True within the task's own run.
  bool taskCurrentlyRunning() const;

  /// Diagnostics: items done since the task was made, and items that its user last reported as waiting.
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

  /// Asks for a run in the first turn that begins `delay` or more from now; zero or less is scheduleTask().
  /// Of several requests the earliest counts: nothing asked for is put off, unless cancelTask() comes first.
  void scheduleTaskDelay(Kelp::Duration delay) { scheduleAfter(delay); }
};

}  // namespace Kiv
