#include <agent/proof/ListAnalysis.h>
#include <gtest/gtest.h>

#include "../support/ModelOf.h"
#include "BruteForce.h"
#include "ProofSupport.h"
#include "SmallWorld.h"

#include <algorithm>
#include <map>
#include <set>

namespace {

using namespace TestSupport;
using Acl::Action;
using Differential::Fields;
using Proof::Oddity;

template <class Rule>
class ListAnalysisTest : public testing::Test {
 protected:
  void expectRight(const Brute<Rule>& brute) {
    const auto found = Proof::analyse(configList(brute.rules), sets_);
    std::map<uint32_t, Proof::RuleFinding> byRule;
    for (const auto& each : found.rules) byRule[each.sequence] = each;
    EXPECT_EQ(byRule.size(), found.rules.size()) << "one finding a rule";
    for (size_t i = 0; i < brute.rules.size(); ++i) {
      SCOPED_TRACE(brute.rules[i].sequence);
      const auto at = byRule.find(brute.rules[i].sequence);
      expectRight(brute, i, at == byRule.end() ? nullptr : &at->second);
    }
    const size_t all = brute.packets.size(), nobody = brute.rules.size();
    size_t passed = 0;
    for (size_t p = 0; p < all; ++p) passed += brute.passes(p, nobody);
    EXPECT_EQ(found.passesAll, passed == all);
    EXPECT_EQ(found.passesNothing, passed == 0);
    whole_ += found.passesAll + found.passesNothing;
  }

  std::map<Oddity, size_t> seen_;
  size_t together_ = 0, whole_ = 0, plain_ = 0;
  size_t standingForOthers_[2] = {};  // that all do the same, or not

 private:
  void expectRight(const Brute<Rule>& brute, size_t rule, const Proof::RuleFinding* finding) {
    const size_t all = brute.packets.size(), nobody = brute.rules.size();
    bool taken = false, changes = false;
    for (size_t p = 0; p < all; ++p) {
      taken = taken || brute.first(p, nobody) == rule;
      changes = changes || brute.passes(p, nobody) != brute.passes(p, rule);
    }
    if (taken && changes) {
      ++plain_;
      EXPECT_EQ(finding, nullptr) << "nothing is odd about it";
      return;
    }
    ASSERT_NE(finding, nullptr) << (taken ? "redundant" : "never matches");
    ++seen_[finding->oddity];
    if (taken) return expectRedundant(brute, rule, *finding);
    const bool impossible = none(brute.matches[rule]);
    ASSERT_EQ(finding->oddity, impossible ? Oddity::impossible : Oddity::covered);
    if (!impossible) expectCover(brute, rule, *finding);
  }

  void expectRedundant(const Brute<Rule>& brute, size_t rule, const Proof::RuleFinding& finding) {
    EXPECT_EQ(finding.oddity, Oddity::redundant);
    EXPECT_TRUE(sets_.contains(sets_.of(Config::Rule(brute.rules[rule])), finding.example));
    for (size_t i = 0; i < rule; ++i)
      EXPECT_FALSE(sets_.contains(sets_.of(Config::Rule(brute.rules[i])), finding.example)) << i;
  }

  void expectCover(const Brute<Rule>& brute, size_t rule, const Proof::RuleFinding& finding) {
    EXPECT_TRUE(sets_.contains(sets_.of(Config::Rule(brute.rules[rule])), finding.example));
    EXPECT_TRUE(std::is_sorted(finding.by.begin(), finding.by.end()));
    bool other = false;
    for (const uint32_t each : finding.by) {
      EXPECT_LT(each, brute.rules[rule].sequence);
      other = other || brute.rules[brute.indexOf(each)].action != brute.rules[rule].action;
    }
    EXPECT_EQ(finding.otherAction, other);
    std::set<uint32_t> takers;
    for (size_t p = 0; p < brute.packets.size(); ++p) {
      if (brute.matches[rule][p]) takers.insert(brute.rules[brute.first(p, brute.rules.size())].sequence);
    }
    together_ += finding.by.size() > 1;
    const std::set<uint32_t> by(finding.by.begin(), finding.by.end());
    if (by == takers) return;
    // Where rules stand for very many others, they ask for all of it, and do all that the others do.
    constexpr size_t many = 64;
    EXPECT_GT(rule, many) << "all that take some are named";
    for (size_t p = 0; p < brute.packets.size(); ++p) {
      EXPECT_TRUE(!brute.matches[rule][p] || std::any_of(by.begin(), by.end(), [&](uint32_t each) {
        return brute.matches[brute.indexOf(each)][p];
      })) << brute.packets[p].str();
    }
    const auto actionsOf = [&brute](const std::set<uint32_t>& rules) {
      std::set<Action> actions;
      for (const uint32_t each : rules) actions.insert(brute.rules[brute.indexOf(each)].action);
      return actions;
    };
    EXPECT_EQ(actionsOf(by), actionsOf(takers));
    ++standingForOthers_[actionsOf(by).size() - 1];
  }

