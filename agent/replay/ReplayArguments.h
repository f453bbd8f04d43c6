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
  /// Adds the command and its options; the object stays where it is until they are parsed.
  explicit ReplayArguments(CLI::App& app);

  /// The command, to ask whether it was given.
  CLI::App& command() const { return *command_; }
  /// What was asked for; call behind the parse. Throws CLI::ValidationError.
  ReplayOptions options() const;

 private:
  CLI::App* const command_;
  ReplayOptions options_;  // but for what follows
  std::vector<std::string> ports_, patches_, outs_;
  std::string malformed_ = "drop";
};

}  // namespace Agent
