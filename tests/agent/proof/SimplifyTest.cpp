#include <agent/config/Writer.h>
#include <agent/proof/Comparison.h>
#include <agent/proof/Simplify.h>
#include <gtest/gtest.h>

#include "../support/ModelOf.h"
#include "ProofSupport.h"
#include "SmallWorld.h"

#include <map>
#include <string>

namespace {

using namespace TestSupport;
using Differential::Fields;

/// What becomes of a packet.
struct Fate {
  bool passes = false, logged = false;
  std::string session;
  bool operator==(const Fate&) const = default;
};

template <class Rule>
const Rule* met(const Config::List& list, const Fields& packet) {
  for (const auto& [sequence, rule] : list.rules) {
    Differential::Oracle<Rule> oracle;
    oracle.ruleIs(Kiv::UniqueId(1), std::get<Rule>(rule));
    if (oracle.first(packet).rule) return &std::get<Rule>(rule);
  }
  return nullptr;
}
template <class Rule>
Fate fateOf(const Rule* rule) {
  if (!rule) return {};
  return {rule->action == Acl::Action::permit, rule->log, rule->mirrorSession.str()};
}

template <class Rule>
class SimplifyTest : public testing::Test {
 protected:
  Config::List listOf(SmallWorld<Rule>& world, Dice& dice) {
    std::vector<Rule> rules;
    const bool alike = !dice.once(4);
    const auto count = alike ? 2 + dice.below(5) : dice.below(20);
    for (uint32_t i = 1; i <= count; ++i) {
      rules.push_back(sayable(world.rule(10 * i)));
      if (alike) {
        mostlyAs(rules.front(), rules.back(), dice);
        continue;
      }
      rules.back().log = dice.once(10);
      if (dice.once(10)) rules.back().mirrorSession = "S";
      rules.back().remark = dice.once(4) ? fmt::format("a{}\nb{}", i, i) : "";
    }
    return configList(rules);
  }
  /// Has a rule differ from another one in few fields, so that they may be joined.
  static void mostlyAs(const Rule& first, Rule& rule, Dice& dice) {
    Rule other = std::exchange(rule, first);
    rule.sequence = other.sequence;
    rule.action = Acl::Action::permit;
    auto &to = rule.filter, &from = other.filter;
    if constexpr (requires { to.alternatives; }) {
      to.alternatives = {};
      if (!from.destinationPort.isAny()) to.destinationPort = from.destinationPort;
      if (!from.hops.isAny() && dice.once(4)) to.hops = from.hops;
    }
    to.source = from.source;
    if (dice.once(2)) to.destination = from.destination;
  }
  static std::string remarksOf(const Config::List& list) {
    std::string all;
    for (const auto& [sequence, rule] : list.rules) {
      if (const auto& remark = Config::common(rule).remark; !remark.empty()) all += remark.str() + "\n";
    }
    for (const std::string& each : list.pendingRemarks) all += each + "\n";
    return all;
  }
  static std::multiset<std::string> linesIn(const std::string& text) {
    std::multiset<std::string> lines;
    for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
      lines.insert(text.substr(at, text.find('\n', at) - at));
    return lines;
  }

