#pragma once

#include <agent/commands/ProgramCommand.h>

#include <memory>

namespace Agent {

/// `velo run`, with its part of the command line.
std::unique_ptr<ProgramCommand> runCommand(CLI::App& program);

}  // namespace Agent
