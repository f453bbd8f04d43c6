#include "Writes.h"

/// In steady state a change has the machine write exactly what follows from it, nothing twice and nothing
/// else.
namespace SmTest {
namespace {

using Lines = std::vector<std::string>;

class Writes : public testing::Test, protected World {
 protected:
  void begin() {
    start();
    ASSERT_TRUE(settle());
    writes = std::make_unique<StatusWrites>(status);
  }
  Lines after(const std::function<void()>& change) {
    change();
    return writes->take();
  }
  UniqueId implicitId(AclType type, const char* name) const {
    return *statusOf(type, name)->implicitRuleId(Acl::ImplicitRuleType::drop);
  }

  std::unique_ptr<StatusWrites> writes;
};

TEST_F(Writes, AListThatComesAndGoes) {
  begin();
  EXPECT_EQ(after([&] { list(AclType::ip, "A"); }),
            (Lines{"ip added", "ip.acl[A] added", "ip.acl[A].implicitRuleId[drop] id",
                   "ip.acl[A].implicitRuleStatus[drop] {0, 0, 100, true}"}))
      << "a list without rules is published, bound nowhere";
  EXPECT_EQ(after([&] { delList(AclType::ip, "A"); }), (Lines{"ip.acl[A] gone", "ip gone"}));
}

TEST_F(Writes, RulesOfEveryKind) {
  begin();
  list(AclType::ip, "A");
  list(AclType::ipv6, "A");
  list(AclType::mac, "A");
  writes->take();
  EXPECT_EQ(after([&] { rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule()); }),
            Lines{"ip.acl[A].ruleStatus[r1] {0, 0, 100, true}"});
  EXPECT_EQ(after([&] { rules(AclType::ipv6, "A")->ip6RuleByIdIs(r(1), ip6Rule()); }),
            Lines{"ipv6.acl[A].ruleStatus[r1] {0, 0, 100, true}"});
  EXPECT_EQ(after([&] { rules(AclType::mac, "A")->macRuleByIdIs(r(1), macRule()); }),
            Lines{"mac.acl[A].ruleStatus[r1] {0, 0, 100, true}"});
  EXPECT_EQ(after([&] { rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule(20)); }), Lines{})
      << "another text under the id is the same rule";
  EXPECT_EQ(after([&] { rules(AclType::ip, "A")->ipRuleByIdDel(r(1)); }),
            Lines{"ip.acl[A].ruleStatus[r1] gone"});
  EXPECT_TRUE(sm->localAttrStore()->ruleIdsByAcl().has({AclType::mac, "A"}));
  EXPECT_FALSE(sm->localAttrStore()->ruleIdsByAcl().has({AclType::ip, "A"}))
      << "the last rule takes the entry along";
}

TEST_F(Writes, ARuleThatComesBackStartsAtZeroAtTheTimeOfDay) {
  begin();
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 5, 100);
  pass(1);
  EXPECT_EQ(statusOf(AclType::ip, "A")->ruleStatus(r(1))->packets, 5u);
  rules(AclType::ip, "A")->ipRuleByIdDel(r(1));
  clock.advance(Kelp::Duration(0.25));
  writes->take();
  EXPECT_EQ(after([&] { rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule()); }),
            Lines{"ip.acl[A].ruleStatus[r1] {0, 0, 101.25, true}"});
  EXPECT_EQ(after([&] { pass(1); }),
            (Lines{"ip.acl[A].ruleStatus[r1] {0, 5, 100, true}", "ip.acl[A].counterUpdateTime 102.25"}));
}

