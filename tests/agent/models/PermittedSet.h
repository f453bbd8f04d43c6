#pragma once

#include <agent/config/Model.h>
#include <agent/proof/RuleSets.h>

namespace Models {

/// All packets that a list permits.
inline Proof::PacketSet permitted(const Config::List& list, const Proof::RuleSets& sets) {
  auto left = sets.packets();
  auto all = left - left;
  for (const auto& [number, rule] : list.rules) {
    const auto taken = left & sets.of(rule);
    if (Config::common(rule).action == Acl::Action::permit) all = all | taken;
    left = left - taken;
  }
  return all;
}

}  // namespace Models
