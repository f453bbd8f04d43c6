#include <Plog/Plog.h>
#include <Velo/VeloPlugin.h>
#include <Zeb/LogHandle.h>
#include <Zeb/TraceHandle.h>
#include <agent/control/Commands.h>
#include <agent/core/Memory.h>
#include <agent/core/Output.h>
#include <agent/replay/ReplayArguments.h>
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

/// The plugin that is built with the program lies beside it.
std::string defaultPlugin() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (program.parent_path() / "VeloAcl.so").string();
}

}  // namespace

int main(int argc, char** argv) {
  Agent::useLargePages();
  CLI::App app{"A software forwarding agent with access lists.", "velo"};
  app.footer(Agent::exitMeaning);

  std::string plugin = defaultPlugin();
  std::string traces;

  Agent::ReplayArguments replay(app);
  Agent::RunArguments run(app);
  Agent::ControlCommands control(app);

  bool messagesJson = false;
  CLI::App* messagesCommand =
      app.add_subcommand("log-messages", "Load the plugin and print the catalogue of its log messages.");
  messagesCommand->add_flag("--json", messagesJson, "one JSON document instead of text");

  for (CLI::App* command : {&replay.command(), &run.command(), messagesCommand}) {
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

  Agent::ReplayOptions replayOptions;
  Agent::RunOptions runOptions;
  try {
    app.parse(argc, argv);
    // Asked for here, so that a word that is no command is reported before that one is missing.
    if (app.get_subcommands().empty()) throw CLI::RequiredError("A command");
    if (replay.command().parsed()) replayOptions = replay.options();
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
    replayOptions.plugin = plugin;
    return Agent::replay(replayOptions);
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