TEST_F(Writes, TheRulesOfAListAreReplaced) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  begin();
  EXPECT_EQ(
      after([&] {
        const auto sub = MemSlab::make<Acl::AclSubConfig>();
        sub->ipRuleByIdIs(r(1), ipRule());
        sub->macRuleByIdIs(r(2), macRule());
        sub->ip6RuleByIdIs(r(3), ip6Rule());
        list(AclType::ip, "A")->currCfgIs(sub);
      }),
      (Lines{"ip.acl[A].ruleStatus[r1] gone", "ip.acl[A].ruleStatus[r1] {0, 0, 100, true}",
             "ip.acl[A].ruleStatus[r3] {0, 0, 100, true}", "ip.acl[A].ruleStatus[r2] {0, 0, 100, true}"}))
      << "the old ones go before the new ones come: IPv4, IPv6, MAC";
  EXPECT_EQ(after([&] { list(AclType::ip, "A")->currCfgIs(MemSlab::make<Acl::AclSubConfig>()); }),
            (Lines{"ip.acl[A].ruleStatus[r2] gone", "ip.acl[A].ruleStatus[r3] gone",
                   "ip.acl[A].ruleStatus[r1] gone"}))
      << "and they go MAC, IPv6, IPv4";
  EXPECT_EQ(after([&] { list(AclType::ip, "A")->currCfgDel(); }), Lines{});
}

TEST_F(Writes, Bindings) {
  begin();
  EXPECT_EQ(after([&] { bind(AclType::ip, AclDirection::in, "eth1", "nowhere"); }),
            (Lines{"ip added", "ip.intf[in] added", "ip.intf[in].intf[eth1] nowhere"}))
      << "a binding to a list that is not there is published";
  EXPECT_EQ(after([&] { bind(AclType::ip, AclDirection::in, "eth1", "B"); }),
            Lines{"ip.intf[in].intf[eth1] B"})
      << "in place, nothing is deleted in between";
  EXPECT_EQ(after([&] { bind(AclType::ip, AclDirection::in, "eth1", "B"); }), Lines{});
  EXPECT_EQ(after([&] { bind(AclType::ip, AclDirection::out, "eth1", "B"); }),
            (Lines{"ip.intf[out] added", "ip.intf[out].intf[eth1] B"}));
  EXPECT_EQ(after([&] { unbind(AclType::ip, AclDirection::in, "eth1"); }),
            (Lines{"ip.intf[in].intf[eth1] gone", "ip.intf[in] gone"}));
  EXPECT_EQ(after([&] { intfConfig->configDel(AclType::ip); }),
            (Lines{"ip.intf[out].intf[eth1] gone", "ip.intf[out] gone", "ip gone"}));
}

TEST_F(Writes, ATypeStaysWhileABindingOfItDoes) {
  list(AclType::ip, "A");
  bind(AclType::ip, AclDirection::in, "eth1", "A");
  begin();
  EXPECT_EQ(after([&] { delList(AclType::ip, "A"); }), Lines{"ip.acl[A] gone"});
  EXPECT_EQ(after([&] { unbind(AclType::ip, AclDirection::in, "eth1"); }),
            (Lines{"ip.intf[in].intf[eth1] gone", "ip.intf[in] gone", "ip gone"}));
}

TEST_F(Writes, AListThatGoesTakesItsRulesAlongUnannounced) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  begin();
  EXPECT_EQ(after([&] { delList(AclType::ip, "A"); }), (Lines{"ip.acl[A] gone", "ip gone"}))
      << "the rules end at their filter";
  EXPECT_TRUE(sm->localAttrStore()->ruleIdsByAcl().empty());
}

TEST_F(Writes, ATypeThatGoesWithdrawsRulesThenListsThenItself) {
  const auto sub = rules(AclType::mac, "A");
  sub->macRuleByIdIs(r(1), macRule());
  sub->ip6RuleByIdIs(r(2), ip6Rule());
  sub->ipRuleByIdIs(r(3), ipRule());
  begin();
  EXPECT_EQ(after([&] { config->configDel(AclType::mac); }),
            (Lines{"mac.acl[A].ruleStatus[r1] gone", "mac.acl[A].ruleStatus[r2] gone",
                   "mac.acl[A].ruleStatus[r3] gone", "mac.acl[A] gone", "mac gone"}));
}

