#pragma once

#include <agent/commands/ProgramCommand.h>

#include <memory>

namespace Agent {

/// `velo replay`, with its part of the command line.
std::unique_ptr<ProgramCommand> replayCommand(CLI::App& program);

}  // namespace Agent
