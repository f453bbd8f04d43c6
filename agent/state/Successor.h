#pragma once

#include <agent/core/Core.h>
#include <agent/state/State.h>

#include <map>
#include <set>
#include <string>

namespace Agent {

/// Gives the core of a starting agent what an earlier one left: the published status, the ids of rules that
/// are still the same, and their counts. In this order: publish(), Core::apply with idOf() as its memory,
/// Core::loadPlugin, countRules(), and countImplicitDrops() when everything is published. All of it before
/// the first packet. A rule that comes later is a new one.
class Successor {
 public:
  /// `state` outlives this object. Ids that are generated from now on are other than those in it.
  explicit Successor(const Saved::State& state);

  /// Puts the status into the state tree as it was. The plugin, when it starts, keeps what is still true and
  /// takes away the rest.
  void publish(const Core& core) const;
  /// The id that a rule had, if it was the same rule; or the empty id. Each is given once.
  Kiv::UniqueId idOf(const std::string& source, const Config::List& list, const Config::Rule& rule);
  /// Has the counters of those rules go on from where they were.
  void countRules(Core& core) const;
  /// The same for the implicit drops, which have new ids.
  void countImplicitDrops(Core& core) const;

 private:
  const Saved::State& state_;
  std::set<uint64_t> given_;
};

}  // namespace Agent
