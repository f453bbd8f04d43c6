#pragma once

#include <agent/proof/Comparison.h>
#include <agent/proof/RuleSets.h>

#include <cstdint>
#include <optional>

namespace Proof {

// One packet is most often found long before it is known which all of them are, as permitted() and takenBy()
// say it. Nothing: there is none. They throw LimitReached.

/// A packet of a set that passes a list, or one that does not.
std::optional<Packet> oneJudged(MetList list, bool passes, const PacketSet& among, const RuleSets& sets);
/// A packet of a set that a rule of a list decides about.
std::optional<Packet> oneTaken(const Config::List& list, uint32_t sequence, const PacketSet& among,
                               const RuleSets& sets);

}  // namespace Proof
