#include <agent/change/Difference.h>
#include <agent/config/Model.h>
#include <agent/core/Words.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetPlan.h>
#include <agent/show/Text.h>
#include <agent/study/PacketComparison.h>
#include <fmt/format.h>

#include <set>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

/// Fewer than the 128 operations, and the 128 comparisons, that etcd takes in a transaction.
constexpr size_t mostChanges = 100;

/// The keys that are written by a plan, as the store would have them then. Their revisions are not known yet.
FleetSight sightAfter(const FleetSight& sight, const FleetPlan& plan) {
  FleetSight after = sight;
  after.tooMuch.erase(textsPrefix(plan.group));
  for (const auto& [key, text] : plan.changes(sight)) {
    if (text)
      after.texts[key] = {key, *text, sight.revision + 1, 1};
    else
      after.texts.erase(key);
  }
  return after;
}

Config::Model modelIn(const FleetSight& sight, const std::string& agent, std::vector<std::string>* mistakes) {
  MadeModel made = readFleet(sight.contentOf(agent), {});
  if (mistakes) *mistakes = std::move(made.mistakes);
  return made.model ? std::move(*made.model) : Config::Model();
}

/// What a plan does to one agent.
Json effectOn(const std::string& agent, const FleetSight& before, const FleetSight& after,
              const FleetPlan& plan, const Leave& leave) {
  std::vector<std::string> mistakes;
  const Config::Model was = modelIn(before, agent, nullptr), now = modelIn(after, agent, &mistakes);
  Json effect = {{"agents", Json::array({agent})},
                 {"difference", nullptr},
                 {"openings", Json::array()},
                 {"refused", nullptr}};
  if (!mistakes.empty()) {
    effect["refused"] = mistakes.front();
    return effect;
  }
  const auto ports = before.agents.at(agent).ports();
  const Layers had = {{fleetName, &was}}, has = {{fleetName, &now}};
  const ChangeWarnings warnings = changeWarnings(had, has, ports ? &*ports : nullptr);
  if (plan.packets) effect["packets"] = packetComparison(had, has, {});
  effect["difference"] = Json::parse(*difference(was, now, warnings.uncovered).line());
  for (const Warning& opening : warnings.openings) effect["openings"].push_back(opening.text);
  if (const auto why = whyRefused(warnings, leave)) effect["refused"] = *why;
  return effect;
}

/// Agents of the same groups, ports and own texts are told of once.
Json effectsOf(const FleetPlan& plan, const FleetSight& sight, const Leave& leave) {
  const FleetSight after = sightAfter(sight, plan);
  std::map<std::string, size_t> known;
  Json effects = Json::array();
  for (const std::string& agent : sight.agentsOf(plan.group)) {
    std::string alike;
    for (const auto& [key, text] : after.contentOf(agent).texts) alike += fmt::format("{}\n{}\n", key, text);
    for (const std::string& port : sight.agents.at(agent).ports().value_or(PortNames())) alike += port + "\n";
    alike += sight.contentOf(agent).version;
    const auto [at, isNew] = known.emplace(std::move(alike), effects.size());
    if (isNew)
      effects.push_back(effectOn(agent, sight, after, plan, leave));
    else
      effects[at->second]["agents"].push_back(agent);
  }
  return effects;
}

std::string wordIn(const Json& json, const char* name) {
  return json.is_object() && json.contains(name) && json.at(name).is_string()
             ? json.at(name).get<std::string>()
             : "";
}

}  // namespace

std::string FleetAudit::json() const {
  const Json made = {{"what", what}, {"who", who}, {"why", why}, {"time", time}, {"summary", summary}};
  return made.dump(-1, ' ', false, Json::error_handler_t::replace);
}

FleetAudit FleetAudit::of(const std::string& text) {
  const Json json = Json::parse(text, nullptr, false);
  const bool hasTime = json.is_object() && json.contains("time") && json.at("time").is_number();
  return {wordIn(json, "what"), wordIn(json, "who"), wordIn(json, "why"),
          hasTime ? json.at("time").get<double>() : 0, wordIn(json, "summary")};
}

std::map<std::string, std::optional<std::string>> FleetPlan::changes(const FleetSight& sight) const {
  std::map<std::string, std::optional<std::string>> all;
  for (const std::string& key : sight.keysOf(group)) all[key] = std::nullopt;
  for (const auto& [name, text] : texts) {
    const std::string key = textsPrefix(group) + name;
    const auto known = sight.texts.find(key);
    if (known != sight.texts.end() && known->second.value == text)
      all.erase(key);
    else
      all[key] = text;
  }
  return all;
}

bool FleetPlan::isChange(const FleetSight& sight) const {
  if (!changes(sight).empty()) return true;
  const auto word = sight.texts.find(mayOpenKey(textsPrefix(group)));
  return mayOpen && (word == sight.texts.end() || word->second.value != FleetPlace::digestOfTexts(texts));
}

