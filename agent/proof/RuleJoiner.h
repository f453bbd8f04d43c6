#pragma once

#include <agent/config/Model.h>
#include <agent/proof/Boxes.h>
#include <agent/proof/RuleSets.h>
#include <agent/proof/Simplify.h>

#include <cstdint>
#include <map>
#include <vector>

namespace Proof {

/// Joins rules of a list, see simplify(). The order of rules between which no other action stands makes no
/// difference, so they are joined wherever they stand among each other.
class RuleJoiner {
 public:
  /// Works on the list itself.
  RuleJoiner(Config::List& list, const RuleSets& sets);

  std::vector<JoinedRules> run();

 private:
  /// A rule that others may be joined with.
  struct Part {
    uint32_t sequence = 0;
    PacketSet asked;
    Value first;  ///< the lowest value that it asks for in the field that is looked at
  };
  using Parts = std::vector<Part>;

  bool joinRun(const std::vector<uint32_t>& run);
  bool joinAlike(const std::vector<uint32_t>& alike, Field field);
  bool join(Part& into, const Part& other, Field field);

  Config::List& list_;
  const RuleSets& sets_;
  LooseBits loose_;
  std::map<uint32_t, std::vector<uint32_t>> joined_;  // the others, by the number of the one that stays
};

}  // namespace Proof
