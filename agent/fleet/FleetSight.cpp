#include <agent/config/Sentences.h>
#include <agent/core/Words.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetPlace.h>
#include <agent/fleet/FleetSight.h>
#include <agent/show/Text.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* inForceWord = "in force";
/// So many keys that are not read are named.
constexpr size_t mostIgnoredShown = 20;

Json parsed(const std::string& text) {
  Json json = Json::parse(text, nullptr, false);
  return json.is_object() ? json : Json(nullptr);
}

std::vector<std::string> groupsIn(const Json& json) {
  std::vector<std::string> groups;
  if (!json.is_object() || !json.contains("groups") || !json.at("groups").is_array()) return groups;
  for (const Json& group : json.at("groups")) {
    if (group.is_string()) groups.push_back(group.get<std::string>());
  }
  return groups;
}

/// A member of a document that others have written; null when it is not there.
Json memberOf(const Json& json, const char* name) {
  return json.is_object() && json.contains(name) ? json.at(name) : Json(nullptr);
}

std::string versionIn(const Json& content) {
  const Json version = memberOf(content, "version");
  return version.is_string() ? version.get<std::string>() : "";
}

Json contentWords(const FleetContent& content) {
  return {{"revision", content.revision}, {"version", content.version}};
}

/// Keys where texts are that are none of the layout: nobody reads them, so somebody may wonder.
Json ignoredIn(const FleetSight& sight) {
  Json ignored = Json::array();
  const std::string configs = std::string(fleetRoot) + "config/";
  for (const auto& [key, entry] : sight.texts) {
    const std::string_view group = nameIn(key, configs);
    std::string place = groupPrefix(group);
    const bool isOwn = whyNoGroup(group).has_value() && !whyNoFleetName(group);
    if (isOwn) place = ownPrefix(nameIn(key, place));
    const bool fits = !whyNoFleetName(group) && key.starts_with(place) &&
                      isOfPlace(std::string_view(key).substr(place.size()));
    if (!fits && ignored.size() < mostIgnoredShown) ignored.push_back(printableText(key));
  }
  return ignored;
}

}  // namespace

int64_t FleetSight::Member::inForceAt() const {
  const Json at = memberOf(memberOf(state, "inForce"), "revision");
  return at.is_number_integer() ? at.get<int64_t>() : 0;
}

std::string FleetSight::Member::mistake() const {
  const Json mistakes = memberOf(state, "mistakes");
  return mistakes.is_array() && !mistakes.empty() && mistakes[0].is_string() ? mistakes[0].get<std::string>()
                                                                             : "";
}

std::optional<PortNames> FleetSight::Member::ports() const {
  const Json ports = memberOf(state, "ports");
  if (!ports.is_array() || ports.empty()) return std::nullopt;
  PortNames names;
  for (const Json& port : ports) {
    const Json name = memberOf(port, "name");
    if (name.is_string()) names.insert(name.get<std::string>());
  }
  return names;
}

FleetContent FleetSight::contentOf(const std::string& agent) const {
  FleetContent content;
  FleetVersion version;
  const auto member = agents.find(agent);
  const FleetIdentity identity{agent,
                               member == agents.end() ? std::vector<std::string>() : member->second.groups};
  for (const std::string& prefix : identity.prefixes()) {
    for (const EtcdEntry* text : FleetPlace(texts, prefix).textsOf(agent)) {
      content.texts.push_back({text->key, text->value});
      content.revision = std::max(content.revision, text->modified);
      version.add(text->key, text->modified);
    }
  }
  content.version = version.str();
  for (const std::string& prefix : identity.prefixes()) {
    if (tooMuch.contains(prefix)) content.wrong.push_back(prefix + ": more text than is read");
  }
  return content;
}

std::set<std::string> FleetSight::placesOf(const std::vector<std::string>& names) const {
  std::set<std::string> places;
  for (const std::string& name : names) {
    const auto member = agents.find(name);
    if (member == agents.end()) continue;
    for (std::string& prefix : FleetIdentity{name, member->second.groups}.prefixes())
      places.insert(std::move(prefix));
  }
  return places;
}

std::vector<std::string> FleetSight::keysOf(const std::string& group) const {
  std::vector<std::string> keys;
  for (const EtcdEntry* text : FleetPlace(texts, textsPrefix(group)).texts()) keys.push_back(text->key);
  return keys;
}

std::string FleetSight::whyNoAgent(const std::string& name) const {
  std::vector<std::string_view> names;
  for (const auto& [each, member] : agents) names.push_back(each);
  return Config::noSuch("agent", name, names);
}

std::vector<std::string> FleetSight::agentsOf(const std::string& group) const {
  std::vector<std::string> names;
  for (const auto& [name, member] : agents) {
    if (textsPrefix(group) == ownPrefix(name) ||
        std::find(member.groups.begin(), member.groups.end(), group) != member.groups.end())
      names.push_back(name);
  }
  return names;
}

std::vector<std::string> FleetSight::rolloutGroups() const {
  std::vector<std::string> groups;
  const std::string prefix = std::string(fleetRoot) + "config/";
  for (const auto& [key, entry] : texts) {
    const std::string group(nameIn(key, prefix));
    if (!whyNoGroup(group) && key == rolloutKey(textsPrefix(group))) groups.push_back(group);
  }
  return groups;
}

