#include "SchedulerFixture.h"

#include <memory>
#include <stdexcept>

namespace {

class TaskTest : public SchedulerFixture {};
using TaskDeathTest = TaskTest;

TEST_F(TaskTest, ScheduledTwiceRunsOnce) {
  auto a = task("a");
  EXPECT_FALSE(a->taskWorkQueued());
  a->scheduleTask();
  a->scheduleTask();
  EXPECT_TRUE(a->taskWorkQueued());
  EXPECT_EQ(turn(), "a");
  EXPECT_FALSE(a->taskWorkQueued());
  EXPECT_EQ(turn(), "");
}

TEST_F(TaskTest, AskingAgainKeepsThePlaceInTheQueue) {
  auto a = task("a");
  auto b = task("b");
  a->scheduleTask();
  b->scheduleTask();
  a->scheduleTask();
  a->scheduleTaskDelay(Duration(1));
  EXPECT_EQ(turn(), "ab");
}

TEST_F(TaskTest, IsNotQueuedAndIsRunningWithinItsOwnRunOnly) {
  auto b = task("b");
  TaskPtr a;
  a = task("a", 0, [&] {
    EXPECT_FALSE(a->taskWorkQueued());
    EXPECT_TRUE(a->taskCurrentlyRunning());
    EXPECT_FALSE(b->taskCurrentlyRunning());
    a->scheduleTask();
    EXPECT_TRUE(a->taskWorkQueued());
  });
  a->scheduleTask();
  EXPECT_EQ(turn(), "a");
  EXPECT_TRUE(a->taskWorkQueued()) << "what was asked for within the run is kept";
  EXPECT_FALSE(a->taskCurrentlyRunning());
}

TEST_F(TaskTest, CancelTakesBackWhatHasNotBegun) {
  auto a = task("a");
  a->cancelTask();
  a->scheduleTask();
  a->cancelTask();
  EXPECT_FALSE(a->taskWorkQueued());
  a->scheduleTaskDelay(Duration(1));
  EXPECT_TRUE(a->taskWorkQueued()) << "a delayed run is asked for, too";
  a->cancelTask();
  EXPECT_FALSE(a->taskWorkQueued());
  clock_.advance(Duration(5));
  EXPECT_EQ(turn(), "");
  EXPECT_FALSE(scheduler_->timeUntilDue());
}

TEST_F(TaskTest, CancelWithinItsOwnRunTakesBackOnlyTheNextRun) {
  TaskPtr a;
  a = task("a", 0, [&] {
    a->scheduleTask();
    a->cancelTask();
    log_ += "!";
  });
  a->scheduleTask();
  EXPECT_EQ(turn(), "a!");
  EXPECT_EQ(turn(), "");
}

TEST_F(TaskTest, ATaskMayCancelOneThatIsDueInTheSameTurn) {
  auto b = task("b");
  auto c = task("c");
  auto a = task("a", 0, [&] { b->cancelTask(); });
  for (auto& t : {a, b, c}) t->scheduleTask();
  EXPECT_EQ(turn(), "ac");
  EXPECT_EQ(turn(), "");
}

TEST_F(TaskTest, DroppingAQueuedTaskTakesItOutOfTheQueue) {
  auto ready = task("r");
  auto delayed = task("d");
  ready->scheduleTask();
  delayed->scheduleTaskDelay(Duration(1));
  ready = nullptr;
  delayed = nullptr;
  EXPECT_FALSE(scheduler_->timeUntilDue());
  clock_.advance(Duration(2));
  EXPECT_EQ(turn(), "");
}

TEST_F(TaskTest, ATaskMayDropOneThatIsDueInTheSameTurn) {
  auto b = task("b");
  auto a = task("a", 0, [&] { b = nullptr; });
  a->scheduleTask();
  b->scheduleTask();
  EXPECT_EQ(turn(), "a");
}

TEST_F(TaskTest, ATaskThatDropsItselfLivesToTheEndOfItsRun) {
  TaskPtr a;
  auto captured = std::make_shared<std::string>("still there");
  a = task("a", 0, [&, captured] {
    Kiv::Task* self = a.get();
    self->scheduleTask();
    a = nullptr;
    EXPECT_EQ(self->name(), "a");
    EXPECT_TRUE(self->taskCurrentlyRunning());
    EXPECT_EQ(*captured, "still there");
  });
  a->scheduleTask();
  EXPECT_EQ(turn(), "a");
  EXPECT_EQ(captured.use_count(), 1) << "the callback and what it holds are gone";
  EXPECT_EQ(turn(), "") << "so is the run that it had asked for";
}

TEST_F(TaskTest, TheSameNameIsTheSameTask) {
  auto a = task("a");
  a->taskWorkCountInc(3);
  EXPECT_EQ(scheduler_->taskIs(0, "a").get(), a.get());
  EXPECT_NE(scheduler_->taskIs(0, "b").get(), a.get());
  auto other = MemSlab::make<Kiv::TaskScheduler>(clock_);
  EXPECT_NE(other->taskIs(0, "a").get(), a.get()) << "another scheduler's tasks are others";
  a = nullptr;
  EXPECT_EQ(scheduler_->taskIs(0, "a")->taskWorkCount(), 0u) << "nobody held it: a new one is made";
}

TEST_F(TaskTest, ATaskThatDropsItselfIsFoundAgainWithinItsRun) {
  TaskPtr a;
  a = task("a", 0, [&] {
    const Kiv::Task* self = a.get();
    a = nullptr;
    a = scheduler_->taskIs(0, "a");
    EXPECT_EQ(a.get(), self);
    a->scheduleTask();
  });
  a->scheduleTask();
  EXPECT_EQ(turn(), "a");
  EXPECT_EQ(turn(), "a");
}

TEST_F(TaskTest, AReusedTaskTakesOnTheNewPriority) {
  auto a = task("a", 1);
  auto b = task("b", 2);
  auto c = task("c", 3);
  for (auto& t : {a, b, c}) t->scheduleTask();
  scheduler_->taskIs(3, "a");
  EXPECT_EQ(a->priority(), 3);
  EXPECT_EQ(turn(), "cab") << "queued behind those that waited with that priority";
}

TEST_F(TaskTest, ADyingTasksCallbackMayAskForItsName) {
  struct AtEnd {
    std::function<void()> act;
    ~AtEnd() { act(); }
  };
  TaskPtr kept;
  {
    auto a = scheduler_->taskIs(0, "a");
    a->taskWorkCountInc(1);
    auto atEnd = std::make_shared<AtEnd>();
    atEnd->act = [&, dying = a.get()] {
      dying->scheduleTask();
      kept = task("a");
      kept->scheduleTask();
    };
    a->dispatchIs([atEnd] {});
  }
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->taskWorkCount(), 0u) << "a new task, not the dying one";
  EXPECT_EQ(turn(), "a");
  EXPECT_EQ(turn(), "");
}

