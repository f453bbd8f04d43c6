#include <fmt/format.h>

#include "ForestAnswers.h"

// How much memory forests take, when they are made and through changes.
namespace ForestTests {

TEST(Forest, TakesBoundedMemory) {
  for (const Shape& shape : shapes) {
    World world(7, shape);
    std::vector<Image> images;
    for (uint32_t slot = 0; slot < 3000; ++slot) images.push_back(world.image(slot));
    Forest forest;
    forest.build(images, std::vector<uint32_t>(3000), shape.quads);
    EXPECT_LT(forest.bytes(), 3000u * 600) << shape.name;
  }
}

/// Wildcards whose bits lie anywhere, each of them taken out and put in again: it would belong in ever more
/// leaves if each leaf that has grown were divided.
TEST(Forest, TakesNotMuchMoreMemoryThroughChanges) {
  World world(1, shapes[4]);
  List list;
  Dice dice(1);
  for (uint32_t slot = 0; slot < 161; ++slot) {
    Image& image = list.images[slot];
    image.slot = slot;
    for (const int word : {0, 1}) {
      image.mask[word] = dice.word() & dice.word() & (dice.word() | dice.word());
      image.value[word] = dice.word() & image.mask[word];
    }
    list.sequences.push_back(slot);
  }
  Forest forest;
  forest.build(list.inOrder(), list.sequences, false);
  const size_t before = forest.bytes();
  EXPECT_LT(before, 161u * 256);
  for (uint32_t change = 0; change < 1000; ++change) {
    const Image& image = list.images[change % 161];
    forest.erase({&image, 1}, list.order());
    forest.insert(image, list.order());
  }
  EXPECT_LT(forest.bytes(), 2 * before + 65536 + 4096);
  expectAgreement(forest, list, world, 500, "161 wildcards");
}

/// A leaf that was not worth dividing stays one, as long as it does not grow.
TEST(Forest, DividesNoLeafForAnImageThatComesAndGoes) {
  World world(1, shapes[4]);
  List list;
  for (uint32_t slot = 0; slot < 400; ++slot) {
    Image& image = list.images[slot] = world.image(slot);
    for (const int word : {0, 1}) {
      image.mask[word] &= world.dice().word();
      image.value[word] &= image.mask[word];
    }
    list.sequences.push_back(slot);
  }
  Forest forest;
  forest.build(list.inOrder(), list.sequences, false);
  const size_t before = forest.bytes();
  for (const auto& [slot, image] : list.images) {
    if (forest.shadows(slot)) continue;
    forest.erase({&image, 1}, list.order());
    forest.insert(image, list.order());
  }
  EXPECT_LT(forest.bytes(), before + before / 4);
}

/// Few addresses with many ports, far more often changed than whoever has the forest would let it be: most
/// leaves grow for ever.
TEST(Forest, DividesNoLeavesOnceItHasGrownTooLarge) {
  constexpr uint32_t size = 2500;
  World world(1, shapes[1]);
  List list;
  for (uint32_t slot = 0; slot < size; ++slot) {
    list.images[slot] = world.image(slot);
    list.sequences.push_back(slot);
  }
  Forest forest;
  forest.build(list.inOrder(), list.sequences, false);
  const size_t before = forest.bytes();
  for (uint32_t change = 0; change < 6000; ++change) {
    const Image& image = list.images[change % size];
    if (forest.shadows(image.slot)) continue;
    forest.erase({&image, 1}, list.order());
    forest.insert(image, list.order());
  }
  EXPECT_LT(forest.bytes(), 5 * before);
  expectAgreement(forest, list, world, 500, "2500 that were all put in anew");
}

/// Lists of many sizes, also such as cannot be divided well.
TEST(Forest, TakesNotMoreThanSoMuchMemory) {
  for (const uint32_t size : {161u, 200u, 300u, 512u, 513u, 1000u, 3000u}) {
    for (const Shape& shape : shapes) {
      World world(size, shape);
      List list;
      for (uint32_t slot = 0; slot < size; ++slot) {
        list.images[slot] = world.image(slot);
        list.sequences.push_back(slot);
      }
      Forest forest;
      forest.build(list.inOrder(), list.sequences, shape.quads);
      EXPECT_LT(forest.bytes(), size * 256) << size << ' ' << shape.name;
    }
    for (const bool masks : {true, false}) {
      World world(size, shapes[4]);
      Dice dice(size);
      List list;
      for (uint32_t slot = 0; slot < size; ++slot) {
        Image& image = list.images[slot];
        image.slot = slot;
        for (const int word : {0, 1}) {
          if (masks) {
            image.mask[word] = dice.word() & dice.word() & (dice.word() | dice.word());
            image.value[word] = dice.word() & image.mask[word];
          } else {
            const uint32_t ends[2] = {dice.below(65536), dice.below(65536)};
            image.pairLow |= std::min(ends[0], ends[1]) << 16 * word;
            image.pairHigh &= ~(0xffffu << 16 * word) | std::max(ends[0], ends[1]) << 16 * word;
          }
        }
        list.sequences.push_back(slot);
      }
      Forest forest;
      forest.build(list.inOrder(), list.sequences, false);
      EXPECT_LT(forest.bytes(), size * 256) << size << (masks ? " masks" : " boxes");
      expectAgreement(forest, list, world, 100, fmt::format("{} {}", size, masks ? "masks" : "boxes"));
    }
  }
}

/// Wildcards and ranges in few networks: trees divide them until their share of the memory is used, and leave
/// long leaves, in which an image is more than once. Sieves of these leaves have to do with the rest.
TEST(Forest, TakesNotMoreThanSoMuchMemoryWithSievesBehindTrees) {
  constexpr uint32_t size = 10000, networks = 16;
  World world(1, shapes[4]);
  Dice dice(1);
  List list;
  for (uint32_t slot = 0; slot < size; ++slot) {
    Image& image = list.images[slot];
    image.slot = slot;
    image.mask[0] = 0xfc000000 | (dice.word() & dice.word() & 0x03ffffff);
    image.value[0] = (dice.below(networks) << 26 | (dice.word() & 0x03ffffff)) & image.mask[0];
    image.mask[1] = dice.word() & dice.word();
    image.value[1] = dice.word() & image.mask[1];
    const uint32_t ends[2] = {dice.below(65536), dice.below(65536)};
    image.pairLow = std::min(ends[0], ends[1]);
    image.pairHigh = 0xffff0000 | std::max(ends[0], ends[1]);
    list.sequences.push_back(slot);
  }
  Forest forest;
  forest.build(list.inOrder(), list.sequences, false);
  const View view = forest.view(nullptr);
  EXPECT_FALSE(view.roots[0] & leafBit);
  EXPECT_TRUE(forest.bounded());
  EXPECT_LT(forest.bytes(), size * 256);
  expectAgreement(forest, list, world, 100, "10000 in few networks");
  // Some of these leaves are below a second node, where a burst has to see their sieves even if nobody else
  // has one.
  const std::vector<Image> ordered = list.inOrder();
  for (int packet = 0; packet < 1000; ++packet) {
    expectBursts(forest, list, {world.key(ordered)},
                 fmt::format("10000 in few networks, packet {} alone", packet));
    if (HasFatalFailure()) return;
  }
}

}  // namespace ForestTests
