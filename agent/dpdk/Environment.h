#pragma once

#include <optional>
#include <string>

namespace Agent::Dpdk {

/// Begins the environment of DPDK, once for all ports of the process, with the arguments that people give it.
/// The thread keeps the processors that it may run on. Returns what went wrong.
std::optional<std::string> begin(const std::string& arguments);

}  // namespace Agent::Dpdk
