#pragma once

#include <agent/change/Effective.h>
#include <agent/proof/Comparison.h>
#include <agent/proof/VlansOf.h>

#include <array>
#include <string>
#include <vector>

namespace Agent {

/// The lists that packets meet: those on the way from one port to another, or one alone.
class PacketWay {
 public:
  /// Places in the order in which packets come to them: of each port behind the port-channel that it is a
  /// member of. At a place MAC lists are asked before the others.
  static constexpr size_t places = 4;
  using Lists = std::array<Proof::MetList, places>;  ///< null: none

  /// Without one of the ports only the lists of the other are met.
  PacketWay(const Effective& effective, const std::string& from, const std::string& to);
  /// One list alone; null: none.
  explicit PacketWay(Proof::MetList list);

  const Lists& lists(Acl::AclType type) const { return lists_[static_cast<size_t>(type)]; }

 private:
  Lists& listsOf(Acl::AclType type) { return lists_[static_cast<size_t>(type)]; }
  void add(const Effective& effective, const std::string& port, Acl::AclDirection direction, size_t place);

  std::array<Lists, 3> lists_{};  ///< by kind
};

/// What the lists of another kind do to the frames that carry packets. IP lists and MAC lists look at
/// different fields of them, and share only the VLAN: so this is all that needs to be known.
struct Beside {
  Acl::AclType type;  ///< of these lists
  /// For the packet of some VLANs there is a frame with that VLAN that passes all of them, or one that does
  /// not.
  std::vector<Proof::InVlans> passing, dropped;
};
using Besides = std::vector<Beside>;

/// Of packets that lists of a kind are asked about, before a place or, with `places`, on the whole way. What
/// drops no such packet is left out. No RuleSets live besides. Throws Proof::LimitReached.
Besides besidesOf(const PacketWay& way, Acl::AclType type, size_t place, const Proof::Limits& limits);

/// Those of some packets that the others let pass, or drop, with some frame around them.
Proof::PacketSet passingAmong(const Besides& besides, const Proof::PacketSet& among,
                              const Proof::RuleSets& sets);
Proof::PacketSet droppedAmong(const Besides& besides, const Proof::PacketSet& among,
                              const Proof::RuleSets& sets);

/// A packet as exampleText() gives it, with a frame around it that the others let pass, or drop, where it
/// makes a difference to them.
std::string exampleIn(const Besides& besides, bool passes, Acl::AclType type, const Proof::Packet& packet);

}  // namespace Agent
