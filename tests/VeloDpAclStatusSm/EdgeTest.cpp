#include "../Zeb/TraceCapture.h"
#include "Writes.h"

#include <Zeb/TraceHandle.h>

#include <algorithm>
#include <memory>
#include <set>

/// What happens at the rims: nothing configured, changes in the middle of the start, events that find
/// nothing.
namespace SmTest {
namespace {

using Lines = std::vector<std::string>;

class Edges : public testing::Test, protected World {};

TEST_F(Edges, NothingConfiguredIsSoonReady) {
  start();
  EXPECT_TRUE(sm->initialScanDone());
  EXPECT_FALSE(sm->ready()) << "the counters are to be copied once";
  EXPECT_TRUE(settle());
  EXPECT_TRUE(sm->ready());
  EXPECT_TRUE(status->status().empty());
}

TEST_F(Edges, SynchronousIsReadyAtOnceWithoutAnyTask) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 3, 99);
  status->statusIs(AclType::mac)->aclIs("old");
  Kiv::alwaysYieldIs(true);
  start(Rix::SmControl::synchronous);
  EXPECT_TRUE(sm->idle());
  EXPECT_FALSE(scheduler->timeUntilDue());
  EXPECT_FALSE(sm->scheduler()) << "not even looked for";
  EXPECT_EQ(statusOf(AclType::ip, "A")->ruleStatus(r(1))->packets, 3u);
  EXPECT_FALSE(status->status(AclType::mac));
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 1, 100);
  pass(5);
  EXPECT_EQ(statusOf(AclType::ip, "A")->ruleStatus(r(1))->packets, 3u) << "copied once, never again";
  rules(AclType::ip, "A")->ipRuleByIdIs(r(2), ipRule());
  EXPECT_TRUE(statusOf(AclType::ip, "A")->ruleStatus(r(2))) << "but changes are followed";
}

TEST_F(Edges, TheFirstPassWritesNothingHoweverLongItTakes) {
  for (uint32_t i = 1; i < 20; ++i) {
    rules(AclType::ip, fmt::format("L{}", i).c_str())->ipRuleByIdIs(r(i), ipRule());
    bind(AclType::mac, AclDirection::in, fmt::format("eth{}", i).c_str(), "L1");
  }
  Zeb::TraceHandle::enable("DpAclStatusVelo/7");
  Kiv::alwaysYieldIs(true);
  int runs = 0;
  {
    TraceCapture capture;
    start();
    for (; !sm->initialScanDone() && scheduler->runOne(); ++runs) {
      if (!sm->initialScanDone()) {
        EXPECT_EQ(capture.texts(), Lines{});
        EXPECT_TRUE(status->status().empty());
      }
    }
  }
  Zeb::TraceHandle::disableAll();
  EXPECT_GT(runs, 20);
  EXPECT_FALSE(status->status().empty());
}

TEST_F(Edges, TheSecondPassTakesEveryFlagBackBeforeItSetsItAgain) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  rules(AclType::ip, "B")->ipRuleByIdIs(r(2), ipRule());
  Kiv::alwaysYieldIs(true);
  start();
  ASSERT_FALSE(sm->initialScanDone());
  std::set<std::string> cleared;
  const Watch watch(*sm->inputSmScanState(), [&](const Zeb::Change& change) {
    if (change.attribute.text(*sm->inputSmScanState()) == "false")
      cleared.insert(std::string(change.attribute.name()));
  });
  while (!sm->initialScanDone()) ASSERT_TRUE(scheduler->runOne());
  EXPECT_EQ(cleared,
            (std::set<std::string>{"aclConfigStreamScan", "aclIntfConfigStreamScan", "ip6RuleCfgStreamScan",
                                   "ipRuleCfgStreamScan", "macRuleCfgStreamScan", "rix_pipeline0Scan"}));
}

TEST_F(Edges, AScanThatYieldsTellsItsTaskWhatItDidAndHowMuchThereIs) {
  for (const AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) intfConfig->configIs(type);
  Kiv::alwaysYieldIs(true);
  start();
  const auto task = scheduler->taskIs(0, "Velo::VeloAcl::VeloDpAclStatusSm-AclIntfConfigSm0InputScanTask0");
  EXPECT_EQ(task->taskWorkCount(), 1u);
  EXPECT_EQ(task->taskWorkPending(), 3u);
  while (task->taskWorkCount() == 1) ASSERT_TRUE(scheduler->runOne());
  EXPECT_EQ(task->taskWorkCount(), 2u);
}

