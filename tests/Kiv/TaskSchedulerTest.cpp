#include "SchedulerFixture.h"

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

class TaskSchedulerTest : public SchedulerFixture {};
using TaskSchedulerDeathTest = TaskSchedulerTest;

TEST_F(TaskSchedulerTest, HigherPrioritiesGoFirstAndEqualOnesInOrder) {
  auto low = task("l", -1);
  auto a = task("a", 5);
  auto b = task("b", 5);
  auto top = task("t", 100);
  for (auto& t : {low, b, top, a}) t->scheduleTask();
  EXPECT_EQ(turn(), "tbal");
}

TEST_F(TaskSchedulerTest, TasksThatScheduleThemselvesTakeTurns) {
  TaskPtr a, b, c;
  a = task("a", 0, [&] { a->scheduleTask(); });
  b = task("b", 0, [&] { b->scheduleTask(); });
  c = task("c", 0, [&] { c->scheduleTask(); });
  for (auto& t : {a, b, c}) t->scheduleTask();
  for (int i = 0; i < 7; ++i) EXPECT_TRUE(scheduler_->runOne());
  EXPECT_EQ(ran(), "abcabca");
}

TEST_F(TaskSchedulerTest, ATurnRunsEachTaskOnceSoThatEveryoneInItGetsARun) {
  TaskPtr high;
  high = task("h", 9, [&] { high->scheduleTask(); });
  auto low = task("l", 1);
  high->scheduleTask();
  low->scheduleTask();
  EXPECT_EQ(turn(), "hl") << "the turn ends, and the lower priority had its run";
  EXPECT_EQ(turn(), "h");
}

TEST_F(TaskSchedulerTest, WhatATurnAsksForWaitsForTheNext) {
  auto urgent = task("u", 9);
  auto a = task("a", 0, [&] { urgent->scheduleTask(); });
  auto b = task("b", 0);
  a->scheduleTask();
  b->scheduleTask();
  EXPECT_EQ(turn(), "ab");
  b->scheduleTask();
  EXPECT_EQ(turn(), "ub");
}

TEST_F(TaskSchedulerTest, RunOneRunsTheFirstDueTaskOnly) {
  EXPECT_FALSE(scheduler_->runOne());
  auto a = task("a", 1);
  auto b = task("b", 2);
  a->scheduleTask();
  b->scheduleTask();
  EXPECT_TRUE(scheduler_->runOne());
  EXPECT_EQ(ran(), "b");
  EXPECT_TRUE(scheduler_->runOne());
  EXPECT_EQ(ran(), "a");
  EXPECT_FALSE(scheduler_->runOne());
}

TEST_F(TaskSchedulerTest, TheBudgetEndsATurnAndNothingIsLost) {
  auto slow = [&] { clock_.advance(Duration(2)); };
  auto a = task("a", 0, slow);
  auto b = task("b", 0, slow);
  auto c = task("c", 0, slow);
  for (auto& t : {a, b, c}) t->scheduleTask();
  EXPECT_EQ(turn(), "ab") << "3 seconds are used up after the second";
  a->scheduleTask();
  EXPECT_EQ(turn(), "ca") << "the one left over goes first";
  scheduler_->turnBudgetIs(Duration(0));
  b->scheduleTask();
  c->scheduleTask();
  EXPECT_EQ(turn(), "b") << "without any budget one task still runs";
  EXPECT_EQ(turn(), "c");
}

TEST_F(TaskSchedulerTest, NobodyWaitsForEverForTurnsThatAreCutShort) {
  TaskPtr busy[2], low;
  for (TaskPtr& one : busy) {
    one = task(&one == busy ? "a" : "b", 1, [&] {
      clock_.advance(Duration(3));
      one->scheduleTask();
    });
    one->scheduleTask();
  }
  low = task("l", 0, [&] { low->scheduleTask(); });
  low->scheduleTask();
  std::string turns;
  for (int i = 0; i < 8; ++i) turns += turn() + ' ';
  EXPECT_EQ(turns, "a b a lb a lb a lb ") << "by priority, and in every second turn the oldest begins";
  for (auto& one : busy) one->cancelTask();
  low->cancelTask();
}

