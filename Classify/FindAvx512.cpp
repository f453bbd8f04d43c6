#include <Classify/Kernels.h>

#include "FindSteps.inc"
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

  /// See firstOf(). The lanes that are met move to the front; what they leave is filled from `none`.
  template <bool wide>
  uint32_t firstLane(const Plane* block) const {
    const __m256i lanes = planeOf(block, slotPlane);
    const __m256i none = _mm256_or_si256(lanes, _mm256_set1_epi32(noSlot));
    const auto met = static_cast<__mmask8>(meets<wide>(block));
    const __m256i moved = _mm256_mask_compress_epi32(none, met, lanes);
    return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm256_castsi256_si128(moved)));
  }
};

/// PlainSteps for sixteen packets at once.
struct Steps {
  static constexpr uint32_t atOnce = sizeof(__m512i) / sizeof(uint32_t);

  /// Those that there are of the next sixteen.
  static __mmask16 there(uint32_t count, uint32_t at) {
    return static_cast<__mmask16>(_bzhi_u32(0xffff, count - at));
  }
  static __m512i all(uint32_t number) { return _mm512_set1_epi32(static_cast<int>(number)); }

  static uint32_t choose(const uint32_t* numbers, uint32_t count, uint32_t turned, uint32_t mask,
                         uint32_t least, uint32_t* chosen) {
    constexpr int differAndMask = 0x28;  // (a ^ b) & c
    __m512i packets = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    uint32_t many = 0;
    for (uint32_t at = 0; at < count; at += atOnce) {
      const __mmask16 some = there(count, at);
      const __m512i masked = _mm512_ternarylogic_epi32(_mm512_maskz_loadu_epi32(some, numbers + at),
                                                       all(turned), all(mask), differAndMask);
      const __mmask16 taken = _mm512_mask_cmpge_epu32_mask(some, masked, all(least));
      _mm512_storeu_si512(chosen + many, _mm512_maskz_compress_epi32(taken, packets));
      many += static_cast<uint32_t>(__builtin_popcount(taken));
      packets = _mm512_add_epi32(packets, all(atOnce));
    }
    return many;
  }

  static bool any(const uint32_t* numbers, uint32_t count, uint32_t turned, uint32_t bit) {
    uint32_t have = 0;
    for (uint32_t at = 0; at < count; at += atOnce) {
      const __mmask16 some = there(count, at);
      const __m512i here = _mm512_xor_si512(_mm512_maskz_loadu_epi32(some, numbers + at), all(turned));
      have |= _mm512_mask_test_epi32_mask(some, here, all(bit));
    }
    return have != 0;
  }

  static void settle(uint32_t* lanes, uint32_t count) {
    const __m512i none = all(noSlot);
    for (uint32_t at = 0; at < count; at += atOnce) {
      const __mmask16 some = there(count, at);
      const __m512i here = _mm512_maskz_loadu_epi32(some, lanes + at);
      const __mmask16 nothing = _mm512_cmpeq_epi32_mask(_mm512_and_si512(here, none), none);
      const __m512i slots = _mm512_and_si512(here, all(~moreBlocks));
      _mm512_mask_storeu_epi32(lanes + at, some, _mm512_mask_mov_epi32(slots, nothing, none));
    }
  }
};

}  // namespace
}  // namespace Classify

#include "FindKernel.inc"

const Classify::Kernels Classify::avx512Kernels = Classify::unitKernels;
