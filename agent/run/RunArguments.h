#pragma once

#include <agent/run/RunCommand.h>

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Agent {

/// The command line of `velo run`.
class RunArguments {
 public:
  /// Adds the command and its options; the object stays where it is until they are parsed.
  explicit RunArguments(CLI::App& app);

  /// The command, to ask whether it was given.
  CLI::App& command() const { return *command_; }
  /// What was asked for; call behind the parse. Throws CLI::ValidationError.
  RunOptions options() const;

 private:
  CLI::App* const command_;
  std::vector<std::string> configs_, ports_, patches_, bridges_;
  std::string configDir_, control_, state_;
  TextLimits limits_;
  std::string malformed_ = "drop";
  std::string report_ = "none";
};

}  // namespace Agent
