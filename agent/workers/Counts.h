#pragma once

#include <Acl/Counters.h>
#include <Kelp/Duration.h>
#include <Kiv/OwnedTask.h>
#include <Velo/NamedCounters.h>
#include <agent/forward/Forwarder.h>
#include <agent/forward/FrameTotals.h>
#include <agent/ports/PortState.h>

#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Agent {

/// Tells the first process what a worker counts: of rules what was counted since the last time, of everything
/// else what was counted since the start. It goes over all counters, a slice a turn, some times a second.
///
/// For the loop's thread. What it is made with outlives it.
class CountTeller {
 public:
  /// How often it begins. What a worker has not told when it dies is lost.
  static constexpr Kelp::Duration tellEvery{0.2};

  struct From {
    const Core& core;
    const Forwarder& forwarder;
    std::function<std::vector<PortState>()> ports;
    std::function<FrameTotals()> totals;
  };
  using Send = std::function<void(const std::string& text)>;

  CountTeller(From from, Send send);

  /// Begins at once. `then`: everything has been told that was counted until now.
  void gather(std::function<void()> then);
  /// Tells everything, without regard to slices.
  void tellAll();

 private:
  using Collection = Velo::Counter::VeloDpAclCounterColl;
  using Key = Velo::Counter::VeloDpAclCounterKey;
  struct KeyHash {
    size_t operator()(const Key& key) const { return key.hash(); }
  };
  struct Told {
    uint64_t packets = 0, bytes = 0;
    uint64_t round = 0;  ///< in which it was there last
  };
  using ToldOf = std::unordered_map<Key, Told, KeyHash>;

  void run();
  void begin();
  /// Goes on; false when the slice is used up before the end.
  bool goOn(bool whole);
  bool tell(Collection& collection, bool whole);
  void finish();

  const From from_;
  const Send send_;
  Kiv::OwnedTask task_;
  bool underWay_ = false;
  uint64_t round_ = 0;
  std::vector<Kelp::Ptr<Collection>> left_;  // of this round, the current one last
  std::optional<Key> resume_;
  std::map<Kelp::String, ToldOf> told_;  // by collection
  std::vector<std::function<void()>> waiting_, inRound_;
};

/// Adds up what workers tell in the entities of this process, from which everything is shown, exposed and
/// saved.
class CountSums {
 public:
  /// What one worker has told that counts from its start.
  struct Worker {
    std::map<std::string, PortState> live;
    std::map<std::string, Port> ports;
    std::map<Velo::CounterName, uint64_t> named;
    FrameTotals totals;
  };

  /// Core and forwarder outlive this object.
  CountSums(Core& core, Forwarder& forwarder);
  ~CountSums();

  void add(const std::string& text, Worker& worker);
  /// A worker is gone: what it has counted stays.
  void keep(const Worker& worker);

  const FrameTotals& totals() const { return totals_; }
  /// Adds what workers that are gone, and those that are there, have counted to the states of ports.
  void addTo(std::vector<PortState>& states, const std::vector<const Worker*>& workers) const;

 private:
  struct Row;
  void addRows(const nlohmann::ordered_json& told);
  bool addRow(const Row& row);

  Core& core_;
  Forwarder& forwarder_;
  FrameTotals totals_;
  std::map<std::string, PortState> past_;  // of workers that are gone
  std::vector<Row> early_;                 // of lists whose implicit rule is not published here yet
};

}  // namespace Agent
