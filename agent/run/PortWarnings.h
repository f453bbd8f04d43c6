#pragma once

#include <agent/ports/PortState.h>
#include <agent/warnings/Warning.h>

#include <map>
#include <string>
#include <vector>

namespace Agent {

/// The ports of an agent and how they are joined, as names.
struct Joined {
  std::vector<std::vector<std::string>> ends;                    ///< of each patch and each bridge
  std::map<std::string, std::vector<std::string>> portChannels;  ///< with their members
};

/// What the host does on the device of a port besides.
struct HostUse {
  std::vector<std::string> addresses;  ///< those of IPv6 that the host has made itself are left out
  bool ip6 = false;                    ///< IPv6 is on
};

/// What the ports of an agent are warned of: those that nothing joins, joined ones with different MTUs, and
/// devices on which the host answers, too. `uses` has a row for each device that is looked at.
Warnings portWarnings(const std::vector<PortState>& ports, const Joined& joined,
                      const std::map<std::string, HostUse>& uses);

/// Asks the system about the devices of ports; those of TAP ports are not looked at, because there the host
/// is a station.
std::map<std::string, HostUse> hostUses(const std::vector<std::string>& devices);

}  // namespace Agent