TEST_F(TaskSchedulerTest, WhatOtherWorkHasUsedComesOffTheBudget) {
  std::string asked;
  TaskPtr a;
  a = task("a", 0, [&] { asked += a->taskShouldYield() ? 'y' : 'n'; });
  auto b = task("b");
  for (const double used : {2.5, 3.0}) {
    a->scheduleTask();
    b->scheduleTask();
    scheduler_->runTurn(Duration(used));
  }
  EXPECT_EQ(asked, "ny");
  EXPECT_EQ(ran(), "aba") << "the first of a turn runs in any case";
  scheduler_->turnBegin();
  clock_.advance(Duration(0.5));
  EXPECT_EQ(scheduler_->turnAge(), Duration(0.5));
  EXPECT_FALSE(b->taskShouldYield());
  scheduler_->turnBudgetIs(Duration(0.5));
  EXPECT_TRUE(b->taskShouldYield()) << "outside a run a turn lasts no longer than its tasks may";
}

TEST_F(TaskSchedulerTest, DelaysEndInTheOrderOfTheirTimes) {
  auto a = task("a");
  auto b = task("b");
  auto c = task("c", 7);
  a->scheduleTaskDelay(Duration(2));
  b->scheduleTaskDelay(Duration(1));
  c->scheduleTaskDelay(Duration(2));
  EXPECT_EQ(scheduler_->timeUntilDue(), Duration(1));
  EXPECT_EQ(turn(), "");
  clock_.advance(Duration(0.75));
  EXPECT_EQ(turn(), "");
  EXPECT_EQ(scheduler_->timeUntilDue(), Duration(0.25));
  clock_.advance(Duration(0.25));
  EXPECT_EQ(scheduler_->timeUntilDue(), Duration(0));
  EXPECT_EQ(turn(), "b") << "due exactly at its time";
  clock_.advance(Duration(10));
  EXPECT_EQ(scheduler_->timeUntilDue(), Duration(0)) << "never negative";
  EXPECT_EQ(turn(), "ca") << "of those due together the priority decides";
  EXPECT_FALSE(scheduler_->timeUntilDue());
}

TEST_F(TaskSchedulerTest, OfSeveralRequestsTheEarliestCounts) {
  struct Row {
    std::vector<double> delays;  // 0 is a plain scheduleTask()
    double due;
    const char* why;
  };
  const Row rows[] = {
      {{1, 2}, 1, "a later delay does not put a run off"},
      {{2, 1}, 1, "an earlier one brings it forward"},
      {{1, 0}, 0, "a request without a delay ends the delay"},
      {{0, 1}, 0, "a delay does not put off a run that is due"},
      {{-1}, 0, "a time gone by is now"},
      {{1, 1}, 1, "the same delay twice is one run"},
  };
  for (const Row& row : rows) {
    auto a = task("a");
    for (double delay : row.delays) delay == 0 ? a->scheduleTask() : a->scheduleTaskDelay(Duration(delay));
    EXPECT_EQ(scheduler_->timeUntilDue(), Duration(row.due)) << row.why;
    clock_.advance(Duration(row.due));
    EXPECT_EQ(turn(), "a") << row.why;
    clock_.advance(Duration(10));
    EXPECT_EQ(turn(), "") << "it runs once: " << row.why;
  }
}

TEST_F(TaskSchedulerTest, ARepeatedDelayCountsFromTheRunAndDoesNotCatchUp) {
  TaskPtr poll;
  poll = task("p", 0, [&] { poll->scheduleTaskDelay(Duration(1)); });
  poll->scheduleTask();
  EXPECT_EQ(turn(), "p");
  clock_.advance(Duration(3600));
  EXPECT_EQ(turn(), "p");
  EXPECT_EQ(turn(), "") << "an hour that was skipped is one run, not 3,600";
  EXPECT_EQ(scheduler_->timeUntilDue(), Duration(1));
}

TEST_F(TaskSchedulerTest, AnotherClockOfDelaysKeepsWhatIsLeft) {
  auto a = task("a");
  auto b = task("b");
  a->scheduleTaskDelay(Duration(4));
  b->scheduleTaskDelay(Duration(2));
  clock_.advance(Duration(1));
  Kiv::ManualClock capture(Duration(5));
  scheduler_->clockIs(capture);
  EXPECT_EQ(scheduler_->timeUntilDue(), Duration(1));
  capture.advance(Duration(1));
  EXPECT_EQ(turn(), "b");
  capture.advance(Duration(2));
  EXPECT_EQ(turn(), "a");
  scheduler_->clockIs(clock_);
}

