#pragma once

#include <agent/config/Model.h>
#include <agent/proof/Boxes.h>
#include <agent/proof/RuleSets.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace Proof {

/// A rule that gets a part of what it asks for; earlier rules take the other one.
struct PartlyTaken {
  uint32_t sequence = 0;
  /// The earlier rules, in their order: each takes some. Where very many may, the first one only.
  std::vector<uint32_t> by{};
  size_t others = 0;     ///< so many more that may take some were not looked at
  Boxes taken{};         ///< what those of `by` take, not empty
  Boxes left{};          ///< what is left; none when others were not looked at
  Packet example{};      ///< one that is taken
  Packet exampleLeft{};  ///< one that is left
};

/// Calls `tell` for each such rule of a list, in their order, with at most so many boxes of each part, until
/// it returns false. Throws LimitReached.
void forEachPartlyTaken(const Config::List& list, const RuleSets& sets, size_t mostBoxes,
                        const std::function<bool(const PartlyTaken&)>& tell);

}  // namespace Proof
