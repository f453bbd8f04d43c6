#pragma once

#include <Velo/MalformedStep.h>
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
#include <agent/run/Deadline.h>
#include <agent/run/DeviceClaims.h>
#include <agent/run/Signals.h>
#include <agent/show/RuleNames.h>
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
  PortSetup setup;
  PollMode poll = PollMode::adaptive;
  FinalReport report = FinalReport::none;
  Velo::MalformedPolicy malformed = Velo::MalformedPolicy::drop;
};

/// Carries out `velo run`, until SIGTERM or SIGINT. Complaints go to standard error.
Exit runAgent(const RunOptions& options);

/// An agent on live ports, from start to end. A process has one.
///
/// Devices are opened last, so that nothing is received before every list, binding and implicit id is
/// published. At the end receiving stops first, so that the report is final.
class Run {
 public:
  /// `options` outlives the run.
  explicit Run(const RunOptions& options);
  ~Run();

  Exit run();

 private:
  // The steps of starting. Each returns an exit status when the agent cannot start.
  std::optional<Exit> prepare();
  /// Reads the texts and puts them in force.
  std::optional<Exit> configure();
  /// Puts the texts in force and waits until they are published, with the ids and counts of an earlier agent.
  std::optional<Exit> publish();
  /// Makes the ports and joins them by patches and bridges.
  std::optional<Exit> join();
  /// Why names cannot be joined: one is neither a port nor a port-channel, so it is a typing mistake. Nothing
  /// if they can.
  std::optional<std::string> whyNoEnd(const std::vector<std::string>& names) const;
  std::optional<Exit> openPorts();
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
  void reload();
  bool report() const;
  PortNames ports() const;

  const RunOptions& options_;
  Deadline deadline_;  // destroyed last
  EventLog log_;
  ChangeCounts changes_;
  std::optional<Signals> signals_;
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
  Past past_;  // until it is handed to the control plane
  // These watch or change the running agent. They come last, so that they are destroyed before the ports.
  std::unique_ptr<MatchLog> matchLog_;
  std::unique_ptr<StateKeeper> state_;
  std::unique_ptr<ControlPlane> control_;
  std::unique_ptr<Metrics> metrics_;
};

}  // namespace Agent
