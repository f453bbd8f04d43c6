#include <agent/commands/ProgramCommand.h>

#include <CLI/CLI.hpp>

namespace Agent {

ProgramCommand::ProgramCommand(CLI::App& program, const char* name, const char* help)
    : app_(program.add_subcommand(name, help)) {}

bool ProgramCommand::parsed() const { return app_->parsed(); }

}  // namespace Agent
