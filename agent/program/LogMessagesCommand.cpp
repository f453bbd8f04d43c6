#include <agent/core/Core.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/program/LogMessagesCommand.h>
#include <agent/show/LogMessages.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class LogMessagesCommand final : public ProgramCommand {
 public:
  explicit LogMessagesCommand(CLI::App& program)
      : ProgramCommand(program, "log-messages",
                       "Load the plugin and print the catalogue of its log messages.") {
    app().footer(exitMeaning);
    app().add_flag("--json", json_, "one JSON document instead of text");
  }

  Exit run(const std::string& plugin) const override {
    Core core;
    if (const auto wrong = core.loadPlugin(plugin, furtherPlugins())) {
      complain(*wrong);
      return exitUsage;
    }
    return print(json_ ? linesOf({{"messages", messagesJson()}}) : messagesText(messagesJson())) ? exitDone
                                                                                                 : exitUnread;
  }
  bool loadsPlugin() const override { return true; }

 private:
  bool json_ = false;
};

}  // namespace

std::unique_ptr<ProgramCommand> logMessagesCommand(CLI::App& program) {
  return std::make_unique<LogMessagesCommand>(program);
}

}  // namespace Agent
