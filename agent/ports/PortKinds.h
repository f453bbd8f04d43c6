#pragma once

#include <agent/ports/LivePort.h>

#include <memory>
#include <string>
#include <string_view>

namespace Agent {

/// A kind of live port. On the command line a prefix before the name of the device says which kind is meant,
/// as "tap:" in "--port eth3=tap:NAME". A further kind is a class and a row of the table in PortKinds.cpp.
struct PortKind {
  std::string_view prefix;
  std::unique_ptr<LivePort> (*make)(Port& port, std::string device, const LiveFrame& inHand);
  /// The capability (CAP_*, capabilities(7)) that is needed to open a device again that has come back.
  int capability;
};

/// The kind that a text means, and the device that it names. Every text means some kind.
const PortKind& portKindOf(std::string_view text, std::string_view* device);

}  // namespace Agent
