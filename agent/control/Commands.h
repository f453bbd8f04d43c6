#pragma once

#include <agent/control/Command.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Agent {

/// The commands by which an agent is operated. A further one is a file like those of the others, declared in
/// Command.h, and a row in Commands.cpp.
class ControlCommands {
 public:
  /// Adds the commands and their options. The object must live until they are parsed.
  explicit ControlCommands(CLI::App& app);

  /// Carries out the command that was given; nothing when it was none of these.
  std::optional<Exit> run(const std::string& plugin) const;

 private:
  std::vector<std::unique_ptr<Command>> commands_;
};

}  // namespace Agent
