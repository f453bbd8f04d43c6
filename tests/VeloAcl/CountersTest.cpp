#include "../Acl/ChangeLog.h"
#include "World.h"

namespace {

using namespace TestSupport;

class RuleCounters : public World {
 protected:
  Kelp::Ptr<Velo::Counter::VeloDpAclCounter> counter(AclDirection direction, AclType type, uint64_t id = 5) {
    return plugin->aclHelper()->counterForKey({direction, type, "L", Kiv::UniqueId(id)});
  }
};

TEST_F(RuleCounters, AKeyGoesToTheCollectionOfItsDirectionAndKind) {
  struct Row {
    AclDirection direction;
    AclType type;
    Kelp::Ptr<Velo::Counter::VeloDpAclCounterColl> collection;
  };
  const Row rows[] = {
      {in, AclType::ip, plugin->inCounters()},        {in, AclType::ipv6, plugin->inCounters()},
      {in, AclType::mac, plugin->inCounters()},       {out, AclType::ip, plugin->ipOutCounters()},
      {out, AclType::ipv6, plugin->ip6OutCounters()}, {out, AclType::mac, plugin->macOutCounters()},
  };
  for (const auto& [direction, type, collection] : rows) {
    const Key key{direction, type, "L", Kiv::UniqueId(uint64_t{5})};
    const auto made = plugin->aclHelper()->counterForKey(key);
    ASSERT_TRUE(made);
    EXPECT_EQ(collection->counterCollection(key), made) << key.hash();
    EXPECT_EQ(plugin->aclHelper()->counterForKey(key), made) << "the second time finds the first one's";
  }
  EXPECT_EQ(plugin->inCounters()->counterCollection().size(), 3u);
  for (const auto& egress : {plugin->macOutCounters(), plugin->ipOutCounters(), plugin->ip6OutCounters()}) {
    EXPECT_EQ(egress->counterCollection().size(), 1u) << egress->name().view();
  }
}

TEST_F(RuleCounters, CountAPacketAndSetTheTimeOfTheSystemsClock) {
  agent.clock.nowIs(Kelp::Duration(1234.5));
  const Bytes frame = tcp4();
  packet(frame);
  plugin->aclHelper()->countPkt(ctx->pkt(), in, AclType::ip, "L", Kiv::UniqueId(uint64_t{5}));
  const auto made = counter(in, AclType::ip);
  EXPECT_EQ(made->packets(), 1u);
  EXPECT_EQ(made->bytes(), frame.size());
  EXPECT_EQ(made->lastUpdateTime(), Kelp::Duration(1234.5));
  agent.clock.advance(Kelp::Duration(2));
  plugin->aclHelper()->countPkt(ctx->pkt(), in, AclType::ip, "L", Kiv::UniqueId(uint64_t{5}));
  EXPECT_EQ(made->packets(), 2u);
  EXPECT_EQ(made->lastUpdateTime(), Kelp::Duration(1236.5));
  EXPECT_EQ(counter(in, AclType::ip, 6)->packets(), 0u) << "another rule";
}

TEST_F(RuleCounters, ACountIsAnnounced) {
  ChangeLog collection(*plugin->inCounters());
  const auto made = counter(in, AclType::ip);
  EXPECT_EQ(collection.names(), Lines{"counterCollection"});
  ChangeLog changes(*made);
  packet(tcp4());
  plugin->aclHelper()->countPkt(ctx->pkt(), in, AclType::ip, "L", Kiv::UniqueId(uint64_t{5}));
  EXPECT_EQ(changes.names(), (Lines{"packets", "lastUpdateTime"}));
  plugin->aclHelper()->countPkt(ctx->pkt(), in, AclType::ip, "L", Kiv::UniqueId(uint64_t{5}));
  EXPECT_EQ(changes.names(), (Lines{"packets", "lastUpdateTime", "packets"})) << "at the same time once more";
}

TEST_F(RuleCounters, AListBoundBothWaysKeepsItsDirectionsApart) {
  rule(AclType::ip, 5, Action::permit);
  bind(AclType::ip, in), bind(AclType::ip, out);
  passes(tcp4(), in), passes(tcp4(), in), passes(tcp4(), out);
  EXPECT_EQ(counted(), (Lines{"DpAclInRuleMatches: in ip L 5 = 2", "DpAclIpOutRuleMatches: out ip L 5 = 1"}));
}

TEST_F(RuleCounters, ListsOfOneNameAndTwoKindsKeepApart) {
  rule(AclType::ip, 5, Action::permit);
  rule(AclType::mac, 5, Action::permit);
  bind(AclType::ip, in), bind(AclType::mac, in);
  passes(tcp4());
  EXPECT_EQ(counted(), (Lines{"DpAclInRuleMatches: in ip L 5 = 1", "DpAclInRuleMatches: in mac L 5 = 1"}));
}

TEST_F(RuleCounters, AnImplicitDropIsCountedBesideTheRulesOfItsList) {
  Acl::IpRule rule;
  rule.sequence = 10, rule.filter.protocolNamed = true, rule.filter.protocol = 6;
  list(AclType::ip)->ipRuleByIdIs(Kiv::UniqueId(uint64_t{5}), rule);
  bind(AclType::ip, out);
  implicitId(AclType::ip, Kiv::UniqueId(uint64_t{77}));
  EXPECT_TRUE(passes(tcp4(), out));
  EXPECT_FALSE(passes(ip4().udp(1, 2), out));
  EXPECT_EQ(counted(),
            (Lines{"DpAclIpOutRuleMatches: out ip L 5 = 1", "DpAclIpOutRuleMatches: out ip L 77 = 1"}));
}

}  // namespace