FleetSight FleetSight::of(EtcdResult& answer) {
  FleetSight sight;
  sight.revision = answer.revision;
  auto& reads = answer.reads;
  for (EtcdEntry& entry : reads[0]) sight.texts.emplace(entry.key, std::move(entry));
  for (const EtcdEntry& entry : reads[2]) {
    const std::string name(nameIn(entry.key, knownPrefix()));
    if (!whyNoFleetName(name)) sight.agents[name].groups = groupsIn(parsed(entry.value));
  }
  for (EtcdEntry& entry : reads[1]) {
    const std::string name(nameIn(entry.key, agentsPrefix()));
    if (whyNoFleetName(name)) continue;
    if (entry.key == dropsKey(name)) sight.agents[name].drops = std::move(entry.value);
    if (entry.key != stateKey(name)) continue;
    auto& member = sight.agents[name];
    member.state = parsed(entry.value);
    if (member.state.is_object()) member.groups = groupsIn(member.state);
  }
  return sight;
}

std::string_view memberStatus(const FleetSight::Member& member, const std::string& wanted) {
  if (member.state.is_null()) return "gone";
  if (versionIn(memberOf(member.state, "inForce")) == wanted) return inForceWord;
  const Json result = memberOf(member.state, "result");
  if (result == "waiting") return "waiting";
  return result == "refused" && versionIn(memberOf(member.state, "wanted")) == wanted ? "refused" : "behind";
}

Json fleetStatusDocument(const FleetSight& sight) {
  Json agents = Json::array();
  Json summary = {{inForceWord, 0}, {"behind", 0}, {"refused", 0}, {"waiting", 0}, {"gone", 0}};
  for (const auto& [name, member] : sight.agents) {
    const FleetContent wanted = sight.contentOf(name);
    const std::string status(memberStatus(member, wanted.version));
    summary[status] = summary[status].get<int>() + 1;
    Json one = {
        {"agent", name}, {"groups", member.groups}, {"status", status}, {"wanted", contentWords(wanted)}};
    for (const char* told : {"inForce", "since", "started", "program"})
      one[told] = memberOf(member.state, told);
    for (const char* told : {"mistakes", "openings", "ports"}) {
      Json list = memberOf(member.state, told);
      one[told] = list.is_array() ? std::move(list) : Json::array();
    }
    agents.push_back(std::move(one));
  }
  Json rollouts = Json::array();
  for (const std::string& group : sight.rolloutGroups()) {
    const FleetPlace place(sight.texts, textsPrefix(group));
    if (place.rollout() && place.rollout()->isActive()) rollouts.push_back(group);
  }
  return {{"revision", sight.revision},
          {"agents", std::move(agents)},
          {"summary", std::move(summary)},
          {"rollouts", std::move(rollouts)},
          {"ignored", ignoredIn(sight)}};
}

std::string fleetStatusText(const Json& document, bool colour, double now) {
  std::vector<std::vector<std::string>> lines = {
      {"agent", "groups", "status", "in force", "wanted", "since", "why"}};
  for (const Json& agent : document.at("agents")) {
    const Json& inForce = agent.at("inForce");
    const Json& since = agent.at("since");
    const Json& why = agent.at("mistakes");
    const bool isWrong = agent.at("status") != inForceWord && agent.at("status") != "gone";
    lines.push_back({valueText(agent.at("agent")),
                     fmt::format("{}", fmt::join(agent.at("groups").get<std::vector<std::string>>(), ",")),
                     valueText(agent.at("status")),
                     inForce.is_object() ? valueText(memberOf(inForce, "revision")) : "-",
                     valueText(agent.at("wanted").at("revision")),
                     since.is_number() ? timeText(since.get<double>(), now) : "-",
                     isWrong && !why.empty() ? printableText(valueText(why.at(0))) : ""});
  }
  std::vector<std::string> sums;
  for (const auto& [status, count] : document.at("summary").items()) {
    if (count != 0) sums.push_back(fmt::format("{} {}", count.get<int>(), status));
  }
  std::string further;
  for (const Json& group : document.at("rollouts"))
    further +=
        fmt::format("a rollout of {0} is under way: velo fleet rollout status {0}\n", valueText(group));
  for (const Json& key : document.at("ignored"))
    further += fmt::format("{} is no key of a text: nobody reads it\n", valueText(key));
  return tableText(lines, {false, false, false, true, true, false, false}, colour) +
         fmt::format("\n{}{}{}\n{}", countText(document.at("agents").size(), "agent"),
                     sums.empty() ? "" : ": ", fmt::join(sums, ", "), further);
}

Json fleetDiffDocument(const FleetSight& sight) {
  std::map<std::string, std::vector<std::string>> agents;  // by version of what is in force
  std::map<std::string, Json> contents;
  for (const auto& [name, member] : sight.agents) {
    const Json inForce = memberOf(member.state, "inForce");
    const std::string version = member.state.is_null() ? "gone" : versionIn(inForce);
    // Agents of the same groups without texts of their own are to have the same; what differs is told.
    const std::string key = fmt::format("{} {}", fmt::join(member.groups, ","), version);
    agents[key].push_back(name);
    contents[key] = {{"groups", member.groups},
                     {"inForce", inForce},
                     {"status", memberStatus(member, sight.contentOf(name).version)}};
  }
  Json different = Json::array();
  for (auto& [key, names] : agents) {
    Json one = std::move(contents.at(key));
    one["agents"] = names;
    different.push_back(std::move(one));
  }
  return {{"revision", sight.revision}, {"same", different.size() < 2}, {"contents", std::move(different)}};
}

std::string fleetDiffText(const Json& document) {
  std::string text;
  for (const Json& one : document.at("contents")) {
    const Json& inForce = one.at("inForce");
    text += fmt::format(
        "{} ({}): {}\n",
        inForce.is_object() ? "revision " + valueText(memberOf(inForce, "revision")) : "nothing in force",
        valueText(one.at("status")), fmt::join(one.at("agents").get<std::vector<std::string>>(), " "));
  }
  return text.empty() ? "there is no agent\n" : text;
}

}  // namespace Agent
