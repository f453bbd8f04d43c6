#include "Fixture.h"

/// Broken invariants stop the process, in every build type, with a text that says which.
namespace SmTest {
namespace {

class AssertDeathTest : public testing::Test, protected World {
 protected:
  /// A configuration of everything that is watched, with a machine over it.
  void populate() {
    rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
    rules(AclType::ipv6, "B")->ip6RuleByIdIs(r(2), ip6Rule());
    rules(AclType::mac, "C")->macRuleByIdIs(r(3), macRule());
    bind(AclType::ip, AclDirection::in, "eth1", "A");
  }
  static std::string missed(const std::string& what) {
    return "We missed notifications that happened to " + what + " before the enclosing entity got deleted";
  }
};

TEST_F(AssertDeathTest, EveryArgumentIsMandatoryAndNamedWhenMissing) {
  struct Row {
    const char* name;
    std::function<void(World&)> drop;
  };
  const Row rows[] = {
      {"aclConfig", [](World& w) { w.config = nullptr; }},
      {"aclIntfConfig", [](World& w) { w.intfConfig = nullptr; }},
      {"inCounters", [](World& w) { w.in = nullptr; }},
      {"macOutCounters", [](World& w) { w.macOut = nullptr; }},
      {"ipOutCounters", [](World& w) { w.ipOut = nullptr; }},
      {"ip6OutCounters", [](World& w) { w.ip6Out = nullptr; }},
      {"aclStatus", [](World& w) { w.status = nullptr; }},
  };
  for (const Row& row : rows) {
    for (const uint8_t mode : {Rix::SmControl::synchronous, Rix::SmControl::asynchronous}) {
      EXPECT_DEATH(
          {
            row.drop(*this);
            start(mode);
          },
          std::string("(^|[^a-zA-Z])") + row.name +
              "\\(\\) && \"Pointer SM args cannot be null unless they are marked Optional\"");
    }
  }
}

TEST_F(AssertDeathTest, AWatchedEntityIsMissing) {
  start();
  settle();
  const char* text =
      "en\\(\\) && \"Sm args can only be null if marked as Optional in the SM type declaration\"";
  EXPECT_DEATH(sm->aclConfigSm3()->childSmConfigAclAclTypeConfigPtrConstIs(nullptr, AclType::ip), text);
  EXPECT_DEATH(sm->aclIntfConfigSm0()->childSmConfigAclIntfTypeConfigPtrConstIs(nullptr, AclType::ip), text);
  list(AclType::ip, "A");
  const auto sm4 =
      sm->aclConfigSm3()->childSmConfigAclAclTypeConfigPtrConstIs(config->config(AclType::ip), AclType::ip);
  EXPECT_DEATH(sm4->childSmAclAclAclConfigPtrConstIs(nullptr, "B"), text);
  const auto sm5 = sm4->childSmAclAclAclConfigPtrConstIs(config->config(AclType::ip)->acl("A"), "A");
  EXPECT_DEATH(sm5->childSmCurrCfgAclAclSubConfigPtrConstIs(nullptr), text);
}

TEST_F(AssertDeathTest, AChildIsNotInstantiatedAgainWithAnotherEntity) {
  populate();
  start();
  settle();
  const char* text = "instantiated again with another entity";
  const auto sm3 = sm->aclConfigSm3();
  EXPECT_DEATH(sm3->childSmConfigAclAclTypeConfigPtrConstIs(config->config(AclType::mac), AclType::ip), text);
  const auto sm4 = sm3->childSmConfigAclAclTypeConfigPtrConstIs(config->config(AclType::ip), AclType::ip);
  EXPECT_EQ(sm4->en(), config->config(AclType::ip)) << "the same entity gives the child that is there";
  const auto other = MemSlab::make<Acl::AclConfig>("A");
  EXPECT_DEATH(sm4->childSmAclAclAclConfigPtrConstIs(other, "A"), text);
  const auto sm5 = sm4->childSmAclAclAclConfigPtrConstIs(config->config(AclType::ip)->acl("A"), "A");
  EXPECT_DEATH(sm5->childSmCurrCfgAclAclSubConfigPtrConstIs(MemSlab::make<Acl::AclSubConfig>()), text);
  const auto sm0 = sm->aclIntfConfigSm0();
  const auto types = intfConfig->config(AclType::ip);
  EXPECT_DEATH(sm0->childSmConfigAclIntfTypeConfigPtrConstIs(MemSlab::make<Acl::IntfTypeConfig>(AclType::ip),
                                                             AclType::ip),
               text);
  const auto sm1 = sm0->childSmConfigAclIntfTypeConfigPtrConstIs(types, AclType::ip);
  EXPECT_DEATH(
      sm1->childSmIntfAclAclIntfPtrConstIs(MemSlab::make<Acl::AclIntf>(AclDirection::in), AclDirection::in),
      text);
}

/// Somebody who is told of a change before the machine is, and takes the enclosing entity away.
TEST_F(AssertDeathTest, AnEntityGoesWithAChangeThatItsWalkerWasNotToldOf) {
  populate();
  const auto ip = config->config(AclType::ip), ip6 = config->config(AclType::ipv6),
             mac = config->config(AclType::mac);
  struct Row {
    std::string collection;
    Zeb::Entity& changed;
    std::function<void()> takeAway, change;
  };
  const Row rows[] = {
      {"intf", *intfConfig->config(AclType::ip)->intf(AclDirection::in),
       [&] { intfConfig->config(AclType::ip)->intfDel(AclDirection::in); },
       [&] { bind(AclType::ip, AclDirection::in, "eth2", "A"); }},
      {"intf", *intfConfig->config(AclType::ip), [&] { intfConfig->configDel(AclType::ip); },
       [&] { intfConfig->config(AclType::ip)->intfIs(AclDirection::out); }},
      {"acl", *ip, [&] { config->configDel(AclType::ip); }, [&] { list(AclType::ip, "A2"); }},
      {"ipRuleById", *ip->acl("A")->currCfg(), [&] { ip->acl("A")->currCfgDel(); },
       [&] { rules(AclType::ip, "A")->ipRuleByIdIs(r(4), ipRule()); }},
      {"ip6RuleById", *ip6->acl("B")->currCfg(), [&] { ip6->acl("B")->currCfgDel(); },
       [&] { rules(AclType::ipv6, "B")->ip6RuleByIdDel(r(2)); }},
      {"macRuleById", *mac->acl("C")->currCfg(), [&] { config->configDel(AclType::mac); },
       [&] { rules(AclType::mac, "C")->macRuleByIdIs(r(3), macRule(20)); }},
  };
  for (const Row& row : rows) {
    EXPECT_DEATH(
        {
          bool first = true;
          Watch hostile(row.changed, [&](const Zeb::Change&) {
            if (std::exchange(first, false)) row.takeAway();
          });
          start();
          settle();
          row.change();
        },
        missed(row.collection))
        << row.collection;
  }
}

TEST_F(AssertDeathTest, ARuleIdSetGoesWithAChangeThatItsWalkerWasNotToldOf) {
  populate();
  start();
  settle();
  const Velo::Counter::AclTypeNameTuple keyOfA{AclType::ip, "A"};
  EXPECT_DEATH(
      {
        const Velo::Counter::AclTypeNameTuple key = keyOfA;
        sm->hasNotificationActiveIs(false);
        Watch hostile(*sm->localAttrStore()->ruleIdsByAcl(key),
                      [&](const Zeb::Change&) { sm->localAttrStore()->ruleIdsByAclDel(key); });
        sm->hasNotificationActiveIs(true);
        rules(AclType::ip, "A")->ipRuleByIdIs(r(4), ipRule());
      },
      missed("ruleIds"));
}

TEST_F(AssertDeathTest, ChangesWhileNotificationIsOffAreNoticedAtTheLatestWhenTheEntityGoes) {
  populate();
  start();
  settle();
  sm->hasNotificationActiveIs(false);
  rules(AclType::ip, "A")->ipRuleByIdIs(r(4), ipRule());
  EXPECT_DEATH(sm->doDeleteAll(), missed("ipRuleById"));
}

}  // namespace
}  // namespace SmTest
