#include <Classify/Kernels.h>

#include "FindSteps.inc"

// Uses the compiler's generic vectors, which it turns into instructions of any processor.

namespace Classify {
namespace {

using Words = uint32_t __attribute__((vector_size(16)));
using Numbers = uint16_t __attribute__((vector_size(16)));
using Octets = uint8_t __attribute__((vector_size(16)));
using Part = uint64_t __attribute__((vector_size(16), may_alias));

inline uint32_t nonZero(Part part) { return uint32_t{part[0] != 0} | uint32_t{part[1] != 0} << 1; }
constexpr uint32_t lanesAtOnce = sizeof(Words) / sizeof(uint32_t);

constexpr bool gathersAtOnce = false;
/// Gathers the bits of a word that are under a mask into the lowest bits.
inline uint64_t gather(uint64_t bits, uint64_t mask) {
  uint64_t gathered = 0;
  int at = 0;
  while (mask) {
    const int skip = __builtin_ctzll(mask);
    bits >>= skip;
    mask >>= skip;
    const int run = ~mask ? __builtin_ctzll(~mask) : 64;
    if (run == 64) return bits;
    gathered |= (bits & ((uint64_t{1} << run) - 1)) << at;
    at += run;
    bits >>= run;
    mask >>= run;
  }
  return gathered;
}

/// A packet's words, each repeated in every lane.
class Packet {
 public:
  explicit Packet(const Key& key)
      : first_(Words{} + static_cast<uint32_t>(key.bits[0] >> 32)),
        second_(Words{} + static_cast<uint32_t>(key.bits[0])),
        third_(Words{} + static_cast<uint32_t>(key.bits[1])),
        pair_(Words{} + static_cast<uint32_t>(key.bits[1] >> 32)),
        quad_(Words{} + key.quad) {}

  static Packet of(const Keys& keys, uint32_t packet) { return Packet(keys.key(packet)); }

  /// A bit for each lane of a block, set where the packet matches.
  template <bool wide>
  uint32_t meets(const Plane* block) const {
    uint32_t met = 0;
    for (uint32_t lane = 0; lane < Plane::lanes; lane += lanesAtOnce) {
      const Words differs = differences<wide>(block, lane);
      for (uint32_t i = 0; i < lanesAtOnce; ++i) met |= static_cast<uint32_t>(differs[i] == 0) << (lane + i);
    }
    return met;
  }

  /// See firstOf().
  template <bool wide>
  uint32_t firstLane(const Plane* block) const {
    return firstOf(block, meets<wide>(block));
  }

 private:
  /// Zero in the lanes where the packet matches.
  template <bool wide>
  Words differences(const Plane* block, uint32_t lane) const {
    const auto words = [block, lane](uint32_t plane) {
      Words loaded;
      __builtin_memcpy(&loaded, block[plane].lane + lane, sizeof loaded);
      return loaded;
    };
    const auto pair = (Numbers)pair_;
    const auto outside = ((Numbers)words(pairLow) > pair) | (pair > (Numbers)words(pairHigh));
    Words differs = ((first_ ^ words(firstValue)) & words(firstMask)) |
                    ((second_ ^ words(secondValue)) & words(secondMask)) |
                    ((third_ ^ words(thirdValue)) & words(thirdMask)) | (Words)outside;
    if constexpr (wide) {
      differs |= (Words)((Octets)words(quadLeast) > (Octets)quad_);
    }
    return differs;
  }

  Words first_, second_, third_, pair_, quad_;
};

using Steps = PlainSteps;

}  // namespace
}  // namespace Classify

#include "FindKernel.inc"

const Classify::Kernels Classify::portableKernels = Classify::unitKernels;
