#include <agent/core/Words.h>
#include <agent/fleet/FleetDrops.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/RolloutStore.h>
#include <agent/show/Text.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

/// Fewer than the 128 operations that etcd takes in a transaction.
constexpr size_t mostRolledTexts = 100;
/// So many agents of a kind are named.
constexpr size_t mostNames = 20;

/// Whether an agent has refused what it is to have because of a text of another place, which it has never had
/// in force. What cannot be told apart counts against the new texts.
bool isHindered(const FleetSight& sight, const std::string& group, const std::string& name) {
  const FleetSight::Member& member = sight.agents.at(name);
  const std::string mistake = member.mistake();
  const auto content = sight.contentOf(name);
  return std::any_of(content.texts.begin(), content.texts.end(), [&](const FleetContent::Text& text) {
    return !text.key.starts_with(textsPrefix(group)) && mistake.starts_with(text.key + ":") &&
           sight.texts.at(text.key).modified > member.inForceAt();
  });
}

RolloutAgent standOf(const FleetSight& sight, const std::string& group, const std::string& name) {
  const FleetSight::Member& member = sight.agents.at(name);
  const std::string wanted = sight.contentOf(name).version;
  const std::string_view status = memberStatus(member, wanted);
  RolloutAgent agent;
  agent.isThere = status != "gone";
  using Stands = RolloutAgent::Stands;
  agent.stands = status == "in force"             ? Stands::inForce
                 : status != "refused"            ? Stands::behind
                 : isHindered(sight, group, name) ? Stands::hindered
                                                  : Stands::refused;
  agent.wanted = wanted;
  const FleetDrops::Rates rates = FleetDrops::ratesIn(member.drops, wanted);
  agent.before = rates.before;
  agent.since = rates.since;
  return agent;
}

std::string newTextKey(const std::string& group, const std::string& name) {
  return rolloutTextsPrefix(textsPrefix(group)) + name;
}

/// Its texts are those of the group from now on.
void addDone(EtcdTxn& txn, const FleetSight& sight, const std::string& group, const FleetPlace& place) {
  FleetPlan plan{group, {}};
  const size_t behind = newTextKey(group, "").size();
  for (const EtcdEntry* text : place.newTexts()) plan.texts[text->key.substr(behind)] = text->value;
  addUnchanged(txn, sight, group, sight.keysOf(group));
  for (const auto& [key, text] : plan.changes(sight)) {
    if (text)
      txn.puts.push_back({key, *text});
    else
      txn.deletes.push_back({.key = key});
  }
  txn.puts.push_back({mayOpenBackKey(textsPrefix(group)), FleetPlace::digestOfTexts(plan.texts)});
}

/// What a move is for the history of the group; a step to the next one is nothing.
std::optional<FleetAudit> auditOf(const Rollout& before, const Rollout& after, const std::string& who) {
  using Phase = Rollout::Phase;
  if (before.phase == after.phase) return std::nullopt;
  if (after.phase == Phase::done)
    return FleetAudit{"rollout", after.who, after.why, after.changed, after.summary};
  const char* const what = after.phase == Phase::back     ? "rollout back"
                           : after.phase == Phase::paused ? "rollout paused"
                                                          : "rollout resumed";
  return FleetAudit{what, who, after.result, after.changed, after.summary};
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
  for (const std::string& name : sight.agentsOf(group)) view.agents[name] = standOf(sight, group, name);
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
  addUnchanged(txn, sight, plan.group, sight.keysOf(plan.group));
  for (const auto& [name, text] : plan.texts) txn.puts.push_back({newTextKey(plan.group, name), text});
  // What an earlier one has left behind.
  for (const EtcdEntry* text : place.newTexts()) {
    if (!plan.texts.contains(text->key.substr(rolloutTextsPrefix(prefix).size())))
      txn.deletes.push_back({.key = text->key});
  }
  const std::string digest = FleetPlace::digestOfTexts(plan.texts);
  if (begun.mayOpen) txn.puts.push_back({mayOpenKey(prefix), digest});
  // Whoever begins it says that agents may go back, also those that were away with texts of an earlier one.
  std::map<std::string, std::string> before;
  for (const EtcdEntry* text : place.texts()) before[text->key.substr(prefix.size())] = text->value;
  txn.puts.push_back({mayOpenBackKey(prefix), FleetPlace::digestOfTexts(before) + " " + digest});
  txn.puts.push_back({rolloutKey(prefix), begun.json()});
  const FleetAudit audit{"rollout begun", begun.who, begun.why, begun.began, begun.summary};
  txn.puts.push_back({auditKey(plan.group), audit.json()});
  return txn;
}

EtcdTxn rolloutMove(const FleetSight& sight, const std::string& group, const Rollout& after,
                    const std::string& who) {
  const std::string prefix = textsPrefix(group);
  const FleetPlace place(sight.texts, prefix);
  EtcdTxn txn;
  txn.compares.push_back({rolloutKey(prefix), place.rolloutAt()});
  txn.puts.push_back({rolloutKey(prefix), after.json()});
  if (after.phase == Rollout::Phase::done) addDone(txn, sight, group, place);
  if (const auto audit = auditOf(*place.rollout(), after, who))
    txn.puts.push_back({auditKey(group), audit->json()});
  if (after.isActive()) return txn;
  txn.deletes.push_back({.key = rolloutTextsPrefix(prefix), .isPrefix = true});
  // A word that something may be opened is for texts that are the group's: not for those that went back, nor
  // for those before a rollout that needed none.
  if (after.mayOpen == (after.phase == Rollout::Phase::back))
    txn.deletes.push_back({.key = mayOpenKey(prefix)});
  return txn;
}

Json rolloutDocument(const FleetSight& sight, const std::string& group) {
  const FleetPlace place(sight.texts, textsPrefix(group));
  const Rollout& rollout = *place.rollout();
  const RolloutView view = rolloutView(sight, group);
  std::vector<std::string> inForce, behind, refused, hindered, gone;
  double before = 0, since = 0;
  for (const auto& [name, agent] : view.agents) {
    // Behind its end all are to have the texts of the group.
    if (rollout.isActive() && !rollout.isTurn(name)) continue;
    using Stands = RolloutAgent::Stands;
    (!agent.isThere                     ? gone
     : agent.stands == Stands::inForce  ? inForce
     : agent.stands == Stands::refused  ? refused
     : agent.stands == Stands::hindered ? hindered
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
  json["turn"] = {{"agents", inForce.size() + behind.size() + refused.size() + hindered.size() + gone.size()},
                  {"inForce", inForce.size()},
                  {"behind", namesJson(behind)},
                  {"refused", namesJson(refused)},
                  {"hindered", namesJson(hindered)},
                  {"gone", namesJson(gone)},
                  {"drops", {{"before", before}, {"since", since}}}};
  return json;
}

std::string rolloutLine(const Json& json) {
  const Json& turn = json.at("turn");
  const std::string phase = valueText(json.at("phase"));
  std::string line = fmt::format("rollout of {}: {}", valueText(json.at("group")), phase);
  if (phase == "done")
    line += ", the new texts are those of the group";
  else if (phase == "back")
    line += fmt::format(" to the texts before: {}", printableText(valueText(json.at("result"))));
  else
    line += fmt::format(
        ", step {} of {} ({}): {} of {} agents, {} in force", valueText(json.at("step")),
        json.at("steps").size(), valueText(json.at("steps").at(json.at("step").get<size_t>() - 1)),
        valueText(turn.at("agents")), valueText(json.at("agents")), valueText(turn.at("inForce")));
  for (const char* kind : {"behind", "refused", "hindered", "gone"}) {
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
