// The commands with their options; what they do is in CommandsDo.cpp.
#include <agent/control/Commands.h>
#include <agent/control/ControlPlane.h>
#include <agent/core/Arguments.h>
#include <agent/show/Shows.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

constexpr const char* exitText =
    "\nExit status: 0 done, 1 the agent could not be asked, 2 bad usage or configuration, or the agent "
    "refused.";
constexpr double shortestWatch = 0.2;

}  // namespace

CLI::App* ControlCommands::add(CLI::App& app, const char* name, const char* help,
                               Exit (ControlCommands::*command)() const) {
  CLI::App* added = app.add_subcommand(name, help);
  added->add_flag("--json", json_, "one JSON document instead of text");
  added->footer(exitText);
  commands_.emplace_back(added, command);
  return added;
}

void ControlCommands::addControl(CLI::App* command) {
  command
      ->add_option(
          "--control", control_,
          fmt::format("the socket of the agent (default {}; environment: VELO_CONTROL)", defaultControlPath))
      ->type_name("SOCKET")
      ->envname("VELO_CONTROL");
}

ControlCommands::ControlCommands(CLI::App& app) : control_(defaultControlPath) {
  addShow(app);
  addApply(app);
  addCheck(app);
  addExplain(app);
  addClear(app);
  addTrace(app);
}

void ControlCommands::addShow(CLI::App& app) {
  CLI::App* showing = add(app, "show", "Show what a running agent knows.", &ControlCommands::show);
  std::string footer;
  std::vector<std::string> names;
  for (const Show& show : shows()) {
    names.emplace_back(show.name);
    footer += fmt::format("  {:<22} {}\n", fmt::format("{} {}", show.name, show.argument), show.help);
  }
  showing->footer("WHAT is one of\n" + footer + exitText);
  showing->add_option("what", what_, "what to show")
      ->required()
      ->check(CLI::IsMember(names))
      ->type_name("WHAT");
  showing->add_option("name", name_, "of that list alone")->type_name("NAME");
  showing->add_option("--watch", watch_, "again and again, every SECONDS (2)")
      ->expected(0, 1)
      ->default_str("2")
      ->check(CLI::Range(shortestWatch, 1e6))
      ->type_name("SECONDS");
  addControl(showing);
}

void ControlCommands::addApply(CLI::App& app) {
  CLI::App* applying =
      add(app, "apply", "Replace the command line's configuration of a running agent, whole or not at all.",
          &ControlCommands::apply);
  applying->add_option("files", files_, "configuration texts; several are one")
      ->required()
      ->type_name("FILE...");
  applying->add_flag("--dry-run", dryRun_, "only tell what would change");
  addControl(applying);
}

void ControlCommands::addCheck(CLI::App& app) {
  CLI::App* checking = add(app, "check", "Read configuration texts and tell every mistake; needs no agent.",
                           &ControlCommands::check);
  checking->add_option("files", files_, "configuration texts; several are one")->type_name("FILE...");
  checking->add_option("--config-dir", configDir_, "every file in DIR is a further source of configuration")
      ->type_name("DIR");
  addTextLimits(*checking, limits_);
}

void ControlCommands::addExplain(CLI::App& app) {
  CLI::App* explaining =
      add(app, "explain", "Tell which lists and rules a frame meets, and why.", &ControlCommands::explain);
  explaining->footer(
      "FRAME is FILE.pcap[:N] (the Nth frame of a capture), the octets in hexadecimal, or a text such as\n"
      "  \"tcp 192.0.2.1:1234 > 198.51.100.7:443 ack vlan 5 ttl 64\"\n"
      "  \"icmpv6 2001:db8::1 > 2001:db8::2 packet-too-big\"    \"udp [2001:db8::1]:53 > "
      "[2001:db8::2]:1024\"\n"
      "  \"ip 192.0.2.1 > 198.51.100.7 protocol gre dscp ef\"   \"arp 192.0.2.1 > 192.0.2.2 from "
      "02:00:5e:00:00:01\"\n"
      "Nothing is counted. With --config no agent is asked.\n" +
      std::string(exitText));
  explaining->add_option("--port", port_, "where the frame comes in")->required()->type_name("NAME");
  explaining->add_option("--in", frame_, "the frame")->required()->type_name("FRAME");
  explaining->add_option("--config", files_, "explain by these configuration texts")->type_name("FILE...");
  explaining->add_option("--config-dir", configDir_, "and by every file in DIR")->type_name("DIR");
  addTextLimits(*explaining, limits_);
  explaining->add_option("--out", out_, "with --config: where it would leave")->type_name("NAME");
  addControl(explaining);
}

void ControlCommands::addClear(CLI::App& app) {
  CLI::App* clearing =
      add(app, "clear", "Draw the line above which counters are shown from now on.", &ControlCommands::clear);
  clearing->add_option("what", what_, "counters")
      ->required()
      ->check(CLI::IsMember({"counters"}))
      ->type_name("counters");
  clearing->add_option("name", name_, "of that list alone")->type_name("NAME");
  addControl(clearing);
}

void ControlCommands::addTrace(CLI::App& app) {
  CLI::App* tracing = add(app, "trace", "Switch traces of a running agent; velo show trace shows them.",
                          &ControlCommands::trace);
  tracing
      ->add_option("facilities", facilities_,
                   "facilities with the highest level that is on, such as Velo::Acl/0")
      ->type_name("FACILITY/LEVEL,...");
  tracing->add_flag("--off", traceOff_, "switch every facility off");
  tracing->add_option("--fast", fast_, "switch the fast traces of a facility on")->type_name("FACILITY");
  tracing->add_option("--fast-off", fastOff_, "switch them off")->type_name("FACILITY");
  addControl(tracing);
}

std::optional<Exit> ControlCommands::run(const std::string& plugin) const {
  plugin_ = plugin;
  for (const auto& [app, command] : commands_) {
    if (app->parsed()) return (this->*command)();
  }
  return std::nullopt;
}

}  // namespace Agent
