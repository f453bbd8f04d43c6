#pragma once

#include <agent/core/Exit.h>
#include <agent/core/Texts.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace Agent {

/// The commands by which an agent is operated: show, apply, check, explain, clear and trace. All but check,
/// and explain with --config, speak to a running agent.
class ControlCommands {
 public:
  /// Adds the commands and their options; the object stays where it is until they are parsed.
  explicit ControlCommands(CLI::App& app);

  /// Carries out the command that was given; nothing when it was none of these. `plugin` is for those that
  /// work without an agent.
  std::optional<Exit> run(const std::string& plugin) const;

 private:
  CLI::App* add(CLI::App& app, const char* name, const char* help, Exit (ControlCommands::*command)() const);
  void addControl(CLI::App* command);
  void addShow(CLI::App& app);
  void addApply(CLI::App& app);
  void addCheck(CLI::App& app);
  void addExplain(CLI::App& app);
  void addClear(CLI::App& app);
  void addTrace(CLI::App& app);

  Exit show() const;
  Exit apply() const;
  Exit check() const;
  Exit explain() const;
  Exit clear() const;
  Exit trace() const;

  std::vector<std::pair<CLI::App*, Exit (ControlCommands::*)() const>> commands_;
  mutable std::string plugin_;
  std::string control_;
  bool json_ = false;
  // Of single commands.
  std::string what_, name_;
  std::optional<double> watch_;
  std::vector<std::string> files_;
  std::string configDir_;
  TextLimits limits_;
  bool dryRun_ = false;
  std::string port_, frame_, out_;
  std::string facilities_, fast_, fastOff_;
  bool traceOff_ = false;
};

}  // namespace Agent
