#include <fmt/format.h>

#include <bit>

#include "ForestAnswers.h"

// The firsts of cells, by which a look-up sees that nothing below a cell can come before what it has found.
namespace ForestTests {

namespace {

/// Looks through a tree, and compares the first of each cell with the images that are below it.
class Walk {
 public:
  /// `exact`: firsts are the lowest slots; after changes they may be lower.
  Walk(const View& view, bool exact) : view_(view), exact_(exact) {}

  size_t cells = 0;  ///< that had a first

  uint32_t lowestBelow(uint32_t place) {
    if (place & leafBit)
      return lowestIn(place & sieveBit ? view_.sieves[place & ~(leafBit | sieveBit)].leaf : place);
    const Node& node = view_.nodes[place];
    const uint32_t count = 1u << (std::popcount(node.mask[0]) + std::popcount(node.mask[1]));
    uint32_t lowest = noSlot;
    for (uint32_t cell = 0; cell < count; ++cell) {
      const uint32_t below = lowestBelow(view_.cells[node.cells + cell]);
      lowest = std::min(lowest, below);
      if (node.firsts == Node::noFirsts) continue;
      ++cells;
      const uint32_t first = view_.cells[node.firsts + cell];
      EXPECT_TRUE(exact_ ? first == below : first <= below) << first << " for " << below;
    }
    return lowest;
  }

 private:
  uint32_t lowestIn(uint32_t leaf) const {
    const uint32_t step = view_.shape & wideShape ? wideBlock : narrowBlock;
    uint32_t lowest = noSlot;
    for (const Plane* block = view_.planes + (leaf & ~leafBit);; block += step) {
      for (const uint32_t lane : block[slotPlane].lane) lowest = std::min(lowest, lane & slotMask);
      if (!(block[slotPlane].lane[0] & moreBlocks)) return lowest;
    }
  }

  const View& view_;
  const bool exact_;
};

/// Returns how many cells had a first.
size_t expectFirsts(const Forest& forest, bool exact) {
  const View view = forest.view(nullptr);
  size_t cells = 0;
  for (uint32_t tree = 0; tree < view.trees; ++tree) {
    Walk walk(view, exact);
    walk.lowestBelow(view.roots[tree]);
    if (tree == 0) {
      EXPECT_EQ(walk.cells, 0u) << "nobody asks in the first tree";
    }
    cells += walk.cells;
  }
  return cells;
}

/// Sources and destinations, prefixes of some length, and here and there an image of the world: several
/// trees.
Image sideOf(World& world, uint32_t slot) {
  Dice& dice = world.dice();
  while (dice.once(16)) {
    const Image image = world.image(slot);
    if (overlap({}, image) != Overlap::all) return image;  // who takes every packet hides all behind it
  }
  const int word = dice.once(2);
  Image image = host(slot, word, dice.word());
  image.mask[word] = ~uint32_t{0} << dice.below(16);
  image.value[word] &= image.mask[word];
  if (dice.once(2)) image.mask[2] = 0xff000000, image.value[2] = dice.below(3) << 24;
  return image;
}

}  // namespace

/// Slots stay where they are in the order of trial while the images in them are taken out, and others put in:
/// so images with low ones come to cells that had none.
TEST(Forest, KnowsTheFirstBelowEachCellOfLaterTrees) {
  size_t made = 0, divided = 0;
  for (const Shape& shape : shapes) {
    for (const uint32_t size : {200u, 1500u, 4000u}) {
      SCOPED_TRACE(fmt::format("{} images, {}", size, shape.name));
      World world(size, shape);
      List list;
      for (uint32_t slot = 0; slot < size; ++slot) {
        list.images[slot] = sideOf(world, slot);
        list.sequences.push_back(slot);
      }
      Forest forest;
      forest.build(list.inOrder(), list.sequences, shape.quads);
      const size_t before = expectFirsts(forest, true);
      made += before;
      for (uint32_t change = 0; change < size; ++change) {
        const uint32_t slot = world.dice().below(size);
        if (forest.shadows(slot)) continue;
        forest.erase({&list.images[slot], 1}, list.order());
        list.images[slot] = sideOf(world, slot);
        forest.insert(list.images[slot], list.order());
      }
      for (int added = 0; added < 200; ++added) {
        const auto slot = static_cast<uint32_t>(list.sequences.size());
        const uint32_t ofOneNetwork = 0x0a0b0000 | (world.dice().word() & 0xffff);
        list.sequences.push_back(slot);
        list.images[slot] = host(slot, added % 2, ofOneNetwork);
        forest.insert(list.images[slot], list.order());
      }
      divided += expectFirsts(forest, false) > before;
      expectAgreement(forest, list, world, 1000, "changed");
      if (HasFailure()) return;
    }
  }
  EXPECT_GT(made, 1000u);
  EXPECT_GT(divided, 0u) << "a leaf that grew was divided";
}

/// Slots in any order, as after changes: the image with the lowest one of a leaf is not the first that is
/// tried.
TEST(Forest, KnowsTheLowestSlotBelowEachCellWhereSlotsAreInNoOrder) {
  for (const uint32_t seed : {1u, 2u, 3u}) {
    World world(seed, shapes[2]);
    List list;
    for (uint32_t slot = 0; slot < 3000; ++slot) {
      list.images[slot] = sideOf(world, slot);
      list.sequences.push_back(world.dice().below(100000));
    }
    Forest forest;
    forest.build(list.inOrder(), list.sequences, false);
    EXPECT_GT(expectFirsts(forest, true), 0u);
    expectAgreement(forest, list, world, 200, fmt::format("seed {}", seed));
    if (HasFailure()) return;
  }
}

}  // namespace ForestTests
