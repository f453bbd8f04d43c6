// What would become of a frame on every agent of a fleet.
#include <agent/control/OffLine.h>
#include <agent/core/Output.h>
#include <agent/core/Terminal.h>
#include <agent/explain/Explain.h>
#include <agent/explain/FrameArgument.h>
#include <agent/fleet/FleetCommand.h>
#include <agent/fleet/FleetSight.h>
#include <agent/show/Text.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

class FleetExplainAction final : public FleetAction {
 public:
  explicit FleetExplainAction(CLI::App& fleet)
      : FleetAction(
            fleet, "explain", "Tell what would become of a frame on each agent, by the fleet's lists.",
            "FRAME is as of velo explain. It is found out here, by what the store has for each agent; what an "
            "agent has\nbesides, by its command line or its directory, is not known here.") {
    app()
        .add_option("--port", port_, "where the frame comes in; a text can say that as well: ... on NAME")
        ->type_name("NAME");
    app().add_option("--in", frame_, "the frame")->required()->type_name("FRAME");
    app().add_option("--out", out_, "where it would leave")->type_name("NAME");
    app().add_option("--agent", agent_, "on this agent alone")->type_name("AGENT");
  }

 private:
  Exit run(Etcd& etcd, const std::string& plugin) const override {
    std::string wrong;
    const auto frame = readFrameArgument(frame_, &wrong);
    if (!frame) return misused("--in: " + wrong);
    const std::string port = port_.empty() ? frame->port : port_;
    if (port.empty()) return misused("explain needs --port: where the frame comes in");
    const auto sight = fleetSight(etcd, FleetSight::Texts::whole);
    if (!sight) return failed(sight.wrong);
    if (!agent_.empty() && !sight.value->agents.contains(agent_))
      return failed("there is no agent " + agent_);
    const Json document = documentOf(*sight.value, plugin, port, *frame);
    return print(document, textOf(document));
  }
  static Exit misused(const std::string& why) {
    complain(why);
    return exitUsage;
  }

  /// Agents that are to have the same are told of together.
  Json documentOf(const FleetSight& sight, const std::string& plugin, const std::string& port,
                  const Frame& frame) const {
    std::map<std::string, size_t> known;
    Json answers = Json::array();
    for (const auto& [name, member] : sight.agents) {
      if (!agent_.empty() && name != agent_) continue;
      const FleetContent content = sight.contentOf(name);
      const std::string status(memberStatus(member, content.version));
      const auto [at, isNew] = known.emplace(status + content.version, answers.size());
      if (!isNew) {
        answers[at->second]["agents"].push_back(name);
        continue;
      }
      std::string wrong;
      auto explanation = explained(content, plugin, port, frame, &wrong);
      answers.push_back({{"agents", {name}},
                         {"status", status},
                         {"explanation", explanation ? std::move(*explanation) : Json(nullptr)},
                         {"wrong", wrong.empty() ? Json(nullptr) : Json(wrong)}});
    }
    return {{"revision", sight.revision}, {"answers", std::move(answers)}};
  }
  std::optional<Json> explained(const FleetContent& content, const std::string& plugin,
                                const std::string& port, const Frame& frame, std::string* wrong) const {
    MadeModel made = readFleet(content, {});
    if (!made.model) {
      *wrong = made.mistakes.front();
      return std::nullopt;
    }
    Sources sources;
    sources.inputs[fleetName] = std::move(*made.model);
    auto explanation = explainWith(sources, plugin, port, out_, frame, wrong);
    if (!explanation) return explanation;
    (*explanation)["assumed"] = frame.notes;
    for (const std::string& name : {port, out_}) {
      if (auto assumed = assumedOf(name, sources)) (*explanation)["assumed"].push_back(std::move(*assumed));
    }
    return explanation;
  }

  static std::string textOf(const Json& document) {
    std::string text;
    for (const Json& answer : document.at("answers")) {
      text += fmt::format("{}on {} ({}):\n", text.empty() ? "" : "\n",
                          fmt::join(answer.at("agents").get<std::vector<std::string>>(), " "),
                          valueText(answer.at("status")));
      text += answer.at("wrong").is_null()
                  ? explainText(answer.at("explanation"), wantsColour(STDOUT_FILENO))
                  : "its texts have mistakes: " + valueText(answer.at("wrong")) + "\n";
    }
    return text.empty() ? "there is no agent\n" : text;
  }

  std::string port_, frame_, out_, agent_;
};

}  // namespace

std::unique_ptr<FleetAction> fleetExplainAction(CLI::App& fleet) {
  return std::make_unique<FleetExplainAction>(fleet);
}

}  // namespace Agent
