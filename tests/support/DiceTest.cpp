#include "Dice.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace {

using TestSupport::Dice;

TEST(Dice, OfOctetsSaysWhatTheySay) {
  const std::array<uint8_t, 13> octets = {7, 1, 2, 0xff, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  Dice dice{std::span<const uint8_t>(octets)};
  EXPECT_EQ(dice.below(1), 0u) << "no choice takes no octet";
  EXPECT_EQ(dice.below(4), 3u);
  EXPECT_EQ(dice.below(0x10000), 0x0102u);
  EXPECT_EQ(dice.below(256), 0xffu);
  EXPECT_EQ(dice.any(), 0x0102030405060708u);
  EXPECT_TRUE(dice.more());
  EXPECT_EQ(dice.below(10), 9u);
  EXPECT_FALSE(dice.more());
}

TEST(Dice, IsSimpleBehindTheEndOfItsOctets) {
  const std::array<uint8_t, 1> octets = {0xab};
  Dice dice{std::span<const uint8_t>(octets)};
  EXPECT_EQ(dice.below(0x10000), 0xab00u) << "the rest of a number is zero";
  EXPECT_EQ(dice.any(), 0u);
  EXPECT_FALSE(dice.once(2)) << "what is done now and then is left out";
  const int values[] = {4, 5};
  EXPECT_EQ(dice.of(values), 4);
}

TEST(Dice, OfASeedGoesOnForEver) {
  Dice a(5), b(5), c(6);
  std::vector<uint64_t> ones, others, again;
  for (int i = 0; i < 100; ++i) {
    ones.push_back(a.any());
    again.push_back(b.any());
    others.push_back(c.any());
  }
  EXPECT_EQ(ones, again);
  EXPECT_NE(ones, others);
  EXPECT_TRUE(a.more());
}

}  // namespace
