#include <Plog/Plog.h>
#include <Velo/VeloPlugin.h>
#include <Zeb/LogHandle.h>
#include <Zeb/TraceHandle.h>
#include <agent/LogMessages.h>
#include <agent/config/Cursor.h>
#include <agent/config/Mistake.h>
#include <agent/replay/Replay.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>

namespace {

using Agent::Exit;
using Agent::exitDone;
using Agent::exitUsage;

/// The plugin that is built with the program lies beside it.
std::string defaultPlugin() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (program.parent_path() / "VeloAcl.so").string();
}

/// Splits "A=B" or "A,B"; both parts must be there.
std::pair<std::string, std::string> split(const std::string& option, const std::string& text, char at) {
  const size_t place = text.find(at);
  if (place == std::string::npos || place == 0 || place + 1 == text.size()) {
    throw CLI::ValidationError(option,
                               "\"" + text + "\" is not of the form " + (at == '=' ? "NAME=FILE" : "A,B"));
  }
  return {text.substr(0, place), text.substr(place + 1)};
}

/// A port has a name that configuration texts can have, too.
void checkName(const std::string& option, const std::string& name) {
  if (!Config::isName(name))
    throw CLI::ValidationError(option, Config::quote(name) + " is no name for a port");
}

std::vector<std::pair<std::string, std::string>> splitAll(const std::string& option,
                                                          const std::vector<std::string>& texts, char at) {
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const auto& text : texts) {
    pairs.push_back(split(option, text, at));
    checkName(option, pairs.back().first);
    if (at == ',') checkName(option, pairs.back().second);
    for (size_t i = 0; at == '=' && i + 1 < pairs.size(); ++i) {
      if (pairs[i].first == pairs.back().first) {
        throw CLI::ValidationError(option, "port " + pairs.back().first + " is named twice");
      }
    }
  }
  return pairs;
}

constexpr const char* footer =
    "Exit status: 0 done, 1 a file could not be read or written to its end, 2 bad usage or configuration.";

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"A software forwarding agent with access lists.", "velo"};
  app.footer(footer);

  std::string plugin = defaultPlugin();
  std::string traces;

  Agent::ReplayOptions replay;
  std::vector<std::string> ports, patches, outs;
  std::string malformed = "drop";
  CLI::App* replayCommand = app.add_subcommand(
      "replay", "Run captures through the lists and show what each rule matched and what was dropped.");
  replayCommand->footer(
      "Without --patch only the lists bound in are asked. Captures are pcap or pcapng files of Ethernet "
      "frames; "
      "several are merged by time.\nExample: velo replay --config edge.acl --port eth1=in.pcap --patch "
      "eth1,eth2\n" +
      std::string(footer));
  replayCommand
      ->add_option("--config", replay.configs, "configuration text, the command line's; several are one")
      ->required()
      ->type_name("FILE...");
  replayCommand
      ->add_option("--config-dir", replay.configDir, "every file in DIR is a further source of configuration")
      ->type_name("DIR");
  replayCommand->add_option("--port", ports, "a port and the capture of what it receives; once a port")
      ->required()
      ->type_name("NAME=IN.pcap")
      ->allow_extra_args(false);
  replayCommand->add_option("--patch", patches, "join two ports or port-channels, both ways")
      ->type_name("A,B")
      ->allow_extra_args(false);
  replayCommand->add_option("--out", outs, "write what leaves a port, mirrored copies included")
      ->type_name("NAME=OUT.pcap")
      ->allow_extra_args(false);
  replayCommand
      ->add_option("--verdicts", replay.verdicts, "write one JSON object a line for each received frame")
      ->type_name("FILE");
  replayCommand
      ->add_option("--malformed", malformed, "what becomes of malformed frames: drop or pass (default drop)")
      ->check(CLI::IsMember({"drop", "pass"}))
      ->type_name("POLICY");
  replayCommand->add_flag("--json", replay.json, "one JSON document instead of tables");

  bool messagesJson = false;
  CLI::App* messagesCommand =
      app.add_subcommand("log-messages", "Load the plugin and print the catalogue of its log messages.");
  messagesCommand->add_flag("--json", messagesJson, "one JSON document instead of text");

  for (CLI::App* command : {replayCommand, messagesCommand}) {
    command->add_option("--plugin", plugin, "the plugin's library (default: VeloAcl.so beside the program)")
        ->type_name("PATH");
    command
        ->add_option(
            "--trace", traces,
            "facilities and levels to trace to standard error, such as Velo::Acl/0; all levels up to the one "
            "named are on. Environment: VELO_TRACE")
        ->type_name("NAME/LEVEL,...")
        ->envname("VELO_TRACE");
  }

  try {
    app.parse(argc, argv);
    // Asked for here, so that a word that is no command is reported before that one is missing.
    if (app.get_subcommands().empty()) throw CLI::RequiredError("A command");
    replay.ports = splitAll("--port", ports, '=');
    replay.patches = splitAll("--patch", patches, ',');
    replay.outs = splitAll("--out", outs, '=');
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? exitDone : exitUsage;
  }

  if (!traces.empty()) {
    if (const auto wrong = Zeb::TraceHandle::enable(traces)) {
      fmt::print(stderr, "velo: --trace: {}\n", *wrong);
      return exitUsage;
    }
    Plog::streamIs(Plog::fileStream(stderr));
  }

  if (messagesCommand->parsed()) return Agent::logMessages(plugin, messagesJson);
  replay.plugin = plugin;
  replay.malformed = malformed == "pass" ? Velo::MalformedPolicy::pass : Velo::MalformedPolicy::drop;
  return Agent::replay(replay);
}