Json planDocument(const FleetPlan& plan, const FleetSight& sight, const Leave& leave) {
  Json added = Json::array(), changed = Json::array(), removed = Json::array();
  const std::string prefix = textsPrefix(plan.group);
  for (const auto& [key, text] : plan.changes(sight))
    (!text ? removed : sight.texts.contains(key) ? changed : added).push_back(key.substr(prefix.size()));
  FleetContent alone;
  for (const auto& [name, text] : plan.texts) alone.texts.push_back({name, text});
  const std::vector<std::string> mistakes = readFleet(alone, {}).mistakes;
  Json effects = mistakes.empty() ? effectsOf(plan, sight, leave) : Json::array();
  return {{"group", plan.group},
          {"texts",
           {{"added", std::move(added)}, {"changed", std::move(changed)}, {"removed", std::move(removed)}}},
          {"mistakes", mistakes},
          {"effects", std::move(effects)}};
}

std::string planText(const Json& document, bool colour) {
  std::string text;
  for (const auto& [what, names] : document.at("texts").items()) {
    for (const Json& name : names) text += fmt::format("{} {}\n", what, valueText(name));
  }
  for (const Json& effect : document.at("effects")) {
    const auto agents = effect.at("agents").get<std::vector<std::string>>();
    text += fmt::format("\non {}:\n", fmt::join(agents, " "));
    if (!effect.at("difference").is_null())
      text += isNoDifference(effect.at("difference")) ? "no change\n"
                                                      : differenceText(effect.at("difference"), colour);
    if (effect.contains("packets")) text += packetComparisonText(effect.at("packets"));
    for (const Json& opening : effect.at("openings")) text += "opens: " + valueText(opening) + "\n";
    if (!effect.at("refused").is_null())
      text += "is refused there: " + valueText(effect.at("refused")) + "\n";
  }
  return text.empty() ? "nothing changes\n" : text;
}

std::optional<std::string> whyNoPlan(const Json& document) {
  if (!document.at("mistakes").empty()) return document.at("mistakes").front().get<std::string>();
  for (const Json& effect : document.at("effects")) {
    if (effect.at("refused").is_string())
      return fmt::format("{}: {}", valueText(effect.at("agents").front()), valueText(effect.at("refused")));
  }
  size_t changes = 0;
  for (const auto& [what, names] : document.at("texts").items()) changes += names.size();
  if (changes > mostChanges) return fmt::format("more than {} texts change at once", mostChanges);
  return std::nullopt;
}

void addUnchanged(EtcdTxn& txn, const FleetSight& sight, const std::string& group,
                  const std::vector<std::string>& keys) {
  for (const std::string& key : keys) {
    const auto known = sight.texts.find(key);
    txn.compares.push_back({key, known == sight.texts.end() ? 0 : known->second.modified});
  }
  for (auto& [from, end] : textRanges(textsPrefix(group)))
    txn.compares.push_back({std::move(from), sight.revision, std::move(end)});
}

Maybe<int64_t> carryOut(Etcd& etcd, const FleetPlan& plan, const FleetSight& sight, int64_t auditedAt,
                        const FleetAudit& audit) {
  EtcdTxn txn;
  const std::string prefix = textsPrefix(plan.group);
  const FleetPlace place(sight.texts, prefix);
  if (place.rollout() && place.rollout()->isActive())
    return {{},
            fmt::format("a rollout of {0} is under way: velo fleet rollout abort {0} ends it", plan.group),
            false};
  txn.compares.push_back({rolloutKey(prefix), place.rolloutAt()});
  if (plan.mayOpen)
    txn.puts.push_back({mayOpenKey(prefix), FleetPlace::digestOfTexts(plan.texts)});
  else if (sight.texts.contains(mayOpenKey(prefix)))
    txn.deletes.push_back({.key = mayOpenKey(prefix)});
  // Who was away with texts of a rollout that went back may take these in their place.
  if (place.rolloutAt() != 0)
    txn.puts.push_back({mayOpenBackKey(prefix), FleetPlace::digestOfTexts(plan.texts)});
  txn.compares.push_back({auditKey(plan.group), auditedAt});
  std::vector<std::string> keys;
  for (const auto& [key, text] : plan.changes(sight)) {
    keys.push_back(key);
    if (text)
      txn.puts.push_back({key, *text});
    else
      txn.deletes.push_back({.key = key});
  }
  addUnchanged(txn, sight, plan.group, keys);
  txn.puts.push_back({auditKey(plan.group), audit.json()});
  auto answer = etcd.txn(txn);
  if (!answer) {
    return {{},
            answer.isUnknown ? answer.wrong + "; it is not known whether the change was made" : answer.wrong,
            answer.isUnknown};
  }
  if (!answer.value->succeeded)
    return {{}, "somebody else has changed " + plan.group + " meanwhile; try again", false};
  return {answer.value->revision, {}, false};
}

}  // namespace Agent
