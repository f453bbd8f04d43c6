#include <agent/client/Command.h>
#include <agent/client/ControlClient.h>
#include <agent/control/ControlPlane.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/Words.h>
#include <agent/warnings/WarningText.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

constexpr const char* exitText =
    "\nExit status: 0 done, 1 the agent could not be asked, 2 bad usage or configuration, or the agent refused.";

}  // namespace

void addLeave(CLI::App& command, Leave& leave) {
  command.add_flag("--allow-open", leave.openings,
                   "carry out what lets traffic pass unfiltered that was filtered or is meant to be");
  command.add_flag("--strict", leave.strict, "refuse for any warning");
}

Command::Command(CLI::App& root, const char* name, const char* help, const std::string& footer)
    : ProgramCommand(root, name, help), control_(defaultControlPath) {
  app().footer(footer + exitText);
  app().add_flag("--json", json_, "one JSON document instead of text");
}

void Command::addControl() {
  app()
      .add_option(
          "--control", control_,
          fmt::format("the socket of the agent (default {}; environment: VELO_CONTROL)", defaultControlPath))
      ->type_name("SOCKET")
      ->envname("VELO_CONTROL");
}

std::optional<nlohmann::ordered_json> Command::ask(const nlohmann::ordered_json& request, Exit* exit) const {
  ControlClient agent;
  if (!connected(agent, control_, exit)) return std::nullopt;
  return documentOf(agent, request, exit);
}

Exit Command::tellRefusal(const nlohmann::ordered_json& error, const char* undone) const {
  if (!json()) {
    tellError(error);
    return exitUsage;
  }
  const auto none = nlohmann::ordered_json::array();
  nlohmann::ordered_json document = {{undone, false},
                                     {"refused", error.at("text")},
                                     {"mistakes", error.value("mistakes", none)},
                                     {"warnings", error.value("warnings", none)}};
  if (error.contains("packets")) document["packets"] = error.at("packets");
  return print(linesOf(document), exitUsage);
}

Exit Command::notAnswered(const std::vector<std::string>& mistakes) const {
  if (json() && !mistakes.empty()) return print(linesOf({{"mistakes", mistakes}}), exitUsage);
  tellMistakes(mistakes);
  return exitUsage;
}

void Command::tellWarnings(const nlohmann::ordered_json& document) {
  if (document.contains("warnings")) fmt::print(stderr, "{}", warningsText(document.at("warnings")));
}

Exit Command::print(const std::string& text, Exit otherwise) {
  return Agent::print(text) ? otherwise : exitUnread;
}

}  // namespace Agent
