#include <agent/client/Command.h>
#include <agent/client/ConfigurationReader.h>
#include <agent/commands/Arguments.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/SavedText.h>
#include <agent/core/Words.h>
#include <agent/study/Expectation.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <set>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* testHelp =
    "A line of FILE is one of\n"
    "  expect pass|drop on PORT in: PACKET [by rule N | by no rule]\n"
    "  expect all|none pass|drop from PORT to PORT: CONDITION\n"
    "with on PORT in, on PORT out or from PORT to PORT as the place; permit and deny are pass and drop. PACKET is\n"
    "as velo explain takes it, CONDITION as velo find does. by names the rule that is to decide, of the list that is\n"
    "asked last; by no rule: that none of it matches. A line that cannot be looked at, and one that no proof is found\n"
    "for within the limits, is told with its place, and the others are looked at all the same.\n"
    "\nExit status: 0 all of it is so, 1 something is not, 2 bad usage or configuration.";

/// A text as it stands in XML.
std::string escaped(std::string_view text) {
  std::string all;
  for (const char c : text) {
    if (c == '&')
      all += "&amp;";
    else if (c == '<')
      all += "&lt;";
    else if (c == '>')
      all += "&gt;";
    else if (c == '"')
      all += "&quot;";
    else
      all += c;
  }
  return all;
}

std::string becauseOf(const Json& result) {
  const std::string example = result.at("example").get<std::string>();
  return result.at("why").get<std::string>() + (example.empty() ? "" : ": " + example);
}

std::string testText(const Json& document) {
  std::string text;
  size_t good = 0;
  for (const Json& each : document.at("results")) {
    const bool holds = each.at("holds") == true;
    good += holds;
    text += fmt::format("{} {}:{}: {}\n", holds ? "ok  " : "FAIL", each.at("file").get<std::string>(),
                        each.at("line").get<int>(), each.at("text").get<std::string>());
    if (!holds) text += fmt::format("       {}\n", becauseOf(each));
  }
  if (document.at("results").empty()) return text;
  return text + fmt::format("{} of {} {} so\n", good, countText(document.at("results").size(), "expectation"),
                            document.at("results").size() == 1 ? "is" : "are");
}

/// As CI systems read it.
std::string junitText(const Json& document) {
  const Json &results = document.at("results"), &mistakes = document.at("mistakes");
  const auto failed = std::count_if(results.begin(), results.end(),
                                    [](const Json& each) { return each.at("holds") == false; });
  std::string text = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<testsuite name=\"velo\" tests=\"{}\" failures=\"{}\" errors=\"{}\">\n",
      results.size() + mistakes.size(), failed, mistakes.size());
  for (const Json& each : results) {
    text += fmt::format("  <testcase classname=\"{}\" name=\"{}: {}\"",
                        escaped(each.at("file").get<std::string>()), each.at("line").get<int>(),
                        escaped(each.at("text").get<std::string>()));
    text += each.at("holds") == true
                ? "/>\n"
                : fmt::format(">\n    <failure message=\"{}\"/>\n  </testcase>\n", escaped(becauseOf(each)));
  }
  for (const Json& each : mistakes)
    text += fmt::format(
        "  <testcase classname=\"velo test\" name=\"{0}\">\n    <error message=\"{0}\"/>\n  </testcase>\n",
        escaped(each.get<std::string>()));
  return text + "</testsuite>\n";
}

class TestCommand final : public Command {
 public:
  explicit TestCommand(CLI::App& root)
      : Command(root, "test", "Tell whether a configuration does to packets what a text expects.") {
    app().footer(testHelp);
    app().add_option("files", files_, "what is expected")->required()->type_name("FILE...");
    app()
        .add_option("--config", config_, "of this configuration text or directory, not of the agent's")
        ->type_name("FILE");
    app()
        .add_option("--ports", ports_,
                    "further ports than those that the configuration names, such as one without lists")
        ->type_name("A,B,...");
    app().add_option("--junit", junit_, "write the results as JUnit XML, too")->type_name("XML");
    proof_.addTo(app());
    addTextLimits(app(), texts_);
    addControl();
  }

  Exit whenItRunsOut() const override { return exitUsage; }
  Exit run(const std::string& plugin) const override {
    // Whatever ends this run, the results of another one are not taken for its own.
    std::error_code none;
    if (std::filesystem::is_regular_file(junit_, none)) std::filesystem::remove(junit_, none);
    std::vector<std::string> wrong;
    const auto files = read(wrong);
    const ConfigurationReader reader(texts_, control());
    const auto sources = reader.read(config_, wrong);
    if (!sources) return notAnswered(wrong);
    std::set<std::string> ports = reader.portsOf(config_);
    ports.merge(namesIn(ports_));
    const Expecting expecting(*sources, std::move(ports), plugin, proof_.limits());
    Json results = Json::array();
    for (const auto& [name, expectations] : files) {
      for (const Expectation& each : expectations) {
        NotLookedAt not_;
        if (const auto found = expecting.fulfilled(each, &not_))
          results.push_back({{"file", name},
                             {"line", each.line},
                             {"text", each.text},
                             {"holds", found->holds},
                             {"why", found->why},
                             {"example", found->example}});
        else
          wrong.push_back(fmt::format("{}:{}:{}: {}", name, each.line, not_.column, not_.why));
      }
    }
    tellMistakes(wrong);
    return tell({{"results", std::move(results)}, {"mistakes", wrong}});
  }

 private:
  using Files = std::vector<std::pair<std::string, std::vector<Expectation>>>;

  Files read(std::vector<std::string>& wrong) const {
    Files files;
    TextReader reader(texts_);
    for (const std::string& path : files_) {
      const auto file = reader.readOnly(path, TextReader::Named::byUser, wrong);
      if (!file) continue;
      const size_t mistakes = wrong.size();
      files.emplace_back(path, readExpectations(path, file->text, wrong));
      // A file that says nothing would be a test that cannot fail.
      if (files.back().second.empty() && wrong.size() == mistakes)
        wrong.push_back(path + ": nothing is expected in it");
    }
    return files;
  }

  Exit tell(const Json& document) const {
    if (!junit_.empty()) {
      if (const auto why = saveText(junit_, junitText(document))) {
        complain(*why);
        return exitUsage;
      }
    }
    if (!Agent::print(json() ? linesOf(document) : testText(document))) return exitUsage;
    if (!document.at("mistakes").empty()) return exitUsage;
    const Json& results = document.at("results");
    const bool all = std::all_of(results.begin(), results.end(),
                                 [](const Json& each) { return each.at("holds") == true; });
    return all ? exitDone : exitUnread;
  }

  std::vector<std::string> files_;
  std::string config_ = ConfigurationReader::running, ports_, junit_;
  ProofOptions proof_;
  TextLimits texts_;
};

}  // namespace

std::unique_ptr<Command> testCommand(CLI::App& app) { return std::make_unique<TestCommand>(app); }

}  // namespace Agent
