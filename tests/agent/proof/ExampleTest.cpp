#include <agent/explain/FrameArgument.h>
#include <agent/explain/FrameText.h>
#include <agent/proof/Example.h>
#include <agent/proof/ListAnalysis.h>
#include <agent/proof/OnePacket.h>
#include <gtest/gtest.h>

#include "../../Acl/MatchSupport.h"
#include "../../Acl/ReferenceMatcher.h"
#include "../support/ModelOf.h"
#include "ProofSupport.h"
#include "SmallWorld.h"

namespace {

using namespace TestSupport;

template <class Rule>
class ExampleTest : public testing::Test {
 protected:
  /// The reference knows nothing of labels.
  static bool knowsAll(const std::vector<Rule>& rules) {
    return std::none_of(rules.begin(), rules.end(), [](const Rule& rule) {
      if constexpr (std::is_same_v<Rule, Acl::MacRule>) return !rule.filter.mpls.isAny();
      return false;
    });
  }
  /// The number of the rule that the example meets first, as the program reads and judges it.
  static uint32_t met(const std::string& example, const std::vector<Rule>& rules) {
    std::string wrong;
    const auto frame = Agent::readFrameArgument(example, &wrong);
    EXPECT_TRUE(frame) << example << ": " << wrong;
    if (!frame) return 0;
    const ParsedFrame parsed(frame->octets);
    EXPECT_EQ(parsed.parsed.fault(), Velo::ParseFault::none) << example;
    typename Rule::Config matched;
    Kiv::UniqueId id;
    const bool matches = matchRule(parsed, listOf(rules), &matched, &id);
    const uint32_t first = matches ? static_cast<uint32_t>(id.value() - 1000) : 0;
    if (knowsAll(rules)) {
      EXPECT_EQ(ReferenceMatcher(frame->octets).first(rules).value_or(0), first) << example;
    }
    return first;
  }
};

using Kinds = testing::Types<Acl::IpRule, Acl::Ip6Rule, Acl::MacRule>;
TYPED_TEST_SUITE(ExampleTest, Kinds);

TYPED_TEST(ExampleTest, EveryExampleIsAFrameThatMeetsItsRule) {
  constexpr auto type = typeOf<TypeParam>;
  const Proof::RuleSets sets(type, {Kelp::Duration(3600)});
  size_t examples = 0;
  for (uint64_t seed = 0; seed < 300 * proofTimes() && !this->HasFailure(); ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    Dice dice(seed);
    SmallWorld<TypeParam> world(dice);
    const std::vector<TypeParam> rules = {world.rule(1), world.rule(2), world.rule(3)};
    for (const TypeParam& rule : rules) {
      const auto set = sets.of(Config::Rule(rule));
      if (set.isEmpty()) continue;
      const auto text = Proof::exampleText(type, sets.exampleOf(set));
      EXPECT_EQ(this->met(text, {rule}), rule.sequence) << text;
      ++examples;
    }
    const Config::List list = configList(rules);
    for (const bool passes : {true, false}) {
      const auto packet = Proof::oneJudged(&list, passes, sets.packets(), sets);
      if (!packet) continue;
      const auto text = Proof::exampleText(type, *packet);
      const uint32_t first = this->met(text, rules);
      EXPECT_EQ(first != 0 && rules[first - 1].action == Acl::Action::permit, passes) << text;
      ++examples;
    }
    for (const auto& finding : Proof::analyse(list, sets).rules) {
      if (finding.oddity == Proof::Oddity::impossible) continue;
      const auto text = Proof::exampleText(type, finding.example);
      const uint32_t first = this->met(text, rules);
      const bool redundant = finding.oddity == Proof::Oddity::redundant;
      EXPECT_TRUE(redundant ? first == finding.sequence : first != 0 && first < finding.sequence)
          << finding.sequence << " but " << first << ": " << text;
      ++examples;
    }
  }
  EXPECT_GT(examples, 600u);
}

TEST(Example, IsAsUsualAsItsRuleLetsItBe) {
  struct Row {
    const char* list;
    const char* rule;
    const char* example;
  };
  for (const Row& row : {
           Row{"ip", "permit ip any any", "tcp 0.0.0.0:1024 > 0.0.0.0:80 syn"},
           Row{"ip", "permit tcp host 192.0.2.1 any eq 22 established ttl gt 64",
               "tcp 192.0.2.1:1024 > 0.0.0.0:22 ack ttl 65"},
           Row{"ip", "permit udp any any fragments", "udp 0.0.0.0 > 0.0.0.0 later fragment"},
           Row{"ip", "permit icmp any any unreachable", "icmp 0.0.0.0 > 0.0.0.0 type 3 code 0"},
           Row{"ip", "permit vlan 7 47 any any dscp ef",
               "ip 0.0.0.0 > 0.0.0.0 protocol 47 traffic-class 184 vlan 7"},
           Row{"ipv6", "permit sctp host 2001:db8::1 eq 9 any", "sctp [2001:db8::1]:9 > [::]:80"},
           Row{"ipv6", "permit 60 any any hop-limit lt 9",
               "ipv6 :: > :: protocol 60 later fragment hop-limit 0"},
           Row{"mac", "permit any host 02:00:5e:00:00:07 ip",
               "ip 0.0.0.0 > 0.0.0.0 from 00:00:00:00:00:00 to 02:00:5e:00:00:07"},
           Row{"mac", "permit any any ipv6", "ipv6 :: > :: from 00:00:00:00:00:00 to 00:00:00:00:00:00"},
           Row{"mac", "permit vlan 5 any any", "eth 00:00:00:00:00:00 > 00:00:00:00:00:00 0x88b5 vlan 5"},
           Row{"mac", "permit vlan 5 any any 0x8100",
               "000000000000000000000000810000050008aaaa0300000081"
               "00"},
       }) {
    const auto model = modelOf(fmt::format("{} access-list A\n10 {}\n", row.list, row.rule));
    const Config::List& list = model.lists.begin()->second;
    const Proof::RuleSets sets(list.type, {Kelp::Duration(3600)});
    const auto set = sets.of(list.rules.begin()->second);
    ASSERT_FALSE(set.isEmpty()) << row.rule;
    const auto text = Proof::exampleText(list.type, sets.exampleOf(set));
    EXPECT_EQ(text, row.example) << row.rule;
    std::string wrong;
    const auto frame = Agent::readFrameArgument(text, &wrong);
    ASSERT_TRUE(frame) << text << ": " << wrong;
    EXPECT_EQ(ParsedFrame(frame->octets).parsed.fault(), Velo::ParseFault::none) << text;
    std::visit(
        [&](const auto& rule) {
          typename std::decay_t<decltype(rule)>::Config matched;
          Kiv::UniqueId id;
          EXPECT_TRUE(matchRule(ParsedFrame(frame->octets), listOf(std::vector{rule}), &matched, &id))
              << text;
        },
        list.rules.begin()->second);
  }
}

}  // namespace
