#pragma once

#include <Kiv/Task.h>

#include <cstddef>

namespace Velo::VeloAcl {

/// Asks a task whether its time is up, once in many steps: the steps are so small that reading a clock takes
/// longer.
class SmallSteps {
 public:
  /// `task` null: the work cannot continue in a task later, so time is never up.
  explicit SmallSteps(const Kiv::TimerTask* task) : task_(task) {}
  bool timeIsUp() { return task_ && ++steps_ % stepsBetweenLooks == 0 && task_->taskShouldYield(); }

 private:
  static constexpr size_t stepsBetweenLooks = 64;
  const Kiv::TimerTask* const task_;
  size_t steps_ = 0;
};

}  // namespace Velo::VeloAcl
