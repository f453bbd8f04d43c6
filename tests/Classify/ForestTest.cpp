#include <Classify/Find.h>
#include <Classify/Forest.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <map>
#include <random>
#include <set>
#include <utility>

// The forest against images that are tried one after the other, for every unit that this computer has.

namespace {

using namespace Classify;

class Dice {
 public:
  explicit Dice(uint32_t seed) : random_(seed) {}
  uint32_t below(uint32_t bound) { return random_() % bound; }
  bool once(uint32_t in) { return below(in) == 0; }
  uint32_t word() { return random_(); }

 private:
  std::mt19937 random_;
};

bool inRange(uint32_t number, uint32_t low, uint32_t high) { return low <= number && number <= high; }

/// Written from the meaning of the words, not from the kernels.
bool meets(const Image& image, const Key& key) {
  const uint32_t words[3] = {static_cast<uint32_t>(key.bits[0] >> 32), static_cast<uint32_t>(key.bits[0]),
                             static_cast<uint32_t>(key.bits[1])};
  for (int i = 0; i < 3; ++i) {
    if ((words[i] & image.mask[i]) != image.value[i]) return false;
  }
  const auto pair = static_cast<uint32_t>(key.bits[1] >> 32);
  for (const int shift : {0, 16}) {
    const auto half = [shift](uint32_t word) { return word >> shift & 0xffff; };
    if (!inRange(half(pair), half(image.pairLow), half(image.pairHigh))) return false;
  }
  for (const int shift : {0, 8, 16, 24}) {
    const auto octet = [shift](uint32_t word) { return word >> shift & 0xff; };
    if (octet(key.quad) < octet(image.quad)) return false;
  }
  return true;
}

/// What a set of images looks like.
struct Shape {
  const char* name;
  uint32_t addresses;  ///< how many different ones there are
  uint32_t anyIn;      ///< one address in so many is any
  bool ternary;        ///< masks are no prefixes
  bool ranges;         ///< of the pair, instead of single numbers
  bool quads;
  uint32_t anyThirdIn;
};

constexpr Shape shapes[] = {
    {"hosts", 1000, 20, false, false, false, 4},
    {"few addresses, many ports", 3, 10, false, false, false, 2},
    {"one side any", 500, 2, false, false, false, 3},
    {"ranges that cross", 4, 3, false, true, false, 2},
    {"wildcards anywhere", 200, 3, true, false, false, 2},
    {"with quads", 100, 4, false, true, true, 3},
    {"all alike", 1, 1, false, false, false, 1},
};

class World {
 public:
  World(uint32_t seed, const Shape& shape) : dice_(seed), shape_(shape) {
    for (uint32_t i = 0; i < shape.addresses; ++i) addresses_.push_back(dice_.word());
  }

  Image image(uint32_t slot) {
    Image made;
    made.slot = slot;
    for (const int word : {0, 1}) {
      if (dice_.once(shape_.anyIn)) continue;
      made.mask[word] = shape_.ternary ? dice_.word() | dice_.word() : ~uint32_t{0} << dice_.below(20);
      made.value[word] = address() & made.mask[word];
    }
    if (!dice_.once(shape_.anyThirdIn)) {
      made.mask[2] = dice_.once(2) ? 0xff000000 : 0xff000fff;
      made.value[2] = third() & made.mask[2];
    }
    for (const int shift : {0, 16}) {
      uint32_t low = dice_.below(200), high = low;
      if (shape_.ranges) high = low + dice_.below(3000);
      if (dice_.once(3)) low = 0, high = 0xffff;
      made.pairLow |= low << shift;
      made.pairHigh = (made.pairHigh & ~(0xffffu << shift)) | high << shift;
    }
    if (shape_.quads && dice_.once(2)) {
      for (const int shift : {0, 8, 16, 24}) made.quad |= dice_.once(3) ? 0 : dice_.below(250) << shift;
    }
    return made;
  }

