#include <agent/client/Command.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

class TraceCommand final : public Command {
 public:
  explicit TraceCommand(CLI::App& root)
      : Command(root, "trace", "Switch traces of a running agent; velo show trace shows them.") {
    app()
        .add_option("facilities", facilities_,
                    "facilities with the highest level that is on, such as Velo::Acl/0")
        ->type_name("FACILITY/LEVEL,...");
    app().add_flag("--off", off_, "switch every facility off");
    app().add_option("--fast", fast_, "switch the fast traces of a facility on")->type_name("FACILITY");
    app().add_option("--fast-off", fastOff_, "switch them off")->type_name("FACILITY");
    addControl();
  }

  Exit run(const std::string&) const override {
    std::vector<nlohmann::ordered_json> requests;
    if (off_) requests.push_back({{"do", "trace"}, {"off", true}});
    if (!facilities_.empty()) requests.push_back({{"do", "trace"}, {"facility", facilities_}});
    if (!fast_.empty()) requests.push_back({{"do", "trace"}, {"fast", fast_}, {"on", true}});
    if (!fastOff_.empty()) requests.push_back({{"do", "trace"}, {"fast", fastOff_}, {"on", false}});
    if (requests.empty()) {
      complain("trace needs a FACILITY/LEVEL, --off, --fast or --fast-off");
      return exitUsage;
    }
    Exit exit = exitDone;
    for (const auto& request : requests) {
      if (!ask(request, &exit)) return exit;
    }
    return json() ? print(linesOf(nlohmann::ordered_json::object())) : exitDone;
  }

 private:
  bool off_ = false;
  std::string facilities_, fast_, fastOff_;
};

}  // namespace

std::unique_ptr<Command> traceCommand(CLI::App& app) { return std::make_unique<TraceCommand>(app); }

}  // namespace Agent
