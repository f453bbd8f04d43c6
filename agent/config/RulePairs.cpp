#include <Acl/RuleConfig.h>
#include <agent/config/RulePairs.h>
#include <agent/config/Sayings.h>

#include <algorithm>
#include <iterator>
#include <utility>
#include <variant>

namespace Config {

namespace {

using Rules = std::vector<NumberedRule>;
using Numbers = std::vector<uint32_t>;

/// The rules that say one thing, before and after; ascending by number.
struct Equals {
  Numbers before, after;
};

/// Removes from each of two ascending vectors what is in both.
Numbers takeCommon(Numbers& a, Numbers& b) {
  Numbers common, onlyA, onlyB;
  std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(common));
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(onlyA));
  std::set_difference(b.begin(), b.end(), a.begin(), a.end(), std::back_inserter(onlyB));
  a = std::move(onlyA);
  b = std::move(onlyB);
  return common;
}

void pairEquals(Equals equals, RulePairs& pairs) {
  auto& [before, after] = equals;
  if (before.size() != after.size()) {
    for (const uint32_t number : takeCommon(before, after)) pairs.stay.push_back({number, number});
  }
  const size_t stay = std::min(before.size(), after.size());
  for (size_t i = 0; i < stay; ++i) pairs.stay.push_back({before[i], after[i]});
  pairs.gone.insert(pairs.gone.end(), before.begin() + static_cast<std::ptrdiff_t>(stay), before.end());
  pairs.come.insert(pairs.come.end(), after.begin() + static_cast<std::ptrdiff_t>(stay), after.end());
}

/// By what they say, and then by number.
Rules sorted(Rules rules) {
  std::stable_sort(rules.begin(), rules.end(),
                   [](const NumberedRule& a, const NumberedRule& b) { return a.says < b.says; });
  return rules;
}

/// Takes the numbers of the rules that say this from `at` on.
Numbers takeNumbers(Rules::const_iterator& at, Rules::const_iterator end, uint32_t says) {
  Numbers numbers;
  for (; at != end && at->says == says; ++at) numbers.push_back(at->number);
  return numbers;
}

Rules allOf(const List& list, const auto& saysOf) {
  Rules rules;
  for (const auto& [number, rule] : list.rules) rules.push_back({number, saysOf(rule)});
  return rules;
}

/// When all rules of one list are in the other, under the same numbers: the rest comes, or goes.
bool pairByNumber(const List& before, const List& after, RulePairs& pairs) {
  auto old = before.rules.begin();
  auto now = after.rules.begin();
  while (old != before.rules.end() || now != after.rules.end()) {
    if (now == after.rules.end() || (old != before.rules.end() && old->first < now->first)) {
      pairs.gone.push_back((old++)->first);
    } else if (old == before.rules.end() || now->first < old->first) {
      pairs.come.push_back((now++)->first);
    } else if (isSameRule(old->second, now->second)) {
      pairs.stay.push_back({old->first, now->first});
      ++old, ++now;
    } else {
      pairs.gone.push_back((old++)->first);
      pairs.come.push_back((now++)->first);
    }
    if (!pairs.gone.empty() && !pairs.come.empty()) return false;
  }
  return true;
}

}  // namespace

RulePairs pairRules(const Rules& before, const Rules& after) {
  const Rules old = sorted(before), now = sorted(after);
  RulePairs pairs;
  auto a = old.begin();
  auto b = now.begin();
  while (a != old.end() || b != now.end()) {
    const bool ofNow = a == old.end() || (b != now.end() && b->says < a->says);
    const uint32_t says = ofNow ? b->says : a->says;
    Equals equals{takeNumbers(a, old.end(), says), takeNumbers(b, now.end(), says)};
    pairEquals(std::move(equals), pairs);
  }
  std::sort(pairs.stay.begin(), pairs.stay.end(),
            [](const RulePair& x, const RulePair& y) { return x.after < y.after; });
  std::sort(pairs.gone.begin(), pairs.gone.end());
  std::sort(pairs.come.begin(), pairs.come.end());
  return pairs;
}

RulePairs pairRules(const List& before, const List& after) {
  RulePairs pairs;
  if (pairByNumber(before, after, pairs)) return pairs;
  return Acl::withRuleType(after.type, [&](auto type) {
    using Draft = typename decltype(type)::type::Draft;
    Sayings<typename Draft::FilterType> sayings;
    const auto saysOf = [&sayings](const Rule& rule) {
      const auto& draft = std::get<Draft>(rule);
      return sayings.of(draft, draft.filter);
    };
    const Rules old = allOf(before, saysOf);
    return pairRules(old, allOf(after, saysOf));
  });
}

}  // namespace Config