TEST_F(TaskSchedulerTest, ADelayLastsUntilTheClockGoesOnHoweverLargeTheTime) {
  for (const int exponent : {54, 63, 100}) {
    clock_.nowIs(Duration(std::ldexp(1, exponent)));
    TaskPtr poll;
    poll = task("p", 0, [&] { poll->scheduleTaskDelay(Duration(1)); });
    poll->scheduleTask();
    EXPECT_EQ(turn(), "p") << "2^" << exponent;
    EXPECT_EQ(turn(), "") << "2^" << exponent << ": the second is not over, though it does not show";
    clock_.advance(Duration(1));
    EXPECT_EQ(turn(), "p") << "2^" << exponent;
  }
}

TEST_F(TaskSchedulerTest, AnotherClockEndsNoDelayHoweverLargeItsTime) {
  auto a = task("a");
  a->scheduleTaskDelay(Duration(1));
  Kiv::ManualClock capture(Duration(std::ldexp(1, 54)));
  scheduler_->clockIs(capture);
  EXPECT_EQ(turn(), "");
  capture.advance(Duration(1));
  EXPECT_EQ(turn(), "a");
  scheduler_->clockIs(clock_);
}

TEST_F(TaskSchedulerTest, WithinARunTheSliceOfThatRunCounts) {
  std::vector<bool> asked;
  TaskPtr a;
  a = task("a", 0, [&] {
    asked = {a->taskShouldYield()};
    clock_.advance(Duration(0.5));
    asked.push_back(a->taskShouldYield());
    clock_.advance(Duration(0.5));
    asked.push_back(a->taskShouldYield());
  });
  auto before = task("b", 1, [&] { clock_.advance(Duration(2)); });
  const std::vector<bool> untilSliceIsUsedUp = {false, false, true};
  for (int run = 0; run < 2; ++run) {
    before->scheduleTask();
    a->scheduleTask();
    EXPECT_EQ(turn(), "ba");
    EXPECT_EQ(asked, untilSliceIsUsedUp) << "every run has a slice of its own, whoever ran before";
  }
}

TEST_F(TaskSchedulerTest, WithinARunTheBudgetOfTheTurnCountsToo) {
  std::string asked;
  TaskPtr a;
  a = task("a", 0, [&] {
    for (int i = 0; i < 4; ++i, clock_.advance(Duration(0.25))) asked += a->taskShouldYield() ? 'y' : 'n';
  });
  auto before = task("b", 1, [&] { clock_.advance(Duration(2.5)); });
  before->scheduleTask();
  a->scheduleTask();
  EXPECT_EQ(turn(), "ba");
  EXPECT_EQ(asked, "nnyy") << "of the turn's 3 seconds half a one was left";
  asked.clear();
  a->scheduleTask();
  EXPECT_EQ(turn(), "a");
  EXPECT_EQ(asked, "nnnn") << "the next turn has its own";
  asked.clear();
  scheduler_->turnBudgetIs(Duration(0.5));
  a->scheduleTask();
  EXPECT_TRUE(scheduler_->runOne());
  EXPECT_EQ(asked, "nnnn") << "a run outside a turn has no budget";
}

TEST_F(TaskSchedulerTest, OutsideItsRunTheTurnOfTheLoopCounts) {
  auto idle = task("i");
  auto asker = task("a", 0, [&] {
    EXPECT_FALSE(idle->taskShouldYield()) << "the turn is as old as the asker's run";
    clock_.advance(Duration(1));
    EXPECT_TRUE(idle->taskShouldYield()) << "another task's run is not its own";
  });
  scheduler_->turnBegin();
  EXPECT_FALSE(idle->taskShouldYield());
  clock_.advance(Duration(0.9));
  EXPECT_FALSE(idle->taskShouldYield());
  clock_.advance(Duration(0.1));
  EXPECT_TRUE(idle->taskShouldYield()) << "packets and commits of this turn have used it up";
  scheduler_->turnBegin();
  EXPECT_FALSE(idle->taskShouldYield()) << "a new turn";
  asker->scheduleTask();
  EXPECT_EQ(turn(), "a");
  EXPECT_TRUE(idle->taskShouldYield()) << "the turn lasts until the next one starts";
  scheduler_->runTurn();
  EXPECT_FALSE(idle->taskShouldYield()) << "runTurn() starts a turn when the loop has not";
}

