#include <Kiv/Clock.h>
#include <agent/change/ConfigFiles.h>
#include <agent/client/Command.h>
#include <agent/client/ConfigurationReader.h>
#include <agent/client/ControlClient.h>
#include <agent/client/StateTree.h>
#include <agent/client/WatchShow.h>
#include <agent/client/WrittenText.h>
#include <agent/config/Nearest.h>
#include <agent/config/Reader.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/Terminal.h>
#include <agent/core/Words.h>
#include <agent/show/Shows.h>
#include <agent/study/ListProof.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <thread>

namespace Agent {

namespace {

constexpr double shortestWatch = 0.2;

std::string namesOfShows() {
  std::string text = "WHAT is one of\n";
  for (const Show& show : shows())
    text += fmt::format("  {:<22} {}\n", fmt::format("{} {}", show.name, show.argument), show.help);
  return text;
}

/// Why nothing of a name can be shown; empty if it can.
std::string whyNoShow(const std::string& what) {
  std::vector<std::string_view> names;
  for (const Show& show : shows()) names.push_back(show.name);
  if (showOf(what)) return "";
  return Config::orNearest(fmt::format("{} is none of {}", what, fmt::join(names, ", ")), what, names);
}

class ShowCommand final : public Command {
 public:
  explicit ShowCommand(CLI::App& root)
      : Command(root, "show", "Show what a running agent knows.", namesOfShows()) {
    app()
        .add_option("what", asked_.what, "what to show")
        ->required()
        ->check([](const std::string& what) { return whyNoShow(what); })
        ->type_name("WHAT");
    app().add_option("name", asked_.list, "of that list alone")->type_name("NAME");
    app()
        .add_option("--watch", watch_, "again and again, every SECONDS (2); on a terminal as a full screen")
        ->expected(0, 1)
        ->default_str("2")
        ->check(CLI::Range(shortestWatch, 1e6))
        ->type_name("SECONDS");
    app()
        .add_option("--source", asked_.source,
                    "of access-lists and configuration: what this source alone has, cli or a file")
        ->type_name("NAME");
    auto* lint = app().add_flag(
        "--lint", lint_, "of access-lists: what all packets show of each rule, as velo check tells it");
    proof_.addTo(app(), lint);
    proof_.addPartly(app(), lint);
    addFormat(
        app(), "--format",
        "of configuration: what to write it as; of access-lists, ietf or openconfig: the same with what was counted",
        &format_, &lossy_);
    addSelection();
    addControl();
  }

  Exit whenItRunsOut() const override { return lint_ ? exitUsage : Command::whenItRunsOut(); }
  Exit run(const std::string&) const override {
    Exit exit = exitDone;
    const Show& show = *showOf(asked_.what);
    const ShowRequest asked = request();
    if (asked.selects() && !show.selects) {
      complain(fmt::format("show {} has no rules to select or to sort", asked_.what));
      return exitUsage;
    }
    if (!asked.source.empty() && !show.bySource) {
      complain(fmt::format("show {} is not by source", asked_.what));
      return exitUsage;
    }
    if (const char* wrong = whyNoFormat()) {
      complain(wrong);
      return exitUsage;
    }
    if (lint_ && (asked_.what != "access-lists" || watch_ || !asked_.source.empty())) {
      complain("--lint is for show access-lists, and not for --watch or --source");
      return exitUsage;
    }
    ControlClient agent;
    if (!connected(agent, control(), &exit)) return exit;
    ShownDocument shown(agent, asked, watch_.has_value());
    if (watch_ && !json() && isScreen(STDOUT_FILENO)) return watchShow(shown, *watch_);
    for (;;) {
      std::string wrong;
      auto document = shown.next(&wrong, &exit);
      if (document && lint_ && !linted(agent, *document, &wrong)) {
        document.reset();
        exit = exitUnread;
      }
      if (!document) {
        complain(wrong);
        return exit;
      }
      if (!format_.empty() && asked_.what == "configuration") return printFormat(*document, nullptr);
      if (!format_.empty()) return printState(agent, *document);
      exit = print(text(show, *document));
      if (exit != exitDone || !watch_) return exit;
      std::this_thread::sleep_for(std::chrono::duration<double>(*watch_));
    }
  }

