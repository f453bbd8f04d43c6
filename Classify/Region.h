#pragma once

#include <Classify/Form.h>

#include <algorithm>

namespace Classify {

/// The packets that come to one place of a tree: under the mask, the bits of their keys are those of `value`.
struct Region {
  uint64_t mask[2] = {0, 0};
  uint64_t value[2] = {0, 0};
};

/// How many packets of a region match an image: none, a part, or all.
enum class Overlap { none, part, all };

/// The numbers from `low` to `high`, both included.
struct Interval {
  uint32_t low, high;
};

/// An interval with all values that a 16-bit number of the pair can have in a region. It has others, too,
/// when the bits that the region fixes are not the leading ones. `half` 0 is the lower number.
inline Interval pairIn(const Region& region, int half) {
  const int shift = 32 + 16 * half;
  const auto mask = static_cast<uint32_t>(region.mask[1] >> shift) & 0xffff;
  const auto value = static_cast<uint32_t>(region.value[1] >> shift) & 0xffff;
  return {value, value | (~mask & 0xffff)};
}

inline Interval pairOf(const Image& image, int half) {
  return {(image.pairLow >> (16 * half)) & 0xffff, (image.pairHigh >> (16 * half)) & 0xffff};
}

/// An image as bits of the key: those that every packet of a region must have to match it.
struct Ternary {
  uint64_t mask[2];
  uint64_t value[2];
};

/// A mask of the leading bits in which two 16-bit numbers agree.
inline uint32_t commonPrefix(uint32_t low, uint32_t high) {
  const uint32_t differ = low ^ high;
  return differ == 0 ? 0xffff : 0xffff & ~((uint32_t{2} << (31 - __builtin_clz(differ))) - 1);
}

/// Also sets `lies` to the overlap of both; when it is none, the result means nothing.
inline Ternary ternaryIn(const Region& region, const Image& image, Overlap* lies) {
  Ternary bits;
  bits.mask[0] = uint64_t{image.mask[0]} << 32 | image.mask[1];
  bits.value[0] = uint64_t{image.value[0]} << 32 | image.value[1];
  bits.mask[1] = image.mask[2];
  bits.value[1] = image.value[2];
  bool within = image.exact && image.quad == 0;
  for (const int half : {0, 1}) {
    const Interval place = pairIn(region, half);
    const Interval asked = pairOf(image, half);
    const uint32_t low = std::max(place.low, asked.low), high = std::min(place.high, asked.high);
    if (low > high) {
      *lies = Overlap::none;
      return bits;
    }
    within = within && asked.low <= place.low && asked.high >= place.high;
    const uint32_t fixed = commonPrefix(low, high);
    bits.mask[1] |= uint64_t{fixed} << (32 + 16 * half);
    bits.value[1] |= uint64_t{low & fixed} << (32 + 16 * half);
  }
  for (const int word : {0, 1}) {
    if ((bits.value[word] ^ region.value[word]) & bits.mask[word] & region.mask[word]) {
      *lies = Overlap::none;
      return bits;
    }
  }
  const bool bitsWithin =
      (bits.mask[0] & ~region.mask[0]) == 0 && (image.mask[2] & ~static_cast<uint32_t>(region.mask[1])) == 0;
  *lies = within && bitsWithin ? Overlap::all : Overlap::part;
  return bits;
}

inline Overlap overlap(const Region& region, const Image& image) {
  Overlap lies;
  ternaryIn(region, image, &lies);
  return lies;
}

/// Gathers the bits of a word that are under a mask into the lowest bits, as the kernels do; and the inverse.
uint64_t gatherBits(uint64_t bits, uint64_t mask);
uint64_t scatterBits(uint64_t gathered, uint64_t mask);

}  // namespace Classify
