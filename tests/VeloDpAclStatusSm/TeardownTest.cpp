#include "Writes.h"

/// The machine may be ended at any moment, from outside and from within its own writes; after that it does
/// and publishes nothing. What is leaked or used after its end, the sanitizers and the main of the tests
/// tell.
namespace SmTest {
namespace {

enum class Ending { dropped, withdrawn, withdrawnAndDropped };

class Teardown : public testing::TestWithParam<Ending>, protected World {
 protected:
  void configure() {
    for (const char* name : {"A", "B"}) {
      for (uint32_t i = 1; i <= 3; ++i) rules(AclType::ip, name)->ipRuleByIdIs(r(i), ipRule(10 * i));
      bind(AclType::ip, AclDirection::in, "eth1", name);
      bind(AclType::ip, AclDirection::out, "eth2", name);
    }
    rules(AclType::mac, "M")->macRuleByIdIs(r(9), macRule());
    for (const auto& counters : {in, ipOut}) {
      for (uint32_t i = 1; i <= 3; ++i) count(counters, {AclDirection::in, AclType::ip, "A", r(i)}, i, 99);
    }
  }
  /// Everything as it was before, and no machine.
  void beginAnew(bool stale) {
    intfConfig = MemSlab::make<Acl::IntfConfig>("intfConfig");
    config = MemSlab::make<Acl::Config>("config");
    status = MemSlab::make<Acl::StatusDp>("kepa");
    ended = nullptr;
    configure();
    if (stale) leaveStaleStatus();
  }
  void leaveStaleStatus() {
    for (const char* name : {"A", "Z"}) {
      const auto old = status->statusIs(AclType::ip)->aclIs(name);
      for (uint32_t i = 20; i < 23; ++i) old->ruleStatusIs(r(i), {});
      old->implicitRuleIdIs(Acl::ImplicitRuleType::none, r(1));
      old->implicitRuleStatusIs(Acl::ImplicitRuleType::none, {});
      status->statusIs(AclType::ip)->intfIs(AclDirection::out)->intfIs(Nimnet::IntfId(name), name);
    }
    status->statusIs(AclType::ipv6)->aclIs("Z");
  }
  void end() {
    const auto keep = GetParam() == Ending::withdrawn ? sm : nullptr;
    if (sm && GetParam() != Ending::dropped) sm->doDeleteAll();
    sm = nullptr;
    if (keep) ended = keep;
  }
  /// Everything that a living machine would react to.
  void provoke() {
    rules(AclType::ip, "A")->ipRuleByIdIs(r(30), ipRule());
    rules(AclType::ip, "new")->ipRuleByIdIs(r(31), ipRule());
    bind(AclType::ip, AclDirection::in, "eth3", "A");
    delList(AclType::ip, "B");
    config->configDel(AclType::mac);
    count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 1, 100);
    for (int i = 0; i < 3; ++i) pass(1);
    if (ended) {
      ended->handleCopyInCountersCodef();
      ended->handleCopyIpOutCountersCodefInputReady();
      ended->handleAclStatusStatusAclOutputInputReady();
      ended->handleInitialScanDone();
      ended->handleInitialized();
      ended->hasNotificationActiveIs(true);
      ended->doDeleteAll();
    }
  }

