#pragma once

#include <agent/change/History.h>
#include <agent/change/Sources.h>
#include <agent/forward/Forwarder.h>
#include <agent/ports/PortState.h>
#include <agent/ports/WorkerState.h>
#include <agent/show/ListReport.h>
#include <agent/show/ZeroLine.h>
#include <nlohmann/json.hpp>

#include <functional>
#include <vector>

namespace Agent {

/// Everything that documents are made from. It outlives them.
struct World {
  Core& core;
  Forwarder& forwarder;
  const ZeroLine& zero;
  /// Seconds since the epoch at which the agent started.
  double started = 0;
  /// Reports the sources of configuration and what is wrong with them; may be empty.
  std::function<nlohmann::ordered_json()> configuration{};
  ListReader::Remarks remarks{};
  /// The content of all sources of configuration; may be empty.
  std::function<const Sources&()> sources{};
  /// The files of the command line's source; may be empty.
  std::function<std::vector<std::string>()> paths{};
  /// The changes that are remembered; may be empty.
  std::function<const History&()> history{};
  /// The states of the live ports; may be empty.
  std::function<std::vector<PortState>()> portStates{};
  /// The processes that have the ports; empty: this one has them.
  std::function<std::vector<WorkerState>()> workers{};
  /// What is open, as warnings; may be empty.
  std::function<nlohmann::ordered_json()> openings{};
};

}  // namespace Agent
