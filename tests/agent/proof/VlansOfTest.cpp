#include <agent/proof/Comparison.h>
#include <agent/proof/VlansOf.h>
#include <gtest/gtest.h>

#include "ProofSupport.h"
#include "SmallWorld.h"

namespace {

using namespace TestSupport;

template <class Rule>
class VlansOfTest : public testing::Test {
 protected:
  const Proof::RuleSets sets_{typeOf<Rule>, {Kelp::Duration(3600)}};
};

using Kinds = testing::Types<Acl::IpRule, Acl::Ip6Rule, Acl::MacRule>;
TYPED_TEST_SUITE(VlansOfTest, Kinds);

TYPED_TEST(VlansOfTest, EachVlanOfASetIsThereOnceWithAPacketOfIt) {
  size_t several = 0, vlans = 0;
  for (uint64_t seed = 0; seed < proofCases(300) && !this->HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    SmallWorld<TypeParam> world(dice);
    std::vector<TypeParam> rules;
    for (uint32_t i = 1; i <= 4; ++i) rules.push_back(world.rule(i));
    const Config::List list = configList(rules);
    const auto set = Proof::permitted(&list, this->sets_.packets(), this->sets_);
    const auto found = vlansOf(set, this->sets_);
    several += found.size() > 1;
    Proof::PacketSet seen;
    for (const Proof::InVlans& each : found) {
      const auto own = withVlans({each}, this->sets_);
      EXPECT_TRUE((seen & own).isEmpty()) << "a VLAN twice";
      seen = seen | own;
      for (const Proof::Run& run : each.vlans) {
        for (const uint64_t vlan : {run.low, run.high, (run.low + run.high) / 2}) {
          Proof::Packet packet = each.packet;
          packet[Proof::Field::vlan].low = vlan;
          EXPECT_TRUE(this->sets_.contains(set, packet)) << vlan;
          ++vlans;
        }
      }
    }
    EXPECT_EQ(seen, this->sets_.sets().projected(set, this->sets_.spanOf(Proof::Field::vlan)));
    EXPECT_EQ(seen, withVlans(found, this->sets_));
  }
  EXPECT_GE(several, proofCases(300) / 150);
  EXPECT_GE(vlans, proofCases(300));
}

}  // namespace
