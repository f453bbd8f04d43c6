#include "../Zeb/TraceCapture.h"
#include "../support/Sanitizers.h"
#include "Fixture.h"

#include <Zeb/TraceHandle.h>

#include <algorithm>
#include <set>

/// Long work is cut into runs of tasks; which tasks those are, and that nothing of them stays.
namespace SmTest {
namespace {

using Lines = std::vector<std::string>;
constexpr auto implicitDrop = Acl::ImplicitRuleType::drop;

class Slices : public testing::Test, protected World {
 protected:
  Slices() { Kiv::alwaysYieldIs(true); }
  ~Slices() override { Zeb::TraceHandle::disableAll(); }

  static std::string name(int i) { return fmt::format("L{:04}", i); }
  /// Runs until the machine is idle; returns what it traced.
  Lines traced() {
    Zeb::TraceHandle::disableAll();
    Zeb::TraceHandle::enable("DpAclStatusVelo/9");
    TraceCapture capture;
    for (int i = 0; i < 100000 && !sm->idle(); ++i) {
      if (!scheduler->runOne()) clock.advance(Kelp::Duration(1));
    }
    EXPECT_TRUE(sm->idle());
    return capture.texts();
  }
  static size_t count(const Lines& lines, const std::string& text) {
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), text));
  }
  std::set<std::string> taskNames() const {
    std::set<std::string> names;
    scheduler->forEachTask([&](const Kiv::TimerTask& task) { names.insert(task.name().str()); });
    return names;
  }
};

TEST_F(Slices, AWalkOverStatusesWithoutEntriesYields) {
  for (int i = 0; i < 300; ++i) {
    list(AclType::ip, name(i).c_str());
    status->statusIs(AclType::ip)->aclIs(name(i));
  }
  status->status(AclType::ip)->acl(name(150))->ruleStatusIs(r(1), {});
  start();
  const Lines lines = traced();
  EXPECT_GE(
      count(lines, "Yielding in reconciliation processing after processing 0 items, including 0 deletions ."),
      3u)
      << "between statuses without rules";
  EXPECT_FALSE(statusOf(AclType::ip, name(150).c_str())->ruleStatus(r(1)));
}

/// What was seen is forgotten in slices: an output is through with its walk some runs before it is ready.
TEST_F(Slices, AListThatComesBehindTheWalkOverTheRulesStartsWithoutRules) {
  for (int i = 0; i < 200; ++i) {
    list(AclType::ip, name(i).c_str());
    const auto left = status->statusIs(AclType::ip)->aclIs(name(i));
    left->implicitRuleIdIs(implicitDrop, UniqueId(uint64_t{1}));
    left->implicitRuleStatusIs(implicitDrop, {});
  }
  status->status(AclType::ip)->aclIs("Z")->ruleStatusIs(r(1), {});
  start();
  const auto& seen = sm->aclAclStatusPtrRuleStatusOutputPtrSeen();
  for (size_t most = 0; seen.size() >= most;) {
    most = seen.size();
    ASSERT_TRUE(scheduler->runOne());
  }
  const auto& outputs = *sm->outputState();
  ASSERT_FALSE(outputs.aclAclStatusPtrRuleStatusOutputReady());
  ASSERT_FALSE(outputs.aclAclStatusPtrImplicitRuleIdOutputReady());
  ASSERT_FALSE(outputs.aclAclStatusPtrImplicitRuleStatusOutputReady());
  ASSERT_FALSE(outputs.aclStatusStatusAclOutputReady());
  Zeb::TraceHandle::enable("DpAclStatusVelo/9");
  TraceCapture capture;
  list(AclType::ip, "Z");
  const Lines lines = capture.texts();
  const auto said =
      std::find(lines.begin(), lines.end(),
                "aclStatusStatusAclOutput: deleting what an earlier run left of k1=ip, k2=Z, to begin anew");
  ASSERT_NE(said, lines.end());
  EXPECT_EQ(*(said + 1), "into( aclStatus.status[ aclType ].acl[ aclName ] ): deleting k1=ip, k2=Z");
  traced();
  EXPECT_TRUE(statusOf(AclType::ip, "Z")->ruleStatus().empty());
}