  /// Mostly one that meets some image, or nearly.
  Key key(const std::vector<Image>& images) {
    if (images.empty() || dice_.once(8))
      return Key::of(address(), address(), third(), dice_.word(), dice_.word());
    const Image& near = images[dice_.below(static_cast<uint32_t>(images.size()))];
    uint32_t words[3];
    for (int i = 0; i < 3; ++i) words[i] = near.value[i] | (dice_.word() & ~near.mask[i]);
    if (dice_.once(4)) words[dice_.below(3)] ^= uint32_t{1} << dice_.below(32);
    const uint32_t edge = dice_.below(4);
    uint32_t pair = edge & 1 ? near.pairLow : near.pairHigh;
    if (edge & 2) pair = dice_.once(2) ? pair + 0x00010001 : pair - 0x00010001;
    return Key::of(words[0], words[1], words[2], pair, dice_.once(2) ? near.quad : dice_.word());
  }

  Dice& dice() { return dice_; }

 private:
  uint32_t address() { return addresses_[dice_.below(shape_.addresses)]; }
  uint32_t third() { return dice_.below(3) << 24 | dice_.below(4); }

  Dice dice_;
  const Shape& shape_;
  std::vector<uint32_t> addresses_;
};

/// A list: images by slot, and in which order they are tried.
class List {
 public:
  std::map<uint32_t, Image> images;  // by slot
  std::vector<uint32_t> sequences;   // by slot
  std::vector<Image> inOrder() const {
    std::vector<Image> ordered;
    for (const auto& [slot, image] : images) ordered.push_back(image);
    std::sort(ordered.begin(), ordered.end(),
              [this](const Image& a, const Image& b) { return precedes(a.slot, b.slot); });
    return ordered;
  }
  bool precedes(uint32_t slot, uint32_t other) const {
    return sequences[slot] != sequences[other] ? sequences[slot] < sequences[other] : slot < other;
  }
  bool slotsInOrder() const { return std::is_sorted(sequences.begin(), sequences.end()); }
  Order order() const {
    return {this,
            [](const void* context, uint32_t slot, uint32_t other) {
              return static_cast<const List*>(context)->precedes(slot, other);
            },
            [](const void* context, uint32_t slot) {
              return static_cast<const List*>(context)->sequences[slot];
            }};
  }
  View viewOf(const Forest& forest) const { return forest.view(slotsInOrder() ? nullptr : sequences.data()); }
};

struct Asked {
  const List& list;
  const Key& key;
};

/// Images in slots divisible by 5 are inexact, and what they ask more is that the key's last bit is set.
bool meetsAll(const Image& image, const Key& key) {
  return meets(image, key) && (image.exact || key.bits[0] & 1);
}

constexpr Questions questions{[](const void* context, uint32_t slot) {
                                const auto& asked = *static_cast<const Asked*>(context);
                                return meetsAll(asked.list.images.at(slot), asked.key);
                              },
                              [](const void* context, uint32_t slot, uint32_t other) {
                                return static_cast<const Asked*>(context)->list.precedes(slot, other);
                              }};

std::vector<std::pair<const char*, const Kernels*>> allKernels() {
  std::vector<std::pair<const char*, const Kernels*>> all = {{"portable", kernelsOf(Unit::portable)}};
  if (kernelsOf(Unit::avx2)) all.emplace_back("avx2", kernelsOf(Unit::avx2));
  if (kernelsOf(Unit::avx512)) all.emplace_back("avx512", kernelsOf(Unit::avx512));
  return all;
}

/// As a list looks: quickly, and thoroughly where that is not sure.
uint32_t lookUp(const Kernels& kernels, const View& view, const Asked& asked) {
  const Key& key = asked.key;
  const uint32_t found = kernels.find[view.shape](view, key.bits[0], key.bits[1], key.quad);
  if (!(found & askBit)) return found;
  const uint32_t slot = found & ~askBit;
  if (slot != noSlot && questions.meets(&asked, slot)) return slot;
  return kernels.search(view, key.bits[0], key.bits[1], key.quad, questions, &asked);
}

/// All units find what trying the images one by one does. `ordered`: those of the list.
void expectAnswers(const Forest& forest, const List& list, const std::vector<Image>& ordered, const Key& key,
                   const std::string& what) {
  const View view = list.viewOf(forest);
  uint32_t expected = noSlot;
  for (const Image& image : ordered) {
    if (!meetsAll(image, key)) continue;
    expected = image.slot;
    break;
  }
  const Asked asked{list, key};
  for (const auto& [name, kernels] : allKernels()) {
    ASSERT_EQ(lookUp(*kernels, view, asked), expected) << what << ", " << name;
    ASSERT_EQ(kernels->search(view, key.bits[0], key.bits[1], key.quad, questions, &asked), expected)
        << what << ", searched, " << name;
  }
}

/// Bursts of any length find what the packets find one by one.
void expectBursts(const Forest& forest, const List& list, const std::vector<Key>& keys,
                  const std::string& what) {
  View view = list.viewOf(forest);
  uint32_t length = 0;
  for (size_t at = 0; at < keys.size(); at += length) {
    length = std::min<uint32_t>(length % burstMost + 1, static_cast<uint32_t>(keys.size() - at));
    view.far = length % 2;
    Keys burst;
    for (uint32_t i = 0; i < length; ++i) {
      burst.keyIs(i, keys[at + i].bits[0], keys[at + i].bits[1], keys[at + i].quad);
    }
    for (const auto& [name, kernels] : allKernels()) {
      uint32_t found[burstMost];
      kernels->findBurst[view.shape & wideShape](view, burst, length, found);
      for (uint32_t i = 0; i < length; ++i) {
        const Key& key = keys[at + i];
        const uint32_t alone = kernels->find[view.shape](view, key.bits[0], key.bits[1], key.quad);
        ASSERT_EQ(found[i], alone) << what << ", packet " << at + i << " in a burst, " << name;
      }
    }
  }
}

void expectAgreement(const Forest& forest, const List& list, World& world, int packets,
                     const std::string& what) {
  const std::vector<Image> ordered = list.inOrder();
  std::vector<Key> keys;
  for (int i = 0; i < packets; ++i) {
    keys.push_back(world.key(ordered));
    expectAnswers(forest, list, ordered, keys.back(), fmt::format("{}, packet {}", what, i));
    if (testing::Test::HasFatalFailure()) return;
  }
  expectBursts(forest, list, keys, what);
}

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
          forest.erase(gone);
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

/// A crowd of hosts, and 200 images that nothing tells apart but a number that the crowd does not have.
TEST(Forest, CellsShareALongLeafWithItsSieveUntilOneOfThemChanges) {
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
      forest.erase(gone);
      if (change % 10 == 0) expectAgreement(forest, list, world, 100, fmt::format("seed {}, changed", seed));
    }
  }
  EXPECT_GT(shared, 0u);
}

