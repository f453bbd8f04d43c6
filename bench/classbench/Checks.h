#pragma once

#include <fmt/format.h>

#include <string>
#include <vector>

#include "classbench/Ours.h"
#include "classbench/Run.h"

namespace Bench {

/// Throws WrongAnswer for the first answer that is not the expected one. `answer` takes the number of a
/// header.
template <class Answer>
void check(const std::string& who, const std::string& where, const std::vector<int32_t>& expected,
           const Answer& answer) {
  for (size_t i = 0; i < expected.size(); ++i) {
    const int32_t found = answer(i);
    if (found == expected[i]) continue;
    throw WrongAnswer(
        fmt::format("{}: {}: header {}: rule {} instead of {}", where, who, i, found, expected[i]));
  }
}

/// The same against the matcher that tries the rules in order, for rules that are more than five fields.
template <class Rule>
void checkInOrder(const std::string& where, const OurList<Rule>& list,
                  const std::vector<PacketOf<Rule>>& packets) {
  for (size_t i = 0; i < packets.size(); ++i) {
    const int32_t expected = list.inOrder(packets[i]), found = list.lookUp(packets[i]);
    if (found == expected) continue;
    throw WrongAnswer(fmt::format("{}: packet {}: rule {} instead of {}", where, i, found, expected));
  }
}

/// Contenders over a list that is held elsewhere.
template <class Rule>
Contender lookUpOf(const OurList<Rule>& list, const std::vector<PacketOf<Rule>>& packets) {
  return {"look-up", [&](Portion portion) { return list.lookUps(packets, portion); }};
}
template <class Rule>
Contender inOrderOf(const OurList<Rule>& list, const std::vector<PacketOf<Rule>>& packets) {
  return {"in order", [&](Portion portion) { return list.inOrder(packets, portion); }};
}

}  // namespace Bench
