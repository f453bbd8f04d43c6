#pragma once

#include <Classify/Images.h>
#include <Classify/Region.h>

#include <span>
#include <vector>

namespace Classify {

/// The members of many cells in one array. Members are numbers of images; cell `i` has those from begins[i]
/// up to begins[i + 1], in the order of trial.
struct Cells {
  std::vector<uint32_t> members;
  std::vector<uint32_t> begins = {0};

  size_t size() const { return begins.size() - 1; }
  std::span<const uint32_t> operator[](size_t i) const {
    return {members.data() + begins[i], members.data() + begins[i + 1]};
  }
};

/// How a division is to be made.
struct DivisionLimits {
  static constexpr size_t unlimited = ~size_t{0};
  uint64_t allowed[2] = {~uint64_t{0}, ~uint64_t{0}};  ///< the bits that may be chosen
  int maxBits = 16;
  size_t small = Plane::lanes;  ///< a cell of this size needs no further division
  size_t maxMembers = 0;        ///< in all cells together
  size_t maxCells = 0;
  size_t maxBlocks = unlimited;  ///< if each cell became a leaf; cells with the same members share one leaf
  size_t entriesPerCell = 1;     ///< what a cell itself takes, in the table of all cells
  uint32_t maxCopies = 0;        ///< an image that is in more cells is left out of all; 0: none is left out
};

/// A region cut into cells by some bits of the key. Bits are chosen one by one: each time the bit after which
/// a packet is compared with the fewest images on average. We expect equally many packets for each image, and
/// every copy of an image counts against a bit. An image is left out of a cell in which an earlier image
/// takes every packet.
struct Division {
  uint64_t mask[2] = {0, 0};
  Cells cells;                      ///< by cell number
  std::vector<double> packets;      ///< by cell number: the share of packets that we expect there
  std::vector<uint32_t> left;       ///< images left out of all cells, in the order of trial
  std::vector<uint32_t> shadowing;  ///< images that take every packet of a cell in which others are left out
  double meanCompany = 0;           ///< how many images the cell of a packet has, on average

  bool divides() const { return (mask[0] | mask[1]) != 0; }
  /// The region of a cell.
  Region regionOf(const Region& whole, size_t cell) const;
};

/// Divides those of the images that `members` names, in the order of trial.
Division divide(const Images& images, std::span<const uint32_t> members, const Region& region,
                const DivisionLimits& limits);

}  // namespace Classify
