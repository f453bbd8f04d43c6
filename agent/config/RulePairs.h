#pragma once

#include <agent/config/Model.h>

#include <cstdint>
#include <vector>

namespace Config {

/// A rule as it is paired: by its number and by what it says. Two rules say the same when they differ in
/// nothing but number, remark and spelling; then they have the same `says` (see Sayings).
struct NumberedRule {
  uint32_t number;
  uint32_t says;
};

/// A rule that stays, under the same number or another one.
struct RulePair {
  uint32_t before;
  uint32_t after;

  bool operator==(const RulePair&) const = default;
};

/// What becomes of the rules of a list when other ones replace them, by their numbers. Every number before is
/// in `stay` or in `gone`, and every number after in `stay` or in `come`. All of them are ascending, `stay`
/// by the number after.
struct RulePairs {
  std::vector<RulePair> stay;
  std::vector<uint32_t> gone;
  std::vector<uint32_t> come;
};

/// Pairs rules that say the same. Of rules that say the same several times in a list, as many before as after
/// stay in their order; if there are not as many, those that keep their numbers stay first, then the others
/// in their order. Both arguments are ascending by number.
RulePairs pairRules(const std::vector<NumberedRule>& before, const std::vector<NumberedRule>& after);

/// The same for two lists of one type.
RulePairs pairRules(const List& before, const List& after);

}  // namespace Config
