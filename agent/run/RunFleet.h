#pragma once

#include <agent/change/ConfigFiles.h>
#include <agent/change/History.h>
#include <agent/fleet/FleetAgent.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetLink.h>
#include <agent/fleet/FleetOptions.h>
#include <agent/log/LogEvent.h>
#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The fleet of an agent that runs, from its first question to the store to its end. Of an agent
/// that was not told of a fleet there is nothing to begin, and it does nothing.
class RunFleet {
 public:
  /// The options outlive this object; `tell` is the log.
  RunFleet(const FleetOptions& options, const TextLimits& limits, TellLog tell)
      : options_(options), limits_(limits), tell_(std::move(tell)) {}

  /// Begins to ask the store, and adds what was in force last of it to the texts, or else what it has now:
  /// waits for that, as long as it takes. Returns why that cannot be. What it begins is a thread without any
  /// rights.
  std::optional<std::string> join(ConfigFiles& files, Past& past);
  /// What the loop has to do with it, from when the configuration is in force. `world` makes that.
  void open(const std::function<FleetAgent::World(FleetLink&)>& world);
  void close();
  /// For `velo show status`; null without a fleet.
  nlohmann::ordered_json report() const;

 private:
  bool take(SharedFleetContent content, ConfigFiles& files, Past& past, std::vector<std::string>& wrong);
  FleetIdentity identity() const {
    return {options_.agent, options_.groupNames(), options_.lease, instance_};
  }
  void warn(const std::string& text) const;

  const FleetOptions& options_;
  const TextLimits& limits_;
  const TellLog tell_;
  const std::string instance_ = keyOfChance();
  std::unique_ptr<FleetLink> link_;
  std::unique_ptr<FleetAgent> agent_;  // destroyed first
};

}  // namespace Agent
