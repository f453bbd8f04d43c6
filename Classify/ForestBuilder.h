#pragma once

#include <Classify/Division.h>
#include <Classify/Forest.h>

#include <algorithm>
#include <bit>
#include <span>
#include <vector>

namespace Classify {

/// How many copies of images a node may have: on average `copies` of each image, and the root of a tree,
/// which may have few images, besides `room` for each image of the list.
struct Plenty {
  double copies, room;
  size_t inAll;  ///< like `copies`, for all nodes together: that bounds the time
};
constexpr Plenty ofFew = {24, 4, 24}, ofMany = {3.75, 0.125, 12};

constexpr uint32_t mostCopies = 32;            ///< an image with more in a tree goes on to the next one
constexpr size_t fullLeaf = 4 * Plane::lanes;  ///< a leaf with more images is divided, if that helps
constexpr size_t bytesPerImage = 230;          ///< of trees; sieves come beside

inline size_t times(double factor, size_t size) {
  return static_cast<size_t>(factor * static_cast<double>(size));
}

/// The cost of a look-up in a leaf of so many images. Costs are counted in blocks compared.
inline double stepsIn(size_t images) {
  constexpr size_t stepsOfASieve = 40;
  if (images <= Leaves::longLeaf) return static_cast<double>(images) / Plane::lanes;
  return static_cast<double>(stepsOfASieve * ((images + Row::images - 1) / Row::images));
}

/// Whether a division whose look-ups cost `steps` is worth the memory of its copies. Otherwise all images go
/// into one leaf, which takes less memory.
inline bool pays(size_t images, double steps) {
  return images <= Leaves::longLeaf || 2 * steps < stepsIn(images);
}

/// Whether a mask leaves so few addresses that a tree divides by them.
inline bool saysMuch(uint32_t mask) { return std::popcount(mask) >= 12; }

/// Makes nodes and leaves in a forest, within a budget.
class Forest::Builder {
 public:
  /// `bytes`: what the trees should take at most.
  Builder(Forest& forest, const Images& images, const Plenty& plenty, size_t bytes)
      : forest_(forest),
        images_(images),
        plenty_(plenty),
        bytes_(bytes),
        budget_(images.size() * plenty.inAll + 1024) {}

  /// How many octets of the trees' limit are still free.
  size_t bytesLeft() const { return bytes_ - std::min(bytes_, forest_.treeBytes()); }

  /// The division for the next of several trees. Images that it leaves out go to the trees behind. When no
  /// division helps, the one that is returned does not divide.
  ///
  /// Many images say much about one address and little about the other. A tree for these divides by bits of
  /// the one address only, and so has few copies of them.
  Division chosen(std::span<const uint32_t> members) const;

  /// A place, the cost of a look-up from there on, and the lowest slot of the images there.
  struct Made {
    uint32_t place;
    double steps;
    uint32_t first;
  };

  /// For which of the trees nodes are made from now on.
  void treeIs(uint32_t tree) { tree_ = tree; }

  /// Makes a leaf for images, or a node with all that is below it; all leaves together should take `bytes`.
  Made place(std::span<const uint32_t> members, const Region& region, int depth, size_t bytes);
  Made node(const Division& division, const Region& region, int depth, size_t bytes);
  Made leaf(std::span<const uint32_t> members);

 private:
  struct NewNode;
  struct Choice;
  /// Members, and the share of packets that come to their cells.
  struct Large {
    size_t members = 0;
    double packets = 0;
  };

  /// How many members the cells of a division of so many images may have together.
  size_t membersFor(size_t images, size_t room) const {
    return std::min(times(plenty_.copies, images) + room, budget_ + images);
  }
  size_t room() const { return times(plenty_.room, images_.size()); }
  /// How many blocks a division may have whose leaves should take so many bytes. A part of these is left for
  /// the nodes below.
  size_t blocksIn(size_t bytes) const {
    return times(0.9, bytes) / (sizeof(Plane) * forest_.leaves_.planesPerBlock());
  }
  /// Divides by the bits of a choice the members that it is for, and leaves out the others.
  Division dividedBy(const Choice& choice, std::span<const uint32_t> inside,
                     std::span<const uint32_t> outside) const;

  /// Of the table of cells: one for the place, and one for the first if there is one.
  size_t entriesPerCell() const { return tree_ > 0 ? 2 : 1; }
  NewNode addNode(const Division& division);
  void setCell(NewNode& node, size_t cell, uint32_t place, uint32_t first);
  /// Makes leaves for the cells that are small enough, and tells of the others.
  Large fillSmallCells(NewNode& node);
  template <class Make>
  void fill(NewNode& node, size_t cell, const Make& make);

  Forest& forest_;
  const Images& images_;
  const Plenty plenty_;
  const size_t bytes_;
  size_t budget_;  // of members that may still be made
  uint32_t tree_ = 0;
  std::vector<Image> chosen_;
};

}  // namespace Classify
