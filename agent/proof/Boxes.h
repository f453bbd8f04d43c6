#pragma once

#include <agent/config/Model.h>
#include <agent/proof/RuleSets.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Proof {

/// Packets in one line that reads like the fields of a rule.
struct Box {
  std::string words;  ///< as readCondition() takes it
  PacketSet packets;  ///< what it says
};

/// The bits of addresses that boxes may leave out although lower ones are asked for.
struct LooseBits {
  Value source{}, destination{};

  /// Those that the wildcards of a list leave out so: boxes are then written in the same way.
  void add(const Config::List& list);
  /// Those of one rule of such lists.
  void add(Acl::AclType type, const Config::Rule& rule);
};

/// The boxes of a set of packets, which are all of it together and nothing else. Boxes may overlap: each is
/// as large as it can be. Greedy, so that there are few of them, not the fewest.
struct Boxes {
  std::vector<Box> all;
  bool more = false;  ///< there are more of them than were asked for
};
/// At most so many. The set is what rules can tell apart.
Boxes boxesOf(const PacketSet& set, const RuleSets& sets, const LooseBits& loose, size_t most);
/// The box that is all of a set which is not empty; nothing if there is none.
std::optional<Box> wholeBoxOf(const PacketSet& set, const RuleSets& sets, const LooseBits& loose);

}  // namespace Proof
