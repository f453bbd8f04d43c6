#include <agent/client/ChangeCommand.h>
#include <agent/core/Output.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <vector>

namespace Agent {

namespace {

constexpr const char* editHelp =
    "COMMAND is one of\n"
    "  [NUMBER] permit|deny ...    add a rule, or replace the one of this number\n"
    "  [NUMBER] remark TEXT        in front of the rule that comes next, or of the one of this number\n"
    "  no NUMBER, no RULE          take a rule away; no NUMBER remark: its remark\n"
    "  move NUMBER before NUMBER   or after: the rule gets a number that is free there\n"
    "  resequence [START [STEP]]   new numbers for all rules (10 10)\n"
    "Rules that are only moved or renumbered keep their ids and counters.\n";

class EditCommand final : public ChangeCommand {
 public:
  explicit EditCommand(CLI::App& root)
      : ChangeCommand(root, "edit",
                      "Change rules of one list of a running agent; several commands are one change.",
                      editHelp) {
    app().add_option("list", list_, "of the command line's configuration")->required()->type_name("LIST");
    app().add_option("commands", commands_, "what to do")->required()->type_name("COMMAND...");
    app()
        .add_option("--type", type_, "of the list, if there are several of the name")
        ->check(CLI::IsMember({"ip", "ipv6", "mac"}))
        ->type_name("TYPE");
    addChange();
  }

  Exit run(const std::string&) const override {
    Exit exit = exitDone;
    std::string lines;
    for (const std::string& command : commands_) {
      if (command.find_first_of("\r\n") != std::string::npos)
        return notApplied({{"text", "a command is one line"}});
      lines += command + "\n";
    }
    ControlClient agent;
    if (!connected(agent, control(), &exit)) return exit;
    if (!sent(agent, "edit", lines, &exit)) return exit;
    nlohmann::ordered_json request = {{"do", "edit"}, {"list", list_}};
    if (!type_.empty()) request["type"] = type_;
    return change(agent, std::move(request));
  }

 private:
  std::string list_, type_;
  std::vector<std::string> commands_;
};

}  // namespace

std::unique_ptr<Command> editCommand(CLI::App& app) { return std::make_unique<EditCommand>(app); }

}  // namespace Agent
