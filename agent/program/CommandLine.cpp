#include "CommandLine.h"

#include <Plog/Plog.h>
#include <Zeb/TraceHandle.h>
#include <agent/client/Command.h>
#include <agent/core/Memory.h>
#include <agent/core/Output.h>
#include <agent/core/Version.h>
#include <agent/fleet/FleetCommand.h>
#include <agent/manual/ManualCommand.h>
#include <agent/program/LogMessagesCommand.h>
#include <agent/program/ReplayCommand.h>
#include <agent/program/RunCommand.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace Agent {

namespace {

/// The plugin that is built with the program lies beside it.
std::string defaultPlugin() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (program.parent_path() / "VeloAcl.so").string();
}

template <auto make>
std::unique_ptr<ProgramCommand> made(CLI::App& program) {
  return make(program);
}

/// All commands, in the order in which the help lists them.
constexpr std::unique_ptr<ProgramCommand> (*makers[])(CLI::App& program) = {
    made<replayCommand>,  made<runCommand>,      made<showCommand>,     made<applyCommand>,
    made<editCommand>,    made<saveCommand>,     made<historyCommand>,  made<rollbackCommand>,
    made<confirmCommand>, made<checkCommand>,    made<compareCommand>,  made<findCommand>,
    made<testCommand>,    made<simplifyCommand>, made<convertCommand>,  made<explainCommand>,
    made<tailCommand>,    made<clearCommand>,    made<traceCommand>,    made<logMessagesCommand>,
    made<fleetCommand>,   made<manualCommand>,   made<completeCommand>,
};

/// The command line with all commands.
class CommandLine {
 public:
  CommandLine() {
    app_.footer(exitMeaning);
    app_.set_version_flag("--version", fmt::format("velo {}", version()));
    for (const auto make : makers) {
      commands_.push_back(make(app_));
      if (commands_.back()->loadsPlugin()) addPluginOptions(commands_.back()->app());
    }
  }

  /// Parses the arguments. Returns the exit status when there is nothing to carry out.
  std::optional<int> parse(int argc, char** argv) {
    try {
      app_.parse(argc, argv);
      // Asked for here, so that a word that is no command is reported before a missing one.
      if (app_.get_subcommands().empty()) throw CLI::RequiredError("A command");
    } catch (const CLI::ParseError& error) {
      return app_.exit(error) == 0 ? exitDone : exitUsage;
    }
    return enableTraces();
  }

  int carryOut() {
    const auto given = [](const auto& command) { return command->parsed(); };
    const auto& command = *std::find_if(commands_.begin(), commands_.end(), given);
    command->furtherPluginsAre(furtherPlugins());
    try {
      return command->run(plugin_);
    } catch (const std::bad_alloc&) {
      complain(outOfMemory);
    } catch (const std::system_error& error) {
      // A thread could not be started.
      complain(error.what());
    }
    return command->whenItRunsOut();
  }

 private:
  void addPluginOptions(CLI::App& command) {
    command
        .add_option(
            "--plugin", plugins_,
            "the library of a plugin, beside the access lists, which are VeloAcl.so beside the program unless one is called so; may be given several times")
        ->type_name("PATH")
        ->allow_extra_args(false);
    command
        .add_option(
            "--trace", traces_,
            "facilities and levels to trace to standard error, such as Velo::Acl/0; all levels up to the one named are on. "
            "Environment: VELO_TRACE")
        ->type_name("NAME/LEVEL,...")
        ->envname("VELO_TRACE");
  }

  /// What is no library of access lists is one beside it: so nobody who names a plugin leaves packets
  /// unfiltered.
  std::vector<std::string> furtherPlugins() {
    const auto name = std::filesystem::path(defaultPlugin()).filename();
    std::vector<std::string> further;
    for (const std::string& path : plugins_) {
      if (std::filesystem::path(path).filename() == name)
        plugin_ = path;
      else
        further.push_back(path);
    }
    return further;
  }

  std::optional<int> enableTraces() const {
    if (traces_.empty()) return std::nullopt;
    if (const auto wrong = Zeb::TraceHandle::enable(traces_)) {
      complain("--trace: " + *wrong);
      return exitUsage;
    }
    Plog::streamIs(Plog::fileStream(stderr));
    return std::nullopt;
  }

  CLI::App app_{"A software forwarding agent with access lists.", "velo"};
  std::string plugin_ = defaultPlugin();
  std::vector<std::string> plugins_;
  std::string traces_;
  std::vector<std::unique_ptr<ProgramCommand>> commands_;
};

}  // namespace

int carryOutCommandLine(int argc, char** argv) {
  CommandLine commandLine;
  if (const auto done = commandLine.parse(argc, argv)) return *done;
  return commandLine.carryOut();
}

}  // namespace Agent
