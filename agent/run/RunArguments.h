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
  /// Adds the command and its options. The object must live until they are parsed.
  explicit RunArguments(CLI::App& app);

  /// The command, to ask whether it was given.
  CLI::App& command() const { return *command_; }
  /// The options as they were given; call after parsing. Throws CLI::ValidationError.
  RunOptions options() const;

 private:
  CLI::App* const command_;
  RunOptions options_;  // all but those that follow
  std::vector<std::string> ports_, patches_, bridges_;
  std::string report_ = "none";
};

}  // namespace Agent
