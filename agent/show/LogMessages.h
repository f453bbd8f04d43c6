#pragma once

#include <agent/core/Exit.h>
#include <nlohmann/json.hpp>

#include <string>

namespace Agent {

/// The catalogue of the log messages that this process can write, as an array.
nlohmann::ordered_json messagesJson();
/// Such an array for people.
std::string messagesText(const nlohmann::ordered_json& messages);

/// Loads a plugin and prints the catalogue of log messages.
Exit logMessages(const std::string& plugin, bool json);

}  // namespace Agent
