#include <Classify/Kernels.h>

#include "FindSteps.inc"
#include "FindX86.inc"

namespace Classify {
namespace {

inline uint32_t nonZero(Part part) {
  const __m256d zeros = _mm256_castsi256_pd(reinterpret_cast<__m256i>(part == 0));
  return ~static_cast<uint32_t>(_mm256_movemask_pd(zeros)) & 15;
}

class Packet : Words {
 public:
  using Words::Words;
  static Packet of(const Keys& keys, uint32_t packet) { return {keys, packet}; }

  /// A bit for each lane of a block, set where the packet matches. Ranges are compared by saturating
  /// differences: `low - number` and `number - high` are both zero when the number is in the range.
  template <bool wide>
  uint32_t meets(const Plane* block) const {
    const auto bits = [block](__m256i word, uint32_t value, uint32_t mask) {
      return _mm256_and_si256(_mm256_xor_si256(word, planeOf(block, value)), planeOf(block, mask));
    };
    __m256i differs = _mm256_or_si256(
        _mm256_or_si256(bits(first, firstValue, firstMask), bits(second, secondValue, secondMask)),
        _mm256_or_si256(bits(third, thirdValue, thirdMask),
                        _mm256_or_si256(_mm256_subs_epu16(planeOf(block, pairLow), pair),
                                        _mm256_subs_epu16(pair, planeOf(block, pairHigh)))));
    if constexpr (wide) {
      differs = _mm256_or_si256(differs, _mm256_subs_epu8(planeOf(block, quadLeast), quad));
    }
    const __m256i met = _mm256_cmpeq_epi32(differs, _mm256_setzero_si256());
    return static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(met)));
  }

  /// See firstOf().
  template <bool wide>
  uint32_t firstLane(const Plane* block) const {
    return firstOf(block, meets<wide>(block));
  }
};

using Steps = PlainSteps;

}  // namespace
}  // namespace Classify

#include "FindKernel.inc"

const Classify::Kernels Classify::avx2Kernels = Classify::unitKernels;
