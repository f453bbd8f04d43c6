#pragma once

#include <agent/config/Model.h>
#include <agent/proof/RuleSets.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Proof {

/// What is odd about a rule. A rule that never matches is not called redundant besides.
enum class Oddity : uint8_t {
  impossible,  ///< what it asks for contradicts itself: no packet is like that
  covered,     ///< earlier rules take all that it asks for
  redundant,   ///< what it takes meets the same verdict without it
};

struct RuleFinding {
  uint32_t sequence = 0;
  Oddity oddity = Oddity::impossible;
  /// Of a covered rule: the earlier rules that take what it asks for, in their order. Each takes a part.
  /// Where very many may take some, a few that ask for all of it together stand for them, and one with the
  /// other action if there is any.
  std::vector<uint32_t> by;
  bool otherAction = false;  ///< one of them does not do what this rule would
  /// Of a covered rule a packet that it asks for, of a redundant one a packet that it takes; else nothing.
  Packet example;
};

struct ListFindings {
  std::vector<RuleFinding> rules;  ///< in the order of the rules
  bool passesAll = false;
  bool passesNothing = false;
  /// A packet that passes, of a list that passes all; one that is dropped, of one that passes nothing.
  Packet example;
  /// How many rules were judged: all, if no limit was reached. Else nothing is said of the list as a whole.
  size_t judged = 0;
  std::string cutOff;  ///< the limit that was reached, as a sentence; empty: none
};

/// The rules that a list can do without, all together and one after the other as they stand here: what never
/// matches, and what changes nothing for any packet, neither its verdict nor what is logged or mirrored.
/// Rules with `log` or a mirror session are among them only when they never match, and a last rule that
/// denies is not, as it is written for its counter. Throws LimitReached.
std::vector<RuleFinding> needlessOf(const Config::List& list, const RuleSets& sets);

/// Says it of every rule of a list. `sets` were made for lists of its kind; with them nothing more can be
/// done when the findings are cut off.
ListFindings analyse(const Config::List& list, const RuleSets& sets);

}  // namespace Proof
