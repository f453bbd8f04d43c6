#pragma once

#include <Kiv/TaskScheduler.h>
#include <Rix/InReactor.h>

#include <optional>

namespace Agent {

/// Runs the tasks of the process between the agent's other work. Delays are counted on a clock of the agent's
/// choice, a capture's for instance; time slices on real time.
class TaskLoop {
 public:
  /// `clock` outlives this object, and this object whatever uses tasks.
  explicit TaskLoop(const Kiv::Clock& clock) : scheduler_(Kiv::TaskSchedulerRoot::findOrCreateScheduler()) {
    scheduler_->clockIs(clock);
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
  /// Until the next task is due, zero when one is; nothing when none is asked for.
  std::optional<Kelp::Duration> timeUntilDue() const { return scheduler_->timeUntilDue(); }
  /// One turn of the loop: runs what is due within the budget. Of one that is used up before, the first task
  /// still gets as much as it does between two looks at the clock.
  void turn(Kelp::Duration budget = Kiv::TaskScheduler::defaultTurnBudget) {
    scheduler_->turnBudgetIs(budget);
    scheduler_->turnBegin();
    scheduler_->runTurn();
    Rix::Gen::zebDoZombieReactors();
  }
  /// Runs until nothing is due any more without the clock going on.
  void settle() {
    while (due()) turn();
  }

 private:
  const Kelp::Ptr<Kiv::TaskScheduler> scheduler_;
};

}  // namespace Agent
