// What would become of a frame on every agent of a fleet.
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/Terminal.h>
#include <agent/core/Words.h>
#include <agent/explain/Explain.h>
#include <agent/explain/FrameArgument.h>
#include <agent/fleet/FleetAsked.h>
#include <agent/fleet/FleetCommand.h>
#include <agent/fleet/FleetSight.h>
#include <agent/show/Text.h>
#include <agent/study/OffLine.h>
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
            fleet, "explain", "Tell what would become of a frame on each agent.",
            "FRAME is as of velo explain. Agents that are there are asked; of one that does not answer in time it is found out\nhere, by what the store has for it: what it has besides, by its command line or its directory, is not known then.") {
    app()
        .add_option("--port", port_, "where the frame comes in; a text can say that as well: ... on NAME")
        ->type_name("NAME");
    app().add_option("--in", frame_, "the frame")->required()->type_name("FRAME");
    app().add_option("--out", out_, "where it would leave, for agents that are not asked")->type_name("NAME");
    CLI::Option* const agent = app().add_option("--agent", agent_, "on this agent alone")->type_name("AGENT");
    app().add_flag("--all", all_, "on all agents, as without --agent")->excludes(agent);
    app().add_flag("--by-store", byStore_, "ask no agent");
  }

 private:
  Exit run(Etcd& etcd, const std::string& plugin) const override {
    std::string wrong;
    const auto frame = readFrameArgument(frame_, &wrong);
    if (!frame) return misused("--in: " + wrong);
    const std::string port = port_.empty() ? frame->port : port_;
    if (port.empty()) return misused("explain needs --port: where the frame comes in");
    auto sight = fleetSight(etcd);
    if (!sight) return failed(sight.wrong);
    if (!agent_.empty() && !sight.value->agents.contains(agent_))
      return failed(sight.value->whyNoAgent(agent_));
    if (auto why = readTexts(etcd, *sight.value, sight.value->placesOf(agentsOf(*sight.value))); !why.empty())
      return failed(why);
    FleetAnswerTexts answers;
    if (!byStore_) {
      auto asked = askAgents(etcd, agentsToAsk(*sight.value), requestOf(port, *frame));
      if (!asked) return failed(asked.wrong);
      answers = std::move(*asked.value);
    }
    const Json document = documentOf(*sight.value, answers, plugin, port, *frame);
    return print(document, textOf(document));
  }
  static Exit misused(const std::string& why) {
    complain(why);
    return exitUsage;
  }

  std::vector<std::string> agentsOf(const FleetSight& sight) const {
    std::vector<std::string> names;
    for (const auto& [name, member] : sight.agents) {
      if (agent_.empty() || name == agent_) names.push_back(name);
    }
    return names;
  }
  std::vector<std::string> agentsToAsk(const FleetSight& sight) const {
    std::vector<std::string> names = agentsOf(sight);
    std::erase_if(names, [&sight](const auto& name) { return sight.agents.at(name).state.is_null(); });
    return names;
  }
  static std::string requestOf(const std::string& port, const Frame& frame) {
    Json request = {{"do", "explain"}, {"port", port}, {"frame", hexOf(frame.octets)}};
    if (frame.wireLength > 0) request["wireLength"] = frame.wireLength;
    if (frame.typeBefore) request["etherType"] = *frame.typeBefore;
    return request.dump();
  }

  /// Agents that are to have the same, or have answered the same, are told of together.
  Json documentOf(const FleetSight& sight, const FleetAnswerTexts& said, const std::string& plugin,
                  const std::string& port, const Frame& frame) const {
    std::map<std::string, size_t> known;
    Json answers = Json::array();
    for (const auto& [name, member] : sight.agents) {
      if (!agent_.empty() && name != agent_) continue;
      const FleetContent content = sight.contentOf(name);
      const std::string status(memberStatus(member, content.version));
      const auto answer = said.find(name);
      const bool isAsked = answer != said.end();
      const std::string alike = isAsked ? answer->second : content.version;
      const auto [at, isNew] = known.emplace(fmt::format("{} {} {}", status, isAsked, alike), answers.size());
      if (!isNew) {
        answers[at->second]["agents"].push_back(name);
        continue;
      }
      std::string wrong;
      auto explanation =
          isAsked ? answered(answer->second, frame, &wrong) : explained(content, plugin, port, frame, &wrong);
      answers.push_back({{"agents", {name}},
                         {"status", status},
                         {"asked", isAsked},
                         {"explanation", explanation ? std::move(*explanation) : Json(nullptr)},
                         {"wrong", wrong.empty() ? Json(nullptr) : Json(wrong)}});
    }
    return {{"revision", sight.revision}, {"answers", std::move(answers)}};
  }
  /// What an agent has answered.
  static std::optional<Json> answered(const std::string& answer, const Frame& frame, std::string* wrong) {
    auto read = readDocument(answer);
    if (read && read->is_object() && read->contains("explanation") && read->at("explanation").is_object()) {
      Json explanation = std::move(read->at("explanation"));
      for (const std::string& note : frame.notes) explanation["assumed"].push_back(note);
      return explanation;
    }
    const bool isSaid = read && read->is_object() && read->contains("wrong") && read->at("wrong").is_string();
    *wrong = isSaid ? read->at("wrong").get<std::string>() : "an answer of another kind";
    return std::nullopt;
  }
  std::optional<Json> explained(const FleetContent& content, const std::string& plugin,
                                const std::string& port, const Frame& frame, std::string* wrong) const {
    MadeModel made = readFleet(content, {});
    if (!made.model) {
      *wrong = "its texts have mistakes: " + made.mistakes.front();
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
      text += fmt::format("{}on {} ({}{}):\n", text.empty() ? "" : "\n",
                          fmt::join(answer.at("agents").get<std::vector<std::string>>(), " "),
                          valueText(answer.at("status")),
                          answer.at("asked") == true ? "" : "; by the texts that the store has for it");
      text += answer.at("wrong").is_null() ? explainText(answer.at("explanation"), wantsColour(STDOUT_FILENO))
                                           : printableText(valueText(answer.at("wrong"))) + "\n";
    }
    return text.empty() ? "there is no agent\n" : text;
  }

  std::string port_, frame_, out_, agent_;
  bool all_ = false, byStore_ = false;
};

}  // namespace

std::unique_ptr<FleetAction> fleetExplainAction(CLI::App& fleet) {
  return std::make_unique<FleetExplainAction>(fleet);
}

}  // namespace Agent