/// A clock on which every look takes a tenth of a slice.
class CountedClock final : public Kiv::Clock {
 public:
  explicit CountedClock(Kelp::Duration slice) : look_(slice.seconds() / 10) {}
  Kelp::Duration now() const override { return now_ = now_ + look_; }

 private:
  const Kelp::Duration look_;
  mutable Kelp::Duration now_;
};

/// What an earlier run left of a list may be much: of one that comes late it is not the list's event that
/// frees it, and of one that is not configured not the run that finds it.
TEST_F(Slices, WhatIsLeftOfAListIsTakenOutInSlices) {
  constexpr size_t left = 5000;
  const CountedClock counted(Kiv::TaskScheduler::defaultSlice);
  for (const bool always : {true, false}) {
    for (const bool late : {true, false}) {
      SCOPED_TRACE(
          fmt::format("{} {}", always ? "always yielding" : "in counted slices", late ? "late" : "stale"));
      status = MemSlab::make<Acl::StatusDp>("kepa");
      config = MemSlab::make<Acl::Config>("config");
      Kiv::alwaysYieldIs(true);
      for (int i = 0; i < 200; ++i) {
        list(AclType::ip, name(i).c_str());
        status->statusIs(AclType::ip)->aclIs(name(i))->implicitRuleStatusIs(implicitDrop, {});
      }
      const auto old = status->status(AclType::ip)->aclIs("Z");
      for (uint64_t i = 1; i <= left; ++i) old->ruleStatusIs(UniqueId(i), {});
      old->implicitRuleIdIs(implicitDrop, UniqueId(uint64_t{1}));
      old->implicitRuleStatusIs(implicitDrop, {});
      start();
      if (late) {
        const auto& seen = sm->aclAclStatusPtrRuleStatusOutputPtrSeen();
        for (size_t most = 0; seen.size() >= most;) {
          most = seen.size();
          ASSERT_TRUE(scheduler->runOne());
        }
        ASSERT_FALSE(sm->outputState()->aclStatusStatusAclOutputReady());
        ASSERT_EQ(statusOf(AclType::ip, "Z"), old);
        list(AclType::ip, "Z");
        ASSERT_NE(statusOf(AclType::ip, "Z"), old);
        EXPECT_TRUE(statusOf(AclType::ip, "Z")->ruleStatus().empty());
        EXPECT_EQ(old->ruleStatus().size(), left) << "not in the list's event";
      }
      Kiv::alwaysYieldIs(always);
      if (!always) scheduler->sliceClockIs(counted);
      size_t runs = 0, most = 0;
      while (!old->ruleStatus().empty() || !old->implicitRuleId().empty()) {
        const size_t had = old->ruleStatus().size();
        ASSERT_TRUE(scheduler->runOne());
        const size_t gone = had - old->ruleStatus().size();
        most = std::max(most, gone);
        if (gone > 0) ++runs;
      }
      EXPECT_GE(runs, left / 1000) << "at most " << most << " in a run";
      EXPECT_LE(most, 1000u);
      scheduler->sliceClockIs(sliceClock);
      ASSERT_TRUE(settle());
      EXPECT_TRUE(old->implicitRuleStatus().empty());
      EXPECT_EQ(statusOf(AclType::ip, "Z") != nullptr, late);
      stop();
    }
  }
}

TEST_F(Slices, AListThatComesLateKeepsAStatusInWhichThereWasNothingToReconcile) {
  for (int i = 0; i < 5; ++i)
    status->statusIs(AclType::ip)->aclIs(name(i))->counterUpdateTimeIs(Kelp::Duration(7));
  start();
  while (!sm->outputState()->aclAclStatusPtrImplicitRuleIdOutputReady()) ASSERT_TRUE(scheduler->runOne());
  ASSERT_FALSE(sm->outputState()->aclStatusStatusAclOutputReady());
  const auto before = statusOf(AclType::ip, name(4).c_str());
  ASSERT_TRUE(before);
  list(AclType::ip, name(4).c_str());
  traced();
  EXPECT_EQ(statusOf(AclType::ip, name(4).c_str()), before);
  EXPECT_EQ(before->counterUpdateTime(), Kelp::Duration(7));
}

