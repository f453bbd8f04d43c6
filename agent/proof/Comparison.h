#pragma once

#include <agent/config/Model.h>
#include <agent/proof/Boxes.h>
#include <agent/proof/RuleSets.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Proof {

/// A list that packets meet at a place; null: none is bound there, or it is not defined, and all packets
/// pass.
using MetList = const Config::List*;

/// The rules of a list that decide about some packets, in their order; 0 stands behind them for what matches
/// no rule, and alone for a list that is not there.
using Deciding = std::vector<uint32_t>;

/// Packets that meet something else in one list than in another.
struct ChangedBox {
  std::string words;  ///< as readCondition() takes it
  Deciding before, after;
  Packet example;
};
struct Changed {
  std::vector<ChangedBox> boxes;  ///< those with the same rules behind each other
  bool more = false;              ///< there are more than were asked for
  bool any() const { return !boxes.empty() || more; }
};

/// What becomes of packets when one list stands in the place of another. Packets that are opened or closed
/// are told as that only, even if they are also mirrored, logged or counted in another way.
struct ListComparison {
  Changed opened;    ///< dropped before, passed after
  Changed closed;    ///< passed before, dropped after
  Changed mirrored;  ///< copied to another session, or no longer, or only now
  Changed logged;    ///< matched by a rule with `log` before or after, and not both
  Changed counted;   ///< counted by a rule that is none of the list before
  bool sameVerdicts() const { return !opened.any() && !closed.any(); }
  bool isSame() const { return sameVerdicts() && !mirrored.any() && !logged.any() && !counted.any(); }
};

/// Compares two lists of the kind of the sets; each change in at most so many boxes. Throws LimitReached.
ListComparison compare(MetList before, MetList after, const RuleSets& sets, size_t most);

/// The packets of a set that pass a list; of all lists of a place those that pass each.
PacketSet permitted(MetList list, const PacketSet& set, const RuleSets& sets);

}  // namespace Proof
