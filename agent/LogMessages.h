#pragma once

#include <agent/replay/Replay.h>

#include <string>

namespace Agent {

/// Loads a plugin and prints the catalogue of log messages.
Exit logMessages(const std::string& plugin, bool json);

}  // namespace Agent
