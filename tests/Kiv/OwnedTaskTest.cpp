#include <Kiv/OwnedTask.h>

#include <optional>

#include "SchedulerFixture.h"

namespace {

class OwnedTasks : public SchedulerFixture {
 protected:
  void own(Kiv::OwnedTask& task, const char* name) {
    task.is(scheduler_, 0, name, [this, name] { log_ += std::string("owned ") + name; });
  }
};

TEST_F(OwnedTasks, CallTheirOwner) {
  Kiv::OwnedTask task;
  EXPECT_FALSE(task) << "there is none yet";
  own(task, "a");
  task->scheduleTask();
  EXPECT_EQ(turn(), "owned a");
  task->scheduleTask();
  task.del();
  EXPECT_FALSE(task);
  EXPECT_EQ(turn(), "");
}

TEST_F(OwnedTasks, AreDroppedWithWhatIsScheduledWhenNobodyElseHasThem) {
  std::optional<Kiv::OwnedTask> task(std::in_place);
  own(*task, "a");
  (*task)->scheduleTaskDelay(Duration(1));
  task.reset();
  EXPECT_EQ(scheduler_->timeUntilDue(), std::nullopt);
}

TEST_F(OwnedTasks, LeaveAnothersRunButCallNobody) {
  std::optional<Kiv::OwnedTask> task(std::in_place);
  own(*task, "a");
  const TaskPtr others = scheduler_->taskIs(0, "a");
  (*task)->scheduleTask();
  task.reset();
  EXPECT_TRUE(others->taskWorkQueued()) << "the other one may have scheduled it";
  EXPECT_EQ(turn(), "") << "nobody is called";
}

TEST_F(OwnedTasks, LeaveTheCallbackThatAnotherHasSetSince) {
  std::optional<Kiv::OwnedTask> task(std::in_place);
  own(*task, "a");
  const TaskPtr others = this->task("a");
  task.reset();
  others->scheduleTask();
  EXPECT_EQ(turn(), "a");
}

TEST_F(OwnedTasks, TakenAgainKeepTheirPlaceInTheQueue) {
  Kiv::OwnedTask task;
  own(task, "a");
  task->scheduleTask();
  own(task, "a");
  EXPECT_EQ(turn(), "owned a");
}

TEST_F(OwnedTasks, TakenAnewLeaveTheOneBefore) {
  Kiv::OwnedTask task;
  own(task, "a");
  const TaskPtr before = scheduler_->taskIs(0, "a");
  own(task, "b");
  before->scheduleTask();
  task->scheduleTask();
  EXPECT_EQ(turn(), "owned b");
}

TEST_F(OwnedTasks, BelongToTheSchedulerOfTheProcess) {
  Kiv::OwnedTask task(3, "a", [this] { log_ += "ran"; });
  EXPECT_EQ(task->scheduler(), Kiv::TaskSchedulerRoot::findOrCreateScheduler());
  EXPECT_EQ(task->priority(), 3);
  task->scheduleTask();
  task->scheduler()->runTurn();
  EXPECT_EQ(ran(), "ran");
}

}  // namespace
