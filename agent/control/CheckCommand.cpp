#include <agent/control/Command.h>
#include <agent/control/OffLine.h>
#include <agent/core/Arguments.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/Words.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class CheckCommand final : public Command {
 public:
  explicit CheckCommand(CLI::App& root)
      : Command(root, "check", "Read configuration texts and tell every mistake; needs no agent.") {
    app().add_option("files", files_, "configuration texts; several are one")->type_name("FILE...");
    app()
        .add_option("--config-dir", dir_, "every file in DIR is a further source of configuration")
        ->type_name("DIR");
    addTextLimits(app(), limits_);
  }

  Exit run(const std::string&) const override {
    if (files_.empty() && dir_.empty()) {
      complain("check needs a FILE or --config-dir");
      return exitUsage;
    }
    const auto document = checkDocument(files_, dir_, limits_);
    const bool good = document.at("mistakes").empty();
    if (json()) return print(linesOf(document), good ? exitDone : exitUsage);
    tellMistakes(document);
    return good ? print(checkText(document)) : exitUsage;
  }

 private:
  std::vector<std::string> files_;
  std::string dir_;
  TextLimits limits_;
};

}  // namespace

std::unique_ptr<Command> checkCommand(CLI::App& app) { return std::make_unique<CheckCommand>(app); }

}  // namespace Agent
