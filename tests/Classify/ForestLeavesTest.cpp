#include <fmt/format.h>

#include <bit>
#include <map>
#include <utility>

#include "ForestAnswers.h"

// Long leaves and their sieves, and images that belong in too many leaves.
namespace ForestTests {

namespace {

/// How many cells lead to each leaf with a sieve.
std::map<uint32_t, size_t> cellsOfSieves(const View& view, uint32_t place) {
  if (place & sieveBit) return {{place, 1}};
  if (place & leafBit) return {};
  std::map<uint32_t, size_t> found;
  const Node& node = view.nodes[place];
  const size_t cells = size_t{1} << (std::popcount(node.mask[0]) + std::popcount(node.mask[1]));
  for (size_t cell = 0; cell < cells; ++cell) {
    for (const auto& [sieve, count] : cellsOfSieves(view, view.cells[node.cells + cell]))
      found[sieve] += count;
  }
  return found;
}

}  // namespace

/// A crowd of hosts, and 200 images that nothing tells apart but a number that the crowd does not have.
TEST(Forest, CellsShareALongLeafWithItsSieve) {
  const auto made = [](uint32_t slot, Dice& dice) {
    Image image;
    image.slot = slot;
    image.mask[2] = 0xff000000;
    if (dice.once(11)) {
      image.value[2] = 9u << 24;
      image.mask[0] = dice.word() & dice.word() & (dice.word() | dice.word());
      image.value[0] = dice.word() & image.mask[0];
    } else {
      image.value[2] = dice.below(4) << 24;
      image.mask[1] = ~uint32_t{0};
      image.value[1] = dice.word();
    }
    return image;
  };
  size_t shared = 0;
  for (uint32_t seed = 1; seed <= 4; ++seed) {
    Dice dice(seed);
    World world(seed, shapes[4]);
    List list;
    for (uint32_t slot = 0; slot < 2000; ++slot) {
      list.images[slot] = made(slot, dice);
      list.sequences.push_back(slot);
    }
    // Of a small list one tree is made then.
    const Kernels* const before = std::exchange(kernels, kernelsOf(Unit::portable));
    Forest forest;
    kernels = before;
    forest.build(list.inOrder(), list.sequences, false);
    for (uint32_t tree = 0; tree < forest.view(nullptr).trees; ++tree) {
      for (const auto& [sieve, cells] :
           cellsOfSieves(forest.view(nullptr), forest.view(nullptr).roots[tree])) {
        shared += cells > 1;
      }
    }
    expectAgreement(forest, list, world, 300, fmt::format("seed {}", seed));
    for (int change = 0; change < 60; ++change) {
      const auto slot = static_cast<uint32_t>(list.sequences.size());
      list.sequences.push_back(slot);
      list.images[slot] = made(slot, dice);
      forest.insert(list.images[slot], list.order());
      const auto at = std::next(list.images.begin(), dice.below(2000));
      const Image gone = at->second;
      if (forest.shadows(gone.slot)) continue;
      list.images.erase(at);
      forest.erase({&gone, 1}, list.order());
      if (change % 10 == 0) expectAgreement(forest, list, world, 100, fmt::format("seed {}, changed", seed));
    }
  }
  EXPECT_GT(shared, 0u);
}

TEST(Forest, SievesLongLeavesAndFindsInThemWhatIsThere) {
  for (const uint32_t size : {160u, 161u, 511u, 512u, 513u, 1024u, 1025u}) {
    World world(size, shapes[0]);
    List list;
    for (uint32_t sum = 64; list.images.size() < size; --sum) {
      for (uint32_t s = std::min(32u, sum); s + 32 >= sum && list.images.size() < size; --s) {
        const auto slot = static_cast<uint32_t>(list.images.size());
        list.images[slot] = nested(slot, s, sum - s);
        list.images[slot].exact = slot % 5 != 0;
        if (slot % 7 == 0) list.images[slot].pairLow = 0x01230045, list.images[slot].pairHigh = 0x1fed00cb;
        if (slot % 11 == 0) list.images[slot].mask[2] = 0xff000000;
        list.sequences.push_back(slot);
        if (s == 0) break;
      }
    }
    Forest forest;
    forest.build(list.inOrder(), list.sequences, false);
    const auto sieved = [&forest] {
      return (forest.view(nullptr).roots[0] & (leafBit | sieveBit)) == (leafBit | sieveBit);
    };
    EXPECT_EQ(sieved(), size > 160) << size;
    EXPECT_EQ(forest.bounded(), size > 160) << size;
    expectAgreement(forest, list, world, 1000, fmt::format("{} images", size));
    EXPECT_EQ(forest.strays(), 0u) << size;

    const Image gone = list.images[size / 2];
    list.images.erase(size / 2);
    forest.erase({&gone, 1}, list.order());
    EXPECT_EQ(sieved(), size > 160) << "it keeps its sieve: " << size;
    EXPECT_EQ(forest.strays(), 0u) << size;
    expectAgreement(forest, list, world, 200, fmt::format("{} images but one", size));
  }
}

/// Images come and go in a long leaf: into the lanes of those that have gone, also such as ask for what no
/// image asked for when the sieve was made. Where no lane is free they are strays.
TEST(Forest, ChangesLongLeavesWithTheirSieves) {
  for (const bool wide : {false, true}) {
    for (const uint32_t size : {300u, 512u, 1100u}) {
      SCOPED_TRACE(fmt::format("{} images, {}", size, wide ? "with quads" : "without"));
      World world(size, shapes[0]);
      Dice& dice = world.dice();
      List list;
      const auto any = [&dice](uint32_t slot) {
        Image image = nested(slot, 1 + dice.below(32), dice.below(33));
        if (dice.once(2)) image.mask[0] |= 1u << dice.below(32);  // mostly no longer a prefix
        return image;
      };
      for (uint32_t slot = 0; slot < size; ++slot) {
        list.images[slot] = any(slot);
        list.sequences.push_back(slot / 3);
      }
      Forest forest;
      forest.build(list.inOrder(), list.sequences, wide);
      const auto isSieved = [&forest] { return (forest.view(nullptr).roots[0] & sieveBit) != 0; };
      ASSERT_TRUE(isSieved());
      const auto change = [&](uint32_t slot, const auto& ask) {
        forest.erase({&list.images[slot], 1}, list.order());
        list.images.erase(slot);
        if (dice.once(4)) expectAgreement(forest, list, world, 20, "one has gone");
        list.images[slot] = any(slot);
        ask(list.images[slot]);
        forest.insert(list.images[slot], list.order());
      };
      for (uint32_t i = 0; i < size / 2; ++i) change(dice.below(size), [](Image&) {});
      expectAgreement(forest, list, world, 500, "changed");
      const std::map<uint32_t, Image> all = list.images;
      std::erase_if(list.images, [&](const auto& each) {
        const bool goes = each.first % 8 < 2;
        if (goes) forest.erase({&each.second, 1}, list.order());
        return goes;
      });
      expectAgreement(forest, list, world, 500, "the first two of each block have gone");
      for (const auto& [slot, image] : all) {
        if (list.images.emplace(slot, image).second) forest.insert(image, list.order());
      }
      for (uint32_t i = 0; i < size / 2; ++i) {
        change(dice.below(size), [&](Image& image) {
          if (dice.once(3)) image.pairLow = 80, image.pairHigh = 0xffff0050 + dice.below(9);
          if (dice.once(3)) image.mask[2] = 0xff000000, image.value[2] = 6u << 24;
          if (dice.once(3)) image.exact = image.slot % 5 != 0;
          if (wide && dice.once(3)) image.quad = 0x40001020;
        });
      }
      expectAgreement(forest, list, world, 500, "changed to others");
      EXPECT_TRUE(isSieved());
      EXPECT_EQ(forest.strays(), 0u);

      const uint32_t before = forest.view(nullptr).trees;
      for (uint32_t more = 0; more < 5; ++more) {
        const auto slot = static_cast<uint32_t>(list.sequences.size());
        list.sequences.push_back(more);
        list.images[slot] = any(slot);
        forest.insert(list.images[slot], list.order());
        EXPECT_EQ(forest.strays(), more + 1) << "in front of others, and no lane is free there";
      }
      EXPECT_GT(forest.view(nullptr).trees, before);
      EXPECT_TRUE(isSieved());
      expectAgreement(forest, list, world, 500, "with strays");
    }
  }
}

/// Hosts, and behind them images of any host: in most cells there are the latter only, and these cells share
/// a leaf. Who takes an image out and puts it in again finds them sharing it, and takes no more memory.
TEST(Forest, CellsGoOnSharingALeafThatChanges) {
  for (const uint32_t anyHost : {1u, 9u, 17u}) {
    SCOPED_TRACE(anyHost);
    World world(1, shapes[0]);
    List list;
    for (uint32_t slot = 0; slot < 100 + anyHost; ++slot) {
      Image image = host(slot, 0, world.dice().word());
      if (slot >= 100) {
        image.mask[0] = image.value[0] = 0;
        image.mask[2] = 0xff000000;
        image.value[2] = slot % 3 << 24;
      }
      list.images[slot] = image;
      list.sequences.push_back(slot);
    }
    Forest forest;
    forest.build(list.inOrder(), list.sequences, false);
    const auto changeAll = [&] {
      for (const auto& [slot, image] : list.images) {
        forest.erase({&image, 1}, list.order());
        forest.insert(image, list.order());
      }
      return forest.bytes();
    };
    const size_t before = forest.bytes(), once = changeAll();
    EXPECT_LT(once, before + before / 4 + 4096);
    EXPECT_EQ(changeAll(), once);
    EXPECT_EQ(forest.strays(), 0u);
    expectAgreement(forest, list, world, 500, "changed");
  }
}

/// Prefixes that all nest, of which some ask for something else, too: so few that no chunk of it is worth its
/// rows, or so many that it has one. Packets may have the addresses and not the rest.
TEST(Forest, SievesRulesThatAskForMoreThanAddresses) {
  struct Row {
    const char* what;
    void (*ask)(Image& image);
    uint32_t
        changed[2];  // what may differ of a packet that meets all of it: bits of the third word and the pair
    uint32_t quad;   // and of the quad
  };
  constexpr Row rows[] = {
      {"a protocol", [](Image& i) { i.mask[2] = 0xff000000, i.value[2] = 6u << 24; }, {0xff000000, 0}, 0},
      {"a VLAN", [](Image& i) { i.mask[2] = 0xfff, i.value[2] = 0x5a5; }, {0xfff, 0}, 0},
      {"a port", [](Image& i) { i.pairLow = 80, i.pairHigh = 0xffff0050; }, {0, 0xffff}, 0},
      {"ranges of ports",
       [](Image& i) { i.pairLow = 0x01230045, i.pairHigh = 0x1fed00cb; },
       {0, 0x1fff01ff},
       0},
      {"a range within a chunk", [](Image& i) { i.pairLow = 0x12, i.pairHigh = 0xffff0015; }, {0, 0xf}, 0},
      {"TTL or DSCP", [](Image& i) { i.quad = 0x40001020; }, {0, 0}, ~uint32_t{0}},
  };
  for (const Row& row : rows) {
    for (const uint32_t oneIn : {1u, 3u, 100u}) {
      World world(oneIn, shapes[0]);
      List list;
      for (uint32_t slot = 0; slot < 400; ++slot) {
        list.images[slot] = nested(slot, 32 - slot / 20, 20 - slot % 20);
        if (slot % oneIn == 0) row.ask(list.images[slot]);
        list.sequences.push_back(slot);
      }
      Forest forest;
      forest.build(list.inOrder(), list.sequences, row.quad != 0);
      ASSERT_EQ(forest.view(nullptr).roots[0] & (leafBit | sieveBit), leafBit | sieveBit);
      const std::vector<Image> ordered = list.inOrder();
      for (int i = 0; i < 1000; ++i) {
        const Image& near = list.images[world.dice().below(4) * 100];
        const auto noise = [&world](uint32_t bits) {
          return world.dice().once(2) ? world.dice().word() & bits : 0;
        };
        const auto rest = [&world](uint32_t mask) { return world.dice().word() & ~mask; };
        const Key key = Key::of(near.value[0] | rest(near.mask[0]), near.value[1] | rest(near.mask[1]),
                                near.value[2] ^ noise(row.changed[0]), near.pairLow + noise(row.changed[1]),
                                near.quad ^ noise(row.quad));
        expectAnswers(forest, list, ordered, key, fmt::format("one in {} asks for {}", oneIn, row.what));
        if (HasFatalFailure()) return;
      }
    }
  }
}

/// Images that only the quad tells apart, or only the question: there is nothing to sieve them by.
TEST(Forest, TriesImagesOneByOneThatTheWordsOfAKeyDoNotTellApart) {
  for (const uint32_t size : {161u, 512u, 513u}) {
    for (const bool asked : {false, true}) {
      World world(size, shapes[5]);
      List list;
      for (uint32_t slot = 0; slot < size; ++slot) {
        Image image;
        image.slot = slot;
        image.exact = !asked;
        const auto only = [](uint32_t number) { return number | (0xff - number) << 8; };
        if (!asked) image.quad = only(slot % 256) | only(slot / 256) << 16;
        list.images[slot] = image;
        list.sequences.push_back(slot);
      }
      Forest forest;
      forest.build(list.inOrder(), list.sequences, !asked);
      expectAgreement(forest, list, world, 500, fmt::format("{} images, asked {}", size, asked));
    }
  }
}

/// Ranges of any addresses, put in among many hosts: each belongs in more leaves than it may.
TEST(Forest, CountsImagesThatBelongInTooManyLeaves) {
  World world(1, shapes[0]);
  List list;
  for (uint32_t slot = 0; slot < 400; ++slot) {
    list.images[slot] = world.image(slot);
    list.sequences.push_back(slot);
  }
  Forest forest;
  forest.build(list.inOrder(), list.sequences, false);
  for (uint32_t slot = 400; slot < 1000; ++slot) {
    Image image;
    image.slot = slot;
    image.pairLow = slot * 30 | slot * 20 << 16;
    image.pairHigh = (slot * 30 + 20000) | (slot * 20 + 20000) << 16;
    list.images[slot] = image;
    list.sequences.push_back(slot);
    forest.insert(image, list.order());
    ASSERT_EQ(forest.strays(), slot - 399);
  }
  expectAgreement(forest, list, world, 500, "400 images and 600 ranges");
}

/// A short leaf, and many more images that no bits tell from those that it has.
TEST(Forest, CountsImagesThatMakeALeafLong) {
  World world(1, shapes[6]);
  List list;
  const auto add = [&list](uint32_t slot) {
    list.images[slot].slot = slot;
    list.images[slot].mask[2] = 0xff000000;
    list.images[slot].value[2] = 6u << 24;
    list.sequences.push_back(slot);
    return list.images[slot];
  };
  for (uint32_t slot = 0; slot < 20; ++slot) add(slot);
  Forest forest;
  forest.build(list.inOrder(), list.sequences, false);
  for (uint32_t slot = 20; slot < 300; ++slot) {
    forest.insert(add(slot), list.order());
    ASSERT_EQ(forest.strays(), slot < Leaves::longLeaf ? 0 : slot + 1 - Leaves::longLeaf);
  }
  expectAgreement(forest, list, world, 500, "300 images alike");
}

}  // namespace ForestTests
