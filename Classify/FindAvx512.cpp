#include <Classify/Kernels.h>

#include "FindX86.inc"

namespace Classify {
namespace {

inline uint32_t nonZero(Part part) {
  return _mm256_test_epi64_mask(reinterpret_cast<__m256i>(part), reinterpret_cast<__m256i>(part));
}

/// Faster than AVX2 by logic of three operands and by mask registers.
class Packet : Words {
 public:
  using Words::Words;
  static Packet of(const Keys& keys, uint32_t packet) { return {keys, packet}; }

  /// A bit for each lane of a block, set where the packet matches. Ranges are compared by saturating
  /// differences: `low - number` and `number - high` are both zero when the number is in the range.
  template <bool wide>
  uint32_t meets(const Plane* block) const {
    constexpr int differsUnderMask = 0x28;  // (a ^ b) & c
    constexpr int anyOfThree = 0xfe;        // a | b | c
    const auto bits = [block](__m256i word, uint32_t value, uint32_t mask) {
      return _mm256_ternarylogic_epi32(word, planeOf(block, value), planeOf(block, mask), differsUnderMask);
    };
    __m256i differs =
        _mm256_ternarylogic_epi32(bits(first, firstValue, firstMask), bits(second, secondValue, secondMask),
                                  bits(third, thirdValue, thirdMask), anyOfThree);
    differs = _mm256_ternarylogic_epi32(differs, _mm256_subs_epu16(planeOf(block, pairLow), pair),
                                        _mm256_subs_epu16(pair, planeOf(block, pairHigh)), anyOfThree);
    if constexpr (wide) {
      differs = _mm256_or_si256(differs, _mm256_subs_epu8(planeOf(block, quadLeast), quad));
    }
    return _mm256_testn_epi32_mask(differs, differs);
  }
};

}  // namespace
}  // namespace Classify

#include "FindKernel.inc"

const Classify::Kernels Classify::avx512Kernels = Classify::unitKernels;
