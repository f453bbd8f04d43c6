#include "../support/UncheckedMpls.h"
#include "AggregatorSupport.h"

#include <algorithm>

namespace {

using namespace TestSupport;
using Acl::AclType;
using Lines = std::vector<std::string>;
using Names = std::vector<Kelp::String>;

class AclConfigAggregator : public testing::Test {
 protected:
  using Source = Kelp::Ptr<Acl::Input::Config>;

  Source input(const Kelp::String& name) {
    const auto made = MemSlab::make<Acl::Input::Config>(name);
    dir->entryIs(made);
    return made;
  }
  void start() { sm->hasNotificationActiveIs(true); }

  const Kelp::Ptr<Zeb::Dir> dir = MemSlab::make<Zeb::Dir>(Kelp::String("input"));
  const Source cli = MemSlab::make<Acl::Input::Config>(Kelp::String("cli"));
  const Kelp::Ptr<Acl::Config> target = MemSlab::make<Acl::Config>();
  const Kelp::Ptr<Acl::AclConfigAggregatorSm> sm =
      Acl::AclConfigAggregatorSm::AclConfigAggregatorSmIs(dir, cli, target);
  TargetLog log{target};
};

TEST_F(AclConfigAggregator, DoesNothingBeforeItIsSwitchedOn) {
  listIs(*cli, "A", {{5, 10}});
  EXPECT_EQ(shown(*target), "");
  start();
  EXPECT_EQ(shown(*target), "ip/A{5:10}") << "what is there already is taken up at once";
  listIs(*cli, "B", {});
  EXPECT_EQ(shown(*target), "ip/A{5:10}, ip/B{}") << "and what comes later when it comes";
}

TEST_F(AclConfigAggregator, TheCommandLineWinsThenTheFirstByName) {
  start();
  const Source z = input("z"), b = input("b");
  listIs(*z, "L", {{30, 1}});
  EXPECT_EQ(shown(*target), "ip/L{30:1}") << "the only one";
  listIs(*b, "L", {{20, 1}});
  EXPECT_EQ(shown(*target), "ip/L{20:1}") << "b is before z though it came later";
  listIs(*cli, "L", {{10, 1}});
  EXPECT_EQ(shown(*target), "ip/L{10:1}") << "the command line is before every directory entry";
  EXPECT_EQ(sm->sources(AclType::ip, "L"), (Names{"cli", "b", "z"})) << "the one in force first";
  listIs(*input("a"), "L", {{40, 1}});
  EXPECT_EQ(shown(*target), "ip/L{10:1}");
  EXPECT_EQ(sm->sources(AclType::ip, "L"), (Names{"cli", "a", "b", "z"}));
  EXPECT_EQ(sm->sources(AclType::mac, "L"), Names{}) << "the kinds have name spaces of their own";
  EXPECT_EQ(sm->sources(AclType::ip, "M"), Names{});
}

TEST_F(AclConfigAggregator, WhenTheWinnerGoesTheNextTakesOver) {
  const Source a = input("a"), b = input("b");
  listIs(*cli, "L", {{10, 1}});
  listIs(*a, "L", {{20, 1}});
  listIs(*b, "L", {{30, 1}});
  start();
  log.taken();
  cli->config(AclType::ip)->aclDel("L");
  EXPECT_EQ(shown(*target), "ip/L{20:1}");
  EXPECT_EQ(log.taken(), Lines{"currCfg L"}) << "one replacement of its rules, nothing between";
  a->configDel(AclType::ip);
  EXPECT_EQ(shown(*target), "ip/L{30:1}") << "a whole kind of lists may go at once";
  dir->entryDel("b");
  EXPECT_EQ(shown(*target), "") << "or a whole source";
  EXPECT_EQ(sm->sources(AclType::ip, "L"), Names{});
}

TEST_F(AclConfigAggregator, AListOfTheSameNameAndAnotherKindComesFromItsOwnSource) {
  const Source a = input("a");
  start();
  listIs(*cli, "L", {{1, 1}}, AclType::ip);
  listIs(*a, "L", {{2, 2}}, AclType::mac);
  EXPECT_EQ(shown(*target), "ip/L{1:1}, mac/L{2:2}");
}

TEST_F(AclConfigAggregator, AListNeverMixesSourcesNotEvenInTheEyesOfASubscriber) {
  const Source a = input("a"), b = input("b");
  listIs(*a, "L", {{11, 1}, {12, 2}, {13, 3}});
  listIs(*b, "L", {{21, 1}, {22, 2}});
  start();
  std::set<std::string> seen;
  log.then = [&] { seen.insert(shown(*target)); };
  listIs(*cli, "L", {{31, 1}, {32, 2}});
  cli->configDel(AclType::ip);
  dir->entryDel("a");
  dir->entryIs(a);
  EXPECT_EQ(seen,
            (std::set<std::string>{"ip/L-", "ip/L{11:1 12:2 13:3}", "ip/L{21:1 22:2}", "ip/L{31:1 32:2}"}))
      << "whole lists only; one that the command line has begun and not yet filled has no rules";
}

TEST_F(AclConfigAggregator, AListThatSomethingStandsInForIsTakenOverRuleByRule) {
  const Source a = input("a");
  listIs(*a, "L", {{1, 10}, {2, 20}, {3, 30}});
  start();
  const Acl::AclConfigAggregatorSm::ListKey key(AclType::ip, "L");
  const auto list = target->config(AclType::ip)->acl("L");
  const auto rules = list->currCfg();
  EXPECT_TRUE(sm->takeOver(key, 1)) << "there is nothing to take over";
  log.taken();

  list->standInIs(nullptr);
  EXPECT_TRUE(list->hidden());
  listIs(*cli, "L", {{4, 40}, {3, 30}});
  EXPECT_EQ(log.taken(), Lines{}) << "nothing is written but in pieces";
  EXPECT_FALSE(sm->takeOver(key, 1));
  const auto written = cli->config(AclType::ip)->acl("L")->currCfg();
  written->ipRuleByIdIs(Kiv::UniqueId(uint64_t{5}), numbered(50));
  while (!sm->takeOver(key, 1)) {
  }
  EXPECT_EQ(shown(*target), "ip/L{3:30 4:40 5:50}");
  EXPECT_EQ(list->currCfg(), rules) << "whoever follows the rules follows on";
  auto lines = log.taken();
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ(lines, (Lines{"rule 1", "rule 2", "rule 4", "rule 5"})) << "a rule that stays is not touched";
  written->ipRuleByIdDel(Kiv::UniqueId(uint64_t{4}));
  EXPECT_EQ(log.taken(), Lines{"rule 4"});

  cli->configDel(AclType::ip);
  while (!sm->takeOver(key, 2)) {
  }
  EXPECT_EQ(shown(*target), "ip/L{1:10 2:20 3:30}") << "and back to the source that had it before";
  list->standInDel();
  listIs(*cli, "L", {{9, 90}});
  EXPECT_EQ(shown(*target), "ip/L{9:90}") << "at once again";
}

TEST_F(AclConfigAggregator, ARuleChangeIsOneWriteAndLeavesItsNeighboursAlone) {
  listIs(*cli, "L", {{1, 10}, {2, 20}, {3, 30}});
  listIs(*cli, "M", {{4, 10}});
  start();
  const auto rules = target->config(AclType::ip)->acl("L")->currCfg();
  const auto written = cli->config(AclType::ip)->acl("L")->currCfg();
  log.taken();
  written->ipRuleByIdIs(Kiv::UniqueId(uint64_t{2}), numbered(25));
  EXPECT_EQ(log.taken(), Lines{"rule 2"});
  written->ipRuleByIdIs(Kiv::UniqueId(uint64_t{2}), numbered(25));
  EXPECT_EQ(log.taken(), Lines{}) << "an equal write is no change";
  written->ipRuleByIdDel(Kiv::UniqueId(uint64_t{1}));
  EXPECT_EQ(log.taken(), Lines{"rule 1"});
  written->ipRuleByIdIs(Kiv::UniqueId(uint64_t{9}), numbered(5));
  EXPECT_EQ(log.taken(), Lines{"rule 9"});
  EXPECT_EQ(target->config(AclType::ip)->acl("L")->currCfg(), rules)
      << "the list is not rebuilt under its rules";
  EXPECT_EQ(shown(*target), "ip/L{2:25 3:30 9:5}, ip/M{4:10}")
      << "a rule keeps the id that its source gave it";
}

TEST_F(AclConfigAggregator, RulesOfAllThreeKindsArrive) {
  start();
  const auto rules = MemSlab::make<Acl::AclSubConfig>();
  Acl::IpRule ip;
  Acl::Ip6Rule ip6;
  Acl::MacRule mac;
  ip.sequence = 1, ip.mirrorSession = "W", ip.filter.protocolNamed = true;
  ip6.sequence = 2, ip6.remark = "r", ip6.filter.fragments = true;
  mac.sequence = 3, mac.action = Acl::Action::deny, mac.filter.etherType = 0x0806;
  rules->ipRuleByIdIs(Kiv::UniqueId(uint64_t{1}), ip);
  cli->configIs(AclType::mac)->aclIs("L")->currCfgIs(rules);
  rules->ip6RuleByIdIs(Kiv::UniqueId(uint64_t{2}), ip6);
  rules->macRuleByIdIs(Kiv::UniqueId(uint64_t{3}), mac);
  const auto copy = target->config(AclType::mac)->acl("L")->currCfg();
  ASSERT_TRUE(copy);
  EXPECT_EQ(*copy->ipRuleById(Kiv::UniqueId(uint64_t{1})), ip);
  EXPECT_EQ(*copy->ip6RuleById(Kiv::UniqueId(uint64_t{2})), ip6);
  EXPECT_EQ(*copy->macRuleById(Kiv::UniqueId(uint64_t{3})), mac);
  EXPECT_NE(copy, rules) << "the target has rules of its own";
}

TEST_F(AclConfigAggregator, TheTargetsRulesShareWhatTheSourcesSay) {
  listIs(*cli, "L", {{1, 10}});
  start();
  const auto sourceRules = cli->config(AclType::ip)->acl("L")->currCfg();
  const auto targetRules = target->config(AclType::ip)->acl("L")->currCfg();
  const Kiv::UniqueId written(uint64_t{2});
  sourceRules->ipRuleByIdIs(written, numbered(20));
  for (const Kiv::UniqueId& id : {Kiv::UniqueId(uint64_t{1}), written}) {
    ASSERT_TRUE(targetRules->ipRuleById(id));
    EXPECT_TRUE(targetRules->ipRuleById(id)->sharesBody(*sourceRules->ipRuleById(id)));
  }
}

TEST_F(AclConfigAggregator, ALabelThatCannotBeKeepsNoRuleFromItsList) {
  const auto labelled = [](uint32_t sequence) {
    Acl::MacRule rule;
    rule.sequence = sequence, rule.action = Acl::Action::deny;
    rule.filter.mpls = Acl::UncheckedMpls::of({.labelNamed = true, .label = 0x100000});
    return rule;
  };
  const auto rules = MemSlab::make<Acl::AclSubConfig>();
  rules->macRuleByIdIs(Kiv::UniqueId(uint64_t{1}), Acl::MacRule());
  cli->configIs(AclType::mac)->aclIs("known")->currCfgIs(rules);
  start();
  rules->macRuleByIdIs(Kiv::UniqueId(uint64_t{2}), labelled(20));
  const auto fresh = MemSlab::make<Acl::AclSubConfig>();
  fresh->macRuleByIdIs(Kiv::UniqueId(uint64_t{3}), labelled(30));
  cli->configIs(AclType::mac)->aclIs("fresh")->currCfgIs(fresh);
  const auto rulesOf = [this](const char* list) {
    return target->config(AclType::mac)->acl(list)->currCfg();
  };
  EXPECT_EQ(rulesOf("known")->macRuleById().size(), 2u) << "the rule is in the list that was in force";
  ASSERT_TRUE(rulesOf("fresh")) << "the new list is in force";
  EXPECT_EQ(*rulesOf("fresh")->macRuleById(Kiv::UniqueId(uint64_t{3})), labelled(30));
}

TEST_F(AclConfigAggregator, AListGoesInOneRemoval) {
  listIs(*cli, "L", {{1, 10}, {2, 20}});
  listIs(*cli, "M", {{3, 10}});
  start();
  log.taken();
  cli->config(AclType::ip)->aclDel("L");
  EXPECT_EQ(log.taken(), Lines{"acl L"}) << "its rules are not taken out one by one";
  cli->config(AclType::ip)->aclDel("M");
  EXPECT_EQ(log.taken(), (Lines{"acl M", "config ip"})) << "with its last list a kind goes, too";
}

TEST_F(AclConfigAggregator, TakingWhatIsOverriddenBackChangesNothing) {
  const Source a = input("a");
  listIs(*cli, "L", {{1, 10}});
  listIs(*a, "L", {{2, 20}});
  start();
  log.taken();
  a->config(AclType::ip)->acl("L")->currCfg()->ipRuleByIdIs(Kiv::UniqueId(uint64_t{7}), numbered(7));
  listIs(*a, "L", {{3, 30}});
  a->configDel(AclType::ip);
  EXPECT_EQ(log.taken(), Lines{}) << "nobody hears of what is overridden";
}

TEST_F(AclConfigAggregator, AListWithoutRulesInForceStillOverridesAndDoesNotBecomeAMixture) {
  const Source a = input("a");
  listIs(*a, "L", {{2, 20}});
  start();
  cli->configIs(AclType::ip)->aclIs("L");
  EXPECT_EQ(shown(*target), "ip/L-");
  listIs(*cli, "L", {{1, 10}});
  EXPECT_EQ(shown(*target), "ip/L{1:10}");
  log.taken();
  cli->config(AclType::ip)->acl("L")->currCfgDel();
  EXPECT_EQ(log.taken(), Lines{"currCfg L"});
  EXPECT_EQ(shown(*target), "ip/L-");
}

TEST_F(AclConfigAggregator, EntriesThatAreNoConfigurationAreLeftOut) {
  start();
  dir->entryIs(MemSlab::make<Acl::IntfConfig>(Kelp::String("a")));
  EXPECT_EQ(shown(*target), "");
  listIs(*input("a"), "L", {{1, 10}});
  EXPECT_EQ(shown(*target), "ip/L{1:10}") << "and may be replaced by one that is";
  dir->entryIs(MemSlab::make<Zeb::Dir>(Kelp::String("a")));
  EXPECT_EQ(shown(*target), "") << "or the other way round";
}

TEST_F(AclConfigAggregator, ASourceIsFollowedNoMoreOnceItIsGone) {
  const Source a = input("a");
  listIs(*a, "L", {{1, 10}});
  start();
  const auto list = a->config(AclType::ip)->acl("L");
  const auto rules = list->currCfg();
  dir->entryDel("a");
  listIs(*a, "M", {{2, 20}});
  rules->ipRuleByIdIs(Kiv::UniqueId(uint64_t{9}), numbered(9));
  list->currCfgDel();
  EXPECT_EQ(shown(*target), "");
}

TEST_F(AclConfigAggregator, SwitchedOffItLeavesTheTargetAndSwitchedOnItCatchesUp) {
  listIs(*cli, "L", {{1, 10}});
  listIs(*cli, "M", {{2, 10}});
  start();
  sm->hasNotificationActiveIs(false);
  cli->config(AclType::ip)->aclDel("L");
  listIs(*cli, "M", {{3, 30}});
  EXPECT_EQ(shown(*target), "ip/L{1:10}, ip/M{2:10}");
  EXPECT_EQ(sm->sources(AclType::ip, "M"), Names{});
  start();
  EXPECT_EQ(shown(*target), "ip/M{3:30}") << "what went in between is not left behind";
}

TEST_F(AclConfigAggregator, ASubscriberThatTakesTheListBackWhileItIsBeingShownGetsItsWay) {
  const Source a = input("a");
  listIs(*a, "L", {{2, 20}});
  start();
  bool once = true;
  log.then = [&] {
    if (std::exchange(once, false)) cli->configDel(AclType::ip);
  };
  listIs(*cli, "L", {{1, 10}});
  log.then = nullptr;
  EXPECT_EQ(shown(*target), "ip/L{2:20}");
  a->config(AclType::ip)->acl("L")->currCfg()->ipRuleByIdIs(Kiv::UniqueId(uint64_t{3}), numbered(30));
  EXPECT_EQ(shown(*target), "ip/L{2:20 3:30}") << "and the target still follows the one in force";
}

TEST_F(AclConfigAggregator, ASubscriberThatRemovesAFreshListLeavesNoGhost) {
  start();
  bool once = true;
  log.then = [&] {
    if (target->config(AclType::ip) && target->config(AclType::ip)->acl("L") && std::exchange(once, false)) {
      cli->config(AclType::ip)->aclDel("L");
    }
  };
  const auto gone = cli->configIs(AclType::ip)->aclIs("L");
  log.then = nullptr;
  EXPECT_EQ(shown(*target), "");
  EXPECT_EQ(gone->nodeUseCount(), 1u) << "nobody holds and follows it";
  listIs(*cli, "L", {{1, 10}});
  EXPECT_EQ(shown(*target), "ip/L{1:10}");
}

TEST_F(AclConfigAggregator, DestructionLeavesTheTargetAsItIs) {
  const auto config = MemSlab::make<Acl::Config>();
  {
    const auto mortal = Acl::AclConfigAggregatorSm::AclConfigAggregatorSmIs(dir, cli, config);
    mortal->hasNotificationActiveIs(true);
    listIs(*cli, "L", {{1, 10}});
  }
  listIs(*cli, "L", {{2, 20}});
  EXPECT_EQ(shown(*config), "ip/L{1:10}");
}

TEST(AclConfigAggregatorSources, MayBothBeNull) {
  const auto target = MemSlab::make<Acl::Config>();
  const auto cli = MemSlab::make<Acl::Input::Config>(Kelp::String("cli"));
  const auto dir = MemSlab::make<Zeb::Dir>();
  dir->entryIs(cli);
  listIs(*cli, "L", {{1, 10}});
  const auto run = [&](const auto& inputDir, const auto& cliInput) {
    const auto sm = Acl::AclConfigAggregatorSm::AclConfigAggregatorSmIs(inputDir, cliInput, target);
    sm->hasNotificationActiveIs(true);
    return shown(*target);
  };
  EXPECT_EQ(run(nullptr, nullptr), "");
  EXPECT_EQ(run(nullptr, cli), "ip/L{1:10}");
  EXPECT_EQ(run(dir, nullptr), "ip/L{1:10}");
}

}  // namespace
