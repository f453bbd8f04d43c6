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
  /// A number for each slot, which never becomes smaller in that order.
  uint32_t (*sequence)(const void* context, uint32_t slot);
  bool operator()(uint32_t slot, uint32_t other) const { return precedes(context, slot, other); }
};

/// The leaves of a forest. A leaf has its images in the order of trial, eight in a block, and its blocks one
/// behind the other, no more of them than it needs. Changes may leave lanes unused between images, but never
/// the first lane, which tells what comes first in the leaf. Several cells may share a leaf; a change for one
/// of these cells makes a new leaf for it. A leaf is named by its place, as Form.h defines places. A long
/// leaf gets a sieve, and loses it when it is changed.
class Leaves {
 public:
  /// Removes everything. `wide`: whether blocks hold the quad.
  void clear(bool wide);

  /// The leaf without images, the same for all.
  static constexpr uint32_t empty = leafBit;

  uint32_t make(std::span<const Image> images);
  /// A leaf of more images than this is long.
  static constexpr uint32_t longLeaf = 160;
  /// The same leaf with a sieve before it, for all its cells; without one if a sieve would not help. The
  /// sieve takes at most so many octets for each image.
  uint32_t sieved(uint32_t leaf, size_t bytesPerImage);
  /// One cell more leads to a leaf; one cell less.
  void share(uint32_t leaf);
  void drop(uint32_t leaf);

  /// The number of a leaf's images, and the images.
  uint32_t size(uint32_t leaf) const;
  std::vector<Image> images(uint32_t leaf) const;
  /// The leaf with an image more, in the order of trial. The leaf that was given is dropped.
  uint32_t insert(uint32_t leaf, const Image& image, const Order& order);
  /// The leaf without the images of a slot. The leaf that was given is dropped.
  uint32_t erase(uint32_t leaf, uint32_t slot);

  const Plane* planes() const { return planes_.data(); }
  const Sieves& sieves() const { return sieves_; }
  uint32_t planesPerBlock() const { return planesPerBlock_; }
  size_t bytes() const;

 private:
  /// A lane of a leaf: its block, and its number in the block.
  struct Lane {
    Plane* block;
    uint32_t number;
  };
  /// The place of a leaf without its sieve: that of its blocks.
  uint32_t plain(uint32_t leaf) const;
  Lane lane(uint32_t leaf, uint32_t at);
  uint32_t slotAt(uint32_t leaf, uint32_t at);
  /// Calls visit(lane, block, number in the block) for each lane that has an image.
  template <class Visit>
  void eachImage(uint32_t leaf, const Visit& visit) const;
  /// Sets `used_` to the numbers of the lanes that have images.
  void readLanes(uint32_t leaf);
  /// A lane for a new image, in front of used_[next]. As few others as may be move for it; the leaf has an
  /// unused lane.
  Lane makeFree(uint32_t leaf, size_t next);
  /// The same leaf if nobody shares it and it has room for so many images, or a copy.
  uint32_t own(uint32_t leaf, uint32_t room);
  uint32_t& sharers(uint32_t leaf) { return sharers_[(leaf & ~leafBit) / planesPerBlock_]; }
  static uint32_t blocksFor(uint32_t images) {
    return std::max(1u, (images + Plane::lanes - 1) / Plane::lanes);
  }
  uint32_t blocksOf(uint32_t leaf) const;
  uint32_t makeBlocks(std::span<const Image> images);
  /// A new leaf with the first `count` images of a leaf, and with room for `room` images. The leaf that was
  /// given is dropped.
  uint32_t copyOf(uint32_t leaf, uint32_t count, uint32_t room);
  /// So many blocks side by side; what is in them is not defined.
  uint32_t takeBlocks(uint32_t count);
  /// Makes `blocks` blocks one leaf. Their first `count` lanes have images; the other lanes get values that
  /// no packet matches, and each block leads to the next.
  void finish(uint32_t leaf, uint32_t count, uint32_t blocks);
  void write(Lane to, const Image& image);
  /// Makes a lane unused.
  void vacate(Lane lane);
  void move(uint32_t leaf, uint32_t to, uint32_t from);
  void copy(Lane to, Lane from);
  Image read(const Plane* block, uint32_t number) const;

  uint32_t planesPerBlock_ = narrowBlock;
  std::vector<Plane, LargePages<Plane>> planes_;
  Sieves sieves_;
  std::vector<uint32_t> sharers_;            // by first block: how many cells lead there, less one
  std::vector<std::vector<uint32_t>> free_;  // leaves that were dropped, by their number of blocks
  std::vector<uint32_t> used_;               // of the leaf that is being read or changed
};

}  // namespace Classify
