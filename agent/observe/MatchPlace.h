#pragma once

#include <Acl/Counters.h>
#include <Nimnet/IntfId.h>
#include <Velo/PacketContext.h>
#include <agent/forward/Forwarder.h>

#include <array>
#include <cstdint>

namespace Agent {

/// Finds the interface of a match, which a counter does not know: by the order in which lists are asked, the
/// port-channel before its member, on each the MAC list before the IP list. A list that is bound to both
/// judges a packet twice. Core and forwarder outlive it.
class MatchPlace {
 public:
  MatchPlace(const Core& core, const Forwarder& forwarder) : core_(core), forwarder_(forwarder) {}

  /// The interface of the match that this counter has just counted, for the packet that the forwarder is
  /// working on. To be called once for each match. The empty id when no binding of a port-channel or its
  /// member explains the match.
  Nimnet::IntfId of(const Velo::Counter::VeloDpAclCounterKey& key);

 private:
  /// How far the lists of one direction have been asked for one packet, on its way out at one port.
  struct Progress {
    uint64_t packet = 0;
    Nimnet::IntfId port{};
    unsigned stage = 0;  ///< the number of the interface times two, plus one when its MAC list was asked
  };

  /// `interfaces`: the port-channel and its member.
  Nimnet::IntfId ofMember(const Velo::Counter::VeloDpAclCounterKey& key,
                          const std::array<Nimnet::IntfId, 2>& interfaces);

  const Core& core_;
  const Forwarder& forwarder_;
  Progress progress_[2];  // by direction
};

}  // namespace Agent
