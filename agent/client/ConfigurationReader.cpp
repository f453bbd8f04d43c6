#include <Kelp/Duration.h>
#include <agent/change/ConfigFiles.h>
#include <agent/client/ConfigurationReader.h>
#include <agent/client/ControlClient.h>
#include <agent/core/Background.h>
#include <agent/core/Output.h>
#include <agent/core/TerminalLine.h>
#include <agent/core/Words.h>
#include <agent/models/Reader.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

std::optional<Sources> ConfigurationReader::read(const std::string& name,
                                                 std::vector<std::string>& mistakes) const {
  if (name == running) return ofAgent(mistakes);
  std::error_code error;
  if (std::filesystem::is_directory(name, error)) return ofFiles({}, name, mistakes);
  return ofFiles({name}, "", mistakes);
}

std::optional<Sources> ConfigurationReader::readAsOne(const std::vector<std::string>& names,
                                                      std::vector<std::string>& mistakes) const {
  if (names.empty()) return ofAgent(mistakes);
  return names.size() == 1 ? read(names.front(), mistakes) : ofFiles(names, "", mistakes);
}

std::optional<Sources> ConfigurationReader::ofFiles(const std::vector<std::string>& files,
                                                    const std::string& dir,
                                                    std::vector<std::string>& mistakes) const {
  ConfigFiles texts;
  auto wrong = texts.read(files, dir, limits_);
  if (wrong.empty()) {
    if (auto why = texts.sources().whyNot())
      wrong.push_back(fmt::format("{}: {}", files.empty() ? dir : files.front(), *why));
  }
  if (wrong.empty()) return texts.takeSources();
  mistakes.insert(mistakes.end(), wrong.begin(), wrong.end());
  return std::nullopt;
}

namespace {

/// The sources of one revision; nothing, without anything wrong, when there was another one in between.
std::optional<InForceSources> sourcesOfOneRevision(ControlClient& agent, std::string* wrong) {
  Exit exit = exitDone;
  const auto shown = [&](const Json& request) { return wholeDocumentOf(agent, request, wrong, &exit); };
  const auto status = shown({{"do", "show"}, {"what", "status"}});
  if (!status) return std::nullopt;
  InForceSources found;
  std::optional<uint64_t> revision;
  for (const Json& source : status->at("configuration").at("sources")) {
    const std::string title = source.at("name").get<std::string>();
    const auto document = shown({{"do", "show"}, {"what", "configuration"}, {"source", title}});
    if (!document) return std::nullopt;
    found.revision = document->at("revision").get<uint64_t>();
    if (revision && *revision != found.revision) return std::nullopt;
    revision = found.revision;
    auto result = Models::read({{title, document->at("text").get<std::string>()}}, {}, mostMistakes);
    if (!result.model) {
      *wrong = result.mistakes.front().str();
      return std::nullopt;
    }
    const std::string name = sourceOfTitle(title);
    if (name == commandLineName)
      found.sources.commandLine = std::move(*result.model);
    else
      found.sources.inputs[name] = std::move(*result.model);
  }
  return found;
}

}  // namespace

std::optional<InForceSources> sourcesInForce(ControlClient& agent, std::string* wrong) {
  constexpr int mostTries = 20;
  for (int tries = 0; tries < mostTries; ++tries) {
    wrong->clear();
    if (auto found = sourcesOfOneRevision(agent, wrong)) return found;
    if (!wrong->empty()) return std::nullopt;
  }
  *wrong = "the configuration changes all the time";
  return std::nullopt;
}

std::optional<Sources> ConfigurationReader::ofAgent(std::vector<std::string>& mistakes) const {
  Exit exit = exitDone;
  ControlClient agent;
  if (!connected(agent, control_, &exit)) return std::nullopt;
  std::string wrong;
  auto found = sourcesInForce(agent, &wrong);
  if (!found) {
    mistakes.push_back(std::move(wrong));
    return std::nullopt;
  }
  return std::move(found->sources);
}

std::set<std::string> ConfigurationReader::portsOf(const std::string& name) const {
  std::set<std::string> ports;
  if (name != running) return ports;
  Exit exit = exitDone;
  ControlClient agent;
  std::string wrong;
  if (!connected(agent, control_, &exit)) return ports;
  const auto document = wholeDocumentOf(agent, {{"do", "show"}, {"what", "ports"}}, &wrong, &exit);
  if (!document) return ports;
  for (const auto& [port, state] : document->at("ports").items()) ports.insert(port);
  return ports;
}

namespace {

class ProofOnTerminal final : public Proof::Watcher {
 public:
  bool isThere() const { return line_.isOnTerminal(); }
  void cameTo(const Proof::Progress& progress) override {
    const std::string rules =
        progress.all == 0 ? "" : fmt::format(", {} of {} rules", progress.done, progress.all);
    line_.show(fmt::format("proving: {:.0f} s, {} MiB{}", progress.seconds, progress.memory >> 20, rules));
  }
  void ended() override { line_.clear(); }

 private:
  TerminalLine line_;
};

}  // namespace

Proof::Limits ProofOptions::limits() const {
  static ProofOnTerminal terminal;
  giveWay();
  const Kelp::Duration seconds(seconds_);
  return {seconds, static_cast<size_t>(memory_) << 20, seconds, terminal.isThere() ? &terminal : nullptr};
}
void ProofOptions::addPartly(CLI::App& command, CLI::Option* needed) {
  auto* partly = command.add_flag("--partly", partly_,
                                  "tell of which rules earlier ones take a part, and what is left, too");
  if (needed) partly->needs(needed);
}
void ProofOptions::addTo(CLI::App& command, CLI::Option* needed) {
  CLI::Option* const options[] = {
      command.add_option("--proof-seconds", seconds_, "after so long stop, and say what was not looked at")
          ->check(CLI::Range(0.001, 1e6))
          ->capture_default_str()
          ->type_name("SECONDS"),
      command.add_option("--proof-memory", memory_, "the same beyond so much memory")
          ->check(CLI::Range(1, 1 << 20))
          ->capture_default_str()
          ->type_name("MIB")};
  for (CLI::Option* each : options) {
    if (needed) each->needs(needed);
  }
}

}  // namespace Agent
