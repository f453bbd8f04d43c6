#include <agent/core/Arguments.h>
#include <agent/replay/ReplayArguments.h>

#include <CLI/CLI.hpp>

namespace Agent {

ReplayArguments::ReplayArguments(CLI::App& app)
    : command_(app.add_subcommand(
          "replay", "Run captures through the lists and show what each rule matched and what was dropped.")) {
  command_->footer(
      "Without --patch only the lists bound in are asked. Captures are pcap or pcapng files of Ethernet, "
      "Linux cooked or raw IP, also compressed with gzip or zstd; several are merged by time. Where there is "
      "no "
      "Ethernet header MAC lists are not asked.\nExample: velo replay --config edge.acl --port eth1=in.pcap "
      "--patch "
      "eth1,eth2\n" +
      std::string(exitMeaning));
  addConfigTexts(*command_, options_.configs, options_.configDir, options_.limits);
  command_->add_option("--port", ports_, "a port and the capture of what it receives; once a port")
      ->required()
      ->type_name("NAME=IN.pcap")
      ->allow_extra_args(false);
  addPatches(*command_, patches_);
  command_->add_option("--out", outs_, "write what leaves a port, mirrored copies included")
      ->type_name("NAME=OUT.pcap")
      ->allow_extra_args(false);
  command_
      ->add_option("--verdicts", options_.verdicts, "write one JSON object a line for each received frame")
      ->type_name("FILE");
  addMalformed(*command_, options_.malformed);
  command_->add_flag("--json", options_.json, "one JSON document instead of tables");
}

ReplayOptions ReplayArguments::options() const {
  ReplayOptions options = options_;
  options.ports = splitAll("--port", ports_, '=');
  options.patches = splitAll("--patch", patches_, ',');
  options.outs = splitAll("--out", outs_, '=');
  return options;
}

}  // namespace Agent
