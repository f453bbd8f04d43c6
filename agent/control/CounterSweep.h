#pragma once

#include <Kiv/TaskScheduler.h>
#include <agent/core/Core.h>
#include <agent/show/ZeroLine.h>

#include <functional>
#include <optional>
#include <vector>

namespace Agent {

/// Takes away the counters of rules that no source of configuration has any more, and what the status shows
/// of them, a slice a turn; or an agent whose configuration changes for years would count for all rules that
/// it ever had. A rule that another source's list stands in for keeps its counters. The loop's thread.
class CounterSweep {
 public:
  /// Core and zero line outlive it.
  /// `changing`: whether a change of the configuration is under way, which the sweep waits for.
  CounterSweep(Core& core, ZeroLine& zero, std::function<bool()> changing);
  ~CounterSweep();
  CounterSweep(const CounterSweep&) = delete;
  CounterSweep& operator=(const CounterSweep&) = delete;

  /// To be called behind every change of the configuration.
  void handleApplied();

 private:
  using Collection = Velo::Counter::VeloDpAclCounterColl;
  using Key = Velo::Counter::VeloDpAclCounterKey;

  void run();
  /// Sweeps one collection; false when the slice is used up before its end.
  bool sweep(Collection& collection);
  /// Whether a source has the rule, or it is what the list in force ends in.
  bool isKnown(const Key& key) const;
  void take(Collection& collection, const Key& key);

  Core& core_;
  ZeroLine& zero_;
  const std::function<bool()> changing_;
  const Kelp::Ptr<Kiv::TimerTask> task_;
  // Of the sweep that is under way.
  std::vector<Kelp::Ptr<const Acl::Config>> sources_;
  std::vector<Kelp::Ptr<Collection>> collections_;  ///< to be swept, the last first
  std::optional<Key> resume_;
};

}  // namespace Agent
