#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace Agent {

/// The catalogue of the log messages that this process can write, as an array.
nlohmann::ordered_json messagesJson();
/// Such an array for people.
std::string messagesText(const nlohmann::ordered_json& messages);

}  // namespace Agent