/// Prefixes of one pair of addresses, the longest first: no few bits tell them apart.
Image nested(uint32_t slot, uint32_t sourceLength, uint32_t destinationLength) {
  Image image;
  image.slot = slot;
  const uint32_t lengths[2] = {sourceLength, destinationLength}, addresses[2] = {0x0a5a3c96, 0xac1e63a5};
  for (const int word : {0, 1}) {
    image.mask[word] = lengths[word] ? ~uint32_t{0} << (32 - lengths[word]) : 0;
    image.value[word] = addresses[word] & image.mask[word];
  }
  return image;
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
    forest.erase(gone);
    EXPECT_FALSE(sieved()) << size;
    EXPECT_EQ(forest.strays() > 0, size > 160) << "whoever has changed the forest is told: " << size;
    expectAgreement(forest, list, world, 200, fmt::format("{} images but one", size));
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

/// An image that asks for one address, whole: `word` 0 as source, 1 as destination.
Image host(uint32_t slot, int word, uint32_t address) {
  Image image;
  image.slot = slot;
  image.mask[word] = ~uint32_t{0};
  image.value[word] = address;
  return image;
}

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
  for (const Image& image : images) forest.erase(image);
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
    forest.erase(image);
    forest.insert(image, list.order());
  }
  EXPECT_LT(forest.bytes(), 2 * before + 65536 + 4096);
  expectAgreement(forest, list, world, 500, "161 wildcards");
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
    forest.erase(image);
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

}  // namespace
