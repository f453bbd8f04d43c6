#pragma once

#include <agent/change/Configuration.h>
#include <agent/control/ControlServer.h>
#include <agent/control/CounterSweep.h>
#include <agent/control/Operations.h>

#include <functional>
#include <optional>
#include <string>

namespace Agent {

/// Where a running agent listens unless it is told otherwise.
inline constexpr const char* defaultControlPath = "/run/velo/velo.sock";

struct ControlOptions {
  std::string socket;     ///< empty: nobody listens
  std::string configDir;  ///< watched for changes; empty: none
  TextLimits texts{};     ///< of its files
  /// The live ports, for `show ports`; may be empty.
  std::function<std::vector<PortState>()> portStates{};
  /// Called in the turn in which a configuration came into force, behind it; may be empty.
  std::function<void()> applied{};
  ControlLimits limits{};
};

/// Everything by which a running agent is operated: the configuration that it holds and watches, the
/// operations and the socket. Made on the loop's thread when the first configuration is in force; core,
/// forwarder and loop outlive it.
class ControlPlane {
 public:
  /// `files`: what the core was given.
  ControlPlane(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files, ControlOptions options);

  /// Begins to listen. Returns what is wrong.
  std::optional<std::string> listen();

  Operations& operations() { return operations_; }
  Configuration& configuration() { return configuration_; }
  ControlServer& server() { return server_; }

 private:
  World world(Core& core, Forwarder& forwarder, const ControlOptions& options);

  const std::string socket_;
  ZeroLine zero_;
  CounterSweep sweep_;
  Configuration configuration_;
  Operations operations_;
  ControlServer server_;
};

}  // namespace Agent
