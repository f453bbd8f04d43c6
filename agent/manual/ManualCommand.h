#pragma once

#include <agent/commands/ProgramCommand.h>

#include <memory>

namespace Agent {

// Commands for installers and shells, which the help does not list.

/// `velo manual`: writes manual pages.
std::unique_ptr<ProgramCommand> manualCommand(CLI::App& program);
/// `velo complete`: prints what can be typed next.
std::unique_ptr<ProgramCommand> completeCommand(CLI::App& program);

}  // namespace Agent
