#include <fmt/format.h>

#include <iterator>
#include <random>
#include <set>
#include <utility>

#include "ForestAnswers.h"

// What forests find, when they are made and through changes.
namespace ForestTests {

TEST(Forest, FindsTheFirstImageOfAnySet) {
  std::set<uint32_t> shapesSeen;
  for (const Shape& shape : shapes) {
    for (const uint32_t size : {0u, 1u, 7u, 32u, 33u, 200u, 1500u, 4000u}) {
      World world(size + 1, shape);
      List list;
      for (uint32_t slot = 0; slot < size; ++slot) {
        list.images[slot] = world.image(slot);
        list.images[slot].exact = slot % 5 != 0;
        list.sequences.push_back(slot / 2);  // pairs of equal numbers
      }
      for (const bool wide : {shape.quads, true}) {
        Forest forest;
        forest.build(list.inOrder(), list.sequences, wide);
        shapesSeen.insert(forest.view(nullptr).shape);
        expectAgreement(forest, list, world, 400, fmt::format("{} images, {}", size, shape.name));
      }
    }
  }
  EXPECT_EQ(shapesSeen.size(), Classify::shapes);
}

TEST(Forest, StaysRightThroughChanges) {
  for (const Shape& shape : shapes) {
    for (uint32_t seed = 1; seed <= 12; ++seed) {
      World world(seed, shape);
      List list;
      const uint32_t size = seed * 40;
      for (uint32_t slot = 0; slot < size; ++slot) {
        list.images[slot] = world.image(slot);
        list.sequences.push_back(world.dice().below(1000));
      }
      Forest forest;
      forest.build(list.inOrder(), list.sequences, shape.quads);
      for (int change = 0; change < 300; ++change) {
        if (world.dice().once(2) && !list.images.empty()) {
          auto at =
              std::next(list.images.begin(), world.dice().below(static_cast<uint32_t>(list.images.size())));
          if (forest.shadows(at->first)) continue;
          const Image gone = at->second;
          list.images.erase(at);
          forest.erase({&gone, 1}, list.order());
        } else {
          const auto slot = static_cast<uint32_t>(list.sequences.size());
          list.sequences.push_back(world.dice().below(1000));
          list.images[slot] = world.image(slot);
          forest.insert(list.images[slot], list.order());
        }
        if (change % 10 == 0) {
          expectAgreement(forest, list, world, 20,
                          fmt::format("{}, seed {}, change {}", shape.name, seed, change));
          if (testing::Test::HasFatalFailure()) return;
        }
      }
    }
  }
}

TEST(Forest, GrowsFromNothing) {
  World world(1, shapes[0]);
  List list;
  Forest forest;
  forest.build({}, {}, false);
  for (uint32_t slot = 0; slot < 3000; ++slot) {
    list.images[slot] = world.image(slot);
    list.sequences.push_back(3000 - slot);
    forest.insert(list.images[slot], list.order());
  }
  expectAgreement(forest, list, world, 2000, "3000 images, one by one");
}

/// Behind 200 pairs of hosts any packet, and behind that 100 pairs that no packet meets any more.
TEST(Forest, KnowsWhichImagesHideOthers) {
  std::vector<Image> images;
  for (uint32_t slot = 0; slot < 301; ++slot) {
    Image image;
    image.slot = slot;
    if (slot != 200) {
      image.mask[0] = image.mask[1] = ~uint32_t{0};
      image.value[0] = slot;
    }
    images.push_back(image);
  }
  Forest forest;
  forest.build(images, std::vector<uint32_t>(301), false);
  EXPECT_TRUE(forest.shadows(200));
  for (uint32_t slot = 0; slot < 200; ++slot) ASSERT_FALSE(forest.shadows(slot)) << slot;
}

/// Projections of random bits, and what they make of random addresses.
TEST(Forest, ProjectsLongAddressesAlikeInEveryUnit) {
  std::mt19937_64 random(1);
  for (int i = 0; i < 3000; ++i) {
    Projection projection;
    for (auto& side : projection.sides) {
      // At most 32 bits, as in a projection.
      while (__builtin_popcountll(side.mask[0]) + __builtin_popcountll(side.mask[1]) < 32 && random() % 40) {
        side.mask[random() % 2] |= uint64_t{1} << random() % 64;
      }
      side.shift = static_cast<uint32_t>(__builtin_popcountll(side.mask[1]));
      side.restMask[0] = random() & ~side.mask[0] & 0xff;
      side.restValue[0] = random() & side.restMask[0];
    }
    projection.sides[0].agrees = 1;
    projection.sides[1].agrees = 2;
    const uint64_t words[4] = {random() & (random() % 2 ? ~uint64_t{0xff} : ~uint64_t{0}), random(), random(),
                               random()};
    uint8_t octets[32];
    for (int at = 0; at < 32; ++at) octets[at] = static_cast<uint8_t>(words[at / 8] >> (56 - at % 8 * 8));

    Image projected;
    projected.value[2] = 0x80;
    std::fill(std::begin(projected.mask), std::end(projected.mask), ~uint32_t{0});
    for (int s = 0; s < 2; ++s) {
      const auto& side = projection.sides[s];
      const uint64_t gathered =
          gatherBits(words[2 * s], side.mask[0]) << side.shift | gatherBits(words[2 * s + 1], side.mask[1]);
      projected.value[s] = static_cast<uint32_t>(gathered);
      if ((words[2 * s] & side.restMask[0]) == side.restValue[0]) projected.value[2] |= side.agrees;
    }
    Image nearly = projected;
    nearly.value[random() % 3] ^= uint32_t{1} << random() % 32;
    for (const auto& [image, slot] : {std::pair(projected, 0u), std::pair(nearly, noSlot)}) {
      Forest forest;
      forest.build({&image, 1}, std::vector<uint32_t>{0}, false);
      View view = forest.view(nullptr);
      view.projection = projection;
      for (const auto& [name, kernels] : allKernels()) {
        ASSERT_EQ(kernels->findLong[view.shape](view, octets, 0x80, 0), slot) << name;
        ASSERT_EQ(kernels->searchLong(view, octets, 0x80, 0, questions, nullptr), slot) << name;
      }
    }
  }
}

}  // namespace ForestTests
