#include <agent/change/ConfigFiles.h>
#include <agent/client/ChangeCommand.h>
#include <agent/client/ConfigurationReader.h>
#include <agent/commands/Arguments.h>
#include <agent/control/Operations.h>
#include <agent/core/Words.h>
#include <agent/models/Reader.h>
#include <agent/study/ListProof.h>
#include <agent/study/PacketComparison.h>
#include <agent/warnings/WarningText.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class ApplyCommand final : public ChangeCommand {
 public:
  explicit ApplyCommand(CLI::App& root)
      : ChangeCommand(root, "apply",
                      "Replace the command line's configuration of a running agent, whole or not at all.") {
    addChange();
    app()
        .add_option("files", files_, "configuration texts; several are one")
        ->required()
        ->type_name("FILE...");
    app()
        .add_flag("--packets", packets_, "with --dry-run: tell which packets would meet another verdict")
        ->needs("--dry-run");
    app().add_flag("--only-if-same", onlyIfSame_, "carry it out only if no packet meets another verdict");
    auto* prove =
        app().add_flag("--prove", prove_, "warn of what all packets show of these lists, as velo check does");
    proof_.addTo(app());
    addYangDirs(app(), yangDirs_);
    proof_.addPartly(app(), prove);
  }

  Exit whenItRunsOut() const override {
    return packets_ || onlyIfSame_ || prove_ ? exitUsage : ChangeCommand::whenItRunsOut();
  }
  Exit run(const std::string&) const override {
    std::vector<std::string> wrong;
    const auto sources = read(wrong);
    // Mistakes are told here, before the agent is bothered with them.
    if (wrong.empty()) wrong = textsOf(Models::read(sources, {}, mostMistakes, yangDirs_).mistakes);
    if (!wrong.empty() && json()) return notApplied({{"text", "nothing was applied"}, {"mistakes", wrong}});
    tellMistakes(wrong);
    if (!wrong.empty()) return exitUsage;

    Exit exit = exitDone;
    ControlClient agent;
    if (!connected(agent, control(), &exit)) return exit;
    for (const auto& source : sources) {
      if (!sent(agent, source.name, source.text, &exit)) return exit;
    }
    Json request = {{"do", "apply"}};
    if (!packets_ && !onlyIfSame_ && !prove_) return change(agent, std::move(request));
    std::string why;
    const auto inForce = sourcesInForce(agent, &why);
    if (!inForce) return notApplied({{"text", why}});
    const Config::Model now = modelOf(sources);
    const Layers before = inForce->sources.layers(),
                 after = inForce->sources.layersWith(commandLineName, &now);
    Told told;
    if (packets_ || onlyIfSame_) {
      told.packets = packetComparison(before, after, {.proof = proof_.limits()});
      if (onlyIfSame_ && told.packets.at("same") != true) return refuse(told.packets);
      request["revision"] = inForce->revision;
      // Only what programs read has room for what nobody asked for.
      if (!packets_ && !json()) told.packets = nullptr;
    }
    if (prove_) {
      const ListProof proof = proveLists(after, proof_.limits(), commandLineName, proof_.say());
      told.warnings = warningsJson(proof.warnings);
      told.unchecked = proof.unchecked;
      if (isStrict() && !isDryRun() && !(proof.warnings.empty() && proof.unchecked.empty())) {
        const std::string text =
            proof.warnings.empty() ? "not proven: " + proof.unchecked.front() : "there are warnings";
        return notApplied(
            {{"text", fmt::format("nothing was applied: {} (--strict)", text)}, {"warnings", told.warnings}});
      }
    }
    return change(agent, std::move(request), told);
  }

 private:
  using Json = nlohmann::ordered_json;

  /// What the texts say, which have no mistakes; with the place of each rule.
  static Config::Model modelOf(const std::vector<Config::Source>& texts) {
    Config::Model start;
    start.notices.ofAllRules = true;
    return Models::read(texts, std::move(start), mostMistakes).model.value();
  }
  Exit refuse(const Json& packets) const {
    if (!json()) fmt::print(stderr, "{}", packetComparisonText(packets));
    Json error = {{"text", packets.at("unchecked").empty()
                               ? "nothing was applied: verdicts would change"
                               : "nothing was applied: it is not proven that no verdict changes"},
                  {"packets", packets}};
    return notApplied(error);
  }

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

  std::vector<std::string> files_, yangDirs_;
  bool packets_ = false, onlyIfSame_ = false, prove_ = false;
  ProofOptions proof_;
};

}  // namespace

std::unique_ptr<Command> applyCommand(CLI::App& app) { return std::make_unique<ApplyCommand>(app); }

}  // namespace Agent
