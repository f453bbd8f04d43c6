#pragma once

#include <agent/change/ConfigFiles.h>
#include <agent/control/ControlPlane.h>
#include <agent/core/Core.h>
#include <agent/core/EventLoop.h>
#include <agent/core/Exit.h>
#include <agent/forward/Forwarder.h>
#include <agent/ports/LivePorts.h>
#include <agent/run/Deadline.h>
#include <agent/run/Signals.h>
#include <agent/state/StateKeeper.h>

#include <memory>
#include <optional>
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
  std::string control;                                       ///< where to listen; empty: nowhere
  std::string state;                                         ///< the state file; empty: none
  std::vector<std::pair<std::string, std::string>> ports;    ///< name and device, in the order of the options
  std::vector<std::pair<std::string, std::string>> patches;  ///< both ends
  std::vector<std::vector<std::string>> bridges;
  std::string plugin;
  FinalReport report = FinalReport::none;
  Velo::MalformedPolicy malformed = Velo::MalformedPolicy::drop;
};

/// Carries `velo run` out, until SIGTERM or SIGINT. Complaints go to standard error.
Exit runAgent(const RunOptions& options);

/// An agent on live ports, from start to end. One a process.
///
/// Devices are opened last: nothing is received before every list, binding and implicit id is published. They
/// are closed first, so that what is told at the end is final.
class Run {
 public:
  /// `options` outlives the run.
  explicit Run(const RunOptions& options);
  ~Run();

  Exit run();

 private:
  /// What keeps the agent from starting.
  std::optional<Exit> prepare();
  /// Reads the texts and puts them in force.
  std::optional<Exit> configure();
  /// Has what the texts say in force and published, with what an earlier agent knew of it.
  std::optional<Exit> publish();
  std::optional<Exit> join();
  /// Why interfaces cannot be joined, if so: a name that nothing comes in or leaves by is a typing mistake.
  std::optional<std::string> whyNoEnd(const std::vector<std::string>& names) const;
  std::optional<Exit> openPorts();
  std::optional<Exit> openControl();
  bool report() const;

  const RunOptions& options_;
  Deadline deadline_;  // the last to go
  std::optional<Signals> signals_;
  EventLoop loop_;
  Core core_;
  Forwarder forwarder_;
  LivePorts ports_;
  ConfigFiles files_;  // until the control plane has them
  std::unique_ptr<StateFile> stateFile_;
  // Behind the ports stands what watches or changes the running agent: it goes before them.
  std::unique_ptr<StateKeeper> state_;
  std::unique_ptr<ControlPlane> control_;
};

}  // namespace Agent
