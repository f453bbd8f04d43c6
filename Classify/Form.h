#pragma once

#include <cstddef>
#include <cstdint>

/// The compiled form of a list as it lies in memory, and the form of a packet that it is searched for. Plain
/// data only: kernels are compiled for several processors, and share nothing else with the rest.
namespace Classify {

/// A packet in the words that rules are compared with. Who makes keys and images decides which field is in
/// which word. `first`, `second` and `third` are compared bit by bit under a mask; the two numbers of `pair`
/// (16 bits each) with a range each; the four of `quad` (8 bits each) with a minimum each. A number and its
/// complement make a range.
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
  bool exact = true;  ///< false: the rule asks for more, and a packet that matches is compared with it, too

  bool operator==(const Image&) const = default;
};

/// Eight rules side by side in one vector, a plane: eight times 32 bits.
struct alignas(32) Plane {
  static constexpr uint32_t lanes = 8;
  uint32_t lane[lanes];
};

/// The planes of a block. A block is eight rules in the order of trial, which are compared at once.
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

/// A lane of the slot plane has the rule's slot in its lower bits, and in the upper ones the kind of lane.
constexpr uint32_t inexactLane = 1u << 31;
/// In the first lane only: the leaf goes on in the next block.
constexpr uint32_t moreBlocks = 1u << 30;
constexpr uint32_t slotMask = moreBlocks - 1;
constexpr uint32_t noSlot = slotMask;

/// An inner node: some bits of the key, gathered, are the number of the cell to go to.
struct Node {
  uint64_t mask[2];  ///< the bits of Key::bits
  uint32_t cells;    ///< where its cells begin
  uint32_t shift;    ///< the number of bits of mask[1], which are the lower ones of the cell's number
  /// Where the firsts of its cells begin, in the same array; noFirsts in the first tree, where nobody asks.
  /// A cell's first is a slot: no image below the cell has a lower one. Of an empty cell it is noSlot.
  uint32_t firsts;
  static constexpr uint32_t noFirsts = 0;
};

/// A cell contains a place: the number of a node; or leafBit and the number of a leaf's first plane; or both
/// bits and the number of a long leaf's sieve.
constexpr uint32_t leafBit = 1u << 31;
constexpr uint32_t sieveBit = 1u << 30;

/// A bit for each of 512 images of a leaf.
struct alignas(64) Row {
  static constexpr uint32_t images = 512;
  uint64_t bits[images / 64];
};

/// Finds the few images of a long leaf that a packet may match. For some chunks of the key, a row for each
/// value that the chunk can have says which images allow that value.
struct Sieve {
  static constexpr uint32_t maxChunks = 24;
  /// Some neighbouring bits of a word of Key::bits.
  struct Chunk {
    uint32_t rows;  ///< where the row of the value 0 begins, in octets from the begin of a group
    uint16_t mask;  ///< what is left of the rotated word under it is the value times the size of a row
    uint8_t turn;   ///< how many bits the word is rotated to the right for that
  };

  uint32_t leaf;    ///< the number of its first plane
  uint32_t rows;    ///< the number of the first row; a group's first row says which images there are
  uint32_t groups;  ///< of 512 images; each has all rows
  uint32_t rowsPerGroup;
  uint32_t ends[2];  ///< by word of the key: the number behind its last chunk
  bool exact;        ///< an image that all rows allow matches
  Chunk chunk[maxChunks];
};

/// How two addresses of 128 bits become the first and the second word of a key. Up to 32 bits of each address
/// are gathered: those in which the rules differ. Of its other bits, those that most rules ask for are
/// compared with one value, and a bit of the third word says whether they are equal.
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

/// What a forest is like. There is a kernel for each combination.
enum Shape : uint32_t {
  wideShape = 1,     ///< blocks hold the quad
  deepShape = 2,     ///< there is one tree, in which many packets go from the root's node to another node
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
  bool far = false;  ///< the planes are larger than the near caches
  uint32_t trees = 0;
  /// The first `always` trees are searched for every packet, a later one only if it may have an earlier rule.
  uint32_t always = 0;
  uint32_t roots[maxTrees] = {};
  /// By slot: the rule with the lower number is tried first. Null when the lower slot is tried first.
  const uint32_t* sequences = nullptr;
  /// By tree: no rule in it comes before this slot, or this sequence number if `sequences` is set.
  uint32_t bounds[maxTrees] = {};
  Projection projection;  ///< of long addresses
};

/// At most so many packets are looked up in one call.
constexpr uint32_t burstMost = 64;

/// The keys of a burst, each word in an array of its own. Nothing is set until keyIs() sets it.
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

/// A bit that a quick look-up may set beside the slot: the rule of the slot, if there is one, may be the
/// first that matches, but the packet must be compared with the rule itself. If it does not match, a thorough
/// look-up must follow.
constexpr uint32_t askBit = inexactLane;

/// What a thorough look-up asks its caller; `context` is what the caller gave.
struct Questions {
  /// Whether the packet matches the rule of an inexact lane.
  bool (*meets)(const void* context, uint32_t slot);
  /// Which of two rules is tried first.
  bool (*precedes)(const void* context, uint32_t slot, uint32_t other);
};

}  // namespace Classify
