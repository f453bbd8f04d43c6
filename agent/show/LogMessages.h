#pragma once

#include <agent/core/Exit.h>
#include <nlohmann/json.hpp>

#include <string>

namespace Agent {

/// The catalogue of log messages of this process, an array; and an array of that shape for people.
nlohmann::ordered_json messagesJson();
std::string messagesText(const nlohmann::ordered_json& messages);

/// Loads a plugin and prints the catalogue of log messages.
Exit logMessages(const std::string& plugin, bool json);

}  // namespace Agent
