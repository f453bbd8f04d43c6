#pragma once

#include <agent/core/Exit.h>

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Agent {

/// A command of the program: what it takes on the command line, and what it does. The program has a table of
/// all of them. A command must live until the command line is parsed; it throws CLI::ValidationError from
/// there when its options contradict each other.
class ProgramCommand {
 public:
  ProgramCommand(const ProgramCommand&) = delete;
  ProgramCommand& operator=(const ProgramCommand&) = delete;
  virtual ~ProgramCommand() = default;

  /// Whether it is the command that was given.
  bool parsed() const;
  /// Carries it out, once the command line is parsed. Results go to standard output, complaints to standard
  /// error. `plugin` is the library for work in this process.
  virtual Exit run(const std::string& plugin) const = 0;
  /// Whether it always loads the plugin into this process, and so has options for that.
  virtual bool loadsPlugin() const { return false; }
  /// The libraries of plugins that it is to load beside that one.
  void furtherPluginsAre(std::vector<std::string> paths) { furtherPlugins_ = std::move(paths); }
  const std::vector<std::string>& furtherPlugins() const { return furtherPlugins_; }
  /// What the program ends with when memory or threads for it run out. A command whose status 1 is an answer
  /// has another one.
  virtual Exit whenItRunsOut() const { return exitUnread; }

  /// Its part of the command line.
  CLI::App& app() const { return *app_; }

 protected:
  ProgramCommand(CLI::App& program, const char* name, const char* help);

 private:
  CLI::App* const app_;
  std::vector<std::string> furtherPlugins_;
};

}  // namespace Agent
