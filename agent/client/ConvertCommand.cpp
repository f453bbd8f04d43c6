#include <agent/change/ConfigFiles.h>
#include <agent/client/Command.h>
#include <agent/client/WrittenText.h>
#include <agent/commands/Arguments.h>
#include <agent/core/Output.h>
#include <agent/core/Words.h>
#include <agent/warnings/WarningText.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class ConvertCommand final : public Command {
 public:
  explicit ConvertCommand(CLI::App& root)
      : Command(root, "convert",
                "Read configuration texts and documents as one, and write it as another; needs no agent.") {
    app().add_option("files", files_, "configuration texts and documents")->required()->type_name("FILE...");
    addFormat(app(), "--to", "what to write", &format_, &lossy_)->required();
    addTextLimits(app(), limits_);
  }

  Exit run(const std::string&) const override {
    ConfigFiles files;
    const auto wrong = files.read(files_, "", limits_);
    tellMistakes(wrong);
    if (!wrong.empty()) return exitUsage;
    const Config::Model& model = files.sources().commandLine;
    for (const auto& warning : model.notices.warnings) complain(warningText(warning));
    return printAs(model, format_, lossy_, json());
  }

 private:
  std::vector<std::string> files_;
  std::string format_;
  bool lossy_ = false;
  TextLimits limits_;
};

}  // namespace

std::unique_ptr<Command> convertCommand(CLI::App& app) { return std::make_unique<ConvertCommand>(app); }

}  // namespace Agent
