#include <agent/control/Command.h>
#include <agent/control/ControlPlane.h>
#include <agent/core/Arguments.h>
#include <agent/run/RunArguments.h>
#include <agent/run/RunCommand.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class RunCommand final : public ProgramCommand {
 public:
  explicit RunCommand(CLI::App& program);
  Exit run(const std::string& plugin) const override;
  bool loadsPlugin() const override { return true; }

 private:
  RunOptions options() const;

  RunOptions options_;  // what of them is given as it is
  std::vector<std::string> ports_, patches_, bridges_;
  std::string report_ = "none";
  RunOptions given_;  // all of them, once the command line is parsed
};

RunCommand::RunCommand(CLI::App& program)
    : ProgramCommand(program, "run", "Filter traffic between interfaces, until SIGTERM or SIGINT.") {
  app().callback([this] { given_ = options(); });
  app().footer(
      "Nothing is forwarded before the whole configuration is in force. Needs CAP_NET_RAW, and CAP_NET_ADMIN "
      "for TAP\ndevices; other rights are given up.\nExample: velo run --config edge.acl --port eth1=ens3 "
      "--port eth2=ens4 --patch eth1,eth2\nExit status: 0 ended by a signal, 1 a port or the socket could "
      "not be opened or "
      "the report not be written, 2 bad usage or\nconfiguration.");
  addConfigTexts(app(), options_.configs, options_.configDir, options_.limits);
  app()
      .add_option("--port", ports_, "a port and the interface it is on, or tap:NAME; once a port")
      ->required()
      ->type_name("NAME=DEV")
      ->allow_extra_args(false);
  addPatches(app(), patches_);
  app()
      .add_option("--bridge", bridges_, "join ports or port-channels by a bridge that learns addresses")
      ->type_name("A,B,...")
      ->allow_extra_args(false);
  app()
      .add_option("--control", options_.control,
                  "listen here for velo show, apply and the others; the default of those is " +
                      std::string(defaultControlPath))
      ->type_name("SOCKET");
  app()
      .add_option("--state", options_.state,
                  "keep counters, status and the ids of rules here; the next run goes on from them")
      ->type_name("FILE");
  addLeave(app(), options_.leave);
  addMalformed(app(), options_.malformed);
  app()
      .add_option(
          "--report", report_,
          "what to print at the end: none, text, or json (the document of replay --json; default none)")
      ->check(CLI::IsMember({"none", "text", "json"}))
      ->type_name("FORM");
}

RunOptions RunCommand::options() const {
  RunOptions options = options_;
  options.ports = splitAll("--port", ports_, '=', "NAME=DEV");
  options.patches = splitAll("--patch", patches_, ',');
  for (const auto& bridge : bridges_) options.bridges.push_back(splitNames("--bridge", bridge));
  options.report = report_ == "json"   ? FinalReport::json
                   : report_ == "text" ? FinalReport::text
                                       : FinalReport::none;
  return options;
}

Exit RunCommand::run(const std::string& plugin) const {
  RunOptions options = given_;
  options.plugin = plugin;
  return runAgent(options);
}

}  // namespace

std::unique_ptr<ProgramCommand> runCommand(CLI::App& program) {
  return std::make_unique<RunCommand>(program);
}

}  // namespace Agent
