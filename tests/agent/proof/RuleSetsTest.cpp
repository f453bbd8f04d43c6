#include <agent/proof/RuleSets.h>
#include <gtest/gtest.h>

#include "../../Acl/DifferentialGenerator.h"
#include "ProofSupport.h"
#include "SmallWorld.h"

namespace {

using namespace TestSupport;
using Differential::Fields;

/// Whether a packet is in the set of a rule is asked of both; they have to agree.
template <class Rule>
class RuleSetsTest : public testing::Test {
 protected:
  /// Returns whether the rule matches the packet.
  bool expectSame(const Rule& rule, const Proof::PacketSet& set, const Fields& packet) {
    Differential::Oracle<Rule> oracle;
    oracle.ruleIs(Kiv::UniqueId(1), rule);
    const bool matches = oracle.first(packet).rule != nullptr;
    EXPECT_EQ(sets_.contains(set, proofPacket(packet)), matches) << packet.str();
    return matches;
  }

  const Proof::RuleSets sets_{typeOf<Rule>, {Kelp::Duration(3600)}};
};

using Kinds = testing::Types<Acl::IpRule, Acl::Ip6Rule, Acl::MacRule>;
TYPED_TEST_SUITE(RuleSetsTest, Kinds);

TYPED_TEST(RuleSetsTest, SetsHaveWhatRulesMatchAmongAllPacketsOfSmallWorlds) {
  size_t matches = 0;
  for (uint64_t seed = 0; seed < 30 * proofTimes() && !this->HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    SmallWorld<TypeParam> world(dice);
    const auto packets = world.packets();
    for (uint32_t i = 1; i <= 4; ++i) {
      const TypeParam rule = world.rule(i);
      const auto set = this->sets_.of(Config::Rule(rule));
      for (const Fields& packet : packets) matches += this->expectSame(rule, set, packet);
    }
  }
  EXPECT_GT(matches, 500u) << "what is compared is not only emptiness";
}

TYPED_TEST(RuleSetsTest, SetsHaveWhatRulesMatchAmongPacketsNearThem) {
  size_t matches = 0;
  for (uint64_t seed = 0; seed < 60 * proofTimes() && !this->HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    Differential::Generator<TypeParam> generator(dice);
    std::vector<TypeParam> rules;
    std::vector<Proof::PacketSet> rulesSets;
    for (int i = 0; i < 8; ++i) {
      rules.push_back(generator.rule());
      rulesSets.push_back(this->sets_.of(Config::Rule(rules.back())));
    }
    for (int i = 0; i < 40; ++i) {
      Fields packet = generator.packet();
      if (!isReal<TypeParam>(packet)) continue;
      for (size_t each = 0; each < rules.size(); ++each)
        matches += this->expectSame(rules[each], rulesSets[each], packet);
    }
  }
  EXPECT_GT(matches, 1000u);
}

TYPED_TEST(RuleSetsTest, AnExampleOfASetIsInIt) {
  for (uint64_t seed = 0; seed < 200 * proofTimes(); ++seed) {
    Dice dice(seed);
    SmallWorld<TypeParam> world(dice);
    const auto set = this->sets_.of(Config::Rule(world.rule(1)));
    if (set.isEmpty()) continue;
    EXPECT_TRUE(this->sets_.contains(set, this->sets_.exampleOf(set))) << seed;
  }
}

}  // namespace
