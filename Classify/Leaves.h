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
/// behind the other. Without a sieve it has no more of them than it needs, and changes may leave lanes unused
/// between images, but never the first lane, which tells what comes first in the leaf. Several cells may
/// share a leaf. A leaf is named by its place, as Form.h defines places. A long leaf gets a sieve, and keeps
/// it: there any lane may become unused, and an image is put in only where an unused lane is in its place.
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
  /// So many cells more lead to a leaf; so many less, but not none; one less, and maybe none.
  void share(uint32_t leaf, uint32_t cells = 1);
  void unshare(uint32_t leaf, uint32_t cells);
  void drop(uint32_t leaf);
  /// Whether several cells may lead there.
  bool isShared(uint32_t leaf) const { return leaf == empty || note(plain(leaf), Note::sharers) > 0; }

  /// The number of a leaf's images, and the images.
  uint32_t size(uint32_t leaf) const;
  std::vector<Image> images(uint32_t leaf) const;
  /// Has the processor fetch what a change reads first.
  void fetch(uint32_t leaf) const;
  /// Whether a leaf with a sieve takes an image for so many of the cells that lead there: for all of them,
  /// and in a lane that is unused.
  bool takes(uint32_t leaf, uint32_t cells, const Image& image, const Order& order) const;
  /// A leaf, and how many images it has; of one with a sieve that is not counted, and is 0.
  struct Grown {
    uint32_t leaf, images;
  };
  /// The leaf with an image more, in the order of trial; one with a sieve takes it. The leaf that was given
  /// is dropped.
  Grown insert(uint32_t leaf, const Image& image, const Order& order);
  /// The leaf without the images of a slot. The leaf that was given is dropped; other cells that share it
  /// lose these images, too.
  uint32_t erase(uint32_t leaf, uint32_t slot, const Order& order);
  /// How many images a leaf was made with. Of a leaf of one block it is not known; then it is a whole block.
  uint32_t wasMadeWith(uint32_t leaf) const;

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
  uint32_t slotAt(uint32_t leaf, uint32_t at) const;
  /// Calls visit(lane, block, number in the block) for each lane that has an image.
  template <class Visit>
  void eachImage(uint32_t leaf, const Visit& visit) const;
  /// The numbers of the lanes that have images; valid until the next call.
  std::span<const uint32_t> readLanes(uint32_t leaf);
  /// Of a leaf with a sieve: the number of the lane behind all images that come before a sequence number.
  uint32_t behind(uint32_t leaf, uint32_t sequence, const Order& order) const;
  /// The number of the unused lane there that an image may go into; noLane if there is none.
  uint32_t laneInSieved(uint32_t leaf, const Image& image, const Order& order) const;
  static constexpr uint32_t noLane = ~uint32_t{0};
  void eraseSieved(uint32_t leaf, uint32_t slot, const Order& order);
  /// A lane for a new image, in front of used[next]. As few others as may be move for it; the leaf has an
  /// unused lane.
  Lane makeFree(uint32_t leaf, std::span<const uint32_t> used, size_t next);
  /// Has the images of a leaf side by side from its first lane on.
  void closeUp(uint32_t leaf);
  /// The same leaf if nobody shares it and it has room for so many images, or a copy.
  uint32_t own(uint32_t leaf, uint32_t room);

  /// What is noted of a leaf: each with one of its blocks, and only if it has so many.
  enum class Note : uint32_t {
    sharers,   ///< how many cells lead there, less one
    madeWith,  ///< how many images it was made with
    blocks,    ///< how many it has
  };
  uint32_t noteAt(uint32_t leaf, Note which) const {
    return (leaf & ~leafBit) / planesPerBlock_ + static_cast<uint32_t>(which);
  }
  uint32_t note(uint32_t leaf, Note which) const { return notes_[noteAt(leaf, which)]; }
  uint32_t& sharers(uint32_t leaf) { return notes_[noteAt(leaf, Note::sharers)]; }
  /// Of a leaf of so many blocks.
  void noteIs(uint32_t leaf, uint32_t blocks, Note which, uint32_t value) {
    if (static_cast<uint32_t>(which) < blocks) notes_[noteAt(leaf, which)] = value;
  }
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
  std::vector<uint32_t> notes_;              // by block
  std::vector<std::vector<uint32_t>> free_;  // leaves that were dropped, by their number of blocks
  std::vector<uint32_t> used_;               // room for readLanes()
};

}  // namespace Classify
