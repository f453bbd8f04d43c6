#pragma once

#include <agent/change/Warnings.h>
#include <agent/core/Core.h>
#include <agent/ports/PortKinds.h>
#include <agent/run/PortWarnings.h>
#include <agent/run/RunOptions.h>

#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// The ports of a run as they were asked for, their texts read once. A text that means no port is left out
/// here: making the ports (see joinPorts()) tells of it.
class AskedPorts {
 public:
  /// `options` outlive this object.
  explicit AskedPorts(const RunOptions& options);

  /// Their names, and those of their devices, for the warnings.
  PortNames names() const;
  /// The devices that the kernel has under these names.
  std::vector<std::string> devices() const;
  /// The devices on which the host can answer, too.
  std::vector<std::string> devicesOfHost() const;
  /// What all of them have in common.
  PortSetup setup() const;
  /// How they are joined: by the options, and as members of the port-channels in force.
  Joined joined(const Core& core) const;

 private:
  const RunOptions& options_;
  std::vector<std::pair<std::string, PortText>> ports_;
};

}  // namespace Agent
