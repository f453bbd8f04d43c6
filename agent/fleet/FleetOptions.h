#pragma once

#include <agent/fleet/Etcd.h>

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Agent {

/// What is said on a command line about a fleet.
struct FleetOptions {
  std::string store{};   ///< URLs, separated by commas; empty: no fleet
  std::string agent{};   ///< the name of this agent in it
  std::string groups{};  ///< of which it is, separated by commas, what counts more first
  int lease = 90;        ///< seconds, see FleetIdentity
  std::string ca{}, certificate{}, key{}, login{};  ///< files; empty: none

  bool given() const { return !store.empty(); }
  std::vector<std::string> groupNames() const;
};

/// Adds `--fleet` and the options of who asks there.
void addFleetStore(CLI::App& command, FleetOptions& options);
/// Adds those of an agent besides.
void addFleetAgent(CLI::App& command, FleetOptions& options);

/// Where the store is, with what the files say, which are not read again later. Otherwise nothing, and why.
/// Of a process that has a key or a password nobody reads the memory from then on, and it leaves no core
/// dump.
std::optional<EtcdPlace> placeOf(const FleetOptions& options, std::string* wrong);

/// Why others may read the password on its way; empty: they may not.
std::string whyReadable(const EtcdPlace& place);

}  // namespace Agent
