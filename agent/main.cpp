#include <Plog/Plog.h>
#include <Velo/VeloPlugin.h>
#include <Zeb/LogHandle.h>
#include <Zeb/TraceHandle.h>
#include <agent/control/Commands.h>
#include <agent/core/Memory.h>
#include <agent/core/Output.h>
#include <agent/core/Version.h>
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

/// The command line with all commands. Those that load the plugin into this process have options for that.
class CommandLine {
 public:
  CommandLine() {
    app_.footer(Agent::exitMeaning);
    app_.set_version_flag("--version", fmt::format("velo {}", Agent::version()));
    messages_.footer(Agent::exitMeaning);
    messages_.add_flag("--json", messagesJson_, "one JSON document instead of text");
    for (CLI::App* command : {&replay_.command(), &run_.command(), &messages_}) addPluginOptions(*command);
  }

  /// Parses the arguments. Returns the exit status when there is nothing to carry out.
  std::optional<int> parse(int argc, char** argv) {
    try {
      app_.parse(argc, argv);
      // Asked for here, so that a word that is no command is reported before a missing one.
      if (app_.get_subcommands().empty()) throw CLI::RequiredError("A command");
      if (replay_.command().parsed()) replayOptions_ = replay_.options();
      if (run_.command().parsed()) runOptions_ = run_.options();
    } catch (const CLI::ParseError& error) {
      return app_.exit(error) == 0 ? exitDone : exitUsage;
    }
    return enableTraces();
  }

  int carryOut() {
    if (const auto done = control_.run(plugin_)) return *done;
    if (messages_.parsed()) return Agent::logMessages(plugin_, messagesJson_);
    if (run_.command().parsed()) {
      runOptions_.plugin = plugin_;
      return Agent::runAgent(runOptions_);
    }
    replayOptions_.plugin = plugin_;
    return Agent::replay(replayOptions_);
  }

 private:
  void addPluginOptions(CLI::App& command) {
    command.add_option("--plugin", plugin_, "the plugin's library (default: VeloAcl.so beside the program)")
        ->type_name("PATH");
    command
        .add_option(
            "--trace", traces_,
            "facilities and levels to trace to standard error, such as Velo::Acl/0; all levels up to the one "
            "named are on. Environment: VELO_TRACE")
        ->type_name("NAME/LEVEL,...")
        ->envname("VELO_TRACE");
  }

  std::optional<int> enableTraces() const {
    if (traces_.empty()) return std::nullopt;
    if (const auto wrong = Zeb::TraceHandle::enable(traces_)) {
      Agent::complain("--trace: " + *wrong);
      return exitUsage;
    }
    Plog::streamIs(Plog::fileStream(stderr));
    return std::nullopt;
  }

  CLI::App app_{"A software forwarding agent with access lists.", "velo"};
  std::string plugin_ = defaultPlugin();
  std::string traces_;
  bool messagesJson_ = false;
  // In the order in which the help lists the commands.
  Agent::ReplayArguments replay_{app_};
  Agent::RunArguments run_{app_};
  Agent::ControlCommands control_{app_};
  CLI::App& messages_ =
      *app_.add_subcommand("log-messages", "Load the plugin and print the catalogue of its log messages.");
  Agent::ReplayOptions replayOptions_;
  Agent::RunOptions runOptions_;
};

}  // namespace

int main(int argc, char** argv) {
  Agent::useLargePages();
  CommandLine commandLine;
  if (const auto done = commandLine.parse(argc, argv)) return *done;
  try {
    return commandLine.carryOut();
  } catch (const std::bad_alloc&) {
    Agent::complain(Agent::outOfMemory);
    return Agent::exitUnread;
  } catch (const std::system_error& error) {
    // A thread could not be started.
    Agent::complain(error.what());
    return Agent::exitUnread;
  }
}
