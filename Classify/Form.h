#pragma once

#include <cstddef>
#include <cstdint>

/// The compiled form of a list as it lies in memory, and what a packet is to it. Plain data, so that the
/// kernels, which are compiled for several processors, share nothing else with the rest.
namespace Classify {

/// A packet as rules are compared with it. What the words mean is their business who make keys and images:
/// `first`, `second` and `third` are compared bit by bit under a mask, the two numbers of `pair` (16 bits
/// each) with ranges, and the four of `quad` (8 bits each) with what they must be at least: a number and its
/// complement, side by side, are compared with a range so.
struct Key {
  uint64_t bits[2] = {0, 0};  ///< first in the upper half and second; pair in the upper half and third
  uint32_t quad = 0;

  static Key of(uint32_t first, uint32_t second, uint32_t third, uint32_t pair, uint32_t quad) {
    return {{uint64_t{first} << 32 | second, uint64_t{pair} << 32 | third}, quad};
  }
};

/// What a rule asks, in the same words. Bits of a value outside its mask are zero.
struct Image {
  uint32_t value[3] = {0, 0, 0};
  uint32_t mask[3] = {0, 0, 0};
  uint32_t pairLow = 0, pairHigh = 0xffffffff;
  uint32_t quad = 0;
  uint32_t slot = 0;
  bool exact = true;  ///< false: the rule asks more, and whoever meets the image is asked again

  bool operator==(const Image&) const = default;
};

/// Eight rules side by side in one vector, a plane: eight times 32 bits.
struct alignas(32) Plane {
  static constexpr uint32_t lanes = 8;
  uint32_t lane[lanes];
};

/// The planes of a block, which is what is compared at once: eight rules in the order of trial.
enum PlaneOf : uint32_t {
  firstValue,
  firstMask,
  secondValue,
  secondMask,
  thirdValue,
  thirdMask,
  pairLow,
  pairHigh,
  slotPlane,
  narrowBlock,  ///< the number of planes when no rule of the list looks at `quad`
  quadLeast = narrowBlock,
  wideBlock,
};

/// In a lane of the slot plane: the rule's slot, and in the upper bits what kind of lane it is.
constexpr uint32_t inexactLane = 1u << 31;
/// Only in the first lane: the leaf goes on in the next block.
constexpr uint32_t moreBlocks = 1u << 30;
constexpr uint32_t slotMask = moreBlocks - 1;
constexpr uint32_t noSlot = slotMask;

/// An inner node: some bits of the key, gathered, are the number of the cell where to go on.
struct Node {
  uint64_t mask[2];  ///< the bits of Key::bits
  uint32_t cells;    ///< where its cells begin
  uint32_t shift;    ///< the number of bits of mask[1], which are the lower ones of the cell's number
};

/// A place to go on: a node's number; or this bit and the number of the first plane of a leaf; or both bits
/// and the number of a sieve, behind which is a long leaf.
constexpr uint32_t leafBit = 1u << 31;
constexpr uint32_t sieveBit = 1u << 30;

/// A bit for each of 512 images of a leaf.
struct alignas(64) Row {
  static constexpr uint32_t images = 512;
  uint64_t bits[images / 64];
};

/// What tells the few images of a long leaf that a packet may meet: for some chunks of the key and each value
/// that they may have, the images that do not contradict.
struct Sieve {
  static constexpr uint32_t maxChunks = 24;
  /// Some neighbouring bits of a word of Key::bits.
  struct Chunk {
    uint32_t rows;  ///< where the row of the value 0 is in each group, in octets
    uint16_t mask;  ///< of the bits, where they number octets of rows
    uint8_t turn;   ///< how far the word is rotated to the right for that
  };

  uint32_t leaf;    ///< the number of its first plane
  uint32_t rows;    ///< the first row; each group begins with the row of the images that there are
  uint32_t groups;  ///< of 512 images; each has all rows
  uint32_t rowsPerGroup;
  uint32_t ends[2];  ///< behind the last chunk of each word
  bool exact;        ///< what is left is met
  Chunk chunk[maxChunks];
};

/// How two addresses of 128 bits are made the first and the second word of a key: of each, up to 32 bits that
/// tell rules apart are gathered, and a bit of the third word says that all others that most rules ask for
/// are as they ask.
struct Projection {
  struct Side {
    uint64_t mask[2] = {0, 0};  ///< the bits that are gathered; upper half first
    uint32_t shift = 0;         ///< the number of bits of mask[1]
    uint32_t agrees = 0;        ///< the bit of the third word
    uint64_t restMask[2] = {0, 0};
    uint64_t restValue[2] = {0, 0};
  };
  Side sides[2];
};

constexpr uint32_t maxTrees = 4;

/// What a look-up has to do; there is a kernel for each combination.
enum Shape : uint32_t {
  wideShape = 1,     ///< blocks hold the quad
  deepShape = 2,     ///< there is one tree, in which many packets come from the root's node to another
  severalShape = 4,  ///< there are several trees; never with deepShape
  shapes = 6,
};

/// Everything that a look-up reads. Owned by the forest, valid until its next change.
struct View {
  const Node* nodes = nullptr;
  const uint32_t* cells = nullptr;
  const Plane* planes = nullptr;
  const Sieve* sieves = nullptr;
  const Row* rows = nullptr;
  uint32_t shape = 0;
  bool far = false;  ///< planes are more than the caches that are near hold
  uint32_t trees = 0;
  uint32_t always = 0;  ///< so many trees every packet is looked up in; in the others only who may find more
  uint32_t roots[maxTrees] = {};
  /// By slot, what says which rule is tried first; null when slots are in the order of trial themselves.
  const uint32_t* sequences = nullptr;
  /// By tree, in what slots are compared by: no rule of the tree comes before.
  uint32_t bounds[maxTrees] = {};
  Projection projection;  ///< of long addresses
};

/// So many packets at most are looked up in one call.
constexpr uint32_t burstMost = 64;

/// The keys of a burst. By word, so that each is written and read as one number; and not set until they are.
struct Keys {
  uint64_t upper[burstMost], lower[burstMost];
  uint32_t quad[burstMost];

  void keyIs(uint32_t packet, uint64_t itsUpper, uint64_t itsLower, uint32_t itsQuad) {
    upper[packet] = itsUpper;
    lower[packet] = itsLower;
    quad[packet] = itsQuad;
  }
  Key key(uint32_t packet) const { return {{upper[packet], lower[packet]}, quad[packet]}; }
};

/// What a quick look-up answers beside a slot: this bit says that the rule of the slot, if there is one, may
/// be the first that the packet meets, but has to be asked; if it does not agree, a thorough look-up tells.
constexpr uint32_t askBit = inexactLane;

/// What a thorough look-up asks back; `context` is what was given to it.
struct Questions {
  /// Whether the packet meets the rule of an inexact lane.
  bool (*meets)(const void* context, uint32_t slot);
  /// Which of two rules is tried first.
  bool (*precedes)(const void* context, uint32_t slot, uint32_t other);
};

}  // namespace Classify
