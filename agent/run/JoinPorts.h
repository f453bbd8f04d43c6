#pragma once

#include <agent/forward/Forwarder.h>
#include <agent/ports/LivePorts.h>
#include <agent/run/RunOptions.h>

#include <optional>
#include <string>

namespace Agent {

/// Makes the ports of the options, and joins them by patches and bridges. The configuration is in force in
/// the core. Returns what is wrong.
std::optional<std::string> joinPorts(const RunOptions& options, const Core& core, Forwarder& forwarder,
                                     LivePorts& ports, const Kiv::Clock& clock, Forwarder::Judged judged);

}  // namespace Agent
