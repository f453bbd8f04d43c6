#include "Writes.h"

#include <Kelp/Hash.h>

#include <set>
#include <stdexcept>

/// What somebody who follows the status may do while he is told of a write: everything but put back what is
/// just being withdrawn, and throw.
namespace SmTest {
namespace {

using Lines = std::vector<std::string>;

/// What the configuration makes of the status, or the status itself, as paths.
std::set<std::string> configured(const Acl::Config& config, const Acl::IntfConfig& intfConfig) {
  std::set<std::string> paths;
  for (auto type = config.config().begin(); type; type.next()) {
    for (auto list = type.value()->acl().begin(); list; list.next()) {
      const std::string at = fmt::format("{} {}", type.key(), list.key());
      paths.insert(at);
      const auto rules = list.value()->currCfg();
      if (!rules) continue;
      const auto add = [&](const auto& map) {
        for (auto rule = map.begin(); rule; rule.next()) paths.insert(fmt::format("{} {}", at, rule.key()));
      };
      add(rules->ipRuleById());
      add(rules->ip6RuleById());
      add(rules->macRuleById());
    }
  }
  for (auto type = intfConfig.config().begin(); type; type.next()) {
    for (auto way = type.value()->intf().begin(); way; way.next()) {
      for (auto intf = way.value()->intf().begin(); intf; intf.next()) {
        paths.insert(fmt::format("{} {} {} = {}", type.key(), way.key(), intf.key(), intf.value()));
      }
    }
  }
  return paths;
}

std::set<std::string> published(const Acl::StatusDp& status) {
  std::set<std::string> paths;
  for (auto type = status.status().begin(); type; type.next()) {
    if (type.value()->acl().empty() && type.value()->intf().empty())
      paths.insert(fmt::format("{} is empty", type.key()));
    for (auto list = type.value()->acl().begin(); list; list.next()) {
      const std::string at = fmt::format("{} {}", type.key(), list.key());
      paths.insert(at);
      for (auto rule = list.value()->ruleStatus().begin(); rule; rule.next())
        paths.insert(fmt::format("{} {}", at, rule.key()));
      if (list.value()->implicitRuleId().size() != 1 || list.value()->implicitRuleStatus().size() != 1)
        paths.insert(at + " has not one implicit drop");
    }
    for (auto way = type.value()->intf().begin(); way; way.next()) {
      if (way.value()->intf().empty()) paths.insert(fmt::format("{} {} is empty", type.key(), way.key()));
      for (auto intf = way.value()->intf().begin(); intf; intf.next())
        paths.insert(fmt::format("{} {} {} = {}", type.key(), way.key(), intf.key(), intf.value()));
    }
  }
  return paths;
}

class Subscriber : public testing::Test, protected World {
 protected:
  void begin() {
    start();
    ASSERT_TRUE(settle());
    writes = std::make_unique<StatusWrites>(status);
  }
  /// Does it within the first write whose line begins so.
  void within(const std::string& line, const std::function<void()>& act) {
    writes->onWrite = [this, line, act](const std::string& written) {
      if (!written.starts_with(line) || std::exchange(acted, true)) return;
      act();
    };
  }
  void expectTrue() {
    EXPECT_TRUE(acted) << "the write came";
    EXPECT_EQ(published(*status), configured(*config, *intfConfig));
  }
  Kelp::Ptr<Acl::AclSubConfig> threeRules() {
    const auto sub = MemSlab::make<Acl::AclSubConfig>();
    for (uint32_t i = 1; i <= 3; ++i) sub->ipRuleByIdIs(r(i), ipRule(10 * i));
    return sub;
  }
  std::unique_ptr<StatusWrites> writes;
  bool acted = false;
};

TEST_F(Subscriber, TakesTheListAwayThatIsBeingPublishedAndItComesAgain) {
  for (const char* line : {"ip added", "ip.acl[A] added", "ip.acl[A].implicitRuleId",
                           "ip.acl[A].implicitRuleStatus", "ip.acl[A].ruleStatus"}) {
    SCOPED_TRACE(line);
    config = MemSlab::make<Acl::Config>("config");
    config->configIs(AclType::ip);
    status = MemSlab::make<Acl::StatusDp>("kepa");
    acted = false;
    // Subscribed before the machine is, so the list has its rules when the machine is told of it.
    const auto lists = config->config(AclType::ip);
    const Watch withRules(*lists, [&](const Zeb::Change& c) {
      const auto list = lists->acl(c.keyAs<Kelp::String>());
      if (list && !list->currCfg()) list->currCfgIs(threeRules());
    });
    begin();
    within(line, [&] { delList(AclType::ip, "A"); });
    list(AclType::ip, "A");
    expectTrue();
    EXPECT_TRUE(status->status().empty());
    EXPECT_TRUE(sm->localAttrStore()->ruleIdsByAcl().empty()) << "nothing of its rules is remembered";
    list(AclType::ip, "A");
    expectTrue();
    EXPECT_EQ(statusOf(AclType::ip, "A")->ruleStatus().size(), 3u);
    writes = nullptr;
    stop();
  }
}

TEST_F(Subscriber, TakesRulesAwayWhileTheListsRulesAreBeingPublished) {
  config->configIs(AclType::ip);
  const auto lists = config->config(AclType::ip);
  const Watch withRules(*lists, [&](const Zeb::Change& c) {
    const auto list = lists->acl(c.keyAs<Kelp::String>());
    if (list && !list->currCfg()) list->currCfgIs(threeRules());
  });
  const std::function<void()> acts[] = {
      [&] { rules(AclType::ip, "A")->ipRuleByIdDel(r(1)); },
      [&] {
        for (uint32_t i = 1; i <= 3; ++i) rules(AclType::ip, "A")->ipRuleByIdDel(r(i));
      },
      [&] {
        const auto other = MemSlab::make<Acl::AclSubConfig>();
        other->ipRuleByIdIs(r(2), ipRule());
        other->ipRuleByIdIs(r(7), ipRule());
        list(AclType::ip, "A")->currCfgIs(other);
      },
      [&] { list(AclType::ip, "A")->currCfgIs(MemSlab::make<Acl::AclSubConfig>()); },
      [&] {
        delList(AclType::ip, "A");
        list(AclType::ip, "A");
      },
  };
  begin();
  for (const auto& act : acts) {
    for (const char* line :
         {"ip.acl[A].ruleStatus[r1]", "ip.acl[A].ruleStatus[r2]", "ip.acl[A].ruleStatus[r3]"}) {
      acted = false;
      within(line, act);
      list(AclType::ip, "A");
      expectTrue();
      writes->onWrite = nullptr;
      delList(AclType::ip, "A");
      EXPECT_TRUE(sm->localAttrStore()->ruleIdsByAcl().empty());
    }
  }
}

TEST_F(Subscriber, TakesABindingAwayThatIsBeingPublished) {
  begin();
  for (const char* line : {"mac added", "mac.intf[in] added", "mac.intf[in].intf[eth1]"}) {
    SCOPED_TRACE(line);
    acted = false;
    within(line, [&] { unbind(AclType::mac, AclDirection::in, "eth1"); });
    bind(AclType::mac, AclDirection::in, "eth1", "A");
    expectTrue();
    EXPECT_TRUE(status->status().empty());
    intfConfig->configDel(AclType::mac);
  }
  acted = false;
  within("mac.intf[in].intf[eth1] gone", [&] { bind(AclType::mac, AclDirection::in, "eth1", "B"); });
  bind(AclType::mac, AclDirection::in, "eth1", "A");
  unbind(AclType::mac, AclDirection::in, "eth1");
  expectTrue();
  EXPECT_EQ(*status->status(AclType::mac)->intf(AclDirection::in)->intf(Nimnet::IntfId("eth1")), "B")
      << "a binding may come back at once";
}

TEST_F(Subscriber, HasANewTypeOrDirectionComeAndGoWhileAnotherEntryWaitsForIt) {
  begin();
  within("ip added", [&] {
    list(AclType::ip, "B");
    delList(AclType::ip, "B");
  });
  list(AclType::ip, "A");
  expectTrue();
  delList(AclType::ip, "A");
  for (const char* line : {"mac added", "mac.intf[in] added"}) {
    acted = false;
    within(line, [&] {
      bind(AclType::mac, AclDirection::in, "eth2", "B");
      unbind(AclType::mac, AclDirection::in, "eth2");
    });
    bind(AclType::mac, AclDirection::in, "eth1", "A");
    expectTrue();
    unbind(AclType::mac, AclDirection::in, "eth1");
  }
}

/// At random, in the middle of random changes of the configuration, other ones; nothing is put back while it
/// is being withdrawn.
TEST_F(Subscriber, ChangesAnythingAtRandom) {
  for (uint64_t seed = 1; seed <= 400; ++seed) {
    SCOPED_TRACE(seed);
    uint64_t state = seed;
    const auto below = [&](size_t sides) { return Kelp::mix64(state += 0x9e3779b97f4a7c15) % sides; };
    std::multiset<std::string> going;  // what is being withdrawn
    int depth = 0;
    config = MemSlab::make<Acl::Config>("config");
    intfConfig = MemSlab::make<Acl::IntfConfig>("intfConfig");
    status = MemSlab::make<Acl::StatusDp>("kepa");
    const auto change = [&] {
      const auto type = static_cast<AclType>(below(2));
      const std::string name(1, static_cast<char>('A' + below(2)));
      const std::string listKey = fmt::format("{} {}", type, name);
      const std::string typeKey = fmt::format("{}", type);
      const bool mayCome = !going.contains(listKey) && !going.contains(typeKey);
      const auto lists = config->config(type);
      const auto found = lists ? lists->acl(name) : nullptr;
      const std::string intf = fmt::format("eth{}", below(2));
      switch (below(9)) {
        case 0:
        case 1:
          if (mayCome && !found) rules(type, name.c_str());
          return;
        case 2:
          if (!found || going.contains(listKey)) return;
          going.insert(listKey);
          lists->aclDel(name);
          going.erase(going.find(listKey));
          return;
        case 3: {
          if (!found || !mayCome) return;
          const auto sub = MemSlab::make<Acl::AclSubConfig>();
          for (size_t i = below(4); i > 0; --i) {
            sub->ipRuleByIdIs(r(100 + below(4)), ipRule());
            sub->ip6RuleByIdIs(r(200 + below(4)), ip6Rule());
          }
          found->currCfgIs(sub);
          return;
        }
        case 4:
        case 5:
          if (found && mayCome && found->currCfg()) {
            found->currCfg()->ipRuleByIdIs(r(100 + below(4)), ipRule());
            found->currCfg()->ip6RuleByIdIs(r(200 + below(4)), ip6Rule());
          }
          return;
        case 6:
          if (found && found->currCfg()) found->currCfg()->ipRuleByIdDel(r(100 + below(4)));
          return;
        case 7:
          bind(type, AclDirection::in, intf.c_str(), name.c_str());
          return;
        default:
          unbind(type, AclDirection::in, intf.c_str());
          return;
      }
    };
    Kiv::alwaysYieldIs(seed % 2 == 0);
    start();
    writes = std::make_unique<StatusWrites>(status);
    writes->onWrite = [&](const std::string&) {
      if (depth >= 3 || below(4) != 0) return;
      ++depth;
      change();
      --depth;
    };
    for (int i = 0; i < 60; ++i) {
      change();
      if (i % 4 == 0) scheduler->runOne();
    }
    writes = nullptr;
    Kiv::alwaysYieldIs(false);
    ASSERT_TRUE(pass(1) && pass(1) && sm->idle());
    ASSERT_EQ(published(*status), configured(*config, *intfConfig));
    stop();
  }
}

using SubscriberDeathTest = Subscriber;

TEST_F(SubscriberDeathTest, PutsBackWhatIsJustBeingWithdrawn) {
  const char* text = "instantiated again with another entity";
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  bind(AclType::ip, AclDirection::in, "eth1", "A");
  begin();
  within("ip.acl[A] gone", [&] { list(AclType::ip, "A"); });
  EXPECT_DEATH(delList(AclType::ip, "A"), text) << "a list";
  within("ip.acl[A]", [&] { list(AclType::ip, "A"); });
  EXPECT_DEATH(config->configDel(AclType::ip), text) << "a type";
  within("ip.intf[in].intf[eth1] gone", [&] { bind(AclType::ip, AclDirection::in, "eth1", "A"); });
  EXPECT_DEATH(intfConfig->config(AclType::ip)->intfDel(AclDirection::in), text) << "a direction";
  EXPECT_DEATH(intfConfig->configDel(AclType::ip), text) << "the bindings of a type";
}

TEST_F(SubscriberDeathTest, Throws) {
  begin();
  within("ip added", [] { throw std::runtime_error("of one who follows"); });
  EXPECT_DEATH(
      {
        try {
          list(AclType::ip, "A");
        } catch (...) {
        }
      },
      "an exception escaped ConfigSm4: of one who follows|an exception escaped AclConfigSm3: of one who "
      "follows");
  within("ip added", [] { throw 42; });
  EXPECT_DEATH(
      {
        try {
          list(AclType::ip, "A");
        } catch (...) {
        }
      },
      "an exception escaped (ConfigSm4|AclConfigSm3): of unknown type");
}

TEST_F(SubscriberDeathTest, ThrowsWhileTheMachineReactsToItsOwnScanState) {
  const auto old = status->statusIs(AclType::ip)->aclIs("old");
  const auto construct = [&](const std::function<void()>& act) {
    writes = std::make_unique<StatusWrites>(status);
    within("ip.acl[old] gone", act);
    try {
      start(Rix::SmControl::synchronous);
    } catch (...) {
    }
  };
  EXPECT_DEATH(construct([] { throw std::runtime_error("of one who follows"); }),
               "an exception escaped the status machine: of one who follows");
  EXPECT_DEATH(construct([] { throw 42; }), "an exception escaped the status machine: of unknown type");
}

TEST_F(SubscriberDeathTest, ChangesMadeWhileNotificationIsOffEndTheProcessWhenItIsOnAgain) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  bind(AclType::ip, AclDirection::in, "eth1", "A");
  begin();
  sm->hasNotificationActiveIs(false);
  sm->hasNotificationActiveIs(true);  // nothing was changed
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"AclConfigSm3", [&] { list(AclType::mac, "M"); }},
      {"ConfigSm4", [&] { list(AclType::ip, "B"); }},
      {"AclSm5", [&] { list(AclType::ip, "A")->currCfgIs(MemSlab::make<Acl::AclSubConfig>()); }},
      {"CurrCfgSm6", [&] { rules(AclType::ip, "A")->ip6RuleByIdIs(r(2), ip6Rule()); }},
      {"AclIntfConfigSm0", [&] { bind(AclType::mac, AclDirection::in, "eth1", "A"); }},
      {"ConfigSm1", [&] { bind(AclType::ip, AclDirection::out, "eth1", "A"); }},
      {"IntfSm2", [&] { bind(AclType::ip, AclDirection::in, "eth1", "B"); }},
      {"RuleIdsByAclSm7",
       [&] {
         sm->localAttrStore()->ruleIdsByAclIs({AclType::mac, "M"});
       }},
      {"ValueSm9",
       [&] {
         sm->localAttrStore()->ruleIdsByAclIs({AclType::ip, "A"})->ruleIdsIs(r(5));
       }},
  };
  for (const auto& [walker, act] : rows) {
    EXPECT_DEATH(
        {
          sm->hasNotificationActiveIs(false);
          act();
          sm->hasNotificationActiveIs(true);
        },
        std::string("what ") + walker + " watches was changed while its notification was off");
  }
  rules(AclType::ip, "A")->ipRuleByIdIs(r(3), ipRule());
  acted = true;
  expectTrue();
}

}  // namespace
}  // namespace SmTest
