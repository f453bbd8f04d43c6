#include <Classify/Division.h>
#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <set>

namespace {

using namespace Classify;

TEST(Gather, PutsTheBitsUnderAMaskSideBySide) {
  struct {
    uint64_t bits, mask, gathered;
    const char* why;
  } const rows[] = {
      {0xffff, 0, 0, "no bits are nothing"},
      {0xabcd, ~uint64_t{0}, 0xabcd, "all bits are the word"},
      {0xf0, 0xff, 0xf0, "a run at the lower end stays where it is"},
      {0xf000, 0xff00, 0xf0, "a run goes to the lower end"},
      {0x8000000000000001, 0x8000000000000001, 3, "the outermost bits meet"},
      {0b101010, 0b111010, 0b1011, "the lowest bit of the mask is the lowest of the result"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(gatherBits(row.bits, row.mask), row.gathered) << row.why;
    EXPECT_EQ(scatterBits(row.gathered, row.mask), row.bits & row.mask) << row.why;
  }
}

Image host(uint32_t slot, uint32_t address) {
  Image image;
  image.slot = slot;
  image.mask[0] = ~uint32_t{0};
  image.value[0] = address;
  return image;
}

TEST(Division, PutsEveryImageIntoTheCellsThatItMeets) {
  std::vector<Image> images;
  for (uint32_t i = 0; i < 64; ++i) images.push_back(host(i, i * 3));
  std::vector<uint32_t> members(images.size());
  for (uint32_t i = 0; i < members.size(); ++i) members[i] = i;
  DivisionLimits limits;
  limits.maxMembers = 1000;
  limits.maxCells = 1000;
  const Division division = divide(Images(images), members, {}, limits);
  ASSERT_TRUE(division.divides());
  EXPECT_TRUE(division.left.empty());
  size_t found = 0;
  for (size_t cell = 0; cell < division.cells.size(); ++cell) {
    const Region region = division.regionOf({}, cell);
    for (const uint32_t member : division.cells[cell]) {
      EXPECT_NE(overlap(region, images[member]), Overlap::none);
      ++found;
    }
  }
  EXPECT_EQ(found, images.size()) << "hosts are in one cell each";
}

TEST(Division, LeavesOutWhatWouldBeInTooManyCells) {
  std::vector<Image> images;
  for (uint32_t i = 0; i < 64; ++i) images.push_back(host(i, i * 0x01010101));
  Image any;
  any.slot = 64;
  any.mask[1] = ~uint32_t{0};
  images.push_back(any);
  std::vector<uint32_t> members(images.size());
  for (uint32_t i = 0; i < members.size(); ++i) members[i] = i;
  DivisionLimits limits;
  limits.maxMembers = 1000;
  limits.maxCells = 1000;
  limits.maxCopies = 2;
  const Division division = divide(Images(images), members, {}, limits);
  EXPECT_EQ(division.left, std::vector<uint32_t>{64});
  for (const uint32_t member : division.cells.members) EXPECT_NE(member, 64u);
}

TEST(Division, KeepsOutWhatAnEarlierImageHides) {
  std::vector<Image> images;
  for (uint32_t i = 0; i < 32; ++i) {
    Image prefix;
    prefix.slot = i;
    prefix.mask[0] = 0xf0000000;
    prefix.value[0] = i % 16 << 28;
    images.push_back(prefix);  // each prefix twice: the second is met by nobody
  }
  std::vector<uint32_t> members(images.size());
  for (uint32_t i = 0; i < members.size(); ++i) members[i] = i;
  DivisionLimits limits;
  limits.maxMembers = 1000;
  limits.maxCells = 1000;
  const Division division = divide(Images(images), members, {}, limits);
  for (size_t cell = 0; cell < division.cells.size(); ++cell) {
    const Region region = division.regionOf({}, cell);
    const auto inside = division.cells[cell];
    for (size_t i = 0; i + 1 < inside.size(); ++i) {
      EXPECT_NE(overlap(region, images[inside[i]]), Overlap::all) << "nothing comes behind what takes all";
    }
  }
}

/// Addresses that are prefixes, and ports that are single ones, ranges or any.
std::vector<Image> randomImages(uint32_t seed) {
  std::mt19937 random(seed);
  const auto below = [&random](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
  std::vector<Image> images;
  for (uint32_t slot = 0; slot < 200; ++slot) {
    Image image;
    image.slot = slot;
    for (const int word : {0, 1}) {
      image.mask[word] = word == 0 || below(2) ? ~uint32_t{0} << below(28) : 0;
      image.value[word] = below(~uint32_t{0}) & image.mask[word];
    }
    for (const int shift : {0, 16}) {
      // Often where cells end.
      const uint32_t low = below(2) ? below(65536) : below(16) << 12 | 0xfff;
      const uint32_t high = below(3) == 0 ? low : std::min(low + below(9000), 0xffffu);
      if (below(3) == 0) continue;
      image.pairLow |= low << shift;
      image.pairHigh &= ~(0xffffu << shift) | high << shift;
    }
    images.push_back(image);
  }
  return images;
}

TEST(Division, PutsRangesIntoExactlyTheCellsThatTheyMeet) {
  for (uint32_t seed = 1; seed <= 10; ++seed) {
    const auto images = randomImages(seed);
    std::vector<uint32_t> members(images.size());
    std::iota(members.begin(), members.end(), 0);
    DivisionLimits limits;
    limits.allowed[0] = seed % 2 ? 0 : ~uint64_t{0};
    limits.maxMembers = 3000;
    limits.maxCells = 3000;
    const Division division = divide(Images(images), members, {}, limits);
    ASSERT_TRUE(division.divides());
    for (size_t cell = 0; cell < division.cells.size(); ++cell) {
      const Region region = division.regionOf({}, cell);
      std::vector<uint32_t> expected;
      for (const uint32_t member : members) {
        const Overlap lies = overlap(region, images[member]);
        if (lies != Overlap::none) expected.push_back(member);
        if (lies == Overlap::all) break;
      }
      const auto inside = division.cells[cell];
      ASSERT_EQ(std::vector(inside.begin(), inside.end()), expected) << "seed " << seed << " cell " << cell;
    }
  }
}

/// Half of the images differ in one address and half in the other: what divides the one half copies the
/// cells of the other.
TEST(Division, TakesNoMoreBlocksThanItMayAndCountsSharedOnesOnce) {
  std::vector<Image> images;
  for (uint32_t slot = 0; slot < 256; ++slot) {
    Image image = host(slot, slot);
    if (slot % 2) {
      image.mask[0] = image.value[0] = uint32_t{1} << 31;
      image.mask[1] = ~uint32_t{0};
      image.value[1] = slot;
    }
    images.push_back(image);
  }
  std::vector<uint32_t> members(images.size());
  std::iota(members.begin(), members.end(), 0);
  DivisionLimits limits;
  limits.maxMembers = 5000;
  limits.maxCells = 5000;
  size_t before = 0;
  bool shared = false;
  for (const size_t most : {32u, 34u, 40u, 48u, 64u, 96u}) {
    limits.maxBlocks = most;
    const Division division = divide(Images(images), members, {}, limits);
    std::set<std::vector<uint32_t>> leaves;
    size_t blocks = division.cells.size() / 64, unshared = 0;
    for (size_t cell = 0; cell < division.cells.size(); ++cell) {
      const auto inside = division.cells[cell];
      const size_t size = (inside.size() + Plane::lanes - 1) / Plane::lanes;
      unshared += size;
      if (leaves.emplace(inside.begin(), inside.end()).second) blocks += size;
    }
    EXPECT_LE(blocks, most);
    EXPECT_GE(division.cells.size(), before) << "more room is used";
    before = division.cells.size();
    shared = shared || unshared > most;
  }
  EXPECT_TRUE(shared) << "cells that share leaves are not counted twice";
}

}  // namespace
