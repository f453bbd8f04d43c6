#pragma once

#include <agent/proof/RuleSets.h>

#include <vector>

namespace Proof {

/// VLANs, and a packet: with each of these VLANs it is in a set.
struct InVlans {
  Runs vlans;
  Packet packet;
};

/// All VLANs that packets of a set have, each once.
std::vector<InVlans> vlansOf(PacketSet set, const RuleSets& sets);

/// The packets with one of the VLANs, of all assignments.
PacketSet withVlans(const std::vector<InVlans>& vlans, const RuleSets& sets);

}  // namespace Proof
