#include <Classify/Kernels.h>
#include <immintrin.h>

namespace Classify {
namespace {

inline uint64_t gather(uint64_t bits, uint64_t mask) { return _pext_u64(bits, mask); }

/// A packet's words, each in every lane.
class Packet {
 public:
  explicit Packet(const Key& key)
      : first_(inEveryLane(key.bits[0] >> 32)),
        second_(inEveryLane(key.bits[0])),
        third_(inEveryLane(key.bits[1])),
        pair_(inEveryLane(key.bits[1] >> 32)),
        quad_(inEveryLane(key.quad)) {}

  /// A bit for each lane of a block that the packet meets. A saturating difference is zero where the smaller
  /// number is taken from the larger: inside a range both are.
  template <bool wide>
  uint32_t meets(const Plane* block) const {
    const auto words = [block](uint32_t plane) {
      return _mm256_load_si256(reinterpret_cast<const __m256i*>(block + plane));
    };
    const auto bits = [&words](__m256i word, uint32_t value, uint32_t mask) {
      return _mm256_and_si256(_mm256_xor_si256(word, words(value)), words(mask));
    };
    __m256i differs = _mm256_or_si256(
        _mm256_or_si256(bits(first_, firstValue, firstMask), bits(second_, secondValue, secondMask)),
        _mm256_or_si256(bits(third_, thirdValue, thirdMask),
                        _mm256_or_si256(_mm256_subs_epu16(words(pairLow), pair_),
                                        _mm256_subs_epu16(pair_, words(pairHigh)))));
    if constexpr (wide) {
      differs = _mm256_or_si256(differs, _mm256_or_si256(_mm256_subs_epu8(words(quadLow), quad_),
                                                         _mm256_subs_epu8(quad_, words(quadHigh))));
    }
    const __m256i met = _mm256_cmpeq_epi32(differs, _mm256_setzero_si256());
    return static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(met)));
  }

 private:
  static __m256i inEveryLane(uint64_t word) { return _mm256_set1_epi32(static_cast<int>(word)); }

  __m256i first_, second_, third_, pair_, quad_;
};

}  // namespace
}  // namespace Classify

#include "FindKernel.inc"

namespace Classify {

uint32_t findAvx2(const View& view, uint64_t upper, uint64_t lower, uint32_t quad, const Questions& questions,
                  const void* context) {
  return findFirst(view, {{upper, lower}, quad}, questions, context);
}

uint32_t findLongAvx2(const View& view, const uint8_t* addresses, uint64_t lower, uint32_t quad,
                      const Questions& questions, const void* context) {
  const uint64_t upper = projected(view.projection, addresses, lower);
  return findFirst(view, {{upper, lower}, quad}, questions, context);
}

void projectAvx2(const Projection& projection, const uint8_t* addresses, uint32_t (&words)[3]) {
  uint64_t third = words[2];
  const uint64_t both = projected(projection, addresses, third);
  words[0] = static_cast<uint32_t>(both >> 32);
  words[1] = static_cast<uint32_t>(both);
  words[2] = static_cast<uint32_t>(third);
}

}  // namespace Classify
