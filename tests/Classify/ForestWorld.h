#pragma once

#include <Classify/Forest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

namespace ForestTests {

// Images to make forests of, and keys to look up in them.

using namespace Classify;

/// Choices at random, the same everywhere for one seed.
class Dice {
 public:
  explicit Dice(uint32_t seed) : random_(seed) {}
  uint32_t below(uint32_t bound) { return random_() % bound; }
  bool once(uint32_t in) { return below(in) == 0; }
  uint32_t word() { return random_(); }

 private:
  std::mt19937 random_;
};

inline bool inRange(uint32_t number, uint32_t low, uint32_t high) { return low <= number && number <= high; }

/// Written from the meaning of the words, not from the kernels.
inline bool meets(const Image& image, const Key& key) {
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

inline constexpr Shape shapes[] = {
    {"hosts", 1000, 20, false, false, false, 4},
    {"few addresses, many ports", 3, 10, false, false, false, 2},
    {"one side any", 500, 2, false, false, false, 3},
    {"ranges that cross", 4, 3, false, true, false, 2},
    {"wildcards anywhere", 200, 3, true, false, false, 2},
    {"with quads", 100, 4, false, true, true, 3},
    {"all alike", 1, 1, false, false, false, 1},
};

/// Makes images of a shape, and keys that meet them.
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

/// Prefixes of one pair of addresses, the longest first: no few bits tell them apart.
inline Image nested(uint32_t slot, uint32_t sourceLength, uint32_t destinationLength) {
  Image image;
  image.slot = slot;
  const uint32_t lengths[2] = {sourceLength, destinationLength}, addresses[2] = {0x0a5a3c96, 0xac1e63a5};
  for (const int word : {0, 1}) {
    image.mask[word] = lengths[word] ? ~uint32_t{0} << (32 - lengths[word]) : 0;
    image.value[word] = addresses[word] & image.mask[word];
  }
  return image;
}

/// An image that asks for one address, whole: `word` 0 as source, 1 as destination.
inline Image host(uint32_t slot, int word, uint32_t address) {
  Image image;
  image.slot = slot;
  image.mask[word] = ~uint32_t{0};
  image.value[word] = address;
  return image;
}

}  // namespace ForestTests
