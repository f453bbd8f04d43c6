#include <Plog/Plog.h>
#include <Velo/VeloPlugin.h>
#include <Zeb/LogHandle.h>
#include <Zeb/TraceHandle.h>
#include <agent/control/Commands.h>
#include <agent/core/Arguments.h>
#include <agent/core/Memory.h>
#include <agent/core/Output.h>
#include <agent/replay/Replay.h>
#include <agent/run/RunArguments.h>
#include <agent/show/LogMessages.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <system_error>

namespace {

using Agent::Exit;
using Agent::exitDone;
using Agent::exitUsage;
using Agent::splitAll;

/// The plugin that is built with the program lies beside it.
std::string defaultPlugin() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (program.parent_path() / "VeloAcl.so").string();
}

constexpr const char* footer =
    "Exit status: 0 done, 1 a file could not be read or written to its end, 2 bad usage or configuration.";

}  // namespace

int main(int argc, char** argv) {
  Agent::useLargePages();
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
  Agent::addTextLimits(*replayCommand, replay.limits);
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

  Agent::RunArguments run(app);
  const Agent::ControlCommands control(app);

  bool messagesJson = false;
  CLI::App* messagesCommand =
      app.add_subcommand("log-messages", "Load the plugin and print the catalogue of its log messages.");
  messagesCommand->add_flag("--json", messagesJson, "one JSON document instead of text");

  for (CLI::App* command : {replayCommand, &run.command(), messagesCommand}) {
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

  Agent::RunOptions runOptions;
  try {
    app.parse(argc, argv);
    // Asked for here, so that a word that is no command is reported before that one is missing.
    if (app.get_subcommands().empty()) throw CLI::RequiredError("A command");
    replay.ports = splitAll("--port", ports, '=');
    replay.patches = splitAll("--patch", patches, ',');
    replay.outs = splitAll("--out", outs, '=');
    if (run.command().parsed()) runOptions = run.options();
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

  const auto carryOut = [&]() -> int {
    if (const auto done = control.run(plugin)) return *done;
    if (messagesCommand->parsed()) return Agent::logMessages(plugin, messagesJson);
    if (run.command().parsed()) {
      runOptions.plugin = plugin;
      return Agent::runAgent(runOptions);
    }
    replay.plugin = plugin;
    replay.malformed = malformed == "pass" ? Velo::MalformedPolicy::pass : Velo::MalformedPolicy::drop;
    return Agent::replay(replay);
  };
  try {
    return carryOut();
  } catch (const std::bad_alloc&) {
    Agent::complain(Agent::outOfMemory);
    return Agent::exitUnread;
  } catch (const std::system_error& error) {
    // A thread that the system does not give.
    Agent::complain(error.what());
    return Agent::exitUnread;
  }
}
