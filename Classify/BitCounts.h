#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace Classify {

/// A number for each bit of a key, four in a vector. Left to itself, the compiler makes no vectors here.
using Four = float __attribute__((vector_size(16)));
using Each = std::array<Four, 32>;

/// The words of a key.
using Words = uint64_t __attribute__((vector_size(16)));

/// Counts, for each bit of a key, how often it was set. digits_[i] has bit i of all counters, so one addition
/// with carry adds to all of them at once.
class BitCounts {
 public:
  void clear() {
    added_ = 0;
    digits_ = {};
  }
  static constexpr uint32_t mostAdded = 255;
  /// At most so often. No branch depends on the key: the processor could not foresee it.
  void add(Words key) {
    const auto used = static_cast<size_t>(std::bit_width(++added_));
    for (size_t i = 0; i < used; ++i) {
      const Words carry = digits_[i] & key;
      digits_[i] ^= key;
      key = carry;
    }
  }
  /// The bits that were ever set.
  Words any() const {
    Words bits{};
    for (const Words& digit : digits_) bits |= digit;
    return bits;
  }
  /// How often each of the eight bits of an octet was set.
  void counts(size_t octet, Four (&counts)[2]) const {
    uint64_t all = 0;  // eight counts
    const auto used = static_cast<size_t>(std::bit_width(added_));
    for (size_t i = 0; i < used; ++i) all += spread(digits_[i][octet / 8] >> (octet % 8 * 8) & 0xff) << i;
    for (const int half : {0, 1}) {
      using Numbers = int32_t __attribute__((vector_size(16)));
      const auto some = static_cast<int32_t>(all >> (half * 32));
      constexpr Numbers places = {0, 8, 16, 24};
      counts[half] = __builtin_convertvector((Numbers{some, some, some, some} >> places) & 0xff, Four);
    }
  }

 private:
  /// Eight bits, each in an octet of its own.
  static uint64_t spread(uint64_t bits) {
    const uint64_t each = bits * 0x0101010101010101 & 0x8040201008040201;  // bit i is in octet i, at place i
    return (each + 0x00406070787c7e7f) >> 7 & 0x0101010101010101;          // and is carried to the highest
  }

  std::array<Words, 8> digits_;
  uint32_t added_ = 0;
};

}  // namespace Classify
