#pragma once

#include <agent/core/Descriptor.h>

#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Claims devices for this agent, within its network namespace: a socket with the device's name in the
/// abstract name space, which each network namespace has of its own (unix(7)). The kernel takes a claim back
/// when the process ends, however it ends.
class DeviceClaims {
 public:
  /// Claims a device. Returns why that cannot be: another agent has it. A name that is taken by a process
  /// which could not have the device open is passed over.
  std::optional<std::string> claim(const std::string& device);

 private:
  std::vector<Descriptor> sockets_;
};

}  // namespace Agent
