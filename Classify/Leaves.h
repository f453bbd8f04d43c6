#pragma once

#include <Classify/LargePages.h>
#include <Classify/Sieves.h>

#include <algorithm>
#include <span>
#include <vector>

namespace Classify {

/// Which of two slots is tried first.
struct Order {
  const void* context;
  bool (*precedes)(const void* context, uint32_t slot, uint32_t other);
  /// A number that does not fall along the order.
  uint32_t (*sequence)(const void* context, uint32_t slot);
  bool operator()(uint32_t slot, uint32_t other) const { return precedes(context, slot, other); }
};

/// The leaves of a forest: images in the order of trial, eight to a block, and a leaf's blocks one behind the
/// other. Several cells may lead to one leaf; whoever changes it for one of them makes it another for that
/// one. A leaf is named by its place in the sense of Form.h. A long leaf gets a sieve, and goes without it
/// once it has changed.
class Leaves {
 public:
  /// Takes everything out. `wide`: whether blocks hold the quad.
  void clear(bool wide);

  /// The leaf without images, the same for all.
  static constexpr uint32_t empty = leafBit;

  uint32_t make(std::span<const Image> images);
  /// A leaf of more images is a long one.
  static constexpr uint32_t longLeaf = 160;
  /// A long leaf with a sieve, if its images can be sieved; for all cells that lead there.
  uint32_t sieved(uint32_t leaf);
  /// One more cell leads to a leaf, or one less.
  void share(uint32_t leaf);
  void drop(uint32_t leaf);

  /// The number of its images, and they themselves.
  uint32_t size(uint32_t leaf) const;
  std::vector<Image> images(uint32_t leaf) const;
  /// The leaf with an image more, at its place in the order; the one that was given is dropped.
  uint32_t insert(uint32_t leaf, const Image& image, const Order& order);
  /// The leaf without the images of a slot; the one that was given is dropped.
  uint32_t erase(uint32_t leaf, uint32_t slot);

  const Plane* planes() const { return planes_.data(); }
  const Sieves& sieves() const { return sieves_; }
  uint32_t planesPerBlock() const { return planesPerBlock_; }
  size_t bytes() const;

 private:
  /// A lane of a leaf: of a block and, in it, its number.
  struct Lane {
    Plane* block;
    uint32_t number;
  };
  /// The place of a leaf's blocks, which is that of a leaf without a sieve.
  uint32_t plain(uint32_t leaf) const;
  Lane lane(uint32_t leaf, uint32_t at);
  uint32_t slotAt(uint32_t leaf, uint32_t at);
  uint32_t& sharers(uint32_t leaf) { return sharers_[(leaf & ~leafBit) / planesPerBlock_]; }
  static uint32_t blocksFor(uint32_t images) {
    return std::max(1u, (images + Plane::lanes - 1) / Plane::lanes);
  }
  uint32_t blocksOf(uint32_t leaf) const;
  uint32_t makeBlocks(std::span<const Image> images);
  /// Its `count` images in a leaf of their own, with room for more; the leaf that was given is dropped.
  uint32_t copyOf(uint32_t leaf, uint32_t count, uint32_t room);
  /// Blocks side by side, with anything in them.
  uint32_t takeBlocks(uint32_t count);
  /// Makes `blocks` that begin with `count` images one leaf: what no packet meets in the other lanes, and
  /// each block leading to the next.
  void finish(uint32_t leaf, uint32_t count, uint32_t blocks);
  void write(Lane to, const Image& image);
  void copy(Lane to, Lane from);
  Image read(const Plane* block, uint32_t number) const;

  uint32_t planesPerBlock_ = narrowBlock;
  std::vector<Plane, LargePages<Plane>> planes_;
  Sieves sieves_;
  std::vector<uint32_t> sharers_;            // by first block: cells that lead there beside one
  std::vector<std::vector<uint32_t>> free_;  // by number of blocks
};

}  // namespace Classify
