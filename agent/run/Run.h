#pragma once

#include <agent/change/ConfigFiles.h>
#include <agent/control/ControlPlane.h>
#include <agent/core/Core.h>
#include <agent/core/EventLoop.h>
#include <agent/core/Exit.h>
#include <agent/forward/Forwarder.h>
#include <agent/log/EventLog.h>
#include <agent/metrics/Metrics.h>
#include <agent/observe/MatchLog.h>
#include <agent/ports/LivePorts.h>
#include <agent/run/AskedPorts.h>
#include <agent/run/Deadline.h>
#include <agent/run/DeviceClaims.h>
#include <agent/run/RunFleet.h>
#include <agent/run/RunOptions.h>
#include <agent/run/Signals.h>
#include <agent/show/RuleNames.h>
#include <agent/state/StateKeeper.h>
#include <agent/workers/Workers.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// Carries out `velo run`, until SIGTERM or SIGINT. Complaints go to standard error.
Exit runAgent(const RunOptions& options);

/// An agent on live ports, from start to end. A process has one.
///
/// Devices are opened last, so that nothing is received before every list, binding and implicit id is
/// published. At the end receiving stops first, so that the report is final. With workers these have the
/// devices; this process has everything else, and ports by name.
class Run {
 public:
  /// `options` outlives the run.
  explicit Run(const RunOptions& options);
  ~Run();

  Exit run();

 private:
  // The steps of starting (RunStart.cpp). Each returns an exit status when the agent cannot start.
  std::optional<Exit> prepare();
  /// Reads the texts and puts them in force.
  std::optional<Exit> configure();
  /// Puts the texts in force and waits until they are published, with the ids and counts of an earlier agent.
  std::optional<Exit> publish();
  std::optional<Exit> openPorts();
  /// Starts the processes that have the ports, and waits until they have.
  std::optional<Exit> startWorkers();
  void openFleet();
  /// Frames, by any step.
  uint64_t dropped() const;
  void openMatchLog();
  std::optional<Exit> openControl();
  std::optional<Exit> openMetrics();
  /// Tells and judges what the ports are warned of.
  std::optional<Exit> lookAtPorts();
  Warnings portWarnings() const;
  /// Tells what the start warns of: the journal, with the fields of such warnings, or who has started it.
  void tell(const Warnings& warnings);
  /// Tells why it does not start, and returns the result.
  Exit refused(Exit result, const std::string& text);
  TellLog tellLog();
  void handleSignals();
  void answerSignals();
  void reload();
  bool report() const;
  std::vector<PortState> portStates() const;
  std::function<std::vector<WorkerState>()> workersShown() const;

  const RunOptions& options_;
  Deadline deadline_;  // destroyed last
  const AskedPorts asked_;
  EventLog log_;
  ChangeCounts changes_;
  std::optional<Signals> signals_;
  bool ended_ = false;                              // a signal has said so
  bool reloadIsDue_ = false, statusIsDue_ = false;  // signals have asked for it
  EventLoop loop_;
  Core core_;
  std::optional<NamedTraces> namedTraces_;
  Forwarder forwarder_;
  DeviceClaims claims_;
  LivePorts ports_;
  ConfigFiles files_;             // until they are handed to the control plane
  Warnings warnings_;             // of these
  SharedFilteredPorts filtered_;  // by these
  std::unique_ptr<StateFile> stateFile_;
  Past past_;                         // until it is handed to the control plane
  std::unique_ptr<Workers> workers_;  // null: this process has the ports itself
  // These watch or change the running agent. They come last, so that they are destroyed before the ports.
  std::unique_ptr<MatchLog> matchLog_;
  std::unique_ptr<StateKeeper> state_;
  std::unique_ptr<ControlPlane> control_;
  std::unique_ptr<Metrics> metrics_;
  RunFleet fleet_;
};

}  // namespace Agent
