#include <agent/change/ListEdit.h>
#include <agent/config/Nearest.h>
#include <agent/config/Statements.h>
#include <agent/core/Words.h>
#include <fmt/format.h>

#include <iterator>
#include <variant>

namespace Agent {

ListEdit::~ListEdit() {
  std::map<uint32_t, Config::Spot> moved;
  for (const auto& [from, to] : renumbered_) {
    if (const auto place = places_.extract({key_, from})) moved.emplace(to, place.mapped());
  }
  for (const auto& [number, place] : moved) places_.insert_or_assign({key_, number}, place);
}

bool ListEdit::readRuleNumber(uint32_t* number) {
  const size_t place = at_.position();
  if (!at_.number(Config::aNumber, 1, Config::highestNumber, number)) return false;
  return rules_.contains(*number) || at_.failAt(place, "the number of a rule of the list");
}

bool ListEdit::move() {
  uint32_t from = 0, to = 0;
  if (!readRuleNumber(&from)) return false;
  const bool before = at_.takeIf("before");
  if (!before && !at_.takeIf("after")) return failNear(at_, "before or after", {"before", "after"});
  const size_t place = at_.position();
  if (!readRuleNumber(&to) || !at_.end()) return false;
  if (from == to) return at_.failAt(place, "another rule than the one that moves");
  return moveBetween(place, from, before, rules_.find(to));
}

bool ListEdit::resequence() {
  uint32_t number = 10, step = 10;
  const size_t place = at_.position();
  if (!at_.atEnd() && !at_.number("the first number", 1, Config::highestNumber, &number)) return false;
  if (!at_.atEnd() && !at_.number("the step between numbers", 1, Config::highestNumber, &step)) return false;
  if (!at_.end()) return false;
  if (!rules_.empty() && (Config::highestNumber - number) / step < rules_.size() - 1) {
    return at_.failAt(place, fmt::format("numbers that leave the last of {} at {} or below",
                                         countText(rules_.size(), "rule"), Config::highestNumber));
  }
  Rules all;
  all.swap(rules_);
  for (uint32_t next = number; !all.empty(); next += step) renumber(all.extract(all.begin()), next);
  return true;
}

/// Moves a rule to the place in front of or behind another one, without regard to itself.
bool ListEdit::moveBetween(size_t place, uint32_t from, bool before, Rules::iterator to) {
  const auto isMoved = [&](Rules::iterator rule) { return rule != rules_.end() && rule->first == from; };
  uint64_t low = 0, high = 0;  // the numbers beside the place
  if (before) {
    high = to->first;
    while (to != rules_.begin() && isMoved(std::prev(to))) --to;
    low = to == rules_.begin() ? 0 : std::prev(to)->first;
  } else {
    low = to->first;
    if (isMoved(++to)) ++to;
    high = to == rules_.end() ? low + 20 : to->first;
  }
  if (low < from && from < high) return true;  // it is there
  const uint64_t number = low + (high - low) / 2;
  if (number == low || number > Config::highestNumber) {
    return at_.failAt(place,
                      fmt::format("a place with a free number: none is left {} {} (resequence makes room)",
                                  before ? "before" : "after", before ? high : low));
  }
  renumber(rules_.extract(from), static_cast<uint32_t>(number));
  return true;
}

void ListEdit::renumber(Rules::node_type&& rule, uint32_t number) {
  renumbered_.emplace(rule.key(), number);
  std::visit([number](auto& one) { one.sequence = number; }, rule.mapped());
  rule.key() = number;
  rules_.insert(std::move(rule));
}

}  // namespace Agent
