#include <agent/client/Command.h>
#include <agent/core/Document.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class ClearCommand final : public Command {
 public:
  explicit ClearCommand(CLI::App& root)
      : Command(root, "clear", "Draw the line above which counters are shown from now on.") {
    app()
        .add_option("what", what_, "counters")
        ->required()
        ->check(CLI::IsMember({"counters"}))
        ->type_name("counters");
    app().add_option("name", list_, "of that list alone")->type_name("NAME");
    addControl();
  }

  Exit run(const std::string&) const override {
    Exit exit = exitDone;
    nlohmann::ordered_json request = {{"do", "clear"}};
    if (!list_.empty()) request["name"] = list_;
    const auto document = ask(request, &exit);
    if (!document) return exit;
    return json() ? print(linesOf(*document)) : exitDone;
  }

 private:
  std::string what_, list_;
};

}  // namespace

std::unique_ptr<Command> clearCommand(CLI::App& app) { return std::make_unique<ClearCommand>(app); }

}  // namespace Agent
