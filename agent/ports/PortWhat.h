#pragma once

#include <map>
#include <string>

namespace Agent {

/// What the ports of an agent have in common.
struct PortSetup {
  std::string dpdkArguments;  ///< of the environment of DPDK, as a command line
};

/// What stands behind "KIND:" without the options: a name or a path, and the options by name. An option
/// without
/// "=" has an empty value.
struct PortWhat {
  std::string device;
  std::map<std::string, std::string, std::less<>> options;
};

}  // namespace Agent
