#include <agent/control/Commands.h>

namespace Agent {

namespace {

/// In the order in which the help lists them.
constexpr std::unique_ptr<Command> (*makers[])(CLI::App& app) = {
    showCommand, applyCommand, checkCommand, explainCommand, clearCommand, traceCommand,
};

}  // namespace

ControlCommands::ControlCommands(CLI::App& app) {
  for (const auto make : makers) commands_.push_back(make(app));
}

std::optional<Exit> ControlCommands::run(const std::string& plugin) const {
  for (const auto& command : commands_) {
    if (command->parsed()) return command->run(plugin);
  }
  return std::nullopt;
}

}  // namespace Agent
