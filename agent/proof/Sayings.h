#pragma once

#include <agent/config/Model.h>
#include <agent/proof/ListAnalysis.h>
#include <agent/proof/RuleSets.h>
#include <agent/warnings/Warning.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Proof {

/// What people are warned of about a list.
struct Saying {
  Agent::WarningCode code;
  uint32_t sequence = 0;  ///< of the rule that it is about; 0: the list as a whole
  /// What stands behind the title of the list: "rule 30 denies, but rules 10 and 20 permit all of it".
  std::string text;
  std::string example;       ///< a packet as exampleText() gives it; empty: there is none
  std::vector<uint32_t> by;  ///< the other rules that it comes from, in their order
};

struct Sayings {
  std::vector<Saying> all;  ///< in the order of the rules, what is about the list behind them
  std::string cutOff;       ///< what was not looked at because of a limit; empty: nothing
};

/// What is told of a list.
enum class Say : uint8_t {
  oddities,  ///< what is probably not meant
  partsToo,  ///< and of which rules earlier ones take a part, which is often meant
};

/// Analyses a list, and puts in words what is probably not meant. A last rule that denies is no news though
/// nothing changes without it: it is written for its counter.
Sayings sayingsOf(const Config::List& list, const Limits& limits, Say say = Say::oddities,
                  const Kiv::Clock& clock = Kiv::steadyClock());

}  // namespace Proof
