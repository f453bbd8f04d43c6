#include <agent/change/ConfigFiles.h>
#include <agent/change/Difference.h>
#include <agent/control/Commands.h>
#include <agent/control/ControlClient.h>
#include <agent/control/ControlPlane.h>
#include <agent/control/OffLine.h>
#include <agent/core/Arguments.h>
#include <agent/core/Output.h>
#include <agent/explain/FrameArgument.h>
#include <agent/show/Shows.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <thread>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

constexpr const char* exitText =
    "\nExit status: 0 done, 1 the agent could not be asked, 2 bad usage or configuration, or the agent "
    "refused.";
constexpr double shortestWatch = 0.2;

bool onTerminal() { return isatty(STDOUT_FILENO) != 0; }

double wallSeconds() { return Kiv::wallClock().now().seconds(); }

/// The document of an answer; a refusal and a broken connection are complained of.
std::optional<Json> documentOf(ControlClient& agent, const Json& request, Exit* exit) {
  std::string wrong;
  auto answer = agent.ask(request, &wrong);
  if (!answer) {
    complain(wrong);
    *exit = exitUnread;
    return std::nullopt;
  }
  if (answer->at("ok") == true) return answer->at("document");
  const Json& error = answer->at("error");
  for (const Json& mistake : error.value("mistakes", Json::array()))
    fmt::print(stderr, "{}\n", mistake.get<std::string>());
  complain(error.at("text").get<std::string>());
  *exit = exitUsage;
  return std::nullopt;
}

/// One request to the agent at a path.
std::optional<Json> askOnce(const std::string& path, const Json& request, Exit* exit) {
  ControlClient agent;
  if (const auto wrong = agent.connect(path)) {
    complain(*wrong);
    *exit = exitUnread;
    return std::nullopt;
  }
  return documentOf(agent, request, exit);
}

/// A request that names a list, if one was given.
Json withName(Json request, const std::string& name) {
  if (!name.empty()) request["name"] = name;
  return request;
}

