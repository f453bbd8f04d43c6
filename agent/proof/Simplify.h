#pragma once

#include <agent/config/Model.h>
#include <agent/proof/ListAnalysis.h>
#include <agent/proof/RuleSets.h>

#include <cstdint>
#include <vector>

namespace Proof {

/// Rules of which one stands for all, as it asks for exactly what they asked for.
struct JoinedRules {
  std::vector<uint32_t> rules;  ///< ascending: the first is the number of the one that stays
};

/// A list with fewer rules in which every packet meets the same verdict, and is logged and mirrored as
/// before.
struct SimplerList {
  Config::List list;
  std::vector<RuleFinding> leftOut;  ///< in the order of the rules
  std::vector<JoinedRules> joined;   ///< in the order of the rules
};

/// Leaves out what needlessOf() says, and joins what then stands side by side: rules with the same action
/// that differ in one field, where one rule can say the same. A rule with `log`, a mirror session or
/// object-groups is joined with no other. Remarks stay: those of a rule that is left out go to the next one.
/// Each step is proven beside the rules that are left, and is one after which every packet meets the same.
/// Throws LimitReached.
SimplerList simplify(const Config::List& list, const RuleSets& sets);

}  // namespace Proof
