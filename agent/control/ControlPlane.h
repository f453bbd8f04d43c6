#pragma once

#include <agent/change/Configuration.h>
#include <agent/control/ControlServer.h>
#include <agent/control/CounterSweep.h>
#include <agent/control/Operations.h>
#include <agent/control/StatusLog.h>
#include <agent/ports/WorkerState.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace Agent {

/// Where a running agent listens unless it is told otherwise.
inline constexpr const char* defaultControlPath = "/run/velo/velo.sock";

struct ControlOptions {
  std::string socket;     ///< to listen at; empty: none
  std::string configDir;  ///< watched for changes; empty: none
  TextLimits texts{};     ///< of its files
  Leave leave{};          ///< for its files
  /// The ports that the agent has; nothing: every interface may be one.
  std::optional<PortNames> ports{};
  std::vector<std::string> configs{};        ///< the paths of the command line's texts
  Past past{};                               ///< the changes that are remembered
  ChangeJournal* journal = nullptr;          ///< where they are kept; null: nowhere
  Warnings warnings{};                       ///< of the configuration in force
  SharedFilteredPorts filtered{};            ///< by it
  std::function<Warnings()> portWarnings{};  ///< what the ports are warned of now; may be empty
  TellLog tell{};                            ///< may be empty
  /// The states of the live ports, for `show ports`; may be empty.
  std::function<std::vector<PortState>()> portStates{};
  Partners* partners = nullptr;  ///< null: there are none
  /// Calls what it is given when all counts of those who judge packets for this process are here; may be
  /// empty.
  std::function<void(std::function<void()> then)> gather{};
  /// Who judges packets in place of this process, so that none can be looked at here; empty: nobody does.
  std::function<std::vector<WorkerState>()> workers{};
  /// What is told of the fleet in the status; null: there is none. May be empty.
  std::function<nlohmann::ordered_json()> fleet{};
  /// Called after every change of the configuration, in the same turn of the loop; may be empty.
  std::function<void()> applied{};
  ControlLimits limits{};
};

/// Everything by which a running agent is operated: the configuration with its changes, the operations, and
/// the socket for clients. To be made on the loop's thread when the first configuration is in force. Core,
/// forwarder and loop outlive it.
class ControlPlane {
 public:
  /// `files` are the texts that the core was given.
  ControlPlane(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files, ControlOptions options);

  /// Begins to listen. Returns what is wrong.
  std::optional<std::string> listen();

  /// Has the log told what `velo show status` shows. `tell` is called from the loop later, with a function
  /// that makes the lines and may take long.
  void tellStatus(StatusLog::Tell tell) {
    // What a restart would make is a part of it.
    configuration_.lookAtFiles([this, tell = std::move(tell)] { statusLog_.begin(tell); });
  }

  Operations& operations() { return operations_; }
  Configuration& configuration() { return configuration_; }
  ControlServer& server() { return server_; }
  const Tails& tails() const { return tails_; }

 private:
  World world(Core& core, Forwarder& forwarder, const ControlOptions& options);

  const std::string socket_;
  ZeroLine zero_;
  CounterSweep sweep_;
  Configuration configuration_;
  Tails tails_;
  Operations operations_;
  ControlServer server_;
  StatusLog statusLog_;
};

}  // namespace Agent
