#include <agent/commands/Arguments.h>
#include <agent/program/AgentCommand.h>
#include <agent/program/ReplayCommand.h>
#include <agent/replay/Replay.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class ReplayCommand final : public AgentCommand<ReplayOptions, replay> {
 public:
  explicit ReplayCommand(CLI::App& program);

 private:
  ReplayOptions options() const override;

  std::vector<std::string> ports_, patches_, outs_;
};

ReplayCommand::ReplayCommand(CLI::App& program)
    : AgentCommand(program, "replay",
                   "Run captures through the lists and show what each rule matched and what was dropped.") {
  app().footer(
      "Without --patch only the lists bound in are asked. "
      "Captures are pcap or pcapng files of Ethernet, Linux cooked or raw IP, also compressed with gzip or zstd; several are merged by time. "
      "Where there is no Ethernet header MAC lists are not asked.\n"
      "Example: velo replay --config edge.acl --port eth1=in.pcap --patch eth1,eth2\n" +
      std::string(exitMeaning));
  addConfigTexts(app(), given_.configs, given_.configDir, given_.limits);
  app()
      .add_option("--port", ports_, "a port and the capture of what it receives; once a port")
      ->required()
      ->type_name("NAME=IN.pcap")
      ->allow_extra_args(false);
  addPatches(app(), patches_);
  app()
      .add_option("--out", outs_, "write what leaves a port, mirrored copies included")
      ->type_name("NAME=OUT.pcap")
      ->allow_extra_args(false);
  app()
      .add_option("--verdicts", given_.verdicts, "write one JSON object a line for each received frame")
      ->check(whyNotWritten)
      ->type_name("FILE");
  app()
      .add_option("--annotate", given_.annotated,
                  "write all received frames to a pcapng file, each with its verdict as a comment")
      ->check(whyNotWritten)
      ->type_name("FILE.pcapng");
  addMalformed(app(), given_.malformed);
  app().add_flag("--json", given_.json, "one JSON document instead of tables");
}

ReplayOptions ReplayCommand::options() const {
  ReplayOptions options = given_;
  options.ports = splitAll("--port", ports_, '=');
  options.patches = splitAll("--patch", patches_, ',');
  options.outs = splitAll("--out", outs_, '=');
  return options;
}

}  // namespace

std::unique_ptr<ProgramCommand> replayCommand(CLI::App& program) {
  return std::make_unique<ReplayCommand>(program);
}

}  // namespace Agent
