#include <Kiv/TaskScheduler.h>
#include <MemSlab/Slab.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

/// Tasks that schedule, delay, cancel, drop and remake each other and themselves from within their runs, in
/// an order that a seed decides.
class Crowd {
 public:
  explicit Crowd(unsigned seed) : random_(seed) {}

  std::string run(int turns) {
    for (int i = 0; i < count; ++i) make(i);
    for (int i = 0; i < turns; ++i) {
      scheduler_->runTurn();
      log_ += '.';
      clock_.advance(Kelp::Duration(0.5));
      act();
    }
    return log_;
  }

 private:
  static constexpr int count = 12;

  void make(int i) {
    const int priority = static_cast<int>(random_() % 3);
    tasks_[i] = scheduler_->taskIs(priority, std::string(1, static_cast<char>('a' + i)));
    // A task dropped within its run goes, with the run that it had asked for, unless it is remade before the
    // end.
    if (tasks_[i]->taskWorkCount() == 0) asked_[i] = false;
    tasks_[i]->taskWorkCountInc(1);
    tasks_[i]->dispatchIs([this, i] { ran(i); });
  }
  void ran(int i) {
    EXPECT_TRUE(asked_[i]) << "a run that nobody asked for";
    asked_[i] = false;
    log_ += static_cast<char>('a' + i);
    for (int n = 0; n < 3; ++n) act();
  }
  void act() {
    const int i = static_cast<int>(random_() % count);
    switch (tasks_[i] ? random_() % 6 : 5) {
      case 0:
      case 1:
        tasks_[i]->scheduleTask();
        asked_[i] = true;
        break;
      case 2:
        tasks_[i]->scheduleTaskDelay(Kelp::Duration(0.25 * static_cast<double>(random_() % 8)));
        asked_[i] = true;
        break;
      case 3:
        tasks_[i]->cancelTask();
        asked_[i] = false;
        break;
      case 4:
        tasks_[i] = nullptr;
        break;
      default:
        make(i);
    }
    if (tasks_[i]) {
      EXPECT_EQ(tasks_[i]->taskWorkQueued(), asked_[i]);
    }
  }

  std::mt19937 random_;
  Kiv::ManualClock clock_;
  Kelp::Ptr<Kiv::TaskScheduler> scheduler_ = MemSlab::make<Kiv::TaskScheduler>(clock_);
  std::string log_;
  std::vector<Kelp::Ptr<Kiv::TimerTask>> tasks_ = std::vector<Kelp::Ptr<Kiv::TimerTask>>(count);
  std::vector<bool> asked_ = std::vector<bool>(count);
};

TEST(TaskSchedulerCrowdTest, EveryRunWasAskedForAndEveryOrderRepeats) {
  size_t runs = 0;
  for (unsigned seed = 0; seed < 200; ++seed) {
    const std::string first = Crowd(seed).run(60);
    EXPECT_EQ(first, Crowd(seed).run(60)) << "seed " << seed;
    runs += first.size() - 60;
  }
  EXPECT_GT(runs, 10000u) << "the crowd does something";
  EXPECT_EQ(MemSlab::slabOf<Kiv::TimerTask>().liveCount(), 0u);
}

}  // namespace
