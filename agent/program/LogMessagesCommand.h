#pragma once

#include <agent/commands/ProgramCommand.h>

#include <memory>

namespace Agent {

/// `velo log-messages`: loads the plugin and prints the catalogue of its log messages.
std::unique_ptr<ProgramCommand> logMessagesCommand(CLI::App& program);

}  // namespace Agent