TEST_F(Edges, ReconciliationTellsItsTaskHowManyEntriesItWentThrough) {
  for (int i = 0; i < 20; ++i) status->statusIs(AclType::ip)->aclIs(fmt::format("L{}", i));
  start();
  const auto task = scheduler->taskIs(0, "VeloDpAclStatusSm-aclStatusStatusAclOutputTask");
  const uint64_t outside = task->taskWorkCount();
  EXPECT_EQ(outside, 20 - status->status(AclType::ip)->acl().size()) << "one whenever it was asked outside";
  EXPECT_GT(outside, 0u);
  EXPECT_TRUE(settle());
  EXPECT_TRUE(status->status().empty());
  EXPECT_EQ(task->taskWorkCount(), 21u) << "the lists and their type";
}

TEST_F(Edges, RulesThatComeWhileAScanIsAtWorkAreScannedToTheEnd) {
  // Rules of another kind than their list: only the scans see them, no list event brings them.
  for (const char* name : {"A", "B"}) rules(AclType::mac, name)->ipRuleByIdIs(r(name[0]), ipRule());
  Kiv::alwaysYieldIs(true);
  start();
  while (!sm->initialScanDone()) ASSERT_TRUE(scheduler->runOne());
  // Each list whose rule is published has the other's rules replaced; one of the two has been scanned by
  // then.
  const auto replaceRulesOf = [&](const char* name, uint64_t first) {
    const auto fresh = MemSlab::make<Acl::AclSubConfig>();
    for (uint64_t i = 0; i < 3; ++i) fresh->ipRuleByIdIs(r(first + i), ipRule());
    list(AclType::mac, name)->currCfgIs(fresh);
  };
  std::vector<std::unique_ptr<Watch>> watches;
  bool replaced[2] = {false, false};
  const auto watchLists = [&] {
    for (const int i : {0, 1}) {
      const auto published = statusOf(AclType::mac, i == 0 ? "A" : "B");
      if (watches.size() == 2 || !statusOf(AclType::mac, "A") || !statusOf(AclType::mac, "B")) return;
      watches.push_back(std::make_unique<Watch>(*published, [&, i](const Zeb::Change& change) {
        if (!change.is(Acl::AclStatus::ruleStatusAttribute()) || std::exchange(replaced[i], true)) return;
        replaceRulesOf(i == 0 ? "B" : "A", i == 0 ? 100 : 200);
      }));
    }
  };
  for (int i = 0; i < 1000 && !sm->idle(); ++i) {
    watchLists();
    if (!scheduler->runOne()) clock.advance(Kelp::Duration(1));
  }
  ASSERT_TRUE(sm->idle());
  EXPECT_TRUE(replaced[0] || replaced[1]);
  for (const char* name : {"A", "B"}) {
    const auto& published = statusOf(AclType::mac, name)->ruleStatus();
    const auto& configured = rules(AclType::mac, name)->ipRuleById();
    EXPECT_EQ(published.size(), configured.size()) << name;
    for (auto rule = configured.begin(); rule; rule.next()) EXPECT_TRUE(published.has(rule.key())) << name;
  }
}

TEST_F(Edges, AChangeDuringTheFirstPassIsPublishedByTheSecond) {
  for (uint32_t i = 1; i < 6; ++i) rules(AclType::ip, "A")->ipRuleByIdIs(r(i), ipRule(i));
  Kiv::alwaysYieldIs(true);
  start();
  scheduler->runOne();
  ASSERT_FALSE(sm->initialScanDone());
  rules(AclType::ip, "A")->ipRuleByIdDel(r(1));
  rules(AclType::ip, "A")->ipRuleByIdIs(r(9), ipRule());
  rules(AclType::ipv6, "B")->ip6RuleByIdIs(r(7), ip6Rule());
  bind(AclType::ip, AclDirection::in, "eth1", "A");
  EXPECT_TRUE(status->status().empty());
  Kiv::alwaysYieldIs(false);
  for (int i = 0; i < 3; ++i) pass(1);
  ASSERT_TRUE(sm->idle());
  EXPECT_EQ(statusOf(AclType::ip, "A")->ruleStatus().size(), 5u);
  EXPECT_FALSE(statusOf(AclType::ip, "A")->ruleStatus(r(1)));
  EXPECT_TRUE(statusOf(AclType::ip, "A")->ruleStatus(r(9)));
  EXPECT_TRUE(statusOf(AclType::ipv6, "B")->ruleStatus(r(7)));
  EXPECT_TRUE(status->status(AclType::ip)->intf(AclDirection::in)->intf(Nimnet::IntfId("eth1")));
}

