#include <fmt/format.h>

#include "ForestAnswers.h"

// Forests of several trees.
namespace ForestTests {

/// Of hosts that are sources and hosts that are destinations there are two trees. What is put in under one
/// slot goes into both.
TEST(Forest, TakesASlotOutOfAllTreesThatItIsIn) {
  Dice dice(1);
  List list;
  for (uint32_t slot = 0; slot < 3000; ++slot) {
    list.images[slot] = host(slot, slot % 2, dice.word() | 1);
    list.sequences.push_back(slot);
  }
  list.sequences.push_back(3000);
  Forest forest;
  forest.build(list.inOrder(), list.sequences, false);
  ASSERT_GT(forest.view(nullptr).trees, 1u);
  const Image images[] = {host(3000, 0, 0x0a0b0c0c), host(3000, 1, 0x14151616)};
  const auto found = [&forest](const Image& image) {
    const View& view = forest.view(nullptr);
    const Key key = Key::of(image.value[0], image.value[1], 0, 0, 0);
    return kernelsOf(Unit::portable)->find[view.shape](view, key.bits[0], key.bits[1], key.quad);
  };
  for (const Image& image : images) {
    EXPECT_EQ(found(image), noSlot);
    forest.insert(image, list.order());
  }
  for (const Image& image : images) EXPECT_EQ(found(image), 3000u);
  forest.erase(images, list.order());
  for (const Image& image : images) EXPECT_EQ(found(image), noSlot);
}

/// Sources and, behind them, destinations, a tree each: who has found a source needs no destination, unless
/// one was put in front, or is as early.
TEST(Forest, AsksALaterTreeOnlyWhereItMayHaveTheFirst) {
  constexpr uint32_t sources = 2000, size = 3000, first = 20000;
  Dice dice(1);
  List list;
  const auto add = [&](const Image& image, uint32_t sequence) {
    list.images[image.slot] = image;
    list.sequences.push_back(sequence);
  };
  for (uint32_t slot = 0; slot < size; ++slot) {
    const bool destination = slot >= sources && slot % 8 != 1;  // some sources come behind
    add(host(slot, destination, dice.word() | 1), 10 * slot);
  }
  Forest forest;
  forest.build(list.inOrder(), list.sequences, false);
  const View built = forest.view(nullptr);
  ASSERT_EQ(built.trees, 2u);
  EXPECT_EQ(built.always, 1u);
  EXPECT_EQ(built.bounds[0], 0u);
  EXPECT_EQ(built.bounds[1], sources);
  EXPECT_EQ(forest.view(list.sequences.data()).bounds[1], first);

  // Of the packet from one to the other both trees have a rule.
  const auto expectFirst = [&](const Image& source, const Image& destination, uint32_t slot) {
    const Key key = Key::of(source.value[0], destination.value[1], 0, 0, 0);
    const View view = list.viewOf(forest);
    for (const auto& [name, kernels] : allKernels()) {
      EXPECT_EQ(lookUp(*kernels, view, {list, key}), slot) << name;
    }
    expectBursts(forest, list, {key}, "the only packet");
  };
  expectFirst(list.images[sources - 1], list.images[sources], sources - 1);
  expectFirst(list.images[sources + 1], list.images[sources], sources);
  struct Row {
    const char* sentence;
    int word;
    uint32_t sequence;
    uint32_t with, found;  ///< the slot that a packet meets beside the new one, and the one that it finds
  };
  const Row rows[] = {
      {"a source as early as the first destination leaves it to those who know which is first", 0, first,
       sources, sources},
      {"a destination in front of all is found first", 1, 0, 100, size + 1},
      {"so is one between two sources by those who meet the later one", 1, 75, 8, size + 2},
      {"but not by those who meet the earlier one", 1, 76, 7, 7},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.sentence);
    const Image added = host(static_cast<uint32_t>(list.sequences.size()), row.word, dice.word() & ~1u);
    add(added, row.sequence);
    forest.insert(added, list.order());
    const Image& other = list.images[row.with];
    expectFirst(row.word == 0 ? added : other, row.word == 0 ? other : added, row.found);
  }
}

/// Hosts of one network as sources, and behind most of them prefixes that nest: a long leaf, in a tree that
/// who has found an early host needs not ask.
TEST(Forest, AsksALaterTreeWithALongLeafForWhatComesBefore) {
  constexpr uint32_t size = 3000, prefixesFrom = 2000, network = 0x0a5a0000;
  World world(1, shapes[0]);
  List list;
  for (uint32_t slot = 0; slot < size; ++slot) {
    const bool prefix = slot >= prefixesFrom && slot % 2;
    Image& image = list.images[slot];
    image = prefix ? nested(slot, 14 - slot % 14, 32 - slot / 2 % 32) : nested(slot, 32, 0);
    if (!prefix) image.value[0] = network | slot;
    list.sequences.push_back(slot);
  }
  Forest forest;
  forest.build(list.inOrder(), list.sequences, false);
  const View view = forest.view(nullptr);
  ASSERT_EQ(view.trees, 2u);
  ASSERT_EQ(view.always, 1u);
  ASSERT_EQ(view.roots[1] & (leafBit | sieveBit), leafBit | sieveBit);
  const std::vector<Image> ordered = list.inOrder();
  for (uint32_t i = 0; i < 2000; ++i) {
    const uint32_t length = world.dice().below(33);
    const uint32_t destination = nested(0, 0, 32).value[1] ^ (length ? uint32_t{1} << (length - 1) : 0);
    const Key key = Key::of(network | world.dice().below(size + 100), destination, 0, 0, 0);
    expectAnswers(forest, list, ordered, key, fmt::format("packet {}", i));
    if (HasFatalFailure()) return;
  }
}

}  // namespace ForestTests
