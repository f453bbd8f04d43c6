#pragma once

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include "../../Acl/DifferentialModel.h"

namespace TestSupport {

using Differential::Fields;

/// Which of all packets something is true of.
using Which = std::vector<bool>;

inline bool none(const Which& which) { return std::find(which.begin(), which.end(), true) == which.end(); }

/// A list and what its rules match, worked out packet by packet.
template <class Rule>
struct Brute {
  std::vector<Rule> rules;
  std::vector<Fields> packets;
  std::vector<Which> matches;  ///< of each rule

  Brute(std::vector<Rule> of, std::vector<Fields> among) : rules(std::move(of)), packets(std::move(among)) {
    for (const Rule& rule : rules) {
      Differential::Oracle<Rule> oracle;
      oracle.ruleIs(Kiv::UniqueId(1), rule);
      Which& which = matches.emplace_back();
      for (const Fields& packet : packets) which.push_back(oracle.first(packet).rule != nullptr);
    }
  }

  /// The rule that a packet meets first when one of them is left out; the number of rules for none.
  size_t first(size_t packet, size_t without) const {
    for (size_t i = 0; i < rules.size(); ++i) {
      if (i != without && matches[i][packet]) return i;
    }
    return rules.size();
  }
  bool passes(size_t packet, size_t without) const {
    const size_t rule = first(packet, without);
    return rule < rules.size() && rules[rule].action == Acl::Action::permit;
  }
  size_t indexOf(uint32_t sequence) const {
    for (size_t i = 0; i < rules.size(); ++i) {
      if (rules[i].sequence == sequence) return i;
    }
    throw std::logic_error("a rule that is not there");
  }
};

}  // namespace TestSupport
