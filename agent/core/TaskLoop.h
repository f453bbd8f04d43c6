#pragma once

#include <Kiv/TaskScheduler.h>
#include <Rix/InReactor.h>

#include <optional>

namespace Agent {

/// Runs the tasks of the process between the agent's other work. Delays are counted on a clock that is given,
/// for instance one that follows the time stamps of a capture; time slices are counted in real time.
class TaskLoop {
 public:
  /// `clock` outlives this object, and this object outlives everything that uses tasks. `turnBudget`: the
  /// time that all tasks of a turn have together.
  explicit TaskLoop(const Kiv::Clock& clock,
                    Kelp::Duration turnBudget = Kiv::TaskScheduler::defaultTurnBudget)
      : scheduler_(Kiv::TaskSchedulerRoot::findOrCreateScheduler()) {
    scheduler_->clockIs(clock);
    scheduler_->turnBudgetIs(turnBudget);
  }
  ~TaskLoop() {
    scheduler_->clockIs(Kiv::steadyClock());
    scheduler_->turnBudgetIs(Kiv::TaskScheduler::defaultTurnBudget);
  }
  TaskLoop(const TaskLoop&) = delete;
  TaskLoop& operator=(const TaskLoop&) = delete;

  bool due() const {
    const auto wait = scheduler_->timeUntilDue();
    return wait && *wait <= Kelp::Duration();
  }
  /// The time until the next task is due, zero when one is; nothing when no task is scheduled.
  std::optional<Kelp::Duration> timeUntilDue() const { return scheduler_->timeUntilDue(); }
  /// Call this when a turn of the loop begins; age() then tells how long the other work has taken.
  void turnBegin() { scheduler_->turnBegin(); }
  Kelp::Duration age() const { return scheduler_->turnAge(); }
  /// Runs due tasks within the budget of the turn, of which other work has taken `used`.
  void turn(Kelp::Duration used = Kelp::Duration()) {
    scheduler_->runTurn(used);
    Rix::Gen::zebDoZombieReactors();
  }
  /// Runs tasks until none is due. The clock is not advanced.
  void settle() {
    while (due()) turn();
  }

 private:
  const Kelp::Ptr<Kiv::TaskScheduler> scheduler_;
};

}  // namespace Agent
