#pragma once

#include <Classify/Leaves.h>
#include <Classify/Region.h>

#include <span>
#include <vector>

namespace Classify {

class Images;

/// The compiled form of a list: decision trees over its images; in their leaves eight rules are compared at
/// once. README.md has a picture. Several threads must not use one forest. It may be built on any thread, for
/// building reads nothing but its arguments.
class Forest {
 public:
  Forest();

  /// Makes the trees anew. `images` are in the order of trial; `sequences` has a number for each slot, which
  /// never becomes smaller in that order. `wide`: whether leaves hold the quad. If they do not, images that
  /// need the quad must be inexact.
  void build(std::span<const Image> images, std::span<const uint32_t> sequences, bool wide);

  /// Adds an image. Images of one slot are neighbours in the order.
  void insert(const Image& image, const Order& order);
  /// Takes all images of a slot out.
  void erase(std::span<const Image> images, const Order& order);

  /// What a look-up reads. Slots are ordered by `sequences`, or by their own numbers when it is null. The
  /// projection is not set here.
  View view(const uint32_t* sequences) const;
  bool wide() const { return leaves_.planesPerBlock() == wideBlock; }
  /// True when later rules were left out of a leaf because the rule of this slot takes all packets there.
  /// Without that rule the trees would give wrong answers.
  bool shadows(uint32_t slot) const { return slot < shadowing_.size() && shadowing_[slot]; }
  /// How much slower changes have made look-ups: the number of images added that belong in too many leaves,
  /// or in a sieve that has no lane for them, and are tried one by one instead; and of those that have made
  /// leaves without a sieve long. Zero after build().
  size_t strays() const { return strays_; }
  /// True when some leaves stayed long, because dividing them would take too much memory for what it gains.
  bool bounded() const { return bounded_; }
  /// The heap memory in use, in octets.
  size_t bytes() const;

  /// The tree of images that would go into too many leaves of the others.
  static constexpr uint32_t strayTree = maxTrees - 1;

 private:
  class Builder;

  void clear(size_t slots, bool wide);
  bool wantsSeveral(std::span<const Image> images) const;
  /// Makes one tree or several; returns what a look-up costs, in blocks compared.
  double plant(Builder& builder, const Images& images, bool several);
  void plantOneLeaf(Builder& builder, std::span<const Image> images);
  void noteIn(uint32_t tree, uint32_t slot, uint32_t sequence);
  /// Sets the number of trees that are searched for every packet.
  void chooseAlways(const Images& images);
  /// A cell that leads to a leaf in which an image belongs.
  struct Spot {
    uint32_t place;        ///< the leaf
    uint32_t cell;         ///< its number; noCell: it is the root of its tree
    uint32_t region;       ///< of regions_
    bool divides = false;  ///< its leaf has grown, and dividing it may help
  };
  static constexpr uint32_t noCell = ~uint32_t{0};
  struct Alone;
  /// Sets `spots_` to all spots of an image in a tree, and `passed_` to the firsts of the cells on the way,
  /// if the tree has them. Stops when it has looked into more than `limit` cells. Returns how many it has
  /// looked into.
  size_t findSpots(uint32_t tree, const Image& image, size_t limit);
  size_t addSpots(const Spot& spot, const Ternary& bits, const Image& image, size_t limit);
  /// Calls change(cells) for the spots found, those together that share a leaf, and has their cells lead to
  /// the leaf that it returns.
  template <class Change>
  void changeLeaves(uint32_t tree, const Change& change);
  uint32_t& placeAt(uint32_t tree, const Spot& spot) {
    return spot.cell == noCell ? view_.roots[tree] : cells_[spot.cell];
  }
  void sieveLongLeaves(size_t images);
  /// The tree that an image is put in: the first one in which it has few copies, for packets are compared
  /// with fewest images there and a last tree of few leaves stays as it is; strayTree if there is none. Sets
  /// its spots there.
  uint32_t treeFor(const Image& image, const Order& order);
  /// Whether all leaves of the spots that have a sieve take an image.
  bool sievesTake(const Image& image, const Order& order) const;
  /// Whether dividing a leaf that has grown may help; and divides it for one of its cells, if it helps.
  bool isWorthATry(const Leaves::Grown& leaf) const;
  void divideGrown(uint32_t tree, const Spot& cell);
  size_t treeBytes() const;
  void refreshView();
  /// Refreshes the view behind a change, also behind one for which memory ran out in the middle.
  struct ViewAtEnd {
    Forest& forest;
    ~ViewAtEnd() { forest.refreshView(); }
  };

  /// The lowest slot and the lowest sequence number of all images that were ever put into a tree. Taking an
  /// image out does not change them.
  struct Bound {
    uint32_t slot = ~uint32_t{0}, sequence = ~uint32_t{0};
  };

  bool gathersAtOnce_;  // of the kernels that were in use when the forest was constructed
  View view_;
  std::vector<Node> nodes_;
  std::vector<uint32_t> cells_;
  Leaves leaves_;
  std::vector<bool> shadowing_;     // by slot
  std::vector<uint8_t> plantedIn_;  // by slot: bit i is set when tree i has images of it
  uint32_t planted_ = 0;            // how many trees build() has made
  Bound bounds_[maxTrees];          // by tree
  size_t enoughBytes_ = 0;          // when changes have made the trees so large, no more leaves are divided
  size_t strays_ = 0;
  bool bounded_ = false;
  std::vector<Spot> spots_;       // of the image that is being changed
  std::vector<Region> regions_;   // of the packets that come to these spots
  std::vector<uint32_t> passed_;  // where the firsts of cells on the way are
  bool deep_ = false;             // in the tree that was made last, many packets go through two nodes
};

}  // namespace Classify
