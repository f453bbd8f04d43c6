#pragma once

#include <Classify/BitCounts.h>
#include <Classify/Division.h>

#include <span>

namespace Classify {

/// The cells of a division that is being made, in the order in which they were made.
struct Growing {
  Cells cells;
  std::vector<Region> regions;
  std::vector<double> packets;  ///< that come to each cell, in those that come to one image
  uint64_t mask[2] = {0, 0};    ///< the bits that were chosen
};

/// Chooses the bits of a division, one after the other.
class BitChooser {
 public:
  BitChooser(const Images& images, const DivisionLimits& limits) : images_(images), limits_(limits) {}

  /// The bit after which the cost, raised for the copies that the bit makes, is lowest; -1 when no bit is
  /// worth it.
  int best(const Growing& made);

 private:
  struct Prospects;

  void add(const Growing& made, size_t cell, Prospects& prospects);
  /// Counts in zeros_ and ones_ what every `step`th member of a cell asks.
  void countAsked(const Growing& made, size_t cell, size_t step);
  int lowest(const Prospects& prospects, uint64_t const (&chosen)[2], float members) const;

  const Images& images_;
  const DivisionLimits& limits_;
  BitCounts zeros_, ones_;
};

}  // namespace Classify
