#pragma once

#include <agent/core/Core.h>
#include <agent/state/State.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace Agent {

/// Gives a starting agent the state that an earlier one left: the published status, the ids of rules that are
/// still the same, and their counts.
///
/// To be called in this order, all of it before the first packet: publish(); putInForce() with idsOf() as its
/// memory; Core::loadPlugin(); countRules(); and countImplicitDrops() when everything is published. A rule
/// that comes later is a new one.
class Successor {
 public:
  /// `state` outlives this object. No id that is generated from now on is one of those in it.
  explicit Successor(const Saved::State& state);

  /// Puts the status into the state tree as it was. When the plugin starts, it keeps what is still true there
  /// and deletes the rest.
  void publish(const Core& core) const;
  /// The ids that the same rules had before, also under other numbers (see Config::pairRules): in the order
  /// of the list's rules, the empty id where there was no such rule. Each id is returned once.
  std::vector<Kiv::UniqueId> idsOf(const std::string& source, const Config::List& list);
  /// Sets the counters of those rules to what they were.
  void countRules(Core& core) const;
  /// The same for the implicit drops. They have new ids.
  void countImplicitDrops(Core& core) const;

 private:
  const Saved::State& state_;
  std::set<uint64_t> given_;
};

}  // namespace Agent
