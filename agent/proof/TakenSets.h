#pragma once

#include <agent/config/Model.h>
#include <agent/proof/Comparison.h>
#include <agent/proof/RuleSets.h>

#include <cstdint>
#include <vector>

namespace Proof {

/// What of some packets one rule of a list takes: the same as TakenSets say, without a look at other packets.
PacketSet takenBy(const Config::List& list, uint32_t sequence, const PacketSet& among, const RuleSets& sets);

/// What of some packets each rule of a list takes: those that no earlier one does.
class TakenSets {
 public:
  struct Taken {
    uint32_t sequence = 0;               ///< 0: no rule
    const Config::Rule* rule = nullptr;  ///< null: no rule
    PacketSet packets;                   ///< not empty
  };

  TakenSets(MetList list, const PacketSet& among, const RuleSets& sets);

  /// In the order of the rules, what no rule takes at the end.
  const std::vector<Taken>& all() const { return all_; }
  /// All that is taken by those of which `is` says so.
  template <class Is>
  PacketSet thatAre(const Is& is) const {
    std::vector<PacketSet> parts;
    for (const Taken& each : all_) {
      if (is(each)) parts.push_back(each.packets);
    }
    return joined(std::move(parts));
  }
  PacketSet permitted() const {
    return thatAre([this](const Taken& each) { return permits(each); });
  }
  bool permits(const Taken& taken) const {
    return taken.rule ? Config::common(*taken.rule).action == Acl::Action::permit : !isList_;
  }
  Deciding about(const PacketSet& packets) const;

 private:
  bool isList_;
  std::vector<Taken> all_;
};

}  // namespace Proof
