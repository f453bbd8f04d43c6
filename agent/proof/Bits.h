#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Proof {

/// A value for every bit of a packet, in the order of the variables; those that its kind does not have are 0.
class Bits {
 public:
  /// IPv6 packets have 349.
  static constexpr size_t words = 6;

  constexpr bool get(unsigned bit) const { return (word[bit / 64] >> (bit % 64) & 1) != 0; }
  constexpr void set(unsigned bit, bool value = true) {
    const uint64_t place = uint64_t{1} << (bit % 64);
    value ? word[bit / 64] |= place : word[bit / 64] &= ~place;
  }
  bool operator==(const Bits&) const = default;

  std::array<uint64_t, words> word{};
};

/// All assignments of bits that agree with a value where a mask is set.
struct Cube {
  Bits value;  ///< 0 where the mask is
  Bits mask;

  /// Whether an assignment is in it.
  bool has(const Bits& bits) const {
    for (size_t i = 0; i < Bits::words; ++i) {
      if (((bits.word[i] ^ value.word[i]) & mask.word[i]) != 0) return false;
    }
    return true;
  }
  /// Whether there is an assignment in both.
  bool meets(const Cube& other) const {
    for (size_t i = 0; i < Bits::words; ++i) {
      if (((value.word[i] ^ other.value.word[i]) & mask.word[i] & other.mask.word[i]) != 0) return false;
    }
    return true;
  }
  /// Whether all assignments in another one are in this one.
  bool covers(const Cube& other) const {
    for (size_t i = 0; i < Bits::words; ++i) {
      if ((mask.word[i] & ~other.mask.word[i]) != 0) return false;
    }
    return meets(other);
  }
};

/// The smallest cube around a set that is not empty.
struct Hull {
  Cube cube;
  bool exact = false;  ///< the set is the cube
};

}  // namespace Proof
