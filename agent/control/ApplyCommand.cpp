#include <agent/change/ConfigFiles.h>
#include <agent/change/Difference.h>
#include <agent/control/Command.h>
#include <agent/control/ControlClient.h>
#include <agent/control/Operations.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/Words.h>
#include <agent/warnings/WarningText.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class ApplyCommand final : public Command {
 public:
  explicit ApplyCommand(CLI::App& root)
      : Command(root, "apply",
                "Replace the command line's configuration of a running agent, whole or not at all.") {
    app()
        .add_option("files", files_, "configuration texts; several are one")
        ->required()
        ->type_name("FILE...");
    app().add_flag("--dry-run", dryRun_, "only tell what would change");
    addLeave(app(), leave_);
    addControl();
  }

  Exit run(const std::string&) const override {
    std::vector<std::string> wrong;
    const auto sources = read(wrong);
    // Mistakes are told here, before the agent is bothered with them.
    if (wrong.empty()) wrong = textsOf(Config::read(sources, {}, mostMistakes).mistakes);
    tellMistakes(wrong);
    if (!wrong.empty()) return exitUsage;

    Exit exit = exitDone;
    ControlClient agent;
    if (!connected(agent, control(), &exit)) return exit;
    for (const auto& source : sources) {
      for (const auto& request : textRequests(source.name, source.text)) {
        if (!documentOf(agent, request, &exit)) return exit;
      }
    }
    const nlohmann::ordered_json request = {
        {"do", "apply"}, {"dryRun", dryRun_}, {"allowOpen", leave_.openings}, {"strict", leave_.strict}};
    if (json()) return tellProgram(agent, request);
    const auto document = documentOf(agent, request, &exit);
    return document ? tell(*document) : exit;
  }

 private:
  /// A refusal is a document, too.
  Exit tellProgram(ControlClient& agent, const nlohmann::ordered_json& request) const {
    Exit exit = exitDone;
    const auto answer = answerOf(agent, request, &exit);
    if (!answer) return exit;
    if (answer->at("ok") == true) {
      const auto& document = answer->at("document");
      return print(linesOf(document), document.at("refused").is_null() ? exitDone : exitUsage);
    }
    const auto& error = answer->at("error");
    if (error.at("code") == "refused") {
      return print(
          linesOf({{"applied", false}, {"refused", error.at("text")}, {"warnings", error.at("warnings")}}),
          exitUsage);
    }
    tellMistakes(error);
    complain(error.at("text").get<std::string>());
    return exitUsage;
  }

  Exit tell(const nlohmann::ordered_json& document) const {
    const auto& refused = document.at("refused");
    const Exit exit = refused.is_null() ? exitDone : exitUsage;
    tellWarnings(document);
    const Exit printed = print(differenceText(document.at("difference"), isatty(STDOUT_FILENO) != 0) +
                                   (dryRun_ ? "(nothing was applied)\n" : ""),
                               exit);
    if (!refused.is_null()) complain("would be refused: " + refused.get<std::string>());
    return printed;
  }

  std::vector<Config::Source> read(std::vector<std::string>& wrong) const {
    std::vector<Config::Source> sources;
    // The agent would not hold more.
    TextReader reader({Operations::mostText, Operations::mostText});
    for (const std::string& path : files_) {
      if (auto file = reader.read(path, TextReader::Named::byUser, wrong))
        sources.push_back({path, std::move(file->text)});
    }
    return sources;
  }

  std::vector<std::string> files_;
  bool dryRun_ = false;
  Leave leave_;
};

}  // namespace

std::unique_ptr<Command> applyCommand(CLI::App& app) { return std::make_unique<ApplyCommand>(app); }

}  // namespace Agent
