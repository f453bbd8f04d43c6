#pragma once

#include <agent/config/Model.h>
#include <agent/proof/RuleSets.h>

#include <cstdint>
#include <functional>
#include <set>

namespace Proof {

/// Whether all that a rule would match without `established` is permitted in front of it: then connections
/// come in that it is to keep out. The rule asks for `established`.
bool isPermittedBefore(const Config::List& list, const RuleSets& sets, uint32_t sequence);

/// Later fragments have no ports, so a rule that denies by port does not match them.
struct Slip {
  uint32_t denied = 0;  ///< the rule
  uint32_t passed = 0;  ///< the rule that permits later fragments of such packets
  Packet example;       ///< one of them
};
/// Calls `tell` for each such rule of a list, in their order; those in `dead` never match and are left out.
/// Throws LimitReached.
void forEachSlip(const Config::List& list, const RuleSets& sets, const std::set<uint32_t>& dead,
                 const std::function<void(const Slip&)>& tell);

}  // namespace Proof
