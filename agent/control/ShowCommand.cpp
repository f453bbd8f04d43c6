#include <Kiv/Clock.h>
#include <agent/control/Command.h>
#include <agent/control/ControlClient.h>
#include <agent/core/Document.h>
#include <agent/show/Shows.h>
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

class ShowCommand final : public Command {
 public:
  explicit ShowCommand(CLI::App& root)
      : Command(root, "show", "Show what a running agent knows.", namesOfShows()) {
    std::vector<std::string> names;
    for (const Show& show : shows()) names.emplace_back(show.name);
    app()
        .add_option("what", what_, "what to show")
        ->required()
        ->check(CLI::IsMember(names))
        ->type_name("WHAT");
    app().add_option("name", list_, "of that list alone")->type_name("NAME");
    app()
        .add_option("--watch", watch_, "again and again, every SECONDS (2)")
        ->expected(0, 1)
        ->default_str("2")
        ->check(CLI::Range(shortestWatch, 1e6))
        ->type_name("SECONDS");
    app()
        .add_option("--source", source_,
                    "of configuration: what comes from this source alone (cli, or a file)")
        ->type_name("NAME");
    addControl();
  }

  Exit run(const std::string&) const override {
    Exit exit = exitDone;
    ControlClient agent;
    if (!connected(agent, control(), &exit)) return exit;
    nlohmann::ordered_json request = {{"do", "show"}, {"what", what_}};
    if (!list_.empty()) request["name"] = list_;
    if (!source_.empty()) request["source"] = source_;
    for (;;) {
      const auto document = wholeDocumentOf(agent, request, &exit);
      if (!document) return exit;
      exit = print(text(*document));
      if (exit != exitDone || !watch_) return exit;
      std::this_thread::sleep_for(std::chrono::duration<double>(*watch_));
    }
  }

 private:
  std::string text(const nlohmann::ordered_json& document) const {
    if (json()) return watch_ ? lineOf(document) + "\n" : linesOf(document);
    const bool onTerminal = isatty(STDOUT_FILENO) != 0;
    const std::string shown = showOf(what_)->text(document, {onTerminal, Kiv::wallClock().now().seconds()});
    // A screen is redrawn from its upper left corner; elsewhere one text follows the other.
    return watch_ && onTerminal ? "\x1b[H\x1b[2J" + shown : shown;
  }

  std::string what_, list_, source_;
  std::optional<double> watch_;
};

}  // namespace

std::unique_ptr<Command> showCommand(CLI::App& app) { return std::make_unique<ShowCommand>(app); }

}  // namespace Agent
