#include <agent/client/Command.h>
#include <agent/commands/Arguments.h>
#include <agent/control/ControlPlane.h>
#include <agent/fleet/FleetOptions.h>
#include <agent/metrics/MetricsOptions.h>
#include <agent/ports/PortKinds.h>
#include <agent/program/AgentCommand.h>
#include <agent/program/RunCommand.h>
#include <agent/run/Run.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

/// The limits of --log-interval, a day, and of --log-rate.
constexpr uint32_t mostInterval = 86400;
constexpr uint32_t mostRate = 10000;

class RunCommand final : public AgentCommand<RunOptions, runAgent> {
 public:
  explicit RunCommand(CLI::App& program);

 private:
  /// Adds how ports are asked for frames.
  void addPolling();
  /// Adds how many processes have the ports.
  void addWorkers();
  /// Adds what is told of matches.
  void addMatchLog();
  RunOptions options() const override;

  std::vector<std::string> ports_, patches_, bridges_;
  std::string report_ = "none";
};

RunCommand::RunCommand(CLI::App& program)
    : AgentCommand(program, "run", "Filter traffic between interfaces, until SIGTERM or SIGINT.") {
  app().footer(
      "Nothing is forwarded before the whole configuration is in force. "
      "Needs CAP_NET_RAW, and CAP_NET_ADMIN for TAP\n"
      "devices (docs/ports.md says what other kinds need); other rights are given up.\n"
      "Example: velo run --config edge.acl --port eth1=ens3 --port eth2=ens4 --patch eth1,eth2\n"
      "Exit status: 0 ended by a signal, 1 a port or the socket could not be opened or the report not be written, 2 bad usage or\n"
      "configuration.");
  addConfigTexts(app(), given_.configs, given_.configDir, given_.limits);
  app()
      .add_option("--port", ports_, "a port and what it is on; once a port. One of " + portForms())
      ->required()
      ->type_name("NAME=KIND:WHAT")
      ->allow_extra_args(false);
  addPolling();
  addWorkers();
  addPatches(app(), patches_);
  app()
      .add_option("--bridge", bridges_, "join ports or port-channels by a bridge that learns addresses")
      ->type_name("A,B,...")
      ->allow_extra_args(false);
  app()
      .add_option("--control", given_.control,
                  "listen here for velo show, apply and the others; the default of those is " +
                      std::string(defaultControlPath))
      ->type_name("SOCKET");
  app()
      .add_option("--state", given_.state,
                  "keep counters, status and the ids of rules here; the next run goes on from them")
      ->type_name("FILE");
  addLeave(app(), given_.leave);
  addMalformed(app(), given_.malformed);
  addMatchLog();
  addMetrics(app(), given_.metrics);
  addFleetAgent(app(), given_.fleet);
  app()
      .add_option(
          "--report", report_,
          "what to print at the end: none, text, or json (the document of replay --json; default none)")
      ->check(CLI::IsMember({"none", "text", "json"}))
      ->type_name("FORM");
}

void RunCommand::addPolling() {
  app()
      .add_option_function<std::string>(
          "--poll",
          [this](const std::string& word) {
            given_.poll = word == "busy"    ? PollMode::busy
                          : word == "sleep" ? PollMode::sleep
                                            : PollMode::adaptive;
          },
          "what to do while nothing comes: busy asks on and on, adaptive does so for a moment and sleeps then, sleep sleeps at once (default adaptive)")
      ->check(CLI::IsMember({"busy", "adaptive", "sleep"}))
      ->type_name("HOW");
  app()
      .add_option("--dpdk-args", given_.setup.dpdkArguments,
                  "arguments for the environment of DPDK, such as \"--no-huge -m 512\"; for dpdk: ports")
      ->type_name("ARGS");
}

void RunCommand::addWorkers() {
  constexpr uint32_t mostWorkers = 64;
  constexpr int mostNumbers = 4096;
  app()
      .add_option(
          "--workers", given_.workers,
          "have so many processes serve the ports, each a share of the flows, and this one everything else (default: this one alone)")
      ->check(CLI::Range(1u, mostWorkers))
      ->type_name("N");
  // How a worker is started by the first process, see agent/workers/WorkerProcess.h.
  app().add_option("--worker", given_.worker)->delimiter(',')->expected(2, mostNumbers)->group("");
}

void RunCommand::addMatchLog() {
  MatchLogOptions& matches = given_.matches;
  app()
      .add_option("--log-interval", matches.interval,
                  "seconds between two lines about a flow that a rule with log matches (default 300)")
      ->check(CLI::Range(1u, mostInterval))
      ->type_name("SECONDS");
  app()
      .add_option("--log-rate", matches.rate,
                  "how many such lines a second at most, of all flows; 0: none at all (default 100)")
      ->check(CLI::Range(0u, mostRate))
      ->type_name("LINES");
  app().add_flag("--log-drops", matches.drops,
                 "tell in the same way of packets that no rule of a list matches");
}

RunOptions RunCommand::options() const {
  RunOptions options = given_;
  options.ports = splitAll("--port", ports_, '=', "NAME=KIND:WHAT");
  options.patches = splitAll("--patch", patches_, ',');
  for (const auto& bridge : bridges_) options.bridges.push_back(splitNames("--bridge", bridge));
  options.report = report_ == "json"   ? FinalReport::json
                   : report_ == "text" ? FinalReport::text
                                       : FinalReport::none;
  return options;
}

}  // namespace

std::unique_ptr<ProgramCommand> runCommand(CLI::App& program) {
  return std::make_unique<RunCommand>(program);
}

}  // namespace Agent
