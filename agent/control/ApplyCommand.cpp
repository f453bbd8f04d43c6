#include <agent/change/ConfigFiles.h>
#include <agent/control/ChangeCommand.h>
#include <agent/control/Operations.h>
#include <agent/core/Words.h>
#include <agent/models/Reader.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class ApplyCommand final : public ChangeCommand {
 public:
  explicit ApplyCommand(CLI::App& root)
      : ChangeCommand(root, "apply",
                      "Replace the command line's configuration of a running agent, whole or not at all.") {
    app()
        .add_option("files", files_, "configuration texts; several are one")
        ->required()
        ->type_name("FILE...");
    addChange();
  }

  Exit run(const std::string&) const override {
    std::vector<std::string> wrong;
    const auto sources = read(wrong);
    // Mistakes are told here, before the agent is bothered with them.
    if (wrong.empty()) wrong = textsOf(Models::read(sources, {}, mostMistakes).mistakes);
    if (!wrong.empty() && json()) return notApplied({{"text", "nothing was applied"}, {"mistakes", wrong}});
    tellMistakes(wrong);
    if (!wrong.empty()) return exitUsage;

    Exit exit = exitDone;
    ControlClient agent;
    if (!connected(agent, control(), &exit)) return exit;
    for (const auto& source : sources) {
      if (!sent(agent, source.name, source.text, &exit)) return exit;
    }
    return change(agent, {{"do", "apply"}});
  }

 private:
  std::vector<Config::Source> read(std::vector<std::string>& wrong) const {
    std::vector<Config::Source> sources;
    // The agent holds no more than that.
    TextReader reader({Operations::mostText, Operations::mostText});
    for (const std::string& path : files_) {
      if (auto file = reader.read(path, TextReader::Named::byUser, wrong))
        sources.push_back({path, std::move(file->text)});
    }
    return sources;
  }

  std::vector<std::string> files_;
};

}  // namespace

std::unique_ptr<Command> applyCommand(CLI::App& app) { return std::make_unique<ApplyCommand>(app); }

}  // namespace Agent