TEST_F(TaskTest, ACallbackMayReplaceAndRemoveItself) {
  TaskPtr a;
  auto captured = std::make_shared<int>(0);
  a = task("1", 0, [&, captured] {
    a->scheduleTask();
    a->dispatchIs([&] {
      log_ += "2";
      a->scheduleTask();
      a->dispatchIs(nullptr);
    });
    EXPECT_EQ(captured.use_count(), 2) << "the replaced callback lives until it is done";
  });
  a->scheduleTask();
  EXPECT_EQ(turn(), "1");
  EXPECT_EQ(captured.use_count(), 1);
  EXPECT_EQ(turn(), "2");
  EXPECT_EQ(turn(), "") << "a task without a callback does nothing";
  EXPECT_FALSE(a->taskWorkQueued());
}

TEST_F(TaskTest, OnlyTheOwnerOfTheCallbackTakesItAway) {
  int first, second;
  auto a = scheduler_->taskIs(0, "a");
  a->dispatchIs([&] { log_ += "first"; }, &first);
  a->dispatchIs([&] { log_ += "second"; }, &second);
  a->dispatchDel(&first);
  a->scheduleTask();
  EXPECT_EQ(turn(), "second") << "the user that left was no longer the one that is run";
  a->dispatchDel(&second);
  a->scheduleTask();
  EXPECT_EQ(turn(), "");
}

TEST_F(TaskTest, AnOwnerMayTakeItsCallbackAwayWithinItsRun) {
  int owner;
  auto a = scheduler_->taskIs(0, "a");
  a->dispatchIs(
      [&] {
        log_ += "a";
        a->dispatchDel(&owner);
        a->scheduleTask();
      },
      &owner);
  a->scheduleTask();
  EXPECT_EQ(turn(), "a");
  EXPECT_EQ(turn(), "");
}

TEST_F(TaskTest, WorkIsCountedAndPendingWorkReplaced) {
  auto a = task("a");
  a->taskWorkCountInc(2);
  a->taskWorkCountInc(40);
  a->taskWorkPendingIs(7);
  a->taskWorkPendingIs(5);
  EXPECT_EQ(a->taskWorkCount(), 42u);
  EXPECT_EQ(a->taskWorkPending(), 5u);
}

TEST_F(TaskDeathTest, AnEscapedExceptionEndsTheProcessWithItsText) {
  auto known = task("known", 0, [] { throw std::runtime_error("out of rules"); });
  known->scheduleTask();
  EXPECT_DEATH(scheduler_->runTurn(), "an exception escaped task \"known\": out of rules");
  known->cancelTask();
  auto odd = task("odd", 0, [] { throw 1; });
  odd->scheduleTask();
  EXPECT_DEATH(scheduler_->runTurn(), "an exception escaped task \"odd\": of unknown type");
}

}  // namespace
