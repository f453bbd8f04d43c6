#pragma once

#include <Kiv/TaskScheduler.h>
#include <Rix/InReactor.h>

#include <optional>

namespace Agent {

/// Runs the tasks of the process between the agent's other work. Delays are counted on a clock of the agent's
/// choice, a capture's for instance; time slices on real time.
class TaskLoop {
 public:
  /// `clock` outlives this object, and this object whatever uses tasks. `turnBudget` is what the tasks of a
  /// turn have together.
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
  /// Until the next task is due, zero when one is; nothing when none is asked for.
  std::optional<Kelp::Duration> timeUntilDue() const { return scheduler_->timeUntilDue(); }
  /// A turn of the loop may begin with other work, of which age() tells how long it has taken.
  void turnBegin() { scheduler_->turnBegin(); }
  Kelp::Duration age() const { return scheduler_->turnAge(); }
  /// Runs what is due within the turn's budget, `used` of which other work has taken.
  void turn(Kelp::Duration used = Kelp::Duration()) {
    scheduler_->runTurn(used);
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
