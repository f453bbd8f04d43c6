#include <agent/core/Words.h>
#include <agent/fleet/FleetDrops.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/RolloutStore.h>
#include <agent/show/Text.h>
#include <fmt/format.h>

#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

/// Fewer than the 128 operations that etcd takes in a transaction.
constexpr size_t mostRolledTexts = 100;
/// So many agents of a kind are named.
constexpr size_t mostNames = 20;

RolloutAgent standOf(const FleetSight& sight, const std::string& name) {
  const FleetSight::Member& member = sight.agents.at(name);
  const std::string wanted = sight.contentOf(name).version;
  const std::string_view status = memberStatus(member, wanted);
  RolloutAgent agent;
  agent.isThere = status != "gone";
  using Stands = RolloutAgent::Stands;
  agent.stands = status == "in force"  ? Stands::inForce
                 : status == "refused" ? Stands::refused
                                       : Stands::behind;
  const FleetDrops::Rates rates = FleetDrops::ratesIn(member.drops, wanted);
  agent.before = rates.before;
  agent.since = rates.since;
  return agent;
}

std::string newTextKey(const std::string& group, const std::string& name) {
  return rolloutTextsPrefix(textsPrefix(group)) + name;
}

/// Its texts are those of the group from now on.
void addDone(EtcdTxn& txn, const FleetSight& sight, const std::string& group, const FleetPlace& place,
             const Rollout& after) {
  FleetPlan plan{group, {}};
  const size_t behind = newTextKey(group, "").size();
  for (const EtcdEntry* text : place.newTexts()) plan.texts[text->key.substr(behind)] = text->value;
  for (const EtcdEntry* text : place.texts()) txn.compares.push_back({text->key, text->modified});
  for (const auto& [key, text] : plan.changes(sight)) {
    if (text)
      txn.puts.push_back({key, *text});
    else
      txn.deletes.push_back({.key = key});
  }
  const FleetAudit audit{"rollout", after.who, after.why, after.changed, after.summary};
  txn.puts.push_back({auditKey(group), audit.json()});
}

Json namesJson(const std::vector<std::string>& names) {
  Json json = Json::array();
  for (const std::string& name : names) {
    if (json.size() < mostNames) json.push_back(name);
  }
  return json;
}

}  // namespace

RolloutView rolloutView(const FleetSight& sight, const std::string& group) {
  RolloutView view;
  for (const std::string& name : sight.agentsOf(group)) view.agents[name] = standOf(sight, name);
  view.texts = FleetPlace::versionOf(FleetPlace(sight.texts, textsPrefix(group)).texts());
  return view;
}

std::optional<std::string> whyNoRollout(const FleetPlan& plan, const FleetSight& sight) {
  if (whyNoGroup(plan.group)) return "the texts of one agent are not for a rollout";
  if (plan.texts.size() > mostRolledTexts)
    return fmt::format("a rollout takes {} texts at most", mostRolledTexts);
  const FleetPlace place(sight.texts, textsPrefix(plan.group));
  if (place.texts().size() > mostRolledTexts)
    return fmt::format("a rollout replaces {} texts at most", mostRolledTexts);
  if (place.rollout() && place.rollout()->isActive())
    return fmt::format("a rollout of {} is under way: velo fleet rollout abort {} ends it", plan.group,
                       plan.group);
  return std::nullopt;
}

EtcdTxn rolloutBegin(const FleetPlan& plan, const FleetSight& sight, const Rollout& begun,
                     int64_t auditedAt) {
  const std::string prefix = textsPrefix(plan.group);
  const FleetPlace place(sight.texts, prefix);
  EtcdTxn txn;
  txn.compares.push_back({rolloutKey(prefix), place.rolloutAt()});
  txn.compares.push_back({auditKey(plan.group), auditedAt});
  for (const EtcdEntry* text : place.texts()) txn.compares.push_back({text->key, text->modified});
  for (const auto& [name, text] : plan.texts) txn.puts.push_back({newTextKey(plan.group, name), text});
  // What an earlier one has left behind.
  for (const EtcdEntry* text : place.newTexts()) {
    if (!plan.texts.contains(text->key.substr(rolloutTextsPrefix(prefix).size())))
      txn.deletes.push_back({.key = text->key});
  }
  if (begun.mayOpen) txn.puts.push_back({mayOpenKey(prefix), FleetPlace::digestOfTexts(plan.texts)});
  txn.puts.push_back({rolloutKey(prefix), begun.json()});
  return txn;
}