TEST_F(TaskSchedulerTest, ATurnIsAsOldAsItsFirstTaskToLaterOnes) {
  auto idle = task("i");
  TaskPtr second;
  auto first = task("1", 0, [&] { clock_.advance(Duration(1)); });
  second = task("2", 0, [&] {
    EXPECT_TRUE(idle->taskShouldYield());
    EXPECT_FALSE(second->taskShouldYield());
  });
  first->scheduleTask();
  second->scheduleTask();
  EXPECT_EQ(turn(), "12");
}

TEST_F(TaskSchedulerTest, RunTurnKeepsTheTurnThatTheLoopHasStarted) {
  auto idle = task("i");
  scheduler_->turnBegin();
  clock_.advance(Duration(1));
  scheduler_->runTurn();
  EXPECT_TRUE(idle->taskShouldYield());
}

TEST_F(TaskSchedulerTest, SlicesFollowTheirOwnClock) {
  Kiv::ManualClock real(Duration(7));
  scheduler_->sliceClockIs(real);
  TaskPtr a;
  a = task("a", 0, [&] {
    clock_.advance(Duration(100));
    EXPECT_FALSE(a->taskShouldYield()) << "a capture that jumps uses up no slice";
    real.advance(Duration(1));
    EXPECT_TRUE(a->taskShouldYield());
  });
  a->scheduleTask();
  EXPECT_EQ(turn(), "a");
  scheduler_->sliceClockIs(clock_);
}

TEST_F(TaskSchedulerTest, AlwaysYieldMakesEveryAnswerTrue) {
  TaskPtr a;
  a = task("a", 0, [&] { EXPECT_TRUE(a->taskShouldYield()); });
  a->scheduleTask();
  EXPECT_FALSE(a->taskShouldYield());
  Kiv::alwaysYieldIs(true);
  EXPECT_TRUE(a->taskShouldYield());
  EXPECT_EQ(turn(), "a");
}

TEST(AlwaysYieldTest, StartsAsTheEnvironmentSays) {
  const char* value = std::getenv("VELO_ALWAYS_YIELD");
  EXPECT_EQ(Kiv::alwaysYield(), value && std::string(value) == "1");
}

TEST_F(TaskSchedulerTest, ATaskMayDropTheLastReferenceToItsScheduler) {
  auto b = task("b");
  TaskPtr a;
  a = task("a", 0, [&] {
    b->scheduleTask();
    scheduler_ = nullptr;
    b = nullptr;
    a = nullptr;
  });
  a->scheduleTask();
  b->scheduleTask();
  scheduler_->runTurn();
  EXPECT_EQ(ran(), "a");
}

TEST_F(TaskSchedulerDeathTest, ATurnWithinATaskIsABrokenInvariant) {
  auto a = task("a", 0, [&] { scheduler_->runOne(); });
  a->scheduleTask();
  EXPECT_DEATH(scheduler_->runTurn(), "a turn was started from within a task");
}

TEST(TaskSchedulerRootTest, TheDefaultIsOneForAllAndGoesWithItsLastUser) {
  auto first = Kiv::TaskSchedulerRoot::findOrCreateScheduler();
  EXPECT_EQ(Kiv::TaskSchedulerRoot::findOrCreateScheduler(), first);
  EXPECT_NE(MemSlab::make<Kiv::TaskScheduler>(), first);
  EXPECT_EQ(Kiv::TaskSchedulerRoot::findOrCreateScheduler(), first) << "another that goes is not the default";
  auto task = first->taskIs(0, "holder");
  first = nullptr;
  EXPECT_EQ(Kiv::TaskSchedulerRoot::findOrCreateScheduler(), task->scheduler()) << "a task holds it";
  task = nullptr;
  EXPECT_EQ(MemSlab::slabOf<Kiv::TaskScheduler>().liveCount(), 0u);
  EXPECT_TRUE(Kiv::TaskSchedulerRoot::findOrCreateScheduler());
}

}  // namespace
