#pragma once

#include <Classify/Form.h>

namespace Classify {

/// A unit's kernels.
struct Kernels {
  /// The slot of the first rule, in the order of trial, that a packet meets; noSlot when there is none. The
  /// packet is a Key, in registers: `upper` and `lower` are its bits.
  uint32_t (*find)(const View& view, uint64_t upper, uint64_t lower, uint32_t quad,
                   const Questions& questions, const void* context);
  /// The same for a packet with long addresses, two of 16 octets as they lie in a packet.
  uint32_t (*findLong)(const View& view, const uint8_t* addresses, uint64_t lower, uint32_t quad,
                       const Questions& questions, const void* context);
  /// What findLong() makes the three words, of which the third is given.
  void (*project)(const Projection& projection, const uint8_t* addresses, uint32_t (&words)[3]);
};

/// What kernels are made for. `portable` runs everywhere.
enum class Unit { portable, avx2, avx512 };

/// The kernels for a unit; null when this processor, or this build, has no such unit.
const Kernels* kernelsOf(Unit unit);
/// Those in use: the best that this processor has, unless VELO_CLASSIFY in the environment names others
/// (portable, avx2). Tests and benchmarks may set it between look-ups.
extern const Kernels* kernels;

}  // namespace Classify
