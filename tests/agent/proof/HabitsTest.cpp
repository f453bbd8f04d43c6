#include <agent/proof/Habits.h>
#include <gtest/gtest.h>

#include "BruteForce.h"
#include "ProofSupport.h"
#include "SmallWorld.h"

#include <set>
#include <utility>
#include <vector>

// What is said of habits, against every packet of small worlds.

namespace {

using namespace TestSupport;

bool permits(const Acl::RuleBase& rule) { return rule.action == Acl::Action::permit; }

/// A rule with a change in its filter, and in each that it stands for.
template <class Rule, class Change>
Rule with(Rule rule, const Change& change) {
  change(rule.filter);
  if (rule.filter.alternatives.given()) {
    auto all = rule.filter.alternatives.all();
    for (auto& each : all) change(each);
    rule.filter.alternatives = decltype(rule.filter.alternatives)(std::move(all));
  }
  return rule;
}

template <class Rule>
bool asksForPorts(const Rule& rule) {
  bool ports = false;
  with(rule, [&ports](const Acl::IpFilterBase& filter) {
    ports =
        ports || filter.sourcePort.op != Acl::Compare::any || filter.destinationPort.op != Acl::Compare::any;
  });
  return ports;
}

template <class Rule>
class HabitsTest : public testing::Test {
 protected:
  static constexpr uint32_t rules = 6;

  /// Rules of a small world with one more behind them, as a list and packet by packet.
  Brute<Rule> brute(SmallWorld<Rule>& world) {
    std::vector<Rule> all;
    for (uint32_t i = 1; i <= rules; ++i) all.push_back(world.rule(i));
    return {all, world.packets()};
  }
  Which matchedBy(const Rule& rule, const std::vector<Fields>& packets) {
    return Brute<Rule>({rule}, packets).matches.front();
  }

  /// The rules that deny by port though later fragments pass, each with the first rule by which they do.
  std::vector<std::pair<uint32_t, uint32_t>> slips(const Brute<Rule>& brute, const std::set<uint32_t>& dead) {
    std::vector<std::pair<uint32_t, uint32_t>> all;
    for (size_t own = 0; own < brute.rules.size(); ++own) {
      const Rule& rule = brute.rules[own];
      if (permits(rule) || !asksForPorts(rule) || dead.contains(rule.sequence)) continue;
      const Which fragments = matchedBy(with(rule,
                                             [](Acl::IpFilterBase& filter) {
                                               filter.sourcePort = filter.destinationPort = {};
                                               filter.tcpFlags = 0;
                                               filter.established = filter.icmpTypeNamed = false;
                                               filter.icmpCodeNamed = false;
                                               filter.fragments = true;
                                             }),
                                        brute.packets);
      std::set<size_t> takers;
      for (size_t p = 0; p < brute.packets.size(); ++p) {
        if (fragments[p]) takers.insert(brute.first(p, brute.rules.size()));
      }
      for (const size_t taker : takers) {
        if (taker == brute.rules.size() || !permits(brute.rules[taker])) continue;
        bool ofOthersToo = false;
        for (size_t p = 0; p < brute.packets.size(); ++p)
          ofOthersToo = ofOthersToo || (brute.matches[taker][p] && !brute.packets[p].later);
        if (taker > own || !ofOthersToo) {
          all.emplace_back(rule.sequence, brute.rules[taker].sequence);
          break;
        }
      }
    }
    return all;
  }

  const Proof::RuleSets sets_{typeOf<Rule>, {Kelp::Duration(3600)}};
};

using IpKinds = testing::Types<Acl::IpRule, Acl::Ip6Rule>;
TYPED_TEST_SUITE(HabitsTest, IpKinds);

TYPED_TEST(HabitsTest, WhatIsPermittedBeforeIsPermittedPacketByPacket) {
  size_t permitted = 0, not_ = 0;
  for (uint64_t seed = 0; seed < proofCases(1500); ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    SmallWorld<TypeParam> world(dice);
    const auto brute = this->brute(world);
    const auto list = configList(brute.rules);
    for (size_t own = 1; own < brute.rules.size(); ++own) {
      const TypeParam& rule = brute.rules[own];
      if (!rule.filter.established) continue;
      const Which asked = this->matchedBy(
          with(rule, [](Acl::IpFilterBase& filter) { filter.established = false; }), brute.packets);
      bool all = true;
      for (size_t p = 0; p < brute.packets.size(); ++p) {
        if (!asked[p]) continue;
        const size_t first = brute.first(p, brute.rules.size());
        all = all && first < own && permits(brute.rules[first]);
      }
      ASSERT_EQ(Proof::isPermittedBefore(list, this->sets_, rule.sequence), all) << rule.sequence;
      (all ? permitted : not_)++;
    }
  }
  EXPECT_GT(permitted, proofCases(1500) / 100);
  EXPECT_GT(not_, proofCases(1500) / 100);
}

TYPED_TEST(HabitsTest, FragmentsSlipByPacketByPacket) {
  size_t some = 0, none = 0, several = 0;
  for (uint64_t seed = 0; seed < proofCases(1500); ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    SmallWorld<TypeParam> world(dice);
    const auto brute = this->brute(world);
    std::set<uint32_t> dead;
    if (dice.once(4)) dead.insert(1 + static_cast<uint32_t>(dice.below(this->rules)));
    std::vector<std::pair<uint32_t, uint32_t>> found;
    Proof::forEachSlip(configList(brute.rules), this->sets_, dead, [&](const Proof::Slip& slip) {
      found.emplace_back(slip.denied, slip.passed);
      const Brute<TypeParam> example(brute.rules, {fieldsOf(slip.example)});
      EXPECT_TRUE(example.packets.front().later);
      EXPECT_EQ(brute.rules[example.first(0, brute.rules.size())].sequence, slip.passed);
    });
    EXPECT_EQ(found, this->slips(brute, dead));
    (found.empty() ? none : some)++;
    several += found.size() > 1;
  }
  EXPECT_GT(some, proofCases(1500) / 100);
  EXPECT_GT(several, proofCases(1500) / 1000);
  EXPECT_GT(none, proofCases(1500) / 100);
}

}  // namespace
