#pragma once

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

/// The bits of a key that an image asks to be zero, and those that it asks to be one.
struct Asked {
  uint64_t zeros[2];
  uint64_t ones[2];
};

/// Images, with the parts that a division reads most often in an array of their own.
class Images {
 public:
  explicit Images(std::span<const Image> images);

  const Image& operator[](uint32_t number) const { return images_[number]; }
  size_t size() const { return images_.size(); }
  /// Has the processor fetch asked(number) into its cache; with `itself` also the image, for its ranges.
  void fetch(uint32_t number, bool itself) const {
    __builtin_prefetch(&asked_[number]);
    if (itself) __builtin_prefetch(&images_[number].pairLow);
  }
  /// What an image asks of every packet. For a range these are the leading bits that all its numbers share.
  const Asked& asked(uint32_t number) const { return asked_[number]; }
  /// What it asks of packets whose pair lies within these intervals. Some such packet has to match the image.
  Asked askedIn(const Interval (&pair)[2], uint32_t number) const;

 private:
  std::span<const Image> images_;
  std::vector<Asked> asked_;
};

inline Asked Images::askedIn(const Interval (&pair)[2], uint32_t number) const {
  Asked asked = asked_[number];
  for (const int half : {0, 1}) {
    const Interval range = pairOf(images_[number], half);
    const uint32_t low = std::max(range.low, pair[half].low);
    const uint64_t fixed = commonPrefix(low, std::min(range.high, pair[half].high));
    asked.zeros[1] |= (fixed & ~low) << (32 + 16 * half);
    asked.ones[1] |= (fixed & low) << (32 + 16 * half);
  }
  return asked;
}

/// How a division is to be made.
struct DivisionLimits {
  static constexpr size_t unlimited = ~size_t{0};
  uint64_t allowed[2] = {~uint64_t{0}, ~uint64_t{0}};  ///< the bits that may be chosen
  int maxBits = 16;
  size_t small = Plane::lanes;  ///< a cell of this size needs no further division
  size_t maxMembers = 0;        ///< in all cells together
  size_t maxCells = 0;
  size_t maxBlocks = unlimited;  ///< if each cell became a leaf; cells with the same members share one leaf
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
