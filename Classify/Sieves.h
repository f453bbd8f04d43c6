#pragma once

#include <Classify/Form.h>
#include <Classify/LargePages.h>

#include <span>
#include <vector>

namespace Classify {

/// The sieves of a forest. A sieve is made for a leaf that is complete; later its images may change, but
/// never move.
class Sieves {
 public:
  void clear();

  static constexpr uint32_t none = ~uint32_t{0};

  /// Makes a sieve for the images of a leaf; `leaf` is the number of its first plane. Returns the sieve's
  /// number, or `none` when the words of the key, without the quad, hardly tell these images apart, or
  /// `bytesPerImage` are too few. It takes at most so many, and never more than mostBytesPerImage: with its
  /// place in a block an image takes as much as one in a tree.
  uint32_t make(std::span<const Image> images, uint32_t leaf, size_t bytesPerImage);
  static constexpr size_t mostBytesPerImage = 190;

  /// The image of a lane of the leaf is gone; there is one in a lane that had none.
  void erase(uint32_t number, uint32_t lane);
  void insert(uint32_t number, uint32_t lane, const Image& image);

  const Sieve& operator[](uint32_t number) const { return sieves_[number]; }
  const Sieve* sieves() const { return sieves_.data(); }
  const Row* rows() const { return rows_.data(); }
  size_t bytes() const { return sieves_.size() * sizeof(Sieve) + rows_.size() * sizeof(Row); }

 private:
  /// The first row of the group that has a lane.
  Row* groupOf(const Sieve& sieve, uint32_t lane) {
    return &rows_[sieve.rows + size_t{lane / Row::images} * sieve.rowsPerGroup];
  }

  std::vector<Sieve> sieves_;
  std::vector<Row, LargePages<Row>> rows_;
};

}  // namespace Classify