TEST_F(Edges, WhatAnEarlierRunLeftStaysWhenItIsConfiguredAndGoesWhenItIsNot) {
  const auto old = status->statusIs(AclType::ip);
  old->aclIs("kept")->ruleStatusIs(r(1), {0, 5, 50, true});
  old->acl("kept")->ruleStatusIs(r(2), {0, 6, 60, true});
  old->aclIs("empty")->ruleStatusIs(r(3), {});
  old->aclIs("gone");
  old->intfIs(AclDirection::in)->intfIs(Nimnet::IntfId("eth1"), "kept");
  old->intf(AclDirection::in)->intfIs(Nimnet::IntfId("eth2"), "gone");
  old->intfIs(AclDirection::out)->intfIs(Nimnet::IntfId("eth1"), "gone");
  status->statusIs(AclType::mac)->intfIs(AclDirection::in)->intfIs(Nimnet::IntfId("eth1"), "M");
  status->statusIs(AclType::ipv6)->aclIs("gone");
  rules(AclType::ip, "kept")->ipRuleByIdIs(r(1), ipRule());
  list(AclType::ip, "empty");
  bind(AclType::ip, AclDirection::in, "eth1", "kept");
  StatusWrites writes(status);
  const auto keptBefore = old->acl("kept");
  start();
  ASSERT_TRUE(settle());
  EXPECT_EQ(statusOf(AclType::ip, "kept"), keptBefore) << "the entry itself stays";
  Lines gone;
  for (const std::string& line : writes.take()) {
    if (line.ends_with(" gone")) gone.push_back(line);
  }
  std::sort(gone.begin(), gone.end());
  EXPECT_EQ(
      gone,
      (Lines{"ip.acl[empty].ruleStatus[r3] gone", "ip.acl[gone] gone", "ip.acl[kept].ruleStatus[r2] gone",
             "ip.intf[in].intf[eth2] gone", "ip.intf[out] gone", "ip.intf[out].intf[eth1] gone", "ipv6 gone",
             "ipv6.acl[gone] gone", "mac gone", "mac.intf[in] gone", "mac.intf[in].intf[eth1] gone"}));
}

TEST_F(Edges, AListThatGoesDuringItsReconciliationIsNotMissed) {
  for (const char* name : {"A", "B", "C"}) {
    list(AclType::ip, name);
    const auto old = status->statusIs(AclType::ip)->aclIs(name);
    for (uint32_t i = 1; i < 5; ++i) old->ruleStatusIs(r(i), {});
  }
  Kiv::alwaysYieldIs(true);
  start();
  delList(AclType::ip, "B");
  list(AclType::ip, "B");
  delList(AclType::ip, "C");
  Kiv::alwaysYieldIs(false);
  for (int i = 0; i < 3; ++i) pass(1);
  ASSERT_TRUE(sm->idle());
  EXPECT_TRUE(statusOf(AclType::ip, "A")->ruleStatus().empty());
  EXPECT_TRUE(statusOf(AclType::ip, "B")->ruleStatus().empty());
  EXPECT_FALSE(statusOf(AclType::ip, "C"));
}

