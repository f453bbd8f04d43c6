#pragma once

#include <Kiv/TaskScheduler.h>
#include <MemSlab/Slab.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

/// A scheduler whose delays and slices follow one clock that the test moves by hand, and a log of who ran.
class SchedulerFixture : public testing::Test {
 protected:
  using Duration = Kelp::Duration;
  using TaskPtr = Kelp::Ptr<Kiv::TimerTask>;

  void SetUp() override {
    Kiv::alwaysYieldIs(false);
    scheduler_->sliceIs(Duration(1));
    scheduler_->turnBudgetIs(Duration(3));
  }
  void TearDown() override {
    scheduler_ = nullptr;
    Kiv::alwaysYieldIs(alwaysYielded_);
    EXPECT_EQ(MemSlab::slabOf<Kiv::TimerTask>().liveCount(), 0u);
    EXPECT_EQ(MemSlab::slabOf<Kiv::TaskScheduler>().liveCount(), 0u);
  }

  /// A task that logs its name when it runs, and then does `body`.
  TaskPtr task(const char* name, int priority = 0, std::function<void()> body = {}) {
    TaskPtr made = scheduler_->taskIs(priority, name);
    made->dispatchIs([this, name = std::string(name), run = std::move(body)] {
      log_ += name;
      if (run) run();
    });
    return made;
  }
  /// Who ran since the last call.
  std::string ran() { return std::exchange(log_, {}); }
  std::string turn() {
    scheduler_->runTurn();
    return ran();
  }

  Kiv::ManualClock clock_{Duration(1000)};
  Kelp::Ptr<Kiv::TaskScheduler> scheduler_ = MemSlab::make<Kiv::TaskScheduler>(clock_);
  std::string log_;

 private:
  const bool alwaysYielded_ = Kiv::alwaysYield();
};