std::string jsonText(const Json& document) {
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Exit printed(const std::string& text, Exit otherwise = exitDone) {
  return print(text) ? otherwise : exitUnread;
}

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

  CLI::App* applying =
      add(app, "apply", "Replace the command line's configuration of a running agent, whole or not at all.",
          &ControlCommands::apply);
  applying->add_option("files", files_, "configuration texts; several are one")
      ->required()
      ->type_name("FILE...");
  applying->add_flag("--dry-run", dryRun_, "only tell what would change");
  addControl(applying);

  CLI::App* checking = add(app, "check", "Read configuration texts and tell every mistake; needs no agent.",
                           &ControlCommands::check);
  checking->add_option("files", files_, "configuration texts; several are one")->type_name("FILE...");
  checking->add_option("--config-dir", configDir_, "every file in DIR is a further source of configuration")
      ->type_name("DIR");
  addTextLimits(*checking, limits_);

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

  CLI::App* clearing =
      add(app, "clear", "Draw the line above which counters are shown from now on.", &ControlCommands::clear);
  clearing->add_option("what", what_, "counters")
      ->required()
      ->check(CLI::IsMember({"counters"}))
      ->type_name("counters");
  clearing->add_option("name", name_, "of that list alone")->type_name("NAME");
  addControl(clearing);

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

Exit ControlCommands::show() const {
  ControlClient agent;
  if (const auto wrong = agent.connect(control_)) {
    complain(*wrong);
    return exitUnread;
  }
  for (;;) {
    Exit exit = exitDone;
    const auto document = documentOf(agent, withName({{"do", "show"}, {"what", what_}}, name_), &exit);
    if (!document) return exit;
    std::string text = json_ ? watch_ ? lineOf(*document) + "\n" : jsonText(*document)
                             : showOf(what_)->text(*document, {onTerminal(), wallSeconds()});
    // A screen is redrawn from its upper left corner; elsewhere one text follows the other.
    if (watch_ && onTerminal() && !json_) text = "\x1b[H\x1b[2J" + text;
    if (!print(text)) return exitUnread;
    if (!watch_) return exitDone;
    std::this_thread::sleep_for(std::chrono::duration<double>(*watch_));
  }
}

Exit ControlCommands::apply() const {
  std::vector<std::string> wrong;
  std::vector<Config::Source> sources;
  // Of more the agent would not hold.
  TextReader reader({Operations::mostText, Operations::mostText});
  for (const std::string& path : files_) {
    if (auto file = reader.read(path, TextReader::Named::byUser, wrong))
      sources.push_back({path, std::move(file->text)});
  }
  // Mistakes are told here, before the agent is bothered with them.
  if (wrong.empty()) {
    wrong = textsOf(Config::read(sources, {}, mostMistakes).mistakes);
  }
  for (const std::string& mistake : wrong) fmt::print(stderr, "{}\n", mistake);
  if (!wrong.empty()) return exitUsage;

  ControlClient agent;
  if (const auto unreachable = agent.connect(control_)) {
    complain(*unreachable);
    return exitUnread;
  }
  Exit exit = exitDone;
  for (const auto& source : sources) {
    for (const Json& request : textRequests(source.name, source.text)) {
      if (!documentOf(agent, request, &exit)) return exit;
    }
  }
  const auto document = documentOf(agent, {{"do", "apply"}, {"dryRun", dryRun_}}, &exit);
  if (!document) return exit;
  if (json_) return printed(jsonText(*document));
  return printed(differenceText(document->at("difference"), onTerminal()) +
                 (dryRun_ ? "(nothing was applied)\n" : ""));
}

Exit ControlCommands::check() const {
  if (files_.empty() && configDir_.empty()) {
    complain("check needs a FILE or --config-dir");
    return exitUsage;
  }
  const Json document = checkDocument(files_, configDir_, limits_);
  const bool good = document.at("mistakes").empty();
  if (json_) return printed(jsonText(document), good ? exitDone : exitUsage);
  for (const Json& mistake : document.at("mistakes")) fmt::print(stderr, "{}\n", mistake.get<std::string>());
  return good ? printed(checkText(document)) : exitUsage;
}

Exit ControlCommands::explain() const {
  std::string wrong;
  const auto frame = readFrameArgument(frame_, &wrong);
  if (!frame) {
    complain("--in: " + wrong);
    return exitUsage;
  }
  Exit exit = exitDone;
  std::optional<Json> document;
  if (files_.empty() && configDir_.empty()) {
    if (!out_.empty()) {
      complain("--out is for --config: a running agent knows where the frame would leave");
      return exitUsage;
    }
    document = askOnce(control_,
                       {{"do", "explain"},
                        {"port", port_},
                        {"frame", hexOf(frame->octets)},
                        {"wireLength", frame->wireLength}},
                       &exit);
  } else {
    document = explainOffLine({files_, configDir_, plugin_, port_, out_, limits_}, *frame, &exit);
  }
  if (!document) return exit;
  return printed(json_ ? jsonText(*document) : explainText(*document, onTerminal()));
}

Exit ControlCommands::clear() const {
  Exit exit = exitDone;
  const auto document = askOnce(control_, withName({{"do", "clear"}}, name_), &exit);
  if (!document) return exit;
  return json_ ? printed(jsonText(*document)) : exitDone;
}

Exit ControlCommands::trace() const {
  std::vector<Json> requests;
  if (traceOff_) requests.push_back({{"do", "trace"}, {"off", true}});
  if (!facilities_.empty()) requests.push_back({{"do", "trace"}, {"facility", facilities_}});
  if (!fast_.empty()) requests.push_back({{"do", "trace"}, {"fast", fast_}, {"on", true}});
  if (!fastOff_.empty()) requests.push_back({{"do", "trace"}, {"fast", fastOff_}, {"on", false}});
  if (requests.empty()) {
    complain("trace needs a FACILITY/LEVEL, --off, --fast or --fast-off");
    return exitUsage;
  }
  Exit exit = exitDone;
  for (const Json& request : requests) {
    if (!askOnce(control_, request, &exit)) return exit;
  }
  return json_ ? printed("{}\n") : exitDone;
}

}  // namespace Agent