TEST_F(Edges, ARuleOfAListWithoutStatusIsRecordedWhenTheListsEventComes) {
  const auto unpublished = MemSlab::make<Acl::AclConfig>("X");
  const auto sub = MemSlab::make<Acl::AclSubConfig>();
  sub->ipRuleByIdIs(r(1), ipRule());
  sub->ipRuleByIdIs(r(2), ipRule(20));
  unpublished->currCfgIs(sub);
  start();
  ASSERT_TRUE(settle());
  const Acl::IpRuleConfig rule(ipRule());
  sm->eventToIpRuleCfgStream(AclType::ip, "X", r(1), &rule);
  EXPECT_TRUE(sm->localAttrStore()->ruleIdsByAcl().empty());
  sm->eventToIpRuleCfgStream(AclType::ip, "X", r(1), nullptr);
  EXPECT_TRUE(sm->localAttrStore()->ruleIdsByAcl().empty()) << "what was never recorded is not withdrawn";
  EXPECT_TRUE(status->status().empty());
  sm->eventToAclConfigStream(AclType::ip, "X", unpublished);
  EXPECT_EQ(sm->localAttrStore()->ruleIdsByAcl({AclType::ip, "X"})->ruleIds().size(), 2u);
  EXPECT_EQ(statusOf(AclType::ip, "X")->ruleStatus().size(), 2u);
}

TEST_F(Edges, OnlyTheRulesOfAListsOwnKindAreRecordedAtItsEvent) {
  start();
  ASSERT_TRUE(settle());
  const auto mixed = MemSlab::make<Acl::AclConfig>("X");
  const auto sub = MemSlab::make<Acl::AclSubConfig>();
  sub->ipRuleByIdIs(r(1), ipRule());
  sub->ip6RuleByIdIs(r(2), ip6Rule());
  sub->macRuleByIdIs(r(3), macRule());
  mixed->currCfgIs(sub);
  for (const AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
    sm->eventToAclConfigStream(type, "X", mixed);
    const auto& ids = sm->localAttrStore()->ruleIdsByAcl({type, "X"})->ruleIds();
    EXPECT_EQ(ids.size(), 1u);
    EXPECT_TRUE(ids.has(r(1 + static_cast<uint64_t>(type))));
  }
}

TEST_F(Edges, EveryEventOfAListMakesItAFreshImplicitIdAndStatus) {
  const auto a = list(AclType::ip, "A");
  start();
  ASSERT_TRUE(settle());
  constexpr auto drop = Acl::ImplicitRuleType::drop;
  const UniqueId first = *statusOf(AclType::ip, "A")->implicitRuleId(drop);
  count(in, {AclDirection::in, AclType::ip, "A", first}, 2, 100);
  pass(1);
  EXPECT_EQ(statusOf(AclType::ip, "A")->implicitRuleStatus(drop)->packets, 2u);
  sm->eventToAclConfigStream(AclType::ip, "A", a);
  EXPECT_NE(*statusOf(AclType::ip, "A")->implicitRuleId(drop), first);
  EXPECT_EQ(*statusOf(AclType::ip, "A")->implicitRuleStatus(drop), (Acl::RuleStatus{0, 0, 101, true}));
  EXPECT_EQ(statusOf(AclType::ip, "A")->implicitRuleId().size(), 1u);
  EXPECT_EQ(statusOf(AclType::ip, "A")->implicitRuleStatus().size(), 1u);
}

TEST_F(Edges, AnEmptyCollectionIsPolledEverySecondAllTheSame) {
  start();
  ASSERT_TRUE(settle());
  Zeb::TraceHandle::enable("DpAclStatusVelo/7");
  {
    TraceCapture capture;
    for (int i = 0; i < 3; ++i) pass(1);
    const Lines texts = capture.texts();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "copyInCounters = Poll fired"), 3);
  }
  Zeb::TraceHandle::disableAll();
}

TEST_F(Edges, GenerationsAreEqualAtRestAndDifferWhileAPassIsOutstanding) {
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 1, 99);
  count(in, {AclDirection::in, AclType::ip, "A", r(2)}, 1, 99);
  start();
  const auto& state = *sm->inputSmScanState();
  EXPECT_EQ(state.copyInCountersCodefGeneration(), 1u);
  EXPECT_EQ(state.copyInCountersCodefDoneGen(), 0u);
  Kiv::alwaysYieldIs(true);
  scheduler->runTurn();
  EXPECT_FALSE(state.copyInCountersIdle()) << "it stopped at its first element";
  EXPECT_FALSE(state.idle());
  EXPECT_NE(state.copyInCountersCodefGeneration(), state.copyInCountersCodefDoneGen());
  EXPECT_EQ(state.copyMacOutCountersCodefGeneration(), state.copyMacOutCountersCodefDoneGen());
  scheduler->runTurn();
  EXPECT_TRUE(state.idle());
  EXPECT_EQ(state.copyInCountersCodefGeneration(), 2u);
  EXPECT_EQ(state.copyInCountersCodefDoneGen(), 2u);
  pass(1);
  EXPECT_EQ(state.copyInCountersCodefDoneGen(), 3u);
}