TEST_F(Slices, TheLookForWhatIsToBeReconciledYields) {
  for (int i = 0; i < 3000; ++i) status->statusIs(AclType::ip)->aclIs(name(i));
  status->status(AclType::ip)->acl(name(2999))->ruleStatusIs(r(1), {});
  list(AclType::ip, name(2999).c_str());
  start();
  int runs = 0;
  while (!sm->initialScanDone()) {
    ASSERT_TRUE(scheduler->runOne());
    ++runs;
  }
  EXPECT_GE(runs, 2) << "a few looks before the second pass";
  const Lines lines = traced();
  EXPECT_GE(count(lines, "Reconciling aclAclStatusPtrRuleStatusOutput: true"), 1u)
      << "found in the last list";
  EXPECT_EQ(count(lines, "Reconciling aclAclStatusPtrImplicitRuleIdOutput: true"), 0u);
  EXPECT_EQ(status->status(AclType::ip)->acl().size(), 1u);
  EXPECT_TRUE(statusOf(AclType::ip, name(2999).c_str())->ruleStatus().empty());
}

TEST_F(Slices, WhatWasSeenIsForgottenInSlicesAndThenTheOutputIsReady) {
  for (int i = 0; i < 300; ++i) {
    list(AclType::ip, name(i).c_str());
    bind(AclType::ip, AclDirection::in, name(i).c_str(), "L0000");
    status->statusIs(AclType::ip)->aclIs(name(i))->ruleStatusIs(r(1), {});
    status->status(AclType::ip)->acl(name(i))->implicitRuleIdIs(implicitDrop, r(2));
    status->status(AclType::ip)->acl(name(i))->implicitRuleStatusIs(implicitDrop, {});
  }
  status->status(AclType::ip)->intfIs(AclDirection::in)->intfIs(Nimnet::IntfId("old"), "L0000");
  start();
  Lines lines = traced();
  for (const char* output :
       {"aclStatusStatusAclOutput", "aclStatusStatusIntfIntfOutput", "aclAclStatusPtrRuleStatusOutput",
        "aclAclStatusPtrImplicitRuleIdOutput", "aclAclStatusPtrImplicitRuleStatusOutput"}) {
    EXPECT_GE(count(lines, fmt::format("Reconciling {}: false", output)), 3u) << output;
  }
  EXPECT_FALSE(sm->aclStatusStatusAclOutputSeenHas({AclType::ip, name(7)}));
  EXPECT_FALSE(
      sm->aclStatusStatusIntfIntfOutputSeenHas({AclType::ip, AclDirection::in, Nimnet::IntfId("L0007")}));
  EXPECT_EQ(sm->aclAclStatusPtrRuleStatusOutputPtrSeen().size(), 0u);
  EXPECT_EQ(sm->aclAclStatusPtrImplicitRuleIdOutputPtrSeen().size(), 0u);
  EXPECT_EQ(sm->aclAclStatusPtrImplicitRuleStatusOutputPtrSeen().size(), 0u);
  list(AclType::ip, "new");
  EXPECT_FALSE(sm->aclStatusStatusAclOutputSeenHas({AclType::ip, "new"})) << "not in use any more";
}