TEST_F(Writes, APollCopiesAndStampsOnceACounter) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  begin();
  const UniqueId old = implicitId(AclType::ip, "A");
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 2, 100);
  EXPECT_EQ(after([&] { pass(1); }),
            (Lines{"ip.acl[A].ruleStatus[r1] {0, 2, 100, true}", "ip.acl[A].counterUpdateTime 101"}));
  EXPECT_EQ(after([&] { pass(1); }), Lines{"ip.acl[A].counterUpdateTime 102"}) << "stamped with nothing new";
  count(in, {AclDirection::in, AclType::ip, "A", old}, 1, 102);
  EXPECT_EQ(after([&] { pass(0.5); }), Lines{});
  Lines second = after([&] { pass(0.5); });
  std::sort(second.begin(), second.end());  // which counter comes first is up to the generated id
  EXPECT_EQ(second, (Lines{"ip.acl[A].counterUpdateTime 103",
                           "ip.acl[A].implicitRuleStatus[drop] {0, 1, 102, true}"}));
  EXPECT_EQ(statusOf(AclType::ip, "A")->ruleStatus(old), nullptr) << "never among the rules";
}

TEST_F(Writes, AListThatComesBackHasAFreshImplicitIdAndItsOldCounterIsARulesNow) {
  list(AclType::ip, "A");
  begin();
  const UniqueId old = implicitId(AclType::ip, "A");
  count(in, {AclDirection::in, AclType::ip, "A", old}, 4, 100);
  delList(AclType::ip, "A");
  list(AclType::ip, "A");
  const UniqueId fresh = implicitId(AclType::ip, "A");
  EXPECT_NE(fresh, old);
  writes->take();
  pass(1);
  EXPECT_EQ(*statusOf(AclType::ip, "A")->ruleStatus(old), (Acl::RuleStatus{0, 4, 100, true}));
  EXPECT_EQ(*statusOf(AclType::ip, "A")->implicitRuleStatus(Acl::ImplicitRuleType::drop),
            (Acl::RuleStatus{0, 0, 100, true}));
}

TEST_F(Writes, TheLaterPollsCounterIsPublished) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  begin();
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 7, 90);
  count(ipOut, {AclDirection::out, AclType::ip, "A", r(1)}, 1, 95);
  EXPECT_EQ(after([&] { pass(1); }),
            (Lines{"ip.acl[A].ruleStatus[r1] {0, 1, 95, true}", "ip.acl[A].counterUpdateTime 101",
                   "ip.acl[A].ruleStatus[r1] {0, 7, 90, true}"}))
      << "ip-out is copied before in; the second stamp of the same time is no change";
}

TEST_F(Writes, ACounterOfARuleThatIsNotThereIsWrittenAllTheSame) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  begin();
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 3, 100);
  rules(AclType::ip, "A")->ipRuleByIdDel(r(1));
  writes->take();
  EXPECT_EQ(after([&] { pass(1); }),
            (Lines{"ip.acl[A].ruleStatus[r1] {0, 3, 100, true}", "ip.acl[A].counterUpdateTime 101"}));
}

TEST_F(Writes, ACounterWithoutAListLeavesNothing) {
  begin();
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 3, 100);
  EXPECT_EQ(after([&] { pass(1); }), Lines{});
  EXPECT_TRUE(status->status().empty());
}

TEST_F(Writes, APollIsDueASecondAfterTheEndOfTheLastNotAtAFixedRate) {
  list(AclType::ip, "A");
  begin();
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 1, 100);
  clock.advance(Kelp::Duration(1));
  Kiv::alwaysYieldIs(true);
  count(in, {AclDirection::in, AclType::ip, "A", r(2)}, 1, 100);
  scheduler->runTurn();
  Kiv::alwaysYieldIs(false);
  EXPECT_FALSE(sm->idle()) << "half a pass";
  clock.advance(Kelp::Duration(0.75));
  scheduler->runTurn();
  EXPECT_TRUE(sm->idle());
  writes->take();
  EXPECT_EQ(after([&] { pass(0.5); }), Lines{})
      << "1.25 s after the pass began, half a second after it ended";
  EXPECT_EQ(after([&] { pass(0.5); }).size(), 1u) << "one stamp, twice the same time";
}

}  // namespace
}  // namespace SmTest
