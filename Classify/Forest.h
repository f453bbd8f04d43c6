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

  /// Makes the trees of images that stand in the order of trial, of which `sequences` has by slot a number
  /// that does not fall along it. What was there is gone. `wide`: whether leaves hold the quad; without,
  /// images that ask for it must be inexact.
  void build(std::span<const Image> images, std::span<const uint32_t> sequences, bool wide);

  /// Adds an image. Images of one slot are neighbours in the order.
  void insert(const Image& image, const Order& order);
  /// Takes out the images of an image's slot wherever that image is.
  void erase(const Image& image);

  /// What a look-up reads, which compares slots by the caller's `sequences`, or where there are none by their
  /// own numbers; but for the projection.
  View view(const uint32_t* sequences) const;
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
  void noteIn(uint32_t tree, uint32_t slot, uint32_t sequence);
  /// Decides which trees every packet is looked up in.
  void chooseAlways(const Images& images);
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

  /// None of the images that were ever put into a tree has a lower slot or a lower sequence number. Images
  /// that are taken out leave it as it is.
  struct Bound {
    uint32_t slot = ~uint32_t{0}, sequence = ~uint32_t{0};
  };

  bool gathersAtOnce_;  // of the kernels that were in use when the forest was constructed
  View view_;
  std::vector<Node> nodes_;
  std::vector<uint32_t> cells_;
  Leaves leaves_;
  std::vector<bool> shadowing_;     // by slot
  std::vector<uint8_t> plantedIn_;  // by slot: a bit for each tree that its images are in
  uint32_t planted_ = 0;            // trees that were made when the forest was built
  Bound bounds_[maxTrees];          // by tree
  size_t enoughBytes_ = 0;          // no leaf is divided when trees have grown so large through changes
  size_t strays_ = 0;
  bool bounded_ = false;
  bool deep_ = false;  // many packets go through two nodes of the tree that was made last
};

}  // namespace Classify
