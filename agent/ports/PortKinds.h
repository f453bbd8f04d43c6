#pragma once

#include <agent/ports/LivePort.h>

#include <memory>
#include <string>
#include <string_view>

namespace Agent {

/// A kind of live port, by what stands in front of the name of its device: "tap:" in "--port eth3=tap:NAME".
/// A further kind is a row of the table in PortKinds.cpp.
struct PortKind {
  std::string_view prefix;
  std::unique_ptr<LivePort> (*make)(Port& port, std::string device, const LiveFrame& inHand);
  /// CAP_* that it takes to open a device that has come back (capabilities(7)).
  int capability;
};

/// The kind that a text means, and the device in it; there is one for every text.
const PortKind& portKindOf(std::string_view text, std::string_view* device);

}  // namespace Agent
