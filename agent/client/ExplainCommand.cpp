#include <agent/client/Command.h>
#include <agent/commands/Arguments.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/Terminal.h>
#include <agent/explain/Explain.h>
#include <agent/explain/FrameArgument.h>
#include <agent/study/OffLine.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

constexpr const char* frameHelp =
    "FRAME is FILE.pcap[:N] (the Nth frame of a capture; - is standard input), the octets in hexadecimal, or a text such as\n"
    "  \"tcp 192.0.2.1:1234 > 198.51.100.7:443 ack vlan 5 ttl 64\"\n"
    "  \"icmpv6 2001:db8::1 > 2001:db8::2 packet-too-big\"    \"udp [2001:db8::1]:53 > [2001:db8::2]:1024\"\n"
    "  \"ip 192.0.2.1 > 198.51.100.7 protocol gre dscp ef\"   \"arp 192.0.2.1 > 192.0.2.2 from 02:00:5e:00:00:01\"\n"
    "or a whole line of velo tail, of the log of velo run, or the first one of an answer of explain. "
    "A super-frame,\n"
    "which is still to be cut into segments, is one packet to the lists.\n"
    "Nothing is counted. With --config no agent is asked.\n";

class ExplainCommand final : public Command {
 public:
  explicit ExplainCommand(CLI::App& root)
      : Command(root, "explain", "Tell which lists and rules a frame meets, and why.", frameHelp) {
    app()
        .add_option("--port", port_, "where the frame comes in; a text can say that as well: ... on NAME")
        ->type_name("NAME");
    app().add_option("--in", frame_, "the frame")->required()->type_name("FRAME");
    app().add_option("--config", files_, "explain by these configuration texts")->type_name("FILE...");
    app().add_option("--config-dir", dir_, "and by every file in DIR")->type_name("DIR");
    addTextLimits(app(), limits_);
    app().add_option("--out", out_, "with --config: where it would leave")->type_name("NAME");
    addControl();
  }

  Exit run(const std::string& plugin) const override {
    std::string wrong;
    const auto frame = readFrameArgument(frame_, &wrong);
    if (!frame) {
      complain("--in: " + wrong);
      return exitUsage;
    }
    const std::string port = port_.empty() ? frame->port : port_;
    if (port.empty() || (!frame->port.empty() && frame->port != port)) {
      complain(port.empty() ? fmt::format("explain needs --port: where the frame comes in{}{}",
                                          frame->notes.empty() ? "" : "; ", fmt::join(frame->notes, "; "))
                            : fmt::format("--port {}: the frame says on {}", port, frame->port));
      return exitUsage;
    }
    const bool byAgent = files_.empty() && dir_.empty();
    if (byAgent && !out_.empty()) {
      complain("--out is for --config: a running agent knows where the frame would leave");
      return exitUsage;
    }
    Exit exit = exitDone;
    auto document = byAgent ? ask(requestFor(port, *frame), &exit)
                            : explainOffLine({files_, dir_, plugin, port, out_, limits_}, *frame, &exit);
    if (!document) return exit;
    for (const std::string& note : frame->notes) (*document)["assumed"].push_back(note);
    return print(json() ? linesOf(*document) : explainText(*document, wantsColour(STDOUT_FILENO)));
  }

 private:
  static nlohmann::ordered_json requestFor(const std::string& port, const Frame& frame) {
    nlohmann::ordered_json request = {
        {"do", "explain"}, {"port", port}, {"frame", hexOf(frame.octets)}, {"wireLength", frame.wireLength}};
    if (frame.typeBefore) request["etherType"] = *frame.typeBefore;
    return request;
  }

  std::string port_, frame_, out_, dir_;
  std::vector<std::string> files_;
  TextLimits limits_;
};

}  // namespace

std::unique_ptr<Command> explainCommand(CLI::App& app) { return std::make_unique<ExplainCommand>(app); }

}  // namespace Agent