EtcdTxn rolloutMove(const FleetSight& sight, const std::string& group, const Rollout& after) {
  const std::string prefix = textsPrefix(group);
  const FleetPlace place(sight.texts, prefix);
  EtcdTxn txn;
  txn.compares.push_back({rolloutKey(prefix), place.rolloutAt()});
  txn.puts.push_back({rolloutKey(prefix), after.json()});
  if (after.phase == Rollout::Phase::done) addDone(txn, sight, group, place, after);
  if (!after.isActive()) txn.deletes.push_back({.key = rolloutTextsPrefix(prefix), .isPrefix = true});
  return txn;
}

Json rolloutDocument(const FleetSight& sight, const std::string& group) {
  const FleetPlace place(sight.texts, textsPrefix(group));
  const Rollout& rollout = *place.rollout();
  const RolloutView view = rolloutView(sight, group);
  std::vector<std::string> inForce, behind, refused, gone;
  double before = 0, since = 0;
  for (const auto& [name, agent] : view.agents) {
    if (!rollout.isTurn(name)) continue;
    using Stands = RolloutAgent::Stands;
    (!agent.isThere                    ? gone
     : agent.stands == Stands::inForce ? inForce
     : agent.stands == Stands::refused ? refused
                                       : behind)
        .push_back(name);
    before += agent.before.value_or(0);
    since += agent.since.value_or(0);
  }
  Json steps = Json::array();
  for (const RolloutStep& step : rollout.steps) steps.push_back(step.text());
  Json json = {{"group", group},
               {"phase", phaseName(rollout.phase)},
               {"result", rollout.result.empty() ? Json(nullptr) : Json(rollout.result)},
               {"driven", place.hasDriver()},
               {"who", rollout.who},
               {"why", rollout.why},
               {"summary", rollout.summary},
               {"began", rollout.began},
               {"changed", rollout.changed},
               {"steps", std::move(steps)},
               {"step", rollout.step + 1},
               {"wait", rollout.wait},
               {"maxFailures", rollout.maxFailures},
               {"dropsFactor", rollout.dropsFactor > 0 ? Json(rollout.dropsFactor) : Json(nullptr)},
               {"agents", view.agents.size()}};
  json["turn"] = {{"agents", inForce.size() + behind.size() + refused.size() + gone.size()},
                  {"inForce", inForce.size()},
                  {"behind", namesJson(behind)},
                  {"refused", namesJson(refused)},
                  {"gone", namesJson(gone)},
                  {"drops", {{"before", before}, {"since", since}}}};
  return json;
}

std::string rolloutLine(const Json& json) {
  const Json& turn = json.at("turn");
  const std::string phase = valueText(json.at("phase"));
  std::string line = fmt::format("rollout of {}: {}", valueText(json.at("group")), phase);
  if (phase == "done") return line + ", all agents have the new texts";
  if (phase == "back")
    return fmt::format("{} to the texts before: {}", line, printableText(valueText(json.at("result"))));
  line +=
      fmt::format(", step {} of {} ({}): {} of {} agents, {} in force", valueText(json.at("step")),
                  json.at("steps").size(), valueText(json.at("steps").at(json.at("step").get<size_t>() - 1)),
                  valueText(turn.at("agents")), valueText(json.at("agents")), valueText(turn.at("inForce")));
  for (const char* kind : {"behind", "refused", "gone"}) {
    if (!turn.at(kind).empty())
      line += fmt::format(", {} {}", kind, fmt::join(turn.at(kind).get<std::vector<std::string>>(), " "));
  }
  if (phase == "running" && json.at("driven") == false) line += "; nobody sees to it";
  return line;
}

std::string rolloutText(const Json& json, double now) {
  return fmt::format("{}\n  begun {} by {}{}\n", rolloutLine(json),
                     timeText(json.at("began").get<double>(), now), printableText(valueText(json.at("who"))),
                     json.at("why") == "" ? "" : ": " + printableText(valueText(json.at("why"))));
}

}  // namespace Agent
