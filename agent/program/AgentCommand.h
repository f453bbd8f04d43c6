#pragma once

#include <agent/commands/ProgramCommand.h>

#include <CLI/CLI.hpp>
#include <string>

namespace Agent {

/// A command that is an agent: it carries out its options, which name the plugins. What contradicts itself in
/// them is told when the command line has been parsed.
template <class Options, Exit (*carryOut)(const Options&)>
class AgentCommand : public ProgramCommand {
 public:
  bool loadsPlugin() const final { return true; }
  Exit run(const std::string& plugin) const final {
    Options options = whole_;
    options.plugin = plugin;
    options.furtherPlugins = furtherPlugins();
    return carryOut(options);
  }

 protected:
  AgentCommand(CLI::App& program, const char* name, const char* sentence)
      : ProgramCommand(program, name, sentence) {
    app().callback([this] { whole_ = options(); });
  }

  Options given_;  ///< what needs no conversion; CLI11 writes it here

 private:
  /// All of the options, but for the plugins. Throws CLI::ValidationError.
  virtual Options options() const = 0;

  Options whole_;
};

}  // namespace Agent
