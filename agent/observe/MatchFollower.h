#pragma once

#include <Acl/Counters.h>
#include <Kelp/Ptr.h>
#include <agent/core/InForce.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Agent {

/// Follows match counters of lists: the plugin reports matches by nothing else. Whoever follows is told of
/// each match at once, while the packet is being judged (see Forwarder::context()), and must not change
/// counters or configuration then. A counter that nobody wants to follow gets no subscriber, so that to count
/// there costs the same as without a follower.
///
/// To be made after the plugin is loaded and after the counts of an earlier agent are put in: these would be
/// told as matches.
class MatchFollower {
 public:
  using Key = Velo::Counter::VeloDpAclCounterKey;
  /// A counter, by its key and by a number that no other one gets.
  struct Counter {
    const Key key;
    const uint32_t number;
    operator const Key&() const { return key; }
  };
  using Wanted = std::function<bool(const Counter& counter)>;
  using Matched = std::function<void(const Counter& counter)>;
  using Gone = std::function<void(const Counter& counter)>;

  /// `wanted` is asked once for each counter: now, or when its rule counts its first packet, before that is
  /// told. `gone` is called when a counter that is followed is deleted; it may be empty.
  MatchFollower(const InForce& inForce, Wanted wanted, Matched matched, Gone gone = {});
  ~MatchFollower();
  MatchFollower(const MatchFollower&) = delete;
  MatchFollower& operator=(const MatchFollower&) = delete;

  /// How many counters are followed.
  size_t size() const;

 private:
  class Collection;
  class Follower;

  const Wanted wanted_;
  const Matched matched_;
  const Gone gone_;
  uint32_t lastNumber_ = 0;
  std::vector<std::unique_ptr<Collection>> collections_;
};

}  // namespace Agent
