#pragma once

#include <agent/replay/Replay.h>

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Agent {

/// The command line of `velo replay`.
class ReplayArguments {
 public:
  /// Adds the command and its options. The object must live until they are parsed.
  explicit ReplayArguments(CLI::App& app);

  /// The command, to ask whether it was given.
  CLI::App& command() const { return *command_; }
  /// The options as they were given; call after parsing. Throws CLI::ValidationError.
  ReplayOptions options() const;

 private:
  CLI::App* const command_;
  ReplayOptions options_;  // all but those that follow
  std::vector<std::string> ports_, patches_, outs_;
};

}  // namespace Agent
