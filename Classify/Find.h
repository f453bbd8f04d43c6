#pragma once

#include <Classify/Form.h>

namespace Classify {

/// A unit's kernels. A packet comes as a Key in registers, `upper` and `lower` being its bits; in the long
/// form with two addresses of 16 octets, as they lie in a packet, instead of `upper`.
struct Kernels {
  using Find = uint32_t(const View& view, uint64_t upper, uint64_t lower, uint32_t quad);
  using FindLong = uint32_t(const View& view, const uint8_t* addresses, uint64_t lower, uint32_t quad);
  using FindBurst = void(const View& view, const Keys& keys, uint32_t count, uint32_t* found);
  using Project = uint64_t(const View& view, const uint8_t* addresses, uint64_t& lower);
  using Search = uint32_t(const View& view, uint64_t upper, uint64_t lower, uint32_t quad,
                          const Questions& questions, const void* context);
  using SearchLong = uint32_t(const View& view, const uint8_t* addresses, uint64_t lower, uint32_t quad,
                              const Questions& questions, const void* context);

  /// The quick look-up, by shape: the slot of the first rule in the order of trial that matches the packet,
  /// or noSlot. With askBit the answer is not sure.
  Find* find[shapes];
  FindLong* findLong[shapes];
  /// The same for up to burstMost packets. One for blocks without the quad, one for blocks with it; each is
  /// for all other differences of shape.
  FindBurst* findBurst[2];
  /// The upper bits of the key of a packet in the long form; sets the projection's bits in `lower`.
  Project* project;
  /// The thorough look-up: asks about every inexact rule on its way. Its answer is sure.
  Search* search;
  SearchLong* searchLong;
  /// Whether bits are gathered, as every node needs it, by one instruction; otherwise a loop does it.
  bool gathersAtOnce;
};

/// What kernels are made for. `portable` runs everywhere.
enum class Unit { portable, avx2, avx512 };

/// The kernels for a unit; null when this processor, or this build, has no such unit.
const Kernels* kernelsOf(Unit unit);
/// Those in use: the best that this processor has, unless VELO_CLASSIFY in the environment names others
/// (portable, avx2). Tests and benchmarks may set it between look-ups.
extern const Kernels* kernels;

}  // namespace Classify
