#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/show/ListReport.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Agent {

/// What the rules of an agent have counted, for the store of its fleet: gathered every few seconds on the
/// loop, a slice a turn. Only lists of which something was counted since are told, each as one value, and of
/// them the rules that met packets at all. What is left out, because there is too much, is told.
class FleetCounters {
 public:
  static constexpr Kelp::Duration interval{5.0};
  /// So many lists, and rules of a list, are told of at most.
  static constexpr size_t mostLists = 500, mostRules = 1000;

  using Told = std::function<void(std::map<std::string, std::string> changed)>;

  /// `told` gets the changed values by key; an empty one takes a key back. The core outlives it.
  FleetCounters(const Core& core, std::string agent, Told told);
  ~FleetCounters();

 private:
  struct Round;

  void run();
  void finish();

  const Core& core_;
  const std::string agent_;
  const Told told_;
  std::map<std::string, std::string> known_;  // what was told
  std::unique_ptr<Round> round_;
  Kiv::OwnedTask task_;
};

}  // namespace Agent
