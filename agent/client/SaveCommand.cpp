#include <agent/client/ChangeCommand.h>
#include <agent/core/Document.h>
#include <agent/core/Words.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class SaveCommand final : public Command {
 public:
  explicit SaveCommand(CLI::App& root)
      : Command(
            root, "save",
            "Write the command line's configuration of a running agent to its file, so that a restart reads it.\n"
            "What the file said before is in FILE~ then.") {
    app().add_option("file", file_, "another file")->type_name("FILE");
    addControl();
  }

  Exit run(const std::string&) const override {
    Exit exit = exitDone;
    ControlClient agent;
    if (!connected(agent, control(), &exit)) return exit;
    const auto saved = saveConfiguration(agent, file_, &exit);
    if (!saved) return exit;
    if (json()) return print(linesOf({{"saved", saved->path}, {"restart", saved->restart}}));
    std::string text = fmt::format("saved in {}\n", saved->path);
    if (saved->restart.is_object()) {
      for (const std::string& sentence : restartSentences(saved->restart))
        text += fmt::format("({})\n", sentence);
    }
    return print(text);
  }

 private:
  std::string file_;
};

}  // namespace

std::unique_ptr<Command> saveCommand(CLI::App& app) { return std::make_unique<SaveCommand>(app); }

}  // namespace Agent
