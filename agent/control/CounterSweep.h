#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/core/Core.h>
#include <agent/show/ZeroLine.h>

#include <functional>
#include <optional>
#include <vector>

namespace Agent {

/// Deletes the counters of rules that no source of configuration has, and their status, a slice a turn.
/// Otherwise an agent would keep counters for all rules that it ever had. Rules keep their counters while
/// another source's list is in force instead of theirs. For the loop's thread.
class CounterSweep {
 public:
  /// Core and zero line outlive it. `changing` says whether a change of the configuration is being carried
  /// out; the sweep waits for its end.
  CounterSweep(Core& core, ZeroLine& zero, std::function<bool()> changing);
  CounterSweep(const CounterSweep&) = delete;
  CounterSweep& operator=(const CounterSweep&) = delete;

  /// To be called after every change of the configuration.
  void handleApplied();

 private:
  using Collection = Velo::Counter::VeloDpAclCounterColl;
  using Key = Velo::Counter::VeloDpAclCounterKey;

  void run();
  /// Sweeps one collection; false when the slice is used up before its end.
  bool sweep(Collection& collection);
  /// Whether a source has the rule, or it is the implicit drop of a list in force.
  bool isKnown(const Key& key) const;
  void take(Collection& collection, const Key& key);

  Core& core_;
  ZeroLine& zero_;
  const std::function<bool()> changing_;
  Kiv::OwnedTask task_;
  // The sweep that is going on.
  std::vector<Kelp::Ptr<const Acl::Config>> sources_;
  std::vector<Kelp::Ptr<Collection>> collections_;  ///< still to be swept, from the last to the first
  std::optional<Key> resume_;
};

}  // namespace Agent
