#pragma once

#include <agent/change/Warnings.h>
#include <agent/commands/ProgramCommand.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Adds `--allow-open` and `--strict`.
void addLeave(CLI::App& command, Leave& leave);

/// One of the commands by which an agent is operated.
class Command : public ProgramCommand {
 protected:
  /// Adds the command, with `--json`. `footer` stands in the help before the meaning of the exit status.
  Command(CLI::App& app, const char* name, const char* help, const std::string& footer = {});

  /// Adds `--control`: the agent to speak to.
  void addControl();

  bool json() const { return json_; }
  const std::string& control() const { return control_; }

  /// One request to the agent, and the document of its answer. Otherwise, after a complaint, nothing and the
  /// exit status.
  std::optional<nlohmann::ordered_json> ask(const nlohmann::ordered_json& request, Exit* exit) const;
  /// Tells of what was refused; with `--json` by a document, in which the member `undone` is false.
  Exit tellRefusal(const nlohmann::ordered_json& error, const char* undone) const;
  /// Tells why a question has no answer; with `--json` by a document that has only this, as its member
  /// `mistakes`. Without mistakes it was told before.
  Exit notAnswered(const std::vector<std::string>& mistakes) const;
  /// Prints a result. `otherwise` is the exit status when that was possible.
  static Exit print(const std::string& text, Exit otherwise = exitDone);
  /// The member `warnings` of a document on standard error, if it has one.
  static void tellWarnings(const nlohmann::ordered_json& document);

 private:
  bool json_ = false;
  std::string control_;
};

// The commands, each in a file of its name.
std::unique_ptr<Command> showCommand(CLI::App& app);
std::unique_ptr<Command> applyCommand(CLI::App& app);
std::unique_ptr<Command> editCommand(CLI::App& app);
std::unique_ptr<Command> saveCommand(CLI::App& app);
std::unique_ptr<Command> historyCommand(CLI::App& app);
std::unique_ptr<Command> rollbackCommand(CLI::App& app);
std::unique_ptr<Command> confirmCommand(CLI::App& app);
std::unique_ptr<Command> checkCommand(CLI::App& app);
std::unique_ptr<Command> compareCommand(CLI::App& app);
std::unique_ptr<Command> convertCommand(CLI::App& app);
std::unique_ptr<Command> findCommand(CLI::App& app);
std::unique_ptr<Command> explainCommand(CLI::App& app);
std::unique_ptr<Command> clearCommand(CLI::App& app);
std::unique_ptr<Command> simplifyCommand(CLI::App& app);
std::unique_ptr<Command> tailCommand(CLI::App& app);
std::unique_ptr<Command> testCommand(CLI::App& app);
std::unique_ptr<Command> traceCommand(CLI::App& app);

}  // namespace Agent