TEST_F(Edges, WithoutASchedulerTheProcessesDefaultIsUsed) {
  const auto root = Kiv::TaskSchedulerRoot::findOrCreateScheduler();
  auto c = control();
  c.scheduler = nullptr;
  sm = Velo::VeloAcl::VeloDpAclStatusSmIs(config, intfConfig, in, macOut, ipOut, ip6Out, status, c);
  EXPECT_EQ(sm->scheduler(), root);
  for (int i = 0; i < 100 && !sm->idle(); ++i) root->runTurn();
  EXPECT_TRUE(sm->idle());
}

TEST_F(Edges, AStatusSubscriberMayPutOtherRulesInForceWhileRulesAreBeingTakenAway) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  rules(AclType::ip, "A")->ipRuleByIdIs(r(2), ipRule(20));
  start();
  ASSERT_TRUE(settle());
  bool once = true;
  Watch watch(*statusOf(AclType::ip, "A"), [&](const Zeb::Change&) {
    if (!std::exchange(once, false)) return;
    const auto again = MemSlab::make<Acl::AclSubConfig>();
    again->ipRuleByIdIs(r(5), ipRule());
    list(AclType::ip, "A")->currCfgIs(again);
  });
  list(AclType::ip, "A")->currCfgIs(MemSlab::make<Acl::AclSubConfig>());
  EXPECT_EQ(statusOf(AclType::ip, "A")->ruleStatus().size(), 1u);
  EXPECT_TRUE(statusOf(AclType::ip, "A")->ruleStatus(r(5)));
  rules(AclType::ip, "A")->ipRuleByIdIs(r(6), ipRule());
  EXPECT_TRUE(statusOf(AclType::ip, "A")->ruleStatus(r(6)))
      << "the walker of the rules in force is the living one";
}

/// Polls that were through before the scans of the rules are not waited for until their second is over.
TEST_F(Edges, WhenTheFirstScansOutlastTheFirstPollsTheNextPollsComeAtOnce) {
  for (uint32_t i = 1; i <= 40; ++i) rules(AclType::ip, "A")->ipRuleByIdIs(r(i), ipRule(i));
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 1, 99);
  Kiv::alwaysYieldIs(true);
  start();
  const auto& state = *sm->inputSmScanState();
  while (state.copyInCountersCodefDoneGen() == 0 || state.copyMacOutCountersCodefDoneGen() == 0)
    ASSERT_TRUE(scheduler->runOne());
  ASSERT_TRUE(state.idle());
  ASSERT_FALSE(state.ipRuleCfgStreamScan()) << "the polls were faster";
  EXPECT_TRUE(settle());
  EXPECT_TRUE(sm->ready()) << "with no time passing";
  EXPECT_EQ(statusOf(AclType::ip, "A")->ruleStatus(r(1))->packets, 1u);
}

TEST_F(Edges, APollThatTakesLongHoldsUpNoneThatWasThroughBeforeTheRulesWereScanned) {
  for (int i = 10; i < 50; ++i)
    rules(AclType::ip, fmt::format("L{}", i).c_str())->ipRuleByIdIs(r(1), ipRule());
  count(ipOut, {AclDirection::out, AclType::ip, "L49", r(1)}, 1, 99);
  for (uint32_t i = 1; i <= 500; ++i) count(in, {AclDirection::in, AclType::ip, "B", r(i)}, 1, 99);
  Kiv::alwaysYieldIs(true);
  start();
  const auto& state = *sm->inputSmScanState();
  while (!sm->outputState()->ruleIdsByAclRuleIdsOutputReady()) ASSERT_TRUE(scheduler->runOne());
  ASSERT_EQ(state.copyInCountersCodefDoneGen(), 0u);
  ASSERT_GT(state.copyIpOutCountersCodefDoneGen(), 0u);
  ASSERT_EQ(statusOf(AclType::ip, "L49")->ruleStatus(r(1))->packets, 0u);
  while (state.copyInCountersCodefDoneGen() == 0) ASSERT_TRUE(scheduler->runOne());
  EXPECT_EQ(statusOf(AclType::ip, "L49")->ruleStatus(r(1))->packets, 1u) << "with no time passing";
}

