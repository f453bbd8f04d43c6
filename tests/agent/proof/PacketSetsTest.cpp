#include <agent/proof/PacketSets.h>
#include <gtest/gtest.h>

#include "../../support/Dice.h"

namespace {

using namespace Proof;

constexpr unsigned manyBits = 200;

/// Pairs of bits that are far apart: a set that grows without bounds.
PacketSet grow(const PacketSets& sets) {
  PacketSet all;
  for (unsigned i = 0; i < manyBits / 2; ++i)
    all = all | (sets.bitIs(i, true) & sets.bitIs(i + manyBits / 2, true));
  return all;
}

std::string whyNot(const PacketSets& sets) {
  try {
    grow(sets);
  } catch (const LimitReached& reached) {
    return reached.what();
  }
  return "";
}

TEST(PacketSets, WorkEndsWithASentenceWhenMemoryIsSpent) {
  const PacketSets sets(manyBits, {Kelp::Duration(3600), size_t{16} << 20});
  EXPECT_EQ(whyNot(sets), "it takes more than 16 MiB of memory");
  EXPECT_THROW(sets.bitIs(0, true) & sets.bitIs(1, true), LimitReached)
      << "nothing can be worked with any more";
  EXPECT_LE(sets.memory(), size_t{17} << 20);
}

TEST(PacketSets, AWatcherIsToldOfLongWorkOnly) {
  struct Steps final : Kiv::Clock {
    mutable double seconds = 0;
    Kelp::Duration now() const override { return Kelp::Duration(seconds += step); }
    double step = 0.01;
  };
  struct Told final : Watcher {
    void cameTo(const Progress& progress) override { told.push_back(progress); }
    void ended() override { ++ends; }
    std::vector<Progress> told;
    int ends = 0;
  };
  Told told;
  Limits limits{Kelp::Duration(3600)};
  limits.watcher = &told;
  Steps clock;
  const auto work = [&](int operations) {
    const int ends = told.ends;
    const PacketSets sets(8, limits, clock);
    sets.cameTo(3, 9);
    for (int i = 0; i < operations; ++i) (void)(sets.bitIs(0, true) & sets.bitIs(1, true));
    EXPECT_EQ(told.ends, ends) << "it is still there";
  };
  work(5);
  EXPECT_TRUE(told.told.empty()) << "less than a second";
  EXPECT_EQ(told.ends, 0);
  work(200);
  EXPECT_EQ(told.ends, 1);
  ASSERT_GT(told.told.size(), 2u);
  EXPECT_LT(told.told.size(), 60u) << "not with every operation";
  EXPECT_GE(told.told.front().seconds, 1);
  EXPECT_EQ(told.told.front().done, 3u);
  EXPECT_EQ(told.told.front().all, 9u);
  EXPECT_GT(told.told.front().memory, 0u);
  // Others that come later are not told of it.
  limits.watcher = nullptr;
  work(200);
  EXPECT_EQ(told.ends, 1);
}

TEST(PacketSets, TheNextPieceOfAQuestionHasWhatIsLeftAndTellsWhatWasAsked) {
  const Limits asked{Kelp::Duration(5)};
  const Limits left = asked.leftSince(Kelp::Duration(1), Kelp::Duration(4));
  EXPECT_EQ(left.seconds, Kelp::Duration(2));
  EXPECT_EQ(left.memory, asked.memory);
  try {
    const PacketSets sets(manyBits, left.leftSince(Kelp::Duration(4), Kelp::Duration(9)));
    FAIL() << "nothing is left";
  } catch (const LimitReached& reached) {
    EXPECT_STREQ(reached.what(), "it takes more than 5 seconds");
  }
}

TEST(PacketSets, WorkThatNeedsMoreThanThereIsAtFirstDoesNotBegin) {
  EXPECT_THROW(PacketSets(manyBits, {Kelp::Duration(3600), 100}), LimitReached);
  const PacketSets sets(4, {});
  EXPECT_FALSE((sets.bitIs(0, true) & sets.bitIs(1, true)).isEmpty()) << "the next one finds all in order";
}

TEST(PacketSets, WorkEndsWithASentenceWhenTimeIsSpent) {
  Kiv::ManualClock time;
  const PacketSets sets(manyBits, {Kelp::Duration(3)}, time);
  const PacketSet one = sets.bitIs(0, true), other = sets.bitIs(1, true);
  for (int i = 0; i < 3; ++i) {
    EXPECT_NO_THROW(one & other);
    time.advance(Kelp::Duration(1));
  }
  EXPECT_NO_THROW(one & other) << "three seconds are not more than three";
  time.advance(Kelp::Duration(1));
  try {
    one& other;
    FAIL() << "there is no time left";
  } catch (const LimitReached& reached) {
    EXPECT_STREQ(reached.what(), "it takes more than 3 seconds");
  }
}

TEST(PacketSets, AreTheSetsThatTheySay) {
  constexpr unsigned bits = 6;
  TestSupport::Dice dice(1);
  const PacketSets sets(bits, {Kelp::Duration(3600)});
  std::vector<std::pair<PacketSet, uint64_t>> known = {{sets.all(), ~uint64_t{0}}, {PacketSet(), 0}};
  for (unsigned bit = 0; bit < bits; ++bit) {
    uint64_t with = 0;
    for (unsigned i = 0; i < 64; ++i) with |= uint64_t{i >> bit & 1} << i;
    known.emplace_back(sets.bitIs(bit, true), with);
    known.emplace_back(sets.bitIs(bit, false), ~with);
  }
  for (int step = 0; step < 300; ++step) {
    const auto a = dice.of(known), b = dice.of(known);
    switch (dice.below(3)) {
      case 0:
        known.emplace_back(a.first & b.first, a.second & b.second);
        break;
      case 1:
        known.emplace_back(a.first | b.first, a.second | b.second);
        break;
      default:
        known.emplace_back(a.first - b.first, a.second & ~b.second);
    }
    EXPECT_EQ(a.first == b.first, a.second == b.second);
  }
  for (const auto& [set, members] : known) {
    EXPECT_EQ(set.isEmpty(), members == 0);
    Proof::Bits assigned;
    for (unsigned i = 0; i < 64; ++i) {
      for (unsigned bit = 0; bit < bits; ++bit) assigned.set(bit, (i >> bit & 1) != 0);
      EXPECT_EQ(sets.contains(set, assigned), (members >> i & 1) != 0);
    }
    if (set.isEmpty()) continue;
    EXPECT_TRUE(sets.contains(set, sets.oneOf(set)));
  }
}

TEST(PacketSetsDeathTest, ThereIsOneAtATime) {
  const PacketSets sets(2, {});
  EXPECT_DEATH(PacketSets(2, {}), "a second analysis at the same time");
}

}  // namespace
