#pragma once

#include <Classify/Leaves.h>
#include <Classify/Region.h>

#include <span>
#include <vector>

namespace Classify {

class Images;

/// The compiled form of a list: decision trees over its images, whose leaves are compared eight rules at a
/// time. See README.md for the picture. Not safe for use by several threads; building one touches nothing but
/// its arguments and may be done on any thread.
class Forest {
 public:
  Forest();

  /// Makes the trees of images that stand in the order of trial; slots are below `slots`. What was there is
  /// gone. `wide`: whether leaves hold the quad; without, images that ask for it must be inexact.
  void build(std::span<const Image> images, uint32_t slots, bool wide);

  /// Adds an image. Images of one slot are neighbours in the order.
  void insert(const Image& image, const Order& order);
  /// Takes out the images of an image's slot wherever that image is.
  void erase(const Image& image);

  /// Everything but the sequence numbers, which are the caller's.
  const View& view() const { return view_; }
  bool wide() const { return leaves_.planesPerBlock() == wideBlock; }
  /// True when rules that come after a slot's were left out somewhere because it takes all their packets: the
  /// trees do not know what comes without it.
  bool shadows(uint32_t slot) const { return slot < shadowing_.size() && shadowing_[slot]; }
  /// The number of images added that belong in too many leaves and are looked through one by one instead; and
  /// of blocks in leaves that have lost their sieves through changes. Both are gone when the forest is built
  /// anew.
  size_t strays() const { return strays_; }
  /// True when leaves stayed long, as dividing them would have taken too much memory for what it gains.
  bool bounded() const { return bounded_; }
  /// The heap memory in use.
  size_t bytes() const;

 private:
  class Builder;

  /// Makes one tree or several; returns what a look-up costs, in blocks compared.
  double plant(Builder& builder, const Images& images, bool several);
  /// Calls visit(place, region) for the leaves that an image belongs in, and stops when more than `limit`
  /// cells have been looked into. Returns their number.
  template <class Visit>
  size_t visitLeaves(uint32_t* place, const Region& region, const Image& image, size_t limit,
                     const Visit& visit);
  void sieveLongLeaves();
  void insertInLeaf(uint32_t& place, const Region& region, const Image& image, const Order& order);
  void noteLostSieve(uint32_t before, uint32_t after);
  size_t treeBytes() const;
  void refreshView();

  bool gathersAtOnce_;  // of the kernels that were in use when the forest was constructed
  View view_;
  std::vector<Node> nodes_;
  std::vector<uint32_t> cells_;
  Leaves leaves_;
  std::vector<bool> shadowing_;     // by slot
  std::vector<uint8_t> plantedIn_;  // by slot: a bit for each tree that its images are in
  uint32_t planted_ = 0;            // trees that were made when the forest was built
  size_t enoughBytes_ = 0;          // no leaf is divided when trees have grown so large through changes
  size_t strays_ = 0;
  bool bounded_ = false;
  bool deep_ = false;  // many packets go through two nodes of the tree that was made last
};

}  // namespace Classify