  const Proof::RuleSets sets_{typeOf<Rule>, {Kelp::Duration(3600)}};
};

using Kinds = testing::Types<Acl::IpRule, Acl::Ip6Rule, Acl::MacRule>;
TYPED_TEST_SUITE(ListAnalysisTest, Kinds);

TYPED_TEST(ListAnalysisTest, WhatIsSaidOfRandomListsIsTrueOfEveryPacket) {
  for (uint64_t seed = 0; seed < proofCases(400) && !this->HasFailure(); ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    Dice dice(seed);
    SmallWorld<TypeParam> world(dice);
    std::vector<TypeParam> rules;
    const auto count = 1 + dice.below(12);
    for (uint32_t i = 1; i <= count; ++i) rules.push_back(world.rule(10 * i));
    this->expectRight({rules, world.packets()});
  }
  EXPECT_GT(this->seen_[Oddity::covered], 30u);
  EXPECT_GT(this->seen_[Oddity::redundant], 30u);
  EXPECT_GT(this->seen_[Oddity::impossible], 5u);
  EXPECT_GT(this->together_, 5u);
  EXPECT_GT(this->whole_, 20u);
  EXPECT_GT(this->plain_, 50u);
}

/// Lists so long that not all rules are named that take some of another one; of 256 packets.
using LongListAnalysisTest = ListAnalysisTest<Acl::IpRule>;
TEST_F(LongListAnalysisTest, WhatIsSaidIsTrueOfEveryPacket) {
  std::vector<Fields> packets;
  for (uint32_t i = 0; i < 256; ++i) {
    Fields& packet = packets.emplace_back();
    packet.source = i % 16, packet.destination = i / 16;
    isReal<Acl::IpRule>(packet);
  }
  for (uint64_t seed = 0; seed < std::max<uint64_t>(4, proofCases(4)) && !this->HasFailure(); ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    Dice dice(seed);
    std::vector<Acl::IpRule> rules;
    const auto add = [&](uint32_t mask, bool permits) {
      Acl::IpRule& rule = rules.emplace_back();
      rule.sequence = static_cast<uint32_t>(rules.size());
      rule.action = permits ? Action::permit : Action::deny;
      for (auto [value, bits] : {std::pair(&rule.filter.source.value, &rule.filter.sourceMask.value),
                                 {&rule.filter.destination.value, &rule.filter.destinationMask.value}}) {
        *bits = mask | static_cast<uint32_t>(1u << dice.below(8));
        *bits &= 15;
        *value = static_cast<uint32_t>(dice.below(16)) & *bits;
      }
    };
    const bool mixed = dice.once(2);
    for (int i = 0; i < 150; ++i) add(15, !mixed || !dice.once(20));
    for (int i = 0; i < 30; ++i) add(0, true);
    this->expectRight({rules, packets});
  }
  EXPECT_GT(this->standingForOthers_[0], 5u);
  EXPECT_GT(this->standingForOthers_[1], 5u);
}

/// What is said of the rules of a text, a word each: "30 covered by 10 20 otherwise".
std::string said(const char* text) {
  const auto model = modelOf(text);
  const Config::List& list = model.lists.begin()->second;
  const Proof::RuleSets sets(list.type, {Kelp::Duration(3600)});
  const auto found = Proof::analyse(list, sets);
  std::string all;
  for (const auto& each : found.rules) {
    constexpr const char* words[] = {"impossible", "covered", "redundant"};
    all += fmt::format("{} {}", each.sequence, words[static_cast<size_t>(each.oddity)]);
    if (!each.by.empty()) all += fmt::format(" by {}", fmt::join(each.by, " "));
    all += each.otherAction ? " otherwise, " : ", ";
  }
  return all + (found.passesAll ? "all" : found.passesNothing ? "nothing" : "some");
}

TEST(ListAnalysis, SaysWhatPeopleWouldFind) {
  struct Row {
    const char* text;
    const char* expected;
  };
  for (
      const Row& row : {
          Row{"ip access-list A\n10 permit tcp any any\n20 permit udp any any\n30 deny tcp any any eq 22\n",
              "30 covered by 10 otherwise, some"},
          Row{"ip access-list A\n10 permit ip 10.0.0.0/9 any\n20 permit ip 10.128.0.0/9 any\n"
              "30 deny ip 10.0.0.0/8 any\n40 permit ip any any\n",
              "30 covered by 10 20 otherwise, all"},
          Row{"ip access-list A\n10 deny tcp any any eq 22\n20 deny ip any any\n",
              "10 redundant, 20 redundant, nothing"},
          Row{"ip access-list A\n10 permit tcp any any\n20 deny ip any any fragments\n30 permit ip any "
              "any\n",
              "some"},
          // 30 asks for all that 40 asks for, and takes nothing of it.
          Row{"ip access-list A\n10 permit ip 10.0.0.0/9 any\n20 permit ip 10.128.0.0/9 any\n"
              "30 deny ip 8.0.0.0/5 any\n40 deny ip 10.0.0.0/8 any\n50 permit ip any any\n",
              "40 covered by 10 20 otherwise, some"},
          Row{"ip access-list A\n10 deny tcp any any eq 23\n20 permit tcp any any\n30 deny tcp any any lt 99\n",
              "30 covered by 10 20 otherwise, some"},
          Row{"ip access-list A\n10 permit ip any any\n", "all"},
          Row{"ip access-list A\n", "nothing"},
          Row{"ip access-list A\n10 permit tcp any lt 0 any\n20 permit ip any any ttl gt 255\n",
              "10 impossible, 20 impossible, nothing"},
          Row{"ipv6 access-list A\n10 deny 0 any any\n20 permit ipv6 any any\n", "some"},
          Row{"ipv6 access-list A\n10 permit udp any any fragments\n20 deny udp any any eq 53\n"
              "30 deny udp any any neq 53\n40 permit ipv6 any any\n50 deny 60 any any\n",
              "10 redundant, 50 covered by 40 otherwise, some"},
          Row{"mac access-list A\n10 deny vlan 200 0x00f any any\n20 permit vlan 201 any any\n",
              "20 covered by 10 otherwise, nothing"},
      })
    EXPECT_EQ(said(row.text), row.expected) << row.text;
}

TEST(ListAnalysis, SaysHowFarItCameWhenALimitEndsIt) {
  /// A second passes each time that it is looked at.
  struct Hurry final : Kiv::Clock {
    mutable double seconds = 0;
    Kelp::Duration now() const override { return Kelp::Duration(seconds += 1); }
  };
  const auto model = modelOf(
      "ip access-list A\n10 permit tcp any any\n20 deny tcp any any eq 22\n30 permit udp any any\n"
      "40 permit ip any any\n50 deny tcp any any eq 23\n60 deny udp any any\n");
  const Config::List& list = model.lists.begin()->second;
  std::set<size_t> judged;
  bool whole = false;
  for (double limit = 100; !whole; limit += 1) {
    ASSERT_LT(limit, 5000);
    const Hurry clock;
    const Proof::RuleSets sets(list.type, {Kelp::Duration(limit)}, clock);
    const auto found = Proof::analyse(list, sets);
    whole = found.cutOff.empty();
    EXPECT_EQ(found.cutOff, whole ? "" : fmt::format("it takes more than {} seconds", limit));
    EXPECT_EQ(found.passesAll, whole);
    EXPECT_TRUE(!whole || found.judged == list.rules.size());
    size_t expected = 0;
    for (const size_t odd : {1, 2, 4, 5}) expected += found.judged > odd;
    EXPECT_EQ(found.rules.size(), expected) << found.judged;
    judged.insert(found.judged);
  }
  EXPECT_GT(judged.size(), 3u);
}

}  // namespace
