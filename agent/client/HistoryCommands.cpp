#include <Kiv/Clock.h>
#include <agent/client/ChangeCommand.h>
#include <agent/core/Document.h>
#include <agent/core/Terminal.h>
#include <agent/show/Shows.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

/// What `velo show history` shows.
class HistoryCommand final : public Command {
 public:
  explicit HistoryCommand(CLI::App& root)
      : Command(root, "history",
                "List the last changes of the configuration; velo show history N shows one.") {
    addControl();
  }

  Exit run(const std::string&) const override {
    Exit exit = exitDone;
    const auto document = ask({{"do", "show"}, {"what", "history"}}, &exit);
    if (!document) return exit;
    if (json()) return print(linesOf(*document));
    return print(
        showOf("history")->text(*document, {wantsColour(STDOUT_FILENO), Kiv::wallClock().now().seconds()}));
  }
};

class RollbackCommand final : public ChangeCommand {
 public:
  explicit RollbackCommand(CLI::App& root)
      : ChangeCommand(root, "rollback",
                      "Go back to what the command line's configuration was behind an earlier change.") {
    app()
        .add_option("number", number_, "of the change, as velo history lists it (the one before the last)")
        ->type_name("N");
    addChange();
  }

  Exit run(const std::string&) const override {
    Exit exit = exitDone;
    ControlClient agent;
    if (!connected(agent, control(), &exit)) return exit;
    nlohmann::ordered_json request = {{"do", "rollback"}};
    if (number_) request["number"] = *number_;
    return change(agent, std::move(request));
  }

 private:
  std::optional<uint32_t> number_;
};

class ConfirmCommand final : public Command {
 public:
  explicit ConfirmCommand(CLI::App& root)
      : Command(root, "confirm", "Keep the change that was made with --confirm.") {
    addControl();
  }

  Exit run(const std::string&) const override {
    Exit exit = exitDone;
    ControlClient agent;
    if (!connected(agent, control(), &exit)) return exit;
    const auto answer = answerOf(agent, {{"do", "confirm"}}, &exit);
    if (!answer) return exit;
    if (answer->at("ok") != true) return tellRefusal(answer->at("error"), "confirmed");
    return print(json() ? linesOf(answer->at("document")) : "confirmed\n");
  }
};

}  // namespace

std::unique_ptr<Command> historyCommand(CLI::App& app) { return std::make_unique<HistoryCommand>(app); }
std::unique_ptr<Command> rollbackCommand(CLI::App& app) { return std::make_unique<RollbackCommand>(app); }
std::unique_ptr<Command> confirmCommand(CLI::App& app) { return std::make_unique<ConfirmCommand>(app); }

}  // namespace Agent
