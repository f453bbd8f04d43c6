#include "../Acl/CapabilityFlags.h"
#include "World.h"

// What reflection shows of the plugin's types and of those that it reads and writes: their own attributes, in
// the order in which they are declared.

namespace {

using namespace TestSupport;

template <class T>
Lines attributesOf() {
  Lines names;
  for (const auto* attribute : Zeb::typeDataOf<T>().attributes()) names.emplace_back(attribute->name());
  return names;
}

TEST(AttributeOrder, OfThePluginsParts) {
  EXPECT_EQ(attributesOf<Velo::VeloAcl::DataplaneAclHelper>(),
            (Lines{"aclConfig", "intfConfig", "aclStatus", "inCounters", "macOutCounters", "ipOutCounters",
                   "ip6OutCounters", "mirroringHelper"}));
  EXPECT_EQ(attributesOf<Velo::VeloAcl::DataplaneAclInputStep>(), Lines{"helper"});
  EXPECT_EQ(attributesOf<Velo::VeloAcl::DataplaneAclOutputStep>(), Lines{"helper"});
  EXPECT_EQ(attributesOf<Velo::VeloAcl::VeloAclConfigSharedObject>(), Lines{"aclConfig"});
}

TEST(AttributeOrder, OfTheModel) {
  EXPECT_EQ(attributesOf<Acl::Config>(), Lines{"config"});
  EXPECT_EQ(attributesOf<Acl::AclTypeConfig>(), Lines{"acl"});
  EXPECT_EQ(attributesOf<Acl::AclConfig>(), Lines{"currCfg"});
  EXPECT_EQ(attributesOf<Acl::AclSubConfig>(), (Lines{"ipRuleById", "ip6RuleById", "macRuleById"}));
  EXPECT_EQ(attributesOf<Acl::IntfConfig>(), (Lines{"config", "initialized"}));
  EXPECT_EQ(attributesOf<Acl::IntfTypeConfig>(), Lines{"intf"});
  EXPECT_EQ(attributesOf<Acl::AclIntf>(), Lines{"intf"});
  EXPECT_EQ(attributesOf<Velo::Counter::VeloDpAclCounterColl>(), Lines{"counterCollection"});
  EXPECT_EQ(attributesOf<Velo::Counter::VeloDpAclCounter>(), Lines{"lastUpdateTime"});
  EXPECT_EQ(attributesOf<Velo::Counter::RuleIdSet>(), Lines{"ruleIds"});
}

TEST(AttributeOrder, OfTheStatus) {
  Lines ofStatus = capabilityFlags();
  ofStatus.insert(ofStatus.end(), {"initialized", "status"});
  EXPECT_EQ(attributesOf<Acl::StatusBase>(), ofStatus);
  EXPECT_EQ(attributesOf<Acl::AclTypeStatus>(), (Lines{"acl", "intf"}));
  EXPECT_EQ(attributesOf<Acl::AclStatusBase>(), (Lines{"ruleStatus", "implicitRuleStatus"}));
  EXPECT_EQ(attributesOf<Acl::AclStatus>(), (Lines{"implicitRuleId", "counterUpdateTime"}));
}

/// What hashing, ordering and printing go through, in this order.
TEST(AttributeOrder, OfTheCounterKey) {
  const Velo::Counter::VeloDpAclCounterKey key{out, AclType::mac, "L", Kiv::UniqueId(uint64_t{5})};
  const auto& [direction, aclType, aclName, ruleId] = key;
  EXPECT_EQ(direction, out);
  EXPECT_EQ(aclType, AclType::mac);
  EXPECT_EQ(aclName, "L");
  EXPECT_EQ(ruleId, Kiv::UniqueId(uint64_t{5}));
  EXPECT_EQ(fmt::format("{}", key), "out mac L 0x0000000000000005");
}

}  // namespace
