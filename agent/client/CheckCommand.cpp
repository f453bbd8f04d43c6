#include <agent/client/Command.h>
#include <agent/client/ConfigurationReader.h>
#include <agent/commands/Arguments.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/Words.h>
#include <agent/study/OffLine.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class CheckCommand final : public Command {
 public:
  explicit CheckCommand(CLI::App& root)
      : Command(
            root, "check",
            "Read configuration texts, and tell every mistake and what lists probably do not mean; needs no agent.") {
    app().add_option("files", files_, "configuration texts; several are one")->type_name("FILE...");
    app()
        .add_option("--config-dir", dir_, "every file in DIR is a further source of configuration")
        ->type_name("DIR");
    app().add_option("--ports", ports_, "the ports that the agent will have")->type_name("A,B,...");
    app().add_flag("--allow-open", allowOpen_, "an agent would be started with --allow-open");
    app().add_flag("--strict", strict_, "every warning is a failure, and so is whatever a limit left out");
    auto* texts = app().add_flag("--no-prove", textsOnly_, "do not look at what lists do to all packets");
    proof_.addTo(app());
    proof_.addPartly(app());
    for (const char* each : {"--proof-seconds", "--proof-memory", "--partly"}) texts->excludes(each);
    addTextLimits(app(), limits_);
  }

  Exit whenItRunsOut() const override { return exitUsage; }
  Exit run(const std::string&) const override {
    if (files_.empty() && dir_.empty()) {
      complain("check needs a FILE or --config-dir");
      return exitUsage;
    }
    const auto document = checkDocument(
        {files_, dir_, limits_, ports(), {.openings = allowOpen_, .strict = strict_}, prove(), proof_.say()});
    const bool read = document.at("mistakes").empty();
    // With what an agent would refuse to start a script is not to go on.
    const bool starts = read && document.at("refused").is_null();
    const bool strictlyDone = read && document.at("warnings").empty() && document.value("proven", true);
    const Exit exit = starts && (!strict_ || strictlyDone) ? exitDone : exitUsage;
    if (json()) return print(linesOf(document), exit);
    tellMistakes(document);
    return read ? print(checkText(document), exit) : exit;
  }

 private:
  std::optional<Proof::Limits> prove() const {
    if (textsOnly_) return std::nullopt;
    return proof_.limits();
  }
  std::optional<PortNames> ports() const {
    if (app().count("--ports") == 0) return std::nullopt;
    PortNames names;
    names.merge(namesIn(ports_));
    return names;
  }

  /// Nobody asked for a proof; whoever wants to wait longer says so.
  static constexpr double quickly = 10;

  std::vector<std::string> files_;
  std::string ports_;
  bool strict_ = false, allowOpen_ = false, textsOnly_ = false;
  ProofOptions proof_{quickly};
  std::string dir_;
  TextLimits limits_;
};

}  // namespace

std::unique_ptr<Command> checkCommand(CLI::App& app) { return std::make_unique<CheckCommand>(app); }

}  // namespace Agent
