#pragma once

#include <agent/change/Configuration.h>
#include <agent/core/EventLoop.h>
#include <agent/fleet/FleetAnswers.h>
#include <agent/fleet/FleetCounters.h>
#include <agent/fleet/FleetDrops.h>
#include <agent/fleet/FleetLink.h>
#include <agent/ports/PortState.h>
#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <string>
#include <vector>

namespace Agent {

/// The agent's side of its fleet, on the loop: hands what the link brings to the configuration, and what
/// comes of it back. To be made when the configuration is in force, and destroyed before it.
class FleetAgent {
 public:
  struct World {
    EventLoop& loop;
    const Core& core;
    Configuration& configuration;
    Operations& operations;
    FleetLink& link;
    /// Empty: there are none.
    std::function<std::vector<PortState>()> ports{};
    double started = 0;  ///< seconds since the epoch
    /// The frames that were dropped up to now; empty: nobody counts them.
    std::function<uint64_t()> dropped{};
  };

  FleetAgent(World world, FleetIdentity identity);
  ~FleetAgent();
  FleetAgent(const FleetAgent&) = delete;
  FleetAgent& operator=(const FleetAgent&) = delete;

  /// For `velo show status`: whether there is a connection, and what it has brought.
  nlohmann::ordered_json report() const;

  /// The status of an agent that has no configuration of the fleet in force yet.
  static std::string waitingState(const FleetIdentity& identity, const FleetContent& content,
                                  const std::vector<std::string>& wrong);

 private:
  void handleContent();
  void tellState();
  void tellDrops();

  const World world_;
  const FleetIdentity identity_;
  FleetChanges::Outcome last_;
  double since_ = 0;  // what is in force, is so since then
  std::string told_;  // what was told without its times
  FleetDrops drops_;
  Kiv::OwnedTask task_;
  FleetCounters counters_;
  FleetAnswers answers_;
};

}  // namespace Agent
