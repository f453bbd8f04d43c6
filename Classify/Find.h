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

  /// By shape, quick: the slot of the first rule, in the order of trial, that the packet meets; noSlot when
  /// there is none; with askBit when that is not sure.
  Find* find[shapes];
  FindLong* findLong[shapes];
  /// The same of up to burstMost packets, whatever the shape, but for whether blocks hold the quad.
  FindBurst* findBurst[2];
  /// The upper bits of a packet in the long form; adds to the lower ones.
  Project* project;
  /// Thorough: asks whatever is to be asked, and is sure.
  Search* search;
  SearchLong* searchLong;
  /// Whether gathering bits, which is the way through a node, is an instruction and not a loop.
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