  const Proof::RuleSets sets_{typeOf<Rule>, {Kelp::Duration(3600)}};
};

using Kinds = testing::Types<Acl::IpRule, Acl::Ip6Rule, Acl::MacRule>;
TYPED_TEST_SUITE(SimplifyTest, Kinds);

TYPED_TEST(SimplifyTest, EveryPacketMeetsTheSame) {
  std::map<std::string, size_t> seen;
  for (uint64_t seed = 0; seed < proofCases(400) && !this->HasFailure(); ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    Dice dice(seed);
    SmallWorld<TypeParam> world(dice);
    const Config::List list = this->listOf(world, dice);
    const auto simpler = Proof::simplify(list, this->sets_);
    if (seed % 4 == 0) {
      const auto difference = Proof::compare(&list, &simpler.list, this->sets_, 0);
      EXPECT_TRUE(difference.sameVerdicts() && !difference.mirrored.any() && !difference.logged.any());
    }
    const auto packets = world.packets();
    std::set<uint32_t> matching;
    for (const Fields& packet : packets) {
      if (packets.size() > 500 && dice.below(packets.size()) > 500) continue;
      const TypeParam* before = met<TypeParam>(list, packet);
      if (before) matching.insert(before->sequence);
      ASSERT_TRUE(fateOf(before) == fateOf(met<TypeParam>(simpler.list, packet))) << packet.str();
    }
    size_t gone = simpler.leftOut.size();
    for (const auto& each : simpler.leftOut) {
      const Acl::RuleBase& rule = Config::common(list.rules.at(each.sequence));
      EXPECT_TRUE(!matching.contains(each.sequence) || each.oddity == Proof::Oddity::redundant);
      if (matching.contains(each.sequence)) {
        EXPECT_FALSE(rule.log || !rule.mirrorSession.empty());
      }
      ++seen[each.oddity == Proof::Oddity::redundant ? "redundant" : "dead"];
    }
    for (const auto& each : simpler.joined) {
      gone += each.rules.size() - 1;
      for (const uint32_t rule : each.rules) {
        const Acl::RuleBase& base = Config::common(list.rules.at(rule));
        EXPECT_FALSE(base.log || !base.mirrorSession.empty());
        EXPECT_EQ(simpler.list.rules.contains(rule), rule == each.rules.front());
      }
      ++seen["joined"];
    }
    EXPECT_EQ(simpler.list.rules.size() + gone, list.rules.size());
    for (const auto& [sequence, rule] : simpler.list.rules)
      EXPECT_EQ(Config::common(rule).sequence, sequence);
    EXPECT_EQ(this->linesIn(this->remarksOf(simpler.list)), this->linesIn(this->remarksOf(list)));
    EXPECT_TRUE(Proof::needlessOf(simpler.list, this->sets_).empty());
  }
  for (const char* each : {"redundant", "dead", "joined"})
    EXPECT_GT(seen[each], static_cast<size_t>(casesOf(10))) << each;
}

std::string simplified(const std::string& text) {
  auto model = modelOf(text);
  Config::List& list = model.lists.begin()->second;
  const Proof::RuleSets sets(list.type, {Kelp::Duration(3600)});
  list = Proof::simplify(list, sets).list;
  const std::string written = Config::textOf(model);
  // What is printed is what was proven.
  EXPECT_TRUE(modelOf(written).lists.begin()->second == list) << written;
  return written;
}

TEST(Simplify, WritesListsAsTheLanguageDoes) {
  struct Row {
    const char* before;
    const char* after;
  };
  for (
      const Row& row : {
          Row{"ip access-list A\n", "ip access-list A\n"},
          Row{"ip access-list A\n 10 permit tcp any any eq 22\n 20 permit tcp any any eq 23\n"
              " 30 permit tcp any any range 24 30\n 40 permit tcp any any range 31 99\n",
              "ip access-list A\n   10 permit tcp any any range 22 99\n"},
          Row{"ip access-list A\n 10 permit tcp any any eq 22\n 20 permit tcp any any eq 80 443\n",
              "ip access-list A\n   10 permit tcp any any eq 22 80 443\n"},
          // Each half of a half, wherever they stand.
          Row{"ip access-list A\n 10 permit ip 10.0.0.0/10 any\n 20 permit udp any any\n"
              " 30 permit ip 10.128.0.0/9 any\n 40 permit ip 10.64.0.0/10 any\n",
              "ip access-list A\n   10 permit ip 10.0.0.0/8 any\n   20 permit udp any any\n"},
          // Not halves of the same.
          Row{"ip access-list A\n 10 permit ip 10.1.0.0/16 any\n 20 permit ip 10.2.0.0/16 any\n",
              "ip access-list A\n   10 permit ip 10.1.0.0/16 any\n   20 permit ip 10.2.0.0/16 any\n"},
          // Ports, and then addresses.
          Row{"ip access-list A\n 10 permit tcp host 10.0.0.2 any eq 1\n 20 permit tcp host 10.0.0.3 any eq 1\n"
              " 30 permit tcp host 10.0.0.2 any eq 5\n 40 permit tcp host 10.0.0.3 any eq 5\n",
              "ip access-list A\n   10 permit tcp 10.0.0.2/31 any eq 1 5\n"},
          // Another action stands between.
          Row{"ip access-list A\n 10 permit tcp any any eq 22\n 20 deny tcp host 10.0.0.1 any\n"
              " 30 permit tcp any any eq 23\n",
              "ip access-list A\n   10 permit tcp any any eq 22\n   20 deny tcp host 10.0.0.1 any\n"
              "   30 permit tcp any any eq 23\n"},
          // A log between keeps its place.
          Row{"ip access-list A\n 10 permit tcp any any eq 22\n 20 permit tcp host 10.0.0.1 any log\n"
              " 30 permit tcp any any eq 23\n",
              "ip access-list A\n   10 permit tcp any any eq 22\n   20 permit tcp host 10.0.0.1 any log\n"
              "   30 permit tcp any any eq 23\n"},
          // Its log would not be written.
          Row{"ip access-list A\n 10 permit tcp any any eq 22 log\n 20 permit tcp any any\n",
              "ip access-list A\n   10 permit tcp any any eq 22 log\n   20 permit tcp any any\n"},
          // Each log names its own rule.
          Row{"ip access-list A\n 10 permit tcp any any eq 22 log\n 20 permit tcp any any log\n",
              "ip access-list A\n   10 permit tcp any any eq 22 log\n   20 permit tcp any any log\n"},
          // Without rule 20, which changes nothing, nobody permits what rule 10 denies.
          Row{"ip access-list A\n 10 deny tcp any any eq 22\n 20 permit tcp any any eq 22 80\n"
              " 30 permit tcp any any range 80 81\n",
              "ip access-list A\n   30 permit tcp any any range 80 81\n"},
          // A log would be written.
          Row{"ip access-list A\n 10 permit tcp any any eq 22\n 20 permit tcp any any log\n",
              "ip access-list A\n   10 permit tcp any any eq 22\n   20 permit tcp any any log\n"},
          Row{"ip access-list A\n 10 permit tcp any any\n 20 permit tcp any any eq 22 mirror session S\n",
              "ip access-list A\n   10 permit tcp any any\n"},
          // One of two that do the same stays.
          Row{"ip access-list A\n 10 permit tcp any any\n 20 permit tcp any any\n",
              "ip access-list A\n   10 permit tcp any any\n"},
          Row{"ip access-list A\n 10 permit tcp any any lt 10\n 20 permit tcp any any range 5 20\n"
              " 30 permit tcp any any range 8 30\n",
              "ip access-list A\n   10 permit tcp any any lt 31\n"},
          // A last rule that denies is written for its counter.
          Row{"ip access-list A\n 10 permit tcp any any\n 20 deny udp any any\n 30 deny ip any any\n",
              "ip access-list A\n   10 permit tcp any any\n   30 deny ip any any\n"},
          Row{"ip access-list A\n remark one\n 10 permit tcp any any eq 22\n remark two\n"
              " 20 permit tcp any any\n remark three\n 30 permit tcp any any eq 5\n",
              "ip access-list A\n   remark one\n   remark two\n   20 permit tcp any any\n   remark three\n"},
          Row{"ip access-list standard A\n 10 permit 10.0.0.0/25\n 20 permit 10.0.0.128/25\n",
              "ip access-list standard A\n   10 permit 10.0.0.0/24\n"},
          Row{"ip access-list standard A\n 10 permit 0.0.0.0/1\n 20 permit 128.0.0.0/1\n",
              "ip access-list standard A\n   10 permit any\n"},
          Row{"ip access-list A\n 10 permit tcp any any lt 9 dscp 8\n 20 permit tcp any any lt 9 dscp 9\n",
              "ip access-list A\n   10 permit tcp any any lt 9 dscp 8 0x3e\n"},
          Row{"ipv6 access-list A\n 10 permit ipv6 2001:db8::/33 any\n 20 permit ipv6 2001:db8:8000::/33 any\n",
              "ipv6 access-list A\n   10 permit ipv6 2001:db8::/32 any\n"},
          Row{"mac access-list A\n 10 permit host 02:00:00:00:00:00 any ip\n 20 permit host 02:00:00:00:00:01 any ip\n",
              "mac access-list A\n   10 permit 02:00:00:00:00:00 00:00:00:00:00:01 any 0x0800\n"},
          Row{"object-group network G\n host 10.0.0.1\nip access-list A\n"
              " 10 permit ip object-group G any\n 20 permit ip host 10.0.0.0 any\n",
              "object-group network G\n   host 10.0.0.1\nip access-list A\n"
              "   10 permit ip object-group G any\n   20 permit ip host 10.0.0.0 any\n"},
      })
    EXPECT_EQ(simplified(row.before), row.after) << row.before;
}

}  // namespace
