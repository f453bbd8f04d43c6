#pragma once

#include <Velo/MalformedStep.h>
#include <agent/change/Warnings.h>
#include <agent/core/IdlePause.h>
#include <agent/core/Texts.h>
#include <agent/fleet/FleetOptions.h>
#include <agent/metrics/Metrics.h>
#include <agent/observe/MatchLog.h>
#include <agent/ports/PortWhat.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// What is printed when an agent ends.
enum class FinalReport { none, text, json };

/// What `velo run` is asked to do.
struct RunOptions {
  std::vector<std::string> configs;
  std::string configDir;                                     ///< empty: none
  TextLimits limits;                                         ///< of the configuration
  std::string control;                                       ///< the socket to listen at; empty: none
  std::string state;                                         ///< the state file; empty: none
  std::vector<std::pair<std::string, std::string>> ports;    ///< name and device, in the order of the options
  std::vector<std::pair<std::string, std::string>> patches;  ///< both ends
  std::vector<std::vector<std::string>> bridges;
  std::string plugin;
  std::vector<std::string> furtherPlugins;
  Leave leave;  ///< for the start, SIGHUP and the directory
  MatchLogOptions matches;
  MetricsOptions metrics;
  FleetOptions fleet;
  PortSetup setup;
  PollMode poll = PollMode::adaptive;
  uint32_t workers = 0;  ///< so many processes have the ports; 0: this one has them itself
  /// Of such a process: the descriptor of its line to the first one, its number, and what it is handed for
  /// each port, as that one has written them (agent/workers/WorkerProcess.cpp).
  std::vector<int> worker;
  FinalReport report = FinalReport::none;
  Velo::MalformedPolicy malformed = Velo::MalformedPolicy::drop;
};

}  // namespace Agent
