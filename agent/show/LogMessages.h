#pragma once

#include <agent/core/ProgramCommand.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <string>

namespace Agent {

/// The catalogue of the log messages that this process can write, as an array.
nlohmann::ordered_json messagesJson();
/// Such an array for people.
std::string messagesText(const nlohmann::ordered_json& messages);

/// `velo log-messages`: loads the plugin and prints the catalogue.
std::unique_ptr<ProgramCommand> logMessagesCommand(CLI::App& program);

}  // namespace Agent
