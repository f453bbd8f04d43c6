#pragma once

#include <algorithm>
#include <vector>

#include "classbench/Checks.h"
#include "classbench/DbTable.h"
#include "classbench/Peer.h"

namespace Bench {

/// Those who are timed in turn over the packets of one trace: our list in three ways, and the peers, where
/// there are any. List, packets and peers outlive it.
class Contest {
 public:
  Contest(const OurList<Acl::IpRule>& ours, const std::vector<IpPacket>& packets, Peer* rtePeer,
          DbTable* table)
      : lookUp(lookUpOf(ours, packets)),
        matcher{"matcher", [&](Portion p) { return ours.matches(packets, p); }},
        burst{"64 a call", [&](Portion p) { return ours.bursts(packets, p); }},
        rte{"rte_acl", [rtePeer](Portion p) { return rtePeer->lookUps(p); }},
        rteBatch{"rte_acl, 64 a call", [rtePeer](Portion p) { return rtePeer->batches(p); }},
        dbTable{"DBTable", [table](Portion p) { return table->lookUps(p); }},
        all_{&lookUp} {
    if (rtePeer) all_.push_back(&rte);
    if (table) all_.push_back(&dbTable);
    all_.insert(all_.end(), {&matcher, &burst});
    if (rtePeer) all_.push_back(&rteBatch);
  }
  Contest(const Contest&) = delete;
  Contest& operator=(const Contest&) = delete;

  void run(size_t headers, int rounds) { behind_ = alternateWarm(all_, headers, rounds); }

  bool takesPart(const Contender& contender) const { return placeOf(contender) < all_.size(); }
  /// One that takes part, behind the others instead of warm.
  const Contender& behind(const Contender& contender) const { return behind_.at(placeOf(contender)); }

  Contender lookUp, matcher, burst, rte, rteBatch, dbTable;

 private:
  size_t placeOf(const Contender& contender) const {
    return static_cast<size_t>(std::find(all_.begin(), all_.end(), &contender) - all_.begin());
  }

  std::vector<Contender*> all_;
  std::vector<Contender> behind_;  // in the same order
};

}  // namespace Bench
