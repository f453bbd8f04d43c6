#pragma once

#include <Velo/Burst.h>
#include <agent/forward/Port.h>

#include <array>

namespace Agent {

/// What is to become of the packets of a burst, found out before anything is done with the first of them: the
/// parts of Forwarder::receiveBurst() share it.
///
/// Packets are handled in order. Of one that is `alone` somebody may be told; he may look at everything, and
/// change everything. So all packets before it are finished first, then it takes the usual way, and what is
/// planned of the packets behind it is only done if it still holds. Between two such packets nobody looks:
/// there the steps handle all packets before the next step does.
struct BurstPlan {
  explicit BurstPlan(Kelp::Ptr<Velo::VeloNamedCounters> namedCounters) : packets(std::move(namedCounters)) {}

  Velo::PacketBurst packets;
  Velo::BurstForms in, out;
  Velo::PacketSet alone = 0;
  Velo::PacketSet droppedIn = 0;
  Velo::PacketSet droppedOut = 0;
  /// Of packets that are neither alone nor dropped on their way in; null: they go nowhere.
  std::array<Port*, Velo::PacketBurst::most> egress{};
  uint64_t wiring = 0;  ///< what egress was found by; see Forwarder
};

}  // namespace Agent