 private:
  void addSelection() {
    constexpr const char* group = "Of access-lists";
    app()
        .add_option("--interface", asked_.interface, "those alone that frames of this interface meet")
        ->type_name("NAME")
        ->group(group);
    auto* hit = app().add_flag("--hit", asked_.hit, "the rules that have matched a packet")->group(group);
    app()
        .add_flag("--unused", asked_.unused, "the rules that have matched none")
        ->group(group)
        ->excludes(hit);
    app()
        .add_option("--sort", sort_, "the most packets first, the latest match first, or as they are tried")
        ->check(CLI::IsMember({"hits", "last", "number"}))
        ->group(group);
    app()
        .add_option("--top", asked_.top,
                    "the first N of all lists together, by hits unless --sort says otherwise")
        ->check(CLI::Range(size_t{1}, size_t{1} << 31))
        ->type_name("N")
        ->group(group);
  }

  std::string text(const Show& show, const nlohmann::ordered_json& document) const {
    if (json()) return watch_ ? documentLineOf(document) : linesOf(document);
    const auto size = screenSize(STDOUT_FILENO);
    return show.text(document, {wantsColour(STDOUT_FILENO), Kiv::wallClock().now().seconds(),
                                size ? std::optional(size->columns) : std::nullopt});
  }

  /// Adds what this program proves of the lists, on its own processor time.
  bool linted(ControlClient& agent, nlohmann::ordered_json& document, std::string* wrong) const {
    const auto inForce = sourcesInForce(agent, wrong);
    if (inForce) addFindings(document, inForce->sources.layers(), proof_.limits(), proof_.say());
    return inForce.has_value();
  }

  /// What speaks against the format that was asked for; null if nothing does.
  const char* whyNoFormat() const {
    if (format_.empty()) return nullptr;
    const bool lists = asked_.what == "access-lists";
    if (watch_ || lint_ || (asked_.what != "configuration" && !lists))
      return "--format is for show configuration and show access-lists, and not for --watch or --lint";
    if (!lists) return nullptr;
    if (!hasState(*Models::formatOf(format_))) return "show access-lists is written as ietf or openconfig";
    const bool some = request().selects() || !asked_.list.empty() || !asked_.source.empty();
    return some ? "--format is for all lists and all rules" : nullptr;
  }

  /// The configuration that is in force, with what its lists have counted.
  Exit printState(ControlClient& agent, const nlohmann::ordered_json& lists) const {
    Exit exit = exitDone;
    std::string wrong;
    ShowRequest asked;
    asked.what = "configuration";
    const auto configuration = ShownDocument(agent, asked, false).next(&wrong, &exit);
    if (!configuration) {
      complain(wrong);
      return exit;
    }
    return printFormat(*configuration, &lists);
  }

  /// The configuration in another format.
  Exit printFormat(const nlohmann::ordered_json& document, const nlohmann::ordered_json* lists) const {
    const auto read = Config::read({{"the configuration", document.at("text").get<std::string>()}});
    tellMistakes(textsOf(read.mistakes));
    return read.model ? printAs(*read.model, format_, lossy_, json(), lists) : exitUsage;
  }

  /// What was asked for, with the order by its name.
  ShowRequest request() const {
    ShowRequest request = asked_;
    if (!sort_.empty())
      request.order = sort_ == "hits"   ? RuleOrder::hits
                      : sort_ == "last" ? RuleOrder::last
                                        : RuleOrder::number;
    request.summary = !json() && showOf(asked_.what)->sumsUp;
    return request;
  }

  ShowRequest asked_;  // all but the order
  std::string sort_, format_;
  bool lossy_ = false, lint_ = false;
  ProofOptions proof_;
  std::optional<double> watch_;
};

}  // namespace

std::unique_ptr<Command> showCommand(CLI::App& app) { return std::make_unique<ShowCommand>(app); }

}  // namespace Agent
