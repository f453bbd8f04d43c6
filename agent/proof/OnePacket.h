#pragma once

#include <agent/proof/Comparison.h>
#include <agent/proof/RuleSets.h>

#include <optional>

namespace Proof {

/// A packet of a set that passes a list, or one that does not; nothing if there is none. Such a packet is
/// most often found long before it is known which all of them are, see permitted(). Throws LimitReached.
std::optional<Packet> oneJudged(MetList list, bool passes, const PacketSet& among, const RuleSets& sets);

}  // namespace Proof
