#include <Classify/Division.h>
#include <gtest/gtest.h>

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

}  // namespace
