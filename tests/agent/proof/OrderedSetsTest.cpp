#include <agent/proof/OrderedSets.h>
#include <gtest/gtest.h>

#include "ProofSupport.h"
#include "SmallWorld.h"

#include <algorithm>

namespace {

using namespace TestSupport;
using Differential::Fields;
using Entries = std::vector<size_t>;

template <class Rule>
class OrderedSetsTest : public testing::Test {
 protected:
  struct World {
    Proof::OrderedSets entries;
    std::vector<Fields> packets;
    std::vector<Proof::PacketSet> asked;
  };

  World world(Dice& dice, uint32_t count) {
    SmallWorld<Rule> small(dice);
    World made{Proof::OrderedSets(sets_), small.packets(), {}};
    for (uint32_t i = 0; i < count; ++i) {
      const Rule rule = small.rule(i + 1);
      made.asked.push_back(sets_.of(Config::Rule(rule)));
      made.entries.add(rule.sequence, rule.action == Acl::Action::permit, made.asked.back());
    }
    return made;
  }
  bool has(const Proof::PacketSet& set, const Proof::Bits& bits) const {
    return sets_.sets().contains(set, bits);
  }

  const Proof::RuleSets sets_{typeOf<Rule>, {Kelp::Duration(3600)}};
};

using Kinds = testing::Types<Acl::IpRule, Acl::Ip6Rule, Acl::MacRule>;
TYPED_TEST_SUITE(OrderedSetsTest, Kinds);

TYPED_TEST(OrderedSetsTest, CubesLeaveNothingOut) {
  size_t apart = 0, near = 0;
  for (uint64_t seed = 0; seed < proofCases(60); ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    const auto world = this->world(dice, 8);
    for (size_t at = 0; at < 8; ++at) {
      if (world.asked[at].isEmpty()) continue;
      const Entries found = world.entries.near(at, 0, 8);
      for (size_t other = 0; other < 8; ++other) {
        const bool isNear = std::binary_search(found.begin(), found.end(), other);
        const bool meets = !(world.asked[at] & world.asked[other]).isEmpty();
        EXPECT_TRUE(isNear || !meets) << at << " and " << other;
        (isNear ? near : apart)++;
        EXPECT_EQ(!world.asked[other].isEmpty() && world.entries.covers(at, other),
                  !world.asked[other].isEmpty() && (world.asked[other] - world.asked[at]).isEmpty());
      }
      for (const Fields& packet : world.packets) {
        // An entry has what its set has, whether the cube or the set is asked.
        Proof::Bits bits = this->sets_.bitsOf(proofPacket(packet));
        ASSERT_EQ(world.entries.has(at, bits), this->has(world.asked[at], bits)) << packet.str();
      }
    }
  }
  EXPECT_GT(apart, 20u);
  EXPECT_GT(near, 200u);
}

TYPED_TEST(OrderedSetsTest, PacketsThatWereTriedShowWhatIsSaid) {
  size_t taken = 0, changed = 0;
  for (uint64_t seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    const auto world = this->world(dice, 8);
    std::mt19937_64 random(seed);
    for (size_t at = 0; at < 8; ++at) {
      if (world.asked[at].isEmpty()) continue;
      const auto& entries = world.entries;
      const auto tried = entries.tryPackets(at, entries.near(at, 0, at), entries.near(at, at + 1, 8), random);
      const auto first = [&](const Proof::Bits& packet, size_t from) {
        while (from < 8 && !this->has(world.asked[from], packet)) ++from;
        return from;
      };
      EXPECT_TRUE(!tried.taken || first(*tried.taken, 0) == at);
      taken += tried.taken.has_value();
      if (!tried.changed) continue;
      ++changed;
      ASSERT_EQ(first(*tried.changed, 0), at);
      const size_t next = first(*tried.changed, at + 1);
      EXPECT_NE(next < 8 ? entries[next].effect : 0, entries[at].effect);
    }
  }
  EXPECT_GT(taken, 500u);
  EXPECT_GT(changed, 300u);
}

/// Some entries that take all of another one: in their order each of them some.
void expectTakers(const Proof::OrderedSets& entries, const Entries& by, size_t at) {
  EXPECT_TRUE(std::is_sorted(by.begin(), by.end()));
  Proof::PacketSet left = entries[at].asked;
  for (const size_t each : by) {
    const auto less = left - entries[each].asked;
    EXPECT_NE(less, left) << each << " takes nothing";
    left = less;
  }
  EXPECT_TRUE(left.isEmpty());
}

/// Each rule is about a few of 256 packets, so that very many are needed to leave nothing of them.
TEST(OrderedSets, WhatIsLeftIsFoundAmongManyRules) {
  const Proof::RuleSets sets(Acl::AclType::ip, {Kelp::Duration(3600)});
  size_t left = 0, nothing = 0, changed = 0, same = 0;
  for (uint64_t seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    Proof::OrderedSets entries(sets);
    const bool unlike = dice.once(2);  // what happens behind the entry that is looked at
    const auto add = [&](uint32_t number, uint32_t sourceMask, uint32_t destinationMask) {
      Acl::IpRule rule;
      rule.filter.sourceMask.value = sourceMask;
      rule.filter.destinationMask.value = destinationMask;
      rule.filter.source.value = static_cast<uint32_t>(dice.below(16)) & sourceMask;
      rule.filter.destination.value = static_cast<uint32_t>(dice.below(16)) & destinationMask;
      // Not a cube, and all the same about everything.
      rule.filter.protocolNamed = dice.once(4);
      if (dice.once(4)) rule.filter.hops = {dice.once(2) ? Acl::Compare::lt : Acl::Compare::gt, 64};
      entries.add(number, number < 1000 || (unlike && dice.once(2)), sets.of(Config::Rule(rule)));
    };
    const size_t at = 30 + dice.below(150);
    for (uint32_t i = 0; i < at; ++i)
      add(i + 1, static_cast<uint32_t>(dice.below(16)), static_cast<uint32_t>(dice.below(16)));
    entries.add(1000, dice.once(2), sets.packets());
    Proof::PacketSet all;
    for (size_t i = 0; i < at; ++i) all = all | entries[i].asked;
    const auto rest = sets.packets() - all;
    const auto near = entries.near(at, 0, at);
    const auto found = entries.leftOf(at, near);
    EXPECT_EQ(found.packet.has_value(), !rest.isEmpty());
    EXPECT_TRUE(!found.packet || sets.sets().contains(rest, *found.packet));
    (found.packet ? left : nothing)++;
    if (!found.packet) {
      expectTakers(entries, found.by, at);
      continue;
    }

    for (auto more = dice.below(60); more > 0; --more)
      add(1000 + static_cast<uint32_t>(more), static_cast<uint32_t>(dice.below(4)),
          static_cast<uint32_t>(dice.below(4)));
    Proof::PacketSet open = rest, otherwise;
    for (size_t i = at + 1; i < entries.size(); ++i) {
      if (entries[i].effect != entries[at].effect) otherwise = otherwise | (open & entries[i].asked);
      open = open - entries[i].asked;
    }
    if (entries[at].effect != 0) otherwise = otherwise | open;
    const auto other = entries.changedWithout(at, near, entries.near(at, at + 1, entries.size()));
    EXPECT_EQ(other.has_value(), !otherwise.isEmpty());
    EXPECT_TRUE(!other || sets.sets().contains(otherwise, *other));
    (other ? changed : same)++;
  }
  EXPECT_GT(left, 20u);
  EXPECT_GT(nothing, 20u);
  EXPECT_GT(changed, 20u);
  EXPECT_GT(same, 20u);
}

}  // namespace
