#include <agent/client/Command.h>
#include <agent/client/ControlClient.h>
#include <agent/client/TailText.h>
#include <agent/commands/Arguments.h>
#include <agent/core/Document.h>
#include <agent/core/EndSignals.h>
#include <agent/core/Output.h>
#include <agent/core/Terminal.h>
#include <agent/explain/FrameArgument.h>
#include <agent/observe/Tails.h>
#include <agent/ports/CommentedCapture.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

Stamp stampOfTime(double time) {
  const double whole = std::floor(time);
  const auto nanoseconds = static_cast<int32_t>((time - whole) * double{Stamp::nanosecondsInSecond});
  return {static_cast<int64_t>(whole), nanoseconds};
}

class TailCommand final : public Command {
 public:
  explicit TailCommand(CLI::App& root)
      : Command(
            root, "tail", "Show packets as a running agent judges them.",
            "A line a packet: time (UTC), port, verdict, the lists and rules that decided or the reason of a\n"
            "drop, and the packet. Packets that come faster than they can be shown are passed over, and a\n"
            "line says how many; traffic never waits. Ctrl-C ends it.\n") {
    app().get_option("--json")->description("one JSON document a line for each packet");
    app().add_option("--list", list_, "packets that this list has judged")->type_name("NAME");
    app()
        .add_option("--rule", rule_, "and that met this rule of it: a number, or implicit")
        ->needs("--list")
        ->type_name("N");
    app().add_flag("--drops", drops_, "packets that were dropped, also at one of several ports");
    app()
        .add_option("--count", count_, "end after so many packets")
        ->check(CLI::Range(uint64_t{1}, uint64_t{1} << 62))
        ->type_name("N");
    app()
        .add_option("--write", write_,
                    "write the packets to a pcapng file as well, each with its verdict as a comment")
        ->check(whyNotWritten)
        ->type_name("FILE.pcapng");
    addControl();
  }

  Exit run(const std::string&) const override {
    Exit exit = exitDone;
    ControlClient agent;
    if (!connected(agent, control(), &exit)) return exit;
    Json request = {{"do", "tail"}, {"drops", drops_}};
    if (!list_.empty()) request["list"] = list_;
    if (!rule_.empty()) request["rule"] = rule_;
    if (!write_.empty()) request["octets"] = Tail::mostOctets;
    if (!documentOf(agent, request, &exit)) return exit;

    std::optional<CommentedCapture> capture;
    if (!write_.empty()) capture.emplace(write_);
    const EndSignals signals(EndSignals::After::asBefore);
    agent.stopIs(signals.fd());
    TailText text(wantsColour(STDOUT_FILENO));
    for (uint64_t left = count_; exit == exitDone && (count_ == 0 || left > 0);) {
      if (capture && !capture->wrong().empty()) break;
      std::string wrong;
      auto answer = agent.ask({{"do", "frames"}}, &wrong);
      if (!answer) {
        if (wrong.empty()) break;
        complain(wrong);
        exit = exitUnread;
        break;
      }
      exit = tell(*answer, text, capture, left);
    }
    if (!capture || capture->wrong().empty()) return exit;
    complain(capture->wrong());
    return exitUnread;
  }

 private:
  /// Shows and writes the frames of an answer, at most as many as are left.
  Exit tell(const Json& answer, TailText& text, std::optional<CommentedCapture>& capture,
            uint64_t& left) const {
    if (answer.at("ok") != true) {
      complain(answer.at("error").at("text").get<std::string>());
      return exitUsage;
    }
    const Json& document = answer.at("document");
    std::string lines;
    bool all = true;
    for (const Json& frame : document.at("frames")) {
      if (count_ > 0 && left == 0) {
        all = false;
        break;
      }
      if (count_ > 0) --left;
      lines += json() ? documentLineOf(told(frame)) : text.lines(frame);
      if (capture) write(frame, *capture);
    }
    const auto passedOver = all ? document.at("passedOver").get<uint64_t>() : 0;
    if (json() && passedOver > 0)
      lines += documentLineOf({{"passedOver", passedOver}});
    else
      lines += TailText::passedOver(passedOver);
    if (capture) capture->flush();
    return print(lines);
  }

  /// What is told of a frame in JSON: its octets are for the file.
  static Json told(Json frame) {
    frame.erase("octets");
    return frame;
  }

  static void write(const Json& frame, CommentedCapture& capture) {
    const std::vector<uint8_t> octets =
        octetsOfHex(frame.at("octets").get<std::string>()).value_or(std::vector<uint8_t>());
    const auto port = frame.at("port").get<std::string>(), sentence = frame.at("sentence").get<std::string>();
    capture.write({.port = port,
                   .stamp = stampOfTime(frame.at("time").get<double>()),
                   .octets = octets,
                   .wireLength = frame.at("wireLength").get<uint32_t>(),
                   .comment = sentence});
  }

  std::string list_, rule_, write_;
  bool drops_ = false;
  uint64_t count_ = 0;  // 0: no end
};

}  // namespace

std::unique_ptr<Command> tailCommand(CLI::App& app) { return std::make_unique<TailCommand>(app); }

}  // namespace Agent