/// Each output is reconciled when its own collection has entries, whatever the others have.
TEST_F(Slices, AnOutputIsReconciledForItsOwnCollection) {
  Kiv::alwaysYieldIs(false);
  constexpr auto none = Acl::ImplicitRuleType::none;
  struct Row {
    const char* output;
    std::function<void(Acl::AclTypeStatus&)> leave;
    std::function<bool(Acl::AclTypeStatus&)> isGone;
  };
  const auto acl = [](Acl::AclTypeStatus& ip) { return ip.aclIs("A"); };
  const Nimnet::IntfId eth9("eth9");
  const Row rows[] = {
      {"aclAclStatusPtrRuleStatusOutput", [&](auto& ip) { acl(ip)->ruleStatusIs(r(9), {}); },
       [&](auto& ip) { return !acl(ip)->ruleStatus(r(9)); }},
      {"aclAclStatusPtrImplicitRuleIdOutput", [&](auto& ip) { acl(ip)->implicitRuleIdIs(none, r(9)); },
       [&](auto& ip) { return !acl(ip)->implicitRuleId(none); }},
      {"aclAclStatusPtrImplicitRuleStatusOutput", [&](auto& ip) { acl(ip)->implicitRuleStatusIs(none, {}); },
       [&](auto& ip) { return !acl(ip)->implicitRuleStatus(none); }},
      {"aclStatusStatusIntfIntfOutput", [&](auto& ip) { ip.intfIs(AclDirection::in)->intfIs(eth9, "A"); },
       [&](auto& ip) { return !ip.intf(AclDirection::in); }},
  };
  list(AclType::ip, "A");
  for (const Row& row : rows) {
    for (const uint8_t mode : {Rix::SmControl::synchronous, Rix::SmControl::asynchronous}) {
      SCOPED_TRACE(row.output);
      status = MemSlab::make<Acl::StatusDp>("kepa");
      row.leave(*status->statusIs(AclType::ip));
      Zeb::TraceHandle::enable("DpAclStatusVelo/9");
      TraceCapture capture;
      start(mode);
      settle();
      Zeb::TraceHandle::disableAll();
      EXPECT_TRUE(row.isGone(*status->status(AclType::ip)));
      const Lines lines = capture.texts();
      for (const Row& other : rows) {
        EXPECT_EQ(count(lines, fmt::format("Reconciling {}: true", other.output)) > 0, &other == &row)
            << other.output;
      }
      EXPECT_GT(count(lines, "Reconciling aclStatusStatusAclOutput: true"), 0u) << "there is a type";
      stop();
    }
  }
}

const std::set<std::string> pollTasks{
    "VeloDpAclStatusSm-copyIpOutCountersTask", "VeloDpAclStatusSm-copyIp6OutCountersTask",
    "VeloDpAclStatusSm-copyInCountersTask", "VeloDpAclStatusSm-copyMacOutCountersTask"};
const std::set<std::string> otherTasks{"VeloDpAclStatusSm-aclAclStatusPtrImplicitRuleStatusOutputTask",
                                       "VeloDpAclStatusSm-aclAclStatusPtrImplicitRuleIdOutputTask",
                                       "VeloDpAclStatusSm-aclStatusStatusAclOutputTask",
                                       "VeloDpAclStatusSm-aclAclStatusPtrRuleStatusOutputTask",
                                       "VeloDpAclStatusSm-aclStatusStatusIntfIntfOutputTask",
                                       "Velo::VeloAcl::VeloDpAclStatusSm-AclIntfConfigSm0InputScanTask0",
                                       "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask1",
                                       "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask2",
                                       "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask3",
                                       "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask4",
                                       "Velo::VeloAcl::VeloDpAclStatusSm-RuleIdsByAclSm7InputScanTask5"};

TEST_F(Slices, TheTasksHaveTheirNamesAndTheControlsPriorityAndGoWhenTheyHaveNothingLeftToDo) {
  for (const AclType type : {AclType::ip, AclType::ipv6}) {
    list(type, "A");
    bind(type, AclDirection::in, "eth1", "A");
    const auto old = status->statusIs(type);
    old->aclIs("old")->ruleStatusIs(r(1), {});
    old->acl("old")->implicitRuleIdIs(implicitDrop, r(1));
    old->acl("old")->implicitRuleStatusIs(implicitDrop, {});
    old->intfIs(AclDirection::in)->intfIs(Nimnet::IntfId("eth9"), "old");
  }
  auto c = control();
  c.priority = 7;
  sm = Velo::VeloAcl::veloDpAclStatusSmFactory(config, intfConfig, in, macOut, ipOut, ip6Out, status, c);
  std::set<std::string> all = pollTasks;
  all.insert(otherTasks.begin(), otherTasks.end());
  EXPECT_EQ(taskNames(), all);
  scheduler->forEachTask(
      [](const Kiv::TimerTask& task) { EXPECT_EQ(task.priority(), 7) << task.name().str(); });
  traced();
  EXPECT_EQ(taskNames(), pollTasks) << "scans and reconciliations are over";
}