/// Counters of lists that have no status yet are met in vain.
TEST_F(Edges, WhatAPollMetBeforeTheRulesWereScannedIsCopiedBeforeTheMachineIsReady) {
  const auto name = [](int i) { return fmt::format("L{}", i); };
  for (int i = 10; i < 50; ++i) {
    rules(AclType::ip, name(i).c_str())->ipRuleByIdIs(r(1), ipRule());
    for (uint32_t id = 1; id <= 20; ++id) count(in, {AclDirection::in, AclType::ip, name(i), r(id)}, 1, 99);
  }
  Kiv::alwaysYieldIs(true);
  start();
  const auto copied = [&] {
    uint64_t packets = 0;
    for (int i = 10; i < 50; ++i) {
      const auto list = statusOf(AclType::ip, name(i).c_str());
      for (auto rule = list->ruleStatus().begin(); rule; rule.next()) packets += rule.value().packets;
    }
    return packets;
  };
  while (!sm->outputState()->ruleIdsByAclRuleIdsOutputReady()) ASSERT_TRUE(scheduler->runOne());
  const auto& state = *sm->inputSmScanState();
  ASSERT_FALSE(state.copyInCountersIdle()) << "the pass is half way";
  ASSERT_EQ(state.copyInCountersCodefDoneGen(), 0u);
  while (state.copyInCountersCodefDoneGen() == 0) ASSERT_TRUE(scheduler->runOne());
  ASSERT_LT(copied(), 800u) << "that pass met some too early";
  EXPECT_FALSE(sm->ready());
  EXPECT_TRUE(settle());
  EXPECT_TRUE(sm->ready()) << "with no time passing";
  EXPECT_EQ(copied(), 800u);
}

TEST_F(Edges, APollThatWasAskedForByAnEarlierMachineIsNotRunInTheFirstPass) {
  for (uint32_t i = 1; i <= 20; ++i) rules(AclType::ip, "A")->ipRuleByIdIs(r(i), ipRule(i));
  start();
  ASSERT_TRUE(settle());
  clock.advance(Kelp::Duration(1));
  Kiv::alwaysYieldIs(true);
  const auto old = sm;
  start();
  ASSERT_FALSE(sm->initialScanDone());
  const auto& state = *sm->inputSmScanState();
  const auto poll = scheduler->taskIs(0, "VeloDpAclStatusSm-copyInCountersTask");
  ASSERT_TRUE(poll->taskWorkQueued());
  bool changed = false;
  const Watch watch(*sm->inputSmScanState(), [&](const Zeb::Change& c) {
    changed = changed || c.is(Velo::VeloAcl::InputSmScanState::copyInCountersIdleAttribute());
  });
  while (poll->taskWorkQueued()) ASSERT_TRUE(scheduler->runOne());
  ASSERT_FALSE(sm->initialScanDone());
  EXPECT_FALSE(changed);
  EXPECT_EQ(state.copyInCountersCodefGeneration(), 0u);
  EXPECT_FALSE(sm->eventToCopyInCountersInternal(0)) << "no pass is through";
  EXPECT_TRUE(settle());
}

TEST_F(Edges, TheMachineIsNotIdleWhileAnyOfItsPollsIsAtWork) {
  const struct {
    Kelp::Ptr<Machine::Counters> counters;
    std::function<bool()> idle;
  } rows[] = {
      {in, [&] { return sm->inputSmScanState()->copyInCountersIdle(); }},
      {macOut, [&] { return sm->inputSmScanState()->copyMacOutCountersIdle(); }},
      {ipOut, [&] { return sm->inputSmScanState()->copyIpOutCountersIdle(); }},
      {ip6Out, [&] { return sm->inputSmScanState()->copyIp6OutCountersIdle(); }},
  };
  start();
  ASSERT_TRUE(settle());
  for (const auto& row : rows) {
    for (uint64_t i = 1; i <= 2; ++i) count(row.counters, {AclDirection::in, AclType::ip, "A", r(i)}, 1, 99);
    Kiv::alwaysYieldIs(true);
    clock.advance(Kelp::Duration(1));
    while (row.idle()) ASSERT_TRUE(scheduler->runOne());
    EXPECT_FALSE(sm->inputSmScanState()->idle());
    EXPECT_FALSE(sm->idle());
    EXPECT_TRUE(sm->ready());
    Kiv::alwaysYieldIs(false);
    scheduler->runTurn();
    EXPECT_TRUE(sm->idle());
    const CounterKey one{AclDirection::in, AclType::ip, "A", r(1)},
        two{AclDirection::in, AclType::ip, "A", r(2)};
    row.counters->counterCollectionDel(one);
    row.counters->counterCollectionDel(two);
  }
}

