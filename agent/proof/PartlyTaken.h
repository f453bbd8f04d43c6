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
  std::vector<uint32_t> by;  ///< the earlier rules, in their order: each takes some
  Boxes taken, left;         ///< neither is empty
  Packet example;            ///< one that is taken
};

/// Calls `tell` for each such rule of a list, in their order, with at most so many boxes of each part. Throws
/// LimitReached.
void forEachPartlyTaken(const Config::List& list, const RuleSets& sets, size_t mostBoxes,
                        const std::function<void(const PartlyTaken&)>& tell);

}  // namespace Proof