  Kelp::Ptr<Machine> ended;
};

INSTANTIATE_TEST_SUITE_P(Endings, Teardown,
                         testing::Values(Ending::dropped, Ending::withdrawn, Ending::withdrawnAndDropped),
                         [](const auto& p) {
                           return std::string(p.param == Ending::dropped     ? "Dropped"
                                              : p.param == Ending::withdrawn ? "Withdrawn"
                                                                             : "WithdrawnAndDropped");
                         });

TEST_P(Teardown, AfterAnyNumberOfTaskRuns) {
  size_t inFirstPass = 0, inSecondPass = 0, reconciling = 0, steady = 0;
  for (const bool stale : {false, true}) {
    for (int runs = 0; runs < 90; ++runs) {
      SCOPED_TRACE(fmt::format("{} runs, {}", runs, stale ? "stale status" : "no status"));
      beginAnew(stale);
      Kiv::alwaysYieldIs(true);
      start();
      for (int i = 0; i < runs; ++i) {
        if (scheduler->timeUntilDue() && *scheduler->timeUntilDue() > Kelp::Duration()) pass(1, 1);
        scheduler->runOne();
      }
      ++(!sm->initialScanDone()                           ? inFirstPass
         : !sm->inputSmScanState()->ipRuleCfgStreamScan() ? inSecondPass
         : !sm->ready()                                   ? reconciling
                                                          : steady);
      StatusWrites writes(status);
      end();
      if (GetParam() == Ending::dropped) {
        EXPECT_EQ(writes.take(), std::vector<std::string>{}) << "the status outlives the machine untouched";
      }
      if (GetParam() != Ending::dropped && !stale) {
        EXPECT_TRUE(status->status().empty());
      }
      writes.take();
      Kiv::alwaysYieldIs(false);
      provoke();
      EXPECT_EQ(writes.take(), std::vector<std::string>{});
      EXPECT_FALSE(scheduler->timeUntilDue()) << "no task is left";
    }
  }
  EXPECT_GE(inFirstPass, 5u);
  EXPECT_GE(inSecondPass, 5u);
  EXPECT_GE(reconciling, 5u);
  EXPECT_GE(steady, 5u);
}

TEST_P(Teardown, WithinAnyOfItsWrites) {
  for (const uint8_t mode : {Rix::SmControl::synchronous, Rix::SmControl::asynchronous}) {
    for (const bool stale : {false, true}) {
      bool fired = true;
      size_t at = 0;
      for (; fired; ++at) {
        SCOPED_TRACE(fmt::format("write {}, mode {}, {}", at, mode, stale ? "stale status" : "no status"));
        fired = false;
        beginAnew(stale);
        StatusWrites writes(status);
        size_t written = 0;
        writes.onWrite = [&](const std::string&) {
          if (written++ != at) return;
          fired = true;
          end();
        };
        const std::function<void()> steps[] = {
            [&] { sm->handleInitialized(); },
            [&] { settle(); },
            [&] { rules(AclType::ip, "A")->ipRuleByIdIs(r(30), ipRule()); },
            [&] { list(AclType::ip, "A")->currCfgIs(MemSlab::make<Acl::AclSubConfig>()); },
            [&] { bind(AclType::ipv6, AclDirection::in, "eth3", "A"); },
            [&] { list(AclType::ipv6, "new"); },
            [&] { pass(1); },
            [&] { unbind(AclType::ip, AclDirection::in, "eth1"); },
            [&] { delList(AclType::ip, "B"); },
            [&] { config->configDel(AclType::mac); },
            [&] { sm->doDeleteAll(); },
        };
        sm = MemSlab::make<Machine>(config, intfConfig, in, macOut, ipOut, ip6Out, status, control(mode));
        Kiv::alwaysYieldIs(at % 2 == 1);
        for (const auto& step : steps) {
          step();
          if (fired) break;
        }
        Kiv::alwaysYieldIs(false);
        if (!fired) {
          end();
          continue;
        }
        if (GetParam() != Ending::dropped && !stale) {
          EXPECT_TRUE(status->status().empty())
              << "what was written is withdrawn, and nothing written after it";
        }
        writes.take();
        provoke();
        EXPECT_EQ(writes.take(), std::vector<std::string>{});
        EXPECT_FALSE(scheduler->timeUntilDue()) << "no task is left";
      }
      EXPECT_GT(at, 40u) << "writes in one run of the steps";
    }
  }
}

TEST_P(Teardown, WithinAChangeOfItsScanState) {
  for (int at = 0; at < 40; ++at) {
    SCOPED_TRACE(at);
    intfConfig = MemSlab::make<Acl::IntfConfig>("intfConfig");
    config = MemSlab::make<Acl::Config>("config");
    status = MemSlab::make<Acl::StatusDp>("kepa");
    ended = nullptr;
    configure();
    Kiv::alwaysYieldIs(true);
    start();
    int changes = 0;
    bool fired = false;
    Watch watch(*sm->inputSmScanState(), [&](const Zeb::Change&) {
      if (changes++ != at) return;
      fired = true;
      end();
    });
    for (int i = 0; i < 300 && !fired; ++i) pass(0.5, 1);
    ASSERT_TRUE(fired);
    Kiv::alwaysYieldIs(false);
    StatusWrites writes(status);
    provoke();
    EXPECT_EQ(writes.take(), std::vector<std::string>{});
    EXPECT_FALSE(scheduler->timeUntilDue());
  }
}

TEST(TeardownOfTwo, TheEndOfAnOldMachineDoesNotSilenceTheOneThatTookOverItsTasks) {
  World world;
  world.rules(AclType::ip, "A")->ipRuleByIdIs(r(1), World::ipRule());
  World::count(world.in, {AclDirection::in, AclType::ip, "A", r(1)}, 3, 99);
  Kiv::alwaysYieldIs(true);
  world.start();
  auto old = world.sm;
  world.start();
  old = nullptr;
  Kiv::alwaysYieldIs(false);
  for (int i = 0; i < 5; ++i) world.pass(1);
  EXPECT_TRUE(world.sm->idle());
  EXPECT_EQ(world.statusOf(AclType::ip, "A")->ruleStatus(r(1))->packets, 3u);
}

}  // namespace
}  // namespace SmTest