/// A task that somebody else holds, too, outlives the machine; what it did for the machine does not.
TEST_F(Slices, ATaskThatOutlivesTheMachineDoesNothing) {
  if (TestSupport::addressSanitizer) GTEST_SKIP() << "the sanitizer does not give a place out again soon";
  Kiv::alwaysYieldIs(false);
  list(AclType::ip, "A");
  const CounterKey key{AclDirection::in, AclType::ip, "A", r(1)};
  World::count(in, key, 1, 99);
  status->statusIs(AclType::ip)->aclIs("old");
  Kiv::alwaysYieldIs(true);
  start();
  std::vector<Kelp::Ptr<Kiv::TimerTask>> held;
  for (const auto& names : {pollTasks, otherTasks}) {
    for (const auto& task : names) held.push_back(scheduler->taskIs(0, task));
  }
  const Machine* const place = sm.get();
  stop();
  start(Rix::SmControl::synchronous);
  ASSERT_EQ(sm.get(), place) << "the next machine is where the last one was, and would run what that left";
  World::count(in, key, 1, 99);
  for (const auto& task : held) task->scheduleTask();
  while (scheduler->runOne()) {
  }
  EXPECT_EQ(statusOf(AclType::ip, "A")->ruleStatus(r(1))->packets, 1u) << "not copied again";
}

/// A task of a scan that is not through holds the walker that it would drive; a machine of another scheduler,
/// begun in the same place, has its walkers there.
TEST_F(Slices, AScanTaskThatOutlivesTheMachineDrivesNoScan) {
  if (TestSupport::addressSanitizer) GTEST_SKIP() << "the sanitizer does not give a place out again soon";
  for (int i = 0; i < 20; ++i) rules(AclType::ip, name(i).c_str())->ipRuleByIdIs(r(1), ipRule());
  start();
  ASSERT_FALSE(sm->initialScanDone());
  std::vector<Kelp::Ptr<Kiv::TimerTask>> held;
  for (const auto& task : otherTasks) held.push_back(scheduler->taskIs(0, task));
  const void* const place = sm->aclConfigSm3().get();
  stop();
  const auto before = std::exchange(scheduler, MemSlab::make<Kiv::TaskScheduler>(clock));
  scheduler->sliceClockIs(sliceClock);
  start();
  ASSERT_EQ(sm->aclConfigSm3().get(), place);
  ASSERT_FALSE(sm->initialScanDone());
  for (const auto& task : held) task->scheduleTask();
  Zeb::TraceHandle::enable("DpAclStatusVelo/9");
  TraceCapture capture;
  while (before->runOne()) {
  }
  EXPECT_EQ(capture.texts(), Lines{}) << "the tasks of the machine that is gone";
  stop();
}

/// Rules of another kind than their list, which no list event brings.
TEST_F(Slices, RulesThatComeInTheFirstPassAreAllPublishedByTheSecond) {
  for (int i = 0; i < 3; ++i) rules(AclType::mac, name(i).c_str())->macRuleByIdIs(r(1), macRule());
  start();
  ASSERT_FALSE(sm->initialScanDone());
  for (int l = 0; l < 3; ++l) {
    const auto fresh = MemSlab::make<Acl::AclSubConfig>();
    for (uint32_t i = 1; i <= 4; ++i) {
      fresh->ipRuleByIdIs(r(10 + i), ipRule());
      fresh->ip6RuleByIdIs(r(20 + i), ip6Rule());
    }
    list(AclType::mac, name(l).c_str())->currCfgIs(fresh);
  }
  ASSERT_FALSE(sm->initialScanDone());
  traced();
  for (int l = 0; l < 3; ++l) EXPECT_EQ(statusOf(AclType::mac, name(l).c_str())->ruleStatus().size(), 8u);
}

}  // namespace
}  // namespace SmTest
