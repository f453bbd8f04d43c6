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

/// The walker of the type is at work on what it found when it was made. It must be known by then, or nobody
/// ends it.
TEST_F(Subscriber, TakesATypeAwayThatCameWithEverythingInIt) {
  const Watch withList(*config, [&](const Zeb::Change& c) {
    if (config->config(c.keyAs<AclType>())) rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  });
  const Watch withBinding(*intfConfig, [&](const Zeb::Change& c) {
    if (intfConfig->config(c.keyAs<AclType>())) bind(AclType::mac, AclDirection::in, "eth1", "A");
  });
  begin();
  for (const char* line : {"ip.acl[A] added", "ip.acl[A].ruleStatus[r1]"}) {
    SCOPED_TRACE(line);
    acted = false;
    within(line, [&] { config->configDel(AclType::ip); });
    config->configIs(AclType::ip);
    expectTrue();
    EXPECT_TRUE(status->status().empty());
    config->configIs(AclType::ip);
    expectTrue();
    EXPECT_EQ(statusOf(AclType::ip, "A")->ruleStatus().size(), 1u);
    config->configDel(AclType::ip);
  }
  acted = false;
  within("mac.intf[in].intf[eth1]", [&] { intfConfig->configDel(AclType::mac); });
  intfConfig->configIs(AclType::mac);
  expectTrue();
  EXPECT_TRUE(status->status().empty());
  intfConfig->configIs(AclType::mac);
  expectTrue();
  EXPECT_EQ(published(*status).size(), 1u);
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

TEST_F(Subscriber, TakesAListAwayWhileItsCountersAreCopied) {
  const CounterKey key{AclDirection::in, AclType::ip, "A", r(1)};
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  begin();
  const std::function<void()> acts[] = {
      [&] {
        delList(AclType::ip, "A");
        rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
      },
      [&] { delList(AclType::ip, "A"); },
  };
  for (const auto& act : acts) {
    acted = false;
    count(in, key, 1, clock.now().seconds());
    within("ip.acl[A].ruleStatus[r1] {0, ", act);
    writes->take();
    ASSERT_TRUE(pass(1));
    expectTrue();
    for (const std::string& line : writes->take())
      EXPECT_FALSE(line.starts_with("ip.acl[A].counterUpdateTime")) << "the list that was counted has gone";
  }
}

TEST_F(Subscriber, ChangesCountersWhileTheyAreCopied) {
  const auto key = [](uint32_t i) { return CounterKey{AclDirection::in, AclType::ip, "A", r(i)}; };
  for (uint32_t i = 1; i <= 20; ++i) rules(AclType::ip, "A")->ipRuleByIdIs(r(i), ipRule(i));
  begin();
  for (uint32_t i = 1; i <= 10; ++i) count(in, key(i), 1, clock.now().seconds());
  within("ip.acl[A].ruleStatus[", [&] {
    for (uint32_t i = 1; i <= 5; ++i) in->counterCollectionDel(key(i));
    for (uint32_t i = 6; i <= 20; ++i) count(in, key(i), 2, clock.now().seconds());
  });
  ASSERT_TRUE(pass(1) && pass(1));
  expectTrue();
  for (uint32_t i = 6; i <= 20; ++i)
    EXPECT_EQ(statusOf(AclType::ip, "A")->ruleStatus(r(i))->packets, i <= 10 ? 3u : 2u) << i;
}

/// At random, in the middle of random changes of the configuration, other ones; nothing is put back while it
/// is being withdrawn.
class SubscriberAtRandom : public Subscriber {
 protected:
  void beginAnew(uint64_t seed) {
    state_ = seed;
    config = MemSlab::make<Acl::Config>("config");
    intfConfig = MemSlab::make<Acl::IntfConfig>("intfConfig");
    status = MemSlab::make<Acl::StatusDp>("kepa");
    in = collection("in"), macOut = collection("macOut");
    ipOut = collection("ipOut"), ip6Out = collection("ip6Out");
    Kiv::alwaysYieldIs(seed % 2 == 0);
    start();
    writes = std::make_unique<StatusWrites>(status);
    writes->onWrite = [this](const std::string&) {
      if (depth_ >= 3 || below(4) != 0) return;
      ++depth_;
      change();
      --depth_;
    };
  }
  size_t below(size_t sides) { return Kelp::mix64(state_ += 0x9e3779b97f4a7c15) % sides; }

  void change() {
    const auto type = static_cast<AclType>(below(3));
    switch (below(3)) {
      case 0:
        return changeBinding(type, static_cast<AclDirection>(below(2)), fmt::format("eth{}", below(2)));
      case 1:
        return changeList(type, std::string(1, static_cast<char>('A' + below(2))));
      default:
        return changeRules(type, std::string(1, static_cast<char>('A' + below(2))));
    }
  }

  /// A rule whose counter is there is published whether or not the list has it.
  std::set<std::string> expected() const {
    auto paths = configured(*config, *intfConfig);
    for (const auto& counters : {in, macOut, ipOut, ip6Out}) {
      for (auto at = counters->counterCollection().begin(); at; at.next()) {
        const std::string list = fmt::format("{} {}", at.key().aclType, at.key().aclName);
        if (paths.contains(list)) paths.insert(fmt::format("{} {}", list, at.key().ruleId));
      }
    }
    return paths;
  }

 private:
  UniqueId someRule(AclType type) { return r(100 * (1 + static_cast<uint64_t>(type)) + below(4)); }
  void putRule(Acl::AclSubConfig& sub, AclType type) {
    const UniqueId uid = someRule(type);
    if (type == AclType::ip) sub.ipRuleByIdIs(uid, ipRule());
    if (type == AclType::ipv6) sub.ip6RuleByIdIs(uid, ip6Rule());
    if (type == AclType::mac) sub.macRuleByIdIs(uid, macRule());
  }
  void putRules(Acl::AclSubConfig& sub) {
    for (AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) putRule(sub, type);
  }
  /// Withdraws something, which is not put back meanwhile.
  void withdraw(const std::string& what, const std::function<void()>& act) {
    const auto at = going_.insert(what);
    act();
    going_.erase(at);
  }
  bool mayCome(AclType type, const std::string& name) const {
    return !going_.contains(fmt::format("{}", type)) && !going_.contains(fmt::format("{} {}", type, name));
  }

  void changeList(AclType type, const std::string& name) {
    const auto lists = config->config(type);
    switch (below(6)) {
      case 0:
        if (lists && below(3) == 0) withdraw(fmt::format("{}", type), [&] { config->configDel(type); });
        return;
      case 1:
        if (lists && lists->acl(name))
          withdraw(fmt::format("{} {}", type, name), [&] { lists->aclDel(name); });
        return;
      default:
        if (mayCome(type, name) && !(lists && lists->acl(name))) rules(type, name.c_str());
        return;
    }
  }
  void changeRules(AclType type, const std::string& name) {
    const auto lists = config->config(type);
    const auto found = lists ? lists->acl(name) : nullptr;
    if (!found || !mayCome(type, name)) return;
    const auto sub = found->currCfg();
    switch (below(5)) {
      case 0: {
        const auto other = MemSlab::make<Acl::AclSubConfig>();
        for (size_t i = below(4); i > 0; --i) putRules(*other);
        found->currCfgIs(other);
        return;
      }
      case 1:
        if (sub) sub->ipRuleByIdDel(someRule(AclType::ip));
        if (sub) sub->macRuleByIdDel(someRule(AclType::mac));
        return;
      case 2: {
        const bool isIn = below(2) == 0;
        const auto& out = type == AclType::ip ? ipOut : type == AclType::ipv6 ? ip6Out : macOut;
        count(isIn ? in : out, {isIn ? AclDirection::in : AclDirection::out, type, name, someRule(type)}, 1,
              clock.now().seconds());
        return;
      }
      default:
        if (sub) putRules(*sub);
        return;
    }
  }
  void changeBinding(AclType type, AclDirection direction, const std::string& intf) {
    const std::string ofType = fmt::format("bindings {}", type);
    const std::string ofDirection = fmt::format("bindings {} {}", type, direction);
    const auto types = intfConfig->config(type);
    switch (below(8)) {
      case 0:
        if (types) withdraw(ofType, [&] { intfConfig->configDel(type); });
        return;
      case 1:
        if (types && types->intf(direction)) withdraw(ofDirection, [&] { types->intfDel(direction); });
        return;
      case 2:
      case 3:
        return unbind(type, direction, intf.c_str());
      default:
        if (!going_.contains(ofType) && !going_.contains(ofDirection))
          bind(type, direction, intf.c_str(), below(2) ? "A" : "B");
        return;
    }
  }

  uint64_t state_ = 0;
  std::multiset<std::string> going_;
  int depth_ = 0;
};

TEST_F(SubscriberAtRandom, ChangesAnything) {
  for (uint64_t seed = 1; seed <= 400; ++seed) {
    SCOPED_TRACE(seed);
    beginAnew(seed);
    for (int i = 0; i < 60; ++i) {
      change();
      if (i % 4 == 0) scheduler->runOne();
    }
    writes = nullptr;
    Kiv::alwaysYieldIs(false);
    ASSERT_TRUE(pass(1) && pass(1) && sm->idle());
    ASSERT_EQ(published(*status), expected());
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

TEST_F(SubscriberDeathTest, ThrowsAtTheFirstWriteOfAMachineWithoutTasks) {
  list(AclType::ip, "A");
  const auto construct = [&](const std::function<void()>& act) {
    writes = std::make_unique<StatusWrites>(status);
    within("ip added", act);
    try {
      start(Rix::SmControl::synchronous);
    } catch (...) {
    }
  };
  EXPECT_DEATH(construct([] { throw std::runtime_error("of one who follows"); }),
               "an exception escaped the status machine: of one who follows");
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
      {"RuleIdsByAclSm8",
       [&] {
         using Holder = Velo::VeloAcl::LocalAttrStore::Holder;
         const auto* holder = sm->localAttrStore()->ruleIdsByAcl().find({AclType::ip, "A"});
         const_cast<Holder&>(**holder).valueIs(MemSlab::make<Holder::Set>());
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

/// So many that the version of a collection is the same again.
TEST_F(SubscriberDeathTest, VeryManyChangesMadeWhileNotificationIsOffAreSeen) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  bind(AclType::ip, AclDirection::in, "eth1", "A");
  begin();
  const auto expectDeath = [this](const char* walker, const auto& watched) {
    auto& map = const_cast<std::remove_cvref_t<decltype(watched)>&>(watched);
    EXPECT_DEATH(
        {
          sm->hasNotificationActiveIs(false);
          map.advanceVersion(0x800000);
          sm->hasNotificationActiveIs(true);
        },
        std::string("what ") + walker + " watches was changed while its notification was off");
  };
  const auto lists = config->config(AclType::ip);
  const auto bindings = intfConfig->config(AclType::ip);
  const auto& store = *sm->localAttrStore();
  expectDeath("AclConfigSm3", config->config());
  expectDeath("ConfigSm4", lists->acl());
  expectDeath("CurrCfgSm6", lists->acl("A")->currCfg()->macRuleById());
  expectDeath("AclIntfConfigSm0", intfConfig->config());
  expectDeath("ConfigSm1", bindings->intf());
  expectDeath("IntfSm2", bindings->intf(AclDirection::in)->intf());
  expectDeath("RuleIdsByAclSm7", store.ruleIdsByAcl());
  expectDeath("ValueSm9", store.ruleIdsByAcl().find({AclType::ip, "A"})->get()->value()->ruleIds());
}

}  // namespace
}  // namespace SmTest
