#pragma once

#include <span>
#include <vector>

#include "classbench/Dice.h"
#include "classbench/Packets.h"

namespace Bench {

using Tuples = std::vector<TupleRule>;
using Headers = std::vector<TupleHeader>;

/// Rules of every shape.
inline constexpr size_t shapeSize = 1000;

/// Rules that work against the structure of a compiled list.
struct Shape {
  const char* name;
  Tuples (*rules)(Dice&);
  void (*also)(Dice&, std::vector<Acl::IpRule>&) = nullptr;  ///< what five fields cannot say
};
std::span<const Shape> shapes();

/// Headers that are inside of a rule but for one bit of an address or the next port: few meet anything, and
/// all have to be followed to the end.
Headers nearMisses(const Tuples& rules, size_t count, uint64_t seed);

/// Moves packets to where the addresses of rules now are.
void addressesAre(Dice& dice, const std::vector<Acl::IpRule>& rules, std::vector<IpPacket>& packets);

}  // namespace Bench
