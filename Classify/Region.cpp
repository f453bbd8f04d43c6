#include <Classify/Region.h>

namespace Classify {

uint64_t gatherBits(uint64_t bits, uint64_t mask) {
  uint64_t gathered = 0;
  for (uint64_t place = 1; mask; mask &= mask - 1, place <<= 1) {
    if (bits & mask & -mask) gathered |= place;
  }
  return gathered;
}

uint64_t scatterBits(uint64_t gathered, uint64_t mask) {
  uint64_t bits = 0;
  for (; mask; mask &= mask - 1, gathered >>= 1) {
    if (gathered & 1) bits |= mask & -mask;
  }
  return bits;
}

}  // namespace Classify