TEST_F(Edges, TheMachinesOwnEntitiesHaveItAsParent) {
  start();
  const auto scan = sm->inputSmScanState();
  const auto output = sm->outputState();
  const auto store = sm->localAttrStore();
  EXPECT_EQ(scan->parent(), sm.get());
  EXPECT_EQ(output->parent(), sm.get());
  EXPECT_EQ(store->parent(), sm.get());
  stop();
  EXPECT_FALSE(scan->parent() || output->parent() || store->parent());
}

/// Whoever makes a walker by hand gets one that is alive, and the same one again.
TEST_F(Edges, AWalkerThatIsMadeFollowsAndScansAndIsThereOnce) {
  using namespace Velo::VeloAcl;
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  bind(AclType::ip, AclDirection::in, "eth1", "A");
  start();
  ASSERT_TRUE(settle());
  EXPECT_EQ(AclConfigSm3Is(config, *sm), sm->aclConfigSm3());
  EXPECT_EQ(AclIntfConfigSm0Is(intfConfig, *sm), sm->aclIntfConfigSm0());
  EXPECT_EQ(RuleIdsByAclSm7Is(sm->localAttrStore(), *sm), sm->ruleIdsByAclSm7());

  const auto types = MemSlab::make<Acl::AclTypeConfig>(AclType::mac);
  const auto made = ConfigSm4Is(types, *sm->aclConfigSm3(), AclType::mac);
  EXPECT_EQ(ConfigSm4Is(types, *sm->aclConfigSm3(), AclType::mac), made);
  EXPECT_TRUE(made->hasNotificationActive());
  EXPECT_TRUE(made->inputScanComplete1() && made->inputScanComplete2() && made->inputScanComplete3() &&
              made->inputScanComplete4());
  types->aclIs("M");
  EXPECT_TRUE(statusOf(AclType::mac, "M"));

  const auto alone = MemSlab::make<Acl::AclConfig>("N");
  const auto inForce = MemSlab::make<Acl::AclSubConfig>();
  inForce->macRuleByIdIs(r(2), macRule());
  sm->eventToAclConfigStream(AclType::mac, "N", alone);
  const auto sm5 = AclSm5Is(alone, *made, "N");
  EXPECT_EQ(AclSm5Is(alone, *made, "N"), sm5);
  const auto sm6 = CurrCfgSm6Is(inForce, *sm5);
  EXPECT_EQ(CurrCfgSm6Is(inForce, *sm5), sm6);
  EXPECT_TRUE(statusOf(AclType::mac, "N")->ruleStatus(r(2))) << "scanned";
  inForce->macRuleByIdIs(r(3), macRule());
  EXPECT_TRUE(statusOf(AclType::mac, "N")->ruleStatus(r(3))) << "and followed";

  const auto directions = MemSlab::make<Acl::IntfTypeConfig>(AclType::mac);
  const auto sm1 = ConfigSm1Is(directions, *sm->aclIntfConfigSm0(), AclType::mac);
  EXPECT_EQ(ConfigSm1Is(directions, *sm->aclIntfConfigSm0(), AclType::mac), sm1);
  const auto intfs = MemSlab::make<Acl::AclIntf>(AclDirection::out);
  intfs->intfIs(Nimnet::IntfId("eth5"), "M");
  EXPECT_EQ(IntfSm2Is(intfs, *sm1, AclDirection::out), IntfSm2Is(intfs, *sm1, AclDirection::out));
  intfs->intfIs(Nimnet::IntfId("eth6"), "M");
  EXPECT_EQ(status->status(AclType::mac)->intf(AclDirection::out)->intf().size(), 2u);
  EXPECT_TRUE(sm1->inputScanComplete0());
  EXPECT_FALSE(sm1->inTask0());
}

}  // namespace
}  // namespace SmTest
